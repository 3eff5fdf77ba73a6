#include "core/Backoff.h"

#include <sched.h>

#include <algorithm>

#include "core/clock.h"

namespace rrm {

void Backoff::pause(std::uint64_t attempt) {
  constexpr std::uint64_t first_yield = 64;
  constexpr std::uint64_t first_sleep = 128;
  if (attempt >= first_sleep) {
    sleep_us(sleep_us_);
    sleep_us_ = std::min(sleep_us_ * 2, max_sleep_us_);
  } else if (attempt >= first_yield) {
    ::sched_yield();
  }
}

}  // namespace rrm
