// How a domain steers its clients by 802.11v: when it looks, what it tells overloaded APs, and what it makes of the
// clients that come, go and are sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoadBalancer802dot11vSubworker.h"
#include "domain/domain_support.h"

namespace rrm::testing {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";
const char* const ap3 = "00:11:22:33:66:00";
const char* const phone = "02:00:00:00:00:AA";

std::string news(const std::string& ap) {
  return "TRACE 802.11kv list has changed (or has no actual lists after reboot) on " + ap +
         ", sending new 802.11kv list";
}
std::string no_news(const std::string& ap) {
  return "TRACE 802.11kv list has not changed on " + ap + ", no need to send new one";
}
std::string no_need(const std::string& ap) {
  return "TRACE AP(" + ap + "): no radios need load balance";
}
std::string info(std::uint32_t session, const std::string& ap, const std::vector<std::string>& neighbours) {
  return "SEND " + std::to_string(session) + " " + with_switch("use-80211v", 1, told_lists(ap, neighbours));
}
std::string overload(std::uint32_t session, const std::string& ap, const std::vector<std::string>& neighbours,
                     const std::vector<std::string>& radios) {
  return "SEND " + std::to_string(session) +
         R"( {"service":"rrm","version":"2.4","cmd":"rrm-sta-overload","ap-mac":")" + ap + R"(","802dot11k":)" +
         array_text(neighbours) + R"(,"radios":)" + array_text(radios) + "}";
}
std::string roam_order(int radio, int count) {
  return R"({"id":)" + std::to_string(radio) + R"(,"roam-count":)" + std::to_string(count) + "}";
}

const char* const started = "TRACE 802.11v optimization started for each AP";
const char* const blocked = "TRACE Load balancer is blocked";
const char* const planned_soon = "TRACE Planning 802.11v optimization (timer restarted)";
const char* const planned = "TRACE Planning 802.11v optimization (without timer restart)";

// Nothing is planned but what the tests plan. The APs are on the sessions 1 to 3, each with radio 1 on channel 36, and
// are not heard by each other until a test says so. No radio is free for the other balancer.
class Transition : public DomainTest {
 protected:
  Transition() {
    settings.use_80211v = true;
    settings.use_80211k = false;
    settings.use_80211r = false;
    settings.use_optimization_event = false;
  }

  void start_with(std::initializer_list<const char*> macs) {
    start();
    std::uint32_t session = 1;
    for (const char* mac : macs) {
      subscribe(session++, a_subscribe(mac).with_radio(an_office_radio()));
      for (Radio& each : ap(mac)->radios.list) each.locked_balancer = 1;
    }
  }
  void let_hear(const char* listener, std::initializer_list<const char*> others) {
    for (const char* other : others) ap(listener)->visible_members.insert(radio(other).mac, Neighbour{});
  }
  // So many clients of radio 1, beside those it has.
  void crowd(const char* mac, std::int32_t count) {
    for (std::int32_t i = 1; i <= count; ++i) {
      radio(mac).assoc.add_client(MacAddr::parse("02:00:00:00:01:00").plus(i), -60, "office", false, false);
    }
  }
  Radio& radio(const char* mac) { return ap(mac)->radios.list[1]; }
  std::int32_t load(const char* mac) { return radio(mac).assoc.load(); }
  bool has_phone(const char* mac, std::size_t id = 1) {
    return ap(mac)->radios.list[id].assoc.find_client(MacAddr::parse(phone)) != nullptr;
  }
  bool expects_phone(const char* mac) { return radio(mac).assoc.find_expected(MacAddr::parse(phone)) != nullptr; }
  LoadBalancer802dot11vSubworker& balancer() { return worker->load_balancer_802dot11v(); }
  // The pipeline measures, or no longer does.
  void lock_balancing(bool lock) {
    locked([lock](RrmWorker& lab) { lab.set_load_balancer_lock(lock); });
  }
  // What was journalled, without the tick's line and the worker's own way to its sub-workers.
  std::vector<std::string> told() {
    std::vector<std::string> lines = journal.take();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("TRACE Domain lab state") || line.starts_with("TRACE process_message ");
    });
    return lines;
  }
  void tell(const char* cmd, const char* ap, int radio, const std::string& station = phone,
            const std::string& ssid = "office") {
    receive(1, a_message(cmd, ap).with("radio", radio).with("rssi", -50).with("sta-mac", station).with("ssid", ssid));
  }
  void tell_roam(const char* from, int radio, const std::string& target) {
    receive(1, a_message("rrm-sta-roam", from).with("radio", radio).with("sta-mac", phone).with("target-mac", target));
  }
};

