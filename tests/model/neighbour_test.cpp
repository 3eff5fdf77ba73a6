#include "model/Neighbour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

MacAddr bssid(std::uint64_t number) {
  return MacAddr::from_number(0x001122000000 + number);
}

NeighbourMap heard(std::initializer_list<NeighbourMap::value_type> entries) {
  NeighbourMap map;
  for (const auto& [mac, neighbour] : entries) map.insert(mac, neighbour);
  return map;
}

std::string dump(const NeighbourMap& map) {
  return array_text([&](JsonWriter& array) { map.dump_json(array); });
}

TEST(NeighbourMap, IsWalkedInTheOrderOfTheAddresses) {
  const NeighbourMap map = heard({{bssid(3), {}}, {bssid(1), {}}, {bssid(2), {}}});
  std::vector<MacAddr> order;
  for (const auto& [mac, neighbour] : map) order.push_back(mac);
  EXPECT_EQ(order, (std::vector<MacAddr>{bssid(1), bssid(2), bssid(3)}));
}

TEST(NeighbourMap, AnAddressThatIsThereKeepsItsRecord) {
  NeighbourMap map;
  EXPECT_TRUE(map.insert(bssid(1), a_neighbour(-60, 36)));
  EXPECT_FALSE(map.insert(bssid(1), a_neighbour(-70, 40)));
  EXPECT_EQ(map.find(bssid(1))->rssi, -60);
  EXPECT_EQ(map.size(), 1U);
}

TEST(NeighbourMap, ManyAtOnceObeyTheSameRule) {
  NeighbourMap map = heard({{bssid(2), a_neighbour(-1, 36)}});
  map.insert_all({{bssid(3), a_neighbour(-2, 36)},
                  {bssid(2), a_neighbour(-3, 36)},
                  {bssid(3), a_neighbour(-4, 36)},
                  {bssid(1), a_neighbour(-5, 36)}});
  EXPECT_EQ(map,
            heard({{bssid(1), a_neighbour(-5, 36)}, {bssid(2), a_neighbour(-1, 36)}, {bssid(3), a_neighbour(-2, 36)}}));
}

TEST(NeighbourMap, FindsAnAddressAsItStandsBeforeItsTwin) {
  const MacAddr plain = mac("00:11:22:00:00:01");
  const MacAddr local = mac("02:11:22:00:00:01");
  const NeighbourMap both = heard({{plain, a_neighbour(-60, 36)}, {local, a_neighbour(-70, 36)}});
  EXPECT_EQ(both.find_with_local_bit_retry(plain)->rssi, -60);
  EXPECT_EQ(both.find_with_local_bit_retry(local)->rssi, -70);
  const NeighbourMap one = heard({{local, a_neighbour(-70, 36)}});
  EXPECT_EQ(one.find(plain), nullptr);
  EXPECT_EQ(one.find_with_local_bit_retry(plain)->rssi, -70);
  EXPECT_EQ(one.find_with_local_bit_retry(mac("01:11:22:00:00:01")), nullptr);
}

// The backup form.

TEST(NeighbourMap, WritesItsRecords) {
  EXPECT_EQ(
      dump(heard({{bssid(0xAB), {-60, 36, 5, 80, 17, 512}}, {bssid(1), {-90, 0, 0, 0, 0, 0}}})),
      R"([{"mac":"00:11:22:00:00:01","dbm-signal":-90,"channel":0,"band":0,"bandwidth":0,"tx-power":0,"primary":0},)"
      R"({"mac":"00:11:22:00:00:AB","dbm-signal":-60,"channel":36,"band":5,"bandwidth":80,"tx-power":17,)"
      R"("primary":512}])");
}

TEST(NeighbourMap, WhatItWritesIsRestored) {
  const NeighbourMap map = heard({{bssid(1), {-60, 36, 5, 80, 17, 512}}, {bssid(2), {-90, 0, 0, 0, 0, 3}}});
  const std::string text = dump(map);
  NeighbourMap restored;
  restored.restore(reader(text));
  EXPECT_EQ(restored, map);
}

