// A server with its halls of access points, living through one simulated second after the other: by day and night
// clients come and go, devices fail, are carried about and misbehave, one hall is dark for a while every night and
// comes back from its backup, and one is configured anew.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Config.h"
#include "daemon/ActiveApStorage.h"
#include "soak/invariants.h"
#include "soak/lockstep_clock.h"
#include "soak/report_hooks.h"
#include "soak/simulated_domain.h"
#include "soak/soaked_server.h"
#include "support/temp_dir.h"

namespace soak {

// What was counted since the start.
struct Totals {
  std::uint64_t events = 0;
  std::uint64_t said = 0;
  std::uint64_t heard = 0;
  std::uint64_t plans = 0;
  std::uint64_t cycles = 0;
  std::uint64_t fewest_cycles = 0;  // of one hall
  std::uint64_t backups = 0;
  std::uint64_t ends = 0;  // of domain workers, by themselves or by order
};

// What was found at a rest, when nothing happens for a while and nothing is under way.
struct Rest {
  Sizes sizes;
  std::size_t domains = 0;
  std::size_t sessions = 0;
  std::size_t longest_queue = 0;  // of a domain, as it was seen now and then since the last rest
  std::size_t reports = 0;
  std::size_t files = 0;  // bytes of reports and backups
  std::size_t heap = 0;   // bytes in use
  std::vector<std::string> faults;
};

class Campus {
 public:
  static constexpr std::int64_t hour = 3600;
  static constexpr std::int64_t rest_period = hour / 4;
  static constexpr std::int64_t quiet_before_rest = 240;

  Campus(int halls, std::uint64_t seed);

  void begin();
  // Up to the next rest.
  void live();
  Rest look();

  std::int64_t seconds() const { return seconds_; }
  std::size_t heap_at_start() const { return heap_at_start_; }
  Totals totals() const;
  // How often a night's events made a domain's worker end.
  std::uint64_t expected_ends() const;
  const ReportHooks& hooks() const { return hooks_; }

 private:
  struct Progress {
    std::uint64_t cycles = 0;
    std::size_t reports = 0;
  };

  void second();
  void exchange();
  void deliver();
  void befall(SimulatedDomain& hall);
  void every_minute();
  void every_hour();
  void every_night();
  void save_backups();
  void restore(const std::string& domain);
  void configure_anew(const std::string& domain);
  std::vector<std::string> faults_of_losses();
  std::vector<std::string> faults_of_progress(const std::string& hall, std::size_t reports);
  bool any_misbehaves(Mischief how) const;
  bool in_cycle() const;
  bool is_quiet() const;
  bool was_deaf(std::uint32_t session) const;
  std::vector<std::string> faults_of_waiting() const;

  rrm::testing::TempDir directory_;
  LockstepClock clock_;
  ReportHooks hooks_;
  ActiveApStorage records_;
  rrm::GlobalConfig config_;
  SoakedServer server_;
  std::vector<std::unique_ptr<SimulatedDomain>> halls_;
  whole_site::Dice dice_;
  bool is_awaiting_cycles_ = false;
  std::map<std::string, Progress> progress_;  // of each hall at the last rest
  std::map<std::string, SeenReports> seen_reports_;
  std::int64_t seconds_ = 0;
  std::size_t heap_at_start_ = 0;
  std::uint64_t events_ = 0;
  std::uint64_t backups_ = 0;
};

}  // namespace soak
