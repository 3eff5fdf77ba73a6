// What nobody should send over the bus: setups that are cut or wrong in any value, records of access points that are
// none, questions and orders about nothing. Each is answered or told as stated, and the server runs on as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Worker.h"
#include "core/version.h"
#include "daemon/commands.h"
#include "daemon/radio_support.h"
#include "daemon/recording_platform.h"
#include "daemon/trace.h"
#include "json/JsonReader.h"
#include "support/bad_json.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/messages.h"
#include "support/temp_dir.h"
#include "zal/MacFilter.h"

namespace {

using rrm::testing::any;
using rrm::testing::as_json;
using rrm::testing::Fault;
using rrm::testing::names_kind;
using rrm::testing::replaced_all;
using rrm::testing::texts;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::Error;
using zal::testing::deliver;
using zal::testing::Platform;
using zal::testing::RecordedRadio;
using zal::testing::text;

using Lines = std::vector<std::string>;

constexpr const char* not_text = "missing null number negative fraction true empty array object";
constexpr const char* read_as_zero = "null fraction text empty long control nul array object";

// Setups

const std::string own_port = R"({"listen_port":8100})";
const std::string own_age = R"({"client_max_age":50})";
const std::string dense = R"({"pattern":"dense","use_tpc":0})";
const std::string north = R"({"domain":"north","pattern":"dense","time_zone":"3:00"})";
const std::string hall = R"({"domain":"hall","pattern":"common"})";

std::string setup(const std::string& global, const std::string& common, const std::string& patterns,
                  const std::string& domains) {
  return R"({"global":)" + global + R"(,"common":)" + common + R"(,"patterns":[)" + patterns + R"(],"domains":[)" +
         domains + "]}";
}

const std::string valid_setup = setup(own_port, own_age, dense, north + "," + hall);

class BadSetups : public ::testing::Test {
 protected:
  BadSetups() { Platform::instance().reset(); }

