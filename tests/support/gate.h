// Where threads of a test wait for one another.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <thread>

#include "core/mutex.h"

namespace rrm::testing {

// Once open it stays open.
class Gate {
 public:
  void open() {
    MutexLock lock(mutex_);
    open_ = true;
    opened_.notify_all();
  }
  void wait() {
    MutexLock lock(mutex_);
    while (!open_) opened_.wait(mutex_);
  }

 private:
  Mutex mutex_;
  std::condition_variable_any opened_;
  bool open_ RRM_GUARDED_BY(mutex_) = false;
};

// Gives the CPU away until the condition holds; false if it has not come within a minute.
inline bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace rrm::testing
