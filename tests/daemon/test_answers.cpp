// The controller's questions about locations, sessions, access points and reports: each answer to the letter, each
// reason for having none, and what was asked of the server for it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "daemon/scripted_api.h"
#include "platform/standalone/BoardTable.h"
#include "reports/report_texts.h"
#include "server/server_support.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/messages.h"
#include "support/temp_dir.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::testing::Platform;

const char* const ap1 = "a8:f9:4b:00:11:00";
const char* const ap2 = "a8:f9:4b:00:22:00";
const char* const ap3 = "a8:f9:4b:00:33:00";

const char* const sessions_command = R"({"rrm":{"sessions":"1"}})";
const char* const domains_command = R"({"rrm":{}})";
const char* const lab_command = R"({"rrm":{"domain":"lab"}})";
const char* const optimize_command = R"({"rrm":{"domain":"lab","start_optimization":"true"}})";
const char* const configured_command = R"({"cfg":{"operation":"get","level":"domain"}})";
const char* const role_command = R"({"vrrp":{}})";
const char* const last_report_command = R"({"rrm":{"domain":"lab","last_report":"lab"}})";

const std::string failure = "failure from morvane api";
const std::string malformed_answer = "malformed answer from morvane api";

std::string ap_command(const std::string& mac) {
  return R"({"rrm":{"domain":"lab","ap":")" + mac + "\"}}";
}

class DaemonAnswers : public zal::testing::ScriptedApiTest {
 protected:
  using Question = std::function<bool(ApiZAL& api, std::string& answer, std::string& error)>;

  static Question common() {
    return [](ApiZAL& api, auto& answer, auto& error) { return api.morvane_common(answer, error); };
  }
  static Question sessions(const std::optional<std::string>& location = std::nullopt) {
    return [=](ApiZAL& api, auto& answer, auto& error) { return api.morvane_sessions(location, answer, error); };
  }
  static Question clear_sessions(const std::optional<std::string>& ap = std::nullopt) {
    return [=](ApiZAL& api, auto& answer, auto& error) {
      return api.morvane_clear_sessions(ap ? std::optional(mac(*ap)) : std::nullopt, answer, error);
    };
  }
  static Question rrm_stat(const std::string& location = "lab") {
    return [=](ApiZAL& api, auto& answer, auto& error) { return api.morvane_rrm_stat(location, answer, error); };
  }
  static Question roaming_stat(const std::optional<std::string>& ap = std::nullopt,
                               const std::optional<std::string>& band = std::nullopt) {
    return [=](ApiZAL& api, auto& answer, auto& error) {
      return api.morvane_roaming_stat("lab", ap ? std::optional(mac(*ap)) : std::nullopt, band, answer, error);
    };
  }
  static Question ap(const std::string& address = ap1) {
    return [=](ApiZAL& api, auto& answer, auto& error) { return api.morvane_ap(mac(address), answer, error); };
  }
  static Question optimize() {
    return [](ApiZAL& api, auto& answer, auto& error) { return api.morvane_optimize("lab", answer, error); };
  }
  static Question report(const std::optional<std::string>& band = std::nullopt,
                         const std::optional<std::uint32_t>& days = std::nullopt) {
    return [=](ApiZAL& api, auto& answer, auto& error) { return api.morvane_report("lab", band, days, answer, error); };
  }

  // The answer, or "failed: " and the reason.
  std::string ask(const Question& question) { return ask(api_, question); }
  static std::string ask(ApiZAL& api, const Question& question) {
    std::string answer;
    std::string error;
    const bool done = question(api, answer, error);
    EXPECT_EQ(done ? error : answer, "") << "only one of the two is told";
    return done ? answer : "failed: " + error;
  }

  // The question fails with these reasons when the server answers this command of it badly.
  void expect_reasons(const Question& question, const std::string& command, const std::string& no_answer,
                      bool can_be_malformed) {
    SCOPED_TRACE(command);
    api_.give_no_answer(command);
    EXPECT_EQ(ask(question), "failed: " + no_answer);
    for (const auto& [name, text] : failures()) {
      api_.answer(command, *text);
      EXPECT_EQ(ask(question), "failed: " + failure) << name;
    }
    if (!can_be_malformed) return;
    for (const auto& [name, text] : malformed()) {
      api_.answer(command, *text);
      EXPECT_EQ(ask(question), "failed: " + malformed_answer) << name;
    }
  }
};

// Every question

TEST_F(DaemonAnswers, WithoutAServerEveryQuestionFailsPolitely) {
  know(ap1, "10.0.0.1", "lab");
  ApiZAL api(nullptr, storage_);
  const std::string no_answer = "failed: no answer on morvane api request for ";
  EXPECT_EQ(ask(api, common()), no_answer + "domains");
  EXPECT_EQ(ask(api, sessions()), no_answer + "sessions");
  EXPECT_EQ(ask(api, clear_sessions()), no_answer + "sessions");
  EXPECT_EQ(ask(api, rrm_stat()), no_answer + "configured ap-locations");
  EXPECT_EQ(ask(api, roaming_stat()), no_answer + "domains");
  EXPECT_EQ(ask(api, ap()), no_answer + "specific ap 'a8:f9:4b:00:11:00'");
  EXPECT_EQ(ask(api, optimize()), no_answer + "specific location 'lab'");
  EXPECT_EQ(ask(api, report()), no_answer + "last report");
  EXPECT_EQ(ask(api, report(std::nullopt, 1)), no_answer + "report list");
  std::int32_t role = 3;
  std::string error;
  EXPECT_FALSE(api.morvane_role(role, error));
  EXPECT_EQ(error, "no answer on morvane api request for vrrp role");
  EXPECT_EQ(role, 3);
}

TEST_F(DaemonAnswers, EachQuestionIsLogged) {
  ApiZAL api(nullptr, storage_);
  const std::vector<std::pair<Question, const char*>> cases{
      {common(), "ap: Morvane HL-API: get_common"},
      {sessions("lab"), "ap: Morvane HL-API: get_sessions: location: lab"},
      {sessions(), "ap: Morvane HL-API: get_sessions: location: <no location given>"},
      {clear_sessions("A8F94B001100"), "ap: Morvane HL-API: rem_sessions: mac: a8:f9:4b:00:11:00"},
      {clear_sessions(), "ap: Morvane HL-API: rem_sessions: mac: <no mac given>"},
      {rrm_stat(), "ap: Morvane HL-API: rrm_stat: location: lab"},
      {roaming_stat(ap1, "5g"), "ap: Morvane HL-API: roaming_stat: location: lab, mac: a8:f9:4b:00:11:00, band: 5g"},
      {roaming_stat(), "ap: Morvane HL-API: roaming_stat: location: lab, mac: <no mac>, band: <no band>"},
      {ap(), "ap: Morvane HL-API: ap: mac: a8:f9:4b:00:11:00"},
      {optimize(), "ap: Morvane HL-API: optimize: location: lab"},
      {report("6g", 3), "ap: Morvane HL-API: report: location: lab, band 6g, days 3(<value>)"},
      {report(), "ap: Morvane HL-API: report: location: lab, band <no band>, days 0(<default>)"},
  };
  for (const auto& [question, line] : cases) {
    Platform::instance().clear();
    ask(api, question);
    ASSERT_FALSE(Platform::instance().notes().empty());
    EXPECT_EQ(Platform::instance().notes().front(), line);
  }
}

