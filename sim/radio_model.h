// How strong a transmission arrives: an indoor path-loss model with walls, and what chance adds to it.
//
// Path loss is the enterprise model of the IEEE 802.11ax task group (IEEE 802.11-14/0980r16, "TGax Simulation
// Scenarios", scenario 2), a log-distance law with a breakpoint at 10 m and a loss for each wall on the way:
//
//   PL(d) = 40.05 + 20 log10(fc / 2.4) + 20 log10(min(d, 10)) + [d > 10] 35 log10(d / 10) + walls      [dB]
//
// with d the distance in three dimensions, at least 1 m, and fc the centre frequency in GHz. Links are shadowed
// log-normally, by 5 dB unless the site says otherwise.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "sim/site.h"

namespace sim {

// Loss of one wall by material and band: "partition" is the office wall of the TGax scenario, 7 dB. "glass", "wood" and
// "concrete" follow 3GPP TR 38.901, table 7.4.3-1: 2 + 0.2 f, 4.85 + 0.12 f and 5 + 4 f dB with f in GHz, here 2.44,
// 5.5 and 6.5 for the three bands.
std::map<std::string, PerBand> published_materials();

// The breakpoint law alone, without walls and chance.
double distance_loss_db(double distance_m, double centre_mhz);

// All that lies between two antennas, rounded to hundredths of a decibel: mathematical libraries differ in the last
// bits, and a plan must not depend on which one is linked.
double link_loss_db(double distance_m, double centre_mhz, double obstruction_db);

double dbm_to_mw(double dbm);

// Of 0 mW: minus infinity.
double mw_to_dbm(double mw);

class RadioModel {
 public:
  // The site must outlive the model.
  explicit RadioModel(const Site& site) : site_(site) {}

  double wall_loss_db(const Point& from, const Point& to, int band) const;

  // The same in both directions. A link has one draw per band for the life of the site.
  double shadowing_db(const Mac& one, const Mac& other, int band) const;

  // Walls and shadowing of a link.
  double obstruction_db(const Point& from, const Mac& sender, const Point& to, const Mac& receiver, int band) const;

  // The error of one measurement of a link, less than six standard deviations of it.
  double measurement_error_db(const Mac& sender, const Mac& receiver, std::uint64_t scan, std::uint64_t round) const;

 private:
  const Site& site_;
};

}  // namespace sim
