// The plain 802.11k list of an AP.
#include "model/NeighbourList.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

class NeighbourListTest : public ::testing::Test {
 protected:
  static ApBuilder listener(const RadioBuilder& radio) { return an_ap().mac("00:11:22:00:00:00").with_radio(radio); }
  static ApBuilder neighbour(const RadioBuilder& radio) { return an_ap().mac("00:11:22:00:01:00").with_radio(radio); }
  static RadioBuilder on(std::int32_t channel) { return a_radio().channel(channel).vap(a_vap("office").id(1).k()); }

  std::string list(const std::shared_ptr<ApEntry>& ap, const ApMap& set) const {
    return array_text([&](JsonWriter& array) { set.write_802dot11k(*ap, array, ap->visible_members); });
  }
  // What the listener's list says when it hears the neighbour under an address.
  std::string list_of_one(ApBuilder own, const ApBuilder& other, const std::string& heard = "00:11:22:00:01:00") const {
    const auto ap = own.hears(heard, a_neighbour(-60, 36)).build(config);
    return list(ap, a_set({ap, other.build(config)}));
  }

  DomainConfig config;
  Capture capture;
};

constexpr const char* on_40 =
    R"([{"neighbour-mac":"00:11:22:00:01:00","channel":40,"band":5,"bandwidth":20,"primary-channel":"none",)"
    R"("priority":255,"vaps":[{"id":1,"ssid":"office","mac":"00:11:22:00:01:01"}]}])";

TEST_F(NeighbourListTest, ListsANeighbourWithTheVapsThatBothHave) {
  const RadioBuilder own = a_radio()
                               .channel(36)
                               .vap(a_vap("a").id(1).k())
                               .vap(a_vap("b").id(2).k())
                               .vap(a_vap("c").id(3))
                               .vap(a_vap("d").id(4).k())
                               .vap(a_vap("e").id(5).k());
  const RadioBuilder other = a_radio()
                                 .channel(36)
                                 .bandwidth(80)
                                 .primary(768)
                                 .with([](Radio& radio) { radio.priority = 127; })
                                 .vap(a_vap("b").id(7).k())
                                 .vap(a_vap("a").id(6).k())
                                 .vap(a_vap("c").id(5).k())
                                 .vap(a_vap("d").id(4));
  EXPECT_EQ(list_of_one(listener(own), neighbour(other)),
            R"([{"neighbour-mac":"00:11:22:00:01:00","channel":36,"band":5,"bandwidth":80,"primary-channel":"ul",)"
            R"("priority":127,"vaps":[{"id":6,"ssid":"a","mac":"00:11:22:00:01:06"},)"
            R"({"id":7,"ssid":"b","mac":"00:11:22:00:01:07"}]}])");
}

struct ListedCase {
  const char* label;
  RadioBuilder own, other;
  bool listed;
};

TEST_F(NeighbourListTest, ListsOnlyWhatClientsCouldUse) {
  const std::vector<ListedCase> cases = {
      {"the same channel", on(36), on(36), true},
      {"another channel of the band", on(36), on(40), true},
      {"another band", on(1), on(40), false},
      {"no SSID in common", on(36), a_radio().channel(40).vap(a_vap("guest").id(1).k()), false},
      {"2.4 GHz on both sides", on(1), on(6), true},
      {"2.4 GHz on both sides, no 802.11k in common", on(1), a_radio().channel(6).vap(a_vap("office").v()), false},
      {"no 802.11k here", a_radio().channel(36).vap(a_vap("office").v()), on(40), false},
      {"no 802.11k there", on(36), a_radio().channel(40).vap(a_vap("office").v()), false},
      {"disabled here", on(36).disabled(), on(40), false},
      {"disabled there", on(36), on(40).disabled(), false},
      {"a band told by the channel", on(36), on(40).band(0), true},
      {"no band at all", on(36), on(20), false},
      {"no band on either side", on(20), on(20), false},
      {"6 GHz is not 5 GHz", on(36), on(40).band(6), false},
  };
  for (const ListedCase& test : cases) {
    EXPECT_EQ(list_of_one(listener(test.own), neighbour(test.other)) != "[]", test.listed) << test.label;
  }
  EXPECT_EQ(list_of_one(listener(on(36)), neighbour(on(40))), on_40);
}

TEST_F(NeighbourListTest, ADisabledRadioIsNoNeighbourHoweverItIsFound) {
  const auto ap = listener(on(36)).build(config);
  const auto other = neighbour(on(40).disabled()).build(config);
  EXPECT_EQ(
      array_text([&](JsonWriter& array) { write_neighbour(array, ap->radios, other->radios.list[0], other->mac); }),
      "[]");
}

