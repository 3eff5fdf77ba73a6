// What comes over the bus and is answered: the management's requests, the older questions, the log's MAC filter, the
// reports of life and of the role.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/version.h"
#include "daemon/MorvaneRequests.h"
#include "daemon/radio_support.h"
#include "daemon/scripted_api.h"
#include "daemon/trace.h"
#include "reports/report_texts.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "zal/MacFilter.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::Error;
using zal::testing::deliver;
using zal::testing::Platform;
using zal::testing::text;

using Request = zal::IpcMsgMorvaneRequest;

Request a_request(std::int32_t kind, std::optional<std::string> location = std::nullopt,
                  std::optional<std::string> mac = std::nullopt, std::optional<std::string> band = std::nullopt,
                  std::optional<std::uint32_t> days = std::nullopt) {
  Request request;
  request.kind = kind;
  request.location = std::move(location);
  request.mac = std::move(mac);
  request.band = std::move(band);
  request.days = days;
  return request;
}

// The management's requests

class DaemonRequests : public zal::testing::ScriptedApiTest {
 protected:
  zal::IpcMsgMorvaneResponse serve(const Request& request) {
    Platform::instance().clear();
    return MorvaneRequests(api_).serve(request);
  }
  static std::vector<std::string> warnings() {
    std::vector<std::string> lines = Platform::instance().notes();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("warn: "); });
    return lines;
  }
};

TEST_F(DaemonRequests, EachKindReachesItsAnswer) {
  know("a8f94b001100", "10.0.0.1", "lab");
  api_.answer(R"({"rrm":{}})", R"({"domains":[{"name":"lab"}]})");
  api_.answer(R"({"rrm":{"sessions":"1"}})", R"({"websock-sessions":[]})");
  api_.answer(R"({"cfg":{"operation":"get","level":"domain"}})", R"({"domains":[{"name":"lab"}]})");
  api_.answer(R"({"rrm":{"domain":"lab"}})",
              R"({"details":{"rrm-status":0,"aps":[{"mac":"A8:F9:4B:00:11:00","radios":[]}]}})");
  api_.answer(R"({"rrm":{"domain":"lab","ap":"a8:f9:4b:00:11:00"}})",
              R"({"active-ap":{"radios":{"interfaces":[{"id":0,"available-channels":[],"vaps":[]}]}}})");
  api_.answer(R"({"rrm":{"domain":"lab","start_optimization":"true"}})", R"({"status":"success"})");
  api_.answer(R"({"rrm":{"domain":"lab","last_report":"lab"}})", "{}");
  const std::vector<std::pair<Request, std::string>> cases{
      {a_request(0), R"({"array":[{"ap-location":"lab","ap-morvane":0,"ap-count":1}]})"},
      {a_request(1), R"({"array":[]})"},
      {a_request(1, "lab"), R"({"array":[]})"},
      {a_request(2), ""},
      {a_request(3, "lab"),
       R"({"2g":[{"ap-mac":"a8:f9:4b:00:11:00","radio-mac":"00:00:00:00:00:00","status":"Down","locked-dca":0,)"
       R"("locked-tpc":0,"locked-balancer":0,"locked-80211v":0,"channel":0,"power":0,"bandwidth":0,)"
       R"("assoc-clients":0,"available-channels":[]}]})"},
      {a_request(4, "lab", "A8F94B001100", "5g"), R"({"2g":[],"5g":[],"6g":[]})"},
      {a_request(5, std::nullopt, "A8:F9:4B:00:11:00"),
       R"({"ap-location":"lab","ap-mac":"a8:f9:4b:00:11:00","2g":{"radio-mac":"00:00:00:00:00:00","status":"Down",)"
       R"("power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,"locked-80211v":0,)"
       R"("channel":0,"power":0,"max-power":0,"min-power":0,"bandwidth":0,"primary-channel":0,)"
       R"("available-channels":[],"ssids":[]}})"},
      {a_request(6, "lab"), ""},
      {a_request(7, "lab"), R"({"2g":[],"5g":[],"6g":[]})"},
  };
  for (const auto& [request, result] : cases) {
    SCOPED_TRACE(request.kind);
    const auto response = serve(request);
    EXPECT_EQ(response.kind, request.kind);
    EXPECT_EQ(response.failed, 0) << *response.error;
    EXPECT_EQ(*response.error, "");
    EXPECT_EQ(*response.result, result);
    EXPECT_THAT(warnings(), IsEmpty());
  }
}

struct FailureCase {
  Request request;
  std::string description;
  std::string reason;
};

