// A clock whose sleeps take no time and are written down: a test sees how long a thread would have rested, and may act
// in the middle of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "core/clock.h"
#include "core/mutex.h"

namespace rrm::testing {

class SleepRecorder final : public Clock {
 public:
  SleepRecorder() { set_clock(this); }
  ~SleepRecorder() override { set_clock(nullptr); }

  std::int64_t monotonic_seconds() const override { return 1000; }
  std::optional<std::int64_t> wall_seconds() const override { return 1700000000; }
  void sleep_us(std::uint32_t microseconds) const override {
    {
      MutexLock lock(mutex_);
      sleeps_.push_back(microseconds);
    }
    if (on_sleep) on_sleep();
  }

  std::vector<std::uint32_t> sleeps() const {
    MutexLock lock(mutex_);
    return sleeps_;
  }

  std::size_t count() const {
    MutexLock lock(mutex_);
    return sleeps_.size();
  }

  std::function<void()> on_sleep;  // set before any thread sleeps

 private:
  mutable Mutex mutex_;
  mutable std::vector<std::uint32_t> sleeps_ RRM_GUARDED_BY(mutex_);
};

}  // namespace rrm::testing
