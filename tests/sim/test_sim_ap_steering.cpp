// What an AP does when the controller steers clients: whom it refuses and sends away, what it hears of others' clients,
// whom it holds back until it is told, and whom it asks to move.
#include "scripted_controller.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

constexpr const char* client_mac = "02:c1:00:00:00:01";

class ApSteeringTest : public testing::ScriptedController {
 protected:
  using Lines = std::vector<std::string>;

  void SetUp() override { begin(two_aps); }

  // Both APs are subscribed and the stations' clock runs; the client is served by A on 5 GHz.
  void begin(const std::string& text) {
    start(text);
    subscribe_all();
    pass(0);
    events();
  }

  const ApAgent& ap(std::size_t index) const { return simulation_->access_point(index); }
  const Mac client_ = *Mac::parse(client_mac);
  std::optional<Association> association() const { return simulation_->stations().find(client_)->association; }
  void walk_to(double x) { simulation_->enter(client_, {x, 5, 1.2}); }

  // One element of "radios" with a list of which each entry concerns the client.
  static Json radio(int id, const char* list, const Json& entry) {
    Json complete = {{"mac", "02:C1:00:00:00:01"}};
    complete.update(entry);
    return {{"id", id}, {list, Json::array({complete})}};
  }
  static Json block(int id, int timeout) { return radio(id, "blacklist", {{"action", "block"}, {"timeout", timeout}}); }
  static Json unblock(int id) { return radio(id, "blacklist", {{"action", "unblock"}}); }
  static Json disassociate(int id, int timeout, const char* ssid = "staff") {
    return radio(id, "diassoc-list", {{"ssid", ssid}, {"timeout", timeout}});
  }
  static Json asked(int id) { return radio(id, "probe-list", {{"ssid", "staff"}, {"timeout", 0}}); }
  static Json radios(const std::vector<Json>& list) { return {{"radios", list}}; }

  std::vector<std::string> blacklist(std::size_t index) const {
    Lines lines;
    for (const Refusal& entry : ap(index).blacklist(now_)) {
      lines.push_back(std::to_string(entry.radio) + " " + entry.client.text() + " for " +
                      std::to_string(entry.until - now_) + " ms");
    }
    return lines;
  }
};

// --- whom it refuses

TEST_F(ApSteeringTest, ABlockHoldsForItsRadioAndItsTime) {
  say(1, "rrm-blacklist", radios({block(1, 30)}));
  EXPECT_EQ(blacklist(1), (Lines{"1 02:c1:00:00:00:01 for 30000 ms"}));
  pass(29'999);
  EXPECT_EQ(blacklist(1), (Lines{"1 02:c1:00:00:00:01 for 1 ms"}));
  pass(1);
  EXPECT_EQ(blacklist(1), Lines{});
}

TEST_F(ApSteeringTest, ABlockedStationIsRefusedOnThatRadioOnly) {
  say(1, "rrm-blacklist", radios({block(1, 30)}));
  walk_to(14);
  pass(5'000);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 turned away A1 to B1: own choice",
                             "02:c1:00:00:00:01 moved A1 to B0: own choice, full, held, refused 1 times"}));
}

