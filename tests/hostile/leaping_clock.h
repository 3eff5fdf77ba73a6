// The server's time: it stands still, leaps over what a test need not wait for, and from a moment on passes as in the
// world. Installed for its life; the threads rest as long as ever.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

#include "core/clock.h"

namespace hostile {

class LeapingClock final : public rrm::Clock {
 public:
  LeapingClock() { rrm::set_clock(this); }
  ~LeapingClock() override { rrm::set_clock(nullptr); }
  LeapingClock(const LeapingClock&) = delete;
  LeapingClock& operator=(const LeapingClock&) = delete;

  void leap(std::int64_t seconds) { leapt_ += seconds; }
  void let_go() {
    let_go_at_ = world_seconds();
    is_let_go_ = true;
  }

  std::int64_t monotonic_seconds() const override {
    return first_second + leapt_ + (is_let_go_ ? world_seconds() - let_go_at_ : 0);
  }
  // Nothing that is due at a time of the day is ever due.
  std::optional<std::int64_t> wall_seconds() const override { return std::nullopt; }

 private:
  static constexpr std::int64_t first_second = 1000;

  static std::int64_t world_seconds() {
    using std::chrono::steady_clock;
    return std::chrono::duration_cast<std::chrono::seconds>(steady_clock::now().time_since_epoch()).count();
  }

  std::atomic<std::int64_t> leapt_{0};
  std::atomic<std::int64_t> let_go_at_{0};
  std::atomic<bool> is_let_go_{false};
};

}  // namespace hostile
