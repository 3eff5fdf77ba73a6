// Who takes part when a client is steered, and what that leaves in the radios' probe lists.
#include "steering/blacklisting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "steering/surroundings.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const ap_a = "00:11:22:00:0a:00";
const char* const ap_b = "00:11:22:00:0b:00";
const char* const ap_c = "00:11:22:00:0c:00";
const char* const station = "0a:00:00:00:00:01";
const MacAddr client = mac(station);

RadioBuilder office(std::int32_t channel, std::int32_t band) {
  return a_radio().channel(channel).band(band).vap(a_vap("office"));
}

// Radio 0 on 2.4 GHz, 1 on 5 GHz, 2 on 6 GHz, all with "office".
ApBuilder an_office_ap(const char* own) {
  return an_ap().mac(own).with_radio(office(1, 2)).with_radio(office(36, 5)).with_radio(office(37, 6));
}

// A radio's address with the default pools.
std::string radio_mac(const char* ap, std::int32_t radio) {
  return mac(ap).plus(16 * radio).to_string();
}

// "b1" for radio 1 of ap_b.
std::string radio_name(const ApEntry& ap, const Radio& radio) {
  return std::string(1, ap.mac.to_string()[13] == 'A'   ? 'a'
                        : ap.mac.to_string()[13] == 'B' ? 'b'
                                                        : 'c') +
         std::to_string(radio.id);
}

// The client's place in the lists of all radios: "b1 member 30 block" or "b1 off office".
std::vector<std::string> lists(const ApMap& aps) {
  std::vector<std::string> lines;
  for (const auto& [key, ap] : aps) {
    for (const Radio& radio : ap->radios.list) {
      const RrmProblist& list = radio.problist;
      std::string line;
      if (list.members().contains(client)) line += " member " + std::to_string(list.members().at(client));
      if (list.changes().contains(client)) line += list.changes().at(client) ? " block" : " unblock";
      if (list.disassoc().contains(client)) line += " off " + list.disassoc().at(client);
      if (!line.empty()) lines.push_back(radio_name(*ap, radio) + line);
    }
  }
  return lines;
}

class Blacklisting : public ::testing::Test {
 protected:
  // The client's AP is ap_a, which ap_b hears on its 5 GHz radio; nobody hears ap_b or ap_c.
  Blacklisting() { build(an_office_ap(ap_a), hears_a(an_office_ap(ap_b)), an_office_ap(ap_c)); }

  static ApBuilder hears_a(ApBuilder ap) { return ap.hears(radio_mac(ap_a, 1), a_neighbour(-60, 36)); }

  void build(const ApBuilder& a, const ApBuilder& b, const ApBuilder& c) {
    aps = a_set({a.build(config), b.build(config), c.build(config)});
  }
  ApEntry& ap(const char* own) { return *aps.find(mac(own)); }
  Radio& radio(const char* own, std::size_t id) { return ap(own).radios.list[id]; }
  void everywhere(const std::function<void(Radio&)>& edit) {
    for (const auto& [key, entry] : aps) {
      for (Radio& each : entry->radios.list) edit(each);
    }
  }
  void mark(std::int32_t client_radio, bool block, const std::string& ssid = "office") {
    mark_around(aps, config, client, ap(ap_a), ssid, client_radio, block);
  }
  void order_off(const std::string& ssid = "office") { order_off_around(aps, config, client, ap(ap_a), ssid); }

  const Capture capture;
  DomainConfig config;
  ApMap aps;
};

// Who is around

TEST_F(Blacklisting, AnApIsAroundAnotherThatItHears) {
  EXPECT_TRUE(is_around(ap(ap_b), ap(ap_a), config));
  EXPECT_FALSE(is_around(ap(ap_a), ap(ap_b), config)) << "hearing goes one way";
  EXPECT_FALSE(is_around(ap(ap_c), ap(ap_a), config));
}