// When

class TransitionTimer : public Transition {};

TEST_F(TransitionTimer, LooksAtTheClientsOnceAPeriodAndAtTheListsOnlyIfThatIsPending) {
  start_with({ap1});
  advance(59);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({no_need(ap1)}));
  balancer().planning_update_802dot11v(false);
  EXPECT_LINES(told(), ({planned}));
  advance(59);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({started, news(ap1), info(1, ap1, {}), no_need(ap1)}));
  advance(60);
  EXPECT_LINES(told(), ({no_need(ap1)}));
}

TEST_F(TransitionTimer, ThePeriodIsASetting) {
  settings.sta_load_balance_period = 10;
  start_with({ap1});
  advance(9);
  EXPECT_THAT(told(), IsEmpty());
  advance(11);
  EXPECT_LINES(told(), ({no_need(ap1), no_need(ap1)}));
}

TEST_F(TransitionTimer, APeriodOfNothingIsASecond) {
  settings.sta_load_balance_period = 0;
  start_with({ap1});
  advance(3);
  EXPECT_LINES(told(), ({no_need(ap1), no_need(ap1), no_need(ap1)}));
}

TEST_F(TransitionTimer, APlanWithARestartComesTwentySecondsLaterAndThePeriodBeginsThere) {
  start_with({ap1});
  for (const std::int32_t wait : {5, 55}) {
    advance(wait);
    balancer().planning_update_802dot11v(true);
    EXPECT_LINES(told(), ({planned_soon}));
    advance(19);
    EXPECT_THAT(told(), IsEmpty());
    advance(1);
    EXPECT_LINES(told(), ({started, news(ap1), info(1, ap1, {}), no_need(ap1)}));
  }
  advance(59);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({no_need(ap1)}));
}

TEST_F(TransitionTimer, NothingIsPlannedWhereTheSettingIsOff) {
  settings.use_80211v = false;
  start_with({ap1});
  balancer().planning_update_802dot11v(true);
  balancer().planning_update_802dot11v(false);
  advance(59);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({"TRACE Skip optimize_clients (use_80211v=0 use_balance=1)"}));
}

TEST_F(TransitionTimer, WithoutBalancingOnlyTheListsGoOutWithAFixedPriority) {
  settings.use_balance = false;
  start_with({ap1, ap2});
  let_hear(ap1, {ap2});
  let_hear(ap2, {ap1});
  const auto told_alike = [](std::vector<std::string> lines) {
    for (std::string& line : lines) {
      if (line.starts_with("SEND")) line = with_switch("use-load-balance", 0, line);
    }
    return lines;
  };
  balancer().planning_update_802dot11v(true);
  told();
  advance(20);
  EXPECT_LINES(told(), (told_alike({
                           started,
                           news(ap1),
                           info(1, ap1, {told_office(ap2, 127)}),
                           news(ap2),
                           info(2, ap2, {told_office(ap1, 127)}),
                           "TRACE Skip optimize_clients (use_80211v=1 use_balance=0)",
                       })));
}

TEST_F(TransitionTimer, WhileThePipelineMeasuresTheListsWaitForTheNextTimer) {
  start_with({ap1});
  lock_balancing(true);
  balancer().planning_update_802dot11v(true);
  told();
  advance(20);
  EXPECT_LINES(told(), ({blocked, no_need(ap1)}));
  lock_balancing(false);
  advance(59);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({started, news(ap1), info(1, ap1, {}), no_need(ap1)}));
}

TEST_F(TransitionTimer, ADomainThatIsAskedForAPlanMeasuresAndLetsGo) {
  start_with({ap1});
  worker->tpc_dca().planning_request_modes(true);
  to_mode_requests();
  balancer().force_optimization();
  EXPECT_TRUE(journal.has(blocked));
  advance(settings.mode_response_wait);
  ASSERT_NE(rrm_status(), static_cast<int>(RrmStatus::WAIT_MODE_RESPONSE));
  told();
  balancer().force_optimization();
  EXPECT_TRUE(journal.has(started));
}

