#include "core/ReportMaintenance.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string_view>
#include <utility>
#include <vector>

#include "core/clock.h"
#include "core/log.h"

namespace rrm {
namespace {

constexpr int cleanup_failed_event = 16;
constexpr std::int64_t backoff_period = 900;  // seconds

std::int64_t now_seconds() {
  return wall_seconds().value_or(0);
}

// The domain whose index has this name; empty optional for any other file.
std::optional<std::string> domain_of_index(std::string_view file) {
  constexpr std::string_view prefix = "report_idx_";
  constexpr std::string_view suffix = ".txt";
  if (!file.starts_with(prefix) || !file.ends_with(suffix)) return std::nullopt;
  return std::string(file.substr(prefix.size(), file.size() - prefix.size() - suffix.size()));
}

// The domains with an index in the directory. Empty optional, after a log line, if it cannot be read.
std::optional<std::vector<std::string>> domains_with_reports(const std::string& path) {
  std::vector<std::string> domains;
  std::error_code error;
  for (auto entry = std::filesystem::directory_iterator(path, error);
       !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (auto domain = domain_of_index(entry->path().filename().native())) domains.push_back(*std::move(domain));
  }
  if (!error) return domains;
  RRM_LOG(LOG_ERROR, "Could not open directory: %s (errno=%d: %s)", path.c_str(), error.value(),
          std::strerror(error.value()));
  return std::nullopt;
}

std::string names_of(const std::map<std::string, std::uint32_t>& domains) {
  std::string names;
  for (const auto& [domain, days] : domains)
    names += (names.empty() ? "" : ", ") + domain + "(days=" + std::to_string(days) + ")";
  return names;
}

// The data file of a domain "idx_x" has the name of the index of a domain "x", that of "cfg_x" the name of its
// settings.
bool is_data_of_another(const std::string& domain, const ReportMaintenanceJob& job) {
  return job.domains.contains("idx_" + domain) || job.domains.contains("cfg_" + domain);
}

// True if the path is a directory; else why not, in the log.
bool is_directory(const std::string& path) {
  struct stat status {};
  errno = 0;
  if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) return true;
  const int error = errno;
  RRM_LOG(LOG_ERROR, "Report cleanup aborted: reports_path \"%s\" missing or not a directory (errno=%d: %s).",
          path.c_str(), error, std::strerror(error));
  return false;
}

}  // namespace

std::uint32_t days_to_keep(std::int32_t report_days_to_live) {
  return static_cast<std::uint32_t>(std::max(report_days_to_live, 1));
}

ReportMaintenance::ReportMaintenance(const GlobalConfig& config, ReportFunctions functions, std::chrono::seconds period)
    : config_(config), functions_(std::move(functions)), period_(period) {}

ReportMaintenance::~ReportMaintenance() {
  ReportMaintenance::stop_report_maintenance();
}

void ReportMaintenance::ensure_report_maintenance_started() {
  {
    MutexLock lock(maintenance_mutex_);
    if (!maintenance_thread_.joinable()) {
      maintenance_stop_ = false;
      maintenance_thread_ = std::thread([this] { report_maintenance_loop(); });
    }
  }
  MutexLock lock(scheduler_mutex_);
  if (!scheduler_thread_.joinable()) {
    scheduler_stop_ = false;
    scheduler_thread_ = std::thread([this] { report_cleanup_scheduler_loop(); });
  }
}

void ReportMaintenance::stop_report_maintenance() {
  std::thread scheduler;
  std::thread maintenance;
  {
    MutexLock lock(scheduler_mutex_);
    if (scheduler_thread_.joinable()) scheduler_stop_ = true;
    scheduler = std::move(scheduler_thread_);
  }
  {
    MutexLock lock(maintenance_mutex_);
    if (maintenance_thread_.joinable()) maintenance_stop_ = true;
    pending_job_.reset();
    maintenance = std::move(maintenance_thread_);
  }
  scheduler_cv_.notify_all();
  maintenance_cv_.notify_all();
  if (scheduler.joinable()) scheduler.join();
  if (maintenance.joinable()) maintenance.join();
  cleanup_inflight_ = false;
  backoff_until_ = 0;
}

// --- Asking.

