#include "reports/recovery.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "core/log.h"
#include "reports/file_sync.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

int look_for(const std::string& file, bool& there) {
  struct stat status {};
  errno = 0;
  there = ::lstat(file.c_str(), &status) == 0;
  if (there || errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG) return 0;
  const int error = last_error();
  RRM_LOG(LOG_ERROR, "Error while look for \"%s\", errno = %d: %s", file.c_str(), error, std::strerror(error));
  return error;
}

// A live file that was already renamed away comes back; one that was not has no old one and stays.
int roll_back(const RewriteFiles& files) {
  for (const std::string& file : files.in_order()) {
    if (const int error = remove_if_there(tmp_name(file))) return error;
  }
  for (const std::string& file : files.in_order()) {
    if (!exists(old_name(file))) continue;
    if (const int error = rename_file(old_name(file), file, "commit")) return error;
  }
  return remove_file(files.start_status);
}

int clean_up(const RewriteFiles& files) {
  for (const std::string& file : files.in_order()) {
    if (const int error = remove_if_there(old_name(file))) return error;
  }
  return remove_file(files.done_status);
}

// Here a guess would not do: after the commit the old files go, before it they are all there is.
int recover(const RewriteFiles& files, const std::string& domain_name) {
  bool done = false;
  if (const int error = look_for(files.done_status, done)) return error;
  if (done) {
    if (const int error = clean_up(files)) return error;
    RRM_LOG(LOG_EVENT, "Clean reports repository for domain: \"%s\" succesfull.", domain_name.c_str());
  } else if (exists(files.start_status)) {
    if (const int error = roll_back(files)) return error;
    RRM_LOG(LOG_EVENT, "Rollback reports repository for domain: \"%s\" succesfull.", domain_name.c_str());
  } else {
    RRM_LOG(LOG_TRACE, "Already clean reports repository of domain: \"%s\".", domain_name.c_str());
  }
  return 0;
}

}  // namespace

RewriteFiles::RewriteFiles(const std::string& domain_name, const std::string& files_path)
    : live(domain_name, files_path),
      start_status(live.report + start_status_suffix),
      done_status(live.report + done_status_suffix) {}

bool RewriteFiles::unclean() const {
  return exists(start_status) || exists(done_status);
}

std::string tmp_name(const std::string& file) {
  return file + tmp_suffix;
}

std::string old_name(const std::string& file) {
  return file + old_suffix;
}

bool exists(const std::string& file) {
  bool there = false;
  return look_for(file, there) != 0 || there;
}

int remove_file(const std::string& file) {
  if (::unlink(file.c_str()) == 0) return 0;
  const int error = last_error();
  RRM_LOG(LOG_ERROR, "Error while delete \"%s\", errno = %d: %s", file.c_str(), error, std::strerror(error));
  return error;
}

int remove_if_there(const std::string& file) {
  return exists(file) ? remove_file(file) : 0;
}

int rename_file(const std::string& from, const std::string& to, const char* purpose) {
  if (::rename(from.c_str(), to.c_str()) == 0) return 0;
  const int error = last_error();
  RRM_LOG(LOG_ERROR, "Error while rename \"%s\" for %s, errno = %d: %s", from.c_str(), purpose, error,
          std::strerror(error));
  return error;
}

int reports_recovery_procedure_in_domain(const std::string& domain_name, const std::string& files_path) {
  if (domain_name.empty()) throw std::invalid_argument(std::string(__func__) + ": Invalid argument 'domain_name'.");
  if (files_path.empty()) throw std::invalid_argument(std::string(__func__) + ": Invalid argument 'files_path'.");
  int error = check_report_domain_name(domain_name);
  if (error == 0) error = recover(RewriteFiles(domain_name, files_path), domain_name);
  if (error != 0) {
    RRM_LOG(LOG_ERROR, "Reports files recovery procedure for domain: \"%s\" exit with error code: %d.",
            domain_name.c_str(), error);
  }
  return error;
}

int recover_unclean_reports(const std::string& domain_name, const std::string& files_path) {
  if (!RewriteFiles(domain_name, files_path).unclean()) return 0;
  RRM_LOG(LOG_WARNING, "Detected unclean reports repository for domain: \"%s\". Started rollback/recovery procedure.",
          domain_name.c_str());
  const int error = reports_recovery_procedure_in_domain(domain_name, files_path);
  if (error != 0) {
    RRM_LOG(LOG_ERROR, "Rollback/recovery procedure fail for domain: \"%s\" exit with error code: %d.",
            domain_name.c_str(), error);
  }
  return error;
}

}  // namespace reports