TEST_F(TransitionTimer, AForcedLookIsMadeAtOnceAndThePeriodBeginsAnew) {
  start_with({ap1});
  advance(50);
  balancer().force_optimization();
  EXPECT_LINES(told(), ({"TRACE Forced 802.11v optimization;", started, news(ap1), info(1, ap1, {}), no_need(ap1)}));
  advance(59);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({no_need(ap1)}));
}

TEST_F(TransitionTimer, AForcedLookThatIsBlockedIsMadeUpForByTheNextTimer) {
  start_with({ap1});
  lock_balancing(true);
  balancer().force_optimization();
  EXPECT_LINES(told(), ({"TRACE Forced 802.11v optimization;", blocked, no_need(ap1)}));
  lock_balancing(false);
  advance(60);
  EXPECT_LINES(told(), ({started, news(ap1), info(1, ap1, {}), no_need(ap1)}));
}

TEST_F(TransitionTimer, AForcedLookDoesNothingWhereTheSettingIsOff) {
  settings.use_80211v = false;
  start_with({ap1});
  balancer().force_optimization();
  EXPECT_LINES(told(),
               ({"TRACE Forced 802.11v optimization;", "TRACE Skip optimize_clients (use_80211v=0 use_balance=1)"}));
}

// Lists

class TransitionNews : public Transition {};

TEST_F(TransitionNews, OnlyThoseWhoseNeighboursChangedAreToldAgain) {
  start_with({ap1, ap2, ap3});
  let_hear(ap1, {ap2});
  let_hear(ap2, {ap1});
  let_hear(ap3, {ap2});
  balancer().force_optimization();
  EXPECT_EQ(journal.lines("SEND").size(), 3u) << "nobody has a list after a start";
  told();
  crowd(ap2, 5);
  advance(1);
  EXPECT_LINES(told(), ({planned}));
  advance(59);
  EXPECT_LINES(told(), ({
                           started,
                           news(ap1),
                           info(1, ap1, {told_office(ap2, 127)}),
                           no_news(ap2),
                           news(ap3),
                           info(3, ap3, {told_office(ap2, 127)}),
                           no_need(ap1),
                           no_need(ap2),
                           no_need(ap3),
                       }));
  balancer().force_optimization();
  EXPECT_THAT(journal.lines("SEND"), IsEmpty());
}

TEST_F(TransitionNews, AFullRadioIsLeftOutAndThatIsNews) {
  start_with({ap1, ap2});
  let_hear(ap1, {ap2});
  let_hear(ap2, {ap1});
  balancer().force_optimization();
  crowd(ap2, 20);
  advance(1);
  told();
  balancer().force_optimization();
  EXPECT_THAT(journal.lines("SEND 1"), ::testing::ElementsAre(info(1, ap1, {})));
}

TEST_F(TransitionNews, ALoneApIsToldAtEachPass) {
  settings.use_all_ap_balance = true;
  start_with({ap1});
  for (int i = 0; i < 2; ++i) {
    told();
    balancer().force_optimization();
    EXPECT_THAT(journal.lines("SEND"), ::testing::ElementsAre(info(1, ap1, {})));
  }
}

TEST_F(TransitionNews, ThePlainListOfAnApIsSentAtEachPass) {
  settings.use_80211k = true;
  start();
  subscribe(1, a_subscribe(ap1).with_radio(an_office_radio().with("locked-for-80211v", 1)));
  for (int i = 0; i < 2; ++i) {
    balancer().force_optimization();
    EXPECT_LINES(told(), ({"TRACE Forced 802.11v optimization;", started, info(1, ap1, {}), no_need(ap1)}));
  }
}

TEST_F(TransitionNews, APriorityThatFollowsTheLoadMakesTheListsPending) {
  for (const bool use_80211v : {true, false}) {
    settings.use_80211v = use_80211v;
    start_with({ap1});
    radio(ap1).priority_levels = {{4, 255}, {19, 127}};
    radio(ap1).priority = 255;
    crowd(ap1, 5);
    told();
    advance(2);
    EXPECT_EQ(radio(ap1).priority, 127u);
    EXPECT_EQ(told(), use_80211v ? std::vector<std::string>{planned} : std::vector<std::string>{});
  }
}

