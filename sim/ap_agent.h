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
#include "sim/ap_steering.h"
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

class ApAgent : private Uplink {
 public:
  // The feed is told how holds end; the time and the cause of the association are not filled in.
  ApAgent(World& world, Stations& stations, std::size_t index, Log log, SteeringFeed feed);

  // The transport came up: the AP subscribes. It went away: what was under way is forgotten.
  void connected(Millis now);
  void disconnected(Millis now);
  void received(const std::string& text, Millis now);
  // Does what has become due.
  void tick(Millis now);
  std::vector<std::string> take_outgoing();

  bool subscribed() const override { return subscribed_; }
  // How often the controller has asked for the mode of the radios: each time a cycle begins.
  int cycles_begun() const { return cycles_begun_; }
  const CycleProgress& progress() const { return progress_; }

  // What its administrator does. A reconfiguration returns why it cannot be done, or an empty text.
  std::string reconfigure(const Radio& radio);
  void restart_radios() { steering_.restart_radios(); }
  void unsubscribe(Millis now);

  // Events of stations, told by the driver.
  StationObserver::Answer admission(int radio, const Mac& station, Millis now) {
    return steering_.admission(radio, station, now);
  }
  // Whether the AP holds the station back.
  bool station_joined(const Station& station, Millis now) { return steering_.station_joined(station, now); }
  void station_left(const Station& station, const Association& from, Cause why, Millis now) {
    steering_.station_left(station, from, why, now);
  }
  // A moment of an associated station's life, about once a second: the AP reports a signal that has changed.
  void station_observed(const Station& station, Millis now) { steering_.station_observed(station, now); }

  // Fast transition: the VAP's key holder for an SSID with 802.11r, null before the controller has named it.
  const KeyHolder* key_holder(int radio, const std::string& ssid) const { return steering_.key_holder(radio, ssid); }

  // What the AP holds, for whoever checks it.
  std::vector<Refusal> blacklist(Millis now) const { return steering_.blacklist(now); }
  const HeldClients& held() const { return steering_.held(); }
  const std::vector<KeyHolder>& key_holders() const { return steering_.key_holders(); }
  // The last array "802dot11k" as it came; empty before there was one.
  const std::string& neighbour_list() const { return steering_.neighbour_list(); }
  int infos_received() const { return infos_received_; }

 private:
  struct Scan {
    Millis due = 0;
    ScanChannels channels;
  };
  using Handler = void (ApAgent::*)(const Json&, Millis);

  static const std::map<std::string, Handler>& handlers();
  static bool is_known(const std::string& command);
  void take(const std::string& command, const Json& message, Millis now);
  void on_subscribe_response(const Json& message, Millis now);
  void on_request_mode(const Json& message, Millis now);
  void on_update(const Json& message, Millis now);
  void on_info(const Json& message, Millis now);

  const AccessPoint& ap() const { return world_.site().access_points[index_]; }
  Json message(const char* command) const override;
  void send(const Json& message) override;
  void log(const std::string& text) const { log_(ap().name + ": " + text); }

  void subscribe(Millis now);
  void forget_controller(Millis now);
  void apply_settings(const Json& holder);
  Millis scan_duration_ms(const Json& message, const ScanChannels& channels) const;
  void answer_scan();

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
  int infos_received_ = 0;
  bool wants_subscription_ = true;
  ApSteering steering_;
};

}  // namespace sim
