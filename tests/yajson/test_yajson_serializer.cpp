#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "parse_support.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace yajson {
namespace {

using namespace std::string_view_literals;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

TEST(SerializeOptions, default_to_compact_and_strict) {
  const SerializeOptions options;
  EXPECT_EQ(options.indent, -1);
  EXPECT_FALSE(options.escape_unicode);
  EXPECT_FALSE(options.allow_nan_inf);
  EXPECT_FALSE(options.sort_keys);
}

TEST(Serialize, writes_words_and_integers) {
  EXPECT_EQ(serialize(Value()), "null");
  EXPECT_EQ(serialize(Value(true)), "true");
  EXPECT_EQ(serialize(Value(false)), "false");
  EXPECT_EQ(serialize(Value(0)), "0");
  EXPECT_EQ(serialize(Value(-42)), "-42");
  EXPECT_EQ(serialize(Value(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
  EXPECT_EQ(serialize(Value(std::numeric_limits<std::int64_t>::max())), "9223372036854775807");
  EXPECT_EQ(serialize(Value(std::numeric_limits<std::uint64_t>::max())), "18446744073709551615");
}

// --- floats

struct FloatCase {
  double value;
  const char* text;
};

TEST(SerializeFloat, prefers_the_shortest_decimal_notation) {
  const FloatCase cases[] = {
      // zero and whole numbers
      {0.0, "0.0"},
      {-0.0, "0.0"},
      {1.0, "1.0"},
      {-1.0, "-1.0"},
      {100.0, "100.0"},
      {1e15, "1000000000000000.0"},
      {9007199254740991.0, "9007199254740991.0"},
      {9007199254740992.0, "9007199254740992.0"},
      // above 2^53
      {9007199254740994.0, "9007199254740994.0"},
      {1e16, "10000000000000000.0"},
      {-1e16, "-10000000000000000.0"},
      {1e17, "1e+17"},
      {1e22, "1e+22"},
      {1.7976931348623157e308, "1.7976931348623157e+308"},
      // up to nine decimals
      {0.1, "0.1"},
      {-0.1, "-0.1"},
      {0.5, "0.5"},
      {2.5, "2.5"},
      {1.25, "1.25"},
      {123.456, "123.456"},
      {0.3, "0.3"},
      {0.001, "0.001"},
      {0.05, "0.05"},
      {10.01, "10.01"},
      {0.123456789, "0.123456789"},
      {0.000001001, "0.000001001"},
      {4503599.627370496, "4503599.627370496"},
      // more than nine
      {0.1234567891, "0.12345678910000001"},
      {1.0 / 3.0, "0.33333333333333331"},
      {0.30000000000000004, "0.30000000000000004"},
      // the product passes 2^53 before it is whole
      {123456789012345.67, "123456789012345.67"},
      {999999999999999.9, "999999999999999.88"},
      // from 1e15 on and down to 1e-6 the library's form
      {1000000000000000.5, "1000000000000000.5"},
      {1e-6, "9.9999999999999995e-07"},
      {2e-6, "0.000002"},
      {1e-7, "9.9999999999999995e-08"},
      {-1e-7, "-9.9999999999999995e-08"},
      {4.9406564584124654e-324, "4.9406564584124654e-324"},
      // what JSON cannot hold
      {infinity, "null"},
      {-infinity, "null"},
      {not_a_number, "null"},
  };
  for (const FloatCase& c : cases) EXPECT_EQ(serialize(Value(c.value)), c.text) << c.text;
}

TEST(SerializeFloat, writes_nan_and_infinity_with_the_option) {
  const SerializeOptions options{.allow_nan_inf = true};
  EXPECT_EQ(serialize(Value(not_a_number), options), "NaN");
  EXPECT_EQ(serialize(Value(-not_a_number), options), "NaN");
  EXPECT_EQ(serialize(Value(infinity), options), "Infinity");
  EXPECT_EQ(serialize(Value(-infinity), options), "-Infinity");
}

TEST(SerializeFloat, writes_what_reads_back_as_a_float) {
  for (double value = 1e-9; value < 1e18; value *= 1.7) {
    const std::string text = serialize(Value(value));
    const Value back = parse_exactly(text);
    ASSERT_EQ(back.type(), Type::floating) << text;
    EXPECT_NEAR(back.as_number() / value, 1.0, 1e-15) << text;
  }
}

// --- strings

struct StringCase {
  std::string_view content;
  std::string_view text;
};

TEST(SerializeString, escapes_what_must_be_and_nothing_else) {
  const StringCase cases[] = {
      {"", R"("")"},
      {"plain / text", R"("plain / text")"},
      {"\"", R"("\"")"},
      {"\\", R"("\\")"},
      {"\b\t\n\f\r", R"("\b\t\n\f\r")"},
      {"\0\x01\x07\x0b\x0e\x1f"sv, R"("\u0000\u0001\u0007\u000b\u000e\u001f")"},
      {" \x7f", "\" \x7f\""},
      {"\xC3\xA9\xF0\x9F\x98\x80", "\"\xC3\xA9\xF0\x9F\x98\x80\""},
      {"\x80\xFF\xC3", "\"\x80\xFF\xC3\""},
  };
  for (const StringCase& c : cases) {
    EXPECT_EQ(serialize(Value(c.content)), c.text);
    // The same as a key.
    Value object = Value::object();
    object.set(c.content, Value(1));
    EXPECT_EQ(serialize(object), "{" + std::string(c.text) + ":1}");
  }
}

TEST(SerializeString, finds_an_escape_at_every_place_of_every_length) {
  for (std::size_t length = 1; length < 50; ++length) {
    for (std::size_t at = 0; at < length; ++at) {
      for (const char special : {'"', '\\', '\n', '\x1f'}) {
        std::string content(length, 'x');
        content[at] = special;
        const Value value(content);
        const std::string text = serialize(value);
        EXPECT_GT(text.size(), length + 2);
        EXPECT_TRUE(parse_exactly(text).same_text(value)) << text;
      }
    }
  }
}

TEST(SerializeString, writes_every_length_whole) {
  for (std::size_t length = 0; length < 100; ++length) {
    std::string content;
    for (std::size_t i = 0; i < length; ++i) content += static_cast<char>('a' + i % 26);
    EXPECT_EQ(serialize(Value(content)), "\"" + content + "\"");
  }
}

TEST(SerializeString, turns_utf8_into_escapes_with_the_option) {
  const StringCase cases[] = {
      {"plain", R"("plain")"},
      {"\"\\\n\x7f", "\"\\\"\\\\\\n\x7f\""},
      {"\xC2\x80", R"("\u0080")"},
      {"a\xC3\xA9z", R"("a\u00e9z")"},
      {"\xDF\xBF", R"("\u07ff")"},
      {"\xE0\xA0\x80", R"("\u0800")"},
      {"\xE2\x82\xAC", R"("\u20ac")"},
      {"\xED\x9F\xBF", R"("\ud7ff")"},
      {"\xEE\x80\x80", R"("\ue000")"},
      {"\xEF\xBF\xBF", R"("\uffff")"},
      {"\xF0\x90\x80\x80", R"("\ud800\udc00")"},
      {"\xF0\x9F\x98\x80", R"("\ud83d\ude00")"},
      {"\xF4\x8F\xBF\xBF", R"("\udbff\udfff")"},
  };
  for (const StringCase& c : cases) EXPECT_EQ(serialize(Value(c.content), {.escape_unicode = true}), c.text);
}

// How far a decoding error advances decides how many replacements are written.
TEST(SerializeString, replaces_what_is_not_utf8) {
  const StringCase cases[] = {
      {"\x80", R"("\ufffd")"},  // continuation byte in front
      {"\xBFz", R"("\ufffdz")"},
      {"\xF8z", R"("\ufffdz")"},  // impossible lead byte
      {"\xFF\xFE", R"("\ufffd\ufffd")"},
      {"\xC3", R"("\ufffd")"},  // runs past the end: one byte
      {"\xE2\x82", R"("\ufffd\ufffd")"},
      {"\xF0\x9F\x98", R"("\ufffd\ufffd\ufffd")"},
      {"\xC3z", R"("\ufffdz")"},  // bad continuation byte: up to it
      {"\xE2\x82z", R"("\ufffdz")"},
      {"\xF0\x9F\x98z", R"("\ufffdz")"},
      {"\xE2z\x82", R"("\ufffdz\ufffd")"},
      {"\xE2\xC3\xA9", R"("\ufffd\u00e9")"},
      {"\xC0\x80", R"("\ufffd")"},  // overlong: the whole sequence
      {"\xC1\xBFz", R"("\ufffdz")"},
      {"\xE0\x9F\xBFz", R"("\ufffdz")"},
      {"\xF0\x8F\xBF\xBFz", R"("\ufffdz")"},
      {"\xED\xA0\x80z", R"("\ufffdz")"},  // surrogates
      {"\xED\xBF\xBFz", R"("\ufffdz")"},
      {"\xF4\x90\x80\x80z", R"("\ufffdz")"},  // above U+10FFFF
      {"\xF7\xBF\xBF\xBFz", R"("\ufffdz")"},
  };
  for (const StringCase& c : cases) EXPECT_EQ(serialize(Value(c.content), {.escape_unicode = true}), c.text);
}

// --- containers

TEST(SerializeContainers, compact_has_no_whitespace) {
  const std::string text = R"({"a":[1,[],{}],"b":{"c":null}})";
  EXPECT_EQ(serialize(parse_exactly(text)), text);
  EXPECT_EQ(serialize(parse_exactly(text), {.indent = -7}), text);
}

TEST(SerializeContainers, pretty_puts_each_element_on_its_own_line) {
  const Value value = parse_exactly(R"({"a":[1,[],{}],"b":{"c":null},"d":[],"e":{},"f":[[2]]})");
  EXPECT_EQ(serialize(value, {.indent = 2}),
            "{\n"
            "  \"a\": [\n"
            "    1,\n"
            "    [],\n"
            "    {}\n"
            "  ],\n"
            "  \"b\": {\n"
            "    \"c\": null\n"
            "  },\n"
            "  \"d\": [],\n"
            "  \"e\": {},\n"
            "  \"f\": [\n"
            "    [\n"
            "      2\n"
            "    ]\n"
            "  ]\n"
            "}");
  EXPECT_EQ(serialize(parse_exactly("[1,{\"a\":2}]"), {.indent = 0}), "[\n1,\n{\n\"a\": 2\n}\n]");
  EXPECT_EQ(serialize(Value::array(), {.indent = 4}), "[]");
  EXPECT_EQ(serialize(Value::object(), {.indent = 4}), "{}");
  EXPECT_EQ(serialize(Value(1), {.indent = 4}), "1");
}

TEST(SerializeContainers, sort_members_by_bytes_with_the_option) {
  const Value value =
      parse_exactly("{\"b\":1,\"a\":{\"z\":1,\"y\":2},\"\xC3\xA9\":2,\"ab\":3,\"\":4,\"B\":5,\"a\\u0000\":6}");
  EXPECT_EQ(serialize(value, {.sort_keys = true}),
            "{\"\":4,\"B\":5,\"a\":{\"y\":2,\"z\":1},\"a\\u0000\":6,\"ab\":3,\"b\":1,\"\xC3\xA9\":2}");
  EXPECT_EQ(serialize(value),
            "{\"b\":1,\"a\":{\"z\":1,\"y\":2},\"\xC3\xA9\":2,\"ab\":3,\"\":4,\"B\":5,\"a\\u0000\":6}");
}

// Around every length of the output buffer, with what is written piece by piece and what is written at once.
TEST(SerializeBuffer, spills_without_a_gap) {
  for (std::size_t length = 4000; length < 4200; ++length) {
    const std::string content(length, 'x');
    Value list = Value::array();
    list.push_back(Value(content));
    list.push_back(Value(-1234567890123456789));
    list.push_back(Value("short"));
    list.push_back(Value("with \" escape"));
    list.push_back(Value(true));
    list.push_back(Value(0.5));
    list.push_back(Value(std::string(5000, 'y')));
    list.push_back(Value());
    ASSERT_EQ(serialize(list), "[\"" + content + "\",-1234567890123456789,\"short\",\"with \\\" escape\",true,0.5,\"" +
                                   std::string(5000, 'y') + "\",null]");
  }
}

TEST(SerializeBuffer, holds_many_small_pieces) {
  std::string expected = "[";
  Value list = Value::array();
  for (int i = 0; i < 5000; ++i) {
    list.push_back(Value(i));
    list.push_back(Value("s"));
    expected += (i > 0 ? "," : "") + std::to_string(i) + ",\"s\"";
  }
  EXPECT_EQ(serialize(list), expected + "]");
}

Value list_of(std::size_t count) {
  Value list = Value::array();
  for (std::size_t i = 0; i < count; ++i) list.push_back(Value(1));
  return list;
}

Value object_of(std::size_t count) {
  Value object = Value::object();
  for (std::size_t i = 0; i < count; ++i) object.set(std::to_string(i), Value(1));
  return object;
}

TEST(SerializeBuffer, reserves_what_it_expects_above_4096_bytes) {
  EXPECT_LT(serialize(list_of(63)).capacity(), 4034u);
  EXPECT_GE(serialize(list_of(64)).capacity(), 64u * 64 + 2);
  EXPECT_LT(serialize(object_of(51)).capacity(), 4082u);
  EXPECT_GE(serialize(object_of(52)).capacity(), 80u * 52 + 2);
  EXPECT_GE(serialize(Value(std::string(9000, 'x'))).capacity(), 9002u);
  EXPECT_LT(serialize(Value(std::string(9000, 'x'))).capacity(), 2 * 9000u);
}

}  // namespace
}  // namespace yajson
