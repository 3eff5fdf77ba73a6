#include "planning/plain_fbt_links.h"

#include "core/log.h"

namespace rrm::testing {
namespace {

constexpr const char* broadcast = "ff:ff:ff:ff:ff:ff";
constexpr const char* nobody = "00:00:00:00:00:00";

bool plain_link_allowed(int band_a, int band_b, const DomainConfig& config) {
  if (band_a == 0 || band_b == 0) return false;
  if (band_a == band_b) return true;
  if (band_a == 2 || band_b == 2) return config.use_80211r_2g_cross_band;
  return true;
}

bool equal_up_to_local_bit(const std::string& a, const std::string& b) {
  auto bytes_a = MacAddr::parse(a.c_str()).bytes();
  auto bytes_b = MacAddr::parse(b.c_str()).bytes();
  bytes_a[0] = static_cast<std::uint8_t>(bytes_a[0] | 2);
  bytes_b[0] = static_cast<std::uint8_t>(bytes_b[0] | 2);
  return bytes_a == bytes_b;
}

// A VAP under the update's eye: whose it is and on which radio.
struct PlainVap {
  ApEntry& ap;
  Radio& radio;
  VapEntry& vap;
};

bool plain_valid(const FbtLink& link, const PlainVap& own, const ApMap& aps, const DomainConfig& config) {
  for (const auto& [mac_b, b] : aps) {
    if (b.get() == &own.ap) continue;
    for (const Radio& r2 : b->radios.list) {
      if (!r2.status) continue;
      if (r2.band != own.radio.band && !plain_link_allowed(own.radio.band, r2.band, config)) continue;
      for (const auto& [ssid, v2] : r2.vaps) {
        if (!v2.use_802dot11r || v2.ssid != own.vap.ssid) continue;
        if (!equal_up_to_local_bit(v2.fbt_r1_keyholder, link.remote_r1_kh_id)) continue;
        if (v2.fbt_rrb_key == link.remote_r1_kh_key) return true;
      }
    }
  }
  return false;
}

void plain_validate(const PlainVap& own, const ApMap& aps, const DomainConfig& config, bool wildcard) {
  for (std::size_t i = 0; i < own.vap.fbt_links.size();) {
    const FbtLink link = *own.vap.fbt_links[i];
    if (wildcard && own.ap.use_wildcard_80211r && link.remote_r1_kh_id == broadcast) {
      RRM_LOG(LOG_TRACE, "skip wildcarg keyholder");
      ++i;
    } else if (plain_valid(link, own, aps, config)) {
      ++i;
    } else {
      own.vap.fbt_links.erase(own.vap.fbt_links.begin() + static_cast<std::ptrdiff_t>(i));
      RRM_LOG(LOG_DUMP, "%s (%s) erase broken link with %s", own.ap.mac.to_string().c_str(),
              platform_name(own.ap.platform), link.remote_r1_kh_id.c_str());
      own.ap.fbt_changed = true;
    }
  }
}

std::string plain_heard(const ApMap& aps, const ApEntry& listener, const ApEntry& b, const Radio& r2) {
  for (const auto& [bssid, neighbour] : listener.visible_members) {
    if (aps.storage().radio_id_of(bssid) == r2.id && aps.storage().find(bssid).get() == &b) return bssid.to_string();
  }
  return nobody;
}

// An R1 key holder with the local bit under which the listener hears its radio.
std::string plain_corrected(const std::string& r1, const Radio& radio, const std::string& heard) {
  const MacAddr holder = MacAddr::parse(r1.c_str());
  const std::string text = holder.to_string();
  if (!equal_up_to_local_bit(heard, text) && !equal_up_to_local_bit(heard, radio.mac.to_string())) return text;
  auto bytes = holder.bytes();
  const auto local = static_cast<std::uint8_t>(MacAddr::parse(heard.c_str()).bytes()[0] & 2);
  bytes[0] = static_cast<std::uint8_t>((bytes[0] & ~2) | local);
  return MacAddr(bytes).to_string();
}

void plain_pair(const PlainVap& own, const PlainVap& other, const ApMap& aps, bool& changed) {
  const std::string own_mac = own.vap.mac.to_string();
  const std::string other_mac = other.vap.mac.to_string();
  if (equal_up_to_local_bit(own.vap.fbt_r1_keyholder, other.vap.fbt_r1_keyholder)) {
    if (!own.vap.has_link(other.vap)) return;
    RRM_LOG(LOG_DUMP, "invalid link %s %s", own_mac.c_str(), other_mac.c_str());
    own.vap.unlink(other.vap);
    RRM_LOG(LOG_DUMP, "unlink %s %s", own_mac.c_str(), other_mac.c_str());
    changed = true;
    own.ap.fbt_changed = true;
    return;
  }
  RRM_LOG(LOG_DUMP, "remote ssid = %s", other.vap.ssid.c_str());
  RRM_LOG(LOG_DUMP, "remote MAC  = %s", other_mac.c_str());
  if (own.vap.has_link(other.vap)) {
    RRM_LOG(LOG_DUMP, "already linked %s %s", own_mac.c_str(), other_mac.c_str());
    return;
  }
  std::string r1 = other.vap.fbt_r1_keyholder;
  const std::string heard = plain_heard(aps, own.ap, other.ap, other.radio);
  if (heard != nobody) r1 = plain_corrected(r1, other.radio, heard);
  own.vap.link_to(other.vap, r1);
  own.ap.fbt_changed = true;
  RRM_LOG(LOG_DUMP, "now linked %s %s", own_mac.c_str(), other_mac.c_str());
  changed |= own.ap.fbt_changed || other.ap.fbt_changed;
}

void plain_link(const PlainVap& own, const ApMap& aps, const DomainConfig& config, bool& changed) {
  for (const auto& [mac_b, b] : aps) {
    if (b.get() == &own.ap) continue;
    for (Radio& r2 : b->radios.list) {
      if (!r2.status) continue;
      const bool apart = own.radio.band != r2.band && !plain_link_allowed(own.radio.band, r2.band, config);
      for (auto& [ssid, v2] : r2.vaps) {
        if (!v2.use_802dot11r || v2.ssid != own.vap.ssid) continue;
        if (!apart) {
          plain_pair(own, {*b, r2, v2}, aps, changed);
        } else if (own.vap.has_link(v2)) {
          own.vap.unlink(v2);
          changed = true;
          own.ap.fbt_changed = true;
        }
      }
    }
  }
}

void plain_vap(const PlainVap& own, const ApMap& aps, const DomainConfig& config, bool wildcard, bool& changed) {
  RRM_LOG(LOG_DUMP, "----------------------------------");
  RRM_LOG(LOG_DUMP, "wlan_id = %d vap_id = %d", own.radio.id, own.vap.id);
  RRM_LOG(LOG_DUMP, "current ssid = %s", own.vap.ssid.c_str());
  RRM_LOG(LOG_DUMP, "current serial = %s", own.ap.factory.serial.c_str());
  RRM_LOG(LOG_DUMP, "current r0 keyholder = %s", own.vap.fbt_r0_keyholder.c_str());
  RRM_LOG(LOG_DUMP, "current r1 keyholder = %s", own.vap.fbt_r1_keyholder.c_str());
  RRM_LOG(LOG_DUMP, "use_wildcard_80211r = %d", own.ap.use_wildcard_80211r);
  RRM_LOG(LOG_DUMP, "remotes size = %zu", own.vap.fbt_links.size());
  plain_validate(own, aps, config, wildcard);
  changed |= own.ap.fbt_changed;
  plain_link(own, aps, config, changed);
  if (wildcard && own.ap.use_wildcard_80211r && own.vap.link_broadcast_802dot11r()) {
    changed = true;
    own.ap.fbt_changed = true;
  }
  RRM_LOG(LOG_DUMP, "new remotes size = %zu", own.vap.fbt_links.size());
}

}  // namespace

bool plain_update_fbt_links(ApMap& aps, const DomainConfig& config, bool wildcard) {
  bool changed = false;
  for (const auto& [mac_a, a] : aps) {
    RRM_LOG(LOG_DUMP, "==================================");
    RRM_LOG(LOG_DUMP, "Device %s (%s)", a->mac.to_string().c_str(), platform_name(a->platform));
    RRM_LOG(LOG_DUMP, "fbt_changed = %d", a->fbt_changed);
    for (Radio& radio : a->radios.list) {
      if (!radio.status) continue;
      for (auto& [ssid, vap] : radio.vaps) {
        if (vap.use_802dot11r) plain_vap({*a, radio, vap}, aps, config, wildcard, changed);
      }
    }
  }
  return changed;
}

std::string describe_links(const ApMap& aps) {
  std::string text;
  for (const auto& [mac, ap] : aps) {
    text += "AP " + mac.to_string() + " changed=" + std::to_string(ap->fbt_changed) + "\n";
    for (const Radio& radio : ap->radios.list) {
      for (const auto& [ssid, vap] : radio.vaps) {
        text += "  " + std::to_string(radio.id) + " " + ssid + " " + vap.fbt_r0_keyholder + " " + vap.fbt_r1_keyholder +
                " " + vap.fbt_rrb_key + "\n";
        for (const auto& link : vap.fbt_links) {
          text += "    -> " + link->remote_r0_kh_id + " " + link->remote_r1_kh_id + " " + link->remote_r1_kh_key + "\n";
        }
      }
    }
  }
  return text;
}

}  // namespace rrm::testing
