// Channel numbers, bands and the blocks that wide channels stand in. Bands: 0 unknown, 2, 5 and 6 (GHz). The tables
// follow the channel numbering of IEEE 802.11: 2.4 GHz 1 to 14, 5 GHz 36 to 165; numbers of 166 and above exist in the
// 6 GHz numbering too. Pure functions over plain numbers; a number from the wire may have any value.
#pragma once

#include <array>
#include <cstdint>

#include "model/ChannelSet.h"

namespace rrm {

// 2 for channels 1 to 14, 5 for 36 to 165, 6 for 166 to 233, else 0.
std::int32_t band_of_channel(std::int32_t channel);

// A band as it is given; where it is unknown, the channel's.
std::int32_t band_or_that_of(std::int32_t band, std::int32_t channel);

// All channels that a domain's APs offer, by band number. Only the bands 2, 5 and 6 are ever filled.
using ChannelPools = std::array<ChannelSet, 7>;

// The centre of the 5 GHz block of 40, 80 or 160 MHz that a channel belongs to; 0 where the band plan has no such
// block.
std::int32_t block_centre_5ghz(std::int32_t channel, std::int32_t bandwidth);

// The centre of the aligned run of `span` (8, 16, 32) channel numbers that holds `channel`, runs starting at channel 1.
// Requires: channel is at least 1.
std::int32_t aligned_centre(std::int32_t channel, std::int32_t span);

// The nearest 320 MHz centre of the 6 GHz band, the lower one of two equally near ones; 0 if none lies within 32.
std::int32_t nearest_centre_320(std::int32_t channel);

}  // namespace rrm
