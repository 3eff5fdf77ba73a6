#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "domain/domain_support.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAreArray;
using ::testing::Not;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";

// An AP of one 5 GHz radio on channel 36.
MessageJson an_ap36(const char* mac = ap1) {
  return a_subscribe(mac).with_radio(a_5ghz_radio(36));
}

class Subscribe : public DomainTest {
 protected:
  // ap1 and ap2 on sessions 1 and 2; ap2 does not answer the mode request.
  void start_with_a_silent_ap2() {
    start();
    subscribe(1, an_ap36());
    subscribe(2, an_ap36(ap2));
    to_mode_requests();
    receive(1, a_message("rrm-mode-response", ap1).with_radio(a_5ghz_radio(36)));
    to_scan();
    ASSERT_EQ(unanswered_aps().size(), 1u);
  }
};

// Refusals

TEST_F(Subscribe, IsRefusedWith404WhileTheServerIsDisabledWhateverElseIsWrong) {
  JsonWriter rejected;
  JsonWriter rejected_values = JsonWriter::array(rejected, "invalid_parameters");
  bool failed = false;
  global.set_global(JsonReader(R"({"enabled":0})"), rejected_values, failed);
  ASSERT_FALSE(global.enabled());
  start();
  receive(7, an_ap36());
  receive(8, an_ap36().with("version", "3.0"));
  receive(9, an_ap36().without("factory"));
  const std::string refusal = told_failure(404, "00:11:22:33:44:00");
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "SEND 7 " + refusal,
                                   "TRACE drop_session_at_websock_worker: 7 force: 0",
                                   "DROP 7",
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "SEND 8 " + refusal,
                                   "TRACE drop_session_at_websock_worker: 8 force: 0",
                                   "DROP 8",
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "SEND 9 " + refusal,
                                   "TRACE drop_session_at_websock_worker: 9 force: 0",
                                   "DROP 9",
                               }));
  EXPECT_TRUE(aps().empty());
}

TEST_F(Subscribe, IsRefusedWith503AndClosedForABadVersionOrFactory) {
  start();
  const MessageJson good = an_ap36();
  const std::pair<const char*, MessageJson> cases[] = {
      {"no version", MessageJson(good).without("version")},
      {"newer version", MessageJson(good).with("version", "2.5")},
      {"no factory", MessageJson(good).without("factory")},
      {"null factory", MessageJson(good).with_raw("factory", "null")},
      {"no object", MessageJson(good).with("factory", "NVA-1K")},
      {"empty factory", MessageJson(good).with_raw("factory", "{}")},
      {"no board", MessageJson(good).with_raw("factory", R"({"hw":"1","serial":"2","mac":"3"})")},
      {"no hw", MessageJson(good).with_raw("factory", R"({"board":"1","serial":"2","mac":"3"})")},
      {"no serial", MessageJson(good).with_raw("factory", R"({"board":"1","hw":"2","mac":"3"})")},
      {"no mac", MessageJson(good).with_raw("factory", R"({"board":"1","hw":"2","serial":"3"})")},
      {"empty mac", MessageJson(good).with_raw("factory", R"({"board":"1","hw":"2","serial":"3","mac":""})")},
      {"number", MessageJson(good).with_raw("factory", R"({"board":1,"hw":"2","serial":"3","mac":"4"})")},
  };
  for (const auto& [name, message] : cases) {
    receive(7, message);
    EXPECT_LINES(journal.take(), ({
                                     "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                     "SEND 7 " + told_failure(503, "00:11:22:33:44:00"),
                                     "TRACE drop_session_at_websock_worker: 7 force: 0",
                                     "DROP 7",
                                 }))
        << name;
    EXPECT_TRUE(aps().empty()) << name;
  }
}

TEST_F(Subscribe, IsRefusedWith503AlsoForAKnownApWhichStaysWithItsOwnSession) {
  start();
  subscribe(1, an_ap36());
  receive(2, an_ap36().without("factory"));
  EXPECT_TRUE(journal.has("SEND 2 " + told_failure(503, "00:11:22:33:44:00")));
  EXPECT_FALSE(journal.has("DROP-FORCE 1"));
  EXPECT_EQ(ap(ap1)->session.id, 1u);
}

// Nobody else tells the domain that the session is closed.
TEST_F(Subscribe, ARefusalTakesWhatTheSameSessionHadSubscribedBefore) {
  start();
  subscribe(1, an_ap36());
  subscribe(2, an_ap36(ap2));
  receive(1, an_ap36("00:11:22:33:66:00").without("factory"));
  EXPECT_TRUE(journal.has("DROP 1"));
  EXPECT_EQ(aps().find(MacAddr::parse(ap1)), nullptr);
  EXPECT_TRUE(deleted_aps().find(MacAddr::parse(ap1))->session_dropped);
  EXPECT_EQ(ap(ap2)->session.id, 2u);
}

