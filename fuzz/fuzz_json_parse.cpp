// Any text under any options, read by the parser and by a plain reader of the same rules: both take or refuse it, and
// give the same value or the same error. The input's first byte chooses the options, a bit each; a space stands for
// none, so that the corpus reads well.
#include <cmath>
#include <string>
#include <string_view>

#include "fuzz/fuzz.h"
#include "fuzz/reader_comparison.h"
#include "yajson/error.h"
#include "yajson/object.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace {

using yajson::ParseOptions;
using yajson::ParseResult;
using yajson::Type;
using yajson::Value;
using zal::fuzz::require;

ParseOptions options_of(unsigned byte) {
  const unsigned bits = byte ^ ' ';
  return {.allow_comments = (bits & 1) != 0,
          .allow_trailing_commas = (bits & 2) != 0,
          .allow_single_quotes = (bits & 4) != 0,
          .allow_unquoted_keys = (bits & 8) != 0,
          .allow_nan_inf = (bits & 16) != 0,
          .allow_hex_numbers = (bits & 32) != 0,
          .allow_control_chars = (bits & 64) != 0,
          .allow_duplicate_keys = (bits & 128) != 0};
}

// The short way of reading a float may miss the nearest double by a little.
bool equal_numbers(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b)) || std::abs(a - b) <= 1e-15 * std::abs(a);
}

bool equal(const Value& a, const Value& b) {
  if (a.type() != b.type() || a.size() != b.size()) return false;
  switch (a.type()) {
    case Type::null:
      return true;
    case Type::boolean:
      return a.as_bool() == b.as_bool();
    case Type::integer:
      return a.as_integer() == b.as_integer();
    case Type::uinteger:
      return a.as_uinteger() == b.as_uinteger();
    case Type::floating:
      return equal_numbers(a.as_number(), b.as_number());
    case Type::string:
      return a.as_string() == b.as_string();
    case Type::array:
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (!equal(a.element(i), b.element(i))) return false;
      }
      return true;
    case Type::object:
      for (std::size_t i = 0; i < a.size(); ++i) {
        const yajson::Member& one = a.as_object().members()[i];
        const yajson::Member& other = b.as_object().members()[i];
        if (one.key() != other.key() || !equal(one.value, other.value)) return false;
      }
      return true;
  }
  return false;
}

// Each member is found under its key, which is there once.
void check_look_ups(const Value& value) {
  if (value.is_array()) {
    for (const Value& element : value.as_array()) check_look_ups(element);
  } else if (value.is_object()) {
    for (const yajson::Member& member : value.as_object().members()) {
      require(value.find(member.key()) == &member.value, "a look-up finds the member");
      check_look_ups(member.value);
    }
  }
}

void check_round_trip(const Value& value, const yajson::SerializeOptions& options) {
  const std::string text = yajson::serialize(value, options);
  const ParseResult again = yajson::parse_nothrow(text.data(), text.size(), {.allow_nan_inf = true});
  require(!again.error, "what was written can be read");
  require(equal(value, again.value), "what was written reads back equal");
}

void check_accepted(std::string_view text, const ParseOptions& options, const Value& value) {
  check_look_ups(value);
  check_round_trip(value, {.allow_nan_inf = true});
  check_round_trip(value, {.indent = 1, .allow_nan_inf = true});
  require(equal(value, Value(value)), "a copy is equal");
  const std::string ascii = yajson::serialize(value, {.escape_unicode = true, .sort_keys = true});
  require(!yajson::parse_nothrow(ascii.data(), ascii.size(), {.allow_duplicate_keys = true}).error,
          "what was written in ASCII can be read");

  yajson::MonotonicArena arena(256);
  const yajson::ArenaScope scope(&arena);
  const Value in_arena = yajson::parse(text.data(), text.size(), options);
  require(equal(value, in_arena), "an arena changes nothing");
}

void check_rejected(std::string_view text, const ParseOptions& options, const std::error_code& code) {
  require(code.category() == yajson::json_category(), "an error is one of the library's");
  try {
    static_cast<void>(yajson::parse(text.data(), text.size(), options));
    require(false, "both entries agree");
  } catch (const yajson::ParseError& error) {
    require(error.code() == code, "both entries give the same code");
    const yajson::Location& where = error.location();
    require(where.offset <= text.size(), "an error lies within the text");
    require(where.line >= 1 && where.column >= 1 && where.column <= where.offset + 1, "a position counts from 1");
  }
}

// Options only ever let more through, and change nothing of what strict JSON means.
void check_against_strict(std::string_view text, const ParseResult& result) {
  const ParseResult strict = yajson::parse_nothrow(text.data(), text.size());
  if (strict.error) return;
  require(!result.error, "strict JSON is taken under any options");
  require(equal(strict.value, result.value), "strict JSON means the same under any options");
}

void require_agreement(std::string_view text, const ParseOptions& options) {
  const std::string difference = zal::fuzz::difference_of_readers(text, options);
  require(difference.empty(), difference.c_str());
}

void check_against_plain(std::string_view text, ParseOptions options) {
  require_agreement(text, options);
  options.max_depth = 1 + text.size() % 8;
  require_agreement(text, options);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const ParseOptions options = options_of(data[0]);
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  const ParseResult result = yajson::parse_nothrow(text.data(), text.size(), options);
  if (result.error) {
    check_rejected(text, options, result.error);
  } else {
    check_accepted(text, options, result.value);
  }
  check_against_strict(text, result);
  check_against_plain(text, options);
  return 0;
}