TEST_F(DaemonRequests, AFailedRequestIsDescribedInTheLogAndAnsweredWithItsReason) {
  ApiZAL without_server(nullptr, storage_);
  const std::string no_answer = "no answer on morvane api request for ";
  const std::string mac = "a8:f9:4b:00:11:00";
  const std::string not_known = "can`t find given mac '" + mac + "' in local info";
  const std::string no_location = "no 'location' parameter given";
  const std::vector<FailureCase> cases{
      {a_request(0), "common data", no_answer + "domains"},
      {a_request(1), "active sessions, location ''", no_answer + "sessions"},
      {a_request(1, "lab"), "active sessions, location 'lab'", no_answer + "sessions"},
      {a_request(2), "clear sessions", no_answer + "sessions"},
      {a_request(2, std::nullopt, "A8F94B001100"), "clear ap " + mac + " session", no_answer + "sessions"},
      {a_request(3, "lab"), "location 'lab' statistics", no_answer + "configured ap-locations"},
      {a_request(3), "location '' statistics", no_location},
      {a_request(4, "lab"), "roaming statistics location 'lab' [mac '', band '']", no_answer + "domains"},
      {a_request(4, "lab", "A8F94B001100", "6g"), "roaming statistics location 'lab' [mac '" + mac + "', band '6g']",
       not_known},
      {a_request(4, std::nullopt, std::nullopt, "2g"), "roaming statistics location '' [mac '', band '2g']",
       no_location},
      {a_request(5, "lab", "A8F94B001100"), "ap '" + mac + "' data", not_known},
      {a_request(5, "lab"), "ap '' data", "no 'mac' parameter given"},
      {a_request(6, "lab"), "start optimization, location 'lab'", no_answer + "specific location 'lab'"},
      {a_request(6), "start optimization, location ''", no_location},
      {a_request(7, "lab"), "optimization reports, location 'lab' [band '', days '']", no_answer + "last report"},
      {a_request(7, "lab", std::nullopt, "5g", 0), "optimization reports, location 'lab' [band '5g', days '0']",
       no_answer + "report list"},
      {a_request(7, std::nullopt, std::nullopt, std::nullopt, 14),
       "optimization reports, location '' [band '', days '14']", no_location},
      {a_request(8), "", "unknown type given"},
      {a_request(9), "", ""},
      {a_request(2147483647), "", ""},
      {a_request(-1), "", ""},
  };
  for (const auto& [request, description, reason] : cases) {
    SCOPED_TRACE(std::to_string(request.kind) + " " + description);
    Platform::instance().clear();
    const auto response = MorvaneRequests(without_server).serve(request);
    EXPECT_EQ(response.kind, request.kind);
    EXPECT_EQ(response.failed, 1);
    EXPECT_EQ(*response.error, reason);
    EXPECT_EQ(*response.result, "");
    EXPECT_THAT(warnings(), ElementsAre("warn: rrm request for " + description + " failed, reason: '" + reason + "'"));
  }
}

TEST_F(DaemonRequests, ARequestThatCannotBeReadIsRefusedAsItStands) {
  const std::vector<std::pair<Request, const char*>> cases{
      {a_request(4, "lab", std::nullopt, "7g"), "invalid parameter: 'band' '7g'"},
      {a_request(4, "lab", std::nullopt, ""), "invalid parameter: 'band' ''"},
      {a_request(4, "lab", std::nullopt, "2G"), "invalid parameter: 'band' '2G'"},
      {a_request(5, "lab", "nonsense"), "invalid parameter: 'mac' 'nonsense'"},
      {a_request(5, "lab", ""), "invalid parameter: 'mac' ''"},
      {a_request(5, "lab", "a8:f9:4b:00:11"), "invalid parameter: 'mac' 'a8:f9:4b:00:11'"},
      {a_request(4, "lab", "x", "y"), "invalid parameter: 'band' 'y' 'mac' 'x'"},
      {a_request(0, std::nullopt, "x"), "invalid parameter: 'mac' 'x'"},
      {a_request(8, std::nullopt, std::nullopt, "x"), "invalid parameter: 'band' 'x'"},
  };
  for (const auto& [request, reason] : cases) {
    SCOPED_TRACE(reason);
    const auto response = serve(request);
    EXPECT_EQ(response.kind, request.kind);
    EXPECT_EQ(response.failed, 1);
    EXPECT_EQ(*response.error, reason);
    EXPECT_EQ(*response.result, "");
    EXPECT_THAT(Platform::instance().notes(), IsEmpty());
  }
  EXPECT_THAT(api_.asked, IsEmpty());
}

// No text that the server would read only in part is put to it.
TEST_F(DaemonRequests, ALocationThatHoldsAZeroByteIsRefused) {
  for (const std::string& location : {std::string("lab\0", 4), std::string("lab\0x", 5), std::string("\0", 1)}) {
    for (const std::int32_t kind : {1, 3, 4, 6, 7}) {
      const auto response = serve(a_request(kind, location));
      EXPECT_EQ(response.failed, 1);
      EXPECT_EQ(*response.error, "invalid parameter: 'location' '" + location + "'");
      EXPECT_EQ(*response.result, "");
    }
  }
  EXPECT_EQ(*serve(a_request(4, std::string("\0", 1), "x", "y")).error,
            std::string("invalid parameter: 'band' 'y' 'mac' 'x' 'location' '\0'", 54));
  EXPECT_THAT(api_.asked, IsEmpty());
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
}

// Each parameter on its way to the server and into the answer: two access points in one location and one in another,
// each with a session, and in the first location with a VAP and a line of the report on every band.
class DaemonRequestParameters : public DaemonRequests {
 protected:
  DaemonRequestParameters() {
    know(ap1, "10.0.0.1", "lab");
    know(ap2, "10.0.0.2", "lab");
    know(ap3, "10.0.0.3", "attic");
    api_.answer(sessions_command, R"({"websock-sessions":[{"id":7,"peer":"10.0.0.1"},{"id":4,"peer":"10.0.0.2"},)"
                                  R"({"id":5,"peer":"10.0.0.3"}]})");
    for (const char* ids : {"[7,4,5]", "[4]"}) api_.answer(drop_command(ids), "{}");
    api_.answer(domains_command, R"({"domains":[{"name":"attic"},{"name":"lab"}]})");
    api_.answer(configured_command, R"({"domains":[{"name":"attic"},{"name":"lab"}]})");
    api_.answer(lab_command, R"({"details":{"rrm-status":0,"aps":[)" + with_vaps(ap1) + "," + with_vaps(ap2) + "]}}");
    api_.answer(attic_command, R"({"details":{"rrm-status":0,"aps":[]}})");
    for (const char* mac : {ap1, ap2}) api_.answer(ap_command(mac), R"({"active-ap":{"radios":{"interfaces":[]}}})");
    api_.answer(optimize_command, R"({"status":"success"})");
    api_.answer(last_report_command, report);
    api_.answer(list_command, R"({"data":[{"id":"x","domain":"lab"}]})");
    api_.answer(report_command, report);
  }

