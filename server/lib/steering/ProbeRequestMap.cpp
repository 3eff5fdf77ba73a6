#include "steering/ProbeRequestMap.h"

#include "core/log.h"

namespace rrm {

void ProbeRequestMap::start(const MacAddr& client, const MacAddr& source, std::int32_t counter,
                            const std::string& ssid) {
  if (ssid.empty()) return;
  ProbeRequest request;
  request.ssid = ssid;
  request.source = source;
  request.counter = counter;
  requests_.insert_or_assign(client, std::move(request));
}

const ProbeRequest* ProbeRequestMap::find(const MacAddr& client) const {
  const auto place = requests_.find(client);
  return place == requests_.end() ? nullptr : &place->second;
}

void ProbeRequestMap::erase(const MacAddr& client) {
  requests_.erase(client);
}

void ProbeRequestMap::add_waiting(const MacAddr& client, const MacAddr& radio_mac) {
  const auto place = requests_.find(client);
  if (place != requests_.end()) place->second.waiting.insert(radio_mac);
}

void ProbeRequestMap::put_response(const MacAddr& client, const MacAddr& radio_mac, std::int32_t rssi,
                                   const std::string& ssid) {
  if (ProbeRequest* request = find_for(client, ssid)) request->responses.insert_or_assign(radio_mac, rssi);
}

void ProbeRequestMap::take_waiting(const MacAddr& client, const MacAddr& radio_mac, const std::string& ssid) {
  if (ProbeRequest* request = find_for(client, ssid)) request->waiting.erase(radio_mac);
}

ProbeRequestMap::Ended ProbeRequestMap::tick() {
  Ended ended;
  for (auto place = requests_.begin(); place != requests_.end();) {
    ProbeRequest& request = place->second;
    if (request.counter > 0) --request.counter;
    if (request.counter <= 0 || request.answered()) {
      ended.emplace_back(place->first, std::move(request));
      place = requests_.erase(place);
    } else {
      ++place;
    }
  }
  return ended;
}

ProbeRequest* ProbeRequestMap::find_for(const MacAddr& client, const std::string& ssid) {
  const auto place = requests_.find(client);
  return place != requests_.end() && place->second.ssid == ssid ? &place->second : nullptr;
}

void log_problist_drop(const std::string& client_text) {
  RRM_LOG(LOG_TRACE, "RrmProblist: drop - %s", client_text.c_str());
}

}  // namespace rrm
