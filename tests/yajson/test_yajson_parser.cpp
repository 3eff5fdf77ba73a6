#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <string_view>
#include <thread>

#include "fuzz/reader_comparison.h"
#include "parse_support.h"
#include "yajson/error.h"
#include "yajson/object.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace yajson {
namespace {

using namespace std::string_view_literals;

// The value's text with everything visible: floats told from integers, NaN and Infinity shown.
std::string show(const Value& value) {
  return serialize(value, {.allow_nan_inf = true});
}

struct AcceptCase {
  std::string_view text;
  std::string_view shown;
  ParseOptions options = {};
};

template <std::size_t count>
void expect_accepted(const AcceptCase (&cases)[count]) {
  for (const AcceptCase& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_NO_THROW(EXPECT_EQ(show(parse_exactly(c.text, c.options)), c.shown));
    EXPECT_EQ(zal::fuzz::difference_of_readers(c.text, c.options), "");
  }
}

struct RejectCase {
  std::string_view text;
  int code;
  ParseOptions options = {};
};

template <std::size_t count>
void expect_rejected(const RejectCase (&cases)[count]) {
  for (const RejectCase& c : cases) {
    SCOPED_TRACE(c.text);
    const ParseResult result = parse_nothrow(c.text.data(), c.text.size(), c.options);
    EXPECT_EQ(result.error, std::error_code(c.code, json_category()));
    EXPECT_TRUE(result.value.is_null());
    EXPECT_EQ(zal::fuzz::difference_of_readers(c.text, c.options), "");
  }
}

TEST(Parse, takes_every_kind_of_value_alone) {
  expect_accepted({
      {"null", "null"},
      {"true", "true"},
      {"false", "false"},
      {"0", "0"},
      {"-12", "-12"},
      {"1.5", "1.5"},
      {R"("")", R"("")"},
      {R"("text")", R"("text")"},
      {"[]", "[]"},
      {"{}", "{}"},
      {R"([1,"a",null,[true,[]],{"b":{}}])", R"([1,"a",null,[true,[]],{"b":{}}])"},
      {R"({"a":1,"b":[2,{"c":3}],"":null})", R"({"a":1,"b":[2,{"c":3}],"":null})"},
  });
}

TEST(Parse, keeps_members_in_the_order_of_the_text) {
  expect_accepted({{R"({"z":1,"a":2,"m":3,"b":4})", R"({"z":1,"a":2,"m":3,"b":4})"}});
}

// --- whitespace

TEST(Whitespace, is_skipped_around_every_token) {
  expect_accepted({
      {" \t\r\n[ \t\r\n1 \t\r\n, \t\r\n2 \t\r\n] \t\r\n", "[1,2]"},
      {" \t\r\n{ \t\r\n\"a\" \t\r\n: \t\r\n1 \t\r\n, \t\r\n\"b\" \t\r\n: \t\r\n2 \t\r\n} \t\r\n", R"({"a":1,"b":2})"},
      {"[ \t\r\n]", "[]"},
      {"{ \t\r\n}", "{}"},
  });
}

TEST(Whitespace, hides_one_or_two_control_bytes_before_a_visible_one) {
  expect_accepted({
      {"[1,\x01"
       "2]",
       "[1,2]"},
      {"[1,\x01\x02"
       "2]",
       "[1,2]"},
      {"[1,\0"
       "2]"sv,
       "[1,2]"},
      {"[1,\x1f"
       "2]",
       "[1,2]"},
      {"[1 \x01,2]", "[1,2]"},
      {"[1\x01 ,2]", "[1,2]"},
      {"\x01"
       "1",
       "1"},
      {"\x01\x01"
       "1",
       "1"},
      {"{\x02\"a\"\x03\x04:\x05"
       "1\x06}",
       R"({"a":1})"},
  });
}

TEST(Whitespace, ends_a_longer_run_at_the_first_byte_that_is_none) {
  expect_rejected({
      {"[1,\x01\x01\x01"
       "2]",
       2},
      {"[1, \x01 2]", 2},
      {"[1\x01\x01\x01,2]", 2},
      {"[1,2]\x01", 9},
      {"[1,2]\x01\x01", 9},
      {"1   \x01", 9},
      {"\x01", 2},
      {"\x01\x01", 2},
  });
}

// After three spaces a skip stops at the control byte; where a second skip follows, that byte stands alone and goes.
TEST(Whitespace, is_skipped_twice_before_first_elements_keys_and_the_document) {
  expect_accepted({
      {"   \x01"
       "1",
       "1"},
      {"[   \x01"
       "1]",
       "[1]"},
      {"{   \x01\"a\":1}", R"({"a":1})"},
      {"[1,   \x01"
       "2]",
       "[1,2]",
       {.allow_trailing_commas = true}},
      {"{\"a\":1,   \x01\"b\":2}", R"({"a":1,"b":2})", {.allow_trailing_commas = true}},
  });
  expect_rejected({
      {"[1,   \x01"
       "2]",
       2},
      {"[1   \x01,2]", 2},
      {"[1   \x01]", 2},
      {"{\"a\":1,   \x01\"b\":2}", 8},
      {"{\"a\"   \x01:1}", 2},
      {"{\"a\":   \x01"
       "1}",
       2},
      {"{\"a\":1   \x01}", 2},
  });
}

// --- containers

TEST(Containers, end_as_the_options_say) {
  expect_rejected({
      {"[1,2", 7},       {"[", 7},         {"[ ", 7},
      {"[1,", 1},        {"[1,]", 2},      {"[,1]", 2},
      {"[1 2]", 2},      {"[1}", 2},       {"{", 8},
      {"{\"a\":1", 8},   {"{\"a\":1,", 8}, {"{\"a\":1,}", 8},
      {"{,\"a\":1}", 8}, {"{a:1}", 8},     {"{1:1}", 8},
      {"{'a':1}", 8},    {"{\"a\"", 1},    {"{\"a\" 1}", 2},
      {"{\"a\":", 1},    {"{\"a\":}", 2},  {"{\"a\":1 \"b\":2}", 2},
      {"{\"a\":1]", 2},  {"]", 2},         {"}", 2},
      {"", 1},           {" \n\t", 1},     {"1 2", 9},
      {"[]]", 9},
  });
}

TEST(Containers, take_one_trailing_comma_with_the_option) {
  const ParseOptions options{.allow_trailing_commas = true};
  expect_accepted({
      {"[1,]", "[1]", options},
      {"[1, ]", "[1]", options},
      {R"({"a":1,})", R"({"a":1})", options},
      {R"({"a":1 , })", R"({"a":1})", options},
  });
  expect_rejected({
      {"[,]", 2, options},
      {"[1,,]", 2, options},
      {"{,}", 8, options},
      {R"({"a":1,,})", 8, options},
      {"[1,", 1, options},
      {R"({"a":1,)", 8, options},
  });
}

TEST(Containers, nest_to_512_levels_and_no_further) {
  const auto nested = [](const char* open, const char* close, int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) text += open;
    text += "1";
    for (int i = 0; i < levels; ++i) text += close;
    return text;
  };
  for (const auto& [open, close] : {std::pair{"[", "]"}, std::pair{"{\"a\":", "}"}}) {
    const std::string deepest = nested(open, close, 512);
    EXPECT_EQ(show(parse_exactly(deepest)), deepest);
    const std::string too_deep = nested(open, close, 513);
    expect_rejected({{too_deep, 10}});
  }
}

