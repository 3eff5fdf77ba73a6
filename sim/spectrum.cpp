#include "sim/spectrum.h"

#include <algorithm>
#include <array>

namespace sim {
namespace {

constexpr int channel_spacing_mhz = 5;
constexpr int step20 = 4;  // channel numbers between neighbouring 20 MHz channels at 5 and 6 GHz

struct ChannelGroup {
  int band;
  int first;
  int last;
};

// Runs of adjacent 20 MHz channels in which wide channels are formed.
constexpr std::array<ChannelGroup, 4> groups = {{{5, 36, 64}, {5, 100, 144}, {5, 149, 177}, {6, 1, 233}}};

int band_start_mhz(int band) {
  return band == 2 ? 2407 : band == 5 ? 5000 : 5950;
}

int centre_mhz(int band, int channel) {
  return band == 2 && channel == 14 ? 2484 : band_start_mhz(band) + channel * channel_spacing_mhz;
}

Interval around(int band, int centre_channel, int bandwidth_mhz) {
  const double centre = centre_mhz(band, centre_channel);
  return {centre - bandwidth_mhz / 2.0, centre + bandwidth_mhz / 2.0};
}

ChannelBlock block_around(int band, int centre_channel, int bandwidth_mhz, const std::string& primary) {
  return {centre_channel, around(band, centre_channel, bandwidth_mhz), primary};
}

std::optional<ChannelBlock> block_at_2g(int channel, int bandwidth_mhz, const std::string& primary) {
  if (channel < 1 || channel > 14) {
    return std::nullopt;
  }
  if (bandwidth_mhz == 20) {
    return block_around(2, channel, 20, "none");
  }
  const bool upper = primary == "upper";
  const int centre = upper ? channel - 2 : channel + 2;
  if (bandwidth_mhz != 40 || centre < 3 || centre > 11) {
    return std::nullopt;
  }
  return block_around(2, centre, 40, upper ? "upper" : "lower");
}

const ChannelGroup* group_of(int band, int channel) {
  const auto holds = [&](const ChannelGroup& group) {
    return group.band == band && channel >= group.first && channel <= group.last &&
           (channel - group.first) % step20 == 0;
  };
  const auto* const found = std::find_if(groups.begin(), groups.end(), holds);
  return found == groups.end() ? nullptr : found;
}

std::string position_in_block(int index, int count) {
  static constexpr std::array<const char*, 4> quarters = {"ll", "lu", "ul", "uu"};
  if (count == 1) {
    return "none";
  }
  return count == 4 ? quarters[static_cast<std::size_t>(index)] : index < count / 2 ? "lower" : "upper";
}

}  // namespace

std::optional<ChannelBlock> channel_block(int band, int channel, int bandwidth_mhz, const std::string& primary) {
  if (band == 2) {
    return block_at_2g(channel, bandwidth_mhz, primary);
  }
  const ChannelGroup* const group = group_of(band, channel);
  const int widest = band == 6 ? 320 : 160;
  const bool known_width =
      bandwidth_mhz == 20 || bandwidth_mhz == 40 || bandwidth_mhz == 80 || bandwidth_mhz == 160 || bandwidth_mhz == 320;
  if (group == nullptr || !known_width || bandwidth_mhz > widest) {
    return std::nullopt;
  }
  const int count = bandwidth_mhz / 20;
  const int index = (channel - group->first) / step20;
  const int first = group->first + index / count * count * step20;
  const int last = first + (count - 1) * step20;
  if (last > group->last) {
    return std::nullopt;
  }
  return block_around(band, (first + last) / 2, bandwidth_mhz, position_in_block(index % count, count));
}

double overlap_fraction(const Interval& transmission, const Interval& receiver) {
  const double shared =
      std::min(transmission.high_mhz, receiver.high_mhz) - std::max(transmission.low_mhz, receiver.low_mhz);
  return shared <= 0 ? 0 : shared / transmission.width_mhz();
}

bool is_band(int band) {
  return band == 2 || band == 5 || band == 6;
}

std::string band_name(int band) {
  return band == 2 ? "2.4 GHz" : std::to_string(band) + " GHz";
}

}  // namespace sim
