// A simulated site as its file describes it: the building, the access points as an installer left them, the networks
// next door, the people with their clients, and what a person expects of a good plan. docs/site-format.md tells the
// format. A Site is constant once it is read; what changes while it runs is kept in World.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/geometry.h"
#include "sim/mac.h"
#include "sim/steering_expectations.h"

namespace sim {

// Says where in the file the fault is and what is wrong with it.
class SiteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value for each of the bands 2, 5 and 6.
struct PerBand {
  double at_2g = 0;
  double at_5g = 0;
  double at_6g = 0;

  double of(int band) const { return band == 2 ? at_2g : band == 5 ? at_5g : at_6g; }
};

struct Wall {
  Segment segment;
  std::string material;
};

struct Room {
  std::string name;
  Rectangle area;
};

struct Vap {
  int id = 0;  // also the offset of its BSSID in the radio's pool
  std::string ssid;
  bool use_80211k = true;
  bool use_80211r = false;
  bool use_80211v = true;
};

// A radio as configured. Levels are dBm, gains dBi, losses dB, widths MHz.
struct Radio {
  int id = 0;
  int band = 0;
  bool enabled = true;
  int channel = 0;
  int bandwidth = 20;
  std::string primary = "none";
  int power = 0;
  int power_min = 0;
  int power_max = 0;
  int antenna_gain = 0;
  int cable_loss = 0;
  bool locked_for_tpc = false;
  bool locked_for_dca = false;
  bool locked_for_balancer = false;
  bool locked_for_80211v = false;
  std::vector<int> available_channels;  // ascending
  std::vector<Vap> vaps;
};

struct AccessPoint {
  std::string name;
  Mac mac;
  std::string board;
  std::string serial;
  bool wildcard_80211r = false;  // takes the key holder link to all
  Point position;
  std::vector<Radio> radios;  // at most three, ids 0 to 2
};

// A network next door: it transmits, and takes part in nothing.
struct ForeignAp {
  std::string name;
  Mac bssid;
  Point position;
  int band = 0;
  int channel = 0;
  int bandwidth = 20;
  std::string primary = "none";
  int power = 0;
  int antenna_gain = 0;
};

// How a client takes it that somebody else wants to choose its radio.
enum class Temper {
  obedient,    // makes the transitions that it is asked to make, and stays where they led it while it hears that well
  refuses,     // makes none
  sticks,      // does not look for a better radio by itself until it hears its own no more
  comes_back,  // goes where it is sent, and back again as soon as it is let in there
};

struct Client {
  Mac mac;
  std::string ssid;
  std::vector<int> bands;
  Point position;
  std::vector<Point> path;  // walked round and round, from `position` on; empty for somebody who sits
  double speed = 1.2;       // metres per second
  Temper temper = Temper::obedient;
  int from = 0;              // the second at which it comes onto the site
  std::optional<int> until;  // ... and leaves it
};

struct RadioSettings {
  double shadowing_db = 5;  // standard deviation
  double noise_db = 1.5;    // standard deviation of one measurement
  std::map<std::string, PerBand> materials;
};

struct ScanSettings {
  int rounds = 3;
  double fast_seconds = 6;  // a whole scan with a radio set aside for scanning
  int dwell_ms = 220;       // a channel of one round, when the serving radio scans by itself
  PerBand sensitivity_dbm{-92, -92, -92};
};

// What --once checks after the first whole cycle, or at the end of a scene of steering. A check that the file does not
// ask for is not made.
struct Expectations {
  double interference_falls_by_db = 0;
  std::vector<int> rooms_share_no_block;  // bands
  double power_falls_within_m = 0;        // 0: not checked
  std::vector<int> power_falls_on_bands;
  SteeringExpectations steering;
};

struct Site {
  std::string name;
  std::string domain;
  std::uint64_t seed = 1;
  double width = 0;
  double depth = 0;
  std::vector<Wall> walls;
  std::vector<Room> rooms;
  RadioSettings radio_model;
  ScanSettings scan;
  std::vector<AccessPoint> access_points;
  std::vector<ForeignAp> foreign_aps;
  std::vector<Client> clients;
  std::optional<SteeringWindow> steering;
  Expectations expectations;

  // The room that holds a point, or null.
  const Room* room_at(const Point& point) const;
};

// Throws SiteError for a text that is not a site.
Site parse_site(const std::string& text);

// Throws SiteError also for a file that cannot be read.
Site load_site(const std::string& path);

}  // namespace sim
