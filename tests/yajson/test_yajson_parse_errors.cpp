// Every way in which a text can fail: its code, its words and the place that it names.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "fuzz/reader_comparison.h"
#include "parse_support.h"
#include "yajson/error.h"
#include "yajson/parser.h"

namespace yajson {
namespace {

using namespace std::string_view_literals;

const ParseOptions strict;
const ParseOptions comments{.allow_comments = true};
const ParseOptions trailing_commas{.allow_trailing_commas = true};
const ParseOptions single_quotes{.allow_single_quotes = true};
const ParseOptions unquoted_keys{.allow_unquoted_keys = true};
const ParseOptions nan_inf{.allow_nan_inf = true};
const ParseOptions hex_numbers{.allow_hex_numbers = true};
const ParseOptions shallow{.max_depth = 2};

struct ErrorCase {
  const char* label;
  const ParseOptions& options;
  std::string_view text;
  int code;
  const char* message;
  Location where;
};

const ErrorCase cases[] = {
    // code 1
    {"nothing", strict, "", 1, "unexpected end of input", {1, 1, 0}},
    {"whitespace only", strict, " \n  ", 1, "unexpected end of input", {2, 3, 4}},
    {"whitespace and a last line end", strict, "\n\n", 1, "unexpected end of input", {3, 1, 2}},
    {"array ends behind a comma", strict, "[1,", 1, "unexpected end of input", {1, 4, 3}},
    {"object ends behind a key", strict, "{\"a\"", 1, "unexpected end of input", {1, 5, 4}},
    {"object ends behind a colon", strict, "{\"a\":", 1, "unexpected end of input", {1, 6, 5}},
    // code 2
    {"not a value", strict, "x", 2, "unexpected character 'x'", {1, 1, 0}},
    {"not a value, third line", strict, "[1,\n2,\n  x]", 2, "unexpected character 'x'", {3, 3, 9}},
    {"comma before a bracket", strict, "[1,]", 2, "unexpected character ']'", {1, 4, 3}},
    {"comma before a bracket, behind a space", strict, "[1, ]", 2, "unexpected character ']'", {1, 5, 4}},
    {"single quote", strict, "['a']", 2, "unexpected character '''", {1, 2, 1}},
    {"NaN", strict, "NaN", 2, "unexpected character 'N'", {1, 1, 0}},
    {"Infinity", strict, "[Infinity]", 2, "unexpected character 'I'", {1, 2, 1}},
    {"plus sign", strict, "+1", 2, "unexpected character '+'", {1, 1, 0}},
    {"comment", strict, "/**/1", 2, "unexpected character '/'", {1, 1, 0}},
    {"long run of control bytes", strict, "[1,\x01\x01\x01\x32]", 2, "unexpected character '\x01'", {1, 4, 3}},
    {"byte above ASCII", strict, "\xC3\xA9", 2, "unexpected character '\xC3'", {1, 1, 0}},
    {"columns are bytes", strict, "[\"\xC3\xA9\",x]", 2, "unexpected character 'x'", {1, 7, 6}},
    {"neither comma nor bracket", strict, "[1 2]", 2, "expected ',' or ']' in array", {1, 4, 3}},
    {"brace in an array", strict, "[1}", 2, "expected ',' or ']' in array", {1, 3, 2}},
    {"leading zero", strict, "[01]", 2, "expected ',' or ']' in array", {1, 3, 2}},
    {"literal without a delimiter", strict, "[trueX]", 2, "expected ',' or ']' in array", {1, 6, 5}},
    {"neither comma nor brace", strict, "{\"a\":1 \"b\":2}", 2, "expected ',' or '}' in object", {1, 8, 7}},
    {"bracket in an object", strict, "{\"a\":1]", 2, "expected ',' or '}' in object", {1, 7, 6}},
    {"no colon", strict, "{\"a\" 1}", 2, "expected ':', got '1'", {1, 6, 5}},
    {"comma for a colon", strict, "{\"a\",1}", 2, "expected ':', got ','", {1, 5, 4}},
    {"no value", strict, "{\"a\":}", 2, "unexpected character '}'", {1, 6, 5}},
    {"open comment", comments, "[1,/* left", 11, "expected 'true'", {1, 10, 9}},
    {"two trailing commas", trailing_commas, "[1,,]", 2, "unexpected character ','", {1, 4, 3}},
    {"unquoted value", unquoted_keys, "{a:b}", 2, "unexpected character 'b'", {1, 4, 3}},
    {"minus in an unquoted key", unquoted_keys, "{a-b:1}", 2, "expected ':', got '-'", {1, 3, 2}},
    // code 3
    {"TAB in a string", strict, "[\"a\tb\"]", 3, "unescaped control character in string", {1, 4, 3}},
    {"line end in a string", strict, "[\"ab\ncd\"]", 3, "unescaped control character in string", {1, 5, 4}},
    {"first of two", strict, "\"\x01\x02\"", 3, "unescaped control character in string", {1, 2, 1}},
    {"TAB behind an escape", strict, "\"\t\\n\t\"", 3, "unescaped control character in string", {1, 5, 4}},
    {"TAB behind an escape in a string without an end",
     strict,
     "\"\\n\tabc",
     3,
     "unescaped control character in string",
     {1, 4, 3}},
    {"TAB in single quotes", single_quotes, "'\t'", 3, "unescaped control character in string", {1, 2, 1}},
    {"unknown escape", strict, "\"ab\\q\"", 3, "invalid escape '\\q'", {1, 5, 4}},
    {"upper-case escape", strict, "\"\\N\"", 3, "invalid escape '\\N'", {1, 3, 2}},
    {"hexadecimal escape", strict, "\"\\x41\"", 3, "invalid escape '\\x'", {1, 3, 2}},
    {"escaped single quote", strict, "\"\\'\"", 3, "invalid escape '\\''", {1, 3, 2}},
    {"backslash at the end", strict, "\"ab\\", 3, "unterminated escape sequence", {1, 5, 4}},
    // code 4
    {"three hex digits and the end", strict, "\"\\u004", 4, "incomplete unicode escape", {1, 4, 3}},
    {"no hex digits", strict, "\"\\u", 4, "incomplete unicode escape", {1, 4, 3}},
    {"two hex digits and the quote", strict, "\"\\u00\"", 4, "incomplete unicode escape", {1, 4, 3}},
    {"bad first hex digit", strict, "\"\\ug000\"", 4, "invalid hex digit in unicode escape", {1, 4, 3}},
    {"bad last hex digit", strict, "\"\\u000 \"", 4, "invalid hex digit in unicode escape", {1, 7, 6}},
    {"quote among the hex digits", strict, "\"\\u00\",1", 4, "invalid hex digit in unicode escape", {1, 6, 5}},
    {"high surrogate and the quote", strict, "\"\\ud800\"", 4, "missing low surrogate", {1, 8, 7}},
    {"high surrogate and text", strict, "\"\\uDBFFab\"", 4, "missing low surrogate", {1, 8, 7}},
    {"high surrogate and another escape", strict, "\"\\ud800\\n\"", 4, "missing low surrogate", {1, 8, 7}},
    {"high surrogate and the end", strict, "\"\\ud800", 4, "missing low surrogate", {1, 8, 7}},
    {"high surrogate and a backslash at the end", strict, "\"\\ud800\\", 4, "missing low surrogate", {1, 8, 7}},
    {"two high surrogates", strict, "\"\\ud800\\ud800\"", 4, "invalid low surrogate value", {1, 10, 9}},
    {"unit below the low surrogates", strict, "\"\\ud800\\udbff\"", 4, "invalid low surrogate value", {1, 10, 9}},
    {"unit above the low surrogates", strict, "\"\\ud800\\ue000\"", 4, "invalid low surrogate value", {1, 10, 9}},
    {"cut low surrogate", strict, "\"\\ud800\\udc0", 4, "incomplete unicode escape", {1, 10, 9}},
    {"low surrogate alone", strict, "\"\\udc00\"", 4, "unexpected low surrogate", {1, 4, 3}},
    {"last low surrogate alone", strict, "\"ab\\uDFFF\"", 4, "unexpected low surrogate", {1, 6, 5}},
    // code 5
    {"minus at the end", strict, "-", 5, "invalid number", {1, 2, 1}},
    {"minus and a letter", strict, "[-a]", 5, "invalid number", {1, 3, 2}},
    {"two minuses", strict, "--1", 5, "invalid number", {1, 2, 1}},
    {"negative Infinity", strict, "-Infinity", 5, "invalid number", {1, 2, 1}},
    {"point at the end", strict, "1.", 5, "expected digit after decimal point", {1, 3, 2}},
    {"point and an exponent", strict, "[1.e5]", 5, "expected digit after decimal point", {1, 4, 3}},
    {"exponent at the end", strict, "1e", 5, "expected digit in exponent", {1, 3, 2}},
    {"exponent's sign at the end", strict, "1E+", 5, "expected digit in exponent", {1, 4, 3}},
    {"exponent without digits", strict, "[1.5e-]", 5, "expected digit in exponent", {1, 7, 6}},
    {"hexadecimal prefix at the end", hex_numbers, "0x", 5, "incomplete hex number", {1, 3, 2}},
    {"hexadecimal prefix alone", hex_numbers, "[-0X]", 5, "expected hex digit", {1, 5, 4}},
    {"hexadecimal prefix and a letter", hex_numbers, "0xg", 5, "expected hex digit", {1, 3, 2}},
    // code 6
    {"string without an end", strict, "[\"ab", 6, "unterminated string", {1, 5, 4}},
    {"quote at the end", strict, "\"", 6, "unterminated string", {1, 2, 1}},
    {"string without an end, over lines", strict, "\"a\nb\nc", 6, "unterminated string", {3, 2, 6}},
    {"string without an end behind an escape", strict, "\"a\\nb", 6, "unterminated string", {1, 6, 5}},
    {"key without an end", strict, "{\"ab", 6, "unterminated string", {1, 5, 4}},
    {"single quotes without an end", single_quotes, "'ab\"", 6, "unterminated string", {1, 5, 4}},
    // code 7
    {"bracket at the end", strict, "[", 7, "unterminated array", {1, 2, 1}},
    {"bracket and spaces", strict, "[ \n", 7, "unterminated array", {2, 1, 3}},
    {"array without an end", strict, "[1,2", 7, "unterminated array", {1, 5, 4}},
    {"inner array without an end", strict, "[[1],[2", 7, "unterminated array", {1, 8, 7}},
    // code 8
    {"brace at the end", strict, "{", 8, "unterminated object", {1, 2, 1}},
    {"object without an end", strict, "{\"a\":1", 8, "unterminated object", {1, 7, 6}},
    {"object ends behind a comma", strict, "{\"a\":1,", 8, "expected string key in object", {1, 8, 7}},
    {"comma before a brace", strict, "{\"a\":1,}", 8, "expected string key in object", {1, 8, 7}},
    {"comma before a brace, next line", strict, "{\"a\":1,\n}", 8, "expected string key in object", {2, 1, 8}},
    {"number for a key", strict, "{1:2}", 8, "expected string key in object", {1, 2, 1}},
    {"unquoted key", strict, "{a:1}", 8, "expected string key in object", {1, 2, 1}},
    {"key in single quotes", strict, "{'a':1}", 8, "expected string key in object", {1, 2, 1}},
    {"digit before an unquoted key", unquoted_keys, "{1a:2}", 8, "expected string key in object", {1, 2, 1}},
    // code 9
    {"two values", strict, "1 2", 9, "unexpected trailing content", {1, 3, 2}},
    {"bracket behind the document", strict, "[]\n]", 9, "unexpected trailing content", {2, 1, 3}},
    {"leading zero of a document", strict, "01", 9, "unexpected trailing content", {1, 2, 1}},
    {"hexadecimal number", strict, "0x10", 9, "unexpected trailing content", {1, 2, 1}},
    {"letter behind a literal", strict, "trueX", 9, "unexpected trailing content", {1, 5, 4}},
    {"NUL behind the document", strict, "1\0"sv, 9, "unexpected trailing content", {1, 2, 1}},
    {"control byte behind the document", strict, "1   \x01", 9, "unexpected trailing content", {1, 5, 4}},
    // code 10
    {"third level", shallow, "[\n[1],{\"a\":\n[2]}]", 10, "maximum nesting depth exceeded", {3, 1, 12}},
    {"third level, object", shallow, "[[{", 10, "maximum nesting depth exceeded", {1, 3, 2}},
    // code 11
    {"cut true", strict, "tru", 11, "expected 'true'", {1, 1, 0}},
    {"wrong false", strict, "[falsE]", 11, "expected 'false'", {1, 2, 1}},
    {"wrong null", strict, "nuLL", 11, "expected 'null'", {1, 1, 0}},
    {"wrong NaN", nan_inf, "[Nan]", 11, "expected 'NaN'", {1, 2, 1}},
    {"cut Infinity", nan_inf, "Inf", 11, "expected 'Infinity'", {1, 1, 0}},
    {"cut negative Infinity", nan_inf, "-Inf", 11, "expected 'Infinity'", {1, 2, 1}},
    // code 12: known once the member is complete
    {"repeated key", strict, "{\"a\":1,\"a\":2}", 12, "duplicate key: \"a\"", {1, 13, 12}},
    {"repeated key that was escaped", strict, "{\"a\":1,\n\"\\u0061\": [2] }", 12, "duplicate key: \"a\"", {2, 14, 21}},
    {"repeated empty key", strict, "{\"\":1,\"\":2}", 12, "duplicate key: \"\"", {1, 11, 10}},
    // code 53
    {"hexadecimal number of 65 bits", hex_numbers, "[0x10000000000000000]", 53, "hex integer overflow", {1, 20, 19}},
    {"hexadecimal number below the signed range",
     hex_numbers,
     "-0x8000000000000001",
     53,
     "hex integer overflow",
     {1, 20, 19}},
};

TEST(ParseErrors, say_what_is_wrong_and_where) {
  for (const ErrorCase& c : cases) {
    SCOPED_TRACE(c.label);
    try {
      parse_exactly(c.text, c.options);
      ADD_FAILURE() << "parsed";
    } catch (const ParseError& error) {
      EXPECT_EQ(error.code(), std::error_code(c.code, json_category()));
      EXPECT_EQ(error.what(), "JSON parse error at line " + std::to_string(c.where.line) + ", column " +
                                  std::to_string(c.where.column) + ": " + c.message);
      EXPECT_EQ(error.location().line, c.where.line);
      EXPECT_EQ(error.location().column, c.where.column);
      EXPECT_EQ(error.location().offset, c.where.offset);
    }
  }
}

TEST(ParseErrors, reach_the_nothrow_entry_by_their_code) {
  for (const ErrorCase& c : cases) {
    SCOPED_TRACE(c.label);
    const ParseResult result = parse_nothrow(c.text.data(), c.text.size(), c.options);
    EXPECT_EQ(result.error, std::error_code(c.code, json_category()));
    EXPECT_TRUE(result.value.is_null());
  }
}

TEST(ParseErrors, are_told_alike_by_the_plain_reader) {
  for (const ErrorCase& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(zal::fuzz::difference_of_readers(c.text, c.options), "");
  }
}

TEST(ParseErrors, of_the_default_depth_name_the_513th_bracket) {
  const std::string text = "\n" + std::string(513, '[');
  try {
    parse_exactly(text);
    FAIL();
  } catch (const ParseError& error) {
    EXPECT_EQ(error.code(), Errc::depth_exceeded);
    EXPECT_EQ(error.location(), (Location{2, 513, 513}));
  }
}

}  // namespace
}  // namespace yajson
