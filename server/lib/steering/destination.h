// Where a client that was asked about would be served better: the choice among the radios that hear it, and whether it
// is worth a move.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "model/ApMap.h"
#include "steering/ProbeRequestMap.h"

namespace rrm {

// The radio that the client is on.
struct SteeringSource {
  std::int32_t load = 0;
  std::int32_t rssi = 0;  // of the client there, dBm; 0 if the radio does not know it
};

// The radio that was chosen.
struct SteeringChoice {
  std::shared_ptr<ApEntry> ap;
  Radio* radio = nullptr;  // of that AP
  MacAddr mac;             // under which the radio has answered
  std::int32_t load = 0;   // as compared: light loads count as equal, the client itself does not count
  std::int32_t rssi = 0;   // at which the radio hears the client, dBm
  bool is_there = false;   // the client is on that radio already
};

// The least loaded radio that has answered, of equally loaded ones the one that hears the client best, of those the one
// with the lowest MAC. A radio that the client is on already, and that serves it well, is taken at once. Empty if no
// radio of the domain has answered.
std::optional<SteeringChoice> choose_destination(const ApMap& aps, const DomainConfig& config, const MacAddr& client,
                                                 const ProbeRequest& query);

// A client that is served badly moves regardless of load; one with a good signal only to a radio that is lighter by
// more than the client itself.
bool worth_moving(const SteeringSource& source, const SteeringChoice& choice, const DomainConfig& config);

}  // namespace rrm