void ReportMaintenance::report_cleanup_scheduler_loop() {
  RRM_LOG(LOG_EVENT, "Report cleanup scheduler started (period=%d s).", static_cast<int>(period_.count()));
  bool stop = false;
  {
    MutexLock lock(scheduler_mutex_);
    stop = scheduler_stop_;
  }
  if (!stop) tick("initial tick");
  while (wait_for_next_tick()) tick("tick");
  RRM_LOG(LOG_EVENT, "Report cleanup scheduler stopped.");
}

// False if the thread is to end.
bool ReportMaintenance::wait_for_next_tick() {
  const auto deadline = std::chrono::system_clock::now() + period_;
  MutexLock lock(scheduler_mutex_);
  while (!scheduler_stop_ && std::chrono::system_clock::now() < deadline) {
    scheduler_cv_.wait_until(scheduler_mutex_, deadline);
  }
  return !scheduler_stop_;
}

void ReportMaintenance::tick(const char* which) {
  try {
    check_old_reports();
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Report cleanup scheduler %s failed: %s", which, error.what());
  } catch (...) {
    RRM_LOG(LOG_ERROR, "Report cleanup scheduler %s failed with non-standard exception", which);
  }
}

void ReportMaintenance::check_old_reports() {
  if (!config_.enabled()) return;
  bool due = false;
  functions_.check_alarm_clock(functions_.settings(config_).report_delete_at_time_utc, due);
  if (!due || backing_off() || !may_queue()) return;
  if (cleanup_inflight_.exchange(true)) {
    RRM_LOG(LOG_TRACE, "Report cleanup already running; skip enqueue.");
    return;
  }
  try {
    prepare_job();
  } catch (const std::exception& error) {
    cleanup_inflight_ = false;
    RRM_LOG(LOG_ERROR, "check_old_reports failed after arming inflight: %s", error.what());
    throw;
  } catch (...) {
    cleanup_inflight_ = false;
    RRM_LOG(LOG_ERROR, "check_old_reports failed after arming inflight (non-standard exception)");
    throw;
  }
}

bool ReportMaintenance::backing_off() const {
  const std::int64_t until = backoff_until_;
  const std::int64_t left = until - now_seconds();
  if (until == 0 || left <= 0) return false;
  RRM_LOG(LOG_TRACE, "Report cleanup backoff: next attempt in %lld s.", static_cast<long long>(left));
  return true;
}

bool ReportMaintenance::may_queue() {
  bool stop = false;
  bool joinable = false;
  {
    MutexLock lock(maintenance_mutex_);
    stop = maintenance_stop_;
    joinable = maintenance_thread_.joinable();
  }
  if (!stop && joinable) return true;
  RRM_LOG(LOG_TRACE, "Report cleanup inactive (stop=%d joinable=%d); skip.", stop, joinable);
  return false;
}

void ReportMaintenance::prepare_job() {
  const GlobalSettings settings = functions_.settings(config_);
  if (settings.reports_path.empty()) {
    RRM_LOG(LOG_ERROR, "Report cleanup not scheduled: empty reports_path.");
    emit_event_plain(cleanup_failed_event);
    functions_.mark_completed();
    cleanup_inflight_ = false;
    return;
  }
  ReportMaintenanceJob job{settings.reports_path, {}};
  config_.for_each_domain_config([&](const std::string& domain, const DomainConfig& domain_settings) {
    if (!domain.empty()) job.domains.emplace(domain, days_to_keep(domain_settings.report_days_to_live));
  });
  // A domain whose pattern is unknown has no settings, but it is there: its reports are not orphans.
  config_.for_each_domain([&](const std::string& domain, const DomainInfo&) {
    if (!domain.empty()) job.domains.emplace(domain, days_to_keep(DomainConfig().report_days_to_live));
  });
  const std::size_t count = job.domains.size();
  const std::string names = names_of(job.domains);
  {
    MutexLock lock(maintenance_mutex_);
    if (maintenance_stop_ || !maintenance_thread_.joinable()) {
      cleanup_inflight_ = false;
      return;
    }
    pending_job_ = std::move(job);
  }
  RRM_LOG(LOG_EVENT, "Report cleanup queued: path=\"%s\", delete_at_utc=\"%s\", domains=%zu [%s].",
          settings.reports_path.c_str(), settings.report_delete_at_time_utc.c_str(), count, names.c_str());
  maintenance_cv_.notify_all();
}

// --- Doing.

