// Events of steering as lines that a test can compare: "02:c1:00:00:00:01 moved A1 to B1: transition, fast". The first
// AP of the site is A, the second B, and so on.
#pragma once

#include <string>
#include <vector>

#include "sim/steering_events.h"

namespace sim::testing {

inline std::string name_of(const Place& place) {
  return static_cast<char>('A' + place.ap) + std::to_string(place.radio);
}

inline std::string line_of(const SteeringEvent& event) {
  std::string line = event.client.text() + " " + sim::name_of(event.what);
  line += event.from ? " " + name_of(*event.from) : "";
  line += event.to ? (event.from ? " to " : " ") + name_of(*event.to) : "";
  line += ": " + sim::name_of(event.cause);
  line += event.authentication ? ", " + sim::name_of(*event.authentication) : "";
  line += event.held ? ", held" : "";
  line += event.for_good ? ", for good" : "";
  line += event.refusals > 0 ? ", refused " + std::to_string(event.refusals) + " times" : "";
  line += event.unserved > 0 ? ", after " + std::to_string(event.unserved) + " ms" : "";
  line += event.hold_end ? ", " + sim::name_of(*event.hold_end) + " in " + std::to_string(event.held_for) + " ms" : "";
  return line;
}

inline std::vector<std::string> lines_of(const std::vector<SteeringEvent>& events) {
  std::vector<std::string> lines;
  for (const SteeringEvent& event : events) {
    lines.push_back(line_of(event));
  }
  return lines;
}

}  // namespace sim::testing
