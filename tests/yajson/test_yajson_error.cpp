#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <type_traits>

#include "yajson/error.h"

namespace yajson {
namespace {

struct CodeCase {
  int code;
  const char* message;
};

TEST(ErrorCategory, names_every_code) {
  const CodeCase cases[] = {
      {0, "success"},
      {1, "unexpected end of input"},
      {2, "unexpected character"},
      {3, "invalid escape sequence"},
      {4, "invalid unicode escape"},
      {5, "invalid number"},
      {6, "unterminated string"},
      {7, "unterminated array"},
      {8, "unterminated object"},
      {9, "trailing content after JSON"},
      {10, "maximum nesting depth exceeded"},
      {11, "invalid literal"},
      {12, "duplicate key"},
      {13, "invalid UTF-8 encoding"},
      {14, "invalid comment"},
      {15, "unknown json error"},
      {49, "unknown json error"},
      {50, "type mismatch"},
      {51, "index out of range"},
      {52, "key not found"},
      {53, "integer overflow"},
      {54, "unknown json error"},
      {79, "unknown json error"},
      {80, "NaN or Infinity not representable"},
      {81, "unknown json error"},
      {-1, "unknown json error"},
  };
  for (const CodeCase& c : cases) EXPECT_EQ(json_category().message(c.code), c.message) << c.code;
}

TEST(ErrorCategory, is_one_instance_named_json) {
  EXPECT_STREQ(json_category().name(), "json");
  EXPECT_EQ(&json_category(), &json_category());
  EXPECT_NE(dynamic_cast<const detail::json_error_category_impl*>(&json_category()), nullptr);
}

TEST(ErrorCategory, turns_a_code_of_its_own_into_an_error_code) {
  const std::error_code error = Errc::duplicate_key;
  EXPECT_EQ(error.value(), 12);
  EXPECT_EQ(&error.category(), &json_category());
  EXPECT_EQ(error.message(), "duplicate key");
}

template <class Exception>
void expect_error(const Exception& error, int code, const char* text) {
  static_assert(std::is_base_of_v<std::system_error, Exception>);
  const Exception copy(error);
  EXPECT_EQ(copy.code(), std::error_code(code, json_category()));
  EXPECT_STREQ(copy.what(), text);
}

TEST(Errors, carry_their_code_and_exactly_their_text) {
  expect_error(TypeError("expected bool, got null"), 50, "expected bool, got null");
  expect_error(OutOfRangeError("beyond"), 51, "beyond");
  const ParseError parse_error(Errc::invalid_number, "invalid number", {3, 14, 159});
  expect_error(parse_error, 5, "JSON parse error at line 3, column 14: invalid number");
  EXPECT_EQ(parse_error.location(), (Location{3, 14, 159}));
}

}  // namespace
}  // namespace yajson
