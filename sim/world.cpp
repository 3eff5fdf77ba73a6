#include "sim/world.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr std::uint64_t radio_pool = 16;
constexpr int station_power_dbm = 15;

}  // namespace

// Something on the air: who (for the link's shadowing), where, how strong (EIRP, dBm) and on what.
struct World::Transmitter {
  Mac identity;
  Point position;
  int eirp = 0;
  int power = 0;
  int band = 0;
  int channel = 0;
  int bandwidth = 0;
  const std::string& primary;

  Interval spectrum() const { return channel_block(band, channel, bandwidth, primary).value().spectrum; }
};

struct World::Listener {
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

Interval spectrum_of(const Radio& radio) {
  return channel_block(radio.band, radio.channel, radio.bandwidth, radio.primary).value().spectrum;
}

Interval spectrum_of(const ForeignAp& foreign) {
  return channel_block(foreign.band, foreign.channel, foreign.bandwidth, foreign.primary).value().spectrum;
}

World::World(const Site& site) : site_(site), model_(site) {
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
  for (const ForeignAp& foreign : site_.foreign_aps) {
    if (foreign.band == band) {
      bssids.assign(1, foreign.bssid);
      visit(transmitter_of(foreign), bssids);
    }
  }
}

World::Transmitter World::transmitter_of(std::size_t ap, const Radio& radio) const {
  const AccessPoint& sender = site_.access_points[ap];
  return {sender.mac,      sender.position, radio.power + radio.antenna_gain - radio.cable_loss,
          radio.power,     radio.band,      radio.channel,
          radio.bandwidth, radio.primary};
}

World::Transmitter World::transmitter_of(const ForeignAp& foreign) {
  return {foreign.bssid,     foreign.position, foreign.power + foreign.antenna_gain,
          foreign.power,     foreign.band,     foreign.channel,
          foreign.bandwidth, foreign.primary};
}

World::Listener World::listener_of(std::size_t ap, const Radio& radio) const {
  const AccessPoint& listener = site_.access_points[ap];
  return {listener.mac, listener.position, radio.antenna_gain - radio.cable_loss, radio.band, spectrum_of(radio)};
}

double World::received_dbm(const Transmitter& sender, const Listener& listener) const {
  return sender.eirp + listener.gain -
         model_.link_loss_db(sender.position, sender.identity, listener.position, listener.identity, listener.band,
                             sender.spectrum().centre_mhz());
}

std::vector<HeardBss> World::hear(std::size_t ap, const ScanChannels& channels, std::uint64_t scan,
                                  std::uint64_t round) const {
  std::vector<HeardBss> heard;
  for (const Radio& radio : radios_[ap]) {
    const auto visited = channels.find(radio.band);
    if (!radio.enabled || visited == channels.end()) {
      continue;
    }
    const Listener listener = listener_of(ap, radio);
    each_other_transmitter(ap, radio.band, [&](const Transmitter& sender, const std::vector<Mac>& bssids) {
      const auto& list = visited->second;
      if (std::find(list.begin(), list.end(), sender.channel) != list.end()) {
        add_beacons(sender, listener, bssids, scan, round, heard);
      }
    });
  }
  return heard;
}

void World::add_beacons(const Transmitter& sender, const Listener& listener, const std::vector<Mac>& bssids,
                        std::uint64_t scan, std::uint64_t round, std::vector<HeardBss>& heard) const {
  const double level = received_dbm(sender, listener);
  for (const Mac& bssid : bssids) {
    const double measured = level + model_.measurement_error_db(bssid, listener.identity, scan, round);
    if (measured >= site_.scan.sensitivity_dbm.of(listener.band)) {
      heard.push_back({bssid, sender.band, sender.channel, sender.bandwidth, sender.primary, sender.power,
                       static_cast<int>(std::lround(measured))});
    }
  }
}

double World::interference_mw(std::size_t tuned_ap, const Listener& listener) const {
  double sum = 0;
  each_other_transmitter(tuned_ap, listener.band, [&](const Transmitter& sender, const std::vector<Mac>&) {
    const double share = overlap_fraction(sender.spectrum(), listener.spectrum);
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

double World::between_dbm(const ForeignAp& sender, std::size_t to, const Radio& receiver) const {
  return received_dbm(transmitter_of(sender), listener_of(to, receiver));
}

double World::downlink_dbm(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const {
  return received_dbm(transmitter_of(ap, radio), {station, at, 0, radio.band, spectrum_of(radio)});
}

double World::uplink_dbm(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const {
  return downlink_dbm(ap, radio, at, station) - radio.power + station_power_dbm;
}

double World::interference_at_mw(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const {
  return interference_mw(ap, Listener{station, at, 0, radio.band, spectrum_of(radio)});
}

}  // namespace sim
