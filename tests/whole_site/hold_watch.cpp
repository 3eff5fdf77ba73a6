#include "whole_site/hold_watch.h"

#include <algorithm>
#include <optional>

namespace whole_site {
namespace {

sim::Mac mac_of(const Json& object, const char* key) {
  return sim::Mac::parse(object.at(key).get<std::string>()).value_or(sim::Mac{});
}

// Whether a message names the client in one of its radios' lists.
bool names(const Json& message, const char* list, const sim::Mac& client) {
  for (const Json& radio : message.at("radios")) {
    for (const Json& entry : radio.at(list)) {
      if (mac_of(entry, "mac") == client) return true;
    }
  }
  return false;
}

bool answers(const Told& told, const sim::Mac& client) {
  const std::string command = told.json.at("cmd");
  return (command == "rrm-client-assoc-ack" && mac_of(told.json, "sta-mac") == client) ||
         (command == "rrm-disassoc-request" && names(told.json, "diassoc-list", client));
}

}  // namespace

// The domain's log tells what came of each query: "drop" begins one, "dst_ap" names a destination, "no balancer" says
// that it is not worth a move.
void HoldWatch::pass_over(const Pass& pass) {
  const std::string ends = "TRACE RrmProblist: drop - ";
  bool has_destination = false;
  std::optional<sim::Mac> client;
  const auto conclude = [&] {
    if (client && has_destination) decided(*client, pass);
    client.reset();
    has_destination = false;
  };
  for (const std::string& line : pass.lines) {
    if (line.starts_with(ends)) {
      conclude();
      client = sim::Mac::parse(line.substr(ends.size()));
      ++queries_;
    } else if (line.starts_with("TRACE dst_ap ")) {
      has_destination = true;
    } else if (line == "TRACE LoadBalancer: no balancer") {
      has_destination = false;
    }
  }
  conclude();
}

// The client is to move. If no AP is told, the client goes on to be held.
void HoldWatch::decided(const sim::Mac& client, const Pass& pass) {
  ++moves_;
  if (std::any_of(pass.told.begin(), pass.told.end(), [&](const Told& told) { return answers(told, client); })) return;
  for (auto& [key, hold] : open_) {
    if (key.second != client || hold.lost_order) continue;
    if (!site_->balancing_paused()) fault("nobody is told that " + client.text() + " is to move");
    hold.lost_order = true;
    ++lost_moves_;
  }
}

void HoldWatch::told(std::size_t ap, const Json& message) {
  const std::string command = message.at("cmd");
  if (command == "rrm-client-assoc-ack") {
    acknowledged(ap, message);
  } else if (command == "rrm-disassoc-request") {
    ordered(ap, message);
  } else if (command == "rrm-sta-overload") {
    ++overloads_;
  }
}

// The client may have left while the acknowledgement was on its way.
void HoldWatch::acknowledged(std::size_t ap, const Json& message) {
  const Key key{ap, mac_of(message, "sta-mac")};
  const auto hold = open_.find(key);
  if (hold != open_.end() && hold->second.radio == message.at("radio").get<int>()) {
    if (hold->second.lost_order) fault(key.second.text() + " is acknowledged, though it was to move");
  } else if (ended_by_themselves_.count(key) == 0) {
    fault(key.second.text() + " is acknowledged, but not held");
  }
}

void HoldWatch::ordered(std::size_t ap, const Json& message) {
  for (const Json& radio : message.at("radios")) {
    for (const Json& entry : radio.at("diassoc-list")) {
      ordered_off_.insert({ap, mac_of(entry, "mac")});
      ++told_moves_;
    }
  }
}

void HoldWatch::happened(const sim::SteeringEvent& event) {
  if (event.what == sim::Happening::moved && event.cause == sim::Cause::transition) ++transitions_;
  if (event.what == sim::Happening::released) {
    ended(event);
  } else if (event.held) {
    began(event);
  } else if (event.what == sim::Happening::left && event.cause == sim::Cause::sent_away &&
             ordered_off_.count({event.from->ap, event.client}) == 0) {
    fault(event.client.text() + " was sent away without an order");
  }
}

void HoldWatch::began(const sim::SteeringEvent& event) {
  ++holds_;
  if (!open_.insert({{event.to->ap, event.client}, {event.to->radio, false}}).second) {
    fault(event.client.text() + " is held twice");
  }
}

void HoldWatch::ended(const sim::SteeringEvent& event) {
  const Key key{event.to->ap, event.client};
  const auto node = open_.extract(key);
  if (node.empty()) return fault(event.client.text() + " is released, but was not held");
  const sim::HoldEnd how = event.hold_end.value();
  ++ends_[how];
  if (how != sim::HoldEnd::acknowledged) ended_by_themselves_.insert(key);
  if (how == sim::HoldEnd::timed_out && !node.mapped().lost_order) {
    fault(event.client.text() + " was held and never answered");
  }
  if (how == sim::HoldEnd::session_lost && ending_sessions_.count(key.first) == 0) {
    fault(event.client.text() + " was released without need");
  }
}

void HoldWatch::second_over() {
  ended_by_themselves_.clear();
  ordered_off_.clear();
  ending_sessions_.clear();
}

int HoldWatch::ended(sim::HoldEnd how) const {
  const auto found = ends_.find(how);
  return found == ends_.end() ? 0 : found->second;
}

}  // namespace whole_site
