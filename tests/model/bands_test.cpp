#include "model/bands.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

namespace rrm {
namespace {

struct Range {
  std::int32_t first;
  std::int32_t last;
  std::int32_t value;
};

TEST(Bands, AreToldByTheChannelNumber) {
  const std::vector<Range> ranges = {{INT_MIN, INT_MIN, 0}, {-1, 0, 0},    {1, 14, 2},    {15, 35, 0},
                                     {36, 165, 5},          {166, 233, 6}, {234, 300, 0}, {INT_MAX, INT_MAX, 0}};
  for (const Range& range : ranges) {
    for (std::int64_t channel = range.first; channel <= range.last; ++channel) {
      EXPECT_EQ(band_of_channel(static_cast<std::int32_t>(channel)), range.value) << channel;
    }
  }
}

TEST(Bands, AGivenBandStandsAndAnUnknownOneIsTheChannels) {
  EXPECT_EQ(band_or_that_of(6, 36), 6);
  EXPECT_EQ(band_or_that_of(5, 20), 5);
  EXPECT_EQ(band_or_that_of(0, 36), 5);
  EXPECT_EQ(band_or_that_of(0, 20), 0);
}

TEST(Bands, BlocksOf5GhzEndWhereTheBandPlanEndsThem) {
  struct Case {
    std::int32_t bandwidth;
    std::vector<Range> blocks;
  };
  const std::vector<Case> cases = {
      {20, {{30, 170, 0}}},
      {40, {{30, 35, 0},     {36, 40, 38},    {41, 43, 0},     {44, 48, 46},    {49, 51, 0},
            {52, 56, 54},    {57, 59, 0},     {60, 64, 62},    {65, 99, 0},     {100, 104, 102},
            {105, 107, 0},   {108, 112, 110}, {113, 115, 0},   {116, 120, 118}, {121, 123, 0},
            {124, 128, 126}, {129, 131, 0},   {132, 136, 134}, {137, 139, 0},   {140, 144, 142},
            {145, 148, 0},   {149, 153, 151}, {154, 156, 0},   {157, 161, 159}, {162, 170, 0}}},
      {80,
       {{30, 35, 0},
        {36, 48, 42},
        {49, 51, 0},
        {52, 64, 58},
        {65, 99, 0},
        {100, 112, 106},
        {113, 115, 0},
        {116, 128, 122},
        {129, 131, 0},
        {132, 144, 138},
        {145, 148, 0},
        {149, 161, 155},
        {162, 170, 0}}},
      {160, {{30, 35, 0}, {36, 64, 50}, {65, 99, 0}, {100, 128, 114}, {129, 170, 0}}},
      {320, {{30, 170, 0}}},
  };
  for (const Case& test : cases) {
    for (const Range& block : test.blocks) {
      for (std::int32_t channel = block.first; channel <= block.last; ++channel) {
        EXPECT_EQ(block_centre_5ghz(channel, test.bandwidth), block.value) << test.bandwidth << " MHz, " << channel;
      }
    }
  }
}

TEST(Bands, AlignedRunsStartAtChannelOne) {
  EXPECT_EQ(aligned_centre(1, 8), 3);
  EXPECT_EQ(aligned_centre(8, 8), 3);
  EXPECT_EQ(aligned_centre(9, 8), 11);
  EXPECT_EQ(aligned_centre(16, 16), 7);
  EXPECT_EQ(aligned_centre(17, 16), 23);
  EXPECT_EQ(aligned_centre(32, 32), 15);
  EXPECT_EQ(aligned_centre(33, 32), 47);
  EXPECT_EQ(aligned_centre(233, 32), 239);
}

TEST(Bands, TheNearest320CentreLiesWithin32AndIsTheLowerOfTwo) {
  const std::vector<Range> ranges = {{INT_MIN, INT_MIN, 0}, {-3, -2, 0},     {-1, 47, 31},         {48, 79, 63},
                                     {80, 111, 95},         {112, 143, 127}, {144, 175, 159},      {176, 207, 191},
                                     {208, 255, 223},       {256, 258, 0},   {INT_MAX, INT_MAX, 0}};
  for (const Range& range : ranges) {
    for (std::int64_t channel = range.first; channel <= range.last; ++channel) {
      EXPECT_EQ(nearest_centre_320(static_cast<std::int32_t>(channel)), range.value) << channel;
    }
  }
}

TEST(ChannelSet, IsSortedAndHoldsEachChannelOnce) {
  ChannelSet set{44, 36, 44, 1};
  set.insert(40);
  set.insert(36);
  EXPECT_EQ(std::vector<std::int32_t>(set.begin(), set.end()), (std::vector<std::int32_t>{1, 36, 40, 44}));
  EXPECT_EQ(set.size(), 4U);
  EXPECT_TRUE(set.contains(40));
  EXPECT_FALSE(set.contains(41));
  EXPECT_EQ(set, (ChannelSet{1, 36, 40, 44}));
  set.clear();
  EXPECT_TRUE(set.empty());
  EXPECT_FALSE(set.contains(40));
}

}  // namespace
}  // namespace rrm
