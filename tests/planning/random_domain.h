// Domains that no planner of sites would draw: every field of a radio, of a neighbour and of the settings at random,
// the likely values and the odd ones, always the same for the same seed.
#pragma once

#include <cstdint>

#include "Config.h"
#include "model/ApMap.h"

namespace rrm::testing {

DomainConfig random_config(std::uint32_t seed);
// 2 to 60 APs, small domains more often than large ones. The settings must outlive the result.
ApMap random_domain(const DomainConfig& config, std::uint32_t seed);

}  // namespace rrm::testing
