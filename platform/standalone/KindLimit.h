// A rate limit for each kind of line, a kind being a format text, known by its address. Any thread may ask at any time
// without waiting for another: a kind claims its place in a table once and keeps it. Kinds beyond the table's size
// share places.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/standalone/RateLimit.h"

namespace zal {

class KindLimit {
 public:
  static constexpr std::size_t capacity = 512;

  explicit KindLimit(std::uint32_t per_second) { set_per_second(per_second); }

  bool admit(const char* format, std::uint32_t second) { return limit_of(format).admit(second); }

  // How many of all kinds were refused since the last call.
  std::uint64_t take_refused() {
    std::uint64_t refused = 0;
    for (Kind& kind : kinds_) refused += kind.limit.take_refused();
    return refused;
  }

  void set_per_second(std::uint32_t per_second) {
    for (Kind& kind : kinds_) kind.limit.set_per_second(per_second);
  }

 private:
  static_assert(std::atomic<const char*>::is_always_lock_free);
  struct Kind {
    std::atomic<const char*> format{nullptr};
    RateLimit limit;
  };

  static std::size_t home_of(const char* format) {
    const std::uint64_t mixed = reinterpret_cast<std::uintptr_t>(format) * 0x9e3779b97f4a7c15u;
    return static_cast<std::size_t>(mixed >> 32) % capacity;
  }

  // True if the place is the format's, claimed just now or before.
  static bool holds(Kind& kind, const char* format) {
    const char* known = kind.format.load(std::memory_order_relaxed);
    if (known == nullptr && kind.format.compare_exchange_strong(known, format, std::memory_order_relaxed)) return true;
    return known == format;
  }

  RateLimit& limit_of(const char* format) {
    const std::size_t home = home_of(format);
    for (std::size_t i = 0; i < capacity; ++i)
      if (Kind& kind = kinds_[(home + i) % capacity]; holds(kind, format)) return kind.limit;
    return kinds_[home].limit;
  }

  std::array<Kind, capacity> kinds_;
};

}  // namespace zal
