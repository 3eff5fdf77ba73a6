// A whole site at work: the world, its stations and one agent for each AP, with the cycles of the controller watched
// over all of them. It has neither socket nor clock; a driver tells it what arrives and how late it is. One thread.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/ap_agent.h"
#include "sim/picture.h"
#include "sim/stations.h"
#include "sim/world.h"

namespace sim {

class Simulation : private StationObserver {
 public:
  // The site must outlive the simulation.
  Simulation(const Site& site, const Log& log);

  std::size_t size() const { return agents_.size(); }
  void connected(std::size_t ap, Millis now);
  void disconnected(std::size_t ap);
  void received(std::size_t ap, const std::string& text, Millis now);
  // To be called often; does what has become due.
  void tick(Millis now);
  // What the AP wants sent now.
  std::vector<std::string> take_outgoing(std::size_t ap);
  bool subscribed(std::size_t ap) const { return agents_[ap]->subscribed(); }

  const World& world() const { return world_; }
  const Stations& stations() const { return stations_; }
  int whole_cycles() const { return whole_cycles_; }
  // The oldest whole cycle that was not taken yet.
  std::optional<CycleResult> take_result();

  // Why there is no whole cycle: what is missing at how many APs, and the first of them.
  std::string missing() const;

 private:
  Answer ask(std::size_t ap, int radio, const Mac& station, int refusals) override;
  void joined(const Station& station) override;
  void left(const Station& station, const Association& from) override;

  std::string missing_at(const ApAgent& agent) const;
  void asked_for_mode(std::size_t ap);
  void end_cycle_if_whole();

  World world_;
  Stations stations_;
  std::vector<std::unique_ptr<ApAgent>> agents_;
  Millis now_ = 0;
  std::optional<Millis> next_step_;
  bool cycle_open_ = false;
  Millis cycle_began_ = 0;
  std::vector<bool> asked_;  // APs that were asked for their mode in the open cycle
  Picture before_;
  int whole_cycles_ = 0;
  std::deque<CycleResult> results_;
};

}  // namespace sim
