// The cycle of an optimisation, wait by wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "domain/pipeline_support.h"
#include "json/JsonReader.h"

namespace rrm::testing {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";

// Asking for modes

TEST_F(Pipeline, ACycleBeginsWithAQuestionToEveryApOnAir) {
  start_with({ap2, ap1});
  advance(19);
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Send rrm-request-mode messages on domain lab",
                           "TRACE Post request mode",
                           status_event(2),
                           ask_mode(2, "00:11:22:33:44:00"),
                           ask_mode(1, "00:11:22:33:55:00"),
                       }));
  for (const ChannelSet& pool : worker->channel_pools()) EXPECT_TRUE(pool.empty());
}

TEST_F(Pipeline, BalancingPausesFromTheFirstQuestionToTheEnd) {
  start_with({ap1});
  const auto paused = [this] {
    journal.take();
    advance(10 - static_cast<int>(clock.monotonic_seconds() % 10));
    return journal.lines("TRACE Domain lab").at(0).find("load_balancer_lock: 1") != std::string::npos;
  };
  EXPECT_FALSE(paused());  // at 10 s
  EXPECT_FALSE(paused());  // at 20 s, just before the questions
  EXPECT_TRUE(paused());
  answer_mode(1, ap1);
  advance(15);
  ASSERT_EQ(rrm_status(), 3);
  EXPECT_TRUE(paused());
  answer_scan(1, ap1);
  finish_computing();
  EXPECT_FALSE(paused());
}

TEST_F(Pipeline, AnApWithoutARadioOnAirIsNotAsked) {
  start_with({ap1});
  subscribe(2, a_subscribe(ap2).with_radio(a_5ghz_radio().disabled()));
  advance(20);
  EXPECT_THAT(journal.lines("SEND"), SizeIs(1));
  EXPECT_EQ(unanswered_aps().size(), 1u);
  EXPECT_EQ(ap(ap2)->delete_ttl, 30);
}

TEST_F(Pipeline, WithNoApOnAirThereIsNoCycle) {
  start_with({ap1});
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio(0)));
  radio(ap1).conflicted = true;
  advance(19);
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Send rrm-request-mode messages on domain lab",
                           "TRACE not optimization scan on domain lab",
                           status_event(0),
                           "EVENT 23 lab",
                           status_event(0),
                       }));
  EXPECT_EQ(aps().size(), 1u);
  EXPECT_TRUE(unanswered_aps().empty());
  EXPECT_FALSE(radio(ap1).conflicted);
}

TEST_F(Pipeline, EveryCycleAsksTheSilentOnesAgainAndBeginsClean) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  to_scan();
  ASSERT_EQ(unanswered_aps().size(), 1u);
  radio(ap2).power_changed = 3;
  ap(ap1)->radios.received = true;
  pipeline().force_optimization();
  journal.take();
  advance(20);
  EXPECT_THAT(journal.lines("SEND"), SizeIs(2));
  EXPECT_TRUE(unanswered_aps().empty());
  EXPECT_FALSE(ap(ap1)->active);
  EXPECT_FALSE(ap(ap1)->radios.received);
  EXPECT_EQ(radio(ap2).power_changed, 0);
}

// Answers about modes

TEST_F(Pipeline, TheWaitForModesEndsFifteenSecondsAfterTheLastAnswer) {
  start_with({ap1, ap2});
  to_mode_requests();
  advance(14);
  told();
  answer_mode(1, ap1);
  EXPECT_LINES(told(), ({"TRACE process_message rrm-mode-response for 00:11:22:33:44:00", status_event(2)}));
  EXPECT_TRUE(ap(ap1)->active);
  advance(14);
  EXPECT_EQ(rrm_status(), 2);
  answer_mode(2, ap2);
  advance(14);
  EXPECT_EQ(rrm_status(), 2);
  advance(1);
  EXPECT_EQ(rrm_status(), 3);
}

