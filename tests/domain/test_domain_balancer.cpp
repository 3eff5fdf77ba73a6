// How the load balancer takes what APs say of their clients, whom it asks, and what it decides.
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

using Balancer = SteeringTest;

// An association

TEST_F(Balancer, AClientAtTheEdgeIsAskedAboutAndWaits) {
  start_site();
  tell_within_pass(associated(ap_a, 1, -75));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message rrm-client-assoc for 00:11:22:33:0A:00",
                   "TRACE process_message balancer rrm-client-assoc for 00:11:22:33:0A:00",
                   "TRACE Assocc client 0a:00:00:00:00:01 rssi -75 radio_id 1 ssid office no_balance 0 send_ack 1 "
                   "lock_balancer 0 (ap 00:11:22:33:0A:00)",
                   "TRACE post_probe_req enter",
               }));
  pass();
  EXPECT_LINES(journal.take(), ({asked(ap_b, {1}), asked(ap_c, {1})}));
}

TEST_F(Balancer, AClientThatIsWellPlacedIsAcknowledgedAtOnce) {
  start_site();
  tell_within_pass(associated(ap_a, 1, -74));
  EXPECT_LINES(told(), ({
                           "TRACE Assocc client 0a:00:00:00:00:01 rssi -74 radio_id 1 ssid office no_balance 0 "
                           "send_ack 1 lock_balancer 0 (ap 00:11:22:33:0A:00)",
                           acknowledged(ap_a, 1),
                       }));
  pass();
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(Balancer, AClientIsAskedAboutAtTheLowerLevelOrOnACrowdedRadio) {
  const struct {
    const char* what;
    int others;
    int expected;
    int rssi;
    bool is_asked;
  } cases[] = {
      {"just above the lower level", 0, 0, -74, false},
      {"at it", 0, 0, -75, true},
      {"far below", 0, 0, -100, true},
      {"no level", 0, 0, 0, false},
      {"the fifth client", 4, 0, -60, false},
      {"the sixth", 5, 0, -60, true},
      {"one expected makes the fifth", 3, 1, -60, false},
      {"one expected makes the sixth", 4, 1, -60, true},
  };
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    crowd(ap_a, 1, row.others);
    if (row.expected != 0) radio(ap_a, 1).assoc.add_expected(mac("0a:00:00:00:00:02"), {mac(ap_d), 1, 30});
    tell(associated(ap_a, 1, row.rssi));
    EXPECT_EQ(sent(),
              row.is_asked ? std::vector({asked(ap_b, {1}), asked(ap_c, {1})}) : std::vector({acknowledged(ap_a, 1)}))
        << row.what;
  }
}

TEST_F(Balancer, AClientThatWasExpectedIsNotAskedAbout) {
  start_site();
  expect_client(ap_a, 1);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
  EXPECT_FALSE(is_expected(ap_a, 1));
  EXPECT_TRUE(has_client(ap_a, 1));
}

TEST_F(Balancer, AClientThatWasExpectedOnAnotherRadioIsAskedAbout) {
  start_site();
  expect_client(ap_a, 0);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({asked(ap_b, {1}), asked(ap_c, {1})}));
  EXPECT_FALSE(is_expected(ap_a, 0)) << "it has come";
}

TEST_F(Balancer, WhoArrivesIsNoLongerExpectedOnTheApsOtherRadiosOfThatNetwork) {
  start_site();
  for (const char* own : {ap_a, ap_b}) {
    for (const std::size_t id : {0u, 1u, 2u}) expect_client(own, id);
  }
  radio(ap_a, 0).vaps.clear();
  radio(ap_a, 2).status = false;
  tell(associated(ap_a, 1, -60));
  EXPECT_TRUE(is_expected(ap_a, 0)) << "another network";
  EXPECT_FALSE(is_expected(ap_a, 1));
  EXPECT_TRUE(is_expected(ap_a, 2)) << "off";
  EXPECT_TRUE(is_expected(ap_b, 1)) << "only a client that must not be balanced is forgotten elsewhere";
}

