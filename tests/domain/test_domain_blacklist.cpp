// How a client's level opens and closes the radios around it, and when and in what words the APs are told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "domain/steering_support.h"

namespace rrm::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Blacklist : public SteeringTest {
 public:
  // The client comes now, without a word.
  void join(const char* own, std::size_t id) {
    radio(own, id).assoc.add_client(mac(phone), -60, "office", false, false);
  }
  using SteeringTest::clock;
  using SteeringTest::fall_silent;

 protected:
  // A client on ap_a's 5 GHz radio, last heard at this level; every other radio around refuses it.
  void start_with_client(int rssi) {
    start_site();
    radio(ap_a, 1).assoc.add_client(mac(phone), rssi, "office", false, false);
    for (const char* own : {ap_a, ap_b, ap_c}) {
      for (const std::size_t id : {0u, 1u, 2u}) {
        if (own != ap_a || id == 0) refuse(own, id);
      }
    }
  }
  // As the AP was told some time ago.
  void refuse(const char* own, std::size_t id) {
    radio(own, id).problist.add(mac(phone), 30);
    radio(own, id).problist.clear_changes();
  }
  int stored_level() { return radio(ap_a, 1).assoc.find_client(mac(phone))->rssi; }
  bool is_opened() { return !is_member(ap_b, 1); }
  bool was_asked() { return !sent("rrm-probe-request").empty(); }
};

// A level

TEST_F(Blacklist, AClientThatFallsBelowTheLowerLevelIsLetGoAndAskedAbout) {
  start_with_client(-74);
  tell(level(ap_a, 1, -75));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message rrm-assoc-state-changed for 00:11:22:33:0A:00",
                   "TRACE process_message balancer rrm-assoc-state-changed for 00:11:22:33:0A:00",
                   "TRACE Assocc state change client 0a:00:00:00:00:01 rssi -75 state stable radio_id 1 ssid office "
                   "(ap 00:11:22:33:0A:00) lock_balancer 0",
                   "TRACE post_probe_req enter",
                   asked(ap_b, {1}),
                   asked(ap_c, {1}),
               }));
  advance(1);
  EXPECT_LINES(told(), ({
                           blacklisted(ap_a, {unblock(0)}),
                           blacklisted(ap_b, {unblock(0), unblock(1), unblock(2)}),
                           blacklisted(ap_c, {unblock(0), unblock(1), unblock(2)}),
                       }));
  advance(4);
  EXPECT_THAT(told(), Contains("TRACE RrmProblist: drop - 0A:00:00:00:00:01")) << "five seconds after it began";
}

TEST_F(Blacklist, TheNeighboursAreOpenedOnTheWayDownAndTheQueryAsksAtEveryLowLevel) {
  const struct {
    const char* what;
    int before;
    const char* state;
    int rssi;
    int stored;
    bool opened;
    bool asked_about;
  } cases[] = {
      {"across the lower level", -74, "stable", -75, -75, true, true},
      {"far across it", -50, "stable", -90, -90, true, true},
      {"low already, and at the level", -75, "stable", -76, -76, false, true},
      {"low already, and better", -80, "stable", -78, -78, false, true},
      {"low already, and up to the level", -80, "stable", -75, -75, false, true},
      {"low, and no level before", 0, "stable", -80, -80, false, true},
      {"not low enough", -60, "stable", -74, -74, false, false},
      {"up again", -80, "stable", -74, -74, false, false},
      {"good", -80, "stable", -50, -50, false, false},
      {"no level", -60, "stable", 0, -60, false, false},
      {"no level of a low client", -80, "stable", 0, -80, false, false},
      {"no real level", -60, "stable", 7, -60, false, false},
      {"unstable without a level", -74, "unstable", 0, -75, true, true},
      {"unstable at a good level", -60, "unstable", -50, -75, true, true},
      {"unstable at a low level", -80, "unstable", -90, -75, false, true},
      {"another word", -60, "Unstable", 0, -60, false, false},
      {"no word", -60, "", -75, -75, true, true},
  };
  for (const auto& row : cases) {
    worker.reset();
    start_with_client(row.before);
    tell(level(ap_a, 1, row.rssi).with("state", row.state));
    EXPECT_EQ(stored_level(), row.stored) << row.what;
    EXPECT_EQ(is_opened(), row.opened) << row.what;
    EXPECT_EQ(was_asked(), row.asked_about) << row.what;
  }
}

TEST_F(Blacklist, AQueryForALevelAsksTheBandsOfTheClientsRadio) {
  const struct {
    int radio;
    std::vector<int> expected;
  } cases[] = {{0, {0, 1, 2}}, {1, {1}}, {2, {2}}};
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    radio(ap_a, static_cast<std::size_t>(row.radio)).assoc.add_client(mac(phone), -80, "office", false, false);
    tell(level(ap_a, row.radio, -81));
    EXPECT_LINES(sent(), ({asked(ap_b, row.expected), asked(ap_c, row.expected)})) << row.radio;
  }
}

