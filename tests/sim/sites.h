// Small sites for tests, as texts of site files.
#pragma once

#include <string>

#include "sim/site.h"

namespace sim::testing {

// Replaces the first occurrence; the text must occur.
inline std::string with(std::string text, const std::string& what, const std::string& by) {
  const auto at = text.find(what);
  if (at == std::string::npos) {
    throw std::logic_error("the test's site has no " + what);
  }
  return text.replace(at, what.size(), by);
}

//   0    4         14        20
//   +----+---------#---------+     A and B: APs at (4, 5) and (14, 5), ten metres apart; both with three radios
//   |    A         #B        |     #: a partition at x = 13, in front of B
//   |              #         |     f: a foreign AP at (4, 9) on 5 GHz, channel 100
//   |    f                   |     c: a client at (5, 5)
//   +--------------#---------+
//
// No chance: shadowing and measurement noise are 0, so every level can be computed by hand.
inline const std::string two_aps = R"({
  "name": "two", "domain": "lab", "seed": 7,
  "floor": {"width": 20, "depth": 10},
  "radio_model": {"shadowing_db": 0, "noise_db": 0},
  "scan": {"rounds": 2, "fast_seconds": 6, "dwell_ms": 100},
  "walls": [{"from": [13, 0], "to": [13, 10], "material": "partition"}],
  "rooms": [{"name": "West", "corner": [0, 0], "size": [13, 10]}, {"name": "East", "corner": [13, 0], "size": [7, 10]}],
  "radio_profile": [
    {"id": 0, "band": 2, "channel": 1, "power": 20, "power_min": 5, "power_max": 20, "antenna_gain": 3,
     "available_channels": [1, 6, 11], "vaps": [{"id": 0, "ssid": "staff"}, {"id": 1, "ssid": "guest"}]},
    {"id": 1, "band": 5, "channel": 36, "bandwidth": 80, "power": 23, "power_min": 5, "power_max": 23,
     "antenna_gain": 4, "cable_loss": 1, "available_channels": [36, 40, 44, 48, 52, 100],
     "vaps": [{"id": 0, "ssid": "staff"}]},
    {"id": 2, "band": 6, "channel": 165, "bandwidth": 80, "power": 23, "power_min": 5, "power_max": 23,
     "available_channels": [165, 181], "vaps": [{"id": 0, "ssid": "staff"}]}
  ],
  "access_points": [
    {"name": "A", "mac": "02:00:5e:00:01:00", "serial": "SN1", "position": [4, 5]},
    {"name": "B", "mac": "02:00:5e:00:02:00", "serial": "SN2", "position": [14, 5]}
  ],
  "foreign": [{"name": "f", "bssid": "06:00:00:00:00:01", "position": [4, 9], "band": 5, "channel": 100, "power": 15}],
  "clients": [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "bands": [2, 5], "position": [5, 5]}]
})";

}  // namespace sim::testing
