#include "model/AssocMap.h"

#include <utility>

#include "core/clock.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"
#include "model/keys.h"

namespace rrm {

const AssocClient* AssocMap::find_client(const MacAddr& mac) const {
  const auto place = clients_.find(mac);
  return place == clients_.end() ? nullptr : &place->second;
}

const ExpectedClient* AssocMap::find_expected(const MacAddr& mac) const {
  const auto place = expected_.find(mac);
  return place == expected_.end() ? nullptr : &place->second;
}

std::int32_t AssocMap::load() const {
  return static_cast<std::int32_t>(clients_.size() + expected_.size());
}

void AssocMap::add_client(const MacAddr& mac, std::int32_t rssi, const char* ssid, bool no_balance, bool need_ack) {
  if (ssid == nullptr || *ssid == '\0') return;
  clients_[mac] = {rssi, monotonic_seconds(), ssid, no_balance, need_ack};
}

bool AssocMap::set_rssi(const MacAddr& mac, std::int32_t rssi) {
  const auto place = clients_.find(mac);
  if (place == clients_.end() || rssi >= 0) return false;
  place->second.rssi = rssi;
  return true;
}

void AssocMap::remove_client(const MacAddr& mac) {
  clients_.erase(mac);
}

bool AssocMap::take_ack(const MacAddr& mac, const std::string& ssid) {
  const auto place = clients_.find(mac);
  if (place == clients_.end() || place->second.ssid != ssid) return false;
  return std::exchange(place->second.need_ack, false);
}

void AssocMap::add_expected(const MacAddr& mac, const ExpectedClient& expected) {
  if (!clients_.contains(mac)) expected_[mac] = expected;
}

void AssocMap::remove_expected(const MacAddr& mac) {
  expected_.erase(mac);
}

void AssocMap::tick_expected() {
  std::erase_if(expected_, [](auto& item) { return item.second.ttl <= 1; });
  for (auto& [mac, expected] : expected_) --expected.ttl;
}

void AssocMap::clear() {
  clients_.clear();
  expected_.clear();
}

void AssocMap::load_from_json(const JsonReader& array) {
  if (array.empty()) return;
  clients_.clear();
  for_each_element(array, [&](const JsonReader& element) {
    AssocClient client;
    client.rssi = element.get_int(field::level.message);
    client.ssid = element.get_string("ssid");
    const bool named = *element.get_string("mac") != '\0';
    if (named && !client.ssid.empty()) clients_.try_emplace(get_mac(element, "mac"), std::move(client));
  });
}

void AssocMap::dump_json(JsonWriter& array) const {
  for (const auto& [mac, client] : clients_) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    object.add_string("mac", mac.to_string());
    object.add_int(field::level.backup, client.rssi);
    object.add_string("ssid", client.ssid);
    object.add_int("no-balance", client.no_balance);
  }
}

void AssocMap::dump() const {
  RRM_LOG(LOG_TRACE, "Assocc clients:  %zu - %zu", clients_.size(), expected_.size());
  std::size_t number = 0;
  for (const auto& [mac, client] : clients_) {
    RRM_LOG(LOG_TRACE, "Client (%zu/%zu) %s - %s rssi %d no_balance %d", ++number, clients_.size(),
            mac.to_string().c_str(), client.ssid.c_str(), client.rssi, client.no_balance);
  }
}

}  // namespace rrm