TEST_F(TransitionNews, TheLastThatLeavesForGoodMakesAllListsStale) {
  settings.away_timeout = 10;
  for (const bool use_80211v : {true, false}) {
    settings.use_80211v = use_80211v;
    start_with({ap1, ap2, ap3});
    let_hear(ap1, {ap2});
    worker->load_balancer_802dot11v().commit_priorities();
    drop(3);
    EXPECT_FALSE(radio(ap1).lists_stale);
    advance(10);
    ASSERT_TRUE(deleted_aps().empty());
    for (const char* mac : {ap1, ap2}) {
      for (const Radio& each : ap(mac)->radios.list) EXPECT_EQ(each.lists_stale, use_80211v);
    }
    told();
    worker->load_balancer_802dot11v().force_optimization();
    EXPECT_EQ(journal.has(news(ap1)), use_80211v);
  }
}

TEST_F(TransitionNews, WhileOthersMayStillReturnTheListsStayAsTheyAre) {
  settings.away_timeout = 20;
  start_with({ap1, ap2, ap3});
  balancer().commit_priorities();
  drop(3);
  advance(10);
  drop(2);
  advance(10);
  ASSERT_EQ(deleted_aps().size(), 1u);
  EXPECT_FALSE(radio(ap1).lists_stale);
  advance(10);
  EXPECT_TRUE(radio(ap1).lists_stale);
}

// Overloaded APs

class TransitionOverload : public Transition {
 protected:
  // ap1 hears ap2 and ap3; so many clients each, whose priorities are known to all.
  void start_crowded(std::int32_t first, std::int32_t second, std::int32_t third) {
    start_with({ap1, ap2, ap3});
    let_hear(ap1, {ap2, ap3});
    crowd(ap1, first);
    crowd(ap2, second);
    crowd(ap3, third);
    advance(1);
    balancer().force_optimization();
    journal.take();
  }
  std::vector<std::string> look() {
    balancer().process_timer();
    return told();
  }
};

TEST_F(TransitionOverload, AnOverloadedApIsToldHowManyToMoveAndWhereTo) {
  start_crowded(20, 8, 5);
  const std::vector<std::string> expected = {
      "TRACE AP(00:11:22:33:44:00): radio 1: total clients 20, nonzero prio aps 2;",
      "TRACE Sending overload msg to 00:11:22:33:44:00 (roam 4 clients; avg_count = 11.000)",
      overload(1, ap1, {told_office(ap2, 127), told_office(ap3, 127)}, {roam_order(1, 4)}),
      no_need(ap3),
  };
  EXPECT_EQ(look(), expected);
  EXPECT_EQ(look(), expected) << "the neighbours are counted anew each time";
}

TEST_F(TransitionOverload, ItLeavesAtOnce) {
  start_crowded(20, 8, 5);
  balancer().process_timer();
  EXPECT_EQ(journal.lines("SEND").size(), 1u) << "the pass has not ended";
}

TEST_F(TransitionOverload, HeavierNeighboursStayAsALastResort) {
  start_crowded(20, 20, 5);
  EXPECT_THAT(look(), Contains(overload(1, ap1, {told_office(ap2, 0), told_office(ap3, 127)}, {roam_order(1, 4)})));
}

TEST_F(TransitionOverload, AnExcessOfExactlyTheLeastStaysWhereItIs) {
  start_crowded(8, 7, 3);
  EXPECT_LINES(look(), ({
                           "TRACE AP(00:11:22:33:44:00): radio 1: total clients 8, nonzero prio aps 2;",
                           "TRACE AP(00:11:22:33:44:00): radio 1: roam count 2.000 below min 2",
                           no_need(ap3),
                       }));
  crowd(ap1, 9);
  EXPECT_THAT(look(), Contains(overload(1, ap1, {told_office(ap2, 127), told_office(ap3, 255)}, {roam_order(1, 2)})))
      << "and what was counted for the look before is forgotten";
}

TEST_F(TransitionOverload, AListWithoutALighterNeighbourIsNotSent) {
  start_crowded(20, 20, 20);
  std::vector<std::string> lines = look();
  EXPECT_THAT(lines, Contains("TRACE AP(00:11:22:33:44:00): radio 1: no neighbor aps with nonzero priority, skip roam "
                              "count"));
  EXPECT_THAT(lines, Not(Contains(StartsWith("SEND"))));
}

