// The queries in flight, by client: which radios have yet to say how they hear the client, and what those that answered
// have heard. Walked in ascending MAC order. Belongs to the domain worker's thread; time passes through tick().
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "model/MacAddr.h"

namespace rrm {

struct ProbeRequest {
  std::map<MacAddr, std::int32_t> responses;  // radio MAC to level in dBm
  std::set<MacAddr> waiting;                  // radio MACs that have yet to answer
  std::string ssid;
  MacAddr source;            // the radio that the client is on
  std::int32_t counter = 0;  // seconds left

  bool answered() const { return waiting.empty(); }
};

class ProbeRequestMap {
 public:
  using Ended = std::vector<std::pair<MacAddr, ProbeRequest>>;

  // Begins a query; one of the same client that still runs is dropped. An empty SSID does nothing.
  void start(const MacAddr& client, const MacAddr& source, std::int32_t counter, const std::string& ssid);
  // Null if no query of this client runs.
  const ProbeRequest* find(const MacAddr& client) const;
  void erase(const MacAddr& client);
  std::size_t size() const { return requests_.size(); }
  bool empty() const { return requests_.empty(); }

  // All three do nothing without a query of this client; the last two also if it is for another SSID.
  void add_waiting(const MacAddr& client, const MacAddr& radio_mac);
  void put_response(const MacAddr& client, const MacAddr& radio_mac, std::int32_t rssi, const std::string& ssid);
  void take_waiting(const MacAddr& client, const MacAddr& radio_mac, const std::string& ssid);

  // One second has passed: takes out the queries that are answered or out of time and hands them over, in MAC order.
  Ended tick();

 private:
  ProbeRequest* find_for(const MacAddr& client, const std::string& ssid);

  std::map<MacAddr, ProbeRequest> requests_;
};

// The trace line of a query's end.
void log_problist_drop(const std::string& client_text);

}  // namespace rrm
