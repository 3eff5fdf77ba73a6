// Ends the test program, with the name of what was under way, when nothing was finished for too long: a deadlock would
// otherwise be a test that says nothing until somebody stops it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "core/mutex.h"

namespace load {

class Watchdog {
 public:
  using Steady = std::chrono::steady_clock;

  explicit Watchdog(std::chrono::seconds patience) : patience_(patience), thread_([this] { watch(); }) {}
  ~Watchdog() {
    {
      const rrm::MutexLock lock(mutex_);
      over_ = true;
      changed_.notify_all();
    }
    thread_.join();
  }
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  // The last thing is finished; the next one begins.
  void begins(std::string what) {
    const rrm::MutexLock lock(mutex_);
    under_way_ = std::move(what);
    deadline_ = Steady::now() + patience_;
  }

 private:
  void watch() {
    const rrm::MutexLock lock(mutex_);
    while (!over_) {
      const auto deadline = deadline_;
      changed_.wait_until(mutex_, deadline);
      if (!over_ && Steady::now() >= deadline_) give_up();
    }
  }
  [[noreturn]] void give_up() const RRM_REQUIRES(mutex_) {
    std::fprintf(stderr, "nothing was finished for %lld s; under way: %s\n", static_cast<long long>(patience_.count()),
                 under_way_.c_str());
    std::abort();
  }

  const std::chrono::seconds patience_;
  rrm::Mutex mutex_;
  std::condition_variable_any changed_;
  bool over_ RRM_GUARDED_BY(mutex_) = false;
  std::string under_way_ RRM_GUARDED_BY(mutex_) = "the start";
  Steady::time_point deadline_ RRM_GUARDED_BY(mutex_) = Steady::now() + patience_;
  std::thread thread_;  // last: it uses all the others
};

}  // namespace load
