// The words of the access points' protocol as the server's own workers read and write them: commands and keys. The
// names of the services stand in core/QueueMessage.h, since every queue knows them. What stands inside a radio, a VAP
// or a scan entry is read and written by the model, beside the fields that it fills.
#pragma once

namespace rrm::protocol {

// The newest version that the server speaks.
inline constexpr const char* version = "2.4";

// What the server sends. The incoming commands stand in IncomingMessage.cpp, beside the values that they become.
namespace command {
inline constexpr const char* subscribe_response = "subscribe-response";
inline constexpr const char* rrm_request_mode = "rrm-request-mode";
inline constexpr const char* rrm_update = "rrm-update";
inline constexpr const char* rrm_info = "rrm-info";
}  // namespace command

namespace key {
inline constexpr const char* service = "service";
inline constexpr const char* version = "version";
inline constexpr const char* cmd = "cmd";
inline constexpr const char* ap_mac = "ap-mac";
inline constexpr const char* domain = "domain";

// subscribe-request
inline constexpr const char* factory = "factory";
inline constexpr const char* board = "board";
inline constexpr const char* hw = "hw";
inline constexpr const char* serial = "serial";
inline constexpr const char* mac = "mac";
inline constexpr const char* ap_mac_count = "ap-mac-count";
inline constexpr const char* use_wildcard_80211r = "use-wildcard-80211r";
inline constexpr const char* radios = "radios";

// rrm-response
inline constexpr const char* rf_environment = "rf-environment";

// subscribe-response
inline constexpr const char* status = "status";
inline constexpr const char* code = "code";
inline constexpr const char* config = "config";

// subscribe-response inside `config`, and rrm-info
inline constexpr const char* use_tpc = "use-tpc";
inline constexpr const char* use_dca = "use-dca";
inline constexpr const char* use_load_balance = "use-load-balance";
inline constexpr const char* use_80211r = "use-80211r";
inline constexpr const char* use_80211v = "use-80211v";

// rrm-update
inline constexpr const char* rrm_scan_delay = "rrm-scan-delay";
inline constexpr const char* rrm_scan_channels = "rrm-scan-channels";
inline constexpr const char* rrm_scan_channels_list = "rrm-scan-channels-list";
inline constexpr const char* dunva_rrm_scanning = "dunva-rrm-scanning";
}  // namespace key

}  // namespace rrm::protocol
