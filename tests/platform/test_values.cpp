// The small values of the platform: addresses, timers, configuration trees, AP records.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "zal/IpcMsgRrmApInfo.h"
#include "zal/MacAddr.h"
#include "zal/Timer.h"
#include "zal/cfg.h"

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

class PlatformCfg : public ::testing::Test {
 protected:
  const cfg_t* parse(const std::string& text) {
    tree_.reset(cfg_parse_buffer(text.data(), text.size()));
    return tree_.get();
  }
  static int integer(const cfg_t* node) {
    int value = -7;
    EXPECT_TRUE(cfg_object_to_int(node, &value));
    return value;
  }

 private:
  struct Release {
    void operator()(cfg_t* tree) const { cfg_release(tree); }
  };
  std::unique_ptr<cfg_t, Release> tree_;
};

TEST_F(PlatformCfg, ATextThatIsNoJsonGivesNoTree) {
  for (const char* text : {"", "{", "[1,]", "nonsense", "{} {}"}) EXPECT_EQ(parse(text), nullptr) << text;
  EXPECT_NE(parse("{}"), nullptr);
}

TEST_F(PlatformCfg, APathFindsItsSubtreeOrNothing) {
  const cfg_t* root = parse(R"({"common":{"scpu":[3,1],"a/b":5}})");
  EXPECT_NE(cfg_get_subtree_from_path(root, "/common/scpu"), nullptr);
  EXPECT_EQ(integer(cfg_get_subtree_from_path(root, "/common/scpu/1")), 1);
  EXPECT_EQ(integer(cfg_get_subtree_from_path(root, "/common/a~1b")), 5);
  for (const char* path : {"/common/cpu", "common/scpu", "/common/scpu/2", "/common/scpu/x", "/common/scpu/0/0", "/~"})
    EXPECT_EQ(cfg_get_subtree_from_path(root, path), nullptr) << path;
}

TEST_F(PlatformCfg, OnlyAnArrayIsWalked) {
  const cfg_t* root = parse(R"({"array":[7,8],"empty":[],"object":{},"number":1})");
  cfg_array_iterator_t* walk = cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/array"));
  EXPECT_EQ(integer(cfg_next_array_iterator(walk)), 7);
  EXPECT_EQ(integer(cfg_next_array_iterator(walk)), 8);
  EXPECT_EQ(cfg_next_array_iterator(walk), nullptr);
  EXPECT_EQ(cfg_next_array_iterator(walk), nullptr);
  cfg_release_array_iterator(walk);

  cfg_array_iterator_t* empty = cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/empty"));
  EXPECT_EQ(cfg_next_array_iterator(empty), nullptr);
  cfg_release_array_iterator(empty);
  EXPECT_EQ(cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/object")), nullptr);
  EXPECT_EQ(cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/number")), nullptr);
}

TEST_F(PlatformCfg, AnIntegerIsReadOnlyFromAnIntegerThatFits) {
  for (const auto& [text, value] : std::vector<std::pair<std::string, int>>{
           {"0", 0}, {"-1", -1}, {"2147483647", 2147483647}, {"-2147483648", -2147483647 - 1}}) {
    EXPECT_EQ(integer(parse(text)), value) << text;
  }
  for (const char* text :
       {"2147483648", "-2147483649", "18446744073709551615", "1.0", "\"1\"", "true", "null", "[1]", "{}"}) {
    int value = -7;
    EXPECT_FALSE(cfg_object_to_int(parse(text), &value)) << text;
    EXPECT_EQ(value, -7) << text;
  }
}

TEST_F(PlatformCfg, NullHandlesGiveNothing) {
  int value = -7;
  EXPECT_EQ(cfg_get_subtree_from_path(nullptr, "/a"), nullptr);
  EXPECT_EQ(cfg_alloc_array_iterator(nullptr), nullptr);
  EXPECT_EQ(cfg_next_array_iterator(nullptr), nullptr);
  EXPECT_FALSE(cfg_object_to_int(nullptr, &value));
  cfg_release_array_iterator(nullptr);
  cfg_release(nullptr);
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

}  // namespace
}  // namespace zal
