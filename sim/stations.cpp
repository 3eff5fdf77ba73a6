#include "sim/stations.h"

#include <algorithm>

namespace sim {
namespace {

constexpr double roaming_hysteresis_db = 8;
constexpr double high_band_bonus_db = 10;  // how much weaker a 5 or 6 GHz signal may be and still be preferred
constexpr std::uint64_t seconds_between_choices = 5;

double band_bonus_db(const Radio& radio) {
  return radio.band == 2 ? 0 : high_band_bonus_db;
}

bool offers(const Radio& radio, const Client& client) {
  const auto has_ssid = [&](const Vap& vap) { return vap.ssid == client.ssid; };
  return radio.enabled && std::find(client.bands.begin(), client.bands.end(), radio.band) != client.bands.end() &&
         std::any_of(radio.vaps.begin(), radio.vaps.end(), has_ssid);
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
    stations_.push_back({&client, client.position, 0, std::nullopt, {}});
  }
}

void Stations::step() {
  for (std::size_t i = 0; i < stations_.size(); ++i) {
    Station& station = stations_[i];
    walk(station);
    if (!station.association || (steps_ + i) % seconds_between_choices == 0) {
      choose(station);
    }
  }
  ++steps_;
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

double Stations::serving_level(const Station& station) const {
  const Association& now = *station.association;
  return world_.downlink_dbm(now.ap, *world_.radio(now.ap, now.radio), station.position, station.client->mac);
}

bool Stations::out_of_reach(const Station& station) const {
  return serving_level(station) < weakest_usable_dbm;
}

bool Stations::worth_leaving(const Station& station, const Candidate& best) const {
  const Radio& radio = *world_.radio(station.association->ap, station.association->radio);
  const double score = serving_level(station) + band_bonus_db(radio);
  return out_of_reach(station) || best.score > score + roaming_hysteresis_db;
}

void Stations::choose(Station& station) {
  for (const Candidate& candidate : candidates(world_, *station.client, station.position)) {
    if (station.association && (candidate.is(*station.association) || !worth_leaving(station, candidate))) {
      return;
    }
    int& refusals = station.refusals[candidate.ap];
    const auto answer = observer_.ask(candidate.ap, candidate.radio, station.client->mac, refusals);
    if (answer != StationObserver::Answer::refuses) {
      join(station, {candidate.ap, candidate.radio, answer == StationObserver::Answer::accepts_for_good});
      return;
    }
    ++refusals;
  }
  if (station.association && out_of_reach(station)) {
    leave(station);
  }
}

void Stations::join(Station& station, const Association& association) {
  leave(station);
  station.association = association;
  station.refusals.clear();
  observer_.joined(station);
}

void Stations::leave(Station& station) {
  if (station.association) {
    const Association from = *station.association;
    station.association.reset();
    observer_.left(station, from);
  }
}

void Stations::dismiss(const Mac& mac) {
  Station* const station = find_mutable(mac);
  if (station != nullptr && station->association) {
    leave(*station);
    choose(*station);
  }
}

void Stations::move(const Mac& mac, std::size_t ap, int radio) {
  Station* const station = find_mutable(mac);
  if (station == nullptr) {
    return;
  }
  const auto list = candidates(world_, *station->client, station->position);
  const Association target{ap, radio, false};
  if (std::any_of(list.begin(), list.end(), [&](const Candidate& candidate) { return candidate.is(target); })) {
    join(*station, target);
  }
}

const Station* Stations::find(const Mac& mac) const {
  const auto found = std::find_if(stations_.begin(), stations_.end(),
                                  [&](const Station& station) { return station.client->mac == mac; });
  return found == stations_.end() ? nullptr : &*found;
}

Station* Stations::find_mutable(const Mac& mac) {
  return const_cast<Station*>(find(mac));
}

std::vector<const Station*> Stations::served_by(std::size_t ap, int radio) const {
  std::vector<const Station*> result;
  for (const Station& station : stations_) {
    if (station.association && station.association->ap == ap && station.association->radio == radio) {
      result.push_back(&station);
    }
  }
  return result;
}

}  // namespace sim
