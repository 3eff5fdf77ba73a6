// A minute in the life of a big site whose operator cannot make up his mind: while three hundred access points send,
// every command and every request is given in random order, edits, restarts, changes of the role and dropped sessions
// among them. Nothing crashes or comes to a halt, every answer comes and is the right one, and in the end the
// configuration is what the edits say and every access point is served under it.
//
// ZAL_LOAD_SEED repeats a run's orders, ZAL_LOAD_SECONDS makes it longer or shorter.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "RrmWorker.h"
#include "daemon/events.h"
#include "json/JsonWriter.h"
#include "load/crowd.h"
#include "load/gateway.h"
#include "load/hurried_clock.h"
#include "load/stage.h"
#include "load/watchdog.h"
#include "platform/trace_file.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "support/ws_client.h"

namespace load {
namespace {

using Steady = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int times_as_fast = 8;
constexpr std::size_t times_each = 1;      // at least, however slow the machine is
constexpr seconds longest_extension{180};  // until every kind of order has come to something
constexpr seconds patience{60};
constexpr seconds longest_return{150};  // an access point that failed often waits long before it connects again
constexpr seconds longest_end{20};      // of a dropped session, though its connection takes nothing more

std::uint64_t number_of_environment(const char* name, std::uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// What the library must never have to report, whatever the load: exceptions that end a worker or lose a message, and
// queues that overflow. A message may be late, though: of a session that is no longer the access point's, of an access
// point that is gone, or for a domain that is not configured any more.
class Trouble {
 public:
  Trouble() {
    rrm::set_log_hook(on_log);
    rrm::set_event_hook(on_event);
  }
  ~Trouble() {
    rrm::set_event_hook(nullptr);
    rrm::set_log_hook(be_silent);
  }
  Trouble(const Trouble&) = delete;
  Trouble& operator=(const Trouble&) = delete;

  static std::size_t count() { return count_; }

 private:
  static void on_log(const char* file, int line, const char* function, int level, const char* format, va_list args) {
    if (level == rrm::LOG_ERROR) judge(format, args);
    on_library_log(file, line, function, level, format, args);
  }
  static void on_event(const int& id, const std::shared_ptr<std::string>& payload) {
    static constexpr int bad[] = {2, 5, 6, 7, 10, 12, 14, 16, 18, 25, 26};
    if (std::find(std::begin(bad), std::end(bad), id) != std::end(bad)) {
      report("event " + std::to_string(id) + " " + (payload ? *payload : ""));
    }
    on_library_event(id, payload);
  }
  static void be_silent(const char*, int, const char*, int, const char*, va_list) {}

  __attribute__((format(printf, 1, 0))) static void judge(const char* format, va_list args) {
    static constexpr std::string_view late[] = {": invalid session", ": invalid exist session", ": AP not found",
                                                ": Domain not found", ": Domain (time zone) not found"};
    va_list again;
    va_copy(again, args);
    const std::string text = rrm::testing::format_text(format, again);
    va_end(again);
    const bool is_late =
        std::any_of(std::begin(late), std::end(late), [&](std::string_view end) { return text.ends_with(end); });
    if (text.find("xception") != std::string::npos && !is_late) report(text);
  }
  static void report(const std::string& text) {
    ++count_;
    std::cerr << text << std::endl;
  }

  static inline std::atomic<std::size_t> count_{0};
};

struct Count {
  std::size_t issued = 0;
  std::size_t fulfilled = 0;
};

class Load : public ::testing::Test {
 protected:
  Load()
      : seed_(number_of_environment("ZAL_LOAD_SEED", std::random_device()())),
        duration_(number_of_environment("ZAL_LOAD_SECONDS", 60)),
        stage_(gateway_, crowd_, seed_, {port_, rrm::testing::free_port()}, directory_.file("reports")) {
    std::cout << "ZAL_LOAD_SEED=" << seed_ << std::endl;
  }

  void begin();
  // Every kind of question and edit once, in random order, with an upheaval whenever one is due.
  void round(bool with_upheavals);
  void issue(const Order& order);
  void issue_upheaval();
  bool is_over() const;
  bool each_was_issued(const std::vector<Order>& orders) const;
  bool each_was_fulfilled(const std::vector<Order>& orders) const;
  bool serve_until(const std::string& what, const std::function<bool()>& condition, seconds longest = longest_return);

  bool has_report();
  std::map<std::string, int> served_access_points();
  std::map<std::string, int> all_access_points() const;
  std::vector<int> dropped_sessions();
  void expect_return_of_all();
  void expect_end_of_dropped_sessions();
  void expect_end_of_half(bool by_bus);
  void expect_configuration();
  void expect_settings_in_use();
  void expect_every_kind();
  void tell() const;

  const std::uint64_t seed_;
  const seconds duration_;
  rrm::testing::TempDir directory_;
  zal::testing::TraceFile log_;
  Trouble trouble_;
  HurriedClock clock_{times_as_fast};
  Watchdog watchdog_{patience};
  const int port_ = rrm::testing::free_port();
  Crowd crowd_{port_, seed_};
  Gateway gateway_{directory_.path().string() + "/", [this](const std::string& step) { watchdog_.begins(step); }};
  Stage stage_;
  std::map<std::string, Count> counts_;
  std::vector<Order> coming_upheavals_;
  Steady::time_point started_;
  Steady::time_point next_upheaval_;
};

// The first setup makes the server, and its first role is the master's.
void Load::begin() {
  ExpectedConfig config;
  config.global["listen_port"] = port_;
  config.global["reports_path"] = stage_.reports_path;
  config.patterns["dense"] = config.common;
  config.patterns["dense"]["use_80211v"] = 1;
  config.patterns["sparse"] = config.common;
  config.patterns["sparse"]["use_dca"] = 0;
  std::filesystem::create_directory(stage_.reports_path);
  const std::vector<std::string> patterns{"common", "dense", "sparse"};
  for (std::size_t i = 0; i < crowd_.domains().size(); ++i) {
    config.domains[crowd_.domains()[i]] = {patterns[i % patterns.size()], i % 2 == 0 ? "3:00" : ""};
  }
  stage_.send_setup(config);
  stage_.send_vrrp_state(1);
  stage_.tell_records(crowd_.access_points());
}

void Load::issue(const Order& order) {
  watchdog_.begins(order.name);
  SCOPED_TRACE(order.name);
  stage_.is_fulfilled = false;
  order.issue(stage_);
  Count& count = counts_[order.name];
  ++count.issued;
  count.fulfilled += stage_.is_fulfilled ? 1 : 0;
}

// All of them in turn, each time in another order.
void Load::issue_upheaval() {
  if (coming_upheavals_.empty()) {
    coming_upheavals_ = upheavals();
    stage_.dice.shuffle(coming_upheavals_);
  }
  const Order order = coming_upheavals_.back();
  coming_upheavals_.pop_back();
  issue(order);
  next_upheaval_ = Steady::now() + milliseconds(stage_.dice.between(100, 800));
}

void Load::round(bool with_upheavals) {
  std::vector<Order> orders = questions();
  orders.insert(orders.end(), edits().begin(), edits().end());
  stage_.dice.shuffle(orders);
  for (const Order& order : orders) {
    if (HasFailure()) return;
    issue(order);
    gateway_.pass();
    if (with_upheavals && Steady::now() >= next_upheaval_) issue_upheaval();
  }
}

bool Load::each_was_issued(const std::vector<Order>& orders) const {
  return std::all_of(orders.begin(), orders.end(), [this](const Order& order) {
    const auto found = counts_.find(order.name);
    return found != counts_.end() && found->second.issued >= times_each;
  });
}

// On a slow machine an order may meet nobody who could fulfil it for long.
bool Load::each_was_fulfilled(const std::vector<Order>& orders) const {
  return std::all_of(orders.begin(), orders.end(), [this](const Order& order) {
    const auto found = counts_.find(order.name);
    return order.outcome == Order::Outcome::bare || (found != counts_.end() && found->second.fulfilled > 0);
  });
}

bool Load::is_over() const {
  const auto every = [](const auto& holds) { return holds(upheavals()) && holds(questions()) && holds(edits()); };
  const auto now = Steady::now();
  return HasFailure() ||
         (now >= started_ + duration_ && every([this](const auto& orders) { return each_was_issued(orders); }) &&
          (now >= started_ + duration_ + longest_extension ||
           every([this](const auto& orders) { return each_was_fulfilled(orders); })));
}

bool Load::serve_until(const std::string& what, const std::function<bool()>& condition, seconds longest) {
  const auto deadline = Steady::now() + longest;
  bool holds = condition();
  while (!holds && Steady::now() < deadline) {
    watchdog_.begins(what);
    gateway_.pass();
    holds = condition();
  }
  return holds;
}

bool Load::has_report() {
  return std::any_of(crowd_.domains().begin(), crowd_.domains().end(), [this](const std::string& domain) {
    return stage_.ask_server({{"rrm", {{"domain", domain}, {"last_report", domain}}}}).contains("report");
  });
}

std::map<std::string, int> Load::served_access_points() {
  std::map<std::string, int> counts;
  const Json rest = stage_.ask_server({{"rrm", Json::object()}});
  for (const Json& domain : rest.at("domains")) {
    counts[domain.at("name")] = domain.at("ap-count").get<int>() + domain.at("unanswered-ap-count").get<int>();
  }
  return counts;
}

std::map<std::string, int> Load::all_access_points() const {
  std::map<std::string, int> counts;
  for (const std::string& domain : crowd_.domains()) counts[domain] = Crowd::aps_of_domain;
  return counts;
}

// Those that the server has still, or again.
std::vector<int> Load::dropped_sessions() {
  std::vector<int> ids = stage_.session_ids();
  std::erase_if(ids, [this](int id) { return !stage_.dropped.contains(id); });
  return ids;
}

// What is said to a session before its first writable event is lost, and so is an order to drop it: a session that was
// just beginning may have survived its order. By now it has long had that event, and does not survive another.
void Load::expect_end_of_dropped_sessions() {
  const auto are_gone = [this] { return dropped_sessions().empty(); };
  if (serve_until("the end of dropped sessions", are_gone, longest_end)) return;
  const std::vector<int> survivors = dropped_sessions();
  std::cout << survivors.size() << " sessions were dropped too early" << std::endl;
  for (const int id : survivors) EXPECT_TRUE(stage_.dropped_early.contains(id)) << id;
  stage_.drop(survivors, false);
  EXPECT_TRUE(serve_until("the end of the survivors", are_gone, longest_end))
      << ::testing::PrintToString(dropped_sessions());
}

// Whoever is served has had its first writable event. Those that are not dropped stay.
void Load::expect_end_of_half(bool by_bus) {
  const std::vector<int> all = stage_.session_ids();
  ASSERT_GT(all.size(), Crowd::size / 2);
  const std::vector<int> half(all.begin(), all.begin() + Crowd::size / 2);
  stage_.drop(half, by_bus);
  EXPECT_TRUE(serve_until(
      "the end of half the sessions", [this] { return dropped_sessions().empty(); }, longest_end))
      << ::testing::PrintToString(dropped_sessions());
  const std::vector<int> left = stage_.session_ids();
  for (auto stays = all.begin() + Crowd::size / 2; stays != all.end(); ++stays) {
    EXPECT_NE(std::find(left.begin(), left.end(), *stays), left.end()) << *stays;
  }
}

void Load::expect_return_of_all() {
  EXPECT_TRUE(serve_until("the return of all", [this] {
    return crowd_.subscribed() == Crowd::size && served_access_points() == all_access_points() &&
           stage_.session_ids().size() == Crowd::size;
  })) << crowd_.missing();
}

Json json_of(const rrm::DomainConfig& settings) {
  rrm::JsonWriter writer;
  rrm::JsonWriter section = rrm::JsonWriter::object(writer, "section");
  write_settings(settings, section);
  return Json::parse(writer.to_string()).at("section");
}

Json json_of(const rrm::GlobalSettings& settings) {
  rrm::JsonWriter writer;
  rrm::JsonWriter section = rrm::JsonWriter::object(writer, "section");
  write_settings(settings, section);
  return Json::parse(writer.to_string()).at("section");
}

void Load::expect_configuration() {
  const rrm::GlobalConfig& config = *gateway_.radio().config();
  ExpectedConfig present;
  present.global = json_of(config.global());
  config.for_each_pattern([&](const std::string& name, const rrm::DomainConfig& settings) {
    (name == "common" ? present.common : present.patterns[name]) = json_of(settings);
  });
  config.for_each_domain([&](const std::string& name, const rrm::DomainInfo& info) {
    present.domains[name] = {info.pattern, info.time_zone};
  });
  EXPECT_EQ(present.document(), stage_.config.document());
}

// A domain is run by what its pattern says now.
void Load::expect_settings_in_use() {
  for (const auto& [domain, binding] : stage_.config.domains) {
    const Json settings = *stage_.config.settings_of(binding.pattern);
    EXPECT_EQ(json_of(gateway_.radio().config()->domain_config(domain)), settings) << domain;
    const auto worker = std::dynamic_pointer_cast<rrm::RrmWorker>(gateway_.radio().server()->find_worker(domain));
    ASSERT_NE(worker, nullptr) << domain;
    Json in_use;
    worker->execute_locked([&] { in_use = json_of(worker->config()); });
    EXPECT_EQ(in_use, settings) << domain;
  }
}

void Load::expect_every_kind() {
  for (const auto* orders : {&questions(), &edits(), &upheavals()}) {
    for (const Order& order : *orders) {
      const Count& count = counts_[order.name];
      EXPECT_GE(count.issued, times_each) << order.name;
      if (order.outcome == Order::Outcome::fulfilled) {
        EXPECT_GE(count.fulfilled, 1u) << order.name << " was always refused";
      }
    }
  }
}

void Load::tell() const {
  std::size_t sum = 0;
  for (const auto& [name, count] : counts_) {
    sum += count.issued;
    std::cout << count.issued << " (" << count.fulfilled << ") " << name << "\n";
  }
  std::cout << sum << " orders; " << crowd_.infos() << " orders to access points, " << crowd_.whole_cycles()
            << " whole optimisations, " << gateway_.alarms() << " alarms, " << gateway_.rounds_of_backups()
            << " rounds of backups, " << stage_.dropped.size() << " sessions dropped, in "
            << std::chrono::duration_cast<seconds>(Steady::now() - started_).count() << " s" << std::endl;
}

TEST_F(Load, AMinuteOfEverythingAtOnceLosesNothing) {
  begin();
  ASSERT_TRUE(serve_until("the first subscriptions", [this] { return crowd_.subscribed() == Crowd::size; }))
      << crowd_.missing();
  ASSERT_TRUE(serve_until("the first report", [this] { return has_report(); }));
  round(false);
  started_ = next_upheaval_ = Steady::now();
  while (!is_over()) round(true);
  tell();
  ASSERT_FALSE(HasFailure());

  add_missing_domains(stage_);
  expect_return_of_all();
  expect_end_of_dropped_sessions();
  for (const bool by_bus : {false, true}) {
    expect_return_of_all();
    ASSERT_FALSE(HasFailure());
    expect_end_of_half(by_bus);
  }
  expect_return_of_all();
  EXPECT_EQ(gateway_.radio().vrrp_state(), stage_.vrrp_state);
  expect_configuration();
  expect_settings_in_use();
  expect_every_kind();
  EXPECT_EQ(Trouble::count(), 0u);
}

}  // namespace
}  // namespace load