TEST(Containers, nest_as_deep_as_max_depth_says) {
  expect_accepted({
      {"1", "1", {.max_depth = 1}},
      {"[1]", "[1]", {.max_depth = 1}},
      {"[[1],[2],{\"a\":3}]", "[[1],[2],{\"a\":3}]", {.max_depth = 2}},
  });
  expect_rejected({
      {"[[1]]", 10, {.max_depth = 1}},
      {"[[1],[2],{\"a\":[]}]", 10, {.max_depth = 2}},
  });
  const std::string deep = std::string(600, '[') + std::string(600, ']');
  EXPECT_EQ(show(parse_exactly(deep, {.max_depth = 600})), deep);
}

TEST(Containers, may_be_many_side_by_side_under_the_depth_limit) {
  std::string text = "[";
  for (int i = 0; i < 2000; ++i) text += i > 0 ? ",[{}]" : "[{}]";
  text += "]";
  EXPECT_EQ(show(parse_exactly(text)), text);
}

struct CapacityCase {
  const char* label;
  std::string text;
  std::size_t capacity;
};

std::string numbers(std::size_t count) {
  std::string text = "1";
  for (std::size_t i = 1; i < count; ++i) text += ",1";
  return text;
}

TEST(Containers, reserve_for_eight_or_for_what_lies_ahead_in_a_longer_text) {
  const std::string padding(257, ' ');
  // A vector that was reserved for too few doubles: 8 becomes 32 for 20 elements.
  const CapacityCase cases[] = {
      {"one element", "[1]", 8},
      {"256 bytes ahead", "[" + numbers(20) + "]" + std::string(216, ' '), 32},
      {"257 bytes ahead", "[" + numbers(20) + "]" + std::string(217, ' '), 20},
      {"few elements ahead", "[" + numbers(3) + "]" + padding, 8},
      {"commas in strings and containers", "[" + numbers(10) + ",\"a,\\\",b\",[1,2],{\"c\":1,\"d\":2}]" + padding, 13},
      {"256 commas in the 512 bytes that are looked at", "[" + numbers(300) + "]", std::size_t{2} * 257},
      {"255 commas there and one in the next byte", "[1" + numbers(300) + "]", std::size_t{2} * 256},
      {"a string beyond the 512 bytes", "[1,1,1,1,1,1,1,1,1,1,\"" + std::string(600, ',') + "\"]", 11},
  };
  for (const CapacityCase& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(parse_exactly(c.text).as_array().capacity(), c.capacity);
  }
}