TEST_F(Pipeline, AModeAnswerIsReadIntoTheRecordThePoolsAndTheIndex) {
  start_with({ap1});
  to_mode_requests();
  answer_mode(1, ap1, a_5ghz_radio(44, "44 48").with_vap(3, "office"));
  EXPECT_EQ(radio(ap1).channel, 44);
  EXPECT_EQ(worker->channel_pools()[5], (ChannelSet{44, 48}));
  EXPECT_TRUE(aps().contains(MacAddr::parse("00:11:22:33:44:13")));
  EXPECT_NE(radio(ap1).vaps.find("office"), nullptr);
}

TEST_F(Pipeline, AnAnswerWithoutRadiosIsAnAnswerAndChangesNone) {
  start_with({ap1});
  to_mode_requests();
  receive(1, a_message("rrm-mode-response", ap1));
  EXPECT_TRUE(ap(ap1)->active);
  EXPECT_EQ(radio(ap1).channel, 36);
  to_scan();
  receive(1, a_message("rrm-response", ap1).with_heard({HeardJson("0a:00:00:00:00:01", 40, -70)}));
  EXPECT_EQ(radio(ap1).channel, 36);
  EXPECT_EQ(ap(ap1)->visible_rogue.size(), 1u);
  EXPECT_EQ(rrm_status(), 5);
}

TEST_F(Pipeline, AScanAnswerWithoutAListOfRoundsLeavesWhatTheApHeard) {
  for (const char* rounds : {"", "null", "{}", "7", "\"none\""}) {
    start_with({ap1, ap2});
    to_mode_requests();
    answer_mode(1, ap1);
    answer_mode(2, ap2);
    to_scan();
    ap(ap1)->visible_members.insert(MacAddr::parse(ap2), Neighbour{});
    ap(ap1)->visible_rogue.insert(MacAddr::parse("0a:00:00:00:00:01"), Neighbour{});
    auto answer = a_message("rrm-response", ap1).with_radio(a_5ghz_radio());
    if (*rounds != '\0') answer.with_raw("rf-environment", rounds);
    receive(1, answer);
    EXPECT_TRUE(ap(ap1)->radios.received) << rounds;
    EXPECT_EQ(ap(ap1)->visible_members.size(), 1u) << rounds;
    EXPECT_EQ(ap(ap1)->visible_rogue.size(), 1u) << rounds;
  }
}

TEST_F(Pipeline, AnotherChannelInAnAnswerMakesTheNeighboursListsStale) {
  settings.use_dca = false;
  start_with({ap1});
  to_mode_requests();
  radio(ap1).lists_stale = false;
  answer_mode(1, ap1, a_5ghz_radio(36));
  EXPECT_FALSE(radio(ap1).lists_stale);
  answer_mode(1, ap1, a_5ghz_radio(40));
  EXPECT_TRUE(radio(ap1).lists_stale);
  to_scan();
  radio(ap1).lists_stale = false;
  answer_scan(1, ap1, a_5ghz_radio(44));
  EXPECT_TRUE(radio(ap1).lists_stale);
}

TEST_F(Pipeline, AnAnswerOutOfItsTimeIsIgnored) {
  start_with({ap1});
  to_mode_requests();
  answer_scan(1, ap1, a_5ghz_radio(44));
  EXPECT_EQ(radio(ap1).channel, 36);
  EXPECT_FALSE(ap(ap1)->radios.received);
  answer_mode(1, ap1);
  to_scan();
  ap(ap1)->active = false;
  answer_mode(1, ap1, a_5ghz_radio(44));
  EXPECT_EQ(radio(ap1).channel, 36);
  EXPECT_FALSE(ap(ap1)->active);
}