TEST_F(Balancer, AClientThatMustNotBeBalancedIsForgottenAmongTheExpectedAround) {
  start_site();
  for (const char* own : {ap_b, ap_c, ap_d}) expect_client(own, 1);
  radio(ap_c, 1).vaps.clear();
  tell(associated(ap_a, 1, -80).with("no-balance", 1));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
  EXPECT_FALSE(is_expected(ap_b, 1));
  EXPECT_TRUE(is_expected(ap_c, 1)) << "another network";
  EXPECT_TRUE(is_expected(ap_d, 1)) << "out of reach";
}

TEST_F(Balancer, WhereAllApsTakePartItIsForgottenOnAll) {
  settings.use_all_ap_balance = true;
  start_site();
  expect_client(ap_d, 1);
  tell(associated(ap_a, 1, -80).with("no-balance", 1));
  EXPECT_FALSE(is_expected(ap_d, 1));
}

TEST_F(Balancer, AClientThatMustNotBeBalancedIsTakenOffItsRadiosBlacklistSilently) {
  start_site();
  radio(ap_a, 1).problist.add(mac(phone), 30);
  radio(ap_a, 1).problist.clear_changes();
  tell(associated(ap_a, 1, -80).with("no-balance", 1));
  EXPECT_FALSE(is_member(ap_a, 1));
  advance(1);
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
}

TEST_F(Balancer, AnyOtherClientStaysOnItsRadiosBlacklist) {
  start_site();
  radio(ap_a, 1).problist.add(mac(phone), 30);
  tell(associated(ap_a, 1, -60));
  EXPECT_TRUE(is_member(ap_a, 1));
}

TEST_F(Balancer, AClientThatMustNotBeBalancedEndsTheQueryAboutIt) {
  start_query();
  tell(associated(ap_a, 1, -80).with("no-balance", 1));
  tell(heard(ap_b, 1, -40));
  tell(heard(ap_c, 1, -40));
  advance(5);
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
  EXPECT_TRUE(has_client(ap_a, 1));
}

TEST_F(Balancer, AnAssociationClosesOrOpensWhatIsAround) {
  const struct {
    int rssi;
    bool closed;
  } cases[] = {{-64, true}, {-65, false}, {-75, false}};
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    radio(ap_b, 1).problist.add(mac(phone), 5);
    tell(associated(ap_a, 1, row.rssi));
    EXPECT_EQ(is_member(ap_b, 1), row.closed) << row.rssi;
    EXPECT_EQ(is_member(ap_a, 0), row.closed) << row.rssi;
  }
}

TEST_F(Balancer, WithoutAnAddressOrANetworkThereIsNoClient) {
  start_site();
  for (const char* key : {"sta-mac", "ssid"}) {
    tell(associated(ap_a, 1, -80).with(key, ""));
    tell(associated(ap_a, 1, -80).without(key));
  }
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_EQ(radio(ap_a, 1).assoc.load(), 0);
}

TEST_F(Balancer, AnAssociationOnNoRadioIsOnlyLogged) {
  start_site();
  for (const int id : {3, -1}) {
    tell(associated(ap_a, id, -80));
    EXPECT_LINES(told(), ({
                             "TRACE Assocc client 0a:00:00:00:00:01 rssi -80 radio_id " + std::to_string(id) +
                                 " ssid office no_balance 0 send_ack 1 lock_balancer 0 (ap 00:11:22:33:0A:00)",
                             "WARNING Skip assoc for invalid/disabled radio_id=" + std::to_string(id) +
                                 " (ap 00:11:22:33:0A:00)",
                         }));
  }
  for (const std::size_t id : {0u, 1u, 2u}) EXPECT_EQ(radio(ap_a, id).assoc.load(), 0);
}

TEST_F(Balancer, WhileBalancingIsPausedAClientIsOnlyRecordedAndAcknowledged) {
  start_site();
  lock_balancing(true);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(told(), ({
                           "TRACE Assocc client 0a:00:00:00:00:01 rssi -80 radio_id 1 ssid office no_balance 0 "
                           "send_ack 1 lock_balancer 1 (ap 00:11:22:33:0A:00)",
                           acknowledged(ap_a, 1),
                       }));
  tell(associated(ap_a, 1, -50));
  EXPECT_TRUE(has_client(ap_a, 1));
  EXPECT_FALSE(is_member(ap_b, 1));
}

