// A series of messages to a running gateway, a line each: "state N", the controller's state, "subscribe NAME", an
// access point of a domain, and any other line as a setup. After each setup the configuration is what the setup says,
// but for the differences that the log names as refused, and no domain runs on settings that hold no more.
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "daemon/radio_support.h"
#include "daemon/recording_platform.h"
#include "daemon/trace.h"
#include "fuzz/fuzz.h"
#include "fuzz/silence.h"
#include "fuzz/small_stacks.h"
#include "fuzz/standing_clock.h"
#include "json/JsonReader.h"

namespace {

using zal::fuzz::require;
using zal::testing::Platform;
using zal::testing::RecordedRadio;

using Steps = std::set<std::string>;

// All that a configuration says.
struct Picture {
  explicit Picture(const rrm::GlobalConfig& config) : global(config.global()) {
    config.for_each_pattern(
        [this](const std::string& name, const rrm::DomainConfig& settings) { patterns.try_emplace(name, settings); });
    config.for_each_domain(
        [this](const std::string& name, const rrm::DomainInfo& info) { domains.try_emplace(name, info); });
  }
  bool operator==(const Picture&) const = default;

  rrm::GlobalSettings global;
  std::map<std::string, rrm::DomainConfig> patterns;
  std::map<std::string, rrm::DomainInfo> domains;
};

template <class Map>
void add_steps(const Map& from, const Map& to, const std::string& kind, Steps& steps) {
  for (const auto& [name, value] : to) {
    const auto found = from.find(name);
    if (found == from.end()) {
      steps.insert("add " + kind + " " + name);
    } else if (found->second != value) {
      steps.insert("set " + kind + " " + name);
    }
  }
  for (const auto& [name, value] : from) {
    if (!to.contains(name)) steps.insert("remove " + kind + " " + name);
  }
}

// The edits that lead from one to the other.
Steps steps_between(const Picture& from, const Picture& to) {
  Steps steps;
  if (from.global != to.global) steps.insert("set global");
  add_steps(from.patterns, to.patterns, "pattern", steps);
  add_steps(from.domains, to.domains, "domain", steps);
  return steps;
}

using Notes = std::vector<std::string>;

// The log keeps no more than the beginning of a long line.
bool is_told_as_refused(const Notes& notes, const std::string& step) {
  constexpr std::size_t surely_kept = 2000;
  const std::string line = ("warn: Setup: '" + step + "' refused").substr(0, surely_kept);
  return std::any_of(notes.begin(), notes.end(), [&](const std::string& note) { return note.starts_with(line); });
}

void check_setup(const Picture& before, const Picture& after, const std::string& setup) {
  if (rrm::JsonReader(setup.c_str()).to_string()[0] != '{') {
    return require(after == before, "a text that is no setup changes nothing");
  }
  const Notes notes = Platform::instance().notes();
  const Picture wanted(rrm::GlobalConfig("", setup));
  for (const std::string& step : steps_between(after, wanted)) {
    require(is_told_as_refused(notes, step), "what was not taken over is told");
  }
  const Steps done = steps_between(before, after);
  for (const std::string& step : steps_between(before, wanted)) {
    require(!is_told_as_refused(notes, step) || !done.contains(step), "what was refused was not done");
  }
}

void check_domains(const rrm::RRM& server) {
  for (const auto& worker : server.worker_snapshot()) {
    const auto& domain = dynamic_cast<const rrm::RrmWorker&>(*worker);
    const rrm::GlobalConfig& config = server.configuration();
    require(config.is_domain_exist(worker->name), "only configured domains run");
    require(config.domain_config(worker->name) == domain.config(), "a domain runs on the settings that hold");
    require(config.time_zone_offset(worker->name) == domain.time_zone_offset(), "a domain lives in its time zone");
  }
}

class Site {
 public:
  void serve(const std::string& line) {
    int state = 0;
    if (line.starts_with("subscribe ")) {
      subscribe(line.substr(line.find(' ') + 1));
    } else if (std::sscanf(line.c_str(), "state %9d", &state) == 1) {
      radio_.set_vrrp_state(state);
    } else {
      set_up(line);
    }
  }

 private:
  void subscribe(const std::string& domain) {
    if (radio_.server() == nullptr) return;
    rrm::JsonReader message((R"({"version":"2.4","domain":")" + domain + R"(","cmd":"subscribe-request"})").c_str());
    radio_.server()->process_incoming_message(message, rrm::BaseSession{});
  }

  void set_up(const std::string& setup) {
    if (radio_.config() == nullptr) {
      zal::testing::deliver(zal::testing::setup_message(setup), port_, radio_);
      require(Picture(*radio_.config()) == Picture(rrm::GlobalConfig("", setup)), "the first setup holds");
      return;
    }
    const Picture before(*radio_.config());
    Platform::instance().clear();
    zal::testing::deliver(zal::testing::setup_message(setup), port_, radio_);
    check_setup(before, Picture(*radio_.config()), setup);
    check_domains(*radio_.server());
  }

  zal::IpcPort port_{zal::PortId::rrm, trace};
  RecordedRadio radio_{port_};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool has_small_stacks = zal::fuzz::use_small_stacks();
  require(has_small_stacks, "threads are cheap");
  zal::fuzz::silence_logs();
  const zal::fuzz::StandingClock clock;
  Platform::instance().reset();
  Site site;
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(lines, line);) site.serve(line);
  return 0;
}