TEST_F(ApSteeringTest, ABlockDoesNotTouchWhoIsThereAlready) {
  say(0, "rrm-blacklist", radios({block(1, 30)}));
  pass(5'000);
  EXPECT_EQ(association(), (Association{0, 1, false}));
}

TEST_F(ApSteeringTest, AnUnblockedStationComesInAgain) {
  say(1, "rrm-blacklist", radios({block(1, 1000), block(0, 1000)}));
  say(1, "rrm-blacklist", radios({unblock(1)}));
  EXPECT_EQ(blacklist(1), (Lines{"0 02:c1:00:00:00:01 for 1000000 ms"}));
  walk_to(14);
  pass(5'000);
  EXPECT_EQ(association(), (Association{1, 1, false}));
}

TEST_F(ApSteeringTest, AnUnblockOfOneThatIsNotBlockedIsTolerated) {
  say(1, "rrm-blacklist", radios({unblock(1)}));
  EXPECT_EQ(blacklist(1), Lines{});
  EXPECT_EQ(log_, Lines{});
}

TEST_F(ApSteeringTest, ANewBlockReplacesTheTimeOfTheOld) {
  say(1, "rrm-blacklist", radios({block(1, 30)}));
  say(1, "rrm-blacklist", radios({block(1, 5)}));
  EXPECT_EQ(blacklist(1), (Lines{"1 02:c1:00:00:00:01 for 5000 ms"}));
}

TEST_F(ApSteeringTest, AnActionOfAnotherKindAndAnEntryOfNobodyAreNothing) {
  say(1, "rrm-blacklist",
      radios({block(1, 30), radio(1, "blacklist", {{"action", "forgive"}}),
              radio(0, "blacklist", {{"action", "block"}, {"timeout", 30}, {"mac", "nobody"}})}));
  EXPECT_EQ(blacklist(1), (Lines{"1 02:c1:00:00:00:01 for 30000 ms"}));
}

TEST_F(ApSteeringTest, ARadioThatItHasNotRefusesNobody) {
  say(1, "rrm-blacklist", radios({block(7, 30), unblock(7), block(2, 30)}));
  say(1, "rrm-disassoc-request", radios({disassociate(7, 30)}));
  EXPECT_EQ(blacklist(1), (Lines{"2 02:c1:00:00:00:01 for 30000 ms"}));
}

// The controller has forgotten it too, and takes the AP's radios for open.
TEST_F(ApSteeringTest, ItsListEndsWithItsSession) {
  say(1, "rrm-blacklist", radios({block(1, 30)}));
  ASSERT_EQ(blacklist(1).size(), 1U);
  simulation_->disconnected(1);
  EXPECT_EQ(blacklist(1), Lines{});
}

// A and B are closed to the client, which knocks at four radios each second; A has refused it twice after one second.
TEST_F(ApSteeringTest, OneThatKeepsKnockingIsLetInForGood) {
  say(0, "rrm-blacklist", radios({block(0, 30)}));
  say(1, "rrm-blacklist", radios({block(0, 30), block(1, 30)}));
  say(0, "rrm-disassoc-request", radios({disassociate(1, 30)}));
  sent(0);
  pass(2'000);
  EXPECT_FALSE(association());
  pass(1'000);
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-client-assoc",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "radio": 1, "rssi": -35, "sta-mac": "02:c1:00:00:00:01",
      "ssid": "staff", "no-balance": 1, "need-ack": 1})"));
  EXPECT_EQ(events().back(),
            "02:c1:00:00:00:01 joined A1 to A1: sent away, full, held, for good, refused 4 times, after 3000 ms");
}

TEST(RefusalsTest, CountsKnocksAtAllRadiosAndForgetsThemWithTheLastEntry) {
  using Answer = StationObserver::Answer;
  constexpr int patience = 2;
  const Mac client{1};
  Refusals refusals;
  refusals.block(0, client, 1'000);
  refusals.block(1, client, 2'000);
  EXPECT_EQ(refusals.answer(0, client, patience, 0), Answer::refuses);
  EXPECT_EQ(refusals.answer(1, client, patience, 999), Answer::refuses);
  EXPECT_EQ(refusals.answer(0, client, patience, 999), Answer::accepts_for_good);
  EXPECT_EQ(refusals.answer(0, client, patience, 1'000), Answer::accepts);
  EXPECT_EQ(refusals.answer(1, client, patience, 1'999), Answer::accepts_for_good);
  EXPECT_EQ(refusals.answer(1, client, patience, 2'000), Answer::accepts);
  refusals.block(1, client, 3'000);
  EXPECT_EQ(refusals.answer(1, client, patience, 2'001), Answer::refuses);
}

TEST_F(ApSteeringTest, TheControllerSaysHowOftenOneMustKnock) {
  say(0, "rrm-info", radios({{{"id", 1}, {"dunva-try-no-balance", 4}}}));
  say(0, "rrm-blacklist", radios({block(0, 30)}));
  say(1, "rrm-blacklist", radios({block(0, 30), block(1, 30)}));
  say(1, "rrm-info", radios({{{"id", 1}, {"dunva-try-no-balance", 10}}}));
  say(0, "rrm-disassoc-request", radios({disassociate(1, 30)}));
  pass(3'000);
  EXPECT_FALSE(association());
  pass(1'000);
  EXPECT_EQ(association(), (Association{0, 1, true}));
}

// --- whom it sends away

TEST_F(ApSteeringTest, ADismissedStationIsReportedAtBothAps) {
  say(0, "rrm-disassoc-request", radios({disassociate(1, 30), disassociate(0, 30)}));
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-client-disassoc",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "radio": 1, "sta-mac": "02:c1:00:00:00:01", "ssid": "staff"})"));
  EXPECT_EQ(blacklist(0), (Lines{"0 02:c1:00:00:00:01 for 30000 ms", "1 02:c1:00:00:00:01 for 30000 ms"}));
  pass(1'000);
  EXPECT_TRUE(sent_commands(1).empty());
  pass(1'000);
  EXPECT_EQ(sent_commands(1), (Lines{"rrm-client-assoc"}));
}

TEST_F(ApSteeringTest, AnOrderForAnotherRadioOrSsidSendsNobodyAway) {
  say(0, "rrm-disassoc-request", radios({disassociate(0, 30)}));
  say(0, "rrm-disassoc-request", radios({disassociate(1, 30, "guest")}));
  say(1, "rrm-disassoc-request", radios({disassociate(1, 30)}));
  EXPECT_EQ(association(), (Association{0, 1, false}));
}

// --- what it hears of others' clients. The client sits one metre beside A, and nine and a wall from B:
// 15 + 4 - 1 - (40.05 + 6.73 + 19.25 + 7) = -55.03 dBm on 5 GHz.

TEST_F(ApSteeringTest, AnswersForEveryRadioThatWasAsked) {
  Json nobody = radio(1, "probe-list", {{"ssid", "staff"}});
  nobody["probe-list"].push_back({{"mac", "02:c1:00:00:00:09"}, {"ssid", "staff"}});
  nobody["probe-list"].push_back({{"mac", "nobody"}});
  say(1, "rrm-probe-request", radios({nobody, asked(2), asked(9)}));
  pass(499);
  EXPECT_TRUE(sent(1).empty());
  pass(1);
  const auto messages = sent(1);
  ASSERT_EQ(messages.size(), 1U);
  // At 6 GHz the client has no radio, and an address of nobody is heard nowhere: 0 stands for that.
  EXPECT_EQ(messages[0], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-probe-response",
      "ap-mac": "02:00:5e:00:02:00", "domain": "lab", "radios": [
        {"id": 1, "probe-list": [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "rssi": -55},
                                 {"mac": "02:c1:00:00:00:09", "ssid": "staff", "rssi": 0}]},
        {"id": 2, "probe-list": [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "rssi": 0}]}]})"));
}

TEST_F(ApSteeringTest, HearsNobodyWhoIsGoneOrTooFar) {
  const auto answer = [this] {
    say(1, "rrm-probe-request", radios({asked(1)}));
    pass(500);
    return sent(1).at(0)["radios"][0]["probe-list"][0]["rssi"];
  };
  walk_to(-90);  // 15 + 3 - (46.78 + 20 + 35 log10(10.4) + 7) = -91.4
  EXPECT_EQ(answer(), 0);
  walk_to(-80);  // ... 35 log10(9.4): -89.9
  EXPECT_EQ(answer(), -90);
  simulation_->leave(client_);
  sent(1);
  EXPECT_EQ(answer(), 0);
}

TEST_F(ApSteeringTest, ARadioThatIsOffHearsNobody) {
  Radio off = *simulation_->world().radio(1, 1);
  off.enabled = false;
  ASSERT_EQ(simulation_->reconfigure(1, off), "");
  sent(1);
  say(1, "rrm-probe-request", radios({asked(1)}));
  pass(500);
  EXPECT_EQ(sent(1).at(0)["radios"][0]["probe-list"][0]["rssi"], 0);
}

TEST_F(ApSteeringTest, ListensItsTimeForEachRequest) {
  say(1, "rrm-probe-request", radios({asked(1)}));
  pass(300);
  say(1, "rrm-probe-request", radios({asked(0)}));
  pass(200);
  EXPECT_EQ(sent(1).at(0)["radios"].size(), 1U);
  pass(299);
  EXPECT_TRUE(sent(1).empty());
  pass(1);
  EXPECT_EQ(sent(1).at(0)["radios"][0]["id"], 0);
}

TEST_F(ApSteeringTest, AskedForNoRadioItDoesNotAnswer) {
  say(1, "rrm-probe-request", radios({asked(9)}));
  say(1, "rrm-probe-request");
  pass(1'000);
  EXPECT_TRUE(sent(1).empty());
}

// --- whom it holds back

class HoldTest : public ApSteeringTest {
 protected:
  // The client has walked over to B, which holds it back.
  void SetUp() override {
    ApSteeringTest::SetUp();
    move_to_b();
  }
  void move_to_b() {
    walk_to(14);
    pass(5'000);
    ASSERT_EQ(association(), (Association{1, 1, false}));
    events();
  }
  void acknowledge(const Json& other = Json::object()) {
    Json fields = {{"sta-mac", "02:C1:00:00:00:01"}, {"radio", 1}, {"ssid", "staff"}};
    fields.update(other);
    say(1, "rrm-client-assoc-ack", fields);
  }
  std::size_t held() const { return ap(1).held().all().size(); }
  const HoldCounts& ended() const { return ap(1).held().ended(); }
};

TEST_F(HoldTest, AnAssociationAsksForItsAcknowledgement) {
  const auto messages = sent(1);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0]["cmd"], "rrm-client-assoc");
  EXPECT_EQ(messages[0]["need-ack"], 1);
  EXPECT_EQ(held(), 1U);
  EXPECT_EQ(ended(), HoldCounts{});
}

TEST_F(HoldTest, TheAcknowledgementEndsIt) {
  pass(700);
  acknowledge();
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().acknowledged, 1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 released B1: own choice, acknowledged in 700 ms"}));
  acknowledge();
  EXPECT_EQ(ended().acknowledged, 1);
  EXPECT_EQ(log_, Lines{});
}

TEST_F(HoldTest, AnAcknowledgementOfSomethingElseIsNone) {
  acknowledge({{"sta-mac", "02:c1:00:00:00:02"}});
  acknowledge({{"sta-mac", "x"}});
  acknowledge({{"radio", 0}});
  acknowledge({{"ssid", "guest"}});
  EXPECT_EQ(held(), 1U);
}

TEST_F(HoldTest, BeingSentAwayEndsIt) {
  say(1, "rrm-disassoc-request", radios({disassociate(1, 30)}));
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().sent_away, 1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 released B1: own choice, sent away in 0 ms",
                             "02:c1:00:00:00:01 left B1: sent away"}));
}

TEST_F(HoldTest, ItsLeavingEndsIt) {
  walk_to(4);
  pass(5'000);
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().client_left, 1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 released B1: own choice, client left in 5000 ms",
                             "02:c1:00:00:00:01 moved B1 to A1: own choice, full, held"}));
}

TEST_F(HoldTest, LosingItsRadioEndsItWithoutADecision) {
  Radio off = *simulation_->world().radio(1, 1);
  off.enabled = false;
  ASSERT_EQ(simulation_->reconfigure(1, off), "");
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().radio_gone, 1);
  EXPECT_EQ(ended().sent_away, 0);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 released B1: own choice, radio gone in 0 ms",
                             "02:c1:00:00:00:01 left B1: radio gone"}));
}

TEST_F(HoldTest, AControllerThatSaysNothingForTenSecondsHasAgreed) {
  pass(9'999);
  EXPECT_EQ(held(), 1U);
  pass(1);
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().timed_out, 1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 released B1: own choice, timed out in 10000 ms"}));
  EXPECT_EQ(association(), (Association{1, 1, false}));
}

TEST_F(HoldTest, TheLossOfTheControllerEndsIt) {
  simulation_->disconnected(1);
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().session_lost, 1);
}

TEST_F(HoldTest, UnsubscribingEndsIt) {
  simulation_->unsubscribe(1);
  EXPECT_EQ(held(), 0U);
  EXPECT_EQ(ended().session_lost, 1);
}

TEST_F(ApSteeringTest, WithoutASubscriptionNobodyIsHeld) {
  simulation_->disconnected(1);
  walk_to(14);
  pass(5'000);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, full"}));
}

TEST_F(ApSteeringTest, AControllerThatDoesNotBalanceIsNotWaitedFor) {
  say(1, "rrm-info", {{"use-load-balance", 0}});
  walk_to(14);
  pass(5'000);
  EXPECT_EQ(sent(1).at(0)["need-ack"], 0);
  EXPECT_TRUE(ap(1).held().all().empty());
}

TEST_F(ApSteeringTest, AnApWhoseRadiosAreLockedForTheBalancerWaitsForNobody) {
  const auto lock = [this](int id) {
    Radio radio = *simulation_->world().radio(1, id);
    radio.locked_for_balancer = true;
    ASSERT_EQ(simulation_->reconfigure(1, radio), "");
  };
  const auto visit = [this] {
    walk_to(14);
    pass(5'000);
    const bool held = ap(1).held().holds(client_);
    walk_to(4);
    pass(5'000);
    return held;
  };
  lock(0);
  lock(1);
  EXPECT_TRUE(visit());
  lock(2);
  EXPECT_FALSE(visit());
}

// --- whom it asks to move

class OverloadTest : public ApSteeringTest {
 protected:
  // Two clients on A's 5 GHz radio, at x = 7 and x = 9; the second one is heard worse, and B by both well.
  void SetUp() override {
    begin(with(with(two_aps, R"("position": [5, 5]}])", R"("position": [7, 5]}])"), R"("clients": [)",
               R"("clients": [{"mac": "02:c1:00:00:00:02", "ssid": "staff", "bands": [5], "position": [9, 5]}, )"));
    ASSERT_EQ(simulation_->stations().served_by(0, 1).size(), 2U);
  }

  static Json neighbour(const char* bssid, int priority, int band = 5, const char* ssid = "staff") {
    return {{"neighbour-mac", "02:00:5E:00:02:10"},
            {"band", band},
            {"priority", priority},
            {"vaps", Json::array({{{"id", 0}, {"ssid", ssid}, {"mac", bssid}}})}};
  }
  void overload(int count, const std::vector<Json>& list, int radio_id = 1) {
    say(0, "rrm-sta-overload",
        {{"802dot11k", list}, {"radios", Json::array({{{"id", radio_id}, {"roam-count", count}}})}});
  }
  static constexpr const char* b1 = "02:00:5E:00:02:10";
};

TEST_F(OverloadTest, TheWorstServedStationMovesAndTheControllerIsToldBefore) {
  overload(1, {neighbour(b1, 255)});
  auto messages = sent(0);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-sta-roam",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "radio": 1, "sta-mac": "02:c1:00:00:00:02",
      "target-mac": "02:00:5e:00:02:10"})"));
  pass(1'000);
  EXPECT_EQ(sent_commands(0), (Lines{"rrm-client-disassoc"}));
  EXPECT_EQ(sent_commands(1), (Lines{"rrm-client-assoc"}));
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:02 moved A1 to B1: transition, full, held"}));
}

TEST_F(OverloadTest, MovesNoMoreThanItIsTold) {
  overload(0, {neighbour(b1, 255)});
  EXPECT_TRUE(sent(0).empty());
  overload(-1, {neighbour(b1, 255)});
  EXPECT_TRUE(sent(0).empty());
  overload(5, {neighbour(b1, 255)});
  EXPECT_EQ(sent_commands(0), (Lines{"rrm-sta-roam", "rrm-sta-roam"}));
}

TEST_F(OverloadTest, OneThatDeclinesMakesRoomForTheNext) {
  begin(with(with(two_aps, R"("position": [5, 5]}])", R"("position": [7, 5]}])"), R"("clients": [)",
             R"("clients": [{"mac": "02:c1:00:00:00:02", "ssid": "staff", "bands": [5], "position": [9, 5],
                "temper": "refuses"}, )"));
  overload(1, {neighbour(b1, 255)});
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0]["sta-mac"], client_mac);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:02 declined A1: transition"}));
}

TEST_F(OverloadTest, OnlyNeighboursOfTheRadiosBandWithTheStationsSsidAreProposed) {
  overload(1, {neighbour("02:00:5E:00:02:00", 255, 2),
               neighbour(b1, 255, 5, "guest"),
               {{"neighbour-mac", b1}, {"band", 5}, {"priority", 255}}});
  EXPECT_TRUE(sent(0).empty());
  EXPECT_EQ(events(), Lines{});  // with nothing to propose, nobody is asked
  overload(1, {neighbour(b1, 255)});
  EXPECT_EQ(sent_commands(0), (Lines{"rrm-sta-roam"}));
}

TEST_F(OverloadTest, TheListOfAnEarlierMessageServesToo) {
  say(0, "rrm-info", {{"802dot11k", Json::array({neighbour(b1, 127)})}});
  say(0, "rrm-sta-overload", radios({{{"id", 1}, {"roam-count", 1}}}));
  EXPECT_EQ(sent_commands(0), (Lines{"rrm-sta-roam"}));
}

TEST_F(OverloadTest, AStationWithoutReasonDeclinesALastResort) {
  overload(1, {neighbour(b1, 0)});
  EXPECT_TRUE(sent(0).empty());
  EXPECT_EQ(events(),
            (Lines{"02:c1:00:00:00:02 declined A1: transition", "02:c1:00:00:00:01 declined A1: transition"}));
}

TEST_F(OverloadTest, NobodyIsAskedAgainBeforeTheControllersTimeIsOver) {
  say(0, "rrm-info", radios({{{"id", 1}, {"dunva-roam-attempt-timeout", 20}}}));
  overload(1, {neighbour(b1, 0)});
  EXPECT_EQ(events().size(), 2U);
  pass(19'999);
  overload(1, {neighbour(b1, 255)});
  EXPECT_TRUE(sent(0).empty());
  pass(1);
  overload(1, {neighbour(b1, 255)});
  EXPECT_EQ(sent_commands(0), (Lines{"rrm-sta-roam"}));
}

TEST_F(OverloadTest, WithoutWordOfTheControllerItIsTenMinutes) {
  overload(1, {neighbour(b1, 0)});
  pass(599'999);
  overload(1, {neighbour(b1, 255)});
  EXPECT_TRUE(sent(0).empty());
  pass(1);
  overload(1, {neighbour(b1, 255)});
  EXPECT_EQ(sent_commands(0), (Lines{"rrm-sta-roam"}));
}

TEST_F(OverloadTest, ARadioThatItHasNotIsPassedOver) {
  overload(1, {neighbour(b1, 255)}, 9);
  EXPECT_TRUE(sent(0).empty());
}

TEST_F(OverloadTest, WhoIsHeldOrLeftAloneOrHasNoTransitionsIsNotAsked) {
  Radio plain = *simulation_->world().radio(0, 1);
  plain.vaps[0].use_80211v = false;
  ASSERT_EQ(simulation_->reconfigure(0, plain), "");
  sent(0);
  overload(2, {neighbour(b1, 255)});
  EXPECT_TRUE(sent(0).empty());
  plain.vaps[0].use_80211v = true;
  ASSERT_EQ(simulation_->reconfigure(0, plain), "");

  // Both are sent away and find all closed: the second one may return at once, and the first is let in for good.
  say(0, "rrm-blacklist", radios({block(1, 30), block(0, 30)}));
  say(1, "rrm-blacklist", radios({block(1, 30), block(0, 30)}));
  say(0, "rrm-disassoc-request",
      radios({{{"id", 1}, {"diassoc-list", Json::array({{{"mac", client_mac}, {"ssid", "staff"}, {"timeout", 30}}})}},
              {{"id", 1},
               {"diassoc-list", Json::array({{{"mac", "02:c1:00:00:00:02"}, {"ssid", "staff"}, {"timeout", 0}}})}}}));
  pass(4'000);
  ASSERT_EQ(association(), (Association{0, 1, true}));
  ASSERT_EQ(simulation_->stations().served_by(0, 1).size(), 2U);
  ASSERT_EQ(ap(0).held().all().size(), 2U);
  sent(0);
  overload(2, {neighbour(b1, 255)});
  EXPECT_TRUE(sent(0).empty());

  pass(10'000);  // the holds are over
  ASSERT_TRUE(ap(0).held().all().empty());
  overload(2, {neighbour(b1, 255)});
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0]["sta-mac"], "02:c1:00:00:00:02");
}

// --- what it says of signals

TEST_F(ApSteeringTest, AStationThatCrossesALineIsReportedThoughItsSignalChangedLittle) {
  struct Case {
    const char* label;
    int strong;
    bool reported;
  };
  // Beside A it is heard at -35 dBm, a step aside at -36.
  for (const Case& c : {Case{"above the line and above", -37, false},
                        {"from above the line onto it", -36, true},
                        {"on the line and below", -35, false}}) {
    begin(two_aps);
    say(0, "rrm-info", radios({{{"id", 1}, {"dunva-sta-rssi-thr-high", c.strong}}}));
    walk_to(5.3);
    pass(20'000);
    const auto messages = sent(0);
    EXPECT_EQ(!messages.empty(), c.reported) << c.label;
    if (!messages.empty()) {
      EXPECT_EQ(messages[0], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-assoc-state-changed",
          "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "sta-mac": "02:c1:00:00:00:01", "ssid": "staff",
          "state": "stable", "rssi": -36, "radio": 1})"));
    }
  }
}

// --- the same again

// Walkers of every temper, chance in the air, and orders in between; told whole, with what each AP says meanwhile.
class RerunTest : public testing::ScriptedController {
 protected:
  std::vector<std::string> run(Millis begin, int seed) {
    now_ = begin;
    std::string walkers;
    int number = 11;
    for (const char* const temper : {"obedient", "refuses", "sticks", "comes_back"}) {
      walkers += R"({"mac": "02:c1:00:00:01:)" + std::to_string(number++) +
                 R"(", "ssid": "staff", "bands": [2, 5], "position": [3, 5],
          "path": [[17, 5], [3, 5]], "temper": ")" +
                 temper + R"(", "from": 2}, )";
    }
    start(with(with(with(two_aps, R"("clients": [)", R"("clients": [)" + walkers), R"("seed": 7)",
                    R"("seed": )" + std::to_string(seed)),
               R"("shadowing_db": 0)", R"("shadowing_db": 6)"));
    subscribe_all();
    std::vector<std::string> told;
    for (int second = 0; second < 90; ++second) {
      pass(1'000);
      if (second % 20 == 10) {
        order(second % 40 == 10 ? 0 : 1);
      }
      for (std::size_t ap = 0; ap < 2; ++ap) {
        const auto texts = simulation_->take_outgoing(ap);
        told.insert(told.end(), texts.begin(), texts.end());
      }
      const auto lines = events();
      told.insert(told.end(), lines.begin(), lines.end());
    }
    return told;
  }

  void order(std::size_t ap) {
    const char* const peer = ap == 0 ? "02:00:5e:00:02:10" : "02:00:5e:00:01:10";
    say(ap, "rrm-sta-overload",
        {{"802dot11k",
          Json::array({{{"band", 5}, {"priority", 255}, {"vaps", Json::array({{{"ssid", "staff"}, {"mac", peer}}})}}})},
         {"radios", Json::array({{{"id", 1}, {"roam-count", 3}}})}});
  }
};

TEST_F(RerunTest, TheSameSiteAndMessagesGiveTheSameEventsWheneverTheyBegin) {
  const auto first = run(1'000, 7);
  ASSERT_GT(first.size(), 100U);
  EXPECT_EQ(run(987'654'321, 7), first);
  EXPECT_NE(run(1'000, 8), first);
}

}  // namespace
}  // namespace sim
