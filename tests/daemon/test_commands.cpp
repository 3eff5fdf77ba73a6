// The commands that the controller's questions become: their texts, their way to the server, and what is logged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "Config.h"
#include "daemon/answers.h"
#include "daemon/commands.h"
#include "daemon/scripted_api.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::testing::Platform;

struct TextCase {
  std::string built;
  const char* text;
};

TEST(DaemonCommands, EachQuestionHasItsText) {
  const std::vector<TextCase> cases{
      {commands::sessions(), R"({"rrm":{"sessions":"1"}})"},
      {commands::drop_sessions({7, 12, 3}), R"({"rrm":{"drop_session":"true","ids":[7,12,3]}})"},
      {commands::drop_sessions({}), R"({"rrm":{"drop_session":"true","ids":[]}})"},
      {commands::domains(), R"({"rrm":{}})"},
      {commands::domain("lab"), R"({"rrm":{"domain":"lab"}})"},
      {commands::ap("lab", "a8:f9:4b:00:11:22"), R"({"rrm":{"domain":"lab","ap":"a8:f9:4b:00:11:22"}})"},
      {commands::ap_fbt("lab", "a8:f9:4b:00:11:22"),
       R"({"rrm":{"domain":"lab","ap":"a8:f9:4b:00:11:22","fbt-links":{}}})"},
      {commands::role(), R"({"vrrp":{}})"},
      {commands::optimize("lab"), R"({"rrm":{"domain":"lab","start_optimization":"true"}})"},
      {commands::report_list("lab", "a", "b"),
       R"({"rrm":{"domain":"lab","report_list":{"date_start":"a","date_finish":"b"}}})"},
      {commands::report("lab", "4"), R"({"rrm":{"domain":"lab","report":"4"}})"},
      {commands::last_report("lab"), R"({"rrm":{"domain":"lab","last_report":"lab"}})"},
      {commands::configured_domains(), R"({"cfg":{"operation":"get","level":"domain"}})"},
      {commands::role_backup(), R"({"vrrp":{"role":"backup"}})"},
      {commands::role_master(), R"({"vrrp":{"role":"master"}})"},
      {commands::role_master({}), R"({"vrrp":{"role":"master","domains":[]}})"},
      {commands::role_master({R"({"name":"a"})", R"({"name":"b"})"}),
       R"({"vrrp":{"role":"master","domains":[{"name":"a"},{"name":"b"}]}})"},
  };
  for (const auto& [built, text] : cases) EXPECT_EQ(built, text);
}

TEST(DaemonCommands, ANameIsNeverMoreThanAValue) {
  for (const std::string& name : {std::string(R"(a","start_optimization":"true)"), std::string("back\\slash"),
                                  std::string("line\nend\ttab\x01"), std::string("a/b"), std::string("\xD0\xB0")}) {
    SCOPED_TRACE(name);
    const std::string command = commands::domain(name);
    const rrm::JsonReader body = rrm::JsonReader(command.c_str());
    EXPECT_EQ(body.get("rrm").get_string("domain"), name);
    EXPECT_FALSE(body.get("rrm").has("start_optimization"));
  }
  EXPECT_EQ(commands::domain("a\"b\n"), R"({"rrm":{"domain":"a\"b\n"}})");
}

template <class Settings>
std::string settings_text(const Settings& settings) {
  rrm::JsonWriter writer;
  rrm::write_settings(settings, writer);
  return writer.to_string();
}

TEST(DaemonCommands, EachEditHasItsText) {
  const rrm::GlobalConfig next(
      "", R"({"global":{"listen_port":8100},"common":{},"patterns":[{"pattern":"office","use_tpc":0}],
      "domains":[{"domain":"hall","pattern":"office","time_zone":"-2:30"},{"domain":"lab","pattern":"common"}]})");
  const std::string office = settings_text(*next.pattern("office"));
  EXPECT_NE(office.find(R"("use_tpc":0)"), std::string::npos);
  const std::string global = settings_text(next.global());
  EXPECT_NE(global.find(R"("listen_port":8100)"), std::string::npos);

  EXPECT_EQ(commands::set_global(next),
            R"({"version":"2.0","cfg":{"operation":"set","level":"global","config":)" + global + "}}");
  EXPECT_EQ(
      commands::set_pattern(next, "office"),
      R"({"version":"2.0","cfg":{"operation":"set","level":"pattern","pattern":"office","config":)" + office + "}}");
  EXPECT_EQ(
      commands::add_pattern(next, "office"),
      R"({"version":"2.0","cfg":{"operation":"add","level":"pattern","pattern":"office","config":)" + office + "}}");
  EXPECT_EQ(commands::remove_pattern("office"),
            R"({"version":"2.0","cfg":{"operation":"remove","level":"pattern","pattern":"office"}})");
  EXPECT_EQ(commands::set_domain(next, "hall"),
            R"({"version":"2.0","cfg":{"operation":"set","level":"domain","domain":"hall",)"
            R"("config":{"pattern":"office","time_zone":"-2:30"}}})");
  EXPECT_EQ(commands::add_domain(next, "hall"),
            R"({"version":"2.0","cfg":{"operation":"add","level":"domain","domain":"hall",)"
            R"("config":{"pattern":"office","time_zone":"-2:30"}}})");
  EXPECT_EQ(commands::add_domain(next, "lab"),
            R"({"version":"2.0","cfg":{"operation":"add","level":"domain","domain":"lab",)"
            R"("config":{"pattern":"common"}}})")
      << "without a time zone of its own it is told none";
  EXPECT_EQ(commands::remove_domain("hall"),
            R"({"version":"2.0","cfg":{"operation":"remove","level":"domain","domain":"hall"}})");
}

