// Starts, stops, changes of the VRRP role, the restored domains of a new master, and the removal of domains.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <filesystem>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "core/version.h"
#include "server/server_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

std::shared_ptr<std::string> text(const std::string& value) {
  return std::make_shared<std::string>(value);
}

std::string version_line(const std::string& rest) {
  return std::string("MorVane version ") + build_version + rest;
}

class Roles : public ::testing::Test {
 protected:
  bool running(ProbeWorker& worker) {
    const std::size_t before = server.record->count(worker.name + ": alive");
    worker.push("alive");
    server.record->await(worker.name + ": alive", before + 1);
    return true;
  }
  bool all_fixed_run() {
    return running(server.fixed_default()) && running(server.fixed_websock()) && running(server.fixed_ping());
  }
  bool none_connected() const { return server.record->lines().empty(); }
  // Puts the stops of the fixed workers into the log.
  void log_stops() {
    for (ProbeWorker* worker : {&server.fixed_default(), &server.fixed_websock(), &server.fixed_ping()}) {
      worker->hooks.stop = [worker] { RRM_LOG(LOG_DUMP, "stop of %s", worker->name.c_str()); };
    }
    server.maintenance().on_stop = [] { RRM_LOG(LOG_DUMP, "stop of the report maintenance"); };
  }

  Capture capture;
  GlobalConfig config{"", three_domains};
  TestServer server{&config};
};

// --- Names.

TEST(RoleNames, OfTheTwoRolesAndOfAnyOther) {
  EXPECT_STREQ(RRM::role_name(0), "backup");
  EXPECT_STREQ(RRM::role_name(1), "master");
  for (const int role : {-1, 2, 3}) EXPECT_STREQ(RRM::role_name(role), "unknown");
}

// --- Start.

TEST_F(Roles, AFreshServerIsBackupAndRunsNothing) {
  EXPECT_EQ(server.role(), 0);
  server.start();
  EXPECT_EQ(server.role(), 0);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, version_line(" start\n")}));
  server.release();
  EXPECT_TRUE(none_connected());
}

TEST_F(Roles, ADisabledServerStartsNothing) {
  GlobalConfig disabled("", R"({"global":{"enabled":0}})");
  TestServer off(&disabled);
  off.update_vrrp_role(1, nullptr);
  off.release();
  const std::size_t before = off.record->lines().size();
  capture.clear();
  off.start(true);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, version_line(" is disabled")}));
  off.release();
  EXPECT_EQ(off.record->lines().size(), before);
}

TEST(VrrpStart, TellsItsModeAndKeepsTheRoleOnlyWhenToldTo) {
  Capture capture;
  GlobalConfig config("", R"({"global":{"enabled":1,"vrrp_enabled":1}})");
  TestServer server(&config);
  server.update_vrrp_role(1, nullptr);
  server.release();

  capture.clear();
  server.start(true);
  EXPECT_EQ(server.role(), 1);
  EXPECT_THAT(capture.lines(),
              ElementsAre(LogLine{LOG_TRACE, version_line(" start\n")},
                          LogLine{LOG_TRACE, "MorVane start in vrrp mode, preserving role: master\n"}));
  server.release();

  capture.clear();
  server.start();
  EXPECT_EQ(server.role(), 0);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, version_line(" start\n")},
                                           LogLine{LOG_TRACE, "MorVane start in vrrp mode\n"}));
}

TEST_F(Roles, WithoutVrrpAStartKeepsTheRole) {
  server.update_vrrp_role(1, nullptr);
  server.release();
  server.start();
  EXPECT_EQ(server.role(), 1);
  EXPECT_TRUE(all_fixed_run());
}

TEST_F(Roles, ReportsAreMaintainedByABackupAsByAMasterAndNotWhileDisabled) {
  server.start();
  EXPECT_THAT(server.report_record->lines(), ElementsAre("started"));
  server.update_vrrp_role(1, nullptr);
  EXPECT_THAT(server.report_record->lines(), ElementsAre("started", "started"));
  server.update_vrrp_role(0, nullptr);
  EXPECT_THAT(server.report_record->lines(), ElementsAre("started", "started", "stopped"));
  server.update_vrrp_role(1, nullptr);
  EXPECT_EQ(server.report_record->count("started"), 3u);

  GlobalConfig disabled("", R"({"global":{"enabled":0}})");
  TestServer off(&disabled);
  off.start();
  EXPECT_THAT(off.report_record->lines(), IsEmpty());
}

// --- Changes of role.

