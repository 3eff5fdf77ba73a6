// What APs hear of each other, what reaches them as interference, and how orders change both.
#include <gtest/gtest.h>

#include <cmath>

#include "sim/world.h"
#include "sites.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

const ScanChannels every_channel = {{2, {1, 6, 11}}, {5, {36, 52, 100}}, {6, {165, 181}}};

// The first round of a scan.
ScanRound hear(const World& world, std::size_t ap, const ScanChannels& channels, std::uint64_t scan) {
  return world.hear(ap, channels, scan).at(0);
}

std::vector<std::string> bssids(const std::vector<HeardBss>& heard) {
  std::vector<std::string> result;
  for (const HeardBss& entry : heard) {
    result.push_back(entry.bssid.text());
  }
  return result;
}

class WorldTest : public ::testing::Test {
 protected:
  Site site_ = parse_site(two_aps);
  World world_{site_};

  RadioOrder order(int id) const {
    RadioOrder order;
    order.id = id;
    return order;
  }
};

TEST_F(WorldTest, ApHearsOneBeaconForEachVapAndTheForeignAp) {
  EXPECT_EQ(bssids(hear(world_, 0, every_channel, 0)),
            (std::vector<std::string>{"02:00:5e:00:02:00", "02:00:5e:00:02:01", "02:00:5e:00:02:10",
                                      "06:00:00:00:00:01", "02:00:5e:00:02:20"}));
}

// 2.4 GHz: 20 + 3 + 3 dBm - (40.05 + 20 log10(2412 / 2400) + 20 + 7) = 26 - 67.09 = -41.09.
// 5 GHz: 23 + 4 - 1 + 4 - 1 - (40.05 + 6.73 + 20 + 7) = 29 - 73.78 = -44.78, rounded -45.
// Foreign AP, 4 m, no wall: 15 + 4 - 1 - (40.05 + 20 log10(5500 / 2400) + 20 log10(4)) = 18 - 59.29 = -41.29.
// 6 GHz, block 167 at 6785 MHz: 23 - (40.05 + 9.03 + 20 + 7) = -53.08.
TEST_F(WorldTest, LevelsFollowTheModel) {
  const auto heard = hear(world_, 0, every_channel, 0);
  ASSERT_EQ(heard.size(), 5U);
  EXPECT_EQ(heard[0].rssi, -41);
  EXPECT_EQ(heard[2].rssi, -45);
  EXPECT_EQ(heard[3].rssi, -41);
  EXPECT_EQ(heard[4].rssi, -53);
}

TEST_F(WorldTest, BeaconTellsWhatTheSenderIsSetTo) {
  const HeardBss heard = hear(world_, 0, every_channel, 0)[2];
  EXPECT_EQ(heard.band, 5);
  EXPECT_EQ(heard.channel, 36);
  EXPECT_EQ(heard.bandwidth, 80);
  EXPECT_EQ(heard.primary, "ll");
  EXPECT_EQ(heard.tx_power, 23);
}

TEST_F(WorldTest, PowerOfThePlanIsHeard) {
  RadioOrder quieter = order(1);
  quieter.power = 10;
  EXPECT_EQ(world_.apply(1, quieter), "");
  EXPECT_EQ(hear(world_, 0, every_channel, 0)[2].rssi, -58);  // 13 dB less
  EXPECT_EQ(hear(world_, 0, every_channel, 0)[2].tx_power, 10);
}

TEST_F(WorldTest, ChannelAndWidthOfThePlanAreHeard) {
  RadioOrder away = order(1);
  away.channel = 52;
  away.bandwidth = 40;
  EXPECT_EQ(world_.apply(1, away), "");
  const HeardBss heard = hear(world_, 0, every_channel, 0)[2];
  EXPECT_EQ(heard.bssid.text(), "02:00:5e:00:02:10");
  EXPECT_EQ(heard.channel, 52);
  EXPECT_EQ(heard.bandwidth, 40);
  EXPECT_EQ(heard.primary, "lower");
  EXPECT_EQ(hear(world_, 0, {{5, {36}}}, 0).size(), 0U);
}

TEST_F(WorldTest, OnlyVisitedChannelsAreHeard) {
  EXPECT_EQ(bssids(hear(world_, 0, {{5, {100}}}, 0)), (std::vector<std::string>{"06:00:00:00:00:01"}));
  EXPECT_TRUE(hear(world_, 0, {}, 0).empty());
}

TEST_F(WorldTest, TheSensitivityThresholdIsInclusive) {
  site_.scan.sensitivity_dbm.at_6g = -53.08;
  EXPECT_EQ(hear(world_, 0, {{6, {165}}}, 0).size(), 1U);
  site_.scan.sensitivity_dbm.at_6g = -53.07;
  EXPECT_TRUE(hear(world_, 0, {{6, {165}}}, 0).empty());
}