class DaemonCommandRuns : public zal::testing::ScriptedApiTest {};

TEST_F(DaemonCommandRuns, ACommandIsLoggedWithItsAnswer) {
  api_.answer(R"({"rrm":{}})", R"({"domains":[]})");
  EXPECT_EQ(api_.run(commands::domains()), R"({"domains":[]})");
  EXPECT_THAT(Platform::instance().notes(),
              ElementsAre("ap: Morvane API request sent:", R"(ap_limited: {"rrm":{}})",
                          "ap: Morvane API response got:", R"(ap_limited: {"domains":[]})"));
}

TEST_F(DaemonCommandRuns, ACommandThatCannotBeCarriedOutIsNotAnswered) {
  api_.give_no_answer(R"({"rrm":{}})");
  EXPECT_EQ(api_.run(commands::domains()), std::nullopt);
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("ap: Morvane API request sent:", R"(ap_limited: {"rrm":{}})",
                                                        "error: Morvane API request failed: out of order",
                                                        "ap: Morvane API response got:", "ap_limited: <null>"));
}

TEST_F(DaemonCommandRuns, WithoutAServerNothingIsAnswered) {
  ApiZAL api(nullptr, storage_);
  EXPECT_EQ(api.run(commands::domains()), std::nullopt);
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("ap: Morvane API request sent:", R"(ap_limited: {"rrm":{}})",
                                                        "ap: Morvane API response got:", "ap_limited: <null>"));
}

TEST_F(DaemonCommandRuns, ACommandOfNoFamilyFails) {
  for (const char* command : {"", "nonsense", "{}", "[]", "null", R"({"CFG":{}})", R"({"role":"master"})"}) {
    EXPECT_EQ(api_.run(command), R"({"status":"failure"})") << command;
  }
  EXPECT_THAT(api_.asked, IsEmpty());
}

TEST_F(DaemonCommandRuns, TheFamiliesAreTriedInTheirOrder) {
  api_.answer(R"({"cfg":1})", "from cfg");
  api_.answer(R"({"rrm":2})", "from rrm");
  EXPECT_EQ(api_.run(R"({"vrrp":3,"rrm":2,"cfg":1})"), "from cfg");
  EXPECT_EQ(api_.run(R"({"vrrp":3,"rrm":2})"), "from rrm");
}

TEST_F(DaemonCommandRuns, ACommandThatItsFamilyDoesNotTakeFails) {
  ApiZAL api(&server_, storage_);
  EXPECT_EQ(api.run(R"({"cfg":{}})"), R"({"status":"failure"})");
  EXPECT_EQ(api.run(R"({"cfg":{"operation":"get","level":"pattern","pattern":"none"}})"), R"({"status":"failure"})");
}

TEST(DaemonAnswers, WantOfMemoryIsAnInternalError) {
  std::string error;
  EXPECT_FALSE(answers::attempt(error, [] { throw std::bad_alloc(); }));
  EXPECT_EQ(error, "internal error");
}

TEST(DaemonAnswers, AFailureHasAnErrorOrSaysSo) {
  for (const char* text :
       {R"({"error":"x"})", R"({"error":null})", R"({"status":"failure"})", R"({"status":"success","error":""})"}) {
    EXPECT_TRUE(answers::is_failure(rrm::JsonReader(text))) << text;
  }
  for (const char* text : {"", "{}", "[]", R"({"status":"success"})", R"({"status":"Failure"})", R"({"status":0})",
                           R"({"details":{"error":"x"}})"}) {
    EXPECT_FALSE(answers::is_failure(rrm::JsonReader(text))) << text;
  }
}

}  // namespace
