// What an AP heard, as its answer to a scan tells it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

class RfEnvironment : public ::testing::Test {
 protected:
  RfEnvironment() {
    // The peer's radios have 00:11:22:00:01:00, :10 (disabled) and :20, the last with a VAP at :23.
    peer = an_ap()
               .mac("00:11:22:00:01:00")
               .with_radio(a_radio().channel(1))
               .with_radio(a_radio().channel(36).disabled().vap(a_vap("office").id(1)))
               .with_radio(a_radio().channel(44).vap(a_vap("office").id(3)))
               .build(config);
    listener = an_ap()
                   .mac("00:11:22:00:00:00")
                   .with_radio(a_radio().channel(1))
                   .hears("00:11:22:00:09:00", a_neighbour(-50, 1))
                   .hears_rogue("00:99:99:00:09:00", a_neighbour(-50, 1))
                   .build(config);
    aps = a_set({listener, peer});
    capture.clear();
  }

  void fill(const std::string& rounds) { aps.fill_from_json_rf_environment(*listener, reader(rounds)); }
  static std::string entry(const std::string& bssid, const std::string& members = R"("channel":1)") {
    return R"({"bssid":")" + bssid + R"(",)" + members + "}";
  }
  std::vector<std::string> members() const { return addresses(listener->visible_members); }
  std::vector<std::string> rogues() const { return addresses(listener->visible_rogue); }

  DomainConfig config;
  Capture capture;
  std::shared_ptr<ApEntry> peer;
  std::shared_ptr<ApEntry> listener;
  ApMap aps;

 private:
  static std::vector<std::string> addresses(const NeighbourMap& map) {
    std::vector<std::string> texts;
    for (const auto& [mac, neighbour] : map) texts.push_back(mac.to_string());
    return texts;
  }
};

using Texts = std::vector<std::string>;

TEST_F(RfEnvironment, AnEntryIsReadWhole) {
  fill(R"([[{"bssid":"00:99:99:00:00:01","channel":36,"band":5,"tx-power":17,"bandwidth":80,"rssi":-61,)"
       R"("primary-channel":"upper"}]])");
  EXPECT_EQ(*listener->visible_rogue.find(mac("00:99:99:00:00:01")), (Neighbour{-61, 36, 5, 80, 17, 512}));
}

TEST_F(RfEnvironment, OnlyUpperIsToldApart) {
  struct Case {
    const char* members;
    std::int32_t primary;
  };
  for (const Case& test : std::vector<Case>{{R"("channel":1,"primary-channel":"upper")", 512},
                                            {R"("channel":1,"primary-channel":"lower")", 256},
                                            {R"("channel":1,"primary-channel":"Upper")", 256},
                                            {R"("channel":1,"primary-channel":512)", 256},
                                            {R"("channel":1)", 256}}) {
    fill("[[" + entry("00:99:99:00:00:01", test.members) + "]]");
    EXPECT_EQ(listener->visible_rogue.find(mac("00:99:99:00:00:01"))->primary, test.primary) << test.members;
  }
}

TEST_F(RfEnvironment, WhoBelongsToTheDomainIsAMember) {
  struct Case {
    const char* label;
    const char* bssid;
    bool member;
  };
  for (const Case& test : std::vector<Case>{{"a radio", "00:11:22:00:01:00", true},
                                            {"a VAP", "00:11:22:00:01:23", true},
                                            {"a VAP, the local bit flipped", "02:11:22:00:01:23", true},
                                            {"another address of its pool", "00:11:22:00:01:2a", false},
                                            {"a disabled radio", "00:11:22:00:01:10", false},
                                            {"a VAP of a disabled radio", "00:11:22:00:01:11", false},
                                            {"somebody else", "00:11:22:00:02:00", false},
                                            {"no address", "here", false}}) {
    fill("[[" + entry(test.bssid) + "]]");
    EXPECT_EQ(listener->visible_members.size(), test.member ? 1U : 0U) << test.label;
    EXPECT_EQ(listener->visible_rogue.size(), test.member ? 0U : 1U) << test.label;
  }
  EXPECT_EQ(rogues(), Texts{"00:00:00:00:00:00"});
}

struct BandCase {
  const char* members;
  std::int32_t band;
  Texts warnings;
};

