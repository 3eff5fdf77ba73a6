// The AP's side of the protocol, message by message, against a scripted controller.
#include "scripted_controller.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

class AgentTest : public testing::ScriptedController {
 protected:
  void SetUp() override { start(two_aps); }

  Json only(std::size_t ap) {
    const auto messages = sent(ap);
    EXPECT_EQ(messages.size(), 1U);
    return messages.empty() ? Json() : messages.front();
  }
};

TEST_F(AgentTest, SubscribesAsSoonAsItIsConnected) {
  EXPECT_TRUE(sent(0).empty());
  simulation_->connected(0, now_);
  EXPECT_EQ(only(0), Json::parse(R"({
    "service": "rrm", "version": "2.4", "cmd": "subscribe-request", "ap-mac": "02:00:5e:00:01:00", "domain": "lab",
    "factory": {"board": "SIM-AP3", "hw": "1.0", "serial": "SN1", "mac": "02:00:5e:00:01:00"},
    "ap-mac-count": 48, "use-wildcard-80211r": 0,
    "radios": [
      {"id": 0, "status": 1, "channel": 1, "band": 2, "power": 20, "power-max": 20, "power-min": 5,
       "antenna-configuration": {"antenna-gain": 3, "cable-loss": 0}, "bandwidth": 20, "primary-channel": "none",
       "available-channels": "1 6 11", "mac-offset": 0, "radio-mac-count": 16,
       "locked-for-tpc": 0, "locked-for-dca": 0, "locked-for-balancer": 0, "locked-for-80211v": 0,
       "vaps": [{"id": 0, "ssid": "staff", "mac": "02:00:5e:00:01:00", "802dot11k": 1, "802dot11r": 0, "802dot11v": 1},
                {"id": 1, "ssid": "guest", "mac": "02:00:5e:00:01:01", "802dot11k": 1, "802dot11r": 0, "802dot11v": 1}],
       "assoclist": []},
      {"id": 1, "status": 1, "channel": 36, "band": 5, "power": 23, "power-max": 23, "power-min": 5,
       "antenna-configuration": {"antenna-gain": 4, "cable-loss": 1}, "bandwidth": 80, "primary-channel": "ll",
       "available-channels": "36 40 44 48 52 100", "mac-offset": 16, "radio-mac-count": 16,
       "locked-for-tpc": 0, "locked-for-dca": 0, "locked-for-balancer": 0, "locked-for-80211v": 0,
       "vaps": [{"id": 0, "ssid": "staff", "mac": "02:00:5e:00:01:10", "802dot11k": 1, "802dot11r": 0, "802dot11v": 1}],
       "assoclist": [{"rssi": -35, "mac": "02:c1:00:00:00:01", "ssid": "staff"}]},
      {"id": 2, "status": 1, "channel": 165, "band": 6, "power": 23, "power-max": 23, "power-min": 5,
       "antenna-configuration": {"antenna-gain": 0, "cable-loss": 0}, "bandwidth": 80, "primary-channel": "lu",
       "available-channels": "165 181", "mac-offset": 32, "radio-mac-count": 16,
       "locked-for-tpc": 0, "locked-for-dca": 0, "locked-for-balancer": 0, "locked-for-80211v": 0,
       "vaps": [{"id": 0, "ssid": "staff", "mac": "02:00:5e:00:01:20", "802dot11k": 1, "802dot11r": 0, "802dot11v": 1}],
       "assoclist": []}
    ]})"));
}

TEST_F(AgentTest, AVapWithFastTransitionLeavesItsKeysToTheController) {
  start(with(two_aps, R"({"id": 1, "ssid": "guest"})", R"({"id": 1, "ssid": "guest", "802dot11r": true})"));
  simulation_->connected(0, now_);
  EXPECT_EQ(only(0)["radios"][0]["vaps"][1], Json::parse(R"({"id": 1, "ssid": "guest", "mac": "02:00:5e:00:01:01",
      "802dot11k": 1, "802dot11r": 1, "802dot11v": 1})"));
}

