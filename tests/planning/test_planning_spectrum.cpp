// The spectrum table: where a channel's block lies, what a neighbour lays onto it, what a channel costs, which one is
// best. All expected figures are written out here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <string>
#include <vector>

#include "planning/SpectrumTable.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

// --- Centres.

// Channels `first` to `last` have this centre; with `step` the centre moves on with the channel.
struct CentreRow {
  std::int32_t first;
  std::int32_t last;
  std::int32_t centre;
  std::int32_t step = 0;
};

std::int32_t centre_in(const std::vector<CentreRow>& rows, std::int32_t channel) {
  for (const CentreRow& row : rows) {
    if (channel >= row.first && channel <= row.last) return row.centre + row.step * (channel - row.first);
  }
  return -1;
}

TEST(SpectrumCentres, EveryChannelHasTheDocumentedCentreOrNone) {
  struct Case {
    const char* label;
    std::int32_t (*centre)(std::int32_t);
    std::vector<CentreRow> rows;
  };
  const Case cases[] = {
      {"20 MHz", centre20, {{1, 13, 1, 1}, {36, 233, 36, 1}}},
      {"40 MHz, lower",
       [](std::int32_t c) { return centre40(c, 256); },
       {{1, 9, 3, 1},
        {36, 40, 38},
        {44, 48, 46},
        {52, 56, 54},
        {60, 64, 62},
        {100, 104, 102},
        {108, 112, 110},
        {116, 120, 118},
        {124, 128, 126},
        {132, 136, 134},
        {140, 144, 142},
        {149, 153, 151},
        {157, 161, 159},
        {165, 400, 167, 1}}},
      {"40 MHz, upper",
       [](std::int32_t c) { return centre40(c, 512); },
       {{5, 13, 3, 1},
        {36, 40, 38},
        {44, 48, 46},
        {52, 56, 54},
        {60, 64, 62},
        {100, 104, 102},
        {108, 112, 110},
        {116, 120, 118},
        {124, 128, 126},
        {132, 136, 134},
        {140, 144, 142},
        {149, 153, 151},
        {157, 161, 159},
        {165, 400, 163, 1}}},
      {"40 MHz, no position",
       [](std::int32_t c) { return centre40(c, 0); },
       {{1, 9, 3, 1},
        {36, 40, 38},
        {44, 48, 46},
        {52, 56, 54},
        {60, 64, 62},
        {100, 104, 102},
        {108, 112, 110},
        {116, 120, 118},
        {124, 128, 126},
        {132, 136, 134},
        {140, 144, 142},
        {149, 153, 151},
        {157, 161, 159},
        {165, 400, 167, 1}}},
      {"80 MHz",
       centre80,
       {{36, 48, 42},
        {52, 64, 58},
        {100, 112, 106},
        {116, 128, 122},
        {132, 144, 138},
        {149, 161, 155},
        {165, 173, 167},
        {174, 189, 183},
        {190, 205, 199},
        {206, 221, 215}}},
      {"160 MHz", centre160, {{36, 64, 50}, {100, 128, 114}, {165, 189, 175}, {190, 221, 207}}},
      {"320 MHz",
       centre320,
       {{1, 47, 31}, {48, 79, 63}, {80, 111, 95}, {112, 143, 127}, {144, 175, 159}, {176, 207, 191}, {208, 233, 223}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    for (std::int32_t channel = -40; channel <= 400; ++channel) {
      EXPECT_EQ(c.centre(channel), centre_in(c.rows, channel)) << "channel " << channel;
    }
  }
}

TEST(SpectrumCentres, NumbersFromTheWireDoNotOverflow) {
  EXPECT_EQ(centre40(highest, 256), highest);
  EXPECT_EQ(centre40(highest, 512), highest - 2);
  EXPECT_EQ(centre40(lowest, 512), -1);
  for (const std::int32_t channel : {lowest, highest}) {
    EXPECT_EQ(centre20(channel), -1);
    EXPECT_EQ(centre80(channel), -1);
    EXPECT_EQ(centre160(channel), -1);
    EXPECT_EQ(centre320(channel), -1);
  }
}

// --- Masks.

using Cells = std::map<std::int32_t, std::int32_t>;  // by channel number; what is not named is 0

Cells cells_of(const SpectrumTable& table) {
  Cells cells;
  for (std::int32_t c = SpectrumTable::first_channel; c <= SpectrumTable::last_channel; ++c) {
    if (table.at(c) != 0) cells[c] = table.at(c);
  }
  return cells;
}

struct Span {
  std::int32_t first;
  std::int32_t last;
  std::int32_t value;
};

Cells spans(const std::vector<Span>& all) {
  Cells cells;
  for (const Span& span : all) {
    for (std::int32_t c = span.first; c <= span.last; ++c) cells[c] += span.value;
  }
  return cells;
}

Neighbour heard(std::int32_t rssi, std::int32_t channel, std::int32_t bandwidth, std::int32_t primary = 256) {
  Neighbour neighbour = a_neighbour(rssi, channel, bandwidth);
  neighbour.primary = primary;
  return neighbour;
}

class SpectrumMasks : public ::testing::Test {
 protected:
  // The table of a radio of unknown band, which hears everything, with the given members.
  SpectrumTable table_with(const std::vector<Neighbour>& members) {
    ApBuilder builder = an_ap().with_radio(a_radio().band(0));
    int next = 0;
    for (const Neighbour& member : members) builder.hears("0A:00:00:00:00:" + std::to_string(10 + next++), member);
    const auto ap = builder.build(config);
    SpectrumTable table;
    table.add_neighbours(*ap, ap->radios.list[0]);
    return table;
  }
  Cells cells_with(const Neighbour& member) { return cells_of(table_with({member})); }

  Capture quiet;
  DomainConfig config;
};

TEST_F(SpectrumMasks, EveryWidthLaysItsMaskAndWideOnesTheirPrimaryAgain) {
  struct Case {
    const char* label;
    Neighbour neighbour;  // at -40 dBm: 60, of which 18 are 3/10 and 42 are 7/10
    std::vector<Span> cells;
  };
  const Case cases[] = {
      {"20 MHz", heard(-40, 36, 20), {{34, 34, 18}, {35, 35, 42}, {36, 36, 60}, {37, 37, 42}, {38, 38, 18}}},
      {"40 MHz around 38, primary 36",
       heard(-40, 36, 40),
       {{34, 34, 18 + 18},
        {35, 35, 42 + 42},
        {36, 36, 60 + 60},
        {37, 37, 60 + 42},
        {38, 38, 60 + 18},
        {39, 40, 60},
        {41, 41, 42},
        {42, 42, 18}}},
      {"40 MHz at 2.4 GHz, lower: around 3, primary 1",
       heard(-40, 1, 40, 256),
       {{-1, -1, 18 + 18},
        {0, 0, 42 + 42},
        {1, 1, 60 + 60},
        {2, 2, 60 + 42},
        {3, 3, 60 + 18},
        {4, 5, 60},
        {6, 6, 42},
        {7, 7, 18}}},
      {"40 MHz at 2.4 GHz, upper: around 11, primary 13",
       heard(-40, 13, 40, 512),
       {{7, 7, 18},
        {8, 8, 42},
        {9, 10, 60},
        {11, 11, 60 + 18},
        {12, 12, 60 + 42},
        {13, 13, 60 + 60},
        {14, 14, 42 + 42},
        {15, 15, 18 + 18}}},
      {"80 MHz around 42, primary 48",
       heard(-40, 48, 80),
       {{34, 34, 18},
        {35, 35, 42},
        {36, 45, 60},
        {46, 46, 60 + 18},
        {47, 47, 60 + 42},
        {48, 48, 60 + 60},
        {49, 49, 42 + 42},
        {50, 50, 18 + 18}}},
      {"160 MHz around 50, primary 52",
       heard(-40, 52, 160),
       {{34, 34, 18},
        {35, 35, 42},
        {36, 64, 60},
        {65, 65, 42},
        {66, 66, 18},
        {50, 50, 18},
        {51, 51, 42},
        {52, 52, 60},
        {53, 53, 42},
        {54, 54, 18}}},
      {"320 MHz around 223, primary 233",
       heard(-40, 233, 320),
       {{191, 191, 18},
        {192, 192, 42},
        {193, 253, 60},
        {254, 254, 42},
        {255, 255, 18},
        {231, 231, 18},
        {232, 232, 42},
        {233, 233, 60},
        {234, 234, 42},
        {235, 235, 18}}},
      {"320 MHz around 31 with a primary that has no 20 MHz channel",
       heard(-40, 20, 320),
       {{-1, -1, 18}, {0, 0, 42}, {1, 61, 60}, {62, 62, 42}, {63, 63, 18}}},
      {"40 MHz above 233: the block alone",
       heard(-40, 240, 40),
       {{238, 238, 18}, {239, 239, 42}, {240, 244, 60}, {245, 245, 42}, {246, 246, 18}}},
      {"40 MHz over the end of the table", heard(-40, 264, 40), {{262, 262, 18}, {263, 263, 42}, {264, 266, 60}}},
      {"40 MHz beyond the end, with its flank inside", heard(-40, 268, 40), {{266, 266, 18}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(cells_with(c.neighbour), spans(c.cells));
  }
}

TEST_F(SpectrumMasks, WhatHasNoPlaceLaysNothing) {
  struct Case {
    const char* label;
    Neighbour neighbour;
  };
  const Case cases[] = {
      {"channel 0", heard(-40, 0, 20)},
      {"channel -1", heard(-40, -1, 40)},
      {"channel 14", heard(-40, 14, 20)},
      {"a gap of the numbering", heard(-40, 35, 20)},
      {"above the numbering", heard(-40, 234, 20)},
      {"no width", heard(-40, 36, 0)},
      {"an unknown width", heard(-40, 36, 60)},
      {"40 MHz whose block does not fit; no primary either", heard(-40, 1, 40, 512)},
      {"40 MHz at the other end", heard(-40, 10, 40, 256)},
      {"40 MHz between the blocks", heard(-40, 42, 40)},
      {"80 MHz between the bands", heard(-40, 164, 80)},
      {"160 MHz without a block", heard(-40, 149, 160)},
      {"80 MHz above the last block", heard(-40, 225, 80)},
      {"40 MHz far beyond the table", heard(-40, 300, 40)},
      {"the highest number there is", heard(-40, highest, 40)},
      {"-100 dBm", heard(-100, 36, 80)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(cells_with(c.neighbour), Cells());
  }
}

TEST_F(SpectrumMasks, BelowMinusHundredAWeightIsNegativeAndItsPartsAreCutTowardsZero) {
  EXPECT_EQ(cells_with(heard(-101, 36, 20)), (Cells{{36, -1}}));
  EXPECT_EQ(cells_with(heard(-105, 36, 20)), (Cells{{34, -1}, {35, -3}, {36, -5}, {37, -3}, {38, -1}}));
  EXPECT_EQ(cells_with(heard(-97, 36, 20)), (Cells{{35, 2}, {36, 3}, {37, 2}}));
}

TEST_F(SpectrumMasks, EveryBssidOfANeighbourCountsByItself) {
  const Neighbour one = heard(-60, 6, 20);
  EXPECT_EQ(cells_of(table_with({one, one, one, one})), (Cells{{4, 48}, {5, 112}, {6, 160}, {7, 112}, {8, 48}}));
}

TEST_F(SpectrumMasks, MembersAndRoguesCountAlike) {
  const auto ap = an_ap()
                      .with_radio(a_radio().channel(36))
                      .hears("0A:00:00:00:00:01", heard(-90, 36, 20))
                      .hears_rogue("0B:00:00:00:00:01", heard(-80, 40, 20))
                      .build(config);
  SpectrumTable table;
  table.add_neighbours(*ap, ap->radios.list[0]);
  EXPECT_EQ(cells_of(table),
            (Cells{{34, 3}, {35, 7}, {36, 10}, {37, 7}, {38, 3 + 6}, {39, 14}, {40, 20}, {41, 14}, {42, 6}}));
}

TEST_F(SpectrumMasks, AddingIsAddingAndClearingKeepsTheFlag) {
  const auto ap =
      an_ap().with_radio(a_radio().channel(36)).hears("0A:00:00:00:00:01", heard(-90, 36, 20)).build(config);
  SpectrumTable table;
  EXPECT_TRUE(table.ignore_dca_threshold);
  table.add_neighbours(*ap, ap->radios.list[0]);
  table.add_neighbours(*ap, ap->radios.list[0]);
  EXPECT_EQ(table.at(36), 20);
  for (const bool flag : {false, true}) {
    table.ignore_dca_threshold = flag;
    table.clear();
    EXPECT_EQ(cells_of(table), Cells());
    EXPECT_EQ(table.ignore_dca_threshold, flag);
  }
}

TEST_F(SpectrumMasks, AnEntryOfAnotherBandIsLeftOut) {
  struct Case {
    std::int32_t radio_band;
    std::int32_t entry_band;
    bool counts;
  };
  for (const Case& c :
       {Case{2, 2, true}, Case{2, 5, false}, Case{2, 6, false}, Case{2, 0, true}, Case{5, 2, false}, Case{5, 5, true},
        Case{5, 6, false}, Case{5, 0, true}, Case{6, 2, false}, Case{6, 5, false}, Case{6, 6, true}, Case{6, 0, false},
        Case{0, 2, true}, Case{0, 5, true}, Case{0, 6, true}, Case{0, 0, true}}) {
    SCOPED_TRACE("radio band " + std::to_string(c.radio_band) + ", entry band " + std::to_string(c.entry_band));
    Neighbour neighbour = heard(-90, 36, 20);
    neighbour.band = c.entry_band;
    const auto ap =
        an_ap().with_radio(a_radio().band(c.radio_band)).hears("0A:00:00:00:00:01", neighbour).build(config);
    SpectrumTable table;
    table.add_neighbours(*ap, ap->radios.list[0]);
    EXPECT_EQ(table.at(36), c.counts ? 10 : 0);
  }
}

TEST_F(SpectrumMasks, OnlyTheRadiosVeryOwnAddressIsLeftOut) {
  struct Case {
    const char* label;
    const char* bssid;
    std::int32_t cell;
  };
  // Radio 0 stands at 00:11:22:00:00:00, radio 1 at 00:11:22:00:00:10.
  for (const Case& c : {Case{"its own address", "00:11:22:00:00:00", 0},
                        Case{"its own with the local bit flipped", "02:11:22:00:00:00", 10},
                        Case{"another BSSID of its own", "00:11:22:00:00:01", 10},
                        Case{"the AP's other radio", "00:11:22:00:00:10", 10}}) {
    SCOPED_TRACE(c.label);
    const auto ap = an_ap()
                        .with_radio(a_radio().channel(36))
                        .with_radio(a_radio().channel(36))
                        .hears(c.bssid, heard(-90, 36, 20))
                        .build(config);
    SpectrumTable table;
    table.add_neighbours(*ap, ap->radios.list[0]);
    EXPECT_EQ(table.at(36), c.cell);
  }
}

TEST_F(SpectrumMasks, LevelsThatNobodyCanMeasureAreCutToTheRangeOfACell) {
  EXPECT_EQ(table_with({heard(highest, 36, 80), heard(highest, 36, 80)}).at(36), highest);
  EXPECT_EQ(table_with({heard(lowest, 36, 80), heard(lowest, 36, 80)}).at(36), lowest);
  // The sum is made before it is cut.
  EXPECT_EQ(
      table_with({heard(highest, 36, 20), heard(highest, 36, 20), heard(lowest, 36, 20), heard(lowest, 36, 20)}).at(36),
      2 * -1 + 4 * 100);
  EXPECT_EQ(table_with({heard(highest, 36, 80)}).channel_cost(36, 80, 0), highest);
  EXPECT_EQ(table_with({heard(lowest, 36, 80)}).channel_cost(36, 80, 0), lowest);
}

TEST(SpectrumTable, OutsideTheTableThereIsNothing) {
  const SpectrumTable table;
  for (const std::int32_t channel : {lowest, -9, 267, highest}) EXPECT_EQ(table.at(channel), 0);
}

// --- Costs.

class SpectrumCosts : public SpectrumMasks {};

TEST_F(SpectrumCosts, AChannelCostsItsBlockAndIfWideItsPrimaryAgain) {
  // Around 36: 18 42 60 42 18, together 180.
  const SpectrumTable table = table_with({heard(-40, 36, 20)});
  struct Case {
    const char* label;
    std::int32_t channel;
    std::int32_t bandwidth;
    std::int32_t primary;
    std::int32_t cost;
  };
  for (const Case& c :
       {Case{"20 MHz on it", 36, 20, 0, 180}, Case{"20 MHz two numbers off", 38, 20, 0, 60 + 42 + 18},
        Case{"20 MHz beside it", 40, 20, 0, 18}, Case{"20 MHz clear of it", 44, 20, 0, 0},
        Case{"40 MHz over it, primary on it", 36, 40, 256, 180 + 180},
        Case{"40 MHz over it, primary beside it", 40, 40, 512, 180 + 18},
        Case{"80 MHz over it, primary clear of it", 48, 80, 0, 180}, Case{"160 MHz over it", 64, 160, 0, 180},
        Case{"320 MHz over it", 1, 320, 0, 180}, Case{"320 MHz over it, primary on it", 36, 320, 0, 180 + 180},
        Case{"an unknown width counts as 20 MHz, twice", 36, 60, 0, 180 + 180},
        Case{"no width alike", 40, 0, 0, 18 + 18}}) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(table.channel_cost(c.channel, c.bandwidth, c.primary), c.cost);
  }
}

TEST_F(SpectrumCosts, AChannelWithoutABlockCostsMinusOne) {
  const SpectrumTable table = table_with({heard(-40, 1, 20)});
  struct Case {
    std::int32_t channel;
    std::int32_t bandwidth;
    std::int32_t primary;
  };
  for (const Case& c :
       {Case{14, 20, 0}, Case{35, 20, 0}, Case{234, 20, 0}, Case{0, 20, 0}, Case{14, 0, 0}, Case{1, 40, 512},
        Case{4, 40, 512}, Case{10, 40, 256}, Case{42, 40, 0}, Case{165 - 1, 80, 0}, Case{222, 80, 0}, Case{149, 160, 0},
        Case{222, 160, 0}, Case{0, 320, 0}, Case{234, 320, 0}, Case{lowest, 20, 0}, Case{highest, 80, 0}}) {
    SCOPED_TRACE(std::to_string(c.channel) + " at " + std::to_string(c.bandwidth));
    EXPECT_EQ(table.channel_cost(c.channel, c.bandwidth, c.primary), -1);
  }
}

TEST_F(SpectrumCosts, At40MHzBelow36ThePositionDecidesWhereTheBlockLies) {
  const SpectrumTable table = table_with({heard(-40, 9, 20)});  // 7 to 11
  EXPECT_EQ(table.channel_cost(1, 40, 256), 18) << "around 3, up to 7";
  EXPECT_EQ(table.channel_cost(1, 40, 512), -1);
  EXPECT_EQ(table.channel_cost(5, 40, 256), 180 + 18) << "around 7, up to 11, and the primary up to 7";
  EXPECT_EQ(table.channel_cost(5, 40, 512), 18 + 18) << "around 3, up to 7, and the primary up to 7";
}

TEST_F(SpectrumCosts, WhereThePrimaryHasNoCentreMinusThreeToOneAreSummedInstead) {
  const SpectrumTable table = table_with({heard(-40, 1, 20)});  // -1 to 3: 18 42 60 42 18
  constexpr std::int32_t minus_three_to_one = 18 + 42 + 60;
  EXPECT_EQ(table.channel_cost(240, 40, 256), minus_three_to_one);
  EXPECT_EQ(table.channel_cost(20, 320, 0), 180 + minus_three_to_one) << "around 31, from -1";
  EXPECT_EQ(table.channel_cost(300, 40, 256), minus_three_to_one) << "a block outside the table costs nothing itself";
}

// --- The choice.

class SpectrumChoice : public SpectrumMasks {
 protected:
  // 20 MHz, the threshold ignored.
  std::int32_t choose(const SpectrumTable& table, std::int32_t current, std::initializer_list<std::int32_t> permitted) {
    return table.best_channel(ChannelSet(permitted), current, 20, 0, 25, true);
  }
};

TEST_F(SpectrumChoice, TheCheapestPermittedChannelWins) {
  const SpectrumTable table = table_with({heard(-40, 36, 20), heard(-60, 44, 20), heard(-80, 52, 20)});
  EXPECT_EQ(choose(table, 36, {36, 44, 52}), 52);
  EXPECT_EQ(choose(table, 36, {36, 44}), 44);
  EXPECT_EQ(choose(table, 36, {36}), 36);
}

TEST_F(SpectrumChoice, OfEqualChannelsTheLowestWinsButThePresentOneStays) {
  const SpectrumTable empty;
  EXPECT_EQ(choose(empty, 1, {11, 6, 2}), 2);
  EXPECT_EQ(choose(empty, 11, {11, 6, 2}), 11);
  const SpectrumTable table = table_with({heard(-40, 6, 20)});
  EXPECT_EQ(choose(table, 6, {1, 6, 11}), 1);
  EXPECT_EQ(choose(table, 11, {1, 6, 11}), 11);
}

TEST_F(SpectrumChoice, APresentChannelThatIsNotPermittedIsLeft) {
  const SpectrumTable empty;
  EXPECT_EQ(choose(empty, 36, {44, 48}), 44);
}

TEST_F(SpectrumChoice, ChannelFourteenCannotBeChosen) {
  const SpectrumTable table = table_with({heard(-40, 6, 20)});
  EXPECT_EQ(choose(table, 14, {14}), 0);
  EXPECT_EQ(choose(table, 14, {6, 14}), 6);
}

TEST_F(SpectrumChoice, WithoutAValidChannelThereIsNone) {
  const SpectrumTable empty;
  EXPECT_EQ(choose(empty, 36, {}), 0);
  EXPECT_EQ(choose(empty, 36, {14, 35, 234}), 0);
}

TEST_F(SpectrumChoice, AChannelOfNegativeCostIsPassedOverEvenThePresentOne) {
  const SpectrumTable table = table_with({heard(-130, 36, 20), heard(-90, 44, 20), heard(-95, 52, 20)});
  ASSERT_LT(table.channel_cost(36, 20, 0), 0);
  EXPECT_EQ(choose(table, 44, {36, 44, 52}), 52);
  EXPECT_EQ(choose(table, 36, {36, 44}), 44);
  EXPECT_EQ(choose(table, 36, {36}), 0);
}

TEST_F(SpectrumChoice, TheThresholdIsThePartOfTheCostByWhichTheBestMustUndercut) {
  // The present channel 36 costs 300, channel 44 a little less than this or that part of it.
  struct Case {
    const char* label;
    std::int32_t other;  // dBm heard on 44, whose cost is 3 per dB
    std::int32_t threshold;
    bool ignored;
    std::int32_t choice;
  };
  const auto table_for = [&](std::int32_t other) { return table_with({heard(0, 36, 20), heard(other, 44, 20)}); };
  ASSERT_EQ(table_for(0).channel_cost(36, 20, 0), 300);
  ASSERT_EQ(table_for(-30).channel_cost(44, 20, 0), 210);
  for (const Case& c :
       {Case{"at 25 %, 70 % is low enough", -30, 25, false, 44},
        Case{"at 30 %, 70 % is exactly the bound, and the present one stays", -30, 30, false, 36},
        Case{"at 29 %, 71 % of the present one is above", -30, 29, false, 44}, Case{"at 99 %", -90, 99, false, 36},
        Case{"a threshold of 100 is none", -10, 100, false, 44}, Case{"at 0 %, anything cheaper", -10, 0, false, 44},
        Case{"at 0 %, equal is not cheaper", 0, 0, false, 36}, Case{"ignored, anything cheaper", -10, 99, true, 44},
        Case{"ignored, equal is not cheaper", 0, 99, true, 36}}) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(table_for(c.other).best_channel(ChannelSet({36, 44}), 36, 20, 0, c.threshold, c.ignored), c.choice);
  }
}

TEST_F(SpectrumChoice, ACostBeyondAllMeasureIsNeverBest) {
  EXPECT_EQ(choose(table_with({heard(highest, 36, 20)}), 44, {36}), 0);
  EXPECT_EQ(choose(table_with({heard(highest, 36, 20)}), 36, {36, 44}), 44);
}

}  // namespace
}  // namespace rrm::testing
