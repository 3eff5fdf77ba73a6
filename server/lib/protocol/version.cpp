#include "protocol/version.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "json/JsonReader.h"
#include "protocol/keys.h"

namespace rrm::protocol {
namespace {

bool is_blank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// One "%d", which moves the text on.
std::optional<int> scan_int(const char*& text) {
  while (is_blank(*text)) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  if (!is_digit(*text)) return std::nullopt;
  constexpr std::int64_t highest = std::numeric_limits<int>::max();
  std::int64_t number = 0;
  for (; is_digit(*text); ++text) number = std::min(number * 10 + (*text - '0'), highest);
  return static_cast<int>(negative ? -number : number);
}

}  // namespace

std::optional<Version> scan_version(const char* text) {
  const std::optional<int> major_number = scan_int(text);
  if (!major_number || *text != '.') return std::nullopt;
  ++text;
  const std::optional<int> minor_number = scan_int(text);
  if (!minor_number) return std::nullopt;
  return Version{*major_number, *minor_number};
}

bool check_version(const JsonReader& message, const char* reference) {
  const auto spoken = scan_version(message.get_string(key::version));
  const auto known = scan_version(reference);
  return spoken && known && spoken->major_number == known->major_number && spoken->minor_number <= known->minor_number;
}

}  // namespace rrm::protocol