TEST_F(TransitionOverload, AnApThatHearsNobodyIsToldNothing) {
  start_with({ap1, ap2});
  crowd(ap1, 20);
  advance(1);
  told();
  EXPECT_LINES(look(), ({started, news(ap1), info(1, ap1, {}), news(ap2), info(2, ap2, {}), no_need(ap2)}));
}

TEST_F(TransitionOverload, TheMarkItselfIsNoOverload) {
  start_crowded(5, 0, 0);
  EXPECT_LINES(look(), ({no_need(ap1), no_need(ap2), no_need(ap3)}));
  start_crowded(6, 0, 0);
  EXPECT_LINES(look(), ({
                           "TRACE AP(00:11:22:33:44:00): radio 1: total clients 6, nonzero prio aps 2;",
                           "TRACE Sending overload msg to 00:11:22:33:44:00 (roam 4 clients; avg_count = 2.000)",
                           overload(1, ap1, {told_office(ap2, 255), told_office(ap3, 255)}, {roam_order(1, 4)}),
                           no_need(ap2),
                           no_need(ap3),
                       }));
}

TEST_F(TransitionOverload, OnlyRadiosWithClientsToMoveAreNamed) {
  start_crowded(20, 8, 5);
  for (const char* mac : {ap1, ap2}) {
    subscribe(ap(mac)->session.id,
              a_subscribe(mac).with_radio(a_2ghz_radio().with_vap(1, "office")).with_radio(an_office_radio()));
    ap(mac)->radios.list[0].assoc.add_client(MacAddr::parse(phone), -50, "office", false, false);
  }
  let_hear(ap1, {ap2, ap3});
  ap(ap1)->visible_members.insert(ap(ap2)->radios.list[0].mac, Neighbour{});
  const std::vector<std::string> lines = look();
  EXPECT_THAT(lines, Contains("TRACE AP(00:11:22:33:44:00): radio 0: skip roam count (use_balance=1 use_80211v=1 "
                              "need_balance=0)"));
  const std::string heard_2ghz =
      R"({"neighbour-mac":"00:11:22:33:55:00","channel":1,"band":2,"bandwidth":20,"primary-channel":"none",)"
      R"("priority":0,"vaps":[{"id":1,"ssid":"office","mac":"00:11:22:33:55:01"}]})";
  EXPECT_THAT(lines, Contains(overload(1, ap1, {heard_2ghz, told_office(ap2, 127), told_office(ap3, 127)},
                                       {roam_order(1, 4)})));
}

TEST_F(TransitionOverload, ClientsThatAreExpectedCountAsIfTheyWereThere) {
  start_crowded(10, 0, 9);
  tell_roam(ap1, 1, radio(ap3).mac.to_string());
  told();
  EXPECT_THAT(look(), Contains(overload(1, ap1, {told_office(ap2, 255), told_office(ap3, 0)}, {roam_order(1, 4)})));
}

TEST_F(TransitionOverload, WhileThePipelineMeasuresClientsAreMovedAllTheSame) {
  start_crowded(20, 8, 5);
  lock_balancing(true);
  EXPECT_THAT(look(), Contains(StartsWith("SEND 1 ")));
}

// Clients

class TransitionClients : public Transition {};

TEST_F(TransitionClients, AClientThatComesIsRecorded) {
  start_with({ap1});
  tell("rrm-client-assoc", ap1, 1);
  EXPECT_LINES(told(),
               ({"TRACE Assocc client 02:00:00:00:00:AA rssi -50 radio_id 1 ssid office (ap 00:11:22:33:44:00)"}));
  const AssocClient* client = radio(ap1).assoc.find_client(MacAddr::parse(phone));
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client->rssi, -50);
  EXPECT_EQ(client->ssid, "office");
  EXPECT_FALSE(client->no_balance);
  receive(1, a_message("rrm-client-assoc", ap1)
                 .with("radio", 1)
                 .with("sta-mac", phone)
                 .with("ssid", "office")
                 .with("no-balance", 1)
                 .with("need-ack", 1));
  EXPECT_TRUE(radio(ap1).assoc.find_client(MacAddr::parse(phone))->no_balance);
  EXPECT_FALSE(radio(ap1).assoc.find_client(MacAddr::parse(phone))->need_ack);
  EXPECT_THAT(journal.lines("SEND"), IsEmpty());
}

