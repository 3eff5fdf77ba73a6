// The key holders of 802.11r VAPs and the links between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "planning/fbt_links.h"
#include "planning/plain_fbt_links.h"
#include "planning/random_domain.h"
#include "planning/random_links.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

void discard(const char*, int, const char*, int, const char*, va_list) {}

// Against the plain version, over random domains

// Both versions over copies of one domain. They are copies of a third, so that an address that two APs claim has the
// same owner in both.
struct Both {
  explicit Both(std::uint32_t seed) : random(seed), config(random_config(seed)), ours(random_domain(config, seed)) {
    std::srand(seed);
    wildcard = random.percent(60);
    config.use_80211r_2g_cross_band = random.percent(60);
    random.set_up(ours);
    fill_key_holders(ours, wildcard);
    copy();
  }

  void disturb() {
    if (random.percent(15)) wildcard = !wildcard;
    if (random.percent(30)) config.use_80211r_2g_cross_band = !config.use_80211r_2g_cross_band;
    random.disturb(ours);
    fill_key_holders(ours, wildcard);
    copy();
  }

  void copy() {
    ours = ours.clone();
    plain = ours.clone();
  }

  RandomLinks random;
  DomainConfig config;
  bool wildcard = false;
  ApMap ours;
  ApMap plain;
};

struct Counts {
  std::size_t links = 0;
  std::size_t changed_aps = 0;
  std::size_t quiet_passes = 0;
};

void count(const ApMap& aps, bool changed, Counts& counts) {
  counts.quiet_passes += !changed;
  for (const auto& [mac, ap] : aps) {
    counts.changed_aps += ap->fbt_changed;
    for (const Radio& radio : ap->radios.list) {
      for (const auto& [ssid, vap] : radio.vaps) counts.links += vap.fbt_links.size();
    }
  }
}

void clear_changed(ApMap& aps) {
  for (const auto& [mac, ap] : aps) ap->fbt_changed = false;
}

TEST(FbtLinksEquivalence, EveryUpdateOfAChangingDomainGivesWhatThePlainVersionGives) {
  set_log_hook(discard);
  Counts counts;
  for (std::uint32_t seed = 1; seed <= 30 && !HasFailure(); ++seed) {
    Both both(seed);
    for (int pass = 0; pass < 6 && !HasFailure(); ++pass) {
      SCOPED_TRACE("seed " + std::to_string(seed) + " pass " + std::to_string(pass));
      const std::string before = describe_links(both.ours);
      const bool plain_changed = plain_update_fbt_links(both.plain, both.config, both.wildcard);
      EXPECT_EQ(describe_links(both.ours), before) << "what a copy does is not seen in the original";
      EXPECT_EQ(update_fbt_links(both.ours, both.config, both.wildcard), plain_changed);
      EXPECT_EQ(describe_links(both.ours), describe_links(both.plain));
      count(both.ours, plain_changed, counts);
      // Every other update is followed by one of the same domain, with nothing to tell or with old news.
      if (both.random.percent(70)) clear_changed(both.ours);
      if (pass % 2 == 1) {
        both.disturb();
      } else {
        both.copy();
      }
    }
  }
  // The domains are worth the comparison.
  EXPECT_GT(counts.links, 50000u);
  EXPECT_GT(counts.changed_aps, 500u);
  EXPECT_GT(counts.quiet_passes, 15u);
}

TEST(FbtLinksEquivalence, TheSameLinesAreLogged) {
  std::set<std::string> kinds;
  for (std::uint32_t seed = 1001; seed <= 1006 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    set_log_hook(discard);
    Both both(seed);
    update_fbt_links(both.ours, both.config, both.wildcard);
    both.disturb();
    Capture capture;
    plain_update_fbt_links(both.plain, both.config, both.wildcard);
    const std::vector<LogLine> expected = capture.lines();
    capture.clear();
    update_fbt_links(both.ours, both.config, both.wildcard);
    EXPECT_EQ(capture.lines(), expected);
    for (const LogLine& line : expected) kinds.insert(line.text.substr(0, line.text.find(' ')));
  }
  EXPECT_THAT(kinds, IsSupersetOf({"skip", "invalid", "unlink", "already", "now", "FBT"}));
}