struct RestoreBandCase {
  const char* members;
  std::int32_t band;
  std::vector<std::string> traced;
};

TEST(NeighbourMap, ARestoredRecordsBandMayBeInferred) {
  const std::vector<RestoreBandCase> cases = {
      {R"("channel":1)", 2, {}},
      {R"("channel":14)", 2, {}},
      {R"("channel":15)", 0, {"neighbour state entry without band: mac=00:11:22:00:00:01 channel=15"}},
      {R"("channel":35)", 0, {"neighbour state entry without band: mac=00:11:22:00:00:01 channel=35"}},
      {R"("channel":36)", 5, {}},
      {R"("channel":165)", 5, {}},
      {R"("channel":166)", 6, {}},
      {R"("channel":233)", 6, {}},
      {R"("channel":234)", 0, {"neighbour state entry without band: mac=00:11:22:00:00:01 channel=234"}},
      {R"("channel":36,"band":6)", 6, {}},
      {R"("channel":36,"band":3)", 3, {}},
      {R"("channel":36,"band":0)", 0, {}},
      {R"("channel":36,"band":null)", 0, {}},
  };
  for (const RestoreBandCase& test : cases) {
    const Capture capture;
    NeighbourMap map;
    map.restore(reader(std::string(R"([{"mac":"00:11:22:00:00:01",)") + test.members + "}]"));
    EXPECT_EQ(map.find(bssid(1))->band, test.band) << test.members;
    EXPECT_EQ(capture.lines(LOG_TRACE), test.traced) << test.members;
    EXPECT_EQ(capture.lines().size(), test.traced.size()) << test.members;
  }
}

TEST(NeighbourMap, ARestoreAddsToWhatIsThere) {
  const Capture quiet;
  NeighbourMap map = heard({{bssid(1), a_neighbour(-60, 36)}});
  map.restore(reader(R"([null,{"mac":"00:11:22:00:00:01","dbm-signal":-1},{"mac":"here","dbm-signal":-2,"band":5},)"
                     R"({"dbm-signal":-3,"band":5}])"));
  map.restore(reader("null"));
  EXPECT_EQ(map, heard({{bssid(1), a_neighbour(-60, 36)}, {MacAddr(), {-2, 0, 5, 0, 0, 0}}}));
}

// The merge of scan rounds.

// Each list is what the rounds say of one neighbour; the merged level is its clipped mean.
std::int32_t merged_level(const std::vector<std::int32_t>& levels) {
  std::vector<NeighbourMap> rounds;
  for (const std::int32_t level : levels) rounds.push_back(heard({{bssid(1), a_neighbour(level, 36)}}));
  NeighbourMap map;
  map.merge_rounds(rounds);
  return map.find(bssid(1))->rssi;
}

struct MergeCase {
  const char* label;
  std::vector<std::int32_t> levels;
  std::int32_t merged;
};

TEST(MergeRounds, ClipsWhatLiesFarFromTheRest) {
  const std::vector<MergeCase> cases = {
      {"one round", {-63}, -63},
      {"one round of level 0", {0}, 0},
      {"two rounds, the mean", {-60, -80}, -70},
      {"two rounds, truncated towards 0", {-60, -61}, -60},
      {"three alike", {-60, -60, -60}, -60},
      {"three, none far off", {-60, -62, -64}, -62},
      {"three, one far off: too few are kept to clip again", {-60, -60, -90}, -60},
      {"four, one far off", {-60, -61, -59, -90}, -60},
      {"the order does not matter", {-90, -59, -61, -60}, -60},
      {"four, two on each side", {-50, -50, -90, -90}, -70},
      {"the second stage clips what the first kept", {-60, -60, -60, -60, -63, -90}, -60},
      {"few kept around a mean of 0: theirs is taken, and selects others", {-10, -10, 10, 10, 1}, 7},
      {"few kept around a mean of 0, and theirs is 0", {-10, -10, 10, 10, 1, -1}, 0},
      {"the ends do not overflow", {INT_MIN, INT_MIN, INT_MAX, INT_MAX}, 0},
      {"the lowest level", {INT_MIN, INT_MIN, INT_MIN}, INT_MIN},
      {"the highest level", {INT_MAX, INT_MAX, INT_MAX}, INT_MAX},
  };
  for (const MergeCase& test : cases) EXPECT_EQ(merged_level(test.levels), test.merged) << test.label;
}

