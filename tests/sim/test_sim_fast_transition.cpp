// Fast transition (802.11r): which APs can hand a client's keys to each other with what the controller told them, and
// what becomes of a client that walks between them.
#include "scripted_controller.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

KeyHolderLink link_to(const KeyHolder& holder) {
  return {holder.r0_id, holder.r1_id, holder.key};
}

KeyHolder holder(const std::string& r0_id, const std::string& r1_id, const std::string& key) {
  KeyHolder result;
  result.key = key;
  result.r0_id = r0_id;
  result.r1_id = r1_id;
  return result;
}

TEST(KeyHolders, ExchangeKeysWhereBothLinksNameThePresentIdsAndKeys) {
  const KeyHolder a = holder("SN1", "02:00:5e:00:01:10", "AAAAAAAAAAAAAAAA");
  const KeyHolder b = holder("SN2", "02:00:5e:00:02:10", "BBBBBBBBBBBBBBBB");
  struct Case {
    const char* label;
    std::vector<KeyHolderLink> of_a;
    std::vector<KeyHolderLink> of_b;
    bool works;
  };
  const KeyHolderLink elsewhere{"SN3", "02:00:5e:00:03:10", "CCCCCCCCCCCCCCCC"};
  for (const Case& c : {
           Case{"no links", {}, {}, false},
           {"both links", {link_to(b)}, {link_to(a)}, true},
           {"both links among others", {elsewhere, link_to(b)}, {link_to(a), elsewhere}, true},
           {"only one end", {link_to(b)}, {}, false},
           {"only the other end", {}, {link_to(a)}, false},
           {"an R1 id in capitals, with the local bit flipped",
            {{"SN2", "00:00:5E:00:02:10", b.key}},
            {link_to(a)},
            true},
           {"another R1 id", {{"SN2", "02:00:5e:00:02:11", b.key}}, {link_to(a)}, false},
           {"an R1 id that is no address", {{"SN2", "b", b.key}}, {link_to(a)}, false},
           {"another R0 id", {{"sn2", b.r1_id, b.key}}, {link_to(a)}, false},
           {"an old key", {{"SN2", b.r1_id, "DDDDDDDDDDDDDDDD"}}, {link_to(a)}, false},
           {"the link to all at both ends",
            {{"*", "ff:ff:ff:ff:ff:ff", "K"}},
            {elsewhere, {"*", "FF:FF:FF:FF:FF:FF", "K"}},
            true},
           {"the link to all with two keys",
            {{"*", "ff:ff:ff:ff:ff:ff", "K"}},
            {{"*", "ff:ff:ff:ff:ff:ff", "L"}},
            false},
           {"the link to all at one end", {{"*", "ff:ff:ff:ff:ff:ff", "K"}}, {link_to(a)}, false},
           {"a link to all R0 ids only", {{"*", b.r1_id, "K"}}, {{"*", a.r1_id, "K"}}, false},
       }) {
    KeyHolder one = a;
    KeyHolder other = b;
    one.links = c.of_a;
    other.links = c.of_b;
    EXPECT_EQ(can_exchange_keys(one, other), c.works) << c.label;
    EXPECT_EQ(can_exchange_keys(other, one), c.works) << c.label << ", seen from the other end";
  }
}

//  A, B and C stand in a row, ten metres apart; the client walks from one to the other. 5 GHz only, SSID "staff".
class FastTransitionTest : public testing::ScriptedController {
 protected:
  using Lines = std::vector<std::string>;

