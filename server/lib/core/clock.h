// The server library's time: whole monotonic seconds for liveness and timers, wall-clock seconds for the time of day.
// The source is a seam, so that tests drive time instead of waiting for it. Safe from any thread.
#pragma once

#include <cstdint>
#include <optional>

namespace rrm {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::int64_t monotonic_seconds() const = 0;
  // Seconds since the epoch; empty where the system cannot tell.
  virtual std::optional<std::int64_t> wall_seconds() const = 0;
  // How threads rest. The system's own sleep, unless a test takes its place.
  virtual void sleep_us(std::uint32_t microseconds) const;
};

std::int64_t monotonic_seconds();
std::optional<std::int64_t> wall_seconds();
void sleep_us(std::uint32_t microseconds);

// Replaces the source; null brings the system's clock back. The caller keeps the object alive until it is replaced.
void set_clock(const Clock* clock);

}  // namespace rrm
