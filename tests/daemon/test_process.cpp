// The real program, started as a supervisor would, each time in a view of its own of the file system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "controller/PrivateView.h"
#include "platform/bus_peer.h"
#include "support/child_process.h"
#include "support/temp_dir.h"
#include "support/ws_client.h"

namespace {

namespace fs = std::filesystem;
using rrm::testing::ChildProcess;
using rrm::testing::eventually_true;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using zal::bus::Fields;

constexpr const char* program = ZAL_RRM_PROGRAM;

std::string lowest_allowed_cpu() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  std::size_t cpu = 0;
  while (!CPU_ISSET(cpu, &allowed)) ++cpu;
  return std::to_string(cpu);
}

Fields frame(int type) {
  return {{"type", std::int64_t{type}}};
}

class DaemonProcess : public ::testing::Test {
 protected:
  struct Start {
    std::string name = "zal_rrm";
    std::optional<std::string> supervisor = "test";
    bool has_bus = true;
    bool ignores_children = false;  // as some supervisors do, and whom they start inherits it
  };

  DaemonProcess() {
    fs::create_directories(directory_.path() / "etc");
    fs::create_directories(directory_.path() / "data");
    fs::create_directories(directory_.path() / "view");
    database("{\"common\":{\"scpu\":[" + lowest_allowed_cpu() + "]}}");
  }

  void database(const std::string& text) const {
    rrm::testing::write_file(directory_.path() / "etc" / "db.json", text);
  }

  ChildProcess start(const Start& how) const {
    return ChildProcess([this, &how] {
      setenv("ZAL_TRACE_FILE", log_path().c_str(), 1);
      if (how.supervisor)
        setenv("ZAL_SUPERVISOR", how.supervisor->c_str(), 1);
      else
        unsetenv("ZAL_SUPERVISOR");
      if (!how.has_bus) unsetenv("ZAL_BUS");
      controller::enter_private_view({{"/etc/zal", directory_.file("etc")}, {"/mnt/data/zal", directory_.file("data")}},
                                     directory_.path().string(), directory_.file("view"));
      if (how.ignores_children) std::signal(SIGCHLD, SIG_IGN);
      rrm::testing::execute(program, {how.name});
    });
  }
  ChildProcess start() const { return start(Start()); }

  // A daemon that has said that it is ready.
  ChildProcess start_ready() { return start_ready(Start()); }
  ChildProcess start_ready(const Start& how) {
    ChildProcess daemon = start(how);
    EXPECT_TRUE(eventually_true([this] { return peer_.accept(); })) << daemon.output();
    EXPECT_TRUE(eventually_true([this] {
      for (const Fields& got : peer_.receive())
        if (got == frame(zal::bus::bus_ready)) return true;
      return false;
    }));
    return daemon;
  }

  std::string log_path() const { return directory_.file("log"); }
  std::vector<std::string> log() const {
    constexpr std::size_t time_size = sizeof "2026-01-02T03:04:05.678Z";
    std::istringstream text(rrm::testing::read_file(log_path()));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
      lines.push_back(line.size() > time_size ? line.substr(time_size) : line);
    return lines;
  }
  bool has_line(const std::string& text) const {
    for (const auto& line : log())
      if (line.find(text) != std::string::npos) return true;
    return false;
  }
  bool has_made_directories() const {
    return fs::is_directory(directory_.path() / "data" / "morvane-reports") &&
           fs::is_directory(directory_.path() / "data" / "morvane_domains_backup");
  }

  rrm::testing::TempDir directory_;
  zal::testing::BusPeer peer_;
};

TEST_F(DaemonProcess, AnyOtherNameEndsItAtOnce) {
  for (const char* name : {"./zal_rrm", "/usr/bin/zal_rrm", "zal_rrm2", "zal", ""}) {
    SCOPED_TRACE(name);
    Start how;
    how.name = name;
    ChildProcess daemon = start(how);
    EXPECT_EQ(daemon.wait(), 255);
    EXPECT_EQ(daemon.output(), "wrong process_name: got " + std::string(name) + " != awaited zal_rrm\n");
    EXPECT_FALSE(fs::exists(log_path()));
  }
}