TEST_F(Roles, TheSameRoleIsAWarningAndChangesNothing) {
  server.update_vrrp_role(0, text(R"([{"name":"lab"}])"));
  EXPECT_THAT(capture.lines(),
              ElementsAre(LogLine{LOG_WARNING, "try to switch VRRP role to the same: backup -> backup"}));
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_TRUE(none_connected());

  server.update_vrrp_role(1, nullptr);
  capture.clear();
  server.update_vrrp_role(1, text(R"([{"name":"lab"}])"));
  EXPECT_THAT(capture.lines(),
              ElementsAre(LogLine{LOG_WARNING, "try to switch VRRP role to the same: master -> master"}));
  EXPECT_THAT(server.domains(), IsEmpty());
}

TEST_F(Roles, AMasterRunsTheFixedWorkers) {
  server.start();
  capture.clear();
  server.update_vrrp_role(1, nullptr);
  EXPECT_EQ(server.role(), 1);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_EVENT, "VRRP role: backup -> master"}));
  EXPECT_TRUE(all_fixed_run());
}

// Threads are numbered in the order in which they are made. The numbers start over at their end, which spoils one round
// of three at most.
TEST_F(Roles, TheFixedWorkersStartInOrder) {
  std::array<std::atomic<pid_t>, 3> threads{};
  ProbeWorker* const in_order[] = {&server.fixed_default(), &server.fixed_websock(), &server.fixed_ping()};
  for (std::size_t i = 0; i < threads.size(); ++i) {
    in_order[i]->hooks.connect = [&thread = threads[i]] {
      thread = ::gettid();
      return true;
    };
  }
  server.update_vrrp_role(1, nullptr);
  int ascending = 0;
  for (int round = 0; round < 3; ++round) {
    if (round != 0) server.restart();
    ASSERT_TRUE(all_fixed_run());
    ascending += threads[0] < threads[1] && threads[1] < threads[2];
  }
  server.release();
  EXPECT_GE(ascending, 2);
}

TEST_F(Roles, AMasterNeedsNoStart) {
  server.update_vrrp_role(1, nullptr);
  EXPECT_TRUE(all_fixed_run());
}

TEST_F(Roles, ABackupRunsNothing) {
  server.update_vrrp_role(1, text(R"([{"name":"lab"}])"));
  ASSERT_TRUE(all_fixed_run());
  server.update_vrrp_role(0, nullptr);
  EXPECT_EQ(server.role(), 0);
  EXPECT_THAT(server.domains(), IsEmpty());
  for (const char* line : {"default: disconnect", "websock: disconnect", "ping: disconnect"}) {
    EXPECT_TRUE(server.record->has(line)) << line;
  }
  EXPECT_TRUE(capture.has_line(LOG_EVENT, "VRRP role: master -> backup"));
}

TEST_F(Roles, AnyOtherRoleIsStoredAndDoesNothing) {
  server.update_vrrp_role(1, nullptr);
  server.update_vrrp_role(7, nullptr);
  EXPECT_EQ(server.role(), 7);
  EXPECT_TRUE(capture.has_line(LOG_EVENT, "VRRP role: master -> unknown"));
  EXPECT_TRUE(all_fixed_run()) << "nothing was stopped";

  server.update_vrrp_role(0, nullptr);
  EXPECT_EQ(server.role(), 0);
  EXPECT_TRUE(all_fixed_run()) << "only a master is released";
}

TEST_F(Roles, AMasterThatWasNotBackupBeforeStartsNothing) {
  server.update_vrrp_role(7, nullptr);
  server.update_vrrp_role(1, text(R"([{"name":"lab"}])"));
  EXPECT_EQ(server.role(), 1);
  EXPECT_THAT(server.domains(), IsEmpty());
  server.release();
  EXPECT_TRUE(none_connected());
}

TEST_F(Roles, TheRoleComesBackAfterALoss) {
  for (int round = 0; round < 3; ++round) {
    server.update_vrrp_role(1, text(R"([{"name":"lab"}])"));
    EXPECT_THAT(server.domains(), ElementsAre("lab"));
    EXPECT_TRUE(all_fixed_run());
    server.update_vrrp_role(0, nullptr);
    EXPECT_THAT(server.domains(), IsEmpty());
  }
}

// --- Restored domains.

TEST_F(Roles, ANewMasterMakesTheWorkersOfItsBackupBeforeAnyAccessPointComes) {
  server.update_vrrp_role(1, text(R"([{"name":"hall"},{"name":"lab"}])"));
  EXPECT_THAT(server.domains(), ElementsAre("hall", "lab"));
  EXPECT_EQ(server.made()[0].domain, "hall") << "in the order of the list";
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_EVENT, "VRRP role: backup -> master"},
                                           LogLine{LOG_TRACE, "Created new worker 'hall'."},
                                           LogLine{LOG_TRACE, "Created new worker 'lab'."}));
  server.probe("hall")->record->await("hall: connect");
  server.probe("lab")->record->await("lab: connect");
}

