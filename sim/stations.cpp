#include "sim/stations.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr double roaming_hysteresis_db = 8;
constexpr double high_band_bonus_db = 10;  // how much weaker a 5 or 6 GHz signal may be and still be preferred
constexpr std::uint64_t seconds_between_choices = 5;
constexpr std::uint64_t seconds_of_avoidance = 30;  // of a radio that refused a station which has another one
constexpr double weakest_content_dbm = -70;         // with this a steered station looks for nothing better

double band_bonus_db(const Radio& radio) {
  return radio.band == 2 ? 0 : high_band_bonus_db;
}

bool offers(const Radio& radio, const Client& client) {
  return radio.enabled && std::find(client.bands.begin(), client.bands.end(), radio.band) != client.bands.end() &&
         vap_of(radio, client.ssid) != nullptr;
}

}  // namespace

std::vector<Candidate> candidates(const World& world, const Client& client, const Point& at) {
  std::vector<Candidate> result;
  for (std::size_t ap = 0; ap < world.site().access_points.size(); ++ap) {
    for (const Radio& radio : world.radios(ap)) {
      if (!offers(radio, client)) {
        continue;
      }
      const double level = world.downlink_dbm(ap, radio, at, client.mac);
      if (level >= weakest_usable_dbm) {
        result.push_back({ap, radio.id, level + band_bonus_db(radio)});
      }
    }
  }
  std::stable_sort(result.begin(), result.end(),
                   [](const Candidate& a, const Candidate& b) { return a.score > b.score; });
  return result;
}

Stations::Stations(const World& world, StationObserver& observer) : world_(world), observer_(observer) {
  for (const Client& client : world.site().clients) {
    Station& station = stations_.emplace_back();
    station.client = &client;
    station.position = client.position;
    index_[client.mac] = stations_.size() - 1;
  }
}

void Stations::step() {
  for (std::size_t i = 0; i < stations_.size(); ++i) {
    Station& station = stations_[i];
    keep_hours(station);
    if (station.present) {
      walk(station);
      act(station, (steps_ + i) % seconds_between_choices == 0);
    }
  }
  ++steps_;
}

void Stations::keep_hours(Station& station) {
  if (steps_ == static_cast<std::uint64_t>(station.client->from)) {
    station.present = true;
  }
  if (station.client->until && steps_ == static_cast<std::uint64_t>(*station.client->until)) {
    depart(station);
  }
}

void Stations::walk(Station& station) const {
  const auto& path = station.client->path;
  if (path.empty()) {
    return;
  }
  const Point target = path[station.next_waypoint];
  const double left = distance_m(station.position, target);
  if (left <= station.client->speed) {
    station.position = target;
    station.next_waypoint = (station.next_waypoint + 1) % path.size();
    return;
  }
  const double part = station.client->speed / left;
  station.position.x += (target.x - station.position.x) * part;
  station.position.y += (target.y - station.position.y) * part;
}

void Stations::act(Station& station, bool may_choose) {
  if (station.goes_to && hears(station, *station.goes_to)) {
    knock(station, *std::exchange(station.goes_to, std::nullopt), Cause::transition);
    return;
  }
  give_up_transition(station);
  const bool searches = !station.association && steps_ >= station.searches_from;
  if (searches || (station.association && (may_choose || station.sent_from))) {
    choose(station);
  }
}

double Stations::serving_level(const Station& station) const {
  const Association& now = *station.association;
  return world_.downlink_dbm(now.ap, *world_.radio(now.ap, now.radio), station.position, station.client->mac);
}

bool Stations::out_of_reach(const Station& station) const {
  return serving_level(station) < weakest_usable_dbm;
}

bool Stations::worth_leaving(const Station& station, const Candidate& best) const {
  const double level = serving_level(station);
  if (level < weakest_usable_dbm) {
    return true;
  }
  if (station.client->temper == Temper::sticks || (station.content && level >= weakest_content_dbm)) {
    return false;
  }
  const Radio& radio = *world_.radio(station.association->ap, station.association->radio);
  return best.score > level + band_bonus_db(radio) + roaming_hysteresis_db;
}