TEST_F(NeighbourListTest, TheOwnRadioOnTheNeighboursChannelComesFirst) {
  const RadioBuilder with = a_radio().vap(a_vap("office").id(1).k());
  const RadioBuilder without = a_radio();
  struct Case {
    const char* label;
    RadioBuilder first, second;
    std::int32_t first_channel, second_channel;
    bool listed;
  };
  for (const Case& test : std::vector<Case>{{"on its channel", without, with, 36, 40, true},
                                            {"on its channel, but without the SSID", with, without, 36, 40, false},
                                            {"none on it: the first of the band", with, without, 36, 44, true},
                                            {"none on it, the first without the SSID", without, with, 36, 44, false}}) {
    RadioBuilder first = test.first;
    RadioBuilder second = test.second;
    const ApBuilder own = listener(first.channel(test.first_channel)).with_radio(second.channel(test.second_channel));
    EXPECT_EQ(list_of_one(own, neighbour(on(40))) != "[]", test.listed) << test.label;
  }
}

struct HeardCase {
  const char* label;
  const char* heard;
  const char* bssid;
};

TEST_F(NeighbourListTest, AddressesTakeTheLocalBitThatIsHeard) {
  const std::vector<HeardCase> cases = {
      {"the radio's", "00:11:22:00:01:00", "00:11:22:00:01:01"},
      {"the radio's, flipped", "02:11:22:00:01:00", "02:11:22:00:01:01"},
      {"the VAP's", "00:11:22:00:01:01", "00:11:22:00:01:01"},
      {"the VAP's, flipped", "02:11:22:00:01:01", "02:11:22:00:01:01"},
      {"another VAP's, flipped", "02:11:22:00:01:02", "00:11:22:00:01:01"},
  };
  for (const HeardCase& test : cases) {
    const std::string text = list_of_one(listener(on(36)), neighbour(on(40).vap(a_vap("guest").id(2).k())), test.heard);
    EXPECT_EQ(text, std::string(R"([{"neighbour-mac":")") + test.heard +
                        R"(","channel":40,"band":5,"bandwidth":20,"primary-channel":"none","priority":255,"vaps":[)" +
                        R"({"id":1,"ssid":"office","mac":")" + test.bssid + R"("}]}])")
        << test.label;
  }
}

TEST_F(NeighbourListTest, WhoIsNotInTheSetIsNotListed) {
  const auto ap = listener(on(36)).hears("00:11:22:00:01:00", a_neighbour(-60, 36)).build(config);
  const ApMap others = a_set({neighbour(on(40)).build(config)});
  EXPECT_EQ(list(ap, a_set({ap})), "[]");
  EXPECT_EQ(list(ap, others), on_40);
}

TEST_F(NeighbourListTest, AnApThatIsNotHeardIsListedOnlyWhereAllAre) {
  const auto ap = listener(on(36)).build(config);
  const ApMap set = a_set({ap, neighbour(on(40)).build(config)});
  EXPECT_EQ(list(ap, set), "[]");
  config.use_all_ap_balance = true;
  EXPECT_EQ(list(ap, set), on_40);
}

TEST_F(NeighbourListTest, WhereAllAreListedTheAddressIsStillTheOneHeard) {
  config.use_all_ap_balance = true;
  const auto third = an_ap().mac("00:11:22:00:02:00").hears("00:11:22:00:01:01", a_neighbour(-60, 36)).build(config);
  const auto ap = listener(on(36)).hears("02:11:22:00:01:01", a_neighbour(-60, 36)).build(config);
  EXPECT_EQ(list(ap, a_set({ap, neighbour(on(40)).with_radio(on(44).disabled()).build(config), third})),
            R"([{"neighbour-mac":"02:11:22:00:01:01","channel":40,"band":5,"bandwidth":20,"primary-channel":"none",)"
            R"("priority":255,"vaps":[{"id":1,"ssid":"office","mac":"02:11:22:00:01:01"}]}])");
}

TEST_F(NeighbourListTest, AnApWithTheSameMacUpToTheLocalBitIsAnotherAp) {
  config.use_all_ap_balance = true;
  const auto ap = listener(on(36)).build(config);
  const auto twin = an_ap().mac("02:11:22:00:00:00").with_radio(on(40)).build(config);
  EXPECT_EQ(list(ap, a_set({ap, twin})),
            R"([{"neighbour-mac":"02:11:22:00:00:00","channel":40,"band":5,"bandwidth":20,"primary-channel":"none",)"
            R"("priority":255,"vaps":[{"id":1,"ssid":"office","mac":"02:11:22:00:00:01"}]}])");
}

struct ModeCase {
  const char* label;
  bool all, use_k, use_v;
  RadioBuilder own;
  bool lists_all;
};

TEST_F(NeighbourListTest, AllAreListedForAnApWhose11kRadiosAreLocked) {
  const std::vector<ModeCase> cases = {
      {"the setting", true, false, false, on(36), true},
      {"both standards, but a radio takes them", false, true, true, on(36), false},
      {"both standards, and none takes them", false, true, true, on(36).locked_80211v(), true},
      {"without 802.11v", false, true, false, on(36).locked_80211v(), false},
      {"without 802.11k", false, false, true, on(36).locked_80211v(), false},
  };
  for (const ModeCase& test : cases) {
    config.use_all_ap_balance = test.all, config.use_80211k = test.use_k, config.use_80211v = test.use_v;
    const auto ap = listener(test.own).build(config);
    EXPECT_EQ(list(ap, a_set({ap, neighbour(on(40)).build(config)})) != "[]", test.lists_all) << test.label;
  }
}

}  // namespace
}  // namespace rrm::testing