  static std::string drop_command(const std::string& ids) {
    return R"({"rrm":{"drop_session":"true","ids":)" + ids + "}}";
  }
  static std::string ap_command(const std::string& mac) { return R"({"rrm":{"domain":"lab","ap":")" + mac + "\"}}"; }
  static std::string session(const char* ap, int number, int id, const char* location) {
    return R"({"ap-mac":")" + std::string(ap) + R"(","ap-ip":"10.0.0.)" + std::to_string(number) +
           R"(","session-id":)" + std::to_string(id) + R"(,"ap-board-type":"NVA-3wz","ap-location":")" + location +
           "\"}";
  }
  // The VAPs have the address of their access point.
  static std::string with_vaps(const char* ap) {
    std::string radios;
    for (int id = 0; id < 3; ++id) {
      radios += (id == 0 ? "" : ",") + (R"({"id":)" + std::to_string(id)) + R"(,"vaps":[{"id":0,"mac":")" + ap +
                R"(","ssid":"on )" + std::to_string(id) + R"("}]})";
    }
    return R"({"mac":")" + std::string(ap) + R"(","radios":[)" + radios + "]}";
  }
  static std::string vap(const char* ap, int radio) {
    return R"({"ap-mac":")" + std::string(ap) + R"(","vap-mac":")" + ap + R"(","ssid":"on )" + std::to_string(radio) +
           R"(","80211k-enable":0,"80211r-enable":0,"80211v-enable":0,"fbt-links":0})";
  }
  static std::string row(int channel) {
    return R"({"ap-mac":"a8:f9:4b:00:11:00","ip-addr":"10.0.0.1","board-type":"NVA-3wz","location":"lab",)"
           R"("report-time":"then","power-before":0,"power-after":0,"channel-before":)" +
           std::to_string(channel) + R"(,"channel-after":0})";
  }
  static std::string by_band(const std::string& on_2g, const std::string& on_5g, const std::string& on_6g) {
    return R"({"2g":[)" + on_2g + R"(],"5g":[)" + on_5g + R"(],"6g":[)" + on_6g + "]}";
  }

  static constexpr const char* ap1 = "a8:f9:4b:00:11:00";
  static constexpr const char* ap2 = "a8:f9:4b:00:22:00";
  static constexpr const char* ap3 = "a8:f9:4b:00:33:00";
  const std::string sessions_command = R"({"rrm":{"sessions":"1"}})";
  const std::string domains_command = R"({"rrm":{}})";
  const std::string configured_command = R"({"cfg":{"operation":"get","level":"domain"}})";
  const std::string lab_command = R"({"rrm":{"domain":"lab"}})";
  const std::string attic_command = R"({"rrm":{"domain":"attic"}})";
  const std::string optimize_command = R"({"rrm":{"domain":"attic","start_optimization":"true"}})";
  const std::string last_report_command = R"({"rrm":{"domain":"lab","last_report":"lab"}})";
  const std::string list_command = R"({"rrm":{"domain":"lab","report_list":{"date_start":"2023-11-11,00:00:00 UTC",)"
                                   R"("date_finish":"2023-11-14,22:13:20 UTC"}}})";
  const std::string report_command = R"({"rrm":{"domain":"lab","report":"x"}})";
  const std::string report =
      R"({"report":{"domain":"lab","date":"then","details":[{"ap_mac":"A8:F9:4B:00:11:00","radio_interfaces":[)"
      R"({"radio_id":0,"before":{"channel":1}},{"radio_id":1,"before":{"channel":36}},)"
      R"({"radio_id":2,"before":{"channel":37}}]}]}})";
  rrm::testing::ManualClock clock_{1000, 1700000000};  // 2023-11-14,22:13:20 UTC
};

struct ParameterCase {
  Request request;
  std::vector<std::string> asked;
  std::string result;
  std::string error;
};

