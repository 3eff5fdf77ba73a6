#include "whole_site/reach_watch.h"

#include <algorithm>

namespace whole_site {

void ReachWatch::happened(const sim::SteeringEvent& event) {
  if (event.what == sim::Happening::left && event.cause == sim::Cause::radio_gone) {
    lost_their_radio_.insert(event.client);
  }
}

void ReachWatch::second_over() {
  std::map<sim::Mac, std::set<sim::Place>> refusing;
  const sim::Simulation& simulation = site_->simulation();
  for (std::size_t ap = 0; ap < simulation.size(); ++ap) {
    for (const sim::Refusal& refusal : simulation.access_point(ap).blacklist(site_->now())) {
      refusing[refusal.client].insert({ap, refusal.radio});
    }
  }
  for (const sim::Station& station : simulation.stations().all()) {
    if (station.present) {
      look_at(station, refusing[station.client->mac]);
    } else {
      clients_.erase(station.client->mac);
    }
  }
  lost_their_radio_.clear();
}

// Whoever serves it admits it.
void ReachWatch::look_at(const sim::Station& station, const std::set<sim::Place>& refusing) {
  std::set<sim::Place> in_reach;
  std::set<sim::Place> admitting;
  for (const sim::Candidate& candidate :
       sim::candidates(site_->simulation().world(), *station.client, station.position)) {
    const sim::Place place = candidate.place();
    in_reach.insert(place);
    const bool serves = station.association && candidate.is(*station.association);
    if (serves || refusing.count(place) == 0) admitting.insert(place);
  }
  if (in_reach.empty()) {
    clients_.erase(station.client->mac);
    return;
  }
  Client& client = clients_[station.client->mac];
  if (admitting.empty()) {
    strand(station, client, in_reach, refusing);
  } else {
    client.stranded_for = 0;
    if (admitting != in_reach) ++refused_seconds_;
  }
  client.in_reach = std::move(in_reach);
}

void ReachWatch::strand(const sim::Station& station, Client& client, const std::set<sim::Place>& in_reach,
                        const std::set<sim::Place>& refusing) {
  const std::string name = station.client->mac.text();
  if (client.stranded_for == 0) {
    ++stranded_;
    const bool came_here_now = client.in_reach.empty();
    const bool has_lost_its_radio = lost_their_radio_.count(station.client->mac) != 0;
    const bool has_lost_one = std::any_of(client.in_reach.begin(), client.in_reach.end(), [&](const sim::Place& place) {
      return in_reach.count(place) == 0 && refusing.count(place) == 0;
    });
    if (!came_here_now && !has_lost_its_radio && !has_lost_one) {
      findings_.add(site_->seconds(), name + " is refused by all, though nobody has gone");
    }
  }
  longest_ = std::max(longest_, ++client.stranded_for);
  if (client.stranded_for == site_->settings().blacklist_timeout + 1) {
    findings_.add(site_->seconds(), name + " has been refused by all for too long");
  }
}

}  // namespace whole_site
