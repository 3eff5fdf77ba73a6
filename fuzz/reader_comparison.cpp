#include "fuzz/reader_comparison.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "fuzz/plain_json.h"
#include "yajson/error.h"
#include "yajson/object.h"

namespace zal::fuzz {

namespace {

using yajson::ParseOptions;
using yajson::Type;
using yajson::Value;

PlainRules rules_of(const ParseOptions& options) {
  return {.comments = options.allow_comments,
          .trailing_commas = options.allow_trailing_commas,
          .single_quotes = options.allow_single_quotes,
          .unquoted_keys = options.allow_unquoted_keys,
          .nan_inf = options.allow_nan_inf,
          .hex_numbers = options.allow_hex_numbers,
          .control_chars = options.allow_control_chars,
          .duplicate_keys = options.allow_duplicate_keys,
          .max_depth = options.max_depth == 0 ? 512 : static_cast<std::size_t>(options.max_depth)};
}

bool is_same_number(double a, double b) {
  return (std::isnan(a) && std::isnan(b)) || std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

bool is_same_value(const Value& value, const PlainValue& plain);

bool are_same_elements(const yajson::Array& array, const PlainValue& plain) {
  if (array.size() != plain.elements.size()) return false;
  for (std::size_t i = 0; i < array.size(); ++i) {
    if (!is_same_value(array[i], plain.elements[i])) return false;
  }
  return true;
}

bool are_same_members(const yajson::Object& object, const PlainValue& plain) {
  if (object.members().size() != plain.elements.size()) return false;
  for (std::size_t i = 0; i < plain.elements.size(); ++i) {
    const yajson::Member& member = object.members()[i];
    if (member.key() != plain.keys[i] || !is_same_value(member.value, plain.elements[i])) return false;
  }
  return true;
}

bool is_same_value(const Value& value, const PlainValue& plain) {
  switch (plain.kind) {
    case PlainValue::Kind::null:
      return value.is_null();
    case PlainValue::Kind::boolean:
      return value.type() == Type::boolean && value.as_bool() == plain.truth;
    case PlainValue::Kind::integer:
      return value.type() == Type::integer && value.as_integer() == plain.integer;
    case PlainValue::Kind::uinteger:
      return value.type() == Type::uinteger && value.as_uinteger() == plain.uinteger;
    case PlainValue::Kind::floating:
      return value.type() == Type::floating && is_same_number(value.as_number(), plain.number);
    case PlainValue::Kind::string:
      return value.type() == Type::string && value.as_string() == plain.text;
    case PlainValue::Kind::array:
      return value.is_array() && are_same_elements(value.as_array(), plain);
    case PlainValue::Kind::object:
      return value.is_object() && are_same_members(value.as_object(), plain);
  }
  return false;
}

// As the library words it, up to a NUL.
std::string words_of(const PlainError& error) {
  const std::string words = "JSON parse error at line " + std::to_string(error.line) + ", column " +
                            std::to_string(error.column) + ": " + error.message;
  return words.substr(0, words.find('\0'));
}

std::string show(int code, std::size_t offset, const std::string& words) {
  return "code " + std::to_string(code) + " at " + std::to_string(offset) + ", " + words;
}

std::string show(const yajson::ParseError& error) {
  return show(error.code().value(), error.location().offset, error.what());
}

std::string show(const PlainError& error) {
  return show(error.code, error.offset, words_of(error));
}

bool is_same_place(const yajson::Location& where, const PlainError& plain) {
  return where.offset == plain.offset && where.line == plain.line && where.column == plain.column;
}

}  // namespace

std::string difference_of_readers(std::string_view text, const ParseOptions& options) {
  const PlainResult plain = read_plain_json(text, rules_of(options));
  try {
    const Value value = yajson::parse(text.data(), text.size(), options);
    if (plain.error) return "only the plain reader refuses it: " + show(*plain.error);
    return is_same_value(value, plain.value) ? "" : "the values differ";
  } catch (const yajson::ParseError& error) {
    if (!plain.error) return "only the parser refuses it: " + show(error);
    const bool is_same = show(error) == show(*plain.error) && is_same_place(error.location(), *plain.error);
    return is_same ? "" : show(error) + "; the plain reader: " + show(*plain.error);
  }
}

}  // namespace zal::fuzz