TEST_F(AgentTest, SaysWhatItsSiteSaysOfItsLocksAndItsKeyHolders) {
  start(with(with(two_aps, R"("serial": "SN1")", R"("serial": "SN1", "wildcard_80211r": true)"),
             R"("id": 1, "band": 5)", R"("id": 1, "locked_for_balancer": true, "locked_for_80211v": true, "band": 5)"));
  simulation_->connected(0, now_);
  const Json subscription = only(0);
  EXPECT_EQ(subscription["use-wildcard-80211r"], 1);
  EXPECT_EQ(subscription["radios"][0]["locked-for-balancer"], 0);
  EXPECT_EQ(subscription["radios"][1]["locked-for-balancer"], 1);
  EXPECT_EQ(subscription["radios"][1]["locked-for-80211v"], 1);
}

TEST_F(AgentTest, AsksAgainWhenTheSubscriptionIsNotAnswered) {
  simulation_->connected(0, now_);
  sent(0);
  pass(9'999);
  EXPECT_TRUE(sent(0).empty());
  pass(1);
  EXPECT_EQ(only(0)["cmd"], "subscribe-request");
  EXPECT_EQ(log_, (std::vector<std::string>{"A: no answer to the subscription, asking again"}));
}

TEST_F(AgentTest, SubscribedItAsksNoMore) {
  subscribe(0);
  EXPECT_TRUE(simulation_->subscribed(0));
  pass(60'000);
  EXPECT_TRUE(sent(0).empty());
}

// The first client is in the list of the subscription and goes; the second comes, and is heard at 15 + 3 - (40.05 +
// 0.04 + 6.27) = -28.36 dBm.
TEST_F(AgentTest, WhatChangedWhileTheSubscriptionWasAnsweredIsToldAfterIt) {
  start(with(two_aps, R"("clients": [)", R"("clients": [{"mac": "02:c1:00:00:00:02", "ssid": "staff", "bands": [2],
      "position": [5, 5], "from": 1}, )"));
  simulation_->connected(0, now_);
  sent(0);
  pass(0);
  pass(1'000);
  simulation_->leave(site_.clients[1].mac);
  EXPECT_TRUE(sent(0).empty());
  accept(0);
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-client-disassoc",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "radio": 1, "sta-mac": "02:c1:00:00:00:01", "ssid": "staff"})"));
  EXPECT_EQ(messages[1], Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-client-assoc",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "radio": 0, "rssi": -28, "sta-mac": "02:c1:00:00:00:02",
      "ssid": "staff", "no-balance": 0, "need-ack": 0})"));
}

// The list of a subscription cannot say who is to be left alone.
TEST_F(AgentTest, WhomTheApLetInForGoodIsToldAgainAfterASubscription) {
  subscribe_all();
  const Json entry = {{"mac", "02:c1:00:00:00:01"}, {"ssid", "staff"}, {"timeout", 30}};
  say(0, "rrm-info", {{"radios", Json::array({{{"id", 1}, {"dunva-try-no-balance", 0}}})}});
  say(0, "rrm-disassoc-request", {{"radios", Json::array({{{"id", 1}, {"diassoc-list", Json::array({entry})}}})}});
  pass(0);
  pass(2'000);
  ASSERT_EQ(simulation_->stations().all()[0].association, (Association{0, 1, true}));
  simulation_->disconnected(0);
  simulation_->connected(0, now_);
  sent(0);
  accept(0);
  EXPECT_EQ(only(0), Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-client-assoc",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab", "radio": 1, "rssi": -35, "sta-mac": "02:c1:00:00:00:01",
      "ssid": "staff", "no-balance": 1, "need-ack": 0})"));
}

