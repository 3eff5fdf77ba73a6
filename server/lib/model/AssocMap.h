// The clients of one radio, and those expected to arrive there because a roam was ordered; the radio's load is the
// number of both. Walked in ascending MAC order. Belongs to the domain worker's thread; reads the monotonic clock.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "model/MacAddr.h"

namespace rrm {

class JsonReader;
class JsonWriter;

struct AssocClient {
  std::int32_t rssi = 0;        // dBm, last level
  std::int64_t assoc_time = 0;  // monotonic seconds; 0 for a client learned from a list
  std::string ssid;
  bool no_balance = false;  // must not be balanced
  bool need_ack = false;    // the AP waits for an acknowledgement

  bool operator==(const AssocClient&) const = default;
};

struct ExpectedClient {
  // Moved off a radio for a better one: that radio's address and id. Moved by 802.11v: the address of the AP that sends
  // it, and the id of the radio it is sent to, which counts for the one it leaves too.
  MacAddr source;
  std::int32_t radio = 0;
  std::int32_t ttl = 0;  // seconds left

  bool operator==(const ExpectedClient&) const = default;
};

class AssocMap {
 public:
  using Clients = std::map<MacAddr, AssocClient>;
  using Expected = std::map<MacAddr, ExpectedClient>;

  const Clients& clients() const { return clients_; }
  const Expected& expected() const { return expected_; }
  // Null if the station is not there.
  const AssocClient* find_client(const MacAddr& mac) const;
  const ExpectedClient* find_expected(const MacAddr& mac) const;
  // Clients and expected clients together.
  std::int32_t load() const;

  // Associated from now on; takes the place of an entry of this station. A null or empty SSID is ignored.
  void add_client(const MacAddr& mac, std::int32_t rssi, const char* ssid, bool no_balance, bool need_ack);
  // Only a negative level of a known client is a reading; the result says whether it was stored.
  bool set_rssi(const MacAddr& mac, std::int32_t rssi);
  void remove_client(const MacAddr& mac);
  // The AP waits for an acknowledgement of this client no longer. True if it did, for a client under this SSID.
  bool take_ack(const MacAddr& mac, const std::string& ssid);
  // A client that is associated already is not expected.
  void add_expected(const MacAddr& mac, const ExpectedClient& expected);
  void remove_expected(const MacAddr& mac);
  // One second has passed for the expected clients.
  void tick_expected();
  // Both lists.
  void clear();

  // Replaces the clients, not the expected ones, by an AP's list. A null array changes nothing.
  void load_from_json(const JsonReader& array);
  void dump_json(JsonWriter& array) const;
  void dump() const;

 private:
  Clients clients_;
  Expected expected_;
};

}  // namespace rrm