TEST_F(Pipeline, TakesTheTwoAnswersAndNothingElse) {
  start_with({ap1});
  const JsonReader json("{}");
  EXPECT_TRUE(pipeline().process_message(json, protocol::Command::rrm_response, ap(ap1)));
  EXPECT_TRUE(pipeline().process_message(json, protocol::Command::rrm_mode_response, ap(ap1)));
  EXPECT_FALSE(pipeline().process_message(json, protocol::Command::rrm_client_assoc, ap(ap1)));
  EXPECT_FALSE(pipeline().process_message(json, protocol::Command::subscribe_request, ap(ap1)));
}

// Ordering the scan

TEST_F(Pipeline, TheFastScanIsOrderedForAllAtOnceOverTheDomainsChannels) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  receive(2, a_message("rrm-mode-response", ap2).with_radio(a_2ghz_radio()).with_radio(a_6ghz_radio()));
  advance(14);
  told();
  advance(1);
  const std::string list = R"({"2":"1 6 11","5":"36 40 44 48","6":"37 53 69"})";
  EXPECT_LINES(told(), ({
                           "TRACE Send rrm-update messages on domain lab size 2 drop 0",
                           "TRACE Post rrm-update",
                           status_event(3),
                           "TRACE Start optimize after 19 sec on domain lab",
                           ask_scan(1, "00:11:22:33:44:00", 0, "1 6 11 36 40 44 48", list, 1),
                           ask_scan(2, "00:11:22:33:55:00", 0, "1 6 11 36 40 44 48", list, 1),
                       }));
}

TEST_F(Pipeline, ANewScanForgetsWhoHadAnswered) {
  start_with({ap1});
  to_mode_requests();
  answer_mode(1, ap1);
  ap(ap1)->radios.received = true;
  to_scan();
  EXPECT_FALSE(ap(ap1)->radios.received);
}

TEST_F(Pipeline, TheOrdinaryScanGoesFromApToApOverItsOwnChannels) {
  settings.use_dunva_rrm_scan = false;
  const char* const ap3 = "00:11:22:33:66:00";
  start_with({ap1, ap2, ap3});
  to_mode_requests();
  answer_mode(1, ap1);
  receive(2, a_message("rrm-mode-response", ap2).with_radio(a_2ghz_radio()).with_radio(a_6ghz_radio(37, "37 200 53")));
  receive(3, a_message("rrm-mode-response", ap3).with_radio(a_5ghz_radio().disabled()));
  advance(14);
  told();
  advance(1);
  EXPECT_LINES(told(),
               ({
                   "TRACE Send rrm-update messages on domain lab size 3 drop 0",
                   "TRACE Post rrm-update",
                   status_event(3),
                   "TRACE Start optimize after 151 sec on domain lab",
                   ask_scan(1, "00:11:22:33:44:00", 0, "36 40 44 48", R"({"2":"","5":"36 40 44 48","6":""})", 0),
                   ask_scan(2, "00:11:22:33:55:00", 50, "1 6 11", R"({"2":"1 6 11","5":"","6":"37 53 200"})", 0),
                   ask_scan(3, "00:11:22:33:66:00", 100, "", R"({"2":"","5":"","6":""})", 0),
               }));
}

TEST_F(Pipeline, AnOrdinaryScanLeavesOutAChannelOfNoBand) {
  settings.use_dunva_rrm_scan = false;
  start_with({ap1});
  to_mode_requests();
  answer_mode(1, ap1, a_5ghz_radio(36, "36 40 200 300"));
  advance(15);
  EXPECT_THAT(journal.lines("SEND"),
              Contains(ask_scan(1, "00:11:22:33:44:00", 0, "36 40", R"({"2":"","5":"36 40","6":""})", 0)));
}

