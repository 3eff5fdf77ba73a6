#include "yajson/serializer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

#include "yajson/object.h"
#include "yajson/scan.h"

namespace yajson {
namespace {

constexpr double largest_exact_integer = 9007199254740992.0;  // 2^53
constexpr int most_decimals = 9;
constexpr std::array<double, most_decimals + 1> powers_of_ten{1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
constexpr char hex_digits[] = "0123456789abcdef";
constexpr std::uint32_t replacement_character = 0xFFFD;

// One character of a text, or what stands for a decoding error, and the bytes that it took.
struct Decoded {
  std::uint32_t code_point = replacement_character;
  std::size_t length = 1;
};

// How many bytes a lead byte announces; 0 for a byte that cannot lead.
constexpr std::size_t sequence_length(unsigned char lead) {
  if (lead >= 0xC0 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF7) return 4;
  return 0;
}

constexpr bool is_encodable(std::uint32_t code_point, std::size_t length) {
  constexpr std::array<std::uint32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code_point >= 0xD800 && code_point <= 0xDFFF;
  return code_point >= least[length] && !surrogate && code_point <= 0x10FFFF;
}

// Requires: `text` begins with a byte from 0x80 on.
Decoded decode(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t length = sequence_length(byte(0));
  if (length == 0 || length > text.size()) return {};
  std::uint32_t code_point = byte(0) & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return {replacement_character, i};
    code_point = code_point << 6 | (byte(i) & 0x3F);
  }
  return {is_encodable(code_point, length) ? code_point : replacement_character, length};
}

// Writes through a buffer that spills into the result. Behind the buffer's capacity is room for one piece that begins
// within it: what is that short is written without asking again.
class Serializer {
 public:
  Serializer(const SerializeOptions& options, std::string& result) : options_(options), result_(result) {}

  void write_document(const Value& value) {
    write_value(value);
    spill();
  }

 private:
  static constexpr std::size_t capacity = 4096;
  static constexpr std::size_t piece = 32;

  // Where the next piece goes.
  char* room() {
    if (used_ >= capacity) spill();
    return buffer_.data() + used_;
  }
  void put(char c) {
    *room() = c;
    ++used_;
  }
  void put(std::string_view text);
  void spill();

  void write_value(const Value& value);
  template <class Integer>
  void write_integer(Integer number);

  void write_float(double number);
  void write_infinite(double number);
  void write_magnitude(double magnitude);
  void write_by_library(double magnitude);
  void write_with_decimals(std::string_view digits, std::size_t decimals);

  void write_string(std::string_view text);
  void write_string_with_escapes(std::string_view text);
  void write_escape(char c);
  void write_unicode_escape(std::uint32_t code_point);
  void write_unit_escape(std::uint32_t unit);
  std::string_view plain_run(std::string_view text) const;

  void write_array(const Array& elements);
  void write_object(const Object& object);
  void write_sorted(const Object& object);
  void write_member(const Member& member);
  void open(char bracket);
  void next(bool first);
  void close(char bracket);
  void new_line();
  bool pretty() const { return options_.indent >= 0; }