// Small domains: AP n has the address 00:11:22:33:0n:00 and the serial number SNn; its radio r begins at
// 00:11:22:33:0n:r0, and a VAP lies its id beyond that.

const char* const wildcard_r1 = "ff:ff:ff:ff:ff:ff";

class FbtLinksTest : public ::testing::Test {
 protected:
  static ApBuilder ap(int number) {
    return an_ap().mac("00:11:22:33:0" + std::to_string(number) + ":00").serial("SN" + std::to_string(number));
  }
  static VapBuilder vap(const std::string& ssid = "office", int id = 1) { return a_vap(ssid).id(id).r(); }
  // A VAP whose key holders are of the text `name`, its key too.
  static VapBuilder named(const std::string& name, const std::string& r1, const std::string& ssid = "office") {
    return vap(ssid).keyholders("r0 " + name, r1, "key " + name);
  }
  static RadioBuilder radio5(const VapBuilder& one = vap()) { return a_radio().channel(36).vap(one); }
  static RadioBuilder radio2(const VapBuilder& one = vap()) { return a_radio().channel(1).vap(one); }
  static RadioBuilder radio6(const VapBuilder& one = vap()) { return a_radio().channel(37).band(6).vap(one); }

  void make(std::initializer_list<ApBuilder> builders) {
    aps = ApMap();
    for (const ApBuilder& builder : builders) {
      const auto made = builder.build(config);
      aps.insert(made->mac, made);
    }
  }
  // As an update does it: whoever lacks key holders is given some, then all are linked.
  bool update() {
    fill_key_holders(aps, wildcard);
    capture.clear();
    return update_fbt_links(aps, config, wildcard);
  }
  void clear_changed() { testing::clear_changed(aps); }

  ApEntry& of(int number) { return *aps.find(mac("00:11:22:33:0" + std::to_string(number) + ":00")); }
  VapEntry& vap_of(int number, std::size_t radio = 0, const std::string& ssid = "office") {
    return *of(number).radios.list.at(radio).vaps.find(ssid);
  }
  std::vector<FbtLink> links_of(int number, std::size_t radio = 0, const std::string& ssid = "office") {
    std::vector<FbtLink> links;
    for (const SharedFbtLink& link : vap_of(number, radio, ssid).fbt_links) links.push_back(*link);
    return links;
  }
  // The R1 key holders of the links alone.
  std::vector<std::string> ends_of(int number, std::size_t radio = 0, const std::string& ssid = "office") {
    std::vector<std::string> ends;
    for (const FbtLink& link : links_of(number, radio, ssid)) ends.push_back(link.remote_r1_kh_id);
    return ends;
  }
  FbtLink link_to(int number, std::size_t radio = 0) {
    const VapEntry& peer = vap_of(number, radio);
    return {peer.fbt_r0_keyholder, peer.fbt_r1_keyholder, peer.fbt_rrb_key};
  }

  DomainConfig config;
  bool wildcard = false;
  ApMap aps;
  Capture capture;
};

// Key holders

TEST_F(FbtLinksTest, AVapIsKnownByTheSerialNumberItsAddressAndAKeyOfSixteenLetters) {
  make({ap(1).with_radio(radio5())});
  fill_key_holders(aps, false);
  EXPECT_EQ(vap_of(1).fbt_r0_keyholder, "SN1");
  EXPECT_EQ(vap_of(1).fbt_r1_keyholder, "00:11:22:33:01:01");
  EXPECT_THAT(vap_of(1).fbt_rrb_key, ::testing::MatchesRegex("[A-Za-z]{16}"));
}

TEST_F(FbtLinksTest, BothWildcardSettingsMakeTheAddressTheR0KeyHolder) {
  struct Case {
    bool server, ap;
    const char* r0;
  };
  for (const Case& one : {Case{false, false, "SN1"}, Case{false, true, "SN1"}, Case{true, false, "SN1"},
                          Case{true, true, "0A112233AB0F"}}) {
    make({ap(1).with_radio(radio5(a_vap("office").mac("0a:11:22:33:ab:0f").r()))});
    of(1).use_wildcard_80211r = one.ap;
    fill_key_holders(aps, one.server);
    EXPECT_EQ(vap_of(1).fbt_r0_keyholder, one.r0) << one.server << one.ap;
    EXPECT_EQ(vap_of(1).fbt_r1_keyholder, "0A:11:22:33:AB:0F") << one.server << one.ap;
  }
}

