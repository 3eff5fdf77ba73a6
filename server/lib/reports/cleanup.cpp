#include "reports/cleanup.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <locale>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "core/clock.h"
#include "core/log.h"
#include "report_optimize_tpc_dca.h"
#include "reports/file_lock.h"
#include "reports/file_sync.h"
#include "reports/lines.h"
#include "reports/recovery.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

constexpr double seconds_per_day = 86400;

double ttl_of(std::uint32_t days) {
  return days * seconds_per_day;
}

// The UTC day whose cleanup has finished; 0 before the first.
std::atomic<std::int32_t> last_cleanup_day{0};

std::int32_t day_key(const std::tm& utc) {
  return (utc.tm_year + 1900) * 512 + utc.tm_yday;
}

// The moment and its UTC day; `now` is -1 where the system has no time.
struct Today {
  std::time_t now = -1;
  std::tm utc{};
  int error = 0;
};

Today today() {
  Today day;
  errno = 0;
  const auto now = rrm::wall_seconds();
  if (now) day.now = *now;
  if (!now || gmtime_r(&day.now, &day.utc) == nullptr) day.error = last_error();
  return day;
}

struct TimeOfDay {
  int hour = 0;
  int minute = 0;
};

bool parse_time_of_day(const std::string& text, TimeOfDay& time) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  char colon = 0;
  stream >> time.hour >> colon >> time.minute;
  return !stream.fail() && colon == ':' && time.hour >= 0 && time.hour < 24 && time.minute >= 0 && time.minute < 60;
}

// --- Lines.

// How long ago the line's report was, in seconds; empty, and logged, if its date cannot be read.
std::optional<double> age_of(const std::string& line, std::time_t now, const std::string& filename) {
  std::string date;
  if (get_date_time_fields_from_file_line_as_str(line, date) != 0) return std::nullopt;
  std::time_t time = 0;
  if (parse_date_time_fields_to_time_t(date, time) != 0) {
    RRM_LOG(LOG_ERROR, "Incorrect report data/time in file: \"%s\", line: \"%s\".", filename.c_str(), line.c_str());
    return std::nullopt;
  }
  return std::difftime(now, time);
}

// Judges a file's lines one after the other. Those of one report are adjacent and begin alike, so that its date is read
// once for all of them; lines without a date are read, and logged, each.
class LineJudge {
 public:
  LineJudge(std::time_t now, double ttl_seconds, const std::string& filename)
      : now_(now), ttl_seconds_(ttl_seconds), filename_(filename) {}

  bool is_expired_or_invalid(const std::string& line) {
    if (begins_as_the_last(line)) return expired_;
    const auto age = age_of(line, now_, filename_);
    if (!age) return true;
    begin_ = begin_of(line);
    expired_ = *age > ttl_seconds_ || *age < 0;  // a date in the future is an error of whoever wrote it
    return expired_;
  }

 private:
  // The version and the date. Requires: both are there.
  static std::string begin_of(const std::string& line) {
    const std::size_t date = line.find(',') + 1;
    const std::size_t time = line.find(',', date) + 1;
    return line.substr(0, line.find(',', time));
  }

  bool begins_as_the_last(const std::string& line) const {
    return !begin_.empty() && line.starts_with(begin_) && (line.size() == begin_.size() || line[begin_.size()] == ',');
  }

  const std::time_t now_;
  const double ttl_seconds_;
  const std::string& filename_;
  std::string begin_;  // of the last line that had a date
  bool expired_ = false;
};

// --- The rewrite.

int delete_inconsistent(const RewriteFiles& files) {
  for (const std::string& file : {files.live.report, files.live.index, files.live.config}) {
    if (!exists(file)) continue;
    if (const int error = remove_file(file)) return error;
    RRM_LOG(LOG_WARNING, "Delete inconsistent file \"%s\" successfully.", file.c_str());
  }
  return 0;
}

