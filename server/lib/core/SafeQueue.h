// An inbound queue of two lock-free rings of the same capacity: `force` for what overtakes, `normal` for the rest. A
// consumer serves `force` first. Any thread may push; who pops is the owner's affair. Neither blocks the other: a full
// ring makes the producer wait, for so many attempts, and then counts the item as dropped and leaves it with its owner.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include "core/Backoff.h"
#include "core/EventFd.h"
#include "core/Ring.h"
#include "core/clock.h"

namespace rrm {

template <class T>
class alignas(64) _SafeQueue {  // NOLINT(bugprone-reserved-identifier): its given name
 public:
  // Without an eventfd the consumer polls.
  explicit _SafeQueue(std::uint64_t capacity, bool with_event_fd = false)
      : normal(capacity), force(capacity), event_fd(with_event_fd) {}

  // False if the ring is full. Gives no signal.
  [[nodiscard]] bool try_push(Ring<T>& ring, T&& item) { return ring.try_push(std::move(item)); }

  // Tries up to `attempts` times, without end if that is 0, and signals on success. False counts as dropped.
  [[nodiscard]] bool push_wait(Ring<T>& ring, T&& item, std::uint32_t attempts, std::uint32_t max_sleep_us) {
    Backoff backoff(max_sleep_us);
    for (std::uint64_t attempt = 1; attempts == 0 || attempt <= attempts; ++attempt) {
      backoff.pause(attempt);
      // NOLINTNEXTLINE(bugprone-use-after-move): a push that fails leaves the item alone
      if (!try_push(ring, std::move(item))) continue;
      signal();
      return true;
    }
    dropped_.fetch_add(1, std::memory_order_relaxed);
    return false;
  }

  // The usual way in: at once if there is room, else push_wait.
  [[nodiscard]] bool push(Ring<T>& ring, T&& item, std::uint32_t attempts, std::uint32_t max_sleep_us) {
    // NOLINTNEXTLINE(bugprone-use-after-move): a push that fails leaves the item alone
    if (!try_push(ring, std::move(item))) return push_wait(ring, std::move(item), attempts, max_sleep_us);
    signal();
    return true;
  }

  std::optional<T> pop(Ring<T>& ring) { return ring.pop(); }
  // From `force`, else from `normal`.
  std::optional<T> pop_next() {
    std::optional<T> item = force.pop();
    return item ? std::move(item) : normal.pop();
  }
  // Throws away what the ring holds.
  void clear(Ring<T>& ring) {
    while (ring.pop()) continue;
  }
  void clear() {
    clear(force);
    clear(normal);
  }

  std::uint64_t size(const Ring<T>& ring) const { return ring.size(); }
  std::uint64_t size() const { return force.size() + normal.size(); }
  bool empty() const { return size() == 0; }
  // Pushes abandoned so far.
  std::uint64_t dropped() const { return dropped_.load(std::memory_order_relaxed); }

  // Wakes the consumer.
  void signal() {
    event_fd.signal();
    if (notify) notify();
  }

  // The consumer's rest: until something is queued or `timeout_us` have passed; negative means without limit. Without
  // an eventfd the whole time passes first.
  void wait(std::int32_t timeout_us) {
    if (!empty()) return;
    if (event_fd.valid()) return event_fd.wait(timeout_us);
    if (timeout_us < 0) return poll_until_filled();
    if (timeout_us > 0) rrm::sleep_us(static_cast<std::uint32_t>(timeout_us));
  }

  Ring<T> normal;
  Ring<T> force;
  EventFd event_fd;
  // Called with every signal. Set before other threads know the queue.
  std::function<void()> notify;

 private:
  void poll_until_filled() {
    while (empty()) rrm::sleep_us(1000);
  }

  std::atomic<std::uint64_t> dropped_{0};
};

}  // namespace rrm
