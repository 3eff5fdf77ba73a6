#include "protocol/messages.h"

#include "ApEntry.h"
#include "Config.h"
#include "core/QueueMessage.h"
#include "model/ApMap.h"
#include "model/NeighbourList.h"
#include "protocol/keys.h"

namespace rrm::protocol {
namespace {

JsonWriter message(const char* cmd) {
  return JsonWriter(service_name::rrm, cmd, nullptr);
}

// The numbers joined by single blanks.
std::string joined(const ChannelSet& channels) {
  std::string text;
  for (const std::int32_t channel : channels) {
    if (!text.empty()) text += ' ';
    text += std::to_string(channel);
  }
  return text;
}

// Band 6 is left out: an AP that reads only this text does not know that band.
std::string plain_scan_channels(const ChannelPools& channels) {
  const std::string band2 = joined(channels[2]);
  const std::string band5 = joined(channels[5]);
  return band2 + (band2.empty() || band5.empty() ? "" : " ") + band5;
}

JsonWriter message_for(const char* cmd, const std::string& domain, const MacAddr& ap) {
  JsonWriter json = message(cmd);
  json.add_string(key::ap_mac, ap.to_string());
  json.add_string(key::domain, domain);
  return json;
}

// `heard` is the radio's address as the others hear it.
void write_fbt_vap(JsonWriter& array, const Radio& radio, const VapEntry& vap, const MacAddr& heard) {
  const MacAddr r1 = MacAddr::parse(vap.fbt_r1_keyholder.c_str());
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_int(key::vap_id, vap.id);
  object.add_int(key::radio_id, radio.id);
  object.add_string(key::fbt_rrb_key, vap.fbt_rrb_key);
  object.add_int(key::mobility_domain, vap.mobility_domain());
  object.add_string(key::r0_key_holder_id, vap.fbt_r0_keyholder);
  object.add_string(key::r1_key_holder_id, as_heard(r1, radio.mac, heard).to_string());
  JsonWriter remotes = JsonWriter::array(object, key::remotes);
  for (const SharedFbtLink& link : vap.fbt_links) link->write(remotes);
}

}  // namespace

JsonWriter subscribe_success(const std::string& domain, const ApEntry& ap, const DomainConfig& config,
                             const std::function<void(JsonWriter&)>& add_lists) {
  JsonWriter json = message(command::subscribe_response);
  json.add_string(key::status, "success");
  json.add_string(key::domain, domain);
  json.add_string(key::ap_mac, ap.mac.to_string());
  JsonWriter settings = JsonWriter::object(json, key::config);
  settings.add_int(key::use_tpc, config.use_tpc);
  settings.add_int(key::use_dca, config.use_dca);
  settings.add_int(key::use_load_balance, config.use_balance);
  settings.add_int(key::use_80211r, config.use_80211r);
  settings.add_int(key::use_80211v, config.use_80211v);
  ap.radios.write_radios(settings);
  add_lists(settings);
  return json;
}

JsonWriter subscribe_failure(SubscribeFailure failure, const MacAddr& mac) {
  JsonWriter json = message(command::subscribe_response);
  json.add_string(key::status, "fail");
  json.add_int(key::code, static_cast<std::int32_t>(failure));
  json.add_string(key::ap_mac, mac.to_string());
  return json;
}

JsonWriter request_mode(const std::string& domain, const MacAddr& mac) {
  JsonWriter json = message(command::rrm_request_mode);
  json.add_string(key::domain, domain);
  json.add_string(key::ap_mac, mac.to_string());
  return json;
}

JsonWriter scan_order(const std::string& domain, const MacAddr& mac, std::int32_t scan_delay,
                      const ChannelPools& channels, bool use_dunva_rrm_scan) {
  JsonWriter json = message(command::rrm_update);
  json.add_string(key::domain, domain);
  json.add_string(key::ap_mac, mac.to_string());
  json.add_int(key::rrm_scan_delay, scan_delay);
  json.add_string(key::rrm_scan_channels, plain_scan_channels(channels));
  JsonWriter list = JsonWriter::array(json, key::rrm_scan_channels_list);
  JsonWriter bands = JsonWriter::object(list, nullptr);
  bands.add_string("2", joined(channels[2]));
  bands.add_string("5", joined(channels[5]));
  bands.add_string("6", joined(channels[6]));
  json.add_int(key::dunva_rrm_scanning, use_dunva_rrm_scan);
  return json;
}

JsonWriter rrm_info(const ApEntry& ap, const DomainConfig& config, bool with_radios) {
  JsonWriter json = message(command::rrm_info);
  json.add_string(key::ap_mac, ap.mac.to_string());
  json.add_int(key::use_tpc, config.use_tpc);
  json.add_int(key::use_dca, config.use_dca);
  json.add_int(key::use_load_balance, config.use_balance);
  json.add_int(key::use_80211v, config.use_80211v);
  if (with_radios) ap.radios.write_radios(json);
  return json;
}

JsonWriter fbt_info(const ApEntry& ap, const ApMap& aps, const DomainConfig& config) {
  JsonWriter json = message(command::fbt_info);
  json.add_string(key::ap_mac, ap.mac.to_string());
  json.add_int(key::morvane_use_80211r, 1);
  json.add_int(key::fbt_over_ds, config.fbt_over_ds);
  json.add_int(key::fbt_reassoc_deadline, config.fbt_reassoc_deadline);
  JsonWriter vaps = JsonWriter::array(json, key::vaps);
  for (const Radio& radio : ap.radios.list) {
    if (!radio.status || !radio.vaps.any_11r()) continue;
    const MacAddr heard = visible_bssid_of_radio(aps, ap, radio.id);
    for (const auto& [ssid, vap] : radio.vaps) {
      if (vap.use_802dot11r) write_fbt_vap(vaps, radio, vap, heard);
    }
  }
  return json;
}

JsonWriter probe_request(const std::string& domain, const MacAddr& ap, const std::vector<const Radio*>& radios,
                         const MacAddr& client, const std::string& ssid, std::int32_t timeout) {
  JsonWriter json = message_for(command::rrm_probe_request, domain, ap);
  JsonWriter array = JsonWriter::array(json, key::radios);
  for (const Radio* radio : radios) radio->write_probe_entry(array, client, ssid, timeout);
  return json;
}

JsonWriter client_assoc_ack(const std::string& domain, const MacAddr& ap, const MacAddr& client, std::int32_t radio,
                            const std::string& ssid) {
  JsonWriter json = message(command::rrm_client_assoc_ack);
  json.add_string(key::domain, domain);
  json.add_string(key::ap_mac, ap.to_string());
  json.add_string(key::sta_mac, client.to_string());
  json.add_int(key::radio, radio);
  json.add_string(key::ssid, ssid);
  return json;
}

JsonWriter blacklist(const std::string& domain, const ApEntry& ap) {
  JsonWriter json = message_for(command::rrm_blacklist, domain, ap.mac);
  JsonWriter array = JsonWriter::array(json, key::radios);
  for (const Radio& radio : ap.radios.list) {
    if (!radio.problist.changes().empty()) radio.write_blacklist(array);
  }
  return json;
}

JsonWriter disassoc_request(const std::string& domain, const ApEntry& ap) {
  JsonWriter json = message_for(command::rrm_disassoc_request, domain, ap.mac);
  JsonWriter array = JsonWriter::array(json, key::radios);
  for (const Radio& radio : ap.radios.list) {
    if (!radio.problist.disassoc().empty()) radio.write_disassoc_list(array);
  }
  return json;
}

JsonWriter sta_overload(const MacAddr& ap) {
  JsonWriter json = message(command::rrm_sta_overload);
  json.add_string(key::ap_mac, ap.to_string());
  return json;
}

}  // namespace rrm::protocol
