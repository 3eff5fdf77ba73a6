// A device address as the controller's interfaces carry it: six bytes and a flag that tells whether the text it was
// made from was an address at all. An invalid address is all zero. Order and equality look at the bytes alone. A plain
// value.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace zal {

class MacAddr {
 public:
  static constexpr std::size_t size = 6;

  // Invalid, all zero.
  constexpr MacAddr() = default;
  constexpr explicit MacAddr(const std::array<std::uint8_t, size>& bytes) : bytes_(bytes), valid_(true) {}

  // Exactly 17 characters with a colon after each pair, or exactly 12 hexadecimal digits, of either case. Anything else
  // gives an invalid address.
  static MacAddr from_str(std::string_view text);

  bool is_valid() const { return valid_; }
  const std::array<std::uint8_t, size>& bytes() const { return bytes_; }
  // Lower-case hexadecimal with colons.
  std::string to_string() const;

  bool operator==(const MacAddr& other) const { return bytes_ == other.bytes_; }
  auto operator<=>(const MacAddr& other) const { return bytes_ <=> other.bytes_; }

 private:
  std::array<std::uint8_t, size> bytes_{};
  bool valid_ = false;
};

}  // namespace zal

template <>
struct std::hash<zal::MacAddr> {
  std::size_t operator()(const zal::MacAddr& mac) const noexcept;
};
