// The computing part of an optimisation, with stages of the test's own, and the thread that it runs on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Config.h"
#include "OptimizationThread.h"
#include "support/builders.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/temp_dir.h"

namespace rrm {
namespace {

using rrm::testing::a_radio;
using rrm::testing::an_ap;
using rrm::testing::Capture;
using rrm::testing::Event;
using rrm::testing::eventually;
using rrm::testing::mac;
using rrm::testing::ManualClock;
using rrm::testing::read_file;
using rrm::testing::TempDir;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:00:01:00";
const char* const ap2 = "00:11:22:00:02:00";

class Stages : public ::testing::Test {
 protected:
  // Notes what runs and with which flag; `in_channel_pass` and `in_power` do what a test needs besides.
  OptimizationStages stages() {
    return {[this](SpectrumTable& table, ApMap& aps, const DomainConfig&, PlanResult& result) {
              notes.push_back(table.ignore_dca_threshold ? "channels, threshold ignored" : "channels");
              if (in_channel_pass) in_channel_pass(aps, result);
            },
            [this](ApMap& aps, const DomainConfig&, PlanResult& result) {
              notes.push_back("power");
              if (in_power) in_power(aps, result);
            }};
  }

  OptimizationContext context(bool do_dca, bool do_tpc) {
    OptimizationContext made;
    made.aps.insert(mac(ap1),
                    an_ap().mac(ap1).with_radio(a_radio().channel(36).available({36, 40}).power(14)).build(config));
    made.config = config;
    made.do_dca = do_dca;
    made.do_tpc = do_tpc;
    made.domain = "lab";
    made.reports_path = reports.path();
    return made;
  }

  OptimizationResult run(bool do_dca, bool do_tpc) {
    OptimizationContext made = context(do_dca, do_tpc);
    return run_stages(stages(), made, cancel);
  }

  // Radios whose first one stands on this channel at this power.
  Radios radios(std::int32_t channel, std::int32_t power) const {
    Radios made(config, MacAddr());
    made.list[0].channel = channel;
    made.list[0].power = power;
    return made;
  }

