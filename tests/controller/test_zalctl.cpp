// What zalctl asks the daemon and how it tells the answer, with a daemon that answers by a script.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace {

using rrm::testing::ChildProcess;
using rrm::testing::Finished;
using rrm::testing::read_file;
using rrm::testing::run_to_end;
using rrm::testing::write_file;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using Arguments = std::vector<std::string>;

// The text of a JSON string.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) result += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
  return result + "\"";
}

std::string succeeded(int kind, const std::string& result) {
  return R"({"type":134,"kind":)" + std::to_string(kind) + R"(,"failed":0,"error":"","result":)" + quoted(result) + "}";
}

std::string failed(int kind, const std::string& error) {
  return R"({"type":134,"kind":)" + std::to_string(kind) + R"(,"failed":1,"error":)" + quoted(error) +
         R"(,"result":""})";
}

std::string answered(int type, const std::string& text) {
  return R"({"type":)" + std::to_string(type) + R"(,"text":)" + quoted(text) + "}";
}

struct Question {
  Arguments command;
  std::string asked;   // the frame that the daemon gets
  std::string answer;  // the frame that it answers with
  std::string told;    // to a person
  std::string raw;     // to a program
};

class Zalctl : public ::testing::Test {
 protected:
  Zalctl() {
    setenv("FAKE_DAEMON", "scripted", 1);
    setenv("FAKE_SCRIPT", directory_.file("script.json").c_str(), 1);
    answer("{}");
  }
  ~Zalctl() override {
    unsetenv("FAKE_DAEMON");
    unsetenv("FAKE_SCRIPT");
  }

  std::string state() const { return directory_.file("state"); }
  // From now on the daemon answers so. It may be reading the script at this moment.
  void answer(const std::string& script) const {
    write_file(directory_.path() / "next.json", script);
    std::filesystem::rename(directory_.path() / "next.json", directory_.path() / "script.json");
  }
  ChildProcess start(const char* vrrp = "1") const {
    ChildProcess controller = ChildProcess::run(
        {ZAL_CONTROLLER_PROGRAM, "--state", state(), "--daemon", FAKE_DAEMON_PROGRAM, "--vrrp", vrrp});
    EXPECT_TRUE(controller.wait_for("zal_rrm is ready and was ordered to run\n")) << controller.output();
    return controller;
  }
  Finished zalctl(Arguments arguments) const {
    arguments.insert(arguments.begin(), {ZALCTL_PROGRAM, "--state", state()});
    return run_to_end(arguments);
  }
  // Asks for both forms of the answer to a frame of this type.
  void expect_told(const std::string& type, const Question& question) const {
    SCOPED_TRACE(question.asked);
    answer("{\"" + type + "\":" + question.answer + "}");
    EXPECT_EQ(zalctl(question.command), (Finished{0, question.told}));
    EXPECT_THAT(served(), EndsWith("\n" + question.asked + "\n"));
    Arguments with_json = question.command;
    with_json.insert(with_json.begin(), "--json");
    EXPECT_EQ(zalctl(with_json), (Finished{0, question.raw}));
  }
  // What the daemon served, one frame a line; right after a request its frame is the last one.
  std::string served() const { return read_file(state() + "/zal_rrm.err"); }

  rrm::testing::TempDir directory_;
};