TEST_F(TransitionClients, AClientThatGoesIsForgottenIfItWasThereUnderThisSsid) {
  start_with({ap1});
  tell("rrm-client-assoc", ap1, 1);
  told();
  tell("rrm-client-disassoc", ap1, 1, phone, "guests");
  EXPECT_LINES(told(), ({"TRACE Disassocc client 02:00:00:00:00:AA (ap 00:11:22:33:44:00)"}));
  EXPECT_TRUE(has_phone(ap1));
  tell("rrm-client-disassoc", ap1, 1);
  EXPECT_FALSE(has_phone(ap1));
}

TEST_F(TransitionClients, AnEventThatNamesNoClientOrNoNetworkIsOnlyLogged) {
  start_with({ap1});
  crowd(ap1, 5);
  const std::string ap = " (ap 00:11:22:33:44:00)";
  for (const auto& [station, ssid] : {std::pair<std::string, std::string>{"", "office"}, {phone, ""}}) {
    tell("rrm-client-assoc", ap1, 1, station, ssid);
    EXPECT_LINES(told(), ({"TRACE Assocc client " + station + " rssi -50 radio_id 1 ssid " + ssid + ap}));
    tell("rrm-client-disassoc", ap1, 1, station, ssid);
    EXPECT_LINES(told(), ({"TRACE Disassocc client " + station + ap}));
    EXPECT_EQ(load(ap1), 5);
    EXPECT_EQ(radio(ap1).priority, 255u) << "nor is the priority looked at";
  }
}

TEST_F(TransitionClients, AnEventOfARadioThatIsNotThereIsOnlyWarnedOf) {
  start_with({ap1, ap2});
  for (const int id : {-1, 3}) {
    const std::string number = std::to_string(id);
    tell("rrm-client-assoc", ap1, id);
    EXPECT_LINES(
        told(),
        ({"TRACE Assocc client 02:00:00:00:00:AA rssi -50 radio_id " + number + " ssid office (ap 00:11:22:33:44:00)",
          "WARNING Skip 802.11v assoc for invalid/disabled radio_id=" + number + " (ap 00:11:22:33:44:00)"}));
    tell("rrm-client-disassoc", ap1, id);
    EXPECT_LINES(told(), ({"TRACE Disassocc client 02:00:00:00:00:AA (ap 00:11:22:33:44:00)",
                           "WARNING Skip 802.11v disassoc for invalid/disabled radio_id=" + number +
                               " (ap 00:11:22:33:44:00)"}));
    tell_roam(ap1, id, radio(ap2).mac.to_string());
    EXPECT_LINES(told(), ({"WARNING Skip 802.11v roam: target radio_id=" + number +
                           " invalid/disabled for ap=00:11:22:33:55:00"}));
  }
}

TEST_F(TransitionClients, AClientThatChangesAPriorityMakesTheListsPending) {
  start_with({ap1});
  crowd(ap1, 4);
  tell("rrm-client-assoc", ap1, 1);
  const std::string changed = "TRACE Ap(00:11:22:33:44:00) priority changed to ";
  EXPECT_THAT(told(), ::testing::ElementsAre(StartsWith("TRACE Assocc client"),
                                             changed + "127 (was 255), need to update lists on aps;", planned));
  tell("rrm-client-assoc", ap1, 1);
  EXPECT_THAT(told(), ::testing::ElementsAre(StartsWith("TRACE Assocc client")));
  tell("rrm-client-disassoc", ap1, 1);
  EXPECT_THAT(told(), ::testing::ElementsAre(StartsWith("TRACE Disassocc client"),
                                             changed + "255 (was 127), need to update lists on aps;", planned));
}

TEST_F(TransitionClients, AClientThatWasNotThereStillHasThePriorityLookedAt) {
  start_with({ap1});
  crowd(ap1, 20);
  tell("rrm-client-disassoc", ap1, 1);
  EXPECT_EQ(radio(ap1).priority, 0u);
}

TEST_F(TransitionClients, AClientThatIsSentCountsAtItsTargetForFiveSeconds) {
  for (const char* target : {"00:11:22:33:55:10", "02:11:22:33:55:13"}) {
    start_with({ap1, ap2});
    tell_roam(ap1, 1, target);
    EXPECT_LINES(told(), ({"ERROR New expected sta(02:00:00:00:00:AA) added to AP(00:11:22:33:55:00)"}));
    EXPECT_EQ(load(ap2), 1);
    advance(4);
    EXPECT_EQ(load(ap2), 1);
    advance(1);
    EXPECT_EQ(load(ap2), 0);
  }
}