TEST_F(AgentTest, UnsubscribedItSaysNoMoreUntilItsNextSession) {
  subscribe(0);
  simulation_->unsubscribe(0);
  EXPECT_EQ(sent_commands(0), (std::vector<std::string>{"unsubscribe-request"}));
  EXPECT_FALSE(simulation_->subscribed(0));
  simulation_->unsubscribe(0);
  simulation_->leave(site_.clients[0].mac);
  pass(60'000);
  EXPECT_TRUE(sent(0).empty());
  simulation_->disconnected(0);
  simulation_->connected(0, now_);
  EXPECT_EQ(sent_commands(0), (std::vector<std::string>{"subscribe-request"}));
}

TEST_F(AgentTest, ARefusedSubscriptionIsNone) {
  simulation_->connected(0, now_);
  say(0, "subscribe-response", {{"status", "fail"}, {"code", 503}});
  EXPECT_FALSE(simulation_->subscribed(0));
  EXPECT_EQ(log_, (std::vector<std::string>{"A: the subscription was refused with code 503"}));
}

TEST_F(AgentTest, TheConfigurationOfTheSubscriptionIsApplied) {
  simulation_->connected(0, now_);
  say(0, "subscribe-response", {{"status", "success"}, {"config", plan(52, 11)}});
  EXPECT_EQ(simulation_->world().radio(0, 1)->channel, 52);
  EXPECT_EQ(simulation_->world().radio(0, 1)->power, 11);
}

TEST_F(AgentTest, AnswersForItsModeAtOnce) {
  subscribe(0);
  say(0, "rrm-request-mode");
  const Json answer = only(0);
  EXPECT_EQ(answer["cmd"], "rrm-mode-response");
  EXPECT_EQ(answer["radios"].size(), 3U);
  EXPECT_FALSE(answer["radios"][0].contains("assoclist"));
}

TEST_F(AgentTest, ScansForItsTimeAndReportsEachRound) {
  subscribe(0);
  order_scan(0);
  pass(5'999);
  EXPECT_TRUE(sent(0).empty());
  pass(1);
  const Json answer = only(0);
  EXPECT_EQ(answer["cmd"], "rrm-response");
  ASSERT_EQ(answer["rf-environment"].size(), 2U);
  EXPECT_EQ(answer["rf-environment"][0].size(), 5U);
  EXPECT_EQ(answer["rf-environment"][0][2], Json::parse(R"({"bssid": "02:00:5e:00:02:10", "channel": 36, "band": 5,
      "tx-power": 23, "bandwidth": 80, "rssi": -45, "primary-channel": "ll"})"));
  pass(60'000);
  EXPECT_TRUE(sent(0).empty());
}

TEST_F(AgentTest, WaitsForItsTurnToScan) {
  subscribe(0);
  say(0, "rrm-update", {{"rrm-scan-delay", 50}, {"dunva-rrm-scanning", 1}});
  pass(55'999);
  EXPECT_TRUE(sent(0).empty());
  pass(1);
  EXPECT_EQ(only(0)["cmd"], "rrm-response");
}

// Five channels, a tenth of a second each, two rounds.
TEST_F(AgentTest, WithoutARadioOfItsOwnAScanTakesItsTimeOnEachChannel) {
  subscribe(0);
  say(0, "rrm-update",
      {{"dunva-rrm-scanning", 0},
       {"rrm-scan-channels-list", Json::array({{{"2", "1 6"}, {"5", "36 52"}, {"6", "165"}}})}});
  pass(999);
  EXPECT_TRUE(sent(0).empty());
  pass(1);
  EXPECT_EQ(only(0)["cmd"], "rrm-response");
}

TEST_F(AgentTest, AScanVisitsTheOrderedChannelsOnly) {
  subscribe(0);
  say(0, "rrm-update",
      {{"dunva-rrm-scanning", 1}, {"rrm-scan-channels-list", Json::array({{{"2", ""}, {"5", "100 nonsense"}}})}});
  pass(6'000);
  const Json answer = only(0);
  ASSERT_EQ(answer["rf-environment"][1].size(), 1U);
  EXPECT_EQ(answer["rf-environment"][1][0]["bssid"], "06:00:00:00:00:01");
}

TEST_F(AgentTest, ALostSessionEndsTheScan) {
  subscribe(0);
  order_scan(0);
  simulation_->disconnected(0);
  pass(10'000);
  EXPECT_TRUE(sent(0).empty());
  simulation_->connected(0, now_);
  EXPECT_EQ(sent_commands(0), (std::vector<std::string>{"subscribe-request"}));
}

TEST_F(AgentTest, ThePlanOfAnInfoIsApplied) {
  subscribe(0);
  say(0, "rrm-info", plan(52, 9));
  EXPECT_EQ(simulation_->world().radio(0, 1)->channel, 52);
  EXPECT_EQ(simulation_->world().radio(0, 1)->power, 9);
  EXPECT_TRUE(sent(0).empty());
}

TEST_F(AgentTest, CountsItsInfosAndKeepsTheLastListOfNeighbours) {
  subscribe(0, {{"802dot11k", Json::array()}});
  EXPECT_EQ(simulation_->access_point(0).neighbour_list(), "[]");
  say(0, "rrm-info", {{"802dot11k", Json::array({{{"neighbour-mac", "02:00:5E:00:02:10"}, {"priority", 127}}})}});
  say(0, "rrm-info");
  say(0, "rrm-info", {{"802dot11k", "no list"}});
  EXPECT_EQ(simulation_->access_point(0).neighbour_list(), R"([{"neighbour-mac":"02:00:5E:00:02:10","priority":127}])");
  EXPECT_EQ(simulation_->access_point(0).infos_received(), 3);
  EXPECT_EQ(simulation_->access_point(1).neighbour_list(), "");
}

TEST_F(AgentTest, TellsTheControllerOfAnotherConfiguration) {
  subscribe(0);
  Radio radio = *simulation_->world().radio(0, 1);
  radio.power_max = 25;
  radio.vaps.push_back({1, "guest"});
  EXPECT_EQ(simulation_->reconfigure(0, radio), "");
  const Json message = only(0);
  EXPECT_EQ(message["cmd"], "rrm-config-changed");
  EXPECT_EQ(message["radios"].size(), 3U);
  EXPECT_EQ(message["radios"][1]["power-max"], 25);
  EXPECT_EQ(message["radios"][1]["vaps"][1]["mac"], "02:00:5e:00:01:11");
  EXPECT_FALSE(message["radios"][1].contains("assoclist"));
}

TEST_F(AgentTest, AnImpossibleConfigurationChangesNothing) {
  subscribe(0);
  Radio radio = *simulation_->world().radio(0, 1);
  radio.bandwidth = 30;
  EXPECT_EQ(simulation_->reconfigure(0, radio), "no 30 MHz on channel 36 of radio 1");
  EXPECT_TRUE(sent(0).empty());
}

// While the controller still knows the radio, it can make something of who leaves it.
TEST_F(AgentTest, StationsOfARadioThatIsSwitchedOffAreReportedBeforeTheRadio) {
  subscribe(0);
  Radio radio = *simulation_->world().radio(0, 1);
  radio.enabled = false;
  EXPECT_EQ(simulation_->reconfigure(0, radio), "");
  EXPECT_EQ(sent_commands(0), (std::vector<std::string>{"rrm-client-disassoc", "rrm-config-changed"}));
  EXPECT_EQ(events().back(), "02:c1:00:00:00:01 left A1: radio gone");
}

TEST_F(AgentTest, RadiosThatStartAnewLoseAllStationsAtOnce) {
  subscribe(0);
  simulation_->restart_radios(0);
  EXPECT_EQ(only(0), Json::parse(R"({"service": "rrm", "version": "2.4", "cmd": "rrm-disassoc-all-clients",
      "ap-mac": "02:00:5e:00:01:00", "domain": "lab"})"));
  EXPECT_EQ(events().back(), "02:c1:00:00:00:01 left A1: radio gone");
}

TEST_F(AgentTest, AnImpossiblePlanIsToldAndLeftOut) {
  subscribe(0);
  say(0, "rrm-info", plan(149, 9));
  EXPECT_EQ(simulation_->world().radio(0, 1)->power, 23);
  EXPECT_EQ(log_,
            (std::vector<std::string>{"A: cannot set a radio as ordered: channel 149 is not available on radio 1"}));
}

TEST_F(AgentTest, WhatItDoesNotUnderstandIsToldAndHarmsNothing) {
  subscribe(0);
  simulation_->received(0, "no json", now_);
  simulation_->received(0, "[1]", now_);
  simulation_->received(0, "", now_);
  simulation_->received(0, R"({"service": "rrm", "cmd": "rrm-dance"})", now_);
  simulation_->received(0, R"({"service": "other", "cmd": "rrm-info"})", now_);
  simulation_->received(0, R"({"service": "rrm", "cmd": 5})", now_);
  simulation_->received(0, std::string(100, '['), now_);
  say(0, "rrm-info", {{"ap-mac", "02:00:5e:00:02:00"}, {"radios", plan(52, 9)["radios"]}});
  EXPECT_EQ(log_, (std::vector<std::string>{"A: ignored a text that is no JSON object: no json",
                                            "A: ignored a text that is no JSON object: [1]",
                                            "A: ignored a text that is no JSON object: ",
                                            R"(A: ignored an unknown message: {"service": "rrm", "cmd": "rrm-dance"})",
                                            R"(A: ignored an unknown message: {"service": "other", "cmd": "rrm-info"})",
                                            R"(A: ignored an unknown message: {"service": "rrm", "cmd": 5})",
                                            "A: ignored a text that is no JSON object: " + std::string(80, '[') + "...",
                                            "A: ignored rrm-info for 02:00:5e:00:02:00"}));
  EXPECT_EQ(simulation_->world().radio(0, 1)->channel, 36);
  EXPECT_TRUE(simulation_->subscribed(0));
}

TEST_F(AgentTest, FieldsOfTheWrongKindAreNoFields) {
  subscribe(0);
  say(0, "rrm-info", {{"radios", Json::array({{{"id", 1}, {"channel", "52"}, {"power", 9}, {"bandwidth", 1e30}}, 5})}});
  EXPECT_EQ(simulation_->world().radio(0, 1)->channel, 36);
  EXPECT_EQ(simulation_->world().radio(0, 1)->power, 9);
  say(0, "rrm-info", {{"radios", 7}, {"802dot11k", "x"}});
  say(0, "rrm-update", {{"rrm-scan-delay", "x"}, {"rrm-scan-channels-list", {{"2", "1"}}}});
  say(0, "subscribe-response", {{"status", "success"}, {"config", 3}});
  EXPECT_TRUE(simulation_->subscribed(0));
}

TEST_F(AgentTest, AWalkingStationsSignalIsReportedWhenItChanges) {
  start(with(two_aps, R"("position": [5, 5])", R"("position": [5, 5], "path": [[10, 5]], "speed": 0.25)"));
  subscribe_all();
  pass(0);
  for (int second = 2; second < 15; ++second) {
    pass(1'000);
  }
  EXPECT_TRUE(sent(0).empty());  // it joined at the start, and an AP reports every 15 seconds at most
  pass(1'000);
  const Json report = only(0);
  EXPECT_EQ(report["cmd"], "rrm-assoc-state-changed");
  EXPECT_EQ(report["sta-mac"], "02:c1:00:00:00:01");
  EXPECT_EQ(report["ssid"], "staff");
  EXPECT_EQ(report["state"], "stable");
  EXPECT_EQ(report["radio"], 1);
  EXPECT_LT(report["rssi"], -37);
}

}  // namespace
}  // namespace sim
