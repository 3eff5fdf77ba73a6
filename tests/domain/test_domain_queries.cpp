// Questions to a domain about its access points, and requests for an optimisation, as the command interface puts them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Api.h"
#include "core/version.h"
#include "domain/pipeline_support.h"
#include "json/JsonReader.h"
#include "support/builders.h"

namespace rrm::testing {
namespace {

using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";

class Queries : public Pipeline {
 protected:
  ~Queries() override { server.release(); }

  // The command interface finds the domain.
  void publish() { server.adopt(worker); }
  // What the answer says besides who answers.
  std::string ask(const std::string& members) {
    const auto answer = api.process_rrm_command(server, JsonReader((R"({"domain":"lab",)" + members + "}").c_str()));
    const std::string envelope =
        R"({"version":"2.1","server":")" + global.hostname() + R"(","morvane_version":")" + build_version + "\",";
    EXPECT_EQ(answer.value_or("").substr(0, envelope.size()), envelope);
    return "{" + answer.value_or("").substr(envelope.size());
  }
  std::string ask_ap(const std::string& address, const std::string& rest = "") {
    return ask(R"("ap":")" + address + "\"" + rest);
  }
  // The set in which an access point was found, and its own address.
  std::string found(const std::string& address) {
    const std::string answer = ask_ap(address);
    const JsonReader json(answer.c_str());
    for (const char* set : {"active-ap", "deleted-ap", "unanswered-ap"}) {
      if (json.has(set)) return std::string(set) + " " + json.get(set).get_string("mac");
    }
    return json.get_string("error");
  }
  void insert(ApMap& set, const ApBuilder& builder) {
    const auto entry = builder.build(settings);
    set.insert(entry->mac, entry);
  }

  Api api;
};

// An access point whole

// Nothing in it is as a new record has it.
ApBuilder a_busy_ap() {
  return an_ap()
      .mac("00:11:22:00:00:00")
      .active()
      .received()
      .with_radio(a_radio().channel(6).power(11).disabled())
      .with_radio(a_radio()
                      .channel(36)
                      .bandwidth(80)
                      .primary(256)
                      .power(17)
                      .power_range(5, 20)
                      .power_changed(-3)
                      .eirp_range(7, 30)
                      .eirp(19)
                      .antenna(3, 1)
                      .available({48, 36})
                      .locked_balancer()
                      .vap(a_vap("office")
                               .id(1)
                               .k()
                               .r()
                               .v()
                               .keyholders("SN1", "00:11:22:00:00:11", "KeyOne")
                               .link("SN2", "00:11:22:00:01:11", "KeyTwo"))
                      .client("0A:00:00:00:00:01", -61, "office"))
      .with_radio(a_radio().channel(37).band(6).locked_tpc().locked_dca().locked_80211v())
      .hears("00:11:22:00:01:10", {-60, 36, 5, 80, 17, 512})
      .hears_rogue("00:99:99:00:00:01", {-70, 1, 2, 20, 0, 256})
      .with([](ApEntry& ap) { ap.ap_mac_count = 64, ap.use_wildcard_80211r = true; });
}

