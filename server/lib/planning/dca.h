// Channel allocation: one greedy pass over the radios of a domain, the most crowded AP first. Each radio that may move
// is priced on every channel that its AP permits against what that AP heard in its scan, and moves to the cheapest;
// what the others hear of it is corrected at once. No global cost, no convergence test, nothing random: the same domain
// gives the same plan. The caller decides on the number of passes; a later one sees the channels that the earlier one
// chose.
#pragma once

#include <cstddef>

#include "Config.h"
#include "model/ApMap.h"
#include "planning/PlanResult.h"
#include "planning/SpectrumTable.h"

namespace rrm {

// What a pass did, for those who watch it.
struct ChannelPassSummary {
  std::size_t visited = 0;       // radios that were priced
  std::size_t moved = 0;         // of these: to another channel
  std::size_t repositioned = 0;  // of these: only the place of the primary channel was corrected

  bool operator==(const ChannelPassSummary&) const = default;
};

// Plans on `aps`, whose radios and neighbour entries it changes, and stores the radios of each AP with a change in
// `results`. Takes time in proportion to what is heard and, for the order of the visits, to n log n of the radios.
ChannelPassSummary run_dca_pass(SpectrumTable& table, ApMap& aps, const DomainConfig& config, PlanResult& results);

}  // namespace rrm