TEST_F(Pipeline, TheOrdinaryScansTimeFollowsTheLargestPool) {
  struct Case {
    std::size_t band5;
    std::size_t band6;
    int seconds;  // 3 * ((n * 7 / 10 + 1) * 5) + 1, n at least 14
  };
  const Case cases[] = {{0, 0, 151}, {14, 0, 151}, {15, 0, 166}, {0, 15, 166}, {16, 15, 181}, {24, 59, 631}};
  settings.use_dunva_rrm_scan = false;
  for (const Case& one : cases) {
    start_with({ap1});
    to_mode_requests();
    answer_mode(1, ap1);
    auto& pools = worker->channel_pools();
    pools[5].clear();
    for (std::int32_t i = 1; i <= 30; ++i) pools[2].insert(i);  // the least number stands for this band
    for (std::size_t i = 0; i < one.band5; ++i) pools[5].insert(static_cast<std::int32_t>(36 + i));
    for (std::size_t i = 0; i < one.band6; ++i) pools[6].insert(static_cast<std::int32_t>(1 + 4 * i));
    advance(15);
    EXPECT_TRUE(journal.has("TRACE Start optimize after " + std::to_string(one.seconds) + " sec on domain lab"))
        << one.band5 << " " << one.band6;
  }
}

TEST_F(Pipeline, AnApThatDoesNotAnswerAboutItsModeIsSetAside) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(2, ap2);
  advance(15);
  EXPECT_TRUE(journal.has("TRACE Send rrm-update messages on domain lab size 1 drop 1"));
  EXPECT_EQ(unanswered_aps().size(), 1u);
  EXPECT_EQ(ap(ap1)->delete_ttl, 30);
}

TEST_F(Pipeline, WhenNobodyAnswersTheCycleIsPutOff) {
  start_with({ap1, ap2});
  to_mode_requests();
  advance(14);
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Send rrm-update messages on domain lab size 0 drop 2",
                           "TRACE Optimization scan on domain lab delayed",
                           status_event(0),
                           "TRACE Planning domain lab update 4 after 20 sec",
                           "EVENT 23 lab",
                           status_event(4),
                       }));
  EXPECT_EQ(aps().size(), 2u);
  EXPECT_TRUE(unanswered_aps().empty());
  advance(20);
  EXPECT_EQ(rrm_status(), 2);
}

// Scan results

TEST_F(Pipeline, AScanAnswerIsReadIntoTheRecord) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  answer_mode(2, ap2);
  to_scan();
  receive(1, a_message("rrm-response", ap1)
                 .with_radio(a_5ghz_radio().with_vap(3, "office"))
                 .with_heard({HeardJson("00:11:22:33:55:10", 36, -60), HeardJson("0a:00:00:00:00:01", 40, -70)}));
  EXPECT_LINES(told(), ({
                           "TRACE process_message rrm-response for 00:11:22:33:44:00",
                           status_event(3),
                           "TRACE Start optimize after 19 sec on domain lab",
                       }));
  EXPECT_TRUE(ap(ap1)->radios.received);
  EXPECT_EQ(ap(ap1)->visible_members.size(), 1u);
  EXPECT_EQ(ap(ap1)->visible_rogue.size(), 1u);
  EXPECT_TRUE(aps().contains(MacAddr::parse("00:11:22:33:44:13")));
}

TEST_F(Pipeline, EveryScanAnswerStartsTheWaitAnewAndTheLastEndsIt) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  answer_mode(2, ap2);
  to_scan();
  advance(18);
  answer_scan(1, ap1);
  advance(18);
  EXPECT_EQ(rrm_status(), 3);
  told();
  answer_scan(2, ap2);
  EXPECT_LINES(told(), ({
                           "TRACE process_message rrm-response for 00:11:22:33:55:00",
                           status_event(3),
                           "TRACE Start optimize now on domain lab",
                           "TRACE Start optimization on domain lab size 2 drop 0",
                           status_event(5),
                       }));
}

TEST_F(Pipeline, AnApThatDoesNotScanIsSetAsideWhenTheWaitIsOver) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  answer_mode(2, ap2);
  to_scan();
  answer_scan(1, ap1);
  advance(18);
  told();
  advance(1);
  EXPECT_LINES(told(), ({"TRACE Start optimization on domain lab size 1 drop 1", status_event(5)}));
  EXPECT_EQ(unanswered_aps().size(), 1u);
  EXPECT_EQ(ap(ap2)->delete_ttl, 30);
}

