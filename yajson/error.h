// What can go wrong with a document: the codes, their category "json", and the three exceptions that carry them.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace yajson {

enum class Errc : int {
  success = 0,
  unexpected_end = 1,
  unexpected_character = 2,
  invalid_escape = 3,
  invalid_unicode_escape = 4,
  invalid_number = 5,
  unterminated_string = 6,
  unterminated_array = 7,
  unterminated_object = 8,
  trailing_content = 9,
  depth_exceeded = 10,
  invalid_literal = 11,
  duplicate_key = 12,
  invalid_utf8 = 13,
  invalid_comment = 14,
  type_mismatch = 50,
  index_out_of_range = 51,
  key_not_found = 52,
  integer_overflow = 53,
  not_representable = 80,
};

namespace detail {

class json_error_category_impl final : public std::error_category {
 public:
  const char* name() const noexcept override { return "json"; }
  std::string message(int code) const override;
};

}  // namespace detail

// The one instance of the category.
const std::error_category& json_category() noexcept;

inline std::error_code make_error_code(Errc code) noexcept {
  return {static_cast<int>(code), json_category()};
}

// Base of the library's exceptions. what() is the text alone, without the category's message behind it.
class Error : public std::system_error {
 public:
  Error(Errc code, const std::string& text) : std::system_error(make_error_code(code), text), text_(text) {}
  const char* what() const noexcept override { return text_.what(); }

 private:
  std::runtime_error text_;  // a text whose copies cannot throw
};

// A value is not of the type that was asked for.
class TypeError final : public Error {
 public:
  explicit TypeError(const std::string& text) : Error(Errc::type_mismatch, text) {}
};

// An array has no such element.
class OutOfRangeError final : public Error {
 public:
  explicit OutOfRangeError(const std::string& text) : Error(Errc::index_out_of_range, text) {}
};

// A place in the input: line and column count from 1, the column in bytes; the offset counts bytes from 0.
struct Location {
  std::uint64_t line = 1;
  std::uint64_t column = 1;
  std::uint64_t offset = 0;
  bool operator==(const Location&) const = default;
};

// The input is not a document. The text names the place and then says what is wrong there.
class ParseError final : public Error {
 public:
  ParseError(Errc code, std::string_view message, const Location& where);
  const Location& location() const noexcept { return location_; }

 private:
  Location location_;
};

}  // namespace yajson

template <>
struct std::is_error_code_enum<yajson::Errc> : std::true_type {};
