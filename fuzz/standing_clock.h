// Time that stands still while the object lives, so that no worker does anything on its own account.
#pragma once

#include <cstdint>
#include <optional>

#include "core/clock.h"

namespace zal::fuzz {

class StandingClock final : public rrm::Clock {
 public:
  // Without a wall clock nothing that is due at a time of the day is ever due.
  explicit StandingClock(std::optional<std::int64_t> wall = std::nullopt) : wall_(wall) { rrm::set_clock(this); }
  ~StandingClock() override { rrm::set_clock(nullptr); }
  StandingClock(const StandingClock&) = delete;
  StandingClock& operator=(const StandingClock&) = delete;

  std::int64_t monotonic_seconds() const override { return 1000; }
  std::optional<std::int64_t> wall_seconds() const override { return wall_; }

 private:
  const std::optional<std::int64_t> wall_;
};

}  // namespace zal::fuzz
