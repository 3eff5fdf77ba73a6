#include "model/VapMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

class VapMapTest : public ::testing::Test {
 protected:
  // A radio whose pool is 00:11:22:00:00:10 to ...:1F.
  Radio radio() const { return a_radio().build(config, 1, mac("00:11:22:00:00:00")); }
  void read(const std::string& array) { vaps.from_json(reader(array), radio(), false); }
  void restore(const std::string& array) { vaps.from_json(reader(array), radio(), true); }
  std::string dump() const {
    return array_text([&](JsonWriter& array) { vaps.dump_json(array); });
  }
  std::string dump_full() const {
    return array_text([&](JsonWriter& array) { vaps.dump_json_full(array); });
  }

  DomainConfig config;
  Capture capture;
  VapMap vaps;
};

TEST_F(VapMapTest, AMessageIsReadWhole) {
  read(R"([{"id":2,"ssid":"office","802dot11k":1,"802dot11r":1,"802dot11v":0,"mac":"00:11:22:00:00:15",)"
       R"("fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1","fbt-rrb-key":"key",)"
       R"("fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"},null,{}]},)"
       R"({"id":0,"ssid":"guest"},null])");
  EXPECT_EQ(dump_full(),
            R"([{"id":0,"ssid":"guest","mac":"00:11:22:00:00:10","mobility-domain":52163,"use_802dot11k":0,)"
            R"("use_802dot11r":0,"use_802dot11v":0,"fbt-r0-keyholder":"","fbt-r1-keyholder":"","fbt-rrb-key":""},)"
            R"({"id":2,"ssid":"office","mac":"00:11:22:00:00:15","mobility-domain":32255,"use_802dot11k":1,)"
            R"("use_802dot11r":1,"use_802dot11v":0,"fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1",)"
            R"("fbt-rrb-key":"key","fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"},)"
            R"({"remote-r0-kh-id":"","remote-r1-kh-id":"","remote-r1-kh-key":""}]}])");
}

TEST_F(VapMapTest, TheShortFormShowsNoKeys) {
  read(R"([{"id":2,"ssid":"office","802dot11r":1,"fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1","fbt-rrb-key":"key",)"
       R"("fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"}]}])");
  EXPECT_EQ(dump(), R"([{"id":2,"ssid":"office","mac":"00:11:22:00:00:12","mobility-domain":32255,"use_802dot11k":0,)"
                    R"("use_802dot11r":1,"use_802dot11v":0,"fbt-links":["b"]}])");
}

TEST_F(VapMapTest, LinksAreShownOnlyWith80211r) {
  vaps.insert(a_vap("office").link("a", "b", "c").build());
  vaps.insert(a_vap("guest").r().build());
  EXPECT_EQ(dump().find("fbt-links"), std::string::npos);
  EXPECT_EQ(dump_full().find("fbt-links"), std::string::npos);
}

TEST_F(VapMapTest, WhatTheFullFormSaysIsRestored) {
  read(R"([{"id":2,"ssid":"office","802dot11k":1,"802dot11r":1,"802dot11v":1,"mac":"00:11:22:00:00:15",)"
       R"("fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1","fbt-rrb-key":"key",)"
       R"("fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"}]}])");
  const std::string before = dump_full();
  vaps.clear();
  restore(before);
  EXPECT_EQ(dump_full(), before);
}

struct SwitchCase {
  const char* label;
  const char* members;
  bool restore;
  std::int32_t locked;
  bool k, r, v;
};

TEST_F(VapMapTest, SwitchesHaveTheirKeys) {
  const std::vector<SwitchCase> cases = {
      {"all absent", "", false, 0, false, false, false},
      {"802.11v follows 802.11k", R"("802dot11k":1)", false, 0, true, false, true},
      {"802.11v off", R"("802dot11k":1,"802dot11v":0)", false, 0, true, false, false},
      {"802.11v on", R"("802dot11v":1)", false, 0, false, false, true},
      {"802.11v null is off", R"("802dot11k":1,"802dot11v":null)", false, 0, true, false, false},
      {"locked for 802.11v", R"("802dot11k":1,"802dot11v":1)", false, 1, true, false, false},
      {"any other number is on", R"("802dot11k":2,"802dot11r":-1,"802dot11v":7)", false, 0, true, true, true},
      {"a backup's keys in a message", R"("use_802dot11k":1,"use_802dot11r":1,"use_802dot11v":1)", false, 0, false,
       false, false},
      {"a message's keys in a backup", R"("802dot11k":1,"802dot11r":1,"802dot11v":1)", true, 0, false, false, false},
      {"a backup", R"("use_802dot11k":1,"use_802dot11r":1,"use_802dot11v":1)", true, 0, true, true, true},
      {"a backup's 802.11v does not follow", R"("use_802dot11k":1)", true, 0, true, false, false},
      {"a backup, locked", R"("use_802dot11v":1)", true, 2, false, false, false},
  };
  for (const SwitchCase& test : cases) {
    Radio locked = radio();
    locked.locked_80211v = test.locked;
    const std::string array = std::string(R"([{"ssid":"a")") + (*test.members ? "," : "") + test.members + "}]";
    vaps.from_json(reader(array), locked, test.restore);
    const VapEntry* vap = vaps.find("a");
    ASSERT_NE(vap, nullptr) << test.label;
    EXPECT_EQ(vap->use_802dot11k, test.k) << test.label;
    EXPECT_EQ(vap->use_802dot11r, test.r) << test.label;
    EXPECT_EQ(vap->use_802dot11v, test.v) << test.label;
  }
}

