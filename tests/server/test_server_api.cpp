// Questions about domains, sessions and reports, and the redundancy role: the answers to the letter.
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "RrmWorker.h"
#include "reports/report_texts.h"
#include "server/api_support.h"
#include "support/messages.h"
#include "websocket/fake_lws.h"
#include "websocket/ws_server.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Domains

class ApiDomains : public ApiTest {
 protected:
  ApiDomains() { server.make_real_domain_workers(); }

  // An access point with one 5 GHz radio, which asks for a plan at once.
  void subscribe(const std::string& mac, std::uint32_t session) {
    const std::size_t before = server.sent().size();
    server.receive(a_subscribe(mac).with_radio(a_5ghz_radio()).text(), session);
    ASSERT_TRUE(eventually([&] { return server.sent().size() > before; }));
  }
  std::shared_ptr<RrmWorker> domain(const std::string& name) const {
    return std::dynamic_pointer_cast<RrmWorker>(server.find_worker(name));
  }
  // All active access points go silent. Requires: called in execute_locked.
  static void silence(RrmWorker& worker) { worker.unanswered_aps().take_all_from(worker.aps()); }

  ManualClock clock;
};

TEST_F(ApiDomains, ADomainWithoutAWorkerIsNotFound) {
  for (const char* request :
       {R"({"domain":"lab"})", R"({"domain":"cellar"})", R"({"domain":""})", R"({"domain":null})", R"({"domain":7})",
        R"({"domain":{"name":"lab"}})", R"({"domain":"lab","ap":"00:11:22:33:44:55"})",
        R"({"domain":"lab","start_optimization":"true"})", R"({"domain":"lab","sessions":1})"}) {
    EXPECT_EQ(ask(request), of_server(R"("error":"domain not found")")) << request;
  }
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(ApiDomains, AWorkerOfAnotherKindIsNoDomain) {
  server.adopt(std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "lab"}));
  EXPECT_EQ(ask(R"({"domain":"lab"})"), of_server(R"("error":"domain not found")"));
}

TEST_F(ApiDomains, ADomainTellsItsStatus) {
  subscribe("00:11:22:33:44:00", 1);
  EXPECT_EQ(ask(R"({"domain":"lab"})"),
            of_server(R"("details":{"name":"lab","metrics":{"rrm-response-expected":0,"rrm-response-count":0,)"
                      R"("rrm-mode-response-expected":0,"rrm-mode-response-count":0,"rrm-config-changed-expected":0,)"
                      R"("rrm-config-changed-count":0,"timer-request-modes-expected":0,"timer-request-modes-count":0,)"
                      R"("timer-request-scan-expected":0,"timer-request-scan-count":0,"timer-optimize-expected":0,)"
                      R"("timer-optimize-count":0},"ap-count":1,"unanswered-ap-count":0,"deleted-ap-count":0,)"
                      R"("queue-size":0,"rrm-status":4,"fbt-status":0,"aps":[{"board":"NVA-3wz",)"
                      R"("mac":"00:11:22:33:44:00","serial":"SN44:00","hw":"1.0","radios":[{"id":0,"vaps":[]},)"
                      R"({"id":1,"vaps":[]},{"id":2,"vaps":[]}]}],"unanswered-aps":[],"deleted-aps":[]})"));
  EXPECT_EQ(ask(R"({"domain":"lab","sessions":1,"drop_session":"true","ids":[1]})"), ask(R"({"domain":"lab"})"))
      << "the domain comes first";
}

// Between two of its steps a domain may have lost sight of an access point; nobody who asks ever sees that.
TEST_F(ApiDomains, AQuestionFindsTheDomainBetweenTwoSteps) {
  subscribe("00:11:22:33:44:00", 1);
  std::atomic<bool> done{false};
  std::thread steps([&] {
    RrmWorker& lab = *domain("lab");
    for (int i = 0; i < 2000; ++i) {
      lab.execute_locked([&] {
        silence(lab);
        lab.aps().take_all_from(lab.unanswered_aps());
      });
    }
    done = true;
  });
  int lost = 0;
  while (!done) {
    const auto missing = [&](const char* request, const char* part) {
      return ask(request).find(part) == std::string::npos;
    };
    lost += missing("{}", R"("ap-count":1,"unanswered-ap-count":0)") ? 1 : 0;
    lost += missing(R"({"domain":"lab"})", R"("ap-count":1,"unanswered-ap-count":0)") ? 1 : 0;
    lost += missing(R"({"domain":"lab","ap":"00:11:22:33:44:00"})", "active-ap") ? 1 : 0;
  }
  steps.join();
  EXPECT_EQ(lost, 0);
}