  // The valid setup runs, with a worker in both of its domains.
  void run_site() {
    radio_.update_setup(text(valid_setup));
    EXPECT_TRUE(*radio_.config() == rrm::GlobalConfig("", valid_setup));
    for (const char* domain : {"north", "hall"}) {
      rrm::JsonReader message(
          (R"({"version":"2.4","domain":")" + std::string(domain) + R"(","cmd":"subscribe-request"})").c_str());
      radio_.server()->process_incoming_message(message, rrm::BaseSession{});
    }
    EXPECT_THAT(workers(), ElementsAre("hall", "north"));
    Platform::instance().clear();
    log_.clear();
  }
  Lines workers() const {
    Lines names;
    for (const auto& worker : radio_.server()->worker_snapshot()) names.push_back(worker->name);
    return names;
  }
  // Warnings and errors of a setup.
  Lines told_by(const std::string& value) {
    Platform::instance().clear();
    EXPECT_EQ(deliver(zal::testing::setup_message(value), port_, radio_), Error::none);
    Lines lines;
    for (const std::string& note : Platform::instance().notes()) {
      if (note.starts_with("warn: ") || note.starts_with("error: ")) lines.push_back(note);
    }
    return lines;
  }

  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  RecordedRadio radio_{port_};
};

const char* const refused = "error: Setup is no JSON object, nothing changes";

TEST_F(BadSetups, ASetupThatIsCutAnywhereChangesNothing) {
  run_site();
  const rrm::GlobalConfig before("", valid_setup);
  const std::string next = setup(R"({"listen_port":8200})", R"({"use_dca":0})", "", "");
  for (std::size_t length = 0; length < next.size(); ++length) {
    SCOPED_TRACE(next.substr(0, length));
    EXPECT_THAT(told_by(next.substr(0, length)), ElementsAre(refused));
    EXPECT_THAT(Platform::instance().notes(), ElementsAre(refused)) << "the server is not told of it";
    EXPECT_TRUE(*radio_.config() == before);
  }
  EXPECT_THAT(workers(), ElementsAre("hall", "north"));
}

TEST_F(BadSetups, AFirstSetupThatIsCutLeavesTheDefaults) {
  for (std::size_t length = 1; length < valid_setup.size(); length += 20) {
    SCOPED_TRACE(valid_setup.substr(0, length));
    RecordedRadio radio(port_);
    Platform::instance().clear();
    EXPECT_EQ(deliver(zal::testing::setup_message(valid_setup.substr(0, length)), port_, radio), Error::none);
    EXPECT_THAT(Platform::instance().notes(),
                ElementsAre("ap: Need to start RRM", "error: Setup is no JSON object, the defaults hold"));
    EXPECT_TRUE(*radio.config() == rrm::GlobalConfig(""));
  }
}

TEST_F(BadSetups, WhatIsNoSetupChangesNothing) {
  run_site();
  const rrm::GlobalConfig before("", valid_setup);
  const std::string deep(10000, '[');
  const std::vector<std::string> values{std::string(5, '\0'),
                                        "\xff\xfe{}",
                                        "{}{}",
                                        valid_setup + valid_setup,
                                        valid_setup + "x",
                                        "{'global':{}}",
                                        R"({"global":{},})",
                                        "{\"global\":" + deep + std::string(10000, ']') + "}",
                                        std::string(4u << 20, 'x'),
                                        std::string(4u << 20, '{'),
                                        R"("{}")",
                                        "[" + valid_setup + "]"};
  for (const std::string& value : values) {
    SCOPED_TRACE(value.substr(0, 100));
    EXPECT_THAT(told_by(value), ElementsAre(refused));
    EXPECT_TRUE(*radio_.config() == before);
  }
  EXPECT_THAT(workers(), ElementsAre("hall", "north"));
}

// What a fault of the running setup makes of it: the setup that says the same, whose workers are left, and what is
// told.
// "@" stands for the text that was read, as JSON.
struct SetupRow {
  std::string where;
  std::string how;
  std::string same_as;
  Lines workers;
  Lines told = {};
};

TEST_F(BadSetups, AValueThatIsWrongReadsAsStated) {
  const std::string both = north + "," + hall;
  const std::string only_hall = setup(own_port, own_age, "", hall);  // its pattern takes "north" along
  const Lines nobody_left = {"warn: Setup: domains not taken over: 'north', 'hall'"};
  const Lines no_north = {"warn: Setup: domains not taken over: 'north'"};
  const Lines no_hall = {"warn: Setup: domains not taken over: 'hall'"};
  const Lines no_name = {"warn: Setup: domains not taken over: ''"};
  const Lines north_refused = {no_north[0],
                               R"(warn: Setup: 'add domain north' refused, invalid parameters: [{"pattern":"dense"}])"};
  const auto with_port = [&](const std::string& port) {
    return setup(R"({"listen_port":)" + port + "}", own_age, dense, both);
  };
  const auto with_age = [&](const std::string& age) {
    return setup(own_port, R"({"client_max_age":)" + age + "}", dense, both);
  };
  const auto with_tpc = [&](const std::string& tpc) {
    return setup(own_port, own_age, R"({"pattern":"dense","use_tpc":)" + tpc + "}", both);
  };
  const auto with_domains = [&](const std::string& domains) { return setup(own_port, own_age, dense, domains); };
  const std::vector<SetupRow> rows = {
      {"", "object", "{}", {}},
      {"", any, valid_setup, {"hall", "north"}, {refused}},
      {"/global", "missing null", "{}", {}, nobody_left},
      {"/global", any, setup("{}", own_age, dense, both), {}},
      {"/global/listen_port", "missing", with_port("8099"), {}},
      {"/global/listen_port",
       "negative",
       with_port("8099"),
       {},
       {R"(warn: Setup: invalid parameters: [{"listen_port":-7}])"}},
      {"/global/listen_port", "number", with_port("7"), {}},
      {"/global/listen_port", "true", with_port("1"), {}},
      {"/global/listen_port", read_as_zero, with_port("0"), {}},
      {"/common", "missing null", R"({"global":)" + own_port + "}", {}, nobody_left},
      {"/common", any, setup(own_port, "{}", dense, both), {"north"}},
      {"/common/client_max_age", "missing", with_age("20"), {"north"}},
      {"/common/client_max_age",
       "negative",
       with_age("20"),
       {"north"},
       {R"(warn: Setup: invalid parameters: [{"client_max_age":-7}])"}},
      {"/common/client_max_age", "number", with_age("7"), {"north"}},
      {"/common/client_max_age", "true", with_age("1"), {"north"}},
      {"/common/client_max_age", read_as_zero, with_age("0"), {"north"}},
      {"/patterns", "missing null", setup(own_port, own_age, "", ""), {}, nobody_left},
      {"/patterns", any, only_hall, {"hall"}, north_refused},
      {"/patterns/0", any, only_hall, {"hall"}, north_refused},
      {"/patterns/0/pattern", not_text, only_hall, {"hall"}, north_refused},
      {"/patterns/0/pattern",
       texts,
       setup(own_port, own_age, R"({"pattern":@,"use_tpc":0})", hall),
       {"hall"},
       north_refused},
      {"/patterns/0/use_tpc", read_as_zero, valid_setup, {"hall", "north"}},
      {"/patterns/0/use_tpc", any, with_tpc("1"), {"hall"}},
      {"/domains", any, with_domains(""), {}},
      {"/domains/0", "missing", with_domains(hall), {"hall"}},
      {"/domains/0", any, with_domains(hall), {"hall"}, no_name},
      {"/domains/0/domain", not_text, with_domains(hall), {"hall"}, no_name},
      {"/domains/0/domain",
       texts,
       with_domains(R"({"domain":@,"pattern":"dense","time_zone":"3:00"},)" + hall),
       {"hall"}},
      {"/domains/0/pattern", not_text, with_domains(hall), {"hall"}, no_north},
      {"/domains/0/pattern",
       texts,
       valid_setup,
       {"hall", "north"},
       {no_north[0], "warn: Setup: 'set domain north' refused, invalid parameters: []"}},
      {"/domains/0/time_zone", "missing", with_domains(R"({"domain":"north","pattern":"dense"},)" + hall), {"hall"}},
      {"/domains/0/time_zone", any, with_domains(hall), {"hall"}, no_north},
      {"/domains/1", "missing", with_domains(north), {"north"}},
      {"/domains/1", any, with_domains(north), {"north"}, no_name},
      {"/domains/1/domain", not_text, with_domains(north), {"north"}, no_name},
      {"/domains/1/domain", texts, with_domains(north + R"(,{"domain":@,"pattern":"common"})"), {"north"}},
      {"/domains/1/pattern", not_text, with_domains(north), {"north"}, no_hall},
      {"/domains/1/pattern",
       texts,
       valid_setup,
       {"hall", "north"},
       {no_hall[0], "warn: Setup: 'set domain hall' refused, invalid parameters: []"}},
  };
  run_site();
  std::set<const SetupRow*> used;
  rrm::testing::for_each_fault(valid_setup, [&](const Fault& fault) {
    SCOPED_TRACE(fault.where + " " + fault.how);
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const SetupRow& one) {
      return one.where == fault.where && names_kind(one.how, fault.how);
    });
    if (fault.how != "unknown" && row == rows.end()) {
      ADD_FAILURE() << "the table does not say";
      return;
    }
    const SetupRow stated = fault.how == "unknown" ? SetupRow{"", "", valid_setup, {"hall", "north"}} : *row;
    if (fault.how != "unknown") used.insert(&*row);
    EXPECT_EQ(told_by(fault.text), stated.told);
    EXPECT_TRUE(*radio_.config() == rrm::GlobalConfig("", replaced_all(stated.same_as, "@", as_json(fault.read))));
    EXPECT_EQ(workers(), stated.workers);
    run_site();  // from whatever was made of it back to what it should have been
  });
  for (const SetupRow& row : rows) EXPECT_TRUE(used.contains(&row)) << row.where << " " << row.how;
}