// The copies of another rewrite are none of this one's: a file without lines would get its own from there. There are
// some where both markers lay, for then the recovery leaves the first one, and what it stands for, to the next run.
// What could not be looked for may prove to be none.
int remove_leftover_copies(const RewriteFiles& files) {
  for (const std::string& file : files.in_order()) {
    const int error = remove_if_there(tmp_name(file));
    if (error != 0 && error != ENOENT) return error;
  }
  return 0;
}

// From here on until the commit a crash is undone.
int mark_start(const RewriteFiles& files, const std::string& path) {
  std::ofstream marker(files.start_status);
  if (!marker) {
    RRM_LOG(LOG_ERROR, "Error while create file \"%s\".", files.start_status.c_str());
    return EIO;
  }
  marker << "1\n";
  int error = finalize_ofstream(marker, files.start_status);
  if (error == 0) error = fsync_directory_path(path);
  if (error != 0) remove_file(files.start_status);
  return error;
}

int copy_all(const RewriteFiles& files, std::time_t now, std::uint32_t days) {
  for (const std::string& file : files.in_order()) {
    std::uint32_t removed = 0;
    if (const int error = copy_new_reports_from_one_file(now, days, file, removed)) return error;
  }
  return 0;
}

int make_old(const RewriteFiles& files, const std::string& path) {
  for (const std::string& file : files.in_order()) {
    if (const int error = rename_file(file, old_name(file), "backup")) return error;
  }
  return fsync_directory_path(path);
}

int make_live(const RewriteFiles& files, const std::string& path) {
  for (const std::string& file : files.in_order()) {
    if (const int error = rename_file(tmp_name(file), file, "commit")) return error;
  }
  return fsync_directory_path(path);
}

int commit(const RewriteFiles& files, const std::string& path) {
  if (const int error = rename_file(files.start_status, files.done_status, "change status")) return error;
  return fsync_directory_path(path);
}

int remove_old(const RewriteFiles& files) {
  for (const std::string& file : files.in_order()) {
    if (const int error = remove_file(old_name(file))) return error;
  }
  return 0;
}

int purge(const RewriteFiles& files, const std::string& path, std::time_t now, std::uint32_t days) {
  if (const int error = copy_all(files, now, days)) return error;
  if (const int error = make_old(files, path)) return error;
  if (const int error = make_live(files, path)) return error;
  if (const int error = commit(files, path)) return error;
  return remove_old(files);
}

int rewrite(const RewriteFiles& files, const std::string& domain, const std::string& path, std::time_t now,
            std::uint32_t days) {
  if (const int error = remove_leftover_copies(files)) return error;
  if (const int error = mark_start(files, path)) return error;
  if (const int error = purge(files, path, now, days)) {
    RRM_LOG(LOG_WARNING, "Purge failed for domain \"%s\" (err=%d); running recovery.", domain.c_str(), error);
    if (const int failed = reports_recovery_procedure_in_domain(domain, path)) {
      RRM_LOG(LOG_ERROR, "Recovery after failed purge for domain \"%s\" exit with %d (original err=%d).",
              domain.c_str(), failed, error);
    }
    return error;
  }
  const int error = remove_file(files.done_status);
  if (error != 0) {
    if (const int failed = reports_recovery_procedure_in_domain(domain, path)) {
      RRM_LOG(LOG_ERROR, "Post-commit cleanup recovery failed for domain \"%s\": %d", domain.c_str(), failed);
    }
  }
  return error;
}

// The index decides: what has expired in the other two files alone starts nothing.
int delete_expired(const RewriteFiles& files, const std::string& domain, const std::string& path, std::time_t now,
                   std::uint32_t days) {
  std::uint32_t expired = 0;
  if (const int error = count_expired_reports_in_file(now, days, files.live.index, expired)) {
    RRM_LOG(LOG_ERROR, "Count expired reports in file: \"%s\" exit with error code: %d.", files.live.index.c_str(),
            error);
    return error;
  }
  if (expired == 0) {
    RRM_LOG(LOG_EVENT, "Report cleanup domain \"%s\": nothing to delete (report_days_to_live=%u).", domain.c_str(),
            days);
    return 0;
  }
  RRM_LOG(LOG_EVENT, "Report cleanup domain \"%s\": removing %u expired record(s) (report_days_to_live=%u).",
          domain.c_str(), expired, days);
  return rewrite(files, domain, path, now, days);
}