  Capture capture;
  ManualClock clock;
  TempDir reports;
  DomainConfig config;
  std::atomic<bool> cancel{false};
  std::vector<std::string> notes;
  std::function<void(ApMap&, PlanResult&)> in_channel_pass;
  std::function<void(ApMap&, PlanResult&)> in_power;
};

TEST_F(Stages, AreTwoChannelPassesAndOneOfPower) {
  const OptimizationResult result = run(true, true);
  EXPECT_THAT(notes, ElementsAre("channels, threshold ignored", "channels, threshold ignored", "power"));
  EXPECT_TRUE(result.success);
  EXPECT_EQ(result.error_message, "");
  EXPECT_THAT(result.radios, IsEmpty());
}

TEST_F(Stages, RunOnlyAsTheSettingsSay) {
  run(true, false);
  EXPECT_THAT(notes, ElementsAre("channels, threshold ignored", "channels, threshold ignored"));
  notes.clear();
  run(false, true);
  EXPECT_THAT(notes, ElementsAre("power"));
  notes.clear();
  EXPECT_TRUE(run(false, false).success);
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(Stages, WorkOnOneCopyAfterTheOther) {
  in_channel_pass = [](ApMap& aps, PlanResult&) { aps.find(mac(ap1))->radios.list[0].channel += 4; };
  std::int32_t channel = 0;
  in_power = [&](ApMap& aps, PlanResult&) { channel = aps.find(mac(ap1))->radios.list[0].channel; };
  run(true, true);
  EXPECT_EQ(channel, 44);
}

TEST_F(Stages, AnApOfBothResultsHasThePowerStagesRadios) {
  in_channel_pass = [&](ApMap&, PlanResult& result) {
    result.insert_or_assign(mac(ap1), radios(40, 14));
    result.insert_or_assign(mac(ap2), radios(44, 14));
  };
  in_power = [&](ApMap&, PlanResult& result) { result.insert_or_assign(mac(ap1), radios(40, 9)); };
  const OptimizationResult result = run(true, true);
  ASSERT_EQ(result.radios.size(), 2u);
  EXPECT_EQ(result.radios.at(mac(ap1)).list[0].power, 9);
  EXPECT_EQ(result.radios.at(mac(ap2)).list[0].channel, 44);
}

TEST_F(Stages, WithoutPowerTheChannelsAreTheResult) {
  in_channel_pass = [&](ApMap&, PlanResult& result) { result.insert_or_assign(mac(ap1), radios(40, 14)); };
  const OptimizationResult result = run(true, false);
  ASSERT_EQ(result.radios.size(), 1u);
  EXPECT_EQ(result.radios.at(mac(ap1)).list[0].channel, 40);
}

TEST_F(Stages, ACancelledRunStopsBeforeTheChannels) {
  cancel = true;
  const OptimizationResult result = run(true, true);
  EXPECT_FALSE(result.success);
  EXPECT_EQ(result.error_message, "cancelled before DCA");
  EXPECT_THAT(notes, IsEmpty());
}

TEST_F(Stages, AStageThatHasBegunEndsBeforeTheCancellation) {
  in_channel_pass = [&](ApMap&, PlanResult& result) {
    result.insert_or_assign(mac(ap1), radios(40, 14));
    cancel = true;
  };
  const OptimizationResult result = run(true, true);
  EXPECT_FALSE(result.success);
  EXPECT_EQ(result.error_message, "cancelled after DCA");
  EXPECT_THAT(result.radios, IsEmpty());
  EXPECT_EQ(notes.size(), 2u);
}

TEST_F(Stages, LeaveAReportOfBeforeAndAfter) {
  in_channel_pass = [](ApMap& aps, PlanResult&) { aps.find(mac(ap1))->radios.list[0].channel = 40; };
  in_power = [](ApMap& aps, PlanResult&) { aps.find(mac(ap1))->radios.list[0].power = 9; };
  OptimizationContext reported = context(true, true);
  reported.do_report = true;
  EXPECT_TRUE(run_stages(stages(), reported, cancel).success);
  EXPECT_EQ(read_file(reports.file("report_idx_lab.txt")), "1.1,2023-11-14,22:13:20\n");
  EXPECT_EQ(read_file(reports.file("report_lab.txt")).substr(0, 72),
            "1.1,2023-11-14,22:13:20,00:11:22:00:01:00,00:11:22:00:01:00,14,9,36,40,0");
}

TEST_F(Stages, WithoutTheWishThereIsNoReport) {
  run(true, true);
  EXPECT_TRUE(std::filesystem::is_empty(reports.path()));
}

TEST_F(Stages, ACancelledRunLeavesNoReport) {
  in_channel_pass = [&](ApMap&, PlanResult&) { cancel = true; };
  OptimizationContext reported = context(true, true);
  reported.do_report = true;
  EXPECT_FALSE(run_stages(stages(), reported, cancel).success);
  EXPECT_TRUE(std::filesystem::is_empty(reports.path()));
}

TEST_F(Stages, AReportThatCannotBeSavedDoesNotSpoilThePlan) {
  in_power = [&](ApMap&, PlanResult& result) { result.insert_or_assign(mac(ap1), radios(36, 9)); };
  OptimizationContext reported = context(true, true);
  reported.do_report = true;
  reported.reports_path = reports.file("missing");
  const OptimizationResult result = run_stages(stages(), reported, cancel);
  EXPECT_TRUE(result.success);
  EXPECT_EQ(result.radios.size(), 1u);
  EXPECT_EQ(capture.events(), (std::vector<Event>{{18, true, "lab"}}));
}

TEST_F(Stages, PowerOnceBegunIsNotCancelled) {
  in_power = [&](ApMap&, PlanResult&) { cancel = true; };
  EXPECT_TRUE(run(false, true).success);
}

TEST_F(Stages, AnExceptionIsAFailureWithItsText) {
  in_power = [](ApMap&, PlanResult&) { throw std::runtime_error("no luck"); };
  const OptimizationResult standard = run(true, true);
  EXPECT_FALSE(standard.success);
  EXPECT_EQ(standard.error_message, "exception during optimization: no luck");
  in_power = [](ApMap&, PlanResult&) { throw 7; };
  const OptimizationResult other = run(true, true);
  EXPECT_FALSE(other.success);
  EXPECT_EQ(other.error_message, "non-standard exception during optimization");
}

TEST_F(Stages, TheDomainsOwnPlannersMoveARadioOffABusyChannel) {
  OptimizationContext made = context(true, true);
  const auto ap = made.aps.find(mac(ap1));
  ap->radios.list[0].available_channels = {36, 149};
  ap->radios.received = true;
  ap->visible_rogue.insert(mac("00:00:00:00:00:01"), rrm::testing::a_neighbour(-40, 36));
  const OptimizationResult result = run_optimization(made, cancel);
  EXPECT_TRUE(result.success);
  ASSERT_EQ(result.radios.count(mac(ap1)), 1u);
  EXPECT_EQ(result.radios.at(mac(ap1)).list[0].channel, 149);
}

// The thread

class Thread : public ::testing::Test {
 protected:
  static OptimizationResult a_result(const std::string& message) {
    OptimizationResult result;
    result.error_message = message;
    return result;
  }
};

TEST_F(Thread, HandsItsResultOverOnceItIsDone) {
  OptimizationThread thread([](OptimizationContext& context, const std::atomic<bool>&) {
    return a_result(std::to_string(context.aps.size()));
  });
  EXPECT_FALSE(thread.started());
  EXPECT_FALSE(thread.done());
  thread.start({});
  EXPECT_TRUE(thread.started());
  ASSERT_TRUE(eventually([&] { return thread.done(); }));
  thread.join();
  EXPECT_FALSE(thread.started());
  const auto result = thread.take_result();
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->error_message, "0");
  EXPECT_EQ(thread.take_result(), nullptr);
}

TEST_F(Thread, IsCancelledAndForgottenByAStop) {
  std::atomic<int> runs{0};
  OptimizationThread thread([&](OptimizationContext&, const std::atomic<bool>& cancel) {
    while (!cancel) std::this_thread::yield();
    ++runs;
    return a_result("cancelled");
  });
  thread.start({});
  EXPECT_FALSE(thread.done());
  thread.stop();
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(thread.started());
  EXPECT_FALSE(thread.done());
  EXPECT_EQ(thread.take_result(), nullptr);
  thread.stop();
}

TEST_F(Thread, AnotherStartWaitsForTheFirstRunAndDropsItsResult) {
  std::atomic<int> runs{0};
  OptimizationThread thread([&](OptimizationContext&, const std::atomic<bool>& cancel) {
    EXPECT_FALSE(cancel) << "an old order to cancel is not for this run";
    return a_result(std::to_string(++runs));
  });
  thread.start({});
  thread.start({});
  EXPECT_GE(runs.load(), 1);
  thread.join();
  EXPECT_EQ(thread.take_result()->error_message, "2");
  thread.stop();
  thread.start({});
  thread.join();
  EXPECT_EQ(thread.take_result()->error_message, "3");
}

TEST_F(Thread, ABodyThatThrowsIsDoneWithoutAResult) {
  OptimizationThread thread(
      [](OptimizationContext&, const std::atomic<bool>&) -> OptimizationResult { throw std::runtime_error("no"); });
  thread.start({});
  thread.join();
  EXPECT_TRUE(thread.done());
  EXPECT_EQ(thread.take_result(), nullptr);
}

TEST_F(Thread, ASystemWithoutThreadsIsAFailedRun) {
  const auto no_thread = [](const std::function<void()>&) -> std::thread {
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  };
  OptimizationThread thread([](OptimizationContext&, const std::atomic<bool>&) { return a_result("ran"); }, no_thread);
  thread.start({});
  EXPECT_FALSE(thread.started());
  EXPECT_TRUE(thread.done());
  const auto result = thread.take_result();
  ASSERT_NE(result, nullptr);
  EXPECT_FALSE(result->success);
  EXPECT_EQ(result->error_message, "exception during optimization: Resource temporarily unavailable");
}

}  // namespace
}  // namespace rrm