// As an empty object is; only what is no object is told to be none.
const char* const setups_of_nothing[] = {R"({"global":7,"common":"x","patterns":true,"domains":{}})",
                                         R"({"global":[],"common":[],"patterns":{},"domains":1.5})",
                                         R"({"global":null,"common":null,"patterns":null,"domains":null})",
                                         R"({"global":"","common":"","patterns":"","domains":""})",
                                         R"({"GLOBAL":{},"Common":{},"pattern":[],"domain":[]})"};

TEST_F(BadSetups, ASetupThatIsWrongInEverySectionIsASetupOfNothing) {
  for (const char* value : setups_of_nothing) {
    SCOPED_TRACE(value);
    run_site();
    EXPECT_THAT(told_by(value), IsEmpty());
    EXPECT_TRUE(*radio_.config() == rrm::GlobalConfig(""));
    EXPECT_THAT(workers(), IsEmpty());
    RecordedRadio first(port_);
    EXPECT_EQ(deliver(zal::testing::setup_message(value), port_, first), Error::none);
    EXPECT_TRUE(*first.config() == rrm::GlobalConfig(""));
  }
}

// Questions and orders

const char* const ap1 = "00:11:22:33:44:00";

class BadMessages : public ::testing::Test {
 protected:
  BadMessages() {
    Platform::instance().reset();
    radio_.update_setup(text(R"({"global":{"listen_port":0,"reports_path":")" + reports_.path().string() +
                             R"("},"common":{},"patterns":[],"domains":[{"domain":"lab","pattern":"common"}]})"));
    rrm::JsonReader message(rrm::testing::a_subscribe(ap1).with_radio(rrm::testing::a_5ghz_radio()).text().c_str());
    radio_.server()->process_incoming_message(message, rrm::BaseSession{});
    EXPECT_TRUE(rrm::testing::eventually([&] { return ask(commands::domain("lab")).find(ap1) != std::string::npos; }));
    deliver(zal::testing::ap_message("a8f94b001122", R"({"ip":"10.0.0.7","location":"lab"})"), port_, radio_);
  }
  ~BadMessages() override {
    trace.mac_filter().turn_off();
    trace.mac_filter().clear();
  }

  std::string ask(const std::string& command) {
    ApiZAL api(radio_.server(), radio_.active_aps());
    return api.run(command).value_or("no answer");
  }
  // All that the server and the gateway know.
  Lines picture() {
    Lines lines;
    for (const char* command :
         {R"({"cfg":{"operation":"get","level":"global"}})",
          R"({"cfg":{"operation":"get","level":"pattern","pattern":"common"}})",
          R"({"cfg":{"operation":"get","level":"domain"}})", R"({"rrm":{}})", R"({"rrm":{"domain":"lab"}})",
          R"({"rrm":{"domain":"lab","ap":"00:11:22:33:44:00"}})", R"({"rrm":{"sessions":1}})", R"({"vrrp":{}})"}) {
      lines.push_back(ask(command));
    }
    Lines records;
    radio_.active_aps().for_each([&](const zal::MacAddr& mac, const ActiveApStorage::Record& record) {
      records.push_back(mac.to_string() + " " + record->get_ip().value_or("-") + " " +
                        record->get_location().value_or("-") + " " + record->get_board_type().value_or("-"));
      return false;
    });
    std::sort(records.begin(), records.end());
    lines.insert(lines.end(), records.begin(), records.end());
    lines.push_back("state " + std::to_string(radio_.vrrp_state()));
    lines.push_back(trace.mac_filter().is_on() ? "filter on" : "filter off");
    for (const zal::MacAddr& mac : trace.mac_filter().macs()) lines.push_back("filter " + mac.to_string());
    return lines;
  }
  static std::string of_server(const std::string& members) {
    return R"({"version":"2.1","server":")" + rrm::GlobalConfig("").hostname() + R"(","morvane_version":")" +
           rrm::build_version + "\"" + (members.empty() ? "" : ",") + members + "}";
  }
  // The one reply; nothing else has changed.
  template <class Reply, class Message>
  Reply reply_to(const Message& message) {
    const Lines before = picture();
    Platform::instance().clear();
    EXPECT_EQ(deliver(message, port_, radio_), Error::none);
    const auto sent = Platform::instance().sent();
    EXPECT_EQ(sent.size(), 1u);
    const auto reply = sent.empty() ? nullptr : std::dynamic_pointer_cast<Reply>(sent.front());
    EXPECT_EQ(picture(), before);
    return reply ? *reply : Reply();
  }

  rrm::testing::ManualClock clock_{1000, 1700006460};  // a minute after midnight
  rrm::testing::Capture log_;
  rrm::testing::TempDir reports_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  RecordedRadio radio_{port_};
};