TEST_F(FbtLinksTest, WhatWasGivenOnceStays) {
  make({ap(1).with_radio(radio5())});
  fill_key_holders(aps, false);
  const std::string key = vap_of(1).fbt_rrb_key;
  of(1).use_wildcard_80211r = true;
  vap_of(1).mac = mac("00:11:22:33:01:07");
  fill_key_holders(aps, true);
  EXPECT_EQ(vap_of(1).fbt_r0_keyholder, "SN1");
  EXPECT_EQ(vap_of(1).fbt_r1_keyholder, "00:11:22:33:01:01");
  EXPECT_EQ(vap_of(1).fbt_rrb_key, key);
}

TEST_F(FbtLinksTest, OnlyWhatIsMissingIsGiven) {
  make({ap(1).with_radio(radio5(vap().keyholders("", "mine", "mine"))),
        ap(2).with_radio(radio5(vap().keyholders("mine", "", "mine"))),
        ap(3).with_radio(radio5(vap().keyholders("mine", "mine", "")))});
  fill_key_holders(aps, false);
  EXPECT_EQ(link_to(1), (FbtLink{"SN1", "mine", "mine"}));
  EXPECT_EQ(link_to(2), (FbtLink{"mine", "00:11:22:33:02:01", "mine"}));
  EXPECT_EQ(link_to(3), (FbtLink{"mine", "mine", vap_of(3).fbt_rrb_key}));
  EXPECT_EQ(vap_of(3).fbt_rrb_key.size(), 16u);
}

TEST_F(FbtLinksTest, NothingIsGivenWithout80211rOrOnADisabledRadio) {
  make({ap(1).with_radio(radio5(vap().r(false))).with_radio(radio6().disabled())});
  fill_key_holders(aps, false);
  for (const std::size_t radio : {0u, 1u}) EXPECT_EQ(link_to(1, radio), FbtLink());
}

TEST_F(FbtLinksTest, EveryVapHasAKeyOfItsOwn) {
  make({ap(1).with_radio(radio5()).with_radio(radio6()), ap(2).with_radio(radio5())});
  fill_key_holders(aps, false);
  EXPECT_EQ((std::set{vap_of(1).fbt_rrb_key, vap_of(1, 1).fbt_rrb_key, vap_of(2).fbt_rrb_key}).size(), 3u);
}

// Bands

TEST_F(FbtLinksTest, BandsMayLink) {
  enum Allowed { never, always, cross };
  struct Case {
    int a, b;
    Allowed allowed;
  };
  const Case cases[] = {{0, 0, never},  {0, 2, never},  {5, 0, never},  {0, 6, never},  {2, 2, always},
                        {5, 5, always}, {6, 6, always}, {5, 6, always}, {6, 5, always}, {2, 5, cross},
                        {5, 2, cross},  {2, 6, cross},  {6, 2, cross}};
  for (const Case& one : cases) {
    for (const bool on : {false, true}) {
      config.use_80211r_2g_cross_band = on;
      EXPECT_EQ(link_allowed(one.a, one.b, config), one.allowed == always || (on && one.allowed == cross))
          << one.a << " " << one.b << " " << on;
    }
  }
}

// Who is linked

TEST_F(FbtLinksTest, VapsOfOneSsidOnDifferentApsAreLinkedWithEachOther) {
  make({ap(1).with_radio(radio5()), ap(2).with_radio(radio5())});
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), ElementsAre(FbtLink{"SN2", "00:11:22:33:02:01", vap_of(2).fbt_rrb_key}));
  EXPECT_THAT(links_of(2), ElementsAre(FbtLink{"SN1", "00:11:22:33:01:01", vap_of(1).fbt_rrb_key}));
  EXPECT_TRUE(of(1).fbt_changed);
  EXPECT_TRUE(of(2).fbt_changed);
}

TEST_F(FbtLinksTest, VapsOfOneApAreNotLinkedWithEachOther) {
  make({ap(1).with_radio(radio5()).with_radio(radio6())});
  EXPECT_FALSE(update());
  EXPECT_THAT(links_of(1, 0), IsEmpty());
  EXPECT_THAT(links_of(1, 1), IsEmpty());
  EXPECT_FALSE(of(1).fbt_changed);
}