struct PoolCase {
  const char* label;
  const char* base;  // of the AP; the radio is its second one
  std::int32_t count;
  const char* members;
  const char* mac;  // null: dropped
  std::vector<LogLine> lines;
  std::vector<Event> events;
};

TEST_F(VapMapTest, AnAddressLiesInThePoolOrTheVapIsDropped) {
  const LogLine own_end{LOG_WARNING,
                        "VAP MAC 00:11:22:00:00:20 outside radio pool [00:11:22:00:00:10, +16), using "
                        "00:11:22:00:00:12 for ssid=office"};
  const Event event{11, true, "00:11:22:00:00:10"};
  const auto invalid = [](const std::string& address, const std::string& radio_mac, int count) {
    return LogLine{LOG_ERROR, "Invalid VAP MAC " + address + ": radio.mac=" + radio_mac +
                                  ", radio.max_mac_count=" + std::to_string(count)};
  };
  const char* base = "00:11:22:00:00:00";
  const std::vector<PoolCase> cases = {
      {"by its id", base, 16, R"("id":15)", "00:11:22:00:00:1F", {}, {}},
      {"an id at the count",
       base,
       16,
       R"("id":16)",
       nullptr,
       {invalid("00:11:22:00:00:20", "00:11:22:00:00:10", 16)},
       {event}},
      {"a negative id", base, 16, R"("id":-1)", "00:11:22:00:00:10", {}, {}},
      {"named, the pool's start", base, 16, R"("id":2,"mac":"00:11:22:00:00:10")", "00:11:22:00:00:10", {}, {}},
      {"named, the pool's last", base, 16, R"("id":2,"mac":"00:11:22:00:00:1f")", "00:11:22:00:00:1F", {}, {}},
      {"named, the pool's end", base, 16, R"("id":2,"mac":"00:11:22:00:00:20")", "00:11:22:00:00:12", {own_end}, {}},
      {"named, below the pool",
       base,
       16,
       R"("id":2,"mac":"00:11:22:00:00:0f")",
       "00:11:22:00:00:12",
       {{LOG_WARNING,
         "VAP MAC 00:11:22:00:00:0F outside radio pool [00:11:22:00:00:10, +16), using 00:11:22:00:00:12 for "
         "ssid=office"}},
       {}},
      {"named, but no address",
       base,
       16,
       R"("id":2,"mac":"here")",
       "00:11:22:00:00:12",
       {{LOG_WARNING,
         "VAP MAC 00:00:00:00:00:00 outside radio pool [00:11:22:00:00:10, +16), using 00:11:22:00:00:12 for "
         "ssid=office"}},
       {}},
      {"named in the pool, whatever the id",
       base,
       16,
       R"("id":99,"mac":"00:11:22:00:00:11")",
       "00:11:22:00:00:11",
       {},
       {}},
      {"neither in the pool",
       base,
       16,
       R"("id":16,"mac":"00:11:22:00:00:30")",
       nullptr,
       {invalid("00:11:22:00:00:30", "00:11:22:00:00:10", 16)},
       {event}},
      {"an empty pool", base, 0, R"("id":0)", nullptr, {invalid("00:11:22:00:00:10", "00:11:22:00:00:10", 0)}, {event}},
      {"a negative pool",
       base,
       -5,
       R"("id":0)",
       nullptr,
       {invalid("00:11:22:00:00:10", "00:11:22:00:00:10", -5)},
       {event}},
      {"the end of a 24-bit block wraps to the radio's own",
       "00:11:22:FF:FF:E8",
       16,
       R"("id":9)",
       "00:11:22:FF:FF:F8",
       {},
       {}},
      {"the largest id", base, INT_MAX, R"("id":2147483647)", "00:11:22:00:00:10", {}, {}},
  };
  for (const PoolCase& test : cases) {
    Radio own = a_radio().build(config, 1, mac(test.base));
    own.max_mac_count = test.count;
    capture.clear();
    const std::string array = std::string(R"([{"ssid":"office",)") + test.members + "}]";
    vaps.from_json(reader(array), own, false);
    const VapEntry* vap = vaps.find("office");
    EXPECT_EQ(vap != nullptr ? vap->mac.to_string() : "dropped", test.mac != nullptr ? test.mac : "dropped")
        << test.label;
    EXPECT_EQ(capture.lines(), test.lines) << test.label;
    EXPECT_EQ(capture.events(), test.events) << test.label;
  }
}

