#include "zal/MacAddr.h"

#include <cstdio>

namespace zal {

namespace {

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::uint64_t little_endian_16(std::uint8_t low, std::uint8_t high) {
  return std::uint64_t{low} | std::uint64_t{high} << 8;
}

}  // namespace

MacAddr MacAddr::from_str(std::string_view text) {
  const bool with_colons = text.size() == 3 * size - 1;
  if (!with_colons && text.size() != 2 * size) return {};
  const std::size_t step = with_colons ? 3 : 2;
  std::array<std::uint8_t, size> bytes{};
  for (std::size_t i = 0; i < size; ++i) {
    const int high = hex_digit(text[step * i]);
    const int low = hex_digit(text[step * i + 1]);
    if (high < 0 || low < 0) return {};
    if (with_colons && i + 1 < size && text[step * i + 2] != ':') return {};
    bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return MacAddr(bytes);
}

std::string MacAddr::to_string() const {
  char text[3 * size];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1], bytes_[2], bytes_[3],
                bytes_[4], bytes_[5]);
  return text;
}

}  // namespace zal

std::size_t std::hash<zal::MacAddr>::operator()(const zal::MacAddr& mac) const noexcept {
  const auto& bytes = mac.bytes();
  const std::uint64_t a = zal::little_endian_16(bytes[0], bytes[1]);
  const std::uint64_t b = zal::little_endian_16(bytes[3], bytes[4]);
  return (a ^ (std::uint64_t{bytes[2]} << 4)) + (b ^ (std::uint64_t{bytes[5]} << 4));
}
