// How a radio writes itself: to its AP, to the backup, and its share of other messages.
#include "Radio.h"
#include "json/JsonWriter.h"
#include "model/keys.h"

namespace rrm {

void Radio::write_radio_config(JsonWriter& array) const {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_int("id", id);
  object.add_int("channel", channel);
  object.add_int("band", band_or_inferred(channel));
  object.add_int("power", power);
  write_eirp(object);
  write_antenna(object);
  object.add_int("bandwidth", bandwidth);
  object.add_string("primary-channel", primary_channel_text());
  object.add_int("dunva-sta-rssi-thr-low", config->blacklist_thr_low);
  object.add_int("dunva-sta-rssi-thr-high", config->blacklist_thr_high);
  object.add_int("dunva-roam-attempt-timeout", config->roam_attempt_timeout);
  object.add_int("dunva-client-rssi-renew", config->client_rssi_renew);
  object.add_int("dunva-client-max-age", config->client_max_age);
  object.add_int("dunva-try-no-balance", config->client_try_no_balance);
  object.add_int("no-balance-enterprise", config->no_balance_enterprise);
}

void Radio::write_blacklist(JsonWriter& array) const {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_int("id", id);
  problist.write_blacklist(object, config->blacklist_timeout);
}

void Radio::write_probe_entry(JsonWriter& array, const MacAddr& client, const std::string& ssid,
                              std::int32_t timeout) const {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_int("id", id);
  JsonWriter list = JsonWriter::array(object, "probe-list");
  JsonWriter entry = JsonWriter::object(list, nullptr);
  entry.add_string("ssid", ssid);
  entry.add_string("mac", client.to_string());
  entry.add_int("timeout", timeout);
}

void Radio::write_disassoc_list(JsonWriter& array) const {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_int("id", id);
  JsonWriter list = JsonWriter::array(object, "diassoc-list");
  for (const auto& [client, ssid] : problist.disassoc()) {
    JsonWriter entry = JsonWriter::object(list, nullptr);
    entry.add_string("mac", client.to_string());
    entry.add_string("ssid", ssid);
    entry.add_int("timeout", config->blacklist_timeout);
  }
}

void Radio::dump_json(JsonWriter& object) const {
  object.add_int("id", id);
  object.add_string("mac", mac.to_string());
  object.add_int("mac-offset", mac_offset);
  object.add_int("radio-mac-count", max_mac_count);
  object.add_int("status", status);
  object.add_int("power-changed", power_changed);
  object.add_int("conflicted", conflicted);
  object.add_int(field::locked_tpc.backup, locked_tpc);
  object.add_int(field::locked_dca.backup, locked_dca);
  object.add_int(field::locked_balancer.backup, locked_balancer);
  object.add_int(field::locked_80211v.backup, locked_80211v);
  object.add_int("channel", channel);
  object.add_int("band", band);
  object.add_int("power", power);
  object.add_int(field::power_max.backup, power_max);
  object.add_int(field::power_min.backup, power_min);
  object.add_int("bandwidth", bandwidth);
  object.add_int("primary-channel", primary_channel);
  write_eirp(object);
  JsonWriter channels = JsonWriter::array(object, "available-channels");
  for (const std::int32_t permitted : available_channels) channels.add_int(nullptr, permitted);
  write_antenna(object);
  JsonWriter vap_array = JsonWriter::array(object, "vaps");
  vaps.dump_json(vap_array);
  JsonWriter clients = JsonWriter::array(object, field::client_list.backup);
  assoc.dump_json(clients);
}

void Radio::write_eirp(JsonWriter& object) const {
  if (eirp_min >= 0) object.add_int("eirp-min", eirp_min);
  if (eirp_max >= 0) object.add_int("eirp-max", eirp_max);
  if (eirp_min >= 0 || eirp_max >= 0 || has_antenna) object.add_int("eirp", eirp);
}

void Radio::write_antenna(JsonWriter& object) const {
  if (!has_antenna) return;
  JsonWriter antenna = JsonWriter::object(object, "antenna-configuration");
  antenna.add_int("antenna-gain", antenna_gain);
  antenna.add_int("cable-loss", cable_loss);
}

}  // namespace rrm
