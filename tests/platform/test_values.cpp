// The small values of the platform: addresses and lists of them, timers, AP records, boards.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "platform/standalone/BoardTable.h"
#include "support/temp_dir.h"
#include "zal/IpcMsgRrmApInfo.h"
#include "zal/MacAddr.h"
#include "zal/Timer.h"
#include "zal/boards.h"
#include "zal/tools.h"

namespace zal {
namespace {

TEST(PlatformMacAddr, StrictTextsGiveAnAddressAndPrintInLowerCase) {
  const std::array<std::pair<const char*, const char*>, 6> cases{{
      {"a8:f9:4b:00:11:22", "a8:f9:4b:00:11:22"},
      {"A8:F9:4B:00:11:22", "a8:f9:4b:00:11:22"},
      {"a8F94b001122", "a8:f9:4b:00:11:22"},
      {"000000000000", "00:00:00:00:00:00"},
      {"ff:ff:ff:ff:ff:ff", "ff:ff:ff:ff:ff:ff"},
      {"0123456789ab", "01:23:45:67:89:ab"},
  }};
  for (const auto& [text, printed] : cases) {
    SCOPED_TRACE(text);
    const MacAddr mac = MacAddr::from_str(text);
    EXPECT_TRUE(mac.is_valid());
    EXPECT_EQ(mac.to_string(), printed);
  }
}

TEST(PlatformMacAddr, AnyOtherTextGivesAnInvalidAllZeroAddress) {
  const std::vector<std::string> cases{
      "",
      "a8",
      "a8f94b00112",         // 11 digits
      "a8f94b0011223",       // 13 digits
      "a8:f9:4b:00:11:2",    // 16 characters
      "a8:f9:4b:00:11:222",  // 18 characters
      "a8-f9-4b-00-11-22",   // no colons
      "a8:f9:4b:00:11-22",   // one colon missing
      "a8:f9:4b:00:1g:22",   // no digit
      "g8f94b001122",        // no digit
      " 8:f9:4b:00:11:22",   // a space for a digit
      "+8f94b001122",        // a sign for a digit
      ":a8f94b:00:11:22a",   // colons elsewhere
      std::string("a8f94b00112\0", 12),
  };
  for (const auto& text : cases) {
    SCOPED_TRACE(text);
    const MacAddr mac = MacAddr::from_str(text);
    EXPECT_FALSE(mac.is_valid());
    EXPECT_EQ(mac.to_string(), "00:00:00:00:00:00");
  }
}

TEST(PlatformMacAddr, OrderIsThatOfTheBytesAndTheFlagDoesNotCount) {
  EXPECT_LT(MacAddr::from_str("00ffffffffff"), MacAddr::from_str("010000000000"));
  EXPECT_LT(MacAddr::from_str("7fffffffffff"), MacAddr::from_str("800000000000"));
  EXPECT_EQ(MacAddr(), MacAddr::from_str("000000000000"));
}

TEST(PlatformMacAddr, HashMixesTheBytesAsLittleEndianWords) {
  // (0x2201 xor 0x33 << 4) + (0x5544 xor 0x66 << 4)
  EXPECT_EQ(std::hash<MacAddr>()(MacAddr::from_str("012233445566")), 0x2131u + 0x5324u);
  EXPECT_EQ(std::hash<MacAddr>()(MacAddr()), 0u);
}

TEST(PlatformTimer, ExpiresAfterItsIntervalAndStartsAnewAtAReset) {
  EXPECT_TRUE(Timer(std::chrono::milliseconds(0)).is_expired());
  EXPECT_FALSE(Timer(std::chrono::hours(1)).is_expired());

  constexpr std::chrono::milliseconds interval(20);
  auto started = std::chrono::steady_clock::now();
  Timer timer(interval);
  const auto time_to_expire = [&timer, &started] {
    while (!timer.is_expired() && std::chrono::steady_clock::now() - started < std::chrono::seconds(30)) {
    }
    return std::chrono::steady_clock::now() - started;
  };
  EXPECT_GE(time_to_expire(), interval);
  EXPECT_TRUE(timer.is_expired());
  started = std::chrono::steady_clock::now();
  timer.reset();
  EXPECT_GE(time_to_expire(), interval);
  EXPECT_TRUE(timer.is_expired());
}

TEST(PlatformApInfo, ARecordHoldsWhatItsTextTells) {
  const IpcMsgRrmApInfo record(R"({"ip":"10.0.0.7","location":"office","board-type":"WEP-3ax","serial":"X1"})");
  EXPECT_FALSE(record.is_empty());
  EXPECT_EQ(record.get_ip(), "10.0.0.7");
  EXPECT_EQ(record.get_location(), "office");
  EXPECT_EQ(record.get_board_type(), "WEP-3ax");
}

TEST(PlatformApInfo, OneKnownFieldIsEnough) {
  const IpcMsgRrmApInfo record(R"({"location":""})");
  EXPECT_FALSE(record.is_empty());
  EXPECT_EQ(record.get_location(), "");
  EXPECT_FALSE(record.get_ip());
}

TEST(PlatformApInfo, ATextThatTellsNothingGivesAnEmptyRecord) {
  for (const char* text : {"", "{}", "[]", "nonsense", R"({"serial":"X1"})", R"({"ip":5})", R"({"ip":null})"})
    EXPECT_TRUE(IpcMsgRrmApInfo(text).is_empty()) << text;
}

TEST(PlatformMacList, HoldsItsAddressesInOrderAndNothingElse) {
  struct Case {
    const char* text;
    std::vector<std::string> macs;
  };
  const std::vector<Case> cases{
      {"", {}},
      {" ", {}},
      {"a8f94b001122", {"a8:f9:4b:00:11:22"}},
      {"  a8f94b001122 ", {"a8:f9:4b:00:11:22"}},
      {"ff:ff:ff:ff:ff:ff a8f94b001122 ff:ff:ff:ff:ff:ff",
       {"ff:ff:ff:ff:ff:ff", "a8:f9:4b:00:11:22", "ff:ff:ff:ff:ff:ff"}},
      {"a8f94b001122 nonsense a8:f9 A8F94B001123", {"a8:f9:4b:00:11:22", "a8:f9:4b:00:11:23"}},
      {"a8f94b001122,a8f94b001123", {}},
  };
  for (const auto& [text, expected] : cases) {
    SCOPED_TRACE(text);
    std::vector<std::string> macs;
    for (const MacAddr& mac : tools::string_to_macs(text, ' ')) macs.push_back(mac.to_string());
    EXPECT_EQ(macs, expected);
  }
  EXPECT_EQ(tools::string_to_macs("a8f94b001122,a8f94b001123", ',').size(), 2u);
}

TEST(PlatformApInfo, ABandHasANumberByItsName) {
  EXPECT_EQ(IpcMsgRrmApInfo::band_from_str("2g"), 0);
  EXPECT_EQ(IpcMsgRrmApInfo::band_from_str("5g"), 1);
  EXPECT_EQ(IpcMsgRrmApInfo::band_from_str("6g"), 2);
  for (const char* text : {"", "2", "2G", "5ghz", "7g"})
    EXPECT_EQ(IpcMsgRrmApInfo::band_from_str(text), std::nullopt) << text;
}

using Band = ApProfileRadioBand;

TEST(PlatformBoards, AnUnknownBoardHasThreeRadiosOfOneBandEach) {
  std::string complaint;
  const BoardTable table = BoardTable::from_text("", complaint);
  EXPECT_EQ(complaint, "");
  for (const char* board : {"", "WEP-3ax"}) {
    SCOPED_TRACE(board);
    EXPECT_EQ(table.band_of(board, 0), Band::band_2g);
    EXPECT_EQ(table.band_of(board, 1), Band::band_5g);
    EXPECT_EQ(table.band_of(board, 2), Band::band_6g);
    EXPECT_EQ(table.band_of(board, -1), std::nullopt);
    EXPECT_EQ(table.band_of(board, 3), std::nullopt);
  }
  EXPECT_STREQ(ApProfileRadioBandToStrX(Band::band_2g), "2g");
  EXPECT_STREQ(ApProfileRadioBandToStrX(Band::band_5g), "5g");
  EXPECT_STREQ(ApProfileRadioBandToStrX(Band::band_6g), "6g");
}

TEST(PlatformBoards, AKnownBoardHasTheRadiosThatTheTableNames) {
  std::string complaint;
  const BoardTable table =
      BoardTable::from_text(R"({"outdoor-2":"5g 2g","dual-5":"2g 5g  5g","quad":"2g 5g 5g 6g"})", complaint);
  EXPECT_EQ(complaint, "");
  EXPECT_EQ(table.band_of("outdoor-2", 0), Band::band_5g);
  EXPECT_EQ(table.band_of("outdoor-2", 1), Band::band_2g);
  EXPECT_EQ(table.band_of("outdoor-2", 2), Band::band_6g) << "the ordinary board's";
  EXPECT_EQ(table.band_of("outdoor-2", 3), std::nullopt);
  EXPECT_EQ(table.band_of("outdoor-2", -1), std::nullopt);
  EXPECT_EQ(table.band_of("dual-5", 2), Band::band_5g);
  EXPECT_EQ(table.band_of("quad", 3), Band::band_6g);
  EXPECT_EQ(table.band_of("quad", 4), std::nullopt);
  EXPECT_EQ(table.band_of("indoor", 2), Band::band_6g);
}

TEST(PlatformBoards, WhatIsWrongInTheTableIsToldAndTheBoardIsAnOrdinaryOne) {
  std::string complaint;
  const BoardTable table = BoardTable::from_text(R"({"a":"5g 7g","b":5,"c":"","d":"6g","e":"5g,2g"})", complaint);
  EXPECT_EQ(complaint, "no bands of 'a', no bands of 'b', no bands of 'c', no bands of 'e'");
  EXPECT_EQ(table.band_of("a", 0), Band::band_2g);
  EXPECT_EQ(table.band_of("d", 0), Band::band_6g);
  for (const char* text : {"{", "[]", R"({"a":["5g"]})"}) {
    const BoardTable empty = BoardTable::from_text(text, complaint);
    EXPECT_NE(complaint, "") << text;
    EXPECT_EQ(empty.band_of("a", 0), Band::band_2g) << text;
  }
}

TEST(PlatformBoards, ATableIsReadFromItsFile) {
  const rrm::testing::TempDir directory;
  EXPECT_EQ(BoardTable::from_file(directory.file("none").c_str()).band_of("a", 0), Band::band_2g);
  rrm::testing::write_file(directory.path() / "boards.json", R"({"a":"6g"})");
  EXPECT_EQ(BoardTable::from_file(directory.file("boards.json").c_str()).band_of("a", 0), Band::band_6g);
}

}  // namespace
}  // namespace zal