// It was said before the session ended, which nobody would tell the domain of.
TEST_F(Subscribe, WhatARefusedSessionSaysNextComesTooLate) {
  start();
  receive(1, an_ap36("00:11:22:33:66:00").without("factory"));
  receive(1, an_ap36());
  receive(1, an_ap36("00:11:22:33:66:00"));
  EXPECT_TRUE(journal.has("TRACE process_message: session 1 is being closed"));
  EXPECT_TRUE(aps().empty());
  subscribe(2, an_ap36());
  EXPECT_EQ(ap(ap1)->session.id, 2u);
}

// Only the latest are remembered, however low the number of a session that lived for long.
TEST_F(Subscribe, AnOldSessionThatIsReplacedSubscribesNobodyEither) {
  start();
  subscribe(1, an_ap36());
  for (std::uint32_t session = 100; session < 1124; ++session) receive(session, an_ap36(ap2).without("factory"));
  subscribe(2000, an_ap36());
  receive(1, an_ap36());
  EXPECT_EQ(ap(ap1)->session.id, 2000u);
}

// However often one session is refused, it takes one place among them.
TEST_F(Subscribe, ManyRefusalsOfOneSessionLetNoOtherBack) {
  start();
  subscribe(1, an_ap36());
  subscribe(2, an_ap36());
  for (int i = 0; i < 1024; ++i) receive(7, an_ap36(ap2).without("factory"));
  receive(1, an_ap36());
  EXPECT_EQ(ap(ap1)->session.id, 2u);
}

// Its end was told, and none is ordered.
TEST_F(Subscribe, ASessionThatEndedByItselfTakesNoPlaceAmongThem) {
  start();
  subscribe(1, an_ap36());
  subscribe(2, an_ap36());
  for (std::uint32_t session = 100; session < 1125; ++session) {
    subscribe(session, an_ap36(ap2));
    drop(session);
  }
  receive(1, an_ap36());
  EXPECT_EQ(ap(ap1)->session.id, 2u);
}

// What it says besides is judged as ever.
TEST_F(Subscribe, AReplacedSessionIsNoneOfItsAps) {
  start();
  subscribe(1, an_ap36());
  subscribe(2, an_ap36());
  receive(1, an_ap36().with("cmd", "rrm-config-changed"));
  EXPECT_TRUE(journal.has("EVENT 4 lab"));
}

TEST_F(Subscribe, AReplacedSessionDoesNotTakeItsApBack) {
  start();
  subscribe(1, an_ap36());
  subscribe(2, an_ap36());
  receive(1, an_ap36());
  EXPECT_EQ(ap(ap1)->session.id, 2u);
  EXPECT_FALSE(journal.has("DROP 2"));
}

TEST_F(Subscribe, ARefusalForgetsASilentApOfTheSameSession) {
  start_with_a_silent_ap2();
  receive(2, an_ap36("00:11:22:33:66:00").without("factory"));
  EXPECT_TRUE(unanswered_aps().empty());
  EXPECT_TRUE(deleted_aps().empty());
  EXPECT_EQ(aps().size(), 1u);
}

TEST_F(Subscribe, ARefusalOfAStrangerLeavesAnEmptyDomainRunning) {
  start();
  receive(7, an_ap36().without("factory"));
  subscribe(8, an_ap36());
  EXPECT_EQ(aps().size(), 1u);
}

TEST_F(Subscribe, ANewSessionOfOneApTakesTheOthersOfItsOldSession) {
  start();
  subscribe(1, an_ap36());
  subscribe(1, an_ap36(ap2));
  subscribe(2, an_ap36());
  EXPECT_EQ(ap(ap1)->session.id, 2u);
  EXPECT_EQ(aps().size(), 1u);
  EXPECT_TRUE(deleted_aps().find(MacAddr::parse(ap2))->session_dropped);
}

