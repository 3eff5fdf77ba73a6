// Where threads of a test wait for one another.
#pragma once

#include <condition_variable>

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

}  // namespace rrm::testing
