// A whole site at work: the world, its stations and one agent for each AP, with the cycles of the controller watched
// over all of them. It has neither socket nor clock; a driver tells it what arrives and how late it is. One thread.
#pragma once

#include <deque>
#include <map>
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
  // The site must outlive the simulation. The feed is told what befalls the stations, from the constructor on.
  Simulation(const Site& site, const Log& log, SteeringFeed feed = {});

  std::size_t size() const { return agents_.size(); }
  void connected(std::size_t ap, Millis now);
  void disconnected(std::size_t ap);
  void received(std::size_t ap, const std::string& text, Millis now);
  // To be called often; does what has become due.
  void tick(Millis now);
  // What the AP wants sent now.
  std::vector<std::string> take_outgoing(std::size_t ap);
  bool subscribed(std::size_t ap) const { return agents_[ap]->subscribed(); }

  // What people do, at any moment between the driver's calls. A client must be one of the site's; a false answer means
  // that it is not, or not here.
  bool enter(const Mac& client, const Point& at) { return stations_.enter(client, at); }
  bool leave(const Mac& client) { return stations_.leave(client); }
  // Gives a radio another configuration: take a copy of the world's, change it, and hand it over. The AP tells the
  // controller. Returns why it cannot be done, or an empty text.
  std::string reconfigure(std::size_t ap, const Radio& radio) { return agents_[ap]->reconfigure(radio); }
  // The radios go down and up again, and all stations of the AP look for another one.
  void restart_radios(std::size_t ap) { agents_[ap]->restart_radios(); }
  // The AP leaves the domain, until its session is lost and comes up again.
  void unsubscribe(std::size_t ap) { agents_[ap]->unsubscribe(now_); }

  const ApAgent& access_point(std::size_t ap) const { return *agents_[ap]; }
  const World& world() const { return world_; }
  const Stations& stations() const { return stations_; }
  int whole_cycles() const { return whole_cycles_; }
  // The oldest whole cycle that was not taken yet.
  std::optional<CycleResult> take_result();

  // Why there is no whole cycle: what is missing at how many APs, and the first of them.
  std::string missing() const;

 private:
  Answer ask(const Place& at, const Mac& station) override;
  bool takes_keys(const Place& at, const Station& station) override;
  std::optional<FtSession> authenticate(const Place& at, const Station& station) override;
  bool joined(const Station& station) override;
  void left(const Station& station, const Association& from, Cause why) override;
  void departed(const Station& station) override;
  void happened(const SteeringEvent& event) override;

  void step_stations(Millis now);
  std::string missing_at(const ApAgent& agent) const;
  void asked_for_mode(std::size_t ap);
  void end_cycle_if_whole();

  // Of a client since it first joined a radio.
  struct History {
    Cause cause = Cause::arrival;  // of its present association
    std::optional<Millis> unserved_since;
  };

  const SteeringFeed feed_;
  std::map<Mac, History> histories_;
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
