// What an AP is told for BSS transition management: its neighbours, and how many clients it should move.
#include "steering/transition_lists.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A radio of the SSID "office" with 802.11v, whose neighbours know its priority.
RadioBuilder office(std::int32_t channel = 36, std::uint32_t priority = 255) {
  return a_radio().channel(channel).vap(a_vap("office").id(1).v()).with([=](Radio& radio) {
    radio.priority = radio.sent_priority = priority;
  });
}

// That many clients on a radio, of which some are only expected.
RadioBuilder with_clients(RadioBuilder radio, std::int32_t count, std::int32_t expected = 0) {
  return radio.with([=](Radio& built) {
    for (std::int32_t i = 0; i < count; ++i) {
      const MacAddr client = mac("02:00:00:00:00:00").plus(i);
      if (i < expected) {
        built.assoc.add_expected(client, {MacAddr(), 0, 5});
      } else {
        built.assoc.add_client(client, -60, "office", false, false);
      }
    }
  });
}

// The listener, and its neighbours by number.
ApBuilder listener(const RadioBuilder& radio) {
  return an_ap().mac("00:11:22:00:00:00").with_radio(radio);
}
std::string peer_mac(int number) {
  char text[18];
  std::snprintf(text, sizeof text, "00:11:22:00:%02X:00", static_cast<unsigned>(number) & 0xFFU);
  return text;
}
ApBuilder peer(int number, const RadioBuilder& radio) {
  return an_ap().mac(peer_mac(number)).with_radio(radio);
}

// A neighbour with the one VAP "office", id 1.
std::string listed(const std::string& address, std::uint32_t priority, const std::string& bssid,
                   std::int32_t channel = 36) {
  return R"({"neighbour-mac":")" + address + R"(","channel":)" + std::to_string(channel) +
         R"(,"band":5,"bandwidth":20,"primary-channel":"none","priority":)" + std::to_string(priority) +
         R"(,"vaps":[{"id":1,"ssid":"office","mac":")" + bssid + R"("}]})";
}
const std::string peer1_vap = "00:11:22:00:01:01";
const std::string peer2_vap = "00:11:22:00:02:01";

struct Answer {
  bool result = false;
  std::string list;

  bool operator==(const Answer&) const = default;
};
void PrintTo(const Answer& answer, std::ostream* out) {
  *out << (answer.result ? "true " : "false ") << answer.list;
}

template <class Write>
Answer answer_of(Write write) {
  Answer answer;
  JsonWriter document;
  JsonWriter array = JsonWriter::array(document, "802dot11k");
  answer.result = write(array);
  answer.list = array.to_string();
  return answer;
}

class Steering : public ::testing::Test {
 protected:
  Steering() { config.use_80211v = true; }

  Answer list(const ApMap& aps, const std::shared_ptr<ApEntry>& ap) const {
    return answer_of([&](JsonWriter& array) { return write_transition_list(aps, *ap, config, array); });
  }
  // The list of a listener that knows one neighbour, heard under the neighbour's own address where that counts.
  Answer list_with(const RadioBuilder& own, const RadioBuilder& other) const {
    const auto ap = listener(own).hears(peer_mac(1), a_neighbour(-60, 36)).build(config);
    return list(a_set({ap, peer(1, other).build(config)}), ap);
  }
  // The listener first; the neighbours are numbered from 1.
  ApMap site(const std::shared_ptr<ApEntry>& ap, const std::vector<RadioBuilder>& others) const {
    ApMap aps = a_set({ap});
    int number = 0;
    for (const RadioBuilder& radio : others) {
      const auto other = peer(++number, radio).build(config);
      aps.insert(other->mac, other);
    }
    return aps;
  }

  DomainConfig config;
  Capture capture;
};

class TransitionList : public Steering {};