TEST_F(DaemonRequestParameters, EachReachesTheServerAndTheAnswer) {
  const std::string mac = "A8F94B002200";  // of the second
  const auto none = std::nullopt;
  const std::string in_attic = session(ap3, 3, 5, "attic");
  const std::string in_lab = session(ap1, 1, 7, "lab") + "," + session(ap2, 2, 4, "lab");
  const auto both = [](int radio) { return vap(ap1, radio) + "," + vap(ap2, radio); };
  const std::vector<std::string> of_lab{domains_command, lab_command};
  const std::vector<ParameterCase> cases{
      {a_request(1), {sessions_command}, R"({"array":[)" + in_attic + "," + in_lab + "]}", ""},
      {a_request(1, "lab"), {sessions_command}, R"({"array":[)" + in_lab + "]}", ""},
      {a_request(1, "attic"), {sessions_command}, R"({"array":[)" + in_attic + "]}", ""},
      {a_request(2), {sessions_command, drop_command("[7,4,5]")}, "", ""},
      {a_request(2, none, mac), {sessions_command, drop_command("[4]")}, "", ""},
      {a_request(3, "attic"),
       {configured_command, domains_command, attic_command},
       "",
       "ap-location 'attic' currently has no active APs"},
      {a_request(3, "lab"),
       {configured_command, domains_command, lab_command, ap_command(ap1), ap_command(ap2)},
       "",
       "empty data"},
      {a_request(4, "lab"), of_lab, by_band(both(0), both(1), both(2)), ""},
      {a_request(4, "attic"), {domains_command, attic_command}, by_band("", "", ""), ""},
      {a_request(4, "lab", none, "2g"), of_lab, by_band(both(0), "", ""), ""},
      {a_request(4, "lab", none, "6g"), of_lab, by_band("", "", both(2)), ""},
      {a_request(4, "lab", mac), of_lab, by_band(vap(ap2, 0), vap(ap2, 1), vap(ap2, 2)), ""},
      {a_request(4, "lab", mac, "5g"), of_lab, by_band("", vap(ap2, 1), ""), ""},
      {a_request(5, none, mac), {ap_command(ap2)}, "", "empty data"},
      {a_request(6, "attic"), {attic_command, optimize_command}, "", ""},
      {a_request(7, "lab"), {last_report_command}, by_band(row(1), row(36), row(37)), ""},
      {a_request(7, "lab", none, "5g"), {last_report_command}, by_band("", row(36), ""), ""},
      {a_request(7, "lab", none, "6g", 3), {list_command, report_command}, by_band("", "", row(37)), ""},
      {a_request(7, "lab", none, none, 3), {list_command, report_command}, by_band(row(1), row(36), row(37)), ""},
  };
  for (const auto& [request, asked, result, error] : cases) {
    SCOPED_TRACE(std::to_string(request.kind) + " " + request.location.value_or("-") + " " + request.mac.value_or("-") +
                 " " + request.band.value_or("-"));
    api_.asked.clear();
    const auto response = serve(request);
    EXPECT_EQ(*response.result, result);
    EXPECT_EQ(*response.error, error);
    EXPECT_EQ(response.failed, error.empty() ? 0 : 1);
    EXPECT_EQ(api_.asked, asked);
  }
}

// The bus

class DaemonBus : public ::testing::Test {
 protected:
  DaemonBus() { Platform::instance().reset(); }
  void set_up_site() { radio_->update_setup(text(setup)); }

  // The one reply to a message.
  template <class Reply, class Message>
  Reply reply_to(const Message& message) {
    Platform::instance().clear();
    EXPECT_EQ(deliver(message, port_, *radio_), Error::none);
    const auto sent = Platform::instance().sent();
    EXPECT_EQ(sent.size(), 1u);
    const auto reply = sent.empty() ? nullptr : std::dynamic_pointer_cast<Reply>(sent.front());
    EXPECT_NE(reply, nullptr) << "another type";
    return reply ? *reply : Reply();
  }
  template <class Reply, class Message>
  void expect_answer(const Message& message, const std::string& command) {
    SCOPED_TRACE(command);
    const Reply reply = reply_to<Reply>(message);
    EXPECT_THAT(Platform::instance().notes(), Contains("ap_limited: " + command));
    const ActiveApStorage nothing;
    EXPECT_EQ(*reply.text, ApiZAL(radio_->server(), nothing).run(command).value_or(""));
    EXPECT_EQ(reply.text->empty(), radio_->server() == nullptr);
  }
  // Every older question.
  void expect_answers_to_questions();

  // The server's answer with these members behind those of every such answer.
  std::string of_server(const std::string& members = "") const {
    return R"({"version":"2.1","server":")" + radio_->config()->hostname() + R"(","morvane_version":")" +
           rrm::build_version + "\"" + (members.empty() ? "" : ",") + members + "}";
  }

  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  rrm::testing::TempDir backups_;
  rrm::testing::TempDir reports_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  std::unique_ptr<RadioRM> radio_ = std::make_unique<RadioRM>(port_, backups_.path().string() + "/");
  const std::string setup = R"({"global":{"enabled":1,"listen_port":0,"reports_path":")" + reports_.path().string() +
                            R"("},"common":{},"patterns":[],"domains":[{"domain":"lab","pattern":"common"}]})";
};

void DaemonBus::expect_answers_to_questions() {
  expect_answer<zal::IPC_MSG__RRM_API_SESSIONS_RESP>(zal::IPC_MSG__RRM_API_SESSIONS(), R"({"rrm":{"sessions":"1"}})");
  zal::IPC_MSG__RRM_API_REM_SESSIONS sessions;
  *sessions.filter = "7,4";
  expect_answer<zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP>(sessions, R"({"rrm":{"drop_session":"true","ids":[7,4]}})");
  expect_answer<zal::IPC_MSG__RRM_API_GROUPS_RESP>(zal::IPC_MSG__RRM_API_GROUPS(), R"({"rrm":{}})");
  zal::IPC_MSG__RRM_API_GROUP group;
  *group.group = "lab";
  expect_answer<zal::IPC_MSG__RRM_API_GROUP_RESP>(group, R"({"rrm":{"domain":"lab"}})");
  zal::IPC_MSG__RRM_API_AP ap;
  *ap.group = "la\"b";
  *ap.ap = "A8:F9:4B:00:11:00";
  expect_answer<zal::IPC_MSG__RRM_API_AP_RESP>(ap, R"({"rrm":{"domain":"la\"b","ap":"A8:F9:4B:00:11:00"}})");
  zal::IPC_MSG__RRM_API_START_OPT start;
  *start.group = "lab";
  expect_answer<zal::IPC_MSG__RRM_API_START_OPT_RESP>(start, R"({"rrm":{"domain":"lab","start_optimization":"true"}})");
  zal::IPC_MSG__RRM_API_REPORTS reports;
  *reports.group = "lab";
  *reports.date_start = "2023-11-13,00:00:00 UTC";
  *reports.date_finish = "2023-11-14,00:00:00 UTC";
  expect_answer<zal::IPC_MSG__RRM_API_REPORTS_RESP>(
      reports, R"({"rrm":{"domain":"lab","report_list":{"date_start":"2023-11-13,00:00:00 UTC",)"
               R"("date_finish":"2023-11-14,00:00:00 UTC"}}})");
  zal::IPC_MSG__RRM_API_REPORT report;
  *report.group = "lab";
  *report.report = "lab_5";
  expect_answer<zal::IPC_MSG__RRM_API_REPORT_RESP>(report, R"({"rrm":{"domain":"lab","report":"lab_5"}})");
}