TEST_F(Blacklisting, WhereAllApsTakePartEveryOneIsAround) {
  config.use_all_ap_balance = true;
  EXPECT_TRUE(is_around(ap(ap_c), ap(ap_a), config));
  EXPECT_TRUE(is_around(ap(ap_a), ap(ap_b), config));
}

TEST_F(Blacklisting, ARadioIsHeardUnderItsOwnAddressTheLocalBitEitherWay) {
  const struct {
    const char* what;
    std::string heard;
    bool expected;
  } cases[] = {
      {"radio 0", "00:11:22:00:0a:00", true},
      {"radio 1", "00:11:22:00:0a:10", true},
      {"radio 2", "00:11:22:00:0a:20", true},
      {"with the local bit", "02:11:22:00:0a:10", true},
      {"another address of its pool", "00:11:22:00:0a:11", false},
      {"another AP's radio", "00:11:22:00:0c:10", false},
  };
  for (const auto& row : cases) {
    const auto listener = an_office_ap(ap_b).hears(row.heard, a_neighbour(-60, 36)).build(config);
    EXPECT_EQ(hears_any_radio(*listener, ap(ap_a)), row.expected) << row.what;
  }
}

TEST_F(Blacklisting, ARadioThatHasALocalAddressIsHeardWithoutTheBitToo) {
  const auto local = an_office_ap("02:11:22:00:0a:00").build(config);
  EXPECT_TRUE(hears_any_radio(ap(ap_b), *local));
}

TEST_F(Blacklisting, WhatIsHeardOfForeignApsDoesNotCount) {
  const auto listener = an_office_ap(ap_b).hears_rogue(radio_mac(ap_a, 1), a_neighbour(-60, 36)).build(config);
  EXPECT_FALSE(hears_any_radio(*listener, ap(ap_a)));
}

TEST_F(Blacklisting, ARadioTakesPartIfItIsOnUnlockedAndServesTheNetwork) {
  EXPECT_TRUE(is_steered(office(36, 5).build(config), "office"));
  EXPECT_FALSE(is_steered(office(36, 5).build(config), "guest"));
  EXPECT_FALSE(is_steered(office(36, 5).build(config), ""));
  EXPECT_FALSE(is_steered(office(36, 5).disabled().build(config), "office"));
  EXPECT_FALSE(is_steered(office(36, 5).locked_balancer().build(config), "office"));
  EXPECT_TRUE(is_steered(office(36, 5).locked_80211v().build(config), "office"));
}

// Blocking

TEST_F(Blacklisting, AClientIsBlockedOnAllRadiosOfTheApsAround) {
  mark(1, true);
  EXPECT_THAT(lists(aps),
              ElementsAre("a0 member 30 block", "b0 member 30 block", "b1 member 30 block", "b2 member 30 block"));
}

TEST_F(Blacklisting, OnItsOwnApOnlyRadiosOutsideTheBetterBandsAreBlocked) {
  const struct {
    const char* what;
    std::int32_t client_radio;
    std::vector<std::int32_t> bands;
    std::vector<std::string> expected;
  } cases[] = {
      {"a client on 2.4 GHz", 0, {2, 5, 6}, {}},
      {"a client on 5 GHz", 1, {2, 5, 6}, {"a0 member 30 block"}},
      {"a client on 6 GHz", 2, {2, 5, 6}, {"a0 member 30 block"}},
      {"two radios on 2.4 GHz", 0, {2, 2, 5}, {"a1 member 30 block"}},
      {"two on 5 GHz", 0, {5, 5, 6}, {}},
      {"a radio whose band is not known", 1, {0, 5, 6}, {"a0 member 30 block"}},
  };
  for (const auto& row : cases) {
    aps = a_set({an_ap()
                     .mac(ap_a)
                     .with_radio(office(1, row.bands[0]))
                     .with_radio(office(36, row.bands[1]))
                     .with_radio(office(37, row.bands[2]))
                     .build(config)});
    mark(row.client_radio, true);
    EXPECT_EQ(lists(aps), row.expected) << row.what;
  }
}