TEST_F(TransitionList, HoldsANeighbourWithTheVapsThatBothSteerBy80211v) {
  const RadioBuilder own = a_radio()
                               .channel(36)
                               .vap(a_vap("a").id(1).v())
                               .vap(a_vap("b").id(2).v().k())
                               .vap(a_vap("c").id(3).k())
                               .vap(a_vap("d").id(4).v())
                               .vap(a_vap("e").id(5).v());
  const RadioBuilder other = office(52)
                                 .bandwidth(80)
                                 .primary(primary_upper_lower)
                                 .vap(a_vap("b").id(7).v())
                                 .vap(a_vap("a").id(6).v().k())
                                 .vap(a_vap("c").id(5).v().k())
                                 .vap(a_vap("d").id(4).k());
  EXPECT_EQ(list_with(own, other).list,
            R"([{"neighbour-mac":"00:11:22:00:01:00","channel":52,"band":5,"bandwidth":80,"primary-channel":"ul",)"
            R"("priority":127,"vaps":[{"id":6,"ssid":"a","mac":"00:11:22:00:01:06"},)"
            R"({"id":7,"ssid":"b","mac":"00:11:22:00:01:07"}]}])");
}

TEST_F(TransitionList, IsEmptyAndTheSameWhereTheSettingIsOff) {
  config.use_80211v = false;
  const auto ap = listener(office()).build(config);
  const auto news = peer(1, office().with([](Radio& radio) { radio.lists_stale = true; })).build(config);
  EXPECT_EQ(list(a_set({ap, news}), ap), (Answer{false, "[]"}));
  EXPECT_EQ(list(a_set({ap}), ap), (Answer{false, "[]"}));
}

TEST_F(TransitionList, CarriesTheNeighboursPriorityOrAFixedOne) {
  struct Case {
    const char* label;
    bool use_balance, use_80211k;
    std::uint32_t priority;
    std::string list;
  };
  const auto with = [](std::uint32_t priority) { return "[" + listed(peer_mac(1), priority, peer1_vap) + "]"; };
  const Case cases[] = {
      {"balanced, light", true, false, 255, with(255)},
      {"balanced, medium", true, false, 127, with(127)},
      {"balanced, full", true, false, 0, "[]"},
      {"fixed by 802.11k, light", true, true, 255, with(127)},
      {"fixed by 802.11k, full", true, true, 0, with(127)},
      {"not balanced, light", false, false, 255, with(127)},
      {"not balanced, full", false, false, 0, with(127)},
      {"not balanced, with 802.11k", false, true, 0, with(127)},
  };
  for (const Case& test : cases) {
    config.use_balance = test.use_balance;
    config.use_80211k = test.use_80211k;
    EXPECT_EQ(list_with(office(), office(36, test.priority)), (Answer{false, test.list})) << test.label;
  }
}

TEST_F(TransitionList, IsNewsWhenANeighboursPriorityIsNotTheOneSentOrItsListsAreStale) {
  struct Case {
    const char* label;
    std::uint32_t priority, sent;
    bool stale, changed;
  };
  const Case cases[] = {
      {"all is told", 127, 127, false, false},      {"less priority", 127, 255, false, true},
      {"more priority", 255, 127, false, true},     {"no priority, and left out for it", 0, 127, false, true},
      {"no priority, as told", 0, 0, false, false}, {"stale", 127, 127, true, true},
  };
  for (const bool fixed : {false, true}) {
    config.use_80211k = fixed;
    for (const Case& test : cases) {
      const RadioBuilder other = office().with([&](Radio& radio) {
        radio.priority = test.priority;
        radio.sent_priority = test.sent;
        radio.lists_stale = test.stale;
      });
      EXPECT_EQ(list_with(office(), other).result, test.changed) << test.label << " fixed " << fixed;
    }
  }
}

TEST_F(TransitionList, IsNewsForEveryNeighbourWhetherItIsListedOrNot) {
  const auto stale = [](Radio& radio) { radio.lists_stale = true; };
  EXPECT_EQ(list_with(office(), a_radio().channel(1).with(stale)), (Answer{true, "[]"})) << "another band";
  EXPECT_FALSE(list_with(office(), office().with(stale).disabled()).result) << "disabled";
  EXPECT_FALSE(list_with(office().with(stale), office()).result) << "the AP itself";
}

