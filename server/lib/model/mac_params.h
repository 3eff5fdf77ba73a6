// What holds the MAC pools of one AP's radios apart.
#pragma once

namespace rrm {

class ApEntry;

// For an AP that is new to the domain, or restored: its own pool is not empty, the pool of each enabled radio is not
// empty and lies in it, and no enabled radio's address lies in the pool of another. Every fault is logged.
bool check_mac_params(const ApEntry& ap);

}  // namespace rrm
