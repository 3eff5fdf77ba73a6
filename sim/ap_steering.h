// What one access point does about its clients: whom it refuses, sends away, holds back and asks to move, what it tells
// the controller of them, and the keys of fast transition that it keeps for them. It speaks through its AP's session,
// and hears of the controller's orders from there. One thread.
#pragma once

#include <cstdint>
#include <deque>
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

// The session of an AP.
class Uplink {
 public:
  virtual ~Uplink() = default;
  virtual bool subscribed() const = 0;
  // The envelope of a message.
  virtual Json message(const char* command) const = 0;
  virtual void send(const Json& message) = 0;
};

class ApSteering {
 public:
  // All that is given must outlive the object. The feed is told how holds end; the time and the cause of the
  // association are not filled in.
  ApSteering(const World& world, Stations& stations, std::size_t ap, Uplink& uplink, SteeringFeed feed);

  // Whether a command of the controller concerns clients.
  static bool knows(const std::string& command) { return handlers().count(command) != 0; }
  // Obeys such a command.
  void take(const std::string& command, const Json& message, Millis now);
  // "rrm-info", and "config" of the subscription's answer.
  void apply_settings(const Json& holder);
  // Does what has become due.
  void tick(Millis now);

  // The stations are listed in a subscription; it was answered, and what has changed since is told; there is no
  // controller any more.
  void listed();
  void subscription_answered();
  void controller_gone(Millis now);
  // All stations lose their radio, in one message.
  void restart_radios();

  StationObserver::Answer admission(int radio, const Mac& station, Millis now);
  // Whether the AP holds the station back.
  bool station_joined(const Station& station, Millis now);
  void station_left(const Station& station, const Association& from, Cause why, Millis now);
  void station_observed(const Station& station, Millis now);

  // The key holder of the VAP for an SSID with 802.11r, null before the controller has named it.
  const KeyHolder* key_holder(int radio, const std::string& ssid) const;

  std::vector<Refusal> blacklist(Millis now) const { return refusals_.present(now); }
  const HeldClients& held() const { return held_; }
  const std::vector<KeyHolder>& key_holders() const { return key_holders_; }
  const std::string& neighbour_list() const { return neighbour_list_; }

 private:
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
  using Handler = void (ApSteering::*)(const Json&, Millis);

  static const std::map<std::string, Handler>& handlers();
  void on_probe_request(const Json& message, Millis now);
  void on_blacklist(const Json& message, Millis now);
  void on_disassoc_request(const Json& message, Millis now);
  void on_overload(const Json& message, Millis now);
  void on_client_assoc_ack(const Json& message, Millis now);
  void on_fbt_info(const Json& message, Millis now);

  void block(int radio, const Mac& station, const Json& entry, Millis now);
  bool serves(int radio, const Mac& station, const std::string& ssid) const;
  void remember_neighbours(const Json& holder);
  std::map<Mac, Listed> served_stations() const;
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

  const World& world_;
  Stations& stations_;
  const std::size_t ap_;
  Uplink& uplink_;
  const SteeringFeed feed_;
  std::deque<ProbeAnswer> probe_answers_;  // the first due first
  Refusals refusals_;
  HeldClients held_;
  std::vector<KeyHolder> key_holders_;
  std::map<Mac, Report> reports_;
  std::map<Mac, Listed> listed_;
  std::map<Mac, Millis> asked_not_before_;  // stations that were asked to move
  std::vector<Neighbour> neighbours_;
  std::string neighbour_list_;
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