TEST_F(VapMapTest, ADroppedVapDoesNotHarmTheOthers) {
  read(R"([{"id":16,"ssid":"a"},{"id":1,"ssid":"b"},{"id":2,"ssid":""},{"id":3}])");
  EXPECT_EQ(vaps.size(), 1U);
  EXPECT_NE(vaps.find("b"), nullptr);
}

TEST_F(VapMapTest, OfTwoWithOneSsidTheFirstStays) {
  read(R"([{"id":1,"ssid":"a","802dot11k":1},{"id":2,"ssid":"a","802dot11r":1}])");
  ASSERT_EQ(vaps.size(), 1U);
  EXPECT_EQ(vaps.find("a")->id, 1);
  EXPECT_FALSE(vaps.find("a")->use_802dot11r);
}

TEST_F(VapMapTest, ADroppedVapLeavesItsSsidToTheNext) {
  read(R"([{"id":16,"ssid":"a"},{"id":2,"ssid":"a"}])");
  EXPECT_EQ(vaps.find("a")->id, 2);
}

TEST_F(VapMapTest, ANullArrayChangesNothingAnEmptyOneClears) {
  read(R"([{"id":1,"ssid":"a"}])");
  for (const char* nothing : {"null", ""}) {
    read(nothing);
    EXPECT_EQ(vaps.size(), 1U) << nothing;
  }
  read("[]");
  EXPECT_TRUE(vaps.empty());
}

TEST_F(VapMapTest, KeyHoldersNeedTheKey) {
  read(R"([{"ssid":"a","fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1","fbt-links":[{"remote-r0-kh-id":"a"}]},)"
       R"({"id":1,"ssid":"b","fbt-rrb-key":null,"fbt-r0-keyholder":"r0"}])");
  EXPECT_EQ(vaps.find("a")->fbt_r0_keyholder, "");
  EXPECT_EQ(vaps.find("a")->fbt_r1_keyholder, "");
  EXPECT_TRUE(vaps.find("a")->fbt_links.empty());
  EXPECT_EQ(vaps.find("b")->fbt_r0_keyholder, "r0");
}

TEST_F(VapMapTest, AreWalkedInTheOrderOfTheirSsids) {
  read(R"([{"id":1,"ssid":"c"},{"id":2,"ssid":"a"},{"id":3,"ssid":"B"}])");
  std::vector<std::string> ssids;
  for (const auto& [ssid, vap] : vaps) ssids.push_back(ssid);
  EXPECT_EQ(ssids, (std::vector<std::string>{"B", "a", "c"}));
}

TEST_F(VapMapTest, Questions) {
  vaps.insert(a_vap("k").k().build());
  EXPECT_TRUE(vaps.any_11k());
  EXPECT_FALSE(vaps.any_11r());
  EXPECT_FALSE(vaps.any_11v());
  EXPECT_TRUE(vaps.contains_with_11k("k"));
  EXPECT_FALSE(vaps.contains_with_11k("x"));
  vaps.insert(a_vap("r").r().build());
  vaps.insert(a_vap("v").v().build());
  EXPECT_TRUE(vaps.any_11r());
  EXPECT_TRUE(vaps.any_11v());
  EXPECT_FALSE(vaps.contains_with_11k("r"));
}

