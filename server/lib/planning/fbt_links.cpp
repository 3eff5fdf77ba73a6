#include "planning/fbt_links.h"

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/log.h"
#include "model/NeighbourList.h"

namespace rrm {
namespace {

// A VAP with 802.11r, with what every pair of them would otherwise compute anew.
struct KeyHolder {
  ApEntry* ap = nullptr;
  const Radio* radio = nullptr;
  VapEntry* vap = nullptr;
  std::int32_t band = 0;
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

KeyHolder key_holder(ApEntry& ap, const Radio& radio, VapEntry& vap) {
  return {&ap, &radio, &vap, radio.band, r1_number(vap.fbt_r1_keyholder), vap.mac.to_string()};
}

// A VAP as a peer of the others of its SSID. Peers that no link can tell apart, with equal key holders and key, have
// one id together.
struct Peer {
  KeyHolder holder;
  std::size_t id = 0;
  SharedFbtLink link;  // that names it by its own R1 key holder
};

// All VAPs with 802.11r of one SSID, in the order of the APs and of their radios. Which of them a link means is looked
// up once, however many VAPs hold the link.
class SsidPeers {
 public:
  static constexpr std::size_t no_id = static_cast<std::size_t>(-1);

  // A peer with the R1 key holder and the key of a link.
  struct CandidateEnd {
    const ApEntry* ap;
    std::int32_t band;
  };
  struct LinkEnds {
    std::vector<CandidateEnd> candidates;
    std::size_t peer_id = no_id;  // of those that have the R0 key holder of the link too
  };

  // What it returns stays where it is.
  const Peer& add(KeyHolder holder) {
    const VapEntry& vap = *holder.vap;
    std::vector<const Peer*>& equals = by_end_[{holder.r1, vap.fbt_rrb_key}];
    const std::size_t known = id_among(equals, vap.fbt_r0_keyholder);
    const SharedFbtLink link = share_link({vap.fbt_r0_keyholder, vap.fbt_r1_keyholder, vap.fbt_rrb_key});
    const Peer& peer = peers_.emplace_back(Peer{std::move(holder), known == no_id ? ids_++ : known, link});
    equals.push_back(&peer);
    return peer;
  }

  const std::deque<Peer>& all() const { return peers_; }
  // Ids are below this number.
  std::size_t id_count() const { return ids_; }

  const LinkEnds& ends_of(const SharedFbtLink& link) {
    const auto [place, is_new] = ends_.try_emplace(link);
    if (is_new) place->second = look_up(*link);
    return place->second;
  }

 private:
  static std::size_t id_among(const std::vector<const Peer*>& peers, const std::string& r0_keyholder) {
    const auto same = std::find_if(peers.begin(), peers.end(), [&](const Peer* peer) {
      return peer->holder.vap->fbt_r0_keyholder == r0_keyholder;
    });
    return same == peers.end() ? no_id : (*same)->id;
  }

  LinkEnds look_up(const FbtLink& link) const {
    const auto place = by_end_.find({r1_number(link.remote_r1_kh_id), link.remote_r1_kh_key});
    if (place == by_end_.end()) return {};
    LinkEnds ends;
    for (const Peer* peer : place->second) ends.candidates.push_back({peer->holder.ap, peer->holder.band});
    ends.peer_id = id_among(place->second, link.remote_r0_kh_id);
    return ends;
  }

  std::deque<Peer> peers_;
  std::size_t ids_ = 0;
  std::map<std::pair<std::uint64_t, std::string>, std::vector<const Peer*>> by_end_;
  std::unordered_map<SharedFbtLink, LinkEnds> ends_;
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
  const MacAddr* find(const KeyHolder& holder) const {
    const auto place = heard_.find({holder.ap, holder.radio->id});
    return place == heard_.end() ? nullptr : &place->second;
  }

 private:
  std::map<std::pair<const ApEntry*, std::int32_t>, MacAddr> heard_;
};

// The update of one VAP's links.
class VapUpdate {
 public:
  VapUpdate(const Peer& own, SsidPeers& peers, const HeardRadios& heard, const DomainConfig& config, bool wildcard)
      : own_(own.holder),
        peers_(peers),
        heard_(heard),
        config_(config),
        wildcard_(wildcard && own_.ap->use_wildcard_80211r),
        held_(peers.id_count()) {}

  void run() {
    own_.vap->fbt_links.erase_if([&](const SharedFbtLink& link) { return !keeps(link); });
    for (const Peer& peer : peers_.all()) {
      if (peer.holder.ap != own_.ap) link_or_unlink(peer);
    }
    if (wildcard_ && own_.vap->link_broadcast_802dot11r()) own_.ap->fbt_changed = true;
  }

 private:
  bool may_link(std::int32_t band) const { return own_.band == band || link_allowed(own_.band, band, config_); }