TEST_F(FbtLinksTest, ALinkBetweenTwoVapsOfOneApIsBroken) {
  make({ap(1)
            .with_radio(radio5(named("a", "00:11:22:33:01:01").link("r0 b", "00:11:22:33:01:11", "key b")))
            .with_radio(radio6(named("b", "00:11:22:33:01:11")))});
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), IsEmpty());
}

TEST_F(FbtLinksTest, OtherSsidsDisabledRadiosAndVapsWithout80211rAreNotLinked) {
  make({ap(1).with_radio(radio5()), ap(2).with_radio(radio5(vap("guests"))), ap(3).with_radio(radio5().disabled()),
        ap(4).with_radio(radio5(vap().r(false)))});
  EXPECT_FALSE(update());
  for (const int number : {1, 3, 4}) EXPECT_THAT(links_of(number), IsEmpty()) << number;
  EXPECT_THAT(links_of(2, 0, "guests"), IsEmpty());
}

TEST_F(FbtLinksTest, LinksStandInTheOrderOfApsAndTheirRadios) {
  make({ap(3).with_radio(radio2()).with_radio(radio5()), ap(1).with_radio(radio5()),
        ap(2).with_radio(radio2()).with_radio(radio5()).with_radio(radio6())});
  update();
  EXPECT_THAT(ends_of(1), ElementsAre("00:11:22:33:02:01", "00:11:22:33:02:11", "00:11:22:33:02:21",
                                      "00:11:22:33:03:01", "00:11:22:33:03:11"));
  EXPECT_THAT(ends_of(2, 1), ElementsAre("00:11:22:33:01:01", "00:11:22:33:03:01", "00:11:22:33:03:11"));
}

TEST_F(FbtLinksTest, ANewcomersLinksComeLast) {
  make({ap(2).with_radio(radio5()), ap(3).with_radio(radio5())});
  update();
  const auto newcomer = ap(1).with_radio(radio5()).build(config);
  aps.insert(newcomer->mac, newcomer);
  EXPECT_TRUE(update());
  EXPECT_THAT(ends_of(3), ElementsAre("00:11:22:33:02:01", "00:11:22:33:01:01"));
}

TEST_F(FbtLinksTest, ASecondUpdateChangesNothing) {
  make({ap(1).with_radio(radio5()), ap(2).with_radio(radio2())});
  update();
  clear_changed();
  const std::string linked = describe_links(aps);
  EXPECT_FALSE(update());
  EXPECT_EQ(describe_links(aps), linked);
}

// Bands of links

TEST_F(FbtLinksTest, WithoutCrossBandTheLinksTo24GhzGoAndThoseBetween5And6Stay) {
  make({ap(1).with_radio(radio2()).with_radio(radio5()).with_radio(radio6()),
        ap(2).with_radio(radio2()).with_radio(radio5()).with_radio(radio6())});
  config.use_80211r_2g_cross_band = true;
  update();
  ASSERT_THAT(ends_of(1, 1), ElementsAre("00:11:22:33:02:01", "00:11:22:33:02:11", "00:11:22:33:02:21"));
  clear_changed();
  config.use_80211r_2g_cross_band = false;
  EXPECT_TRUE(update());
  EXPECT_THAT(ends_of(1, 0), ElementsAre("00:11:22:33:02:01"));
  EXPECT_THAT(ends_of(1, 1), ElementsAre("00:11:22:33:02:11", "00:11:22:33:02:21"));
  EXPECT_THAT(ends_of(1, 2), ElementsAre("00:11:22:33:02:11", "00:11:22:33:02:21"));
  EXPECT_TRUE(of(1).fbt_changed);
}

TEST_F(FbtLinksTest, RadiosOfNoKnownBandLinkOnlyWithEachOther) {
  make({ap(1).with_radio(radio5().band(0)).with_radio(radio5()), ap(2).with_radio(radio5().band(0)),
        ap(3).with_radio(radio5())});
  update();
  EXPECT_THAT(ends_of(1, 0), ElementsAre("00:11:22:33:02:01"));
  EXPECT_THAT(ends_of(1, 1), ElementsAre("00:11:22:33:03:01"));
}

