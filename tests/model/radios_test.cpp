#include "model/Radios.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

class RadiosTest : public ::testing::Test {
 protected:
  Radios radios(const std::vector<RadioBuilder>& builders) const {
    Radios all(config, mac("00:11:22:00:00:00"));
    for (std::size_t i = 0; i < builders.size(); ++i) builders[i].apply(all.list.at(i));
    return all;
  }

  DomainConfig config;
  Capture capture;
};

TEST_F(RadiosTest, AreThreeWithTheirPlacesInThePool) {
  Radios all = radios({});
  ASSERT_EQ(all.list.size(), Radios::count);
  for (std::int32_t id = 0; id < 3; ++id) {
    EXPECT_EQ(all.find(id)->id, id);
    EXPECT_EQ(all.find(id)->mac, mac("00:11:22:00:00:00").plus(16 * id));
  }
  EXPECT_EQ(all.find(-1), nullptr);
  EXPECT_EQ(all.find(3), nullptr);
  all.set_macs(mac("00:11:22:00:01:00"));
  EXPECT_EQ(all.find(2)->mac, mac("00:11:22:00:01:20"));
}

TEST_F(RadiosTest, OnABandTheRadioOnTheChannelComesFirst) {
  const Radios all = radios({a_radio().channel(44).disabled(), a_radio().channel(36), a_radio().channel(44)});
  EXPECT_EQ(all.find_on_band(5, 44), &all.list[2]);
  EXPECT_EQ(all.find_on_band(5, 36), &all.list[1]);
  EXPECT_EQ(all.find_on_band(5, 149), &all.list[1]);
  EXPECT_EQ(all.find_on_band(2, 44), nullptr);
}

struct PredicateCase {
  const char* label;
  bool (Radios::*predicate)() const;
  RadioBuilder yes;
  std::vector<RadioBuilder> no;
};

TEST_F(RadiosTest, EachPredicateNeedsOneRadioThatFits) {
  const std::vector<PredicateCase> cases = {
      {"on air", &Radios::any_on_air, a_radio().channel(36), {a_radio().channel(0), a_radio().channel(36).disabled()}},
      {"802.11k", &Radios::any_11k, a_radio().disabled().vap(a_vap("a").k()), {a_radio().vap(a_vap("a").r().v())}},
      {"802.11r", &Radios::any_11r, a_radio().disabled().vap(a_vap("a").r()), {a_radio().vap(a_vap("a").k().v())}},
      {"802.11v",
       &Radios::any_11v,
       a_radio().vap(a_vap("a").v()),
       {a_radio().vap(a_vap("a").k().r()), a_radio().disabled().vap(a_vap("a").v()),
        a_radio().locked_80211v().vap(a_vap("a").v())}},
      {"802.11k or v, by v",
       &Radios::any_11kv,
       a_radio().vap(a_vap("a").v()),
       {a_radio().vap(a_vap("a").r()), a_radio().disabled().vap(a_vap("a").v()),
        a_radio().locked_80211v().vap(a_vap("a").v())}},
      {"802.11k or v, by k", &Radios::any_11kv, a_radio().locked_balancer().vap(a_vap("a").k()), {}},
      {"off its profile",
       &Radios::any_off_profile,
       a_radio().channel(44).available({36}),
       {a_radio().channel(36).available({36}), a_radio().channel(44).available({36}).locked_dca()}},
  };
  for (const PredicateCase& test : cases) {
    EXPECT_FALSE((radios({}).*test.predicate)()) << test.label;
    for (const RadioBuilder& no : test.no) EXPECT_FALSE((radios({no, no, no}).*test.predicate)()) << test.label;
    for (std::size_t place = 0; place < 3; ++place) {
      std::vector<RadioBuilder> builders(3, a_radio().disabled().channel(0));
      builders[place] = test.yes;
      EXPECT_TRUE((radios(builders).*test.predicate)()) << test.label << ", radio " << place;
    }
  }
}

TEST_F(RadiosTest, ABalancerIsFreeOnAnyUnlockedRadioEvenADisabledOne) {
  const RadioBuilder locked = a_radio().locked_balancer();
  EXPECT_FALSE(radios({locked, locked, locked}).any_balancer_free());
  EXPECT_TRUE(radios({locked, locked, a_radio().disabled()}).any_balancer_free());
}

TEST_F(RadiosTest, PrioritiesOfAllAreBroughtUpToDate) {
  config.use_80211v = true;
  const auto loaded = a_radio().with([](Radio& radio) {
    for (std::uint64_t i = 0; i < 5; ++i) radio.assoc.add_expected(MacAddr::from_number(i), {});
  });
  Radios all = radios({loaded, a_radio(), loaded});
  EXPECT_TRUE(all.update_priorities());
  EXPECT_EQ(all.list[0].priority, 127U);
  EXPECT_EQ(all.list[1].priority, 255U);
  EXPECT_EQ(all.list[2].priority, 127U);
  EXPECT_FALSE(all.update_priorities());
}

TEST_F(RadiosTest, ListsOfAllAreMarkedStale) {
  Radios all = radios({});
  all.mark_lists_stale();
  for (const Radio& radio : all.list) EXPECT_TRUE(radio.lists_stale);
}

