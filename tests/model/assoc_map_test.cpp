#include "model/AssocMap.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

class AssocMapTest : public ::testing::Test {
 protected:
  std::string dump() const {
    return array_text([&](JsonWriter& array) { clients.dump_json(array); });
  }

  const MacAddr alice = mac("0a:00:00:00:00:01");
  const MacAddr bob = mac("0a:00:00:00:00:02");
  const MacAddr ap = mac("00:11:22:00:00:00");
  Capture capture;
  ManualClock clock{5000};
  AssocMap clients;
};

TEST_F(AssocMapTest, TheLoadIsClientsAndExpectedClients) {
  EXPECT_EQ(clients.load(), 0);
  clients.add_client(alice, -60, "office", false, false);
  clients.add_client(bob, -60, "office", false, false);
  clients.add_expected(mac("0a:00:00:00:00:03"), {ap, 1, 5});
  EXPECT_EQ(clients.load(), 3);
}

TEST_F(AssocMapTest, AClientIsAssociatedFromNowOn) {
  clients.add_client(alice, -60, "office", true, false);
  EXPECT_EQ(*clients.find_client(alice), (AssocClient{-60, 5000, "office", true, false}));
  clock.advance(7);
  clients.add_client(alice, -70, "guest", false, true);
  EXPECT_EQ(*clients.find_client(alice), (AssocClient{-70, 5007, "guest", false, true}));
  EXPECT_EQ(clients.load(), 1);
  EXPECT_EQ(clients.find_client(bob), nullptr);
}

TEST_F(AssocMapTest, AClientWithoutAnSsidIsIgnored) {
  clients.add_client(alice, -60, nullptr, false, false);
  clients.add_client(alice, -60, "", false, false);
  EXPECT_EQ(clients.load(), 0);
}

TEST_F(AssocMapTest, OnlyANegativeLevelOfAKnownClientIsStored) {
  struct Case {
    MacAddr mac;
    std::int32_t rssi;
    bool stored;
  };
  for (const Case& test : std::vector<Case>{{alice, -1, true},
                                            {alice, INT_MIN, true},
                                            {alice, 0, false},
                                            {alice, 1, false},
                                            {alice, INT_MAX, false},
                                            {bob, -60, false}}) {
    clients.add_client(alice, -60, "office", false, false);
    EXPECT_EQ(clients.set_rssi(test.mac, test.rssi), test.stored) << test.rssi;
    EXPECT_EQ(clients.find_client(alice)->rssi, test.stored ? test.rssi : -60) << test.rssi;
  }
  EXPECT_EQ(clients.find_client(bob), nullptr);
}

TEST_F(AssocMapTest, AnAssociatedClientIsNotExpected) {
  clients.add_client(alice, -60, "office", false, false);
  clients.add_expected(alice, {ap, 1, 5});
  EXPECT_EQ(clients.find_expected(alice), nullptr);
  EXPECT_EQ(clients.load(), 1);
}

TEST_F(AssocMapTest, AnExpectedClientThatAssociatesIsStillExpected) {
  clients.add_expected(alice, {ap, 1, 5});
  clients.add_client(alice, -60, "office", false, false);
  EXPECT_NE(clients.find_expected(alice), nullptr);
}

TEST_F(AssocMapTest, ANewExpectationReplacesTheOld) {
  clients.add_expected(alice, {ap, 1, 5});
  clients.add_expected(alice, {bob, 2, 30});
  EXPECT_EQ(*clients.find_expected(alice), (ExpectedClient{bob, 2, 30}));
}

TEST_F(AssocMapTest, ExpectedClientsGoWhenTheirTimeIsUp) {
  clients.add_expected(alice, {ap, 1, 1});
  clients.add_expected(bob, {ap, 1, 3});
  clients.add_expected(mac("0a:00:00:00:00:03"), {ap, 1, 0});
  clients.add_expected(mac("0a:00:00:00:00:04"), {ap, 1, INT_MIN});
  clients.tick_expected();
  EXPECT_EQ(clients.expected(), (AssocMap::Expected{{bob, {ap, 1, 2}}}));
  clients.tick_expected();
  EXPECT_EQ(clients.find_expected(bob)->ttl, 1);
  clients.tick_expected();
  EXPECT_TRUE(clients.expected().empty());
}

