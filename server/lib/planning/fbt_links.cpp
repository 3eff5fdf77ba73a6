#include "planning/fbt_links.h"

#include <algorithm>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/log.h"
#include "model/NeighbourList.h"

namespace rrm {
namespace {

// A VAP with 802.11r as the others of its SSID see it, with what every pair would otherwise compute anew.
struct Peer {
  ApEntry* ap = nullptr;
  const Radio* radio = nullptr;
  VapEntry* vap = nullptr;
  std::uint64_t r1 = 0;  // its R1 key holder, local bit cleared
  std::string mac_text;
};

std::uint64_t without_local_bit(const MacAddr& mac) {
  return mac.to_number() & ~(std::uint64_t{MacAddr::local_bit} << 40);
}

std::uint64_t r1_number(const std::string& r1_keyholder) {
  return without_local_bit(MacAddr::parse(r1_keyholder.c_str()));
}

template <class Visit>
void for_each_vap_with_11r(ApEntry& ap, Visit visit) {
  for (Radio& radio : ap.radios.list) {
    if (!radio.status) continue;
    for (auto& [ssid, vap] : radio.vaps) {
      if (vap.use_802dot11r) visit(radio, vap);
    }
  }
}

// All VAPs with 802.11r of one SSID, in the order of the APs and of their radios.
class SsidPeers {
 public:
  void add(Peer peer) {
    by_r1_.emplace(peer.r1, peers_.size());
    peers_.push_back(std::move(peer));
  }
  const std::vector<Peer>& all() const { return peers_; }

  // Some VAP of another AP is what the link names.
  template <class Allowed>
  bool has_end_of(const FbtLink& link, const ApEntry& own, Allowed allowed) const {
    const auto [first, last] = by_r1_.equal_range(r1_number(link.remote_r1_kh_id));
    return std::any_of(first, last, [&](const auto& item) {
      const Peer& peer = peers_[item.second];
      return peer.ap != &own && peer.vap->fbt_rrb_key == link.remote_r1_kh_key && allowed(*peer.radio);
    });
  }

 private:
  std::vector<Peer> peers_;
  std::unordered_multimap<std::uint64_t, std::size_t> by_r1_;
};

// The links of one VAP by the R1 key holder they name, so that looking for one of thousands costs the same as for one
// of ten.
class LinkFinder {
 public:
  explicit LinkFinder(const std::vector<FbtLink>& links) : links_(links) { build(); }

  bool names(const VapEntry& peer, std::uint64_t r1) const {
    const auto [first, last] = places_.equal_range(r1);
    return std::any_of(first, last, [&](const auto& item) {
      const FbtLink& link = links_[item.second];
      return link.remote_r0_kh_id == peer.fbt_r0_keyholder && link.remote_r1_kh_key == peer.fbt_rrb_key;
    });
  }
  void added() { places_.emplace(r1_number(links_.back().remote_r1_kh_id), links_.size() - 1); }
  void removed() {
    places_.clear();
    build();
  }

 private:
  void build() {
    places_.reserve(links_.size());
    for (std::size_t i = 0; i < links_.size(); ++i) places_.emplace(r1_number(links_[i].remote_r1_kh_id), i);
  }

  const std::vector<FbtLink>& links_;
  std::unordered_multimap<std::uint64_t, std::size_t> places_;
};

// How one AP hears the radios of the others: of each the first address it heard.
class HeardRadios {
 public:
  HeardRadios(const ApMap& aps, const ApEntry& listener) {
    for (const auto& [mac, neighbour] : listener.visible_members) {
      const ApStorage::Owner* owner = aps.storage().owner_of(mac);
      if (owner != nullptr) heard_.try_emplace({owner->ap.get(), owner->radio_id}, mac);
    }
  }

  // Null for a radio that is not heard.
  const MacAddr* find(const Peer& peer) const {
    const auto place = heard_.find({peer.ap, peer.radio->id});
    return place == heard_.end() ? nullptr : &place->second;
  }

