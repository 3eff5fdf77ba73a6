#include "yajson/key_hash.h"

#include <bit>
#include <cstddef>
#include <cstring>

namespace yajson {
namespace {

static_assert(std::endian::native == std::endian::little, "the hash reads its words little-endian");

constexpr std::uint64_t p0 = 0xa0761d6478bd642f;
constexpr std::uint64_t p1 = 0xe7037ed1a0b428db;

template <class Word>
std::uint64_t load(const char* from) {
  Word word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// Up to three bytes spread over one word: the last, the middle and the first.
std::uint64_t load_few(const char* p, std::size_t n) {
  const auto byte = [&](std::size_t i) { return std::uint64_t{static_cast<unsigned char>(p[i])}; };
  return byte(n - 1) | (byte(0) << 16) | (byte(n / 2) << 8);
}

std::uint64_t mix(std::uint64_t h, std::uint64_t a, std::uint64_t b) {
  return ((h ^ a) * p1) ^ b;
}

std::uint64_t mix_short(std::uint64_t h, const char* p, std::size_t n) {
  if (n >= 4) return mix(h, load<std::uint32_t>(p), load<std::uint32_t>(p + n - 4));
  return mix(h, n > 0 ? load_few(p, n) : 0, 0);
}

std::uint64_t mix_long(std::uint64_t h, const char* p, std::size_t n) {
  const char* const last = p + n - 16;
  for (const char* q = p; q <= last; q += 16) {
    h = mix(h, load<std::uint64_t>(q), load<std::uint64_t>(q + 8)) * p0;
  }
  return mix(h, load<std::uint64_t>(last), load<std::uint64_t>(last + 8));
}

std::uint64_t finish(std::uint64_t m) {
  const std::uint64_t t = m * p0;
  const std::uint64_t r = (t ^ (t >> 32)) * p0;
  return r ^ (r >> 29);
}

}  // namespace

std::uint64_t hash_key(std::string_view key) noexcept {
  const char* p = key.data();
  const std::size_t n = key.size();
  const std::uint64_t h = (n * p1) ^ p0;
  if (n <= 8) return finish(mix_short(h, p, n));
  if (n <= 16) return finish(mix(h, load<std::uint64_t>(p), load<std::uint64_t>(p + n - 8)));
  return finish(mix_long(h, p, n));
}

}  // namespace yajson
