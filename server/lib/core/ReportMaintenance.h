// Deletes old reports once a day, at a time of the day in UTC, on a thread of its own: the file work can take long. A
// second thread asks once a minute whether the work is due; others may ask as well. There is at most one job at a time.
// A failure that a retry can cure is tried again 15 minutes later; any other end closes the day.
//
// Starting and stopping belong to the main thread; check_old_reports may be called from any.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "Config.h"
#include "core/mutex.h"
#include "report_optimize_tpc_dca.h"

namespace rrm {

// What the work asks for and calls. Tests put their own in place.
struct ReportFunctions {
  std::function<GlobalSettings(const GlobalConfig& config)> settings = &GlobalConfig::global;
  std::function<int(const std::string& at_utc, bool& due)> check_alarm_clock =
      reports::check_report_alarm_clock_every_min;
  std::function<void()> mark_completed = reports::mark_report_alarm_completed;
  std::function<int(const std::string& domain, std::uint32_t days, const std::string& path)> delete_old =
      reports::delete_old_reports_in_domain;
  std::function<int(const std::string& domain, const std::string& path)> delete_all =
      reports::delete_report_files_for_domain;
};

struct ReportMaintenanceJob {
  std::string reports_path;
  std::map<std::string, std::uint32_t> domains;  // days to keep
};

// A domain that wants no day at all is kept for one.
std::uint32_t days_to_keep(std::int32_t report_days_to_live);

class ReportMaintenance {
 public:
  enum class Result { done = 0, transient_failure = 1, permanent_failure = 2 };

  explicit ReportMaintenance(const GlobalConfig& config, ReportFunctions functions = {},
                             std::chrono::seconds period = std::chrono::seconds(60));
  virtual ~ReportMaintenance();
  ReportMaintenance(const ReportMaintenance&) = delete;
  ReportMaintenance& operator=(const ReportMaintenance&) = delete;

  // Starts what does not run.
  virtual void ensure_report_maintenance_started() RRM_EXCLUDES(maintenance_mutex_, scheduler_mutex_);
  // Drops a job that waits, and waits for one that runs.
  virtual void stop_report_maintenance() RRM_EXCLUDES(maintenance_mutex_, scheduler_mutex_);

  // Makes a job if one is due. What the file work throws before that passes to the caller, and nothing is left armed.
  void check_old_reports() RRM_EXCLUDES(maintenance_mutex_);

  // The work itself, on the caller's thread.
  Result run_report_maintenance_job(const ReportMaintenanceJob& job) const;

 private:
  // Asking.
  void report_cleanup_scheduler_loop() RRM_EXCLUDES(scheduler_mutex_);
  bool wait_for_next_tick() RRM_EXCLUDES(scheduler_mutex_);
  void tick(const char* which);
  bool backing_off() const;
  bool may_queue() RRM_EXCLUDES(maintenance_mutex_);
  void prepare_job() RRM_EXCLUDES(maintenance_mutex_);

  // Doing.
  void report_maintenance_loop() RRM_EXCLUDES(maintenance_mutex_);
  std::optional<ReportMaintenanceJob> take_job() RRM_EXCLUDES(maintenance_mutex_);
  void carry_out(const ReportMaintenanceJob& job);
  void close_day();
  void retry_later();
  bool delete_old_reports(const ReportMaintenanceJob& job) const;
  bool delete_old_in_domain(const std::string& domain, std::uint32_t days, const std::string& path) const;
  bool delete_orphan(const std::string& domain, const std::string& path) const;

  const GlobalConfig& config_;
  const ReportFunctions functions_;
  const std::chrono::seconds period_;

  std::atomic<bool> cleanup_inflight_{false};   // from the preparing of a job to its end
  std::atomic<std::int64_t> backoff_until_{0};  // wall-clock second before which there is no new job; 0: none

  Mutex maintenance_mutex_;
  std::condition_variable_any maintenance_cv_;
  std::thread maintenance_thread_ RRM_GUARDED_BY(maintenance_mutex_);
  bool maintenance_stop_ RRM_GUARDED_BY(maintenance_mutex_) = false;
  std::optional<ReportMaintenanceJob> pending_job_ RRM_GUARDED_BY(maintenance_mutex_);

  Mutex scheduler_mutex_;
  std::condition_variable_any scheduler_cv_;
  std::thread scheduler_thread_ RRM_GUARDED_BY(scheduler_mutex_);
  bool scheduler_stop_ RRM_GUARDED_BY(scheduler_mutex_) = false;
};

}  // namespace rrm