TEST_F(Subscribe, IsRefusedWith400ForInvalidMacParametersAndTheEntryIsDropped) {
  start();
  receive(7, an_ap36().with("ap-mac-count", 31));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                   "TRACE NEW subscribe request",
                   "ERROR Invalid one or more radio MAC parameters:  radio-mac-count(16), mac-offset(16), "
                   "ap-mac-count(31)",
                   "ERROR Send subscribe-response 'fail' due to invalid MAC parameters",
                   "EVENT 3 00:11:22:33:44:00",
                   "SEND 7 " + told_failure(400, "00:11:22:33:44:00"),
                   "TRACE drop_session_at_websock_worker: 7 force: 0",
                   "DROP 7",
               }));
  EXPECT_TRUE(aps().empty());
  EXPECT_EQ(worker->channel_pools()[5], (ChannelSet{36, 40, 44, 48})) << "its channels were read before the check";
}

TEST_F(Subscribe, IsRefusedWith400ForTwoRadiosAtOneOffset) {
  start();
  receive(7, a_subscribe(ap1)
                 .with_radio(a_2ghz_radio().with("mac-offset", 0))
                 .with_radio(a_5ghz_radio().with("mac-offset", 0)));
  EXPECT_TRUE(journal.has("SEND 7 " + told_failure(400, "00:11:22:33:44:00")));
  EXPECT_EQ(journal.lines("ERROR MAC ranges overlapped").size(), 2u);
}

TEST_F(Subscribe, ARadiosPoolOfNothingIsAFaultOnlyWhenItIsEnabled) {
  start();
  receive(7, an_ap36().with_radio(a_2ghz_radio().with("radio-mac-count", 0)));
  EXPECT_TRUE(journal.has("SEND 7 " + told_failure(400, "00:11:22:33:44:00")));
  receive(8, an_ap36().with_radio(a_2ghz_radio().with("radio-mac-count", 0).disabled()));
  EXPECT_TRUE(journal.has("SEND 8 " + told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)})));
}

// A new AP

TEST_F(Subscribe, ANewApJoinsAndItsDomainIsPlannedAnew) {
  start();
  receive(7, an_ap36().with_radio(a_2ghz_radio(6)));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                   "TRACE NEW subscribe request",
                   "EVENT 23 lab",
                   "TRACE Force optimization dmain lab",
                   "TRACE Planning domain lab update 4 after 20 sec",
                   "EVENT 23 lab",
                   status_event(4),
                   "SEND 7 " + told_success("00:11:22:33:44:00", {told_radio(0, 6, 2, 14), told_radio(1, 36, 5, 14)}),
                   looks_at_links,
               }));
  ASSERT_NE(aps().find(MacAddr::parse(ap1)), nullptr);
  EXPECT_EQ(ap(ap1)->session.id, 7u);
  EXPECT_FALSE(ap(ap1)->radios.list[1].lists_stale);
  EXPECT_EQ(ap(ap1)->factory, (ApFactory{"NVA-3wz", "1.0", "SN44:00", MacAddr::parse(ap1)}));
  EXPECT_EQ(worker->channel_pools()[2], (ChannelSet{1, 6, 11}));
  EXPECT_EQ(worker->channel_pools()[5], (ChannelSet{36, 40, 44, 48}));
}

TEST_F(Subscribe, ANewApWithNoRadioOnAirJoinsWithoutAPlan) {
  start();
  const std::pair<const char*, MessageJson> cases[] = {
      {"00:11:22:33:44:00", a_subscribe("00:11:22:33:44:00")},
      {"00:11:22:33:45:00", a_subscribe("00:11:22:33:45:00").with_no_radios()},
      {"00:11:22:33:46:00", a_subscribe("00:11:22:33:46:00").with_radio(a_5ghz_radio(36).disabled())},
  };
  for (const auto& [mac, message] : cases) {
    receive(7, message);
    EXPECT_LINES(journal.take(), ({
                                     "TRACE process_message subscribe-request for " + std::string(mac),
                                     "TRACE NEW subscribe request",
                                     "EVENT 23 lab",
                                     "SEND 7 " + told_success(mac, {}),
                                     looks_at_links,
                                 }));
  }
  EXPECT_EQ(rrm_status(), 0);
  EXPECT_EQ(aps().size(), 3u);
}

TEST_F(Subscribe, ARadioOnChannelZeroIsNotOnAir) {
  start();
  receive(7, a_subscribe(ap1).with_radio(a_5ghz_radio(0)));
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Subscribe, ANewApsOwnNumbersAreTakenOrDefaulted) {
  start();
  receive(7, an_ap36().with("ap-mac-count", 32).with("use-wildcard-80211r", 1));
  EXPECT_EQ(ap(ap1)->ap_mac_count, 32u);
  EXPECT_TRUE(ap(ap1)->use_wildcard_80211r);
  receive(8, an_ap36(ap2));
  EXPECT_EQ(ap(ap2)->ap_mac_count, 48u);
  EXPECT_FALSE(ap(ap2)->use_wildcard_80211r);
}

