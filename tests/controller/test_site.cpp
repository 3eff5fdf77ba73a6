// What the controller keeps: the site, the alarms, its directory; and how it reads files and a growing log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "controller/LogReader.h"
#include "controller/Site.h"
#include "controller/StateDir.h"
#include "controller/alarms.h"
#include "controller/files.h"
#include "support/temp_dir.h"

namespace controller {
namespace {

namespace fs = std::filesystem;
using rrm::testing::read_file;
using rrm::testing::TempDir;
using rrm::testing::write_file;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using zal::bus::Fields;

std::vector<std::string> texts(const std::vector<Fields>& frames) {
  std::vector<std::string> all;
  for (const auto& frame : frames) all.push_back(to_json(frame));
  return all;
}

bool remember(Site& site, const std::string& frame) {
  std::string reason;
  return site.remember(*zal::bus::parse_fields(frame, reason));
}

TEST(ControllerSite, ANewDaemonIsToldEverythingInOrder) {
  Site site;
  site.vrrp_state = 1;
  site.setup = "{}";
  site.ap_records = parse_ap_records(R"([{"mac":"a8f94b001123","ip":"10.0.0.2"},{"mac":"A8:F9:4B:00:11:22"}])");
  EXPECT_THAT(texts(site.messages()),
              ElementsAre(R"({"type":143})", R"({"type":162,"state":1})", R"({"type":126,"text":"{}"})",
                          R"({"type":132,"mac":"a8:f9:4b:00:11:22","text":"{}"})",
                          R"({"type":132,"mac":"a8:f9:4b:00:11:23","text":"{\"ip\":\"10.0.0.2\"}"})"));
}

TEST(ControllerSite, WithoutASetupNoneIsSent) {
  EXPECT_THAT(texts(Site().messages()), ElementsAre(R"({"type":143})", R"({"type":162,"state":3})"));
}

TEST(ControllerSite, MessagesThatPassAreRemembered) {
  Site site;
  EXPECT_TRUE(remember(site, R"({"type":126,"text":"{\"global\":{}}"})"));
  EXPECT_TRUE(remember(site, R"({"type":162,"state":2})"));
  EXPECT_TRUE(remember(site, R"({"type":132,"mac":"a8f94b001122","text":"{\"ip\":\"10.0.0.1\"}"})"));
  EXPECT_TRUE(remember(site, R"({"type":132,"mac":"A8:F9:4B:00:11:23","text":"{\"ip\":\"10.0.0.2\"}"})"));
  EXPECT_EQ(site.setup, "{\"global\":{}}");
  EXPECT_EQ(site.vrrp_state, 2);
  EXPECT_EQ(site.ap_records.size(), 2u);

  EXPECT_TRUE(remember(site, R"({"type":132,"mac":"a8f94b001122","text":"{}"})"));
  EXPECT_EQ(site.ap_records.size(), 1u);
  EXPECT_EQ(site.ap_records.begin()->first.to_string(), "a8:f9:4b:00:11:23");

  EXPECT_TRUE(remember(site, R"({"type":118})"));
  EXPECT_TRUE(site.ap_records.empty());
}

// What a daemon would refuse, or could not start with, does not take the place of what it has.
TEST(ControllerSite, NothingIsRememberedThatADaemonCouldNotStartWith) {
  Site site;
  site.setup = "{}";
  site.vrrp_state = 1;
  site.ap_records = parse_ap_records(R"([{"mac":"a8f94b001122","ip":"10.0.0.1"}])");
  const auto before = texts(site.messages());
  for (const char* frame : {
           R"({"type":126})",
           R"({"type":126,"text":5})",
           R"({"type":126,"text":""})",
           R"({"type":126,"text":"[]"})",
           R"({"type":126,"text":"{\"global\":"})",
           R"({"type":162})",
           R"({"type":162,"state":"1"})",
           R"({"type":162,"state":-1})",
           R"({"type":162,"state":4})",
           R"({"type":132,"text":"{}"})",
           R"({"type":132,"mac":"a8f94b001122"})",
           R"({"type":132,"mac":"nonsense","text":"{\"ip\":\"10.0.0.1\"}"})",
           R"({"type":143})",
           R"({"type":33})",
           R"({"type":999})",
       }) {
    EXPECT_FALSE(remember(site, frame)) << frame;
    EXPECT_EQ(texts(site.messages()), before) << frame;
  }
}

TEST(ControllerSite, OnlyOneJsonObjectIsASetup) {
  EXPECT_EQ(fault_of_setup("{}"), "");
  EXPECT_EQ(fault_of_setup(R"( {"global":{"enabled":1},"patterns":[{"pattern":"a"}]} )"), "");
  EXPECT_EQ(fault_of_setup(""), "no JSON, from byte 1");
  EXPECT_EQ(fault_of_setup("{\"global\":"), "no JSON, from byte 11");
  EXPECT_EQ(fault_of_setup("{} x"), "no JSON, from byte 4");
  EXPECT_EQ(fault_of_setup("{\"a\":\"\xff\"}"), "no JSON, from byte 7");
  EXPECT_EQ(fault_of_setup("{\"a\":1e999}"), "a number in it is too large");
  for (const char* text : {"[]", "5", "null", "\"{}\""}) EXPECT_EQ(fault_of_setup(text), "no JSON object") << text;
}

TEST(ControllerSite, OnlyAFlatJsonObjectIsARecord) {
  EXPECT_EQ(fault_of_ap_record("{}"), "");
  EXPECT_EQ(fault_of_ap_record(R"({"ip":"10.0.0.1","height":3})"), "");
  EXPECT_EQ(fault_of_ap_record("{"), "no JSON, from byte 2");
  EXPECT_EQ(fault_of_ap_record("[]"), "no JSON object");
  EXPECT_EQ(fault_of_ap_record(R"({"place":{"x":1}})"), "the field 'place' is neither text, integer nor boolean");
}

TEST(ControllerSite, TheRoleFollowsFromStateAndSetup) {
  struct Case {
    std::optional<std::string> setup;
    int state;
    const char* role;
  };
  const std::vector<Case> cases{
      {std::nullopt, 1, "none"},
      {"{}", 0, "master"},
      {"{}", 1, "master"},
      {"{}", 2, "backup"},
      {"{}", 3, "undecided"},
      {"nonsense", 1, "master"},
      {R"({"global":{"enabled":1}})", 1, "master"},
      {R"({"global":{"enabled":0}})", 1, "none"},
      {R"({"global":{"enabled":false}})", 1, "none"},
  };
  for (const auto& [setup, state, role] : cases) {
    Site site;
    site.setup = setup;
    site.vrrp_state = state;
    EXPECT_STREQ(site.role(), role) << setup.value_or("no setup") << " " << state;
  }
}

TEST(ControllerSite, AFileOfRecordsIsAnArrayOfObjectsWithAddresses) {
  EXPECT_TRUE(parse_ap_records("[]").empty());
  const auto reason = [](const std::string& text) {
    try {
      parse_ap_records(text);
      return std::string("none");
    } catch (const std::runtime_error& e) {
      return std::string(e.what());
    }
  };
  EXPECT_EQ(reason("nonsense"), "no JSON array of AP records");
  EXPECT_EQ(reason("{}"), "no JSON array of AP records");
  EXPECT_EQ(reason("[5]"), "an AP record without 'mac'");
  EXPECT_EQ(reason(R"([{"ip":"10.0.0.1"}])"), "an AP record without 'mac'");
  EXPECT_EQ(reason(R"([{"mac":5}])"), "an AP record without 'mac'");
  EXPECT_EQ(reason(R"([{"mac":"a8:f9"}])"), "'a8:f9' is no MAC address");
  EXPECT_EQ(reason(R"([{"mac":"a8f94b001122","place":[1,2]}])"),
            "the record of a8:f9:4b:00:11:22: the field 'place' is neither text, integer nor boolean");
}

TEST(ControllerAlarms, AnAlarmIsOneLineWithItsMeaning) {
  const std::vector<std::pair<int, std::string>> cases{{0, "idle"},
                                                       {1, "waiting for the planned time"},
                                                       {2, "waiting for modes"},
                                                       {3, "waiting for scans"},
                                                       {4, "about to optimise"},
                                                       {5, "computing"},
                                                       {6, "unknown"},
                                                       {-1, "unknown"}};
  for (const auto& [status, name] : cases)
    EXPECT_EQ(to_text({1700000000, "office", status}),
              "2023-11-14T22:13:20Z office: " + std::to_string(status) + " " + name);
  EXPECT_EQ(to_json(to_fields({1700000000, "office", 3})),
            R"({"time":"2023-11-14T22:13:20Z","location":"office","status":3})");
}

TEST(ControllerAlarms, OnlyTheLatestAreKept) {
  AlarmHistory history;
  for (std::size_t i = 0; i <= AlarmHistory::capacity; ++i) history.add({0, "office", static_cast<std::int64_t>(i)});
  EXPECT_EQ(history.all().size(), AlarmHistory::capacity);
  EXPECT_EQ(history.all().front().status, 1);
  EXPECT_EQ(history.all().back().status, static_cast<std::int64_t>(AlarmHistory::capacity));
}

TEST(ControllerStateDir, IsMadeForItsOwnerAlone) {
  const TempDir parent;
  const StateDir state(parent.path() / "new" / "state");
  const auto lock = state.occupy();
  EXPECT_TRUE(lock);
  struct stat status {};
  ASSERT_EQ(stat(state.root().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0700u);
  for (const auto& directory : {state.etc(), state.data(), state.view()}) EXPECT_TRUE(fs::is_directory(directory));
  EXPECT_THAT(read_file(state.etc() / "db.json"), ::testing::MatchesRegex(R"(\{"common":\{"scpu":\[[0-9]+\]\}\}.)"));
  EXPECT_EQ(read_file(state.lock_file()), std::to_string(getpid()) + "\n");
}

TEST(ControllerStateDir, ADirectoryThatWasThereBeforeKeepsItsPermissions) {
  const TempDir parent;
  fs::permissions(parent.path(), fs::perms{0755});
  const auto lock = StateDir(parent.path()).occupy();
  EXPECT_EQ(fs::status(parent.path()).permissions(), fs::perms{0755});
}

TEST(ControllerStateDir, AGivenDatabaseIsKept) {
  const TempDir parent;
  const StateDir state(parent.path());
  write_file(state.etc() / "db.json", "mine");
  const auto lock = state.occupy();
  EXPECT_EQ(read_file(state.etc() / "db.json"), "mine");
}

TEST(ControllerStateDir, HasOneOwnerAtATime) {
  const TempDir parent;
  const StateDir state(parent.path());
  {
    const auto lock = state.occupy();
    try {
      state.occupy();
      FAIL() << "two owners";
    } catch (const std::runtime_error& e) {
      EXPECT_EQ(e.what(),
                "a controller runs in " + state.root().string() + " already, pid " + std::to_string(getpid()));
    }
  }
  EXPECT_TRUE(state.occupy());
}

TEST(ControllerStateDir, SocketsOfOneThatIsGoneAreRemoved) {
  const TempDir parent;
  const StateDir state(parent.path());
  write_file(state.bus_socket(), "");
  write_file(state.control_socket(), "");
  const auto lock = state.occupy();
  EXPECT_FALSE(fs::exists(state.bus_socket()));
  EXPECT_FALSE(fs::exists(state.control_socket()));
}

TEST(ControllerStateDir, WhatCannotBeMadeIsSaid) {
  const TempDir parent;
  write_file(parent.path() / "file", "");
  const auto reason = [](const fs::path& root) {
    try {
      StateDir(root).occupy();
      return std::string("none");
    } catch (const std::runtime_error& e) {
      return std::string(e.what());
    }
  };
  EXPECT_EQ(reason(""), "the state directory has no name");
  EXPECT_EQ(reason("/proc/none"), "cannot make /proc/none: No such file or directory");
  EXPECT_EQ(reason(parent.path() / "file"), "cannot make " + parent.file("file") + ": Not a directory");
  EXPECT_EQ(reason(parent.path() / "file" / "state"), "cannot make " + parent.file("file/state") + ": Not a directory");
}

std::string failure_of(const std::function<void()>& action) {
  try {
    action();
    return "none";
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

TEST(ControllerFiles, AreReadWholeOrRefusedByName) {
  const TempDir directory;
  const std::string path = directory.file("file");
  const std::string large = R"({"a":")" + std::string(200000, 'x') + R"("})";
  write_file(path, large);
  EXPECT_EQ(read_setup(path), large);
  EXPECT_EQ(read_ap_record(path), large);

  write_file(path, R"([{"mac":"a8f94b001122"}])");
  EXPECT_EQ(read_ap_records(path).size(), 1u);
  EXPECT_EQ(failure_of([&] { read_setup(path); }), path + ": no JSON object");
  EXPECT_EQ(failure_of([&] { read_ap_record(path); }), path + ": no JSON object");
  write_file(path, "{}");
  EXPECT_EQ(failure_of([&] { read_ap_records(path); }), path + ": no JSON array of AP records");

  for (const auto& [name, reason] :
       {std::pair{std::string("none"), "No such file or directory"}, std::pair{std::string("."), "Is a directory"}}) {
    const std::string unread = directory.file(name);
    const std::string failure = "cannot read " + unread + ": " + reason;
    EXPECT_EQ(failure_of([&] { read_setup(unread); }), failure);
    EXPECT_EQ(failure_of([&] { read_ap_record(unread); }), failure);
    EXPECT_EQ(failure_of([&] { read_ap_records(unread); }), failure);
  }
}

std::vector<std::string> lines(LogReader& reader) {
  std::vector<std::string> all;
  while (const auto line = reader.next_line()) all.push_back(*line);
  return all;
}

void append(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::app) << text;
}

TEST(ControllerLogReader, HandsOutWholeLinesAsTheyCome) {
  const TempDir directory;
  const fs::path log = directory.path() / "log";
  append(log, "one\ntwo\nhal");
  LogReader reader(log);
  EXPECT_THAT(lines(reader), ElementsAre("one", "two"));
  EXPECT_THAT(lines(reader), ElementsAre());
  append(log, "f\n\nlong " + std::string(200000, 'x') + "\n");
  EXPECT_THAT(lines(reader), ElementsAre("half", "", "long " + std::string(200000, 'x')));
}

TEST(ControllerLogReader, FollowsARenamedLogToItsEndAndThenTheNewOne) {
  const TempDir directory;
  const fs::path log = directory.path() / "log";
  append(log, "one\n");
  LogReader reader(log);
  EXPECT_THAT(lines(reader), ElementsAre("one"));
  append(log, "last of the old\n");
  fs::rename(log, directory.path() / "log.1");
  EXPECT_THAT(lines(reader), ElementsAre("last of the old"));
  append(log, "first of the new\n");
  EXPECT_THAT(lines(reader), ElementsAre("first of the new"));
}

TEST(ControllerLogReader, WaitsUntilSomethingWasAdded) {
  const TempDir directory;
  const fs::path log = directory.path() / "log";
  append(log, "");
  LogReader reader(log);
  append(log, "one\n");
  reader.wait(60000);
  EXPECT_THAT(lines(reader), ElementsAre("one"));
  reader.wait(0);
}

TEST(ControllerLogReader, WithoutALogThereIsNone) {
  EXPECT_THROW(LogReader("/nowhere/log"), std::runtime_error);
}

TEST(ControllerSite, OnlyFromUndecidedToMasterThereIsAStateBetween) {
  const auto vrrp = [](std::int64_t state) { return Fields{{"type", std::int64_t{162}}, {"state", state}}; };
  for (std::int64_t from = 0; from <= 3; ++from)
    for (std::int64_t to = -1; to <= 4; ++to) {
      SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
      Site site;
      site.vrrp_state = from;
      EXPECT_EQ(site.message_before(vrrp(to)), from == 3 && to == 0 ? std::optional(vrrp(1)) : std::nullopt);
    }
  EXPECT_EQ(Site().message_before({{"type", std::int64_t{162}}}), std::nullopt);
  EXPECT_EQ(Site().message_before({{"type", std::int64_t{126}}, {"state", std::int64_t{0}}}), std::nullopt);
}

}  // namespace
}  // namespace controller
