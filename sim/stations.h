// The clients of a site: they walk, choose the radio that serves them best, roam when another one is clearly better,
// and are turned away where an AP refuses them. Time passes only by step(). One thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "sim/site.h"
#include "sim/world.h"

namespace sim {

struct Association {
  std::size_t ap = 0;
  int radio = 0;
  bool no_balance = false;
  bool operator==(const Association&) const = default;
};

struct Station {
  const Client* client = nullptr;
  Point position;
  std::size_t next_waypoint = 0;
  std::optional<Association> association;
  std::map<std::size_t, int> refusals;  // by AP, since the station last joined one
};

// The APs as the stations meet them.
class StationObserver {
 public:
  virtual ~StationObserver() = default;
  enum class Answer { accepts, accepts_for_good, refuses };
  // `refusals`: how often this AP has already turned the station away. "For good": it gets in although it should not,
  // since it keeps trying, and asks to be left alone from then on.
  virtual Answer ask(std::size_t ap, int radio, const Mac& station, int refusals) = 0;
  virtual void joined(const Station& station) = 0;
  virtual void left(const Station& station, const Association& from) = 0;
};

// A radio that a client could use from some place, and how much it would like to.
struct Candidate {
  std::size_t ap = 0;
  int radio = 0;
  double score = 0;

  bool is(const Association& association) const { return ap == association.ap && radio == association.radio; }
};

// The radios that offer the client its SSID with a usable signal, the preferred one first: by signal, with a bonus for
// 5 and 6 GHz.
std::vector<Candidate> candidates(const World& world, const Client& client, const Point& at);

class Stations {
 public:
  // World and observer must outlive the object.
  Stations(const World& world, StationObserver& observer);

  // One second passes.
  void step();

  // Sends a station away from where it is; it looks for another radio at once.
  void dismiss(const Mac& station);

  // Moves a station to a given radio, as after an ordered roam. Without effect if it cannot hear that radio.
  void move(const Mac& station, std::size_t ap, int radio);

  const std::vector<Station>& all() const { return stations_; }
  const Station* find(const Mac& station) const;
  // Stations of one radio, in the site's order.
  std::vector<const Station*> served_by(std::size_t ap, int radio) const;

 private:
  void walk(Station& station) const;
  void choose(Station& station);
  double serving_level(const Station& station) const;
  bool out_of_reach(const Station& station) const;
  bool worth_leaving(const Station& station, const Candidate& best) const;
  void join(Station& station, const Association& association);
  void leave(Station& station);
  Station* find_mutable(const Mac& station);

  const World& world_;
  StationObserver& observer_;
  std::vector<Station> stations_;
  std::uint64_t steps_ = 0;
};

// The weakest signal with which a station still uses a radio, dBm.
inline constexpr double weakest_usable_dbm = -80;

}  // namespace sim
