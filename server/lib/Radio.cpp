#include "Radio.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "core/log.h"
#include "model/ApMap.h"
#include "model/numbers.h"

namespace rrm {
namespace {

constexpr std::int32_t macs_per_radio = 16;

std::vector<std::pair<std::int32_t, std::uint32_t>> make_priority_levels(const DomainConfig& config) {
  constexpr std::uint32_t light = 255;
  constexpr std::uint32_t medium = 127;
  if (!config.use_80211v || !config.use_balance) return {};
  std::vector<std::pair<std::int32_t, std::uint32_t>> levels{{config.load_balance_sta_low - 1, light},
                                                             {config.load_balance_sta_high - 1, medium}};
  std::sort(levels.begin(), levels.end());
  return levels;
}

// The centre of the wide channel that a primary channel stands in; 0 if the band plan has none.
std::int32_t wide_centre(std::int32_t band, std::int32_t channel, std::int32_t bandwidth) {
  const bool in_5ghz = band == 5 && channel >= 36 && channel <= 161;
  const bool in_6ghz = band == 6 && channel >= 1 && channel <= 233;
  if (in_5ghz) {
    const std::int32_t centre = block_centre_5ghz(channel, bandwidth);
    if (centre != 0) return centre;
  }
  if (bandwidth == 40 && (in_5ghz || in_6ghz)) return aligned_centre(channel, 8);
  if (bandwidth == 80 && (in_5ghz || in_6ghz)) return aligned_centre(channel, 16);
  if (bandwidth == 160 && in_6ghz) return aligned_centre(channel, 32);
  return 0;
}

PrimaryPosition position_in_80(std::int32_t channel, std::int32_t centre) {
  const std::int32_t distance = channel - centre;
  if (distance < -5) return primary_lower;
  if (distance < 0) return primary_upper;
  return distance <= 5 ? primary_upper_lower : primary_upper_upper;
}

PrimaryPosition position_of(std::int32_t channel, std::int32_t centre, std::int32_t bandwidth) {
  if (bandwidth == 80) return position_in_80(channel, centre);
  return channel < centre ? primary_lower : primary_upper;
}

// Whether the width knows such a position.
bool is_position(std::int32_t bandwidth, std::int32_t code) {
  const bool half = code == primary_lower || code == primary_upper;
  if (bandwidth == 40 || bandwidth == 160 || bandwidth == 320) return half;
  return bandwidth == 80 && (half || code == primary_upper_lower || code == primary_upper_upper);
}

PrimaryPosition position_in_320(std::int32_t channel) {
  const std::int32_t centre = nearest_centre_320(channel);
  return centre == 0 || centre == channel ? primary_none : position_of(channel, centre, 320);
}

const char* half_text(std::int32_t code) {
  if (code == primary_lower) return "lower";
  return code == primary_upper ? "upper" : "none";
}

const char* quarter_text(std::int32_t code) {
  switch (code) {
    case primary_lower:
      return "ll";
    case primary_upper:
      return "lu";
    case primary_upper_lower:
      return "ul";
    case primary_upper_upper:
      return "uu";
    default:
      return "none";
  }
}

struct Threshold {
  std::int32_t level;
  std::int32_t hysteresis;
};

Threshold threshold_of_band(const DomainConfig& config, std::int32_t band) {
  if (band == 5) return {config.ap_rssi_threshold_5g, config.hysteresis_5g};
  if (band == 6) return {config.ap_rssi_threshold_6g, config.hysteresis_6g};
  return {config.ap_rssi_threshold_2g, config.hysteresis_2g};
}

// What bounds the power of a radio.
template <class AnyRadio>
auto power_limits(AnyRadio& radio) {
  return std::tie(radio.power_min, radio.power_max, radio.eirp_min, radio.eirp_max, radio.antenna_gain,
                  radio.cable_loss, radio.has_antenna);
}

auto channel_settings(const Radio& radio) {
  return std::tie(radio.channel, radio.bandwidth, radio.primary_channel);
}

auto lock_settings(const Radio& radio) {
  return std::tie(radio.locked_tpc, radio.locked_dca, radio.locked_balancer, radio.locked_80211v);
}

bool both_disabled(const Radio& a, const Radio& b) {
  return a.id == b.id && !a.status && !b.status;
}

}  // namespace

Radio::Radio(const DomainConfig& domain_config, std::int32_t radio_id, const MacAddr& base)
    : config(&domain_config),
      id(radio_id),
      mac_offset(radio_id * macs_per_radio),
      mac(base.plus(mac_offset)),
      base_mac(base),
      priority_levels(make_priority_levels(domain_config)) {}

void Radio::set_mac(const MacAddr& base) {
  base_mac = base;
  mac = base.plus(mac_offset);
  RRM_LOG(LOG_DUMP, "radio id=%d, max_mac_count=%d, mac_offset=%d, mac = %s", id, max_mac_count, mac_offset,
          mac.to_string().c_str());
}

// Numbers of 166 and above exist in the 6 GHz band only, so a radio of another band cannot stand there.
std::int32_t Radio::radio_band_of(std::int32_t ch) const {
  if (ch < 1 || ch > 233) return 0;
  if (ch < 166) return band_or_that_of(band, ch);
  return band == 6 ? 6 : 0;
}

std::int32_t Radio::band_or_inferred(std::int32_t ch) const {
  return band_or_that_of(radio_band_of(ch), ch);
}

const char* Radio::primary_channel_text() const {
  switch (bandwidth) {
    case 40:
    case 160:
    case 320:
      return half_text(primary_channel);
    case 80:
      return quarter_text(primary_channel);
    default:
      return "none";
  }
}

void Radio::normalize_primary_channel() {
  const std::int32_t channel_band = radio_band_of(channel);
  const std::int32_t centre = wide_centre(channel_band, channel, bandwidth);
  if (centre != 0 && centre != channel) {
    primary_channel = position_of(channel, centre, bandwidth);
  } else if (!is_position(bandwidth, primary_channel)) {
    primary_channel = bandwidth == 320 && channel_band == 6 ? position_in_320(channel) : primary_none;
  }
}

bool Radio::channel_off_list() const {
  return status && channel >= 1 && !available_channels.empty() && !available_channels.contains(channel);
}

bool Radio::off_profile() const {
  return channel_off_list() && locked_dca == 0;
}

void Radio::add_current_channel(ChannelPools& pools) const {
  if (channel_off_list()) add_to_pool(pools, channel);
}

void Radio::add_to_pool(ChannelPools& pools, std::int32_t ch) const {
  const std::int32_t channel_band = radio_band_of(ch);
  if (channel_band != 0) pools.at(static_cast<std::size_t>(channel_band)).insert(ch);
}

void Radio::update_visible_channels(const ApEntry& ap) {
  visible_channels = ap.visible_members.distinct_channels();
}

void Radio::set_neighbour_channel(ApMap& aps, const MacAddr& neighbour_mac, std::int32_t new_channel) {
  for (const auto& [ap_mac, ap] : aps) {
    Neighbour* neighbour = ap->visible_members.find_with_local_bit_retry(neighbour_mac);
    if (neighbour == nullptr) continue;
    neighbour->channel = new_channel;
    update_visible_channels(*ap);
  }
}

std::int32_t Radio::rssi_threshold(ThresholdMode mode) const {
  const Threshold threshold = threshold_of_band(*config, band);
  if (mode == ThresholdMode::high) return threshold.level + threshold.hysteresis;
  if (mode == ThresholdMode::low) return threshold.level - threshold.hysteresis;
  return threshold.level;
}

std::int32_t Radio::clamp_power(std::int64_t value) const {
  std::int64_t floor = power_min < 0 ? config->default_power_min : power_min;
  std::int64_t ceiling = power_max < 0 ? config->default_power_max : power_max;
  if (has_antenna) {
    const std::int64_t antenna = std::int64_t{antenna_gain} - cable_loss;
    if (eirp_min >= 0) floor = std::max(floor, eirp_min - antenna);
    if (eirp_max >= 0) ceiling = std::min(ceiling, eirp_max - antenna);
  }
  return saturate32(floor > value ? floor : std::min(value, std::max(floor, ceiling)));
}

void Radio::refresh_eirp() {
  if (eirp_min < 0 && !has_antenna) return;
  const std::int64_t antenna = std::int64_t{antenna_gain} - cable_loss;
  std::int64_t level = has_antenna ? antenna + power : eirp;
  if (eirp_min >= 0 && eirp_min > level) {
    level = eirp_min;
  } else if (eirp_max >= 0 && eirp_max < level) {
    level = eirp_max;
  }
  eirp = saturate32(level);
  if (has_antenna && (eirp_min >= 0 || eirp_max >= 0)) follow_eirp(level);
}

// The power follows the EIRP as far as its limits allow, and the EIRP settles on what comes out of it.
void Radio::follow_eirp(std::int64_t level) {
  const std::int64_t antenna = std::int64_t{antenna_gain} - cable_loss;
  const std::int32_t allowed = clamp_power(level - antenna);
  if (allowed == power) return;
  power = allowed;
  std::int64_t settled = antenna + power;
  if (eirp_min >= 0) settled = std::max<std::int64_t>(settled, eirp_min);
  if (eirp_max >= 0) settled = std::min<std::int64_t>(settled, eirp_max);
  eirp = saturate32(settled);
}

// The steps of one cycle never add up: each is counted from the power that the cycle began with, and only a step deeper
// than the present one is made.
std::int32_t Radio::lower_power(std::int32_t a, std::int32_t b) {
  if (!status) return 0;
  const std::int64_t base = std::int64_t{power} - power_changed;
  const std::int32_t target = clamp_power(base + b - a);
  const std::int64_t step = base - target;
  if (step <= std::abs(std::int64_t{power_changed})) return 0;
  power = target;
  power_changed = saturate32(-step);
  refresh_eirp();
  return saturate32(step);
}

// An earlier step of this cycle that was larger is replaced, one that was smaller or equal stands.
std::int32_t Radio::raise_power(std::int32_t a, std::int32_t b, std::int32_t limit) {
  if (!status || a >= limit) return 0;
  const std::int64_t base = std::int64_t{power} - power_changed;
  const std::int32_t target = clamp_power(base + b - a);
  const std::int64_t step = target - base;
  if (step == 0) return 0;
  if (power_changed != 0 && std::abs(std::int64_t{power_changed}) <= step) return 0;
  power = target;
  power_changed = saturate32(step);
  refresh_eirp();
  return power_changed;
}

void Radio::set_validate_power(const Radio& other) {
  const bool limits_differ = power_limits(*this) != power_limits(other);
  power_limits(*this) = power_limits(other);
  if (!tpc_managed || !limits_differ) return;
  const std::int32_t old_power = power;
  const std::int32_t old_eirp = eirp;
  power = clamp_power(power);
  refresh_eirp();
  if (power == old_power && eirp == old_eirp) return;
  RRM_LOG(LOG_TRACE,
          "%s: Power/eirp adjusted to new limits: power %d -> %d, eirp %d -> %d (power min/max %d/%d, eirp min/max "
          "%d/%d)",
          base_mac.to_string().c_str(), old_power, power, old_eirp, eirp, power_min, power_max, eirp_min, eirp_max);
}

bool Radio::equivalent_channel(const Radio& other) const {
  if (both_disabled(*this, other)) return true;
  if (config->use_dca && locked_dca == 0 && status && dca_managed) return true;
  return channel_settings(*this) == channel_settings(other);
}

bool Radio::equivalent_vaps(const Radio& other) const {
  return both_disabled(*this, other) || vaps.equal(other.vaps);
}

bool Radio::equal_settings(const Radio& other) const {
  if (id != other.id) return false;
  if (both_disabled(*this, other)) return true;
  return power_limits(*this) == power_limits(other) && eirp == other.eirp && status == other.status &&
         bandwidth == other.bandwidth && lock_settings(*this) == lock_settings(other) &&
         available_channels == other.available_channels;
}

bool Radio::update_priority() {
  if (!config->use_balance || priority_levels.empty()) return false;
  const std::int32_t load = assoc.load();
  const auto level = std::find_if(priority_levels.begin(), priority_levels.end(),
                                  [&](const auto& entry) { return entry.first >= load; });
  const std::uint32_t wanted = level == priority_levels.end() ? 0 : level->second;
  if (wanted == priority) return false;
  priority = wanted;
  return true;
}

bool Radio::need_balance() const {
  return assoc.load() > config->load_balance_sta_low;
}

void Radio::blank() {
  status = false;
  tpc_managed = false;
  dca_managed = false;
  vaps.clear();
  available_channels.clear();
  channel = 0;
}

}  // namespace rrm