TEST_F(DaemonBus, TheOlderQuestionsAreAnsweredByTheServerAsItStands) {
  set_up_site();
  expect_answers_to_questions();
}

// A site whose domain "lab" came back from its backup, with one access point that is gone, and has one report.
class DaemonBusOfASite : public DaemonBus {
 protected:
  DaemonBusOfASite() {
    rrm::testing::write_file(
        backups_.file("lab.json"),
        R"({"name":"lab","rrm-status":0,"fbt-status":0,"aps":[{"mac":"A8:F9:4B:00:11:00","ap-mac-count":48,)"
        R"("radios":{"received":1,"interfaces":[{"id":1,"mac-offset":16,"radio-mac-count":16,"status":1,)"
        R"("channel":36,"band":5,"power":17,"max-power":20,"min-power":5,"bandwidth":20,)"
        R"("available-channels":[36,40],"vaps":[]}]},"visible-members":[],"visible-rogue":[],)"
        R"("board":"NVA-3wz","hw":"1.0","serial":"SN1"}]})");
    rrm::testing::lay_out(reports_.path(), rrm::testing::report_files("lab", {1700000000}, 1));
    set_up_site();
    radio_->set_vrrp_state(1);
  }
  template <class Message>
  static Message about(const std::string& group) {
    Message message;
    *message.group = group;
    return message;
  }
  template <class Reply, class Message>
  std::string answer_to(const Message& message) {
    return *reply_to<Reply>(message).text;
  }
};

TEST_F(DaemonBusOfASite, SessionsAreListedAndEnded) {
  EXPECT_EQ(answer_to<zal::IPC_MSG__RRM_API_SESSIONS_RESP>(zal::IPC_MSG__RRM_API_SESSIONS()),
            of_server(R"("websock-sessions":[])"));
  zal::IPC_MSG__RRM_API_REM_SESSIONS sessions;
  *sessions.filter = "7,4";
  EXPECT_EQ(answer_to<zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP>(sessions), of_server());
}

TEST_F(DaemonBusOfASite, GroupsAreTold) {
  EXPECT_EQ(answer_to<zal::IPC_MSG__RRM_API_GROUPS_RESP>(zal::IPC_MSG__RRM_API_GROUPS()),
            of_server(R"("domains":[{"name":"lab","ap-count":0,"unanswered-ap-count":0,"deleted-ap-count":1,)"
                      R"("common-config":1}])"));
  const auto tell = [&](const std::string& group) {
    return answer_to<zal::IPC_MSG__RRM_API_GROUP_RESP>(about<zal::IPC_MSG__RRM_API_GROUP>(group));
  };
  EXPECT_EQ(tell("lab"),
            of_server(R"("details":{"name":"lab","metrics":{"rrm-response-expected":0,"rrm-response-count":0,)"
                      R"("rrm-mode-response-expected":0,"rrm-mode-response-count":0,"rrm-config-changed-expected":0,)"
                      R"("rrm-config-changed-count":0,"timer-request-modes-expected":0,"timer-request-modes-count":0,)"
                      R"("timer-request-scan-expected":0,"timer-request-scan-count":0,"timer-optimize-expected":0,)"
                      R"("timer-optimize-count":0},"ap-count":0,"unanswered-ap-count":0,"deleted-ap-count":1,)"
                      R"("queue-size":0,"rrm-status":0,"fbt-status":0,"aps":[],"unanswered-aps":[],"deleted-aps":[)"
                      R"({"board":"NVA-3wz","mac":"A8:F9:4B:00:11:00","serial":"SN1","hw":"1.0","radios":[)"
                      R"({"id":0,"vaps":[]},{"id":1,"vaps":[]},{"id":2,"vaps":[]}]}]})"));
  EXPECT_EQ(tell("attic"), of_server(R"("error":"domain not found")"));
}

TEST_F(DaemonBusOfASite, AnAccessPointIsTold) {
  const auto tell = [&](const std::string& mac) {
    auto question = about<zal::IPC_MSG__RRM_API_AP>("lab");
    *question.ap = mac;
    return answer_to<zal::IPC_MSG__RRM_API_AP_RESP>(question);
  };
  // A radio up to its channel, and from its channels on.
  const auto begin = [](int id, int mac_offset, int status) {
    return R"({"id":)" + std::to_string(id) + R"(,"mac":"A8:F9:4B:00:11:)" + std::to_string(id) +
           R"(0","mac-offset":)" + std::to_string(mac_offset) + R"(,"radio-mac-count":16,"status":)" +
           std::to_string(status) +
           R"(,"power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,"locked-80211v":0,)";
  };
  const auto end = [](const std::string& channels) {
    return R"("bandwidth":20,"primary-channel":0,"available-channels":[)" + channels +
           R"(],"vaps":[],"assoc_clients":[]})";
  };
  const std::string unset = R"("channel":0,"band":0,"power":0,"max-power":0,"min-power":0,)";
  EXPECT_EQ(tell("a8:f9:4b:00:11:00"),
            of_server(R"("deleted-ap":{"mac":"A8:F9:4B:00:11:00","active":0,"ap-mac-count":48,)"
                      R"("use-wildcard-80211r":0,"radios":{"received":0,"interfaces":[)" +
                      begin(0, 0, 0) + unset + end("") + "," + begin(1, 16, 1) +
                      R"("channel":36,"band":5,"power":17,"max-power":20,"min-power":5,)" + end("36,40") + "," +
                      begin(2, 32, 0) + unset + end("") + R"(]},"visible-members":[],"visible-rogue":[]})"));
  EXPECT_EQ(tell("a8:f9:4b:00:99:00"), of_server(R"("error":"ap not found")"));
}

