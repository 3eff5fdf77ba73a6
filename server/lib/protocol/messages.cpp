#include "protocol/messages.h"

#include "ApEntry.h"
#include "Config.h"
#include "core/QueueMessage.h"
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

}  // namespace

JsonWriter subscribe_success(const std::string& domain, const ApEntry& ap, const DomainConfig& config) {
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

}  // namespace rrm::protocol