std::ptrdiff_t threads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// Whoever subscribes before would bring the domain to life empty.
TEST_F(Roles, WhileDomainsAreRestoredNobodyListensYet) {
  const std::ptrdiff_t before = threads();
  std::ptrdiff_t meanwhile = 0;
  server.make = [&](const TestServer::Made& order) {
    meanwhile = threads();
    return std::make_unique<ProbeWorker>(&server, ProbeWorker::Options{order.domain});
  };
  server.update_vrrp_role(1, text(R"([{"name":"lab"}])"));
  EXPECT_EQ(meanwhile, before) << "no worker runs";
  EXPECT_TRUE(all_fixed_run());
}

// Memory runs out as the first of them is being restored.
struct FailingRestore {
  __attribute__((format(printf, 5, 0))) static void on_log(const char*, int, const char*, int level, const char* format,
                                                           va_list args) {
    if (std::string_view(format).find("Created new worker") == 0 && !std::exchange(has_failed, true)) {
      throw std::bad_alloc();
    }
    if (level == LOG_ERROR) errors.push_back(format_text(format, args));
  }
  static inline bool has_failed = false;
  static inline std::vector<std::string> errors;
};

TEST_F(Roles, ADomainWhoseRestoringFailsCostsNoOtherAndNotTheStart) {
  set_log_hook(FailingRestore::on_log);
  server.update_vrrp_role(1, text(R"([{"name":"lab"},{"name":"yard"}])"));
  EXPECT_THAT(FailingRestore::errors, ElementsAre("Exception at processing message for domain 'lab': std::bad_alloc"));
  EXPECT_THAT(server.domains(), ElementsAre("lab", "yard"));
  EXPECT_TRUE(all_fixed_run());
}

TEST_F(Roles, WhatCannotBeRestoredIsPassedOver) {
  server.restore_domains(text(R"([null, {"name":"cellar"}, 7, {}, {"name":""}, {"nom":"lab"}, {"name":"yard"}])"));
  EXPECT_THAT(server.domains(), ElementsAre("yard"));
  EXPECT_THAT(capture.lines(LOG_ERROR),
              ElementsAre("Exception at processing message for domain 'cellar': Domain not found"));
}

TEST_F(Roles, NothingIsRestoredFromNoList) {
  server.restore_domains(nullptr);
  for (const char* list : {"", "[", "null", "{}", R"({"name":"lab"})", "[]"}) server.restore_domains(text(list));
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(Roles, NothingIsRestoredWhileTheServerIsDisabled) {
  GlobalConfig disabled("", R"({"global":{"enabled":0},"common":{"use_dca":1},"patterns":[{"pattern":"p","use_dca":1}],
                                "domains":[{"domain":"lab","pattern":"p","time_zone":"0:00"}]})");
  TestServer off(&disabled);
  off.restore_domains(text(R"([{"name":"lab"}])"));
  EXPECT_THAT(off.domains(), IsEmpty());
}

