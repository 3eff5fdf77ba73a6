// Held associations: an AP that holds a client back until the controller has made up its mind gets an answer, exactly
// one acknowledgement or an order to send the client away, unless the client leaves by itself or the AP loses its
// session. An order that was decided upon while balancing was paused is not told; then, and only then, the AP waits in
// vain and lets the client send by itself.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>

#include "whole_site/controlled_site.h"
#include "whole_site/findings.h"

namespace whole_site {

class HoldWatch final : public Watcher {
 public:
  void look_at(ControlledSite& site) { site_ = &site; }

  void pass_over(const Pass& pass) override;
  void told(std::size_t ap, const Json& message) override;
  void session_ends(std::size_t ap) override { ending_sessions_.insert(ap); }
  void happened(const sim::SteeringEvent& event) override;
  void second_over() override;

  const Findings& findings() const { return findings_; }
  int holds() const { return holds_; }
  int ended(sim::HoldEnd how) const;
  int queries() const { return queries_; }
  int moves() const { return moves_; }            // decided by the probe lists
  int told_moves() const { return told_moves_; }  // orders to leave
  int lost_moves() const { return lost_moves_; }  // of held clients, decided in a pause
  int transitions() const { return transitions_; }
  int overloads() const { return overloads_; }

 private:
  using Key = std::pair<std::size_t, sim::Mac>;  // AP and client
  struct Hold {
    int radio = 0;
    bool lost_order = false;
  };

  void decided(const sim::Mac& client, const Pass& pass);
  void acknowledged(std::size_t ap, const Json& message);
  void ordered(std::size_t ap, const Json& message);
  void began(const sim::SteeringEvent& event);
  void ended(const sim::SteeringEvent& event);
  void fault(const std::string& what) { findings_.add(site_->seconds(), what); }

  ControlledSite* site_ = nullptr;
  std::map<Key, Hold> open_;
  std::map<sim::HoldEnd, int> ends_;
  // In the present second:
  std::set<Key> ended_by_themselves_;
  std::set<Key> ordered_off_;
  std::set<std::size_t> ending_sessions_;

  Findings findings_;
  int holds_ = 0;
  int queries_ = 0;
  int moves_ = 0;
  int told_moves_ = 0;
  int lost_moves_ = 0;
  int transitions_ = 0;
  int overloads_ = 0;
};

}  // namespace whole_site
