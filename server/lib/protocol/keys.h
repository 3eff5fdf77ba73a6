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
inline constexpr const char* fbt_info = "fbt-info";
inline constexpr const char* rrm_probe_request = "rrm-probe-request";
inline constexpr const char* rrm_client_assoc_ack = "rrm-client-assoc-ack";
inline constexpr const char* rrm_blacklist = "rrm-blacklist";
inline constexpr const char* rrm_disassoc_request = "rrm-disassoc-request";
inline constexpr const char* rrm_sta_overload = "rrm-sta-overload";
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

// what clients do, and what is done with them
inline constexpr const char* sta_mac = "sta-mac";
inline constexpr const char* ssid = "ssid";
inline constexpr const char* rssi = "rssi";
inline constexpr const char* state = "state";
inline constexpr const char* radio = "radio";
inline constexpr const char* no_balance = "no-balance";
inline constexpr const char* need_ack = "need-ack";
inline constexpr const char* target_mac = "target-mac";
inline constexpr const char* probe_list = "probe-list";
inline constexpr const char* id = "id";
inline constexpr const char* roam_count = "roam-count";

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
inline constexpr const char* neighbour_list = "802dot11k";

// fbt-info
inline constexpr const char* morvane_use_80211r = "morvane-use-80211r";
inline constexpr const char* fbt_over_ds = "fbt-over-ds";
inline constexpr const char* fbt_reassoc_deadline = "fbt-reassoc-deadline";
inline constexpr const char* vaps = "vaps";
inline constexpr const char* vap_id = "vap_id";
inline constexpr const char* radio_id = "radio_id";
inline constexpr const char* fbt_rrb_key = "fbt-rrb-key";
inline constexpr const char* mobility_domain = "mobility-domain";
inline constexpr const char* r0_key_holder_id = "r0-key-holder-id";
inline constexpr const char* r1_key_holder_id = "r1-key-holder-id";
inline constexpr const char* remotes = "remotes";

// rrm-update
inline constexpr const char* rrm_scan_delay = "rrm-scan-delay";
inline constexpr const char* rrm_scan_channels = "rrm-scan-channels";
inline constexpr const char* rrm_scan_channels_list = "rrm-scan-channels-list";
inline constexpr const char* dunva_rrm_scanning = "dunva-rrm-scanning";
}  // namespace key

}  // namespace rrm::protocol