// All locations

TEST_F(DaemonAnswers, TheLocationsAreCountedOnBothSides) {
  know(ap1, "10.0.0.1", "lab");
  know(ap2, "10.0.0.2", "lab");
  know(ap3, "10.0.0.3", "attic");
  know("a8f94b004400", "0.0.0.0", "lab");
  know("a8f94b005500", "", "lab");
  know("a8f94b006600", "unknown", "lab");
  know_record("a8f94b007700", R"({"location":"lab"})");
  know_record("a8f94b008800", R"({"ip":"10.0.0.8"})");
  api_.answer(domains_command, R"({"domains":[{"name":"yard","ap-count":1,"unanswered-ap-count":0},)"
                               R"({"ap-count":9},{"name":"","ap-count":9},7,)"
                               R"({"name":"lab","ap-count":4,"unanswered-ap-count":3,"deleted-ap-count":50},)"
                               R"({"name":"bare"}]})");
  EXPECT_EQ(ask(common()), R"({"array":[{"ap-location":"attic","ap-morvane":0,"ap-count":1},)"
                           R"({"ap-location":"bare","ap-morvane":0,"ap-count":0},)"
                           R"({"ap-location":"lab","ap-morvane":7,"ap-count":2},)"
                           R"({"ap-location":"yard","ap-morvane":1,"ap-count":0}]})");
}

TEST_F(DaemonAnswers, WithoutAnyLocationTheListIsEmpty) {
  api_.answer(domains_command, R"({"domains":[]})");
  EXPECT_EQ(ask(common()), R"({"array":[]})");
}

TEST_F(DaemonAnswers, TheLocationsNeedTheDomains) {
  expect_reasons(common(), domains_command, "no answer on morvane api request for domains", true);
}

// Sessions

TEST_F(DaemonAnswers, TheSessionsAreThoseOfKnownAccessPointsByLocationAndAddress) {
  know(ap3, "10.0.0.3", "attic", "NVA-2");
  know(ap2, "10.0.0.2", "lab");
  know(ap1, "10.0.0.1", "lab");
  know("a8f94b004400", "0.0.0.0", "lab");
  know("a8f94b005500", "10.0.0.5", "lab");
  know_record("a8f94b006600", R"({"ip":"10.0.0.6"})");
  api_.answer(sessions_command, R"({"websock-sessions":[{"id":7,"peer":"10.0.0.1"},{"id":4,"peer":"10.0.0.2"},)"
                                R"({"id":5,"peer":"10.0.0.3"},{"id":6,"peer":"0.0.0.0"},{"id":8,"peer":"10.0.0.9"},)"
                                R"({"id":9,"peer":"10.0.0.6"},{"id":10}]})");
  const std::string in_attic = R"({"ap-mac":"a8:f9:4b:00:33:00","ap-ip":"10.0.0.3","session-id":5,)"
                               R"("ap-board-type":"NVA-2","ap-location":"attic"})";
  const std::string in_lab = R"({"ap-mac":"a8:f9:4b:00:11:00","ap-ip":"10.0.0.1","session-id":7,)"
                             R"("ap-board-type":"NVA-3wz","ap-location":"lab"},)"
                             R"({"ap-mac":"a8:f9:4b:00:22:00","ap-ip":"10.0.0.2","session-id":4,)"
                             R"("ap-board-type":"NVA-3wz","ap-location":"lab"})";
  const std::string nowhere = R"({"ap-mac":"a8:f9:4b:00:66:00","ap-ip":"10.0.0.6","session-id":9,)"
                              R"("ap-board-type":"","ap-location":""})";
  EXPECT_EQ(ask(sessions()), R"({"array":[)" + nowhere + "," + in_attic + "," + in_lab + "]}");
  EXPECT_EQ(ask(sessions("lab")), R"({"array":[)" + in_lab + "]}");
  EXPECT_EQ(ask(sessions("attic")), R"({"array":[)" + in_attic + "]}");
  EXPECT_EQ(ask(sessions("cellar")), R"({"array":[]})");
}

// Its session is one all the same; but there is no location that it could count for.
TEST_F(DaemonAnswers, AnAccessPointWithoutALocationIsListedAndNotCounted) {
  know_record(ap1, R"({"ip":"10.0.0.1","board-type":"NVA-2"})");
  api_.answer(sessions_command, R"({"websock-sessions":[{"id":7,"peer":"10.0.0.1"}]})");
  api_.answer(domains_command, R"({"domains":[]})");
  const std::string listed = R"({"array":[{"ap-mac":"a8:f9:4b:00:11:00","ap-ip":"10.0.0.1","session-id":7,)"
                             R"("ap-board-type":"NVA-2","ap-location":""}]})";
  EXPECT_EQ(ask(sessions()), listed);
  EXPECT_EQ(ask(sessions("")), listed);
  EXPECT_EQ(ask(sessions("lab")), R"({"array":[]})");
  EXPECT_EQ(ask(common()), R"({"array":[]})");
  know(ap1, "10.0.0.1", "", "NVA-2");
  EXPECT_EQ(ask(sessions()), listed);
  EXPECT_EQ(ask(common()), R"({"array":[{"ap-location":"","ap-morvane":0,"ap-count":1}]})")
      << "a location may have an empty name";
}

TEST_F(DaemonAnswers, APeerOfSeveralSessionsCountsWithItsYoungest) {
  know(ap1, "10.0.0.1", "lab");
  for (const char* list : {R"([{"id":3,"peer":"10.0.0.1"},{"id":9,"peer":"10.0.0.1"},{"id":5,"peer":"10.0.0.1"}])",
                           R"([{"id":9,"peer":"10.0.0.1"},{"id":3,"peer":"10.0.0.1"}])"}) {
    api_.answer(sessions_command, R"({"websock-sessions":)" + std::string(list) + "}");
    EXPECT_EQ(ask(sessions()), R"({"array":[{"ap-mac":"a8:f9:4b:00:11:00","ap-ip":"10.0.0.1","session-id":9,)"
                               R"("ap-board-type":"NVA-3wz","ap-location":"lab"}]})");
  }
}

