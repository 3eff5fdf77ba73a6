// How APs leave, what they may say about themselves in between, and what the domain does as time passes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/QueueMessage.h"
#include "domain/domain_support.h"
#include "json/JsonReader.h"

namespace rrm::testing {
namespace {

using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";

MessageJson an_ap36(const char* mac) {
  return a_subscribe(mac).with_radio(a_5ghz_radio(36));
}

// ap1 and ap2 on sessions 1 and 2.
class Membership : public DomainTest {
 protected:
  void start_with_two() {
    start();
    subscribe(1, an_ap36(ap1));
    subscribe(2, an_ap36(ap2));
  }
  // The same, with ap2 silent in the present cycle.
  void start_with_a_silent_ap2() {
    start_with_two();
    to_mode_requests();
    receive(1, a_message("rrm-mode-response", ap1).with_radio(a_5ghz_radio(36)));
    to_scan();
    ASSERT_EQ(unanswered_aps().size(), 1u);
  }
};

// Unsubscribing

TEST_F(Membership, AnActiveApThatUnsubscribesIsForgottenAndTheOthersArePlannedAnew) {
  start_with_two();
  receive(1, a_message("unsubscribe-request", ap1));
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message unsubscribe-request for 00:11:22:33:44:00",
                                   "TRACE Force optimization already planned domain lab",
                               }));
  EXPECT_EQ(aps().size(), 1u);
  EXPECT_EQ(ap(ap1), nullptr);
  EXPECT_FALSE(aps().contains(MacAddr::parse("00:11:22:33:44:10")));
}

TEST_F(Membership, AnApMayUnsubscribeUnderAnyOfItsAddresses) {
  start_with_two();
  receive(1, a_message("unsubscribe-request", "02:11:22:33:44:10"));
  EXPECT_EQ(ap(ap1), nullptr);
  EXPECT_EQ(aps().storage().size(), 1u);
}

TEST_F(Membership, AnApThatReturnedUnderAnotherAddressCanUnsubscribeUnderIt) {
  start();
  subscribe(1, an_ap36(ap1));
  drop(1);
  subscribe(2, an_ap36("00:11:22:33:44:10"));
  receive(2, a_message("unsubscribe-request", "00:11:22:33:44:10"));
  EXPECT_TRUE(aps().empty());
  EXPECT_EQ(aps().storage().size(), 0u);
}

TEST_F(Membership, NobodyElseUnsubscribesAnAp) {
  start_with_two();
  receive(2, a_message("unsubscribe-request", ap1));
  EXPECT_LINES(journal.take(), ({"TRACE process_message unsubscribe-request for 00:11:22:33:44:00"}));
  EXPECT_EQ(aps().size(), 2u);
}

TEST_F(Membership, ASilentApThatUnsubscribesIsForgottenWithoutAPlan) {
  start_with_a_silent_ap2();
  receive(1, a_message("unsubscribe-request", ap2));
  EXPECT_EQ(unanswered_aps().size(), 1u) << "not its session";
  receive(2, a_message("unsubscribe-request", ap2));
  EXPECT_TRUE(unanswered_aps().empty());
  EXPECT_EQ(unanswered_aps().storage().size(), 0u);
  EXPECT_EQ(rrm_status(), 3);
  EXPECT_THAT(journal.lines("TRACE Force"), IsEmpty());
}

TEST_F(Membership, ADeletedApThatUnsubscribesStaysUntilItsTimeIsUp) {
  start_with_two();
  drop(2);
  journal.take();
  receive(2, a_message("unsubscribe-request", ap2));
  EXPECT_LINES(journal.take(), ({"TRACE process_message unsubscribe-request for 00:11:22:33:55:00"}));
  EXPECT_EQ(deleted_aps().size(), 1u);
}

// A changed configuration

