// Channels as pieces of spectrum: which megahertz a transmission occupies and how much of it two of them share.
//
// Channel numbers are those of IEEE Std 802.11: the centre of a 20 MHz channel lies at 2407 MHz + 5 x number in the
// 2.4 GHz band (channel 14 at 2484 MHz), at 5000 MHz + 5 x number in the 5 GHz band and at 5950 MHz + 5 x number in the
// 6 GHz band. Wide channels are the blocks that the standard's tables E-4 allow: 42, 58, ... 155 for 80 MHz at 5 GHz,
// 7, 23, ... 215 for 80 MHz at 6 GHz, and so on.
#pragma once

#include <optional>
#include <string>

namespace sim {

struct Interval {
  double low_mhz = 0;
  double high_mhz = 0;

  double width_mhz() const { return high_mhz - low_mhz; }
  double centre_mhz() const { return (low_mhz + high_mhz) / 2; }
  bool operator==(const Interval&) const = default;
};

// Where the primary 20 MHz channel lies in its block. The names are the protocol's: "lower" and "upper" for 40, 160 and
// 320 MHz, "ll", "lu", "ul" and "uu" for the four quarters of 80 MHz, "none" for 20 MHz.
struct ChannelBlock {
  int centre_channel = 0;
  Interval spectrum;
  std::string primary;
};

// The block that a radio occupies; nothing when the band has no such channel or the channel no block of that width.
// `primary` matters at 2.4 GHz and 40 MHz only, where the secondary channel may lie above ("lower") or below ("upper").
std::optional<ChannelBlock> channel_block(int band, int channel, int bandwidth_mhz, const std::string& primary);

// The share of the transmission's spectrum that falls into the receiver's channel, 0 to 1.
double overlap_fraction(const Interval& transmission, const Interval& receiver);

bool is_band(int band);

// "2.4 GHz", "5 GHz", "6 GHz".
std::string band_name(int band);

}  // namespace sim
