#include "steering/transition_lists.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "core/log.h"
#include "json/JsonWriter.h"
#include "model/NeighbourList.h"

namespace rrm {
namespace {

constexpr std::uint32_t middle_priority = 127;

// One list for one AP.
class TransitionList {
 public:
  TransitionList(const ApEntry& ap, const DomainConfig& config, JsonWriter& array)
      : ap_(ap), config_(config), array_(array) {}

  // Adds the peer's radio, heard or known under this address, if it offers anything that clients of the AP could use.
  // What only 802.11k knows is no target of a transition, and has priority 0.
  void write_peer(const Radio& peer, const MacAddr& address, std::uint32_t priority) {
    const Radio* own = concerned_radio(ap_.radios, peer);
    if (own == nullptr) return;
    std::vector<ListedVap> vaps = within_limit(peer, common_vaps(*own, peer, address, &VapEntry::use_802dot11v));
    if (vaps.empty() && config_.use_80211k) {
      vaps = within_limit(peer, common_vaps(*own, peer, address, &VapEntry::use_802dot11k));
      priority = 0;
    }
    if (!vaps.empty()) write_neighbour_object(array_, peer, address, priority, vaps);
  }

 private:
  std::vector<ListedVap> within_limit(const Radio& peer, std::vector<ListedVap> vaps) {
    std::erase_if(vaps, [&](const ListedVap& vap) {
      if (++entries_[{vap.ssid, peer.id}] <= transition_list_limit) return false;
      RRM_LOG(LOG_ERROR, "On mac(%s) radio(%d) number of entries for ssid(%s) exceded limit(%d)",
              ap_.mac.to_string().c_str(), peer.id, vap.ssid.c_str(), transition_list_limit);
      return true;
    });
    return vaps;
  }

  const ApEntry& ap_;
  const DomainConfig& config_;
  JsonWriter& array_;
  std::map<std::pair<std::string, std::int32_t>, int> entries_;  // by SSID and radio number of the peer
};

// Visits the enabled radios of the domain that the AP hears, each under the address it hears.
template <class Visit>
void for_each_heard_radio(const ApMap& aps, const ApEntry& ap, Visit visit) {
  for (const auto& [mac, neighbour] : ap.visible_members) {
    const Radio* radio = aps.find_radio(mac).radio;
    if (radio != nullptr && radio->status) visit(*radio, mac);
  }
}

// Visits the enabled radios of all others, each under its own address.
template <class Visit>
void for_each_other_radio(const ApMap& aps, const ApEntry& ap, Visit visit) {
  for (const auto& [mac, other] : aps) {
    if (other.get() == &ap) continue;
    for (const Radio& radio : other->radios.list) {
      if (radio.status) visit(radio, radio.mac);
    }
  }
}

float mean_load(const Radio& radio) {
  return static_cast<float>(radio.roam_peer_clients + radio.assoc.load()) / static_cast<float>(radio.roam_peers + 1);
}

}  // namespace

bool write_transition_list(const ApMap& aps, const ApEntry& ap, const DomainConfig& config, JsonWriter& array) {
  if (!config.use_80211v) return false;
  const bool fixed_priority = !config.use_balance || config.use_80211k;
  bool changed = false;
  TransitionList list(ap, config, array);
  const auto list_peer = [&](const Radio& peer, const MacAddr& address) {
    if (peer.priority != peer.sent_priority || peer.lists_stale) changed = true;
    const std::uint32_t priority = fixed_priority ? middle_priority : peer.priority;
    if (priority != 0) list.write_peer(peer, address, priority);
  };
  if (config.use_all_ap_balance || config.use_80211k) {
    if (aps.size() == 1) changed = true;
    for_each_other_radio(aps, ap, list_peer);
  } else {
    if (ap.visible_members.empty()) changed = true;
    for_each_heard_radio(aps, ap, list_peer);
  }
  return changed;
}

bool write_overload_list(const ApMap& aps, ApEntry& ap, const DomainConfig& config, JsonWriter& array) {
  bool any = false;
  TransitionList list(ap, config, array);
  const auto overload_peer = [&](const Radio& peer, const MacAddr& address) {
    const Radio* concerned = concerned_radio(ap.radios, peer);
    if (concerned == nullptr) return;
    any = true;
    Radio& own = *ap.radios.find(concerned->id);
    const std::int32_t peer_load = peer.assoc.load();
    if (own.assoc.load() <= peer_load || peer.priority == 0) return list.write_peer(peer, address, 0);
    list.write_peer(peer, address, peer.priority);
    ++own.roam_peers;
    own.roam_peer_clients += peer_load;
  };
  if (config.use_all_ap_balance) {
    for_each_other_radio(aps, ap, overload_peer);
  } else {
    for_each_heard_radio(aps, ap, overload_peer);
  }
  return any;
}

bool needs_load_balance(const ApEntry& ap) {
  const auto overloaded = [](const Radio& radio) { return radio.status && radio.need_balance(); };
  return ap.radios.any_11v() && std::any_of(ap.radios.list.begin(), ap.radios.list.end(), overloaded);
}

std::int32_t roam_count(const ApEntry& ap, const Radio& radio, const DomainConfig& config) {
  const std::string mac = ap.mac.to_string();
  const bool any_11v = radio.vaps.any_11v();
  if (!config.use_balance || !any_11v || !radio.need_balance()) {
    RRM_LOG(LOG_TRACE, "AP(%s): radio %d: skip roam count (use_balance=%d use_80211v=%d need_balance=%d)", mac.c_str(),
            radio.id, config.use_balance, any_11v, radio.need_balance());
    return 0;
  }
  if (radio.roam_peers == 0) {
    RRM_LOG(LOG_TRACE, "AP(%s): radio %d: no neighbor aps with nonzero priority, skip roam count", mac.c_str(),
            radio.id);
    return 0;
  }
  const std::int32_t load = radio.assoc.load();
  RRM_LOG(LOG_TRACE, "AP(%s): radio %d: total clients %d, nonzero prio aps %d;", mac.c_str(), radio.id, load,
          radio.roam_peers);
  const float mean = mean_load(radio);
  const float excess = static_cast<float>(load) - mean;
  if (excess <= static_cast<float>(config.load_balance_roam_count_min)) {
    RRM_LOG(LOG_TRACE, "AP(%s): radio %d: roam count %.3f below min %d", mac.c_str(), radio.id,
            static_cast<double>(excess), config.load_balance_roam_count_min);
    return 0;
  }
  const bool above_most = static_cast<float>(config.load_balance_roam_count_max) < excess;
  const std::int32_t count = above_most ? config.load_balance_roam_count_max : static_cast<std::int32_t>(excess);
  RRM_LOG(LOG_TRACE, "Sending overload msg to %s (roam %d clients; avg_count = %.3f)", mac.c_str(), count,
          static_cast<double>(mean));
  return count;
}

}  // namespace rrm
