// What an AP is told for BSS transition management (802.11v): the neighbours that its clients may be sent to, with
// priorities by load, and, when it is overloaded, how many clients to move. Functions over the records of a domain.
#pragma once

#include <cstdint>

#include "model/ApMap.h"

namespace rrm {

class JsonWriter;

// Entries of one SSID on one radio number that a list may hold; what is beyond is left out with an error.
inline constexpr int transition_list_limit = 64;

// Adds the neighbours of `ap` to an array. True if the list counts as changed: a peer's priority is not the one last
// sent, a peer's lists are stale, or there is nobody whose change could be seen.
bool write_transition_list(const ApMap& aps, const ApEntry& ap, const DomainConfig& config, JsonWriter& array);

// Adds the neighbours that clients of an overloaded AP may go to, and counts for each of its radios the peers that are
// lighter (roam_peers, roam_peer_clients). Heavier peers stay as a last resort, with priority 0. False without peers.
bool write_overload_list(const ApMap& aps, ApEntry& ap, const DomainConfig& config, JsonWriter& array);

// Some enabled radio has more clients than it should have, and some radio is steered by 802.11v.
bool needs_load_balance(const ApEntry& ap);

// How many clients the radio should move to reach the mean of itself and its lighter peers; 0 for none.
std::int32_t roam_count(const ApEntry& ap, const Radio& radio, const DomainConfig& config);

}  // namespace rrm
