// The page about the bus: each of its examples is put to the real port and gateway, and it leaves no message out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <set>
#include <string>

#include "docs/documented_site.h"
#include "docs/page.h"
#include "platform/bus/Frame.h"
#include "platform/bus/bus_types.h"
#include "platform/standalone/messages.h"

namespace docs {
namespace {

const Page& page() {
  static const Page bus(IPC_PAGE);
  return bus;
}

int type_of(const std::string& frame) {
  std::string reason;
  const auto fields = zal::bus::parse_fields(frame, reason);
  return fields ? static_cast<int>(fields->number("type").value_or(0)) : 0;
}

std::string lines_of(const std::vector<std::string>& answers) {
  std::string text;
  for (const std::string& answer : answers) text += "\n" + answer;
  return text;
}

TEST(IpcPage, EachExampleIsAnsweredAsItSays) {
  DocumentedSite site;
  std::vector<std::string> unasked;  // comes before anything is asked
  for (const Exchange& example : page().exchanges("frames")) {
    if (example.ask.empty()) {
      unasked = example.answers;
      continue;
    }
    std::vector<std::string> answers = std::exchange(unasked, {});
    answers.insert(answers.end(), example.answers.begin(), example.answers.end());
    std::vector<std::string> sent;
    for (const std::string& frame : site.exchange(example.ask)) sent.push_back("< " + frame);
    if (sent != answers) {
      ADD_FAILURE() << IPC_PAGE << ":" << example.line << ": " << example.ask << " is answered by" << lines_of(sent);
    }
  }
  EXPECT_TRUE(site.is_finalized()) << "the last example is the order to end";
}

std::set<int> known_types() {
  std::set<int> types(zal::message_family().begin(), zal::message_family().end());
  types.insert(163);  // known to the gateway, and nothing more
  types.insert({zal::bus::bus_open, zal::bus::bus_ready, zal::bus::bus_run, zal::bus::bus_alarm, zal::bus::bus_served});
  return types;
}

TEST(IpcPage, NamesEveryMessageAndNoOther) {
  std::set<int> documented;
  for (const auto& [type, name] : page().table("type", "name")) documented.insert(std::stoi(type));
  EXPECT_EQ(documented, known_types());
}

TEST(IpcPage, HasAnExampleOfEveryMessage) {
  std::set<int> shown;
  for (const Exchange& example : page().exchanges("frames")) {
    shown.insert(type_of(example.ask));
    for (const std::string& answer : example.answers) shown.insert(type_of(answer.substr(2)));
  }
  for (const int type : known_types()) EXPECT_TRUE(shown.contains(type)) << type;
}

}  // namespace
}  // namespace docs