TEST_F(Membership, AChangedConfigurationIsAnsweredWithTheRadios) {
  start_with_two();
  receive(1, a_message("rrm-config-changed", ap1).with_radio(a_5ghz_radio(36)).with_radio(a_2ghz_radio(6)));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message rrm-config-changed for 00:11:22:33:44:00",
                   "EVENT-LOG process_exists_ap update_802dot11r 0",
                   "EVENT 23 lab",
                   "TRACE Not-equivalent or force (0) subscribe request",
                   "TRACE Force optimization already planned domain lab",
                   "SEND 1 " + told_info("00:11:22:33:44:00", {told_radio(0, 6, 2, 14), told_radio(1, 36, 5, 14)}),
               }));
  EXPECT_TRUE(aps().contains(MacAddr::parse("00:11:22:33:44:00")));
}

TEST_F(Membership, AnswersToOneApLeaveAtOnce) {
  start_with_two();
  process(1, a_message("rrm-config-changed", ap1).with_radio(a_5ghz_radio(36)).text());
  process(2, an_ap36(ap2).text());
  process(3, an_ap36(ap1).without("factory").text());
  EXPECT_THAT(journal.lines("SEND"), ::testing::SizeIs(3));
}

TEST_F(Membership, AChangedConfigurationDoesNotCarryTheWildcardSetting) {
  start();
  subscribe(1, an_ap36(ap1).with("use-wildcard-80211r", 1));
  receive(1, a_message("rrm-config-changed", ap1).with_radio(a_5ghz_radio(36)));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11r 0"));
  EXPECT_TRUE(ap(ap1)->use_wildcard_80211r);
}

TEST_F(Membership, ASilentOrDeletedApMayChangeItsConfigurationInItsSet) {
  start_with_a_silent_ap2();
  receive(2, a_message("rrm-config-changed", ap2).with_radio(a_5ghz_radio(36).with_vap(3, "office")));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message rrm-config-changed for 00:11:22:33:55:00",
                   "TRACE To unanswered rrm change request",
                   "EVENT-LOG process_exists_ap update_802dot11k 1 (0/1)",
                   "EVENT-LOG process_exists_ap update_802dot11r 1",
                   "EVENT 23 lab",
                   "TRACE NOT Planning update 802dot11k domain lab status 3",
                   "TRACE NOT Planning update 802dot11r domain lab",
                   "SEND 2 " + with_neighbours({}, told_info("00:11:22:33:55:00", {told_radio(1, 36, 5, 14)})),
               }));
  EXPECT_TRUE(unanswered_aps().contains(MacAddr::parse("00:11:22:33:55:13")));

  drop(1);
  journal.take();
  receive(1, a_message("rrm-config-changed", ap1).with_radio(a_5ghz_radio(36).with_vap(3, "office")));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message rrm-config-changed for 00:11:22:33:44:00",
                   "TRACE To deleted rrm change request",
                   "EVENT-LOG process_exists_ap update_802dot11k 1 (0/1)",
                   "EVENT-LOG process_exists_ap update_802dot11r 1",
                   "EVENT 23 lab",
                   "TRACE NOT Planning update 802dot11k domain lab status 3",
                   "TRACE NOT Planning update 802dot11r domain lab",
                   "SEND 1 " + with_neighbours({}, told_info("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)})),
               }));
  EXPECT_TRUE(deleted_aps().contains(MacAddr::parse("00:11:22:33:44:13")));
}

TEST_F(Membership, AConfigurationFromAnOldSessionChangesNothing) {
  start_with_two();
  const std::string before = details();
  receive(2, a_message("rrm-config-changed", ap1).with_no_radios());
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message rrm-config-changed for 00:11:22:33:44:00",
                                   "ERROR Exception at processing message on worker 'lab': invalid exist session",
                                   "EVENT 4 lab",
                               }));
  EXPECT_EQ(details(), before);
}

TEST_F(Membership, AConfigurationOfAnUnknownApIsIgnored) {
  start_with_two();
  receive(1, a_message("rrm-config-changed", "00:00:00:00:00:01").with_no_radios());
  EXPECT_LINES(journal.take(), ({"TRACE process_message rrm-config-changed for 00:00:00:00:00:01"}));
}

// A session's end

