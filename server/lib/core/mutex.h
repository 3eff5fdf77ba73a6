// A mutex and a scoped lock that clang's thread-safety analysis understands. Every member that a lock guards says so
// with RRM_GUARDED_BY, every function that wants a lock held with RRM_REQUIRES; a clang build turns a breach into an
// error. Under other compilers the annotations vanish.
#pragma once

#include <mutex>

#if defined(__clang__)
#define RRM_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define RRM_THREAD_ANNOTATION(x)
#endif

#define RRM_CAPABILITY(name) RRM_THREAD_ANNOTATION(capability(name))
#define RRM_SCOPED_CAPABILITY RRM_THREAD_ANNOTATION(scoped_lockable)
#define RRM_GUARDED_BY(lock) RRM_THREAD_ANNOTATION(guarded_by(lock))
#define RRM_REQUIRES(...) RRM_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define RRM_EXCLUDES(...) RRM_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RRM_ACQUIRE(...) RRM_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RRM_TRY_ACQUIRE(...) RRM_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RRM_RELEASE(...) RRM_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RRM_ASSERT_CAPABILITY(lock) RRM_THREAD_ANNOTATION(assert_capability(lock))
#define RRM_NO_THREAD_SAFETY_ANALYSIS RRM_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace rrm {

class RRM_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() RRM_ACQUIRE() { mutex_.lock(); }
  void unlock() RRM_RELEASE() { mutex_.unlock(); }
  bool try_lock() RRM_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
  // Tells the analysis what the caller's contract says: this mutex is held here. Checks nothing at run time.
  void assert_held() const RRM_ASSERT_CAPABILITY(this) {}

 private:
  std::mutex mutex_;
};

class RRM_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) RRM_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RRM_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace rrm