TEST_F(Subscribe, ANewApsPrioritiesAreFreshWhere80211vIsOn) {
  settings.use_80211v = true;
  settings.load_balance_sta_low = 1;
  const auto one_client =
      a_5ghz_radio(36).with_raw("assoclist", R"([{"mac":"00:00:00:00:00:01","ssid":"x","rssi":-50}])");
  start();
  receive(7, a_subscribe(ap1).with_radio(one_client));
  EXPECT_EQ(ap(ap1)->radios.list[1].priority, 127u);
}

// An active AP

TEST_F(Subscribe, AnActiveApMayRepeatItselfOnItsSession) {
  start();
  subscribe(1, an_ap36());
  for (int i = 0; i < 2; ++i) {
    receive(1, an_ap36());
    EXPECT_LINES(journal.take(), ({
                                     "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                     "TRACE To exists subscribe request",
                                     "EVENT-LOG process_exists_ap update_802dot11r 0",
                                     "SEND 1 " + told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)}),
                                     looks_at_links,
                                 }));
  }
}

TEST_F(Subscribe, AnActiveApOnANewSessionHasItsOldOneClosedAndKeepsItsPlan) {
  start();
  subscribe(1, an_ap36());
  ap(ap1)->radios.list[1].power = 11;
  ap(ap1)->visible_members.insert(MacAddr::parse(ap2), Neighbour{});
  receive(2, an_ap36());
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "TRACE To exists subscribe request",
                                   "TRACE drop_session_at_websock_worker: 1 force: 1",
                                   "DROP-FORCE 1",
                                   "EVENT-LOG process_exists_ap update_802dot11r 0",
                                   "SEND 2 " + told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 11)}),
                                   looks_at_links,
                               }));
  EXPECT_EQ(ap(ap1)->session.id, 2u);
  EXPECT_EQ(ap(ap1)->visible_members.size(), 1u);
}

TEST_F(Subscribe, AnApIsKnownByAnyOfItsAddresses) {
  start();
  subscribe(1, a_subscribe(ap1).with_radio(a_5ghz_radio(36).with_vap(3, "office")));
  for (const char* mac :
       {"00:11:22:33:44:00", "00:11:22:33:44:10", "02:11:22:33:44:10", "00:11:22:33:44:13", "02:11:22:33:44:13"}) {
    receive(1, an_ap36(mac));
    EXPECT_TRUE(journal.has("TRACE To exists subscribe request")) << mac;
    EXPECT_EQ(journal.lines("SEND 1 ").size(), 1u) << mac;
    EXPECT_TRUE(journal.lines("SEND 1 ")[0].find(R"("ap-mac":"00:11:22:33:44:00")") != std::string::npos) << mac;
    journal.take();
    subscribe(1, a_subscribe(ap1).with_radio(a_5ghz_radio(36).with_vap(3, "office")));
  }
  EXPECT_EQ(aps().size(), 1u);
}

TEST_F(Subscribe, AKnownApsNewMacParametersAreNotChecked) {
  start();
  subscribe(1, a_subscribe(ap1).with_radio(a_2ghz_radio()).with_radio(a_5ghz_radio()));
  receive(1, a_subscribe(ap1).with_radio(a_2ghz_radio().with("mac-offset", 16)).with_radio(a_5ghz_radio()));
  EXPECT_TRUE(
      journal.has("SEND 1 " + told_success("00:11:22:33:44:00", {told_radio(0, 1, 2, 14), told_radio(1, 36, 5, 14)})));
  EXPECT_THAT(journal.lines("ERROR"), ::testing::IsEmpty());
}

TEST_F(Subscribe, AKnownApKeepsWhatItSaidAtFirst) {
  start();
  subscribe(1, an_ap36().with("ap-mac-count", 40));
  receive(1, an_ap36()
                 .with("ap-mac-count", 64)
                 .with_raw("factory", R"({"board":"NXA-12WZ","hw":"2","serial":"other","mac":"00:00:00:00:00:01"})"));
  EXPECT_EQ(ap(ap1)->ap_mac_count, 40u);
  EXPECT_EQ(ap(ap1)->factory.serial, "SN44:00");
  EXPECT_EQ(ap(ap1)->platform, ApPlatform::brix);
}

TEST_F(Subscribe, AnAddressOfANewVapIsKnownAtOnce) {
  start();
  subscribe(1, an_ap36());
  subscribe(1, a_subscribe(ap1).with_radio(a_5ghz_radio(36).with_vap(3, "office")));
  EXPECT_EQ(aps().find_by_any_mac(MacAddr::parse("00:11:22:33:44:13")), ap(ap1));
}