TEST_F(Membership, AnActiveApWithoutASessionIsKeptForItsTime) {
  start_with_two();
  Radio& radio = ap(ap1)->radios.list[1];
  radio.assoc.add_client(MacAddr::parse("00:00:00:00:00:01"), -50, "office", false, false);
  radio.assoc.add_expected(MacAddr::parse("00:00:00:00:00:02"), ExpectedClient{});
  drop(1);
  EXPECT_LINES(journal.take(), ({"EVENT 23 lab"}));
  EXPECT_EQ(aps().size(), 1u);
  ASSERT_EQ(deleted_aps().size(), 1u);
  EXPECT_TRUE(ap(ap1)->session_dropped);
  EXPECT_EQ(ap(ap1)->delete_ttl, 30);
  EXPECT_EQ(ap(ap1)->radios.list[1].assoc.load(), 0);
  EXPECT_TRUE(deleted_aps().contains(MacAddr::parse("00:11:22:33:44:10")));
  EXPECT_FALSE(aps().contains(MacAddr::parse("00:11:22:33:44:10")));
}

TEST_F(Membership, ASilentApWithoutASessionIsForgotten) {
  start_with_a_silent_ap2();
  drop(2);
  EXPECT_LINES(journal.take(), ({"EVENT 23 lab"}));
  EXPECT_TRUE(unanswered_aps().empty());
  EXPECT_TRUE(deleted_aps().empty());
}

TEST_F(Membership, TheEndOfAnUnknownSessionMovesNobody) {
  start_with_two();
  drop(77);
  EXPECT_LINES(journal.take(), ({"EVENT 23 lab"}));
  EXPECT_EQ(aps().size(), 2u);
}

TEST_F(Membership, AllApsOfOneSessionGoTogether) {
  start();
  subscribe(1, an_ap36(ap1));
  subscribe(1, an_ap36(ap2));
  drop(1);
  EXPECT_TRUE(aps().empty());
  EXPECT_EQ(deleted_aps().size(), 2u);
}

// The tick

class Tick : public Membership {
 protected:
  static std::string line(const std::string& counts_and_pauses) {
    return "TRACE Domain lab state (" + counts_and_pauses +
           " Metrics: subscribe-request 0/0 unsubscribe-request 0/0 rrm-response 0/0 rrm-mode-response 0/0 "
           "rrm-config-changed 0/0 timer-request-modes 0/0 timer-request-scan 0/0 timer-optimize 0/0";
  }
};

TEST_F(Tick, TellsTheDomainsStateEveryTenSeconds) {
  settings.use_optimization_event = false;
  start_with_two();
  drop(2);
  journal.take();
  advance(9);
  EXPECT_THAT(journal.take(), IsEmpty());
  advance(1);
  EXPECT_LINES(journal.take(), ({line("0) aps: 1 unanswered_aps: 0 aps_to_delete: 1 queued: 0 load_balancer_lock: 0 "
                                      "load_balancer_stop: 0 counter: 0")}));
  advance(9);
  EXPECT_THAT(journal.take(), IsEmpty());
  advance(1);
  EXPECT_EQ(journal.take().size(), 1u);
}

TEST_F(Tick, CountsWhatWaitsInTheQueues) {
  start();
  worker->enqueue_message(JsonReader("{}"), no_session);
  worker->enqueue_message_force(JsonReader("{}"), no_session);
  advance(10);
  EXPECT_TRUE(
      journal.has(line("0) aps: 0 unanswered_aps: 0 aps_to_delete: 0 queued: 2 load_balancer_lock: 0 "
                       "load_balancer_stop: 0 counter: 0")));
}