TEST_F(Roles, ALivingWorkerIsNotOverwritten) {
  server.receive(ap_message("subscribe-request", "lab"));
  const auto living = server.probe("lab");
  capture.clear();
  server.restore_domains(text(R"([{"name":"lab"}])"));
  EXPECT_EQ(server.probe("lab"), living);
  EXPECT_EQ(server.made().size(), 1u);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

// --- Removal.

TEST_F(Roles, ARemovedWorkerIsStoppedAndGone) {
  server.receive(ap_message("subscribe-request", "lab"));
  server.receive(ap_message("subscribe-request", "yard"));
  const auto lab = server.probe("lab");
  capture.clear();
  server.remove_worker("lab");
  EXPECT_EQ(lab->record->lines().back(), "lab: disconnect");
  EXPECT_THAT(server.domains(), ElementsAre("yard"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Worker with domain 'lab' erased."));

  server.receive(ap_message("subscribe-request", "lab"));
  EXPECT_NE(server.probe("lab"), lab) << "a later subscribe makes a new one";
}

TEST_F(Roles, RemovingAnUnknownDomainDoesNothing) {
  server.remove_worker("lab");
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST_F(Roles, SeveralAreRemovedInTheOrderOfTheList) {
  for (const char* domain : {"hall", "lab", "yard"}) server.receive(ap_message("subscribe-request", domain));
  capture.clear();
  server.remove_workers({"yard", "cellar", "hall"});
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
  std::vector<std::string> erased;
  for (const auto& line : capture.lines(LOG_TRACE)) {
    if (line.starts_with("Worker with")) erased.push_back(line);
  }
  EXPECT_THAT(erased, ElementsAre("Worker with domain 'yard' erased.", "Worker with domain 'hall' erased."));
}

// Whoever removes a worker waits for its mutex first, so it cannot come between the map and the start.
TEST_F(Roles, ANewWorkerIsOutOfReachUntilItRuns) {
  static TestServer* observed = nullptr;
  static std::vector<std::string> seen;
  observed = &server;
  seen.clear();
  set_log_hook([](const char*, int, const char*, int, const char* format, va_list) {
    if (std::string_view(format).starts_with("Created new worker")) {
      seen.push_back(observed->probe("lab")->mutex_is_free() ? "in reach" : "out of reach");
    }
  });
  server.receive(ap_message("subscribe-request", "lab"));
  EXPECT_THAT(seen, ElementsAre("out of reach"));
  EXPECT_TRUE(eventually([&] { return server.probe("lab")->mutex_is_free(); }));
}

// --- Release and restart.

TEST_F(Roles, ReleaseStopsInTheOrderThatDropOrdersNeed) {
  server.update_vrrp_role(1, nullptr);
  for (const char* domain : {"yard", "lab"}) server.receive(ap_message("subscribe-request", domain));
  for (const char* domain : {"yard", "lab"}) {
    const auto worker = server.probe(domain);
    worker->record->await(worker->name + ": subscribe-request");
    worker->hooks.stop = [domain] { RRM_LOG(LOG_DUMP, "stop of %s", domain); };
  }
  ASSERT_TRUE(all_fixed_run());
  log_stops();
  capture.clear();
  server.release();
  std::vector<std::string> lines;
  for (const auto& line : capture.lines()) {
    if (!line.text.starts_with("Aborting")) lines.push_back(line.text);
  }
  EXPECT_THAT(lines, ElementsAre("stop of the report maintenance", "stop of ping", "Cancel domain lab", "stop of lab",
                                 "Worker with domain 'lab' erased.", "Cancel domain yard", "stop of yard",
                                 "Worker with domain 'yard' erased.", "stop of default", "stop of websock"));
  for (ProbeWorker* worker : {&server.fixed_default(), &server.fixed_websock(), &server.fixed_ping()}) {
    worker->hooks.stop = nullptr;
  }
}

TEST_F(Roles, ReleaseOfAServerThatNeverRanIsHarmlessAndMayBeRepeated) {
  server.release();
  server.release();
  EXPECT_TRUE(none_connected());
}

// A subscribe that is still on its way when the domains are stopped must not leave a worker behind.
TEST_F(Roles, NoDomainIsMadeBetweenTheStopOfTheDomainsAndTheNextStart) {
  server.update_vrrp_role(1, nullptr);
  for (ProbeWorker* worker : {&server.fixed_default(), &server.fixed_websock()}) {
    worker->hooks.stop = [this] { server.receive(ap_message("subscribe-request", "lab")); };
  }
  server.release();
  EXPECT_THAT(server.domains(), IsEmpty());
  server.receive(ap_message("subscribe-request", "lab"));
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(server.made(), IsEmpty());

  for (ProbeWorker* worker : {&server.fixed_default(), &server.fixed_websock()}) worker->hooks.stop = nullptr;
  server.start(true);
  server.receive(ap_message("subscribe-request", "lab"));
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
}

// The worker is in the making when the stop begins: it never gets into the map.
TEST_F(Roles, AWorkerInTheMakingDoesNotOutliveTheRelease) {
  Gate making;
  Gate released;
  const auto record = std::make_shared<Record>();
  server.make = [&](const TestServer::Made& order) {
    making.open();
    released.wait();
    return std::make_unique<ProbeWorker>(&server, ProbeWorker::Options{.name = order.domain}, record);
  };
  std::thread subscriber([&] { server.receive(ap_message("subscribe-request", "lab")); });
  making.wait();
  server.release();
  released.open();
  subscriber.join();
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(record->lines(), IsEmpty()) << "unstarted";
}

TEST_F(Roles, ARestartKeepsTheRoleAndTheFixedWorkersAndEmptiesTheMap) {
  server.update_vrrp_role(1, text(R"([{"name":"lab"}])"));
  ASSERT_TRUE(all_fixed_run());
  server.restart();
  EXPECT_EQ(server.role(), 1);
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_TRUE(all_fixed_run());
  EXPECT_EQ(server.record->count("ping: connect"), 2u);
  server.receive(ap_message("subscribe-request", "lab"));
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
}

TEST_F(Roles, ARestartUnderVrrpKeepsTheRoleToo) {
  GlobalConfig vrrp("", R"({"global":{"enabled":1,"vrrp_enabled":1}})");
  TestServer master(&vrrp);
  master.update_vrrp_role(1, nullptr);
  master.restart();
  EXPECT_EQ(master.role(), 1);
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "MorVane start in vrrp mode, preserving role: master\n"));
}

TEST_F(Roles, ARestartedBackupStaysBackup) {
  server.start();
  server.restart();
  EXPECT_EQ(server.role(), 0);
  EXPECT_TRUE(none_connected());
}

}  // namespace
}  // namespace rrm::testing