  void SetUp() override {
    start(R"({"name": "row", "domain": "lab", "floor": {"width": 30, "depth": 10},
      "radio_model": {"shadowing_db": 0, "noise_db": 0},
      "radio_profile": [{"id": 1, "band": 5, "channel": 36, "power": 20, "power_min": 5, "power_max": 20,
        "available_channels": [36], "vaps": [{"id": 2, "ssid": "staff", "802dot11r": true}]}],
      "access_points": [{"name": "A", "mac": "02:00:5e:00:01:00", "position": [5, 5]},
                        {"name": "B", "mac": "02:00:5e:00:02:00", "position": [15, 5]},
                        {"name": "C", "mac": "02:00:5e:00:03:00", "position": [25, 5]}],
      "clients": [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "bands": [5], "position": [5, 6], "from": 1}]})");
    for (std::size_t ap = 0; ap < 3; ++ap) {
      subscribe(ap, {{"use-load-balance", 0}});
    }
  }

  // What the controller calls the VAP of an AP: its serial, its BSSID, its key.
  static KeyHolder identity(std::size_t ap) {
    const std::string digit = std::to_string(ap + 1);
    return holder("SN" + digit, "02:00:5E:00:0" + digit + ":12", "KEY-" + digit);
  }
  static Json link_to(std::size_t ap) {
    const KeyHolder peer = identity(ap);
    return {{"remote-r0-kh-id", peer.r0_id}, {"remote-r1-kh-id", peer.r1_id}, {"remote-r1-kh-key", peer.key}};
  }
  void tell_links(std::size_t ap, const std::vector<std::size_t>& peers, const Json& other = Json::object()) {
    const KeyHolder own = identity(ap);
    Json vap = {{"vap_id", 2},
                {"radio_id", 1},
                {"fbt-rrb-key", own.key},
                {"mobility-domain", 4711},
                {"r0-key-holder-id", own.r0_id},
                {"r1-key-holder-id", own.r1_id},
                {"remotes", Json::array()}};
    for (const std::size_t peer : peers) {
      vap["remotes"].push_back(link_to(peer));
    }
    vap.update(other);
    say(ap, "fbt-info",
        {{"morvane-use-80211r", 1}, {"fbt-over-ds", 0}, {"fbt-reassoc-deadline", 1000}, {"vaps", Json::array({vap})}});
  }
  void link_all() {
    tell_links(0, {1, 2});
    tell_links(1, {0, 2});
    tell_links(2, {0, 1});
  }
  // The client appears beside A.
  void appear() {
    pass(0);
    pass(1'000);
    ASSERT_EQ(events(), (Lines{"02:c1:00:00:00:01 joined A1: arrival, full"}));
  }
  void go(std::size_t ap) {
    simulation_->enter(site_.clients[0].mac, {5 + 10 * static_cast<double>(ap), 6, 1.2});
    pass(5'000);
  }
};

TEST_F(FastTransitionTest, KeepsWhatTheControllerTold) {
  tell_links(0, {1});
  const auto& holders = simulation_->access_point(0).key_holders();
  ASSERT_EQ(holders.size(), 1U);
  EXPECT_EQ(holders[0].radio, 1);
  EXPECT_EQ(holders[0].vap, 2);
  EXPECT_EQ(holders[0].key, "KEY-1");
  EXPECT_EQ(holders[0].mobility_domain, 4711);
  EXPECT_EQ(holders[0].r0_id, "SN1");
  EXPECT_EQ(holders[0].r1_id, "02:00:5E:00:01:12");
  ASSERT_EQ(holders[0].links.size(), 1U);
  EXPECT_EQ(holders[0].links[0].r0_id, "SN2");
  EXPECT_EQ(holders[0].links[0].r1_id, "02:00:5E:00:02:12");
  EXPECT_EQ(holders[0].links[0].key, "KEY-2");
  EXPECT_TRUE(sent(0).empty());
  tell_links(0, {});
  EXPECT_TRUE(simulation_->access_point(0).key_holders().at(0).links.empty());
  EXPECT_TRUE(log_.empty());
}

TEST_F(FastTransitionTest, LinkedApsPassAClientOnQuickly) {
  link_all();
  appear();
  go(1);
  go(2);
  go(0);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, fast",
                             "02:c1:00:00:00:01 moved B1 to C1: own choice, fast",
                             "02:c1:00:00:00:01 moved C1 to A1: own choice, fast"}));
}

// B and C are linked, but the client's keys are at A.
TEST_F(FastTransitionTest, TheLinkThatCountsIsTheOneToWhereTheKeysWereMade) {
  tell_links(0, {1});
  tell_links(1, {0, 2});
  tell_links(2, {1});
  appear();
  go(1);
  go(2);
  go(1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, fast",
                             "02:c1:00:00:00:01 moved B1 to C1: own choice, full",
                             "02:c1:00:00:00:01 moved C1 to B1: own choice, fast"}));
}

TEST_F(FastTransitionTest, WithoutWordOfTheControllerEveryAuthenticationIsFull) {
  appear();
  go(1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, full"}));
}

TEST_F(FastTransitionTest, KeysMadeBeforeTheControllerSpokeAreNone) {
  appear();
  link_all();
  go(1);
  go(2);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, full",
                             "02:c1:00:00:00:01 moved B1 to C1: own choice, fast"}));
}

TEST_F(FastTransitionTest, IsFullWhereSomethingDoesNotFit) {
  struct Case {
    const char* label;
    std::size_t ap;  // that is told something else, after the client has joined A
    Json other;
  };
  for (const Case& c : {
           Case{"another mobility domain at the target", 1, {{"mobility-domain", 4712}}},
           {"another mobility domain where the keys are", 0, {{"mobility-domain", 4712}}},
           {"an R0 key holder that is not the client's any more", 0, {{"r0-key-holder-id", "SN9"}}},
           {"another key at the target", 1, {{"fbt-rrb-key", "KEY-9"}}},
           {"another key where the keys are", 0, {{"fbt-rrb-key", "KEY-9"}}},
           {"a target without an id", 1, {{"r0-key-holder-id", ""}}},
           {"a VAP that the target has not", 1, {{"vap_id", 3}}},
           {"a radio that the target has not", 1, {{"radio_id", 2}}},
       }) {
    SetUp();
    link_all();
    appear();
    tell_links(c.ap, {1 - c.ap}, c.other);
    go(1);
    EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, full"})) << c.label;
  }
}