void ReportMaintenance::report_maintenance_loop() {
  while (const auto job = take_job()) {
    carry_out(*job);
    cleanup_inflight_ = false;
  }
  cleanup_inflight_ = false;
}

// Waits for a job; without one the thread is to end.
std::optional<ReportMaintenanceJob> ReportMaintenance::take_job() {
  MutexLock lock(maintenance_mutex_);
  while (!maintenance_stop_ && !pending_job_) maintenance_cv_.wait(maintenance_mutex_);
  return std::exchange(pending_job_, std::nullopt);
}

void ReportMaintenance::carry_out(const ReportMaintenanceJob& job) {
  try {
    switch (run_report_maintenance_job(job)) {
      case Result::done:
        return close_day();
      case Result::permanent_failure:
        close_day();
        RRM_LOG(LOG_WARNING, "Report cleanup permanent failure; day closed (no same-day retry).");
        return;
      case Result::transient_failure:
        return retry_later();
    }
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Report maintenance crashed with exception: %s", error.what());
  } catch (...) {
    RRM_LOG(LOG_ERROR, "Report maintenance crashed with non-standard exception");
  }
  emit_event_plain(cleanup_failed_event);
  retry_later();
}

void ReportMaintenance::close_day() {
  functions_.mark_completed();
  backoff_until_ = 0;
}

void ReportMaintenance::retry_later() {
  backoff_until_ = now_seconds() + backoff_period;
  RRM_LOG(LOG_WARNING, "Report cleanup transient failure; retry in %d s (day not closed).",
          static_cast<int>(backoff_period));
}

ReportMaintenance::Result ReportMaintenance::run_report_maintenance_job(const ReportMaintenanceJob& job) const {
  const std::string& path = job.reports_path;
  RRM_LOG(LOG_EVENT, "Report cleanup running: path=\"%s\", domains=%zu.", path.c_str(), job.domains.size());
  if (path.empty()) RRM_LOG(LOG_ERROR, "Report cleanup aborted: empty reports_path.");
  if (path.empty() || !is_directory(path)) {
    emit_event_plain(cleanup_failed_event);
    return Result::permanent_failure;
  }
  const bool domains_done = delete_old_reports(job);
  const auto found = domains_with_reports(path);
  bool orphans_done = found.has_value();
  // A configuration without domains must not wipe the directory.
  if (found && !job.domains.empty()) {
    for (const std::string& domain : *found) {
      if (job.domains.contains(domain) || is_data_of_another(domain, job)) continue;
      if (!delete_orphan(domain, path)) orphans_done = false;
    }
  }
  if (!orphans_done) emit_event_plain(cleanup_failed_event);
  return domains_done && orphans_done ? Result::done : Result::transient_failure;
}

// True if all went well; a failure does not keep the next domain from its turn.
bool ReportMaintenance::delete_old_reports(const ReportMaintenanceJob& job) const {
  bool done = true;
  for (const auto& [domain, days] : job.domains) {
    RRM_LOG(LOG_TRACE, "Report cleanup domain: \"%s\" report_days_to_live=%u", domain.c_str(), days);
    if (delete_old_in_domain(domain, days, job.reports_path)) continue;
    emit_event_text(cleanup_failed_event, domain);
    done = false;
  }
  return done;
}

bool ReportMaintenance::delete_old_in_domain(const std::string& domain, std::uint32_t days,
                                             const std::string& path) const {
  try {
    const int error = functions_.delete_old(domain, days, path);
    if (error == 0) return true;
    RRM_LOG(LOG_ERROR, "Error call delete_old_reports_in_domain for domain: %s. Error code = %d", domain.c_str(),
            error);
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Exception in delete_old_reports_in_domain for domain %s: %s", domain.c_str(), error.what());
  } catch (...) {
    RRM_LOG(LOG_ERROR, "Non-standard exception in delete_old_reports_in_domain for domain %s", domain.c_str());
  }
  return false;
}

bool ReportMaintenance::delete_orphan(const std::string& domain, const std::string& path) const {
  try {
    return functions_.delete_all(domain, path) == 0;
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Exception deleting report files for domain %s: %s", domain.c_str(), error.what());
  } catch (...) {
    RRM_LOG(LOG_ERROR, "Non-standard exception deleting report files for domain %s", domain.c_str());
  }
  return false;
}

}  // namespace rrm