TEST_F(Pipeline, AnApThatLeavesTheAirWhileItScansIsSetAside) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  answer_mode(2, ap2);
  to_scan();
  answer_scan(1, ap1);
  answer_scan(2, ap2, a_5ghz_radio().disabled());
  EXPECT_EQ(rrm_status(), 3) << "not complete";
  advance(19);
  EXPECT_TRUE(journal.has("TRACE Start optimization on domain lab size 1 drop 1"));
}

TEST_F(Pipeline, WhenNobodyScansTheCycleIsPutOff) {
  start_with({ap1});
  to_mode_requests();
  answer_mode(1, ap1);
  to_scan();
  advance(18);
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Start optimization on domain lab size 0 drop 1",
                           "TRACE Optimization on domain lab delayed",
                           status_event(0),
                           "TRACE Planning domain lab update 4 after 20 sec",
                           "EVENT 23 lab",
                           status_event(4),
                       }));
  EXPECT_EQ(aps().size(), 1u);
  EXPECT_FALSE(ap(ap1)->active);
}

// APs on a channel that they may not use

TEST_F(Pipeline, WithoutAnyModeAnswerOffProfileApsArePlannedAfterASecond) {
  start();
  subscribe(1, a_subscribe(ap1).with_radio(a_5ghz_radio(149, "36 40")));
  subscribe(2, a_subscribe(ap2).with_radio(a_5ghz_radio()));
  to_mode_requests();
  advance(14);
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Send rrm-update messages on domain lab size 0 drop 2",
                           "TRACE Off-profile remediation without mode-response on domain lab",
                           "TRACE Off-profile APs marked ready for remediation on domain lab",
                           status_event(3),
                           "TRACE Off-profile APs marked ready for remediation on domain lab",
                           "TRACE Start optimize after 1 sec on domain lab",
                       }));
  EXPECT_TRUE(ap(ap1)->active);
  EXPECT_FALSE(ap(ap2)->active);
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Off-profile APs marked ready for remediation on domain lab",
                           "TRACE Start optimization on domain lab size 1 drop 1",
                           status_event(5),
                       }));
  finish_computing();
  EXPECT_TRUE(seen->force_dca);
  EXPECT_EQ(seen->aps.size(), 1u);
}

TEST_F(Pipeline, TheSecondOfAnUnscannedPlanIsNotTheWaitOfAnEarlierScan) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  to_scan();
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio(149, "36 40")));
  ASSERT_EQ(rrm_status(), 4);
  to_mode_requests();
  advance(15);
  EXPECT_TRUE(journal.has("TRACE Start optimize after 1 sec on domain lab"));
}

TEST_F(Pipeline, WhereAllApsAreOffProfileTheyArePlannedAtOnce) {
  start_with({ap1}, a_5ghz_radio(149, "36 40"));
  to_mode_requests();
  advance(15);
  EXPECT_TRUE(journal.has("TRACE Start optimize now on domain lab"));
  EXPECT_EQ(rrm_status(), 5);
}

TEST_F(Pipeline, AnOffProfileApNeedNotScan) {
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1, a_5ghz_radio(149, "36 40"));
  answer_mode(2, ap2);
  to_scan();
  EXPECT_TRUE(ap(ap1)->radios.received);
  answer_scan(2, ap2);
  EXPECT_EQ(rrm_status(), 5);
}

TEST_F(Pipeline, ALockedRadioIsNobodysToRemedy) {
  start_with({ap1}, a_5ghz_radio(149, "36 40").with("locked-for-dca", 1));
  to_mode_requests();
  advance(15);
  EXPECT_TRUE(journal.has("TRACE Optimization scan on domain lab delayed"));
}

