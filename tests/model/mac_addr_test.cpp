#include "model/MacAddr.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace rrm {
namespace {

MacAddr mac(const char* text) {
  return MacAddr::parse(text);
}

struct ParseCase {
  const char* text;
  const char* printed;
};

TEST(MacAddr, ParsesAsScanfDoesAndPrintsUpperCase) {
  const std::vector<ParseCase> cases = {
      {"00:11:22:aa:bb:cc", "00:11:22:AA:BB:CC"},  {"00:11:22:AA:BB:CC", "00:11:22:AA:BB:CC"},
      {"0:1:2:a:b:c", "00:01:02:0A:0B:0C"},        {"00:11:22:aa:bb:ccdd", "00:11:22:AA:BB:CC"},
      {" 00:11:22:aa:bb:cc", "00:11:22:AA:BB:CC"}, {"00:11:22:aa:bb", "00:00:00:00:00:00"},
      {"00-11-22-aa-bb-cc", "00:00:00:00:00:00"},  {"001122aabbcc", "00:00:00:00:00:00"},
      {"gg:11:22:aa:bb:cc", "00:00:00:00:00:00"},  {"", "00:00:00:00:00:00"},
  };
  for (const ParseCase& test : cases) EXPECT_EQ(mac(test.text).to_string(), test.printed) << '"' << test.text << '"';
  EXPECT_TRUE(MacAddr::parse(nullptr).is_zero());
}

struct PlusCase {
  const char* label;
  const char* start;
  std::int32_t offset;
  const char* sum;
};

TEST(MacAddr, AddsToTheLow24BitsAndStaysWhereTheSumWraps) {
  const std::vector<PlusCase> cases = {
      {"nothing", "00:11:22:33:44:55", 0, "00:11:22:33:44:55"},
      {"carry into the next byte", "00:11:22:00:00:F8", 16, "00:11:22:00:01:08"},
      {"up to the last address", "00:11:22:FF:FF:EF", 16, "00:11:22:FF:FF:FF"},
      {"one beyond wraps", "00:11:22:FF:FF:F0", 16, "00:11:22:FF:FF:F0"},
      {"wraps far", "00:11:22:FF:FF:F8", 16, "00:11:22:FF:FF:F8"},
      {"a negative offset wraps", "00:11:22:00:00:20", -16, "00:11:22:00:00:20"},
      {"a whole turn", "00:11:22:00:00:20", 1 << 24, "00:11:22:00:00:20"},
      {"the largest offset", "00:11:22:00:00:00", std::numeric_limits<std::int32_t>::max(), "00:11:22:FF:FF:FF"},
      {"the smallest offset", "00:11:22:00:00:01", std::numeric_limits<std::int32_t>::min(), "00:11:22:00:00:01"},
  };
  for (const PlusCase& test : cases) {
    EXPECT_EQ(mac(test.start).plus(test.offset).to_string(), test.sum) << test.label;
  }
}

struct PoolCase {
  const char* label;
  const char* address;
  std::int64_t count;
  bool inside;
};

TEST(MacAddr, APoolHoldsItsStartButNotItsEnd) {
  const MacAddr start = mac("00:11:22:FF:FF:F8");
  const std::vector<PoolCase> cases = {
      {"below", "00:11:22:FF:FF:F7", 16, false},
      {"the start", "00:11:22:FF:FF:F8", 16, true},
      {"the last, beyond the low 24 bits", "00:11:23:00:00:07", 16, true},
      {"the end", "00:11:23:00:00:08", 16, false},
      {"an empty pool", "00:11:22:FF:FF:F8", 0, false},
      {"a negative count", "00:11:22:FF:FF:F8", -16, false},
      {"the smallest count", "00:11:22:FF:FF:F8", std::numeric_limits<std::int64_t>::min(), false},
      {"one address", "00:11:22:FF:FF:F8", 1, true},
  };
  for (const PoolCase& test : cases) {
    EXPECT_EQ(mac(test.address).in_pool(start, test.count), test.inside) << test.label;
  }
}

TEST(MacAddr, ComparesAndRebasesOnTheLocalBit) {
  const MacAddr global = mac("A0:11:22:33:44:55");
  const MacAddr local = mac("A2:11:22:33:44:55");
  EXPECT_EQ(global.with_local_bit_flipped(), local);
  EXPECT_TRUE(global.equal_ignoring_local_bit(local));
  EXPECT_TRUE(global.equal_ignoring_local_bit(global));
  EXPECT_FALSE(global.equal_ignoring_local_bit(mac("A0:11:22:33:44:56")));
  EXPECT_FALSE(global.equal_ignoring_local_bit(mac("A1:11:22:33:44:55")));
  EXPECT_EQ(global.rebased_on_local_bit_of(mac("02:00:00:00:00:00")), local);
  EXPECT_EQ(local.rebased_on_local_bit_of(mac("FD:FF:FF:FF:FF:FF")), global);
  EXPECT_EQ(local.rebased_on_local_bit_of(mac("FF:FF:FF:FF:FF:FF")), local);
}

TEST(MacAddr, IsANumberOf48Bits) {
  EXPECT_EQ(mac("A0:11:22:33:44:55").to_number(), std::uint64_t{0xA01122334455});
  EXPECT_EQ(MacAddr::from_number(0xFFFFA01122334455), mac("A0:11:22:33:44:55"));
}

TEST(MacAddr, OrdersByItsBytes) {
  EXPECT_LT(mac("00:FF:FF:FF:FF:FF"), mac("01:00:00:00:00:00"));
  EXPECT_LT(mac("7F:00:00:00:00:00"), mac("80:00:00:00:00:00"));
  EXPECT_LT(mac("00:11:22:33:44:54"), mac("00:11:22:33:44:55"));
}

TEST(MacAddr, HashesByItsLittleEndianHalves) {
  // (0x1100 ^ 0x22 << 4) + (0x4433 ^ 0x55 << 4)
  EXPECT_EQ(MacAddrHash{}(mac("00:11:22:33:44:55")), std::size_t{0x1320 + 0x4163});
  EXPECT_EQ(MacAddrHash{}(MacAddr()), std::size_t{0});
}

}  // namespace
}  // namespace rrm
