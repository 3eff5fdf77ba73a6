// Every field that a planner may touch, as text: what the comparisons compare and a failing one shows.
#pragma once

#include <sstream>
#include <string>

#include "model/ApMap.h"
#include "planning/PlanResult.h"

namespace rrm::testing {

inline std::string describe(const Radio& r) {
  std::ostringstream out;
  out << "  radio " << r.id << " " << r.mac.to_string() << " status=" << r.status << " band=" << r.band
      << " channel=" << r.channel << " bandwidth=" << r.bandwidth << " primary=" << r.primary_channel
      << " power=" << r.power << " [" << r.power_min << "," << r.power_max << "] changed=" << r.power_changed
      << " conflicted=" << r.conflicted << " eirp=" << r.eirp << " [" << r.eirp_min << "," << r.eirp_max
      << "] antenna=" << r.has_antenna << "," << r.antenna_gain << "," << r.cable_loss << " locked=" << r.locked_tpc
      << r.locked_dca << r.locked_balancer << r.locked_80211v << " managed=" << r.tpc_managed << r.dca_managed
      << " visible=" << r.visible_channels << " neighbours=" << r.neighbour_count << " priority=" << r.priority << ","
      << r.sent_priority << " stale=" << r.lists_stale << " roam=" << r.roam_peers << "," << r.roam_peer_clients
      << " pool=" << r.mac_offset << "," << r.max_mac_count << " vaps=" << r.vaps.size() << " available=";
  for (const auto channel : r.available_channels) out << channel << " ";
  out << "\n";
  return out.str();
}

inline std::string describe(const Radios& radios) {
  std::string text = "  received=" + std::to_string(radios.received) + "\n";
  for (const Radio& radio : radios.list) text += describe(radio);
  return text;
}

inline std::string describe(const NeighbourMap& map, const char* kind) {
  std::ostringstream out;
  for (const auto& [bssid, n] : map) {
    out << "  " << kind << " " << bssid.to_string() << " rssi=" << n.rssi << " channel=" << n.channel
        << " band=" << n.band << " bandwidth=" << n.bandwidth << " tx=" << n.tx_power << " primary=" << n.primary
        << "\n";
  }
  return out.str();
}

inline std::string describe(const ApEntry& ap) {
  return describe(ap.radios) + describe(ap.visible_members, "member") + describe(ap.visible_rogue, "rogue");
}

inline std::string describe_radios(const ApMap& aps) {
  std::string text;
  for (const auto& [mac, ap] : aps) text += mac.to_string() + "\n" + describe(ap->radios);
  return text;
}

inline std::string describe(const PlanResult& results) {
  std::string text;
  for (const auto& [mac, radios] : results) text += mac.to_string() + "\n" + describe(radios);
  return text;
}

}  // namespace rrm::testing