TEST_F(Zalctl, ARequestOfTheManagementIsAskedAndTold) {
  const ChildProcess controller = start();
  const std::string locations = R"({"array":[{"ap-location":"office","ap-morvane":2,"ap-count":3}]})";
  const std::string sessions = R"({"array":[{"ap-mac":"a8:f9:4b:00:11:22","ap-ip":"10.0.0.7","session-id":3,)"
                               R"("ap-board-type":"b","ap-location":"office"}]})";
  const std::string session_table =
      "LOCATION  AP                 IP        SESSION  BOARD\n"
      "office    a8:f9:4b:00:11:22  10.0.0.7  3        b\n";
  const std::string bands = R"({"2g":[],"5g":[],"6g":[]})";
  const std::string roaming_table = "BAND  AP  VAP  802.11K  802.11R  802.11V  LINKS  SSID\n";
  const std::string reports_table = "TIME  BAND  AP  IP  BOARD  CHANNEL  POWER  EIRP\n";
  const std::vector<Question> questions{
      {{"common"},
       R"({"type":133,"kind":0})",
       succeeded(0, locations),
       "LOCATION  CONNECTED  KNOWN\noffice    2          3\n",
       locations + "\n"},
      {{"sessions"}, R"({"type":133,"kind":1})", succeeded(1, sessions), session_table, sessions + "\n"},
      {{"sessions", "--location", "office"},
       R"({"type":133,"kind":1,"location":"office"})",
       succeeded(1, sessions),
       session_table,
       sessions + "\n"},
      {{"sessions", "--location", ""},
       R"({"type":133,"kind":1,"location":""})",
       succeeded(1, sessions),
       session_table,
       sessions + "\n"},
      {{"clear-sessions"}, R"({"type":133,"kind":2})", succeeded(2, ""), "sessions ended\n", "{}\n"},
      {{"clear-sessions", "a8f94b001122"},
       R"({"type":133,"kind":2,"mac":"a8f94b001122"})",
       succeeded(2, ""),
       "sessions ended\n",
       "{}\n"},
      {{"stat", "the \"big\" hall"},
       R"({"type":133,"kind":3,"location":"the \"big\" hall"})",
       succeeded(3, "{}"),
       "BAND  AP  RADIO  STATUS  CHANNEL  WIDTH  POWER  EIRP  CLIENTS  LOCKED  CHANNELS\n",
       "{}\n"},
      {{"roaming", "office"},
       R"({"type":133,"kind":4,"location":"office"})",
       succeeded(4, bands),
       roaming_table,
       bands + "\n"},
      {{"roaming", "office", "--mac", "a8f94b001122", "--band", "5g"},
       R"({"type":133,"kind":4,"location":"office","mac":"a8f94b001122","band":"5g"})",
       succeeded(4, bands),
       roaming_table,
       bands + "\n"},
      {{"ap", "a8f94b001122"},
       R"({"type":133,"kind":5,"mac":"a8f94b001122"})",
       succeeded(5, R"({"ap-location":"office","ap-mac":"a8:f9:4b:00:11:22"})"),
       "AP          a8:f9:4b:00:11:22\nlocation    office\n\nBAND  RADIO  STATUS  CHANNEL  WIDTH  POWER  CHANGED  MIN  "
       "MAX  EIRP  CONFLICT  LOCKED  CHANNELS\n\nBAND  VAP  802.11K  802.11R  802.11V  LINKS  SSID\n",
       R"({"ap-location":"office","ap-mac":"a8:f9:4b:00:11:22"})"
       "\n"},
      {{"optimize", "office"},
       R"({"type":133,"kind":6,"location":"office"})",
       succeeded(6, ""),
       "optimisation ordered\n",
       "{}\n"},
      {{"reports", "office"},
       R"({"type":133,"kind":7,"location":"office"})",
       succeeded(7, bands),
       reports_table,
       bands + "\n"},
      {{"reports", "office", "--band", "2g", "--days", "0"},
       R"({"type":133,"kind":7,"location":"office","band":"2g","days":0})",
       succeeded(7, bands),
       reports_table,
       bands + "\n"},
      {{"reports", "office", "--days", "2147483647"},
       R"({"type":133,"kind":7,"location":"office","days":2147483647})",
       succeeded(7, bands),
       reports_table,
       bands + "\n"},
  };
  for (const Question& question : questions) expect_told("133", question);
}

