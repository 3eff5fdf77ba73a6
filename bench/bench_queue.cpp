// What a message costs on its way through a worker's queue: the lock-free ring of the server, beside a deque under a
// mutex with the same bound.
//
// The items are what the queues carry, shared pointers to a message-sized record; they exist before the time counts and
// are only moved. "same thread" is the cost without any contention; "producers" has that many threads push to one
// consumer, as service threads and workers do, and grows along their number. A full or empty queue makes both sides
// yield. Every item must come out once, or the run is an error.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

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

BENCHMARK(same_thread<RingQueue>)->Name("same_thread/ring");
BENCHMARK(same_thread<MutexQueue>)->Name("same_thread/mutex");
BENCHMARK(producers<RingQueue>)->Name("producers/ring")->Arg(1)->Arg(2)->Arg(4)->MeasureProcessCPUTime();
BENCHMARK(producers<MutexQueue>)->Name("producers/mutex")->Arg(1)->Arg(2)->Arg(4)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