// Overview

TEST_F(ApiDomains, TheOverviewCountsTheAccessPointsOfEachDomain) {
  server.adopt(std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "attic"}));
  cfg(R"({"operation":"set","level":"domain","domain":"hall","config":{"pattern":"office"}})");
  for (const char* request : {"{}", "null", "[]", "7", R"({"ap":"00:11:22:33:44:00"})", R"({"role":"master"})"}) {
    EXPECT_EQ(ask(request), of_server(R"("domains":[{"name":"attic"}])")) << request;
  }
  subscribe("00:11:22:33:44:00", 1);
  domain("lab")->execute_locked([&] { silence(*domain("lab")); });
  subscribe("00:11:22:33:55:00", 2);
  subscribe("00:11:22:33:66:00", 3);
  subscribe("00:11:22:33:77:00", 4);
  server.drop_session_at_rrm_workers(session_of(2));
  ASSERT_TRUE(eventually([&] { return ask("{}").find(R"("deleted-ap-count":1)") != std::string::npos; }));
  server.receive(a_subscribe("00:11:22:33:88:00").with("domain", "hall").with_radio(a_5ghz_radio()).text(), 5);
  ASSERT_TRUE(eventually([&] { return ask("{}").find(R"("name":"hall","ap-count":1)") != std::string::npos; }));
  EXPECT_EQ(ask("{}"), of_server(R"("domains":[{"name":"attic"},{"name":"hall","ap-count":1,"unanswered-ap-count":0,)"
                                 R"("deleted-ap-count":0,"common-config":0},{"name":"lab","ap-count":2,)"
                                 R"("unanswered-ap-count":1,"deleted-ap-count":1,"common-config":1}])"));
}

TEST_F(ApiDomains, ANewMasterKnowsTheAccessPointsOfItsBackups) {
  vrrp(R"({"role":"master","domains":[{"name":"lab","rrm-status":3,"aps":[{"mac":"00:11:22:33:44:00",)"
       R"("board":"NVA-3wz","hw":"1.0","serial":"SN1"}]},{"name":"hall"}]})");
  EXPECT_EQ(ask("{}"), of_server(R"("domains":[{"name":"hall","ap-count":0,"unanswered-ap-count":0,)"
                                 R"("deleted-ap-count":0,"common-config":0},{"name":"lab","ap-count":0,)"
                                 R"("unanswered-ap-count":0,"deleted-ap-count":1,"common-config":1}])"));
  EXPECT_NE(ask(R"({"domain":"lab","ap":"00:11:22:33:44:00"})").find(R"("deleted-ap":{"mac":"00:11:22:33:44:00")"),
            std::string::npos);
  EXPECT_NE(ask(R"({"domain":"lab"})").find(R"("rrm-status":4)"), std::string::npos);
}

// By value: a pattern that says what the common settings say is as good.
TEST_F(ApiDomains, TheOverviewTellsWhoseSettingsAreTheCommonOnesNow) {
  subscribe("00:11:22:33:44:00", 1);
  const auto common_config = [&] {
    const std::string answer = ask("{}");
    return answer.substr(answer.find("common-config"), 16);
  };
  EXPECT_EQ(common_config(), R"(common-config":1)");
  bool failed = false;
  bool changed = false;
  JsonWriter ignored;
  JsonWriter list = JsonWriter::array(ignored, "invalid_parameters");
  config.pattern_change("common", JsonReader(R"({"client_max_age":50})"), list, failed, changed);
  EXPECT_EQ(common_config(), R"(common-config":0)") << "the worker has its own copy";
  config.pattern_change("common", JsonReader(R"({"client_max_age":20})"), list, failed, changed);
  EXPECT_EQ(common_config(), R"(common-config":1)");
}

// Sessions