TEST_F(Zalctl, AQuestionToTheServersInterfaceIsAskedAndTold) {
  const ChildProcess controller = start();
  const std::string sessions = R"({"websock-sessions":[{"id":3,"peer":"10.0.0.7"}]})";
  const std::string groups = R"({"domains":[{"name":"office","ap-count":2,"unanswered-ap-count":0,)"
                             R"("deleted-ap-count":1,"common-config":1}]})";
  const std::string group = R"({"details":{"name":"office","queue-size":0,"rrm-status":0,"fbt-status":0}})";
  const std::string ap = R"({"active-ap":{"mac":"A8:F9:4B:00:11:22"}})";
  const std::string reports = R"({"data":[],"count":0,"status":"success"})";
  const std::string report = R"({"report":{"id":"i","domain":"office","date":"d","details":[]},"status":"success"})";
  const std::string success = R"({"status":"success"})";
  const std::vector<Question> questions{
      {{"api", "sessions"},
       R"({"type":36})",
       answered(44, sessions),
       "SESSION  IP\n3        10.0.0.7\n",
       sessions + "\n"},
      {{"api", "remove-sessions", "3"},
       R"({"type":37,"filter":"3"})",
       answered(45, "{}"),
       "ended, where there were such sessions\n",
       "{}\n"},
      {{"api", "remove-sessions", "3", "17", "0"},
       R"({"type":37,"filter":"3,17,0"})",
       answered(45, "{}"),
       "ended, where there were such sessions\n",
       "{}\n"},
      {{"api", "groups"},
       R"({"type":38})",
       answered(46, groups),
       "DOMAIN  CONNECTED  UNANSWERED  DELETED  SETTINGS\noffice  2          0           1        common\n",
       groups + "\n"},
      {{"api", "group", "office"},
       R"({"type":39,"group":"office"})",
       answered(47, group),
       "domain      office\nstatus      0 idle\n802.11r     0\nqueue       0\n\nSTATE  AP  BOARD  HW  SERIAL\n",
       group + "\n"},
      {{"api", "ap", "office", "a8f94b001122"},
       R"({"type":40,"group":"office","ap":"a8f94b001122"})",
       answered(48, ap),
       "AP          A8:F9:4B:00:11:22\nstate       connected\nneighbours  0\nforeign     0\n\nRADIO  BAND  MAC  STATUS "
       " "
       "CHANNEL  WIDTH  POWER  CHANGED  MIN  MAX  EIRP  CLIENTS  LOCKED  CHANNELS\n\nRADIO  VAP  802.11K  802.11R  "
       "802.11V  LINKS  SSID\n",
       ap + "\n"},
      {{"api", "optimize", "office"},
       R"({"type":41,"group":"office"})",
       answered(49, success),
       "optimisation ordered\n",
       success + "\n"},
      {{"api", "reports", "office", "2026-01-02", "2026-01-03,04:05:06"},
       R"({"type":42,"group":"office","date_start":"2026-01-02,00:00:00 UTC","date_finish":"2026-01-03,04:05:06 UTC"})",
       answered(50, reports),
       "TIME  REPORT\n",
       reports + "\n"},
      {{"api", "reports", "office", "2026-01-02,00:00:00 UTC", "now"},
       R"({"type":42,"group":"office","date_start":"2026-01-02,00:00:00 UTC","date_finish":"now"})",
       answered(50, reports),
       "TIME  REPORT\n",
       reports + "\n"},
      {{"api", "report", "office", "2026-01-02,03:04:05,office"},
       R"({"type":43,"group":"office","report":"2026-01-02,03:04:05,office"})",
       answered(51, report),
       "report      i\ndomain      office\ntime        d\n\nAP  RADIO  MAC  CHANNEL  POWER  EIRP  WIDTH\n",
       report + "\n"},
  };
  for (const Question& question : questions) {
    expect_told(question.asked.substr(question.asked.find(':') + 1, 2), question);
  }
}

TEST_F(Zalctl, WhatTheDaemonRefusesGoesToStandardErrorWithItsReason) {
  struct Case {
    Arguments command;
    std::string script;
    std::string reason;
  };
  const ChildProcess controller = start();
  for (const auto& [command, script, reason] : std::vector<Case>{
           {{"stat", "x"}, R"({"133":)" + failed(3, "ap-location 'x' is empty") + "}", "ap-location 'x' is empty"},
           {{"ap", "a8"},
            R"({"133":)" + failed(5, "invalid parameter: 'mac' 'a8'") + "}",
            "invalid parameter: 'mac' 'a8'"},
           {{"optimize", "x"}, R"({"133":)" + failed(6, "") + "}", "zal_rrm refused the request"},
           {{"common"}, R"({"133":null})", "zal_rrm gave no answer"},
           {{"common"}, R"({"133":{"type":44,"text":"{}"}})", "zal_rrm gave no answer"},
           {{"common"}, R"({"133":{"type":134,"kind":0}})", "zal_rrm refused the request"},
           {{"common"}, "{}", "zal_rrm answered error 4 to message 133"},
           {{"api", "groups"}, "{}", "zal_rrm answered error 4 to message 38"},
           {{"api", "groups"}, R"({"38":)" + answered(46, "") + "}", "zal_rrm gave no answer"},
           {{"api", "group", "x"},
            R"({"39":)" + answered(47, R"({"error":"domain not found"})") + "}",
            "domain not found"},
           {{"api", "optimize", "x"},
            R"({"41":)" + answered(49, R"({"status":"failure"})") + "}",
            "zal_rrm answered a failure"},
       }) {
    SCOPED_TRACE(reason);
    answer(script);
    EXPECT_EQ(zalctl(command), (Finished{1, "zalctl: " + reason + "\n"}));
    Arguments with_json = command;
    with_json.insert(with_json.begin(), "--json");
    EXPECT_EQ(zalctl(with_json), (Finished{1, "zalctl: " + reason + "\n"}));
  }
}

