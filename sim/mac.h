// A MAC address of the simulated site. The simulator keeps its own type: it stands on the other side of the wire.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sim {

struct Mac {
  std::uint64_t value = 0;  // the six bytes, first byte highest

  bool operator==(const Mac&) const = default;
  bool operator<(const Mac& other) const { return value < other.value; }

  // The address `offset` further in the same pool.
  Mac plus(std::uint64_t offset) const { return {value + offset}; }

  // The same but perhaps for the locally-administered bit, which some radios flip in what they send.
  bool equals_up_to_local_bit(const Mac& other) const { return (value | local_bit) == (other.value | local_bit); }
  static constexpr std::uint64_t local_bit = 0x02ULL << 40U;

  // Lower case with colons.
  std::string text() const;

  // Six pairs of hexadecimal digits joined by colons, of either case.
  static std::optional<Mac> parse(const std::string& text);
};

}  // namespace sim