int create_empty(const std::string& tmp) {
  errno = 0;
  std::ofstream file(tmp, std::ios_base::trunc);
  if (file) return finalize_ofstream(file, tmp);
  const int error = last_error();
  RRM_LOG(LOG_ERROR, "Cannot create empty tmp \"%s\": %s", tmp.c_str(), std::strerror(error));
  return error;
}

// The ".tmp" is opened for the first line that stays, or at the end if all have gone.
int copy_kept_lines(std::time_t now, std::uint32_t days, const std::string& filename, std::uint32_t& removed_count) {
  const std::string tmp = tmp_name(filename);
  LineJudge judge(now, ttl_of(days), filename);
  std::ofstream kept;
  kept.exceptions(std::ios_base::badbit | std::ios_base::failbit);
  int write_error = 0;
  removed_count = 0;
  const int read_error = for_each_line(filename, [&](const std::string& line) {
    if (judge.is_expired_or_invalid(line)) {
      ++removed_count;
      return true;
    }
    try {
      if (!kept.is_open()) kept.open(tmp, std::ios_base::trunc);
      kept << line << '\n';
      return true;
    } catch (const std::ios_base::failure& failure) {
      write_error = stream_failure(failure);
      return false;
    }
  });
  if (write_error != 0 || read_error != 0) return write_error != 0 ? write_error : read_error;
  if (!kept.is_open() && removed_count > 0) return create_empty(tmp);
  return kept.is_open() ? finalize_ofstream(kept, tmp) : 0;
}

bool given(const char* function, const std::string& domain_name, const std::string& files_path) {
  if (domain_name.empty()) {
    RRM_LOG(LOG_ERROR, "%s: empty domain_name", function);
  } else if (files_path.empty()) {
    RRM_LOG(LOG_ERROR, "%s: empty files_path", function);
  } else {
    return true;
  }
  return false;
}

// Keeps the first failure and goes on.
int delete_all(const RewriteFiles& files) {
  int failure = 0;
  const auto remove_one = [&](const std::string& file) {
    const int error = remove_if_there(file);
    if (failure == 0) failure = error;
  };
  const std::array<std::string, 3> live{files.live.config, files.live.report, files.live.index};
  for (const std::string& file : live) remove_one(file);
  for (const std::string& file : live) remove_one(tmp_name(file));
  for (const std::string& file : live) remove_one(old_name(file));
  remove_one(files.start_status);
  remove_one(files.done_status);
  return failure;
}

}  // namespace

int check_report_alarm_clock_every_min(const std::string& report_delete_at_time_utc, bool& due) {
  due = false;
  TimeOfDay at;
  if (!parse_time_of_day(report_delete_at_time_utc, at)) {
    RRM_LOG(LOG_ERROR, "Incorrect time in report_delete_at_time_utc: \"%s\".", report_delete_at_time_utc.c_str());
    rrm::emit_event_text(17, report_delete_at_time_utc);
    return EINVAL;
  }
  const Today day = today();
  if (day.error != 0) {
    RRM_LOG(LOG_ERROR, "Report cleanup: gmtime_r failed for timestamp %lld (errno=%d: %s)",
            static_cast<long long>(day.now), day.error, std::strerror(day.error));
    return 0;
  }
  const std::tm& utc = day.utc;
  const bool done_today = day_key(utc) == last_cleanup_day;
  due = utc.tm_hour * 60 + utc.tm_min >= at.hour * 60 + at.minute && !done_today;
  RRM_LOG(LOG_TRACE,
          "Report cleanup tick: delete_at_utc=%02d:%02d now_utc=%04d-%02d-%02d %02d:%02d due=%d already_done_today=%d",
          at.hour, at.minute, utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, due,
          done_today);
  if (due) {
    RRM_LOG(LOG_TRACE,
            "Report cleanup due: delete_at_utc=%02d:%02d now_utc=%04d-%02d-%02d %02d:%02d (run once per UTC day until "
            "finished).",
            at.hour, at.minute, utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min);
  }
  return 0;
}