TEST_F(Zalctl, ACommandWithoutWhatItNeedsAsksNothing) {
  const std::string hint = "\nRun with --help for more information.\n";
  for (const auto& [command, complaint] : std::vector<std::pair<Arguments, std::string>>{
           {{"stat"}, "LOCATION is required"},
           {{"roaming"}, "LOCATION is required"},
           {{"ap"}, "MAC is required"},
           {{"optimize"}, "LOCATION is required"},
           {{"reports"}, "LOCATION is required"},
           {{"roaming", "office", "--band", "7g"}, "--band: 7g not in {2g,5g,6g}"},
           {{"reports", "office", "--days", "-1"}, "--days: Value -1 not in range 0 to 2147483647"},
           {{"reports", "office", "--days", "2147483648"}, "--days: Value 2147483648 not in range 0 to 2147483647"},
           {{"common", "more"}, "The following argument was not expected: more"},
           {{"api"}, "A subcommand is required"},
           {{"api", "remove-sessions"}, "ID is required"},
           {{"api", "group"}, "DOMAIN is required"},
           {{"api", "ap", "office"}, "MAC is required"},
           {{"api", "reports", "office", "2026-01-02"}, "TO is required"},
           {{"api", "report", "office"}, "ID is required"},
       }) {
    const Finished refused = zalctl(command);
    EXPECT_NE(refused.status, 0) << complaint;
    EXPECT_EQ(refused.output, complaint + hint);
  }
}

TEST_F(Zalctl, WithoutAControllerEveryQuestionSaysSo) {
  for (const Arguments& command : {Arguments{"common"}, {"ap", "a8f94b001122"}, {"api", "groups"}})
    EXPECT_EQ(zalctl(command), (Finished{1, "zalctl: no controller runs in " + state() + "\n"}));
}

// What is wrong

// One of the two streams of a command that fails.
class ZalctlRefusals : public Zalctl {
 protected:
  // Standard output stays empty, and standard error says why.
  void expect_refused(const Arguments& command, const std::string& complaint) const {
    std::string line = "zalctl";
    for (const std::string& argument : command) line += " " + argument.substr(0, 60);
    SCOPED_TRACE(line);
    const Finished output = only("2>/dev/null", command);
    EXPECT_NE(output.status, 0);
    EXPECT_EQ(output.output, "");
    const Finished error = only(">/dev/null", command);
    EXPECT_NE(error.status, 0);
    EXPECT_EQ(error.output, complaint);
  }
  // With a daemon that has been told all that a new one is told.
  ChildProcess start_and_settle() const {
    ChildProcess controller = start();
    EXPECT_TRUE(rrm::testing::eventually_true([&] { return served().ends_with("{\"type\":162,\"state\":1}\n"); }));
    return controller;
  }
  std::string file(const std::string& content) const {
    write_file(directory_.path() / "file", content);
    return directory_.file("file");
  }

 private:
  Finished only(const std::string& redirection, Arguments command) const {
    command.insert(command.begin(),
                   {"/bin/sh", "-c", "exec \"$@\" " + redirection, "sh", ZALCTL_PROGRAM, "--state", state()});
    return run_to_end(command);
  }
};

