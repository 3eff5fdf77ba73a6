// One access point as the controller meets it: what it sends, what it does with what it receives, and when. It owns no
// socket and no clock: whoever drives it hands over texts and the present time, and collects the texts that it wants
// sent. World and Stations are shared by all agents of a site and must outlive them. One thread.
//
// What the AP does not know or cannot read is logged and otherwise ignored; nothing that the controller sends ends it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/ap_messages.h"
#include "sim/held_clients.h"
#include "sim/key_holders.h"
#include "sim/refusals.h"
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
  // The feed is told how holds end; the time and the cause of the association are not filled in.
  ApAgent(World& world, Stations& stations, std::size_t index, Log log, SteeringFeed feed);

  // The transport came up: the AP subscribes. It went away: what was under way is forgotten.
  void connected(Millis now);
  void disconnected(Millis now);
  void received(const std::string& text, Millis now);
  // Does what has become due.
  void tick(Millis now);
  std::vector<std::string> take_outgoing();

  bool subscribed() const { return subscribed_; }
  // How often the controller has asked for the mode of the radios: each time a cycle begins.
  int cycles_begun() const { return cycles_begun_; }
  const CycleProgress& progress() const { return progress_; }

  // What its administrator does. A reconfiguration returns why it cannot be done, or an empty text.
  std::string reconfigure(const Radio& radio);
  void restart_radios();
  void unsubscribe(Millis now);

  // Events of stations, told by the driver.
  StationObserver::Answer admission(int radio, const Mac& station, Millis now);
  // Whether the AP holds the station back.
  bool station_joined(const Station& station, Millis now);
  void station_left(const Station& station, const Association& from, Cause why, Millis now);
  // A moment of an associated station's life, about once a second: the AP reports a signal that has changed.
  void station_observed(const Station& station, Millis now);

  // Fast transition: the VAP's key holder for an SSID with 802.11r, null before the controller has named it.
  const KeyHolder* key_holder(int radio, const std::string& ssid) const;

  // What the AP holds, for whoever checks it.
  std::vector<Refusal> blacklist(Millis now) const { return refusals_.present(now); }
  const HeldClients& held() const { return held_; }
  const std::vector<KeyHolder>& key_holders() const { return key_holders_; }
  // The last array "802dot11k" as it came; empty before there was one.
  const std::string& neighbour_list() const { return neighbour_list_; }
  int infos_received() const { return infos_received_; }

 private:
  struct Scan {
    Millis due = 0;
    ScanChannels channels;
  };
  struct ProbeAnswer {
    Millis due = 0;
    std::vector<Json> radios;
  };
  struct Listed {  // a station in the last subscription
    int radio = 0;
    std::string ssid;
  };
  struct Report {  // of a station's signal
    Millis at = 0;
    int rssi = 0;
  };
  struct Neighbour {
    int band = 0;  // 0: not told
    int priority = 0;
    std::map<std::string, Mac> bssids;  // by SSID
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
  void on_client_assoc_ack(const Json& message, Millis now);
  void on_fbt_info(const Json& message, Millis now);

  const AccessPoint& ap() const { return world_.site().access_points[index_]; }
  Json message(const char* command) const;
  void send(const Json& message);
  void log(const std::string& text) const { log_(ap().name + ": " + text); }

  void subscribe(Millis now);
  std::map<Mac, Listed> served_stations() const;
  void tell_what_changed_since_subscribing();
  void forget_controller(Millis now);
  void apply_settings(const Json& holder);
  void apply_radios(const Json& holder);
  void remember_neighbours(const Json& holder);
  Millis scan_duration_ms(const Json& message, const ScanChannels& channels) const;
  void answer_scan();
  void answer_probes(Millis now);
  Json probe_list_of(const Radio& radio, const Json& request) const;
  int heard_rssi(const Radio& radio, const Mac& station) const;
  int uplink_rssi(const Station& station) const;
  bool worth_reporting(int last, int present) const;
  bool controller_acknowledges() const;
  void announce(const Station& station, bool held);
  void announce_departure(const Mac& station, const std::string& ssid, int radio);
  void end_hold(const Mac& station, HoldEnd how, Millis now);
  void steer(int radio, int count, Millis now);
  bool may_be_asked(const Station& station, const Radio& radio) const;
  bool ask_to_move(const Station& station, const Radio& from, Millis now);
  std::vector<TransitionCandidate> transition_candidates(const Station& station, const Radio& from) const;

  World& world_;
  Stations& stations_;
  const std::size_t index_;
  const Log log_;
  const SteeringFeed feed_;
  std::vector<std::string> outgoing_;
  bool online_ = false;
  bool subscribed_ = false;
  Millis next_subscribe_ = 0;
  int cycles_begun_ = 0;
  std::uint64_t scans_ = 0;
  CycleProgress progress_;
  std::optional<Scan> scan_;
  std::deque<ProbeAnswer> probe_answers_;  // the first due first
  Refusals refusals_;
  HeldClients held_;
  std::vector<KeyHolder> key_holders_;
  std::map<Mac, Report> reports_;
  std::map<Mac, Listed> listed_;            // what the subscription told of stations
  std::map<Mac, Millis> asked_not_before_;  // stations that were asked to move
  std::vector<Neighbour> neighbours_;
  std::string neighbour_list_;
  int infos_received_ = 0;
  bool wants_subscription_ = true;
  bool restarting_ = false;
  // What the controller wants of an AP that steers.
  bool balances_ = false;
  int renew_seconds_ = 15;
  int tries_before_admission_ = 2;
  int roam_attempt_seconds_ = 600;
  int weak_dbm_ = -75;
  int strong_dbm_ = -65;
};

}  // namespace sim