// No name, no address, no time and no list of numbers.
std::vector<std::string> bad_texts() {
  return {"",
          "x y",
          "null",
          "[]",
          std::string("\0lab", 4),
          std::string(64 * 1024, 'a'),
          std::string(100000, 'a') + "\x01\x1f\n",
          R"(lab","start_optimization":"true)",
          R"(lab\)",
          "%s%n%99999d",
          "\xff\xfe",
          "../../../../etc/passwd",
          "00:11:22:33:44",
          "2023-11-14,22:13:20 UTC,lab",
          "2023-11-14,22:13:20,../../../etc"};
}

TEST_F(BadMessages, AQuestionAboutNothingIsAnsweredWithNothing) {
  const std::string no_domain = of_server(R"("error":"domain not found")");
  const std::string no_ap = of_server(R"("error":"ap not found")");
  const std::string failure = of_server(R"("status":"failure")");
  const std::string from = "2023-11-14,00:00:00 UTC";
  const std::string to = "2023-11-15,00:00:00 UTC";
  for (const std::string& bad : bad_texts()) {
    SCOPED_TRACE(bad.substr(0, 60));
    zal::IPC_MSG__RRM_API_REM_SESSIONS sessions;
    sessions.filter = text(bad);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP>(sessions).text, of_server(""));
    zal::IPC_MSG__RRM_API_GROUP group;
    group.group = text(bad);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_GROUP_RESP>(group).text, no_domain);
    zal::IPC_MSG__RRM_API_AP ap;
    ap.group = text(bad);
    ap.ap = text(ap1);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_AP_RESP>(ap).text, no_domain);
    ap.group = text("lab");
    ap.ap = text(bad);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_AP_RESP>(ap).text, no_ap);
    zal::IPC_MSG__RRM_API_START_OPT start;
    start.group = text(bad);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_START_OPT_RESP>(start).text, no_domain);
    zal::IPC_MSG__RRM_API_REPORTS reports;
    reports.group = text(bad);
    reports.date_start = text(from);
    reports.date_finish = text(to);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_REPORTS_RESP>(reports).text, failure);
    reports.group = text("lab");
    reports.date_start = text(bad);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_REPORTS_RESP>(reports).text, failure);
    reports.date_start = text(from);
    reports.date_finish = text(bad);
    EXPECT_EQ(*reply_to<zal::IPC_MSG__RRM_API_REPORTS_RESP>(reports).text, failure);
    zal::IPC_MSG__RRM_API_REPORT report;
    report.group = text("lab");
    report.report = text(bad);
    const std::string reply = *reply_to<zal::IPC_MSG__RRM_API_REPORT_RESP>(report).text;
    EXPECT_STREQ(rrm::JsonReader(reply.c_str()).get_string("status"), "failure");
  }
}