// Every command as it should be. The files need not be there: whether the arguments are right is looked at first.
const std::vector<Arguments> all_commands = {
    {"status"},
    {"setup", "setup.json"},
    {"vrrp", "1"},
    {"ap-info", "a8f94b001122", "record.json"},
    {"send", "143"},
    {"alarms"},
    {"log"},
    {"stop"},
    {"common"},
    {"sessions"},
    {"clear-sessions", "a8f94b001122"},
    {"stat", "office"},
    {"roaming", "office"},
    {"ap", "a8f94b001122"},
    {"optimize", "office"},
    {"reports", "office"},
    {"api", "sessions"},
    {"api", "remove-sessions", "3"},
    {"api", "groups"},
    {"api", "group", "office"},
    {"api", "ap", "office", "a8f94b001122"},
    {"api", "optimize", "office"},
    {"api", "reports", "office", "2026-01-02", "2026-01-03"},
    {"api", "report", "office", "2026-01-02,03:04:05,office"},
};

const char* const hint = "\nRun with --help for more information.\n";

TEST_F(ZalctlRefusals, NoCommandTakesWhatItDoesNotKnow) {
  for (Arguments command : all_commands) {
    if (command.back() == "3") continue;  // any number of sessions: the next one is taken for another
    command.push_back("surplus");
    expect_refused(command, std::string("The following argument was not expected: surplus") + hint);
    command.back() = "--nonsense";
    expect_refused(command, std::string("The following argument was not expected: --nonsense") + hint);
  }
}

TEST_F(ZalctlRefusals, EveryArgumentIsLookedAtBeforeAnythingIsSent) {
  const ChildProcess controller = start_and_settle();
  const std::string before = served();
  const std::string missing = directory_.file("missing");
  for (const auto& [command, complaint] : std::vector<std::pair<Arguments, std::string>>{
           {{}, std::string("A command is required") + hint},
           {{"Status"}, std::string("The following argument was not expected: Status") + hint},
           {{"setup"}, std::string("FILE is required") + hint},
           {{"setup", ""}, "zalctl: cannot read : No such file or directory\n"},
           {{"setup", missing}, "zalctl: cannot read " + missing + ": No such file or directory\n"},
           {{"setup", state()}, "zalctl: cannot read " + state() + ": Is a directory\n"},
           {{"vrrp"}, std::string("N is required") + hint},
           {{"vrrp", "4"}, std::string("N: Value 4 not in range 0 to 3") + hint},
           {{"vrrp", "one"}, std::string("N: Value one not in range 0 to 3") + hint},
           {{"vrrp", ""}, std::string("N: Value  not in range 0 to 3") + hint},
           {{"ap-info"}, "zalctl: ap-info wants MAC and FILE, or --clear\n"},
           {{"ap-info", "a8f94b001122"}, "zalctl: ap-info wants MAC and FILE, or --clear\n"},
           {{"ap-info", "a8f94b001122", ""}, "zalctl: ap-info wants MAC and FILE, or --clear\n"},
           {{"ap-info", "", missing}, "zalctl: ap-info wants MAC and FILE, or --clear\n"},
           {{"ap-info", "a8f94b00112", missing}, "zalctl: 'a8f94b00112' is no MAC address\n"},
           {{"ap-info", "a8f94b001122", missing}, "zalctl: cannot read " + missing + ": No such file or directory\n"},
           {{"send"}, std::string("TYPE is required") + hint},
           {{"send", "x"}, std::string("Could not convert: TYPE = x") + hint},
           {{"send", "143", "--field", "=1"}, "zalctl: '=1' is not K=V\n"},
           {{"send", "143", "--field", "type"}, "zalctl: 'type' is not K=V\n"},
           {{"send", "1000"}, "zalctl: bad frame: 'type' goes from 0 to 999\n"},
           {{"api"}, std::string("A subcommand is required") + hint},
           {{"api", "nothing"}, std::string("A subcommand is required") + hint},
           {{"api", "remove-sessions", "three"}, std::string("ID: Value three not in range 0 to 2147483647") + hint},
           {{"api", "remove-sessions", "-1"}, std::string("ID: Value -1 not in range 0 to 2147483647") + hint},
           {{"reports", "office", "--days", "1.5"},
            std::string("--days: Value 1.5 not in range 0 to 2147483647") + hint},
       }) {
    expect_refused(command, complaint);
  }
  EXPECT_EQ(served(), before);
}