  const SerializeOptions& options_;
  std::string& result_;
  std::size_t level_ = 0;  // of indentation, in spaces
  std::size_t used_ = 0;
  std::array<char, capacity + piece> buffer_;
};

void Serializer::put(std::string_view text) {
  if (text.size() > buffer_.size() - used_) {
    spill();
    if (text.size() > buffer_.size()) {
      result_.append(text);
      return;
    }
  }
  std::memcpy(buffer_.data() + used_, text.data(), text.size());
  used_ += text.size();
}

void Serializer::spill() {
  result_.append(buffer_.data(), used_);
  used_ = 0;
}

void Serializer::write_value(const Value& value) {
  switch (value.type()) {
    case Type::null:
      put("null");
      break;
    case Type::boolean:
      put(value.as_bool() ? std::string_view("true") : std::string_view("false"));
      break;
    case Type::integer:
      write_integer(value.as_integer());
      break;
    case Type::uinteger:
      write_integer(value.as_uinteger());
      break;
    case Type::floating:
      write_float(value.as_number());
      break;
    case Type::string:
      write_string(value.as_string());
      break;
    case Type::array:
      write_array(value.as_array());
      break;
    case Type::object:
      write_object(value.as_object());
      break;
  }
}

template <class Integer>
void Serializer::write_integer(Integer number) {
  char* const digits = room();
  used_ += static_cast<std::size_t>(std::to_chars(digits, digits + piece, number).ptr - digits);
}

void Serializer::write_float(double number) {
  if (!std::isfinite(number)) {
    write_infinite(number);
  } else if (number == 0.0) {
    put("0.0");
  } else {
    if (number < 0) put('-');
    write_magnitude(std::abs(number));
  }
}

// NaN as well.
void Serializer::write_infinite(double number) {
  if (!options_.allow_nan_inf) {
    put("null");
  } else if (std::isnan(number)) {
    put("NaN");
  } else {
    put(number < 0 ? std::string_view("-Infinity") : std::string_view("Infinity"));
  }
}

// The shortest decimal point notation, if nine decimals are enough for one that reads back.
void Serializer::write_magnitude(double magnitude) {
  const bool whole = magnitude <= largest_exact_integer && magnitude == std::floor(magnitude);
  const bool extreme = !whole && (magnitude >= 1e15 || magnitude <= 1e-6);
  for (std::size_t decimals = whole ? 0 : 1; !extreme && decimals <= most_decimals; ++decimals) {
    const double scaled = magnitude * powers_of_ten[decimals];
    if (scaled > largest_exact_integer) break;
    if (scaled != std::floor(scaled)) continue;
    write_with_decimals(std::to_string(static_cast<std::uint64_t>(scaled)), decimals);
    return;
  }
  write_by_library(magnitude);
}

void Serializer::write_with_decimals(std::string_view digits, std::size_t decimals) {
  const std::size_t whole_digits = digits.size() - std::min(digits.size(), decimals);
  put(whole_digits > 0 ? digits.substr(0, whole_digits) : std::string_view("0"));
  put('.');
  for (std::size_t zeros = decimals; zeros > digits.size(); --zeros) put('0');
  put(decimals > 0 ? digits.substr(whole_digits) : std::string_view("0"));
}

void Serializer::write_by_library(double magnitude) {
  std::array<char, 32> text;
  const int length = std::snprintf(text.data(), text.size(), "%.17g", magnitude);
  const std::string_view written(text.data(), static_cast<std::size_t>(length));
  put(written);
  if (written.find_first_of(".e") == written.npos) put(".0");
}

// A string of up to 16 bytes without anything to escape, which most are, is copied and looked at in one step.
void Serializer::write_string(std::string_view text) {
  char* const start = room();
  if (text.size() > scan_width || options_.escape_unicode) return write_string_with_escapes(text);
  const std::uint32_t beyond = ~std::uint32_t{0} << text.size();
  if ((special_bytes(text.data(), '"') & ~beyond) != 0) return write_string_with_escapes(text);
  *start = '"';
  std::memcpy(start + 1, text.data(), scan_width);
  start[1 + text.size()] = '"';
  used_ += text.size() + 2;
}

void Serializer::write_string_with_escapes(std::string_view text) {
  put('"');
  while (true) {
    const std::string_view run = plain_run(text);
    put(run);
    text.remove_prefix(run.size());
    if (text.empty()) break;
    if (static_cast<unsigned char>(text.front()) >= 0x80) {
      const Decoded decoded = decode(text);
      write_unicode_escape(decoded.code_point);
      text.remove_prefix(decoded.length);
    } else {
      write_escape(text.front());
      text.remove_prefix(1);
    }
  }
  put('"');
}

// The bytes in front that are written as they are.
std::string_view Serializer::plain_run(std::string_view text) const {
  const char* const end = find_special(text.data(), text.data() + text.size(), '"');
  const std::string_view run(text.data(), end);
  if (!options_.escape_unicode) return run;
  const auto beyond_ascii = [](char c) { return static_cast<unsigned char>(c) >= 0x80; };
  return {run.begin(), std::find_if(run.begin(), run.end(), beyond_ascii)};
}

void Serializer::write_escape(char c) {
  switch (c) {
    case '"':
      put("\\\"");
      break;
    case '\\':
      put("\\\\");
      break;
    case '\b':
      put("\\b");
      break;
    case '\t':
      put("\\t");
      break;
    case '\n':
      put("\\n");
      break;
    case '\f':
      put("\\f");
      break;
    case '\r':
      put("\\r");
      break;
    default:
      write_unit_escape(static_cast<unsigned char>(c));
  }
}

void Serializer::write_unicode_escape(std::uint32_t code_point) {
  if (code_point < 0x10000) {
    write_unit_escape(code_point);
  } else {
    write_unit_escape(0xD800 + ((code_point - 0x10000) >> 10));
    write_unit_escape(0xDC00 + ((code_point - 0x10000) & 0x3FF));
  }
}

void Serializer::write_unit_escape(std::uint32_t unit) {
  const std::array<char, 6> escape{'\\',
                                   'u',
                                   hex_digits[unit >> 12],
                                   hex_digits[(unit >> 8) & 0xF],
                                   hex_digits[(unit >> 4) & 0xF],
                                   hex_digits[unit & 0xF]};
  put({escape.data(), escape.size()});
}

void Serializer::write_array(const Array& elements) {
  if (elements.empty()) return put("[]");
  open('[');
  for (const Value& element : elements) {
    next(&element == &elements.front());
    write_value(element);
  }
  close(']');
}

void Serializer::write_object(const Object& object) {
  if (object.size() == 0) return put("{}");
  open('{');
  if (options_.sort_keys) {
    write_sorted(object);
  } else {
    for (const Member& member : object.members()) {
      next(&member == &object.members().front());
      write_member(member);
    }
  }
  close('}');
}

void Serializer::write_sorted(const Object& object) {
  std::vector<const Member*> sorted;
  sorted.reserve(object.size());
  for (const Member& member : object.members()) sorted.push_back(&member);
  std::sort(sorted.begin(), sorted.end(), [](const Member* a, const Member* b) { return a->key() < b->key(); });
  for (const Member* member : sorted) {
    next(member == sorted.front());
    write_member(*member);
  }
}

void Serializer::write_member(const Member& member) {
  write_string(member.key());
  put(':');
  if (pretty()) put(' ');
  write_value(member.value);
}

void Serializer::open(char bracket) {
  put(bracket);
  if (pretty()) level_ += static_cast<std::size_t>(options_.indent);
}

// Before each element or member.
void Serializer::next(bool first) {
  if (!first) put(',');
  if (pretty()) new_line();
}

void Serializer::close(char bracket) {
  if (pretty()) {
    level_ -= static_cast<std::size_t>(options_.indent);
    new_line();
  }
  put(bracket);
}

void Serializer::new_line() {
  put('\n');
  for (std::size_t i = 0; i < level_; ++i) put(' ');
}

std::size_t estimate(const Value& value) {
  switch (value.type()) {
    case Type::array:
      return 64 * value.size() + 2;
    case Type::object:
      return 80 * value.size() + 2;
    case Type::string:
      return value.as_string().size() + 2;
    default:
      return 16;
  }
}

}  // namespace

std::string serialize(const Value& value, const SerializeOptions& options) {
  constexpr std::size_t worth_reserving = 4096;
  std::string result;
  if (const std::size_t expected = estimate(value); expected > worth_reserving) result.reserve(expected);
  Serializer(options, result).write_document(value);
  return result;
}

}  // namespace yajson