TEST_F(WorldTest, ADisabledRadioNeitherHearsNorIsHeard) {
  site_.access_points[1].radios[2].enabled = false;
  const World world(site_);
  EXPECT_TRUE(hear(world, 0, {{6, {165}}}, 0).empty());
  EXPECT_TRUE(hear(world, 1, {{6, {165}}}, 0).empty());
}

TEST_F(WorldTest, RoundsDifferByNoiseAndRepeatExactly) {
  site_.radio_model.noise_db = 3;
  site_.scan.rounds = 12;
  const auto rounds = world_.hear(0, {{6, {165}}}, 4);
  const auto again = World(site_).hear(0, {{6, {165}}}, 4);
  ASSERT_EQ(rounds.size(), 12U);
  std::set<int> levels;
  for (std::size_t round = 0; round < rounds.size(); ++round) {
    levels.insert(rounds[round].at(0).rssi);
    EXPECT_EQ(rounds[round].at(0).rssi, again[round].at(0).rssi);
  }
  EXPECT_GT(levels.size(), 2U);
}

// The level is -53.08 dBm. A threshold one deviation higher is reached in about one round of six, one six higher never.
TEST_F(WorldTest, AWeakBeaconIsHeardInItsLuckyRoundsOnly) {
  site_.radio_model.noise_db = 3;
  site_.scan.rounds = 60;
  const auto heard_rounds = [this] {
    const auto rounds = world_.hear(0, {{6, {165}}}, 0);
    return std::count_if(rounds.begin(), rounds.end(), [](const ScanRound& round) { return !round.empty(); });
  };
  site_.scan.sensitivity_dbm.at_6g = -53.08 + 3;
  EXPECT_GT(heard_rounds(), 2);
  EXPECT_LT(heard_rounds(), 25);
  site_.scan.sensitivity_dbm.at_6g = -53.08 + 18.1;
  EXPECT_EQ(heard_rounds(), 0);
}

// On the same block all of B's -44.78 dBm arrives; nothing else stands there.
TEST_F(WorldTest, InterferenceOnTheSameBlock) {
  EXPECT_NEAR(mw_to_dbm(world_.interference_mw(0, *world_.radio(0, 1))), -44.78, 0.005);
}

TEST_F(WorldTest, NoInterferenceFromAnotherBlock) {
  RadioOrder away = order(1);
  away.channel = 52;
  EXPECT_EQ(world_.apply(1, away), "");
  EXPECT_EQ(world_.interference_mw(0, *world_.radio(0, 1)), 0);
}

// The foreign AP's 20 MHz lie wholly within A's block 106.
TEST_F(WorldTest, ForeignApsInterfere) {
  RadioOrder towards = order(1);
  towards.channel = 100;
  EXPECT_EQ(world_.apply(0, towards), "");
  EXPECT_NEAR(mw_to_dbm(world_.interference_mw(0, *world_.radio(0, 1))), -41.29, 0.01);
}

// B transmits on 80 MHz, A listens on 20 of them: a quarter of the power, 6.02 dB less than the whole.
TEST_F(WorldTest, InterferenceIsWeighedByTheSharedSpectrum) {
  RadioOrder narrow = order(1);
  narrow.bandwidth = 20;
  EXPECT_EQ(world_.apply(0, narrow), "");
  EXPECT_NEAR(mw_to_dbm(world_.interference_mw(0, *world_.radio(0, 1))), -44.78 - 6.02, 0.01);
}

TEST_F(WorldTest, OrdersAreAppliedWhole) {
  RadioOrder plan = order(0);
  plan.channel = 11;
  plan.bandwidth = 20;
  plan.power = 7;
  EXPECT_EQ(world_.apply(0, plan), "");
  EXPECT_EQ(world_.radio(0, 0)->channel, 11);
  EXPECT_EQ(world_.radio(0, 0)->power, 7);
  EXPECT_EQ(world_.radio(1, 0)->channel, 1);
}

TEST_F(WorldTest, PositionAt24GhzFollowsTheOrder) {
  RadioOrder wide = order(0);
  wide.channel = 6;
  wide.bandwidth = 40;
  wide.primary = "upper";
  EXPECT_EQ(world_.apply(0, wide), "");
  EXPECT_EQ(world_.radio(0, 0)->primary, "upper");
  EXPECT_EQ(spectrum_of(*world_.radio(0, 0)), (Interval{2407, 2447}));
}

