// What comes over the bus and is answered: the management's requests, the older questions, the log's MAC filter, the
// reports of life and of the role.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/MorvaneRequests.h"
#include "daemon/radio_support.h"
#include "daemon/scripted_api.h"
#include "daemon/trace.h"
#include "support/capture.h"
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

// The bus

constexpr const char* setup = R"({"global":{"enabled":1,"listen_port":0},"common":{},"patterns":[],
    "domains":[{"domain":"lab","pattern":"common"}]})";

class DaemonBus : public ::testing::Test {
 protected:
  DaemonBus() {
    Platform::instance().reset();
    radio_ = std::make_unique<RadioRM>(port_);
  }
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

  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  std::unique_ptr<RadioRM> radio_;
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
