// When a cycle is planned, what forces it, and what a backup brings back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <thread>

#include "domain/pipeline_support.h"

namespace rrm::testing {
namespace {

using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";

// Planning

TEST_F(Pipeline, AForcedPlanBeginsTwentySecondsLater) {
  start_with({ap1});
  advance(19);
  EXPECT_EQ(rrm_status(), 4);
  advance(1);
  EXPECT_EQ(rrm_status(), 2);
}

TEST_F(Pipeline, WithoutAnythingToDoItStaysIdle) {
  settings.use_dca = false;
  settings.use_tpc = false;
  settings.use_all_ap_balance = true;
  start_with({ap1});
  EXPECT_EQ(rrm_status(), 0);
  advance(40);
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Pipeline, HasWorkBySettings) {
  struct Case {
    bool dca, tpc, all_ap, k, v, balance, expected;
  };
  const Case cases[] = {
      {true, false, true, false, false, false, true},  {false, true, true, false, false, false, true},
      {false, false, true, true, true, true, false},   {false, false, false, false, false, false, false},
      {false, false, false, true, false, false, true}, {false, false, false, false, true, false, true},
      {false, false, false, false, false, true, true},
  };
  for (const Case& one : cases) {
    settings.use_dca = one.dca;
    settings.use_tpc = one.tpc;
    settings.use_all_ap_balance = one.all_ap;
    settings.use_80211k = one.k;
    settings.use_80211v = one.v;
    settings.use_balance = one.balance;
    start();
    pipeline().planning_request_modes(true);
    EXPECT_EQ(rrm_status(), one.expected ? 4 : 0) << &one - cases;
    EXPECT_LINES(journal.lines("EVENT 24"), ({status_event(one.expected ? 4 : 0)}));
  }
}

TEST_F(Pipeline, WithoutATimeOfDayAnUnforcedPlanIsNone) {
  start();
  pipeline().planning_request_modes(false);
  EXPECT_LINES(journal.take(), ({"EVENT 23 lab", status_event(0)}));
}

TEST_F(Pipeline, AnUnforcedPlanEndsAForcedOne) {
  start_with({ap1});
  pipeline().planning_request_modes(false);
  EXPECT_LINES(journal.take(), ({"EVENT 23 lab", status_event(0)}));
  advance(30);
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Pipeline, ATimeOfDayIsAwaitedInTheDomainsTimeZone) {
  struct Case {
    std::int32_t time_of_day;
    std::int32_t zone;
    std::int64_t wall;
    int expected;
  };
  constexpr std::int64_t midnight = 19000LL * 86400;  // UTC
  const Case cases[] = {
      {3600, 0, midnight, 3600},
      {3600, 0, midnight + 3599, 1},
      {3600, 0, midnight + 3600, 86400},  // exactly now: tomorrow
      {3600, 0, midnight + 3601, 86399},
      {0, 0, midnight, 86400},
      {0, 0, midnight + 86399, 1},
      {86400, 0, midnight, 86400},
      {86400, 0, midnight + 1, 86399},
      {3600, 10800, midnight, 79200},          // 01:00 at +3 is 22:00 UTC
      {3600, 10800, midnight + 79200, 86400},  // exactly now
      {10800, 10800, midnight, 86400},         // 03:00 at +3 is 00:00 UTC
      {79200, -14400, midnight, 93600},        // 22:00 at -4 is 02:00 UTC, of the next day by this reckoning
      {0, 50400, midnight + 36000, 86400},     // 00:00 at +14 is 10:00 UTC
      {0, 50400, midnight + 86399, 36001},     // the longest way back: two days are added
      {86400, -43200, midnight, 129600},
  };
  for (const Case& one : cases) {
    settings.use_optimization_time = true;
    settings.optimization_time_seconds = one.time_of_day;
    settings.optimization_time = "its text";
    time_zone_offset = one.zone;
    start();
    clock.set_wall(one.wall);
    pipeline().planning_request_modes(false);
    EXPECT_LINES(journal.take(),
                 ({
                     "TRACE Optimization time " + std::to_string(one.time_of_day) + " sec its text time_zone_offset " +
                         std::to_string(one.zone) + " sec",
                     "TRACE Optimization interval " + std::to_string(one.expected),
                     "TRACE Planning domain lab update 1 after " + std::to_string(one.expected) + " sec",
                     "EVENT 23 lab",
                     status_event(1),
                 }));
  }
}

TEST_F(Pipeline, TheDailyPlanBeginsAtItsTime) {
  settings.use_optimization_time = true;
  settings.optimization_time_seconds = 3600;
  settings.use_optimization_event = false;
  clock.set_wall(19000LL * 86400 + 3590);
  start_with({ap1});
  EXPECT_EQ(rrm_status(), 1);
  advance(9);
  EXPECT_EQ(rrm_status(), 1);
  advance(1);
  EXPECT_EQ(rrm_status(), 2);
}

TEST_F(Pipeline, WithoutAWallClockThereIsNoDailyPlan) {
  settings.use_optimization_time = true;
  start();
  clock.fail_wall(true);
  pipeline().planning_request_modes(false);
  EXPECT_LINES(journal.take(),
               ({"TRACE Optimization time 0 sec 00:00 time_zone_offset 0 sec", "EVENT 23 lab", status_event(0)}));
}

TEST_F(Pipeline, APlanThatIsPlannedAgainRaisesNothing) {
  start();
  pipeline().planning_request_modes(true);
  journal.take();
  advance(19);
  told();
  pipeline().planning_request_modes(true);
  EXPECT_LINES(journal.take(), ({"TRACE Planning domain lab update 4 after 20 sec"}));
  advance(19);
  EXPECT_EQ(rrm_status(), 4) << "the wait began anew";
}

// Forcing

TEST_F(Pipeline, AForcedPlanIsPlannedOnce) {
  start_with({ap1});
  advance(10);
  told();
  pipeline().force_optimization();
  EXPECT_LINES(told(), ({"TRACE Force optimization already planned domain lab"}));
  advance(10);
  EXPECT_EQ(rrm_status(), 2) << "the wait did not begin anew";
}

TEST_F(Pipeline, EventsMayBeNoReasonForAPlan) {
  settings.use_optimization_event = false;
  start();
  pipeline().force_optimization();
  EXPECT_LINES(journal.take(), ({
                                   "TRACE Force optimization dmain lab",
                                   "TRACE Not event optimization dmain lab",
                                   "EVENT 23 lab",
                                   status_event(0),
                               }));
}

TEST_F(Pipeline, AForceBreaksACycleOff) {
  start_with({ap1});
  to_mode_requests();
  pipeline().force_optimization();
  EXPECT_LINES(journal.take(), ({
                                   "TRACE Force optimization dmain lab",
                                   "TRACE Planning domain lab update 4 after 20 sec",
                                   "EVENT 23 lab",
                                   status_event(4),
                               }));
  advance(19);
  EXPECT_EQ(rrm_status(), 4);
  EXPECT_THAT(journal.lines("TRACE Domain lab").at(0), ::testing::HasSubstr("load_balancer_lock: 0"));
}

TEST_F(Pipeline, AnOperatorsRequestIsPlannedWhateverEventsMayDo) {
  settings.use_optimization_event = false;
  start_with({ap1});
  radio(ap1).lists_stale = false;
  EXPECT_TRUE(force_optimization());
  EXPECT_LINES(told(), ({
                           "TRACE Force optimization from api dmain lab",
                           "TRACE Planning domain lab update 4 after 20 sec",
                           "EVENT 23 lab",
                           status_event(4),
                       }));
  EXPECT_TRUE(radio(ap1).lists_stale);
  EXPECT_TRUE(force_optimization());
  EXPECT_LINES(told(), ({"TRACE Force optimization already planned domain lab"}));
}

TEST_F(Pipeline, AnOperatorsRequestIsTakenBeforeTheDailyPlan) {
  settings.use_optimization_time = true;
  settings.use_optimization_event = false;
  start_with({ap1});
  ASSERT_EQ(rrm_status(), 1);
  EXPECT_TRUE(force_optimization());
  EXPECT_EQ(rrm_status(), 4);
}

TEST_F(Pipeline, AnOperatorsRequestIsRefusedDuringAScan) {
  start_with({ap1});
  to_mode_requests();
  EXPECT_FALSE(force_optimization());
  EXPECT_LINES(told(), ({"TRACE NOT Planning optimization domain lab status 2"}));
  answer_mode(1, ap1);
  to_scan();
  EXPECT_FALSE(force_optimization());
  EXPECT_LINES(told(), ({"TRACE NOT Planning optimization domain lab status 3"}));
}

TEST_F(Pipeline, TheSubworkerItselfTakesAnOperatorsRequestInEveryState) {
  start_with({ap1});
  EXPECT_TRUE(pipeline().force_optimization_from_api());
  EXPECT_LINES(told(), ({
                           "TRACE Force optimization from api dmain lab",
                           "TRACE Planning domain lab update 4 after 20 sec",
                       }));
  to_mode_requests();
  EXPECT_TRUE(pipeline().force_optimization_from_api());
  EXPECT_EQ(rrm_status(), 4);
}

// A request while the plan is computed

class Rerun : public Pipeline {
 protected:
  Rerun() {
    optimization = [this](OptimizationContext&, const std::atomic<bool>& cancel) {
      ++runs;
      computed.wait();
      OptimizationResult result;
      result.success = !cancel;
      result.error_message = cancel ? "cancelled" : "";
      return result;
    };
  }
  ~Rerun() override { computed.open(), worker.reset(); }

