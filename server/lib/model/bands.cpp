#include "model/bands.h"

#include <cstdlib>

namespace rrm {
namespace {

struct Block {
  std::int32_t bandwidth;
  std::int32_t first;
  std::int32_t last;
  std::int32_t centre;
};

// The 5 GHz band plan; the centre of a block is the number of the wide channel.
constexpr Block blocks_5ghz[] = {
    {40, 36, 40, 38},    {40, 44, 48, 46},    {40, 52, 56, 54},    {40, 60, 64, 62},    {40, 100, 104, 102},
    {40, 108, 112, 110}, {40, 116, 120, 118}, {40, 124, 128, 126}, {40, 132, 136, 134}, {40, 140, 144, 142},
    {40, 149, 153, 151}, {40, 157, 161, 159}, {80, 36, 48, 42},    {80, 52, 64, 58},    {80, 100, 112, 106},
    {80, 116, 128, 122}, {80, 132, 144, 138}, {80, 149, 161, 155}, {160, 36, 64, 50},   {160, 100, 128, 114},
};

constexpr std::int32_t centres_320[] = {31, 63, 95, 127, 159, 191, 223};

}  // namespace

std::int32_t band_of_channel(std::int32_t channel) {
  if (channel >= 1 && channel <= 14) return 2;
  if (channel >= 36 && channel <= 165) return 5;
  if (channel >= 166 && channel <= 233) return 6;
  return 0;
}

std::int32_t band_or_that_of(std::int32_t band, std::int32_t channel) {
  return band != 0 ? band : band_of_channel(channel);
}

std::int32_t block_centre_5ghz(std::int32_t channel, std::int32_t bandwidth) {
  for (const Block& block : blocks_5ghz) {
    if (block.bandwidth == bandwidth && channel >= block.first && channel <= block.last) return block.centre;
  }
  return 0;
}

std::int32_t aligned_centre(std::int32_t channel, std::int32_t span) {
  return (channel - 1) / span * span + span / 2 - 1;
}

std::int32_t nearest_centre_320(std::int32_t channel) {
  constexpr std::int64_t reach = 32;
  std::int32_t nearest = 0;
  std::int64_t shortest = reach + 1;
  for (const std::int32_t centre : centres_320) {
    const std::int64_t distance = std::abs(std::int64_t{channel} - centre);
    if (distance < shortest) nearest = centre, shortest = distance;
  }
  return nearest;
}

}  // namespace rrm