TEST_F(TransitionList, HoldsThoseHeardOrAllOthersAsTheSettingsSay) {
  struct Case {
    bool use_all_ap_balance, use_80211k;
    std::string list;
  };
  const std::string heard = listed("02:11:22:00:01:01", 255, "02:11:22:00:01:01");
  const auto all = [](std::uint32_t priority) {
    return listed(peer_mac(1), priority, peer1_vap) + "," + listed(peer_mac(2), priority, peer2_vap);
  };
  const Case cases[] = {
      {false, false, heard}, {true, false, all(255)}, {false, true, all(127)}, {true, true, all(127)}};
  for (const Case& test : cases) {
    config.use_all_ap_balance = test.use_all_ap_balance;
    config.use_80211k = test.use_80211k;
    const auto ap = listener(office()).hears("02:11:22:00:01:01", a_neighbour(-60, 36)).build(config);
    EXPECT_EQ(list(site(ap, {office(), office()}), ap), (Answer{false, "[" + test.list + "]"}))
        << test.use_all_ap_balance << test.use_80211k;
  }
}

TEST_F(TransitionList, OfAnApThatHearsNobodyIsAlwaysNewsWhereOnlyThoseHeardCount) {
  config.use_80211k = false;
  const auto deaf = listener(office()).build(config);
  EXPECT_EQ(list(site(deaf, {office()}), deaf), (Answer{true, "[]"}));
  const auto ap = listener(office()).hears("00:99:00:00:00:00", a_neighbour(-60, 36)).build(config);
  EXPECT_EQ(list(a_set({ap}), ap), (Answer{false, "[]"})) << "it hears somebody, though nobody known";
}

TEST_F(TransitionList, OfALoneApIsAlwaysNewsWhereAllOthersCount) {
  for (const bool all : {false, true}) {
    config.use_all_ap_balance = all;
    config.use_80211k = !all;
    const auto ap = listener(office()).hears(peer_mac(1), a_neighbour(-60, 36)).build(config);
    EXPECT_EQ(list(a_set({ap}), ap), (Answer{true, "[]"}));
    EXPECT_EQ(list(site(ap, {office().disabled()}), ap), (Answer{false, "[]"})) << "another AP, though without a radio";
  }
}

TEST_F(TransitionList, PassesOverRadiosThatVanished) {
  config.use_80211k = false;
  const auto ap = listener(office())
                      .hears("00:99:00:00:00:00", a_neighbour(-60, 36))
                      .hears("00:11:22:00:01:00", a_neighbour(-60, 36))
                      .hears("00:11:22:00:02:00", a_neighbour(-60, 36))
                      .hears("00:11:22:00:02:11", a_neighbour(-60, 36))
                      .build(config);
  const auto silenced = peer(1, office()).build(config);
  const auto other = an_ap().mac(peer_mac(2)).with_radio(a_radio().disabled()).with_radio(office()).build(config);
  const ApMap aps = a_set({ap, silenced, other});
  silenced->radios.list[0].status = false;
  EXPECT_EQ(list(aps, ap), (Answer{false, "[" + listed("00:11:22:00:02:11", 255, "00:11:22:00:02:11") + "]"}));
}

TEST_F(TransitionList, GivesBssidsTheLocalBitThatIsHeard) {
  struct Case {
    const char* label;
    const char* peer;
    const char* heard;
    const char* bssid;
  };
  const Case cases[] = {
      {"the radio", "00:11:22:00:01:00", "00:11:22:00:01:00", "00:11:22:00:01:01"},
      {"the radio, with the bit", "00:11:22:00:01:00", "02:11:22:00:01:00", "02:11:22:00:01:01"},
      {"the VAP, with the bit", "00:11:22:00:01:00", "02:11:22:00:01:01", "02:11:22:00:01:01"},
      {"another VAP, with the bit", "00:11:22:00:01:00", "02:11:22:00:01:02", "00:11:22:00:01:01"},
      {"the radio, without the bit", "02:11:22:00:01:00", "00:11:22:00:01:00", "00:11:22:00:01:01"},
      {"the VAP, without the bit", "02:11:22:00:01:00", "00:11:22:00:01:01", "00:11:22:00:01:01"},
      {"another VAP, without the bit", "02:11:22:00:01:00", "00:11:22:00:01:02", "02:11:22:00:01:01"},
  };
  config.use_80211k = false;
  for (const Case& test : cases) {
    const auto ap = listener(office()).hears(test.heard, a_neighbour(-60, 36)).build(config);
    const auto other = an_ap().mac(test.peer).with_radio(office().vap(a_vap("guests").id(2))).build(config);
    EXPECT_EQ(list(a_set({ap, other}), ap), (Answer{false, "[" + listed(test.heard, 255, test.bssid) + "]"}))
        << test.label;
  }
}

