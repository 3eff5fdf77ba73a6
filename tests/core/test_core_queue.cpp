// A queue of two rings: what overtakes, how a producer waits for room, how a consumer rests and is woken.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "core/SafeQueue.h"
#include "core/sleep_recorder.h"

namespace rrm::testing {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Queue = _SafeQueue<int>;

bool push(Queue& queue, Ring<int>& ring, int item) {
  return queue.try_push(ring, std::move(item));
}

void fill(Queue& queue, Ring<int>& ring) {
  for (int i = 0; push(queue, ring, i); ++i) continue;
}

bool readable(const EventFd& event_fd) {
  pollfd waited{event_fd.fd(), POLLIN, 0};
  return ::poll(&waited, 1, 0) == 1;
}

TEST(SafeQueue, BothRingsHaveTheSameCapacity) {
  const Queue queue(2000);
  EXPECT_EQ(queue.normal.capacity(), 2048u);
  EXPECT_EQ(queue.force.capacity(), 2048u);
}

TEST(SafeQueue, ForceOvertakesNormal) {
  Queue queue(8);
  ASSERT_TRUE(push(queue, queue.normal, 1));
  ASSERT_TRUE(push(queue, queue.normal, 2));
  ASSERT_TRUE(push(queue, queue.force, 10));
  ASSERT_TRUE(push(queue, queue.force, 11));
  std::vector<int> served;
  while (const auto item = queue.pop_next()) served.push_back(*item);
  EXPECT_THAT(served, ElementsAre(10, 11, 1, 2));
}

TEST(SafeQueue, SizeCountsBothRings) {
  Queue queue(8);
  EXPECT_TRUE(queue.empty());
  ASSERT_TRUE(push(queue, queue.normal, 1));
  ASSERT_TRUE(push(queue, queue.normal, 2));
  ASSERT_TRUE(push(queue, queue.force, 3));
  EXPECT_EQ(queue.size(queue.normal), 2u);
  EXPECT_EQ(queue.size(queue.force), 1u);
  EXPECT_EQ(queue.size(), 3u);
  EXPECT_FALSE(queue.empty());
}

TEST(SafeQueue, ClearEmptiesOneRing) {
  Queue queue(8);
  ASSERT_TRUE(push(queue, queue.normal, 1));
  ASSERT_TRUE(push(queue, queue.force, 2));
  queue.clear(queue.normal);
  EXPECT_EQ(queue.pop_next(), 2);
  EXPECT_EQ(queue.pop_next(), std::nullopt);
}

// 63 tries at once, 64 that give the CPU away, then sleeps from 1 microsecond that double up to the limit.
TEST(SafeQueue, AWaitingProducerSleepsFromThe128thAttemptOn) {
  struct Case {
    std::uint32_t attempts;
    std::vector<std::uint32_t> sleeps;
  };
  for (const Case& c : {Case{1, {}}, Case{127, {}}, Case{128, {1}}, Case{129, {1, 2}},
                        Case{140, {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1000, 1000, 1000}}}) {
    const SleepRecorder recorder;
    Queue queue(2);
    fill(queue, queue.normal);
    EXPECT_FALSE(queue.push_wait(queue.normal, 7, c.attempts, 1000));
    EXPECT_EQ(recorder.sleeps(), c.sleeps) << c.attempts << " attempts";
    EXPECT_EQ(queue.dropped(), 1u);
  }
}

TEST(SafeQueue, APushThatRunsOutOfAttemptsLeavesTheItem) {
  const SleepRecorder clock;
  _SafeQueue<std::shared_ptr<int>> queue(2);
  while (queue.try_push(queue.force, std::make_shared<int>(0))) continue;
  auto item = std::make_shared<int>(7);
  EXPECT_FALSE(queue.push_wait(queue.force, std::move(item), 256, 1000));
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(*item, 7);
}

TEST(SafeQueue, APushSucceedsAsSoonAsThereIsRoom) {
  SleepRecorder clock;
  Queue queue(2, true);
  fill(queue, queue.normal);
  clock.on_sleep = [&] {
    if (clock.count() == 3) queue.pop(queue.normal);
  };
  EXPECT_TRUE(queue.push_wait(queue.normal, 7, 65536, 1000));
  EXPECT_THAT(clock.sleeps(), ElementsAre(1, 2, 4));
  EXPECT_EQ(queue.dropped(), 0u);
  EXPECT_TRUE(readable(queue.event_fd));
}

TEST(SafeQueue, ZeroAttemptsMeanWithoutEnd) {
  SleepRecorder clock;
  Queue queue(2);
  fill(queue, queue.normal);
  clock.on_sleep = [&] {
    if (clock.count() == 70000) queue.clear(queue.normal);
  };
  EXPECT_TRUE(queue.push_wait(queue.normal, 7, 0, 1000));
  EXPECT_EQ(clock.count(), 70000u);
}

TEST(SafeQueue, EverySuccessfulPushSignalsAndNoFailedOneDoes) {
  const SleepRecorder clock;
  Queue queue(2);
  int signals = 0;
  queue.notify = [&] { ++signals; };
  EXPECT_TRUE(push(queue, queue.normal, 1));
  EXPECT_EQ(signals, 0) << "try_push alone gives no signal";
  EXPECT_TRUE(queue.push(queue.normal, 2, 1, 1000));
  EXPECT_EQ(signals, 1);
  EXPECT_FALSE(queue.push(queue.normal, 3, 4, 1000));
  EXPECT_EQ(signals, 1);
  EXPECT_TRUE(queue.push_wait(queue.force, 4, 1, 1000));
  EXPECT_EQ(signals, 2);
}

TEST(SafeQueue, WaitReturnsAtOnceWhileAnythingIsQueued) {
  const SleepRecorder clock;
  for (const bool force : {false, true}) {
    Queue queue(2);
    ASSERT_TRUE(push(queue, force ? queue.force : queue.normal, 1));
    queue.wait(10000);
    queue.wait(-1);
  }
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST(SafeQueue, WithoutEventFdWaitSleepsTheWholeTime) {
  const SleepRecorder clock;
  Queue queue(2);
  EXPECT_FALSE(queue.event_fd.valid());
  queue.wait(10000);
  EXPECT_THAT(clock.sleeps(), ElementsAre(10000));
  queue.wait(0);
  EXPECT_THAT(clock.sleeps(), ElementsAre(10000));
}

TEST(SafeQueue, WithoutEventFdALimitlessWaitLooksEveryMillisecond) {
  SleepRecorder clock;
  Queue queue(2);
  clock.on_sleep = [&] {
    if (clock.count() == 5) fill(queue, queue.force);
  };
  queue.wait(-1);
  EXPECT_THAT(clock.sleeps(), ElementsAre(1000, 1000, 1000, 1000, 1000));
}

TEST(SafeQueue, WithEventFdAPushEndsALimitlessWait) {
  Queue queue(2, true);
  std::thread consumer([&] {
    while (!queue.pop_next()) queue.wait(-1);
  });
  EXPECT_TRUE(queue.push(queue.normal, 1, 1, 1000));
  consumer.join();
}

TEST(SafeQueue, WaitTakesTheSignalsThatWokeIt) {
  Queue queue(4, true);
  queue.signal();
  queue.signal();
  ASSERT_TRUE(readable(queue.event_fd));
  queue.wait(-1);
  EXPECT_FALSE(readable(queue.event_fd));
}

TEST(SafeQueue, SharesNoCacheLineWithItsNeighbours) {
  EXPECT_EQ(alignof(Queue), 64u);
}

TEST(EventFd, AClosedOneDoesNothing) {
  EventFd event_fd(false);
  EXPECT_FALSE(event_fd.valid());
  event_fd.signal();
  event_fd.drain();
  event_fd.wait(-1);
}

TEST(EventFd, SignalsThatNobodyHasTakenYetAreOne) {
  EventFd event_fd(true);
  for (int i = 0; i < 3; ++i) event_fd.signal();
  std::uint64_t written = 0;
  ASSERT_EQ(::read(event_fd.fd(), &written, sizeof written), static_cast<ssize_t>(sizeof written));
  EXPECT_EQ(written, 1u);
}

TEST(EventFd, ASignalAfterTheTakingOfOthersIsANewOne) {
  EventFd event_fd(true);
  event_fd.signal();
  event_fd.drain();
  ASSERT_FALSE(readable(event_fd));
  event_fd.signal();
  EXPECT_TRUE(readable(event_fd));
}

// A lost one would leave both threads waiting for each other.
TEST(EventFd, NoSignalIsLostBetweenThreadsThatAnswerEachOther) {
  constexpr int rounds = 20000;
  EventFd question(true);
  EventFd answer(true);
  std::atomic<int> asked{0};
  std::atomic<int> answered{0};
  std::thread peer([&] {
    for (int round = 1; round <= rounds; ++round) {
      while (asked < round) question.wait(-1);
      answered = round;
      answer.signal();
    }
  });
  for (int round = 1; round <= rounds; ++round) {
    asked = round;
    question.signal();
    while (answered < round) answer.wait(-1);
  }
  peer.join();
  EXPECT_EQ(answered, rounds);
}

TEST(EventFd, NeitherBlocksNorReachesAChildProcess) {
  const EventFd event_fd(true);
  EXPECT_NE(::fcntl(event_fd.fd(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(::fcntl(event_fd.fd(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(EventFd, WithoutADescriptorLeftTheOwnerPolls) {
  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none{0, usual.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const EventFd event_fd(true);
  ::setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_FALSE(event_fd.valid());
}

}  // namespace
}  // namespace rrm::testing
