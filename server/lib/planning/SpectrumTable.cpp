#include "planning/SpectrumTable.h"

#include <algorithm>
#include <limits>

#include "model/bands.h"
#include "model/numbers.h"

namespace rrm {
namespace {

constexpr std::int32_t no_centre = -1;
constexpr std::int32_t invalid_cost = -1;
constexpr std::int32_t unreachable_cost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t silence = -100;  // dBm, weighs nothing
constexpr std::int32_t half_width_20 = 2;

std::int32_t or_none(std::int32_t centre) {
  return centre != 0 ? centre : no_centre;
}

bool is_6ghz_number(std::int32_t channel) {
  return channel > 164 && channel < 234;
}

// A channel's block: its centre and how many channel numbers it reaches to either side.
struct Block {
  std::int32_t centre;
  std::int32_t half_width;
};

// Any width that is no wide one counts as 20 MHz.
Block block_of(std::int32_t channel, std::int32_t bandwidth, std::int32_t primary_channel) {
  switch (bandwidth) {
    case 40:
      return {centre40(channel, primary_channel), 4};
    case 80:
      return {centre80(channel), 8};
    case 160:
      return {centre160(channel), 16};
    case 320:
      return {centre320(channel), 32};
    default:
      return {centre20(channel), half_width_20};
  }
}

bool is_known_width(std::int32_t bandwidth) {
  return bandwidth == 20 || bandwidth == 40 || bandwidth == 80 || bandwidth == 160 || bandwidth == 320;
}

// A radio of unknown band hears everything. An entry of unknown band counts for every radio but one of 6 GHz, whose
// channel numbers mean something else in the other bands.
bool in_band_of(const Radio& radio, const Neighbour& neighbour) {
  if (radio.band == 0 || neighbour.band == radio.band) return true;
  return neighbour.band == 0 && radio.band != 6;
}

}  // namespace

// Channel 14 is left out on purpose: it is never chosen.
std::int32_t centre20(std::int32_t channel) {
  const bool valid = (channel >= 1 && channel <= 13) || (channel >= 36 && channel <= 233);
  return valid ? channel : no_centre;
}

std::int32_t centre40(std::int32_t channel, std::int32_t primary_channel) {
  if (channel >= 36 && channel <= 164) return or_none(block_centre_5ghz(channel, 40));
  const std::int32_t centre = saturate32(std::int64_t{channel} + (primary_channel == primary_upper ? -2 : 2));
  if (channel < 36 && (centre < 3 || centre > 11)) return no_centre;
  return centre;
}

std::int32_t centre80(std::int32_t channel) {
  if (!is_6ghz_number(channel)) return or_none(block_centre_5ghz(channel, 80));
  if (channel <= 173) return 167;
  if (channel <= 189) return 183;
  if (channel <= 205) return 199;
  return channel <= 221 ? 215 : no_centre;
}

std::int32_t centre160(std::int32_t channel) {
  if (!is_6ghz_number(channel)) return or_none(block_centre_5ghz(channel, 160));
  if (channel <= 189) return 175;
  return channel <= 221 ? 207 : no_centre;
}

std::int32_t centre320(std::int32_t channel) {
  return channel >= 1 && channel <= 233 ? or_none(nearest_centre_320(channel)) : no_centre;
}

void SpectrumTable::clear() {
  steps_.fill(0);
  totals_.fill(0);
}

void SpectrumTable::add_neighbours(const ApEntry& ap, const Radio& radio) {
  add_entries(ap.visible_members, radio);
  add_entries(ap.visible_rogue, radio);
  settle();
}

void SpectrumTable::add_entries(const NeighbourMap& heard, const Radio& radio) {
  for (const auto& [bssid, neighbour] : heard) {
    if (bssid != radio.mac && in_band_of(radio, neighbour)) add_signal(neighbour);
  }
}

// A wide signal's primary channel counts a second time: beacons and management traffic stay there.
void SpectrumTable::add_signal(const Neighbour& neighbour) {
  if (neighbour.channel < 1 || !is_known_width(neighbour.bandwidth)) return;
  const Block block = block_of(neighbour.channel, neighbour.bandwidth, neighbour.primary);
  const std::int64_t weight = std::int64_t{neighbour.rssi} - silence;
  if (block.centre < 1) return;
  add_mask(block.centre, block.half_width, weight);
  if (neighbour.bandwidth != 20) add_mask(centre20(neighbour.channel), half_width_20, weight);
}

// The full weight over the middle of the block, 7/10 and 3/10 of it on the last two channel numbers of either flank.
void SpectrumTable::add_mask(std::int32_t centre, std::int32_t half_width, std::int64_t weight) {
  if (centre < 1) return;
  const std::int64_t outer = weight * 3 / 10;
  const std::int64_t inner = weight * 7 / 10;
  add(centre, half_width, outer);
  add(centre, half_width - 1, inner - outer);
  add(centre, half_width - 2, weight - inner);
}

// What lies outside the table is dropped.
void SpectrumTable::add(std::int64_t centre, std::int32_t half_width, std::int64_t weight) {
  const auto first = std::max<std::int64_t>(centre - half_width, first_channel);
  const auto last = std::min<std::int64_t>(centre + half_width, last_channel);
  if (first > last) return;
  steps_[cell_of(first)] += weight;
  steps_[cell_of(last) + 1] -= weight;
}

// Makes the running totals from the steps.
void SpectrumTable::settle() {
  std::int64_t level = 0;
  std::int64_t total = 0;
  for (std::size_t cell = 0; cell < cell_count; ++cell) {
    level += steps_[cell];
    total += level;
    totals_[cell + 1] = total;
  }
}

std::int64_t SpectrumTable::sum(std::int32_t centre, std::int32_t half_width) const {
  if (centre < first_channel || centre > last_channel) return 0;
  const std::int32_t first = std::max(centre - half_width, first_channel);
  const std::int32_t last = std::min(centre + half_width, last_channel);
  return totals_[cell_of(last) + 1] - totals_[cell_of(first)];
}

std::int32_t SpectrumTable::at(std::int32_t channel) const {
  return saturate32(sum(channel, 0));
}

// Where a channel has a block but no 20 MHz centre, the sum around that centre's -1 counts as it stands.
std::int32_t SpectrumTable::channel_cost(std::int32_t channel, std::int32_t bandwidth,
                                         std::int32_t primary_channel) const {
  const Block block = block_of(channel, bandwidth, primary_channel);
  if (block.centre < 1) return invalid_cost;
  std::int64_t cost = sum(block.centre, block.half_width);
  if (bandwidth != 20) cost += sum(centre20(channel), half_width_20);
  return saturate32(cost);
}

std::int32_t SpectrumTable::best_channel(const ChannelSet& available_channels, std::int32_t channel,
                                         std::int32_t bandwidth, std::int32_t primary_channel, std::int32_t threshold,
                                         bool ignore_threshold) const {
  const std::int64_t factor = ignore_threshold || threshold > 99 ? 100 : std::int64_t{100} - threshold;
  std::int32_t best = 0;
  std::int32_t best_cost = unreachable_cost;
  bool current_seen = false;
  std::int32_t current_cost = 0;
  for (const std::int32_t candidate : available_channels) {
    const std::int32_t cost = channel_cost(candidate, bandwidth, primary_channel);
    if (cost < 0) continue;
    if (candidate == channel) current_seen = true, current_cost = cost;
    if (cost < best_cost) best = candidate, best_cost = cost;
  }
  if (best <= 0) return 0;
  return current_seen && current_cost * factor / 100 <= best_cost ? channel : best;
}

}  // namespace rrm
