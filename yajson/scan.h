// The inner loop of reading and of writing strings: where is the next byte that needs more than copying?
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace yajson {

constexpr std::size_t scan_width = 16;

constexpr bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20;
}
constexpr bool is_special(char c, char quote) {
  return c == quote || c == '\\' || is_control(c);
}

// Which of the `scan_width` bytes at `from` are a quote, a backslash or a control character: bit 0 is the first.
inline std::uint32_t special_bytes(const char* from, char quote) {
#if defined(__SSE2__)
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
  const __m128i last_control = _mm_set1_epi8(0x1F);
  const __m128i control = _mm_cmpeq_epi8(_mm_max_epu8(bytes, last_control), last_control);
  const __m128i quotes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(quote));
  const __m128i backslashes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
  return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_or_si128(control, _mm_or_si128(quotes, backslashes))));
#else
  std::uint32_t found = 0;
  for (std::size_t i = 0; i < scan_width; ++i) found |= static_cast<std::uint32_t>(is_special(from[i], quote)) << i;
  return found;
#endif
}

// The first such byte in [from, end), or `end`.
inline const char* find_special(const char* from, const char* end, char quote) {
  for (; end - from >= static_cast<std::ptrdiff_t>(scan_width); from += scan_width) {
    const std::uint32_t found = special_bytes(from, quote);
    if (found != 0) return from + std::countr_zero(found);
  }
  while (from != end && !is_special(*from, quote)) ++from;
  return from;
}

}  // namespace yajson
