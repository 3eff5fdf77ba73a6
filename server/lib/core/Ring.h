// A bounded lock-free queue for any number of producers and consumers. Each cell carries a sequence number that says
// whose turn it is: equal to the enqueue position it is free, one above the dequeue position it is filled. A cell's
// content is handed over by that number alone, so neither side ever waits for a lock or allocates.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace rrm {

// T is default-constructible and movable; a moved-from T owns nothing.
template <class T>
class alignas(64) Ring {
 public:
  // Holds exactly the next power of two at or above `requested`, at least 2.
  explicit Ring(std::uint64_t requested)
      : capacity_(std::bit_ceil(std::max<std::uint64_t>(requested, 2))),
        mask_(capacity_ - 1),
        cells_(std::make_unique<Cell[]>(capacity_)) {
    for (std::uint64_t i = 0; i < capacity_; ++i) cells_[i].sequence.store(i, std::memory_order_relaxed);
  }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  // False if the ring is full; the item then stays with the caller.
  [[nodiscard]] bool try_push(T&& item) {
    Cell* cell = claim(enqueue_pos_, 0);
    if (cell == nullptr) return false;
    const std::uint64_t pos = cell->sequence.load(std::memory_order_relaxed);
    cell->payload = std::move(item);
    cell->sequence.store(pos + 1, std::memory_order_release);
    return true;
  }

  // The oldest item, or nothing.
  std::optional<T> pop() {
    Cell* cell = claim(dequeue_pos_, 1);
    if (cell == nullptr) return std::nullopt;
    const std::uint64_t pos = cell->sequence.load(std::memory_order_relaxed) - 1;
    std::optional<T> item(std::move(cell->payload));
    cell->sequence.store(pos + mask_ + 1, std::memory_order_release);
    return item;
  }

  // A moment's view; exact only while nobody pushes or pops.
  std::uint64_t size() const {
    const std::uint64_t pushed = enqueue_pos_.load(std::memory_order_relaxed);
    const std::uint64_t popped = dequeue_pos_.load(std::memory_order_relaxed);
    return pushed > popped ? pushed - popped : 0;
  }
  std::uint64_t capacity() const { return capacity_; }

 private:
  struct Cell {
    std::atomic<std::uint64_t> sequence{0};
    T payload{};
  };

  // Takes the cell at `position` for the caller once its sequence is `lead` ahead of the position; null if it lags,
  // which means full to a producer and empty to a consumer.
  Cell* claim(std::atomic<std::uint64_t>& position, std::uint64_t lead) {
    std::uint64_t pos = position.load(std::memory_order_relaxed);
    for (;;) {
      Cell& cell = cells_[pos & mask_];
      const auto ahead = static_cast<std::int64_t>(cell.sequence.load(std::memory_order_acquire) - lead - pos);
      if (ahead < 0) return nullptr;
      if (ahead > 0) {
        pos = position.load(std::memory_order_relaxed);
      } else if (position.compare_exchange_weak(pos, pos + 1, std::memory_order_relaxed)) {
        return &cell;
      }
    }
  }

  const std::uint64_t capacity_;
  const std::uint64_t mask_;
  const std::unique_ptr<Cell[]> cells_;
  // Producers and consumers each own a cache line.
  alignas(64) std::atomic<std::uint64_t> enqueue_pos_{0};
  alignas(64) std::atomic<std::uint64_t> dequeue_pos_{0};
};

}  // namespace rrm