// Nobody told the domain of the end: that word came before the session's subscribe, or was lost.
TEST_F(Tick, FindsSessionsThatHaveEndedUnnoticed) {
  settings.use_optimization_event = false;
  start_with_two();
  subscribe(2, an_ap36("00:11:22:33:66:00"));
  server.ended = {2};
  advance(10);
  EXPECT_LINES(journal.take(), ({line("0) aps: 3 unanswered_aps: 0 aps_to_delete: 0 queued: 0 load_balancer_lock: 0 "
                                      "load_balancer_stop: 0 counter: 0"),
                                 "TRACE Session 2 has ended unnoticed", "EVENT 23 lab"}));
  EXPECT_EQ(aps().size(), 1u);
  EXPECT_EQ(deleted_aps().size(), 2u);
  EXPECT_EQ(ap(ap2)->delete_ttl, 30);
  EXPECT_TRUE(ap(ap2)->session_dropped);
  advance(10);
  EXPECT_EQ(journal.take().size(), 1u) << "the domain's state";
}

TEST_F(Tick, LeavesSessionsAloneWhoseEndMayStillBeTold) {
  start_with_two();
  server.ended = {2};
  worker->enqueue_message_force(JsonReader(internal_message::drop_session), no_session);
  advance(10);
  EXPECT_FALSE(journal.has("TRACE Session 2 has ended unnoticed"));
  EXPECT_EQ(aps().size(), 2u);
}

TEST_F(Tick, FindsASilentApWhoseSessionHasEndedUnnoticed) {
  start_with_a_silent_ap2();
  server.ended = {2};
  advance(10);
  EXPECT_TRUE(journal.has("TRACE Session 2 has ended unnoticed"));
  EXPECT_TRUE(unanswered_aps().empty());
  EXPECT_TRUE(deleted_aps().empty());
}

TEST_F(Tick, ADeletedApIsGoneAfterItsTicks) {
  settings.use_optimization_event = false;
  start_with_two();
  drop(2);
  advance(290);
  EXPECT_EQ(deleted_aps().size(), 1u);
  journal.take();
  advance(10);
  EXPECT_TRUE(deleted_aps().empty());
  EXPECT_EQ(deleted_aps().storage().size(), 0u);
}

// The APs of these have no radio on air, so that nothing else plans.
class Departure : public Tick {
 protected:
  // ap1, ap2 and ap3 on sessions 1, 2 and 3; a deleted AP lives for one tick.
  void start_with_three() {
    settings.away_timeout = 10;
    start();
    subscribe(1, a_subscribe(ap1));
    subscribe(2, a_subscribe(ap2));
    subscribe(3, a_subscribe("00:11:22:33:66:00"));
  }
};

TEST_F(Departure, TheLastOneIsWorthAPlanAndABackup) {
  start_with_three();
  drop(2);
  drop(3);
  journal.take();
  advance(10);
  EXPECT_LINES(journal.take(), ({
                                   line("0) aps: 1 unanswered_aps: 0 aps_to_delete: 2 queued: 0 load_balancer_lock: 0 "
                                        "load_balancer_stop: 0 counter: 0"),
                                   "TRACE Force optimization dmain lab",
                                   "TRACE Planning domain lab update 4 after 20 sec",
                                   "EVENT 23 lab",
                                   status_event(4),
                                   "EVENT 23 lab",
                               }));
  EXPECT_FALSE(ap(ap1)->radios.list[1].lists_stale);
}

TEST_F(Departure, TheLastOneMakesTheListsOf80211vStale) {
  settings.use_80211v = true;
  start_with_three();
  drop(2);
  drop(3);
  advance(10);
  for (const Radio& radio : ap(ap1)->radios.list) EXPECT_TRUE(radio.lists_stale) << radio.id;
}

TEST_F(Departure, AnEarlierOneIsWorthABackupOnly) {
  start_with_three();
  drop(2);
  drop(3);
  ap("00:11:22:33:66:00")->delete_ttl = 2;
  journal.take();
  advance(10);
  EXPECT_LINES(journal.take(), ({
                                   line("0) aps: 1 unanswered_aps: 0 aps_to_delete: 2 queued: 0 load_balancer_lock: 0 "
                                        "load_balancer_stop: 0 counter: 0"),
                                   "EVENT 23 lab",
                               }));
}

