#include "sim/held_clients.h"

#include <limits>

namespace sim {
namespace {

int& count_of(HoldCounts& counts, HoldEnd how) {
  switch (how) {
    case HoldEnd::acknowledged:
      return counts.acknowledged;
    case HoldEnd::sent_away:
      return counts.sent_away;
    case HoldEnd::client_left:
      return counts.client_left;
    case HoldEnd::radio_gone:
      return counts.radio_gone;
    case HoldEnd::timed_out:
      return counts.timed_out;
    case HoldEnd::session_lost:
      break;
  }
  return counts.session_lost;
}

}  // namespace

const HeldClients::Hold* HeldClients::find(const Mac& client) const {
  const auto found = held_.find(client);
  return found == held_.end() ? nullptr : &found->second;
}

std::optional<HeldClients::Hold> HeldClients::end(const Mac& client, HoldEnd how) {
  const auto node = held_.extract(client);
  if (node.empty()) {
    return std::nullopt;
  }
  ++count_of(ended_, how);
  return node.mapped();
}

std::vector<Mac> HeldClients::since(Millis moment) const {
  std::vector<Mac> result;
  for (const auto& [client, hold] : held_) {
    if (hold.since <= moment) {
      result.push_back(client);
    }
  }
  return result;
}

std::vector<Mac> HeldClients::all() const {
  return since(std::numeric_limits<Millis>::max());
}

}  // namespace sim
