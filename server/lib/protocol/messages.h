// What the server says to an access point. Each function builds one whole message, the envelope first and the keys in
// the order in which the protocol lists them; the caller decides whether it leaves at once or at the end of the
// worker's pass.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "json/JsonWriter.h"
#include "model/bands.h"

namespace rrm {

class ApEntry;
class ApMap;
class MacAddr;
struct DomainConfig;
struct Radio;

namespace protocol {

// Why a subscribe fails.
enum class SubscribeFailure : std::int32_t {
  invalid_mac_parameters = 400,  // of a new AP
  server_disabled = 404,
  not_served = 503,  // a bad version, or no whole factory record
};

// `add_lists` adds the neighbour list, if the AP gets one, to the object that it is handed.
JsonWriter subscribe_success(const std::string& domain, const ApEntry& ap, const DomainConfig& config,
                             const std::function<void(JsonWriter&)>& add_lists);
JsonWriter subscribe_failure(SubscribeFailure failure, const MacAddr& mac);

// Asks for the radios' present mode.
JsonWriter request_mode(const std::string& domain, const MacAddr& mac);

// Asks for a scan of `channels`, to begin after `scan_delay` seconds.
JsonWriter scan_order(const std::string& domain, const MacAddr& mac, std::int32_t scan_delay,
                      const ChannelPools& channels, bool use_dunva_rrm_scan);

// Tells the AP what holds for it now. The neighbour list is the caller's to add.
JsonWriter rrm_info(const ApEntry& ap, const DomainConfig& config, bool with_radios);

// The 802.11r key holders, keys and links of the AP's VAPs. `aps` knows how others hear its radios.
JsonWriter fbt_info(const ApEntry& ap, const ApMap& aps, const DomainConfig& config);

// Asks how these radios of the AP hear a client; they listen for `timeout` seconds.
JsonWriter probe_request(const std::string& domain, const MacAddr& ap, const std::vector<const Radio*>& radios,
                         const MacAddr& client, const std::string& ssid, std::int32_t timeout);

// The client may stay on that radio of the AP.
JsonWriter client_assoc_ack(const std::string& domain, const MacAddr& ap, const MacAddr& client, std::int32_t radio,
                            const std::string& ssid);

// Which clients the AP's radios refuse and which no longer, and which they send away: for each radio what it has
// gathered. Requires: some radio has gathered something.
JsonWriter blacklist(const std::string& domain, const ApEntry& ap);
JsonWriter disassoc_request(const std::string& domain, const ApEntry& ap);

// Asks an overloaded AP to move clients. List and radios are the caller's to add.
JsonWriter sta_overload(const MacAddr& ap);

}  // namespace protocol
}  // namespace rrm
