// The message family: each type's fields, and that the page about the bus tells the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/standalone/messages.h"
#include "support/temp_dir.h"

namespace zal {
namespace {

using ::testing::ElementsAre;

// Lists the fields as the page does: "`mac` text, `text` text".
class Lister final : public MsgFields {
 public:
  void text(const char* key, std::shared_ptr<std::string>&) override { add(key, "text"); }
  void number(const char* key, std::int32_t&) override { add(key, "number"); }
  void flag(const char* key, bool&) override { add(key, "flag"); }
  void optional_text(const char* key, std::optional<std::string>&) override { add(key, "text", "optional "); }
  void optional_count(const char* key, std::optional<std::uint32_t>&) override { add(key, "count", "optional "); }
  std::string list;

 private:
  void add(const std::string& key, const std::string& kind, const std::string& mark = "") {
    list += (list.empty() ? "" : ", ") + mark + "`" + key + "` " + kind;
  }
};

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// The fields column of the page's table of messages, by type.
std::map<int, std::string> fields_of_page() {
  std::istringstream page(rrm::testing::read_file(IPC_PAGE));
  std::map<int, std::string> fields;
  for (std::string line; std::getline(page, line);) {
    std::vector<std::string> cells;
    std::istringstream row(line);
    for (std::string cell; std::getline(row, cell, '|');) cells.push_back(trimmed(cell));
    if (cells.size() == 6 && !cells[1].empty() && std::isdigit(static_cast<unsigned char>(cells[1][0])))
      fields[std::stoi(cells[1])] = cells[4];
  }
  return fields;
}

TEST(PlatformMessages, TheFamilyIsKnownByItsNumbers) {
  EXPECT_THAT(message_family(), ElementsAre(33, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 56, 62,
                                            118, 126, 129, 130, 131, 132, 133, 134, 135, 143, 162, 173, 174));
  for (const int type : message_family()) {
    EXPECT_EQ(make_message(type)->type(), type);
    EXPECT_EQ(dynamic_cast<IpcMsgOther*>(make_message(type).get()), nullptr);
  }
  EXPECT_NE(dynamic_cast<IpcMsgOther*>(make_message(163).get()), nullptr);
  EXPECT_EQ(make_message(163)->type(), 163);
}

TEST(PlatformMessages, ThePageTellsTheFieldsOfEachType) {
  const auto page = fields_of_page();
  for (const int type : message_family()) {
    SCOPED_TRACE(type);
    Lister lister;
    make_message(type)->visit_fields(lister);
    ASSERT_TRUE(page.contains(type));
    EXPECT_EQ(page.at(type), lister.list);
  }
}

std::string written(IMsg& message) {
  return to_json(frame_from(message));
}

std::shared_ptr<std::string> shared(const char* text) {
  return std::make_shared<std::string>(text);
}

// One frame of each type with every field that it can have. What is read from it and written again is the same text.
constexpr const char* full_frames[] = {
    R"({"type":33})",
    R"({"type":36})",
    R"({"type":37,"filter":"3,17"})",
    R"({"type":38})",
    R"({"type":39,"group":"office"})",
    R"({"type":40,"group":"office","ap":"a8:f9:4b:00:11:22"})",
    R"({"type":41,"group":"office"})",
    R"({"type":42,"group":"office","date_start":"2026-01-02,00:00:00 UTC","date_finish":"2026-01-03,00:00:00 UTC"})",
    R"({"type":43,"group":"office","report":"2026-01-02,03:04:05,office"})",
    R"({"type":44,"text":"{}"})",
    R"({"type":45,"text":"{}"})",
    R"({"type":46,"text":"{}"})",
    R"({"type":47,"text":"{}"})",
    R"({"type":48,"text":"{}"})",
    R"({"type":49,"text":"{}"})",
    R"({"type":50,"text":"{}"})",
    R"({"type":51,"text":""})",
    R"({"type":56})",
    R"({"type":62,"text":"{\"status\":\"success\"}"})",
    R"({"type":118})",
    R"({"type":126,"text":"{}"})",
    R"({"type":129})",
    R"({"type":130,"action":2,"text":"a8:f9:4b:00:11:22 a8f94b001123"})",
    R"({"type":131,"text":"{}","module":14})",
    R"({"type":132,"mac":"a8:f9:4b:00:11:22","text":"{}"})",
    R"({"type":133,"kind":4,"location":"office","mac":"a8:f9:4b:00:11:22","band":"5g","days":2147483647})",
    R"({"type":134,"kind":4,"failed":1,"error":"why","result":"{}"})",
    R"({"type":135,"enabled":true,"macs":"a8:f9:4b:00:11:22"})",
    R"({"type":143})",
    R"({"type":162,"state":-2147483648})",
    R"({"type":173})",
    R"({"type":174,"role":2147483647,"result":1})",
};

std::unique_ptr<IMsg> read_message(const std::string& text, std::string& reason) {
  const auto frame = bus::parse_fields(text, reason);
  EXPECT_TRUE(frame) << text;
  return frame ? message_from(static_cast<int>(*frame->number("type")), *frame, reason) : nullptr;
}

template <class Message>
Message read_as(const std::string& text) {
  std::string reason;
  const auto message = read_message(text, reason);
  EXPECT_NE(message, nullptr) << reason;
  return message ? dynamic_cast<const Message&>(*message) : Message();
}

TEST(PlatformMessages, WhatIsReadFromAFrameIsWrittenAsTheSameFrame) {
  std::vector<int> types;
  for (const char* text : full_frames) {
    SCOPED_TRACE(text);
    std::string reason;
    const auto message = read_message(text, reason);
    ASSERT_NE(message, nullptr) << reason;
    EXPECT_EQ(written(*message), text);
    types.push_back(message->type());
  }
  EXPECT_EQ(types, message_family());
}

TEST(PlatformMessages, AMessageWithoutOneOfItsFieldsIsRefused) {
  for (const char* text : full_frames) {
    const auto full = bus::parse_fields(text, *shared(""));
    for (const auto& [key, value] : *full) {
      const bool is_optional = key == "location" || key == "band" || key == "days" ||
                               (key == "mac" && full->number("type") == 133) ||
                               (key == "text" && full->number("type") == 130);
      if (key == "type" || is_optional) continue;
      SCOPED_TRACE(std::string(text) + " without " + key);
      auto frame = *full;
      frame.erase(key);
      std::string reason;
      EXPECT_EQ(message_from(static_cast<int>(*full->number("type")), frame, reason), nullptr);
      const char* const kinds[] = {"flag", "number", "text"};
      EXPECT_EQ(reason, std::string("no ") + kinds[value.index()] + " '" + key + "'");
    }
  }
}

TEST(PlatformMessages, AFieldOfTheWrongKindIsRefusedEvenIfItIsOptional) {
  struct Case {
    const char* frame;
    const char* reason;
  };
  constexpr Case cases[] = {
      {R"({"type":37,"filter":3})", "no text 'filter'"},
      {R"({"type":40,"group":true,"ap":1})", "no text 'group'"},
      {R"({"type":130,"action":"0"})", "no number 'action'"},
      {R"({"type":130,"action":2147483648})", "no number 'action'"},
      {R"({"type":130,"action":0,"text":0})", "no text 'text'"},
      {R"({"type":133,"kind":0,"location":1})", "no text 'location'"},
      {R"({"type":133,"kind":0,"mac":false})", "no text 'mac'"},
      {R"({"type":133,"kind":0,"band":5})", "no text 'band'"},
      {R"({"type":133,"kind":0,"days":"1"})", "no count 'days'"},
      {R"({"type":133,"kind":0,"days":-1})", "no count 'days'"},
      {R"({"type":133,"kind":0,"days":2147483648})", "no count 'days'"},
      {R"({"type":133,"kind":"0"})", "no number 'kind'"},
      {R"({"type":135,"enabled":1,"macs":""})", "no flag 'enabled'"},
  };
  for (const auto& [frame, expected] : cases) {
    SCOPED_TRACE(frame);
    std::string reason;
    EXPECT_EQ(read_message(frame, reason), nullptr);
    EXPECT_EQ(reason, expected);
  }
}

// Of every field of every type, each kind that it is not.
TEST(PlatformMessages, EveryFieldTakesItsOwnKindAlone) {
  const std::vector<bus::Value> wrong_texts{true, false, std::int64_t{0}, std::int64_t{-1}};
  const std::vector<bus::Value> wrong_numbers{
      true, std::string(), std::string("0"), std::string("x"), std::int64_t{2147483648}, std::int64_t{-2147483649}};
  const std::vector<bus::Value> wrong_flags{std::int64_t{0}, std::int64_t{1}, std::string("true"), std::string()};
  const char* const kinds[] = {"flag", "number", "text"};
  for (const char* text : full_frames) {
    const auto full = bus::parse_fields(text, *shared(""));
    const int type = static_cast<int>(*full->number("type"));
    for (const auto& [key, value] : *full) {
      if (key == "type") continue;
      const std::vector<bus::Value>* const wrong[] = {&wrong_flags, &wrong_numbers, &wrong_texts};
      for (const bus::Value& other : *wrong[value.index()]) {
        auto frame = *full;
        frame.set(key, other);
        SCOPED_TRACE(to_json(frame));
        std::string reason;
        EXPECT_EQ(message_from(type, frame, reason), nullptr);
        EXPECT_EQ(reason, std::string("no ") + (key == "days" ? "count" : kinds[value.index()]) + " '" + key + "'");
      }
    }
  }
}

TEST(PlatformMessages, AnOptionalFieldMayBeAbsentAndIsNotWrittenThen) {
  const auto request = read_as<IpcMsgMorvaneRequest>(R"({"type":133,"kind":0,"days":null})");
  EXPECT_EQ(request.get_location(), std::nullopt);
  EXPECT_EQ(request.get_days(), std::nullopt);
  auto copy = request;
  EXPECT_EQ(written(copy), R"({"type":133,"kind":0})");
  auto order = read_as<IPC_MSG__MAC_FILTER>(R"({"type":130,"action":4})");
  EXPECT_EQ(order.text, std::nullopt);
  EXPECT_EQ(written(order), R"({"type":130,"action":4})");
}

TEST(PlatformMessages, AnEmptyOptionalTextIsGivenAndDaysStartAtZero) {
  const auto request = read_as<IpcMsgMorvaneRequest>(R"({"type":133,"kind":7,"location":"","days":0})");
  EXPECT_EQ(request.get_location(), "");
  EXPECT_EQ(request.get_days(), 0u);
}

TEST(PlatformMessages, ARequestTellsItsBandAndWhetherItIsOne) {
  for (const auto& [text, is_band] : std::vector<std::pair<std::string, bool>>{
           {"2g", true}, {"5g", true}, {"6g", true}, {"", false}, {"2G", false}, {"7g", false}, {"2g ", false}}) {
    IpcMsgMorvaneRequest request;
    request.band = text;
    bool valid = !is_band;
    EXPECT_EQ(request.get_band(valid), text);
    EXPECT_EQ(valid, is_band) << text;
  }
  bool valid = true;
  EXPECT_EQ(IpcMsgMorvaneRequest().get_band(valid), std::nullopt);
  EXPECT_FALSE(valid);
}

TEST(PlatformMessages, ARequestTellsItsMacAsItWasGivenAndWhetherItIsOne) {
  for (const auto& [text, is_mac] : std::vector<std::pair<std::string, bool>>{{"A8:F9:4B:00:11:22", true},
                                                                              {"a8f94b001122", true},
                                                                              {"", false},
                                                                              {"a8:f9", false},
                                                                              {"a8-f9-4b-00-11-22", false}}) {
    IpcMsgMorvaneRequest request;
    request.mac = text;
    bool valid = !is_mac;
    EXPECT_EQ(request.get_mac(valid), text);
    EXPECT_EQ(valid, is_mac) << text;
  }
  bool valid = true;
  EXPECT_EQ(IpcMsgMorvaneRequest().get_mac(valid), std::nullopt);
  EXPECT_FALSE(valid);
}

TEST(PlatformMessages, ANewMessageSaysNothingMoreThanItsType) {
  IPC_MSG__RRM_AP_INFO info;
  info.mac = shared("a8:f9:4b:00:11:22");
  info.text = nullptr;
  EXPECT_EQ(written(info), R"({"type":132,"mac":"a8:f9:4b:00:11:22","text":""})");
  IPC_MSG__VRRP_STATE state;
  EXPECT_EQ(written(state), R"({"type":162,"state":3})");
  IPC_MSG__MAC_FILTER_RESP filter;
  EXPECT_EQ(written(filter), R"({"type":131,"text":"","module":14})");
  IpcMsgMorvaneRequest request;
  EXPECT_EQ(written(request), R"({"type":133,"kind":8})");
  IPC_MSG__RRM_MORVANE_RESP response;
  EXPECT_EQ(written(response), R"({"type":134,"kind":8,"failed":0,"error":"","result":""})");
  IPC_MSG__RRM_API_VRRP_STATUS_RESP role;
  EXPECT_EQ(written(role), R"({"type":174,"role":3,"result":0})");
  IpcMsgOther other(777);
  EXPECT_EQ(written(other), R"({"type":777})");
}

}  // namespace
}  // namespace zal
