// What a site file says about a scene of client steering: when to look, and what a person expects to see then.
#pragma once

#include <optional>
#include <string>

namespace sim {

class SiteReader;
struct Site;

// When the loads that are compared are taken, in seconds from the beginning.
struct SteeringWindow {
  double before_s = 0;
  double after_s = 0;
};

// The loads of the radios of one band in one room, fullest less emptiest.
struct SpreadExpectation {
  std::string room;
  int band = 0;
  int shrinks_by = 0;
  bool operator==(const SpreadExpectation&) const = default;
};

// A check that the file does not ask for is not made.
struct SteeringExpectations {
  std::optional<int> fullest_radio_falls_by;
  std::optional<SpreadExpectation> spread;
  std::optional<int> walker_fast_transitions;   // of each client that walks, and none full after its first association
  std::optional<double> ordered_moves_succeed;  // least share
  std::optional<double> moves_bounce_at_most;   // largest share of the moves that succeeded
  std::optional<double> held_are_answered;      // least share of the held associations that the controller decided
  bool operator==(const SteeringExpectations&) const = default;
};

// Both throw SiteError for what cannot be used; the rooms, APs and clients of the site must have been read.
SteeringWindow read_steering_window(SiteReader reader);
SteeringExpectations read_steering_expectations(SiteReader reader, const Site& site);

}  // namespace sim
