// How long an AP waits before it connects again: half a second at first, twice as long after each further failure, half
// a minute at most. Every AP varies its waits by up to a quarter in its own way, so that a site does not come back as
// one wave.
#pragma once

#include <algorithm>
#include <cstdint>

#include "sim/chance.h"

namespace sim {

class Backoff {
 public:
  explicit Backoff(std::uint64_t seed) : seed_(seed) {}

  // Milliseconds until the next attempt.
  std::int64_t next() {
    const double wait = std::min(first_ms * static_cast<double>(1U << std::min(failures_, 10U)), longest_ms);
    const double variation = 0.75 + uniform(mix(seed_, {draws_++})) / 2;
    ++failures_;
    return static_cast<std::int64_t>(wait * variation);
  }

  void succeeded() { failures_ = 0; }

  static constexpr double first_ms = 500;
  static constexpr double longest_ms = 30'000;

 private:
  std::uint64_t seed_;
  std::uint64_t draws_ = 0;
  unsigned failures_ = 0;
};

}  // namespace sim
