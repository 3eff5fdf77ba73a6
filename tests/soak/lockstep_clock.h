// Time that a test drives, for a server with all its threads: it stands still until the test moves it. A thread that
// rests does so until the time moves on, or for as long as it wanted to rest in the world's time. Installed for its
// life.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <optional>
#include <thread>

#include "core/clock.h"
#include "core/mutex.h"

namespace soak {

class LockstepClock final : public rrm::Clock {
 public:
  LockstepClock() { rrm::set_clock(this); }
  ~LockstepClock() override { rrm::set_clock(nullptr); }
  LockstepClock(const LockstepClock&) = delete;
  LockstepClock& operator=(const LockstepClock&) = delete;

  void advance(std::int64_t seconds) RRM_EXCLUDES(mutex_) {
    const rrm::MutexLock lock(mutex_);
    passed_ += seconds;
    moved_.notify_all();
  }

  std::int64_t monotonic_seconds() const override RRM_EXCLUDES(mutex_) {
    const rrm::MutexLock lock(mutex_);
    return first_second + passed_;
  }
  std::optional<std::int64_t> wall_seconds() const override RRM_EXCLUDES(mutex_) {
    const rrm::MutexLock lock(mutex_);
    return first_midnight + passed_;
  }
  void sleep_us(std::uint32_t microseconds) const override RRM_EXCLUDES(mutex_) {
    if (microseconds <= longest_wait_for_room) return std::this_thread::yield();
    const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(microseconds);
    const rrm::MutexLock lock(mutex_);
    const std::int64_t before = passed_;
    while (passed_ == before && moved_.wait_until(mutex_, end) != std::cv_status::timeout) continue;
  }

 private:
  static constexpr std::uint32_t longest_wait_for_room = 1000;  // microseconds
  static constexpr std::int64_t first_second = 1000;
  static constexpr std::int64_t first_midnight = 1'700'006'400;

  mutable rrm::Mutex mutex_;  // a leaf
  mutable std::condition_variable_any moved_;
  std::int64_t passed_ RRM_GUARDED_BY(mutex_) = 0;
};

}  // namespace soak
