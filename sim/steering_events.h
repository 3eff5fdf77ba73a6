// What befalls the clients of a simulated site: who went where, why, how it was let in, and how long its traffic was
// held back. A Simulation tells each event once, in the order in which things happen, to the feed that it was given;
// reports and tests read nothing else about steering. The same site and the same messages give the same events.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "sim/mac.h"

namespace sim {

using Millis = std::int64_t;

// A radio, by its AP's place in the site file and its id.
struct Place {
  std::size_t ap = 0;
  int radio = 0;
  bool operator==(const Place&) const = default;
  bool operator<(const Place& other) const { return ap != other.ap ? ap < other.ap : radio < other.radio; }
};

enum class Happening {
  joined,       // served by nobody before, by `to` now
  moved,        // from `from` to `to` without a moment between
  left,         // served by `from` before, by nobody now
  turned_away,  // `to` refused it
  declined,     // it refused the transition that `from` asked it to make
  gave_up,      // it had agreed to a transition from `from` to `to`, but `to` fell silent or `from` lost it first
  released,     // `to` holds it back no longer: see hold_end
};

enum class Cause {
  arrival,       // it is new on the site, or heard no radio before
  own_choice,    // it found a better radio by itself
  came_back,     // it went back, by itself, to where it had been sent away from
  sent_away,     // its AP ordered it off
  transition,    // its AP asked it to move to another radio (802.11v)
  out_of_reach,  // it hears its radio no more
  radio_gone,    // its radio or its SSID there was switched off or started anew
  departure,     // it left the site
};

// Full: a new key hierarchy. Fast: the keys of the first full authentication serve again (802.11r).
enum class Authentication { full, fast };

// How the time ended for which an AP let a client associate, but not send, until the controller acknowledged it.
enum class HoldEnd {
  acknowledged,
  sent_away,     // by its AP, on the controller's order
  client_left,   // by itself, or it walked out of reach
  radio_gone,    // its radio or its SSID there was switched off or started anew
  timed_out,     // the AP waited long enough and let it send
  session_lost,  // the AP lost its controller and let it send
};

struct SteeringEvent {
  Millis at = 0;  // of the driver's clock; 0 for what happened before it began
  Mac client;
  Happening what = Happening::joined;
  // Of `joined` and `moved`, why it is where it is now; of `left`, why it is not there any more; of `turned_away`, why
  // it wanted to go there. `joined` after `left` repeats the cause of `left`, unless the client went back to where it
  // was sent away from, or found no radio for a while: that makes it an arrival. `declined` and `gave_up` are always of
  // a transition; `released` has the cause of the association.
  Cause cause = Cause::arrival;
  // Of `joined`: the place that it was sent away from or lost, if that is why it looked for another.
  std::optional<Place> from;
  std::optional<Place> to;
  // joined, moved:
  std::optional<Authentication> authentication;
  bool held = false;      // its AP waits for the controller before it lets the client send
  bool for_good = false;  // let in although it was to be refused, since it kept trying, and left alone from now on
  int refusals = 0;       // how often it was turned away since it last joined a radio
  Millis unserved = 0;    // joined: how long it was without a radio; 0 at its first
  // released:
  std::optional<HoldEnd> hold_end;
  Millis held_for = 0;
};

// Called from within the simulation, and must not call back into it.
using SteeringFeed = std::function<void(const SteeringEvent&)>;

// The words of an enumeration as they are written above, with blanks: "sent away".
std::string name_of(Happening what);
std::string name_of(Cause cause);
std::string name_of(Authentication kind);
std::string name_of(HoldEnd end);

}  // namespace sim
