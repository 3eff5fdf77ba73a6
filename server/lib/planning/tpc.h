// Transmit power control: each AP should hear its strongest neighbour of the domain at about the wanted level. One run
// is two sweeps over the APs in ascending order of their MACs: first every neighbour that is heard too loud is told to
// come down, then every radio that nobody asked to and that is not heard enough comes up. Steps count from the power at
// the start of the cycle, so those of one cycle never add up.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Config.h"
#include "model/ApMap.h"
#include "planning/PlanResult.h"

namespace rrm {

// What a run did, for those who watch it.
struct PowerRunSummary {
  std::size_t lowered = 0;  // requests of a listener that made a radio come down
  std::size_t raised = 0;   // radios whose power the second sweep changed, which may lower it as well

  bool operator==(const PowerRunSummary&) const = default;
};

// Plans on `aps`, whose radios it changes (power, EIRP, power_changed, conflicted), and stores the radios of each AP
// with a change in `results`.
PowerRunSummary run_tpc(ApMap& aps, const DomainConfig& config, PlanResult& results);

// Whether a signal of this band, channel and width (MHz) shares spectrum with the radio.
bool radio_overlaps(const Radio& radio, std::int32_t band, std::int32_t channel, std::int32_t bandwidth);

// Stores a copy of the radios under this MAC. One that is there already stays, unless a radio came down further since.
void record_power_result(PlanResult& results, const MacAddr& mac, const Radios& radios);

}  // namespace rrm
