// What a site looks like at one moment, and what one whole optimisation cycle made of it: the figures that are printed,
// written and drawn. Plain values, computed by the simulator's own radio model; nothing of the controller's counts.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/stations.h"
#include "sim/world.h"

namespace sim {

struct RadioPicture {
  std::size_t ap = 0;
  Radio radio;
  Interval spectrum;
  double interference_mw = 0;
};

// A client at the place where the file puts it, served by the radio that suits it best there: people walk while a cycle
// runs, and figures of a plan must not depend on how far they came.
struct StationPicture {
  Point position;
  std::optional<Association> association;
  int band = 0;          // of the serving radio
  double level_dbm = 0;  // of the serving radio at the station
  double sinr_db = 0;    // that level over noise and everything else on the channel
};

// Two transmitters that share spectrum and hear each other at or above -82 dBm, the level at which a station defers to
// a preamble (IEEE Std 802.11, CCA of a 20 MHz channel): they share air time. `other` counts on from the radios through
// the site's foreign APs.
struct Contention {
  std::size_t radio = 0;
  std::size_t other = 0;
  double level_dbm = 0;
};

struct Picture {
  std::vector<RadioPicture> radios;  // by AP, then by id
  std::vector<Contention> contentions;
  std::vector<StationPicture> stations;

  // Sum over the radios of a band, 0 for all bands.
  double interference_mw(int band) const;
  // The middle value over the radios of a band (0: all), dBm; minus infinity when there is none.
  double median_interference_dbm(int band) const;
  // The middle value over the associated stations, dB.
  double median_sinr_db() const;
  std::size_t associated() const;
  // Pairs of the site's own radios that share air time, on one band or on all (0).
  std::size_t contending_pairs(int band) const;
};

Picture take_picture(const World& world);

// One whole optimisation cycle: every AP reported its mode, scanned, and was given a plan.
struct CycleResult {
  int number = 0;  // from 1
  double seconds = 0;
  Picture before;
  Picture after;
};

// One thing that a person expects of a plan, and what became of it.
struct Check {
  std::string name;
  std::string measured;
  bool passed = false;
};

// The checks that the site's expectations ask for.
std::vector<Check> check_plan(const Site& site, const CycleResult& cycle);

// dBm with one decimal, "none" for 0 mW.
std::string mw_as_dbm_text(double mw);

}  // namespace sim