TEST_F(DaemonAnswers, TheSessionsOfAThousandAccessPointsAreTold) {
  std::string list;
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    char address[18];
    std::snprintf(address, sizeof address, "a8:f9:4b:01:%02x:%02x", (static_cast<unsigned>(i) / 256) & 0xFF,
                  static_cast<unsigned>(i) & 0xFF);
    const std::string ip = "10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
    const std::string comma = i == 0 ? "" : ",";
    know(address, ip, "lab");
    list += comma + R"({"id":)" + std::to_string(i) + R"(,"peer":")" + ip + "\"}";
    expected += comma + R"({"ap-mac":")" + address + R"(","ap-ip":")" + ip + R"(","session-id":)" + std::to_string(i) +
                R"(,"ap-board-type":"NVA-3wz","ap-location":"lab"})";
  }
  api_.answer(sessions_command, R"({"websock-sessions":[)" + list + "]}");
  EXPECT_EQ(ask(sessions()), R"({"array":[)" + expected + "]}") << "in the order of the addresses";
}

TEST_F(DaemonAnswers, TheSessionsNeedTheServersList) {
  for (const Question& question : {sessions(), clear_sessions(), clear_sessions(ap1)}) {
    expect_reasons(question, sessions_command, "no answer on morvane api request for sessions", true);
  }
}

TEST_F(DaemonAnswers, AllSessionsAreCleared) {
  api_.answer(sessions_command, R"({"websock-sessions":[{"id":7,"peer":"10.0.0.1"},{"id":4,"peer":"10.0.0.2"}]})");
  api_.answer(R"({"rrm":{"drop_session":"true","ids":[7,4]}})", "{}");
  EXPECT_EQ(ask(clear_sessions()), "");
  EXPECT_THAT(api_.asked, ElementsAre(sessions_command, R"({"rrm":{"drop_session":"true","ids":[7,4]}})"));
}

TEST_F(DaemonAnswers, WithoutAnySessionNothingIsSentAndAllIsWell) {
  api_.answer(sessions_command, R"({"websock-sessions":[]})");
  EXPECT_EQ(ask(clear_sessions()), "");
  EXPECT_THAT(api_.asked, ElementsAre(sessions_command));
}

TEST_F(DaemonAnswers, TheSessionOfOneAccessPointIsCleared) {
  know(ap1, "10.0.0.1", "lab");
  know(ap2, "10.0.0.2", "lab");
  api_.answer(sessions_command, R"({"websock-sessions":[{"id":7,"peer":"10.0.0.1"},{"id":4,"peer":"10.0.0.2"}]})");
  api_.answer(R"({"rrm":{"drop_session":"true","ids":[4]}})", "{}");
  EXPECT_EQ(ask(clear_sessions(ap2)), "");
  EXPECT_THAT(api_.asked, ElementsAre(sessions_command, R"({"rrm":{"drop_session":"true","ids":[4]}})"));
}

TEST_F(DaemonAnswers, AnAccessPointWithoutASessionHasNoneToClear) {
  know(ap1, "10.0.0.1", "lab");
  know_record(ap2, R"({"location":"lab"})");
  api_.answer(sessions_command, R"({"websock-sessions":[{"id":4,"peer":"10.0.0.9"},{"id":5,"peer":""},{"id":6}]})");
  const std::string none = "failed: there is no session for given mac: ";
  EXPECT_EQ(ask(clear_sessions(ap1)), none + ap1) << "another address";
  EXPECT_EQ(ask(clear_sessions(ap2)), none + ap2) << "no address";
  EXPECT_EQ(ask(clear_sessions(ap3)), none + ap3) << "unknown to the controller";
  EXPECT_THAT(api_.asked, ElementsAre(sessions_command, sessions_command, sessions_command));
}

TEST_F(DaemonAnswers, AnOrderToClearSessionsHasToBeAnswered) {
  api_.answer(sessions_command, R"({"websock-sessions":[{"id":7,"peer":"10.0.0.1"}]})");
  api_.give_no_answer(R"({"rrm":{"drop_session":"true","ids":[7]}})");
  EXPECT_EQ(ask(clear_sessions()), "failed: no answer on morvane api request for clear sessions");
}

// One access point

// A radio as the server tells it. Its address ends in its id.
std::string radio(int id, const std::string& more = "", const std::string& vaps = "[]", int status = 1) {
  return R"({"id":)" + std::to_string(id) + R"(,"mac":"A8:F9:4B:00:11:0)" + std::to_string(id) +
         R"(","mac-offset":0,"status":)" + std::to_string(status) +
         R"(,"power-changed":2,"conflicted":1,"locked-tpc":3,"locked-dca":4,"locked-balancer":5,"locked-80211v":6,)"
         R"("channel":36,"band":5,"power":17,"max-power":20,"min-power":5,"bandwidth":40,"primary-channel":1,)" +
         more + R"("available-channels":[36,40],"vaps":)" + vaps +
         R"(,"assoc_clients":[{"mac":"00:00:00:00:00:01"},{"mac":"00:00:00:00:00:02"}]})";
}
const char* const eirp = R"("eirp-min":8,"eirp-max":23,"eirp":21,)";

std::string ap_answer(const std::string& set, const std::string& radios) {
  return R"({"version":"2.1",")" + set + R"(":{"mac":"A8:F9:4B:00:11:00","radios":{"received":1,"interfaces":[)" +
         radios + "]}}}";
}

// How an access point's answer tells such a radio, up to its channels.
std::string radio_entry(int id, const std::string& status = "Up", const std::string& more = "") {
  return R"({"radio-mac":"a8:f9:4b:00:11:0)" + std::to_string(id) + R"(","status":")" + status +
         R"(","power-changed":2,"conflicted":1,"locked-tpc":3,"locked-dca":4,"locked-balancer":5,"locked-80211v":6,)"
         R"("channel":36,"power":17,"max-power":20,"min-power":5,"bandwidth":40,"primary-channel":1,)" +
         more + R"("available-channels":[36,40],"ssids":)";
}

TEST_F(DaemonAnswers, AnAccessPointIsToldRadioByRadio) {
  know(ap1, "10.0.0.1", "lab");
  const std::string vaps =
      R"([{"id":0,"ssid":"office","mac":"A8:F9:4B:00:11:10","mobility-domain":1,"use_802dot11k":1,"use_802dot11r":1,)"
      R"("use_802dot11v":0,"fbt-links":["A8:F9:4B:00:33:10","A8:F9:4B:00:22:10","a8:f9:4b:00:33:10"]},)"
      R"({"id":1,"ssid":"gu\"est","mac":"A8:F9:4B:00:11:11","use_802dot11k":0,"use_802dot11r":0,"use_802dot11v":1}])";
  api_.answer(ap_command(ap1), ap_answer("active-ap", radio(1, eirp, vaps) + "," + radio(0, "", "[]", 0)));
  EXPECT_EQ(
      ask(ap()),
      R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","2g":)" + radio_entry(0, "Down") + R"([]},"5g":)" +
          radio_entry(1, "Up", R"("eirp":21,"eirp-max":23,"eirp-min":8,)") +
          R"([{"vap-mac":"a8:f9:4b:00:11:10","ssid":"office","80211k":"Enable","80211r":"Enable","80211v":"Disable",)"
          R"("fbt-links":["a8:f9:4b:00:22:10","a8:f9:4b:00:33:10"]},)"
          R"({"vap-mac":"a8:f9:4b:00:11:11","ssid":"gu\"est","80211k":"Disable","80211r":"Disable",)"
          R"("80211v":"Enable","fbt-links":[]}]}})");
}

