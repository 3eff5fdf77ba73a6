// What an AP says of one client, as the sub-workers that steer clients read it.
#pragma once

#include <cstdint>
#include <string>

#include "model/MacAddr.h"

namespace rrm {

class JsonReader;

namespace protocol {

struct ClientEvent {
  std::string station;  // as sent
  MacAddr client;       // the same; all zero if it is no address
  std::string ssid;
  std::int32_t radio = 0;
  std::int32_t rssi = 0;  // dBm
  bool no_balance = false;
  bool need_ack = false;

  // Says which client of which network it means.
  bool complete() const { return !station.empty() && !ssid.empty(); }
};

ClientEvent read_client_event(const JsonReader& json);

}  // namespace protocol
}  // namespace rrm
