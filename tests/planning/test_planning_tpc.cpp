// The power run on small drawn sites. A line is the level at which the AP on its left hears the one on its right, or
// both each other. Unless a test says otherwise: wanted level -70 dBm, hysteresis 2 dB, power 14 dBm within 10 to 16.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "planning/describe.h"
#include "planning/drawn_site.h"
#include "planning/tpc.h"

namespace rrm::testing {
namespace {

using ::testing::IsEmpty;

// A radio that power control may move, at 14 dBm.
RadioBuilder on(std::int32_t channel) {
  return a_radio().channel(channel).available({channel}).power(14).power_range(-1, -1);
}

class PowerPlan : public DrawnSite {
 protected:
  // An AP that has answered.
  ApBuilder ap(char name) { return an_ap().mac(bssid(name)).received(); }
  ApBuilder silent_ap(char name) { return an_ap().mac(bssid(name)); }
  PowerRunSummary run() { return run_tpc(aps, config, results); }
  std::int32_t power(char name, std::int32_t id = 0) { return radio(name, id).power; }
};

//   L ---- level ---> S        and S hears L at -70, so that L itself stands still
class PowerPair : public PowerPlan {
 protected:
  void pair(const Neighbour& heard, const RadioBuilder& listener, const RadioBuilder& speaker) {
    site({ap('L').with_radio(listener).hears(bssid('S'), heard),
          ap('S').with_radio(speaker).hears(bssid('L'), a_neighbour(-70, heard.channel, heard.bandwidth))});
  }
};

// --- Coming down.

TEST_F(PowerPair, ANeighbourComesDownByWhatItIsHeardTooLoud) {
  struct Case {
    const char* label;
    std::int32_t level;
    std::int32_t power;
    std::int32_t step;
    bool conflicted;
  };
  for (const Case& c :
       {Case{"at the wanted level", -70, 14, 0, false}, Case{"at wanted plus hysteresis, still", -68, 14, 0, false},
        Case{"one above", -67, 11, -3, true}, Case{"down to the lowest power", -66, 10, -4, true},
        Case{"held at the lowest power", -60, 10, -4, true}}) {
    SCOPED_TRACE(c.label);
    pair(a_neighbour(c.level, 36), on(36), on(36));
    EXPECT_EQ(run(), (PowerRunSummary{c.step != 0 ? 1u : 0u, 0}));
    EXPECT_EQ(power('S'), c.power);
    EXPECT_EQ(radio('S').power_changed, c.step);
    EXPECT_EQ(radio('S').conflicted, c.conflicted);
    EXPECT_EQ(power('L'), 14);
    EXPECT_EQ(changed(), c.step != 0 ? "S" : "");
  }
}

TEST_F(PowerPair, ANeighbourAtItsLowestPowerIsMarkedButNotReported) {
  pair(a_neighbour(-50, 36), on(36), on(36).power(10));
  EXPECT_EQ(run(), PowerRunSummary());
  EXPECT_EQ(power('S'), 10);
  EXPECT_TRUE(radio('S').conflicted);
  EXPECT_EQ(changed(), "");
}

//   L ---- -74 at 2.4 GHz, wanted -80 ---> S
//   L ---- -58 at 5 GHz, wanted -60 -----> S
TEST_F(PowerPlan, TheListenersThresholdCountsNotTheSpeakers) {
  config.ap_rssi_threshold_2g = -80;
  config.ap_rssi_threshold_5g = -60;
  config.hysteresis_2g = 5;
  config.hysteresis_5g = 1;
  site({ap('L')
            .with_radio(on(6))
            .with_radio(on(36))
            .hears(bssid('S'), a_neighbour(-74, 6))
            .hears(bssid('S', 1), a_neighbour(-58, 36)),
        ap('S').with_radio(on(6).power_range(0, 30)).with_radio(on(36).power_range(0, 30))});
  run();
  EXPECT_EQ(radio('S').power_changed, -6) << "-74 against -80, above -75";
  EXPECT_EQ(radio('S', 1).power_changed, -2) << "-58 against -60, above -59";
}

//   L ---- -67 ---> S, whose other radio of the band stands on 149 and whose 2.4 GHz radio is left alone
TEST_F(PowerPlan, AllEnabledRadiosOfTheBandComeDownNotTheHeardOneAlone) {
  site({ap('L').with_radio(on(36)).hears(bssid('S'), a_neighbour(-67, 36)),
        ap('S')
            .with_radio(on(36))
            .with_radio(on(149).power(15))
            .with_radio(on(6))
            .hears(bssid('L'), a_neighbour(-70, 36))});
  run();
  EXPECT_EQ(power('S', 0), 11);
  EXPECT_EQ(power('S', 1), 12);
  EXPECT_TRUE(radio('S', 1).conflicted);
  EXPECT_FALSE(radio('S', 2).conflicted);
}

//   K ---- -67 ---> S
//   L ---- -65 ---> S
//   M ---- -67 ---> S
TEST_F(PowerPlan, OfSeveralRequestsTheDeepestStandsAndTheyNeverAddUp) {
  site({ap('K').with_radio(on(36)).hears(bssid('S'), a_neighbour(-67, 36)),
        ap('L').with_radio(on(36)).hears(bssid('S'), a_neighbour(-65, 36)),
        ap('M').with_radio(on(36)).hears(bssid('S'), a_neighbour(-67, 36)),
        ap('S').with_radio(on(36).power(20).power_range(0, 30))});
  EXPECT_EQ(run().lowered, 2u) << "the third request asked for less than the second had got";
  EXPECT_EQ(power('S'), 15);
  EXPECT_EQ(radio('S').power_changed, -5);
  EXPECT_EQ(results.at(address('S')).list[0].power, 15) << "the deeper step replaced the stored radios";
}

TEST_F(PowerPlan, ARadioThatIsLockedDoesNotListenButIsLoweredThroughItsAp) {
  site({ap('L').with_radio(on(36).locked_tpc()).hears(bssid('S'), a_neighbour(-60, 36)),
        ap('S').with_radio(on(36)).hears(bssid('L'), a_neighbour(-67, 36))});
  run();
  EXPECT_EQ(power('S'), 14) << "the locked radio asked for nothing";
  EXPECT_EQ(power('L'), 11) << "the lock does not keep it from coming down";
}

TEST_F(PowerPlan, ARadioWithoutAListDoesNotListen) {
  site({ap('L').with_radio(a_radio().channel(36).power(14).power_range(-1, -1)).hears(bssid('S'), a_neighbour(-60, 36)),
        ap('S').with_radio(on(36)).hears(bssid('L'), a_neighbour(-70, 36))});
  EXPECT_EQ(run(), PowerRunSummary());
}

// --- Who takes part.

//   L <---- -60 ----> S
TEST_F(PowerPlan, AnApThatHasNotAnsweredNeitherAsksNorIsAskedNorRises) {
  const auto hearing = [&](ApBuilder builder, char other) {
    return builder.with_radio(on(36)).hears(bssid(other), a_neighbour(-60, 36));
  };
  struct Case {
    const char* label;
    ApBuilder l;
    ApBuilder s;
  };
  const auto off_air = [](ApBuilder builder) { return builder.with([](ApEntry& e) { e.radios.list[0].channel = 0; }); };
  for (const Case& c :
       {Case{"L is silent", hearing(silent_ap('L'), 'S'), hearing(ap('S'), 'L')},
        Case{"L has no radio on air", off_air(hearing(ap('L'), 'S')), hearing(ap('S'), 'L')},
        Case{"L is disabled", hearing(ap('L'), 'S').with([](ApEntry& e) { e.radios.list[0].status = false; }),
             hearing(ap('S'), 'L')}}) {
    SCOPED_TRACE(c.label);
    site({c.l, c.s});
    EXPECT_EQ(run(), (PowerRunSummary{0, 1}));
    EXPECT_EQ(power('L'), 14);
    EXPECT_FALSE(radio('L').conflicted);
    EXPECT_EQ(power('S'), 16) << "S hears nobody who takes part";
    EXPECT_EQ(changed(), "S");
  }
}

TEST_F(PowerPlan, ANeighbourIsKnownByAnyOfItsAddressesAndEitherLocalBit) {
  struct Case {
    const char* label;
    const char* heard;
    bool known;
  };
  for (const Case& c :
       {Case{"the radio", "00:00:00:00:1C:10", true}, Case{"the AP", "00:00:00:00:1C:00", true},
        Case{"a VAP", "00:00:00:00:1C:13", true}, Case{"a disabled radio", "00:00:00:00:1C:20", true},
        Case{"the local bit flipped", "02:00:00:00:1C:10", true}, Case{"nobody", "00:00:00:00:1C:99", false}}) {
    SCOPED_TRACE(c.label);
    site({ap('L').with_radio(on(36)).hears(c.heard, a_neighbour(-67, 36)),
          ap('S').with_radio(a_radio().disabled()).with_radio(on(36).vap(a_vap("net").id(3)))});
    EXPECT_EQ(run().lowered, c.known ? 1u : 0u);
  }
}

//   L hears 00:00:00:00:0B:10, which both B's radio 1 and S's VAP claim
TEST_F(PowerPlan, OfTwoApsThatClaimAnAddressTheFirstIsMeant) {
  site({ap('L').with_radio(on(36)).hears("00:00:00:00:0B:10", a_neighbour(-67, 36)),
        ap('B').with_radio(a_radio().disabled()).with_radio(on(36)),
        ap('S').with_radio(on(36).vap(a_vap("net").mac("00:00:00:00:0B:10")))});
  run();
  EXPECT_TRUE(radio('B', 1).conflicted);
  EXPECT_FALSE(radio('S').conflicted);
}

// --- Which neighbours count.

TEST_F(PowerPair, InHighDensityOnlyASharedSpectrumCounts) {
  for (const auto& [hd, lowered] : {std::pair{true, false}, std::pair{false, true}}) {
    SCOPED_TRACE(hd);
    config.use_hd_mode = hd;
    site({ap('L').with_radio(on(149)).hears(bssid('S'), a_neighbour(-67, 36)),
          ap('S').with_radio(on(36)).hears(bssid('L'), a_neighbour(-70, 149))});
    run();
    EXPECT_EQ(radio('S').conflicted, lowered) << "a neighbour on 36 and a listener on 149";
    EXPECT_EQ(power('L'), hd ? 16 : 14) << "a lone radio in its own block rises";
  }
}

//   L: radio 0 on 40, radio 1 on 36, wanted level by band; the entry stands on 36
TEST_F(PowerPlan, WithoutHighDensityTheListenerOnTheEntrysChannelIsPreferred) {
  config.use_hd_mode = false;
  struct Case {
    const char* label;
    std::int32_t second_channel;
    bool lowered;
  };
  // Radio 0 is locked, so only if radio 1 is the one that listens anything happens.
  for (const Case& c :
       {Case{"radio 1 on the channel", 36, true}, Case{"none on it: the first of the band", 44, false}}) {
    SCOPED_TRACE(c.label);
    site({ap('L')
              .with_radio(on(40).locked_tpc())
              .with_radio(on(c.second_channel))
              .hears(bssid('S'), a_neighbour(-67, 36)),
          ap('S').with_radio(on(36))});
    run();
    EXPECT_EQ(radio('S').conflicted, c.lowered);
  }
}

TEST_F(PowerPlan, InHighDensityTheFirstOverlappingRadioListens) {
  // Both radios overlap the 40 MHz entry; the first one is locked and so nothing happens.
  site({ap('L').with_radio(on(36).locked_tpc()).with_radio(on(40)).hears(bssid('S'), a_neighbour(-67, 36, 40)),
        ap('S').with_radio(on(36).bandwidth(40))});
  run();
  EXPECT_FALSE(radio('S').conflicted);
}

TEST_F(PowerPair, AnEntryOfUnknownBandStandsInTheBandOfItsChannel) {
  struct Case {
    const char* label;
    std::int32_t channel;
    std::int32_t radio_band;
    bool lowered;
  };
  for (const Case& c :
       {Case{"2.4 GHz", 6, 2, true}, Case{"5 GHz", 36, 5, true}, Case{"6 GHz from 166 on", 169, 6, true},
        Case{"165 is 5 GHz", 165, 6, false}, Case{"no band at all", 20, 6, false}, Case{"channel 0", 0, 5, false}}) {
    SCOPED_TRACE(c.label);
    Neighbour heard = a_neighbour(-67, c.channel);
    heard.band = 0;
    pair(heard, on(c.channel).band(c.radio_band), on(c.channel).band(c.radio_band));
    run();
    EXPECT_EQ(radio('S').conflicted, c.lowered);
  }
}

// --- Coming up.

TEST_F(PowerPair, ARadioRisesByWhatItsStrongestPeerIsTooFaint) {
  struct Case {
    const char* label;
    std::int32_t level;
    std::int32_t power;
    std::int32_t step;
  };
  for (const Case& c : {Case{"at wanted minus hysteresis, still", -72, 14, 0}, Case{"within the bounds", -71, 14, 0},
                        Case{"one below, held at the highest power", -73, 16, 2},
                        Case{"far below, held at the highest power", -75, 16, 2}}) {
    SCOPED_TRACE(c.label);
    pair(a_neighbour(c.level, 36), on(36), on(36));
    EXPECT_EQ(run(), (PowerRunSummary{0, c.step != 0 ? 1u : 0u}));
    EXPECT_EQ(power('L'), c.power);
    EXPECT_EQ(radio('L').power_changed, c.step);
    EXPECT_EQ(changed(), c.step != 0 ? "L" : "");
  }
  pair(a_neighbour(-75, 36), on(36).power_range(0, 30), on(36));
  run();
  EXPECT_EQ(power('L'), 19) << "with room above: 14 and the 5 that are missing";
}

//   A, alone
TEST_F(PowerPlan, ALoneRadioGoesToTheTopOfItsRange) {
  struct Case {
    const char* label;
    RadioBuilder radio;
    std::int32_t power;
  };
  for (const Case& c : {Case{"the domain's default", on(36), 16}, Case{"its own", on(36).power_range(5, 23), 23},
                        Case{"the EIRP limit", on(36).power_range(5, 23).antenna(3, 1).eirp_range(-1, 20), 18}}) {
    SCOPED_TRACE(c.label);
    site({ap('A').with_radio(c.radio)});
    EXPECT_EQ(run(), (PowerRunSummary{0, 1}));
    EXPECT_EQ(power('A'), c.power);
    EXPECT_EQ(radio('A').power_changed, c.power - 14);
    EXPECT_EQ(changed(), "A");
  }
}

TEST_F(PowerPlan, ALoneRadioAboveItsRangeIsBroughtBackIntoIt) {
  site({ap('A').with_radio(on(36).power(20))});
  EXPECT_EQ(run(), (PowerRunSummary{0, 1}));
  EXPECT_EQ(power('A'), 16);
  EXPECT_EQ(radio('A').power_changed, -4);
}

TEST_F(PowerPlan, APeerAtMinusHundredIsNoPeer) {
  for (const auto& [level, expected] :
       {std::pair{-120, 60}, std::pair{-100, 60}, std::pair{-99, 43}, std::pair{-78, 22}}) {
    SCOPED_TRACE(level);
    site({ap('A').with_radio(on(36).power_range(0, 60)).hears(bssid('B'), a_neighbour(level, 36)),
          ap('B').with_radio(on(36))});
    run();
    EXPECT_EQ(power('A'), expected);
  }
}

TEST_F(PowerPlan, ARadioThatSomebodyFoundTooLoudDoesNotRise) {
  // S is too loud for L and hears nobody itself.
  site({ap('L').with_radio(on(36)).hears(bssid('S'), a_neighbour(-67, 36)), ap('S').with_radio(on(36))});
  EXPECT_EQ(run(), (PowerRunSummary{1, 0}));
  EXPECT_EQ(power('S'), 11);
}

TEST_F(PowerPlan, ARadioThatIsLockedDisabledOrWithoutAListDoesNotRise) {
  struct Case {
    const char* label;
    RadioBuilder radio;
  };
  for (const Case& c :
       {Case{"locked", on(36).locked_tpc()}, Case{"disabled", on(36).disabled()},
        Case{"no list", a_radio().channel(36).power(14).power_range(-1, -1)}, Case{"no band", on(20).band(0)}}) {
    SCOPED_TRACE(c.label);
    site({ap('A').with_radio(c.radio).with_radio(on(1).locked_tpc())});
    EXPECT_EQ(run(), PowerRunSummary());
    EXPECT_EQ(power('A'), 14);
  }
}

TEST_F(PowerPlan, ARadioOfUnknownBandRisesByTheBandOfItsChannelAndTheThresholdsOf24GHz) {
  config.use_hd_mode = false;
  config.ap_rssi_threshold_2g = -80;
  config.ap_rssi_threshold_5g = -60;
  site({ap('A').with_radio(on(36).band(0).power_range(0, 30)).hears(bssid('B'), a_neighbour(-85, 36)),
        ap('B').with_radio(on(36))});
  run();
  EXPECT_EQ(power('A'), 19) << "-85 against -80";
}

//   A hears B at -75 and C at -75, and D louder but in another band
TEST_F(PowerPlan, OnlyTheStrongestAcceptedPeerCounts) {
  struct Case {
    const char* label;
    Neighbour d;
    std::int32_t power;
  };
  const auto in_band = [](Neighbour n, std::int32_t band) {
    n.band = band;
    return n;
  };
  for (const Case& c :
       {Case{"D stronger", a_neighbour(-73, 36), 17}, Case{"D fainter", a_neighbour(-90, 36), 19},
        Case{"D as strong", a_neighbour(-75, 36), 19}, Case{"D in another band", in_band(a_neighbour(-71, 36), 2), 19},
        Case{"D of unknown band", in_band(a_neighbour(-73, 36), 0), 17}}) {
    SCOPED_TRACE(c.label);
    site({ap('A')
              .with_radio(on(36).power_range(0, 30))
              .hears(bssid('B'), a_neighbour(-75, 36))
              .hears(bssid('C'), a_neighbour(-75, 36))
              .hears(bssid('D'), c.d),
          ap('B').with_radio(on(36)), ap('C').with_radio(on(36)), ap('D').with_radio(on(36))});
    run();
    EXPECT_EQ(power('A'), c.power);
  }
}

TEST_F(PowerPlan, In6GHzAnEntryOfUnknownBandLowersButDoesNotKeepAnybodyFromRising) {
  Neighbour unknown = a_neighbour(-67, 169);
  unknown.band = 0;
  site({ap('L').with_radio(on(169).band(6)).hears(bssid('S'), unknown), ap('S').with_radio(on(169).band(6))});
  EXPECT_EQ(run(), (PowerRunSummary{1, 1}));
  EXPECT_EQ(power('S'), 11) << "the first sweep infers the band";
  EXPECT_EQ(power('L'), 16) << "the second one passes over the entry, so L is alone";
}

//   A(36) hears B at -71, so it would stand still; B's radio decides whether B counts
TEST_F(PowerPlan, APeerCountsByTheRadioThatFacesOne) {
  struct Case {
    const char* label;
    bool hd;
    std::vector<RadioBuilder> b;
    bool counts;
  };
  for (const Case& c :
       {Case{"hd: on the channel", true, {on(36)}, true}, Case{"hd: elsewhere", true, {on(44)}, false},
        Case{"hd: one block with the wider of the two", true, {on(40).bandwidth(40)}, true},
        Case{"hd: disabled", true, {on(36).disabled(), on(1)}, false},
        Case{"hd: the second one overlaps", true, {on(149), on(36)}, true},
        Case{"by band: elsewhere", false, {on(44)}, true}, Case{"by band: another band", false, {on(1)}, false},
        Case{"by band: disabled", false, {on(36).disabled(), on(1)}, false},
        Case{"by band: the first of the band is on no channel", false, {on(0).band(5), on(44)}, false},
        Case{"by band: but one on the channel goes first", false, {on(0).band(5), on(36)}, true}}) {
    SCOPED_TRACE(c.label);
    config.use_hd_mode = c.hd;
    ApBuilder b = ap('B');
    for (const RadioBuilder& radio : c.b) b.with_radio(radio);
    site({ap('A').with_radio(on(36)).hears(bssid('B'), a_neighbour(-71, 36)), b});
    run();
    EXPECT_EQ(power('A'), c.counts ? 14 : 16);
  }
}

TEST_F(PowerPlan, TheResultOfTheSecondSweepReplacesThatOfTheFirst) {
  // S: radio 0 comes down for L, radio 1 is alone at 2.4 GHz and rises.
  site({ap('L').with_radio(on(36)).hears(bssid('S'), a_neighbour(-67, 36)),
        ap('S').with_radio(on(36)).with_radio(on(6))});
  EXPECT_EQ(run(), (PowerRunSummary{1, 1}));
  EXPECT_EQ(results.at(address('S')).list[0].power, 11);
  EXPECT_EQ(results.at(address('S')).list[1].power, 16);
  EXPECT_EQ(describe(results.at(address('S'))), describe(aps.find(address('S'))->radios));
}

TEST_F(PowerPlan, LevelsThatNobodyCanMeasureDoNoHarm) {
  for (const std::int32_t level :
       {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
    SCOPED_TRACE(level);
    site({ap('L').with_radio(on(36)).hears(bssid('S'), a_neighbour(level, 36)), ap('S').with_radio(on(36))});
    run();
    EXPECT_EQ(power('S'), level < 0 ? 16 : 10);
  }
}

// --- Overlap.

TEST(PowerOverlap, ASignalSharesSpectrumByBandWidthAndDistance) {
  struct Case {
    const char* label;
    std::int32_t band;
    std::int32_t radio_channel;
    std::int32_t radio_width;
    std::int32_t channel;
    std::int32_t width;
    bool overlaps;
  };
  const Case cases[] = {
      {"5 GHz 20 MHz: the same channel", 5, 36, 20, 36, 20, true},
      {"5 GHz 20 MHz: the next one", 5, 36, 20, 40, 20, false},
      {"5 GHz 40 MHz: one block", 5, 36, 20, 40, 40, true},
      {"5 GHz 40 MHz: the radio is the wider one", 5, 36, 40, 40, 20, true},
      {"5 GHz 40 MHz: the next block", 5, 40, 40, 44, 40, false},
      {"5 GHz 40 MHz: the last block", 5, 157, 40, 161, 40, true},
      {"5 GHz 40 MHz: beside the table, by runs of 8", 5, 65, 40, 72, 40, true},
      {"5 GHz 40 MHz: beside the table, the next run", 5, 72, 40, 73, 40, false},
      {"5 GHz 80 MHz: one block", 5, 36, 80, 48, 20, true},
      {"5 GHz 80 MHz: the next block", 5, 48, 80, 52, 80, false},
      {"5 GHz 80 MHz: 149 to 161", 5, 149, 80, 161, 80, true},
      {"5 GHz 80 MHz: 165 stands alone", 5, 161, 80, 165, 80, false},
      {"5 GHz 80 MHz: beside the table, by runs of 16", 5, 65, 80, 80, 80, true},
      {"5 GHz 160 MHz: the lower block", 5, 36, 160, 64, 20, true},
      {"5 GHz 160 MHz: the upper block", 5, 100, 160, 128, 160, true},
      {"5 GHz 160 MHz: two blocks", 5, 64, 160, 100, 160, false},
      {"5 GHz 160 MHz: beside the table, by runs of 32", 5, 132, 160, 160, 160, true},
      {"5 GHz 160 MHz: the next run", 5, 160, 160, 161, 160, false},
      {"5 GHz 320 MHz: nearest to one centre", 5, 36, 320, 47, 320, true},
      {"5 GHz 320 MHz: nearest to two", 5, 47, 320, 48, 320, false},
      {"5 GHz 320 MHz: out of reach of all centres", 5, 256, 320, 257, 320, false},
      {"5 GHz 320 MHz: at the last centre's reach", 5, 255, 320, 223, 320, true},
      {"5 GHz outside the numbering", 5, 234, 40, 235, 40, false},
      {"5 GHz outside the numbering, the same channel", 5, 234, 40, 234, 40, true},
      {"5 GHz below the numbering", 5, -1, 80, 0, 80, false},
      {"5 GHz, an unknown width: the same channel", 5, 36, 60, 40, 60, false},
      {"6 GHz 20 MHz: distance 3", 6, 5, 20, 8, 20, true},
      {"6 GHz 20 MHz: distance 4", 6, 5, 20, 9, 20, false},
      {"6 GHz 40 MHz: distance 7", 6, 5, 40, 12, 20, true},
      {"6 GHz 40 MHz: distance 8", 6, 5, 40, 13, 20, false},
      {"6 GHz 80 MHz: distance 15", 6, 21, 80, 6, 80, true},
      {"6 GHz 80 MHz: distance 16", 6, 21, 80, 5, 80, false},
      {"6 GHz 160 MHz: distance 31", 6, 1, 160, 32, 20, true},
      {"6 GHz 160 MHz: distance 32", 6, 1, 160, 33, 20, false},
      {"6 GHz 320 MHz: distance 63", 6, 1, 320, 64, 20, true},
      {"6 GHz 320 MHz: distance 64", 6, 1, 320, 65, 20, false},
      {"6 GHz, an unknown width counts as 20 MHz", 6, 5, 60, 9, 20, false},
      {"2.4 GHz 20 MHz: distance 3", 2, 1, 20, 4, 20, true},
      {"2.4 GHz 20 MHz: distance 4", 2, 1, 20, 5, 20, false},
      {"2.4 GHz 40 MHz reaches the whole band", 2, 1, 20, 13, 40, true},
      {"2.4 GHz, wider than 40 MHz counts as 20 MHz", 2, 1, 20, 13, 80, false},
      {"any other band like 2.4 GHz", 3, 1, 20, 4, 20, true},
      {"numbers from the wire", 6, std::numeric_limits<std::int32_t>::min(), 20,
       std::numeric_limits<std::int32_t>::max(), 20, false},
  };
  const Capture quiet;
  const DomainConfig config;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    const Radio radio = a_radio().channel(c.radio_channel).band(c.band).bandwidth(c.radio_width).build(config);
    EXPECT_EQ(radio_overlaps(radio, c.band, c.channel, c.width), c.overlaps);
  }
}

TEST(PowerOverlap, ADisabledRadioAnotherBandOrNoBandNeverOverlaps) {
  const Capture quiet;
  const DomainConfig config;
  EXPECT_TRUE(radio_overlaps(a_radio().channel(36).build(config), 5, 36, 20));
  EXPECT_FALSE(radio_overlaps(a_radio().channel(36).disabled().build(config), 5, 36, 20));
  EXPECT_FALSE(radio_overlaps(a_radio().channel(36).build(config), 2, 36, 20));
  EXPECT_FALSE(radio_overlaps(a_radio().channel(36).band(0).build(config), 0, 36, 20));
}

// --- Results.

TEST(PowerResult, AStoredResultIsReplacedOnlyByALowerPowerOnOneOfItsChannels) {
  struct Case {
    const char* label;
    std::int32_t channel;
    std::int32_t power;
    bool replaced;
  };
  const Capture quiet;
  const DomainConfig config;
  const auto radios = [&](std::int32_t channel, std::int32_t power) {
    return an_ap()
        .with_radio(a_radio().channel(channel).power(power))
        .with_radio(a_radio().channel(200).power(99))
        .build(config)
        ->radios;
  };
  const MacAddr key = mac("00:11:22:00:00:00");
  for (const Case& c : {Case{"lower", 36, 11, true}, Case{"equal", 36, 12, false}, Case{"higher", 36, 13, false},
                        Case{"lower, but on another channel", 40, 11, false}}) {
    SCOPED_TRACE(c.label);
    PlanResult results;
    record_power_result(results, key, radios(36, 12));
    ASSERT_EQ(results.at(key).list[0].power, 12) << "the first one is always stored";
    record_power_result(results, key, radios(c.channel, c.power));
    EXPECT_EQ(describe(results.at(key)), describe(c.replaced ? radios(c.channel, c.power) : radios(36, 12)));
  }
}

}  // namespace
}  // namespace rrm::testing