TEST_F(RadiosTest, ComparePairByPair) {
  struct Case {
    const char* label;
    std::function<void(Radio&)> edit;
    bool vaps, channels, settings;
  };
  const std::vector<Case> cases = {
      {"the same", [](Radio&) {}, true, true, true},
      {"a VAP", [](Radio& r) { r.vaps.insert(a_vap("a").build()); }, false, true, true},
      {"a channel", [](Radio& r) { r.channel = 44; }, true, false, true},
      {"a lock", [](Radio& r) { r.locked_tpc = 1; }, true, true, false},
  };
  const RadioBuilder radio = a_radio().channel(36);
  const Radios mine = radios({radio, radio, radio});
  for (const Case& test : cases) {
    for (std::size_t place = 0; place < 3; ++place) {
      Radios other = mine;
      test.edit(other.list[place]);
      EXPECT_EQ(mine.vaps_equal(other), test.vaps) << test.label << ", radio " << place;
      EXPECT_EQ(mine.channels_equal(other), test.channels) << test.label << ", radio " << place;
      EXPECT_EQ(mine.all_settings_equal(other), test.settings) << test.label << ", radio " << place;
    }
  }
}

TEST_F(RadiosTest, NewLimitsGoToTheRadioOfTheSameId) {
  Radios mine = radios({a_radio(), a_radio(), a_radio()});
  mine.set_validate_power(
      radios({a_radio().power_range(1, 2), a_radio().power_range(3, 4), a_radio().power_range(5, 6)}));
  EXPECT_EQ(mine.list[0].power_max, 2);
  EXPECT_EQ(mine.list[1].power_max, 4);
  EXPECT_EQ(mine.list[2].power_max, 6);
}

TEST_F(RadiosTest, PowerIsComparedOnTheSameChannelOnly) {
  const Radios stored = radios({a_radio().channel(1).power(10), a_radio().channel(36).power(10)});
  struct Case {
    const char* label;
    std::vector<RadioBuilder> radios;
    bool lower;
  };
  // The third radios stand on channel 1 with power 0, as an AP record makes them.
  for (const Case& test : std::vector<Case>{
           {"the same", {a_radio().channel(6).power(0), a_radio().channel(36).power(10), a_radio().channel(9)}, false},
           {"more", {a_radio().channel(6), a_radio().channel(36).power(11), a_radio().channel(9)}, false},
           {"less", {a_radio().channel(6), a_radio().channel(36).power(9), a_radio().channel(9)}, true},
           {"less, in another place",
            {a_radio().channel(36).power(9), a_radio().channel(6), a_radio().channel(9)},
            true},
           {"less, elsewhere", {a_radio().channel(40).power(0), a_radio().channel(6), a_radio().channel(9)}, false}}) {
    EXPECT_EQ(radios(test.radios).any_lower_power(stored), test.lower) << test.label;
  }
}

struct OnBandCase {
  const char* label;
  std::int32_t channel, band;
  std::vector<bool> chosen;
};

const std::vector<OnBandCase> on_band_cases = {
    {"the band", 1, 5, {false, true, false}},
    {"the channel's band", 36, 0, {false, true, false}},
    {"the channel's band, 2.4 GHz", 14, 0, {true, false, false}},
    {"no band", 20, 0, {false, false, false}},
    {"a band that no radio has", 36, 6, {false, false, false}},
};

TEST_F(RadiosTest, AConflictMarksTheEnabledRadiosOfTheBand) {
  for (const OnBandCase& test : on_band_cases) {
    Radios all = radios({a_radio().channel(1), a_radio().channel(44), a_radio().channel(40).disabled()});
    all.mark_conflicted(test.channel, test.band);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(all.list[i].conflicted, test.chosen[i]) << test.label << ", " << i;
  }
}

TEST_F(RadiosTest, AnUnknownBandIsNoBandToShare) {
  Radios all = radios({a_radio().channel(20).power_range(0, 20).power(14)});
  all.mark_conflicted(20, 0);
  EXPECT_FALSE(all.list[0].conflicted);
  EXPECT_EQ(all.lower_power_on_band(20, -67, -70, 0), 0);
}

TEST_F(RadiosTest, AReductionTakesTheEnabledRadiosOfTheBand) {
  for (const OnBandCase& test : on_band_cases) {
    const auto radio = [](std::int32_t channel) { return a_radio().channel(channel).power_range(0, 20).power(14); };
    Radios all = radios({radio(1), radio(44), radio(40).disabled()});
    const bool any = test.chosen[0] || test.chosen[1] || test.chosen[2];
    EXPECT_EQ(all.lower_power_on_band(test.channel, -67, -70, test.band), any ? 3 : 0) << test.label;
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(all.list[i].power, test.chosen[i] ? 11 : 14) << test.label << ", " << i;
    }
  }
}

TEST_F(RadiosTest, AReductionIsTheLargestStepOfAll) {
  Radios all =
      radios({a_radio().channel(36).power_range(12, 20).power(14), a_radio().channel(44).power_range(9, 20).power(14),
              a_radio().channel(48).power_range(11, 20).power(14)});
  EXPECT_EQ(all.lower_power_on_band(36, -60, -70, 5), 5);
}

TEST_F(RadiosTest, OnlyEnabledRadiosAreTold) {
  Radios all = radios({a_radio().channel(1), a_radio().channel(36).disabled(), a_radio().channel(40)});
  const std::string told = array_text([&](JsonWriter& array) {
    all.list[0].write_radio_config(array);
    all.list[2].write_radio_config(array);
  });
  EXPECT_EQ(object_text([&](JsonWriter& object) { all.write_radios(object); }), R"({"radios":)" + told + "}");
}

TEST_F(RadiosTest, AllThreeGoIntoTheBackup) {
  Radios all = radios({a_radio().disabled(), a_radio().channel(36), a_radio().disabled()});
  all.received = true;
  const auto text = [](const Radio& radio) {
    return object_text([&](JsonWriter& object) { radio.dump_json(object); });
  };
  EXPECT_EQ(
      object_text([&](JsonWriter& object) { all.dump_json(object); }),
      R"({"received":1,"interfaces":[)" + text(all.list[0]) + "," + text(all.list[1]) + "," + text(all.list[2]) + "]}");
}

}  // namespace
}  // namespace rrm::testing
