// Any files in the directory of the domains' backups: a new master takes over what can be read of them, and what it has
// taken over it saves so that the next one has the same.
#include <map>
#include <memory>
#include <string>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "core/clock.h"
#include "daemon/ActiveApStorage.h"
#include "daemon/ApiZAL.h"
#include "daemon/DomainBackup.h"
#include "daemon/commands.h"
#include "daemon/recording_platform.h"
#include "fuzz/fuzz.h"
#include "fuzz/quiet_server.h"
#include "fuzz/scratch_dir.h"
#include "fuzz/sections.h"
#include "fuzz/silence.h"
#include "fuzz/small_stacks.h"
#include "fuzz/standing_clock.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/temp_dir.h"

namespace {

using rrm::JsonReader;
using zal::fuzz::require;
using zal::fuzz::ScratchDir;

using Files = std::map<std::string, std::string>;

constexpr const char* site = R"({"global":{},"common":{},"patterns":[{"pattern":"dense","away_timeout":60}],
    "domains":[{"domain":"office","pattern":"common"},{"domain":"hall","pattern":"dense"}]})";

// Only its domains run, and those hardly ever hear anything.
class DomainServer final : public zal::fuzz::QuietServer {
 public:
  explicit DomainServer(rrm::GlobalConfig* configuration) : QuietServer(configuration) {
    create_domain_worker = [this](const rrm::DomainConfig& settings, const std::string& domain, std::int32_t time_zone,
                                  std::int32_t) {
      constexpr std::int32_t few = 16;
      return std::make_unique<rrm::RrmWorker>(config, settings, domain, this, time_zone, few);
    };
  }
  using RRM::restore_domains;
};

// A server that takes over the backups of a directory, and gives its domains up again.
class Master {
 public:
  void take_over(const ScratchDir& directory) {
    const DomainBackup backups(api_, directory.path() + "/");
    const JsonReader order(commands::role_master(backups.load_all()).c_str());
    server_.restore_domains(std::make_shared<std::string>(order.get("vrrp").get("domains").to_string()));
  }

  void give_up() {
    for (const auto& worker : server_.worker_snapshot()) server_.remove_worker(worker->name);
  }

  void check() const {
    for (const auto& worker : server_.worker_snapshot()) {
      worker->execute_locked([&] { check_domain(dynamic_cast<rrm::RrmWorker&>(*worker)); });
    }
  }

  void save_to(const ScratchDir& directory) {
    DomainBackup backups(api_, directory.path() + "/");
    for (const auto& worker : server_.worker_snapshot()) {
      std::string error;
      require(backups.save(worker->name, error) == error.empty(), "what is not saved has its reason");
    }
  }

 private:
  static void check_domain(rrm::RrmWorker& domain) {
    const auto counts = domain.ap_counts();
    require(counts.active == 0 && counts.unanswered == 0, "who is taken over is gone until it returns");
    const rrm::ChannelPools& pools = domain.channel_pools();
    for (const std::size_t band : {0U, 1U, 3U, 4U}) require(pools.at(band).empty(), "three bands have channels");
    rrm::JsonWriter details;
    domain.report_details(details);
    require(!JsonReader(details.to_string()).empty(), "a domain can be told");
  }

  rrm::GlobalConfig config_{"", site};
  ActiveApStorage aps_;
  DomainServer server_{&config_};
  ApiZAL api_{&server_, aps_};
};

void lay_out(const ScratchDir& directory, const std::string& input) {
  for (const zal::fuzz::Section& file : zal::fuzz::read_sections(input).list) {
    constexpr std::size_t longest_name = 200;
    const bool is_name =
        file.name.find_first_of(std::string("/\0", 2)) == std::string::npos && file.name.size() < longest_name;
    if (is_name && file.name != "." && file.name != ".." && !file.name.empty()) {
      rrm::testing::write_file(directory.file(file.name), file.text);
    }
  }
}

// From one directory to the next, which then has what a new master has taken over.
Files pass_on(const ScratchDir& from, const ScratchDir& to) {
  static Master master;
  master.take_over(from);
  master.check();
  to.clear();
  master.save_to(to);
  master.give_up();
  return to.files();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool has_small_stacks = zal::fuzz::use_small_stacks();
  require(has_small_stacks, "threads are cheap");
  zal::fuzz::silence_logs();
  const zal::fuzz::StandingClock clock;
  zal::testing::Platform::instance().reset();
  static const ScratchDir first;
  static const ScratchDir second;
  first.clear();
  lay_out(first, std::string(reinterpret_cast<const char*>(data), size));
  // What a foreign file lacks of a backup is filled in on its first way or on the second; then everything stays.
  pass_on(first, second);
  const Files settled = pass_on(second, first);
  require(pass_on(first, second) == settled, "what was restored is saved as it was");
  return 0;
}
