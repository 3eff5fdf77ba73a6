#include "reports/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include "core/log.h"
#include "core/mutex.h"
#include "reports/file_names.h"
#include "reports/file_sync.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

// A signal that is served while we wait is no reason to give up.
int lock_file(int fd, int operation) {
  int result = 0;
  do {
    result = ::flock(fd, operation);
  } while (result != 0 && errno == EINTR);
  return result;
}

// The domain's files, and with them the lock file, may have been removed while we waited for it: then others lock
// another file by that name. Where the system cannot tell, asking on would be asking for ever.
bool was_removed(int fd, const std::string& name) {
  struct stat held {};
  struct stat named {};
  if (::fstat(fd, &held) != 0) return false;
  if (::stat(name.c_str(), &named) != 0) return errno == ENOENT;
  return held.st_ino != named.st_ino || held.st_dev != named.st_dev;
}

}  // namespace

DomainFileLock::DomainFileLock(const std::string& domain_name, const std::string& path, bool exclusive) {
  if (path.empty() || check_report_domain_name(domain_name) != 0) {
    error_ = EINVAL;
    return;
  }
  const std::string name = get_report_lock_file_name(domain_name, path);
  do {
    release();
    open_and_lock(name, exclusive);
  } while (fd_ >= 0 && was_removed(fd_, name));
}

DomainFileLock::~DomainFileLock() {
  release();
}

void DomainFileLock::open_and_lock(const std::string& name, bool exclusive) {
  fd_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640);
  if (fd_ < 0) {
    error_ = last_error();
    RRM_LOG(LOG_ERROR, "Cannot open report lock \"%s\": errno=%d (%s)", name.c_str(), error_, std::strerror(error_));
    return;
  }
  if (lock_file(fd_, exclusive ? LOCK_EX : LOCK_SH) == 0) return;
  error_ = last_error();
  RRM_LOG(LOG_ERROR, "flock(%s) %s failed: errno=%d (%s)", name.c_str(), exclusive ? "LOCK_EX" : "LOCK_SH", error_,
          std::strerror(error_));
  release();
}

void DomainFileLock::release() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

std::shared_ptr<std::shared_mutex> domain_mutex(const std::string& domain_name) {
  static rrm::Mutex guard;
  static std::map<std::string, std::shared_ptr<std::shared_mutex>> mutexes;
  const rrm::MutexLock lock(guard);
  auto& mutex = mutexes[domain_name];
  if (mutex == nullptr) mutex = std::make_shared<std::shared_mutex>();
  return mutex;
}

}  // namespace reports