TEST_F(BadMessages, AManagementRequestAboutNothingFailsWithItsReason) {
  using Request = zal::IpcMsgMorvaneRequest;
  const std::string no_bands = R"({"2g":[],"5g":[],"6g":[]})";
  struct Case {
    std::int32_t kind;
    std::string reason;  // "@" stands for the bad text
    std::string result;
  };
  const std::vector<Case> places = {
      {Request::sessions, "", R"({"array":[]})"},
      {Request::rrm_stat, "morvane is not enabled for ap-location '@'", ""},
      {Request::roaming_stat, "", no_bands},
      {Request::optimize, "failure from morvane api", ""},
      {Request::report, "failure from morvane api", ""},
  };
  for (const std::string& bad : bad_texts()) {
    SCOPED_TRACE(bad.substr(0, 60));
    const bool is_a_name = bad.find('\0') == std::string::npos;
    for (const auto& [kind, reason, result] : is_a_name ? places : std::vector<Case>{}) {
      SCOPED_TRACE(kind);
      Request request;
      request.kind = kind;
      request.location = bad;
      const auto response = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(request).response;
      EXPECT_EQ(response.kind, kind);
      EXPECT_EQ(response.failed, reason.empty() ? 0 : 1);
      EXPECT_EQ(*response.error, replaced_all(reason, "@", bad));
      EXPECT_EQ(*response.result, result);
    }
    for (std::int32_t kind = 0; kind <= 8; ++kind) {
      SCOPED_TRACE(kind);
      Request request;
      request.kind = kind;
      request.location = "lab";
      request.mac = bad;
      auto response = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(request).response;
      EXPECT_EQ(response.failed, 1);
      EXPECT_EQ(*response.error, "invalid parameter: 'mac' '" + bad + "'");
      request.band = bad;
      response = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(request).response;
      EXPECT_EQ(*response.error, "invalid parameter: 'band' '" + bad + "' 'mac' '" + bad + "'");
    }
  }
}

