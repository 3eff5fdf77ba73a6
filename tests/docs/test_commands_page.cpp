// The page about the commands: each of its examples is run, and it leaves none out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <string>

#include "docs/documented_site.h"
#include "docs/page.h"
#include "platform/bus/Frame.h"
#include "support/temp_dir.h"

namespace docs {
namespace {

const Page& page() {
  static const Page commands(COMMANDS_PAGE);
  return commands;
}

class CommandsPage : public ::testing::Test {
 protected:
  // As the page introduces it: the setup, the role, the records, the access point and its report.
  CommandsPage() {
    site.exchange(R"({"type":1002})");
    site.exchange(R"({"type":143})");
    site.exchange(zal::bus::to_json({{"type", std::int64_t{126}}, {"text", page().text_of("json setup")}}));
    for (const Exchange& record : page().exchanges("records")) site.exchange(record.ask);
    site.write_report();
    site.exchange(R"({"type":162,"state":1})");
  }

  // What the page would say of a management's request: its result or its failure.
  std::string request(const std::string& fields) {
    for (const std::string& frame : site.exchange(R"({"type":133,)" + fields.substr(1))) {
      std::string reason;
      const auto reply = zal::bus::parse_fields(frame, reason);
      if (reply->number("type") != 134) continue;  // an alarm
      return reply->number("failed") == 0 ? "< " + *reply->text("result") : "! " + *reply->text("error");
    }
    return "no reply";
  }
  std::string command(const std::string& text) {
    const auto answer = site.run(text);
    return answer ? "< " + *answer : "! no answer";
  }

  static void expect_documented(const Exchange& example, const std::string& answer) {
    if (example.answers.size() != 1 || example.answers.front() != answer) {
      ADD_FAILURE() << COMMANDS_PAGE << ":" << example.line << ": " << example.ask << " is answered by\n" << answer;
    }
  }

  DocumentedSite site;
};

TEST_F(CommandsPage, EachExampleIsAnsweredAsItSays) {
  const auto questions = page().exchanges("commands");
  const auto requests = page().exchanges("requests");
  ASSERT_FALSE(questions.empty());
  ASSERT_FALSE(requests.empty());
  for (const Exchange& example : requests) expect_documented(example, request(example.ask));
  for (const Exchange& example : questions) expect_documented(example, command(example.ask));
}

// The keys that the interface looks for in a command, by its own source.
std::set<std::string> keys_of_interface() {
  const std::string source = rrm::testing::read_file(API_SOURCE);
  const std::regex look_up(
      R"re((?:\bhas|\bget|\bget_array|text_of|get_mac|get_flag)\((?:[a-z_.]+, )?"([a-z_-]+)"\))re");
  std::set<std::string> keys;
  for (std::sregex_iterator found(source.begin(), source.end(), look_up), end; found != end; ++found)
    keys.insert((*found)[1]);
  return keys;
}

TEST(CommandsPageTables, NameEveryKeyOfTheInterfaceAndNoOther) {
  std::set<std::string> documented;
  for (const auto& [key, meaning] : page().table("key", "value")) documented.insert(key);
  EXPECT_EQ(documented, keys_of_interface());
}

TEST(CommandsPageTables, HaveAnExampleOfEveryKey) {
  std::string asked;
  for (const Exchange& example : page().exchanges("commands")) asked += example.ask;
  for (const std::string& key : keys_of_interface()) {
    EXPECT_NE(asked.find('"' + key + "\":"), std::string::npos) << key;
  }
}

TEST_F(CommandsPage, NamesEveryKindOfRequestAndNoOther) {
  std::set<std::string> known;
  for (int kind = 0; kind < 100; ++kind) {
    // What is no kind fails without a word.
    if (request(R"({"kind":)" + std::to_string(kind) + "}") != "! ") known.insert(std::to_string(kind));
  }
  std::set<std::string> documented;
  for (const auto& [kind, meaning] : page().table("kind", "asks for")) documented.insert(kind);
  EXPECT_EQ(documented, known);
  std::string asked;
  for (const Exchange& example : page().exchanges("requests")) asked += example.ask;
  for (const std::string& kind : known) {
    EXPECT_TRUE(std::regex_search(asked, std::regex("\"kind\":" + kind + "[,}]"))) << kind;
  }
}

// Every failure's words that the sources know stand on the page, as far as they do not depend on the question.
TEST(CommandsPageTables, NameEveryFailure) {
  const std::regex thrown(R"re(ApiFailure\("([^"]+)")re");
  const std::regex no_answer(R"re("(no answer on [^"]+)")re");
  for (const char* path : {API_ZAL_SOURCE, RADIO_ANSWERS_SOURCE, REPORT_ANSWERS_SOURCE}) {
    const std::string source = rrm::testing::read_file(path);
    for (const std::regex& words : {thrown, no_answer}) {
      for (std::sregex_iterator found(source.begin(), source.end(), words), end; found != end; ++found) {
        EXPECT_NE(page().text().find((*found)[1]), std::string::npos) << (*found)[1];
      }
    }
  }
}

}  // namespace
}  // namespace docs