TEST(Containers, reserve_for_eight_below_the_second_level) {
  const std::string inner = "[" + numbers(20) + "]" + std::string(300, ' ');
  EXPECT_EQ(parse_exactly("[" + inner + "]").element(0).as_array().capacity(), 20u);
  EXPECT_EQ(parse_exactly("[[" + inner + "]]").element(0).element(0).as_array().capacity(), 32u);
}

TEST(Containers, reserve_for_the_members_of_an_object) {
  std::string text = "{";
  for (int i = 0; i < 12; ++i) text += (i > 0 ? ",\"" : "\"") + std::to_string(i) + "\":1";
  EXPECT_EQ(parse_exactly(text + "}" + std::string(300, ' ')).as_object().members().capacity(), 12u);
  EXPECT_EQ(parse_exactly(text + "}").as_object().members().capacity(), 16u);
}

// --- strings

TEST(Strings, of_every_length_come_back_from_the_heap_and_from_an_arena) {
  MonotonicArena arena(4096);
  for (MonotonicArena* place : {static_cast<MonotonicArena*>(nullptr), &arena}) {
    const ArenaScope scope(place);
    for (std::size_t length = 0; length < 70; ++length) {
      const std::string content(length, 'x');
      const Value value = parse_exactly("{\"" + content + "\":\"" + content + "\"}");
      EXPECT_EQ(value.as_object().members()[0].key(), content);
      EXPECT_EQ(value.find(content)->as_string(), content);
      EXPECT_EQ(value.find(content)->in_arena(), place != nullptr && length > 15) << length;
    }
  }
}

TEST(Strings, read_their_escapes) {
  const AcceptCase cases[] = {
      {R"("\"\\\/\b\f\n\r\t")", R"("\"\\/\b\f\n\r\t")"},
      {R"("\u0041\u00e9\u20AC\uD83D\uDE00")", "\"A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\""},
      {R"("\u007f\u0080\u07ff\u0800\uffff")", "\"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\""},
      {R"("\ud800\udc00\udbff\udfff")", "\"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\""},
      {R"("\ud7ff\ue000")", "\"\xED\x9F\xBF\xEE\x80\x80\""},
      {R"("a\nb\nc")", R"("a\nb\nc")"},
      {R"({"a\tb":"\\"})", R"({"a\tb":"\\"})"},
  };
  expect_accepted(cases);
}

TEST(Strings, hold_a_real_nul_byte) {
  const Value value = parse_exactly(R"("a\u0000b")");
  EXPECT_EQ(value.as_string(), "a\0b"sv);
}

TEST(Strings, with_escapes_of_every_length_come_back) {
  for (std::size_t length = 0; length < 50; ++length) {
    const std::string run(length, 'x');
    EXPECT_EQ(parse_exactly("\"" + run + "\\n" + run + "\\u0041\"").as_string(), run + "\n" + run + "A");
  }
}

TEST(Strings, longer_than_the_scratch_memory_read_their_escapes) {
  const std::string run(10000, 'x');
  std::string text = "[";
  for (int i = 0; i < 3; ++i) text += "\"" + run + "\\n" + run + "\\n\",";
  const Value value = parse_exactly(text + "1]");
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(value.element(i).as_string(), run + "\n" + run + "\n");
}

