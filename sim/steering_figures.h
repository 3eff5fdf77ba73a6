// What steering has done to the clients of a site, counted from the events that a simulation tells. Plain values; the
// site's own clients and APs are what is counted, nothing of the controller's.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/picture.h"
#include "sim/site.h"
#include "sim/steering_events.h"

namespace sim {

// Clients on one radio.
struct RadioLoad {
  Place place;
  int before = 0;   // at the window's first moment
  int highest = 0;  // so far
  int now = 0;
};

// Moves that an AP wanted of a client, and what became of them.
struct OrderedMoves {
  int succeeded = 0;     // on another radio, without a time in which it heard none
  int declined = 0;      // transitions only: the client stayed
  int given_up = 0;      // transitions only: it had agreed, but the other radio fell silent or its own lost it first
  int turned_away = 0;   // transitions only: the other radio did not let it in
  int back_at_once = 0;  // sent away only: it joined the same radio again, however often it had to knock
  int lost = 0;          // sent away only: it has found no radio, or only after a while

  int given() const { return succeeded + declined + given_up + turned_away + back_at_once + lost; }
};

// How a client's associations after its first were authenticated.
struct Transitions {
  int fast = 0;
  int full = 0;
};

struct WalkerFigures {
  Mac client;
  Transitions transitions;
};

struct HeldAssociations {
  std::map<HoldEnd, int> ended;
  int waiting = 0;
  Millis longest = 0;

  int of(HoldEnd end) const;
};

struct SteeringFigures {
  Millis at = 0;
  bool has_before = false;       // the window's first moment has passed
  std::vector<RadioLoad> loads;  // enabled radios by AP, then by id
  std::map<Cause, int> moves;    // of a client that had been served before, to any radio, by why it is there
  OrderedMoves by_transition;    // 802.11v
  OrderedMoves by_sending_away;
  int bounced = 0;  // of the ordered moves that succeeded: back on the radio that the client had to leave in a minute
  Transitions transitions;
  std::vector<WalkerFigures> walkers;  // in the site's order
  HeldAssociations held;
  int turned_away = 0;
  int let_in_for_good = 0;
  Millis longest_without_radio = 0;  // of the clients that were sent away

  int ordered() const { return by_transition.given() + by_sending_away.given(); }
  int succeeded() const { return by_transition.succeeded + by_sending_away.succeeded; }
};

// Takes the events of a simulation in their order. No radio is switched on or off meanwhile. One thread.
class SteeringLedger {
 public:
  SteeringLedger(const Site& site, SteeringWindow window);

  void take(const SteeringEvent& event);

  // The figures at a moment that is not before the last event.
  SteeringFigures figures(Millis now);

 private:
  struct Departure {  // that was ordered
    Place from;
    Millis at = 0;
  };
  struct ClientRecord {
    bool served_before = false;
    std::optional<Place> sent_from;  // it was sent away, and has not joined since
    std::vector<Departure> departures;
  };

  void pass_to(Millis now);
  void take_arrival(const SteeringEvent& event);
  void take_authentication(const SteeringEvent& event);
  void take_end_of_order(const SteeringEvent& event, ClientRecord& record);
  void take_bounce(const SteeringEvent& event, ClientRecord& record);
  void take_departure(const SteeringEvent& event);
  void take_release(const SteeringEvent& event);
  void add_load(const Place& place, int clients);

  const SteeringWindow window_;
  SteeringFigures figures_;
  std::map<Place, std::size_t> index_of_load_;
  std::map<Mac, std::size_t> index_of_walker_;
  std::map<Mac, ClientRecord> clients_;
};

// "Hall-1 at 5 GHz".
std::string name_of(const Site& site, const Place& place);
const Radio& radio_at(const Site& site, const Place& place);

// The checks that the site's expectations ask for. The figures are of a moment in the window.
std::vector<Check> check_steering(const Site& site, const SteeringFigures& figures);

}  // namespace sim
