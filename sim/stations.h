// The clients of a site: they come and go, walk, choose the radio that serves them best, roam when another one is
// clearly better, are turned away where an AP refuses them, and answer an AP that asks them to move, each after its
// temper. Time passes only by step(); what an AP tells a client, it hears at once and acts upon in one of the next
// steps. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/site.h"
#include "sim/steering_events.h"
#include "sim/world.h"

namespace sim {

struct Association {
  std::size_t ap = 0;
  int radio = 0;
  bool no_balance = false;
  bool operator==(const Association&) const = default;

  Place place() const { return {ap, radio}; }
};

// What a station keeps of a full authentication on an SSID with 802.11r, as long as it is associated somewhere: who
// holds the root of its keys.
struct FtSession {
  Place holder;
  int mobility_domain = 0;
  std::string r0_id;
};

struct Station {
  const Client* client = nullptr;
  Point position;
  std::size_t next_waypoint = 0;
  bool present = false;
  std::optional<Association> association;
  std::optional<FtSession> keys;
  int refusals = 0;  // since it last joined a radio

  // Its intentions, which no AP knows.
  struct Loss {
    Place place;
    Cause cause = Cause::sent_away;
  };
  std::optional<Place> goes_to;               // the transition that it agreed to
  std::optional<Loss> lost;                   // why it has no radio
  std::optional<Place> sent_from;             // where one that comes back would like to be
  bool content = false;                       // it was steered here, and looks no further while it hears this well
  std::uint64_t searches_from = 0;            // the step from which on it has finished listening around
  std::map<Place, std::uint64_t> refused_in;  // radios that turned it away since it last joined one, with the step
};

// The APs as the stations meet them.
class StationObserver {
 public:
  virtual ~StationObserver() = default;
  enum class Answer { accepts, accepts_for_good, refuses };
  // "For good": it gets in although it should not, since it keeps trying, and asks to be left alone from then on.
  virtual Answer ask(const Place& at, const Mac& station) = 0;
  // Whether the APs can do without a full authentication when the station comes with the keys that it has.
  virtual bool takes_keys(const Place& at, const Station& station) = 0;
  // What the station gets from a full authentication.
  virtual std::optional<FtSession> authenticate(const Place& at, const Station& station) = 0;
  // Whether its AP holds it back.
  virtual bool joined(const Station& station) = 0;
  virtual void left(const Station& station, const Association& from, Cause why) = 0;
  // It is off the site, wherever it was.
  virtual void departed(const Station& station) = 0;
  // `at`, `unserved` and what concerns holds are not filled in.
  virtual void happened(const SteeringEvent& event) = 0;
};

// A radio that a client could use from some place, and how much it would like to.
struct Candidate {
  std::size_t ap = 0;
  int radio = 0;
  double score = 0;

  Place place() const { return {ap, radio}; }
  bool is(const Association& association) const { return place() == association.place(); }
};

// The radios that offer the client its SSID with a usable signal, the preferred one first: by signal, with a bonus for
// 5 and 6 GHz.
std::vector<Candidate> candidates(const World& world, const Client& client, const Point& at);

// A BSSID that an AP proposes to a client (802.11v); the higher the priority, the better, and 0 is a last resort.
struct TransitionCandidate {
  Mac bssid;
  int priority = 0;
};

class Stations {
 public:
  // World and observer must outlive the object.
  Stations(const World& world, StationObserver& observer);

  // One second passes.
  void step();

  // Puts a station at a point, whether it was on the site or not; a walker goes on along its path from there. False for
  // an unknown one.
  bool enter(const Mac& station, const Point& at);
  // Takes a station off the site. False for one that is not there.
  bool leave(const Mac& station);

  // Its AP orders a station off; it takes a second to listen around, then looks for another radio.
  void dismiss(const Mac& station);
  // The AP's radios were started anew, or do not offer any more what some stations use.
  void lose_all(std::size_t ap);
  void lose_unserved();

  // A station's answer to a proposal: the BSSID to which it is going to move, in its next step, or nothing if it
  // declines. It takes the candidate of the highest priority that it hears well, among equals the strongest; a last
  // resort only if it hears no other candidate well, and its own radio neither.
  std::optional<Mac> propose(const Mac& station, const std::vector<TransitionCandidate>& list);

  const std::vector<Station>& all() const { return stations_; }
  const Station* find(const Mac& station) const;
  // Stations of one radio, in the site's order.
  std::vector<const Station*> served_by(std::size_t ap, int radio) const;

 private:
  void keep_hours(Station& station);
  void walk(Station& station) const;
  void act(Station& station, bool may_choose);
  void choose(Station& station);
  bool goes_back(Station& station);
  bool knock(Station& station, const Place& at, Cause cause);
  bool hears(const Station& station, const Place& place) const;
  bool avoids(const Station& station, const Place& place) const;
  double serving_level(const Station& station) const;
  bool out_of_reach(const Station& station) const;
  bool worth_leaving(const Station& station, const Candidate& best) const;
  std::optional<TransitionCandidate> best_of(const Station& station,
                                             const std::vector<TransitionCandidate>& list) const;
  void join(Station& station, const Association& association, Cause cause);
  void give_up_transition(Station& station);
  void end_association(Station& station, Cause cause);
  void lose(Station& station, Cause cause);
  void depart(Station& station);
  Station* find_mutable(const Mac& station);

  const World& world_;
  StationObserver& observer_;
  std::vector<Station> stations_;
  std::map<Mac, std::size_t> index_;
  std::uint64_t steps_ = 0;
};

// The weakest signal with which a station still uses a radio, and the weakest that it calls good, dBm.
inline constexpr double weakest_usable_dbm = -80;
inline constexpr double weakest_good_dbm = -67;

}  // namespace sim
