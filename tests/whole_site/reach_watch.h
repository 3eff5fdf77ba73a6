// Blacklists strand nobody: every client that hears radios of its SSID hears one that admits it. It may hear none only
// because one that would admit it has just gone out of its reach, and then for no longer than an entry of a blacklist
// lasts. Looked at every second.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "whole_site/controlled_site.h"
#include "whole_site/findings.h"

namespace whole_site {

class ReachWatch final : public Watcher {
 public:
  void look_at(ControlledSite& site) { site_ = &site; }

  void happened(const sim::SteeringEvent& event) override;
  void second_over() override;

  const Findings& findings() const { return findings_; }
  int refused_seconds() const { return refused_seconds_; }  // of clients that some radio in reach refused, others not
  int stranded() const { return stranded_; }                // how often a client lost all that admitted it
  int longest() const { return longest_; }                  // seconds that one stayed without

 private:
  struct Client {
    std::set<sim::Place> in_reach;  // in the last second
    int stranded_for = 0;           // seconds
  };

  void look_at(const sim::Station& station, const std::set<sim::Place>& refusing);
  void strand(const sim::Station& station, Client& client, const std::set<sim::Place>& in_reach,
              const std::set<sim::Place>& refusing);

  ControlledSite* site_ = nullptr;
  std::map<sim::Mac, Client> clients_;
  std::set<sim::Mac> lost_their_radio_;  // in this second, since it was switched off or started anew
  Findings findings_;
  int refused_seconds_ = 0;
  int stranded_ = 0;
  int longest_ = 0;
};

}  // namespace whole_site
