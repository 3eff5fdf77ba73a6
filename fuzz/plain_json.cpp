#include "fuzz/plain_json.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <utility>

namespace zal::fuzz {

namespace {

using Kind = PlainValue::Kind;

constexpr std::uint64_t top_bit = 1ULL << 63;
constexpr int most_exponent = 400;  // stands for any beyond

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool starts_identifier(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '$';
}

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20;
}

// The worth of a hex digit, -1 of any other byte.
int hex_worth(char c) {
  const std::size_t lower = std::string_view("0123456789abcdef").find(c);
  if (lower != std::string_view::npos) return static_cast<int>(lower);
  const std::size_t upper = std::string_view("0123456789ABCDEF").find(c);
  return upper == std::string_view::npos ? -1 : static_cast<int>(upper);
}

std::string utf8(unsigned long code) {
  const auto tail = [code](int shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
  if (code < 0x80) return {static_cast<char>(code)};
  if (code < 0x800) return {static_cast<char>(0xC0 | (code >> 6)), tail(0)};
  if (code < 0x10000) return {static_cast<char>(0xE0 | (code >> 12)), tail(6), tail(0)};
  return {static_cast<char>(0xF0 | (code >> 18)), tail(12), tail(6), tail(0)};
}

PlainValue a_string(std::string text) {
  PlainValue value;
  value.kind = Kind::string;
  value.text = std::move(text);
  return value;
}

PlainValue a_float(double number) {
  PlainValue value;
  value.kind = Kind::floating;
  value.number = number;
  return value;
}

// Exact up to 10^22.
double power_of_ten(int power) {
  double result = 1;
  for (int i = 0; i < power; ++i) result *= 10;
  return result;
}

PlainValue a_whole_number(std::uint64_t magnitude, bool is_negative) {
  PlainValue value;
  value.kind = !is_negative && magnitude >= top_bit ? Kind::uinteger : Kind::integer;
  if (value.kind == Kind::uinteger) {
    value.uinteger = magnitude;
  } else {
    value.integer = static_cast<std::int64_t>(is_negative ? 0 - magnitude : magnitude);
  }
  return value;
}

// The digits of a decimal number as they are met.
struct Decimal {
  std::uint64_t mantissa = 0;
  int significant = 0;  // digits of the mantissa, from the first that is not 0
  int fraction_digits = 0;
  int exponent = 0;
  bool is_negative = false;
  bool is_whole = true;
  bool is_big = false;
  bool is_inexact = false;

  void take(char digit) {
    const auto worth = static_cast<std::uint64_t>(digit - '0');
    if (mantissa > (std::numeric_limits<std::uint64_t>::max() - worth) / 10) is_big = true;
    if (is_big) return;
    mantissa = mantissa * 10 + worth;
    if (mantissa != 0) ++significant;
  }

  void take_fraction(char digit) {
    if (significant >= 19) is_inexact = true;
    if (is_big || is_inexact) return;
    take(digit);
    ++fraction_digits;
  }
};

class PlainReader {
 public:
  PlainReader(std::string_view text, const PlainRules& rules) : text_(text), rules_(rules) {}

  PlainResult read() {
    try {
      skip();
      PlainValue value = read_value();
      skip();
      if (!at_end()) fail(9, "unexpected trailing content");
      return {std::move(value), std::nullopt};
    } catch (const PlainError& error) {
      return {PlainValue(), error};
    }
  }

 private:
  [[noreturn]] void fail(int code, const std::string& message) const { fail_at(at_, code, message); }

  [[noreturn]] void fail_at(std::size_t offset, int code, const std::string& message) const {
    PlainError error{code, message, offset, 1, 1};
    for (std::size_t i = 0; i < offset; ++i) {
      error.column = text_[i] == '\n' ? 1 : error.column + 1;
      error.line += text_[i] == '\n' ? 1 : 0;
    }
    throw error;
  }

  bool at_end() const { return at_ >= text_.size(); }
  bool is(char c) const { return !at_end() && text_[at_] == c; }
  bool is_followed_by(std::string_view word) const { return text_.substr(at_).starts_with(word); }
  bool is_visible(std::size_t place) const {
    return place < text_.size() && static_cast<unsigned char>(text_[place]) > 0x20;
  }

  bool take(char c) {
    if (!is(c)) return false;
    ++at_;
    return true;
  }

  // One or two bytes of any kind up to a blank are skipped before a visible one, else whitespace.
  void skip_whitespace() {
    for (std::size_t ahead = 0; ahead <= 2; ++ahead) {
      if (is_visible(at_ + ahead)) {
        at_ += ahead;
        return;
      }
    }
    while (is('\t') || is('\n') || is('\r') || is(' ')) ++at_;
  }

  void skip() {
    skip_whitespace();
    while (rules_.comments && (is_followed_by("//") || is_followed_by("/*"))) {
      const bool is_line = is_followed_by("//");
      const std::string_view end = is_line ? "\n" : "*/";
      const std::size_t close = text_.find(end, at_ + 2);
      const std::size_t without_end = is_line ? text_.size() : text_.size() - 1;  // its last byte is no comment
      at_ = close == std::string_view::npos ? without_end : close + end.size();
      skip_whitespace();
    }
  }

  PlainValue read_value() {
    skip();
    if (at_end()) fail(1, "unexpected end of input");
    const char c = text_[at_];
    if (c == '"' || (c == '\'' && rules_.single_quotes)) return a_string(read_string());
    if (c == '-' || is_digit(c)) return read_number();
    if (c == '[') return read_array();
    if (c == '{') return read_object();
    if (c == 't') return read_literal("true", a_truth(true));
    if (c == 'f') return read_literal("false", a_truth(false));
    if (c == 'n') return read_literal("null", PlainValue());
    if (c == 'N' && rules_.nan_inf) return read_literal("NaN", a_float(std::nan("")));
    if (c == 'I' && rules_.nan_inf) return read_literal("Infinity", a_float(HUGE_VAL));
    fail(2, std::string("unexpected character '") + c + "'");
  }

  static PlainValue a_truth(bool truth) {
    PlainValue value;
    value.kind = Kind::boolean;
    value.truth = truth;
    return value;
  }

  PlainValue read_literal(std::string_view word, PlainValue value) {
    if (!is_followed_by(word)) fail(11, "expected '" + std::string(word) + "'");
    at_ += word.size();
    return value;
  }

  // At the opening bracket.
  void enter() {
    if (depth_ >= rules_.max_depth) fail(10, "maximum nesting depth exceeded");
    ++depth_;
    ++at_;
  }

  PlainValue leave(PlainValue value) {
    --depth_;
    return value;
  }

  PlainValue read_array() {
    PlainValue array;
    array.kind = Kind::array;
    enter();
    skip();
    if (at_end()) fail(7, "unterminated array");
    if (take(']')) return leave(std::move(array));
    for (;;) {
      array.elements.push_back(read_value());
      skip();
      if (at_end()) fail(7, "unterminated array");
      if (take(']')) return leave(std::move(array));
      if (!take(',')) fail(2, "expected ',' or ']' in array");
      if (is_closed_behind_comma(']')) return leave(std::move(array));
    }
  }

  bool is_closed_behind_comma(char close) {
    if (!rules_.trailing_commas) return false;
    skip();
    return take(close);
  }

  PlainValue read_object() {
    PlainValue object;
    object.kind = Kind::object;
    enter();
    skip();
    if (at_end()) fail(8, "unterminated object");
    if (take('}')) return leave(std::move(object));
    for (;;) {
      read_member(object);
      skip();
      if (at_end()) fail(8, "unterminated object");
      if (take('}')) break;
      if (!take(',')) fail(2, "expected ',' or '}' in object");
      if (is_closed_behind_comma('}')) break;
    }
    return leave(without_repeats(object));
  }

  void read_member(PlainValue& object) {
    skip();
    const std::string key = read_key();
    skip();
    if (at_end()) fail(1, "unexpected end of input");
    if (!is(':')) fail(2, std::string("expected ':', got '") + text_[at_] + "'");
    ++at_;
    PlainValue value = read_value();
    for (const std::string& earlier : object.keys) {
      if (earlier == key && !rules_.duplicate_keys) fail(12, "duplicate key: \"" + key + "\"");
    }
    object.keys.push_back(key);
    object.elements.push_back(std::move(value));
  }

  std::string read_key() {
    if (is('"') || (is('\'') && rules_.single_quotes)) return read_string();
    if (at_end() || !rules_.unquoted_keys || !starts_identifier(text_[at_])) fail(8, "expected string key in object");
    std::string key;
    while (!at_end() && (starts_identifier(text_[at_]) || is_digit(text_[at_]))) key += text_[at_++];
    return key;
  }

  // The last member of a name stays, where it stands.
  static PlainValue without_repeats(const PlainValue& object) {
    PlainValue result;
    result.kind = Kind::object;
    for (std::size_t i = 0; i < object.keys.size(); ++i) {
      bool is_repeated = false;
      for (std::size_t j = i + 1; j < object.keys.size(); ++j) is_repeated |= object.keys[j] == object.keys[i];
      if (is_repeated) continue;
      result.keys.push_back(object.keys[i]);
      result.elements.push_back(object.elements[i]);
    }
    return result;
  }

  // At the opening quote. Control bytes before the first escape are refused only if there is none.
  std::string read_string() {
    const char quote = text_[at_++];
    const std::size_t begin = at_;
    std::string result;
    while (!at_end() && !is(quote) && !is('\\')) result += text_[at_++];
    if (at_end()) fail(6, "unterminated string");
    if (is(quote)) refuse_control_chars(begin, at_);
    while (!is(quote)) {
      if (at_end()) fail(6, "unterminated string");
      if (is('\\')) {
        result += read_escape();
      } else {
        refuse_control_chars(at_, at_ + 1);
        result += text_[at_++];
      }
    }
    ++at_;
    return result;
  }

  void refuse_control_chars(std::size_t begin, std::size_t end) const {
    for (std::size_t i = begin; i < end && !rules_.control_chars; ++i) {
      if (is_control(text_[i])) fail_at(i, 3, "unescaped control character in string");
    }
  }

  std::string read_escape() {
    ++at_;
    if (at_end()) fail(3, "unterminated escape sequence");
    const char c = text_[at_];
    if (c == '\'' && !rules_.single_quotes) fail(3, "invalid escape '\\''");
    if (take('u')) return read_unicode_escape();
    const std::size_t place = std::string_view("\"\\/bfnrt'").find(c);
    if (place == std::string_view::npos) fail(3, std::string("invalid escape '\\") + c + "'");
    ++at_;
    return {"\"\\/\b\f\n\r\t'"[place]};
  }

  std::string read_unicode_escape() {
    const std::size_t begin = at_;
    const unsigned long unit = read_four_hex_digits();
    if (unit >= 0xDC00 && unit <= 0xDFFF) fail_at(begin, 4, "unexpected low surrogate");
    if (unit < 0xD800 || unit > 0xDBFF) return utf8(unit);
    if (!is_followed_by("\\u")) fail(4, "missing low surrogate");
    at_ += 2;
    const std::size_t low_begin = at_;
    const unsigned long low = read_four_hex_digits();
    if (low < 0xDC00 || low > 0xDFFF) fail_at(low_begin, 4, "invalid low surrogate value");
    return utf8(0x10000 + (unit - 0xD800) * 0x400 + (low - 0xDC00));
  }

  unsigned long read_four_hex_digits() {
    if (text_.size() - at_ < 4) fail(4, "incomplete unicode escape");
    unsigned long unit = 0;
    for (int i = 0; i < 4; ++i) {
      const int worth = hex_worth(text_[at_]);
      if (worth < 0) fail(4, "invalid hex digit in unicode escape");
      unit = unit * 16 + static_cast<unsigned long>(worth);
      ++at_;
    }
    return unit;
  }

  PlainValue read_number() {
    const std::size_t begin = at_;
    const bool is_negative = take('-');
    if (is_negative && is('I') && rules_.nan_inf) return read_literal("Infinity", a_float(-HUGE_VAL));
    if (rules_.hex_numbers && (is_followed_by("0x") || is_followed_by("0X"))) return read_hex_number(is_negative);
    if (at_end() || !is_digit(text_[at_])) fail(5, "invalid number");
    Decimal decimal;
    decimal.is_negative = is_negative;
    read_whole_part(decimal);
    read_fraction(decimal);
    read_exponent(decimal);
    return value_of(decimal, std::string(text_.substr(begin, at_ - begin)));
  }

  PlainValue read_hex_number(bool is_negative) {
    at_ += 2;
    if (at_end()) fail(5, "incomplete hex number");
    if (hex_worth(text_[at_]) < 0) fail(5, "expected hex digit");
    std::uint64_t magnitude = 0;
    for (; !at_end() && hex_worth(text_[at_]) >= 0; ++at_) {
      if (magnitude >> 60 != 0) fail(53, "hex integer overflow");
      magnitude = magnitude * 16 + static_cast<std::uint64_t>(hex_worth(text_[at_]));
    }
    if (is_negative && magnitude > top_bit) fail(53, "hex integer overflow");
    return a_whole_number(magnitude, is_negative);
  }

  void read_whole_part(Decimal& decimal) {
    if (take('0')) return;
    while (!at_end() && is_digit(text_[at_])) decimal.take(text_[at_++]);
  }

  void read_fraction(Decimal& decimal) {
    if (!take('.')) return;
    decimal.is_whole = false;
    if (at_end() || !is_digit(text_[at_])) fail(5, "expected digit after decimal point");
    while (!at_end() && is_digit(text_[at_])) decimal.take_fraction(text_[at_++]);
  }

  void read_exponent(Decimal& decimal) {
    if (!take('e') && !take('E')) return;
    decimal.is_whole = false;
    const bool is_negative = is('-');
    if (!take('-')) take('+');
    if (at_end() || !is_digit(text_[at_])) fail(5, "expected digit in exponent");
    while (!at_end() && is_digit(text_[at_])) {
      decimal.exponent = std::min(most_exponent, decimal.exponent * 10 + (text_[at_++] - '0'));
    }
    if (is_negative) decimal.exponent = -decimal.exponent;
  }

  static PlainValue value_of(const Decimal& decimal, const std::string& token) {
    if (decimal.is_big) return a_float(std::strtod(token.c_str(), nullptr));
    const bool fits = !decimal.is_negative || decimal.mantissa <= top_bit;
    if (decimal.is_whole && fits) return a_whole_number(decimal.mantissa, decimal.is_negative);
    const int power = decimal.exponent - decimal.fraction_digits;
    const bool is_known = !decimal.is_inexact && std::abs(decimal.exponent) != most_exponent;
    if (!is_known || power < -22 || power > 22) return a_float(std::strtod(token.c_str(), nullptr));
    const auto mantissa = static_cast<double>(decimal.mantissa);
    const double magnitude = power < 0 ? mantissa / power_of_ten(-power) : mantissa * power_of_ten(power);
    return a_float(decimal.is_negative ? -magnitude : magnitude);
  }

  const std::string_view text_;
  const PlainRules& rules_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
};

}  // namespace

PlainResult read_plain_json(std::string_view text, const PlainRules& rules) {
  return PlainReader(text, rules).read();
}

}  // namespace zal::fuzz