TEST_F(BadMessages, AnyNumberOfDaysIsAPeriod) {
  zal::IpcMsgMorvaneRequest request;
  request.kind = zal::IpcMsgMorvaneRequest::report;
  request.location = "lab";
  for (const std::uint32_t days : {0u, 1u, 36500u, 1000000u, 2147483647u, 4294967295u}) {
    SCOPED_TRACE(days);
    request.days = days;
    const auto response = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(request).response;
    EXPECT_EQ(response.failed, 0) << *response.error;
    EXPECT_EQ(*response.result, R"({"2g":[],"5g":[],"6g":[]})");
  }
}

TEST_F(BadMessages, AnOrderAboutNoAddressLeavesTheFilter) {
  zal::IPC_MSG__MAC_FILTER order;
  order.action = zal::IPC_MSG__MAC_FILTER::add;
  order.text = "a8f94b001122";
  deliver(order, port_, radio_);
  for (const std::string& bad : bad_texts()) {
    SCOPED_TRACE(bad.substr(0, 60));
    order.text = bad;
    for (const std::int32_t action : {0, 1, 2, 3, 4, 5, 6, 7, 8}) {
      if (action == 0 || action == 1 || action == 6) continue;  // they need no text
      order.action = action;
      const std::string reply = *reply_to<zal::IPC_MSG__MAC_FILTER_RESP>(order).text;
      EXPECT_EQ(rrm::JsonReader(reply.c_str()).get_int("error"), action == 7 ? 1 : 0);
    }
  }
}

TEST_F(BadMessages, AFilterOfNoAddressesIsEmpty) {
  for (const std::string& bad : bad_texts()) {
    SCOPED_TRACE(bad.substr(0, 60));
    zal::IPC_MSG__MAC_FILTER_CONFIG config;
    config.macs = text("a8f94b001122");
    deliver(config, port_, radio_);
    const Lines before = picture();
    config.macs = text(bad);
    EXPECT_EQ(deliver(config, port_, radio_), Error::none);
    Lines after = picture();
    after.push_back("filter a8:f9:4b:00:11:22");
    EXPECT_EQ(after, before);
  }
}

TEST_F(BadMessages, AStateThatIsNoneIsNotEntered) {
  const Lines before = picture();
  for (const std::int32_t state :
       {-1, 4, 7, 99, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
    SCOPED_TRACE(state);
    Platform::instance().clear();
    EXPECT_EQ(deliver(zal::testing::vrrp_message(state), port_, radio_), Error::none);
    EXPECT_THAT(Platform::instance().notes(), IsEmpty());
    EXPECT_EQ(picture(), before);
  }
}

// Records of access points

class BadRecords : public BadMessages {
 protected:
  static constexpr const char* mac = "a8f94b003344";
  // Of the access point that is known before: what is known of it after this.
  std::string record_after(const std::string& value) {
    deliver(zal::testing::ap_message(mac, R"({"ip":"10.0.0.8","location":"attic","board-type":"NVA-3wz"})"), port_,
            radio_);
    Lines before = picture();
    EXPECT_EQ(deliver(zal::testing::ap_message(mac, value), port_, radio_), Error::none);
    Lines after = picture();
    std::string known = "gone";
    const auto is_of_it = [](const std::string& line) { return line.starts_with("a8:f9:4b:00:33:44 "); };
    for (const std::string& line : after) {
      if (is_of_it(line)) known = line.substr(18);
    }
    std::erase_if(before, is_of_it);
    std::erase_if(after, is_of_it);
    EXPECT_EQ(after, before) << "nobody else is concerned";
    return known;
  }
};

TEST_F(BadRecords, ARecordThatIsCutAnywhereIsNone) {
  const std::string whole = R"({"ip":"10.0.0.9","location":"cellar","board-type":"NVA-1K"})";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(record_after(whole.substr(0, length)), "gone") << whole.substr(0, length);
  }
  EXPECT_EQ(record_after(whole), "10.0.0.9 cellar NVA-1K");
}