TEST_F(TransitionList, GivesBssidsTheLocalBitOfTheRadioWhereAllOthersCount) {
  const auto with_bssid = [](const char* bssid) {
    return a_radio().channel(36).vap(a_vap("office").id(1).v().mac(bssid)).with([](Radio& radio) {
      radio.sent_priority = radio.priority;
    });
  };
  EXPECT_EQ(list_with(office(), with_bssid("02:11:22:00:01:01")).list,
            "[" + listed(peer_mac(1), 127, "00:11:22:00:01:01") + "]");
}

TEST_F(TransitionList, IsMadeForTheOwnRadioOnTheNeighboursChannelOrElseTheFirstOfTheBand) {
  const RadioBuilder bare = a_radio();
  struct Case {
    const char* label;
    RadioBuilder first, second;
    bool listed;
  };
  const auto on = [](RadioBuilder radio, std::int32_t channel) { return radio.channel(channel); };
  const Case cases[] = {
      {"on its channel", on(bare, 40), office(36), true},
      {"on its channel, without the SSID", office(40), on(bare, 36), false},
      {"on its channel, but disabled", office(40), on(bare, 36).disabled(), true},
      {"the first of the band", office(40), on(bare, 44), true},
      {"the first of the band, without the SSID", on(bare, 40), office(44), false},
      {"the first of the band, but disabled", on(bare, 40).disabled(), office(44), true},
      {"none of the band", office(1), on(bare, 6), false},
  };
  for (const Case& test : cases) {
    const auto ap = listener(test.first).with_radio(test.second).build(config);
    const std::string expected = test.listed ? "[" + listed(peer_mac(1), 127, peer1_vap) + "]" : "[]";
    EXPECT_EQ(list(site(ap, {office(36)}), ap), (Answer{false, expected})) << test.label;
  }
}

TEST_F(TransitionList, InfersTheNeighboursBandFromItsChannel) {
  EXPECT_EQ(list_with(office(), office(40).band(0)).list, "[" + listed(peer_mac(1), 127, peer1_vap, 40) + "]");
  EXPECT_EQ(list_with(office(), office(40).band(6)).list, "[]");
}

// 802.11k alone

TEST_F(TransitionList, HoldsANeighbourKnownBy80211kAloneAsNoTargetAtAll) {
  struct Case {
    const char* label;
    VapBuilder own, other;
    bool use_80211k, listed;
  };
  const VapBuilder k = a_vap("office").id(1).k();
  const VapBuilder v = a_vap("office").id(1).v();
  const VapBuilder kv = a_vap("office").id(1).k().v();
  const Case cases[] = {
      {"802.11k on both sides", k, k, true, true},
      {"802.11v here only", kv, k, true, true},
      {"802.11v there only", k, kv, true, true},
      {"no 802.11k here", v, k, true, false},
      {"no 802.11k there", k, v, true, false},
      {"the setting is off", k, k, false, false},
      {"another SSID", k, a_vap("guests").id(1).k(), true, false},
  };
  for (const Case& test : cases) {
    config.use_80211k = test.use_80211k;
    const RadioBuilder other =
        a_radio().channel(36).vap(test.other).with([](Radio& radio) { radio.priority = radio.sent_priority = 255; });
    EXPECT_EQ(list_with(a_radio().channel(36).vap(test.own), other),
              (Answer{false, test.listed ? "[" + listed(peer_mac(1), 0, peer1_vap) + "]" : "[]"}))
        << test.label;
  }
}

TEST_F(TransitionList, LeavesOut80211kWhere80211vHasAnything) {
  const RadioBuilder both = office().vap(a_vap("lab").id(2).k());
  EXPECT_EQ(list_with(both, both).list, "[" + listed(peer_mac(1), 127, peer1_vap) + "]");
}