// Nobody knocks twice in one step. One that has service lets a radio that refused it alone for a while; one that has
// none keeps trying.
bool Stations::avoids(const Station& station, const Place& place) const {
  const auto refused = station.refused_in.find(place);
  const std::uint64_t pause = station.association ? seconds_of_avoidance : 1;
  return refused != station.refused_in.end() && steps_ < refused->second + pause;
}

void Stations::choose(Station& station) {
  const auto heard = candidates(world_, *station.client, station.position);
  if (heard.empty()) {
    station.lost.reset();
  }
  if (goes_back(station)) {
    return;
  }
  for (const Candidate& candidate : heard) {
    if (station.association && (candidate.is(*station.association) || !worth_leaving(station, candidate))) {
      return;
    }
    const Cause without_radio = station.lost ? station.lost->cause : Cause::arrival;
    if (!avoids(station, candidate.place()) &&
        knock(station, candidate.place(), station.association ? Cause::own_choice : without_radio)) {
      return;
    }
  }
  if (station.association && out_of_reach(station)) {
    lose(station, Cause::out_of_reach);
  }
}

bool Stations::hears(const Station& station, const Place& place) const {
  const auto heard = candidates(world_, *station.client, station.position);
  return std::any_of(heard.begin(), heard.end(),
                     [&](const Candidate& candidate) { return candidate.place() == place; });
}

bool Stations::goes_back(Station& station) {
  return station.sent_from && hears(station, *station.sent_from) &&
         knock(station, *station.sent_from, Cause::came_back);
}

bool Stations::knock(Station& station, const Place& at, Cause cause) {
  const auto answer = observer_.ask(at, station.client->mac);
  if (answer != StationObserver::Answer::refuses) {
    join(station, {at.ap, at.radio, answer == StationObserver::Answer::accepts_for_good}, cause);
    return true;
  }
  ++station.refusals;
  station.refused_in[at] = steps_;
  SteeringEvent event;
  event.client = station.client->mac;
  event.what = Happening::turned_away;
  event.cause = cause;
  if (station.association) {
    event.from = station.association->place();
  }
  event.to = at;
  observer_.happened(event);
  return false;
}

void Stations::join(Station& station, const Association& association, Cause cause) {
  const Place to = association.place();
  SteeringEvent event;
  event.client = station.client->mac;
  event.what = station.association ? Happening::moved : Happening::joined;
  event.cause = cause;
  event.to = to;
  event.for_good = association.no_balance;
  event.refusals = std::exchange(station.refusals, 0);
  if (station.association) {
    event.from = station.association->place();
  } else if (station.lost) {
    event.from = station.lost->place;
  }
  const bool fast = station.association && station.keys && observer_.takes_keys(to, station);
  event.authentication = fast ? Authentication::fast : Authentication::full;
  const auto keys = fast ? station.keys : observer_.authenticate(to, station);
  if (station.association) {
    end_association(station, cause);
  }
  station.association = association;
  station.keys = keys;
  station.content = cause == Cause::transition || cause == Cause::sent_away;
  if (cause == Cause::transition && station.client->temper == Temper::comes_back) {
    station.sent_from = event.from;
  } else if (station.sent_from == to) {
    station.sent_from.reset();
  }
  station.lost.reset();
  station.refused_in.clear();
  event.held = observer_.joined(station);
  observer_.happened(event);
}

// Its AP was told that it would go, so it counts as one that was asked in vain.
void Stations::give_up_transition(Station& station) {
  if (!station.goes_to) {
    return;
  }
  SteeringEvent event;
  event.client = station.client->mac;
  event.what = Happening::gave_up;
  event.cause = Cause::transition;
  event.from = station.association->place();
  event.to = std::exchange(station.goes_to, std::nullopt);
  observer_.happened(event);
}

void Stations::end_association(Station& station, Cause cause) {
  give_up_transition(station);
  const Association from = *std::exchange(station.association, std::nullopt);
  station.keys.reset();
  station.content = false;
  observer_.left(station, from, cause);
}

