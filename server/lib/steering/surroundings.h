// Who takes part when a client of an AP is steered: the APs around that AP, and of those the radios that serve the
// client's SSID and may be balanced.
#pragma once

#include <string>

#include "model/ApMap.h"

namespace rrm {

// The listener has heard some radio of the other AP.
bool hears_any_radio(const ApEntry& listener, const ApEntry& other);

// `other` counts as around `ap`: it hears it, or the settings let all APs of the domain take part.
bool is_around(const ApEntry& other, const ApEntry& ap, const DomainConfig& config);

// Enabled, with a VAP of the SSID, and not locked for the balancer.
bool is_steered(const Radio& radio, const std::string& ssid);

}  // namespace rrm
