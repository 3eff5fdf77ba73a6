#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "steering/ProbeRequestMap.h"
#include "steering/RrmProblist.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

MacAddr client(std::uint64_t number) {
  return MacAddr::from_number(0x0a0000000000 + number);
}

using Members = std::map<MacAddr, std::int32_t>;
using Changes = std::map<MacAddr, bool>;
using Disassoc = std::map<MacAddr, std::string>;

TEST(RrmProblist, ANewMemberIsBlockedAndTheApIsTold) {
  RrmProblist list;
  list.add(client(1), 30);
  EXPECT_EQ(list.members(), (Members{{client(1), 30}}));
  EXPECT_EQ(list.changes(), (Changes{{client(1), true}}));
}

TEST(RrmProblist, AMemberIsOnlyGivenNewTime) {
  RrmProblist list;
  list.add(client(1), 30);
  list.clear_changes();
  list.tick();
  list.add(client(1), 40);
  EXPECT_EQ(list.members(), (Members{{client(1), 40}}));
  EXPECT_TRUE(list.changes().empty());
}

TEST(RrmProblist, AddAndReleaseInOneSecondTellTheApToUnblock) {
  RrmProblist list;
  list.add(client(1), 30);
  list.release(client(1));
  EXPECT_TRUE(list.members().empty());
  EXPECT_EQ(list.changes(), (Changes{{client(1), false}}));
}

TEST(RrmProblist, ABlockReplacesAnUnblockThatWaits) {
  RrmProblist list;
  list.add(client(1), 30);
  list.release(client(1));
  list.add(client(1), 30);
  EXPECT_EQ(list.changes(), (Changes{{client(1), true}}));
}

TEST(RrmProblist, ReleasingAStrangerIsNothing) {
  RrmProblist list;
  list.release(client(1));
  EXPECT_TRUE(list.changes().empty());
}

TEST(RrmProblist, AnOrderToDisassociateIsABlockWithoutAChange) {
  RrmProblist list;
  list.add_disassoc(client(1), 30, "office");
  EXPECT_EQ(list.members(), (Members{{client(1), 30}}));
  EXPECT_EQ(list.disassoc(), (Disassoc{{client(1), "office"}}));
  EXPECT_TRUE(list.changes().empty());
}

TEST(RrmProblist, AnOrderWithoutAnSsidIsNothing) {
  RrmProblist list;
  list.add_disassoc(client(1), 30, "");
  EXPECT_TRUE(list.members().empty());
  EXPECT_TRUE(list.disassoc().empty());
}

TEST(RrmProblist, AnOrderForAMemberOnlyGivesNewTime) {
  RrmProblist list;
  list.add(client(1), 30);
  list.add_disassoc(client(1), 40, "office");
  EXPECT_EQ(list.members(), (Members{{client(1), 40}}));
  EXPECT_TRUE(list.disassoc().empty());
}

TEST(RrmProblist, AnOrderThatWaitsKeepsItsSsid) {
  RrmProblist list;
  list.add_disassoc(client(1), 1, "office");
  list.add_disassoc(client(1), 2, "guest");
  EXPECT_EQ(list.disassoc(), (Disassoc{{client(1), "office"}}));
}

TEST(RrmProblist, AReleaseBeforeTheOrderWentOutTellsNobody) {
  RrmProblist list;
  list.add_disassoc(client(1), 30, "office");
  list.release(client(1));
  EXPECT_TRUE(list.members().empty());
  EXPECT_TRUE(list.disassoc().empty());
  EXPECT_TRUE(list.changes().empty());
}

TEST(RrmProblist, AReleaseAfterTheOrderWentOutTellsTheAp) {
  RrmProblist list;
  list.add_disassoc(client(1), 30, "office");
  list.clear_disassoc();
  list.release(client(1));
  EXPECT_EQ(list.changes(), (Changes{{client(1), false}}));
}

TEST(RrmProblist, RemovalIsSilent) {
  RrmProblist list;
  list.add(client(1), 30);
  list.add_disassoc(client(2), 30, "office");
  list.clear_changes();
  list.remove(client(1));
  list.remove(client(2));
  list.remove(client(3));
  EXPECT_TRUE(list.members().empty());
  EXPECT_TRUE(list.disassoc().empty());
  EXPECT_TRUE(list.changes().empty());
}

TEST(RrmProblist, MembersRunOutSilently) {
  RrmProblist list;
  list.add(client(1), 1);
  list.add(client(2), 3);
  list.add(client(3), 0);
  list.add(client(4), INT_MIN);
  list.add_disassoc(client(5), 1, "office");
  list.clear_changes();
  list.tick();
  EXPECT_EQ(list.members(), (Members{{client(2), 2}}));
  EXPECT_TRUE(list.disassoc().empty());
  list.tick();
  EXPECT_EQ(list.members(), (Members{{client(2), 1}}));
  list.tick();
  EXPECT_TRUE(list.members().empty());
  EXPECT_TRUE(list.changes().empty());
}

TEST(RrmProblist, AllMembersCanBeToldAgain) {
  RrmProblist list;
  list.add(client(1), 30);
  list.add(client(2), 30);
  list.release(client(2));
  list.add_disassoc(client(3), 30, "office");
  list.resend_all();
  EXPECT_EQ(list.changes(), (Changes{{client(1), true}, {client(3), true}}));
}

TEST(RrmProblist, ClearingEmptiesAllThree) {
  RrmProblist list;
  list.add(client(1), 30);
  list.add_disassoc(client(2), 30, "office");
  list.clear();
  EXPECT_TRUE(list.members().empty());
  EXPECT_TRUE(list.changes().empty());
  EXPECT_TRUE(list.disassoc().empty());
}