TEST_F(Blacklist, AQueryForALevelMovesTheClient) {
  start_with_client(-80);
  tell(level(ap_a, 1, -81));
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  sent();
  advance(1);
  EXPECT_THAT(sent("rrm-disassoc-request"), ElementsAre(ordered_off(ap_a, 1)));
}

TEST_F(Blacklist, AClientThatMustNotBeBalancedOnlyHasItsLevelStored) {
  start_with_client(-74);
  radio(ap_a, 1).assoc.add_client(mac(phone), -74, "office", true, false);
  tell(level(ap_a, 1, -90));
  EXPECT_EQ(stored_level(), -90);
  EXPECT_FALSE(is_opened());
  EXPECT_FALSE(was_asked());
}

TEST_F(Blacklist, ALevelThatFitsNoClientIsOnlyTraced) {
  const struct {
    const char* what;
    int radio;
    const char* station;
    const char* ssid;
  } cases[] = {
      {"no such radio", 3, phone, "office"},     {"a negative one", -1, phone, "office"},
      {"not on this radio", 0, phone, "office"}, {"a stranger", 1, "0a:00:00:00:00:02", "office"},
      {"no address", 1, "", "office"},           {"no network", 1, phone, ""},
  };
  for (const auto& row : cases) {
    worker.reset();
    start_with_client(-74);
    tell(level(ap_a, row.radio, -90).with("sta-mac", row.station).with("ssid", row.ssid));
    EXPECT_LINES(told(),
                 ({"TRACE Assocc state change client " + std::string(row.station) + " rssi -90 state stable radio_id " +
                   std::to_string(row.radio) + " ssid " + row.ssid + " (ap 00:11:22:33:0A:00) lock_balancer 0"}))
        << row.what;
    EXPECT_EQ(stored_level(), -74) << row.what;
    EXPECT_FALSE(is_opened()) << row.what;
  }
}

TEST_F(Blacklist, WhileBalancingIsPausedALevelIsOnlyTraced) {
  start_with_client(-74);
  lock_balancing(true);
  tell(level(ap_a, 1, -75));
  EXPECT_LINES(told(), ({"TRACE Assocc state change client 0a:00:00:00:00:01 rssi -75 state stable radio_id 1 ssid "
                         "office (ap 00:11:22:33:0A:00) lock_balancer 1"}));
  EXPECT_EQ(stored_level(), -74);
  EXPECT_FALSE(is_opened());
}

TEST_F(Blacklist, ALevelIsTakenWhereEveryRadioIsLockedAndOfASilentAp) {
  start_with_client(-74);
  for (const std::size_t id : {0u, 1u, 2u}) radio(ap_a, id).locked_balancer = 1;
  tell(level(ap_a, 1, -75));
  EXPECT_TRUE(was_asked());
  fall_silent(ap_a);
  tell(level(ap_a, 1, -76));
  EXPECT_EQ(stored_level(), -76);
}

TEST_F(Blacklist, AClientThatHasMovedOnSinceIsNotAskedAbout) {
  const struct {
    const char* what;
    std::function<void(Blacklist&)> elsewhere;  // a second after it came
    bool asked_about;
  } cases[] = {
      {"on another AP since", [](Blacklist& on) { on.join(ap_d, 1); }, false},
      {"on another AP since the same second", [](Blacklist& on) { on.clock.advance(-1), on.join(ap_d, 1); }, false},
      {"on another AP before", [](Blacklist& on) { on.clock.advance(-2), on.join(ap_d, 1); }, true},
      {"on another radio of its AP", [](Blacklist& on) { on.join(ap_a, 0); }, true},
      {"on an AP that is silent", [](Blacklist& on) { on.join(ap_d, 1), on.fall_silent(ap_d); }, true},
      {"nowhere else", [](Blacklist&) {}, true},
  };
  for (const auto& row : cases) {
    worker.reset();
    start_with_client(-74);
    clock.advance(1);
    row.elsewhere(*this);
    tell(level(ap_a, 1, -75));
    EXPECT_EQ(was_asked(), row.asked_about) << row.what;
    EXPECT_TRUE(is_opened()) << row.what;
  }
}

TEST_F(Blacklist, AGoodLevelEndsTheQuery) {
  const struct {
    int rssi;
    bool ended;
  } cases[] = {{-64, true}, {-50, true}, {-65, false}, {-70, false}, {0, false}};
  for (const auto& row : cases) {
    worker.reset();
    start_with_client(-80);
    tell(level(ap_a, 1, -81));
    tell(level(ap_a, 1, row.rssi));
    told();
    advance(5);
    EXPECT_EQ(journal.has("TRACE RrmProblist: drop - 0A:00:00:00:00:01"), !row.ended) << row.rssi;
  }
}

