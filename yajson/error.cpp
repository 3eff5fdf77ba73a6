#include "yajson/error.h"

namespace yajson {
namespace {

const char* message_of(Errc code) {
  switch (code) {
    case Errc::success:
      return "success";
    case Errc::unexpected_end:
      return "unexpected end of input";
    case Errc::unexpected_character:
      return "unexpected character";
    case Errc::invalid_escape:
      return "invalid escape sequence";
    case Errc::invalid_unicode_escape:
      return "invalid unicode escape";
    case Errc::invalid_number:
      return "invalid number";
    case Errc::unterminated_string:
      return "unterminated string";
    case Errc::unterminated_array:
      return "unterminated array";
    case Errc::unterminated_object:
      return "unterminated object";
    case Errc::trailing_content:
      return "trailing content after JSON";
    case Errc::depth_exceeded:
      return "maximum nesting depth exceeded";
    case Errc::invalid_literal:
      return "invalid literal";
    case Errc::duplicate_key:
      return "duplicate key";
    case Errc::invalid_utf8:
      return "invalid UTF-8 encoding";
    case Errc::invalid_comment:
      return "invalid comment";
    case Errc::type_mismatch:
      return "type mismatch";
    case Errc::index_out_of_range:
      return "index out of range";
    case Errc::key_not_found:
      return "key not found";
    case Errc::integer_overflow:
      return "integer overflow";
    case Errc::not_representable:
      return "NaN or Infinity not representable";
  }
  return "unknown json error";
}

std::string text_of(std::string_view message, const Location& where) {
  std::string text =
      "JSON parse error at line " + std::to_string(where.line) + ", column " + std::to_string(where.column) + ": ";
  return text.append(message);
}

}  // namespace

std::string detail::json_error_category_impl::message(int code) const {
  return message_of(static_cast<Errc>(code));
}

const std::error_category& json_category() noexcept {
  static const detail::json_error_category_impl category;
  return category;
}

ParseError::ParseError(Errc code, std::string_view message, const Location& where)
    : Error(code, text_of(message, where)), location_(where) {}

}  // namespace yajson
