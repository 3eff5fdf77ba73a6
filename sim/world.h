// The site while it runs: what every radio of it is set to now, and what can be heard of that. One thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/link_table.h"
#include "sim/radio_model.h"
#include "sim/site.h"
#include "sim/spectrum.h"
#include "sim/steering_events.h"

namespace sim {

// What a controller asks of a radio. Absent members stay as they are.
struct RadioOrder {
  int id = 0;
  std::optional<int> channel;
  std::optional<int> bandwidth;
  std::optional<std::string> primary;
  std::optional<int> power;
};

// One BSSID of one scan round.
struct HeardBss {
  Mac bssid;
  int band = 0;
  int channel = 0;
  int bandwidth = 0;
  std::string primary;
  int tx_power = 0;
  int rssi = 0;
};

using ScanRound = std::vector<HeardBss>;

// The channels that a scan visits, by band; a band without an entry is not visited.
using ScanChannels = std::map<int, std::vector<int>>;

class World {
 public:
  // The site must outlive the world.
  explicit World(const Site& site);
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  const Site& site() const { return site_; }
  const std::vector<Radio>& radios(std::size_t ap) const { return radios_[ap]; }
  // Null for an AP without such a radio.
  const Radio* radio(std::size_t ap, int id) const;

  // Sets a radio as ordered. Returns why it cannot be done, in which case nothing changed, or an empty text. Power
  // beyond the radio's limits is not refused but cut to them, as hardware does.
  std::string apply(std::size_t ap, const RadioOrder& order);

  // Gives a radio another configuration, as its administrator would; its id tells which. Returns why that is none, in
  // which case nothing changed, or an empty text.
  std::string reconfigure(std::size_t ap, const Radio& radio);

  // The enabled radio that transmits under a BSSID, which may differ in the locally-administered bit.
  std::optional<Place> find_bssid(const Mac& bssid) const;

  // What one AP hears in each round of a scan: the beacons of its bands at or above the sensitivity threshold. `scan`
  // numbers the AP's scans, each of which has its own errors of measurement.
  std::vector<ScanRound> hear(std::size_t ap, const ScanChannels& channels, std::uint64_t scan) const;

  // The power that arrives from all other transmitters of the radio's band, each weighted by the share of its
  // transmission that falls into this radio's channel; in mW, as if all of them transmitted at once.
  double interference_mw(std::size_t ap, const Radio& radio) const;

  // How strongly one AP's radio, set as given, receives another AP's radio or a foreign AP (by its place), dBm.
  double between_dbm(std::size_t from, const Radio& sender, std::size_t to, const Radio& receiver) const;
  double foreign_dbm(std::size_t foreign, std::size_t to, const Radio& receiver) const;

  // How strongly a station at a point receives a radio, and the radio the station, dBm.
  double downlink_dbm(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const;
  double uplink_dbm(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const;

  // What a station tuned to this radio receives from all the others, as in interference_mw.
  double interference_at_mw(std::size_t ap, const Radio& radio, const Point& at, const Mac& station) const;

 private:
  struct Transmitter;
  struct Listener;

  Transmitter transmitter_of(std::size_t ap, const Radio& radio) const;
  Transmitter transmitter_of(std::size_t index, const ForeignAp& foreign) const;
  Listener listener_of(std::size_t ap, const Radio& radio) const;
  double received_dbm(const Transmitter& sender, const Listener& listener) const;
  double interference_mw(std::size_t tuned_ap, const Listener& listener) const;
  double obstruction_db(const Transmitter& sender, const Listener& listener) const;
  void add_beacons(const Transmitter& sender, const Listener& listener, const std::vector<Mac>& bssids,
                   std::uint64_t scan, std::vector<ScanRound>& rounds) const;
  template <typename Visit>
  void each_other_transmitter(std::size_t ap, int band, const Visit& visit) const;

  const Site& site_;
  RadioModel model_;
  mutable LinkTable links_;  // remembers; never changes an answer
  std::vector<std::vector<Radio>> radios_;
};

// The address of a radio, and of a VAP on it.
Mac radio_mac(const AccessPoint& ap, const Radio& radio);
Mac vap_mac(const AccessPoint& ap, const Radio& radio, const Vap& vap);

// The VAP of an SSID on a radio, or null.
const Vap* vap_of(const Radio& radio, const std::string& ssid);

// The spectrum that a radio occupies; its channel is always one that exists.
Interval spectrum_of(const Radio& radio);
Interval spectrum_of(const ForeignAp& foreign);

}  // namespace sim
