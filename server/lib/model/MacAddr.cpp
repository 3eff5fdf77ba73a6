#include "model/MacAddr.h"

#include <cstdio>

namespace rrm {

namespace {

int hex_digit(char letter) {
  if (letter >= '0' && letter <= '9') return letter - '0';
  if (letter >= 'a' && letter <= 'f') return letter - 'a' + 10;
  if (letter >= 'A' && letter <= 'F') return letter - 'A' + 10;
  return -1;
}

// The usual notation, six pairs of digits; false for any other, of which sscanf may still make something.
bool parse_pairs(const char* text, std::array<std::uint8_t, MacAddr::size>& bytes) {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = hex_digit(*text);
    const int low = high < 0 ? -1 : hex_digit(text[1]);
    if (low < 0) return false;
    bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
    text += 2;
    if (i + 1 < bytes.size() && *text++ != ':') return false;
  }
  return true;
}

}  // namespace

MacAddr MacAddr::parse(const char* text) {
  std::array<std::uint8_t, size> bytes{};
  if (text != nullptr && parse_pairs(text, bytes)) return MacAddr(bytes);
  std::array<unsigned, size> fields{};
  if (text == nullptr || std::sscanf(text, "%02x:%02x:%02x:%02x:%02x:%02x", &fields[0], &fields[1], &fields[2],
                                     &fields[3], &fields[4], &fields[5]) != static_cast<int>(size)) {
    return {};
  }
  MacAddr mac;
  for (std::size_t i = 0; i < size; ++i) mac.bytes_[i] = static_cast<std::uint8_t>(fields[i]);
  return mac;
}

std::string MacAddr::to_string() const {
  static constexpr char digits[] = "0123456789ABCDEF";
  std::string text(size * 3 - 1, ':');
  for (std::size_t i = 0; i < size; ++i) {
    text[i * 3] = digits[bytes_[i] >> 4];
    text[i * 3 + 1] = digits[bytes_[i] & 0xF];
  }
  return text;
}

std::uint64_t MacAddr::to_number() const {
  std::uint64_t number = 0;
  for (const std::uint8_t byte : bytes_) number = (number << 8) | byte;
  return number;
}

MacAddr MacAddr::from_number(std::uint64_t number) {
  MacAddr mac;
  for (std::size_t i = size; i-- > 0; number >>= 8) mac.bytes_[i] = static_cast<std::uint8_t>(number);
  return mac;
}

MacAddr MacAddr::with_local_bit_flipped() const {
  MacAddr flipped = *this;
  flipped.bytes_[0] ^= local_bit;
  return flipped;
}

bool MacAddr::equal_ignoring_local_bit(const MacAddr& other) const {
  return *this == other || with_local_bit_flipped() == other;
}

MacAddr MacAddr::rebased_on_local_bit_of(const MacAddr& other) const {
  const bool same = ((bytes_[0] ^ other.bytes_[0]) & local_bit) == 0;
  return same ? *this : with_local_bit_flipped();
}

MacAddr MacAddr::plus(std::int32_t offset) const {
  constexpr std::uint32_t low_mask = 0xFFFFFF;
  const std::uint64_t number = to_number();
  const auto low = static_cast<std::uint32_t>(number) & low_mask;
  const std::uint32_t sum = (low + static_cast<std::uint32_t>(offset)) & low_mask;
  if (sum < low) return *this;
  return from_number((number & ~std::uint64_t{low_mask}) | sum);
}

bool MacAddr::in_pool(const MacAddr& start, std::int64_t count) const {
  if (count < 1) return false;
  const std::uint64_t first = start.to_number();
  const std::uint64_t number = to_number();
  return first <= number && number < first + static_cast<std::uint64_t>(count);
}

std::size_t MacAddrHash::operator()(const MacAddr& mac) const noexcept {
  const auto& b = mac.bytes();
  const auto little_endian = [&](std::size_t low) { return std::size_t{b[low]} | (std::size_t{b[low + 1]} << 8); };
  return (little_endian(0) ^ (std::size_t{b[2]} << 4)) + (little_endian(3) ^ (std::size_t{b[5]} << 4));
}

}  // namespace rrm