TEST_F(Blacklisting, WhereAllApsTakePartItIsBlockedOnAllOfThem) {
  config.use_all_ap_balance = true;
  mark(0, true);
  EXPECT_THAT(lists(aps), ElementsAre("b0 member 30 block", "b1 member 30 block", "b2 member 30 block",
                                      "c0 member 30 block", "c1 member 30 block", "c2 member 30 block"));
}

TEST_F(Blacklisting, ARadioThatServesTheClientIsNotBlocked) {
  radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
  radio(ap_b, 2).assoc.add_expected(client, {mac(ap_a), 1, 30});
  mark(0, true);
  EXPECT_THAT(lists(aps), ElementsAre("b0 member 30 block", "b2 member 30 block"));
}

TEST_F(Blacklisting, RadiosThatAreOffLockedOrWithoutTheNetworkAreLeftAlone) {
  build(an_office_ap(ap_a).with([](ApEntry& ap) { ap.radios.list[0].locked_balancer = 1; }),
        hears_a(an_ap()
                    .mac(ap_b)
                    .with_radio(office(1, 2).disabled())
                    .with_radio(office(36, 5).locked_balancer())
                    .with_radio(a_radio().channel(37).vap(a_vap("guest")))),
        an_office_ap(ap_c));
  mark(1, true);
  EXPECT_THAT(lists(aps), IsEmpty());
}

TEST_F(Blacklisting, ABlockLastsAsLongAsTheSettingsSay) {
  config.blacklist_timeout = 12;
  mark(0, true);
  EXPECT_THAT(lists(aps), ElementsAre("b0 member 12 block", "b1 member 12 block", "b2 member 12 block"));
}

TEST_F(Blacklisting, ABlockThatIsRepeatedIsNotToldAgain) {
  mark(0, true);
  everywhere([](Radio& each) {
    each.problist.clear_changes();
    each.problist.tick();
  });
  EXPECT_THAT(lists(aps), ElementsAre("b0 member 29", "b1 member 29", "b2 member 29"));
  mark(0, true);
  EXPECT_THAT(lists(aps), ElementsAre("b0 member 30", "b1 member 30", "b2 member 30"));
}

// Opening

TEST_F(Blacklisting, OpeningTouchesTheSameRadiosAndOnlyWhereTheClientIsBlocked) {
  everywhere([](Radio& each) { each.problist.add(client, 30); });
  radio(ap_b, 2).problist.remove(client);
  everywhere([](Radio& each) { each.problist.clear_changes(); });
  mark(1, false);
  EXPECT_THAT(lists(aps), ElementsAre("a0 unblock", "a1 member 30", "a2 member 30", "b0 unblock", "b1 unblock",
                                      "c0 member 30", "c1 member 30", "c2 member 30"));
}

TEST_F(Blacklisting, ARadioThatServesTheClientIsOpenedAllTheSame) {
  radio(ap_b, 1).problist.add(client, 30);
  radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
  mark(1, false);
  EXPECT_THAT(lists(aps), ElementsAre("b1 unblock"));
}

TEST_F(Blacklisting, ALockedRadioIsNotOpened) {
  radio(ap_b, 1).problist.add(client, 30);
  radio(ap_b, 1).locked_balancer = 1;
  mark(1, false);
  EXPECT_THAT(lists(aps), ElementsAre("b1 member 30 block"));
}

TEST_F(Blacklisting, NothingIsMarkedWithoutBalancingOrWithoutANetwork) {
  mark(0, true, "");
  EXPECT_THAT(lists(aps), IsEmpty());
  radio(ap_b, 1).problist.add(client, 30);
  mark(0, false, "");
  EXPECT_THAT(lists(aps), ElementsAre("b1 member 30 block"));
  config.use_balance = false;
  mark(0, true);
  mark(0, false);
  EXPECT_THAT(lists(aps), ElementsAre("b1 member 30 block"));
}

// Ordering off