  // Whether the other end of a link is still there; what is kept counts as held.
  bool keeps(const SharedFbtLink& link) {
    const SsidPeers::LinkEnds& ends = peers_.ends_of(link);
    if (wildcard_ && link->remote_r1_kh_id == VapMap::broadcast_r1_kh_id) {
      RRM_LOG(LOG_TRACE, "skip wildcarg keyholder");
    } else if (!any_end(ends)) {
      RRM_LOG(LOG_DUMP, "%s (%s) erase broken link with %s", own_.ap->mac.to_string().c_str(),
              platform_name(own_.ap->platform), link->remote_r1_kh_id.c_str());
      own_.ap->fbt_changed = true;
      return false;
    }
    if (ends.peer_id != SsidPeers::no_id) ++held_[ends.peer_id];
    return true;
  }

  bool any_end(const SsidPeers::LinkEnds& ends) const {
    return std::any_of(ends.candidates.begin(), ends.candidates.end(),
                       [&](const SsidPeers::CandidateEnd& end) { return end.ap != own_.ap && may_link(end.band); });
  }

  void link_or_unlink(const Peer& peer) {
    const bool linked = held_[peer.id] != 0;
    if (!may_link(peer.holder.band)) {
      if (linked) unlink(peer);
    } else if (own_.r1 == peer.holder.r1) {
      if (linked) unlink_same_key_holder(peer);
    } else {
      RRM_LOG(LOG_DUMP, "remote ssid = %s", own_.vap->ssid.c_str());
      RRM_LOG(LOG_DUMP, "remote MAC  = %s", peer.holder.mac_text.c_str());
      if (linked) {
        RRM_LOG(LOG_DUMP, "already linked %s %s", own_.mac_text.c_str(), peer.holder.mac_text.c_str());
      } else {
        link(peer);
      }
    }
  }

  void unlink(const Peer& peer) {
    own_.vap->unlink(*peer.holder.vap);
    --held_[peer.id];
    own_.ap->fbt_changed = true;
  }

  void unlink_same_key_holder(const Peer& peer) {
    RRM_LOG(LOG_DUMP, "invalid link %s %s", own_.mac_text.c_str(), peer.holder.mac_text.c_str());
    unlink(peer);
    RRM_LOG(LOG_DUMP, "unlink %s %s", own_.mac_text.c_str(), peer.holder.mac_text.c_str());
  }

  // A peer whose radio the AP hears is named as the AP hears it.
  void link(const Peer& peer) {
    FbtLinks& links = own_.vap->fbt_links;
    links.reserve(peers_.all().size());
    const MacAddr* heard = heard_.find(peer.holder);
    if (heard == nullptr) {
      links.push_back(peer.link);
    } else {
      const MacAddr r1 = MacAddr::parse(peer.holder.vap->fbt_r1_keyholder.c_str());
      own_.vap->link_to(*peer.holder.vap, as_heard(r1, peer.holder.radio->mac, *heard).to_string());
    }
    ++held_[peer.id];
    own_.ap->fbt_changed = true;
    RRM_LOG(LOG_DUMP, "now linked %s %s", own_.mac_text.c_str(), peer.holder.mac_text.c_str());
  }

  const KeyHolder& own_;
  SsidPeers& peers_;
  const HeardRadios& heard_;
  const DomainConfig& config_;
  const bool wildcard_;
  std::vector<std::uint32_t> held_;  // how many links the VAP has to the peers of each id
};

// The update of a whole set.
class LinkUpdate {
 public:
  LinkUpdate(ApMap& aps, const DomainConfig& config, bool wildcard) : site_(aps), config_(config), wildcard_(wildcard) {
    for (const auto& [mac, ap] : aps) {
      ApVaps& own = aps_.emplace_back(ApVaps{*ap, {}});
      for_each_vap_with_11r(*ap, [&, &owner = *ap](const Radio& radio, VapEntry& vap) {
        SsidPeers& peers = by_ssid_[vap.ssid];
        own.vaps.push_back({peers.add(key_holder(owner, radio, vap)), peers});
      });
    }
  }

  bool run() {
    for (const ApVaps& own : aps_) update_ap(own.ap, own.vaps);
    return changed_;
  }

 private:
  struct LinkedVap {
    const Peer& own;
    SsidPeers& peers;
  };
  struct ApVaps {
    ApEntry& ap;
    std::vector<LinkedVap> vaps;
  };

  void update_ap(const ApEntry& ap, const std::vector<LinkedVap>& vaps) {
    RRM_LOG(LOG_DUMP, "==================================");
    RRM_LOG(LOG_DUMP, "Device %s (%s)", ap.mac.to_string().c_str(), platform_name(ap.platform));
    RRM_LOG(LOG_DUMP, "fbt_changed = %d", ap.fbt_changed);
    const HeardRadios heard(site_, ap);
    for (const auto& [own, peers] : vaps) {
      const VapEntry& vap = *own.holder.vap;
      log_vap(ap, *own.holder.radio, vap);
      VapUpdate(own, peers, heard, config_, wildcard_).run();
      RRM_LOG(LOG_DUMP, "new remotes size = %zu", vap.fbt_links.size());
      changed_ |= ap.fbt_changed;
    }
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

  const ApMap& site_;
  const DomainConfig& config_;
  const bool wildcard_;
  std::map<std::string, SsidPeers> by_ssid_;
  std::vector<ApVaps> aps_;  // in the order of the site
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