TEST_F(VapMapTest, AreEqualByIdAndSwitches) {
  struct Case {
    const char* label;
    VapBuilder vap;
    bool equal;
  };
  const VapEntry original = a_vap("a").id(1).k().build();
  for (const Case& test : std::vector<Case>{
           {"the same", a_vap("a").id(1).k(), true},
           {"another address and other keys",
            a_vap("a").id(1).k().mac("00:00:00:00:00:01").keyholders("a", "b", "c").link("a", "b", "c"), true},
           {"another id", a_vap("a").id(2).k(), false},
           {"802.11k", a_vap("a").id(1), false},
           {"802.11r", a_vap("a").id(1).k().r(), false},
           {"802.11v", a_vap("a").id(1).k().v(), false},
           {"another SSID", a_vap("b").id(1).k(), false}}) {
    VapMap mine;
    mine.insert(original);
    VapMap other;
    other.insert(test.vap.build());
    EXPECT_EQ(mine.equal(other), test.equal) << test.label;
    EXPECT_EQ(other.equal(mine), test.equal) << test.label;
    mine.insert(a_vap("z").build());
    EXPECT_FALSE(mine.equal(other)) << test.label;
    EXPECT_FALSE(other.equal(mine)) << test.label;
  }
}

TEST_F(VapMapTest, DumpsALineEach) {
  vaps.insert(a_vap("office").id(3).k().v().build());
  vaps.insert(a_vap("guest").id(4).r().build());
  vaps.dump();
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{
                                 {LOG_DUMP, "      vap_id = 4, 802.11k = 0, 802.11r = 1, 802.11v = 0, ssid = guest"},
                                 {LOG_DUMP, "      vap_id = 3, 802.11k = 1, 802.11r = 0, 802.11v = 1, ssid = office"},
                             }));
}

// 802.11r.

TEST_F(VapMapTest, TheMobilityDomainIsACrcOfTheSsid) {
  struct Case {
    std::string ssid;
    std::uint16_t domain;
  };
  for (const Case& test :
       std::vector<Case>{{"", 0}, {"a", 97}, {"ab", 24930}, {"guest", 52163}, {"office", 32255}, {"\xC3\xBF", 50111}}) {
    EXPECT_EQ(a_vap(test.ssid).build().mobility_domain(), test.domain) << test.ssid;
  }
}

struct LinkCase {
  const char* label;
  const char *r0, *r1, *key;
  bool linked;
};

TEST_F(VapMapTest, ALinkNamesAPeerByBothHoldersAndTheKey) {
  const VapEntry peer = a_vap("office").keyholders("SN1", "A0:11:22:33:44:55", "key").build();
  const std::vector<LinkCase> cases = {
      {"the same", "SN1", "A0:11:22:33:44:55", "key", true},
      {"the local bit does not matter", "SN1", "A2:11:22:33:44:55", "key", true},
      {"nor does the case", "SN1", "a0:11:22:33:44:55", "key", true},
      {"another R0 holder", "SN2", "A0:11:22:33:44:55", "key", false},
      {"another R1 holder", "SN1", "A0:11:22:33:44:56", "key", false},
      {"another bit of the first byte", "SN1", "A1:11:22:33:44:55", "key", false},
      {"another key", "SN1", "A0:11:22:33:44:55", "KEY", false},
      {"no address", "SN1", "here", "key", false},
  };
  for (const LinkCase& test : cases) {
    VapEntry vap = a_vap("office").link("x", "y", "z").link(test.r0, test.r1, test.key).build();
    EXPECT_EQ(vap.has_link(peer), test.linked) << test.label;
    EXPECT_EQ(vap.unlink(peer), test.linked) << test.label;
    EXPECT_EQ(vap.fbt_links.size(), test.linked ? 1U : 2U) << test.label;
  }
}

TEST_F(VapMapTest, LinksAreAppendedAndTheFirstThatFitsIsRemoved) {
  const VapEntry peer = a_vap("office").keyholders("SN1", "A0:11:22:33:44:55", "key").build();
  const VapEntry other = a_vap("office").keyholders("SN2", "A0:11:22:33:44:66", "KEY").build();
  VapEntry vap = a_vap("office").build();
  vap.link_to(peer);
  vap.link_to(other);
  vap.link_to(peer, "A2:11:22:33:44:55");
  EXPECT_EQ(vap.fbt_links, (std::vector<FbtLink>{{"SN1", "A0:11:22:33:44:55", "key"},
                                                 {"SN2", "A0:11:22:33:44:66", "KEY"},
                                                 {"SN1", "A2:11:22:33:44:55", "key"}}));
  EXPECT_TRUE(vap.unlink(peer));
  EXPECT_EQ(vap.fbt_links,
            (std::vector<FbtLink>{{"SN2", "A0:11:22:33:44:66", "KEY"}, {"SN1", "A2:11:22:33:44:55", "key"}}));
}