TEST_F(Blacklisting, AClientIsOrderedOffEveryRadioAroundThatItIsOn) {
  radio(ap_b, 0).assoc.add_client(client, -60, "office", false, false);
  radio(ap_b, 2).assoc.add_client(client, -60, "office", false, false);
  order_off();
  EXPECT_THAT(lists(aps), ElementsAre("b0 member 30 off office", "b2 member 30 off office"));
  EXPECT_EQ(radio(ap_b, 0).assoc.load(), 0);
  EXPECT_EQ(radio(ap_b, 2).assoc.load(), 0);
}

TEST_F(Blacklisting, TheDestinationItselfIsLeftAlone) {
  config.use_all_ap_balance = true;
  radio(ap_a, 0).assoc.add_client(client, -60, "office", false, false);
  order_off();
  EXPECT_THAT(lists(aps), IsEmpty());
  EXPECT_EQ(radio(ap_a, 0).assoc.load(), 1);
}

TEST_F(Blacklisting, OthersStayAndSoDoesWhoeverIsExpected) {
  radio(ap_b, 1).assoc.add_client(mac("0a:00:00:00:00:02"), -60, "office", false, false);
  radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
  radio(ap_b, 2).assoc.add_expected(client, {mac(ap_c), 1, 30});
  order_off();
  EXPECT_THAT(lists(aps), ElementsAre("b1 member 30 off office"));
  EXPECT_NE(radio(ap_b, 1).assoc.find_client(mac("0a:00:00:00:00:02")), nullptr);
  EXPECT_NE(radio(ap_b, 2).assoc.find_expected(client), nullptr);
}

TEST_F(Blacklisting, AClientStaysOnARadioThatCannotBeOrdered) {
  const struct {
    const char* what;
    std::function<void(Radio&)> edit;
  } cases[] = {
      {"switched off", [](Radio& each) { each.status = false; }},
      {"locked", [](Radio& each) { each.locked_balancer = 1; }},
      {"another network", [](Radio& each) { each.vaps.clear(); }},
  };
  for (const auto& row : cases) {
    build(an_office_ap(ap_a), hears_a(an_office_ap(ap_b)), an_office_ap(ap_c));
    radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
    row.edit(radio(ap_b, 1));
    order_off();
    EXPECT_THAT(lists(aps), IsEmpty()) << row.what;
    EXPECT_EQ(radio(ap_b, 1).assoc.load(), 1) << row.what;
  }
}

TEST_F(Blacklisting, AClientStaysOnAnApThatIsNotAround) {
  radio(ap_c, 1).assoc.add_client(client, -60, "office", false, false);
  order_off();
  EXPECT_THAT(lists(aps), IsEmpty());
  EXPECT_EQ(radio(ap_c, 1).assoc.load(), 1);
  config.use_all_ap_balance = true;
  order_off();
  EXPECT_THAT(lists(aps), ElementsAre("c1 member 30 off office"));
}

TEST_F(Blacklisting, AClientThatCameInWhileItWasToBeRefusedIsOrderedOffToo) {
  radio(ap_b, 1).problist.add(client, 30);
  radio(ap_b, 1).problist.clear_changes();
  radio(ap_b, 1).problist.tick();
  radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
  order_off();
  EXPECT_THAT(lists(aps), ElementsAre("b1 member 30 off office"));
}

TEST_F(Blacklisting, AnOrderedClientIsRefusedAsLongAsTheSettingsSay) {
  config.blacklist_timeout = 12;
  radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
  order_off();
  EXPECT_THAT(lists(aps), ElementsAre("b1 member 12 off office"));
}

TEST_F(Blacklisting, NobodyIsOrderedOffWithoutBalancingOrWithoutANetwork) {
  radio(ap_b, 1).assoc.add_client(client, -60, "office", false, false);
  order_off("");
  config.use_balance = false;
  order_off();
  EXPECT_THAT(lists(aps), IsEmpty());
  EXPECT_EQ(radio(ap_b, 1).assoc.load(), 1);
}

}  // namespace
}  // namespace rrm::testing
