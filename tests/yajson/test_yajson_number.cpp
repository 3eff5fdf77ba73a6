#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include "fuzz/reader_comparison.h"
#include "parse_support.h"
#include "yajson/error.h"
#include "yajson/parser.h"

namespace yajson {
namespace {

constexpr std::int64_t int64_max = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t int64_min = std::numeric_limits<std::int64_t>::min();
constexpr double infinity = std::numeric_limits<double>::infinity();

struct IntegerCase {
  const char* text;
  std::int64_t value;
};

TEST(Numbers, without_fraction_and_exponent_are_integers_in_the_signed_range) {
  const IntegerCase cases[] = {
      {"0", 0},
      {"-0", 0},
      {"7", 7},
      {"-7", -7},
      {"1234567890", 1234567890},
      {"999999999999999999", 999999999999999999},
      {"9223372036854775807", int64_max},
      {"-9223372036854775807", -int64_max},
      {"-9223372036854775808", int64_min},
  };
  for (const IntegerCase& c : cases) {
    SCOPED_TRACE(c.text);
    const Value value = parse_exactly(c.text);
    ASSERT_EQ(value.type(), Type::integer);
    EXPECT_EQ(value.as_integer(), c.value);
  }
}

TEST(Numbers, above_the_signed_range_are_unsigned) {
  for (const char* text :
       {"9223372036854775808", "10000000000000000000", "18446744073709551610", "18446744073709551615"}) {
    const Value value = parse_exactly(text);
    ASSERT_EQ(value.type(), Type::uinteger) << text;
    EXPECT_EQ(std::to_string(value.as_uinteger()), text);
  }
}

struct FloatCase {
  const char* text;
  double value;
};

void expect_float(const std::string& text, double expected) {
  SCOPED_TRACE(text);
  EXPECT_EQ(zal::fuzz::difference_of_readers(text, {.allow_nan_inf = true}), "");
  const Value value = parse_exactly(text);
  ASSERT_EQ(value.type(), Type::floating);
  EXPECT_EQ(value.as_number(), expected);
  EXPECT_EQ(std::signbit(value.as_number()), std::signbit(expected));
}

TEST(Numbers, beyond_64_bits_or_with_fraction_or_exponent_are_floats) {
  const FloatCase cases[] = {
      {"18446744073709551616", 18446744073709551616.0},
      {"18446744073709551620", 18446744073709551620.0},
      {"100000000000000000000", 1e20},
      {"-9223372036854775809", -9223372036854775809.0},
      {"-18446744073709551615", -18446744073709551615.0},
      {"-18446744073709551616", -18446744073709551616.0},
      {"1.0", 1.0},
      {"-1.5", -1.5},
      {"0.1", 0.1},
      {"1e0", 1.0},
      {"1E2", 100.0},
      {"1e+2", 100.0},
      {"125e-3", 0.125},
      {"0e0", 0.0},
      {"-0.0", -0.0},
      {"-0e5", -0.0},
      {"0.000001", 0.000001},
      {"12345678.9876543", 12345678.9876543},
      {"1e22", 1e22},
      {"1e-22", 1e-22},
      {"1e23", 1e23},
      {"1e-23", 1e-23},
      {"1.5e300", 1.5e300},
      {"2.2250738585072014e-308", 2.2250738585072014e-308},
      {"4.9e-324", 4.9e-324},
      {"1e-400", 0.0},
      {"-1e-400", -0.0},
      {"1e400", infinity},
      {"-1e400", -infinity},
      {"1e99999999999999999999", infinity},
      {"1e-99999999999999999999", 0.0},
      {"1e308", 1e308},
      {"1e309", infinity},
  };
  for (const FloatCase& c : cases) expect_float(c.text, c.value);
}

// An exact power of ten and one operation, also where the mantissa has more than 53 bits: the result may then differ
// from the nearest double, and is the same on every machine.
TEST(Numbers, of_up_to_19_digits_take_the_short_way) {
  expect_float("9007199254740993.0", static_cast<double>(90071992547409930u) / 10);
  expect_float("0.3000000000000000444", static_cast<double>(3000000000000000444u) / 1e19);
  expect_float("1234567890123456789e-19", static_cast<double>(1234567890123456789u) / 1e19);
  expect_float("9999999999999999999e3", static_cast<double>(9999999999999999999u) * 1e3);
  // One whose short way misses the nearest double.
  const double missed = static_cast<double>(6249979066121302517u) / 1e19;
  ASSERT_NE(missed, 0.6249979066121302517);
  expect_float("0.6249979066121302517", missed);
  // The largest powers, where both ways differ as well.
  ASSERT_NE(static_cast<double>(6485596051400693142u) * 1e22, 6485596051400693142e22);
  expect_float("6485596051400693142e22", static_cast<double>(6485596051400693142u) * 1e22);
  ASSERT_NE(static_cast<double>(7715776724474024531u) / 1e22, 7715776724474024531e-22);
  expect_float("7715776724474024531e-22", static_cast<double>(7715776724474024531u) / 1e22);
}

TEST(Numbers, do_not_count_zeros_in_front_as_digits) {
  expect_float("0.0000000000000000000123", 123 / 1e22);
  ASSERT_NE(static_cast<double>(8596097168636666574u) / 1e22, 0.0008596097168636666574);
  expect_float("0.0008596097168636666574", static_cast<double>(8596097168636666574u) / 1e22);
  expect_float("0.00000000000000000000123", 123e-23);
}

// What the C library makes of the text.
TEST(Numbers, of_more_digits_or_larger_powers_take_the_long_way) {
  for (const std::string text : {
           "0.62499790661213025171",                 // a 20th digit
           "1234567890123456789.1",                  // the 20th behind the point
           "12345678901234567890.5",                 // 20 whole digits that fit 64 bits
           "0.30000000000000004440892098500626",     // many digits
           "123456789012345678901234567890",         // too big for 64 bits
           "123456789012345678901234567890.125e-5",  // too big, with all parts
           "18446744073709551616e2",
           "1234567890123456789e-23",  // beyond the exact powers
           "9007199254740993e23",
           "179769313486231580793728971405301e276",
           "2.47032822920623272088e-324",
       }) {
    expect_float(text, std::strtod(text.c_str(), nullptr));
  }
}

TEST(Numbers, take_the_long_way_in_tokens_around_the_stack_buffer) {
  for (const std::size_t length : {61u, 62u, 63u, 64u, 65u, 66u, 200u}) {
    const std::string text = "1." + std::string(length - 3, '3') + "4";
    ASSERT_EQ(text.size(), length);
    expect_float(text, std::strtod(text.c_str(), nullptr));
    const std::string big(length, '7');
    expect_float(big, std::strtod(big.c_str(), nullptr));
  }
}

TEST(Numbers, keep_their_size_when_a_long_fraction_meets_a_saturated_exponent) {
  const std::string zeros(390, '0');
  expect_float("0." + zeros + "1e500", 1e109);
  expect_float("0." + zeros + "1e400", 1e9);
  expect_float("0." + zeros + "1e391", 1.0);
  expect_float("1" + zeros + "e-390", 1.0);
  expect_float("1" + zeros + "e-500", 1e-110);
}

TEST(Numbers, end_where_the_next_token_begins) {
  const Value list = parse_exactly("[1,-2.5,3e1,0,0.5]");
  const double expected[] = {1, -2.5, 30, 0, 0.5};
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(list.element(i).as_number(), expected[i]);
}

struct BadNumber {
  const char* text;
  int code;
};

TEST(Numbers, of_a_bad_form_are_refused) {
  const BadNumber cases[] = {
      {"-", 5},     {"- 1", 5}, {"+1", 2},  {".5", 2},  {"1.", 5},  {"1.e1", 5},  {"1e", 5},
      {"1e+", 5},   {"01", 9},  {"-01", 9}, {"00", 9},  {"1a", 9},  {"1.5.5", 9}, {"1e5e5", 9},
      {"1e5.5", 9}, {"0x1", 9}, {"1_0", 9}, {"--1", 5}, {"-.5", 5}, {"1 .5", 9},  {"-e1", 5},
  };
  for (const BadNumber& c : cases) {
    EXPECT_EQ(parse_nothrow(c.text, std::string_view(c.text).size()).error.value(), c.code) << c.text;
  }
}

TEST(HexNumbers, read_up_to_64_bits_with_the_option) {
  const ParseOptions options{.allow_hex_numbers = true};
  const IntegerCase cases[] = {
      {"0x0", 0},
      {"0x1f", 31},
      {"0X1F", 31},
      {"0xabcdefABCDEF", 0xabcdefabcdef},
      {"-0x10", -16},
      {"-0x0", 0},
      {"0x7fffffffffffffff", int64_max},
      {"-0x8000000000000000", int64_min},
      {"0x00000000000000000000001", 1},
  };
  for (const IntegerCase& c : cases) {
    SCOPED_TRACE(c.text);
    const Value value = parse_exactly(c.text, options);
    ASSERT_EQ(value.type(), Type::integer);
    EXPECT_EQ(value.as_integer(), c.value);
  }
  const Value top = parse_exactly("0x8000000000000000", options);
  ASSERT_EQ(top.type(), Type::uinteger);
  EXPECT_EQ(top.as_uinteger(), 0x8000000000000000u);
  EXPECT_EQ(parse_exactly("0xFFFFFFFFFFFFFFFF", options).as_uinteger(), 0xFFFFFFFFFFFFFFFFu);
}

TEST(HexNumbers, of_more_bits_or_without_digits_are_refused) {
  const ParseOptions options{.allow_hex_numbers = true};
  const BadNumber cases[] = {{"0x10000000000000000", 53},
                             {"-0x8000000000000001", 53},
                             {"-0xFFFFFFFFFFFFFFFF", 53},
                             {"0x", 5},
                             {"0xg", 5},
                             {"0x1.5", 9},
                             {"00x1", 9},
                             {"0x1g", 9}};
  for (const BadNumber& c : cases) {
    EXPECT_EQ(parse_nothrow(c.text, std::string_view(c.text).size(), options).error.value(), c.code) << c.text;
  }
  EXPECT_EQ(parse_exactly("[0,1,-0]", options).size(), 3u);
}

}  // namespace
}  // namespace yajson