TEST_F(DaemonAnswers, EachOfTheEirpValuesIsToldIfItWasGiven) {
  know(ap1, "10.0.0.1", "lab");
  api_.answer(ap_command(ap1), ap_answer("active-ap", radio(2, R"("eirp-max":0,)")));
  EXPECT_EQ(ask(ap()), R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","6g":)" +
                           radio_entry(2, "Up", R"("eirp-max":0,)") + "[]}}");
}

TEST_F(DaemonAnswers, AnAccessPointThatDoesNotAnswerIsToldAllTheSame) {
  know(ap1, "10.0.0.1", "lab");
  api_.answer(ap_command(ap1), ap_answer("unanswered-ap", radio(1)));
  EXPECT_EQ(ask(ap()), R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","5g":)" + radio_entry(1) + "[]}}");
}

TEST_F(DaemonAnswers, AnAccessPointThatIsGoneIsNotFound) {
  know(ap1, "10.0.0.1", "lab");
  api_.answer(ap_command(ap1), ap_answer("deleted-ap", radio(1)));
  EXPECT_EQ(ask(ap()), "failed: ap not found");
}

TEST_F(DaemonAnswers, OfTwoRadiosOfABandTheFirstStays) {
  know(ap1, "10.0.0.1", "lab");
  std::string second = radio(1);
  second.replace(second.find("A8:F9:4B:00:11:01"), 17, "A8:F9:4B:00:11:0F");
  api_.answer(ap_command(ap1), ap_answer("active-ap", radio(1) + "," + second));
  EXPECT_EQ(ask(ap()), R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","5g":)" + radio_entry(1) + "[]}}");
}

TEST_F(DaemonAnswers, AnAccessPointWithoutALocationOfItsOwnIsNotAskedFor) {
  know_record(ap1, R"({"ip":"10.0.0.1"})");
  EXPECT_EQ(ask(ap(ap1)), "failed: can`t find given mac 'a8:f9:4b:00:11:00' in local info");
  EXPECT_EQ(ask(ap(ap2)), "failed: can`t find given mac 'a8:f9:4b:00:22:00' in local info");
  EXPECT_THAT(api_.asked, IsEmpty());
}

TEST_F(DaemonAnswers, AnAccessPointWithoutRadiosHasNoData) {
  know(ap1, "10.0.0.1", "lab");
  for (const char* text : {R"({"active-ap":{"radios":{"interfaces":[]}}})", R"({"active-ap":{"radios":{}}})",
                           R"({"active-ap":{"radios":{"interfaces":null}}})", R"({"active-ap":{}})",
                           R"({"active-ap":null})", "{}", "nonsense", "", "[]"}) {
    api_.answer(ap_command(ap1), text);
    EXPECT_EQ(ask(ap()), "failed: empty data") << text;
  }
}

TEST_F(DaemonAnswers, ARadioNeedsItsChannelsAndItsVaps) {
  know(ap1, "10.0.0.1", "lab");
  for (const char* interface :
       {R"({"id":1,"vaps":[]})", R"({"id":1,"available-channels":[]})",
        R"({"id":1,"available-channels":null,"vaps":[]})", R"({"id":1,"available-channels":[36],"vaps":null})", "{}"}) {
    api_.answer(ap_command(ap1), ap_answer("active-ap", interface));
    EXPECT_EQ(ask(ap()), "failed: " + malformed_answer) << interface;
  }
  api_.answer(ap_command(ap1), ap_answer("active-ap", R"({"id":1,"available-channels":[],"vaps":[]})"));
  EXPECT_EQ(ask(ap()),
            R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","5g":{"radio-mac":"00:00:00:00:00:00",)"
            R"("status":"Down","power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,)"
            R"("locked-80211v":0,"channel":0,"power":0,"max-power":0,"min-power":0,"bandwidth":0,"primary-channel":0,)"
            R"("available-channels":[],"ssids":[]}})")
      << "all else may be missing";
}

TEST_F(DaemonAnswers, ARadioThatTheBoardDoesNotHaveIsNoRadio) {
  know(ap1, "10.0.0.1", "lab");
  for (const int id : {3, -1}) {
    std::string interface = radio(1);
    interface.replace(interface.find(R"("id":1)"), 6, R"("id":)" + std::to_string(id));
    api_.answer(ap_command(ap1), ap_answer("active-ap", interface));
    EXPECT_EQ(ask(ap()), "failed: Cannot get radio by id '" + std::to_string(id) + "' for AP 'a8:f9:4b:00:11:00'");
  }
}

TEST_F(DaemonAnswers, AnAccessPointNeedsTheServersAnswer) {
  know(ap1, "10.0.0.1", "lab");
  expect_reasons(ap(), ap_command(ap1), "no answer on morvane api request for specific ap 'a8:f9:4b:00:11:00'", false);
}

// The radios of a location

class DaemonStatistics : public DaemonAnswers {
 protected:
  DaemonStatistics() {
    know(ap1, "10.0.0.1", "lab");
    know(ap2, "10.0.0.2", "lab");
    api_.answer(configured_command, R"({"domains":[{"name":"hall"},{"name":"lab"}]})");
    api_.answer(domains_command, R"({"domains":[{"name":"lab","ap-count":2}]})");
    answer_lab(R"([{"mac":"A8:F9:4B:00:11:00"},{"mac":"A8:F9:4B:00:22:00"}])");
    api_.answer(ap_command(ap1), ap_answer("active-ap", radio(1, eirp) + "," + radio(0)));
    api_.answer(ap_command(ap2), ap_answer("unanswered-ap", radio(1, "", "[]", 0)));
  }
  void answer_lab(const std::string& aps) {
    api_.answer(lab_command, R"({"details":{"name":"lab","aps":)" + aps + "}}");
  }
};

TEST_F(DaemonStatistics, TheRadiosOfALocationAreToldByBand) {
  const std::string middle =
      R"("locked-dca":4,"locked-tpc":3,"locked-balancer":5,"locked-80211v":6,"channel":36,"power":17,)"
      R"("bandwidth":40,"assoc-clients":2,)";
  const std::string end = R"("available-channels":[36,40]})";
  EXPECT_EQ(ask(rrm_stat()),
            R"({"2g":[{"ap-mac":"a8:f9:4b:00:11:00","radio-mac":"a8:f9:4b:00:11:00","status":"Up",)" + middle + end +
                R"(],"5g":[{"ap-mac":"a8:f9:4b:00:11:00","radio-mac":"a8:f9:4b:00:11:01","status":"Up",)" + middle +
                R"("eirp":21,)" + end +
                R"(,{"ap-mac":"a8:f9:4b:00:22:00","radio-mac":"a8:f9:4b:00:11:01","status":"Down",)" + middle + end +
                "]}");
  EXPECT_THAT(api_.asked,
              ElementsAre(configured_command, domains_command, lab_command, ap_command(ap1), ap_command(ap2)));
}