// AP 3 has the key and the key holder of AP 2, on a band that AP 1 may link with: that keeps the link valid, but not
// between AP 1 and AP 2.
TEST_F(FbtLinksTest, ALinkAcrossBandsThatAnotherApKeepsValidIsTakenBackAllTheSame) {
  config.use_80211r_2g_cross_band = false;
  make({ap(1).with_radio(radio5(named("a", "00:11:22:33:01:01").link("r0 b", "00:11:22:33:02:01", "key b"))),
        ap(2).with_radio(radio2(named("b", "00:11:22:33:02:01"))),
        ap(3).with_radio(radio5(vap().keyholders("r0 c", "00:11:22:33:02:01", "key b")))});
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), ElementsAre(FbtLink{"r0 c", "00:11:22:33:02:01", "key b"}));
}

// How a key holder is named

TEST_F(FbtLinksTest, AKeyHolderIsNamedAsTheApHearsItsRadio) {
  struct Case {
    const char* what;
    const char* heard;
    const char* r1;
  };
  const Case cases[] = {
      {"the radio as it is", "00:11:22:33:02:00", "00:11:22:33:02:01"},
      {"the radio with its local bit", "02:11:22:33:02:00", "02:11:22:33:02:01"},
      {"the VAP itself", "00:11:22:33:02:01", "00:11:22:33:02:01"},
      {"the VAP with its local bit", "02:11:22:33:02:01", "02:11:22:33:02:01"},
      {"another VAP with its local bit", "02:11:22:33:02:05", "00:11:22:33:02:01"},
      {"nobody of the domain", "02:EE:22:33:02:00", "00:11:22:33:02:01"},
  };
  for (const Case& one : cases) {
    make({ap(1).with_radio(radio5()).hears(one.heard, a_neighbour(-50, 36)),
          ap(2).with_radio(radio5().vap(vap("guests", 5)))});
    update();
    EXPECT_THAT(ends_of(1), ElementsAre(one.r1)) << one.what;
    EXPECT_THAT(ends_of(2), ElementsAre("00:11:22:33:01:01")) << one.what;
  }
}

TEST_F(FbtLinksTest, TheFirstAddressUnderWhichARadioIsHeardDecides) {
  make({ap(1)
            .with_radio(radio5())
            .hears("02:11:22:33:02:05", a_neighbour(-50, 36))
            .hears("02:11:22:33:02:01", a_neighbour(-40, 36)),
        ap(2).with_radio(radio5().vap(vap("guests", 5)))});
  update();
  EXPECT_THAT(ends_of(1), ElementsAre("02:11:22:33:02:01")) << "in ascending order";
}

TEST_F(FbtLinksTest, OtherRadiosOfThePeerAreNotWhatIsHeard) {
  make({ap(1).with_radio(radio5()).hears("02:11:22:33:02:10", a_neighbour(-50, 36)),
        ap(2).with_radio(radio5()).with_radio(radio6())});
  update();
  EXPECT_THAT(ends_of(1), ElementsAre("00:11:22:33:02:01", "02:11:22:33:02:11"));
}

TEST_F(FbtLinksTest, AKeyHolderOfAnUnheardRadioIsNamedByItsOwnText) {
  make({ap(1).with_radio(radio5()).hears("00:11:22:33:03:00", a_neighbour(-50, 36)),
        ap(2).with_radio(radio5(named("b", "aa:11:22:33:02:0b"))),
        ap(3).with_radio(radio5(named("c", "aa:11:22:33:03:0c"))), ap(4).with_radio(radio5(named("d", "the hall")))});
  update();
  EXPECT_THAT(ends_of(1), ElementsAre("aa:11:22:33:02:0b", "A8:11:22:33:03:0C", "the hall"))
      << "one that is heard is written anew, with the radio's local bit";
}

TEST_F(FbtLinksTest, ALinkThatNamesThePeerWithTheOtherLocalBitIsALinkToIt) {
  make({ap(1).with_radio(radio5(named("a", "00:11:22:33:01:01").link("r0 b", "02:11:22:33:02:01", "key b"))),
        ap(2).with_radio(radio5(named("b", "00:11:22:33:02:01")))});
  update();
  EXPECT_THAT(ends_of(1), ElementsAre("02:11:22:33:02:01"));
  EXPECT_FALSE(of(1).fbt_changed);
}