class ApiSessions : public ApiTest {
 protected:
  ApiSessions() : probe(server.replace_websock(websocket)) {
    EXPECT_TRUE(websocket->connect());
    capture.clear();
  }
  ~ApiSessions() override {
    websocket->disconnect();
    server.replace_websock(probe);
  }

  static lws* handle(std::uintptr_t n) { return FakeLws::handle(n); }
  // What the orders at the server's workers are, in the order in which they were given.
  std::vector<std::string> orders() const {
    std::vector<std::string> lines;
    for (const auto& line : capture.lines(LOG_TRACE)) {
      if (line.starts_with("drop_session_at_websock_worker")) lines.push_back(line);
    }
    return lines;
  }

  FakeLws library;
  Dispatcher dispatcher;
  std::shared_ptr<WebsockServerWorker> websocket =
      std::make_shared<WebsockServerWorker>(&server, &config, dispatcher.upstream(), library);
  std::shared_ptr<Worker> probe;
};

TEST_F(ApiSessions, SessionsAreListedForAnyValueButZero) {
  library.open(handle(1));
  for (const char* value : {"1", R"("1")", "true", "-1", "2147483647", R"("-7")"}) {
    EXPECT_EQ(ask(std::string(R"({"sessions":)") + value + "}"),
              of_server(R"("websock-sessions":[{"id":1,"peer":"192.0.2.1"}])"))
        << value;
  }
  for (const char* value : {"0", R"("0")", "false", "null", R"("")", R"("all")", "[1]", "{}"}) {
    EXPECT_EQ(ask(std::string(R"({"sessions":)") + value + "}"), of_server()) << value;
  }
}

TEST_F(ApiSessions, WithoutSessionsTheListIsEmpty) {
  EXPECT_EQ(ask(R"({"sessions":1})"), of_server(R"("websock-sessions":[])"));
}

TEST_F(ApiSessions, ADroppedSessionIsClosedAndEveryDomainIsTold) {
  run_domains({"hall", "lab"});
  for (std::uintptr_t n = 1; n <= 4; ++n) library.open_and_make_queue(handle(n));
  EXPECT_EQ(ask(R"({"drop_session":"true","ids":[3,1]})"), of_server());
  EXPECT_THAT(orders(),
              ElementsAre("drop_session_at_websock_worker: 3 force: 1", "drop_session_at_websock_worker: 1 force: 1"));
  for (const char* name : {"hall", "lab"}) {
    server.probe(name)->record->await(std::string(name) + ": drop-session", 2);
    EXPECT_EQ(server.probe(name)->last_sender(), 1u);
  }
  EXPECT_EQ(library.writeable(handle(1)), 1);
  EXPECT_EQ(library.writeable(handle(2)), 0);
  EXPECT_EQ(library.writeable(handle(3)), 1);
  EXPECT_EQ(library.writeable(handle(4)), 0);
}

TEST_F(ApiSessions, IdsThatNobodyHasAreOrderedNowhereAndOneNamedTwiceIsOrderedTwice) {
  run_domains({"lab"});
  library.open_and_make_queue(handle(1));
  EXPECT_EQ(ask(R"({"drop_session":"true","ids":[7,0,-1,"x",null,{},[1],1.5,"1",1]})"), of_server());
  EXPECT_THAT(orders(),
              ElementsAre("drop_session_at_websock_worker: 1 force: 1", "drop_session_at_websock_worker: 1 force: 1"));
  server.probe("lab")->record->await("lab: drop-session", 2);
}

TEST_F(ApiSessions, WithoutIdsNothingIsDroppedWhateverTheValue) {
  library.open_and_make_queue(handle(1));
  for (const char* request : {R"({"drop_session":"true"})", R"({"drop_session":"true","ids":[]})",
                              R"({"drop_session":"true","ids":1})", R"({"drop_session":"true","ids":null})",
                              R"({"drop_session":"true","ids":"1"})", R"({"drop_session":1,"ids":{"1":1}})"}) {
    EXPECT_EQ(ask(request), of_server()) << request;
  }
  EXPECT_THAT(orders(), IsEmpty());
  EXPECT_EQ(ask(R"({"sessions":1,"drop_session":null,"ids":[1]})"), of_server())
      << "the key alone counts, before sessions";
  EXPECT_THAT(orders(), ElementsAre("drop_session_at_websock_worker: 1 force: 1"));
}