// A deleted AP

TEST_F(Subscribe, ADeletedApReturnsQuietlyWithItsPlan) {
  start();
  subscribe(1, an_ap36());
  ap(ap1)->radios.list[1].power = 11;
  drop(1);
  journal.take();
  ASSERT_EQ(deleted_aps().size(), 1u);
  receive(2, an_ap36());
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "TRACE To delete subscribe request, scan state 0",
                                   "EVENT-LOG process_exists_ap update_802dot11r 0",
                                   "SEND 2 " + told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 11)}),
                                   looks_at_links,
                                   "EVENT 23 lab",
                               }));
  EXPECT_TRUE(deleted_aps().empty());
  EXPECT_EQ(deleted_aps().storage().size(), 0u);
  ASSERT_NE(aps().find(MacAddr::parse(ap1)), nullptr);
  EXPECT_EQ(ap(ap1)->session.id, 2u);
  EXPECT_FALSE(ap(ap1)->session_dropped);
  EXPECT_NE(aps().find_by_any_mac(MacAddr::parse("00:11:22:33:44:10")), nullptr);
}

TEST_F(Subscribe, ADeletedApThatReturnsDuringAScanIsWorthANewPlan) {
  for (const int state : {2, 3}) {
    start();
    subscribe(1, an_ap36());
    subscribe(2, an_ap36(ap2));
    drop(2);
    to_mode_requests();
    if (state == 3) {
      receive(1, a_message("rrm-mode-response", ap1).with_radio(a_5ghz_radio(36)));
      to_scan();
    }
    ASSERT_EQ(rrm_status(), state);
    ap(ap2)->visible_members.insert(MacAddr::parse(ap1), Neighbour{});
    ap(ap2)->visible_rogue.insert(MacAddr::parse("00:00:00:00:00:01"), Neighbour{});
    receive(3, an_ap36(ap2));
    EXPECT_LINES(journal.take(), ({
                                     "TRACE process_message subscribe-request for 00:11:22:33:55:00",
                                     "TRACE To delete subscribe request, scan state 1",
                                     "EVENT-LOG process_exists_ap update_802dot11r 0",
                                     "TRACE Not-equivalent or force (1) subscribe request",
                                     "TRACE Force optimization dmain lab",
                                     "TRACE Planning domain lab update 4 after 20 sec",
                                     "EVENT 23 lab",
                                     status_event(4),
                                     "SEND 3 " + told_success("00:11:22:33:55:00", {told_radio(1, 36, 5, 14)}),
                                     looks_at_links,
                                     "EVENT 23 lab",
                                 }));
    EXPECT_TRUE(ap(ap2)->visible_members.empty());
    EXPECT_TRUE(ap(ap2)->visible_rogue.empty());
  }
}

TEST_F(Subscribe, ADeletedApThatReturnsWhileThePlanIsComputedWaitsForTheNext) {
  Gate computed;
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) {
    computed.wait();
    return OptimizationResult{};
  };
  start();
  subscribe(1, an_ap36());
  subscribe(2, an_ap36(ap2));
  drop(2);
  to_computing({{1, ap1}});
  receive(3, an_ap36(ap2));
  EXPECT_TRUE(journal.has("TRACE To delete subscribe request, scan state 0"));
  EXPECT_FALSE(journal.has("TRACE Not-equivalent or force (1) subscribe request"));
  computed.open();
  finish_computing();
}

TEST_F(Subscribe, AReturnedApStandsUnderTheAddressThatItNamed) {
  start();
  subscribe(1, an_ap36());
  drop(1);
  receive(2, an_ap36("00:11:22:33:44:10"));
  ASSERT_EQ(aps().size(), 1u);
  EXPECT_EQ(aps().begin()->first, MacAddr::parse("00:11:22:33:44:10"));
  EXPECT_EQ(aps().begin()->second->mac, MacAddr::parse(ap1));
  EXPECT_TRUE(deleted_aps().empty());
}

TEST_F(Subscribe, AnApWithABlankSessionHasNothingClosedThatExists) {
  start();
  subscribe(1, an_ap36());
  drop(1);
  ap(ap1)->session = no_session;
  ap(ap1)->session_dropped = false;
  receive(2, an_ap36());
  EXPECT_TRUE(journal.has("DROP-FORCE 0"));
}

// A silent AP