TEST_F(DaemonBusOfASite, AnOptimisationStartsOrNot) {
  const auto start = [&](const std::string& group) {
    return answer_to<zal::IPC_MSG__RRM_API_START_OPT_RESP>(about<zal::IPC_MSG__RRM_API_START_OPT>(group));
  };
  EXPECT_EQ(start("lab"), of_server(R"("status":"success")"));
  EXPECT_EQ(start("attic"), of_server(R"("error":"domain not found")"));
}

TEST_F(DaemonBusOfASite, ReportsAreListed) {
  const auto list = [&](const std::string& start, const std::string& finish) {
    auto question = about<zal::IPC_MSG__RRM_API_REPORTS>("lab");
    *question.date_start = start;
    *question.date_finish = finish;
    return answer_to<zal::IPC_MSG__RRM_API_REPORTS_RESP>(question);
  };
  EXPECT_EQ(list("2023-11-14,00:00:00 UTC", "2023-11-15,00:00:00 UTC"),
            of_server(R"("data":[{"id":"2023-11-14,22:13:20,lab","domain":"lab","date":"2023-11-14,22:13:20 UTC"}],)"
                      R"("count":1,"status":"success")"));
  EXPECT_EQ(list("2023-11-13,00:00:00 UTC", "2023-11-14,00:00:00 UTC"),
            of_server(R"("data":[],"count":0,"status":"success")"));
  EXPECT_EQ(list("2023-11-15,00:00:00 UTC", "2023-11-15,00:00:00 UTC"), of_server(R"("status":"failure")"));
  EXPECT_EQ(list("yesterday", ""), of_server(R"("status":"failure")"));
}

TEST_F(DaemonBusOfASite, AReportIsTold) {
  const auto tell = [&](const std::string& id) {
    auto question = about<zal::IPC_MSG__RRM_API_REPORT>("lab");
    *question.report = id;
    return answer_to<zal::IPC_MSG__RRM_API_REPORT_RESP>(question);
  };
  EXPECT_EQ(
      tell("2023-11-14,22:13:20,lab"),
      of_server(R"("report":{"id":"2023-11-14,22:13:20,lab","domain":"lab","date":"2023-11-14,22:13:20 UTC",)"
                R"("domain_config":{"use_dunva_rrm_scan":1,"use_dca":1,"use_tpc":1,"use_hd_mode":1,"dca_threshold":25,)"
                R"("ap_rssi_threshold_2g":-70,"ap_rssi_threshold_5g":-70,"ap_rssi_threshold_6g":-70,"hysteresis_2g":2,)"
                R"("hysteresis_5g":2,"hysteresis_6g":2,"optimization_time":"00:00","use_optimization_time":0,)"
                R"("use_optimization_event":1,"away_timeout":300,"blacklist_thr_low":-75,"blacklist_thr_high":-65,)"
                R"("blacklist_timeout":30,"load_balance_sta_low":5,"load_balance_sta_high":20,)"
                R"("roam_attempt_timeout":600,"sta_load_balance_period":60,"load_balance_roam_count_min":2,)"
                R"("load_balance_roam_count_max":4,"use_all_ap_balance":0,"use_balance":1,"client_rssi_renew":15,)"
                R"("client_max_age":20,"client_try_no_balance":2,"no_balance_enterprise":0,"use_rrm_report":1,)"
                R"("report_days_to_live":93,"use_80211k":1,"use_80211r":1,"use_80211r_2g_cross_band":1,"use_80211v":0,)"
                R"("fbt_reassoc_deadline":1000,"fbt_over_ds":0},"details":[{"ap_mac":"00:11:22:00:00:00",)"
                R"("radio_interfaces":[{"radio_id":0,"radio_mac":"00:11:22:00:00:01",)"
                R"("before":{"power":20,"channel":36,"eirp":22},"after":{"power":17,"channel":44,"eirp":19},)"
                R"("bandwidth":40,"max_power":23,"min_power":5,"primary_channel":1,)"
                R"("available_channels":[36,40,44,48],"eirp-min":7,"eirp-max":30,)"
                R"("antenna-configuration":{"antenna-gain":3,"cable-loss":1}}]}]},"status":"success")"));
  EXPECT_EQ(tell("nonsense"), of_server(R"("status":"failure")"));
}

TEST_F(DaemonBus, BeforeAnySetupTheOlderQuestionsAreAnsweredByNothing) {
  expect_answers_to_questions();
}

TEST_F(DaemonBus, ASessionFilterThatIsNoNumberDropsNothing) {
  set_up_site();
  const std::vector<std::pair<std::string, std::string>> cases{
      {"", ""},     {"1", "1"}, {"1, 2 ,3", "1,2,3"},   {",,5,", "5"},       {"x7", ""}, {"7x,8", "8"}, {"1 2,3", "3"},
      {"-1", "-1"}, {" ", ""},  {"99999999999,4", "4"}, {"0x10,1.5,2", "2"},
  };
  for (const auto& [filter, ids] : cases) {
    zal::IPC_MSG__RRM_API_REM_SESSIONS message;
    *message.filter = filter;
    expect_answer<zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP>(message,
                                                           R"({"rrm":{"drop_session":"true","ids":[)" + ids + "]}}");
  }
}

