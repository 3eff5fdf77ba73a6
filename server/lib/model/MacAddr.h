// A six-byte device address as the domain model uses it: the key of every record. A plain value.
#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <string>

namespace rrm {

class MacAddr {
 public:
  static constexpr std::size_t size = 6;
  // The locally-administered bit of the first byte: radios may beacon with it set or clear.
  static constexpr std::uint8_t local_bit = 0x02;

  constexpr MacAddr() = default;
  constexpr explicit MacAddr(const std::array<std::uint8_t, size>& bytes) : bytes_(bytes) {}

  // "%02x:%02x:%02x:%02x:%02x:%02x" as sscanf reads it; all zero unless six fields scan.
  static MacAddr parse(const char* text);

  // Upper-case hexadecimal with colons.
  std::string to_string() const;

  const std::array<std::uint8_t, size>& bytes() const { return bytes_; }
  bool is_zero() const { return bytes_ == std::array<std::uint8_t, size>{}; }

  // The address as a 48-bit number, the first byte the most significant.
  std::uint64_t to_number() const;
  static MacAddr from_number(std::uint64_t number);

  MacAddr with_local_bit_flipped() const;
  // Equal in all bytes when the local bit is ignored.
  bool equal_ignoring_local_bit(const MacAddr& other) const;
  // This address with the local bit of `other`.
  MacAddr rebased_on_local_bit_of(const MacAddr& other) const;

  // Adds an offset to the low 24 bits; a sum that wraps gives the address unchanged.
  MacAddr plus(std::int32_t offset) const;
  // True if this address lies in [start, start + count), as 48-bit numbers. A count below 1 holds nothing.
  bool in_pool(const MacAddr& start, std::int64_t count) const;

  // NOLINTNEXTLINE(modernize-use-nullptr): the check takes the 0 of the generated comparison for a null pointer.
  auto operator<=>(const MacAddr&) const = default;

 private:
  std::array<std::uint8_t, size> bytes_{};
};

struct MacAddrHash {
  std::size_t operator()(const MacAddr& mac) const noexcept;
};

}  // namespace rrm

template <>
struct std::hash<rrm::MacAddr> : rrm::MacAddrHash {};