TEST_F(Subscribe, ASilentApStaysSilentUntilThePipelineTakesItBack) {
  start_with_a_silent_ap2();
  receive(3, an_ap36(ap2));
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message subscribe-request for 00:11:22:33:55:00",
                                   "TRACE To unanswered subscribe request",
                                   "TRACE drop_session_at_websock_worker: 2 force: 1",
                                   "DROP-FORCE 2",
                                   "EVENT-LOG process_exists_ap update_802dot11r 0",
                                   "SEND 3 " + told_success("00:11:22:33:55:00", {told_radio(1, 36, 5, 14)}),
                                   looks_at_links,
                               }));
  EXPECT_EQ(unanswered_aps().size(), 1u);
  EXPECT_EQ(aps().size(), 1u);
}

TEST_F(Subscribe, ASilentApsOtherSettingsAreWorthANewPlanAndItStaysSilent) {
  start_with_a_silent_ap2();
  receive(2, a_subscribe(ap2).with_radio(a_5ghz_radio(36).with("available-channels", "36 40")));
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message subscribe-request for 00:11:22:33:55:00",
                                   "TRACE To unanswered subscribe request",
                                   "EVENT-LOG process_exists_ap update_802dot11r 0",
                                   "EVENT 23 lab",
                                   "TRACE Not-equivalent or force (0) subscribe request",
                                   "TRACE Force optimization dmain lab",
                                   "TRACE Planning domain lab update 4 after 20 sec",
                                   "EVENT 23 lab",
                                   status_event(4),
                                   "SEND 2 " + told_success("00:11:22:33:55:00", {told_radio(1, 36, 5, 14)}),
                                   looks_at_links,
                               }));
  EXPECT_EQ(unanswered_aps().size(), 1u);
}

TEST_F(Subscribe, ASilentApsNewAddressesAreIndexedInItsOwnSet) {
  start_with_a_silent_ap2();
  receive(3, a_subscribe(ap2).with_radio(a_5ghz_radio(36).with_vap(3, "office")));
  EXPECT_TRUE(unanswered_aps().contains(MacAddr::parse("00:11:22:33:55:13")));
  EXPECT_FALSE(aps().contains(MacAddr::parse("00:11:22:33:55:13")));
}

// What a known AP says anew

class SaidAnew : public Subscribe {
 protected:
  static RadioJson office(int channel = 36) { return a_5ghz_radio(channel).with_vap(3, "office"); }
  static MessageJson of(const RadioJson& radio) { return a_subscribe(ap1).with_radio(radio); }

  void start_with_office() {
    start();
    subscribe(1, of(office()));
  }
  Radio& radio() { return ap(ap1)->radios.list[1]; }
  // The AP's radios as they are told to an operator.
  std::string radios_text() { return JsonReader(details().c_str()).get("aps").at(0).get("radios").to_string(); }
};

TEST_F(SaidAnew, AnotherChannelAloneOnlyConcernsTheNeighboursLists) {
  settings.use_dca = false;
  start_with_office();
  radio().lists_stale = false;
  receive(1, of(office(40)));
  EXPECT_LINES(
      journal.take(),
      ({
          "TRACE process_message subscribe-request for 00:11:22:33:44:00",
          "TRACE To exists subscribe request",
          "EVENT-LOG process_exists_ap update_802dot11k 1 (1/0)",
          "EVENT-LOG process_exists_ap update_802dot11r 0",
          "TRACE NOT Planning update 802dot11k domain lab status 4",
          "SEND 1 " + with_switch("use-dca", 0,
                                  with_neighbours({}, told_success("00:11:22:33:44:00", {told_radio(1, 40, 5, 14)}))),
          looks_at_links,
      }));
  EXPECT_TRUE(radio().lists_stale);
}

TEST_F(SaidAnew, TheSameAgainConcernsNobody) {
  start_with_office();
  radio().lists_stale = false;
  receive(1, of(office()));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11k 0 (1/1)"));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11r 0"));
  EXPECT_THAT(journal.lines("EVENT 2"), ::testing::IsEmpty());
  EXPECT_FALSE(radio().lists_stale);
}

TEST_F(SaidAnew, OtherVapsAreWorthABackupButNoPlan) {
  start_with_office();
  receive(1, of(a_5ghz_radio(36).with_vap(3, "guests")));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                   "TRACE To exists subscribe request",
                   "EVENT-LOG process_exists_ap update_802dot11k 1 (0/1)",
                   "EVENT-LOG process_exists_ap update_802dot11r 1",
                   "EVENT 23 lab",
                   "TRACE NOT Planning update 802dot11k domain lab status 4",
                   "TRACE NOT Planning update 802dot11r domain lab",
                   "SEND 1 " + with_neighbours({}, told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)})),
                   looks_at_links,
               }));
  EXPECT_NE(radio().vaps.find("guests"), nullptr);
  EXPECT_EQ(radio().vaps.find("office"), nullptr);
}