TEST(Strings, pass_bytes_above_ascii_unchecked) {
  const AcceptCase cases[] = {
      {"\"\x80\xff\xc3\xed\xa0\x80\"", "\"\x80\xff\xc3\xed\xa0\x80\""},
      {"\"\x7f\"", "\"\x7f\""},
  };
  expect_accepted(cases);
}

TEST(Strings, may_not_hold_control_characters_in_a_single_run) {
  for (int byte = 0; byte < 0x20; ++byte) {
    for (const std::size_t before : {0u, 1u, 7u, 15u, 16u, 40u}) {
      const std::string text = "\"" + std::string(before, 'x') + static_cast<char>(byte) + "yyyy\"";
      EXPECT_EQ(parse_nothrow(text.data(), text.size()).error.value(), 3) << byte;
      const Value taken = parse_exactly(text, {.allow_control_chars = true});
      EXPECT_EQ(taken.as_string(), std::string_view(text).substr(1, text.size() - 2)) << byte;
    }
  }
}

TEST(Strings, take_control_characters_before_their_first_escape_but_not_behind_it) {
  EXPECT_EQ(parse_exactly("\"a\tb\\nc\"").as_string(), "a\tb\nc");
  EXPECT_EQ(parse_exactly("\"\x01\x02\\\"\"").as_string(), "\x01\x02\"");
  EXPECT_EQ(parse_exactly("{\"a\t\\n\":1}").as_object().members()[0].key(), "a\t\n");
  expect_rejected({
      {"\"a\tb\"", 3},
      {"\"a\\nb\tc\"", 3},
      {"\"\t\\n\t\"", 3},
      {"\"a\\nb\t\\nc\"", 3},
  });
  EXPECT_EQ(parse_exactly("\"a\\nb\tc\"", {.allow_control_chars = true}).as_string(), "a\nb\tc");
}