TEST_F(Queries, AnAccessPointIsToldWhole) {
  start();
  insert(aps(), a_busy_ap());
  publish();
  EXPECT_EQ(
      ask_ap("00:11:22:00:00:00"),
      R"({"active-ap":{"mac":"00:11:22:00:00:00","active":1,"ap-mac-count":64,"use-wildcard-80211r":1,)"
      R"("radios":{"received":1,"interfaces":[{"id":0,"mac":"00:11:22:00:00:00","mac-offset":0,"radio-mac-count":16,)"
      R"("status":0,"power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,)"
      R"("locked-80211v":0,"channel":6,"band":2,"power":11,"max-power":0,"min-power":0,"bandwidth":20,)"
      R"("primary-channel":0,"available-channels":[],"vaps":[],"assoc_clients":[]},)"
      R"({"id":1,"mac":"00:11:22:00:00:10","mac-offset":16,"radio-mac-count":16,"status":1,"power-changed":-3,)"
      R"("conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":1,"locked-80211v":0,"channel":36,"band":5,)"
      R"("power":17,"max-power":20,"min-power":5,"bandwidth":80,"primary-channel":256,"eirp-min":7,"eirp-max":30,)"
      R"("eirp":19,"available-channels":[36,48],"antenna-configuration":{"antenna-gain":3,"cable-loss":1},)"
      R"("vaps":[{"id":1,"ssid":"office","mac":"00:11:22:00:00:11","mobility-domain":32255,"use_802dot11k":1,)"
      R"("use_802dot11r":1,"use_802dot11v":1,"fbt-links":["00:11:22:00:01:11"]}],)"
      R"("assoc_clients":[{"mac":"0A:00:00:00:00:01","dbm-signal":-61,"ssid":"office","no-balance":0}]},)"
      R"({"id":2,"mac":"00:11:22:00:00:20","mac-offset":32,"radio-mac-count":16,"status":1,"power-changed":0,)"
      R"("conflicted":0,"locked-tpc":1,"locked-dca":1,"locked-balancer":0,"locked-80211v":1,"channel":37,"band":6,)"
      R"("power":0,"max-power":0,"min-power":0,"bandwidth":20,"primary-channel":0,"available-channels":[],"vaps":[],)"
      R"("assoc_clients":[]}]},"visible-members":[{"mac":"00:11:22:00:01:10","dbm-signal":-60,"channel":36,"band":5,)"
      R"("bandwidth":80,"tx-power":17,"primary":512}],"visible-rogue":[{"mac":"00:99:99:00:00:01","dbm-signal":-70,)"
      R"("channel":1,"band":2,"bandwidth":20,"tx-power":0,"primary":256}]}})");
}

// Its keys are told to those alone who ask for them.
TEST_F(Queries, AnAccessPointsLinksAreToldWithItsKeys) {
  start();
  insert(deleted_aps(), a_busy_ap());
  publish();
  const std::string links =
      R"({"deleted-ap":{"radios":[{"id":0,"vaps":[]},{"id":1,"vaps":[{"id":1,"ssid":"office",)"
      R"("mac":"00:11:22:00:00:11","mobility-domain":32255,"use_802dot11k":1,"use_802dot11r":1,"use_802dot11v":1,)"
      R"("fbt-r0-keyholder":"SN1","fbt-r1-keyholder":"00:11:22:00:00:11","fbt-rrb-key":"KeyOne",)"
      R"("fbt-links":[{"remote-r0-kh-id":"SN2","remote-r1-kh-id":"00:11:22:00:01:11","remote-r1-kh-key":"KeyTwo"}]}]},)"
      R"({"id":2,"vaps":[]}]}})";
  for (const char* value : {"{}", "null", "0", "false", R"("")"}) {
    EXPECT_EQ(ask_ap("00:11:22:00:00:00", std::string(R"(,"fbt-links":)") + value), links) << value;
  }
  EXPECT_EQ(ask_ap("00:11:22:00:00:00").find("KeyOne"), std::string::npos);
}

// Finding it

TEST_F(Queries, EachSetHasAKeyOfItsOwn) {
  start();
  insert(aps(), an_ap().mac("00:11:22:00:00:00"));
  insert(deleted_aps(), an_ap().mac("00:11:22:00:01:00"));
  insert(unanswered_aps(), an_ap().mac("00:11:22:00:02:00"));
  publish();
  EXPECT_EQ(found("00:11:22:00:00:00"), "active-ap 00:11:22:00:00:00");
  EXPECT_EQ(found("00:11:22:00:01:00"), "deleted-ap 00:11:22:00:01:00");
  EXPECT_EQ(found("00:11:22:00:02:00"), "unanswered-ap 00:11:22:00:02:00");
  EXPECT_EQ(ask_ap("00:11:22:00:03:00"), R"({"error":"ap not found"})");
  EXPECT_EQ(ask_ap("00:11:22:00:03:00", R"(,"fbt-links":{})"), R"({"error":"ap not found"})");
}

