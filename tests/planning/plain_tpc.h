// The power run as plainly as it can be told, with its own table of blocks. The planner must give what this gives.
#pragma once

#include "model/ApMap.h"
#include "planning/PlanResult.h"

namespace rrm::testing {

bool plain_radio_overlaps(const Radio& radio, int band, int channel, int bandwidth);
void plain_tpc(ApMap& aps, const DomainConfig& config, PlanResult& results);

}  // namespace rrm::testing