// Who is asked

TEST_F(Balancer, AClientOf24GhzIsLookedForOnAllBandsAnyOtherOnItsOwn) {
  const struct {
    int radio;
    std::vector<int> expected;
  } cases[] = {{0, {0, 1, 2}}, {1, {1}}, {2, {2}}};
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    tell(associated(ap_a, row.radio, -80));
    EXPECT_LINES(sent(), ({asked(ap_b, row.expected), asked(ap_c, row.expected)})) << "radio " << row.radio;
  }
}

TEST_F(Balancer, OnlyRadiosThatCouldTakeTheClientAreAsked) {
  const struct {
    const char* what;
    std::function<void(Radio&)> edit;
    bool is_asked;
  } cases[] = {
      {"off", [](Radio& r) { r.status = false; }, false},
      {"another network", [](Radio& r) { r.vaps.clear(); }, false},
      {"locked for the balancer", [](Radio& r) { r.locked_balancer = 1; }, false},
      {"locked for 802.11v", [](Radio& r) { r.locked_80211v = 1; }, true},
  };
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    row.edit(radio(ap_b, 1));
    tell(associated(ap_a, 1, -80));
    EXPECT_EQ(sent(),
              row.is_asked ? std::vector({asked(ap_b, {1}), asked(ap_c, {1})}) : std::vector({asked(ap_c, {1})}))
        << row.what;
  }
}

TEST_F(Balancer, AFullRadioIsNotAsked) {
  start_site();
  crowd(ap_b, 1, 19);
  crowd(ap_c, 1, 20);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({asked(ap_b, {1})}));
  expect_client(ap_b, 1);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)})) << "with the expected one it is full too";
}

TEST_F(Balancer, AnApThatDoesNotHearTheClientsApIsNotAsked) {
  start_site();
  ap(ap_b)->visible_members.clear();
  hears(ap_b, ap_c);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({asked(ap_c, {1})}));
}

TEST_F(Balancer, AnApIsAskedWhoseRecordHasTheAddressWithTheOtherLocalBit) {
  start_site();
  ap(ap_b)->visible_members.clear();
  ap(ap_c)->visible_members.clear();
  ap(ap_b)->visible_members.insert(mac("02:11:22:33:0A:20"), a_neighbour(-60, 37));
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({asked(ap_b, {1})}));
}

TEST_F(Balancer, WhereAllApsTakePartAllAreAskedButTheClientsOwn) {
  settings.use_all_ap_balance = true;
  start_site();
  hears(ap_a, ap_a);
  tell(associated(ap_a, 0, -80));
  EXPECT_LINES(sent(), ({asked(ap_b, {0, 1, 2}), asked(ap_c, {0, 1, 2}), asked(ap_d, {0, 1, 2})}));
}

TEST_F(Balancer, ASilentApIsNotAsked) {
  start_site();
  fall_silent(ap_b);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({asked(ap_c, {1})}));
}

// Answers

TEST_F(Balancer, AnAnswerAboveTheUpperLevelIsKept) {
  start_query();
  crowd(ap_b, 1, 2);
  tell(heard(ap_b, 1, -64));
  EXPECT_LINES(told(), ({
                           "TRACE Probe response client 0a:00:00:00:00:01 ssid office radio_id 1 rssi -64 size 2 (ap "
                           "00:11:22:33:0B:00)",
                           "TRACE Probe response client 0a:00:00:00:00:01 put (ap 00:11:22:33:0B:00)",
                       }));
}

