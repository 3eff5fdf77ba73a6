// The programs together: zal_controller with the real zal_rrm, asked by zalctl, and with daemons that misbehave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "controller/PrivateView.h"
#include "support/child_process.h"
#include "support/temp_dir.h"
#include "support/ws_client.h"

namespace {

namespace fs = std::filesystem;
using rrm::testing::ChildProcess;
using rrm::testing::eventually_true;
using rrm::testing::Finished;
using rrm::testing::is_alive;
using rrm::testing::read_file;
using rrm::testing::run_to_end;
using rrm::testing::write_file;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class ControllerProcess : public ::testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  ControllerProcess() { fs::create_directories(elsewhere()); }

  std::string state() const { return directory_.file("state"); }
  fs::path elsewhere() const { return directory_.path() / "elsewhere"; }
  std::string setup_text() const { return R"({"global":{"listen_port":)" + std::to_string(port_) + "}}"; }
  std::string setup_file(const std::string& text) const {
    write_file(directory_.path() / "setup.json", text);
    return directory_.file("setup.json");
  }

  // A controller in an empty working directory and, as at a terminal, in a process group of its own.
  ChildProcess start(Arguments arguments) const {
    arguments.insert(arguments.begin(), {ZAL_CONTROLLER_PROGRAM, "--state", state()});
    return ChildProcess([this, &arguments] {
      fs::current_path(elsewhere());
      setpgid(0, 0);
      signal(SIGINT, SIG_DFL);  // ignored in what was started in the background
      rrm::testing::execute(arguments.front(), arguments);
    });
  }
  ChildProcess start_site() const {
    return start({"--daemon", ZAL_RRM_PROGRAM, "--setup", setup_file(setup_text()), "--vrrp", "1"});
  }
  static ChildProcess start_fake(const ControllerProcess& test, const char* behaviour) {
    setenv("FAKE_DAEMON", behaviour, 1);
    return test.start({"--daemon", FAKE_DAEMON_PROGRAM});
  }
  Finished zalctl(Arguments arguments) const {
    arguments.insert(arguments.begin(), {ZALCTL_PROGRAM, "--state", state()});
    return run_to_end(arguments);
  }