void mark_report_alarm_completed() {
  const Today day = today();
  if (day.error != 0) {
    RRM_LOG(LOG_EVENT, "Report cleanup finished for current UTC day; no further runs until next UTC day.");
    return;
  }
  const std::tm& utc = day.utc;
  last_cleanup_day = day_key(utc);
  RRM_LOG(LOG_EVENT, "Report cleanup finished for UTC day %04d-%02d-%02d; no further runs until next UTC day.",
          utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday);
}

bool is_report_line_expired_or_invalid(const std::string& line, std::time_t now, double ttl_seconds,
                                       const std::string& filename) {
  return LineJudge(now, ttl_seconds, filename).is_expired_or_invalid(line);
}

int count_expired_reports_in_file(std::time_t now, std::uint32_t days_to_live, const std::string& filename,
                                  std::uint32_t& count) {
  count = 0;
  LineJudge judge(now, ttl_of(days_to_live), filename);
  return for_each_line(filename, [&](const std::string& line) {
    if (judge.is_expired_or_invalid(line)) ++count;
    return true;
  });
}

int copy_new_reports_from_one_file(std::time_t now, std::uint32_t days_to_live, const std::string& filename,
                                   std::uint32_t& removed_count) {
  if (filename.empty()) throw std::invalid_argument(std::string(__func__) + ": Invalid argument 'filename'.");
  if (days_to_live == 0) {
    throw std::invalid_argument(std::string(__func__) + ": Invalid argument 'days_to_live_of_report'.");
  }
  RRM_LOG(LOG_TRACE, "Report cleanup rewrite file: \"%s\"", filename.c_str());
  const int error = copy_kept_lines(now, days_to_live, filename, removed_count);
  if (error != 0) {
    RRM_LOG(LOG_ERROR, "Copy new reports from file: \"%s\" exit with error code: %d.", filename.c_str(), error);
  }
  return error;
}

int delete_old_reports_in_domain(const std::string& domain_name, std::uint32_t days_to_live_of_report,
                                 const std::string& files_path) {
  if (!given(__func__, domain_name, files_path)) return EINVAL;
  if (days_to_live_of_report == 0) {
    RRM_LOG(LOG_ERROR, "%s: days_to_live_of_report is 0", __func__);
    return EINVAL;
  }
  const DomainWriteAccess access(domain_name, files_path);
  if (access.error() != 0) return access.error();
  const RewriteFiles files(domain_name, files_path);
  const auto now = rrm::wall_seconds();
  if (!now) {
    RRM_LOG(LOG_ERROR, "%s: the system has no time", __func__);
    return EIO;
  }
  if (files.unclean()) {
    if (const int error = recover_unclean_reports(domain_name, files_path)) return error;
  } else if (!exists(files.live.report) || !exists(files.live.index) || !exists(files.live.config)) {
    return delete_inconsistent(files);
  }
  return delete_expired(files, domain_name, files_path, *now, days_to_live_of_report);
}

int delete_report_files_for_domain(const std::string& domain_name, const std::string& files_path) {
  if (!given(__func__, domain_name, files_path)) return EINVAL;
  const DomainWriteAccess access(domain_name, files_path);
  if (access.error() != 0) return access.error();
  RRM_LOG(LOG_EVENT, "Delete report files for domain: %s", domain_name.c_str());
  const int failure = delete_all(RewriteFiles(domain_name, files_path));
  if (failure == 0) fsync_directory_path(files_path);
  // While the lock is held: a lock file that goes away afterwards might be another's by then.
  if (remove_if_there(get_report_lock_file_name(domain_name, files_path)) == 0) fsync_directory_path(files_path);
  return failure;
}

}  // namespace reports