TEST_F(Departure, AnAwayTimeBelowOneTickEndsWithTheFirst) {
  settings.away_timeout = 9;
  start();
  subscribe(1, a_subscribe(ap1));
  subscribe(2, a_subscribe(ap2));
  drop(2);
  EXPECT_EQ(ap(ap2)->delete_ttl, 0);
  advance(10);
  EXPECT_TRUE(deleted_aps().empty());
}

TEST_F(Departure, TheLastOneIsNoReasonForAPlanDuringAScan) {
  settings.away_timeout = 10;
  for (const int state : {2, 3}) {
    start_with_two();
    to_mode_requests();
    receive(1, a_message("rrm-mode-response", ap1).with_radio(a_5ghz_radio(36)));
    if (state == 3) to_scan();
    drop(2);
    journal.take();
    while (journal.lines("TRACE Domain lab").empty()) advance(1);
    ASSERT_EQ(rrm_status(), state);
    EXPECT_THAT(journal.lines("TRACE Force"), IsEmpty());
    EXPECT_THAT(journal.lines("EVENT 23"), ::testing::SizeIs(state == 2 ? 1u : 0u))
        << "gone from the silent set at once";
    EXPECT_TRUE(deleted_aps().empty());
  }
}

TEST_F(Departure, WithTheLastApTheDomainEndsOnThatTick) {
  settings.away_timeout = 10;
  make();
  worker->start();
  for (const char* text : {"subscribe", "drop"}) {
    BaseSession session;
    session.id = 1;
    worker->enqueue_message(
        JsonReader(text == std::string("drop") ? internal_message::drop_session : a_subscribe(ap1).text().c_str()),
        session);
  }
  EXPECT_TRUE(eventually([&] { return journal.lines("EVENT 23 lab").size() == 2; }));
  clock.advance(10);
  EXPECT_TRUE(eventually([&] { return journal.has("TRACE Stop worker lab"); }));
  worker->stop();
  EXPECT_LINES(journal.take(), ({
                                   "TRACE Start worker lab",
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "TRACE NEW subscribe request",
                                   "EVENT 23 lab",
                                   "SEND 1 " + told_success("00:11:22:33:44:00", {}),
                                   looks_at_links,
                                   "EVENT 23 lab",
                                   line("0) aps: 0 unanswered_aps: 0 aps_to_delete: 1 queued: 0 load_balancer_lock: 0 "
                                        "load_balancer_stop: 0 counter: 0"),
                                   "EVENT 23 lab",
                                   "TRACE Stop worker lab",
                               }));
}

TEST_F(Departure, WhenTheLastApUnsubscribesTheDomainEndsWithTheNextTick) {
  make();
  worker->start();
  BaseSession session;
  session.id = 1;
  worker->enqueue_message(JsonReader(a_subscribe(ap1).text().c_str()), session);
  worker->enqueue_message(JsonReader(a_message("unsubscribe-request", ap1).text().c_str()), session);
  EXPECT_TRUE(eventually([&] { return journal.has(status_event(4)); }));
  clock.advance(10);
  EXPECT_TRUE(eventually([&] { return journal.has("TRACE Stop worker lab"); }));
  worker->stop();
  EXPECT_TRUE(aps().empty());
  EXPECT_LINES(journal.lines("TRACE Domain lab"),
               ({line("4) aps: 0 unanswered_aps: 0 aps_to_delete: 0 queued: 0 load_balancer_lock: 0 "
                      "load_balancer_stop: 0 counter: 0")}));
}

TEST_F(Departure, ADomainWithoutApsEndsWithTheNextSessionThatIsGone) {
  make();
  worker->start();
  worker->enqueue_message(JsonReader(internal_message::drop_session), no_session);
  EXPECT_TRUE(eventually([&] { return journal.has("TRACE Stop worker lab"); }));
  worker->stop();
  EXPECT_LINES(journal.take(), ({"TRACE Start worker lab", "EVENT 23 lab", "TRACE Stop worker lab"}));
}

// Pauses of the balancer

