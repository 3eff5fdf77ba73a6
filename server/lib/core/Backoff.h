// How a producer waits for room: it tries at once for a while, then gives the CPU away between tries, then sleeps,
// doubling from a microsecond up to a limit.
#pragma once

#include <cstdint>

namespace rrm {

class Backoff {
 public:
  explicit Backoff(std::uint32_t max_sleep_us) : max_sleep_us_(max_sleep_us) {}

  // The pause before a try; `attempt` counts from 1.
  void pause(std::uint64_t attempt);

 private:
  const std::uint32_t max_sleep_us_;
  std::uint32_t sleep_us_ = 1;
};

}  // namespace rrm
