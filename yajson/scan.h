// The inner loop of reading and of writing strings: where is the next byte that needs more than copying?
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace yajson {

constexpr bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20;
}

// The high bit of each byte of `word` that is zero; bytes above the first such byte may be marked as well.
constexpr std::uint64_t mark_zero_bytes(std::uint64_t word) {
  return (word - 0x0101010101010101) & ~word & 0x8080808080808080;
}

// The first quote, backslash or control byte in [from, end), or `end`. Looks at eight bytes a step.
inline const char* find_special(const char* from, const char* end, char quote) {
  const std::uint64_t quotes = 0x0101010101010101 * static_cast<unsigned char>(quote);
  constexpr std::uint64_t backslashes = 0x0101010101010101 * static_cast<unsigned char>('\\');
  constexpr std::uint64_t spaces = 0x0101010101010101 * static_cast<unsigned char>(' ');
  for (; end - from >= 8; from += 8) {
    std::uint64_t word;
    std::memcpy(&word, from, sizeof word);
    const std::uint64_t below_space = (word - spaces) & ~word & 0x8080808080808080;
    const std::uint64_t marks = below_space | mark_zero_bytes(word ^ quotes) | mark_zero_bytes(word ^ backslashes);
    if (marks != 0) return from + std::countr_zero(marks) / 8;
  }
  while (from != end && *from != quote && *from != '\\' && !is_control(*from)) ++from;
  return from;
}

}  // namespace yajson