// All links are right, but the client's keys are those of a holder with another name.
TEST_F(FastTransitionTest, AHolderThatWasRenamedKnowsNoOldKeys) {
  link_all();
  appear();
  tell_links(0, {1}, {{"r0-key-holder-id", "SN9"}});
  Json renamed = link_to(0);
  renamed["remote-r0-kh-id"] = "SN9";
  tell_links(1, {}, {{"remotes", Json::array({renamed})}});
  go(1);
  go(0);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, full",
                             "02:c1:00:00:00:01 moved B1 to A1: own choice, fast"}));
}

TEST_F(FastTransitionTest, IsFullWhereTheSsidOfTheTargetHasNone) {
  link_all();
  appear();
  Radio plain = *simulation_->world().radio(1, 1);
  plain.vaps[0].use_80211r = false;
  ASSERT_EQ(simulation_->reconfigure(1, plain), "");
  go(1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, full"}));
}

// The client moves on to B, and then A, which made its keys, goes off the air.
TEST_F(FastTransitionTest, IsFullWhereTheHolderOfTheKeysIsGone) {
  link_all();
  appear();
  go(1);
  Radio off = *simulation_->world().radio(0, 1);
  off.enabled = false;
  ASSERT_EQ(simulation_->reconfigure(0, off), "");
  go(2);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, fast",
                             "02:c1:00:00:00:01 moved B1 to C1: own choice, full"}));
}

TEST_F(FastTransitionTest, TheLinkToAllServesEverybodyWhoHasIt) {
  const Json to_all = {{"remotes", Json::array({{{"remote-r0-kh-id", "*"},
                                                 {"remote-r1-kh-id", "ff:ff:ff:ff:ff:ff"},
                                                 {"remote-r1-kh-key", "everybody"}}})}};
  tell_links(0, {}, to_all);
  tell_links(1, {}, to_all);
  tell_links(2, {});
  appear();
  go(1);
  go(2);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, fast",
                             "02:c1:00:00:00:01 moved B1 to C1: own choice, full"}));
}

TEST_F(FastTransitionTest, LinksOutliveTheSession) {
  link_all();
  appear();
  simulation_->disconnected(0);
  simulation_->disconnected(1);
  go(1);
  EXPECT_EQ(events(), (Lines{"02:c1:00:00:00:01 moved A1 to B1: own choice, fast"}));
}

// Two radios of one AP need no link between them.
TEST(FastTransitionOnOneAp, IsFastBetweenItsRadios) {
  const Site site = parse_site(with(two_aps, R"("vaps": [{"id": 0, "ssid": "staff"}, {"id": 1, "ssid": "guest"}]},
    {"id": 1, "band": 5, "channel": 36, "bandwidth": 80, "power": 23, "power_min": 5, "power_max": 23,
     "antenna_gain": 4, "cable_loss": 1, "available_channels": [36, 40, 44, 48, 52, 100],
     "vaps": [{"id": 0, "ssid": "staff"}]})",
                                    R"("vaps": [{"id": 0, "ssid": "staff", "802dot11r": true}]},
    {"id": 1, "band": 5, "channel": 36, "power": 23, "power_min": 5, "power_max": 23,
     "available_channels": [36], "vaps": [{"id": 0, "ssid": "staff", "802dot11r": true}]})"));
  std::vector<SteeringEvent> events;
  Simulation simulation(
      site, [](const std::string&) {}, [&](const SteeringEvent& event) { events.push_back(event); });
  simulation.received(0, R"({"service": "rrm", "cmd": "fbt-info", "vaps": [
      {"vap_id": 0, "radio_id": 0, "fbt-rrb-key": "K0", "mobility-domain": 1, "r0-key-holder-id": "SN1",
       "r1-key-holder-id": "02:00:5e:00:01:00"},
      {"vap_id": 0, "radio_id": 1, "fbt-rrb-key": "K1", "mobility-domain": 1, "r0-key-holder-id": "SN1",
       "r1-key-holder-id": "02:00:5e:00:01:10"}]})",
                      0);
  const Mac client = site.clients[0].mac;
  simulation.leave(client);  // it came before the AP had keys
  simulation.enter(client, {5, 5, 1.2});
  simulation.tick(0);
  simulation.tick(1000);
  ASSERT_EQ(simulation.stations().find(client)->association, (Association{0, 1, false}));
  Radio weak = *simulation.world().radio(0, 1);
  weak.power = 5;
  weak.antenna_gain = -20;
  ASSERT_EQ(simulation.reconfigure(0, weak), "");
  simulation.tick(6000);
  EXPECT_EQ(testing::line_of(events.back()), "02:c1:00:00:00:01 moved A1 to A0: own choice, fast");
}

}  // namespace
}  // namespace sim
