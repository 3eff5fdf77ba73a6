// So many per second: a count that starts anew with every second. Decided with one atomic word, so that any thread may
// ask at any time without waiting for another. What is refused is counted until somebody takes the count.
#pragma once

#include <atomic>
#include <cstdint>

namespace zal {

class RateLimit {
 public:
  explicit RateLimit(std::uint32_t per_second = 0) : per_second_(per_second) {}

  // `second` is any clock's current second.
  bool admit(std::uint32_t second) {
    std::uint64_t seen = second_and_used_.load(std::memory_order_relaxed);
    std::uint64_t next = 0;
    do {
      const bool is_new_second = static_cast<std::uint32_t>(seen >> 32) != second;
      const std::uint64_t used = is_new_second ? 0 : seen & used_mask;
      if (used >= per_second_.load(std::memory_order_relaxed)) {
        refused_.fetch_add(1, std::memory_order_relaxed);
        return false;
      }
      next = std::uint64_t{second} << 32 | (used + 1);
    } while (!second_and_used_.compare_exchange_weak(seen, next, std::memory_order_relaxed));
    return true;
  }

  // How many were refused since the last call.
  std::uint64_t take_refused() { return refused_.exchange(0, std::memory_order_relaxed); }

  std::uint32_t per_second() const { return per_second_.load(std::memory_order_relaxed); }
  void set_per_second(std::uint32_t per_second) { per_second_.store(per_second, std::memory_order_relaxed); }

 private:
  static constexpr std::uint64_t used_mask = 0xffffffff;
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free);

  std::atomic<std::uint32_t> per_second_;
  std::atomic<std::uint64_t> second_and_used_{0};  // the second above, its count below
  std::atomic<std::uint64_t> refused_{0};
};

}  // namespace zal
