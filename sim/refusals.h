// Whom an AP turns away: each entry holds for one radio and until its time is over, or until it is taken back. A client
// that keeps knocking is let in all the same in the end, since a client without service is worse than one in the wrong
// place; the AP counts its knocks as long as it has an entry for the client.
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "sim/mac.h"
#include "sim/stations.h"
#include "sim/steering_events.h"

namespace sim {

struct Refusal {
  int radio = 0;
  Mac client;
  Millis until = 0;
  bool operator==(const Refusal&) const = default;
};

class Refusals {
 public:
  // A new time replaces the old one.
  void block(int radio, const Mac& client, Millis until) { until_[{radio, client}] = until; }
  void unblock(int radio, const Mac& client) { until_.erase({radio, client}); }
  void clear();

  // Answers a client that knocks; `patience` is how often it is refused before it is let in for good.
  StationObserver::Answer answer(int radio, const Mac& client, int patience, Millis now);

  // The entries whose time is not over, by radio and client.
  std::vector<Refusal> present(Millis now) const;

 private:
  void forget_what_is_over(Millis now);

  std::map<std::pair<int, Mac>, Millis> until_;
  std::map<Mac, int> knocks_;
};

}  // namespace sim