TEST_F(DaemonStatistics, ALocationThatIsNotConfiguredIsNotEnabled) {
  EXPECT_EQ(ask(rrm_stat("cellar")), "failed: morvane is not enabled for ap-location 'cellar'");
  EXPECT_THAT(api_.asked, ElementsAre(configured_command));
}

TEST_F(DaemonStatistics, AConfiguredLocationWithoutAConnectionIsEmpty) {
  EXPECT_EQ(ask(rrm_stat("hall")), "failed: ap-location 'hall' is empty");
}

TEST_F(DaemonStatistics, ALocationMayHaveNoActiveAccessPoints) {
  for (const char* aps : {"[]", "null", "{}", "7"}) {
    answer_lab(aps);
    EXPECT_EQ(ask(rrm_stat()), "failed: ap-location 'lab' currently has no active APs") << aps;
  }
}

TEST_F(DaemonStatistics, AccessPointsWithoutRadiosGiveNoData) {
  for (const char* mac : {ap1, ap2}) api_.answer(ap_command(mac), ap_answer("active-ap", ""));
  EXPECT_EQ(ask(rrm_stat()), "failed: empty data");
}

TEST_F(DaemonStatistics, AnAccessPointThatGoesMeanwhileEndsTheAnswer) {
  api_.answer(ap_command(ap2), ap_answer("deleted-ap", radio(1)));
  EXPECT_EQ(ask(rrm_stat()), "failed: ap not found");
}

TEST_F(DaemonStatistics, AnAccessPointUnknownToTheControllerHasNoBands) {
  storage_.clear();
  EXPECT_EQ(ask(rrm_stat()), "failed: Cannot get radio by id '1' for AP 'a8:f9:4b:00:11:00'");
}

TEST_F(DaemonStatistics, OneAccessPointUnknownToTheControllerEndsTheAnswer) {
  know_record(ap2, "{}");
  EXPECT_EQ(ask(rrm_stat()), "failed: Cannot get radio by id '1' for AP 'a8:f9:4b:00:22:00'");
}

TEST_F(DaemonStatistics, EachOfTheServersAnswersIsNeeded) {
  const std::string no_answer = "no answer on morvane api request for ";
  expect_reasons(rrm_stat(), ap_command(ap2), no_answer + "specific ap 'a8:f9:4b:00:22:00'", false);
  expect_reasons(rrm_stat(), lab_command, no_answer + "specific location 'lab'", true);
  expect_reasons(rrm_stat(), domains_command, no_answer + "domains", true);
  expect_reasons(rrm_stat(), configured_command, no_answer + "configured ap-locations", true);
}

// Optimisation

TEST_F(DaemonAnswers, AnOptimisationStartsUnlessOneRuns) {
  api_.answer(optimize_command, R"({"status":"success"})");
  for (const auto& [status, starts] :
       std::vector<std::pair<int, bool>>{{0, true}, {1, true}, {2, false}, {3, false}, {4, false}, {5, true}}) {
    SCOPED_TRACE(status);
    api_.asked.clear();
    api_.answer(lab_command, R"({"details":{"rrm-status":)" + std::to_string(status) + "}}");
    EXPECT_EQ(ask(optimize()), starts ? "" : "failed: optimization already started");
    if (starts) {
      EXPECT_THAT(api_.asked, ElementsAre(lab_command, optimize_command));
    } else {
      EXPECT_THAT(api_.asked, ElementsAre(lab_command));
    }
  }
}

TEST_F(DaemonAnswers, AnOptimisationNeedsBothOfTheServersAnswers) {
  expect_reasons(optimize(), lab_command, "no answer on morvane api request for specific location 'lab'", true);
  api_.answer(lab_command, R"({"details":{"rrm-status":0}})");
  expect_reasons(optimize(), optimize_command, "no answer on morvane api request for optimization", false);
}

// Roaming

class DaemonRoaming : public DaemonAnswers {
 protected:
  DaemonRoaming() {
    know(ap1, "10.0.0.1", "lab");
    know(ap2, "10.0.0.2", "lab");
    know(ap3, "10.0.0.3", "attic");
    api_.answer(domains_command, R"({"domains":[{"name":"lab","ap-count":2}]})");
    api_.answer(
        lab_command,
        R"({"details":{"aps":[{"mac":"A8:F9:4B:00:22:00","radios":[{"id":1,"vaps":[)"
        R"({"id":1,"ssid":"b","mac":"A8:F9:4B:00:22:10","use_802dot11k":1,"use_802dot11r":0,"use_802dot11v":1},)"
        R"({"id":0,"ssid":"a","mac":"A8:F9:4B:00:22:10","use_802dot11k":0,"use_802dot11r":1,"use_802dot11v":0,)"
        R"("fbt-links":[{"remote-r1-kh-id":"x"},{"remote-r1-kh-id":"y"}]}]},{"id":2,"vaps":[]}]},)"
        R"({"mac":"A8:F9:4B:00:11:00","radios":[{"id":0,"vaps":[{"id":0,"ssid":"a","mac":"A8:F9:4B:00:11:00"}]},)"
        R"({"id":1,"vaps":[{"id":0,"ssid":"a","mac":"A8:F9:4B:00:11:10","use_802dot11k":1}]}]}]}})");
  }
  const std::string on_2g = R"({"ap-mac":"a8:f9:4b:00:11:00","vap-mac":"a8:f9:4b:00:11:00","ssid":"a",)"
                            R"("80211k-enable":0,"80211r-enable":0,"80211v-enable":0,"fbt-links":0})";
  const std::string first_on_5g = R"({"ap-mac":"a8:f9:4b:00:11:00","vap-mac":"a8:f9:4b:00:11:10","ssid":"a",)"
                                  R"("80211k-enable":1,"80211r-enable":0,"80211v-enable":0,"fbt-links":0})";
  const std::string second_ap_on_5g =
      R"({"ap-mac":"a8:f9:4b:00:22:00","vap-mac":"a8:f9:4b:00:22:10","ssid":"a","80211k-enable":0,)"
      R"("80211r-enable":1,"80211v-enable":0,"fbt-links":2},)"
      R"({"ap-mac":"a8:f9:4b:00:22:00","vap-mac":"a8:f9:4b:00:22:10","ssid":"b","80211k-enable":1,)"
      R"("80211r-enable":0,"80211v-enable":1,"fbt-links":0})";
  const std::string nothing = R"({"2g":[],"5g":[],"6g":[]})";
};

