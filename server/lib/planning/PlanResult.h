// What a planner hands back: the radios, as planned, of every AP that it changed, by the MAC under which the AP stands
// in the planned set. A later stage's radios take the place of an earlier one's.
#pragma once

#include <map>

#include "model/MacAddr.h"
#include "model/Radios.h"

namespace rrm {

using PlanResult = std::map<MacAddr, Radios>;

}  // namespace rrm