 private:
  std::map<std::pair<const ApEntry*, std::int32_t>, MacAddr> heard_;
};

class LinkUpdate {
 public:
  LinkUpdate(ApMap& aps, const DomainConfig& config, bool wildcard) : aps_(aps), config_(config), wildcard_(wildcard) {
    for (const auto& [mac, ap] : aps_) add_peers(*ap);
  }

  bool run() {
    for (const auto& [mac, ap] : aps_) update_ap(*ap);
    return changed_;
  }

 private:
  bool may_link(const Radio& a, const Radio& b) const {
    return a.band == b.band || link_allowed(a.band, b.band, config_);
  }

  void add_peers(ApEntry& ap) {
    for_each_vap_with_11r(ap, [&](const Radio& radio, VapEntry& vap) {
      by_ssid_[vap.ssid].add({&ap, &radio, &vap, r1_number(vap.fbt_r1_keyholder), vap.mac.to_string()});
    });
  }

  void mark_changed(ApEntry& ap) {
    ap.fbt_changed = true;
    changed_ = true;
  }

  void update_ap(ApEntry& ap) {
    RRM_LOG(LOG_DUMP, "==================================");
    RRM_LOG(LOG_DUMP, "Device %s (%s)", ap.mac.to_string().c_str(), ap.factory.serial.c_str());
    RRM_LOG(LOG_DUMP, "fbt_changed = %d", ap.fbt_changed);
    const HeardRadios heard(aps_, ap);
    for_each_vap_with_11r(ap, [&](const Radio& radio, VapEntry& vap) {
      log_vap(ap, radio, vap);
      update_vap({&ap, &radio, &vap, r1_number(vap.fbt_r1_keyholder), vap.mac.to_string()}, heard);
      RRM_LOG(LOG_DUMP, "new remotes size = %zu", vap.fbt_links.size());
    });
  }

  static void log_vap(const ApEntry& ap, const Radio& radio, const VapEntry& vap) {
    RRM_LOG(LOG_DUMP, "----------------------------------");
    RRM_LOG(LOG_DUMP, "wlan_id = %d vap_id = %d", radio.id, vap.id);
    RRM_LOG(LOG_DUMP, "current ssid = %s", vap.ssid.c_str());
    RRM_LOG(LOG_DUMP, "current serial = %s", ap.factory.serial.c_str());
    RRM_LOG(LOG_DUMP, "current r0 keyholder = %s", vap.fbt_r0_keyholder.c_str());
    RRM_LOG(LOG_DUMP, "current r1 keyholder = %s", vap.fbt_r1_keyholder.c_str());
    RRM_LOG(LOG_DUMP, "use_wildcard_80211r = %d", ap.use_wildcard_80211r);
    RRM_LOG(LOG_DUMP, "remotes size = %zu", vap.fbt_links.size());
  }

  void update_vap(const Peer& own, const HeardRadios& heard) {
    const SsidPeers& peers = by_ssid_[own.vap->ssid];
    const bool wildcard = wildcard_ && own.ap->use_wildcard_80211r;
    drop_broken_links(own, peers, wildcard);
    changed_ |= own.ap->fbt_changed;
    LinkFinder links(own.vap->fbt_links);
    for (const Peer& peer : peers.all()) {
      if (peer.ap != own.ap) settle(own, peer, links, heard);
    }
    if (wildcard && own.vap->link_broadcast_802dot11r()) mark_changed(*own.ap);
  }

  void drop_broken_links(const Peer& own, const SsidPeers& peers, bool wildcard) {
    const auto allowed = [&](const Radio& other) { return may_link(*own.radio, other); };
    std::erase_if(own.vap->fbt_links, [&](const FbtLink& link) {
      if (wildcard && link.remote_r1_kh_id == VapMap::broadcast_r1_kh_id) {
        RRM_LOG(LOG_TRACE, "skip wildcarg keyholder");
        return false;
      }
      if (peers.has_end_of(link, *own.ap, allowed)) return false;
      RRM_LOG(LOG_DUMP, "%s (%s) erase broken link with %s", own.ap->mac.to_string().c_str(),
              own.ap->factory.serial.c_str(), link.remote_r1_kh_id.c_str());
      own.ap->fbt_changed = true;
      return true;
    });
  }

