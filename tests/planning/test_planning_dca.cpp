// The channel pass on small drawn sites. A letter is an AP with its present channel, a line a level at which both hear
// each other.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "planning/dca.h"
#include "planning/describe.h"
#include "planning/drawn_site.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ChannelPlan : public DrawnSite {
 protected:
  ApBuilder ap(char name) { return an_ap().mac(bssid(name)); }
  ChannelPassSummary pass() { return run_dca_pass(table, aps, config, results); }
  std::int32_t channel(char name, std::int32_t id = 0) { return radio(name, id).channel; }
  Neighbour& view(char listener, const MacAddr& speaker) {
    return *aps.find(address(listener))->visible_members.find(speaker);
  }

  SpectrumTable table;
};

RadioBuilder on(std::int32_t channel, std::initializer_list<std::int32_t> permitted) {
  return a_radio().channel(channel).available(permitted);
}

// --- Who moves, and where to.

//   A(1) ---- -50 ---- B(1)
TEST_F(ChannelPlan, OfTwoOnOneChannelTheFirstMovesToTheLowestFreeOneAndTheOtherStays) {
  site({ap('A').with_radio(on(1, {1, 6, 11})).hears(bssid('B'), a_neighbour(-50, 1)),
        ap('B').with_radio(on(1, {1, 6, 11})).hears(bssid('A'), a_neighbour(-50, 1))});
  EXPECT_EQ(pass(), (ChannelPassSummary{2, 1, 0}));
  EXPECT_EQ(channel('A'), 6);
  EXPECT_EQ(channel('B'), 1);
  EXPECT_EQ(view('B', address('A')).channel, 6);
  EXPECT_EQ(changed(), "A");
  EXPECT_EQ(pass(), (ChannelPassSummary{2, 0, 0})) << "nothing is left to gain";
}

//   A(1)          the rest of the band is free, and nobody is heard
TEST_F(ChannelPlan, ALoneRadioStaysWhereItMayBe) {
  site({ap('A').with_radio(on(6, {1, 6, 11}))});
  EXPECT_EQ(pass(), (ChannelPassSummary{1, 0, 0}));
  EXPECT_EQ(channel('A'), 6);
  EXPECT_EQ(changed(), "");
}

TEST_F(ChannelPlan, ALoneRadioOffItsListTakesTheFirstChannelOfIt) {
  site({ap('A').with_radio(on(6, {11, 3, 8}))});
  EXPECT_EQ(pass(), (ChannelPassSummary{1, 1, 0}));
  EXPECT_EQ(channel('A'), 3);
}

TEST_F(ChannelPlan, ARadioWithoutAValidChannelKeepsItsOwn) {
  site(
      {ap('A').with_radio(on(14, {14})).hears(bssid('B'), a_neighbour(-40, 14)), ap('B').with_radio(on(36, {14, 35}))});
  EXPECT_EQ(pass(), (ChannelPassSummary{2, 0, 0}));
  EXPECT_EQ(channel('A'), 14);
  EXPECT_EQ(channel('B'), 36);
  EXPECT_EQ(changed(), "");
}

//   A(1), locked   A(1), no list   A(1), off       each heard by B(1) at -50
TEST_F(ChannelPlan, ARadioThatMayNotMoveStaysUntouchedButIsSeen) {
  struct Case {
    const char* label;
    RadioBuilder radio;
  };
  for (const Case& c : {Case{"locked", on(1, {6, 11}).locked_dca()}, Case{"without a list", a_radio().channel(1)},
                        Case{"disabled", on(1, {6, 11}).disabled()}}) {
    SCOPED_TRACE(c.label);
    aps = ApMap();
    results.clear();
    RadioBuilder standing = c.radio;
    standing.with([](Radio& r) { r.visible_channels = 7, r.neighbour_count = 9; });
    site({ap('A').with_radio(standing).hears(bssid('B'), a_neighbour(-40, 1)),
          ap('B').with_radio(on(1, {1, 6, 11})).hears(bssid('A'), a_neighbour(-50, 1))});
    EXPECT_EQ(pass(), (ChannelPassSummary{1, 1, 0}));
    EXPECT_EQ(channel('A'), 1);
    EXPECT_EQ(radio('A').visible_channels, 7);
    EXPECT_EQ(radio('A').neighbour_count, 9);
    EXPECT_EQ(channel('B'), 6);
    EXPECT_EQ(changed(), "B");
  }
}

//   A(36) ---- -50 ---- B(36), and at 2.4 GHz an empty band
TEST_F(ChannelPlan, EachRadioIsPricedOnItsOwnBand) {
  site({ap('A').with_radio(on(1, {1, 6})).with_radio(on(36, {36, 40})).hears(bssid('B', 1), a_neighbour(-50, 36)),
        ap('B').with_radio(on(1, {1, 6})).with_radio(on(36, {36, 40}))});
  EXPECT_EQ(pass(), (ChannelPassSummary{4, 1, 0}));
  EXPECT_EQ(channel('A', 0), 1);
  EXPECT_EQ(channel('A', 1), 40);
}