TEST_F(FbtLinksTest, ALinkThatNamesAnotherR0KeyHolderStaysBesideTheRightOne) {
  make({ap(1).with_radio(radio5(named("a", "00:11:22:33:01:01").link("old", "00:11:22:33:02:01", "key b"))),
        ap(2).with_radio(radio5(named("b", "00:11:22:33:02:01")))});
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), ElementsAre(FbtLink{"old", "00:11:22:33:02:01", "key b"}, link_to(2)));
}

// What becomes invalid

TEST_F(FbtLinksTest, AVapThatChangedItsKeyIsLinkedAnewByAllItsPeers) {
  make({ap(1).with_radio(radio5()), ap(2).with_radio(radio5()), ap(3).with_radio(radio5())});
  update();
  clear_changed();
  vap_of(2).fbt_rrb_key = "another key";
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), ElementsAre(link_to(3), FbtLink{"SN2", "00:11:22:33:02:01", "another key"}));
  EXPECT_THAT(links_of(3), ElementsAre(link_to(1), FbtLink{"SN2", "00:11:22:33:02:01", "another key"}));
  EXPECT_TRUE(of(1).fbt_changed);
  EXPECT_FALSE(of(2).fbt_changed) << "its own links are what they were";
  EXPECT_TRUE(of(3).fbt_changed);
}

TEST_F(FbtLinksTest, ALinkToAnApThatHasLeftIsErasedAndTheOthersKeepTheirOrder) {
  make(
      {ap(1).with_radio(radio5()), ap(2).with_radio(radio5()), ap(3).with_radio(radio5()), ap(4).with_radio(radio5())});
  update();
  clear_changed();
  const auto gone = aps.find(mac("00:11:22:33:03:00"));
  aps.erase_from_index(gone);
  aps.erase_node(std::next(aps.begin(), 2));
  EXPECT_TRUE(update());
  EXPECT_THAT(ends_of(1), ElementsAre("00:11:22:33:02:01", "00:11:22:33:04:01"));
  EXPECT_THAT(ends_of(4), ElementsAre("00:11:22:33:01:01", "00:11:22:33:02:01"));
}

TEST_F(FbtLinksTest, ALinkWhoseOtherEndIsNoLongerTheOneItNamesIsErased) {
  const std::function<void(Radio&)> changes[] = {
      [](Radio& radio) { radio.status = false; },
      [](Radio& radio) { radio.vaps.find("office")->use_802dot11r = false; },
      [](Radio& radio) { radio.vaps.clear(); },
      [](Radio& radio) { radio.vaps.find("office")->fbt_r1_keyholder = "00:11:22:33:02:09"; },
  };
  for (const auto& change : changes) {
    make({ap(1).with_radio(radio5()), ap(2).with_radio(radio5())});
    update();
    clear_changed();
    const FbtLink old = links_of(1).front();
    change(of(2).radios.list[0]);
    EXPECT_TRUE(update());
    EXPECT_THAT(links_of(1), ::testing::Not(::testing::Contains(old))) << &change - changes;
    EXPECT_TRUE(of(1).fbt_changed) << &change - changes;
  }
}

// One key holder on two APs

TEST_F(FbtLinksTest, EqualR1KeyHoldersUpToTheLocalBitAreNotLinked) {
  make({ap(1).with_radio(radio5(named("a", "00:11:22:33:09:01"))),
        ap(2).with_radio(radio5(named("b", "02:11:22:33:09:01")))});
  EXPECT_FALSE(update());
  EXPECT_THAT(links_of(1), IsEmpty());
  EXPECT_THAT(links_of(2), IsEmpty());
}

TEST_F(FbtLinksTest, ALinkLeftBetweenEqualR1KeyHoldersIsTakenBack) {
  make({ap(1).with_radio(radio5(named("a", "00:11:22:33:09:01").link("r0 b", "00:11:22:33:09:01", "key b"))),
        ap(2).with_radio(radio5(named("b", "02:11:22:33:09:01")))});
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), IsEmpty());
  EXPECT_TRUE(of(1).fbt_changed);
  EXPECT_FALSE(of(2).fbt_changed);
  EXPECT_TRUE(capture.has_line(LOG_DUMP, "invalid link 00:11:22:33:01:01 00:11:22:33:02:01"));
  EXPECT_TRUE(capture.has_line(LOG_DUMP, "unlink 00:11:22:33:01:01 00:11:22:33:02:01"));
}