TEST(MergeRounds, ANeighbourIsTheRecordOfTheLastRoundThatHeardIt) {
  const std::vector<NeighbourMap> rounds = {
      heard({{bssid(1), {-60, 36, 5, 80, 17, 512}}, {bssid(2), {-70, 1, 2, 20, 10, 256}}}),
      heard({{bssid(1), {-70, 40, 5, 40, 18, 256}}}),
      heard({{bssid(3), {-80, 6, 2, 20, 12, 256}}}),
  };
  NeighbourMap map = heard({{bssid(9), a_neighbour(-50, 36)}});
  map.merge_rounds(rounds);
  EXPECT_EQ(map, heard({{bssid(1), {-65, 40, 5, 40, 18, 256}},
                        {bssid(2), {-70, 1, 2, 20, 10, 256}},
                        {bssid(3), {-80, 6, 2, 20, 12, 256}}}));
}

TEST(MergeRounds, NoRoundsLeaveNothing) {
  NeighbourMap map = heard({{bssid(9), a_neighbour(-50, 36)}});
  map.merge_rounds({});
  EXPECT_TRUE(map.empty());
  map.insert(bssid(9), a_neighbour(-50, 36));
  map.merge_rounds(std::vector<NeighbourMap>(3));
  EXPECT_TRUE(map.empty());
}

// The same, step by step as one would do it by hand: levels of one neighbour in, the clipped mean out.
std::int32_t plainly_clipped(const std::vector<std::int32_t>& x) {
  const auto n = static_cast<std::int32_t>(x.size());
  std::int32_t sum = 0;
  for (const std::int32_t level : x) sum += level;
  const std::int32_t m1 = sum / n;
  std::int32_t squares = 0;
  for (const std::int32_t level : x) squares += (level - m1) * (level - m1);
  const auto s1 = static_cast<std::int32_t>(std::sqrt(static_cast<double>(squares / n)) + 1.0);
  std::int32_t kept = 0;
  std::int32_t kept_sum = 0;
  for (const std::int32_t level : x) {
    if (s1 == 0 || std::abs(level - m1) <= s1) kept += 1, kept_sum += level;
  }
  const std::int32_t m2 = m1 != 0 && kept < 3 ? m1 : kept_sum / kept;
  std::int32_t kept_squares = 0;
  for (const std::int32_t level : x) {
    if (s1 == 0 || std::abs(level - m1) <= s1) kept_squares += (level - m2) * (level - m2);
  }
  const std::int32_t s2 =
      s1 != 0 && kept < 3 ? s1 : static_cast<std::int32_t>(std::sqrt(static_cast<double>(kept_squares / kept)) + 1.0);
  std::int32_t final_count = 0;
  std::int32_t final_sum = 0;
  for (const std::int32_t level : x) {
    if (s2 == 0 || std::abs(level - m2) <= s2) final_count += 1, final_sum += level;
  }
  return final_count == 0 ? 0 : final_sum / final_count;
}

TEST(MergeRounds, AgreesWithTheStepsDoneByHand) {
  std::mt19937 random(20240611);
  for (const std::int32_t lowest : {-95, -20}) {
    std::uniform_int_distribution<std::int32_t> level(lowest, lowest + 40);
    for (int trial = 0; trial < 4000; ++trial) {
      std::vector<std::int32_t> levels(1 + random() % 9);
      for (std::int32_t& x : levels) x = level(random);
      ASSERT_EQ(merged_level(levels), plainly_clipped(levels)) << ::testing::PrintToString(levels);
    }
  }
}

}  // namespace
}  // namespace rrm::testing