TEST_F(ChannelPlan, NeighboursBelowMinusHundredMakeAChannelWorseThanAFreeOne) {
  // Channel 6 would cost less than nothing, so it is not a candidate.
  site({ap('A')
            .with_radio(on(1, {1, 6, 11}))
            .hears_rogue("EE:00:00:00:00:01", a_neighbour(-60, 1))
            .hears_rogue("EE:00:00:00:00:02", a_neighbour(-110, 6))});
  pass();
  EXPECT_EQ(channel('A'), 11);
}

// --- The order of the visits.

//         A(1)
//          | -50
//   B(6)--H(1)--C(11)     H hears three channels, the others hear H
TEST_F(ChannelPlan, TheApThatHearsMostChannelsGoesFirst) {
  site({ap('A').with_radio(on(1, {1, 6, 11})).hears(bssid('H'), a_neighbour(-50, 1)),
        ap('B').with_radio(on(6, {6})).hears(bssid('H'), a_neighbour(-60, 1)),
        ap('C').with_radio(on(11, {11})).hears(bssid('H'), a_neighbour(-70, 1)),
        ap('H')
            .with_radio(on(1, {1, 6, 11}))
            .hears(bssid('A'), a_neighbour(-50, 1))
            .hears(bssid('B'), a_neighbour(-60, 6))
            .hears(bssid('C'), a_neighbour(-70, 11))});
  pass();
  EXPECT_EQ(channel('H'), 11) << "the quietest of the three";
  EXPECT_EQ(channel('A'), 1) << "by its turn nobody is left there";
  EXPECT_EQ(changed(), "H");
}

//   A(1) ---- -50 ---- B(1), and B hears a second BSSID on channel 1
TEST_F(ChannelPlan, WithEquallyManyChannelsTheApWithMoreNeighboursGoesFirst) {
  site({ap('A').with_radio(on(1, {1, 6})).hears(bssid('B'), a_neighbour(-50, 1)),
        ap('B')
            .with_radio(on(1, {1, 6}))
            .hears(bssid('A'), a_neighbour(-50, 1))
            .hears("DE:00:00:00:00:01", a_neighbour(-99, 1))});
  pass();
  EXPECT_EQ(channel('A'), 1);
  EXPECT_EQ(channel('B'), 6);
}

//   C(1) ---- -50 ---- B(1), put into the set in this order
TEST_F(ChannelPlan, WithEqualNumbersTheLowerAddressGoesFirstWhateverTheOrderOfArrival) {
  site({ap('C').with_radio(on(1, {1, 6})).hears(bssid('B'), a_neighbour(-50, 1)),
        ap('B').with_radio(on(1, {1, 6})).hears(bssid('C'), a_neighbour(-50, 1))});
  pass();
  EXPECT_EQ(channel('B'), 6);
  EXPECT_EQ(channel('C'), 1);
}

//   A(36, 36): two radios of one AP that hear each other
TEST_F(ChannelPlan, TheRadiosOfOneApGoInTheOrderOfTheirIds) {
  site({ap('A')
            .with_radio(on(36, {36, 44, 149}))
            .with_radio(on(36, {36, 44, 149}))
            .hears(bssid('A', 0), a_neighbour(-40, 36))
            .hears(bssid('A', 1), a_neighbour(-40, 36))});
  EXPECT_EQ(pass(), (ChannelPassSummary{2, 1, 0}));
  EXPECT_EQ(channel('A', 0), 44) << "the first one makes way";
  EXPECT_EQ(channel('A', 1), 36) << "the second one is alone by then";
}

