// Which radios refuse a client: the blacklists of the radios around the one where the client ought to be. The changes
// are gathered in each radio's RrmProblist; whoever owns the time sends them.
#pragma once

#include <cstdint>
#include <string>

#include "model/ApMap.h"

namespace rrm {

// Blocks the client on the radios around `radio` of `ap`, or lifts the block. Nothing with balancing off, or without an
// SSID. On the AP itself only radios of the 2.4 GHz band are touched, and `radio` never: a client is not driven off a
// better band by the AP that serves it. A radio that serves the client now is not told to refuse it.
void mark_around(ApMap& aps, const DomainConfig& config, const MacAddr& client, const ApEntry& ap,
                 const std::string& ssid, std::int32_t radio, bool block);

// Orders the client off the radios around `ap` that it is on, and forgets it there. `ap` itself is left alone.
void order_off_around(ApMap& aps, const DomainConfig& config, const MacAddr& client, const ApEntry& ap,
                      const std::string& ssid);

}  // namespace rrm