// The station is without a radio for a moment at least.
void Stations::lose(Station& station, Cause cause) {
  SteeringEvent event;
  event.client = station.client->mac;
  event.what = Happening::left;
  event.cause = cause;
  event.from = station.association->place();
  end_association(station, cause);
  station.lost = Station::Loss{*event.from, cause};
  station.searches_from = steps_ + 1;
  if (cause == Cause::sent_away && station.client->temper == Temper::comes_back) {
    station.sent_from = event.from;
  }
  observer_.happened(event);
}

void Stations::depart(Station& station) {
  if (station.association) {
    lose(station, Cause::departure);
  }
  observer_.departed(station);
  Station gone;
  gone.client = station.client;
  gone.position = station.client->position;
  station = gone;
}

bool Stations::enter(const Mac& mac, const Point& at) {
  Station* const station = find_mutable(mac);
  if (station == nullptr) {
    return false;
  }
  station->present = true;
  station->position = at;
  return true;
}

bool Stations::leave(const Mac& mac) {
  Station* const station = find_mutable(mac);
  if (station == nullptr || !station->present) {
    return false;
  }
  depart(*station);
  return true;
}

void Stations::dismiss(const Mac& mac) {
  Station* const station = find_mutable(mac);
  if (station != nullptr && station->association) {
    lose(*station, Cause::sent_away);
  }
}

void Stations::lose_all(std::size_t ap) {
  for (Station& station : stations_) {
    if (station.association && station.association->ap == ap) {
      lose(station, Cause::radio_gone);
    }
  }
}

void Stations::lose_unserved() {
  for (Station& station : stations_) {
    if (station.association &&
        !offers(*world_.radio(station.association->ap, station.association->radio), *station.client)) {
      lose(station, Cause::radio_gone);
    }
  }
}

std::optional<TransitionCandidate> Stations::best_of(const Station& station,
                                                     const std::vector<TransitionCandidate>& list) const {
  std::optional<TransitionCandidate> best;
  double best_level = 0;
  for (const TransitionCandidate& candidate : list) {
    const auto place = world_.find_bssid(candidate.bssid);
    if (!place || *place == station.association->place()) {
      continue;
    }
    const Radio& radio = *world_.radio(place->ap, place->radio);
    const double level = world_.downlink_dbm(place->ap, radio, station.position, station.client->mac);
    if (!offers(radio, *station.client) || level < weakest_good_dbm) {
      continue;
    }
    if (!best || candidate.priority > best->priority || (candidate.priority == best->priority && level > best_level)) {
      best = candidate;
      best_level = level;
    }
  }
  return best;
}

std::optional<Mac> Stations::propose(const Mac& mac, const std::vector<TransitionCandidate>& list) {
  Station* const station = find_mutable(mac);
  if (station == nullptr || !station->association) {
    return std::nullopt;
  }
  const auto best = station->client->temper == Temper::refuses ? std::nullopt : best_of(*station, list);
  if (best && (best->priority > 0 || serving_level(*station) < weakest_good_dbm)) {
    give_up_transition(*station);  // the one that it had not made yet
    station->goes_to = world_.find_bssid(best->bssid);
    return best->bssid;
  }
  SteeringEvent event;
  event.client = mac;
  event.what = Happening::declined;
  event.cause = Cause::transition;
  event.from = station->association->place();
  observer_.happened(event);
  return std::nullopt;
}

const Station* Stations::find(const Mac& station) const {
  const auto found = index_.find(station);
  return found == index_.end() ? nullptr : &stations_[found->second];
}

Station* Stations::find_mutable(const Mac& station) {
  const auto found = index_.find(station);
  return found == index_.end() ? nullptr : &stations_[found->second];
}

std::vector<const Station*> Stations::served_by(std::size_t ap, int radio) const {
  std::vector<const Station*> result;
  for (const Station& station : stations_) {
    if (station.association && station.association->place() == Place{ap, radio}) {
      result.push_back(&station);
    }
  }
  return result;
}

}  // namespace sim
