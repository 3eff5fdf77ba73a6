// The server's picture of one radio interface of an AP: what it says it is, what the optimiser decided for it, its
// locks and limits, its MAC pool, its VAPs, its clients and its probe list. It reads itself from an AP's message and
// from a backup, writes itself to both, keeps power and EIRP consistent and knows where in its channel the primary
// stands.
//
// A record with open fields, copied whole; it belongs to the domain worker's thread, or, in a copy of the domain, to
// the optimisation thread. The settings that `config` points to outlive it. Nothing here throws on bad input: a missing
// key reads as 0 or empty. Numbers from the wire may have any value: sums are made in 64 bits and cut to the nearest
// 32-bit value, so nothing overflows.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Config.h"
#include "model/AssocMap.h"
#include "model/MacAddr.h"
#include "model/VapMap.h"
#include "model/bands.h"
#include "steering/RrmProblist.h"

namespace rrm {

class ApEntry;
class ApMap;
class JsonReader;
class JsonWriter;

// Where the primary channel stands in a wide channel. `lower` and `upper` are the halves of 40, 160 and 320 MHz; at
// 80 MHz they mean lower-lower and lower-upper.
enum PrimaryPosition : std::int32_t {
  primary_none = 0,
  primary_lower = 256,
  primary_upper = 512,
  primary_upper_lower = 768,
  primary_upper_upper = 1024,
};

// Which bound of the wanted neighbour level Radio::rssi_threshold answers with.
enum class ThresholdMode : std::int32_t { high = 0, middle = 1, low = 2 };

struct Radio {
  // A disabled radio on channel 1, 20 MHz, with the pool of 16 addresses that starts at `base` + 16 * `id`.
  Radio(const DomainConfig& domain_config, std::int32_t radio_id, const MacAddr& base);

  const DomainConfig* config;
  std::int32_t power_changed = 0;  // dB, signed step of this cycle's power control
  bool conflicted = false;         // a scan of this cycle found a conflict on the radio's band
  std::int32_t locked_tpc = 0;
  std::int32_t locked_dca = 0;
  std::int32_t locked_balancer = 0;
  std::int32_t locked_80211v = 0;
  bool tpc_managed = false;       // the power belongs to the plan
  bool dca_managed = false;       // the channel belongs to the plan
  ChannelSet available_channels;  // permitted by the AP; empty: no restriction is known
  VapMap vaps;
  std::int32_t id;
  std::int32_t mac_offset;
  MacAddr mac;       // base_mac + mac_offset
  MacAddr base_mac;  // the AP's own
  bool status = false;
  std::int32_t channel = 1;  // primary 20 MHz channel; 0 when the radio was absent from the last message
  std::int32_t band = 0;
  std::int32_t power = 0;      // dBm
  std::int32_t power_max = 0;  // dBm; negative: the domain's default
  std::int32_t power_min = 0;  // dBm; negative: the domain's default
  std::int32_t eirp = -1;      // dBm, the next three alike; -1: not given
  std::int32_t eirp_min = -1;
  std::int32_t eirp_max = -1;
  std::int32_t antenna_gain = 0;  // dBi
  std::int32_t cable_loss = 0;    // dB
  bool has_antenna = false;
  std::int32_t bandwidth = 20;  // MHz
  std::int32_t max_mac_count = 16;
  std::int32_t visible_channels = 0;  // distinct channels that the AP hears members on; -1: done in this channel pass
  std::int32_t neighbour_count = 0;   // members heard at the last channel pass
  std::int32_t primary_channel = primary_none;  // a PrimaryPosition, or whatever a backup said until normalised
  RrmProblist problist;
  AssocMap assoc;
  std::vector<std::pair<std::int32_t, std::uint32_t>> priority_levels;  // (load, priority), ascending
  std::uint32_t priority = 255;                                         // in the 802.11k/v lists of others
  std::uint32_t sent_priority = 0;                                      // at the last 802.11v pass
  bool lists_stale = false;            // the 802.11k/v lists of neighbours must be rebuilt for this radio
  std::int32_t roam_peers = 0;         // less loaded peers in this 802.11v pass
  std::int32_t roam_peer_clients = 0;  // their clients

