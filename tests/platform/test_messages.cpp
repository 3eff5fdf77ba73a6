// The message family: each type's fields, and that the page about the bus tells the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
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

TEST(PlatformMessages, AMessageIsWrittenWithItsTypeFirst) {
  IPC_MSG__RRM_AP_INFO info;
  info.mac = std::make_shared<std::string>("a8:f9:4b:00:11:22");
  info.text = nullptr;
  EXPECT_EQ(to_json(frame_from(info)), R"({"type":132,"mac":"a8:f9:4b:00:11:22","text":""})");
  IPC_MSG__VRRP_STATE state;
  EXPECT_EQ(to_json(frame_from(state)), R"({"type":162,"state":3})");
  IpcMsgOther other(777);
  EXPECT_EQ(to_json(frame_from(other)), R"({"type":777})");
}

}  // namespace
}  // namespace zal
