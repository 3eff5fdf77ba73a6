#include "sim/world.h"

#include <algorithm>
#include <cmath>

#include "sim/chance.h"

namespace sim {
namespace {

constexpr std::uint64_t radio_pool = 16;
constexpr int station_power_dbm = 15;

}  // namespace

// Something on the air: who (for the link's shadowing), where, how strong (EIRP, dBm) and on what. `node` is its place
// in the link table.
struct World::Transmitter {
  std::size_t node = 0;
  Mac identity;
  Point position;
  int eirp = 0;
  int power = 0;
  int band = 0;
  int channel = 0;
  int bandwidth = 0;
  const std::string& primary;
  Interval spectrum;
};

// An antenna that listens; stations move and have no place in the link table.
struct World::Listener {
  std::optional<std::size_t> node;
  Mac identity;
  Point position;
  int gain = 0;
  int band = 0;
  Interval spectrum;
};

Mac radio_mac(const AccessPoint& ap, const Radio& radio) {
  return ap.mac.plus(static_cast<std::uint64_t>(radio.id) * radio_pool);
}

Mac vap_mac(const AccessPoint& ap, const Radio& radio, const Vap& vap) {
  return radio_mac(ap, radio).plus(static_cast<std::uint64_t>(vap.id));
}

const Vap* vap_of(const Radio& radio, const std::string& ssid) {
  const auto found =
      std::find_if(radio.vaps.begin(), radio.vaps.end(), [&](const Vap& vap) { return vap.ssid == ssid; });
  return found == radio.vaps.end() ? nullptr : &*found;
}

Interval spectrum_of(const Radio& radio) {
  return channel_block(radio.band, radio.channel, radio.bandwidth, radio.primary).value().spectrum;
}

Interval spectrum_of(const ForeignAp& foreign) {
  return channel_block(foreign.band, foreign.channel, foreign.bandwidth, foreign.primary).value().spectrum;
}

World::World(const Site& site) : site_(site), model_(site), links_(site, model_) {
  for (const AccessPoint& ap : site.access_points) {
    radios_.push_back(ap.radios);
  }
}

const Radio* World::radio(std::size_t ap, int id) const {
  const auto& radios = radios_[ap];
  const auto found = std::find_if(radios.begin(), radios.end(), [id](const Radio& radio) { return radio.id == id; });
  return found == radios.end() ? nullptr : &*found;
}

std::string World::apply(std::size_t ap, const RadioOrder& order) {
  auto& radios = radios_[ap];
  const auto radio =
      std::find_if(radios.begin(), radios.end(), [&](const Radio& candidate) { return candidate.id == order.id; });
  if (radio == radios.end()) {
    return "no radio " + std::to_string(order.id);
  }
  const int channel = order.channel.value_or(radio->channel);
  const int bandwidth = order.bandwidth.value_or(radio->bandwidth);
  const auto& available = radio->available_channels;
  if (channel != radio->channel && !std::binary_search(available.begin(), available.end(), channel)) {
    return "channel " + std::to_string(channel) + " is not available on radio " + std::to_string(order.id);
  }
  const auto block = channel_block(radio->band, channel, bandwidth, order.primary.value_or(radio->primary));
  if (!block) {
    return "no " + std::to_string(bandwidth) + " MHz on channel " + std::to_string(channel) + " of radio " +
           std::to_string(order.id);
  }
  radio->channel = channel;
  radio->bandwidth = bandwidth;
  radio->primary = block->primary;
  radio->power = std::clamp(order.power.value_or(radio->power), radio->power_min, radio->power_max);
  return "";
}

std::string World::reconfigure(std::size_t ap, const Radio& radio) {
  auto& radios = radios_[ap];
  const auto present =
      std::find_if(radios.begin(), radios.end(), [&](const Radio& candidate) { return candidate.id == radio.id; });
  if (present == radios.end()) {
    return "no radio " + std::to_string(radio.id);
  }
  const auto block = channel_block(radio.band, radio.channel, radio.bandwidth, radio.primary);
  if (!block) {
    return "no " + std::to_string(radio.bandwidth) + " MHz on channel " + std::to_string(radio.channel) + " of radio " +
           std::to_string(radio.id);
  }
  if (radio.power < radio.power_min || radio.power > radio.power_max) {
    return "power " + std::to_string(radio.power) + " is beyond the limits of radio " + std::to_string(radio.id);
  }
  *present = radio;
  present->primary = block->primary;
  std::sort(present->available_channels.begin(), present->available_channels.end());
  return "";
}

std::optional<Place> World::find_bssid(const Mac& bssid) const {
  for (std::size_t ap = 0; ap < radios_.size(); ++ap) {
    for (const Radio& radio : radios_[ap]) {
      const auto is_it = [&](const Vap& vap) {
        return vap_mac(site_.access_points[ap], radio, vap).equals_up_to_local_bit(bssid);
      };
      if (radio.enabled && std::any_of(radio.vaps.begin(), radio.vaps.end(), is_it)) {
        return Place{ap, radio.id};
      }
    }
  }
  return std::nullopt;
}

// Every enabled radio of the band on the other APs, and every foreign AP of the band, with its BSSIDs.
template <typename Visit>
void World::each_other_transmitter(std::size_t ap, int band, const Visit& visit) const {
  std::vector<Mac> bssids;
  for (std::size_t other = 0; other < radios_.size(); ++other) {
    const AccessPoint& sender = site_.access_points[other];
    for (const Radio& radio : radios_[other]) {
      if (other == ap || radio.band != band || !radio.enabled) {
        continue;
      }
      bssids.clear();
      for (const Vap& vap : radio.vaps) {
        bssids.push_back(vap_mac(sender, radio, vap));
      }
      visit(transmitter_of(other, radio), bssids);
    }
  }
  for (std::size_t i = 0; i < site_.foreign_aps.size(); ++i) {
    const ForeignAp& foreign = site_.foreign_aps[i];
    if (foreign.band == band) {
      bssids.assign(1, foreign.bssid);
      visit(transmitter_of(i, foreign), bssids);
    }
  }
}

World::Transmitter World::transmitter_of(std::size_t ap, const Radio& radio) const {
  const AccessPoint& sender = site_.access_points[ap];
  const int eirp = radio.power + radio.antenna_gain - radio.cable_loss;
  return {ap,         sender.mac,    sender.position, eirp,          radio.power,
          radio.band, radio.channel, radio.bandwidth, radio.primary, spectrum_of(radio)};
}

World::Transmitter World::transmitter_of(std::size_t index, const ForeignAp& foreign) const {
  const int eirp = foreign.power + foreign.antenna_gain;
  return {radios_.size() + index, foreign.bssid,       foreign.position, eirp,
          foreign.power,          foreign.band,        foreign.channel,  foreign.bandwidth,
          foreign.primary,        spectrum_of(foreign)};
}

World::Listener World::listener_of(std::size_t ap, const Radio& radio) const {
  const AccessPoint& listener = site_.access_points[ap];
  return {ap, listener.mac, listener.position, radio.antenna_gain - radio.cable_loss, radio.band, spectrum_of(radio)};
}

double World::obstruction_db(const Transmitter& sender, const Listener& listener) const {
  return listener.node ? links_.obstruction_db(sender.node, *listener.node, listener.band)
                       : model_.obstruction_db(sender.position, sender.identity, listener.position, listener.identity,
                                               listener.band);
}

double World::received_dbm(const Transmitter& sender, const Listener& listener) const {
  return sender.eirp + listener.gain -
         link_loss_db(distance_m(sender.position, listener.position), sender.spectrum.centre_mhz(),
                      obstruction_db(sender, listener));
}

std::vector<ScanRound> World::hear(std::size_t ap, const ScanChannels& channels, std::uint64_t scan) const {
  std::vector<ScanRound> rounds(static_cast<std::size_t>(site_.scan.rounds));
  for (const Radio& radio : radios_[ap]) {
    const auto visited = channels.find(radio.band);
    if (!radio.enabled || visited == channels.end()) {
      continue;
    }
    const Listener listener = listener_of(ap, radio);
    each_other_transmitter(ap, radio.band, [&](const Transmitter& sender, const std::vector<Mac>& bssids) {
      const auto& list = visited->second;
      if (std::find(list.begin(), list.end(), sender.channel) != list.end()) {
        add_beacons(sender, listener, bssids, scan, rounds);
      }
    });
  }
  return rounds;
}

void World::add_beacons(const Transmitter& sender, const Listener& listener, const std::vector<Mac>& bssids,
                        std::uint64_t scan, std::vector<ScanRound>& rounds) const {
  const double level = received_dbm(sender, listener);
  const double threshold = site_.scan.sensitivity_dbm.of(listener.band);
  if (level + widest_draw * site_.radio_model.noise_db < threshold) {
    return;  // no luck could lift it
  }
  for (std::size_t round = 0; round < rounds.size(); ++round) {
    for (const Mac& bssid : bssids) {
      const double measured = level + model_.measurement_error_db(bssid, listener.identity, scan, round);
      if (measured >= threshold) {
        rounds[round].push_back({bssid, sender.band, sender.channel, sender.bandwidth, sender.primary, sender.power,
                                 static_cast<int>(std::lround(measured))});
      }
    }
  }
}

double World::interference_mw(std::size_t tuned_ap, const Listener& listener) const {
  double sum = 0;
  each_other_transmitter(tuned_ap, listener.band, [&](const Transmitter& sender, const std::vector<Mac>&) {
    const double share = overlap_fraction(sender.spectrum, listener.spectrum);
    sum += share > 0 ? share * dbm_to_mw(received_dbm(sender, listener)) : 0;
  });
  return sum;
}

double World::interference_mw(std::size_t ap, const Radio& radio) const {
  return interference_mw(ap, listener_of(ap, radio));
}

double World::between_dbm(std::size_t from, const Radio& sender, std::size_t to, const Radio& receiver) const {
  return received_dbm(transmitter_of(from, sender), listener_of(to, receiver));
}

double World::foreign_dbm(std::size_t foreign, std::size_t to, const Radio& receiver) const {
  return received_dbm(transmitter_of(foreign, site_.foreign_aps[foreign]), listener_of(to, receiver));
}

double World::downlink_dbm(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const {
  return received_dbm(transmitter_of(ap, radio), {std::nullopt, station, at, 0, radio.band, spectrum_of(radio)});
}

double World::uplink_dbm(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const {
  return downlink_dbm(ap, radio, at, station) - radio.power + station_power_dbm;
}

double World::interference_at_mw(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const {
  return interference_mw(ap, Listener{std::nullopt, station, at, 0, radio.band, spectrum_of(radio)});
}

}  // namespace sim