TEST_F(AssocMapTest, ClientsGoOneByOneOrAllTogether) {
  clients.add_client(alice, -60, "office", false, false);
  clients.add_client(bob, -60, "office", false, false);
  clients.add_expected(mac("0a:00:00:00:00:03"), {ap, 1, 5});
  clients.add_expected(mac("0a:00:00:00:00:04"), {ap, 1, 5});
  clients.remove_client(alice);
  clients.remove_client(alice);
  clients.remove_expected(mac("0a:00:00:00:00:03"));
  clients.remove_expected(bob);
  EXPECT_EQ(clients.load(), 2);
  EXPECT_NE(clients.find_client(bob), nullptr);
  clients.clear();
  EXPECT_EQ(clients.load(), 0);
}

TEST_F(AssocMapTest, AnAcknowledgementIsTakenOnceByTheNetworkThatTheClientIsOn) {
  clients.add_client(alice, -60, "office", false, true);
  clients.add_client(bob, -60, "office", false, false);
  EXPECT_FALSE(clients.take_ack(alice, "guest"));
  EXPECT_TRUE(clients.take_ack(alice, "office"));
  EXPECT_FALSE(clients.take_ack(alice, "office"));
  EXPECT_FALSE(clients.take_ack(bob, "office"));
  EXPECT_FALSE(clients.take_ack(ap, "office"));
  clients.add_client(alice, -60, "office", false, true);
  EXPECT_TRUE(clients.take_ack(alice, "office")) << "it came anew";
}

TEST_F(AssocMapTest, AListReplacesTheClientsAndLosesTheirFlags) {
  clients.add_client(alice, -60, "office", true, true);
  clients.add_expected(bob, {ap, 1, 5});
  clients.load_from_json(reader(R"([{"rssi":-61,"mac":"0a:00:00:00:00:01","ssid":"office"},)"
                                R"({"rssi":-62,"mac":"0A:00:00:00:00:03","ssid":"guest"}])"));
  EXPECT_EQ(clients.clients(), (AssocMap::Clients{{alice, {-61, 0, "office", false, false}},
                                                  {mac("0a:00:00:00:00:03"), {-62, 0, "guest", false, false}}}));
  EXPECT_NE(clients.find_expected(bob), nullptr);
}

TEST_F(AssocMapTest, AListsBadElementsArePassedOver) {
  clients.load_from_json(reader(R"([{"rssi":-1,"ssid":"a"},{"rssi":-2,"mac":"","ssid":"a"},null,)"
                                R"({"rssi":-3,"mac":"0a:00:00:00:00:01"},{"mac":"0a:00:00:00:00:01","ssid":""},)"
                                R"({"rssi":-4,"mac":"0a:00:00:00:00:01","ssid":"a"},)"
                                R"({"rssi":-5,"mac":"0a:00:00:00:00:01","ssid":"b"},)"
                                R"({"rssi":-6,"mac":"here","ssid":"c"}])"));
  EXPECT_EQ(clients.clients(),
            (AssocMap::Clients{{MacAddr(), {-6, 0, "c", false, false}}, {alice, {-4, 0, "a", false, false}}}));
}

TEST_F(AssocMapTest, ANullListChangesNothingAnEmptyOneClears) {
  clients.add_client(alice, -60, "office", false, false);
  clients.load_from_json(reader("null"));
  EXPECT_EQ(clients.load(), 1);
  clients.load_from_json(reader("[]"));
  EXPECT_EQ(clients.load(), 0);
}

TEST_F(AssocMapTest, WritesItsClients) {
  clients.add_client(bob, -62, "guest", true, false);
  clients.add_client(alice, -61, "office", false, true);
  clients.add_expected(mac("0a:00:00:00:00:03"), {ap, 1, 5});
  EXPECT_EQ(dump(), R"([{"mac":"0A:00:00:00:00:01","dbm-signal":-61,"ssid":"office","no-balance":0},)"
                    R"({"mac":"0A:00:00:00:00:02","dbm-signal":-62,"ssid":"guest","no-balance":1}])");
}

TEST_F(AssocMapTest, DumpsItsClients) {
  clients.add_client(bob, -62, "guest", true, false);
  clients.add_client(alice, -61, "office", false, false);
  clients.add_expected(mac("0a:00:00:00:00:03"), {ap, 1, 5});
  clients.dump();
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{
                                 {LOG_TRACE, "Assocc clients:  2 - 1"},
                                 {LOG_TRACE, "Client (1/2) 0A:00:00:00:00:01 - office rssi -61 no_balance 0"},
                                 {LOG_TRACE, "Client (2/2) 0A:00:00:00:00:02 - guest rssi -62 no_balance 1"},
                             }));
}

}  // namespace
}  // namespace rrm::testing