TEST_F(FbtLinksTest, TextsThatAreNoAddressesCountAsOneKeyHolder) {
  make({ap(1).with_radio(radio5(named("a", "the hall"))), ap(2).with_radio(radio5(named("b", "the yard"))),
        ap(3).with_radio(radio5(named("c", "00:11:22:33:03:01")))});
  update();
  EXPECT_THAT(ends_of(1), ElementsAre("00:11:22:33:03:01"));
  EXPECT_THAT(ends_of(3), ElementsAre("the hall", "the yard"));
}

// The wildcard

TEST_F(FbtLinksTest, TheWildcardLinkIsAddedLastAndOnceAndIsKept) {
  wildcard = true;
  make({ap(1).with_radio(radio5()).with([](ApEntry& entry) { entry.use_wildcard_80211r = true; }),
        ap(2).with_radio(radio5())});
  EXPECT_TRUE(update());
  EXPECT_THAT(links_of(1), ElementsAre(link_to(2), FbtLink{"*", wildcard_r1, broadcast_fbt_key()}));
  EXPECT_THAT(links_of(2), ElementsAre(link_to(1))) << "this AP does not take it";
  EXPECT_EQ(capture.count("FBT broadcast mac added"), 1u);
  clear_changed();
  EXPECT_FALSE(update());
  EXPECT_THAT(links_of(1), ElementsAre(link_to(2), FbtLink{"*", wildcard_r1, broadcast_fbt_key()}));
  EXPECT_THAT(capture.lines(LOG_TRACE), ElementsAre("skip wildcarg keyholder"));
  EXPECT_FALSE(of(1).fbt_changed);
}

TEST_F(FbtLinksTest, TheWildcardLinkIsNeitherAddedNorKeptUnlessBothSettingsAreOn) {
  for (const auto& [server, on_ap] : {std::pair{false, false}, {false, true}, {true, false}}) {
    wildcard = server;
    make(
        {ap(1).with_radio(radio5(vap().link("*", wildcard_r1, broadcast_fbt_key()))).with([on = on_ap](ApEntry& entry) {
          entry.use_wildcard_80211r = on;
        })});
    EXPECT_TRUE(update());
    EXPECT_THAT(links_of(1), IsEmpty()) << server << on_ap;
    clear_changed();
    EXPECT_FALSE(update());
    EXPECT_THAT(links_of(1), IsEmpty()) << server << on_ap;
  }
}

TEST_F(FbtLinksTest, TheFirstWildcardLinkAloneIsAChange) {
  wildcard = true;
  make({ap(1).with_radio(radio5()).with([](ApEntry& entry) { entry.use_wildcard_80211r = true; })});
  EXPECT_TRUE(update());
  EXPECT_TRUE(of(1).fbt_changed);
}

// What counts as a change

TEST_F(FbtLinksTest, OnlyApsWhoseLinksChangedAreMarked) {
  make({ap(1).with_radio(radio5()), ap(2).with_radio(radio5()), ap(3).with_radio(radio5(vap("guests"))),
        ap(4).with_radio(radio5(vap("guests")))});
  update();
  clear_changed();
  vap_of(2).fbt_rrb_key = "another key";
  EXPECT_TRUE(update());
  EXPECT_TRUE(of(1).fbt_changed);
  for (const int number : {2, 3, 4}) EXPECT_FALSE(of(number).fbt_changed) << number;
}

TEST_F(FbtLinksTest, AnApThatStillHasToBeToldIsAChange) {
  make({ap(1).with_radio(radio5()), ap(2).with_radio(radio5())});
  update();
  clear_changed();
  of(2).fbt_changed = true;
  EXPECT_TRUE(update());
  EXPECT_FALSE(of(1).fbt_changed);
  of(2).radios.list[0].status = false;
  of(1).radios.list[0].status = false;
  EXPECT_FALSE(update()) << "without a VAP that is on nobody looks at it";
  EXPECT_TRUE(of(2).fbt_changed);
}

// What is logged

