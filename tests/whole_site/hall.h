// The site of these tests: a hall of two rows of APs, with partitions and a crowded corner.
#pragma once

#include <cstdint>

#include "sim/site.h"
#include "whole_site/dice.h"

namespace whole_site {

//    0         12        24        36        48
//    +---------+---------+---------+---------+  24
//    |    E    |    F    |    G    |    H    |
//    |         #         |         #         |  12    #: partitions
//    |    A    |    B    |    C    |    D    |        all have 2.4 and 5 GHz; A, C, F and H have 6 GHz too
//    +---------+---------+---------+---------+  0     48 clients, half of them there from the beginning
//
// SSIDs: "staff" with 802.11k, r and v on every radio, "guest" with k and v on 2.4 and 5 GHz.
sim::Site hall(std::uint64_t seed);

// Somewhere in the hall, every other time in the crowded corner, where A, B, E and F meet.
sim::Point somewhere(Dice& dice);

}  // namespace whole_site