// Every session of a full server in one request.
TEST_F(ApiSessions, ManySessionsAreDroppedAtOnce) {
  std::string ids;
  for (std::uintptr_t n = 1; n <= 2000; ++n) {
    library.open_and_make_queue(handle(n));
    ids += (n > 1 ? "," : "") + std::to_string(n);
  }
  capture.clear();
  EXPECT_EQ(ask(R"({"drop_session":"true","ids":[)" + ids + "]}"), of_server());
  EXPECT_EQ(orders().size(), 2000u);
}

// What goes wrong inside a question is the asker's to handle.
class BrokenWorker : public ProbeWorker {
 public:
  using ProbeWorker::ProbeWorker;
  void report_details(JsonWriter&) override { throw std::invalid_argument("no details"); }
};

TEST_F(ApiTest, AnExceptionPassesThroughToTheAsker) {
  server.replace_websock(std::make_shared<BrokenWorker>(&server, ProbeWorker::Options{.name = "websock"}));
  EXPECT_THROW(ask(R"({"sessions":1})"), std::invalid_argument);
  EXPECT_EQ(ask(R"({"sessions":0})"), of_server());
}

// Reports

constexpr std::time_t first_time = 1700000000;  // 2023-11-14,22:13:20
constexpr std::time_t second_time = first_time + a_day;

class ApiReports : public ApiTest {
 protected:
  ApiReports() {
    cfg(R"({"operation":"set","level":"global","config":{"reports_path":")" + reports.path().string() + "\"}}");
    capture.clear();
  }
  // Two reports of one radio each.
  void write_reports() { lay_out(reports.path(), report_files("lab", {first_time, second_time}, 1)); }
  static std::string report(std::time_t time) {
    const std::string date = date_text(time);
    return R"("report":{"id":")" + date + R"(,lab","domain":"lab","date":")" + date + R"( UTC","domain_config":{)" +
           default_settings +
           R"(},"details":[{"ap_mac":"00:11:22:00:00:00","radio_interfaces":[{"radio_id":0,)"
           R"("radio_mac":"00:11:22:00:00:01","before":{"power":20,"channel":36,"eirp":22},)"
           R"("after":{"power":17,"channel":44,"eirp":19},"bandwidth":40,"max_power":23,"min_power":5,)"
           R"("primary_channel":1,"available_channels":[36,40,44,48],"eirp-min":7,"eirp-max":30,)"
           R"("antenna-configuration":{"antenna-gain":3,"cable-loss":1}}]}]})";
  }
  static std::string listed(std::time_t time) {
    const std::string date = date_text(time);
    return R"({"id":")" + date + R"(,lab","domain":"lab","date":")" + date + R"( UTC"})";
  }
  std::string ask_list(const std::string& domain, const std::string& start, const std::string& finish) {
    return ask(R"({"domain":")" + domain + R"(","report_list":{"date_start":")" + start + R"(","date_finish":")" +
               finish + R"("}})");
  }
  void expect_events(const std::vector<Event>& events) {
    EXPECT_EQ(capture.events(), events);
    capture.clear();
  }

  TempDir reports;
};

TEST_F(ApiReports, AReportIsFetchedByItsId) {
  write_reports();
  EXPECT_EQ(ask(R"({"domain":"lab","report":"2023-11-14,22:13:20,lab"})"),
            of_server(report(first_time) + R"(,"status":"success")"));
  EXPECT_EQ(ask(R"({"domain":"yard","report":"2023-11-15,22:13:20,lab","report_list":{},"last_report":1,"ap":"x"})"),
            of_server(report(second_time) + R"(,"status":"success")"))
      << "the id names the domain, and the report comes before all else";
  EXPECT_THAT(capture.lines(LOG_ERROR), IsEmpty());
  EXPECT_EQ(capture.count("Error call 'reports::get_radio_report'. Exit code: 22."), 0u);
}