TEST_F(Balancer, AnyOtherAnswerOnlyEndsTheWait) {
  for (const int rssi : {-65, -100, 0, 5}) {
    worker.reset();
    start_query();
    tell(heard(ap_b, 1, rssi));
    EXPECT_LINES(told(), ({"TRACE Probe response client 0a:00:00:00:00:01 ssid office radio_id 1 rssi " +
                           std::to_string(rssi) + " size 0 (ap 00:11:22:33:0B:00)"}));
    tell(heard(ap_c, 1, -70));
    told();
    advance(1);
    EXPECT_LINES(told(), ({
                             "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                             "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 1 "
                             "sta_low 5 rssi -80",
                             "TRACE LoadBalancer: no find result for 0A:00:00:00:00:01",
                             acknowledged(ap_a, 1),
                         }))
        << rssi;
  }
}

TEST_F(Balancer, TheChoiceWaitsForTheLastAnswer) {
  start_query();
  tell(heard(ap_b, 1, -50));
  told();
  advance(3);
  EXPECT_THAT(told(), IsEmpty());
  tell(heard(ap_c, 1, -90));
  advance(1);
  EXPECT_THAT(told(), Contains("TRACE RrmProblist: drop - 0A:00:00:00:00:01"));
}

TEST_F(Balancer, AQueryRunsOutAfterFiveSeconds) {
  start_query();
  advance(4);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                           "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 1 "
                           "sta_low 5 rssi -80",
                           "TRACE LoadBalancer: no find result for 0A:00:00:00:00:01",
                           acknowledged(ap_a, 1),
                       }));
  advance(10);
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Balancer, WhenAQueryRunsOutTheAnswersThatCameCount) {
  start_query();
  tell(heard(ap_b, 1, -50));
  advance(5);
  EXPECT_FALSE(has_client(ap_a, 1));
  EXPECT_TRUE(is_expected(ap_b, 1));
}

TEST_F(Balancer, AnAnswerForAnotherNetworkIsNone) {
  start_query();
  tell(probe_response(ap_b, {heard_by(1, {heard_entry(-50, phone, "guest")})}));
  tell(heard(ap_c, 1, -70));
  told();
  advance(1);
  EXPECT_THAT(told(), IsEmpty()) << "ap_b is still awaited";
  advance(4);
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
}

TEST_F(Balancer, AnAnswerOfNoRadioIsOnlyLoggedAndTheNextOneCounts) {
  start_query();
  told();
  tell(probe_response(ap_b, {heard_by(3, {heard_entry(-40)}), heard_by(1, {heard_entry(-50)})}));
  EXPECT_LINES(told(), ({
                           "WARNING Skip probe-response for invalid/disabled radio_id=3 (ap 00:11:22:33:0B:00)",
                           "TRACE Probe response client 0a:00:00:00:00:01 ssid office radio_id 1 rssi -50 size 0 (ap "
                           "00:11:22:33:0B:00)",
                           "TRACE Probe response client 0a:00:00:00:00:01 put (ap 00:11:22:33:0B:00)",
                       }));
}

TEST_F(Balancer, AnEntryWithoutAnAddressOrANetworkEndsTheWholeMessage) {
  const struct {
    const char* station;
    const char* ssid;
  } cases[] = {{"", "office"}, {phone, ""}};
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    tell(associated(ap_a, 0, -80));
    sent();
    const std::string bad = heard_entry(-50, row.station, row.ssid);
    tell(probe_response(ap_b, {heard_by(0, {heard_entry(-50)}), heard_by(1, {bad, heard_entry(-45)}),
                               heard_by(2, {heard_entry(-40)})}));
    EXPECT_LINES(told(), ({
                             "TRACE Probe response client 0a:00:00:00:00:01 ssid office radio_id 0 rssi -50 size 0 "
                             "(ap 00:11:22:33:0B:00)",
                             "TRACE Probe response client 0a:00:00:00:00:01 put (ap 00:11:22:33:0B:00)",
                             "TRACE Probe response client " + std::string(row.station) + " ssid " + row.ssid +
                                 " radio_id 1 rssi -50 size 0 (ap 00:11:22:33:0B:00)",
                         }));
    advance(5);
    EXPECT_TRUE(is_expected(ap_b, 0)) << "what came before counts, what came behind does not";
  }
}