  // Whether the one VAP may hold a link to the other, and whether it does.
  void settle(const Peer& own, const Peer& peer, LinkFinder& links, const HeardRadios& heard) {
    const bool linked = links.names(*peer.vap, peer.r1);
    if (!may_link(*own.radio, *peer.radio)) {
      if (linked) unlink(own, peer, links);
    } else if (own.r1 == peer.r1) {
      if (linked) unlink_same_key_holder(own, peer, links);
    } else {
      RRM_LOG(LOG_DUMP, "remote ssid = %s", peer.vap->ssid.c_str());
      RRM_LOG(LOG_DUMP, "remote MAC  = %s", peer.mac_text.c_str());
      if (linked) {
        RRM_LOG(LOG_DUMP, "already linked %s %s", own.mac_text.c_str(), peer.mac_text.c_str());
      } else {
        link(own, peer, links, heard.find(peer));
      }
    }
  }

  void unlink(const Peer& own, const Peer& peer, LinkFinder& links) {
    own.vap->unlink(*peer.vap);
    links.removed();
    mark_changed(*own.ap);
  }

  void unlink_same_key_holder(const Peer& own, const Peer& peer, LinkFinder& links) {
    RRM_LOG(LOG_DUMP, "invalid link %s %s", own.mac_text.c_str(), peer.mac_text.c_str());
    unlink(own, peer, links);
    RRM_LOG(LOG_DUMP, "unlink %s %s", own.mac_text.c_str(), peer.mac_text.c_str());
  }

  // `heard` is the peer's radio as the AP hears it, null if it does not.
  void link(const Peer& own, const Peer& peer, LinkFinder& links, const MacAddr* heard) {
    const std::string& r1 = peer.vap->fbt_r1_keyholder;
    if (heard == nullptr) {
      own.vap->link_to(*peer.vap);
    } else {
      own.vap->link_to(*peer.vap, as_heard(MacAddr::parse(r1.c_str()), peer.radio->mac, *heard).to_string());
    }
    links.added();
    mark_changed(*own.ap);
    RRM_LOG(LOG_DUMP, "now linked %s %s", own.mac_text.c_str(), peer.mac_text.c_str());
  }

  ApMap& aps_;
  const DomainConfig& config_;
  const bool wildcard_;
  std::map<std::string, SsidPeers> by_ssid_;
  bool changed_ = false;
};

std::string twelve_digits(const MacAddr& mac) {
  std::string text = mac.to_string();
  std::erase(text, ':');
  return text;
}

}  // namespace

void fill_key_holders(ApMap& aps, bool wildcard) {
  for (const auto& [mac, ap] : aps) {
    const bool by_address = wildcard && ap->use_wildcard_80211r;
    for_each_vap_with_11r(*ap, [&, &owner = *ap](const Radio&, VapEntry& vap) {
      if (vap.fbt_r0_keyholder.empty()) {
        vap.fbt_r0_keyholder = by_address ? twelve_digits(vap.mac) : owner.factory.serial;
      }
      if (vap.fbt_r1_keyholder.empty()) vap.fbt_r1_keyholder = vap.mac.to_string();
      if (vap.fbt_rrb_key.empty()) vap.fbt_rrb_key = random_fbt_key();
    });
  }
}

bool link_allowed(std::int32_t band_a, std::int32_t band_b, const DomainConfig& config) {
  if (band_a == 0 || band_b == 0) return false;
  if (band_a == band_b) return true;
  return band_a == 2 || band_b == 2 ? config.use_80211r_2g_cross_band : true;
}

bool update_fbt_links(ApMap& aps, const DomainConfig& config, bool wildcard) {
  return LinkUpdate(aps, config, wildcard).run();
}

}  // namespace rrm