TEST_F(RfEnvironment, ABandMayBeInferred) {
  const std::vector<BandCase> cases = {
      {R"("channel":36,"band":6)", 6, {}},
      {R"("channel":36,"band":0)", 0, {}},
      {R"("channel":36,"band":null)", 0, {}},
      {R"("channel":36)", 5, {}},
      {R"("channel":200)", 6, {}},
      {R"("channel":20,"bandwidth":40,"rssi":-61)",
       0,
       {"rf-environment entry without band: bssid=00:99:99:00:00:0A channel=20 bandwidth=40 rssi=-61"}},
      {R"("rssi":-61)",
       0,
       {"rf-environment entry without band: bssid=00:99:99:00:00:0A channel=0 bandwidth=0 rssi=-61"}},
  };
  for (const BandCase& test : cases) {
    capture.clear();
    fill("[[" + entry("00:99:99:00:00:0a", test.members) + "]]");
    EXPECT_EQ(listener->visible_rogue.find(mac("00:99:99:00:00:0a"))->band, test.band) << test.members;
    EXPECT_EQ(capture.lines(LOG_WARNING), test.warnings) << test.members;
  }
}

struct RoundsCase {
  const char* label;
  std::string rounds;
  bool changed;
};

TEST_F(RfEnvironment, WhatIsNullChangesNothing) {
  const std::vector<RoundsCase> cases = {
      {"no answer", "null", false},
      {"one null round", "[null]", false},
      {"a null round at last", "[[" + entry("00:99:99:00:00:01") + "],null]", false},
      {"a null round at first", "[null,[" + entry("00:99:99:00:00:01") + "]]", false},
      {"no rounds", "[]", true},
      {"an empty round", "[[]]", true},
      {"empty rounds", "[[],[],[]]", true},
      {"a null element ends a round", "[[null," + entry("00:99:99:00:00:01") + "]]", true},
      {"no array", R"("none")", false},
      {"an object", "{}", false},
      {"a number for a round", "[7]", false},
      {"an object for a round", "[[],{}]", false},
      {"a text for a round", R"(["none"])", false},
  };
  const Texts old_members = members();
  const Texts old_rogues = rogues();
  const NeighbourMap heard_members = listener->visible_members;
  const NeighbourMap heard_rogues = listener->visible_rogue;
  for (const RoundsCase& test : cases) {
    listener->visible_members = heard_members;
    listener->visible_rogue = heard_rogues;
    fill(test.rounds);
    EXPECT_EQ(members(), test.changed ? Texts{} : old_members) << test.label;
    EXPECT_EQ(rogues(), test.changed ? Texts{} : old_rogues) << test.label;
  }
}

TEST_F(RfEnvironment, ANullElementEndsItsRoundOnly) {
  fill("[[" + entry("00:99:99:00:00:01") + ",null," + entry("00:99:99:00:00:02") + "],[" + entry("00:99:99:00:00:03") +
       "]]");
  EXPECT_EQ(rogues(), (Texts{"00:99:99:00:00:01", "00:99:99:00:00:03"}));
}

TEST_F(RfEnvironment, OfTwoEntriesOfOneAddressInARoundTheFirstCounts) {
  fill("[[" + entry("00:99:99:00:00:01", R"("channel":1,"rssi":-60)") + "," +
       entry("00:99:99:00:00:01", R"("channel":6,"rssi":-70)") + "]]");
  EXPECT_EQ(listener->visible_rogue.find(mac("00:99:99:00:00:01"))->channel, 1);
  EXPECT_EQ(listener->visible_rogue.find(mac("00:99:99:00:00:01"))->rssi, -60);
}

TEST_F(RfEnvironment, RoundsAreMergedPerNeighbour) {
  const auto round = [](const std::string& rssi, const std::string& more = "") {
    return "[" + entry("00:11:22:00:01:00", R"("channel":1,"rssi":)" + rssi) + more + "]";
  };
  fill("[" + round("-60") + "," + round("-61", "," + entry("00:99:99:00:00:01", R"("channel":6,"rssi":-75)")) + "," +
       round("-59") + "," + round("-90") + "]");
  EXPECT_EQ(listener->visible_members.find(mac("00:11:22:00:01:00"))->rssi, -60);
  EXPECT_EQ(listener->visible_rogue.find(mac("00:99:99:00:00:01"))->rssi, -75);
}

TEST_F(RfEnvironment, ASingleRoundIsTakenAsItIs) {
  fill("[[" + entry("00:11:22:00:01:00", R"("channel":1,"rssi":-63)") + "," +
       entry("00:99:99:00:00:01", R"("channel":6,"rssi":0)") + "]]");
  EXPECT_EQ(members(), Texts{"00:11:22:00:01:00"});
  EXPECT_EQ(listener->visible_members.find(mac("00:11:22:00:01:00"))->rssi, -63);
  EXPECT_EQ(listener->visible_rogue.find(mac("00:99:99:00:00:01"))->rssi, 0);
}

}  // namespace
}  // namespace rrm::testing