TEST_F(DaemonProcess, WithoutASupervisorItEndsBeforeItDoesAnything) {
  Start how;
  how.supervisor.reset();
  ChildProcess daemon = start(how);
  EXPECT_EQ(daemon.wait(), 255);
  EXPECT_THAT(log(), ElementsAre("ERROR [RRM] Cannot be run in standalone mode"));
  EXPECT_FALSE(has_made_directories());
  EXPECT_FALSE(peer_.accept());
}

TEST_F(DaemonProcess, AnEmptySupervisorIsOne) {
  Start how;
  how.supervisor = "";
  how.has_bus = false;
  ChildProcess daemon = start(how);
  EXPECT_EQ(daemon.wait(), 255);
  EXPECT_THAT(log(), Contains("ERROR [RRM] SYSTEM: Got exception: cannot join the bus: ZAL_BUS is not set"));
  EXPECT_TRUE(has_made_directories());
}

TEST_F(DaemonProcess, TheCpuIsChosenFromTheDatabase) {
  struct Case {
    std::optional<std::string> database;
    std::string cpu;
    std::string warning;
  };
  const std::vector<Case> cases{
      {R"({"common":{"scpu":[3, 1, 2]}})", "1", ""},
      {R"({"common":{"scpu":[]}})", "0", ""},
      {R"({"common":{"scpu":[1, "a", 2]}})", "0", "non-numeric cpu id value"},
      {R"({"common":{"scpu":[1, -2]}})", "0", "non-numeric cpu id value"},
      {R"({"common":{"scpu":5}})", "0", "can`t allocate iterator"},
      {"{}", "0", "no scpu data"},
      {"nonsense", "0", "no data"},
      {"", "0", "no file"},
      {std::nullopt, "0", "no file"},
  };
  Start how;
  how.has_bus = false;
  for (const auto& [text, cpu, warning] : cases) {
    SCOPED_TRACE(text.value_or("no file"));
    fs::remove(log_path());
    fs::remove(directory_.path() / "etc" / "db.json");
    if (text) database(*text);
    EXPECT_EQ(start(how).wait(), 255);
    std::vector<std::string> lines = log();
    if (!warning.empty()) {
      EXPECT_EQ(lines.at(0), "WARN  [RRM] [" + warning + "] while reading scpu list happend, run with default");
      lines.erase(lines.begin());
    }
    EXPECT_THAT(lines.at(0), HasSubstr("SYS   [RRM] Current affinity: " + cpu + ": "));
    EXPECT_THAT(lines.at(1), HasSubstr("et affinity to CPU " + cpu + ": "));
  }
}

TEST_F(DaemonProcess, ADatabaseThatCannotBeReadCountsAsMissing) {
  fs::remove(directory_.path() / "etc" / "db.json");
  fs::create_directory(directory_.path() / "etc" / "db.json");
  ChildProcess daemon = start_ready();
  EXPECT_EQ(log().at(0), "WARN  [RRM] [no file] while reading scpu list happend, run with default");
  EXPECT_THAT(log().at(1), HasSubstr("Current affinity: 0: "));
}

TEST_F(DaemonProcess, ADirectoryThatCannotBeMadeIsNotFatal) {
  rrm::testing::write_file(directory_.path() / "data" / "morvane-reports", "in the way");
  ChildProcess daemon = start_ready();
  EXPECT_THAT(log(), Not(Contains(HasSubstr("Unable to create"))));
  EXPECT_TRUE(fs::is_directory(directory_.path() / "data" / "morvane_domains_backup"));
}

TEST_F(DaemonProcess, ACommandThatCannotBeRunIsLoggedAndNotFatal) {
  Start how;
  how.ignores_children = true;
  ChildProcess daemon = start_ready(how);
  const std::string cpu = lowest_allowed_cpu();
  EXPECT_THAT(log(), ElementsAre("SYS   [RRM] Current affinity: " + cpu + ": set",
                                 "SYS   [RRM] Set affinity to CPU " + cpu + ": set",
                                 "ERROR [RRM] Unable to create reports directory",
                                 "ERROR [RRM] Unable to create morvane domains backup directory"));
}

TEST_F(DaemonProcess, ACpuBeyondTheMaskIsNotSetAndNotFatal) {
  database(R"({"common":{"scpu":[1024]}})");
  ChildProcess daemon = start_ready();
  EXPECT_THAT(log(), ElementsAre("SYS   [RRM] Current affinity: 1024: unset",
                                 "WARN  [RRM] Cannot set affinity to CPU 1024: Invalid argument"));
  peer_.hang_up();
  EXPECT_EQ(daemon.wait(), 255);
}