TEST(RrmProblist, WritesWhatChangedAndWhatItHolds) {
  RrmProblist list;
  list.add(client(2), 20);
  list.add(client(1), 10);
  list.release(client(2));
  EXPECT_EQ(object_text([&](JsonWriter& object) { list.write_blacklist(object, 30); }),
            R"({"blacklist":[{"mac":"0A:00:00:00:00:01","action":"block","timeout":30},)"
            R"({"mac":"0A:00:00:00:00:02","action":"unblock"}]})");
  EXPECT_EQ(object_text([&](JsonWriter& object) { list.dump_json(object); }),
            R"({"members":[{"mac":"0A:00:00:00:00:01","counter":10}],)"
            R"("changes":[{"mac":"0A:00:00:00:00:01","action":"block"},)"
            R"({"mac":"0A:00:00:00:00:02","action":"unblock"}]})");
}

// Queries.

MacAddr radio(std::uint64_t number) {
  return MacAddr::from_number(0x001122000000 + number);
}

TEST(ProbeRequestMap, AQueryStartsEmpty) {
  ProbeRequestMap requests;
  requests.start(client(1), radio(1), 5, "office");
  const ProbeRequest* request = requests.find(client(1));
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->ssid, "office");
  EXPECT_EQ(request->source, radio(1));
  EXPECT_EQ(request->counter, 5);
  EXPECT_TRUE(request->answered());
  EXPECT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests.find(client(2)), nullptr);
}

TEST(ProbeRequestMap, AQueryWithoutAnSsidDoesNotStartNorEndTheOldOne) {
  ProbeRequestMap requests;
  requests.start(client(1), radio(1), 5, "office");
  requests.start(client(1), radio(2), 5, "");
  requests.start(client(2), radio(2), 5, "");
  EXPECT_EQ(requests.find(client(1))->source, radio(1));
  EXPECT_EQ(requests.find(client(2)), nullptr);
}

TEST(ProbeRequestMap, ANewQueryForgetsTheOldOne) {
  ProbeRequestMap requests;
  requests.start(client(1), radio(1), 5, "office");
  requests.add_waiting(client(1), radio(2));
  requests.put_response(client(1), radio(3), -60, "office");
  requests.start(client(1), radio(4), 5, "guest");
  EXPECT_TRUE(requests.find(client(1))->waiting.empty());
  EXPECT_TRUE(requests.find(client(1))->responses.empty());
  EXPECT_EQ(requests.find(client(1))->ssid, "guest");
}

TEST(ProbeRequestMap, CollectsResponsesForItsSsid) {
  ProbeRequestMap requests;
  requests.start(client(1), radio(1), 5, "office");
  requests.put_response(client(1), radio(2), -60, "office");
  requests.put_response(client(1), radio(3), -70, "office");
  requests.put_response(client(1), radio(2), -65, "office");
  requests.put_response(client(1), radio(4), -50, "guest");
  requests.put_response(client(2), radio(4), -50, "office");
  EXPECT_EQ(requests.find(client(1))->responses, (std::map<MacAddr, std::int32_t>{{radio(2), -65}, {radio(3), -70}}));
  EXPECT_EQ(requests.size(), 1U);
}

TEST(ProbeRequestMap, IsAnsweredWhenNoRadioIsAwaited) {
  ProbeRequestMap requests;
  requests.start(client(1), radio(1), 5, "office");
  requests.add_waiting(client(1), radio(2));
  requests.add_waiting(client(1), radio(3));
  requests.add_waiting(client(2), radio(3));
  requests.take_waiting(client(1), radio(2), "office");
  requests.take_waiting(client(1), radio(3), "guest");
  EXPECT_FALSE(requests.find(client(1))->answered());
  requests.take_waiting(client(1), radio(3), "office");
  EXPECT_TRUE(requests.find(client(1))->answered());
  EXPECT_EQ(requests.size(), 1U);
}

TEST(ProbeRequestMap, QueriesEndWhenAnsweredOrOutOfTime) {
  ProbeRequestMap requests;
  requests.start(client(3), radio(1), 2, "runs out");
  requests.add_waiting(client(3), radio(2));
  requests.start(client(2), radio(1), 5, "answered");
  requests.put_response(client(2), radio(2), -60, "answered");
  requests.start(client(1), radio(1), 0, "out of time");
  requests.add_waiting(client(1), radio(2));
  const ProbeRequestMap::Ended first = requests.tick();
  ASSERT_EQ(first.size(), 2U);
  EXPECT_EQ(first[0].first, client(1));
  EXPECT_EQ(first[1].first, client(2));
  EXPECT_EQ(first[1].second.responses, (std::map<MacAddr, std::int32_t>{{radio(2), -60}}));
  EXPECT_EQ(requests.find(client(3))->counter, 1);
  const ProbeRequestMap::Ended second = requests.tick();
  ASSERT_EQ(second.size(), 1U);
  EXPECT_EQ(second[0].second.ssid, "runs out");
  EXPECT_EQ(second[0].second.waiting, (std::set<MacAddr>{radio(2)}));
  EXPECT_TRUE(requests.empty());
  EXPECT_TRUE(requests.tick().empty());
}

TEST(ProbeRequestMap, AnErasedQueryIsGone) {
  ProbeRequestMap requests;
  requests.start(client(1), radio(1), 5, "office");
  requests.erase(client(1));
  requests.erase(client(2));
  EXPECT_TRUE(requests.empty());
}

TEST(ProbeRequestMap, AnEndIsTraced) {
  const Capture capture;
  log_problist_drop("0A:00:00:00:00:01");
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "RrmProblist: drop - 0A:00:00:00:00:01"}}));
}

}  // namespace
}  // namespace rrm::testing
