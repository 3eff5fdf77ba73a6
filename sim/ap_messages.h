// The AP's side of the protocol in JSON: texts that an AP sends, and forgiving reads of what it receives. A key that is
// missing or of the wrong kind reads as the given default, as on the other side of the wire.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim/stations.h"
#include "sim/world.h"

namespace sim {

using Json = nlohmann::ordered_json;

int int_or(const Json& object, const char* key, int fallback);
std::string text_or(const Json& object, const char* key, const std::string& fallback);
// The elements of an array that are objects; none when the key is missing or no array.
std::vector<Json> objects_of(const Json& object, const char* key);

// "service", "version", "cmd", "ap-mac", "domain".
Json envelope(const std::string& command, const AccessPoint& ap, const std::string& domain);

// The radios of an AP as they stand. With stations, each radio also lists its clients ("assoclist").
Json radios_to_json(const World& world, std::size_t ap, const Stations* stations);

Json factory_to_json(const AccessPoint& ap);

// One element of a round of "rf-environment".
Json heard_to_json(const HeardBss& heard);

// An element of "radios" in a configuration of the controller.
RadioOrder order_from_json(const Json& radio);

// What "rrm-update" wants scanned: "rrm-scan-channels-list" by band.
ScanChannels scan_channels_from_json(const Json& message);

}  // namespace sim