TEST_F(Blacklist, ALowLevelOfAClientThatHasMovedOnDoesNotEndTheQuery) {
  start_with_client(-80);
  clock.advance(1);
  tell(associated(ap_b, 1, -80));
  tell(level(ap_a, 1, -81));
  EXPECT_LINES(sent("rrm-probe-request"), ({asked(ap_a, {1})}));
  advance(5);
  EXPECT_LINES(sent("rrm-client-assoc-ack"), ({acknowledged(ap_b, 1)}));
}

TEST_F(Blacklist, WithNobodyToAskNoQueryBegins) {
  start_site();
  radio(ap_d, 1).assoc.add_client(mac(phone), -74, "office", false, false);
  tell(level(ap_d, 1, -75));
  EXPECT_LINES(told(), ({
                           "TRACE Assocc state change client 0a:00:00:00:00:01 rssi -75 state stable radio_id 1 ssid "
                           "office (ap 00:11:22:33:0D:00) lock_balancer 0",
                           "TRACE post_probe_req enter",
                       }));
  advance(5);
  EXPECT_THAT(told(), IsEmpty());
}

// What the APs are told

TEST_F(Blacklist, AWellPlacedClientIsRefusedAround) {
  start_site();
  tell(associated(ap_a, 1, -64));
  sent();
  advance(1);
  EXPECT_LINES(told(), ({
                           blacklisted(ap_a, {block(0)}),
                           blacklisted(ap_b, {block(0), block(1), block(2)}),
                           blacklisted(ap_c, {block(0), block(1), block(2)}),
                       }));
  advance(1);
  EXPECT_THAT(told(), IsEmpty()) << "once";
}

TEST_F(Blacklist, AtTheUpperLevelTheNeighboursAreOpen) {
  start_site();
  tell(associated(ap_a, 1, -64));
  advance(1);
  sent();
  tell(associated(ap_a, 1, -65));
  sent();
  advance(1);
  EXPECT_LINES(told(), ({
                           blacklisted(ap_a, {unblock(0)}),
                           blacklisted(ap_b, {unblock(0), unblock(1), unblock(2)}),
                           blacklisted(ap_c, {unblock(0), unblock(1), unblock(2)}),
                       }));
}

TEST_F(Blacklist, OnlyRadiosAndApsWithChangesAreTold) {
  start_site();
  radio(ap_b, 0).locked_balancer = 1;
  radio(ap_b, 1).assoc.add_client(mac(phone), -60, "office", false, false);
  for (const std::size_t id : {0u, 1u, 2u}) radio(ap_c, id).vaps.clear();
  tell(associated(ap_a, 0, -64));
  sent();
  advance(1);
  EXPECT_LINES(told(), ({blacklisted(ap_b, {block(2)})}));
}

TEST_F(Blacklist, BlockingAndOpeningWithinASecondIsToldAsOpening) {
  start_site();
  ap(ap_c)->visible_members.clear();
  tell(associated(ap_a, 0, -64));
  tell(associated(ap_a, 0, -65));
  sent();
  advance(1);
  EXPECT_LINES(told(), ({blacklisted(ap_b, {unblock(0), unblock(1), unblock(2)})}));
}

TEST_F(Blacklist, ARadioIsToldOfAllItsClientsInOneList) {
  settings.blacklist_timeout = 12;
  start_site();
  RrmProblist& list = radio(ap_b, 1).problist;
  list.add(mac("0a:00:00:00:00:03"), 12);
  list.add(mac("0a:00:00:00:00:02"), 12);
  list.release(mac("0a:00:00:00:00:03"));
  list.add_disassoc(mac("0a:00:00:00:00:05"), 12, "office");
  list.add_disassoc(mac("0a:00:00:00:00:04"), 12, "guest");
  advance(1);
  EXPECT_LINES(told(),
               ({
                   told_radios(ap_b, "rrm-disassoc-request",
                               {R"({"id":1,"diassoc-list":[{"mac":"0A:00:00:00:00:04","ssid":"guest","timeout":12},)"
                                R"({"mac":"0A:00:00:00:00:05","ssid":"office","timeout":12}]})"}),
                   told_radios(ap_b, "rrm-blacklist",
                               {R"({"id":1,"blacklist":[{"mac":"0A:00:00:00:00:02","action":"block","timeout":12},)"
                                R"({"mac":"0A:00:00:00:00:03","action":"unblock"}]})"}),
               }));
}