class Pause : public Tick {
 protected:
  void order_pause() { receive(0, internal_message::stop_load_balancer); }
  // "stop, counter" as the next tick tells it.
  std::string at_next_tick() {
    journal.take();
    advance(settings.tick);
    const std::string told = journal.lines("TRACE Domain lab").at(0);
    const std::size_t from = told.find("load_balancer_stop: ");
    return told.substr(from, told.find(" Metrics") - from);
  }
};

TEST_F(Pause, LastsForAMinuteOfTicks) {
  start();
  EXPECT_EQ(at_next_tick(), "load_balancer_stop: 0 counter: 0");
  order_pause();
  for (int left = 6; left > 0; --left) {
    EXPECT_EQ(at_next_tick(), "load_balancer_stop: 1 counter: " + std::to_string(left));
  }
  EXPECT_EQ(at_next_tick(), "load_balancer_stop: 0 counter: 0");
}

TEST_F(Pause, StartsAgainWithASecondOrder) {
  start();
  order_pause();
  for (int i = 0; i < 4; ++i) at_next_tick();
  order_pause();
  for (int left = 6; left > 0; --left) {
    EXPECT_EQ(at_next_tick(), "load_balancer_stop: 1 counter: " + std::to_string(left));
  }
  EXPECT_EQ(at_next_tick(), "load_balancer_stop: 0 counter: 0");
}

TEST_F(Pause, OfLessThanATickEndsWithTheNext) {
  settings.tick = 61;
  start();
  order_pause();
  EXPECT_EQ(at_next_tick(), "load_balancer_stop: 1 counter: 0");
  EXPECT_EQ(at_next_tick(), "load_balancer_stop: 0 counter: 0");
}

// The balance timer

class Balance : public Membership {
 protected:
  void expect_client(std::int32_t ttl) {
    ExpectedClient client;
    client.ttl = ttl;
    ap(ap1)->radios.list[1].assoc.add_expected(MacAddr::parse("00:00:00:00:00:01"), client);
  }
  std::int32_t load() { return ap(ap1)->radios.list[1].assoc.load(); }
};

TEST_F(Balance, AgesExpectedClientsEverySecondBesideTheTick) {
  start_with_two();
  expect_client(12);
  advance(11);
  EXPECT_EQ(load(), 1);
  advance(1);
  EXPECT_EQ(load(), 0);
}

TEST_F(Balance, RunsAsSoonAsTheDomainIsMade) {
  make();
  subscribe(1, an_ap36(ap1));
  expect_client(1);
  advance(1);
  EXPECT_EQ(load(), 0);
}

TEST_F(Balance, RunsFor80211vAlone) {
  settings.use_balance = false;
  settings.use_80211v = true;
  start_with_two();
  expect_client(1);
  advance(1);
  EXPECT_EQ(load(), 0);
}

TEST_F(Balance, DoesNotRunForNobody) {
  settings.use_balance = false;
  start_with_two();
  expect_client(1);
  advance(15);
  EXPECT_EQ(load(), 1);
}

TEST_F(Balance, Without80211vOnlyRadiosThatAreFreeForItFollowTheirLoad) {
  start_with_two();
  for (const bool locked : {false, true}) {
    Radio& radio = ap(ap1)->radios.list[1];
    radio.locked_80211v = locked;
    radio.priority_levels = {{0, 255}, {5, 127}};
    radio.priority = 255;
    expect_client(2);
    advance(1);
    EXPECT_EQ(radio.priority, locked ? 255u : 127u);
    advance(1);
  }
}

TEST_F(Balance, With80211vEveryRadiosPriorityFollowsItsLoad) {
  settings.use_80211v = true;
  settings.load_balance_sta_low = 1;
  for (const bool locked : {false, true}) {
    start_with_two();
    ap(ap1)->radios.list[1].locked_80211v = locked;
    expect_client(2);
    advance(1);
    EXPECT_EQ(ap(ap1)->radios.list[1].priority, 127u) << locked;
    advance(1);
    EXPECT_EQ(ap(ap1)->radios.list[1].priority, 255u) << locked;
  }
}

}  // namespace
}  // namespace rrm::testing
