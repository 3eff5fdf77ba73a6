// Floor plans as SVG: one plan for each band, with walls, rooms, the APs in the colour of their channel, a ring for
// their power, the networks next door, the clients, and a red line between any two radios that share spectrum and hear
// each other above the level at which one defers to the other.
#pragma once

#include <string>

#include "sim/picture.h"

namespace sim {

// A whole SVG document. `title` is shown as it stands.
std::string floor_plan_svg(const Site& site, const Picture& picture, const std::string& title);

}  // namespace sim