// The limit

class TransitionListLimit : public Steering {
 protected:
  static constexpr const char* beyond =
      "On mac(00:11:22:00:00:00) radio(0) number of entries for ssid(office) exceded limit(64)";

  // The objects of the list for a listener with 802.11k and v, as texts.
  std::vector<std::string> objects(const std::vector<RadioBuilder>& others) {
    const auto ap =
        listener(a_radio().channel(36).vap(a_vap("office").id(1).k().v()).vap(a_vap("guests").id(2).k().v()))
            .build(config);
    const std::string text = list(site(ap, others), ap).list;
    const JsonReader array(text.c_str());
    std::vector<std::string> texts;
    for (int i = 0; i < array.size(); ++i) texts.emplace_back(array.at(i).to_string());
    return texts;
  }
};

TEST_F(TransitionListLimit, TakesThe64thEntryAndLeavesOutThe65th) {
  std::vector<RadioBuilder> others(64, office());
  EXPECT_EQ(objects(others).size(), 64u);
  EXPECT_EQ(objects(others).size(), 64u) << "the next list is counted anew";
  EXPECT_THAT(capture.lines(LOG_ERROR), IsEmpty());
  others.push_back(office());
  const std::vector<std::string> list = objects(others);
  ASSERT_EQ(list.size(), 64u);
  EXPECT_EQ(list.back(), listed("00:11:22:00:40:00", 127, "00:11:22:00:40:01"));
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre(beyond));
}

TEST_F(TransitionListLimit, CountsEachSsidByItself) {
  std::vector<RadioBuilder> others(64, office());
  others.push_back(office().vap(a_vap("guests").id(2).v()));
  const std::vector<std::string> list = objects(others);
  ASSERT_EQ(list.size(), 65u);
  EXPECT_EQ(list.back(),
            R"({"neighbour-mac":"00:11:22:00:41:00","channel":36,"band":5,"bandwidth":20,"primary-channel":"none",)"
            R"("priority":127,"vaps":[{"id":2,"ssid":"guests","mac":"00:11:22:00:41:02"}]})");
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre(beyond));
}

TEST_F(TransitionListLimit, CountsEachRadioNumberOfTheNeighboursByItself) {
  const auto ap = listener(office()).build(config);
  ApMap aps = a_set({ap});
  for (int number = 1; number <= 64; ++number) {
    const auto other = peer(number, office()).with_radio(office(40)).build(config);
    aps.insert(other->mac, other);
  }
  const std::string text = list(aps, ap).list;
  EXPECT_EQ(JsonReader(text.c_str()).size(), 128);
  EXPECT_THAT(capture.lines(LOG_ERROR), IsEmpty());
}

TEST_F(TransitionListLimit, Holds80211kEntriesToo) {
  const RadioBuilder by_11k = a_radio().channel(36).vap(a_vap("office").id(1).k());
  std::vector<RadioBuilder> others(63, office());
  others.push_back(by_11k);
  EXPECT_EQ(objects(others).back(), listed("00:11:22:00:40:00", 0, "00:11:22:00:40:01"));
  EXPECT_THAT(capture.lines(LOG_ERROR), IsEmpty());
  others.push_back(by_11k);
  EXPECT_EQ(objects(others).size(), 64u);
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre(beyond));
}

TEST_F(TransitionListLimit, LeavesWhatIsBeyondItTo80211kWhichIsCountedOn) {
  std::vector<RadioBuilder> others(64, office());
  others.push_back(a_radio().channel(36).vap(a_vap("office").id(1).k().v()).vap(a_vap("guests").id(2).k()));
  const std::vector<std::string> list = objects(others);
  ASSERT_EQ(list.size(), 65u);
  EXPECT_EQ(list.back(),
            R"({"neighbour-mac":"00:11:22:00:41:00","channel":36,"band":5,"bandwidth":20,"primary-channel":"none",)"
            R"("priority":0,"vaps":[{"id":2,"ssid":"guests","mac":"00:11:22:00:41:02"}]})");
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre(beyond, beyond)) << "once for each standard";
}

// An overloaded AP's list