TEST_F(ZalctlRefusals, AFileThatIsNeitherSetupNorRecordIsNotSent) {
  const ChildProcess controller = start_and_settle();
  const std::string before = served();
  const std::string path = file("");
  struct Case {
    std::string content;
    std::string setup;
    std::string record;
  };
  for (const auto& [content, of_setup, of_record] : std::vector<Case>{
           {"", "no JSON, from byte 1", "no JSON, from byte 1"},
           {"nonsense", "no JSON, from byte 2", "no JSON, from byte 2"},
           {R"({"ip":"10.0.0.)", "no JSON, from byte 15", "no JSON, from byte 15"},
           {std::string(5, '\0'), "no JSON, from byte 1", "no JSON, from byte 1"},
           {"\x7f\x45\x4c\x46\x02\x01", "no JSON, from byte 1", "no JSON, from byte 1"},
           {"[]", "no JSON object", "no JSON object"},
           {"7", "no JSON object", "no JSON object"},
           {"null", "no JSON object", "no JSON object"},
           {"\"{}\"", "no JSON object", "no JSON object"},
           {"{}{}", "no JSON, from byte 3", "no JSON, from byte 3"},
           {std::string(100000, '['), "no JSON, from byte 100001", "no JSON object"},
       }) {
    file(content);
    SCOPED_TRACE(content.substr(0, 60));
    expect_refused({"setup", path}, "zalctl: " + path + ": " + of_setup + "\n");
    expect_refused({"ap-info", "a8f94b001122", path}, "zalctl: " + path + ": " + of_record + "\n");
  }
  EXPECT_EQ(served(), before);
}

TEST_F(ZalctlRefusals, WithoutAControllerEveryCommandSaysSoOnStandardError) {
  const std::string content = file("{}");
  for (Arguments command : all_commands) {
    if (command.front() == "log") {
      expect_refused(command, "zalctl: no log " + state() + "/zal_rrm.log: No such file or directory\n");
      continue;
    }
    if (command.front() == "setup" || command.front() == "ap-info") command.back() = content;
    expect_refused(command, "zalctl: no controller runs in " + state() + "\n");
  }
}

TEST_F(ZalctlRefusals, WhatTheDaemonDoesNotKnowIsToldOnStandardError) {
  const ChildProcess controller = start();
  const std::string content = file("{}");
  const std::vector<std::pair<Arguments, int>> requests = {
      {{"setup", content}, 126},
      {{"vrrp", "1"}, 162},
      {{"ap-info", "a8f94b001122", content}, 132},
      {{"ap-info", "--clear"}, 118},
      {{"send", "143"}, 143},
      {{"common"}, 133},
      {{"sessions"}, 133},
      {{"clear-sessions"}, 133},
      {{"stat", "office"}, 133},
      {{"roaming", "office"}, 133},
      {{"ap", "a8f94b001122"}, 133},
      {{"optimize", "office"}, 133},
      {{"reports", "office"}, 133},
      {{"api", "sessions"}, 36},
      {{"api", "remove-sessions", "3"}, 37},
      {{"api", "groups"}, 38},
      {{"api", "group", "office"}, 39},
      {{"api", "ap", "office", "a8f94b001122"}, 40},
      {{"api", "optimize", "office"}, 41},
      {{"api", "reports", "office", "2026-01-02", "2026-01-03"}, 42},
      {{"api", "report", "office", "x"}, 43}};
  for (const auto& [command, type] : requests) {
    expect_refused(command, "zalctl: zal_rrm answered error 4 to message " + std::to_string(type) + "\n");
  }
}

TEST_F(ZalctlRefusals, AnAnswerThatIsNoObjectIsToldOnStandardError) {
  const ChildProcess controller = start();
  const std::string nonsense = "zalctl: zal_rrm answered nonsense: no JSON object\n";
  for (const char* text : {"nonsense", "[]", "{\"domains\":", "7", "null"}) {
    SCOPED_TRACE(text);
    answer(R"({"38":)" + answered(46, text) + R"(,"133":)" + succeeded(0, text) + "}");
    expect_refused({"api", "groups"}, nonsense);
    expect_refused({"common"}, nonsense);
  }
}

