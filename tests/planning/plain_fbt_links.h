// The 802.11r links as plainly as they can be told: every link and every pair of VAPs looked at in turn. The product
// must give what this gives, the order of the links and the log lines included.
#pragma once

#include <string>

#include "Config.h"
#include "model/ApMap.h"

namespace rrm::testing {

bool plain_update_fbt_links(ApMap& aps, const DomainConfig& config, bool wildcard);

// All that either version may touch, as text: what a comparison compares and a failing one shows.
std::string describe_links(const ApMap& aps);

}  // namespace rrm::testing