TEST_F(BadRecords, WhatIsNoTextIsNotKnown) {
  const std::string known = "10.0.0.9 cellar NVA-1K";
  const std::string whole = R"({"ip":"10.0.0.9","location":"cellar","board-type":"NVA-1K"})";
  struct Row {
    std::string where;
    std::string how;
    std::string known;  // "@" stands for the text that was given
  };
  const std::vector<Row> rows = {
      {"", any, "gone"},
      {"/ip", "array object", "gone"},  // a record is flat
      {"/ip", "text empty long control nul", "@ cellar NVA-1K"},
      {"/ip", "fraction", "gone"},
      {"/ip", any, "- cellar NVA-1K"},
      {"/location", "array object fraction", "gone"},
      {"/location", "text empty long control nul", "10.0.0.9 @ NVA-1K"},
      {"/location", any, "10.0.0.9 - NVA-1K"},
      {"/board-type", "array object fraction", "gone"},
      {"/board-type", "text empty long control nul", "10.0.0.9 cellar @"},
      {"/board-type", any, "10.0.0.9 cellar -"},
  };
  rrm::testing::for_each_fault(whole, [&](const Fault& fault) {
    SCOPED_TRACE(fault.where + " " + fault.how);
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& one) {
      return one.where == fault.where && names_kind(one.how, fault.how);
    });
    ASSERT_NE(row, rows.end());
    const std::string rest = fault.how == "nul" ? std::string("\0b", 2) : "";
    EXPECT_TRUE(record_after(fault.text) == replaced_all(row->known, "@", fault.read + rest));
  });
}

TEST_F(BadRecords, WhatIsNoRecordIsNone) {
  const std::string deep = std::string(10000, '[') + std::string(10000, ']');
  for (const std::string& value : std::vector<std::string>{
           "nonsense", "{}{}", R"({"location":"x"}{)", R"({"location":"x",})", R"({'location':'x'})",
           R"({"location":"x","deep":)" + deep + "}", "{\"location\":\"\xff\xfe\"}", R"({"Location":"x"})",
           std::string(4u << 20, 'x'), std::string(3, '\0')}) {
    EXPECT_EQ(record_after(value), "gone") << value.substr(0, 60);
  }
  EXPECT_TRUE(record_after(R"({"location":")" + std::string(4u << 20, 'x') + "\"}") ==
              "- " + std::string(4u << 20, 'x') + " -");
  EXPECT_EQ(record_after(R"({"location":"x","location":"y"})"), "- y -");
}

// Whatever stands in a record, the answer that is made of it is one JSON object.
TEST_F(BadRecords, AQuestionIsAnsweredWhateverTheRecordsSay) {
  zal::IpcMsgMorvaneRequest request;
  request.kind = zal::IpcMsgMorvaneRequest::common;
  struct Case {
    const char* record;
    std::string locations;
  };
  const std::string lab = R"({"ap-location":"lab","ap-morvane":1,"ap-count":1})";
  for (const Case& one :
       {Case{R"({"ip":"999.1.1.1","location":"x"})", lab}, Case{R"({"ip":"0.0.0.0","location":"x"})", lab},
        Case{R"({"ip":"","location":"x"})", lab}, Case{R"({"ip":"10.0.0.8"})", lab},
        Case{R"({"ip":"10.0.0.8","location":""})", R"({"ap-location":"","ap-morvane":0,"ap-count":1},)" + lab},
        Case{R"({"ip":"10.0.0.8","location":"a\"b\\\n\u0001"})",
             R"({"ap-location":"a\"b\\\n\u0001","ap-morvane":0,"ap-count":1},)" + lab}}) {
    SCOPED_TRACE(one.record);
    deliver(zal::testing::ap_message(mac, one.record), port_, radio_);
    const auto response = reply_to<zal::IPC_MSG__RRM_MORVANE_RESP>(request).response;
    EXPECT_EQ(*response.result, R"({"array":[)" + one.locations + "]}");
  }
}

}  // namespace