class OverloadList : public Steering {
 protected:
  OverloadList() { config.use_80211k = false; }

  Answer overload_list(const ApMap& aps, const std::shared_ptr<ApEntry>& ap) const {
    return answer_of([&](JsonWriter& array) { return write_overload_list(aps, *ap, config, array); });
  }
  // A listener with that many clients that hears the first two neighbours.
  std::shared_ptr<ApEntry> loaded(std::int32_t clients, std::int32_t expected = 0) const {
    return listener(with_clients(office(), clients, expected))
        .hears(peer_mac(1), a_neighbour(-60, 36))
        .hears(peer_mac(2), a_neighbour(-60, 36))
        .build(config);
  }
};

TEST_F(OverloadList, GivesLighterNeighboursTheirPriorityAndOthersNone) {
  struct Case {
    const char* label;
    std::int32_t own, own_expected, theirs, their_expected;
    std::uint32_t priority, told;
    std::int32_t peers, clients;
  };
  const Case cases[] = {
      {"lighter", 6, 0, 5, 0, 255, 255, 1, 5},
      {"lighter, medium priority", 6, 0, 5, 0, 127, 127, 1, 5},
      {"lighter, without clients", 6, 0, 0, 0, 255, 255, 1, 0},
      {"lighter, no priority", 6, 0, 5, 0, 0, 0, 0, 0},
      {"as heavy", 6, 0, 6, 0, 255, 0, 0, 0},
      {"heavier", 6, 0, 7, 0, 255, 0, 0, 0},
      {"lighter, but for those it expects", 6, 0, 6, 1, 255, 0, 0, 0},
      {"lighter with those it expects", 6, 0, 5, 5, 255, 255, 1, 5},
      {"lighter for those expected here", 6, 6, 5, 0, 255, 255, 1, 5},
  };
  for (const bool use_80211k : {false, true}) {
    config.use_80211k = use_80211k;
    for (const Case& test : cases) {
      const auto ap = loaded(test.own, test.own_expected);
      const ApMap aps = site(ap, {with_clients(office(36, test.priority), test.theirs, test.their_expected)});
      EXPECT_EQ(overload_list(aps, ap), (Answer{true, "[" + listed(peer_mac(1), test.told, peer1_vap) + "]"}))
          << test.label;
      EXPECT_EQ(ap->radios.list[0].roam_peers, test.peers) << test.label;
      EXPECT_EQ(ap->radios.list[0].roam_peer_clients, test.clients) << test.label;
    }
  }
}

TEST_F(OverloadList, CountsTheLighterNeighboursOfEachOwnRadio) {
  const auto ap = listener(with_clients(office(1), 9)).with_radio(with_clients(office(36), 20)).build(config);
  config.use_all_ap_balance = true;
  overload_list(site(ap, {with_clients(office(1), 2), with_clients(office(36), 8), with_clients(office(40), 5),
                          with_clients(office(44), 30)}),
                ap);
  EXPECT_EQ(ap->radios.list[0].roam_peers, 1);
  EXPECT_EQ(ap->radios.list[0].roam_peer_clients, 2);
  EXPECT_EQ(ap->radios.list[1].roam_peers, 2);
  EXPECT_EQ(ap->radios.list[1].roam_peer_clients, 13);
}

TEST_F(OverloadList, HoldsThoseHeardOrAllOthersByOneSettingAlone) {
  const std::string first = listed(peer_mac(1), 255, peer1_vap);
  const std::string second = listed(peer_mac(2), 255, peer2_vap);
  const auto heard = [&](const char* address) {
    return listener(with_clients(office(), 6)).hears(address, a_neighbour(-60, 36)).build(config);
  };
  for (const bool use_80211k : {false, true}) {
    config.use_80211k = use_80211k;
    const auto ap = heard("02:11:22:00:01:00");
    EXPECT_EQ(overload_list(site(ap, {office(), office()}), ap).list,
              "[" + listed("02:11:22:00:01:00", 255, "02:11:22:00:01:01") + "]");
  }
  config.use_all_ap_balance = true;
  const auto ap = heard("02:11:22:00:01:00");
  EXPECT_EQ(overload_list(site(ap, {office(), office(), office().disabled()}), ap).list,
            "[" + first + "," + second + "]");
}

