// How a radio reads itself: from an AP's message and from a backup.
#include <string_view>
#include <utility>

#include "Radio.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "model/json_fields.h"
#include "model/keys.h"
#include "model/numbers.h"

namespace rrm {
namespace {

constexpr std::int32_t default_pool_size = 16;
constexpr const char* dashes = "----------------------------------";

PrimaryPosition position_of_text(std::string_view text) {
  constexpr std::pair<std::string_view, PrimaryPosition> positions[] = {
      {"upper", primary_upper}, {"lower", primary_lower},    {"ll", primary_lower},
      {"lu", primary_upper},    {"ul", primary_upper_lower}, {"uu", primary_upper_upper},
  };
  for (const auto& [name, position] : positions) {
    if (text == name) return position;
  }
  return primary_none;
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// The runs of digits of a text. A number beyond 32 bits counts as the largest one: it is no channel of any band.
std::vector<std::int32_t> numbers_in(std::string_view text) {
  std::vector<std::int32_t> numbers;
  for (std::size_t i = 0; i < text.size();) {
    std::int64_t number = 0;
    const std::size_t first = i;
    for (; i < text.size() && is_digit(text[i]); ++i) number = saturate32(number * 10 + (text[i] - '0'));
    if (number > 0) numbers.push_back(static_cast<std::int32_t>(number));
    if (i == first) ++i;
  }
  return numbers;
}

std::vector<std::int32_t> numbers_of(const JsonReader& array) {
  std::vector<std::int32_t> numbers(static_cast<std::size_t>(array.size()));
  for (int i = 0; i < array.size(); ++i) numbers[static_cast<std::size_t>(i)] = array.get_int(i);
  return numbers;
}

bool uses_vaps(const DomainConfig& config) {
  return config.use_balance || config.use_80211k || config.use_80211r || config.use_80211v;
}

}  // namespace

void Radio::from_json(const JsonReader& json, ChannelPools& pools, bool first_message, bool apply_vaps,
                      bool list_flag) {
  // An AP that does not know the balancer locks is not balanced.
  locked_tpc = json.get_int(field::locked_tpc.message);
  locked_dca = json.get_int(field::locked_dca.message);
  locked_balancer = get_int_or(json, field::locked_balancer.message, 1);
  locked_80211v = get_int_or(json, field::locked_80211v.message, 1);
  status = get_flag(json, "status");
  channel = json.get_int("channel");
  if (may_be_managed(config->use_dca, locked_dca)) dca_managed = true;
  update_band_from_json(json, "radio message");
  read_power(json);
  power_max = json.get_int(field::power_max.message);
  power_min = json.get_int(field::power_min.message);
  read_eirp(json);
  if (!json.has("eirp")) refresh_eirp();
  bandwidth = json.get_int("bandwidth");
  read_mac_pool(json, first_message);
  lists_stale = lists_stale || list_flag;
  primary_channel = position_of_text(json.get_string("primary-channel"));
  normalize_primary_channel();
  set_available_channels(numbers_in(json.get_string("available-channels")), pools);
  if (!uses_vaps(*config)) return;
  if (apply_vaps) read_vaps(json);
  const JsonReader clients = json.get_array(field::client_list.message);
  if (clients.empty()) return;
  assoc.load_from_json(clients);
  assoc.dump();
}

void Radio::restore(const JsonReader& json, ChannelPools& pools) {
  locked_tpc = json.get_int(field::locked_tpc.backup);
  locked_dca = json.get_int(field::locked_dca.backup);
  locked_balancer = json.get_int(field::locked_balancer.backup);
  locked_80211v = json.get_int(field::locked_80211v.backup);
  status = get_flag(json, "status");
  channel = json.get_int("channel");
  update_band_from_json(json, "radio restore");
  if (may_be_managed(config->use_dca, locked_dca)) dca_managed = true;
  power = json.get_int("power");
  if (may_be_managed(config->use_tpc, locked_tpc)) tpc_managed = true;
  power_max = json.get_int(field::power_max.backup);
  power_min = json.get_int(field::power_min.backup);
  bandwidth = json.get_int("bandwidth");
  mac_offset = get_int_or(json, "mac-offset", id * default_pool_size);
  max_mac_count = get_int_or(json, "radio-mac-count", default_pool_size);
  set_mac(base_mac);
  primary_channel = json.get_int("primary-channel");
  normalize_primary_channel();
  set_available_channels(numbers_of(json.get("available-channels")), pools);
  vaps.from_json(json.get("vaps"), *this, true);
  RRM_LOG(LOG_DUMP, "%s", dashes);
  RRM_LOG(LOG_DUMP, "wlan_id = %d, mac = %s , channel = %d, power = %d", id, mac.to_string().c_str(), channel, power);
  vaps.dump();
  RRM_LOG(LOG_DUMP, "%s", dashes);
}

void Radio::update_band_from_json(const JsonReader& json, const char* label) {
  const bool given = json.has("band");
  const std::int32_t value = json.get_int("band");
  if (given && (value == 2 || value == 5 || value == 6)) {
    band = value;
    return;
  }
  if (given || band == 0) band = band_of_channel(channel);
  if (band != 0) {
    RRM_LOG(LOG_TRACE, "%s without band: inferred/reused band=%d mac=%s id=%d channel=%d", label, band,
            mac.to_string().c_str(), id, channel);
  } else {
    RRM_LOG(LOG_WARNING, "%s without band and band cannot be inferred: mac=%s id=%d channel=%d", label,
            mac.to_string().c_str(), id, channel);
  }
}

// Once the power belongs to the plan, what the AP reports does not matter.
void Radio::read_power(const JsonReader& json) {
  const bool manageable = may_be_managed(config->use_tpc, locked_tpc);
  if (!manageable || !tpc_managed) power = json.get_int("power");
  if (manageable) tpc_managed = true;
  if (!status) tpc_managed = dca_managed = false;
}

// The four keys go together: one of them present makes the absent ones not given.
void Radio::read_eirp(const JsonReader& json) {
  constexpr std::int32_t not_given = -1;
  const bool any =
      json.has("eirp-min") || json.has("eirp-max") || json.has("eirp") || json.has("antenna-configuration");
  if (!any) return;
  eirp = get_int_or(json, "eirp", not_given);
  eirp_min = get_int_or(json, "eirp-min", not_given);
  eirp_max = get_int_or(json, "eirp-max", not_given);
  const JsonReader antenna = json.get_object("antenna-configuration");
  has_antenna = !antenna.empty();
  antenna_gain = antenna.get_int("antenna-gain");
  cable_loss = antenna.get_int("cable-loss");
}

void Radio::read_mac_pool(const JsonReader& json, bool first_message) {
  const std::int32_t offset = get_int_or(json, "mac-offset", first_message ? id * default_pool_size : mac_offset);
  const std::int32_t count = get_int_or(json, "radio-mac-count", first_message ? default_pool_size : max_mac_count);
  if (!first_message && offset == mac_offset && count == max_mac_count) return;
  mac_offset = offset;
  max_mac_count = count;
  set_mac(base_mac);
}

void Radio::read_vaps(const JsonReader& json) {
  const JsonReader array = json.get("vaps");
  if (array.empty()) vaps.clear();
  vaps.from_json(array, *this, false);
  RRM_LOG(LOG_DUMP, "%s", dashes);
  RRM_LOG(LOG_DUMP, "wlan_id = %d, mac = %s , channel = %d, band = %d, power = %d", id, mac.to_string().c_str(),
          channel, band, power);
  vaps.dump();
  RRM_LOG(LOG_DUMP, "%s", dashes);
}

// The domain's pools only ever grow here.
void Radio::set_available_channels(std::vector<std::int32_t> channels, ChannelPools& pools) {
  available_channels = ChannelSet(std::move(channels));
  for (const std::int32_t permitted : available_channels) add_to_pool(pools, permitted);
  add_current_channel(pools);
}

}  // namespace rrm
