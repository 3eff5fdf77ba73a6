// The three radios of one AP, ids 0 to 2, with two flags of the AP as a whole. A record, copied whole; belongs to
// whoever owns the AP record it is part of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Radio.h"

namespace rrm {

struct Radios {
  static constexpr std::size_t count = 3;

  // Three default radios of the AP with this address.
  Radios(const DomainConfig& config, const MacAddr& base);

  std::vector<Radio> list;    // always `count` radios; a radio's id is its index
  bool received = false;      // the AP has answered the scan of this cycle
  bool first_message = true;  // until the first from_json or restore ended

  // Null for an id that no radio has.
  Radio* find(std::int32_t id);
  const Radio* find(std::int32_t id) const;
  // The enabled radio of a band, one on the channel first. Null if there is none.
  const Radio* find_on_band(std::int32_t band, std::int32_t channel) const;

  void set_macs(const MacAddr& base);
  // Reads "radios" of an AP's message. Without that array nothing changes; with it, each radio that no element names is
  // blanked. `list_flag` marks the lists of the neighbours as stale.
  void from_json(const JsonReader& json, ChannelPools& pools, bool apply_vaps, bool list_flag);
  // The same with "interfaces" of a backup.
  void restore(const JsonReader& json, ChannelPools& pools);
  void dump_json(JsonWriter& object) const;
  // Adds the array "radios" of the enabled radios, as an AP is told.
  void write_radios(JsonWriter& object) const;

  // True if some radio fits.
  bool any_on_air() const;         // enabled and on a channel
  bool any_11k() const;            // a VAP with 802.11k
  bool any_11r() const;            // a VAP with 802.11r
  bool any_balancer_free() const;  // not locked for the balancer, enabled or not
  bool any_11v() const;            // enabled, not locked for 802.11v, a VAP with 802.11v
  bool any_11kv() const;           // enabled, not locked for 802.11v, a VAP with 802.11k or 802.11v
  bool any_off_profile() const;

  // True if any radio's priority changed.
  bool update_priorities();
  void mark_lists_stale();

  // Radio by radio, paired by id.
  bool vaps_equal(const Radios& other) const;
  bool channels_equal(const Radios& other) const;
  bool all_settings_equal(const Radios& other) const;
  void set_validate_power(const Radios& other);
  // A radio here has less power than one there on the same channel.
  bool any_lower_power(const Radios& other) const;

  // For the enabled radios of the band, which is the channel's if given as 0; nothing where that is unknown too.
  void mark_conflicted(std::int32_t channel, std::int32_t band);
  // The largest step in dB that any of them made.
  std::int32_t lower_power_on_band(std::int32_t channel, std::int32_t a, std::int32_t b, std::int32_t band);
};

}  // namespace rrm
