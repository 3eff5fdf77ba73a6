// The building and the waves: geometry, chance, channels as spectrum, path loss.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "sim/backoff.h"
#include "sim/chance.h"
#include "sim/geometry.h"
#include "sim/link_table.h"
#include "sim/mac.h"
#include "sim/radio_model.h"
#include "sim/site.h"
#include "sim/spectrum.h"
#include "sites.h"

namespace sim {
namespace {

TEST(Geometry, PathCrossesWall) {
  const Segment wall{{5, 0}, {5, 10}};
  struct Case {
    const char* name;
    Point from;
    Point to;
    bool crossed;
  };
  for (const Case& c : {Case{"straight through", {0, 5}, {10, 5}, true}, Case{"stops before", {0, 5}, {4, 5}, false},
                        Case{"passes the end", {0, 11}, {10, 11}, false}, Case{"parallel", {4, 0}, {4, 10}, false},
                        Case{"along the wall", {5, 2}, {5, 8}, false}, Case{"aslant", {4, 0}, {6, 9}, true}}) {
    EXPECT_EQ(crosses({c.from, c.to}, wall), c.crossed) << c.name;
    EXPECT_EQ(crosses({c.to, c.from}, wall), c.crossed) << c.name << ", the other way";
  }
}

TEST(Geometry, PathThroughTheJointOfTwoWallsCrossesOneOfThem) {
  const Segment upper{{5, 0}, {5, 5}};
  const Segment lower{{5, 5}, {5, 10}};
  for (const Segment& path : {Segment{{0, 5}, {10, 5}}, Segment{{10, 5}, {0, 5}}}) {
    EXPECT_EQ(crosses(path, upper) + crosses(path, lower), 1);
  }
}

TEST(Geometry, DistanceIsInThreeDimensions) {
  EXPECT_DOUBLE_EQ(distance_m({0, 0, 0}, {2, 3, 6}), 7);
}

TEST(Geometry, RectangleOwnsItsUpperLeftEdges) {
  const Rectangle room{{2, 3}, 4, 5};
  EXPECT_TRUE(room.contains({2, 3}));
  EXPECT_TRUE(room.contains({5.9, 7.9}));
  EXPECT_FALSE(room.contains({6, 4}));
  EXPECT_FALSE(room.contains({4, 8}));
  EXPECT_FALSE(room.contains({1.9, 4}));
  EXPECT_EQ(room.centre(), (Point{4, 5.5}));
}

TEST(MacText, ReadsAndPrints) {
  EXPECT_EQ(Mac::parse("02:aB:00:09:0f:FF")->value, 0x02AB00090FFFU);
  EXPECT_EQ(Mac{0x02AB00090FFFU}.text(), "02:ab:00:09:0f:ff");
  EXPECT_EQ(Mac{0x10}.plus(16).value, 0x20U);
  for (const char* bad : {"", "02:ab:00:09:0f", "02:ab:00:09:0f:0", "02-ab-00-09-0f-00", "02:ab:00:09:0g:00",
                          "02:ab:00:09:0f:00 ", "020:ab:00:09:f:00"}) {
    EXPECT_FALSE(Mac::parse(bad)) << bad;
  }
}

// Computed once with an independent program in whole numbers; 0xe220a8397b1dcdaf is the published first output of
// SplitMix64 for the seed 0.
TEST(Chance, DrawsTheSameBitsEverywhere) {
  EXPECT_EQ(mix(0, {}), 0xe220a8397b1dcdafU);
  EXPECT_EQ(mix(7, {}), 0x63cbe1e459320dd7U);
  EXPECT_EQ(mix(7, {1, 2}), 0xf239377388b01d44U);
  EXPECT_EQ(uniform(mix(7, {1, 2})), 0x1.e4726ee711603p-1);
  EXPECT_EQ(normal(mix(7, {1, 2})), -0x1.abb63cd9f8a80p-4);
}

TEST(Chance, SeedAndOrderOfKeysMatter) {
  EXPECT_NE(mix(7, {1, 2}), mix(7, {2, 1}));
  EXPECT_NE(mix(7, {1, 2}), mix(8, {1, 2}));
}

TEST(Chance, NormalHasMeanZeroAndDeviationOne) {
  double sum = 0;
  double squares = 0;
  constexpr int draws = 20000;
  for (std::uint64_t i = 0; i < draws; ++i) {
    const double value = normal(mix(3, {i}));
    sum += value;
    squares += value * value;
  }
  EXPECT_NEAR(sum / draws, 0, 0.03);
  EXPECT_NEAR(std::sqrt(squares / draws), 1, 0.03);
}

TEST(BackoffTest, DoublesUpToHalfAMinuteAndStartsOverAfterSuccess) {
  Backoff backoff(5);
  for (const double expected : {500., 1000., 2000., 4000., 8000., 16000., 30000., 30000., 30000.}) {
    const auto wait = static_cast<double>(backoff.next());
    EXPECT_GE(wait, std::floor(expected * 0.75));
    EXPECT_LE(wait, expected * 1.25);
  }
  backoff.succeeded();
  EXPECT_LE(backoff.next(), 625);
}

TEST(BackoffTest, TwoApsWaitDifferently) {
  EXPECT_NE(Backoff(1).next(), Backoff(2).next());
}

struct BlockCase {
  int band;
  int channel;
  int bandwidth;
  const char* primary;
  int centre;  // 0: there is no such block
  const char* position;
};

// The blocks of IEEE Std 802.11, annex E.
TEST(Spectrum, BlockOfAChannel) {
  for (const BlockCase& c : {
           BlockCase{2, 1, 20, "none", 1, "none"},
           {2, 14, 20, "none", 14, "none"},
           {2, 0, 20, "none", 0, ""},
           {2, 15, 20, "none", 0, ""},
           {2, 1, 40, "lower", 3, "lower"},
           {2, 1, 40, "upper", 0, ""},
           {2, 5, 40, "upper", 3, "upper"},
           {2, 9, 40, "lower", 11, "lower"},
           {2, 10, 40, "lower", 0, ""},
           {2, 6, 40, "none", 8, "lower"},
           {2, 6, 80, "none", 0, ""},
           {5, 36, 20, "none", 36, "none"},
           {5, 35, 20, "none", 0, ""},
           {5, 38, 20, "none", 0, ""},
           {5, 68, 20, "none", 0, ""},
           {5, 36, 40, "none", 38, "lower"},
           {5, 40, 40, "none", 38, "upper"},
           {5, 144, 40, "none", 142, "upper"},
           {5, 36, 80, "none", 42, "ll"},
           {5, 40, 80, "none", 42, "lu"},
           {5, 44, 80, "none", 42, "ul"},
           {5, 48, 80, "none", 42, "uu"},
           {5, 52, 80, "none", 58, "ll"},
           {5, 100, 80, "none", 106, "ll"},
           {5, 116, 80, "none", 122, "ll"},
           {5, 144, 80, "none", 138, "uu"},
           {5, 149, 80, "none", 155, "ll"},
           {5, 161, 80, "none", 155, "uu"},
           {5, 36, 160, "none", 50, "lower"},
           {5, 64, 160, "none", 50, "upper"},
           {5, 128, 160, "none", 114, "upper"},
           {5, 132, 160, "none", 0, ""},
           {5, 36, 320, "none", 0, ""},
           {6, 1, 20, "none", 1, "none"},
           {6, 233, 20, "none", 233, "none"},
           {6, 237, 20, "none", 0, ""},
           {6, 229, 40, "none", 227, "upper"},
           {6, 233, 40, "none", 0, ""},
           {6, 161, 80, "none", 167, "ll"},
           {6, 165, 80, "none", 167, "lu"},
           {6, 181, 80, "none", 183, "lu"},
           {6, 197, 80, "none", 199, "lu"},
           {6, 213, 80, "none", 215, "lu"},
           {6, 225, 80, "none", 0, ""},
           {6, 161, 160, "none", 175, "lower"},
           {6, 193, 160, "none", 207, "lower"},
           {6, 1, 320, "none", 31, "lower"},
           {6, 189, 320, "none", 159, "upper"},
           {6, 193, 320, "none", 0, ""},
           {5, 36, 30, "none", 0, ""},
       }) {
    const auto block = channel_block(c.band, c.channel, c.bandwidth, c.primary);
    const std::string name = band_name(c.band) + " " + std::to_string(c.channel) + "/" + std::to_string(c.bandwidth);
    ASSERT_EQ(block.has_value(), c.centre != 0) << name;
    if (block) {
      EXPECT_EQ(block->centre_channel, c.centre) << name;
      EXPECT_EQ(block->primary, c.position) << name;
      EXPECT_DOUBLE_EQ(block->spectrum.width_mhz(), c.bandwidth) << name;
    }
  }
}

TEST(Spectrum, FrequenciesOfTheBands) {
  EXPECT_EQ(channel_block(2, 1, 20, "none")->spectrum, (Interval{2402, 2422}));
  EXPECT_EQ(channel_block(2, 14, 20, "none")->spectrum, (Interval{2474, 2494}));
  EXPECT_EQ(channel_block(5, 36, 80, "none")->spectrum, (Interval{5170, 5250}));
  EXPECT_EQ(channel_block(6, 1, 20, "none")->spectrum, (Interval{5945, 5965}));
}

TEST(Spectrum, OverlapIsTheShareOfTheTransmission) {
  const Interval wide{5170, 5250};
  const Interval narrow{5170, 5190};
  EXPECT_DOUBLE_EQ(overlap_fraction(wide, wide), 1);
  EXPECT_DOUBLE_EQ(overlap_fraction(narrow, wide), 1);
  EXPECT_DOUBLE_EQ(overlap_fraction(wide, narrow), 0.25);
  EXPECT_DOUBLE_EQ(overlap_fraction({2402, 2422}, {2417, 2437}), 0.25);  // channels 1 and 4
  EXPECT_DOUBLE_EQ(overlap_fraction({5170, 5250}, {5250, 5330}), 0);     // they only touch
  EXPECT_DOUBLE_EQ(overlap_fraction({2402, 2422}, {2427, 2447}), 0);     // channels 1 and 6
}

struct LossCase {
  double distance;
  double mhz;
  double loss;
};

// By hand from PL = 40.05 + 20 log10(fc / 2.4) + 20 log10(min(d, 10)) + [d > 10] 35 log10(d / 10).
TEST(RadioModelTest, DistanceLoss) {
  for (const LossCase& c : {
           LossCase{1, 2400, 40.05},  // the constant alone
           {0.2, 2400, 40.05},        // never nearer than a metre
           {10, 2400, 60.05},         // + 20 log10(10) = 20
           {20, 2400, 70.586},        // + 35 log10(2) = 10.536
           {100, 2400, 95.05},        // + 35 log10(10) = 35
           {1, 4800, 46.071},         // + 20 log10(2) = 6.021
           {10, 5180, 66.732},        // + 20 log10(2.15833) = 6.682
           {30, 6775, 85.764},        // 20 log10(2.82292) = 9.014, 35 log10(3) = 16.699
       }) {
    EXPECT_NEAR(distance_loss_db(c.distance, c.mhz), c.loss, 0.002) << c.distance << " m, " << c.mhz << " MHz";
  }
}

struct MaterialCase {
  const char* name;
  double at_2g;
  double at_5g;
  double at_6g;
};

// By hand: 2 + 0.2 f, 4.85 + 0.12 f, 5 + 4 f with f = 2.44, 5.5, 6.5 GHz.
TEST(RadioModelTest, WallsOfPublishedMaterials) {
  const auto materials = published_materials();
  EXPECT_EQ(materials.size(), 4U);
  for (const MaterialCase& c : {MaterialCase{"partition", 7, 7, 7},
                                {"glass", 2.488, 3.1, 3.3},
                                {"wood", 5.1428, 5.51, 5.63},
                                {"concrete", 14.76, 27, 31}}) {
    EXPECT_NEAR(materials.at(c.name).of(2), c.at_2g, 1e-9) << c.name;
    EXPECT_NEAR(materials.at(c.name).of(5), c.at_5g, 1e-9) << c.name;
    EXPECT_NEAR(materials.at(c.name).of(6), c.at_6g, 1e-9) << c.name;
  }
}

TEST(RadioModelTest, WallsOnTheWayAddUp) {
  Site site = parse_site(testing::two_aps);
  site.walls.push_back({{{8, 0}, {8, 10}}, "concrete"});
  const RadioModel model(site);
  EXPECT_DOUBLE_EQ(model.wall_loss_db({4, 5}, {14, 5}, 5), 7 + 27);
  EXPECT_DOUBLE_EQ(model.wall_loss_db({14, 5}, {4, 5}, 2), 7 + 14.76);
  EXPECT_DOUBLE_EQ(model.wall_loss_db({4, 5}, {6, 5}, 5), 0);
}

// 10 m at 5210 MHz: 40.05 + 6.7325 + 20 = 66.7825.
TEST(RadioModelTest, LinkLossIsTheSumInHundredths) {
  EXPECT_DOUBLE_EQ(link_loss_db(10, 5210, 7), 73.78);
  EXPECT_DOUBLE_EQ(link_loss_db(10, 5210, -0.5), 66.28);
}

TEST(RadioModelTest, ObstructionIsWallsAndShadowing) {
  Site site = parse_site(testing::two_aps);
  site.radio_model.shadowing_db = 5;
  const RadioModel model(site);
  EXPECT_DOUBLE_EQ(model.obstruction_db({4, 5}, Mac{1}, {14, 5}, Mac{2}, 5), 7 + model.shadowing_db(Mac{1}, Mac{2}, 5));
}

TEST(LinkTableTest, RemembersWhatTheModelSays) {
  Site site = parse_site(testing::two_aps);
  site.radio_model.shadowing_db = 5;
  const RadioModel model(site);
  LinkTable links(site, model);
  const Mac a = site.access_points[0].mac;
  const Mac b = site.access_points[1].mac;
  const Mac f = site.foreign_aps[0].bssid;
  for (const int band : {2, 5, 6}) {
    for (int times = 0; times < 2; ++times) {
      EXPECT_EQ(links.obstruction_db(0, 1, band), model.obstruction_db({4, 5}, a, {14, 5}, b, band));
      EXPECT_EQ(links.obstruction_db(1, 0, band), links.obstruction_db(0, 1, band));
      EXPECT_EQ(links.obstruction_db(2, 1, band), model.obstruction_db({4, 9}, f, {14, 5}, b, band));
      EXPECT_EQ(links.obstruction_db(0, 2, band), model.obstruction_db({4, 5}, a, {4, 9}, f, band));
    }
  }
}

TEST(RadioModelTest, ShadowingIsSymmetricFixedAndOfTheSitesDeviation) {
  Site site = parse_site(testing::two_aps);
  site.radio_model.shadowing_db = 5;
  const RadioModel model(site);
  EXPECT_EQ(model.shadowing_db(Mac{1}, Mac{2}, 5), model.shadowing_db(Mac{2}, Mac{1}, 5));
  EXPECT_NE(model.shadowing_db(Mac{1}, Mac{2}, 5), model.shadowing_db(Mac{1}, Mac{2}, 6));
  EXPECT_NE(model.shadowing_db(Mac{1}, Mac{2}, 5), model.shadowing_db(Mac{1}, Mac{3}, 5));
  double squares = 0;
  for (std::uint64_t i = 0; i < 10000; ++i) {
    squares += std::pow(model.shadowing_db(Mac{i}, Mac{i + 50000}, 5), 2);
  }
  EXPECT_NEAR(std::sqrt(squares / 10000), 5, 0.2);
}

TEST(RadioModelTest, AnotherSeedIsAnotherBuilding) {
  Site site = parse_site(testing::two_aps);
  site.radio_model.shadowing_db = 5;
  const double first = RadioModel(site).shadowing_db(Mac{1}, Mac{2}, 5);
  site.seed = 8;
  EXPECT_NE(RadioModel(site).shadowing_db(Mac{1}, Mac{2}, 5), first);
}

TEST(RadioModelTest, MeasurementsDifferByRoundAndScan) {
  Site site = parse_site(testing::two_aps);
  site.radio_model.noise_db = 1.5;
  const RadioModel model(site);
  std::set<double> errors;
  for (std::uint64_t scan = 0; scan < 3; ++scan) {
    for (std::uint64_t round = 0; round < 3; ++round) {
      errors.insert(model.measurement_error_db(Mac{1}, Mac{2}, scan, round));
    }
  }
  EXPECT_EQ(errors.size(), 9U);
}

TEST(RadioModelTest, Milliwatts) {
  EXPECT_DOUBLE_EQ(dbm_to_mw(0), 1);
  EXPECT_DOUBLE_EQ(dbm_to_mw(20), 100);
  EXPECT_DOUBLE_EQ(mw_to_dbm(0.001), -30);
  EXPECT_TRUE(std::isinf(mw_to_dbm(0)));
}

}  // namespace
}  // namespace sim