TEST_F(TransitionClients, AClientSentToNobodyIsExpectedNowhere) {
  start_with({ap1, ap2});
  tell_roam(ap1, 1, "00:99:00:00:00:00");
  EXPECT_LINES(told(), ({"ERROR No target ap with mac 00:99:00:00:00:00"}));
  tell_roam(ap1, 1, ap2);  // an AP's own address is one of its radio 0, which is off here
  EXPECT_LINES(told(), ({"ERROR No target ap with mac 00:11:22:33:55:00"}));
  drop(2);
  told();
  tell_roam(ap1, 1, "00:11:22:33:55:10");
  EXPECT_LINES(told(), ({"ERROR No target ap with mac 00:11:22:33:55:10"}));
}

TEST_F(TransitionClients, AClientThatArrivesHasLeftWhereItCameFrom) {
  start_with({ap1, ap2});
  tell("rrm-client-assoc", ap1, 1);
  tell_roam(ap1, 1, radio(ap2).mac.to_string());
  EXPECT_TRUE(has_phone(ap1)) << "it has not gone yet";
  told();
  tell("rrm-client-assoc", ap2, 1);
  EXPECT_LINES(told(),
               ({
                   "TRACE Assocc client 02:00:00:00:00:AA rssi -50 radio_id 1 ssid office (ap 00:11:22:33:55:00)",
                   "TRACE Assoc: client(02:00:00:00:00:AA) was roamed by 802.11v, removing from expected list",
                   "TRACE Assoc: removing client(02:00:00:00:00:AA) from AP(00:11:22:33:44:00) assoc clients list",
               }));
  EXPECT_FALSE(has_phone(ap1));
  EXPECT_TRUE(has_phone(ap2));
  EXPECT_FALSE(expects_phone(ap2));
  EXPECT_EQ(load(ap2), 1);
}

TEST_F(TransitionClients, TheRadioOfAnArrivalNamesTheOneThatWasLeftToo) {
  start_with({ap1, ap2});
  for (const std::size_t id : {0u, 1u}) {
    ap(ap1)->radios.list[id].assoc.add_client(MacAddr::parse(phone), -50, "office", false, false);
  }
  tell_roam(ap1, 1, radio(ap2).mac.to_string());
  tell("rrm-client-assoc", ap2, 1);
  EXPECT_FALSE(has_phone(ap1, 1));
  EXPECT_TRUE(has_phone(ap1, 0));
}

TEST_F(TransitionClients, AClientArrivesAlsoIfTheApItCameFromHasGone) {
  start_with({ap1, ap2});
  tell_roam(ap1, 1, radio(ap2).mac.to_string());
  drop(1);
  told();
  receive(2, a_message("rrm-client-assoc", ap2).with("radio", 1).with("sta-mac", phone).with("ssid", "office"));
  EXPECT_LINES(told(), ({
                           "TRACE Assocc client 02:00:00:00:00:AA rssi 0 radio_id 1 ssid office (ap 00:11:22:33:55:00)",
                           "TRACE Assoc: client(02:00:00:00:00:AA) was roamed by 802.11v, removing from expected list",
                       }));
  EXPECT_TRUE(has_phone(ap2));
}

TEST_F(TransitionClients, AClientSentToTheVeryRadioThatSendsItStaysThere) {
  start_with({ap1});
  tell_roam(ap1, 1, radio(ap1).mac.to_string());
  tell("rrm-client-assoc", ap1, 1);
  EXPECT_TRUE(has_phone(ap1));
  EXPECT_FALSE(expects_phone(ap1));
}

TEST_F(TransitionClients, AClientThatComesUnexpectedIsLeftWhereElseItStands) {
  start_with({ap1, ap2});
  tell("rrm-client-assoc", ap1, 1);
  tell("rrm-client-assoc", ap2, 1);
  EXPECT_TRUE(has_phone(ap1));
  EXPECT_TRUE(has_phone(ap2));
}

// Who takes what an AP says of its clients

