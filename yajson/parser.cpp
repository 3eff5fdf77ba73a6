#include "yajson/parser.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory_resource>
#include <string>
#include <string_view>
#include <utility>

#include "yajson/error.h"
#include "yajson/object.h"
#include "yajson/scan.h"

namespace yajson {
namespace {

constexpr std::uint64_t default_max_depth = 512;

// What the capacity of a large container is guessed from.
constexpr std::size_t least_capacity = 8;
constexpr std::size_t look_ahead_from = 257;
constexpr std::size_t look_ahead = 512;
constexpr std::uint64_t look_ahead_depth = 2;

constexpr int max_significant_digits = 19;
constexpr int exponent_limit = 400;
constexpr std::uint64_t sign_bit = std::uint64_t{1} << 63;
constexpr std::array<double, 23> powers_of_ten{1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                               1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr int largest_power = static_cast<int>(powers_of_ten.size()) - 1;

constexpr bool is_above_space(char c) {
  return static_cast<unsigned char>(c) > 0x20;
}
constexpr bool is_whitespace(char c) {
  return c == ' ' || c == '\n' || c == '\r' || c == '\t';
}
constexpr bool is_digit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool is_identifier_start(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}
constexpr bool is_identifier_part(char c) {
  return is_identifier_start(c) || is_digit(c);
}

constexpr int hex_digit(char c) {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

constexpr bool is_high_surrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool is_low_surrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

// What a decimal number has shown so far.
struct Decimal {
  const char* start = nullptr;
  std::uint64_t mantissa = 0;
  int significant_digits = 0;
  std::int64_t fraction_digits = 0;  // how many of the mantissa's digits stood behind the point
  int exponent = 0;
  bool negative = false;
  bool big = false;      // the integer part does not fit into the mantissa
  bool inexact = false;  // digits of the fraction were left out of the mantissa
  bool whole = true;     // neither fraction nor exponent

  bool has_room_for(char digit) const {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return mantissa < most / 10 || (mantissa == most / 10 && digit <= '5');
  }

  void take(char digit) {
    mantissa = mantissa * 10 + static_cast<std::uint64_t>(digit - '0');
    if (mantissa != 0) ++significant_digits;
  }
};

// One pass over one input. Every failure leaves through ParseError, raised where the cursor then stands.
class Parser {
 public:
  Parser(const char* text, std::size_t length, const ParseOptions& options)
      : cursor_(text),
        end_(text + length),
        begin_(text),
        options_(options),
        max_depth_(options.max_depth != 0 ? options.max_depth : default_max_depth),
        frees_nothing_(arena_ != nullptr && std::in_range<std::uint32_t>(length)) {}

  Value document();

 private:
  [[noreturn]] void fail(Errc code, std::string_view message) const;
  [[noreturn]] void fail_at(const char* where, Errc code, std::string_view message);

  bool at_end() const { return cursor_ == end_; }
  std::size_t remaining() const { return static_cast<std::size_t>(end_ - cursor_); }
  bool next_is(char c) const { return cursor_ != end_ && *cursor_ == c; }
  bool consume(char c);

  void skip() {
    if (at_end() || !is_above_space(*cursor_) || options_.allow_comments) skip_more();
  }
  void skip_more();
  void skip_whitespace();
  void skip_comments();
  void skip_comment();

  void parse_value(Value& out);  // Requires: `out` is null.
  void parse_word(Value& out);
  template <std::size_t size>
  void parse_literal(const char (&word)[size]);

  void open_container();
  void close_container();
  std::size_t capacity_ahead() const;
  bool closes_after_comma(char bracket);
  void parse_array(Value& out);
  bool array_goes_on();
  void parse_object(Value& out);
  void parse_member(Object& object);
  bool object_goes_on();
  std::string_view parse_key();
  std::string_view parse_identifier();
  void expect_colon();

  std::string_view parse_string();
  std::string_view parse_any_string();
  std::string_view parse_escaped_string(const char* start, char quote);
  [[noreturn]] void fail_control_character(const char* where);
  void append_run(char quote);
  void append_escape();
  char escaped_byte(char escape) const;
  std::uint32_t parse_code_point();
  std::uint32_t parse_low_surrogate();
  std::uint32_t parse_hex_unit();
  void append_utf8(std::uint32_t code_point);

  void parse_number(Value& out);
  static bool store_integer(bool negative, std::uint64_t magnitude, Value& out);
  void require_digit(std::string_view message) const;
  void skip_digits();
  void read_integer_part(Decimal& number);
  void read_fraction(Decimal& number);
  void read_exponent(Decimal& number);
  double floating_value(const Decimal& number) const;
  double convert_by_library(const char* start) const;
  void parse_hex_number(bool negative, Value& out);

  const char* cursor_;
  const char* end_;
  const char* begin_;
  const ParseOptions& options_;
  std::uint64_t depth_ = 0;
  std::uint64_t max_depth_;
  MonotonicArena* arena_ = current_arena;
  bool frees_nothing_;  // no text is too long for the arena
  // Strings with escapes are put together here.
  std::array<char, 4096> scratch_buffer_;
  MonotonicArena scratch_{scratch_buffer_.data(), scratch_buffer_.size(), 2 * scratch_buffer_.size()};
  std::pmr::string unescaped_{&scratch_};
};

// For the compiler: a value that is about to be parsed is null, so there is nothing to give up first.
Value& fresh(Value& out) {
  if (!out.is_null()) __builtin_unreachable();
  return out;
}

// The position of the closing quote from `from` on, or the end of the text, or just beyond it behind a backslash.
std::size_t closing_quote(std::string_view text, std::size_t from) {
  while (from < text.size()) {
    const char* const special = find_special(text.data() + from, text.data() + text.size(), '"');
    from = static_cast<std::size_t>(special - text.data());
    if (from == text.size() || *special == '"') break;
    from += *special == '\\' ? 2 : 1;
  }
  return from;
}

Location locate(const char* begin, const char* where) {
  Location location;
  location.offset = static_cast<std::uint64_t>(where - begin);
  const char* line_start = begin;
  for (const char* p = begin; p != where; ++p) {
    if (*p != '\n') continue;
    ++location.line;
    line_start = p + 1;
  }
  location.column = static_cast<std::uint64_t>(where - line_start) + 1;
  return location;
}

void Parser::fail(Errc code, std::string_view message) const {
  throw ParseError(code, message, locate(begin_, cursor_));
}

void Parser::fail_at(const char* where, Errc code, std::string_view message) {
  cursor_ = where;
  fail(code, message);
}

bool Parser::consume(char c) {
  if (!next_is(c)) return false;
  ++cursor_;
  return true;
}

void Parser::skip_more() {
  skip_whitespace();
  if (options_.allow_comments) skip_comments();
}

// One or two bytes up to 0x20 of any kind go when a byte above follows; of longer runs only true whitespace goes.
void Parser::skip_whitespace() {
  if (!at_end() && is_above_space(*cursor_)) return;
  if (remaining() > 1 && is_above_space(cursor_[1])) {
    cursor_ += 1;
  } else if (remaining() > 2 && is_above_space(cursor_[2])) {
    cursor_ += 2;
  } else {
    while (!at_end() && is_whitespace(*cursor_)) ++cursor_;
  }
}

void Parser::skip_comments() {
  while (remaining() >= 2 && *cursor_ == '/' && (cursor_[1] == '/' || cursor_[1] == '*')) {
    skip_comment();
    skip_whitespace();
  }
}

// A block comment without an end leaves the input's last byte to be parsed.
void Parser::skip_comment() {
  const std::string_view rest(cursor_, remaining());
  if (rest[1] == '/') {
    const std::size_t line_end = rest.find('\n');
    cursor_ = line_end != rest.npos ? cursor_ + line_end + 1 : end_;
  } else {
    const std::size_t close = rest.find("*/", 2);
    cursor_ = close != rest.npos ? cursor_ + close + 2 : end_ - 1;
  }
}

Value Parser::document() {
  Value root;
  skip();
  parse_value(root);
  skip();
  if (!at_end()) fail(Errc::trailing_content, "unexpected trailing content");
  return root;
}

void Parser::parse_value(Value& out) {
  skip();
  if (at_end()) fail(Errc::unexpected_end, "unexpected end of input");
  const char first = *cursor_;
  if (first == '"' || (first == '\'' && options_.allow_single_quotes)) {
    const std::string_view text = parse_string();
    return fresh(out).assign(text, arena_);
  }
  if (first == '-' || is_digit(first)) return parse_number(out);
  if (first == '{') return parse_object(out);
  if (first == '[') return parse_array(out);
  parse_word(out);
}

void Parser::parse_word(Value& out) {
  if (*cursor_ == 't') {
    parse_literal("true");
    out.assign(true);
  } else if (*cursor_ == 'f') {
    parse_literal("false");
    out.assign(false);
  } else if (*cursor_ == 'n') {
    parse_literal("null");
  } else if (*cursor_ == 'N' && options_.allow_nan_inf) {
    parse_literal("NaN");
    out.assign(std::numeric_limits<double>::quiet_NaN());
  } else if (*cursor_ == 'I' && options_.allow_nan_inf) {
    parse_literal("Infinity");
    out.assign(std::numeric_limits<double>::infinity());
  } else {
    fail(Errc::unexpected_character, std::string("unexpected character '") + *cursor_ + "'");
  }
}

// One instance for each length: the comparison is then a few instructions instead of a call.
template <std::size_t size>
void Parser::parse_literal(const char (&word)[size]) {
  constexpr std::size_t length = size - 1;
  if (remaining() < length || std::memcmp(cursor_, word, length) != 0) {
    fail(Errc::invalid_literal, std::string("expected '") + word + "'");
  }
  cursor_ += length;
}

void Parser::open_container() {
  if (++depth_ > max_depth_) fail(Errc::depth_exceeded, "maximum nesting depth exceeded");
  ++cursor_;
}

void Parser::close_container() {
  --depth_;
  ++cursor_;
}

// Only for the outer containers of a longer input: the elements that begin within the next bytes, by their commas.
std::size_t Parser::capacity_ahead() const {
  if (depth_ > look_ahead_depth || remaining() < look_ahead_from) return least_capacity;
  const std::string_view ahead(cursor_, std::min(remaining(), look_ahead));
  std::size_t commas = 0;
  std::size_t nesting = 0;
  for (std::size_t i = 0; i < ahead.size(); ++i) {
    switch (ahead[i]) {
      case '[':
      case '{':
        ++nesting;
        break;
      case ']':
      case '}':
        if (nesting == 0) return std::max(commas + 1, least_capacity);
        --nesting;
        break;
      case ',':
        commas += nesting == 0 ? 1 : 0;
        break;
      case '"':
        i = closing_quote(ahead, i + 1);
        break;
      default:
        break;
    }
  }
  return std::max(commas + 1, least_capacity);
}

void Parser::parse_array(Value& out) {
  open_container();
  Array& elements = fresh(out).assign_array(arena_);
  skip();
  if (at_end()) fail(Errc::unterminated_array, "unterminated array");
  if (*cursor_ != ']') {
    elements.reserve(capacity_ahead());
    do {
      parse_value(elements.emplace_back());
    } while (array_goes_on());
  }
  close_container();
  if (frees_nothing_) out.mark_frees_nothing();
}

// After an element: true behind a comma, false on the closing bracket.
bool Parser::array_goes_on() {
  skip();
  if (at_end()) fail(Errc::unterminated_array, "unterminated array");
  if (*cursor_ == ']') return false;
  if (*cursor_ != ',') fail(Errc::unexpected_character, "expected ',' or ']' in array");
  ++cursor_;
  return !closes_after_comma(']');
}

bool Parser::closes_after_comma(char bracket) {
  if (!options_.allow_trailing_commas) return false;
  skip();
  return next_is(bracket);
}

void Parser::parse_object(Value& out) {
  open_container();
  Object& object = fresh(out).assign_object(arena_);
  skip();
  if (at_end()) fail(Errc::unterminated_object, "unterminated object");
  if (*cursor_ != '}') {
    object.reserve(capacity_ahead());
    do {
      parse_member(object);
    } while (object_goes_on());
  }
  close_container();
  object.drop_repeated_keys();
  if (frees_nothing_) out.mark_frees_nothing();
}

void Parser::parse_member(Object& object) {
  skip();
  const std::string_view key = parse_key();
  const bool repeated = !options_.allow_duplicate_keys && object.find(key) != nullptr;
  Value& value = object.append(key);
  skip();
  expect_colon();
  parse_value(value);
  if (repeated) fail(Errc::duplicate_key, "duplicate key: \"" + std::string(object.members().back().key()) + "\"");
}

// After a member: true behind a comma, false on the closing brace.
bool Parser::object_goes_on() {
  skip();
  if (at_end()) fail(Errc::unterminated_object, "unterminated object");
  if (*cursor_ == '}') return false;
  if (*cursor_ != ',') fail(Errc::unexpected_character, "expected ',' or '}' in object");
  ++cursor_;
  return !closes_after_comma('}');
}

std::string_view Parser::parse_key() {
  if (next_is('"') || (options_.allow_single_quotes && next_is('\''))) return parse_string();
  if (options_.allow_unquoted_keys && !at_end() && is_identifier_start(*cursor_)) return parse_identifier();
  fail(Errc::unterminated_object, "expected string key in object");
}

std::string_view Parser::parse_identifier() {
  if (at_end() || !is_identifier_start(*cursor_)) {
    fail(Errc::unexpected_character, "expected identifier for unquoted key");
  }
  const char* const start = cursor_;
  while (!at_end() && is_identifier_part(*cursor_)) ++cursor_;
  return {start, cursor_};
}

void Parser::expect_colon() {
  if (at_end()) fail(Errc::unexpected_end, "unexpected end of input");
  if (*cursor_ != ':') fail(Errc::unexpected_character, std::string("expected ':', got '") + *cursor_ + "'");
  ++cursor_;
}

// Most strings are short and plain: the first bytes already hold the closing quote, and nothing special before it.
inline std::string_view Parser::parse_string() {
  const char* const start = cursor_ + 1;
  if (*cursor_ == '"' && end_ - start >= static_cast<std::ptrdiff_t>(scan_width)) {
    const std::uint32_t found = special_bytes(start, '"');
    const int length = std::countr_zero(found);
    if (found != 0 && start[length] == '"') {
      cursor_ = start + length + 1;
      return {start, static_cast<std::size_t>(length)};
    }
  }
  return parse_any_string();
}

// A string without escapes is one run of the input. Its control characters matter only once it is known to be that.
std::string_view Parser::parse_any_string() {
  const char quote = *cursor_++;
  const char* const start = cursor_;
  const char* stop = find_special(start, end_, quote);
  const char* const control = stop;
  while (stop != end_ && is_control(*stop)) stop = find_special(stop + 1, end_, quote);
  if (stop == end_) fail_at(end_, Errc::unterminated_string, "unterminated string");
  cursor_ = stop;
  if (*stop == '\\') return parse_escaped_string(start, quote);
  if (stop != control && !options_.allow_control_chars) fail_control_character(control);
  ++cursor_;
  return {start, stop};
}

void Parser::fail_control_character(const char* where) {
  fail_at(where, Errc::invalid_escape, "unescaped control character in string");
}

// From the first backslash on. What stood before it is taken as it is, control characters included.
std::string_view Parser::parse_escaped_string(const char* start, char quote) {
  unescaped_.assign(start, cursor_);
  while (!at_end()) {
    if (consume(quote)) return unescaped_;
    if (consume('\\')) {
      append_escape();
    } else {
      append_run(quote);
    }
  }
  fail(Errc::unterminated_string, "unterminated string");
}

void Parser::append_run(char quote) {
  const char* const start = cursor_;
  cursor_ = find_special(start, end_, quote);
  while (!at_end() && is_control(*cursor_)) {
    if (!options_.allow_control_chars) fail_control_character(cursor_);
    cursor_ = find_special(cursor_ + 1, end_, quote);
  }
  unescaped_.append(start, cursor_);
}

void Parser::append_escape() {
  if (at_end()) fail(Errc::invalid_escape, "unterminated escape sequence");
  const char escape = *cursor_;
  if (escape == 'u') {
    ++cursor_;
    append_utf8(parse_code_point());
    return;
  }
  const char byte = escaped_byte(escape);
  if (byte == '\0') fail(Errc::invalid_escape, std::string("invalid escape '\\") + escape + "'");
  ++cursor_;
  unescaped_.push_back(byte);
}

// What a one-letter escape stands for; NUL if it is none.
char Parser::escaped_byte(char escape) const {
  switch (escape) {
    case '"':
    case '\\':
    case '/':
      return escape;
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case '\'':
      return options_.allow_single_quotes ? escape : '\0';
    default:
      return '\0';
  }
}

std::uint32_t Parser::parse_code_point() {
  const char* const start = cursor_;
  const std::uint32_t unit = parse_hex_unit();
  if (is_low_surrogate(unit)) fail_at(start, Errc::invalid_unicode_escape, "unexpected low surrogate");
  if (!is_high_surrogate(unit)) return unit;
  return 0x10000 + ((unit - 0xD800) << 10) + (parse_low_surrogate() - 0xDC00);
}

std::uint32_t Parser::parse_low_surrogate() {
  if (remaining() < 2 || cursor_[0] != '\\' || cursor_[1] != 'u') {
    fail(Errc::invalid_unicode_escape, "missing low surrogate");
  }
  cursor_ += 2;
  const char* const start = cursor_;
  const std::uint32_t unit = parse_hex_unit();
  if (!is_low_surrogate(unit)) fail_at(start, Errc::invalid_unicode_escape, "invalid low surrogate value");
  return unit;
}

std::uint32_t Parser::parse_hex_unit() {
  if (remaining() < 4) fail(Errc::invalid_unicode_escape, "incomplete unicode escape");
  std::uint32_t unit = 0;
  for (int i = 0; i < 4; ++i, ++cursor_) {
    const int digit = hex_digit(*cursor_);
    if (digit < 0) fail(Errc::invalid_unicode_escape, "invalid hex digit in unicode escape");
    unit = unit * 16 + static_cast<std::uint32_t>(digit);
  }
  return unit;
}

void Parser::append_utf8(std::uint32_t code_point) {
  const auto append = [&](std::uint32_t byte) { unescaped_.push_back(static_cast<char>(byte)); };
  const auto append_tail = [&](int shift) { append(0x80 | ((code_point >> shift) & 0x3F)); };
  if (code_point < 0x80) {
    append(code_point);
  } else if (code_point < 0x800) {
    append(0xC0 | (code_point >> 6));
    append_tail(0);
  } else if (code_point < 0x10000) {
    append(0xE0 | (code_point >> 12));
    append_tail(6);
    append_tail(0);
  } else {
    append(0xF0 | (code_point >> 18));
    append_tail(12);
    append_tail(6);
    append_tail(0);
  }
}

void Parser::parse_number(Value& out) {
  Decimal number;
  number.start = cursor_;
  number.negative = consume('-');
  if (number.negative && options_.allow_nan_inf && next_is('I')) {
    parse_literal("Infinity");
    return out.assign(-std::numeric_limits<double>::infinity());
  }
  if (options_.allow_hex_numbers && remaining() >= 2 && *cursor_ == '0' && (cursor_[1] | 0x20) == 'x') {
    cursor_ += 2;
    return parse_hex_number(number.negative, out);
  }
  read_integer_part(number);
  if (consume('.')) read_fraction(number);
  if (consume('e') || consume('E')) read_exponent(number);
  const bool stored = number.whole && !number.big && store_integer(number.negative, number.mantissa, out);
  if (!stored) out.assign(floating_value(number));
}

// False for a negative number below the signed range.
bool Parser::store_integer(bool negative, std::uint64_t magnitude, Value& out) {
  if (negative ? magnitude > sign_bit : magnitude >= sign_bit) {
    if (!negative) out.assign(magnitude);
    return !negative;
  }
  fresh(out).assign(static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude));
  return true;
}

void Parser::require_digit(std::string_view message) const {
  if (at_end() || !is_digit(*cursor_)) fail(Errc::invalid_number, message);
}

void Parser::skip_digits() {
  while (!at_end() && is_digit(*cursor_)) ++cursor_;
}

void Parser::read_integer_part(Decimal& number) {
  require_digit("invalid number");
  if (consume('0')) return;
  for (; !at_end() && is_digit(*cursor_); ++cursor_) {
    if (!number.has_room_for(*cursor_)) {
      number.big = true;
      skip_digits();
      return;
    }
    number.take(*cursor_);
  }
}

void Parser::read_fraction(Decimal& number) {
  require_digit("expected digit after decimal point");
  number.whole = false;
  for (; !at_end() && is_digit(*cursor_); ++cursor_) {
    if (number.significant_digits >= max_significant_digits) {
      number.inexact = true;
      skip_digits();
      return;
    }
    number.take(*cursor_);
    ++number.fraction_digits;
  }
}

void Parser::read_exponent(Decimal& number) {
  number.whole = false;
  const bool negative = next_is('-');
  if (negative || next_is('+')) ++cursor_;
  require_digit("expected digit in exponent");
  for (; !at_end() && is_digit(*cursor_); ++cursor_) {
    number.exponent = std::min(number.exponent * 10 + (*cursor_ - '0'), exponent_limit);
  }
  if (negative) number.exponent = -number.exponent;
}

// Short numbers by one exact power of ten, the rest by the C library.
double Parser::floating_value(const Decimal& number) const {
  const std::int64_t exponent = number.exponent - number.fraction_digits;
  const bool saturated = std::abs(number.exponent) == exponent_limit;
  if (number.big || number.inexact || saturated || std::abs(exponent) > largest_power) {
    return convert_by_library(number.start);
  }
  const double power = powers_of_ten[static_cast<std::size_t>(std::abs(exponent))];
  const auto mantissa = static_cast<double>(number.mantissa);
  const double magnitude = exponent < 0 ? mantissa / power : mantissa * power;
  return number.negative ? -magnitude : magnitude;
}

// strtod wants a terminated text.
double Parser::convert_by_library(const char* start) const {
  const auto length = static_cast<std::size_t>(cursor_ - start);
  std::array<char, 64> buffer;
  std::string long_text;
  const char* text = buffer.data();
  if (length < buffer.size()) {
    *std::copy(start, cursor_, buffer.data()) = '\0';
  } else {
    long_text.assign(start, cursor_);
    text = long_text.c_str();
  }
  char* converted = nullptr;
  const double value = std::strtod(text, &converted);
  if (converted != text + length) fail(Errc::invalid_number, "invalid number");
  return value;
}

void Parser::parse_hex_number(bool negative, Value& out) {
  if (at_end()) fail(Errc::invalid_number, "incomplete hex number");
  if (hex_digit(*cursor_) < 0) fail(Errc::invalid_number, "expected hex digit");
  std::uint64_t magnitude = 0;
  for (; !at_end() && hex_digit(*cursor_) >= 0; ++cursor_) {
    if (magnitude >> 60 != 0) fail(Errc::integer_overflow, "hex integer overflow");
    magnitude = magnitude << 4 | static_cast<std::uint64_t>(hex_digit(*cursor_));
  }
  if (!store_integer(negative, magnitude, out)) fail(Errc::integer_overflow, "hex integer overflow");
}

}  // namespace

Value parse(const char* text, std::size_t length, const ParseOptions& options) {
  return Parser(text, length, options).document();
}

ParseResult parse_nothrow(const char* text, std::size_t length, const ParseOptions& options) noexcept {
  try {
    return {parse(text, length, options), {}};
  } catch (const ParseError& error) {
    return {{}, error.code()};
  } catch (...) {
    return {{}, Errc::unexpected_character};
  }
}

}  // namespace yajson