TEST_F(SaidAnew, VapsThatAreTheSameKeepWhatTheServerGaveThem) {
  start_with_office();
  radio().vaps.find("office")->fbt_rrb_key = "given";
  receive(1, of(office()));
  EXPECT_EQ(radio().vaps.find("office")->fbt_rrb_key, "given");
}

TEST_F(SaidAnew, OtherSettingsForgetWhatTheApHeardAndAreWorthABackupAndAPlan) {
  start_with_office();
  ap(ap1)->visible_members.insert(MacAddr::parse(ap2), Neighbour{});
  ap(ap1)->visible_rogue.insert(MacAddr::parse("00:00:00:00:00:01"), Neighbour{});
  receive(1, of(office().with("bandwidth", 40)));
  EXPECT_LINES(journal.lines("EVENT"), ({
                                           "EVENT-LOG process_exists_ap update_802dot11k 0 (1/1)",
                                           "EVENT-LOG process_exists_ap update_802dot11r 0",
                                           "EVENT 23 lab",
                                       }));
  EXPECT_LINES(journal.lines("TRACE"), ({
                                           "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                           "TRACE To exists subscribe request",
                                           "TRACE Not-equivalent or force (0) subscribe request",
                                           "TRACE Force optimization already planned domain lab",
                                           looks_at_links,
                                       }));
  EXPECT_TRUE(ap(ap1)->visible_members.empty());
  EXPECT_TRUE(ap(ap1)->visible_rogue.empty());
  EXPECT_EQ(radio().bandwidth, 40);
}

TEST_F(SaidAnew, EverySettingOfARadioCounts) {
  const std::pair<const char*, RadioJson> changes[] = {
      {"status", office().disabled()},
      {"bandwidth", office().with("bandwidth", 80)},
      {"locked-for-tpc", office().with("locked-for-tpc", 1)},
      {"locked-for-dca", office().with("locked-for-dca", 1)},
      {"locked-for-balancer", office().with("locked-for-balancer", 1)},
      {"locked-for-80211v", office().with("locked-for-80211v", 1)},
      {"available-channels", office().with("available-channels", "36 40 44")},
      {"eirp", office().with("eirp", 20)},
  };
  for (const auto& [name, radio] : changes) {
    start_with_office();
    receive(1, of(radio));
    EXPECT_TRUE(journal.has("TRACE Not-equivalent or force (0) subscribe request")) << name;
    EXPECT_TRUE(journal.has("EVENT 23 lab")) << name;
  }
}

TEST_F(SaidAnew, NewLimitsHoldThePlannedPower) {
  start_with_office();
  receive(1, of(office().with("power-max", 12)));
  EXPECT_EQ(radio().power_max, 12);
  EXPECT_EQ(radio().power, 12);
  EXPECT_TRUE(
      journal.has("SEND 1 " + with_neighbours({}, told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 12)}))));
}

TEST_F(SaidAnew, NewLimitsAloneAreNoReasonForAPlan) {
  const std::pair<const char*, RadioJson> changes[] = {
      {"power-min", office().with("power-min", 8)},
      {"power-max", office().with("power-max", 12)},
      {"eirp-min", office().with("eirp-min", 6)},
      {"eirp-max", office().with("eirp-max", 30)},
      {"antenna", office().with_raw("antenna-configuration", R"({"antenna-gain":3,"cable-loss":1})")},
  };
  for (const auto& [name, radio] : changes) {
    start_with_office();
    ap(ap1)->visible_members.insert(MacAddr::parse(ap2), Neighbour{});
    receive(1, of(radio));
    EXPECT_THAT(journal.lines("TRACE Not-equivalent"), ::testing::IsEmpty()) << name;
    EXPECT_THAT(journal.lines("EVENT 2"), ::testing::IsEmpty()) << name;
    EXPECT_EQ(ap(ap1)->visible_members.size(), 1u) << name;
  }
}

TEST_F(SaidAnew, TheWildcardSettingIsStoredAndAMissingOneReadsAsOff) {
  start_with_office();
  receive(1, of(office()).with("use-wildcard-80211r", 1));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11r 1"));
  EXPECT_TRUE(ap(ap1)->use_wildcard_80211r);
  journal.take();
  receive(1, of(office()).with("use-wildcard-80211r", 1));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11r 0"));
  journal.take();
  receive(1, of(office()));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11r 1"));
  EXPECT_FALSE(ap(ap1)->use_wildcard_80211r);
}

