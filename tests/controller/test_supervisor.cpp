// The life of the daemon as the supervisor decides it: starts, restarts, the order to end and what follows if it is not
// obeyed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/Supervisor.h"

namespace controller {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Phase = Supervisor::Phase;
using Seconds = std::chrono::seconds;

// The status of waitpid for an exit and for a death by signal.
int exited(int status) {
  return status << 8;
}
int killed(int signal) {
  return signal;
}

class SupervisorTest : public ::testing::Test, protected SupervisorOrders {
 protected:
  int start() override {
    orders_.push_back("start");
    if (!start_failure_.empty()) throw std::runtime_error(start_failure_);
    return ++pid_;
  }
  bool order_shutdown() override {
    orders_.push_back("order");
    return is_reachable_;
  }
  void send_signal(int signal) override { orders_.push_back("signal " + std::to_string(signal)); }
  void say(const std::string& text) override { said_.push_back(text); }

  std::vector<std::string> take_orders() { return std::exchange(orders_, {}); }
  std::vector<std::string> take_said() { return std::exchange(said_, {}); }
  // Seconds from now to the deadline; -1 without one.
  long wait() const {
    return supervisor_.deadline() ? std::chrono::duration_cast<Seconds>(*supervisor_.deadline() - now_).count() : -1;
  }
  void pass(Seconds time) {
    now_ += time;
    if (supervisor_.deadline() && now_ >= *supervisor_.deadline()) supervisor_.on_time(now_);
  }
  void run() {
    supervisor_.start(now_);
    supervisor_.on_ready();
    take_orders();
    take_said();
  }

