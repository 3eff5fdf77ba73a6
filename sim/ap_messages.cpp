#include "sim/ap_messages.h"

#include <cmath>
#include <limits>
#include <sstream>

namespace sim {
namespace {

constexpr int radio_pool = 16;

std::string joined(const std::vector<int>& numbers) {
  std::string text;
  for (const int number : numbers) {
    text += (text.empty() ? "" : " ") + std::to_string(number);
  }
  return text;
}

Json vap_to_json(const AccessPoint& ap, const Radio& radio, const Vap& vap) {
  return {{"id", vap.id},
          {"ssid", vap.ssid},
          {"mac", vap_mac(ap, radio, vap).text()},
          {"802dot11k", vap.use_80211k ? 1 : 0},
          {"802dot11r", vap.use_80211r ? 1 : 0},
          {"802dot11v", vap.use_80211v ? 1 : 0}};
}

Json clients_to_json(const World& world, std::size_t ap, const Radio& radio, const Stations& stations) {
  Json list = Json::array();
  for (const Station* const station : stations.served_by(ap, radio.id)) {
    const Client& client = *station->client;
    list.push_back({{"rssi", std::lround(world.uplink_dbm(ap, radio, station->position, client.mac))},
                    {"mac", client.mac.text()},
                    {"ssid", client.ssid}});
  }
  return list;
}

Json radio_to_json(const AccessPoint& ap, const Radio& radio) {
  Json json = {{"id", radio.id},
               {"status", radio.enabled ? 1 : 0},
               {"channel", radio.channel},
               {"band", radio.band},
               {"power", radio.power},
               {"power-max", radio.power_max},
               {"power-min", radio.power_min},
               {"antenna-configuration", {{"antenna-gain", radio.antenna_gain}, {"cable-loss", radio.cable_loss}}},
               {"bandwidth", radio.bandwidth},
               {"primary-channel", radio.primary},
               {"available-channels", joined(radio.available_channels)},
               {"mac-offset", radio.id * radio_pool},
               {"radio-mac-count", radio_pool},
               {"locked-for-tpc", radio.locked_for_tpc ? 1 : 0},
               {"locked-for-dca", radio.locked_for_dca ? 1 : 0},
               {"locked-for-balancer", radio.locked_for_balancer ? 1 : 0},
               {"locked-for-80211v", radio.locked_for_80211v ? 1 : 0}};
  Json vaps = Json::array();
  for (const Vap& vap : radio.vaps) {
    vaps.push_back(vap_to_json(ap, radio, vap));
  }
  json["vaps"] = std::move(vaps);
  return json;
}

std::optional<int> int_if_present(const Json& object, const char* key) {
  return object.contains(key) && object[key].is_number_integer() ? std::optional<int>(int_or(object, key, 0))
                                                                 : std::nullopt;
}

}  // namespace

int int_or(const Json& object, const char* key, int fallback) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number_integer() || *found < std::numeric_limits<int>::min() ||
      *found > std::numeric_limits<int>::max()) {
    return fallback;
  }
  return found->get<int>();
}

std::string text_or(const Json& object, const char* key, const std::string& fallback) {
  const auto found = object.find(key);
  return found == object.end() || !found->is_string() ? fallback : found->get<std::string>();
}

std::vector<Json> objects_of(const Json& object, const char* key) {
  std::vector<Json> result;
  const auto found = object.find(key);
  if (found != object.end() && found->is_array()) {
    std::copy_if(found->begin(), found->end(), std::back_inserter(result),
                 [](const Json& element) { return element.is_object(); });
  }
  return result;
}

Json envelope(const std::string& command, const AccessPoint& ap, const std::string& domain) {
  return {{"service", "rrm"}, {"version", "2.4"}, {"cmd", command}, {"ap-mac", ap.mac.text()}, {"domain", domain}};
}

Json radios_to_json(const World& world, std::size_t ap, const Stations* stations) {
  Json radios = Json::array();
  for (const Radio& radio : world.radios(ap)) {
    Json json = radio_to_json(world.site().access_points[ap], radio);
    if (stations != nullptr) {
      json["assoclist"] = clients_to_json(world, ap, radio, *stations);
    }
    radios.push_back(std::move(json));
  }
  return radios;
}

Json factory_to_json(const AccessPoint& ap) {
  return {{"board", ap.board}, {"hw", "1.0"}, {"serial", ap.serial}, {"mac", ap.mac.text()}};
}

Json heard_to_json(const HeardBss& heard) {
  return {{"bssid", heard.bssid.text()},     {"channel", heard.channel},     {"band", heard.band},
          {"tx-power", heard.tx_power},      {"bandwidth", heard.bandwidth}, {"rssi", heard.rssi},
          {"primary-channel", heard.primary}};
}

RadioOrder order_from_json(const Json& radio) {
  RadioOrder order;
  order.id = int_or(radio, "id", -1);
  order.channel = int_if_present(radio, "channel");
  order.bandwidth = int_if_present(radio, "bandwidth");
  order.power = int_if_present(radio, "power");
  if (radio.contains("primary-channel") && radio["primary-channel"].is_string()) {
    order.primary = radio["primary-channel"].get<std::string>();
  }
  return order;
}

ScanChannels scan_channels_from_json(const Json& message) {
  ScanChannels channels;
  for (const Json& lists : objects_of(message, "rrm-scan-channels-list")) {
    for (const int band : {2, 5, 6}) {
      std::istringstream text(text_or(lists, std::to_string(band).c_str(), ""));
      for (int channel = 0; text >> channel;) {
        channels[band].push_back(channel);
      }
    }
  }
  return channels;
}

}  // namespace sim
