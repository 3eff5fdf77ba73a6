#include "sim/simulation.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr Millis station_step_ms = 1000;
constexpr Millis one_go_ms = 5000;

}  // namespace

Simulation::Simulation(const Site& site, const Log& log, SteeringFeed feed)
    : feed_(std::move(feed)), world_(site), stations_(world_, *this) {
  for (std::size_t i = 0; i < site.access_points.size(); ++i) {
    agents_.push_back(
        std::make_unique<ApAgent>(world_, stations_, i, log, [this](const SteeringEvent& event) { happened(event); }));
  }
  stations_.step();
}

void Simulation::connected(std::size_t ap, Millis now) {
  now_ = now;
  agents_[ap]->connected(now);
}

void Simulation::disconnected(std::size_t ap) {
  agents_[ap]->disconnected(now_);
}

void Simulation::received(std::size_t ap, const std::string& text, Millis now) {
  now_ = now;
  const int begun = agents_[ap]->cycles_begun();
  agents_[ap]->received(text, now);
  if (agents_[ap]->cycles_begun() != begun) {
    asked_for_mode(ap);
  }
  end_cycle_if_whole();
}

void Simulation::tick(Millis now) {
  now_ = now;
  for (const auto& agent : agents_) {
    agent->tick(now);
  }
  if (!next_step_) {
    next_step_ = now + station_step_ms;
  }
  while (now >= *next_step_) {
    step_stations(*next_step_);
    *next_step_ += station_step_ms;
  }
  now_ = now;
}

void Simulation::step_stations(Millis now) {
  now_ = now;
  stations_.step();
  for (const Station& station : stations_.all()) {
    if (station.association) {
      agents_[station.association->ap]->station_observed(station, now);
    }
  }
}

std::vector<std::string> Simulation::take_outgoing(std::size_t ap) {
  return agents_[ap]->take_outgoing();
}

// A controller asks all its APs in one go, and nothing has been planned yet when the first is asked.
void Simulation::asked_for_mode(std::size_t ap) {
  if (!cycle_open_ || now_ - cycle_began_ > one_go_ms) {
    cycle_open_ = true;
    cycle_began_ = now_;
    asked_.assign(agents_.size(), false);
    before_ = take_picture(world_);
  }
  asked_[ap] = true;
}

void Simulation::end_cycle_if_whole() {
  const auto whole = [](const auto& agent) { return agent->progress().missing().empty(); };
  if (!cycle_open_ || std::find(asked_.begin(), asked_.end(), false) != asked_.end() ||
      !std::all_of(agents_.begin(), agents_.end(), whole)) {
    return;
  }
  cycle_open_ = false;
  ++whole_cycles_;
  results_.push_back({whole_cycles_, static_cast<double>(now_ - cycle_began_) / 1000, std::exchange(before_, {}),
                      take_picture(world_)});
}

std::optional<CycleResult> Simulation::take_result() {
  if (results_.empty()) {
    return std::nullopt;
  }
  CycleResult result = std::move(results_.front());
  results_.pop_front();
  return result;
}

std::string Simulation::missing_at(const ApAgent& agent) const {
  return agent.subscribed() ? agent.progress().missing() : "not subscribed";
}

std::string Simulation::missing() const {
  std::string first;
  std::size_t count = 0;
  for (std::size_t i = 0; i < agents_.size(); ++i) {
    const std::string reason = missing_at(*agents_[i]);
    if (reason.empty()) {
      continue;
    }
    ++count;
    if (first.empty()) {
      first = world_.site().access_points[i].name + ": " + reason;
    }
  }
  return count == 0 ? "" : std::to_string(count) + " of " + std::to_string(agents_.size()) + " APs, first " + first;
}

StationObserver::Answer Simulation::ask(const Place& at, const Mac& station) {
  return agents_[at.ap]->admission(at.radio, station, now_);
}

// The new AP fetches the keys from where the station was last authenticated in full. An AP keeps them in one place for
// all its VAPs, and so needs no link to itself.
bool Simulation::takes_keys(const Place& at, const Station& station) {
  const std::string& ssid = station.client->ssid;
  const FtSession& keys = *station.keys;
  const KeyHolder* const target = agents_[at.ap]->key_holder(at.radio, ssid);
  const KeyHolder* const holder = agents_[keys.holder.ap]->key_holder(keys.holder.radio, ssid);
  return target != nullptr && holder != nullptr && holder->r0_id == keys.r0_id &&
         target->mobility_domain == keys.mobility_domain && holder->mobility_domain == keys.mobility_domain &&
         (at.ap == keys.holder.ap || can_exchange_keys(*target, *holder));
}

std::optional<FtSession> Simulation::authenticate(const Place& at, const Station& station) {
  const KeyHolder* const holder = agents_[at.ap]->key_holder(at.radio, station.client->ssid);
  return holder == nullptr ? std::nullopt : std::optional<FtSession>({at, holder->mobility_domain, holder->r0_id});
}

bool Simulation::joined(const Station& station) {
  return agents_[station.association->ap]->station_joined(station, now_);
}

void Simulation::left(const Station& station, const Association& from, Cause why) {
  agents_[from.ap]->station_left(station, from, why, now_);
}

void Simulation::departed(const Station& station) {
  histories_.erase(station.client->mac);
}

void Simulation::happened(const SteeringEvent& told) {
  SteeringEvent event = told;
  event.at = now_;
  History& history = histories_[event.client];
  if (event.what == Happening::joined || event.what == Happening::moved) {
    history.cause = event.cause;
    event.unserved = now_ - std::exchange(history.unserved_since, std::nullopt).value_or(now_);
  } else if (event.what == Happening::left) {
    history.unserved_since = now_;
  } else if (event.what == Happening::released) {
    event.cause = history.cause;
  }
  if (feed_) {
    feed_(event);
  }
}

}  // namespace sim