TEST_F(WorldTest, PowerBeyondTheLimitsIsCut) {
  RadioOrder loud = order(1);
  loud.power = 40;
  EXPECT_EQ(world_.apply(0, loud), "");
  EXPECT_EQ(world_.radio(0, 1)->power, 23);
  loud.power = -3;
  EXPECT_EQ(world_.apply(0, loud), "");
  EXPECT_EQ(world_.radio(0, 1)->power, 5);
}

TEST_F(WorldTest, ImpossibleOrdersChangeNothing) {
  RadioOrder unknown = order(7);
  EXPECT_EQ(world_.apply(0, unknown), "no radio 7");
  RadioOrder forbidden = order(1);
  forbidden.channel = 149;
  forbidden.power = 6;
  EXPECT_EQ(world_.apply(0, forbidden), "channel 149 is not available on radio 1");
  RadioOrder too_wide = order(0);
  too_wide.bandwidth = 80;
  too_wide.power = 6;
  EXPECT_EQ(world_.apply(0, too_wide), "no 80 MHz on channel 1 of radio 0");
  EXPECT_EQ(world_.radio(0, 1)->power, 23);
  EXPECT_EQ(world_.radio(0, 0)->power, 20);
}

TEST_F(WorldTest, ARadioTakesAnotherConfigurationWhole) {
  Radio radio = *world_.radio(0, 1);
  radio.channel = 40;
  radio.bandwidth = 40;
  radio.primary = "none";
  radio.power_max = 12;
  radio.power = 12;
  radio.available_channels = {44, 40};
  radio.vaps = {{4, "guest"}};
  EXPECT_EQ(world_.reconfigure(0, radio), "");
  const Radio& now = *world_.radio(0, 1);
  EXPECT_EQ(now.channel, 40);
  EXPECT_EQ(now.primary, "upper");
  EXPECT_EQ(now.power_max, 12);
  EXPECT_EQ(now.available_channels, (std::vector<int>{40, 44}));
  EXPECT_EQ(now.vaps[0].ssid, "guest");
  EXPECT_EQ(world_.radio(1, 1)->channel, 36);
  EXPECT_EQ(world_.radio(0, 0)->channel, 1);
}

TEST_F(WorldTest, ImpossibleConfigurationsChangeNothing) {
  struct Case {
    const char* refusal;
    void (*spoil)(Radio&);
  };
  for (const Case& c : {
           Case{"no radio 7", [](Radio& radio) { radio.id = 7; }},
           {"no 80 MHz on channel 1 of radio 0", [](Radio& radio) { radio.bandwidth = 80; }},
           {"power 4 is beyond the limits of radio 0", [](Radio& radio) { radio.power = 4; }},
           {"power 21 is beyond the limits of radio 0", [](Radio& radio) { radio.power = 21; }},
       }) {
    Radio radio = *world_.radio(0, 0);
    radio.enabled = false;
    c.spoil(radio);
    EXPECT_EQ(world_.reconfigure(0, radio), c.refusal);
    EXPECT_TRUE(world_.radio(0, 0)->enabled) << c.refusal;
  }
}

TEST_F(WorldTest, ABssidIsFoundOnTheAirWithEitherLocalBit) {
  const auto find = [this](const char* mac) { return world_.find_bssid(*Mac::parse(mac)); };
  EXPECT_EQ(find("02:00:5e:00:01:00"), (Place{0, 0}));
  EXPECT_EQ(find("02:00:5e:00:01:01"), (Place{0, 0}));
  EXPECT_EQ(find("02:00:5e:00:02:10"), (Place{1, 1}));
  EXPECT_EQ(find("00:00:5e:00:02:10"), (Place{1, 1}));
  EXPECT_EQ(find("02:00:5e:00:02:11"), std::nullopt);  // of the radio's pool, but no VAP has it
  EXPECT_EQ(find("06:00:00:00:00:01"), std::nullopt);  // the neighbour's
  Radio off = *world_.radio(1, 1);
  off.enabled = false;
  ASSERT_EQ(world_.reconfigure(1, off), "");
  EXPECT_EQ(find("02:00:5e:00:02:10"), std::nullopt);
}

TEST_F(WorldTest, StationHearsAndIsHeard) {
  const Client& client = site_.clients[0];
  // 1 m aside and 1.8 m below: 2.06 m. 23 + 4 - 1 - (40.05 + 6.73 + 6.27) = -27.06 down, 8 dB less up.
  EXPECT_NEAR(world_.downlink_dbm(0, *world_.radio(0, 1), client.position, client.mac), -27.06, 0.005);
  EXPECT_NEAR(world_.uplink_dbm(0, *world_.radio(0, 1), client.position, client.mac), -35.06, 0.005);
}

}  // namespace
}  // namespace sim
