// The server's time, several times as fast as the world's: in a minute of a test a domain lives through the scans,
// plans, ticks and silences of many. Installed for its life; the threads rest as long as ever.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "core/clock.h"

namespace load {

class HurriedClock final : public rrm::Clock {
 public:
  explicit HurriedClock(int times_as_fast) : times_as_fast_(times_as_fast) { rrm::set_clock(this); }
  ~HurriedClock() override { rrm::set_clock(nullptr); }
  HurriedClock(const HurriedClock&) = delete;
  HurriedClock& operator=(const HurriedClock&) = delete;

  std::int64_t monotonic_seconds() const override { return seconds_since_start(); }
  std::optional<std::int64_t> wall_seconds() const override { return wall_at_start_ + seconds_since_start(); }

 private:
  using Steady = std::chrono::steady_clock;

  std::int64_t seconds_since_start() const {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now() - started_);
    return passed.count() * times_as_fast_ / 1000;
  }

  const int times_as_fast_;
  const Steady::time_point started_ = Steady::now();
  const std::int64_t wall_at_start_ =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count();
};

}  // namespace load
