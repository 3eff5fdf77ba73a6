#include "planning/random_domain.h"

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "support/builders.h"

namespace rrm::testing {
namespace {

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}

  // Written out, since the standard distributions differ between libraries.
  std::int32_t in(std::int32_t low, std::int32_t high) {
    return low + static_cast<std::int32_t>(engine_() % static_cast<std::uint32_t>(high - low + 1));
  }
  bool percent(std::int32_t chance) { return in(0, 99) < chance; }
  std::int32_t one_of(std::initializer_list<std::int32_t> values) {
    return values.begin()[in(0, static_cast<std::int32_t>(values.size()) - 1)];
  }

 private:
  std::mt19937 engine_;
};

std::int32_t random_channel(Dice& dice, std::int32_t band) {
  if (dice.percent(8))
    return dice.one_of({0, -1, 14, 17, 33, 35, 50, 98, 130, 164, 165, 166, 225, 233, 236, 255, 256, 300});
  if (band == 2) return dice.one_of({1, 2, 5, 6, 9, 11, 13});
  if (band == 6) return dice.percent(20) ? dice.in(1, 233) : 1 + 4 * dice.in(0, 58);
  return dice.one_of({36,  40,  44,  48,  52,  56,  60,  64,  100, 104, 108, 112, 116,
                      120, 124, 128, 132, 136, 140, 144, 149, 153, 157, 161, 165});
}

std::int32_t random_width(Dice& dice) {
  return dice.percent(5) ? dice.one_of({0, 10, 60, -20}) : dice.one_of({20, 20, 40, 80, 160, 320});
}

std::int32_t random_position(Dice& dice) {
  return dice.one_of({0, 0, 256, 512, 768, 1024, 7});
}

std::int32_t random_band(Dice& dice) {
  return dice.percent(8) ? dice.one_of({0, 3, 0}) : dice.one_of({2, 5, 6});
}

MacAddr base_of(std::int32_t index) {
  return MacAddr({0, 0x11, 0x22, 0x33, static_cast<std::uint8_t>(index), 0});
}

// A few addresses stand with the local bit set, and a few radios claim an address of another AP's pool.
void randomise_address(Dice& dice, Radio& radio, std::int32_t index) {
  if (dice.percent(10)) radio.mac = radio.mac.with_local_bit_flipped();
  if (dice.percent(3)) radio.mac = base_of(index - 1).plus(dice.one_of({0, 1, 16, 32}));
}

void randomise_power(Dice& dice, Radio& radio) {
  radio.power = dice.in(-5, 30);
  radio.power_min = dice.one_of({-1, 0, 5, 10, 20});
  radio.power_max = dice.one_of({-1, 8, 16, 25, 30});
  radio.power_changed = dice.percent(10) ? dice.in(-6, 6) : 0;
  radio.has_antenna = dice.percent(30);
  radio.antenna_gain = dice.in(0, 8);
  radio.cable_loss = dice.in(0, 3);
  radio.eirp_min = dice.percent(30) ? dice.in(0, 20) : -1;
  radio.eirp_max = dice.percent(30) ? dice.in(10, 30) : -1;
  radio.eirp = dice.in(-1, 30);
}

void randomise(Dice& dice, Radio& radio) {
  radio.status = dice.percent(88);
  radio.band = random_band(dice);
  radio.channel = random_channel(dice, radio.band);
  radio.bandwidth = random_width(dice);
  radio.primary_channel = random_position(dice);
  radio.locked_dca = dice.percent(10) ? 1 : 0;
  radio.locked_tpc = dice.percent(10) ? 1 : 0;
  radio.conflicted = dice.percent(5);
  radio.visible_channels = dice.in(-1, 4);
  if (!dice.percent(10)) {
    for (std::int32_t n = dice.in(1, 9); n > 0; --n) radio.available_channels.insert(random_channel(dice, radio.band));
    if (dice.percent(50)) radio.available_channels.insert(radio.channel);
  }
  for (std::int32_t id = dice.in(0, 3); id > 0; --id) {
    radio.vaps.insert(a_vap("net" + std::to_string(id)).id(id).build(radio));
  }
  randomise_power(dice, radio);
}