// Computing

TEST_F(Pipeline, ThePlanGetsACopyOfTheDomain) {
  settings.use_tpc = false;
  start_with({ap1, ap2});
  to_computing({{1, ap1}, {2, ap2}});
  radio(ap1).power = 3;
  finish_computing();
  ASSERT_NE(seen, nullptr);
  EXPECT_EQ(seen->aps.size(), 2u);
  EXPECT_EQ(seen->aps.find(MacAddr::parse(ap1))->radios.list[1].power, 14);
  EXPECT_EQ(seen->aps.find(MacAddr::parse(ap1))->session, no_session);
  EXPECT_EQ(seen->config, settings);
  EXPECT_TRUE(seen->do_dca);
  EXPECT_FALSE(seen->do_tpc);
  EXPECT_TRUE(seen->force_dca);
  EXPECT_TRUE(seen->do_report);
  EXPECT_EQ(seen->domain, "lab");
  EXPECT_EQ(seen->reports_path, reports.path());
}

TEST_F(Pipeline, APlanLeavesAReportWhereTheSettingsWantOneAndItChangesSomething) {
  struct Case {
    bool use_rrm_report, use_dca, use_tpc, do_report;
  };
  for (const Case& c : {Case{true, true, true, true}, Case{true, true, false, true}, Case{true, false, true, true},
                        Case{true, false, false, false}, Case{false, true, true, false}}) {
    SCOPED_TRACE(::testing::PrintToString(std::vector<bool>{c.use_rrm_report, c.use_dca, c.use_tpc}));
    settings.use_rrm_report = c.use_rrm_report;
    settings.use_dca = c.use_dca;
    settings.use_tpc = c.use_tpc;
    settings.use_balance = true;  // work of its own
    start_with({ap1, ap2});
    to_computing({{1, ap1}, {2, ap2}});
    finish_computing();
    EXPECT_EQ(seen->do_report, c.do_report);
  }
}

TEST_F(Pipeline, TheEndOfTheThreadIsSeenWithinASecond) {
  Gate computed;
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) {
    computed.wait();
    OptimizationResult result;
    result.success = true;
    return result;
  };
  start_with({ap1, ap2});
  to_mode_requests();
  answer_mode(1, ap1);
  to_scan();
  answer_scan(1, ap1);
  radio(ap1).conflicted = true;
  journal.take();
  advance(120);
  EXPECT_THAT(told(), IsEmpty()) << "no limit applies";
  EXPECT_EQ(rrm_status(), 5);
  computed.open();
  finish_computing();
  EXPECT_LINES(told(), ({
                           "TRACE Post tpc-results",
                           status_event(0),
                           "EVENT 23 lab",
                           status_event(0),
                           "TRACE Optimization on domain lab finished",
                           "SEND 1 " + told_info("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)}),
                       }));
  EXPECT_EQ(aps().size(), 2u) << "the silent one is back";
  EXPECT_FALSE(radio(ap1).conflicted);
  EXPECT_FALSE(ap(ap1)->active);
  EXPECT_FALSE(ap(ap1)->radios.received);
}

TEST_F(Pipeline, MessagesAreServedWhileThePlanIsComputed) {
  Gate computed;
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) {
    computed.wait();
    return OptimizationResult{};
  };
  start_with({ap1});
  to_computing({{1, ap1}});
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio(44)));
  EXPECT_EQ(radio(ap1).channel, 44);
  computed.open();
  finish_computing();
}