TEST_F(DaemonBus, AReportOfLifeSucceedsAlsoBeforeAnySetup) {
  EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_REPORT_RESP>(zal::IPC_MSG__RRM_REPORT()).text, R"({"status":"success"})");
}

TEST_F(DaemonBus, WithoutMemoryForATreeAReportOfLifeIsAnError) {
  Platform::instance().gives_trees = false;
  EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_REPORT_RESP>(zal::IPC_MSG__RRM_REPORT()).text, R"({"status": "error"})");
}

TEST_F(DaemonBus, AManagementRequestIsServedAndAnswered) {
  set_up_site();
  EXPECT_EQ(deliver(zal::testing::ap_message("A8F94B001100", R"({"ip":"10.0.0.1","location":"lab"})"), port_, *radio_),
            Error::none);
  const auto done = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(a_request(Request::common)).response;
  EXPECT_EQ(done.kind, 0);
  EXPECT_EQ(done.failed, 0);
  EXPECT_EQ(*done.error, "");
  EXPECT_EQ(*done.result, R"({"array":[{"ap-location":"lab","ap-morvane":0,"ap-count":1}]})");
  const auto failed = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(a_request(Request::rrm_stat, "lab")).response;
  EXPECT_EQ(failed.kind, 3);
  EXPECT_EQ(failed.failed, 1);
  EXPECT_EQ(*failed.error, "ap-location 'lab' is empty");
  EXPECT_EQ(*failed.result, "");
}

TEST_F(DaemonBus, BeforeAnySetupAManagementRequestFails) {
  const auto response = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(a_request(Request::common)).response;
  EXPECT_EQ(response.failed, 1);
  EXPECT_EQ(*response.error, "no answer on morvane api request for domains");
}

// The role

TEST_F(DaemonBus, TheRoleIsToldAsTwoNumbers) {
  const zal::IPC_MSG__RRM_API_VRRP_STATUS question;
  auto reply = reply_to<zal::IPC_MSG__RRM_API_VRRP_STATUS_RESP>(question);
  EXPECT_EQ(std::pair(reply.role, reply.result), std::pair(3, 0)) << "before any setup";
  set_up_site();
  reply = reply_to<zal::IPC_MSG__RRM_API_VRRP_STATUS_RESP>(question);
  EXPECT_EQ(std::pair(reply.role, reply.result), std::pair(2, 1));
  radio_->set_vrrp_state(1);
  reply = reply_to<zal::IPC_MSG__RRM_API_VRRP_STATUS_RESP>(question);
  EXPECT_EQ(std::pair(reply.role, reply.result), std::pair(1, 1));
}

struct RoleStep {
  int state;
  std::vector<std::string> notes;
  int after;
  rrm::RRM::Role role;
};

// The commands and the lines around them; of a master with domains, without the domains.
std::vector<std::string> role_notes() {
  std::vector<std::string> lines;
  for (const std::string& note : Platform::instance().notes()) {
    const bool is_answer = note.find(R"("version")") != std::string::npos;
    if (is_answer || note.starts_with("ap: Morvane API ")) continue;
    lines.push_back(note.substr(0, note.find(R"("domains":[)")));
  }
  return lines;
}

TEST_F(DaemonBus, AStateOfThePairOrdersTheServerIntoItsRole) {
  set_up_site();
  const std::string with_domains = R"(ap_limited: {"vrrp":{"role":"master",)";
  const std::string alone = R"(ap_limited: {"vrrp":{"role":"master"}})";
  const std::string backup = R"(ap_limited: {"vrrp":{"role":"backup"}})";
  const std::string restored = "ap: RRM has been successfully restored";
  const auto master = rrm::RRM::role_master;
  const std::vector<RoleStep> steps{
      {0, {with_domains, restored}, 3, master},
      {2, {backup}, 2, rrm::RRM::role_backup},
      {0, {alone}, 0, master},
      {0, {with_domains, restored}, 0, master},
      {2, {backup}, 2, rrm::RRM::role_backup},
      {1, {with_domains}, 1, master},
      {1, {with_domains, restored}, 1, master},
      {0, {alone}, 0, master},
      {3, {}, 3, master},
      {1, {with_domains, restored}, 1, master},
      {7, {}, 1, master},
      {2, {backup}, 2, rrm::RRM::role_backup},
  };
  for (const auto& [state, notes, after, role] : steps) {
    SCOPED_TRACE(std::to_string(state) + " expecting " + std::to_string(after));
    Platform::instance().clear();
    EXPECT_EQ(deliver(zal::testing::vrrp_message(state), port_, *radio_), Error::none);
    EXPECT_EQ(role_notes(), notes);
    EXPECT_EQ(radio_->vrrp_state(), after);
    EXPECT_EQ(radio_->server()->role(), role);
  }
}

TEST_F(DaemonBus, ASetupThatDisablesTheServerMakesItBackupUntilAnotherEnablesIt) {
  set_up_site();
  radio_->set_vrrp_state(1);
  radio_->update_setup(text(R"({"global":{"enabled":0,"listen_port":0},"common":{}})"));
  EXPECT_EQ(radio_->server()->role(), rrm::RRM::role_backup);
  EXPECT_EQ(radio_->vrrp_state(), 1);
  EXPECT_THAT(Platform::instance().notes(), Contains(R"(ap_limited: {"vrrp":{"role":"backup"}})"));
  radio_->update_setup(text(setup));
  EXPECT_EQ(radio_->server()->role(), rrm::RRM::role_master);
  EXPECT_EQ(radio_->vrrp_state(), 1);
}