TEST_F(Blacklist, AllOrdersToLeaveGoOutBeforeAnyBlacklist) {
  start_site();
  for (const char* own : {ap_a, ap_b}) {
    radio(own, 1).problist.add_disassoc(mac(phone), 30, "office");
    radio(own, 2).problist.add(mac(phone), 30);
  }
  advance(1);
  EXPECT_LINES(told(), ({
                           ordered_off(ap_a, 1),
                           ordered_off(ap_b, 1),
                           blacklisted(ap_a, {block(2)}),
                           blacklisted(ap_b, {block(2)}),
                       }));
}

TEST_F(Blacklist, BothLeaveWithTheEndOfThePass) {
  start_site();
  radio(ap_a, 1).problist.add_disassoc(mac(phone), 30, "office");
  radio(ap_a, 2).problist.add(mac(phone), 30);
  clock.advance(1);
  locked([](RrmWorker& lab) RRM_NO_THREAD_SAFETY_ANALYSIS { lab.before_messages(); });
  EXPECT_THAT(told(), IsEmpty());
  pass();
  EXPECT_LINES(told(), ({ordered_off(ap_a, 1), blacklisted(ap_a, {block(2)})}));
}

TEST_F(Blacklist, TheFirstListsGoOutAfterTenSecondsThenOneASecond) {
  start();
  subscribe_site();
  radio(ap_a, 0).problist.add(mac(phone), 30);
  advance(9);
  EXPECT_THAT(sent(), IsEmpty());
  advance(1);
  EXPECT_LINES(sent(), ({blacklisted(ap_a, {block(0)})}));
  radio(ap_a, 0).problist.release(mac(phone));
  advance(1);
  EXPECT_LINES(sent(), ({blacklisted(ap_a, {unblock(0)})}));
}

TEST_F(Blacklist, AnEntryRunsOutSilentlyAsItDoesAtTheAp) {
  start_site();
  ap(ap_b)->visible_members.clear();
  tell(associated(ap_a, 1, -64));
  advance(1);
  sent();
  advance(28);
  EXPECT_TRUE(is_member(ap_a, 0));
  EXPECT_TRUE(is_member(ap_c, 2));
  advance(1);
  EXPECT_FALSE(is_member(ap_a, 0));
  EXPECT_FALSE(is_member(ap_c, 2));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Blacklist, AnOrderGoesOutBeforeItsSecondIsCounted) {
  start_site();
  radio(ap_a, 1).problist.add_disassoc(mac(phone), 1, "office");
  advance(1);
  EXPECT_LINES(sent(), ({ordered_off(ap_a, 1)}));
  EXPECT_FALSE(is_member(ap_a, 1));
}

TEST_F(Blacklist, WhatIsGatheredInAPauseIsLostAndTheMembersStayAsTheyAre) {
  start_site();
  fall_silent(ap_c);
  drop(session_of(ap_b));
  ASSERT_EQ(deleted_aps().size(), 1u);
  lock_balancing(true);
  for (const char* own : {ap_a, ap_b, ap_c}) {
    radio(own, 1).problist.add_disassoc(mac(phone), 30, "office");
    radio(own, 2).problist.add(mac(phone), 30);
  }
  sent();
  advance(1);
  for (const char* own : {ap_a, ap_b, ap_c}) {
    EXPECT_THAT(radio(own, 1).problist.disassoc(), IsEmpty()) << own;
    EXPECT_THAT(radio(own, 2).problist.changes(), IsEmpty()) << own;
    EXPECT_EQ(radio(own, 1).problist.members().at(mac(phone)), 30) << own;
    EXPECT_EQ(radio(own, 2).problist.members().at(mac(phone)), 30) << own;
  }
  lock_balancing(false);
  advance(1);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(radio(ap_a, 2).problist.members().at(mac(phone)), 29) << "time goes on after the pause";
}

TEST_F(Blacklist, SilentAndGoneApsAreNotToldAndTheirListsDoNotAge) {
  start_site();
  fall_silent(ap_c);
  drop(session_of(ap_b));
  for (const char* own : {ap_b, ap_c}) {
    radio(own, 1).problist.add_disassoc(mac(phone), 30, "office");
    radio(own, 2).problist.add(mac(phone), 30);
  }
  sent();
  advance(1);
  EXPECT_THAT(sent(), IsEmpty());
  for (const char* own : {ap_b, ap_c}) {
    EXPECT_THAT(radio(own, 1).problist.disassoc(), IsEmpty()) << own;
    EXPECT_THAT(radio(own, 2).problist.changes(), IsEmpty()) << own;
    EXPECT_EQ(radio(own, 2).problist.members().at(mac(phone)), 30) << own;
  }
}

}  // namespace
}  // namespace rrm::testing
