// The figures of a scene of steering for a person (a table) and for a program (JSON).
#pragma once

#include <string>
#include <vector>

#include "sim/steering_figures.h"

namespace sim {

// One line for each radio that has had a client, with its clients at the window's first moment, at the most and now;
// then the moves, and the checks if there are any.
std::string steering_table(const Site& site, const SteeringWindow& window, const SteeringFigures& figures,
                           const std::vector<Check>& checks);

// The same as a JSON text with a newline at its end.
std::string steering_json(const Site& site, const SteeringWindow& window, const SteeringFigures& figures,
                          const std::vector<Check>& checks);

}  // namespace sim