struct Road {
  const char* cmd;
  bool use_balance, balancer_free, use_80211v, free_for_11v;
  const char* taken;  // the first line of whoever takes it
};

TEST_F(Transition, ClientsEventsGoToTheOtherBalancerFirst) {
  const char* const by_balancer = "TRACE Assocc client 02:00:00:00:00:AA rssi -50 radio_id 9 ssid office no_balance 0";
  const char* const by_11v = "TRACE Assocc client 02:00:00:00:00:AA rssi -50 radio_id 9 ssid office (ap";
  const char* const gone_by_balancer = "TRACE Disassocc client 02:00:00:00:00:AA lock_balancer 0";
  const char* const gone_by_11v = "TRACE Disassocc client 02:00:00:00:00:AA (ap";
  const char* const all_gone = "TRACE Disassocc all clients";
  const char* const heard = "WARNING Skip probe-response for invalid/disabled radio_id=9";
  const char* const roamed = "ERROR No target ap with mac 00:00:00:00:00:00";
  const char* const state = "TRACE Assocc state change client 02:00:00:00:00:AA";
  const Road roads[] = {
      {"rrm-client-assoc", true, true, true, true, by_balancer},
      {"rrm-client-assoc", true, false, true, true, by_11v},
      {"rrm-client-assoc", false, true, true, true, by_11v},
      {"rrm-client-assoc", true, false, false, true, nullptr},
      {"rrm-client-assoc", true, false, true, false, nullptr},
      {"rrm-client-assoc", false, true, false, true, nullptr},
      {"rrm-client-disassoc", true, true, true, true, gone_by_balancer},
      {"rrm-client-disassoc", true, false, true, true, gone_by_11v},
      {"rrm-client-disassoc", false, true, true, true, gone_by_11v},
      {"rrm-client-disassoc", true, false, true, false, nullptr},
      {"rrm-disassoc-all-clients", true, true, true, true, all_gone},
      {"rrm-disassoc-all-clients", true, false, true, true, nullptr},
      {"rrm-disassoc-all-clients", false, true, true, true, nullptr},
      {"rrm-probe-response", true, true, true, true, heard},
      {"rrm-probe-response", true, false, true, true, nullptr},
      {"rrm-probe-response", false, true, true, true, nullptr},
      {"rrm-sta-roam", true, true, true, true, roamed},
      {"rrm-sta-roam", false, false, true, true, roamed},
      {"rrm-sta-roam", true, true, false, true, nullptr},
      {"rrm-sta-roam", true, true, true, false, nullptr},
      {"rrm-assoc-state-changed", true, true, true, true, state},
      {"rrm-assoc-state-changed", true, false, false, false, state},
  };
  for (const Road& road : roads) {
    settings.use_balance = road.use_balance;
    settings.use_80211v = road.use_80211v;
    start_with({ap1});
    for (Radio& each : ap(ap1)->radios.list) {
      each.locked_balancer = road.balancer_free ? 0 : 1;
      each.locked_80211v = road.free_for_11v ? 0 : 1;
    }
    journal.take();
    receive(1, a_message(road.cmd, ap1)
                   .with("radio", 9)
                   .with("rssi", -50)
                   .with("sta-mac", phone)
                   .with("ssid", "office")
                   .with_raw("radios", R"([{"id":9}])"));
    const std::vector<std::string> lines = journal.take();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1], std::string("TRACE process_message balancer ") + road.cmd + " for 00:11:22:33:44:00");
    if (road.taken == nullptr) {
      EXPECT_EQ(lines.size(), 2u) << road.cmd << " is dropped, but: " << ::testing::PrintToString(lines);
    } else {
      ASSERT_GE(lines.size(), 3u) << road.cmd;
      EXPECT_THAT(lines[2], StartsWith(road.taken));
    }
  }
}

// A lock counts for the AP only if all its radios have it.
TEST_F(Transition, OneRadioThatIsFreeIsEnoughForTheOtherBalancer) {
  start_with({ap1});
  ap(ap1)->radios.list[2].locked_balancer = 0;
  ASSERT_FALSE(ap(ap1)->radios.list[2].status);
  tell("rrm-client-assoc", ap1, 1);
  EXPECT_THAT(told().at(0), ::testing::HasSubstr(" lock_balancer 0 "));
}

}  // namespace
}  // namespace rrm::testing