TEST_F(DaemonRoaming, TheVapsOfALocationAreToldByBandAddressAndId) {
  EXPECT_EQ(ask(roaming_stat()),
            R"({"2g":[)" + on_2g + R"(],"5g":[)" + first_on_5g + "," + second_ap_on_5g + R"(],"6g":[]})");
  EXPECT_THAT(api_.asked, ElementsAre(domains_command, lab_command));
}

TEST_F(DaemonRoaming, OneAccessPointAndOneBandMayBeAskedFor) {
  EXPECT_EQ(ask(roaming_stat("A8F94B001100")), R"({"2g":[)" + on_2g + R"(],"5g":[)" + first_on_5g + R"(],"6g":[]})");
  EXPECT_EQ(ask(roaming_stat(std::nullopt, "2g")), R"({"2g":[)" + on_2g + R"(],"5g":[],"6g":[]})");
  EXPECT_EQ(ask(roaming_stat(ap2, "5g")), R"({"2g":[],"5g":[)" + second_ap_on_5g + R"(],"6g":[]})");
  EXPECT_EQ(ask(roaming_stat(ap2, "6g")), nothing);
  EXPECT_EQ(ask(roaming_stat(ap3)), nothing) << "it is in another location";
}

TEST_F(DaemonRoaming, AnUnknownAddressIsRefusedBeforeTheServerIsAsked) {
  EXPECT_EQ(ask(roaming_stat("a8:f9:4b:00:44:00")), "failed: can`t find given mac 'a8:f9:4b:00:44:00' in local info");
  EXPECT_THAT(api_.asked, IsEmpty());
}

TEST_F(DaemonRoaming, ALocationWithoutADomainOrWithoutAccessPointsHasNothing) {
  api_.answer(domains_command, R"({"domains":[{"name":"attic"}]})");
  EXPECT_EQ(ask(roaming_stat()), nothing);
  api_.answer(domains_command, R"({"domains":[{"name":"lab"}]})");
  storage_.clear();
  EXPECT_EQ(ask(roaming_stat()), nothing) << "the controller has no access point there";
  EXPECT_THAT(api_.asked, ElementsAre(domains_command, domains_command));
}

TEST_F(DaemonRoaming, AnAccessPointUnknownToTheControllerIsLeftOut) {
  know_record(ap2, "{}");
  EXPECT_EQ(ask(roaming_stat()), R"({"2g":[)" + on_2g + R"(],"5g":[)" + first_on_5g + R"(],"6g":[]})");
  EXPECT_EQ(ask(roaming_stat(std::nullopt, "5g")), R"({"2g":[],"5g":[)" + first_on_5g + R"(],"6g":[]})");
}

TEST_F(DaemonRoaming, ARadioThatTheBoardDoesNotHaveEndsTheAnswer) {
  api_.answer(lab_command, R"({"details":{"aps":[{"mac":"A8:F9:4B:00:11:00","radios":[{"id":7,"vaps":[]}]}]}})");
  EXPECT_EQ(ask(roaming_stat()), "failed: Cannot get radio by id '7' for AP 'a8:f9:4b:00:11:00'");
}

TEST_F(DaemonRoaming, BothOfTheServersAnswersAreNeeded) {
  expect_reasons(roaming_stat(), lab_command, "no answer on morvane api request for specific location 'lab'", true);
  expect_reasons(roaming_stat(), domains_command, "no answer on morvane api request for domains", true);
}

// Reports

// The location of a row is the domain that the report is of, whichever was asked for.
class DaemonReports : public DaemonAnswers {
 protected:
  DaemonReports() {
    know(ap1, "10.0.0.1", "lab");
    know_record(ap2, R"({"location":"lab"})");
  }
  static std::string row_of(int radio_id, int channel, bool with_eirp) {
    const auto state = [&](int by) {
      return R"({"power":)" + std::to_string(10 + by) + R"(,"channel":)" + std::to_string(channel + by) +
             (with_eirp ? R"(,"eirp":)" + std::to_string(20 + by) : "") + "}";
    };
    return R"({"radio_id":)" + std::to_string(radio_id) + R"(,"before":)" + state(0) + R"(,"after":)" + state(4) + "}";
  }
  static std::string report_text(const std::string& details, const std::string& date = "2023-11-14,22:13:20 UTC") {
    return R"({"version":"2.1","server":"controller","morvane_version":"1.0","report":{"id":"5","domain":"annex",)"
           R"("date":")" +
           date + R"(","domain_config":{},"details":[)" + details + R"(]},"status":"success"})";
  }
  static std::string list_text(const std::string& entries = "", int count = 0) {
    return R"({"version":"2.1","server":"controller","morvane_version":"1.0","data":[)" + entries + R"(],"count":)" +
           std::to_string(count) + R"(,"status":"success"})";
  }
  static std::string of_ap(const std::string& mac, const std::string& radios) {
    return R"({"ap_mac":")" + mac + R"(","radio_interfaces":[)" + radios + "]}";
  }
  static std::string list_command(const std::string& start, const std::string& finish) {
    return R"({"rrm":{"domain":"lab","report_list":{"date_start":")" + start + R"(","date_finish":")" + finish +
           "\"}}}";
  }

  rrm::testing::ManualClock clock_{1000, 1700000000};  // 2023-11-14,22:13:20 UTC
};

TEST_F(DaemonReports, TheLastReportIsToldRadioByRadio) {
  api_.answer(last_report_command,
              report_text(of_ap("A8:F9:4B:00:11:00", row_of(1, 36, true) + "," + row_of(0, 1, false)) + "," +
                          of_ap("A8:F9:4B:00:22:00", row_of(1, 44, true) + "," + row_of(2, 37, true))));
  const std::string first = R"({"ap-mac":"a8:f9:4b:00:11:00","ip-addr":"10.0.0.1","board-type":"NVA-3wz",)"
                            R"("location":"annex","report-time":"2023-11-14,22:13:20 UTC",)";
  const std::string second = R"({"ap-mac":"a8:f9:4b:00:22:00","ip-addr":"","board-type":"",)"
                             R"("location":"annex","report-time":"2023-11-14,22:13:20 UTC",)";
  const std::string changes_2g = R"("power-before":10,"power-after":14,"channel-before":1,"channel-after":5})";
  const std::string power = R"("power-before":10,"power-after":14,)";
  const std::string eirps = R"("eirp-before":20,"eirp-after":24})";
  EXPECT_EQ(ask(report()), R"({"2g":[)" + first + changes_2g + R"(],"5g":[)" + first + power +
                               R"("channel-before":36,"channel-after":40,)" + eirps + "," + second + power +
                               R"("channel-before":44,"channel-after":48,)" + eirps + R"(],"6g":[)" + second + power +
                               R"("channel-before":37,"channel-after":41,)" + eirps + "]}");
  EXPECT_EQ(ask(report("2g")), R"({"2g":[)" + first + changes_2g + R"(],"5g":[],"6g":[]})");
}