TEST_F(Queries, AnyAddressOfAnEnabledRadioNamesItsAccessPointInEverySet) {
  start();
  publish();
  for (const auto& [set, key] : {std::pair{&aps(), "active-ap"}, std::pair{&deleted_aps(), "deleted-ap"},
                                 std::pair{&unanswered_aps(), "unanswered-ap"}}) {
    insert(*set, an_ap()
                     .mac("00:11:22:00:00:00")
                     .with_radio(a_radio().disabled().vap(a_vap("hall").id(3)))
                     .with_radio(a_radio().channel(36).vap(a_vap("office").id(2))));
    const std::string here = std::string(key) + " 00:11:22:00:00:00";
    for (const char* address : {"00:11:22:00:00:00", "00:11:22:00:00:10", "00:11:22:00:00:12",  // its own, radio, VAP
                                "02:11:22:00:00:10", "02:11:22:00:00:12",                       // with the local bit
                                "00:11:22:00:00:1A", "0:11:22:0:0:10 "}) {
      const bool known = std::string(address) != "00:11:22:00:00:1A";
      EXPECT_EQ(found(address), known ? here : "ap not found") << address;
    }
    for (const char* address : {"02:11:22:00:00:00", "00:11:22:00:00:03", "00:11:22:00:00:20"}) {
      EXPECT_EQ(found(address), "ap not found") << address << ", of a disabled radio";
    }
    set->drop_session(a_session(1));
  }
}

// The status tells its own address, so it is the one that is asked for next.
TEST_F(Queries, AnAccessPointThatReturnedUnderAnotherAddressIsFoundUnderItsOwn) {
  start_with({ap1});
  publish();
  drop(1);
  subscribe(2, a_subscribe("00:11:22:33:44:10").with_radio(a_5ghz_radio()));
  ASSERT_EQ(aps().find(MacAddr::parse(ap1)), nullptr);
  EXPECT_EQ(found(ap1), "active-ap 00:11:22:33:44:00");
  EXPECT_EQ(found("00:11:22:33:44:10"), "active-ap 00:11:22:33:44:00");
  drop(2);
  EXPECT_EQ(found(ap1), "deleted-ap 00:11:22:33:44:00");
}

// Where sets dispute an address, the earlier set wins, though another knows it as an access point's own.
TEST_F(Queries, TheActiveOnesAreAskedFirstThenTheGoneThenTheSilent) {
  start();
  const auto owner_of_10 = [](const char* own) {
    return an_ap().mac(own).with_radio(a_radio().channel(1).pool(16, 16));
  };
  insert(unanswered_aps(), an_ap().mac("00:11:22:00:00:10"));
  publish();
  EXPECT_EQ(found("00:11:22:00:00:10"), "unanswered-ap 00:11:22:00:00:10");
  insert(deleted_aps(), owner_of_10("00:11:22:00:00:00"));
  EXPECT_EQ(found("00:11:22:00:00:10"), "deleted-ap 00:11:22:00:00:00");
  insert(aps(), owner_of_10("00:11:22:00:00:00"));
  EXPECT_EQ(found("00:11:22:00:00:10"), "active-ap 00:11:22:00:00:00");
  insert(aps(), an_ap().mac("00:11:22:00:00:10"));
  EXPECT_EQ(found("00:11:22:00:00:10"), "active-ap 00:11:22:00:00:10") << "its own address before a radio's";
}