// An AP that reports no key material still has what the server gave it.
TEST_F(VapMapTest, AVapThatIsNamedAgainWithoutAKeyKeepsWhatItWasGiven) {
  const char* const given =
      R"([{"id":1,"ssid":"a","802dot11r":1,"fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1","fbt-rrb-key":"key",)"
      R"("fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"}]}])";
  struct Case {
    const char* label;
    const char* again;
    bool kept;
  };
  const Case cases[] = {
      {"the same", R"([{"id":1,"ssid":"a","802dot11r":1}])", true},
      {"with other switches", R"([{"id":1,"ssid":"a","802dot11k":1}])", true},
      {"among others", R"([{"id":2,"ssid":"b"},{"id":1,"ssid":"a"}])", true},
      {"with its address in words", R"([{"id":7,"ssid":"a","mac":"00:11:22:00:00:11"}])", true},
      {"of another id, and so of another address", R"([{"id":2,"ssid":"a"}])", false},
      {"of another address", R"([{"id":1,"ssid":"a","mac":"00:11:22:00:00:12"}])", false},
      {"with an empty key", R"([{"id":1,"ssid":"a","fbt-rrb-key":""}])", false},
  };
  for (const Case& test : cases) {
    read(given);
    read(test.again);
    const VapEntry& vap = *vaps.find("a");
    EXPECT_EQ(vap.fbt_r0_keyholder, test.kept ? "r0" : "") << test.label;
    EXPECT_EQ(vap.fbt_r1_keyholder, test.kept ? "r1" : "") << test.label;
    EXPECT_EQ(vap.fbt_rrb_key, test.kept ? "key" : "") << test.label;
    EXPECT_EQ(vap.fbt_links.size(), test.kept ? 1U : 0U) << test.label;
  }
}

TEST_F(VapMapTest, AVapThatWasGoneMeanwhileHasNothingLeft) {
  read(R"([{"id":1,"ssid":"a","fbt-r0-keyholder":"r0","fbt-rrb-key":"key"}])");
  read("[]");
  read(R"([{"id":1,"ssid":"a"}])");
  EXPECT_EQ(vaps.find("a")->fbt_rrb_key, "");
}

TEST_F(VapMapTest, AKeyThatIsReportedReplacesAllThatWasGiven) {
  read(R"([{"id":1,"ssid":"a","fbt-r0-keyholder":"r0","fbt-rrb-key":"key","fbt-links":[{"remote-r0-kh-id":"a"}]}])");
  read(R"([{"id":1,"ssid":"a","fbt-rrb-key":"another"}])");
  EXPECT_EQ(vaps.find("a")->fbt_rrb_key, "another");
  EXPECT_EQ(vaps.find("a")->fbt_r0_keyholder, "");
  EXPECT_TRUE(vaps.find("a")->fbt_links.empty());
}

bool is_letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

TEST_F(VapMapTest, TheBroadcastLinkIsMadeOnce) {
  VapEntry vap = a_vap("office").build();
  EXPECT_TRUE(vap.link_broadcast_802dot11r());
  EXPECT_FALSE(vap.link_broadcast_802dot11r());
  EXPECT_EQ(vap.fbt_links, (std::vector<FbtLink>{{"*", "ff:ff:ff:ff:ff:ff", broadcast_fbt_key()}}));
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "FBT broadcast mac added"}}));
}

TEST_F(VapMapTest, AnyLinkToTheBroadcastHolderIsEnough) {
  VapEntry vap = a_vap("office").link("x", "ff:ff:ff:ff:ff:ff", "key").build();
  EXPECT_FALSE(vap.link_broadcast_802dot11r());
  EXPECT_EQ(vap.fbt_links.size(), 1U);
}

TEST_F(VapMapTest, KeysAreSixteenLettersOfBothCases) {
  std::string seen;
  for (int i = 0; i < 200; ++i) {
    const std::string key = random_fbt_key();
    ASSERT_EQ(key.size(), 16U);
    ASSERT_TRUE(std::all_of(key.begin(), key.end(), is_letter)) << key;
    seen += key;
  }
  std::sort(seen.begin(), seen.end());
  seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
  EXPECT_EQ(seen, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
  EXPECT_NE(random_fbt_key(), random_fbt_key());
}

TEST_F(VapMapTest, TheBroadcastKeyIsOneForTheProcess) {
  std::vector<const std::string*> keys(4);
  std::vector<std::thread> threads;
  for (const std::string*& key : keys) threads.emplace_back([&key] { key = &broadcast_fbt_key(); });
  for (std::thread& thread : threads) thread.join();
  for (const std::string* key : keys) EXPECT_EQ(key, &broadcast_fbt_key());
  EXPECT_EQ(broadcast_fbt_key().size(), 16U);
  EXPECT_TRUE(std::all_of(broadcast_fbt_key().begin(), broadcast_fbt_key().end(), is_letter));
}

}  // namespace
}  // namespace rrm::testing
