// What the reports of all scenes have in common.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim/picture.h"

namespace sim {

// As printf, of any length.
__attribute__((format(printf, 1, 2))) std::string line(const char* format, ...);

// One line for each check, "ok" or "FAILED" first.
std::string checks_text(const std::vector<Check>& checks);
nlohmann::ordered_json checks_json(const std::vector<Check>& checks);

}  // namespace sim