TEST_F(Queries, AnAddressThatDoesNotScanIsAllZero) {
  start();
  publish();
  const char* const bad[] = {R"("")", R"("lab")", R"("00:11:22:33:44")", R"("00-11-22-33-44-00")", "7", "null", "{}"};
  for (const char* address : bad)
    EXPECT_EQ(ask(std::string(R"("ap":)") + address), R"({"error":"ap not found"})") << address;
  insert(aps(), an_ap().mac("00:00:00:00:00:00"));
  for (const char* address : bad) {
    EXPECT_NE(ask(std::string(R"("ap":)") + address).find("active-ap"), std::string::npos) << address;
  }
}

TEST_F(Queries, TheAccessPointIsAskedForBeforeAnythingElse) {
  start_with({ap1});
  publish();
  to_mode_requests();
  EXPECT_EQ(ask_ap(ap1, R"(,"start_optimization":"true")"), ask_ap(ap1));
}

// Optimisation

class OptimizationRequest : public Queries {
 protected:
  const std::string success = R"({"status":"success"})";
  const std::string failure = R"({"status":"failure"})";
  std::string request() { return ask(R"("start_optimization":"true")"); }
};

TEST_F(OptimizationRequest, IsAcceptedAtRest) {
  start();
  publish();
  ASSERT_EQ(rrm_status(), 0);
  EXPECT_EQ(request(), success);
  EXPECT_EQ(rrm_status(), 4);
  EXPECT_LINES(told(), ({"TRACE Force optimization from api dmain lab",
                         "TRACE Planning domain lab update 4 after 20 sec", "EVENT 23 lab", status_event(4)}));
}

TEST_F(OptimizationRequest, OvertakesTheDailyOne) {
  settings.use_optimization_time = true;
  settings.optimization_time_seconds = 3600;
  settings.use_optimization_event = false;
  start_with({ap1});
  publish();
  ASSERT_EQ(rrm_status(), 1);
  EXPECT_EQ(request(), success);
  EXPECT_EQ(rrm_status(), 4);
}

TEST_F(OptimizationRequest, FindsOnePlannedAlready) {
  start_with({ap1});
  publish();
  advance(5);
  told();
  ASSERT_EQ(rrm_status(), 4);
  EXPECT_EQ(request(), success);
  EXPECT_LINES(told(), ({"TRACE Force optimization already planned domain lab"}));
  advance(15);
  EXPECT_EQ(rrm_status(), 2) << "the first delay holds";
}

TEST_F(OptimizationRequest, IsRefusedWhileAccessPointsAreAsked) {
  start_with({ap1});
  publish();
  to_mode_requests();
  EXPECT_EQ(request(), failure);
  EXPECT_LINES(told(), ({"TRACE NOT Planning optimization domain lab status 2"}));
  answer_mode(1, ap1);
  to_scan();
  EXPECT_EQ(request(), failure);
  EXPECT_LINES(told(), ({"TRACE NOT Planning optimization domain lab status 3"}));
}

TEST_F(OptimizationRequest, WaitsForTheOneThatIsComputed) {
  Gate go;
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) {
    go.wait();
    return OptimizationResult{};
  };
  start_with({ap1});
  publish();
  to_computing({{1, ap1}});
  EXPECT_EQ(request(), success);
  EXPECT_LINES(told(), ({"TRACE Force optimization from api queued while COMPUTING domain lab"}));
  EXPECT_EQ(rrm_status(), 5);
  go.open();
  finish_computing();
  EXPECT_EQ(rrm_status(), 4) << "the next one is planned";
}

TEST_F(OptimizationRequest, OnlyTheTextTrueForcesOne) {
  start();
  publish();
  for (const char* value :
       {R"("yes")", R"("True")", R"("TRUE")", R"("true ")", R"("")", "true", "1", R"("1")", "null", "{}"}) {
    EXPECT_EQ(ask(std::string(R"("start_optimization":)") + value), failure) << value;
  }
  EXPECT_EQ(rrm_status(), 0);
  EXPECT_THAT(told(), IsEmpty());
}

}  // namespace
}  // namespace rrm::testing
