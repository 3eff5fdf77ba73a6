// The clients that an AP has let associate, but whose traffic it holds back until the controller says that they may
// stay.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/mac.h"
#include "sim/steering_events.h"

namespace sim {

// How the holds of an AP have ended so far.
struct HoldCounts {
  int acknowledged = 0;
  int sent_away = 0;
  int client_left = 0;
  int radio_gone = 0;
  int timed_out = 0;
  int session_lost = 0;
  bool operator==(const HoldCounts&) const = default;
};

class HeldClients {
 public:
  struct Hold {
    int radio = 0;
    std::string ssid;
    Millis since = 0;
  };

  void hold(const Mac& client, const Hold& hold) { held_[client] = hold; }
  bool holds(const Mac& client) const { return held_.count(client) != 0; }
  // Null for a client that is not held.
  const Hold* find(const Mac& client) const;
  // Ends a hold and counts how; nothing for a client that is not held.
  std::optional<Hold> end(const Mac& client, HoldEnd how);

  // Those that are held since `moment` or longer, by address.
  std::vector<Mac> since(Millis moment) const;
  std::vector<Mac> all() const;
  const HoldCounts& ended() const { return ended_; }

 private:
  std::map<Mac, Hold> held_;
  HoldCounts ended_;
};

}  // namespace sim
