#include "planning/tpc.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

#include "model/bands.h"
#include "planning/MacIndex.h"

namespace rrm {
namespace {

constexpr std::int32_t faintest = -100;  // dBm; only a stronger signal is a neighbour to reckon with

// The number by which two 5 GHz channels of this width are told to be one block.
std::int32_t block_5ghz(std::int32_t channel, std::int32_t bandwidth) {
  if (bandwidth == 320) {
    const std::int32_t centre = nearest_centre_320(channel);
    return centre != 0 ? centre : channel;
  }
  const std::int32_t centre = block_centre_5ghz(channel, bandwidth);
  if (centre != 0) return centre;
  return channel >= 1 && channel <= 233 ? aligned_centre(channel, bandwidth / 5) : channel;
}

bool is_wide(std::int32_t bandwidth) {
  return bandwidth == 40 || bandwidth == 80 || bandwidth == 160 || bandwidth == 320;
}

// How far apart two 6 GHz channels of this width may lie and still overlap.
std::int32_t reach_6ghz(std::int32_t bandwidth) {
  switch (bandwidth) {
    case 40:
      return 7;
    case 80:
      return 15;
    case 160:
      return 31;
    case 320:
      return 63;
    default:
      return 3;
  }
}

// The radio of an AP to which a signal matters: in high density one whose spectrum it shares, otherwise one of its
// band, on its channel if there is one. Null if there is none.
const Radio* radio_facing(const Radios& radios, bool hd_mode, std::int32_t band, std::int32_t channel,
                          std::int32_t bandwidth) {
  if (!hd_mode) return radios.find_on_band(band, channel);
  const auto overlaps = [&](const Radio& radio) { return radio_overlaps(radio, band, channel, bandwidth); };
  const auto facing = std::find_if(radios.list.begin(), radios.list.end(), overlaps);
  return facing != radios.list.end() ? &*facing : nullptr;
}

bool has_answered(const ApEntry& ap) {
  return ap.radios.received && ap.radios.any_on_air();
}

bool listens(const Radio& radio) {
  return radio.status && radio.locked_tpc == 0 && !radio.available_channels.empty();
}

// An entry of unknown band may belong to a radio of any band but 6 GHz.
bool may_be_in_band(const Neighbour& neighbour, std::int32_t band) {
  return neighbour.band == band || (neighbour.band == 0 && band != 6);
}

// What a listening radio asks of those it hears.
struct RadioPowerSlot {
  std::int32_t rssi_threshold_high = 0;
  std::int32_t rssi_threshold = 0;
  bool present = false;
};

using Slots = std::array<RadioPowerSlot, Radios::count>;

Slots listening_slots(const Radios& radios) {
  Slots slots{};
  for (const Radio& radio : radios.list) {
    if (!listens(radio)) continue;
    slots.at(static_cast<std::size_t>(radio.id)) = {radio.rssi_threshold(ThresholdMode::high),
                                                    radio.rssi_threshold(ThresholdMode::middle), true};
  }
  return slots;
}

class PowerRun {
 public:
  PowerRun(ApMap& aps, const DomainConfig& config, PlanResult& results)
      : hd_mode_(config.use_hd_mode), results_(results) {
    peers_.reserve(aps.size());
    for (const auto& [mac, ap] : aps) peers_.push_back({mac, ap.get()});
    index_addresses();
  }

  PowerRunSummary run() {
    for (const Peer& peer : peers_) reduce_neighbours(*peer.ap);
    for (const Peer& peer : peers_) raise_own_radios(peer);
    return summary_;
  }

 private:
  struct Peer {
    MacAddr mac;  // under which the AP stands in the map
    ApEntry* ap;
  };

  // Enabled or not, every radio's address and every VAP's names its AP.
  void index_addresses() {
    for (std::size_t place = 0; place < peers_.size(); ++place) {
      by_mac_.add(peers_[place].mac, place);
      for (const Radio& radio : peers_[place].ap->radios.list) {
        by_mac_.add(radio.mac, place);
        for (const auto& [ssid, vap] : radio.vaps) by_mac_.add(vap.mac, place);
      }
    }
    by_mac_.build();
  }

  // The AP behind an address, if it has answered the scan of this cycle; the first of several.
  const Peer* answering_peer(const MacAddr& bssid) const {
    const auto found = by_mac_.of(bssid);
    if (found.empty()) return nullptr;
    const Peer& first = peers_[found.front().place];
    return has_answered(*first.ap) ? &first : nullptr;
  }