  // Bands and channels.
  void set_mac(const MacAddr& base);
  // The band of a channel number as this radio, which may know its own band, sees it; 0 if it cannot be told.
  std::int32_t radio_band_of(std::int32_t ch) const;
  // The same, inferred from the number alone where that fails. What an AP is told under "band".
  std::int32_t band_or_inferred(std::int32_t ch) const;
  // "none", "lower", "upper", "ll", "lu", "ul" or "uu", by bandwidth and position.
  const char* primary_channel_text() const;
  // Makes primary_channel agree with channel and bandwidth.
  void normalize_primary_channel();
  // Enabled, on a channel that the AP's list does not permit.
  bool channel_off_list() const;
  // The same, and the channel plan may do something about it.
  bool off_profile() const;
  // Puts a channel that is off the list into its band's pool, so that it is scanned.
  void add_current_channel(ChannelPools& pools) const;
  // visible_channels from what this AP hears.
  void update_visible_channels(const ApEntry& ap);
  // This radio of the AP with address `neighbour_mac` moved: corrects what all others of the map hear of it.
  void set_neighbour_channel(ApMap& aps, const MacAddr& neighbour_mac, std::int32_t new_channel);

  // Power. Levels and limits are dBm, steps dB.
  // The wanted level of the strongest neighbour, with or without the hysteresis.
  std::int32_t rssi_threshold(ThresholdMode mode) const;
  // Into the range that power and EIRP limits leave; a crossed range gives its floor.
  std::int32_t clamp_power(std::int64_t value) const;
  // Derives the EIRP from power and antenna, or the other way round where a limit of the EIRP says so.
  void refresh_eirp();
  // A neighbour hears this enabled radio at level `a` and wants `b`: the step down in dB, 0 if none was made.
  std::int32_t lower_power(std::int32_t a, std::int32_t b);
  // The strongest peer is heard at `a`, wanted is `b`, and `a` is below `limit`: the step up in dB, 0 if none was made.
  std::int32_t raise_power(std::int32_t a, std::int32_t b, std::int32_t limit);
  // New limits while the planned power stays, as far as they allow.
  void set_validate_power(const Radio& other);

  // Comparison.
  bool equivalent_channel(const Radio& other) const;
  bool equivalent_vaps(const Radio& other) const;
  bool equal_settings(const Radio& other) const;

  // Load.
  // True if the priority changed.
  bool update_priority();
  bool need_balance() const;

  // Reading. `json` is one radio object.
  void from_json(const JsonReader& json, ChannelPools& pools, bool first_message, bool apply_vaps, bool list_flag);
  void restore(const JsonReader& json, ChannelPools& pools);
  // What a radio becomes that the last message did not name. Its other fields stay.
  void blank();

  // Writing. Each adds one object to an array, dump_json fills an object.
  void write_radio_config(JsonWriter& array) const;
  void write_blacklist(JsonWriter& array) const;
  void write_probe_entry(JsonWriter& array, const MacAddr& client, const std::string& ssid, std::int32_t timeout) const;
  void write_disassoc_list(JsonWriter& array) const;
  void dump_json(JsonWriter& object) const;

 private:
  void add_to_pool(ChannelPools& pools, std::int32_t ch) const;
  void follow_eirp(std::int64_t level);
  bool may_be_managed(bool in_use, std::int32_t lock) const { return in_use && lock == 0 && status; }
  void update_band_from_json(const JsonReader& json, const char* label);
  void read_power(const JsonReader& json);
  void read_eirp(const JsonReader& json);
  void read_mac_pool(const JsonReader& json, bool first_message);
  void read_vaps(const JsonReader& json);
  void set_available_channels(std::vector<std::int32_t> channels, ChannelPools& pools);
  void write_eirp(JsonWriter& object) const;
  void write_antenna(JsonWriter& object) const;
};

}  // namespace rrm
