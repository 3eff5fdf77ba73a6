// The interference that one AP hears around one of its radios, by channel number, and what a channel costs against it.
// Every neighbour lays a spectral mask of its signal onto the channels that it occupies; a channel costs the sum over
// the spectrum that the radio would occupy there. Weights are dB above -100 dBm, so a fainter signal counts negative.
// A plain value with no lock; belongs to whoever plans.
//
// Numbers from the wire may have any value: sums are made in 64 bits and cut to the nearest 32-bit value at the end.
#pragma once

#include <array>
#include <cstdint>

#include "ApEntry.h"
#include "model/ChannelSet.h"

namespace rrm {

// The block of a given width (MHz) that a channel belongs to, by its centre; -1 where there is none. These are the
// planner's own: a radio's position code follows another table (model/bands.h), which treats the edges of the bands
// differently.
std::int32_t centre20(std::int32_t channel);
std::int32_t centre40(std::int32_t channel, std::int32_t primary_channel);
std::int32_t centre80(std::int32_t channel);
std::int32_t centre160(std::int32_t channel);
std::int32_t centre320(std::int32_t channel);

class SpectrumTable {
 public:
  static constexpr std::int32_t first_channel = -8;
  static constexpr std::int32_t last_channel = 266;

  // Whether a move needs no more than a cheaper channel, however small the gain.
  bool ignore_dca_threshold = true;

  // Empties the table; the flag stays.
  void clear();
  // Adds what `ap` hears in the radio's band, members of the domain and foreign APs alike, save for the radio itself.
  void add_neighbours(const ApEntry& ap, const Radio& radio);
  // The interference on one channel number; 0 outside the table.
  std::int32_t at(std::int32_t channel) const;

  // What the radio would hear on this channel with this width (MHz); -1 if no such channel exists. The sum may be
  // negative too.
  std::int32_t channel_cost(std::int32_t channel, std::int32_t bandwidth, std::int32_t primary_channel) const;
  // The cheapest of the permitted channels, the lowest number of several; the present one (`channel`) unless the best
  // undercuts it by `threshold` per cent, or at all if the threshold is ignored. Channels of negative cost are passed
  // over. 0 if nothing is left to choose from.
  std::int32_t best_channel(const ChannelSet& available_channels, std::int32_t channel, std::int32_t bandwidth,
                            std::int32_t primary_channel, std::int32_t threshold, bool ignore_threshold) const;

 private:
  static constexpr std::size_t cell_count = last_channel - first_channel + 1;
  using Sums = std::array<std::int64_t, cell_count + 1>;

  // Requires: the channel lies within the table.
  static std::size_t cell_of(std::int64_t channel) { return static_cast<std::size_t>(channel - first_channel); }

  void add_entries(const NeighbourMap& heard, const Radio& radio);
  void add_signal(const Neighbour& neighbour);
  void add_mask(std::int32_t centre, std::int32_t half_width, std::int64_t weight);
  void add(std::int64_t centre, std::int32_t half_width, std::int64_t weight);
  void settle();
  std::int64_t sum(std::int32_t centre, std::int32_t half_width) const;

  Sums steps_{};   // by channel: how much more lies on it than on the one before
  Sums totals_{};  // by channel: what lies on all channels before it
};

}  // namespace rrm
