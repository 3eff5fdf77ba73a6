#include "sim/simulation.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr Millis station_step_ms = 1000;
constexpr Millis one_go_ms = 5000;

}  // namespace

Simulation::Simulation(const Site& site, const Log& log) : world_(site), stations_(world_, *this) {
  for (std::size_t i = 0; i < site.access_points.size(); ++i) {
    agents_.push_back(std::make_unique<ApAgent>(world_, stations_, i, log));
  }
  stations_.step();
}

void Simulation::connected(std::size_t ap, Millis now) {
  now_ = now;
  agents_[ap]->connected(now);
}

void Simulation::disconnected(std::size_t ap) {
  agents_[ap]->disconnected();
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
  if (now < *next_step_) {
    return;
  }
  *next_step_ += station_step_ms;
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

StationObserver::Answer Simulation::ask(std::size_t ap, int radio, const Mac& station, int refusals) {
  return agents_[ap]->admission(radio, station, refusals, now_);
}

void Simulation::joined(const Station& station) {
  agents_[station.association->ap]->station_joined(station, now_);
}

void Simulation::left(const Station& station, const Association& from) {
  agents_[from.ap]->station_left(station, from);
}

}  // namespace sim