TEST_F(Pipeline, TheResultIsAppliedToTheLiveRecordsAndTold) {
  start_with({ap1, ap2});
  ap(ap2)->visible_members.insert(radio(ap1).mac, Neighbour{.rssi = -60, .channel = 36, .band = 5, .bandwidth = 20});
  Radios plan = moved(ap1, 44);
  plan.list[1].power = 9;
  planned.insert_or_assign(MacAddr::parse(ap1), plan);
  to_mode_requests();
  answer_mode(1, ap1);
  answer_mode(2, ap2);
  to_scan();
  answer_scan(1, ap1);
  receive(2, a_message("rrm-response", ap2).with_radio(a_5ghz_radio()));
  journal.take();
  finish_computing();
  EXPECT_EQ(radio(ap1).channel, 44);
  EXPECT_EQ(radio(ap1).power, 9);
  EXPECT_EQ(radio(ap2).channel, 36);
  EXPECT_EQ(ap(ap2)->visible_members.find(radio(ap1).mac)->channel, 44);
  EXPECT_LINES(journal.lines("SEND"), ({
                                          "SEND 1 " + told_info("00:11:22:33:44:00", {told_radio(1, 44, 5, 9)}),
                                          "SEND 2 " + told_info("00:11:22:33:55:00", {told_radio(1, 36, 5, 14)}),
                                      }));
}

TEST_F(Pipeline, AResultOfAnApThatLeftIsPassedOver) {
  start_with({ap1, ap2});
  planned.insert_or_assign(MacAddr::parse(ap2), moved(ap2, 44));
  planned.insert_or_assign(MacAddr::parse("00:00:00:00:00:01"), moved(ap2, 44));
  to_computing({{1, ap1}, {2, ap2}});
  drop(2);
  finish_computing();
  EXPECT_EQ(radio(ap2).channel, 36);
}

TEST_F(Pipeline, AResultFindsItsApByAnyAddress) {
  start_with({ap1});
  planned.insert_or_assign(MacAddr::parse("00:11:22:33:44:10"), moved(ap1, 44));
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_EQ(radio(ap1).channel, 44);
}

TEST_F(Pipeline, APlannedChannelBelowOneMovesNoNeighboursPicture) {
  start_with({ap1, ap2});
  ap(ap2)->visible_members.insert(radio(ap1).mac, Neighbour{.rssi = -60, .channel = 36, .band = 5, .bandwidth = 20});
  planned.insert_or_assign(MacAddr::parse(ap1), moved(ap1, 0));
  to_mode_requests();
  answer_mode(1, ap1);
  answer_mode(2, ap2);
  to_scan();
  answer_scan(1, ap1);
  receive(2, a_message("rrm-response", ap2).with_radio(a_5ghz_radio()));
  finish_computing();
  EXPECT_EQ(radio(ap1).channel, 0);
  EXPECT_EQ(ap(ap2)->visible_members.find(radio(ap1).mac)->channel, 36);
}

TEST_F(Pipeline, APlannedPowerSetsTheEirpAnew) {
  start_with({ap1}, a_5ghz_radio().with_raw("antenna-configuration", R"({"antenna-gain":3,"cable-loss":1})"));
  Radios plan = moved(ap1, 36);
  plan.list[1].power = 9;
  planned.insert_or_assign(MacAddr::parse(ap1), plan);
  to_computing({{1, ap1}});
  radio(ap1).has_antenna = true;
  radio(ap1).antenna_gain = 3;
  radio(ap1).cable_loss = 1;
  finish_computing();
  EXPECT_EQ(radio(ap1).eirp, 11);
}

TEST_F(Pipeline, APlannedPositionIsTakenAndMadeToAgreeWithTheChannel) {
  const auto wide = [](RadioJson radio) { return radio.with("bandwidth", 40).with("primary-channel", "lower"); };
  const auto message = [&](const char* cmd) {
    return a_message(cmd, ap1).with_radio(wide(a_2ghz_radio(6))).with_radio(wide(a_5ghz_radio(36)));
  };
  start();
  subscribe(1, message("subscribe-request").with_raw("factory", R"({"board":"b","hw":"1","serial":"2","mac":"3"})"));
  Radios plan = ap(ap1)->radios;
  plan.list[0].primary_channel = primary_upper;  // the width leaves a choice here
  plan.list[1].channel = 40;                     // the upper half of its block
  planned.insert_or_assign(MacAddr::parse(ap1), plan);
  to_mode_requests();
  receive(1, message("rrm-mode-response"));
  to_scan();
  receive(1, message("rrm-response"));
  finish_computing();
  EXPECT_EQ(ap(ap1)->radios.list[0].primary_channel, primary_upper);
  EXPECT_EQ(ap(ap1)->radios.list[1].primary_channel, primary_upper);
}

