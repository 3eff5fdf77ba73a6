// Fast BSS transition (802.11r) within a domain: the key holders of each VAP and the links between all VAPs of an SSID
// on different APs. Key holders and keys, once given, stay for the life of a VAP, so that what APs and clients hold
// stays valid. Functions over the records; belongs to the domain worker's thread, whose generator rand() makes the
// keys.
#pragma once

#include <cstdint>

#include "Config.h"
#include "model/ApMap.h"

namespace rrm {

// Gives every VAP with 802.11r of an enabled radio what it lacks of key holders and key. `wildcard` is the server's
// setting: with it, an AP that takes wildcard key holders is known by its VAPs' addresses instead of its serial number.
void fill_key_holders(ApMap& aps, bool wildcard);

// Clients may move between the two bands: always within one and between 5 and 6 GHz, to and from 2.4 GHz only where
// the domain allows it. False where a band is not known (0).
bool link_allowed(std::int32_t band_a, std::int32_t band_b, const DomainConfig& config);

// Drops the links whose other end is gone or has other keys, and adds those that are missing, both in one pass. An AP
// whose links changed has `fbt_changed` set. True if some AP with an enabled 802.11r VAP has it set now, from this pass
// or from before.
bool update_fbt_links(ApMap& aps, const DomainConfig& config, bool wildcard);

}  // namespace rrm