TEST_F(Balancer, OneMessageMayAnswerForManyClientsAndRadios) {
  start_site();
  tell(associated(ap_a, 0, -80));
  tell(associated(ap_a, 1, -80).with("sta-mac", "0a:00:00:00:00:02"));
  ap(ap_c)->visible_members.clear();
  sent();
  const std::string other = heard_entry(-70, "0a:00:00:00:00:02");
  tell(probe_response(ap_b, {heard_by(0, {heard_entry(-70)}), heard_by(1, {other, heard_entry(-70)}),
                             heard_by(2, {heard_entry(-70)})}));
  tell(probe_response(ap_c, {heard_by(0, {heard_entry(-70)}), heard_by(1, {heard_entry(-70), other}),
                             heard_by(2, {heard_entry(-70)})}));
  told();
  advance(1);
  EXPECT_THAT(journal.lines("TRACE RrmProblist: drop"), ElementsAre("TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                                                                    "TRACE RrmProblist: drop - 0A:00:00:00:00:02"));
}

TEST_F(Balancer, AnAnswerThatSaysNothingChangesNothing) {
  start_query();
  tell(a_message("rrm-probe-response", ap_b));
  tell(a_message("rrm-probe-response", ap_b).with("radios", 7));
  tell(probe_response(ap_b, {"null", "7", R"({"id":1})", R"({"id":1,"probe-list":[]})"}));
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Balancer, AnAnswerThatNobodyWaitsForChangesNothing) {
  start_site();
  tell(heard(ap_b, 1, -50));
  told();
  advance(5);
  EXPECT_THAT(told(), IsEmpty());
}

// Decisions

TEST_F(Balancer, AMovedClientIsOrderedOffAndRefusedAroundItsDestination) {
  start_query();
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -64));
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                           "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 1 "
                           "sta_low 5 rssi -80",
                           "TRACE dst_ap 00:11:22:33:0B:10 radio 1 min_size 4 min_rssi -50",
                           ordered_off(ap_a, 1),
                           blacklisted(ap_a, {block(0), block(2)}),
                           blacklisted(ap_b, {block(0)}),
                       }));
  EXPECT_FALSE(has_client(ap_a, 1));
  EXPECT_EQ(*radio(ap_b, 1).assoc.find_expected(mac(phone)), (ExpectedClient{mac(radio_mac(ap_a, 1)), 1, 30}));
}

TEST_F(Balancer, TheDestinationIsOpenedForAMovedClient) {
  start_query();
  radio(ap_b, 1).problist.add(mac(phone), 30);
  radio(ap_b, 1).problist.clear_changes();
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  advance(1);
  EXPECT_THAT(sent("rrm-blacklist"),
              ElementsAre(blacklisted(ap_a, {block(0), block(2)}), blacklisted(ap_b, {block(0), unblock(1)})));
}

TEST_F(Balancer, AMovedClientCountsAtItsDestinationForAsLongAsItIsRefusedElsewhere) {
  start_query();
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  advance(1);
  EXPECT_EQ(radio(ap_b, 1).assoc.load(), 1);
  advance(29);
  EXPECT_EQ(radio(ap_b, 1).assoc.load(), 1);
  advance(1);
  EXPECT_EQ(radio(ap_b, 1).assoc.load(), 0);
}

TEST_F(Balancer, AMovedClientThatArrivesIsNotAskedAboutAgain) {
  start_query();
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  advance(1);
  sent();
  tell(associated(ap_b, 1, -80));
  EXPECT_LINES(sent(), ({acknowledged(ap_b, 1)}));
  EXPECT_EQ(radio(ap_b, 1).assoc.load(), 1);
}