TEST_F(DaemonReports, EachEirpIsToldWhereTheReportHasIt) {
  api_.answer(
      last_report_command,
      report_text(of_ap("A8:F9:4B:00:11:00", R"({"radio_id":0,"before":{"power":1,"channel":2,"eirp":3},"after":{}},)"
                                             R"({"radio_id":1,"before":{},"after":{"power":4,"channel":5,"eirp":0}},)"
                                             R"({"radio_id":2})")));
  const std::string row = R"({"ap-mac":"a8:f9:4b:00:11:00","ip-addr":"10.0.0.1","board-type":"NVA-3wz",)"
                          R"("location":"annex","report-time":"2023-11-14,22:13:20 UTC",)";
  EXPECT_EQ(ask(report()),
            R"({"2g":[)" + row +
                R"("power-before":1,"power-after":0,"channel-before":2,"channel-after":0,"eirp-before":3}],"5g":[)" +
                row +
                R"("power-before":0,"power-after":4,"channel-before":0,"channel-after":5,"eirp-after":0}],"6g":[)" +
                row + R"("power-before":0,"power-after":0,"channel-before":0,"channel-after":0}]})");
}

TEST_F(DaemonReports, AnAccessPointThatTheControllerHasForgottenIsLeftOut) {
  api_.answer(last_report_command, report_text(of_ap("A8:F9:4B:00:33:00", row_of(1, 36, true)) + "," +
                                               of_ap("nonsense", row_of(1, 36, true))));
  EXPECT_EQ(ask(report()), R"({"2g":[],"5g":[],"6g":[]})");
}

TEST_F(DaemonReports, AnAnswerWithoutAReportHasNoRows) {
  for (const char* text : {"{}", "[]", "nonsense", R"({"report":null})", R"({"report":{"details":7}})"}) {
    api_.answer(last_report_command, text);
    EXPECT_EQ(ask(report()), R"({"2g":[],"5g":[],"6g":[]})") << text;
  }
}

TEST_F(DaemonReports, ARadioThatTheBoardDoesNotHaveEndsTheAnswer) {
  api_.answer(last_report_command, report_text(of_ap("A8:F9:4B:00:11:00", row_of(4, 36, true))));
  EXPECT_EQ(ask(report()), "failed: Cannot get radio by id '4' for AP 'a8:f9:4b:00:11:00'");
}

TEST_F(DaemonReports, NoDaysAskForTheCurrentDay) {
  api_.answer(list_command("2023-11-14,00:00:00 UTC", "2023-11-14,22:13:20 UTC"), list_text());
  EXPECT_EQ(ask(report(std::nullopt, 0)), R"({"2g":[],"5g":[],"6g":[]})");
}

TEST_F(DaemonReports, AsLongAsAPeriodIsEmptyNothingIsAskedFor) {
  for (const std::int64_t now : {1700006400, 0}) {
    clock_.set_wall(now);
    EXPECT_EQ(ask(report(std::nullopt, 0)), R"({"2g":[],"5g":[],"6g":[]})") << now;
  }
  EXPECT_EQ(ask(report(std::nullopt, 1)), R"({"2g":[],"5g":[],"6g":[]})") << "there is no day before the first";
  EXPECT_THAT(api_.asked, IsEmpty());
}

TEST_F(DaemonReports, DaysBeginAtTheirMidnight) {
  struct Case {
    std::int64_t now;
    std::uint32_t days;
    const char* start;
    const char* finish;
  };
  const std::vector<Case> cases{
      {1700000000, 1, "2023-11-13,00:00:00 UTC", "2023-11-14,22:13:20 UTC"},
      {1700000000, 14, "2023-10-31,00:00:00 UTC", "2023-11-14,22:13:20 UTC"},
      {1700006399, 0, "2023-11-14,00:00:00 UTC", "2023-11-14,23:59:59 UTC"},
      {1700006401, 0, "2023-11-15,00:00:00 UTC", "2023-11-15,00:00:01 UTC"},
      {1700006400, 1, "2023-11-14,00:00:00 UTC", "2023-11-15,00:00:00 UTC"},
      {1709251200, 1, "2024-02-29,00:00:00 UTC", "2024-03-01,00:00:00 UTC"},
      {1704067200, 365, "2023-01-01,00:00:00 UTC", "2024-01-01,00:00:00 UTC"},
      {1700000000, 19675, "1970-01-01,00:00:00 UTC", "2023-11-14,22:13:20 UTC"},
      {1700000000, 19676, "1970-01-01,00:00:00 UTC", "2023-11-14,22:13:20 UTC"},
      {1700000000, 0xFFFFFFFF, "1970-01-01,00:00:00 UTC", "2023-11-14,22:13:20 UTC"},
  };
  for (const auto& [now, days, start, finish] : cases) {
    SCOPED_TRACE(days);
    clock_.set_wall(now);
    api_.asked.clear();
    api_.answer(list_command(start, finish), list_text());
    EXPECT_EQ(ask(report(std::nullopt, days)), R"({"2g":[],"5g":[],"6g":[]})");
    EXPECT_THAT(api_.asked, ElementsAre(list_command(start, finish)));
  }
}

TEST_F(DaemonReports, TheZoneOfTheControllerMovesNoMidnight) {
  setenv("TZ", "ABC-9", 1);
  tzset();
  api_.answer(list_command("2023-11-13,00:00:00 UTC", "2023-11-14,22:13:20 UTC"), list_text());
  EXPECT_EQ(ask(report(std::nullopt, 1)), R"({"2g":[],"5g":[],"6g":[]})");
  unsetenv("TZ");
  tzset();
}

TEST_F(DaemonReports, TheReportsOfTheDaysFollowTheirList) {
  const std::string list = list_command("2023-11-13,00:00:00 UTC", "2023-11-14,22:13:20 UTC");
  const std::string second = R"({"rrm":{"domain":"yard","report":"x_9"}})";
  const std::string first = R"({"rrm":{"domain":"hall","report":"x_2"}})";
  api_.answer(list, list_text(R"({"id":"x_9","domain":"yard","date":"d"},{"id":"x_2","domain":"hall","date":"d"})", 2));
  api_.answer(second, report_text(of_ap("A8:F9:4B:00:11:00", row_of(0, 1, false)), "late"));
  api_.answer(first, report_text(of_ap("A8:F9:4B:00:11:00", row_of(0, 6, false)), "early"));
  const std::string row = R"({"ap-mac":"a8:f9:4b:00:11:00","ip-addr":"10.0.0.1","board-type":"NVA-3wz",)"
                          R"("location":"annex","report-time":")";
  EXPECT_EQ(ask(report("2g", 1)),
            R"({"2g":[)" + row + R"(late","power-before":10,"power-after":14,"channel-before":1,"channel-after":5},)" +
                row + R"(early","power-before":10,"power-after":14,"channel-before":6,"channel-after":10}],)" +
                R"("5g":[],"6g":[]})");
  EXPECT_THAT(api_.asked, ElementsAre(list, second, first));
  expect_reasons(report(std::nullopt, 1), first, "no answer on morvane api request for report '%s'x_2", false);
  expect_reasons(report(std::nullopt, 1), list, "no answer on morvane api request for report list", false);
}