TEST_F(ApiReports, AReportThatIsNotThereIsAFailure) {
  write_reports();
  EXPECT_EQ(ask(R"({"domain":"lab","report":"2023-11-16,22:13:20,lab"})"),
            of_server(R"("report":{"id":"2023-11-16,22:13:20,lab","domain":"lab","date":"2023-11-16,22:13:20 UTC",)"
                      R"("domain_config":{}},"status":"failure")"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Error call 'reports::get_radio_report'. Exit code: 22."));
  capture.clear();
  EXPECT_EQ(ask(R"({"domain":"lab","report":"lab"})"), of_server(R"("status":"failure")"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Error call 'reports::get_radio_report'. Exit code: 22."));
  expect_events({{21, true, "lab"}});
  for (const char* id : {R"("")", "7", "null", "{}"}) {
    EXPECT_EQ(ask(std::string(R"({"domain":"lab","report":)") + id + "}"), of_server(R"("status":"failure")")) << id;
    EXPECT_EQ(capture.lines(),
              (std::vector<LogLine>{{LOG_ERROR, "Argument 'report_id' is empty."},
                                    {LOG_TRACE, "Error call 'reports::get_radio_report'. Exit code: 22."}}));
    expect_events({});
  }
}

TEST_F(ApiReports, AListHoldsThePeriodFromItsStartUpToItsEnd) {
  write_reports();
  EXPECT_EQ(ask_list("lab", "2023-11-14,22:13:20 UTC", "2023-11-15,22:13:20 UTC"),
            of_server(R"("data":[)" + listed(first_time) + R"(],"count":1,"status":"success")"));
  EXPECT_EQ(
      ask_list("lab", "2023-11-14,00:00:00 UTC", "2023-11-16,00:00:00 UTC"),
      of_server(R"("data":[)" + listed(first_time) + "," + listed(second_time) + R"(],"count":2,"status":"success")"));
  EXPECT_EQ(capture.count("errors = 0"), 0u);
}

TEST_F(ApiReports, AListWithoutAPeriodIsAFailure) {
  write_reports();
  struct Case {
    const char* list;
    const char* line;
  };
  for (const Case& one :
       {Case{"{}", "Argument 'date_start' empty."}, Case{"null", "Argument 'date_start' empty."},
        Case{R"("2023")", "Argument 'date_start' empty."}, Case{R"({"date_start":5})", "Argument 'date_start' empty."},
        Case{R"({"date_start":"2023-11-14,22:13:20 UTC"})", "Argument 'date_finish' empty."}}) {
    SCOPED_TRACE(one.list);
    EXPECT_EQ(ask(std::string(R"({"domain":"lab","report_list":)") + one.list + "}"),
              of_server(R"("status":"failure")"));
    EXPECT_TRUE(capture.has_line(LOG_ERROR, one.line));
    EXPECT_TRUE(capture.has_line(LOG_TRACE, "errors = 22"));
    capture.clear();
  }
  EXPECT_EQ(ask_list("lab", "2023-11-14,22:13:20", "2023-11-15,22:13:20"), of_server(R"("status":"failure")"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "errors = 22"));
  expect_events({{19, true, "lab"}});
}

// A known domain that has no reports yet is no failure, an unknown one is. Known is what has a worker, and what the
// configuration knows.
TEST_F(ApiReports, WithoutReportsItMattersWhetherTheDomainExists) {
  const std::string start = "2023-11-14,22:13:20 UTC";
  const std::string finish = "2023-11-15,22:13:20 UTC";
  const std::string none_listed = of_server(R"("data":[],"count":0,"status":"success")");
  const std::string success = of_server(R"("status":"success")");
  const std::string failure = of_server(R"("status":"failure")");

  EXPECT_EQ(ask_list("lab", start, finish), none_listed) << "configured";
  EXPECT_EQ(ask(R"({"domain":"lab","last_report":""})"), success) << "configured";
  EXPECT_EQ(capture.count("Domain \"lab\" success found"), 2u);
  expect_events({});

  server.adopt(std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "attic"}));
  EXPECT_EQ(ask_list("attic", start, finish), none_listed) << "it has a worker";
  EXPECT_EQ(ask(R"({"domain":"attic","last_report":{}})"), success) << "it has a worker";
  EXPECT_EQ(capture.count("No reports for domain: \"attic\"."), 2u);
  expect_events({});

  EXPECT_EQ(ask_list("cellar", start, finish), failure);
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "errors = 2"));
  expect_events({{19, true, "cellar"}});
  EXPECT_EQ(ask(R"({"domain":"cellar","last_report":"x"})"), failure);
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Error call 'reports::get_last_radio_report'. Exit code: 2."));
  expect_events({{20, true, "cellar"}});

  for (const char* domain : {R"("")", "7", "null"}) {
    EXPECT_EQ(ask(std::string(R"({"domain":)") + domain + R"(,"last_report":1})"), failure) << domain;
    EXPECT_TRUE(capture.has_line(LOG_TRACE, "Error call 'reports::get_last_radio_report'. Exit code: 22."));
    expect_events({});
  }
}