TEST(Strings, in_single_quotes_need_the_option) {
  const ParseOptions options{.allow_single_quotes = true};
  expect_accepted({
      {"'text'", R"("text")", options},
      {"'say \"hi\"'", R"("say \"hi\"")", options},
      {R"('it\'s')", R"("it's")", options},
      {R"("it\'s")", R"("it's")", options},
      {R"("it's")", R"("it's")", options},
      {"{'a':'b',\"c\":'d'}", R"({"a":"b","c":"d"})", options},
  });
  expect_rejected({
      {"'text'", 2},
      {R"("it\'s")", 3},
      {"'text\"", 6, options},
      {"\"text'", 6, options},
      {"'a\tb'", 3, options},
  });
}

TEST(UnquotedKeys, need_the_option) {
  const ParseOptions options{.allow_unquoted_keys = true};
  expect_accepted({
      {"{a:1}", R"({"a":1})", options},
      {"{ Az_$09 : 1 , _ : 2, $:3 , \"q\" : 4}", R"({"Az_$09":1,"_":2,"$":3,"q":4})", options},
      {"{a_key_longer_than_the_value:1}", R"({"a_key_longer_than_the_value":1})", options},
      {"{true:1}", R"({"true":1})", options},
  });
  expect_rejected({
      {"{a:1}", 8},
      {"{1a:1}", 8, options},
      {"{-a:1}", 8, options},
      {"{'a':1}", 8, options},
      {"{a-b:1}", 2, options},
      {"{a b:1}", 2, options},
      {"{a", 1, options},
      {"{\x80:1}", 8, options},
      {"{:1}", 8, options},
      {"{a:b}", 2, options},
  });
}

// --- comments

TEST(Comments, are_skipped_wherever_whitespace_is_with_the_option) {
  const ParseOptions options{.allow_comments = true};
  expect_accepted({
      {"// one\n1 // two", "1", options},
      {"/* a */ /* b */ 1 /* c */", "1", options},
      {"[/**/1/**/,/***/2/**/]", "[1,2]", options},
      {"{/*1*/\"a\"/*2*/:/*3*/1/*4*/,/*5*/\"b\":2}", R"({"a":1,"b":2})", options},
      {"[1,//]\n2]", "[1,2]", options},
      {"1//", "1", options},
      {"[]// no line end", "[]", options},
      {"\"// no /* comment\"", "\"// no /* comment\"", options},
      {"//\n//\n1", "1", options},
      {"/* * / **/1", "1", options},
  });
  expect_rejected({
      {"// one\n1", 2},
      {"/* a */1", 2},
      {"1 // two", 9},
      {"/1", 2, options},
      {"/", 2, options},
      {"1/", 9, options},
      {"1/1", 9, options},
      {"//1", 1, options},
  });
}

// The last byte of the input ends an open comment and is parsed.
TEST(Comments, without_an_end_leave_the_last_byte_to_be_parsed) {
  const ParseOptions options{.allow_comments = true};
  expect_accepted({
      {"[1/* open ]", "[1]", options},
      {"/* open 7", "7", options},
      {"{\"a\":1/*}", R"({"a":1})", options},
      {"1 /* open ", "1", options},
  });
  expect_rejected({
      {"1 /* open", 9, options},
      {"/* open", 11, options},
      {"/*", 2, options},
      {"/*/", 2, options},
      {"/* ", 1, options},
      {"[1/*", 2, options},
  });
}

TEST(Comments, are_followed_by_the_same_whitespace_rule) {
  const ParseOptions options{.allow_comments = true};
  expect_accepted({{"[1,/**/\x01"
                    "2]",
                    "[1,2]", options},
                   {"[1,\x01/**/2]", "[1,2]", options}});
  expect_rejected(
      {{"[1,/**/\x01\x01\x01"
        "2]",
        2, options}});
}

// --- literals

TEST(Literals, are_whole_words_without_a_delimiter) {
  expect_accepted({{"[true,false,null]", "[true,false,null]"}});
  expect_rejected({
      {"tru", 11},
      {"trua", 11},
      {"True", 2},
      {"fals", 11},
      {"falsy", 11},
      {"nul", 11},
      {"n", 11},
      {"trueX", 9},
      {"nullnull", 9},
      {"[trueX]", 2},
  });
}

TEST(Literals, of_numbers_that_are_none_need_the_option) {
  const ParseOptions options{.allow_nan_inf = true};
  expect_accepted({
      {"[NaN,Infinity,-Infinity]", "[NaN,Infinity,-Infinity]", options},
      {"[-1,-0]", "[-1,0]", options},
  });
  expect_rejected({
      {"NaN", 2},
      {"Infinity", 2},
      {"-Infinity", 5},
      {"Nan", 11, options},
      {"Inf", 11, options},
      {"-Inf", 11, options},
      {"-NaN", 5, options},
      {"+Infinity", 2, options},
  });
}

// --- the entries

TEST(ParseNothrow, has_a_code_of_the_system_category_on_success) {
  const ParseResult result = parse_nothrow("[1]", 3);
  EXPECT_EQ(result.error, std::error_code(0, std::system_category()));
  EXPECT_EQ(show(result.value), "[1]");
}

TEST(Parse, reads_no_further_than_the_length_it_is_given) {
  EXPECT_EQ(show(parse("123456", 3)), "123");
  EXPECT_EQ(show(parse("[1]garbage", 3)), "[1]");
  EXPECT_EQ(parse_nothrow("\"abc\"", 4).error.value(), 6);
  EXPECT_EQ(parse_nothrow(nullptr, 0).error.value(), 1);
}

TEST(Parse, tells_a_nul_byte_from_the_end) {
  expect_rejected({{"1\0"sv, 9}, {"\0"sv, 2}, {"[1\0\0\0]"sv, 2}});
}

TEST(Parse, of_every_prefix_of_a_text_fails_or_is_a_shorter_number) {
  const std::string text = R"({"a":[1,-2.5e3,"x\n\ud83d\ude00",true,null],"b":{"c":false,"dddddddddddddddddd":""}})";
  for (std::size_t length = 0; length < text.size(); ++length) {
    EXPECT_THROW(parse_exactly(std::string_view(text).substr(0, length)), ParseError) << length;
  }
  EXPECT_EQ(parse_exactly(text).size(), 2u);
}

TEST(Parse, without_duplicate_keys_refuses_a_repeated_key) {
  const ParseOptions lenient{.allow_duplicate_keys = true};
  expect_rejected({
      {R"({"a":1,"a":2})", 12},
      {R"({"a":1,"b":{"a":1,"a":2}})", 12},
      {R"({"a longer key, repeated":1,"b":2,"a longer key, repeated":1})", 12},
      {R"({"":1,"":2})", 12},
      {R"({"a":1,"a":x})", 2},
  });
  expect_accepted({
      {R"({"a":1,"a":2})", R"({"a":2})", lenient},
      {R"({"a":{"a":1},"b":{"a":2}})", R"({"a":{"a":1},"b":{"a":2}})"},
  });
}

TEST(Parse, keeps_the_last_of_a_repeated_key_of_any_length) {
  for (std::size_t length = 0; length <= 20; ++length) {
    const std::string repeated(length, 'k');
    std::string text = "{\"" + repeated + "\":0";
    for (const char* other : {"one", "two", "another key, out of line", "more"}) {
      text += ",\"" + std::string(other) + "\":1";
    }
    text += ",\"" + repeated + "\":2,\"last\":3}";
    const Value value = parse(text.data(), text.size(), {.allow_duplicate_keys = true});
    ASSERT_NE(value.find(repeated), nullptr) << text;
    EXPECT_EQ(value.find(repeated)->as_integer(), 2) << text;
    EXPECT_EQ(value.size(), 6u) << text;
  }
}

TEST(Parse, refuses_a_repeated_key_on_both_sides_of_the_index_threshold) {
  for (const int distinct : {14, 15, 16, 17, 60}) {
    std::string text = "{";
    for (int i = 0; i < distinct; ++i) text += "\"k" + std::to_string(i) + "\":1,";
    const std::string without = text.substr(0, text.size() - 1) + "}";
    EXPECT_EQ(parse_exactly(without).size(), static_cast<std::size_t>(distinct));
    for (const char* repeated : {"\"k0\":1}", "\"k13\":1}"}) {
      text += repeated;
      EXPECT_EQ(parse_nothrow(text.data(), text.size()).error.value(), 12) << distinct;
      text.resize(text.size() - std::string_view(repeated).size());
    }
  }
}

// --- arenas

const std::string message =
    R"({"cmd":"rrm-response","a key that is longer than fifteen":"a text that is longer than fifteen",)"
    R"("list":[1,2,3,4,5,6,7,8,9,10,{"deep":["another text of more than fifteen bytes"]}]})";

TEST(ParseIntoAnArena, leaves_everything_there) {
  MonotonicArena arena(65536);
  const ArenaScope scope(&arena);
  const Value value = parse_exactly(message);
  EXPECT_TRUE(value.in_arena());
  EXPECT_TRUE(value.find("list")->in_arena());
  EXPECT_TRUE(value.find("a key that is longer than fifteen")->in_arena());
  EXPECT_EQ(value.as_object().members().get_allocator().arena(), &arena);
  EXPECT_EQ(value.find("list")->as_array().get_allocator().arena(), &arena);
  EXPECT_EQ(show(value), message);
}

TEST(ParseIntoAnArena, may_be_changed_afterwards_at_any_depth_from_the_heap) {
  // The leak checker of a sanitized run is the witness that every part from the heap ends.
  MonotonicArena arena(65536);
  Value value = [&] {
    const ArenaScope scope(&arena);
    return parse_exactly(message);
  }();
  const std::string long_text(40, 'x');
  value.find("list")->element(10).find("deep")->push_back(Value(long_text));
  value.as_object().set("a new key that is longer than fifteen", Value(long_text));
  value.find("list")->as_array()[0] = Value(long_text);
  value.set("whole", parse_exactly(message));
  EXPECT_EQ(value.find("list")->element(10).find("deep")->element(1).as_string(), long_text);
  EXPECT_EQ(show(*value.find("whole")), message);
}

TEST(ParseIntoAnArena, leaves_nothing_behind_after_an_error) {
  MonotonicArena arena(65536);
  const ArenaScope scope(&arena);
  const std::string cut = message.substr(0, message.size() - 3);
  EXPECT_THROW(parse_exactly(cut), ParseError);
  EXPECT_EQ(show(parse_exactly(message)), message);
}

TEST(ParseWithoutAnArena, keeps_off_the_scratch_memory_of_the_parser) {
  const Value value = parse_exactly(R"(["an escaped text of more than 15 bytes\n"])");
  EXPECT_FALSE(value.in_arena());
  EXPECT_FALSE(value.element(0).in_arena());
  EXPECT_EQ(current_arena, nullptr);
}

TEST(ParsedIndexes, are_built_before_readers_share_the_value) {
  std::string text = "{";
  for (int i = 0; i < 40; ++i) text += (i > 0 ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
  const Value value = parse_exactly(text + "}");
  const auto read = [&] {
    for (int i = 0; i < 40; ++i) EXPECT_EQ(value.find("k" + std::to_string(i))->as_integer(), i);
  };
  std::thread other(read);
  read();
  other.join();
}

}  // namespace
}  // namespace yajson
