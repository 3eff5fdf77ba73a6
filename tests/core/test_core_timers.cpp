// When timers run, in which order, and what a callback may do to the list.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core/TimerList.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Timers : public ::testing::Test {
 protected:
  // A callback that notes its name.
  TimerList::Callback note(const std::string& name) {
    return [this, name] { ran.push_back(name); };
  }
  std::vector<std::string> run_after(std::int64_t seconds) {
    clock.advance(seconds);
    ran.clear();
    timers.run_due();
    return ran;
  }

  ManualClock clock{1000};
  TimerList timers;
  std::vector<std::string> ran;
};

TEST_F(Timers, ATimerRunsOnceWhenItsSecondHasCome) {
  timers.add(note("a"), 1, 3);
  EXPECT_THAT(run_after(2), IsEmpty());
  EXPECT_THAT(run_after(1), ElementsAre("a"));
  EXPECT_THAT(run_after(1), IsEmpty());
}

TEST_F(Timers, ALateRunCatchesUpInTheOrderOfExpiry) {
  timers.add(note("five"), 1, 5);
  timers.add(note("two"), 2, 2);
  timers.add(note("nine"), 3, 9);
  timers.add(note("four"), 4, 4);
  EXPECT_THAT(run_after(7), ElementsAre("two", "four", "five"));
  EXPECT_THAT(run_after(2), ElementsAre("nine"));
}

TEST_F(Timers, EqualExpiriesRunInTheOrderOfAdding) {
  timers.add(note("first"), 1, 5);
  timers.add(note("early"), 2, 1);
  clock.advance(2);
  timers.add(note("second"), 3, 3);
  timers.add(note("third"), 1, 3);
  EXPECT_THAT(run_after(3), ElementsAre("early", "first", "second", "third"));
}

TEST_F(Timers, ADelayOfZeroOrLessIsDueAtOnce) {
  timers.add(note("zero"), 1, 0);
  timers.add(note("past"), 2, -5);
  EXPECT_THAT(run_after(0), ElementsAre("past", "zero"));
}

TEST_F(Timers, RemoveErasesEveryEntryWithTheNumber) {
  timers.add(note("a"), 7, 1);
  timers.add(note("b"), 8, 1);
  timers.add(note("c"), 7, 2);
  timers.remove(7);
  timers.remove(9);
  EXPECT_THAT(run_after(5), ElementsAre("b"));
}

TEST_F(Timers, ReplaceLeavesOneEntryWithTheNumber) {
  timers.add(note("old"), 7, 1);
  timers.add(note("older"), 7, 2);
  timers.replace(7, note("new"), 4);
  EXPECT_THAT(run_after(3), IsEmpty());
  EXPECT_THAT(run_after(1), ElementsAre("new"));
}

TEST_F(Timers, ATimerRemovedByAnEarlierOneOfTheSameRunStillRuns) {
  timers.add(
      [this] {
        ran.push_back("remover");
        timers.remove(2);
      },
      1, 1);
  timers.add(note("removed"), 2, 1);
  EXPECT_THAT(run_after(1), ElementsAre("remover", "removed"));
  EXPECT_THAT(run_after(1), IsEmpty());
}

TEST_F(Timers, ACallbackThatAddsItselfWithADelayOfZeroNeverRunsAgain) {
  std::function<void()> again = [&] {
    ran.push_back("again");
    timers.add(again, 1, 0);
  };
  timers.add(again, 1, 1);
  EXPECT_THAT(run_after(1), ElementsAre("again"));
  EXPECT_THAT(run_after(0), IsEmpty());
  EXPECT_THAT(run_after(10), IsEmpty());
}

TEST_F(Timers, ACallbackThatAddsItselfWithADelayOfOneRunsEverySecond) {
  std::function<void()> again = [&] {
    ran.push_back("again");
    timers.add(again, 1, 1);
  };
  timers.add(again, 1, 1);
  EXPECT_THAT(run_after(1), ElementsAre("again"));
  EXPECT_THAT(run_after(0), IsEmpty());
  EXPECT_THAT(run_after(1), ElementsAre("again"));
  EXPECT_THAT(run_after(5), ElementsAre("again")) << "a late run does not catch up on what was not armed yet";
}

// Another timer that falls due while the callbacks run was not in the batch, and is forgotten with it.
TEST_F(Timers, ATimerAddedAsAlreadyDueByACallbackIsForgotten) {
  timers.add([this] { timers.add(note("late"), 2, -1); }, 1, 1);
  EXPECT_THAT(run_after(1), IsEmpty());
  EXPECT_THAT(run_after(1), IsEmpty());
}

// Expiries are computed in 32 bits: past the end they lie in the past, and the timer is due at once.
TEST(TimersAtTheEndOf32Bits, AnExpiryBeyondTheEndIsInThePast) {
  ManualClock clock(2147483646);
  TimerList timers;
  std::vector<std::string> ran;
  timers.add([&] { ran.push_back("last"); }, 1, 1);
  timers.add([&] { ran.push_back("beyond"); }, 2, 2);
  timers.run_due();
  EXPECT_THAT(ran, ElementsAre("beyond"));
  clock.advance(1);
  timers.run_due();
  EXPECT_THAT(ran, ElementsAre("beyond", "last"));
}

}  // namespace
}  // namespace rrm::testing
