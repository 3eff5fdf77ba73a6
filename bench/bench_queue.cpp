// What a message costs on its way through a worker's queue: the lock-free ring of the server, beside a plain ring with
// the same cells and nothing else, and a deque under a mutex with the same bound.
//
// The items are what the queues carry, shared pointers to a message-sized record; they exist before the time counts and
// are only moved. "one thread" is the cost without any contention; "producers" has that many threads push to one
// consumer, as service threads and workers do, and grows along their number. A full or empty queue makes both sides
// yield. Every item must come out once, or the run is an error.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Comparison.h"
#include "Measures.h"
#include "core/Ring.h"

namespace {

constexpr std::size_t capacity = 2048;
constexpr std::size_t items_per_run = 100000;

struct Message {
  std::uint64_t number = 0;
  std::array<char, 80> rest{};
};
using Item = std::shared_ptr<Message>;

class RingQueue {
 public:
  bool push(Item&& item) { return ring_.try_push(std::move(item)); }
  std::optional<Item> pop() { return ring_.pop(); }

 private:
  rrm::Ring<Item> ring_{capacity};
};

// What a queue of cells cannot do without: a position for each side, a sequence number for each cell.
class PlainRing {
 public:
  PlainRing() : cells_(capacity) {
    for (std::uint64_t i = 0; i < capacity; ++i) cells_[i].turn.store(i, std::memory_order_relaxed);
  }

  bool push(Item&& item) {
    const std::optional<std::uint64_t> place = take_place(pushed_, 0);
    if (!place) return false;
    Cell& cell = cells_[*place % capacity];
    cell.item = std::move(item);
    cell.turn.store(*place + 1, std::memory_order_release);
    return true;
  }

  std::optional<Item> pop() {
    const std::optional<std::uint64_t> place = take_place(popped_, 1);
    if (!place) return std::nullopt;
    Cell& cell = cells_[*place % capacity];
    std::optional<Item> item(std::move(cell.item));
    cell.turn.store(*place + capacity, std::memory_order_release);
    return item;
  }

 private:
  struct Cell {
    std::atomic<std::uint64_t> turn{0};
    Item item;
  };

  std::optional<std::uint64_t> take_place(std::atomic<std::uint64_t>& position, std::uint64_t ahead) {
    std::uint64_t place = position.load(std::memory_order_relaxed);
    for (;;) {
      const Cell& cell = cells_[place % capacity];
      const auto wait = static_cast<std::int64_t>(cell.turn.load(std::memory_order_acquire) - place - ahead);
      if (wait < 0) return std::nullopt;
      if (wait > 0) {
        place = position.load(std::memory_order_relaxed);
      } else if (position.compare_exchange_weak(place, place + 1, std::memory_order_relaxed)) {
        return place;
      }
    }
  }

  std::vector<Cell> cells_;
  alignas(64) std::atomic<std::uint64_t> pushed_{0};
  alignas(64) std::atomic<std::uint64_t> popped_{0};
};

class MutexQueue {
 public:
  bool push(Item&& item) {
    const std::lock_guard lock(mutex_);
    if (items_.size() >= capacity) return false;
    items_.push_back(std::move(item));
    return true;
  }
  std::optional<Item> pop() {
    const std::lock_guard lock(mutex_);
    if (items_.empty()) return std::nullopt;
    std::optional<Item> item(std::move(items_.front()));
    items_.pop_front();
    return item;
  }

 private:
  std::mutex mutex_;
  std::deque<Item> items_;
};

std::vector<Item> numbered_items(std::size_t count) {
  std::vector<Item> items;
  for (std::size_t i = 0; i < count; ++i) items.push_back(std::make_shared<Message>(Message{i, {}}));
  return items;
}

std::uint64_t sum_below(std::uint64_t count) {
  return count * (count - 1) / 2;
}

template <class Queue>
void same_thread(benchmark::State& state) {
  Queue queue;
  std::vector<Item> items = numbered_items(256);
  std::size_t next = 0;
  for (auto _ : state) {
    Item& item = items[next++ % items.size()];
    queue.push(std::move(item));
    item = std::move(*queue.pop());
  }
  std::uint64_t sum = 0;
  for (const Item& item : items) sum += item->number;
  if (sum != sum_below(items.size())) state.SkipWithError("items were lost");
  state.SetItemsProcessed(state.iterations());
}

// Moves all items from the producers' lists through the queue into one.
template <class Queue>
std::vector<Item> transfer(Queue& queue, std::vector<std::vector<Item>>& sources, std::size_t count) {
  std::vector<Item> taken;
  taken.reserve(count);
  std::vector<std::thread> producers;
  for (auto& source : sources) {
    producers.emplace_back([&queue, &source] {
      for (Item& item : source) {
        while (!queue.push(std::move(item))) sched_yield();
      }
    });
  }
  while (taken.size() < count) {
    if (auto item = queue.pop()) {
      taken.push_back(std::move(*item));
    } else {
      sched_yield();
    }
  }
  for (auto& producer : producers) producer.join();
  return taken;
}

template <class Queue>
void producers(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  Queue queue;
  std::vector<Item> items = numbered_items(items_per_run);
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<std::vector<Item>> sources(count);
    for (std::size_t i = 0; i < items.size(); ++i) sources[i % count].push_back(std::move(items[i]));
    state.ResumeTiming();
    items = transfer(queue, sources, items_per_run);
  }
  std::uint64_t sum = 0;
  for (const Item& item : items) sum += item->number;
  if (sum != sum_below(items_per_run)) state.SkipWithError("items were lost or came twice");
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(items_per_run));
}

template <class Queue>
void add_benchmarks(const std::string& way) {
  benchmark::RegisterBenchmark(("ring, one thread/" + way).c_str(), same_thread<Queue>);
  for (const int count : {1, 4}) {
    const std::string what = "ring, " + std::to_string(count) + (count == 1 ? " producer/" : " producers/");
    benchmark::RegisterBenchmark((what + way).c_str(), producers<Queue>)->Arg(count)->MeasureProcessCPUTime();
  }
}

// Producers and consumer share the daemon's one CPU.
void stay_on_one_cpu() {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(0, &set);
  if (sched_setaffinity(0, sizeof set, &set) != 0) throw std::runtime_error("CPU 0 cannot be had");
}

}  // namespace

int main(int argc, char** argv) {
  zal::bench::Measures measures(argc, argv);
  stay_on_one_cpu();
  add_benchmarks<RingQueue>("ring");
  add_benchmarks<PlainRing>("plain ring");
  add_benchmarks<MutexQueue>("deque under a mutex");
  const std::map<std::string, std::string> goals{{"ring, 1 producer", "1"}, {"ring, 4 producers", "1"}};
  const int status = zal::bench::Comparison(measures, "ring", "plain ring", goals).run(argc, argv);
  measures.write();
  return status;
}