TEST_F(OverloadList, IsEmptyWithoutANeighbourOfAnyOwnBand) {
  const auto alone = loaded(6);
  EXPECT_EQ(overload_list(a_set({alone}), alone), (Answer{false, "[]"}));
  EXPECT_EQ(overload_list(site(alone, {office(1)}), alone), (Answer{false, "[]"})) << "of another band";
  EXPECT_EQ(overload_list(site(alone, {office().disabled()}), alone), (Answer{false, "[]"})) << "disabled";
}

// The AP may know more of the neighbour than it may tell its clients.
TEST_F(OverloadList, CountsANeighbourForWhichNothingCanBeWritten) {
  const auto ap = loaded(6);
  EXPECT_EQ(overload_list(site(ap, {a_radio().channel(36).vap(a_vap("guests").id(1).v())}), ap), (Answer{true, "[]"}));
  EXPECT_EQ(ap->radios.list[0].roam_peers, 1);
}

TEST_F(OverloadList, HoldsANeighbourKnownBy80211kAloneAsNoTargetAtAll) {
  config.use_80211k = true;
  const RadioBuilder by_11k = a_radio().channel(36).vap(a_vap("office").id(1).k());
  const auto ap = listener(with_clients(by_11k, 6)).hears(peer_mac(1), a_neighbour(-60, 36)).build(config);
  EXPECT_EQ(overload_list(site(ap, {by_11k}), ap), (Answer{true, "[" + listed(peer_mac(1), 0, peer1_vap) + "]"}));
  EXPECT_EQ(ap->radios.list[0].roam_peers, 1);
}

TEST_F(OverloadList, KeepsTheLimit) {
  config.use_all_ap_balance = true;
  const auto ap = loaded(6);
  const std::string text = overload_list(site(ap, std::vector<RadioBuilder>(65, office())), ap).list;
  EXPECT_EQ(JsonReader(text.c_str()).size(), 64);
  EXPECT_THAT(capture.lines(LOG_ERROR),
              ElementsAre("On mac(00:11:22:00:00:00) radio(0) number of entries for ssid(office) exceded limit(64)"));
  EXPECT_EQ(ap->radios.list[0].roam_peers, 65);
}

// How many clients to move

class RoamCount : public Steering {
 protected:
  // A radio with that many clients, whose lighter neighbours have been counted.
  std::int32_t count(const RadioBuilder& radio, std::int32_t clients, std::int32_t peers, std::int32_t peer_clients) {
    capture.clear();
    const auto ap = listener(with_clients(radio, clients)).build(config);
    ap->radios.list[0].roam_peers = peers;
    ap->radios.list[0].roam_peer_clients = peer_clients;
    return roam_count(*ap, ap->radios.list[0], config);
  }
};

TEST_F(RoamCount, IsTheExcessOverTheMeanOfTheRadioAndItsLighterNeighbours) {
  struct Case {
    std::int32_t clients, peers, peer_clients, count;
    const char* line;
  };
  const std::string radio = "AP(00:11:22:00:00:00): radio 0: ";
  const Case cases[] = {
      {20, 2, 13, 4, "Sending overload msg to 00:11:22:00:00:00 (roam 4 clients; avg_count = 11.000)"},
      {9, 1, 1, 4, "Sending overload msg to 00:11:22:00:00:00 (roam 4 clients; avg_count = 5.000)"},
      {10, 1, 1, 4, "Sending overload msg to 00:11:22:00:00:00 (roam 4 clients; avg_count = 5.500)"},
      {8, 1, 1, 3, "Sending overload msg to 00:11:22:00:00:00 (roam 3 clients; avg_count = 4.500)"},
      {7, 2, 3, 3, "Sending overload msg to 00:11:22:00:00:00 (roam 3 clients; avg_count = 3.333)"},
      {7, 1, 2, 2, "Sending overload msg to 00:11:22:00:00:00 (roam 2 clients; avg_count = 4.500)"},
      {6, 1, 2, 0, "AP(00:11:22:00:00:00): radio 0: roam count 2.000 below min 2"},
      {6, 2, 8, 0, "AP(00:11:22:00:00:00): radio 0: roam count 1.333 below min 2"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(count(office(), test.clients, test.peers, test.peer_clients), test.count) << test.line;
    EXPECT_THAT(capture.lines(LOG_TRACE), ElementsAre(radio + "total clients " + std::to_string(test.clients) +
                                                          ", nonzero prio aps " + std::to_string(test.peers) + ";",
                                                      test.line));
  }
}

TEST_F(RoamCount, KeepsTheBoundsOfTheSettings) {
  config.load_balance_roam_count_min = 0;
  config.load_balance_roam_count_max = 1;
  EXPECT_EQ(count(office(), 20, 2, 13), 1);
  EXPECT_EQ(count(office(), 6, 1, 5), 0) << "half a client is nobody";
  EXPECT_EQ(count(office(), 6, 1, 6), 0);
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "AP(00:11:22:00:00:00): radio 0: roam count 0.000 below min 0"));
  config.load_balance_roam_count_max = 20;
  EXPECT_EQ(count(office(), 20, 2, 13), 9);
}

