// What the server says to an access point. Each function builds one whole message, the envelope first and the keys in
// the order in which the protocol lists them; the caller decides whether it leaves at once or at the end of the
// worker's pass.
#pragma once

#include <cstdint>
#include <string>

#include "json/JsonWriter.h"
#include "model/bands.h"

namespace rrm {

class ApEntry;
class MacAddr;
struct DomainConfig;

namespace protocol {

// Why a subscribe fails.
enum class SubscribeFailure : std::int32_t {
  invalid_mac_parameters = 400,  // of a new AP
  server_disabled = 404,
  not_served = 503,  // a bad version, or no whole factory record
};

JsonWriter subscribe_success(const std::string& domain, const ApEntry& ap, const DomainConfig& config);
JsonWriter subscribe_failure(SubscribeFailure failure, const MacAddr& mac);

// Asks for the radios' present mode.
JsonWriter request_mode(const std::string& domain, const MacAddr& mac);

// Asks for a scan of `channels`, to begin after `scan_delay` seconds.
JsonWriter scan_order(const std::string& domain, const MacAddr& mac, std::int32_t scan_delay,
                      const ChannelPools& channels, bool use_dunva_rrm_scan);

// Tells the AP what holds for it now.
JsonWriter rrm_info(const ApEntry& ap, const DomainConfig& config, bool with_radios);

}  // namespace protocol
}  // namespace rrm
