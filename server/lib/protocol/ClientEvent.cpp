#include "protocol/ClientEvent.h"

#include "json/JsonReader.h"
#include "model/json_fields.h"
#include "protocol/keys.h"

namespace rrm::protocol {

ClientEvent read_client_event(const JsonReader& json) {
  ClientEvent event;
  event.station = json.get_string(key::sta_mac);
  event.client = MacAddr::parse(event.station.c_str());
  event.ssid = json.get_string(key::ssid);
  event.radio = json.get_int(key::radio);
  event.rssi = json.get_int(key::rssi);
  event.no_balance = get_flag(json, key::no_balance);
  event.need_ack = get_flag(json, key::need_ack);
  return event;
}

}  // namespace rrm::protocol