TEST_F(RoamCount, CountsTheClientsThatAreExpected) {
  const auto ap = listener(with_clients(office(), 20, 10)).build(config);
  ap->radios.list[0].roam_peers = 2;
  ap->radios.list[0].roam_peer_clients = 13;
  EXPECT_EQ(roam_count(*ap, ap->radios.list[0], config), 4);
}

TEST_F(RoamCount, IsNoneWithoutNeighboursThatCouldTakeAny) {
  EXPECT_EQ(count(office(), 20, 0, 0), 0);
  EXPECT_THAT(capture.lines(LOG_TRACE),
              ElementsAre("AP(00:11:22:00:00:00): radio 0: no neighbor aps with nonzero priority, skip roam count"));
}

TEST_F(RoamCount, IsNoneForARadioThatIsNotSteeredOrNotOverloaded) {
  struct Case {
    bool use_balance;
    RadioBuilder radio;
    std::int32_t clients;
    const char* switches;
  };
  const RadioBuilder plain = a_radio().channel(36).vap(a_vap("office").id(1).k());
  const Case cases[] = {
      {false, office(), 20, "use_balance=0 use_80211v=1 need_balance=1"},
      {true, plain, 20, "use_balance=1 use_80211v=0 need_balance=1"},
      {true, office(), 5, "use_balance=1 use_80211v=1 need_balance=0"},
  };
  for (const Case& test : cases) {
    config.use_balance = test.use_balance;
    EXPECT_EQ(count(test.radio, test.clients, 2, 0), 0);
    EXPECT_THAT(capture.lines(LOG_TRACE),
                ElementsAre("AP(00:11:22:00:00:00): radio 0: skip roam count (" + std::string(test.switches) + ")"));
  }
}

TEST_F(Steering, AnApNeedsLoadBalanceWithARadioOf80211vAndARadioAboveTheLowMark) {
  struct Case {
    const char* label;
    RadioBuilder first, second;
    bool needs;
  };
  const RadioBuilder plain = a_radio().channel(1).vap(a_vap("office").id(1).k());
  const Case cases[] = {
      {"at the mark", with_clients(office(), 5), plain, false},
      {"above the mark", with_clients(office(), 6), plain, true},
      {"above it with one expected", with_clients(office(), 6, 1), plain, true},
      {"above it, but locked", with_clients(office(), 6).locked_80211v(), plain, false},
      {"above it, but disabled", with_clients(office(), 6).disabled(), plain, false},
      {"above it, without 802.11v", a_radio().channel(36), with_clients(plain, 6), false},
      {"above it, with 802.11v on another radio", office(), with_clients(plain, 6), true},
      {"above it, but disabled, with 802.11v on another radio", office(), with_clients(plain, 6).disabled(), false},
      {"above it, with 802.11v on a locked other", office().locked_80211v(), with_clients(plain, 6), false},
  };
  for (const Case& test : cases) {
    const auto ap = listener(test.first).with_radio(test.second).build(config);
    EXPECT_EQ(needs_load_balance(*ap), test.needs) << test.label;
  }
}

}  // namespace
}  // namespace rrm::testing
