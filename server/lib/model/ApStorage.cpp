#include "model/ApStorage.h"

#include <algorithm>

#include "core/log.h"

namespace rrm {

void ApStorage::insert_ap(const std::shared_ptr<ApEntry>& ap) {
  if (ap == nullptr) return;
  erase_ap(ap);
  std::vector<MacAddr>& keys = keys_[ap->mac];
  const auto add = [&](const MacAddr& mac, const Radio& radio) {
    if (owners_.try_emplace(mac, Owner{ap, radio.id}).second) keys.push_back(mac);
  };
  for (const Radio& radio : ap->radios.list) {
    if (!radio.status) continue;
    add(radio.mac, radio);
    for (const auto& [ssid, vap] : radio.vaps) add(vap.mac, radio);
  }
  log_size(*ap);
}

void ApStorage::erase_ap(const std::shared_ptr<ApEntry>& ap) {
  if (ap == nullptr) return;
  const auto keys = keys_.find(ap->mac);
  if (keys != keys_.end()) {
    std::erase_if(keys->second, [&](const MacAddr& mac) {
      const auto owner = owners_.find(mac);
      const bool own = owner->second.ap == ap;
      if (own) owners_.erase(owner);
      return own;
    });
    if (keys->second.empty()) keys_.erase(keys);
  }
  log_size(*ap);
}

const ApStorage::Owner* ApStorage::owner_of(const MacAddr& mac) const {
  auto owner = owners_.find(mac);
  if (owner == owners_.end()) owner = owners_.find(mac.with_local_bit_flipped());
  return owner == owners_.end() ? nullptr : &owner->second;
}

std::shared_ptr<ApEntry> ApStorage::find(const MacAddr& mac) const {
  const Owner* owner = owner_of(mac);
  return owner == nullptr ? nullptr : owner->ap;
}

std::int32_t ApStorage::radio_id_of(const MacAddr& mac) const {
  const Owner* owner = owner_of(mac);
  return owner == nullptr ? -1 : owner->radio_id;
}

std::vector<MacAddr> ApStorage::addresses_of(const MacAddr& ap_mac, std::int32_t radio_id) const {
  std::vector<MacAddr> addresses;
  const auto keys = keys_.find(ap_mac);
  if (keys == keys_.end()) return addresses;
  for (const MacAddr& mac : keys->second) {
    if (owners_.at(mac).radio_id != radio_id) continue;
    addresses.push_back(mac);
    const MacAddr flipped = mac.with_local_bit_flipped();
    if (!owners_.contains(flipped)) addresses.push_back(flipped);
  }
  std::sort(addresses.begin(), addresses.end());
  return addresses;
}

void ApStorage::log_size(const ApEntry& ap) const {
  RRM_LOG(LOG_DUMP, "AP %s, total size=%d", ap.mac.to_string().c_str(), static_cast<int>(owners_.size()));
}

}  // namespace rrm