  std::atomic<int> runs{0};
  Gate computed;
};

TEST_F(Rerun, ManyRequestsAreOneRerun) {
  start_with({ap1});
  to_computing({{1, ap1}});
  pipeline().force_optimization();
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_TRUE(force_optimization());
  EXPECT_LINES(told(), ({"TRACE Force optimization from api queued while COMPUTING domain lab"}));
  pipeline().force_optimization();
  computed.open();
  finish_computing();
  EXPECT_EQ(rrm_status(), 4);
  EXPECT_LINES(told(), ({
                           "TRACE Post tpc-results",
                           status_event(0),
                           "TRACE Force optimization dmain lab",
                           "TRACE Planning domain lab update 4 after 20 sec",
                           "EVENT 23 lab",
                           status_event(4),
                           "TRACE Optimization on domain lab finished",
                           "SEND 1 " + told_info("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)}),
                       }));
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_EQ(rrm_status(), 0) << "once";
  EXPECT_EQ(runs, 2);
}

TEST_F(Rerun, ARerunObeysTheSettingOfEvents) {
  settings.use_optimization_event = false;
  start_with({ap1});
  EXPECT_TRUE(force_optimization());
  to_computing({{1, ap1}});
  pipeline().force_optimization();
  computed.open();
  finish_computing();
  EXPECT_TRUE(journal.has("TRACE Not event optimization dmain lab"));
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Rerun, AStateWithoutItsThreadIsRepairedByTheNextRequest) {
  start_with({ap1});
  for (const bool by_operator : {false, true}) {
    to_computing({{1, ap1}});
    computed.open();
    pipeline().stop();
    ASSERT_EQ(rrm_status(), 5);
    told();
    if (by_operator) {
      EXPECT_TRUE(force_optimization());
      EXPECT_LINES(told(),
                   ({
                       status_event(0),
                       "WARNING Force optimization from api: orphan TPC_COMPUTING on domain lab, restarting pipeline",
                       "TRACE Force optimization from api dmain lab",
                       "TRACE Planning domain lab update 4 after 20 sec",
                       "EVENT 23 lab",
                       status_event(4),
                   }));
    } else {
      pipeline().force_optimization();
      EXPECT_LINES(told(), ({
                               status_event(0),
                               "WARNING Force optimization: orphan TPC_COMPUTING on domain lab, restarting pipeline",
                               "TRACE Force optimization dmain lab",
                               "TRACE Planning domain lab update 4 after 20 sec",
                               "EVENT 23 lab",
                               status_event(4),
                           }));
    }
  }
}

TEST_F(Rerun, ARepairForgetsTheRequestsOfThePlanThatWasLost) {
  start_with({ap1});
  to_computing({{1, ap1}});
  pipeline().force_optimization();
  computed.open();
  pipeline().stop();
  pipeline().force_optimization();
  ASSERT_EQ(rrm_status(), 4);
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Rerun, APlanThatEndedUnseenIsGivenUpByTheNextRequest) {
  std::atomic<bool> ended{false};
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) -> OptimizationResult {
    ended = true;
    throw 7;
  };
  start_with({ap1});
  to_computing({{1, ap1}});
  const auto end_is_seen = [this] {
    pipeline().force_optimization();
    return rrm_status() != 5;
  };
  ASSERT_TRUE(eventually([&] { return ended && end_is_seen(); }));
  EXPECT_LINES(journal.lines("WARNING"),
               ({"WARNING Force optimization: orphan TPC_COMPUTING on domain lab, restarting pipeline"}));
  EXPECT_EQ(rrm_status(), 4);
}

// Restoring

class Restore : public Rerun {};

TEST_F(Restore, MapsTheStates) {
  struct Case {
    std::int32_t restored;
    int expected;
    std::vector<std::string> warnings;
  };
  const std::string to_force = " remapped to DELAY_BEFORE_OPT_FORCE";
  const Case cases[] = {
      {0, 0, {}},
      {1, 1, {}},
      {2, 4, {"WARNING Restore domain lab: mid-cycle rrm-status 2" + to_force}},
      {3, 4, {"WARNING Restore domain lab: mid-cycle rrm-status 3" + to_force}},
      {4, 4, {}},
      {5, 4, {"WARNING Restore domain lab: mid-cycle rrm-status 5" + to_force}},
      {6, 0, {"WARNING Restore domain lab: unknown rrm-status 6 remapped to IDLE"}},
      {-1, 0, {"WARNING Restore domain lab: unknown rrm-status -1 remapped to IDLE"}},
      {std::numeric_limits<std::int32_t>::max(),
       0,
       {"WARNING Restore domain lab: unknown rrm-status 2147483647 remapped to IDLE"}},
  };
  for (const Case& one : cases) {
    start();
    pipeline().restore(one.restored, 1, 300);
    std::vector<std::string> expected = one.warnings;
    expected.push_back(status_event(one.expected));
    EXPECT_LINES(journal.take(), (expected));
    EXPECT_EQ(pipeline().fbt_status(), 1);
  }
}

TEST_F(Restore, ARestoredPlanStartsOverAfterTheDelay) {
  for (const int state : {1, 2, 3, 4, 5}) {
    start();
    pipeline().restore(state, 0, 30);
    const int restored = state == 1 ? 1 : 4;
    journal.take();
    advance(29);
    EXPECT_EQ(rrm_status(), restored);
    EXPECT_THAT(told(), IsEmpty());
    advance(1);
    EXPECT_LINES(told(), ({
                             "TRACE VRRP restore timer: restarting optimization pipeline on domain lab from state " +
                                 std::to_string(restored),
                             status_event(0),
                             "TRACE Force optimization dmain lab",
                             "TRACE Planning domain lab update 4 after 20 sec",
                             "EVENT 23 lab",
                             status_event(4),
                         }));
  }
}

TEST_F(Restore, LetsTheBalancerGo) {
  start_with({ap1});
  to_mode_requests();
  pipeline().restore(0, 0, 300);
  advance(10);
  EXPECT_THAT(journal.lines("TRACE Domain lab").at(0), ::testing::HasSubstr("load_balancer_lock: 0"));
}

TEST_F(Restore, ARestoredRestStateStaysAtRest) {
  start();
  pipeline().restore(0, 0, 30);
  journal.take();
  advance(30);
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Restore, UntilTheDelayIsOverRequestsOnlyWait) {
  start();
  pipeline().restore(0, 0, 30);
  journal.take();
  pipeline().force_optimization();
  pipeline().force_optimization();
  EXPECT_LINES(told(), ({status_event(4), status_event(4)}));
  EXPECT_TRUE(pipeline().force_optimization_from_api());
  EXPECT_LINES(told(), ({status_event(4), "TRACE Force optimization from api deferred (VRRP restore) domain lab"}));
  advance(29);
  EXPECT_EQ(rrm_status(), 4);
  told();
  advance(1);
  EXPECT_TRUE(journal.has("TRACE VRRP restore timer: restarting optimization pipeline on domain lab from state 4"));
  advance(20);
  EXPECT_TRUE(journal.has("TRACE Send rrm-request-mode messages on domain lab"));
}

TEST_F(Restore, AForcedPlanForgetsAPlannedLinkUpdate) {
  start();
  pipeline().restore(0, 1, 30);
  advance(30);
  EXPECT_EQ(pipeline().fbt_status(), 1);
  pipeline().planning_request_modes(false);
  EXPECT_EQ(pipeline().fbt_status(), 1);
  pipeline().planning_request_modes(true);
  EXPECT_EQ(pipeline().fbt_status(), 0);
}

TEST_F(Restore, TheDelaysEndCancelsARunningPlan) {
  std::atomic<int> cancelled{0};
  optimization = [&](OptimizationContext&, const std::atomic<bool>& cancel) {
    while (!cancel) std::this_thread::yield();
    ++cancelled;
    return OptimizationResult{};
  };
  start_with({ap1});
  to_computing({{1, ap1}});
  pipeline().restore(1, 0, 300);  // forgets the thread
  EXPECT_EQ(cancelled, 1);
  EXPECT_EQ(rrm_status(), 1);
  force_optimization();
  pipeline().planning_request_modes(true);
  to_computing({{1, ap1}});
  while (rrm_status() == 5) advance(1);
  EXPECT_EQ(cancelled, 2);
  EXPECT_TRUE(journal.has("TRACE VRRP restore timer: restarting optimization pipeline on domain lab from state 5"));
  EXPECT_THAT(journal.lines("EVENT 24"), ::testing::ElementsAre(status_event(0), status_event(4)));
  EXPECT_THAT(journal.lines("WARNING"), IsEmpty());
  EXPECT_EQ(rrm_status(), 4);
}

// Keys

TEST_F(Pipeline, SeedsTheGeneratorOfKeysWithTheMilliseconds) {
  const auto milliseconds = [] {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  };
  const std::int64_t before = milliseconds();
  make();
  const std::int64_t after = milliseconds();
  const int drawn = std::rand();
  bool found = false;
  for (std::int64_t seed = before; seed <= after && !found; ++seed) {
    std::srand(static_cast<unsigned>(seed));
    found = std::rand() == drawn;
  }
  EXPECT_TRUE(found);
}

}  // namespace
}  // namespace rrm::testing