TEST_F(Pipeline, EveryStepOfACycleRaisesItsState) {
  start();
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio()));
  advance(20);
  answer_mode(1, ap1);
  advance(15);
  answer_scan(1, ap1);
  finish_computing();
  // Each answer enters its wait anew, and the end of a cycle is followed by the next plan, which is none.
  std::vector<std::string> expected;
  for (const int state : {4, 2, 2, 3, 3, 5, 0, 0}) expected.push_back(status_event(state));
  EXPECT_LINES(journal.lines("EVENT 24"), (expected));
}

TEST_F(Pipeline, AFailedPlanIsLoggedAndChangesNothing) {
  success = false;
  start_with({ap1});
  planned.insert_or_assign(MacAddr::parse(ap1), moved(ap1, 44));
  error = "cancelled before DCA";
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_LINES(told(), ({
                           "WARNING Optimization cancelled or failed: cancelled before DCA",
                           status_event(0),
                           "EVENT 23 lab",
                           status_event(0),
                           "TRACE Optimization on domain lab finished",
                       }));
  EXPECT_EQ(radio(ap1).channel, 36);
}

TEST_F(Pipeline, APlanMayFailWithoutAWord) {
  success = false;
  start_with({ap1});
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_LINES(journal.lines("WARNING"),
               ({"WARNING Optimization on domain lab finished unsuccessfully with no error message"}));
}

TEST_F(Pipeline, APlanMayEndWithoutAResult) {
  optimization = [](OptimizationContext&, const std::atomic<bool>&) -> OptimizationResult { throw 7; };
  start_with({ap1});
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_LINES(journal.lines("WARNING"),
               ({"WARNING Optimization thread completed on domain lab but no result was produced"}));
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Pipeline, AfterACycleTheDailyPlanIsMadeAgain) {
  settings.use_optimization_time = true;
  clock.set_wall(19000LL * 86400 + 100);
  start_with({ap1});
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_EQ(rrm_status(), 1);
  EXPECT_THAT(journal.lines("EVENT 24"), ::testing::ElementsAre(status_event(0), status_event(1)));
}

TEST_F(Pipeline, NoWaitOfTheCycleOutlivesIt) {
  settings.use_optimization_time = true;
  start_with({ap1});
  to_computing({{1, ap1}});
  finish_computing();
  advance(60);
  EXPECT_EQ(rrm_status(), 1);
}

// What an AP is told outside a cycle

TEST_F(Pipeline, AnInfoMayGoAtOnceOrAtTheEndOfThePass) {
  start_with({ap1});
  locked([&](RrmWorker& lab) { lab.tpc_dca().post_tpc_results_ap(*ap(ap1), false, false, false); });
  EXPECT_THAT(journal.take(), IsEmpty());
  locked([&](RrmWorker& lab) { lab.tpc_dca().post_tpc_results_ap(*ap(ap1), true, true, false); });
  EXPECT_LINES(journal.take(), ({"SEND 1 " + told_info("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)})}));
  worker->after_messages();
  EXPECT_LINES(journal.take(),
               ({R"(SEND 1 {"service":"rrm","version":"2.4","cmd":"rrm-info","ap-mac":"00:11:22:33:44:00",)"
                 R"("use-tpc":1,"use-dca":1,"use-load-balance":1,"use-80211v":0})"}));
}

}  // namespace
}  // namespace rrm::testing