//   A(6) hears four channels and goes first; B and C hear three each
//   B(36) ---- -50 ---- C(36)     B hears A as well
TEST_F(ChannelPlan, AMoveReordersWhatIsLeft) {
  struct Case {
    const char* label;
    std::initializer_list<std::int32_t> permitted_to_a;
    std::int32_t b;
    std::int32_t c;
  };
  for (const Case& c : {Case{"A stays, so B has its turn before C", {6}, 149, 36},
                        Case{"A moves to where B hears somebody already: C now hears more channels", {1}, 36, 149}}) {
    SCOPED_TRACE(c.label);
    aps = ApMap();
    site({ap('A')
              .with_radio(on(6, c.permitted_to_a))
              .hears("DE:00:00:00:00:01", a_neighbour(-60, 1))
              .hears("DE:00:00:00:00:02", a_neighbour(-60, 6))
              .hears("DE:00:00:00:00:03", a_neighbour(-60, 11))
              .hears("DE:00:00:00:00:04", a_neighbour(-60, 44)),
          ap('B')
              .with_radio(a_radio().disabled())
              .with_radio(on(36, {36, 149}))
              .hears(bssid('A'), a_neighbour(-60, 6))
              .hears("DE:00:00:00:00:01", a_neighbour(-60, 1))
              .hears(bssid('C', 1), a_neighbour(-50, 36)),
          ap('C')
              .with_radio(a_radio().disabled())
              .with_radio(on(36, {36, 149}))
              .hears("DE:00:00:00:00:01", a_neighbour(-60, 1))
              .hears("DE:00:00:00:00:03", a_neighbour(-60, 11))
              .hears(bssid('B', 1), a_neighbour(-50, 36))});
    pass();
    EXPECT_EQ(channel('B', 1), c.b);
    EXPECT_EQ(channel('C', 1), c.c);
  }
}

// --- Who is told.

TEST_F(ChannelPlan, AMoveCorrectsTheRadiosOwnAddressAndLeavesItsOtherBssids) {
  const Neighbour wide = a_neighbour(-50, 36, 40);
  site({ap('A').with_radio(on(36, {149}).bandwidth(40).primary(256)).hears(bssid('B'), a_neighbour(-50, 36)),
        ap('B')
            .with_radio(a_radio().disabled())
            .hears("00:00:00:00:0A:00", wide)
            .hears("00:00:00:00:0A:01", wide)
            .hears_rogue("00:00:00:00:0A:00", wide)});
  pass();
  EXPECT_EQ(channel('A'), 149);
  EXPECT_EQ(view('B', address('A')).channel, 149);
  EXPECT_EQ(view('B', address('A')).primary, 256);
  EXPECT_EQ(view('B', mac("00:00:00:00:0A:01")).channel, 36);
  EXPECT_EQ(aps.find(address('B'))->visible_rogue.find(address('A'))->channel, 36);
  // Nothing else of the entry changes.
  EXPECT_EQ(view('B', address('A')).rssi, -50);
  EXPECT_EQ(view('B', address('A')).bandwidth, 40);
}

TEST_F(ChannelPlan, AMoveReachesAViewUnderTheOtherLocalBit) {
  site({ap('A').with_radio(on(1, {6})),
        ap('B').with_radio(a_radio().disabled()).hears("02:00:00:00:0A:00", a_neighbour(-50, 1))});
  pass();
  EXPECT_EQ(view('B', mac("02:00:00:00:0A:00")).channel, 6);
}

//   B hears A as 00:..., C as 02:...
TEST_F(ChannelPlan, WhereSomebodyHearsTheAddressAsItStandsTheOtherFormIsNotLookedFor) {
  site({ap('A').with_radio(on(1, {6})),
        ap('B').with_radio(a_radio().disabled()).hears("00:00:00:00:0A:00", a_neighbour(-50, 1)),
        ap('C').with_radio(a_radio().disabled()).hears("02:00:00:00:0A:00", a_neighbour(-50, 1))});
  pass();
  EXPECT_EQ(view('B', mac("00:00:00:00:0A:00")).channel, 6);
  EXPECT_EQ(view('C', mac("02:00:00:00:0A:00")).channel, 1);
}

TEST_F(ChannelPlan, ACorrectedPositionIsReportedAndToldWithoutAMove) {
  site({ap('A').with_radio(on(36, {36}).bandwidth(40).primary(512)),
        ap('B').with_radio(a_radio().disabled()).hears(bssid('A'), [] {
          Neighbour old_view = a_neighbour(-50, 44, 40);
          old_view.primary = 512;
          return old_view;
        }())});
  EXPECT_EQ(pass(), (ChannelPassSummary{1, 0, 1}));
  EXPECT_EQ(channel('A'), 36);
  EXPECT_EQ(radio('A').primary_channel, 256);
  EXPECT_EQ(view('B', address('A')).primary, 256);
  EXPECT_EQ(view('B', address('A')).channel, 44) << "only the position is told";
  EXPECT_EQ(changed(), "A");
  EXPECT_EQ(results.at(address('A')).list[0].primary_channel, 256);
  results.clear();
  EXPECT_EQ(pass(), (ChannelPassSummary{1, 0, 0}));
  EXPECT_EQ(changed(), "");
}

TEST_F(ChannelPlan, TheChoiceIsMadeByThePositionAsItStood) {
  // At 2.4 GHz an upper position leaves channel 1 no room for 40 MHz below it.
  site({ap('A').with_radio(on(1, {1, 5}).bandwidth(40).primary(512)),
        ap('B').with_radio(on(1, {1, 5}).bandwidth(40).primary(256))});
  pass();
  EXPECT_EQ(channel('A'), 5);
  EXPECT_EQ(channel('B'), 1);
}