  // The pid in the n-th "zal_rrm started, pid N".
  static pid_t daemon_pid(ChildProcess& controller, int start = 1) {
    const std::string text = "zal_rrm started, pid ";
    if (!controller.wait_for("zal_rrm is ready and was ordered to run\n", start)) return -1;
    std::size_t at = 0;
    for (int i = 0; i < start; ++i) at = controller.output().find(text, at) + text.size();
    return std::stoi(controller.output().substr(at));
  }
  bool log_has(const std::string& text) const {
    return eventually_true([&] { return read_file(state() + "/zal_rrm.log").find(text) != std::string::npos; });
  }
  bool answers() const {
    try {
      auto client = rrm::testing::WsClient::open(port_);
      return client.send({rrm::testing::Opcode::ping, "x", true}) && client.receive().has_value();
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  rrm::testing::TempDir directory_;
  const int port_ = rrm::testing::free_port();
};

TEST_F(ControllerProcess, ASiteRunsUntilItIsOrderedToEndAndLeavesNothingBehind) {
  const bool had_etc = fs::exists("/etc/zal");
  const bool had_data = fs::exists("/mnt/data/zal");
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  ASSERT_GT(daemon, 0) << controller.output();
  EXPECT_TRUE(answers());
  EXPECT_EQ(read_file("/proc/" + std::to_string(daemon) + "/cmdline"), std::string("zal_rrm\0", 8));

  controller.send_signal(SIGTERM);
  EXPECT_EQ(controller.wait(), 0);
  const std::string pid = std::to_string(daemon);
  EXPECT_EQ(controller.output(), "zal_rrm started, pid " + pid + "\nzal_rrm is ready and was ordered to run\n" +
                                     "zal_rrm was ordered to end\nzal_rrm, pid " + pid + ", ended with status 0\n");
  EXPECT_FALSE(is_alive(daemon));
  EXPECT_EQ(fs::exists("/etc/zal"), had_etc);
  EXPECT_EQ(fs::exists("/mnt/data/zal"), had_data);
  EXPECT_TRUE(fs::is_empty(elsewhere()));
  EXPECT_FALSE(fs::exists(state() + "/bus.sock"));
  EXPECT_FALSE(fs::exists(state() + "/control.sock"));
  EXPECT_EQ(read_file(state() + "/zal_rrm.err"), "");
}

// A terminal sends the key's signal to all of its foreground group.
TEST_F(ControllerProcess, TheInterruptKeyEndsItInOrderToo) {
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  ASSERT_GT(daemon, 0);
  ASSERT_EQ(kill(-controller.pid(), SIGINT), 0);
  EXPECT_EQ(controller.wait(), 0);
  EXPECT_THAT(controller.output(), HasSubstr("zal_rrm was ordered to end\nzal_rrm, pid " + std::to_string(daemon) +
                                             ", ended with status 0\n"));
}

TEST_F(ControllerProcess, ADaemonThatWasKilledIsStartedAgainAndToldEverything) {
  ChildProcess controller = start_site();
  const pid_t first = daemon_pid(controller);
  ASSERT_TRUE(answers());
  kill(first, SIGKILL);
  const pid_t second = daemon_pid(controller, 2);
  ASSERT_GT(second, 0) << controller.output();
  EXPECT_NE(second, first);
  EXPECT_THAT(controller.output(), HasSubstr("zal_rrm, pid " + std::to_string(first) +
                                             ", was killed by signal 9 (Killed)\nzal_rrm is started again in 1 s\n"));
  EXPECT_TRUE(answers());
  controller.send_signal(SIGTERM);
  EXPECT_EQ(controller.wait(), 0);
}

TEST_F(ControllerProcess, TheDaemonDiesWithItsController) {
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  ASSERT_GT(daemon, 0);
  controller.send_signal(SIGKILL);
  EXPECT_EQ(controller.wait(), 128 + SIGKILL);
  EXPECT_TRUE(eventually_true([daemon] { return !is_alive(daemon); }));
  EXPECT_EQ(zalctl({"status"}), (Finished{1, "zalctl: no controller runs in " + state() + "\n"}));

  ChildProcess next = start_site();
  EXPECT_GT(daemon_pid(next), 0) << next.output();
}

TEST_F(ControllerProcess, ACrashLeavesItsBackTrace) {
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  ASSERT_GT(daemon, 0);
  kill(daemon, SIGABRT);
  EXPECT_TRUE(controller.wait_for("was killed by signal 6 (Aborted)"));
  EXPECT_THAT(read_file(state() + "/zal_rrm.err"), HasSubstr("Stack trace"));
}

TEST_F(ControllerProcess, StatusTellsThePidTheTimeTheStateAndTheRole) {
  ChildProcess controller = start_site();
  const std::string pid = std::to_string(daemon_pid(controller));
  const Finished plain = zalctl({"status"});
  EXPECT_EQ(plain.status, 0);
  EXPECT_THAT(plain.output, MatchesRegex("zal_rrm     running\npid         " + pid +
                                         "\nup-time     0:0.:..\nVRRP state  1\nrole        master\n"));
  const Finished raw = zalctl({"--json", "status"});
  EXPECT_THAT(raw.output, MatchesRegex(R"(\{"phase":"running","pid":)" + pid +
                                       R"(,"uptime":[0-9]+,"vrrp":1,"role":"master","domains":\[\],"ok":true\}.)"));
}

TEST_F(ControllerProcess, ASetupAndAStateSentLaterTakeEffect) {
  ChildProcess controller = start({"--daemon", ZAL_RRM_PROGRAM, "--vrrp", "3"});
  ASSERT_GT(daemon_pid(controller), 0);
  EXPECT_THAT(zalctl({"status"}).output, HasSubstr("role        none\n"));
  EXPECT_EQ(zalctl({"setup", setup_file(setup_text())}), (Finished{0, "served\n"}));
  EXPECT_THAT(zalctl({"status"}).output, HasSubstr("VRRP state  3\nrole        backup\n"));
  EXPECT_EQ(zalctl({"vrrp", "1"}), (Finished{0, "served\n"}));
  EXPECT_TRUE(answers());
  EXPECT_EQ(zalctl({"vrrp", "2"}), (Finished{0, "served\n"}));
  EXPECT_THAT(zalctl({"status"}).output, HasSubstr("VRRP state  2\nrole        backup\n"));
  EXPECT_TRUE(log_has("VRRP role: master -> backup"));
}

TEST_F(ControllerProcess, AFileThatIsNoSetupIsNotSent) {
  ChildProcess controller = start_site();
  ASSERT_GT(daemon_pid(controller), 0);
  const std::string file = directory_.file("setup.json");
  EXPECT_EQ(zalctl({"setup", setup_file("{\"global\":")}),
            (Finished{1, "zalctl: " + file + ": no JSON, from byte 11\n"}));
  EXPECT_EQ(zalctl({"setup", setup_file("[]")}), (Finished{1, "zalctl: " + file + ": no JSON object\n"}));
  EXPECT_EQ(zalctl({"setup", directory_.file("none")}),
            (Finished{1, "zalctl: cannot read " + directory_.file("none") + ": No such file or directory\n"}));
  EXPECT_EQ(zalctl({"setup", state()}), (Finished{1, "zalctl: cannot read " + state() + ": Is a directory\n"}));
  EXPECT_THAT(read_file(state() + "/zal_rrm.log"), Not(HasSubstr("Setup is no JSON object")));
}

TEST_F(ControllerProcess, ASetupThatTheDaemonRefusesIsNotWhatTheNextDaemonGets) {
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  ASSERT_TRUE(answers());
  EXPECT_EQ(zalctl({"send", "126", "--text", "{\"global\":"}).status, 0);
  EXPECT_TRUE(log_has("ERROR [RRM] Setup is no JSON object, nothing changes\n"));
  EXPECT_TRUE(answers());
  kill(daemon, SIGKILL);
  ASSERT_GT(daemon_pid(controller, 2), 0) << controller.output();
  EXPECT_TRUE(answers());
}

TEST_F(ControllerProcess, RecordsOfAccessPointsAreSentAndCleared) {
  ChildProcess controller = start_site();
  ASSERT_GT(daemon_pid(controller), 0);
  const std::string record = directory_.file("ap.json");
  write_file(record, R"({"ip":"10.0.0.7","location":"office","board-type":"WEP-3ax"})");
  EXPECT_EQ(zalctl({"ap-info", "A8:F9:4B:00:11:22", record}), (Finished{0, "served\n"}));
  EXPECT_EQ(zalctl({"ap-info", "--clear"}), (Finished{0, "served\n"}));
  EXPECT_EQ(zalctl({"ap-info", "a8:f9", record}), (Finished{1, "zalctl: 'a8:f9' is no MAC address\n"}));
  const Finished misused{1, "zalctl: ap-info wants MAC and FILE, or --clear\n"};
  for (const Arguments& command : {Arguments{"ap-info"},
                                   {"ap-info", "a8f94b001122"},
                                   {"ap-info", "a8f94b001122", "--clear"},
                                   {"ap-info", "a8f94b001122", record, "--clear"}})
    EXPECT_EQ(zalctl(command), misused);
  write_file(record, R"({"place":{"x":1}})");
  EXPECT_EQ(zalctl({"ap-info", "a8f94b001122", record}),
            (Finished{1, "zalctl: " + record + ": the field 'place' is neither text, integer nor boolean\n"}));
}

TEST_F(ControllerProcess, AnyMessageIsSentAndAnsweredByOneLine) {
  ChildProcess controller = start_site();
  ASSERT_GT(daemon_pid(controller), 0);
  EXPECT_EQ(zalctl({"send", "143"}), (Finished{0, "{\"type\":1004,\"error\":0}\n"}));
  EXPECT_EQ(zalctl({"send", "162", "--field", "state=1"}), (Finished{0, "{\"type\":1004,\"error\":0}\n"}));
  EXPECT_EQ(zalctl({"send", "162", "--field", "state=one"}),
            (Finished{1, "zalctl: zal_rrm answered error 1 to message 162\n"}));
  EXPECT_EQ(zalctl({"send", "126"}), (Finished{1, "zalctl: zal_rrm answered error 1 to message 126\n"}));
  EXPECT_EQ(zalctl({"send", "999", "--text", "x"}), (Finished{1, "zalctl: zal_rrm answered error 4 to message 999\n"}));
  EXPECT_TRUE(log_has("WARN  [RRM] uncaught\n"));
  EXPECT_EQ(zalctl({"send", "143", "--field", "novalue"}), (Finished{1, "zalctl: 'novalue' is not K=V\n"}));
  for (const char* type : {"-1", "1000", "1002", "99999999999"})
    EXPECT_EQ(zalctl({"send", type}), (Finished{1, "zalctl: bad frame: 'type' goes from 0 to 999\n"})) << type;
}

TEST_F(ControllerProcess, AStateThatIsNoneIsRefused) {
  ChildProcess controller = start_site();
  ASSERT_GT(daemon_pid(controller), 0);
  for (const char* state : {"4", "-1", "one"}) {
    const Finished refused = zalctl({"vrrp", state});
    EXPECT_NE(refused.status, 0) << state;
    EXPECT_THAT(refused.output, HasSubstr("N: ")) << state;
  }
  EXPECT_THAT(zalctl({"status"}).output, HasSubstr("VRRP state  1\nrole        master\n"));
}

TEST_F(ControllerProcess, TheLogIsReadAndFollowed) {
  ChildProcess controller = start_site();
  ASSERT_GT(daemon_pid(controller), 0);
  ASSERT_TRUE(log_has("Need to start RRM"));
  EXPECT_THAT(zalctl({"log"}).output, HasSubstr("AP    [RRM] Need to start RRM\n"));
  EXPECT_THAT(zalctl({"--json", "log"}).output, HasSubstr("[RRM] Need to start RRM\"}\n"));

  ChildProcess follower = ChildProcess::run({ZALCTL_PROGRAM, "--state", state(), "log", "--follow"});
  ASSERT_TRUE(follower.wait_for("Need to start RRM\n"));
  EXPECT_EQ(zalctl({"send", "129"}).status, 0);
  EXPECT_TRUE(follower.wait_for("SYS   [RRM] Force update tzset\n")) << follower.output();
}

TEST_F(ControllerProcess, TheLoggingConfigurationIsReadAgainAtSighup) {
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  ASSERT_TRUE(log_has("Need to start RRM"));
  write_file(state() + "/etc/zal/trace.json", R"({"grade":"error"})");
  kill(daemon, SIGHUP);
  ASSERT_TRUE(log_has("Reload config by SIGHUP"));
  ASSERT_EQ(zalctl({"send", "143"}).status, 0);
  ASSERT_EQ(zalctl({"send", "129"}).status, 0);
  EXPECT_THAT(read_file(state() + "/zal_rrm.log"), Not(HasSubstr("Force update tzset")));
}

TEST_F(ControllerProcess, StopEndsDaemonAndController) {
  ChildProcess controller = start_site();
  const pid_t daemon = daemon_pid(controller);
  EXPECT_EQ(zalctl({"stop"}), (Finished{0, "zal_rrm has ended\n"}));
  EXPECT_EQ(controller.wait(), 0);
  EXPECT_FALSE(is_alive(daemon));
}

TEST_F(ControllerProcess, WithoutAControllerEveryCommandSaysSo) {
  const std::string reason = "zalctl: no controller runs in " + state() + "\n";
  const std::string setup = setup_file("{}");
  for (const Arguments& command : {Arguments{"status"},
                                   {"setup", setup},
                                   {"vrrp", "1"},
                                   {"ap-info", "--clear"},
                                   {"send", "143"},
                                   {"alarms"},
                                   {"stop"}})
    EXPECT_EQ(zalctl(command), (Finished{1, reason})) << command.front();
  EXPECT_EQ(zalctl({"log"}), (Finished{1, "zalctl: no log " + state() + "/zal_rrm.log: No such file or directory\n"}));
  write_file(state(), "a file");
  for (const char* command : {"status", "stop"})
    EXPECT_EQ(zalctl({command}),
              (Finished{1, "zalctl: cannot reach the controller in " + state() + ": Not a directory\n"}));
  EXPECT_EQ(zalctl({"log"}), (Finished{1, "zalctl: no log " + state() + "/zal_rrm.log: Not a directory\n"}));
}

TEST_F(ControllerProcess, ACommandThatIsNoneIsRefused) {
  struct Case {
    Arguments arguments;
    const char* complaint;
  };
  for (const auto& [arguments, complaint] :
       {Case{{}, "A command is required"},
        {{"nonsense"}, "The following argument was not expected: nonsense"},
        {{"status", "more"}, "The following argument was not expected: more"},
        {{"status", "stop"}, "The following argument was not expected: stop"},
        {{"--nonsense", "status"}, "The following argument was not expected: --nonsense"},
        {{"setup"}, "FILE is required"},
        {{"send", "one"}, "Could not convert: TYPE = one"}}) {
    const Finished refused = zalctl(arguments);
    EXPECT_NE(refused.status, 0) << complaint;
    EXPECT_EQ(refused.output, std::string(complaint) + "\nRun with --help for more information.\n");
  }
  EXPECT_EQ(zalctl({"--help"}).status, 0);
}

TEST_F(ControllerProcess, TwoControllersDoNotShareADirectory) {
  ChildProcess controller = start_site();
  ASSERT_GT(daemon_pid(controller), 0);
  ChildProcess second = start_site();
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(second.output(), "zal_controller: a controller runs in " + state() + " already, pid " +
                                 std::to_string(controller.pid()) + "\n");
  EXPECT_TRUE(answers());
}

TEST_F(ControllerProcess, WhatCannotBeStartedIsSaid) {
  const auto refused = [this](const Arguments& arguments) {
    ChildProcess controller = start(arguments);
    EXPECT_EQ(controller.wait(), 1);
    return controller.output();
  };
  EXPECT_EQ(refused({"--daemon", "/nowhere/zal_rrm"}),
            "zal_controller: cannot execute /nowhere/zal_rrm: No such file or directory\n");
  EXPECT_EQ(refused({"--setup", "/nowhere/setup.json"}),
            "zal_controller: cannot read /nowhere/setup.json: No such file or directory\n");
  EXPECT_EQ(refused({"--setup", setup_file("{\"global\":")}),
            "zal_controller: " + directory_.file("setup.json") + ": no JSON, from byte 11\n");
  write_file(directory_.path() / "ap.json", "{}");
  EXPECT_EQ(refused({"--ap-info", directory_.file("ap.json")}),
            "zal_controller: " + directory_.file("ap.json") + ": no JSON array of AP records\n");
  fs::remove_all(state());
  write_file(state(), "a file");
  EXPECT_EQ(refused({"--daemon", ZAL_RRM_PROGRAM}), "zal_controller: cannot make " + state() + ": Not a directory\n");
}

TEST_F(ControllerProcess, AnOptionThatIsNoneIsRefused) {
  for (const Arguments& arguments : {Arguments{"--vrrp", "4"}, {"--vrrp", "-1"}, {"--vrrp", "one"}, {"--nonsense"}}) {
    ChildProcess controller = start(arguments);
    EXPECT_NE(controller.wait(), 0) << arguments.front();
    EXPECT_THAT(controller.output(), HasSubstr("Run with --help for more information.\n"));
  }
  EXPECT_FALSE(fs::exists(state()));
}

TEST_F(ControllerProcess, WithoutADaemonBesideItTheControllerAsksForOne) {
  const std::string lonely = directory_.file("zal_controller");
  fs::copy_file(ZAL_CONTROLLER_PROGRAM, lonely);
  EXPECT_EQ(run_to_end({lonely, "--state", state()}),
            (Finished{1, "zal_controller: no zal_rrm beside this program: name it by --daemon\n"}));
}

TEST_F(ControllerProcess, ADaemonThatIsMissingForAWhileIsStartedOnceItIsThere) {
  const fs::path program = directory_.path() / "zal_rrm";
  fs::create_symlink(ZAL_RRM_PROGRAM, program);
  ChildProcess controller = start({"--daemon", program.string()});
  const pid_t daemon = daemon_pid(controller);
  ASSERT_GT(daemon, 0) << controller.output();
  fs::remove(program);
  kill(daemon, SIGKILL);
  ASSERT_TRUE(controller.wait_for("zal_rrm cannot be started: cannot execute " + program.string() +
                                  ": No such file or directory\nzal_rrm is started again in 2 s\n"))
      << controller.output();
  fs::create_symlink(ZAL_RRM_PROGRAM, program);
  EXPECT_GT(daemon_pid(controller, 2), 0) << controller.output();
}

TEST_F(ControllerProcess, NobodyNeedsToReadWhatTheControllerSays) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  ChildProcess controller([this, &ends] {
    dup2(ends[1], STDOUT_FILENO);
    const Arguments arguments{ZAL_CONTROLLER_PROGRAM, "--state", state(), "--daemon", ZAL_RRM_PROGRAM};
    rrm::testing::execute(arguments.front(), arguments);
  });
  close(ends[1]);
  EXPECT_TRUE(eventually_true([this] { return zalctl({"status"}).output.starts_with("zal_rrm     running\n"); }));
  EXPECT_EQ(zalctl({"stop"}), (Finished{0, "zal_rrm has ended\n"}));
  EXPECT_EQ(controller.wait(), 0);
}

TEST_F(ControllerProcess, WithHostPathsTheDaemonWritesWhereTheHostHasThem) {
  for (const char* name : {"etc", "data", "view"}) fs::create_directories(directory_.path() / name);
  write_file(directory_.path() / "etc" / "db.json", R"({"common":{"scpu":[0]}})");
  ChildProcess controller([this] {
    controller::enter_private_view({{"/etc/zal", directory_.file("etc")}, {"/mnt/data/zal", directory_.file("data")}},
                                   directory_.path().string(), directory_.file("view"));
    const Arguments arguments{ZAL_CONTROLLER_PROGRAM, "--state", state(), "--daemon", ZAL_RRM_PROGRAM, "--host-paths"};
    rrm::testing::execute(arguments.front(), arguments);
  });
  ASSERT_GT(daemon_pid(controller), 0) << controller.output();
  EXPECT_TRUE(fs::is_directory(directory_.path() / "data" / "morvane-reports"));
  EXPECT_TRUE(fs::is_empty(state() + "/data/zal"));
}

TEST_F(ControllerProcess, AlarmsArePrintedKeptAndFollowed) {
  ChildProcess controller = start_fake(*this, "alarms");
  ASSERT_TRUE(controller.wait_for("hall: 0 idle\n")) << controller.output();
  EXPECT_THAT(controller.output(), HasSubstr("Z office: 3 waiting for scans\n"));
  EXPECT_THAT(zalctl({"alarms"}).output, MatchesRegex("20.*Z office: 3 waiting for scans\n20.*Z hall: 0 idle\n"));
  EXPECT_THAT(zalctl({"--json", "alarms"}).output, HasSubstr(R"("location":"office","status":3})"));
  ChildProcess follower = ChildProcess::run({ZALCTL_PROGRAM, "--state", state(), "alarms", "--follow"});
  ASSERT_TRUE(follower.wait_for("hall: 0 idle\n"));
  kill(daemon_pid(controller), SIGKILL);
  EXPECT_TRUE(follower.wait_for("hall: 0 idle\n", 2)) << follower.output();
}

TEST_F(ControllerProcess, AReplyIsPrintedAsTheDaemonSentIt) {
  ChildProcess controller = start_fake(*this, "alarms");
  ASSERT_GT(daemon_pid(controller), 0);
  EXPECT_EQ(zalctl({"send", "173"}), (Finished{0, "{\"type\":174,\"role\":1,\"result\":1}\n"}));
  EXPECT_EQ(zalctl({"send", "36"}), (Finished{1, "zalctl: zal_rrm answered error 4 to message 36\n"}));
}

TEST_F(ControllerProcess, ARequestFailsWhenTheDaemonGoes) {
  ChildProcess controller = start_fake(*this, "mute");
  const pid_t daemon = daemon_pid(controller);
  ChildProcess request = ChildProcess::run({ZALCTL_PROGRAM, "--state", state(), "send", "36"});
  const Finished hanging = zalctl({"status"});
  EXPECT_EQ(hanging.status, 0);
  EXPECT_THAT(hanging.output, HasSubstr("role        unknown (zal_rrm does not answer)\n"));
  kill(daemon, SIGKILL);
  const int status = request.wait();
  EXPECT_EQ(status, 1);
  EXPECT_THAT(request.output(), ::testing::AnyOf("zalctl: zal_rrm left the bus\n",
                                                 "zalctl: zal_rrm is not running: waiting for its restart\n"));
}

TEST_F(ControllerProcess, ADaemonThatEndsAtOnceIsTriedAgainMoreAndMoreRarely) {
  ChildProcess controller = start_fake(*this, "dying");
  ASSERT_TRUE(controller.wait_for("ended with status 7\nzal_rrm is started again in 1 s\n"));
  EXPECT_EQ(zalctl({"vrrp", "2"}), (Finished{0, "kept for the next start of zal_rrm\n"}));
  EXPECT_EQ(zalctl({"send", "36"}).status, 1);
  EXPECT_TRUE(controller.wait_for("ended with status 7\nzal_rrm is started again in 2 s\n"));
  EXPECT_EQ(zalctl({"setup", setup_file("{}")}), (Finished{0, "kept for the next start of zal_rrm\n"}));
  EXPECT_EQ(zalctl({"vrrp", "1"}), (Finished{0, "kept for the next start of zal_rrm\n"}));
  EXPECT_EQ(
      zalctl({"status"}).output,
      "zal_rrm     waiting for its restart\npid         none\nup-time     0:00:00\nVRRP state  1\nrole        none\n");
  controller.send_signal(SIGTERM);
  EXPECT_EQ(controller.wait(), 0);
}

TEST_F(ControllerProcess, ASecondSignalKillsADaemonThatDoesNotEnd) {
  ChildProcess controller = start_fake(*this, "deaf");
  const pid_t daemon = daemon_pid(controller);
  ASSERT_GT(daemon, 0);
  ChildProcess stop = ChildProcess::run({ZALCTL_PROGRAM, "--state", state(), "stop"});
  ASSERT_TRUE(controller.wait_for("zal_rrm was ordered to end\n"));
  EXPECT_THAT(zalctl({"status"}).output, HasSubstr("zal_rrm     ending\n"));
  controller.send_signal(SIGTERM);
  EXPECT_EQ(stop.wait(), 1);
  EXPECT_EQ(stop.output(), "zalctl: zal_rrm did not end as it was ordered to\n");
  EXPECT_EQ(controller.wait(), 1);
  EXPECT_THAT(controller.output(), HasSubstr("killing zal_rrm\n"));
  EXPECT_FALSE(is_alive(daemon));
}

}  // namespace
