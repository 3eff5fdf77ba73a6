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

TEST_F(AgentTest, FastTransitionVapsCarryTheirKeyHolders) {
  start(with(two_aps, R"({"id": 1, "ssid": "guest"})", R"({"id": 1, "ssid": "guest", "802dot11r": true})"));
  simulation_->connected(0, now_);
  const Json vap = only(0)["radios"][0]["vaps"][1];
  EXPECT_EQ(vap["802dot11r"], 1);
  EXPECT_EQ(vap["fbt-r0-keyholder"], "SN1");
  EXPECT_EQ(vap["fbt-r1-keyholder"], "02:00:5e:00:01:01");
  EXPECT_EQ(vap["fbt-rrb-key"].get<std::string>().size(), 16U);
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

// The client sits one metre beside A, and ten beside B's wall.
TEST_F(AgentTest, AnswersWhichStationsItHears) {
  subscribe(1);
  say(1, "rrm-probe-request",
      {{"radios", Json::array({{{"id", 1},
                                {"probe-list", Json::array({{{"mac", "02:C1:00:00:00:01"}, {"ssid", "staff"}},
                                                            {{"mac", "02:c1:00:00:00:09"}, {"ssid", "staff"}},
                                                            {{"mac", "nobody"}}})}},
                               {{"id", 2}, {"probe-list", Json::array({{{"mac", "02:c1:00:00:00:01"}}})}},
                               {{"id", 9}, {"probe-list", Json::array({{{"mac", "02:c1:00:00:00:01"}}})}}})}});
  pass(499);
  EXPECT_TRUE(sent(1).empty());
  pass(1);
  const Json answer = only(1);
  EXPECT_EQ(answer["cmd"], "rrm-probe-response");
  // 15 + 4 - 1 - (40.05 + 6.73 + 19.25 + 7) = -55.03, heard on the radio of a band that the client has.
  EXPECT_EQ(answer["radios"], Json::parse(R"([{"id": 1, "probe-list":
      [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "rssi": -55}]}])"));
}

TEST_F(AgentTest, HearingNobodyItDoesNotAnswer) {
  subscribe(1);
  say(1, "rrm-probe-request",
      {{"radios", Json::array({{{"id", 1}, {"probe-list", Json::array({{{"mac", "02:c1:00:00:00:09"}}})}}})}});
  pass(1'000);
  EXPECT_TRUE(sent(1).empty());
}

TEST_F(AgentTest, ADismissedStationIsReportedAtBothAps) {
  subscribe_all();
  say(0, "rrm-disassoc-request",
      {{"radios",
        Json::array(
            {{{"id", 1},
              {"diassoc-list", Json::array({{{"mac", "02:C1:00:00:00:01"}, {"ssid", "staff"}, {"timeout", 30}}})}},
             {{"id", 0},
              {"diassoc-list", Json::array({{{"mac", "02:C1:00:00:00:01"}, {"ssid", "staff"}, {"timeout", 30}}})}}})}});
  // A's other radio takes the station in for a moment, until the second entry closes that too.
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[0]["cmd"], "rrm-client-disassoc");
  EXPECT_EQ(messages[0]["radio"], 1);
  EXPECT_EQ(messages[0]["sta-mac"], "02:c1:00:00:00:01");
  EXPECT_EQ(messages[0]["ssid"], "staff");
  EXPECT_EQ(messages[1]["cmd"], "rrm-client-assoc");
  EXPECT_EQ(messages[2]["cmd"], "rrm-client-disassoc");
  EXPECT_EQ(messages[2]["radio"], 0);
  EXPECT_EQ(sent_commands(1), (std::vector<std::string>{"rrm-client-assoc"}));
}

TEST_F(AgentTest, ABlacklistedStationIsTurnedAwayUntilItInsists) {
  subscribe_all();
  const auto block = [](int id) {
    return Json{{"id", id},
                {"blacklist", Json::array({{{"mac", "02:C1:00:00:00:01"}, {"action", "block"}, {"timeout", 30}}})}};
  };
  say(1, "rrm-blacklist", {{"radios", Json::array({block(0), block(1), block(2)})}});
  say(0, "rrm-blacklist", {{"radios", Json::array({block(0)})}});
  say(0, "rrm-disassoc-request",
      {{"radios",
        Json::array({{{"id", 1}, {"diassoc-list", Json::array({{{"mac", "02:C1:00:00:00:01"}, {"timeout", 30}}})}}})}});
  EXPECT_FALSE(simulation_->stations().all()[0].association.has_value());
  sent(0);
  pass(0);  // the clock of the stations starts
  pass(1'000);
  const Json joined = only(0);
  EXPECT_EQ(joined["cmd"], "rrm-client-assoc");
  EXPECT_EQ(joined["no-balance"], 1);
  EXPECT_EQ(joined["need-ack"], 1);
}

TEST_F(AgentTest, AnUnblockedStationComesInAgain) {
  subscribe_all();
  const auto entry = [](const char* action) {
    return Json{
        {"radios",
         Json::array(
             {{{"id", 1},
               {"blacklist", Json::array({{{"mac", "02:c1:00:00:00:01"}, {"action", action}, {"timeout", 1000}}})}}})}};
  };
  say(0, "rrm-blacklist", entry("block"));
  say(0, "rrm-blacklist", entry("unblock"));
  const Mac station = site_.clients[0].mac;
  simulation_->received(0, "", now_);
  say(0, "rrm-disassoc-request",
      {{"radios",
        Json::array({{{"id", 1}, {"diassoc-list", Json::array({{{"mac", station.text()}, {"timeout", 0}}})}}})}});
  EXPECT_EQ(simulation_->stations().find(station)->association, (Association{0, 1, false}));
}

TEST_F(AgentTest, AnOverloadedRadioSendsAStationToANeighbour) {
  subscribe_all();
  say(0, "rrm-sta-overload",
      {{"802dot11k", Json::array({{{"neighbour-mac", "02:00:5E:00:02:10"}, {"priority", 255}}})},
       {"radios", Json::array({{{"id", 1}, {"roam-count", 1}}})}});
  const auto messages = sent(0);
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0]["cmd"], "rrm-sta-roam");
  EXPECT_EQ(messages[0]["radio"], 1);
  EXPECT_EQ(messages[0]["target-mac"], "02:00:5e:00:02:10");
  EXPECT_EQ(messages[1]["cmd"], "rrm-client-disassoc");
  EXPECT_EQ(sent_commands(1), (std::vector<std::string>{"rrm-client-assoc"}));
}

TEST_F(AgentTest, ANeighbourWithoutPriorityIsNoTarget) {
  subscribe_all();
  say(0, "rrm-sta-overload",
      {{"802dot11k", Json::array({{{"neighbour-mac", "02:00:5E:00:02:10"}, {"priority", 0}}})},
       {"radios", Json::array({{{"id", 1}, {"roam-count", 1}}})}});
  EXPECT_TRUE(sent(0).empty());
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

TEST_F(AgentTest, LinksOfFastTransitionAreTakenInSilence) {
  subscribe(0);
  say(0, "fbt-info", {{"vaps", Json::array({{{"remotes", Json::array({Json::object(), Json::object()})}}})}});
  EXPECT_TRUE(sent(0).empty());
  EXPECT_TRUE(log_.empty());
}

}  // namespace
}  // namespace sim
