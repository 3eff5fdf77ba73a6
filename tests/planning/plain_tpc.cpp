#include "planning/plain_tpc.h"

#include <algorithm>
#include <cstdlib>
#include <map>

namespace rrm::testing {
namespace {

struct PlainSlot {
  int rssi_threshold_high = 0;
  int rssi_threshold = 0;
  bool present = false;
};

int plain_band_of(int channel) {
  if (channel >= 1 && channel <= 14) return 2;
  if (channel >= 36 && channel <= 165) return 5;
  if (channel >= 166 && channel <= 233) return 6;
  return 0;
}

int plain_threshold(const DomainConfig& config, int band) {
  if (band == 5) return config.ap_rssi_threshold_5g;
  if (band == 6) return config.ap_rssi_threshold_6g;
  return config.ap_rssi_threshold_2g;
}

int plain_hysteresis(const DomainConfig& config, int band) {
  if (band == 5) return config.hysteresis_5g;
  if (band == 6) return config.hysteresis_6g;
  return config.hysteresis_2g;
}

bool within(int c, int first, int last) {
  return c >= first && c <= last;
}

int plain_block(int c, int width) {
  if (width == 40) {
    for (const int low : {36, 44, 52, 60, 100, 108, 116, 124, 132, 140, 149, 157}) {
      if (within(c, low, low + 4)) return low + 2;
    }
    return within(c, 1, 233) ? (c - 1) / 8 * 8 + 3 : c;
  }
  if (width == 80) {
    for (const int low : {36, 52, 100, 116, 132, 149}) {
      if (within(c, low, low + 12)) return low + 6;
    }
    return within(c, 1, 233) ? (c - 1) / 16 * 16 + 7 : c;
  }
  if (width == 160) {
    if (within(c, 36, 64)) return 50;
    if (within(c, 100, 128)) return 114;
    return within(c, 1, 233) ? (c - 1) / 32 * 32 + 15 : c;
  }
  int nearest = 31;
  for (const int centre : {63, 95, 127, 159, 191, 223}) {
    if (std::abs(c - centre) < std::abs(c - nearest)) nearest = centre;
  }
  return std::abs(c - nearest) <= 32 ? nearest : c;
}

bool answered(const ApEntry& ap) {
  bool on_air = false;
  for (const Radio& radio : ap.radios.list) on_air = on_air || (radio.status && radio.channel != 0);
  return ap.radios.received && on_air;
}

using ApByMac = std::map<MacAddr, std::pair<MacAddr, ApEntry*>>;

ApByMac build_ap_by_mac(ApMap& aps) {
  ApByMac by_mac;
  for (const auto& [mac, ap] : aps) {
    by_mac.try_emplace(mac, mac, ap.get());
    for (const Radio& radio : ap->radios.list) {
      if (radio.mac != mac) by_mac.try_emplace(radio.mac, mac, ap.get());
      for (const auto& [ssid, vap] : radio.vaps) by_mac.try_emplace(vap.mac, mac, ap.get());
    }
  }
  return by_mac;
}

ApByMac::mapped_type look_up(const ApByMac& by_mac, const MacAddr& mac) {
  auto it = by_mac.find(mac);
  if (it == by_mac.end()) it = by_mac.find(mac.with_local_bit_flipped());
  return it == by_mac.end() ? ApByMac::mapped_type() : it->second;
}

void plain_record(PlanResult& results, const MacAddr& mac, const Radios& radios) {
  const auto stored = results.find(mac);
  if (stored != results.end()) {
    bool lower = false;
    for (const Radio& now : radios.list) {
      for (const Radio& then : stored->second.list)
        lower = lower || (now.channel == then.channel && now.power < then.power);
    }
    if (!lower) return;
    results.erase(stored);
  }
  results.emplace(mac, radios);
}

const Radio* plain_listener(const ApEntry& ap, const DomainConfig& config, int band, const Neighbour& entry) {
  if (config.use_hd_mode) {
    for (const Radio& radio : ap.radios.list) {
      if (plain_radio_overlaps(radio, band, entry.channel, entry.bandwidth)) return &radio;
    }
    return nullptr;
  }
  for (const Radio& radio : ap.radios.list) {
    if (radio.band == band && radio.channel == entry.channel && radio.status) return &radio;
  }
  for (const Radio& radio : ap.radios.list) {
    if (radio.band == band && radio.status) return &radio;
  }
  return nullptr;
}

void reduce_neighbours(ApEntry& ap, const ApByMac& by_mac, const DomainConfig& config, PlanResult& results) {
  if (!answered(ap)) return;
  PlainSlot slots[3];
  for (const Radio& radio : ap.radios.list) {
    if (!radio.status || radio.locked_tpc != 0 || radio.available_channels.empty()) continue;
    PlainSlot& slot = slots[radio.id];
    slot.rssi_threshold_high = plain_threshold(config, radio.band) + plain_hysteresis(config, radio.band);
    slot.rssi_threshold = plain_threshold(config, radio.band);
    slot.present = true;
  }
  for (const auto& [bssid, entry] : ap.visible_members) {
    const int band = entry.band != 0 ? entry.band : plain_band_of(entry.channel);
    if (band == 0) continue;
    const Radio* listener = plain_listener(ap, config, band, entry);
    if (listener == nullptr) continue;
    const PlainSlot& slot = slots[listener->id];
    if (!slot.present) continue;
    if (entry.rssi <= slot.rssi_threshold_high) continue;
    const auto [mac, other] = look_up(by_mac, bssid);
    if (other == nullptr || !answered(*other)) continue;
    int result = 0;
    for (Radio& radio : other->radios.list) {
      if (radio.status && radio.band == band) radio.conflicted = true;
    }
    for (Radio& radio : other->radios.list) {
      if (radio.status && radio.band == band) {
        result = std::max(result, radio.lower_power(entry.rssi, slot.rssi_threshold));
      }
    }
    if (result != 0) plain_record(results, mac, other->radios);
  }
}

// Whether the other AP has a radio that makes this entry a neighbour of `radio`.
bool accepted(const ApEntry& other, const DomainConfig& config, int band, const Radio& radio) {
  if (config.use_hd_mode) {
    for (const Radio& theirs : other.radios.list) {
      if (plain_radio_overlaps(theirs, band, radio.channel, radio.bandwidth)) return theirs.channel != 0;
    }
    return false;
  }
  for (const Radio& theirs : other.radios.list) {
    if (theirs.band == band && theirs.channel == radio.channel && theirs.status) return theirs.channel != 0;
  }
  for (const Radio& theirs : other.radios.list) {
    if (theirs.band == band && theirs.status) return theirs.channel != 0;
  }
  return false;
}

bool raise_one(const ApEntry& ap, Radio& radio, const ApByMac& by_mac, const DomainConfig& config) {
  const int band = radio.band != 0 ? radio.band : plain_band_of(radio.channel);
  if (band == 0) return false;
  const int target_level = plain_threshold(config, radio.band);
  const int lower_bound = target_level - plain_hysteresis(config, radio.band);
  int strongest = -100;
  int threshold_taken = 0;
  int bound_taken = 0;
  for (const auto& [bssid, entry] : ap.visible_members) {
    if (entry.rssi <= strongest) continue;
    if (entry.band != 0 && entry.band != band) continue;
    if (band == 6 && entry.band == 0) continue;
    const auto [mac, other] = look_up(by_mac, bssid);
    if (other == nullptr || !answered(*other)) continue;
    if (!accepted(*other, config, band, radio)) continue;
    strongest = entry.rssi;
    threshold_taken = target_level;
    bound_taken = lower_bound;
  }
  return radio.raise_power(strongest, threshold_taken, bound_taken) != 0;
}

void raise_own_radios(const MacAddr& mac, ApEntry& ap, const ApByMac& by_mac, const DomainConfig& config,
                      PlanResult& results) {
  if (!answered(ap)) return;
  bool changed = false;
  for (Radio& radio : ap.radios.list) {
    if (radio.conflicted || !radio.status || radio.locked_tpc != 0 || radio.available_channels.empty()) continue;
    if (raise_one(ap, radio, by_mac, config)) changed = true;
  }
  if (changed) results.insert_or_assign(mac, ap.radios);
}

}  // namespace

bool plain_radio_overlaps(const Radio& radio, int band, int channel, int bandwidth) {
  if (!radio.status || band == 0 || band != radio.band) return false;
  const int width = std::max(radio.bandwidth, bandwidth);
  const int distance = std::abs(channel - radio.channel);
  if (band == 5) {
    if (width == 40 || width == 80 || width == 160 || width == 320) {
      return plain_block(channel, width) == plain_block(radio.channel, width);
    }
    return channel == radio.channel;
  }
  if (band == 6) {
    if (width == 40) return distance <= 7;
    if (width == 80) return distance <= 15;
    if (width == 160) return distance <= 31;
    if (width == 320) return distance <= 63;
    return distance <= 3;
  }
  if (width == 40) return true;
  return distance <= 3;
}

void plain_tpc(ApMap& aps, const DomainConfig& config, PlanResult& results) {
  const ApByMac by_mac = build_ap_by_mac(aps);
  for (const auto& [mac, ap] : aps) reduce_neighbours(*ap, by_mac, config, results);
  for (const auto& [mac, ap] : aps) raise_own_radios(mac, *ap, by_mac, config, results);
}

}  // namespace rrm::testing