TEST_F(DaemonBus, ASetupThatIsRefusedDisablesNothing) {
  set_up_site();
  radio_->set_vrrp_state(1);
  radio_->update_setup(text(R"({"global":{"enabled":0,"report_delete_at_time_utc":"24:00"},"common":{}})"));
  EXPECT_TRUE(radio_->config()->enabled());
  EXPECT_EQ(radio_->server()->role(), rrm::RRM::role_master);
}

// The log's MAC filter

class DaemonMacFilter : public DaemonBus {
 protected:
  ~DaemonMacFilter() override {
    trace.mac_filter().turn_off();
    trace.mac_filter().clear();
  }
  // The text of the reply.
  std::string order(std::int32_t action, std::optional<std::string> macs = std::nullopt) {
    zal::IPC_MSG__MAC_FILTER message;
    message.action = action;
    message.text = std::move(macs);
    const auto reply = reply_to<zal::IPC_MSG__MAC_FILTER_RESP>(message);
    EXPECT_EQ(reply.module, 14);
    return *reply.text;
  }
  static constexpr const char* done = R"({"error":false})";
};

TEST_F(DaemonMacFilter, TheFilterIsTurnedOnAndOff) {
  EXPECT_EQ(order(4), R"({"error":false,"filter_status":false})");
  EXPECT_EQ(order(0), done);
  EXPECT_TRUE(trace.mac_filter().is_on());
  EXPECT_EQ(order(4), R"({"error":false,"filter_status":true})");
  EXPECT_EQ(order(1), done);
  EXPECT_FALSE(trace.mac_filter().is_on());
}

TEST_F(DaemonMacFilter, ItsAddressesAreASortedSet) {
  EXPECT_EQ(order(5), R"({"error":false,"macs":[]})");
  EXPECT_EQ(order(2, "A8:F9:4B:00:22:00 a8f94b001100 nonsense"), done);
  EXPECT_EQ(order(2, "a8:f9:4b:00:11:00 a8:f9:4b:00:11:00 00:00:00:00:00:01"), done);
  EXPECT_EQ(order(5), R"({"error":false,"macs":["00:00:00:00:00:01","a8:f9:4b:00:11:00","a8:f9:4b:00:22:00"]})");
  EXPECT_EQ(order(3, "a8:f9:4b:00:11:00 a8:f9:4b:00:99:00"), done);
  EXPECT_EQ(order(5), R"({"error":false,"macs":["00:00:00:00:00:01","a8:f9:4b:00:22:00"]})");
  EXPECT_EQ(order(6), done);
  EXPECT_EQ(order(5), R"({"error":false,"macs":[]})");
}

TEST_F(DaemonMacFilter, WithoutAddressesNothingIsAddedOrRemoved) {
  EXPECT_EQ(order(2, "a8f94b001100"), done);
  for (const std::int32_t action : {2, 3}) {
    EXPECT_EQ(order(action), done);
    EXPECT_EQ(order(action, ""), done);
    EXPECT_EQ(order(action, "nonsense"), done);
  }
  EXPECT_EQ(order(5), R"({"error":false,"macs":["a8:f9:4b:00:11:00"]})");
}

TEST_F(DaemonMacFilter, AnActionWithoutAMeaningChangesNothing) {
  EXPECT_EQ(order(0), done);
  EXPECT_EQ(order(2, "a8f94b001100"), done);
  EXPECT_EQ(order(7, "a8f94b002200"), R"({"error":true,"cause":"invalid action"})");
  for (const std::int32_t action : {8, 2147483647, -1}) EXPECT_EQ(order(action, "a8f94b002200"), done);
  EXPECT_EQ(order(4), R"({"error":false,"filter_status":true})");
  EXPECT_EQ(order(5), R"({"error":false,"macs":["a8:f9:4b:00:11:00"]})");
}

TEST_F(DaemonMacFilter, WithoutMemoryForATreeNoActionIsDone) {
  EXPECT_EQ(order(2, "a8f94b001100"), done);
  Platform::instance().gives_trees = false;
  for (const std::int32_t action : {0, 2, 3, 4, 5, 6, 7, 8})
    EXPECT_EQ(order(action, "a8f94b001100 a8f94b002200"), R"({"error":true, "cause":"can't get empty cfg"})");
  Platform::instance().gives_trees = true;
  EXPECT_EQ(order(4), R"({"error":false,"filter_status":false})");
  EXPECT_EQ(order(5), R"({"error":false,"macs":["a8:f9:4b:00:11:00"]})");
}

TEST_F(DaemonMacFilter, TheControllersWholeFilterReplacesThis) {
  EXPECT_EQ(order(2, "a8f94b001100"), done);
  zal::IPC_MSG__MAC_FILTER_CONFIG config;
  config.enabled = true;
  *config.macs = "a8f94b003300 a8f94b002200";
  Platform::instance().clear();
  EXPECT_EQ(deliver(config, port_, *radio_), Error::none);
  EXPECT_THAT(Platform::instance().sent(), IsEmpty());
  EXPECT_EQ(order(4), R"({"error":false,"filter_status":true})");
  EXPECT_EQ(order(5), R"({"error":false,"macs":["a8:f9:4b:00:22:00","a8:f9:4b:00:33:00"]})");
}

}  // namespace
