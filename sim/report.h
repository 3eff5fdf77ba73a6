// The figures of a cycle for a person (a table) and for a program (JSON).
#pragma once

#include <string>
#include <vector>

#include "sim/picture.h"

namespace sim {

// One line for each radio: channel, power and interference before and after; then the sums and the checks.
std::string plan_table(const Site& site, const CycleResult& cycle, const std::vector<Check>& checks);

// The same as a JSON text with a newline at its end. It holds no time and no address of the run, so the same site, seed
// and plan give the same text.
std::string plan_json(const Site& site, const CycleResult& cycle, const std::vector<Check>& checks);

}  // namespace sim
