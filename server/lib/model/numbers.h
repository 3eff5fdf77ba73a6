// How the model does sums over numbers that came from the wire: in 64 bits, cut to the nearest 32-bit value at the end.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace rrm {

constexpr std::int32_t saturate32(std::int64_t value) {
  using Limits = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

}  // namespace rrm