TEST_F(FbtLinksTest, AnUpdateTellsInTheDumpWhatItDoes) {
  make({ap(1)
            .board("NVA-3wz")
            .with_radio(radio5(named("a", "00:11:22:33:01:01").link("gone", "00:11:22:33:08:01", "its key")))
            .with([](ApEntry& entry) { entry.use_wildcard_80211r = true; }),
        ap(2).board("some board").with_radio(a_radio().channel(1)).with_radio(radio5(named("b", "00:11:22:33:02:11"))),
        ap(3).board("NXA-2WZ").with_radio(radio5(named("a", "02:11:22:33:01:01")))});
  clear_changed();
  of(3).fbt_changed = true;
  wildcard = true;
  update();
  const std::vector<LogLine> expected = {
      {LOG_DUMP, "=================================="},
      {LOG_DUMP, "Device 00:11:22:33:01:00 (BRIX)"},
      {LOG_DUMP, "fbt_changed = 0"},
      {LOG_DUMP, "----------------------------------"},
      {LOG_DUMP, "wlan_id = 0 vap_id = 1"},
      {LOG_DUMP, "current ssid = office"},
      {LOG_DUMP, "current serial = SN1"},
      {LOG_DUMP, "current r0 keyholder = r0 a"},
      {LOG_DUMP, "current r1 keyholder = 00:11:22:33:01:01"},
      {LOG_DUMP, "use_wildcard_80211r = 1"},
      {LOG_DUMP, "remotes size = 1"},
      {LOG_DUMP, "00:11:22:33:01:00 (BRIX) erase broken link with 00:11:22:33:08:01"},
      {LOG_DUMP, "remote ssid = office"},
      {LOG_DUMP, "remote MAC  = 00:11:22:33:02:11"},
      {LOG_DUMP, "now linked 00:11:22:33:01:01 00:11:22:33:02:11"},
      {LOG_TRACE, "FBT broadcast mac added"},
      {LOG_DUMP, "new remotes size = 2"},
      {LOG_DUMP, "=================================="},
      {LOG_DUMP, "Device 00:11:22:33:02:00 (Unknown)"},
      {LOG_DUMP, "fbt_changed = 0"},
      {LOG_DUMP, "----------------------------------"},
      {LOG_DUMP, "wlan_id = 1 vap_id = 1"},
      {LOG_DUMP, "current ssid = office"},
      {LOG_DUMP, "current serial = SN2"},
      {LOG_DUMP, "current r0 keyholder = r0 b"},
      {LOG_DUMP, "current r1 keyholder = 00:11:22:33:02:11"},
      {LOG_DUMP, "use_wildcard_80211r = 0"},
      {LOG_DUMP, "remotes size = 0"},
      {LOG_DUMP, "remote ssid = office"},
      {LOG_DUMP, "remote MAC  = 00:11:22:33:01:01"},
      {LOG_DUMP, "now linked 00:11:22:33:02:11 00:11:22:33:01:01"},
      {LOG_DUMP, "remote ssid = office"},
      {LOG_DUMP, "remote MAC  = 00:11:22:33:03:01"},
      {LOG_DUMP, "already linked 00:11:22:33:02:11 00:11:22:33:03:01"},
      {LOG_DUMP, "new remotes size = 1"},
      {LOG_DUMP, "=================================="},
      {LOG_DUMP, "Device 00:11:22:33:03:00 (FastPath)"},
      {LOG_DUMP, "fbt_changed = 1"},
      {LOG_DUMP, "----------------------------------"},
      {LOG_DUMP, "wlan_id = 0 vap_id = 1"},
      {LOG_DUMP, "current ssid = office"},
      {LOG_DUMP, "current serial = SN3"},
      {LOG_DUMP, "current r0 keyholder = r0 a"},
      {LOG_DUMP, "current r1 keyholder = 02:11:22:33:01:01"},
      {LOG_DUMP, "use_wildcard_80211r = 0"},
      {LOG_DUMP, "remotes size = 0"},
      {LOG_DUMP, "remote ssid = office"},
      {LOG_DUMP, "remote MAC  = 00:11:22:33:02:11"},
      {LOG_DUMP, "now linked 00:11:22:33:03:01 00:11:22:33:02:11"},
      {LOG_DUMP, "new remotes size = 1"},
  };
  EXPECT_EQ(capture.lines(), expected);
}

}  // namespace
}  // namespace rrm::testing