TEST_F(ChannelPlan, AMovedRadioStandsOnTheRightPositionOfItsNewBlock) {
  site({ap('A').with_radio(on(36, {48}).bandwidth(80).primary(256))});
  pass();
  EXPECT_EQ(channel('A'), 48);
  EXPECT_EQ(radio('A').primary_channel, 1024);
}

// --- The two passes.

//   A(1) ---- -50 ---- B(1)     A hears a stranger on 6 at -80, B one on 1 at -60
TEST_F(ChannelPlan, TheSecondPassSeesWhereTheFirstOneLeftEverybody) {
  site({ap('A')
            .with_radio(on(1, {1, 6}))
            .hears(bssid('B'), a_neighbour(-50, 1))
            .hears_rogue("EE:00:00:00:00:01", a_neighbour(-80, 6)),
        ap('B')
            .with_radio(on(1, {1, 11}))
            .hears(bssid('A'), a_neighbour(-90, 1))
            .hears_rogue("EE:00:00:00:00:02", a_neighbour(-60, 1))});
  EXPECT_EQ(pass(), (ChannelPassSummary{2, 2, 0}));
  EXPECT_EQ(channel('A'), 6) << "away from B, as B stood then";
  EXPECT_EQ(channel('B'), 11);
  EXPECT_EQ(results.at(address('A')).list[0].channel, 6);
  EXPECT_EQ(pass(), (ChannelPassSummary{2, 1, 0}));
  EXPECT_EQ(channel('A'), 1) << "back, since B has gone";
  EXPECT_EQ(results.at(address('A')).list[0].channel, 1) << "the later pass replaces the earlier result";
  EXPECT_EQ(results.at(address('B')).list[0].channel, 11) << "and leaves what it did not change";
}

//   A(36), permitted 36 and 149; a stranger at -50 on 36 costs 150, one at -55 on 149 costs 133
TEST_F(ChannelPlan, AsTheFlagStandsTheThresholdPlaysNoPart) {
  config.dca_threshold = 99;
  site({ap('A')
            .with_radio(on(36, {36, 149}))
            .hears_rogue("EE:00:00:00:00:01", a_neighbour(-50, 36))
            .hears_rogue("EE:00:00:00:00:02", a_neighbour(-55, 149))});
  pass();
  EXPECT_EQ(channel('A'), 149);
  EXPECT_TRUE(table.ignore_dca_threshold) << "a pass leaves the flag alone";
}

TEST_F(ChannelPlan, WithTheFlagClearedASmallGainIsNotWorthAMove) {
  for (const auto& [threshold, expected] : {std::pair{25, 36}, std::pair{11, 36}, std::pair{10, 149}}) {
    SCOPED_TRACE(threshold);
    aps = ApMap();
    config.dca_threshold = threshold;
    table.ignore_dca_threshold = false;
    site({ap('A')
              .with_radio(on(36, {36, 149}))
              .hears_rogue("EE:00:00:00:00:01", a_neighbour(-50, 36))
              .hears_rogue("EE:00:00:00:00:02", a_neighbour(-55, 149))});
    pass();
    EXPECT_EQ(channel('A'), expected);
  }
}

// --- What comes out.

TEST_F(ChannelPlan, TheResultHoldsAllRadiosOfAChangedApAndNoOtherAp) {
  site({ap('A').with_radio(on(1, {6})).with_radio(on(36, {36})).received(), ap('B').with_radio(on(1, {1}))});
  pass();
  EXPECT_EQ(changed(), "A");
  EXPECT_EQ(describe(results.at(address('A'))), describe(aps.find(address('A'))->radios));
  EXPECT_TRUE(results.at(address('A')).received);
}

TEST_F(ChannelPlan, AnApIsReportedUnderTheAddressUnderWhichItStands) {
  const auto built = ap('A').with_radio(on(1, {6})).build(config);
  aps.insert(address('A', 2), built);
  pass();
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results.begin()->first, address('A', 2));
}

TEST_F(ChannelPlan, AVisitedRadioCarriesTheMarkAndTheNumberOfItsNeighbours) {
  site({ap('A')
            .with_radio(on(1, {1}))
            .hears("DE:00:00:00:00:01", a_neighbour(-50, 0))
            .hears("DE:00:00:00:00:02", a_neighbour(-50, 6))});
  pass();
  EXPECT_EQ(radio('A').visible_channels, -1);
  EXPECT_EQ(radio('A').neighbour_count, 2);
}

TEST_F(ChannelPlan, AnEmptyDomainIsPlannedAtOnce) {
  EXPECT_EQ(pass(), ChannelPassSummary());
  EXPECT_THAT(results, IsEmpty());
}

}  // namespace
}  // namespace rrm::testing