// What is heard of a radio: mostly what it says of itself.
Neighbour heard_of(Dice& dice, const Radio& radio) {
  Neighbour heard;
  heard.rssi = dice.percent(5) ? dice.in(-115, -99) : dice.in(-98, -35);
  heard.channel = dice.percent(10) ? random_channel(dice, radio.band) : radio.channel;
  heard.band = dice.percent(15) ? dice.one_of({0, 2, 5, 6}) : radio.band;
  heard.bandwidth = dice.percent(10) ? random_width(dice) : radio.bandwidth;
  heard.primary = random_position(dice);
  heard.tx_power = dice.in(0, 30);
  return heard;
}

void hear_radio(Dice& dice, ApEntry& listener, const Radio& radio) {
  const Neighbour heard = heard_of(dice, radio);
  MacAddr bssid = radio.mac;
  if (dice.percent(15)) bssid = bssid.with_local_bit_flipped();
  listener.visible_members.insert(bssid, heard);
  // The same radio under its other form, and under the BSSIDs of its VAPs.
  if (dice.percent(4)) listener.visible_members.insert(bssid.with_local_bit_flipped(), heard_of(dice, radio));
  for (const auto& [ssid, vap] : radio.vaps) {
    if (dice.percent(30)) listener.visible_members.insert(vap.mac, heard);
  }
}

void hear_strangers(Dice& dice, ApEntry& ap) {
  for (std::int32_t n = dice.in(0, 6); n > 0; --n) {
    const auto last = static_cast<std::uint8_t>(dice.in(0, 255));
    Neighbour heard;
    heard.band = random_band(dice);
    heard.rssi = dice.in(-104, -35);
    heard.channel = random_channel(dice, heard.band);
    heard.bandwidth = random_width(dice);
    heard.primary = random_position(dice);
    ap.visible_rogue.insert(MacAddr({0xEE, 0, 0, 0, static_cast<std::uint8_t>(dice.in(0, 3)), last}), heard);
    // An address that nobody owns may stand among the members: the AP behind it is gone.
    if (dice.percent(10)) ap.visible_members.insert(MacAddr({0xDE, 0, 0, 0, 0, last}), heard);
  }
}

}  // namespace

DomainConfig random_config(std::uint32_t seed) {
  Dice dice(seed ^ 0x5EEDu);
  DomainConfig config;
  config.use_hd_mode = dice.percent(50);
  config.dca_threshold = dice.in(0, 99);
  config.ap_rssi_threshold_2g = dice.in(-90, -45);
  config.ap_rssi_threshold_5g = dice.in(-90, -45);
  config.ap_rssi_threshold_6g = dice.in(-90, -45);
  config.hysteresis_2g = dice.in(1, 10);
  config.hysteresis_5g = dice.in(1, 10);
  config.hysteresis_6g = dice.in(1, 10);
  return config;
}

ApMap random_domain(const DomainConfig& config, std::uint32_t seed) {
  Dice dice(seed);
  std::vector<std::shared_ptr<ApEntry>> aps;
  for (std::int32_t i = std::min(dice.in(2, 60), dice.in(2, 60)); i > 0; --i) {
    auto ap = std::make_shared<ApEntry>(config, base_of(i), BaseSession{}, ApFactory{});
    ap->radios.received = dice.percent(88);
    for (Radio& radio : ap->radios.list) {
      randomise_address(dice, radio, i);
      randomise(dice, radio);
    }
    aps.push_back(std::move(ap));
  }
  const std::int32_t density = dice.in(3, 60);
  for (const auto& listener : aps) {
    for (const auto& speaker : aps) {
      if (listener == speaker && !dice.percent(20)) continue;
      for (const Radio& radio : speaker->radios.list) {
        if (dice.percent(density)) hear_radio(dice, *listener, radio);
      }
    }
    hear_strangers(dice, *listener);
  }
  ApMap set;
  // An AP may stand in the set under another of its addresses.
  for (const auto& ap : aps) set.insert(dice.percent(3) ? ap->radios.list[1].mac : ap->mac, ap);
  return set;
}

}  // namespace rrm::testing