  Clock::time_point now_{1000s};
  Supervisor supervisor_{*this};
  int pid_ = 100;
  bool is_reachable_ = true;
  std::string start_failure_;
  std::vector<std::string> orders_;
  std::vector<std::string> said_;
};

TEST_F(SupervisorTest, StartsAndRuns) {
  supervisor_.start(now_);
  EXPECT_EQ(supervisor_.phase(), Phase::starting);
  EXPECT_EQ(supervisor_.pid(), 101);
  EXPECT_EQ(wait(), 30);
  supervisor_.on_ready();
  EXPECT_EQ(supervisor_.phase(), Phase::running);
  EXPECT_EQ(wait(), -1);
  EXPECT_THAT(take_orders(), ElementsAre("start"));
  EXPECT_THAT(take_said(), ElementsAre("zal_rrm started, pid 101", "zal_rrm is ready and was ordered to run"));
}

TEST_F(SupervisorTest, ADeathIsSaidAndFollowedByAStart) {
  run();
  supervisor_.on_exit(killed(SIGKILL), now_);
  EXPECT_EQ(supervisor_.phase(), Phase::pausing);
  EXPECT_EQ(supervisor_.pid(), 0);
  EXPECT_THAT(take_said(),
              ElementsAre("zal_rrm, pid 101, was killed by signal 9 (Killed)", "zal_rrm is started again in 1 s"));
  pass(0s);
  EXPECT_THAT(take_orders(), IsEmpty());
  pass(1s);
  EXPECT_THAT(take_orders(), ElementsAre("start"));
  EXPECT_EQ(supervisor_.pid(), 102);
}

TEST_F(SupervisorTest, AnEndWithoutAnOrderIsADeathToo) {
  run();
  supervisor_.on_exit(exited(0), now_);
  EXPECT_EQ(supervisor_.phase(), Phase::pausing);
  EXPECT_THAT(take_said(), ElementsAre("zal_rrm, pid 101, ended with status 0", "zal_rrm is started again in 1 s"));
}

TEST_F(SupervisorTest, PausesDoubleUpToThirtySecondsAndBeginAnewAfterAGoodRun) {
  supervisor_.start(now_);
  std::vector<long> pauses;
  for (int i = 0; i < 7; ++i) {
    supervisor_.on_exit(exited(255), now_);
    pauses.push_back(wait());
    pass(Seconds(wait()));
  }
  EXPECT_THAT(pauses, ElementsAre(1, 2, 4, 8, 16, 30, 30));
  now_ += 59s;
  supervisor_.on_exit(exited(255), now_);
  EXPECT_EQ(wait(), 30);
  pass(30s);
  now_ += 60s;
  supervisor_.on_exit(exited(255), now_);
  EXPECT_EQ(wait(), 1);
}

TEST_F(SupervisorTest, AFirstStartThatFailsIsTheCallersAffair) {
  start_failure_ = "no such program";
  EXPECT_THROW(supervisor_.start(now_), std::runtime_error);
  EXPECT_THAT(take_said(), IsEmpty());
}

TEST_F(SupervisorTest, ALaterStartThatFailsIsTriedAgainMoreAndMoreRarely) {
  run();
  now_ += 100s;
  start_failure_ = "no such program";
  supervisor_.on_exit(exited(255), now_);
  take_said();
  for (const char* pause : {"2", "4", "8"}) {
    pass(Seconds(wait()));
    EXPECT_THAT(take_said(), ElementsAre("zal_rrm cannot be started: no such program",
                                         "zal_rrm is started again in " + std::string(pause) + " s"));
    EXPECT_EQ(supervisor_.phase(), Phase::pausing);
    EXPECT_EQ(supervisor_.pid(), 0);
  }
  start_failure_.clear();
  pass(8s);
  EXPECT_THAT(take_said(), ElementsAre("zal_rrm started, pid 102"));
  EXPECT_EQ(supervisor_.phase(), Phase::starting);
}

TEST_F(SupervisorTest, OneThatDoesNotReportReadyIsKilledAndStartedAgain) {
  supervisor_.start(now_);
  take_said();
  take_orders();
  pass(29s);
  EXPECT_THAT(take_orders(), IsEmpty());
  pass(1s);
  EXPECT_THAT(take_orders(), ElementsAre("signal 9"));
  EXPECT_THAT(take_said(), ElementsAre("zal_rrm is not ready after 30 s: killing it"));
  EXPECT_EQ(wait(), -1);
  supervisor_.on_exit(killed(SIGKILL), now_);
  EXPECT_EQ(supervisor_.phase(), Phase::pausing);
}

TEST_F(SupervisorTest, AnOrderedEndIsWaitedFor) {
  run();
  supervisor_.end(now_);
  EXPECT_EQ(supervisor_.phase(), Phase::ending);
  EXPECT_THAT(take_orders(), ElementsAre("order"));
  EXPECT_EQ(wait(), 15);
  supervisor_.on_exit(exited(0), now_);
  EXPECT_EQ(supervisor_.phase(), Phase::ended);
  EXPECT_TRUE(supervisor_.ended_well());
  EXPECT_THAT(take_said(), ElementsAre("zal_rrm was ordered to end", "zal_rrm, pid 101, ended with status 0"));
}

TEST_F(SupervisorTest, AnOrderedEndWithAFailureIsNoGoodOne) {
  for (const int status : {exited(1), killed(SIGSEGV)}) {
    Supervisor supervisor(*this);
    supervisor.start(now_);
    supervisor.on_ready();
    supervisor.end(now_);
    supervisor.on_exit(status, now_);
    EXPECT_EQ(supervisor.phase(), Phase::ended);
    EXPECT_FALSE(supervisor.ended_well());
  }
}

TEST_F(SupervisorTest, AnOrderThatIsNotObeyedIsFollowedByBothSignals) {
  run();
  supervisor_.end(now_);
  take_orders();
  take_said();
  pass(14s);
  EXPECT_THAT(take_orders(), IsEmpty());
  pass(1s);
  EXPECT_THAT(take_orders(), ElementsAre("signal 15"));
  EXPECT_EQ(wait(), 5);
  pass(5s);
  EXPECT_THAT(take_orders(), ElementsAre("signal 9"));
  EXPECT_EQ(wait(), -1);
  EXPECT_THAT(take_said(), ElementsAre("zal_rrm has not ended after 15 s", "sending SIGTERM to zal_rrm",
                                       "zal_rrm has not ended 5 s after SIGTERM", "killing zal_rrm"));
  supervisor_.on_exit(killed(SIGKILL), now_);
  EXPECT_EQ(supervisor_.phase(), Phase::ended);
  EXPECT_FALSE(supervisor_.ended_well());
}

TEST_F(SupervisorTest, ASecondOrderToEndKills) {
  run();
  EXPECT_FALSE(supervisor_.is_ending());
  supervisor_.end(now_);
  EXPECT_TRUE(supervisor_.is_ending());
  supervisor_.end(now_);
  EXPECT_TRUE(supervisor_.is_ending());
  EXPECT_THAT(take_orders(), ElementsAre("order", "signal 9"));
  supervisor_.end(now_);
  EXPECT_THAT(take_orders(), IsEmpty());
  EXPECT_EQ(supervisor_.phase(), Phase::killing);
}

TEST_F(SupervisorTest, OneThatCannotBeReachedIsTerminated) {
  run();
  is_reachable_ = false;
  supervisor_.end(now_);
  EXPECT_THAT(take_orders(), ElementsAre("order", "signal 15"));
  EXPECT_EQ(supervisor_.phase(), Phase::terminating);
}

TEST_F(SupervisorTest, OneThatIsNotReadyYetIsTerminated) {
  supervisor_.start(now_);
  take_orders();
  supervisor_.end(now_);
  EXPECT_THAT(take_orders(), ElementsAre("signal 15"));
  supervisor_.on_exit(killed(SIGTERM), now_);
  EXPECT_EQ(supervisor_.phase(), Phase::ended);
}

TEST_F(SupervisorTest, WithoutAProcessTheEndIsAtOnce) {
  run();
  supervisor_.on_exit(exited(255), now_);
  supervisor_.end(now_);
  EXPECT_EQ(supervisor_.phase(), Phase::ended);
  EXPECT_EQ(wait(), -1);
  EXPECT_TRUE(supervisor_.ended_well());
}

TEST_F(SupervisorTest, ReadyCountsOnlyWhileStarting) {
  run();
  supervisor_.end(now_);
  supervisor_.on_ready();
  EXPECT_EQ(supervisor_.phase(), Phase::ending);
}

}  // namespace
}  // namespace controller
