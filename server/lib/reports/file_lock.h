// Who may touch a domain's report files: processes agree by a lock file, threads of one process by a lock in memory.
// The order is always the file first, then the memory.
#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

namespace reports {

// Held from the constructor to the destructor, unless it could not be had.
class DomainFileLock {
 public:
  // Waits for other processes, and for other holders within this one.
  DomainFileLock(const std::string& domain_name, const std::string& path, bool exclusive);
  ~DomainFileLock();
  DomainFileLock(const DomainFileLock&) = delete;
  DomainFileLock& operator=(const DomainFileLock&) = delete;

  // 0 while the lock is held, else an errno value; 22 for a domain or a path that cannot have one.
  int error() const { return error_; }

 private:
  void open_and_lock(const std::string& name, bool exclusive);
  void release();

  int fd_ = -1;
  int error_ = 0;
};

// The lock among the threads of this process. It is made on first use and stays.
std::shared_ptr<std::shared_mutex> domain_mutex(const std::string& domain_name);

// Both locks, in their order.
template <class Lock, bool exclusive>
class DomainAccess {
 public:
  DomainAccess(const std::string& domain_name, const std::string& path) : file_(domain_name, path, exclusive) {
    if (error() != 0) return;  // and no name that cannot have a lock gets one in memory
    mutex_ = domain_mutex(domain_name);
    lock_ = Lock(*mutex_);
  }

  int error() const { return file_.error(); }

 private:
  const DomainFileLock file_;
  std::shared_ptr<std::shared_mutex> mutex_;
  Lock lock_;
};

using DomainWriteAccess = DomainAccess<std::unique_lock<std::shared_mutex>, true>;
using DomainReadAccess = DomainAccess<std::shared_lock<std::shared_mutex>, false>;

}  // namespace reports