TEST_F(SaidAnew, With80211vTheRadiosPriorityCountsToo) {
  settings.use_80211v = true;
  settings.load_balance_sta_low = 1;
  start_with_office();
  receive(1, of(office()));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11kv 0 (1/1/0)"));
  journal.take();
  radio().assoc.add_client(MacAddr::parse("00:00:00:00:00:01"), -50, "office", false, false);
  receive(1, of(office()));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11kv 1 (1/1/1)"));
  EXPECT_FALSE(journal.has("EVENT-LOG process_exists_ap update_802dot11k 0 (1/1)"));
}

TEST_F(SaidAnew, With80211vAndNoRadioForItThePlainListsCount) {
  settings.use_80211v = true;
  start();
  subscribe(1, of(office().with("locked-for-80211v", 1)));
  receive(1, of(office().with("locked-for-80211v", 1)));
  EXPECT_LINES(journal.lines("EVENT-LOG"), ({
                                               "EVENT-LOG process_exists_ap update_802dot11k 0 (1/1)",
                                               "EVENT-LOG process_exists_ap update_802dot11r 0",
                                           }));
}

TEST_F(SaidAnew, ListsThatAreOffAreNotSpokenOf) {
  settings.use_80211k = false;
  settings.use_80211r = false;
  start_with_office();
  receive(1, of(a_5ghz_radio(36).with_vap(3, "guests")));
  EXPECT_THAT(journal.lines("EVENT-LOG"), ::testing::IsEmpty());
}

// Nothing is not what the AP said before: it is asked again, and keeps its radios meanwhile.
TEST_F(SaidAnew, AMessageWithoutRadiosLeavesThemAsTheyWereAndIsWorthABackupAndAPlan) {
  const MessageJson cases[] = {
      a_subscribe(ap1),
      a_subscribe(ap1).with_raw("radios", "null"),
      a_subscribe(ap1).with_raw("radios", "{}"),
      a_subscribe(ap1).with("radios", "none"),
  };
  for (const MessageJson& message : cases) {
    start_with_office();
    radio().power = 11;
    ap(ap1)->visible_members.insert(MacAddr::parse(ap2), Neighbour{});
    const std::string before = radios_text();
    receive(1, message);
    EXPECT_LINES(journal.take(),
                 ({
                     "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                     "TRACE To exists subscribe request",
                     "EVENT-LOG process_exists_ap update_802dot11r 1",
                     "EVENT 23 lab",
                     "TRACE Not-equivalent or force (0) subscribe request",
                     "TRACE Force optimization already planned domain lab",
                     "SEND 1 " + with_neighbours({}, told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 11)})),
                     looks_at_links,
                 }))
        << message.text();
    EXPECT_EQ(radios_text(), before) << message.text();
    EXPECT_TRUE(ap(ap1)->visible_members.empty()) << message.text();
  }
}

TEST_F(SaidAnew, AnApThatNeverHadARadioMayLeaveThemOutAgain) {
  start();
  subscribe(1, a_subscribe(ap1));
  receive(1, a_subscribe(ap1));
  EXPECT_LINES(journal.take(), ({
                                   "TRACE process_message subscribe-request for 00:11:22:33:44:00",
                                   "TRACE To exists subscribe request",
                                   "EVENT-LOG process_exists_ap update_802dot11r 0",
                                   "SEND 1 " + told_success("00:11:22:33:44:00", {}),
                                   looks_at_links,
                               }));
}

TEST_F(SaidAnew, ARadioThatIsLeftOutIsBlanked) {
  start_with_office();
  receive(1, a_subscribe(ap1).with_radio(a_2ghz_radio()));
  EXPECT_FALSE(radio().status);
  EXPECT_EQ(radio().channel, 0);
  EXPECT_TRUE(journal.has("SEND 1 " + told_success("00:11:22:33:44:00", {told_radio(0, 1, 2, 14)})));
}

// Without a band the channels are filed twice: where the radio is known to stand, and where somebody who knows nothing
// of it would look for them.
TEST_F(SaidAnew, ComparingFillsTheChannelPoolsToo) {
  start();
  subscribe(1, of(a_6ghz_radio()));
  for (ChannelSet& pool : worker->channel_pools()) pool.clear();
  receive(1, of(a_6ghz_radio().without("band")));
  EXPECT_EQ(worker->channel_pools()[5], (ChannelSet{37, 53, 69}));
  EXPECT_EQ(worker->channel_pools()[6], (ChannelSet{37, 53, 69}));
}

}  // namespace
}  // namespace rrm::testing
