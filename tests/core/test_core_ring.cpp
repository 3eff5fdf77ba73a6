// The ring's capacity, its order, its two ends, and that no item is lost or served twice among many threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "core/Ring.h"

namespace rrm {
namespace {

bool push(Ring<int>& ring, int item) {
  return ring.try_push(std::move(item));
}

TEST(Ring, CapacityIsTheNextPowerOfTwoAndAtLeastTwo) {
  struct Case {
    std::uint64_t requested;
    std::uint64_t capacity;
  };
  for (const Case& c : {Case{0, 2}, Case{1, 2}, Case{2, 2}, Case{3, 4}, Case{4, 4}, Case{5, 8}, Case{16, 16},
                        Case{17, 32}, Case{2000, 2048}, Case{2048, 2048}, Case{2049, 4096}, Case{4000, 4096}}) {
    EXPECT_EQ(Ring<int>(c.requested).capacity(), c.capacity) << "requested " << c.requested;
  }
}

TEST(Ring, HoldsExactlyItsCapacity) {
  Ring<int> ring(8);
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(push(ring, i)) << i;
  EXPECT_FALSE(push(ring, 8));
  EXPECT_EQ(ring.size(), 8u);

  EXPECT_EQ(ring.pop(), 0);
  EXPECT_TRUE(push(ring, 8));
  EXPECT_FALSE(push(ring, 9));
}

TEST(Ring, ServesInTheOrderOfPushingAcrossManyLaps) {
  Ring<int> ring(4);
  int next = 0;
  for (int pushed = 0; pushed < 40; pushed += 3) {
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(push(ring, pushed + i));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(ring.pop(), next++);
  }
  EXPECT_EQ(ring.pop(), std::nullopt);
  EXPECT_EQ(ring.size(), 0u);
}

TEST(Ring, AnEmptyRingGivesNothing) {
  Ring<int> ring(2);
  EXPECT_EQ(ring.pop(), std::nullopt);
  EXPECT_EQ(ring.size(), 0u);
}

TEST(Ring, ARefusedItemStaysWithTheCaller) {
  Ring<std::shared_ptr<int>> ring(2);
  ASSERT_TRUE(ring.try_push(std::make_shared<int>(1)));
  ASSERT_TRUE(ring.try_push(std::make_shared<int>(2)));
  auto refused = std::make_shared<int>(3);
  EXPECT_FALSE(ring.try_push(std::move(refused)));
  ASSERT_NE(refused, nullptr);
  EXPECT_EQ(*refused, 3);
}

TEST(Ring, KeepsNoReferenceToAnItemThatWasTaken) {
  Ring<std::shared_ptr<int>> ring(2);
  const auto item = std::make_shared<int>(1);
  ASSERT_TRUE(ring.try_push(std::shared_ptr<int>(item)));
  EXPECT_EQ(item.use_count(), 2);
  ring.pop();
  EXPECT_EQ(item.use_count(), 1);
}

TEST(Ring, PositionsOfProducersAndConsumersShareNoCacheLine) {
  EXPECT_EQ(alignof(Ring<int>), 64u);
}

// Each item names its producer and its place. Every one arrives once, and those of one producer in order at each
// consumer.
TEST(Ring, ManyProducersAndConsumersLoseNothingAndServeNothingTwice) {
  constexpr int producers = 3;
  constexpr int consumers = 3;
  constexpr int each = 20000;
  Ring<std::uint32_t> ring(64);
  std::atomic<int> left{producers * each};
  std::vector<std::vector<std::uint32_t>> taken(consumers);

  std::vector<std::thread> threads;
  for (std::uint32_t p = 0; p < producers; ++p) {
    threads.emplace_back([&ring, p] {
      for (std::uint32_t i = 0; i < each; ++i) {
        while (!ring.try_push((p << 24) | i)) std::this_thread::yield();
      }
    });
  }
  for (auto& mine : taken) {
    threads.emplace_back([&ring, &left, &mine] {
      while (left > 0) {
        if (const auto item = ring.pop()) {
          mine.push_back(*item);
          --left;
        } else {
          std::this_thread::yield();
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();

  std::vector<int> arrivals(producers * each);
  for (const auto& mine : taken) {
    std::vector<std::int64_t> last(producers, -1);
    for (const std::uint32_t item : mine) {
      const std::uint32_t producer = item >> 24;
      const std::int64_t place = item & 0xffffff;
      EXPECT_GT(place, last[producer]);
      last[producer] = place;
      ++arrivals[producer * each + static_cast<std::size_t>(place)];
    }
  }
  EXPECT_THAT(arrivals, ::testing::Each(1));
}

}  // namespace
}  // namespace rrm