TEST_F(Balancer, AClientWithAGoodSignalStaysUnlessItsRadioIsHeavierByMoreThanIt) {
  const struct {
    int others;  // on the source
    const char* expected;
  } cases[] = {{5, "TRACE LoadBalancer: no balancer"}, {6, ""}};
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    crowd(ap_a, 1, row.others);
    crowd(ap_b, 1, 5);
    tell(associated(ap_a, 1, -70));
    tell(heard(ap_b, 1, -50));
    tell(heard(ap_c, 1, -90));
    told();
    advance(1);
    std::vector<std::string> expected = {
        "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
        "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size " +
            std::to_string(row.others + 1) + " sta_low 5 rssi -70",
        "TRACE dst_ap 00:11:22:33:0B:10 radio 1 min_size 5 min_rssi -50",
    };
    if (*row.expected != '\0') {
      expected.emplace_back(row.expected);
      expected.push_back(acknowledged(ap_a, 1));
    } else {
      expected.push_back(ordered_off(ap_a, 1));
      expected.push_back(blacklisted(ap_a, {block(0), block(2)}));
      expected.push_back(blacklisted(ap_b, {block(0)}));
    }
    EXPECT_EQ(told(), expected) << row.others;
  }
}

TEST_F(Balancer, AClientThatIsOnTheBestRadioAlreadyIsOnlyOrderedOffWhereItNoLongerIs) {
  start_query();
  radio(ap_b, 1).assoc.add_client(mac(phone), -50, "office", false, false);
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -40));
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                           "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 1 "
                           "sta_low 5 rssi -80",
                           "TRACE LoadBalancer: exist_ap 00:11:22:33:0B:10 size 1 rssi -50",
                           "TRACE dst_ap 00:11:22:33:0B:10 radio 1 min_size 0 min_rssi -50",
                           ordered_off(ap_a, 1),
                           blacklisted(ap_a, {block(0), block(2)}),
                           blacklisted(ap_b, {block(0)}),
                       }));
  EXPECT_FALSE(is_expected(ap_b, 1));
  EXPECT_TRUE(has_client(ap_b, 1));
}

TEST_F(Balancer, TheLevelThatCountsIsTheLastOne) {
  start_site();
  crowd(ap_a, 1, 5);
  crowd(ap_b, 1, 5);
  tell(associated(ap_a, 1, -70));
  tell(level(ap_a, 1, -68));
  tell(heard(ap_b, 1, -50));
  told();
  advance(5);
  EXPECT_THAT(told(), Contains("TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 6 "
                               "sta_low 5 rssi -68"));
}

TEST_F(Balancer, AClientThatItsRadioNoLongerKnowsCountsAsWellServed) {
  start_query();
  radio(ap_a, 1).assoc.remove_client(mac(phone));
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                           "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 0 "
                           "sta_low 5 rssi 0",
                           "TRACE dst_ap 00:11:22:33:0B:10 radio 1 min_size 4 min_rssi -50",
                           "TRACE LoadBalancer: no balancer",
                       }));
}

TEST_F(Balancer, WithoutItsSourceAQueryIsGivenUp) {
  start_query();
  fall_silent(ap_a);
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -50));
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                           "WARNING Skip balancing: source radio_id not found for src_ap=00:11:22:33:0A:10",
                           acknowledged(ap_a, 1),
                       }));
}

TEST_F(Balancer, WhoAnsweredAndFellSilentIsNoDestination) {
  start_query();
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  fall_silent(ap_b);
  told();
  advance(1);
  EXPECT_THAT(told(), Contains("TRACE LoadBalancer: no find result for 0A:00:00:00:00:01"));
}

TEST_F(Balancer, QueriesAreDecidedInAPauseToo) {
  start_query();
  lock_balancing(true);
  tell(heard(ap_b, 1, -50));
  tell(heard(ap_c, 1, -90));
  told();
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE RrmProblist: drop - 0A:00:00:00:00:01",
                           "TRACE LoadBalancer: radio 1 client 0A:00:00:00:00:01 src_ap 00:11:22:33:0A:10 size 1 "
                           "sta_low 5 rssi -80",
                           "TRACE dst_ap 00:11:22:33:0B:10 radio 1 min_size 4 min_rssi -50",
                           "TRACE LoadBalancer: no balancer",
                           acknowledged(ap_a, 1),
                       }))
      << "the order to leave would be lost";
  EXPECT_TRUE(has_client(ap_a, 1));
  EXPECT_FALSE(is_expected(ap_b, 1));
}

// A client that leaves

