// One access point as the controller meets it: what it sends, what it does with what it receives, and when. It owns no
// socket and no clock: whoever drives it hands over texts and the present time, and collects the texts that it wants
// sent. World and Stations are shared by all agents of a site and must outlive them. One thread.
//
// What the AP does not know or cannot read is logged and otherwise ignored; nothing that the controller sends ends it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/ap_messages.h"
#include "sim/stations.h"
#include "sim/steering_events.h"
#include "sim/world.h"

namespace sim {

using Log = std::function<void(const std::string&)>;

// How far the AP has come in the present optimisation cycle.
struct CycleProgress {
  bool mode_answered = false;
  bool scan_asked = false;
  bool scan_answered = false;
  bool planned = false;  // the plan for its radios arrived after its scan

  // The first thing that is missing, for a person to read; empty when the cycle is whole.
  std::string missing() const;
};

class ApAgent {
 public:
  ApAgent(World& world, Stations& stations, std::size_t index, Log log);

  // The transport came up: the AP subscribes. It went away: what was under way is forgotten.
  void connected(Millis now);
  void disconnected();
  void received(const std::string& text, Millis now);
  // Does what has become due.
  void tick(Millis now);
  std::vector<std::string> take_outgoing();

  bool subscribed() const { return subscribed_; }
  // How often the controller has asked for the mode of the radios: each time a cycle begins.
  int cycles_begun() const { return cycles_begun_; }
  const CycleProgress& progress() const { return progress_; }

  // Events of stations, told by the driver.
  StationObserver::Answer admission(int radio, const Mac& station, int refusals, Millis now) const;
  void station_joined(const Station& station, Millis now);
  void station_left(const Station& station, const Association& from);
  // A moment of an associated station's life, about once a second: the AP reports a signal that has changed.
  void station_observed(const Station& station, Millis now);

 private:
  struct Scan {
    Millis due = 0;
    ScanChannels channels;
  };
  struct ProbeAnswer {
    Millis due = 0;
    std::vector<Json> radios;
  };
  struct Report {  // of a station's signal
    Millis at = 0;
    int rssi = 0;
  };
  struct Neighbour {
    Mac mac;
    int priority = 0;
  };
  using Handler = void (ApAgent::*)(const Json&, Millis);

  static const std::map<std::string, Handler>& handlers();
  void on_subscribe_response(const Json& message, Millis now);
  void on_request_mode(const Json& message, Millis now);
  void on_update(const Json& message, Millis now);
  void on_info(const Json& message, Millis now);
  void on_probe_request(const Json& message, Millis now);
  void on_blacklist(const Json& message, Millis now);
  void on_disassoc_request(const Json& message, Millis now);
  void on_overload(const Json& message, Millis now);
  void on_noted(const Json& message, Millis now);

  const AccessPoint& ap() const { return world_.site().access_points[index_]; }
  Json message(const char* command) const;
  void send(const Json& message);
  void log(const std::string& text) const { log_(ap().name + ": " + text); }

  void subscribe(Millis now);
  void apply_radios(const Json& holder);
  void remember_neighbours(const Json& holder);
  Millis scan_duration_ms(const Json& message, const ScanChannels& channels) const;
  void answer_scan();
  void answer_probes();
  Json heard_stations(const Json& radio_request) const;
  int uplink_rssi(const Station& station) const;
  void roam_stations(int radio, int count);
  std::optional<Mac> roam_target(const Station& station, const Radio& from) const;
  std::optional<std::pair<std::size_t, int>> locate(const Mac& mac) const;

  World& world_;
  Stations& stations_;
  const std::size_t index_;
  const Log log_;
  std::vector<std::string> outgoing_;
  bool online_ = false;
  bool subscribed_ = false;
  Millis next_subscribe_ = 0;
  int cycles_begun_ = 0;
  std::uint64_t scans_ = 0;
  CycleProgress progress_;
  std::optional<Scan> scan_;
  std::optional<ProbeAnswer> probe_answer_;
  std::map<std::pair<int, Mac>, Millis> refused_until_;  // by radio and station
  std::map<Mac, Report> reports_;
  std::vector<Neighbour> neighbours_;
  int renew_seconds_ = 15;
  int tries_before_admission_ = 2;
};

}  // namespace sim