// Status

const char* const groups_of_two =
    R"({"domains":[{"name":"hall","ap-count":1,"unanswered-ap-count":2,"deleted-ap-count":3,"common-config":0},)"
    R"({"name":"office","ap-count":12,"unanswered-ap-count":0,"deleted-ap-count":0,"common-config":1}]})";

TEST_F(Zalctl, StatusTellsTheRoleThatTheDaemonHasAndItsDomains) {
  const ChildProcess controller = start("2");
  answer(R"({"173":{"type":174,"role":1,"result":1},"38":)" + answered(46, groups_of_two) + "}");
  EXPECT_THAT(zalctl({"status"}).output,
              ::testing::MatchesRegex("zal_rrm     running\npid         [0-9]+\nup-time     0:0.:..\nVRRP state  2\n"
                                      "role        master\n\n"
                                      "DOMAIN  CONNECTED  UNANSWERED  DELETED  SETTINGS\n"
                                      "hall    1          2           3        own\n"
                                      "office  12         0           0        common\n"));
  const std::string domains = groups_of_two;
  EXPECT_THAT(zalctl({"--json", "status"}).output,
              ::testing::AllOf(StartsWith(R"({"phase":"running","pid":)"),
                               EndsWith(R"(,"vrrp":2,"role":"master",)" + domains.substr(1, domains.size() - 2) +
                                        ",\"ok\":true}\n")));
}

TEST_F(Zalctl, StatusOfABackupOrOfAServerThatIsNotThereHasNoDomains) {
  const ChildProcess controller = start("1");
  for (const auto& [reply, role] : std::vector<std::pair<std::string, std::string>>{
           {R"({"type":174,"role":2,"result":1})", "backup"},
           {R"({"type":174,"role":3,"result":0})", "none"},
           {R"({"type":174,"role":1,"result":0})", "none"},
           {R"({"type":174,"role":7,"result":1})", "none"},
       }) {
    answer(R"({"173":)" + reply + R"(,"38":)" + answered(46, R"({"domains":[]})") + "}");
    const Finished plain = zalctl({"status"});
    EXPECT_EQ(plain.status, 0);
    EXPECT_THAT(plain.output, EndsWith("VRRP state  1\nrole        " + role + "\n"));
    EXPECT_THAT(zalctl({"--json", "status"}).output,
                EndsWith(R"(,"vrrp":1,"role":")" + role + "\",\"domains\":[],\"ok\":true}\n"));
  }
}

TEST_F(Zalctl, StatusTellsWhyTheDaemonSaysNothing) {
  const ChildProcess controller = start("1");
  EXPECT_THAT(zalctl({"status"}).output, EndsWith("role        unknown (zal_rrm answered error 4 to message 173)\n"));
  EXPECT_THAT(zalctl({"--json", "status"}).output,
              EndsWith(R"("role":"unknown","failure":"zal_rrm answered error 4 to message 173","domains":[],"ok":true})"
                       "\n"));
  answer(R"({"173":{"type":174,"role":1,"result":1},"38":)" + answered(46, "") + "}");
  EXPECT_THAT(zalctl({"status"}).output, EndsWith("role        master (zal_rrm gave no answer)\n"));
}

// The way to a master

std::string states_of(const std::string& frames) {
  const std::string key = R"({"type":162,"state":)";
  std::string states;
  for (auto at = frames.find(key); at != std::string::npos; at = frames.find(key, at + 1))
    states += frames[at + key.size()];
  return states;
}

TEST_F(Zalctl, AnUndecidedDaemonBecomesMasterByWayOfStateOne) {
  const ChildProcess controller = start("3");
  answer(R"({"162":null})");
  EXPECT_EQ(zalctl({"vrrp", "0"}), (Finished{0, "served\n"}));
  EXPECT_EQ(states_of(served()), "310");
  for (const char* next : {"2", "0", "1", "0", "3", "1", "3", "2"})
    EXPECT_EQ(zalctl({"vrrp", next}), (Finished{0, "served\n"}));
  EXPECT_EQ(states_of(served()), "31020103132");
}

}  // namespace
