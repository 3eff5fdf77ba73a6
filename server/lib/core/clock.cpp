#include "core/clock.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace rrm {
namespace {

std::optional<std::int64_t> seconds_of(clockid_t id) {
  timespec now{};
  if (clock_gettime(id, &now) != 0) return std::nullopt;
  return now.tv_sec;
}

class SystemClock final : public Clock {
 public:
  std::int64_t monotonic_seconds() const override { return seconds_of(CLOCK_MONOTONIC).value_or(0); }
  std::optional<std::int64_t> wall_seconds() const override { return seconds_of(CLOCK_REALTIME); }
};

const SystemClock system_clock;
std::atomic<const Clock*> current_clock{nullptr};

const Clock& clock() {
  const Clock* replaced = current_clock.load(std::memory_order_acquire);
  return replaced != nullptr ? *replaced : system_clock;
}

}  // namespace

void Clock::sleep_us(std::uint32_t microseconds) const {
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

std::int64_t monotonic_seconds() {
  return clock().monotonic_seconds();
}

std::optional<std::int64_t> wall_seconds() {
  return clock().wall_seconds();
}

void sleep_us(std::uint32_t microseconds) {
  clock().sleep_us(microseconds);
}

void set_clock(const Clock* clock) {
  current_clock.store(clock, std::memory_order_release);
}

}  // namespace rrm