TEST_F(ApiReports, TheLastReportIsTheNewest) {
  write_reports();
  EXPECT_EQ(ask(R"({"domain":"lab","last_report":"lab"})"), of_server(report(second_time) + R"(,"status":"success")"));
  EXPECT_EQ(ask(R"({"domain":"lab","last_report":null,"start_optimization":"true"})"),
            of_server(report(second_time) + R"(,"status":"success")"));
}

// Role

TEST_F(ApiTest, WithoutARoleThePresentOneIsTold) {
  EXPECT_EQ(vrrp("{}"), of_server(R"("role":"backup","status":"success")"));
  for (const char* request : {"null", "[]", "7", R"({"domains":[{"name":"lab"}]})"}) {
    EXPECT_EQ(vrrp(request), of_server(R"("role":"backup","status":"success")")) << request;
  }
  server.update_vrrp_role(1, nullptr);
  EXPECT_EQ(vrrp("{}"), of_server(R"("role":"master","status":"success")"));
  server.update_vrrp_role(2, nullptr);
  EXPECT_EQ(vrrp("{}"), of_server(R"("role":"unknown","status":"success")"));
}

TEST_F(ApiTest, TheRoleIsTakenAndGivenUp) {
  EXPECT_EQ(vrrp(R"({"role":"master"})"), of_server(R"("status":"success")"));
  EXPECT_EQ(server.role(), RRM::role_master);
  server.record->await("websock: connect");
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_EVENT, "VRRP role: backup -> master"}));
  capture.clear();
  EXPECT_EQ(vrrp(R"({"role":"master","domains":[{"name":"lab"}]})"), of_server(R"("status":"success")"));
  EXPECT_THAT(server.domains(), IsEmpty()) << "a master has its domains already";
  EXPECT_THAT(capture.lines(),
              ElementsAre(LogLine{LOG_WARNING, "try to switch VRRP role to the same: master -> master"}));
  capture.clear();
  EXPECT_EQ(vrrp(R"({"role":"backup","domains":[{"name":"lab"}]})"), of_server(R"("status":"success")"));
  EXPECT_EQ(server.role(), RRM::role_backup);
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_TRUE(server.record->has("websock: disconnect"));
}

TEST_F(ApiTest, ANewMasterRestoresTheDomainsThatItIsGiven) {
  EXPECT_EQ(vrrp(R"({ "role" : "master", "domains" : [ {"name":"yard"}, null, {"name":"cellar"}, {"name":"lab"} ] })"),
            of_server(R"("status":"success")"));
  ASSERT_THAT(server.domains(), ElementsAre("lab", "yard"));
  EXPECT_EQ(server.made().front().domain, "yard");
}

TEST_F(ApiTest, WithoutAListNothingIsRestored) {
  for (const char* domains : {"null", "[]", "{}", R"("lab")", "7"}) {
    EXPECT_EQ(vrrp(std::string(R"({"role":"master","domains":)") + domains + "}"), of_server(R"("status":"success")"))
        << domains;
    EXPECT_EQ(server.role(), RRM::role_master);
    EXPECT_THAT(server.domains(), IsEmpty());
    vrrp(R"({"role":"backup"})");
  }
}

TEST_F(ApiTest, AnyOtherRoleIsRefused) {
  for (const char* role :
       {R"("primary")", R"("Master")", R"("")", R"("unknown")", "1", "null", "[]", R"({"role":"master"})"}) {
    EXPECT_EQ(vrrp(std::string(R"({"role":)") + role + "}"),
              of_server(R"("status":"failure","error":"role not supported")"))
        << role;
  }
  EXPECT_EQ(server.role(), RRM::role_backup);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

}  // namespace
}  // namespace rrm::testing