TEST_F(Balancer, AClientThatLeavesIsForgottenItsQueryTooAndTheNeighboursAreOpened) {
  start_query();
  radio(ap_a, 1).problist.add(mac(phone), 30);
  radio(ap_a, 1).problist.clear_changes();
  radio(ap_b, 1).problist.add(mac(phone), 30);
  radio(ap_b, 1).problist.clear_changes();
  radio(ap_a, 1).assoc.set_rssi(mac(phone), -74);
  tell(left(ap_a, 1));
  EXPECT_LINES(told(), ({"TRACE Disassocc client 0a:00:00:00:00:01 lock_balancer 0 (ap 00:11:22:33:0A:00)"}));
  EXPECT_FALSE(has_client(ap_a, 1));
  EXPECT_FALSE(is_member(ap_a, 1));
  advance(6);
  EXPECT_LINES(told(), ({blacklisted(ap_b, {unblock(1)})}));
}

TEST_F(Balancer, OnlyAClientThatHadAGoodSignalOpensTheNeighbours) {
  const struct {
    const char* what;
    int rssi;
    bool paused;
    const char* ssid;
    bool opened;
  } cases[] = {
      {"above the lower level", -74, false, "office", true}, {"at it", -75, false, "office", false},
      {"no level known", 0, false, "office", false},         {"balancing is paused", -60, true, "office", false},
      {"another network", -60, false, "guest", false},
  };
  for (const auto& row : cases) {
    worker.reset();
    start_site();
    radio(ap_a, 1).assoc.add_client(mac(phone), row.rssi, "office", false, false);
    radio(ap_b, 1).problist.add(mac(phone), 30);
    lock_balancing(row.paused);
    told();
    tell(left(ap_a, 1).with("ssid", row.ssid));
    EXPECT_LINES(told(), ({"TRACE Disassocc client 0a:00:00:00:00:01 lock_balancer " + std::to_string(row.paused) +
                           " (ap 00:11:22:33:0A:00)"}));
    EXPECT_NE(is_member(ap_b, 1), row.opened) << row.what;
    EXPECT_EQ(has_client(ap_a, 1), std::string(row.ssid) == "guest") << row.what;
  }
}

TEST_F(Balancer, ALeaveWithoutAnAddressANetworkOrARadioIsOnlyLogged) {
  start_query();
  tell(left(ap_a, 1).with("sta-mac", ""));
  EXPECT_LINES(told(), ({"TRACE Disassocc client  lock_balancer 0 (ap 00:11:22:33:0A:00)"}));
  tell(left(ap_a, 1).with("ssid", ""));
  EXPECT_LINES(told(), ({"TRACE Disassocc client 0a:00:00:00:00:01 lock_balancer 0 (ap 00:11:22:33:0A:00)"}));
  tell(left(ap_a, 3));
  EXPECT_LINES(told(), ({
                           "TRACE Disassocc client 0a:00:00:00:00:01 lock_balancer 0 (ap 00:11:22:33:0A:00)",
                           "WARNING Skip disassoc for invalid/disabled radio_id=3 (ap 00:11:22:33:0A:00)",
                       }));
  EXPECT_TRUE(has_client(ap_a, 1));
  advance(5);
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)})) << "the query went on";
}