TEST_F(DaemonReports, TheLastReportNeedsTheServersAnswer) {
  expect_reasons(report(), last_report_command, "no answer on morvane api request for last report", false);
}

// With a server

// A server with one domain, the interface to it, and a directory for its reports.
class DaemonAnswersOfAServer : public DaemonAnswers {
 protected:
  DaemonAnswersOfAServer() {
    know(ap1, "10.0.0.1", "lab", "outdoor-2");
    real_server_.make_real_domain_workers();
  }
  std::string ask(const Question& question) { return DaemonAnswers::ask(real_api_, question); }

  rrm::testing::ManualClock clock_{1000, 1700000000};  // 2023-11-14,22:13:20 UTC
  rrm::testing::Capture log_;
  rrm::testing::TempDir reports_;
  rrm::GlobalConfig real_config_{
      "", R"({"global":{"reports_path":")" + reports_.path().string() +
              R"("},"common":{},"patterns":[],"domains":[{"domain":"lab","pattern":"common"}]})"};
  rrm::testing::TestServer real_server_{&real_config_};
  ApiZAL real_api_{&real_server_, storage_};
};

// The server tells three radios of every access point.
TEST_F(DaemonAnswersOfAServer, ABoardThatIsListedWithTwoRadiosHasAnswersForAll) {
  std::string complaint;
  Platform::instance().boards = zal::BoardTable::from_text(R"({"outdoor-2":"5g 2g"})", complaint);
  ASSERT_EQ(complaint, "");
  const std::size_t before = real_server_.sent().size();
  real_server_.receive(rrm::testing::a_subscribe("A8:F9:4B:00:11:00")
                           .with_radio(rrm::testing::RadioJson(0, 36, "36 40").with_vap(0, "office"))
                           .with_radio(rrm::testing::RadioJson(1, 6, "1 6 11"))
                           .text());
  ASSERT_TRUE(rrm::testing::eventually([&] { return real_server_.sent().size() > before; }));
  // Of each radio: what of it stands after its status and its locks, in the two answers.
  const auto whole = [](const char* mac, const char* status, const std::string& rest) {
    return R"({"radio-mac":"a8:f9:4b:00:11:)" + std::string(mac) + R"(","status":")" + status +
           R"(","power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,"locked-80211v":0,)" +
           rest + "}";
  };
  const std::string plan = R"("power":14,"max-power":20,"min-power":5,"bandwidth":20,"primary-channel":0,)";
  const std::string no_plan = R"("power":0,"max-power":0,"min-power":0,"bandwidth":20,"primary-channel":0,)";
  EXPECT_EQ(ask(ap()),
            R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","2g":)" +
                whole("10", "Up", R"("channel":6,)" + plan + R"("available-channels":[1,6,11],"ssids":[])") +
                R"(,"5g":)" +
                whole("00", "Up",
                      R"("channel":36,)" + plan +
                          R"("available-channels":[36,40],"ssids":[{"vap-mac":"a8:f9:4b:00:11:00","ssid":"office",)"
                          R"("80211k":"Enable","80211r":"Disable","80211v":"Enable","fbt-links":[]}])") +
                R"(,"6g":)" +
                whole("20", "Down", R"("channel":0,)" + no_plan + R"("available-channels":[],"ssids":[])") + "}");
  const auto brief = [](const char* mac, const char* status, const std::string& rest) {
    return R"([{"ap-mac":"a8:f9:4b:00:11:00","radio-mac":"a8:f9:4b:00:11:)" + std::string(mac) + R"(","status":")" +
           status + R"(","locked-dca":0,"locked-tpc":0,"locked-balancer":0,"locked-80211v":0,)" + rest + "}]";
  };
  const std::string nobody = R"("bandwidth":20,"assoc-clients":0,"available-channels":)";
  EXPECT_EQ(ask(rrm_stat()), R"({"2g":)" + brief("10", "Up", R"("channel":6,"power":14,)" + nobody + "[1,6,11]") +
                                 R"(,"5g":)" + brief("00", "Up", R"("channel":36,"power":14,)" + nobody + "[36,40]") +
                                 R"(,"6g":)" + brief("20", "Down", R"("channel":0,"power":0,)" + nobody + "[]") + "}");
  EXPECT_EQ(ask(roaming_stat()), R"({"2g":[],"5g":[{"ap-mac":"a8:f9:4b:00:11:00","vap-mac":"a8:f9:4b:00:11:00",)"
                                 R"("ssid":"office","80211k-enable":1,"80211r-enable":0,"80211v-enable":1,)"
                                 R"("fbt-links":0}],"6g":[]})");
}

TEST_F(DaemonAnswersOfAServer, TheReportsOfADayAreFoundFromItsMidnightOn) {
  rrm::testing::lay_out(reports_.path(), rrm::testing::report_files("lab", {1700006400}, 1));
  know("00:11:22:00:00:00", "10.0.0.2", "lab");
  clock_.set_wall(1700006400);
  EXPECT_EQ(ask(report(std::nullopt, 0)), R"({"2g":[],"5g":[],"6g":[]})") << "what the server would refuse to list";
  clock_.set_wall(1700006401);
  EXPECT_EQ(ask(report(std::nullopt, 0)),
            R"({"2g":[{"ap-mac":"00:11:22:00:00:00","ip-addr":"10.0.0.2","board-type":"NVA-3wz","location":"lab",)"
            R"("report-time":"2023-11-15,00:00:00 UTC","power-before":20,"power-after":17,"channel-before":36,)"
            R"("channel-after":44,"eirp-before":22,"eirp-after":19}],"5g":[],"6g":[]})");
}

// The role

TEST_F(DaemonAnswers, TheRoleIsANumber) {
  for (const auto& [name, number] : std::vector<std::pair<std::string, int>>{{"master", 1}, {"backup", 2}}) {
    api_.answer(role_command, R"({"role":")" + name + R"(","status":"success"})");
    std::int32_t role = 3;
    std::string error;
    EXPECT_TRUE(api_.morvane_role(role, error));
    EXPECT_EQ(role, number);
    EXPECT_EQ(error, "");
  }
}

TEST_F(DaemonAnswers, AnyOtherRoleIsAFailure) {
  for (const char* text : {R"({"role":"Master"})", R"({"role":""})", R"({"role":1})", "{}", "nonsense", "",
                           R"({"role":"master","status":"failure"})", R"({"role":"backup","error":"x"})"}) {
    api_.answer(role_command, text);
    std::int32_t role = 3;
    std::string error;
    EXPECT_FALSE(api_.morvane_role(role, error)) << text;
    EXPECT_EQ(error, failure);
    EXPECT_EQ(role, 3);
  }
}

}  // namespace