TEST_F(DaemonProcess, ItIsPinnedToItsOneCpu) {
  ChildProcess daemon = start_ready();
  const std::string cpu = lowest_allowed_cpu();
  EXPECT_THAT(log(), ElementsAre("SYS   [RRM] Current affinity: " + cpu + ": set",
                                 "SYS   [RRM] Set affinity to CPU " + cpu + ": set"));
  EXPECT_THAT(rrm::testing::read_file("/proc/" + std::to_string(daemon.pid()) + "/status"),
              HasSubstr("Cpus_allowed_list:\t" + cpu + "\n"));
}

TEST_F(DaemonProcess, ABusThatGoesAwayBeforeTheRunOrderEndsIt) {
  ChildProcess daemon = start_ready();
  peer_.hang_up();
  EXPECT_EQ(daemon.wait(), 255);
  EXPECT_THAT(log(), Contains("ERROR [RRM] Send ipc ready and wait for ipc run failed"));
}

TEST_F(DaemonProcess, ASighupDuringTheWaitIsActedOnOnceItRuns) {
  ChildProcess daemon = start_ready();
  daemon.send_signal(SIGHUP);
  const std::string status_file = "/proc/" + std::to_string(daemon.pid()) + "/status";
  EXPECT_TRUE(eventually_true(
      [&] { return rrm::testing::read_file(status_file).find("ShdPnd:\t0000000000000000") != std::string::npos; }));
  rrm::testing::write_file(directory_.path() / "etc" / "trace.json", R"({"library_lines_per_second":77})");
  EXPECT_FALSE(has_line("SIGHUP"));
  peer_.send(frame(zal::bus::bus_run));
  EXPECT_TRUE(eventually_true([this] { return has_line("77 of the library"); }));
  EXPECT_THAT(log(), ::testing::IsSupersetOf(
                         {"SYS   [RRM] Reload config by SIGHUP",
                          "SYS   [TRACE] grade ap, a second at most 1000 lines of each kind, 77 of the library"}));
  peer_.send(frame(33));
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(DaemonProcess, ALoggingConfigurationThatCannotBeReadDoesNotEndIt) {
  fs::create_directory(directory_.path() / "etc" / "trace.json");
  ChildProcess daemon = start_ready();
  peer_.send(frame(zal::bus::bus_run));
  daemon.send_signal(SIGHUP);
  EXPECT_TRUE(eventually_true([this] { return has_line("Reload config by SIGHUP"); }));
  peer_.send(frame(33));
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(DaemonProcess, ItEndsWithSuccessWhenItIsOrderedTo) {
  ChildProcess daemon = start_ready();
  peer_.send(frame(33));
  peer_.send(frame(zal::bus::bus_run));
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(daemon.output(), "");
}

TEST_F(DaemonProcess, ItServesAccessPointsFromTheSetupAndTheStateOn) {
  const int port = rrm::testing::free_port();
  ChildProcess daemon = start_ready();
  peer_.send(frame(zal::bus::bus_run));
  peer_.send(frame(143));
  peer_.send({{"type", std::int64_t{162}}, {"state", std::int64_t{1}}});
  peer_.send({{"type", std::int64_t{126}}, {"text", "{\"global\":{\"listen_port\":" + std::to_string(port) + "}}"}});
  {
    auto client = rrm::testing::WsClient::open(port);
    EXPECT_TRUE(client.send({rrm::testing::Opcode::ping, "hello", true}));
    const auto pong = client.receive();
    ASSERT_TRUE(pong);
    EXPECT_EQ(pong->payload, "hello");
  }
  peer_.send(frame(33));
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_EQ(daemon.output(), "");
}

TEST_F(DaemonProcess, NothingIsWrittenOutsideItsView) {
  const bool had_etc = fs::exists("/etc/zal");
  const bool had_data = fs::exists("/mnt/data/zal");
  ChildProcess daemon = start_ready();
  EXPECT_TRUE(has_made_directories());
  EXPECT_EQ(fs::exists("/etc/zal"), had_etc);
  EXPECT_EQ(fs::exists("/mnt/data/zal"), had_data);
}

}  // namespace