  // The AP as a listener: whoever it hears too loud must come down.
  void reduce_neighbours(const ApEntry& ap) {
    if (!has_answered(ap)) return;
    const Slots slots = listening_slots(ap.radios);
    for (const auto& [bssid, heard] : ap.visible_members) {
      const std::int32_t band = band_or_that_of(heard.band, heard.channel);
      if (band == 0) continue;
      const Radio* listener = radio_facing(ap.radios, hd_mode_, band, heard.channel, heard.bandwidth);
      if (listener == nullptr) continue;
      const RadioPowerSlot& slot = slots.at(static_cast<std::size_t>(listener->id));
      if (!slot.present || heard.rssi <= slot.rssi_threshold_high) continue;
      if (const Peer* peer = answering_peer(bssid)) reduce(*peer, heard, band, slot.rssi_threshold);
    }
  }

  // All enabled radios of the band come down, not the heard one alone, and by the threshold of the listener.
  void reduce(const Peer& peer, const Neighbour& heard, std::int32_t band, std::int32_t wanted) {
    Radios& radios = peer.ap->radios;
    radios.mark_conflicted(heard.channel, band);
    if (radios.lower_power_on_band(heard.channel, heard.rssi, wanted, band) == 0) return;
    record_power_result(results_, peer.mac, radios);
    ++summary_.lowered;
  }

  // The AP as one who is not heard enough.
  void raise_own_radios(const Peer& peer) {
    if (!has_answered(*peer.ap)) return;
    bool changed = false;
    for (Radio& radio : peer.ap->radios.list) {
      if (radio.conflicted || !listens(radio) || !raise(*peer.ap, radio)) continue;
      ++summary_.raised;
      changed = true;
    }
    if (changed) results_.insert_or_assign(peer.mac, peer.ap->radios);
  }

  // A radio that hears no peer at all keeps limits of 0 and so goes to the top of its range: a lone AP runs at full
  // power.
  bool raise(const ApEntry& ap, Radio& radio) {
    const std::int32_t band = band_or_that_of(radio.band, radio.channel);
    if (band == 0) return false;
    const std::int32_t strongest = strongest_peer(ap, radio, band);
    const bool heard_any = strongest > faintest;
    return radio.raise_power(strongest, heard_any ? radio.rssi_threshold(ThresholdMode::middle) : 0,
                             heard_any ? radio.rssi_threshold(ThresholdMode::low) : 0) != 0;
  }

  std::int32_t strongest_peer(const ApEntry& ap, const Radio& radio, std::int32_t band) const {
    std::int32_t strongest = faintest;
    for (const auto& [bssid, heard] : ap.visible_members) {
      if (heard.rssi <= strongest || !may_be_in_band(heard, band)) continue;
      const Peer* peer = answering_peer(bssid);
      if (peer == nullptr) continue;
      const Radio* facing = radio_facing(peer->ap->radios, hd_mode_, band, radio.channel, radio.bandwidth);
      if (facing != nullptr && facing->channel != 0) strongest = heard.rssi;
    }
    return strongest;
  }

  const bool hd_mode_;
  PlanResult& results_;
  std::vector<Peer> peers_;  // in the order of the domain
  MacIndex by_mac_;          // places in peers_
  PowerRunSummary summary_;
};

}  // namespace

bool radio_overlaps(const Radio& radio, std::int32_t band, std::int32_t channel, std::int32_t bandwidth) {
  if (!radio.status || band == 0 || band != radio.band) return false;
  const std::int32_t width = std::max(radio.bandwidth, bandwidth);
  const std::int64_t distance = std::abs(std::int64_t{channel} - radio.channel);
  if (band == 5 && is_wide(width)) return block_5ghz(channel, width) == block_5ghz(radio.channel, width);
  if (band == 5) return channel == radio.channel;
  if (band == 6) return distance <= reach_6ghz(width);
  // At 2.4 GHz a 40 MHz signal is taken to reach the whole band.
  return width == 40 || distance <= 3;
}

PowerRunSummary run_tpc(ApMap& aps, const DomainConfig& config, PlanResult& results) {
  return PowerRun(aps, config, results).run();
}

void record_power_result(PlanResult& results, const MacAddr& mac, const Radios& radios) {
  const auto stored = results.find(mac);
  if (stored != results.end() && !radios.any_lower_power(stored->second)) return;
  results.insert_or_assign(mac, radios);
}

}  // namespace rrm