TEST_F(Balancer, WhenAllLeaveAllIsForgottenAndOpenedEvenInAPause) {
  start_query();
  crowd(ap_a, 0, 2);
  expect_client(ap_a, 2);
  const MacAddr other = MacAddr::from_number(0x0a0000010001);
  for (const char* own : {ap_a, ap_b}) {
    for (const std::size_t id : {0u, 1u, 2u}) {
      for (const MacAddr& client : {mac(phone), other}) radio(own, id).problist.add(client, 30);
      radio(own, id).problist.clear_changes();
    }
  }
  lock_balancing(true);
  tell(all_left(ap_a));
  EXPECT_LINES(told(), ({"TRACE Disassocc all clients"}));
  for (const std::size_t id : {0u, 1u, 2u}) EXPECT_EQ(radio(ap_a, id).assoc.load(), 0);
  using Members = std::map<MacAddr, std::int32_t>;
  using Changes = std::map<MacAddr, bool>;
  EXPECT_EQ(radio(ap_a, 0).problist.members(), Members()) << "its own client silently, the other one is opened";
  EXPECT_EQ(radio(ap_a, 0).problist.changes(), (Changes{{mac(phone), false}}));
  EXPECT_EQ(radio(ap_a, 1).problist.members(), (Members{{other, 30}}));
  EXPECT_EQ(radio(ap_a, 1).problist.changes(), Changes());
  EXPECT_EQ(radio(ap_a, 2).problist.members(), (Members{{mac(phone), 30}, {other, 30}}));
  EXPECT_EQ(radio(ap_b, 1).problist.members(), Members());
  EXPECT_EQ(radio(ap_b, 1).problist.changes(), (Changes{{mac(phone), false}, {other, false}}));
  advance(6);
  EXPECT_THAT(told(), IsEmpty()) << "no query is left";
}

// The acknowledgement itself; that it comes, and only once, is told road by road beside this

TEST_F(Balancer, AnAcknowledgementLeavesAtOnce) {
  start_query();
  tell_within_pass(left(ap_b, 1));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
}

TEST_F(Balancer, OnlyAClientOfTheSameNetworkIsAcknowledged) {
  start_query();
  radio(ap_a, 1).assoc.add_client(mac(phone), -80, "guest", false, true);
  advance(5);
  EXPECT_THAT(sent(), IsEmpty());
}

// Who takes a message

TEST_F(Balancer, MessagesAreDroppedWhereEveryRadioIsLocked) {
  start_site();
  for (const std::size_t id : {0u, 1u, 2u}) radio(ap_a, id).locked_balancer = 1;
  for (const MessageJson& message : {associated(ap_a, 1, -80), left(ap_a, 1), all_left(ap_a), heard(ap_a, 1, -50)}) {
    tell(message);
    EXPECT_THAT(told(), IsEmpty());
  }
  EXPECT_FALSE(has_client(ap_a, 1));
  radio(ap_a, 2).locked_balancer = 0;
  tell(associated(ap_a, 1, -60));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)})) << "one free radio is enough, be it another one";
}

TEST_F(Balancer, WithoutBalancingNothingOfItIsTaken) {
  settings.use_balance = false;
  start_site();
  for (const MessageJson& message :
       {associated(ap_a, 1, -80), left(ap_a, 1), all_left(ap_a), heard(ap_a, 1, -50), level(ap_a, 1, -80)}) {
    tell(message);
    EXPECT_THAT(told(), IsEmpty());
  }
}

TEST_F(Balancer, TheOtherBalancerTakesWhatThisOneMayNot) {
  settings.use_80211v = true;
  start_site();
  for (const std::size_t id : {0u, 1u, 2u}) radio(ap_a, id).locked_balancer = 1;
  radio(ap_a, 1).vaps.insert(a_vap("office").v().build());
  tell(associated(ap_a, 1, -80));
  EXPECT_THAT(told(), Contains("TRACE Assocc client 0a:00:00:00:00:01 rssi -80 radio_id 1 ssid office (ap "
                               "00:11:22:33:0A:00)"));
  EXPECT_TRUE(has_client(ap_a, 1));
  for (const MessageJson& message : {all_left(ap_a), heard(ap_a, 1, -50)}) {
    tell(message);
    EXPECT_THAT(told(), IsEmpty());
  }
  EXPECT_TRUE(has_client(ap_a, 1));
}

TEST_F(Balancer, AMessageMayNameItsApByAnyAddress) {
  start_site();
  tell(associated("02:11:22:33:0A:20", 1, -60));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
}

TEST_F(Balancer, AClientOfASilentApIsTakenOneOfAGoneApIsNot) {
  start_site();
  fall_silent(ap_a);
  drop(2);
  sent();
  tell(associated(ap_a, 1, -60));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
  tell(associated(ap_b, 1, -60));
  EXPECT_THAT(sent(), IsEmpty());
}

}  // namespace
}  // namespace rrm::testing
