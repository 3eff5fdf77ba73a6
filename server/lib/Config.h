// The configuration of the server: settings of the server itself, a `common` set of domain settings, named patterns of
// domain settings, and the domains, each bound to a pattern (or to "common") and a time zone.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/mutex.h"

namespace rrm {

class JsonReader;
class JsonWriter;

// One set of domain settings, a plain value. A default one carries the defaults of the settings table (ConfigTable.h),
// where the ranges stand too. Levels are dBm, times seconds, unless a comment says otherwise.
struct DomainConfig {
  DomainConfig();
  bool operator==(const DomainConfig&) const = default;

  bool use_dunva_rrm_scan;     // access points scan by the fast mode
  bool use_dca;                // channel allocation
  bool use_tpc;                // transmit power control
  bool use_hd_mode;            // high density: only overlapping neighbours count for power
  std::int32_t dca_threshold;  // per cent
  std::int32_t ap_rssi_threshold_2g;
  std::int32_t ap_rssi_threshold_5g;
  std::int32_t ap_rssi_threshold_6g;
  std::int32_t hysteresis_2g;  // dB
  std::int32_t hysteresis_5g;
  std::int32_t hysteresis_6g;
  std::int32_t report_format_reserved = 0;  // no key; a stored report configuration carries it
  std::string optimization_time;            // "H:MM"
  std::int32_t optimization_time_seconds;   // the same in seconds
  bool use_optimization_time;
  bool use_optimization_event;
  std::int32_t away_timeout;
  std::int32_t blacklist_thr_low;
  std::int32_t blacklist_thr_high;
  std::int32_t blacklist_timeout;
  std::int32_t load_balance_sta_low;   // stations
  std::int32_t load_balance_sta_high;  // stations
  std::int32_t roam_attempt_timeout;
  std::int32_t sta_load_balance_period;
  std::int32_t load_balance_roam_count_min;
  std::int32_t load_balance_roam_count_max;
  bool use_all_ap_balance;
  bool use_balance;
  std::int32_t client_rssi_renew;
  std::int32_t client_max_age;
  std::int32_t client_try_no_balance;
  bool no_balance_enterprise;
  bool use_rrm_report;
  std::int32_t report_days_to_live;  // days
  bool use_80211k;
  bool use_80211r;
  bool use_80211r_2g_cross_band;
  bool use_80211v;
  std::int32_t fbt_reassoc_deadline;  // time units of 802.11r (1024 microseconds)
  bool fbt_over_ds;

  // Fixed: no key, written nowhere, changed by no command.
  std::int32_t dunva_scan_count = 1;
  std::int32_t dunva_scan_time = 6;
  std::int32_t default_power_max = 16;  // dBm
  std::int32_t default_power_min = 10;  // dBm
  std::int32_t force_delay = 20;
  std::int32_t mode_response_wait = 15;
  std::int32_t scan_step_time = 5;
  std::int32_t tick = 10;  // period of a domain's timer
};

// What a domain is bound to.
struct DomainInfo {
  std::string pattern;                // a pattern's name, or "common"
  std::int32_t time_zone_offset = 0;  // seconds east of UTC
  std::string time_zone;              // "H:MM", empty if none was given
  bool operator==(const DomainInfo&) const = default;
};

// The settings of the server itself, a plain value with the table's defaults.
struct GlobalSettings {
  GlobalSettings();
  bool operator==(const GlobalSettings&) const = default;

  bool enabled;  // the server runs at all
  std::int32_t api_port;
  std::int32_t cli_api_port;
  std::int32_t listen_port;               // WebSocket port of the access points
  std::string report_delete_at_time_utc;  // "H:MM" of the daily report cleanup
  std::string reports_path;
  std::string www_path;
  bool use_https;
  bool vrrp_enabled;
  std::int32_t vrrp_timeout;
  std::string vrrp_backup_path;
  std::string vrrp_state_file;
  bool use_wildcard_80211r;
};

// The keys of a section, in the order of the configuration file, added to an object.
void write_settings(const DomainConfig& settings, JsonWriter& object);
void write_settings(const GlobalSettings& settings, JsonWriter& object);

// The whole configuration. Built by the process, which outlives the server with it. One thread at a time edits; any
// thread may read meanwhile. An edit prepares a new state aside and publishes it in one step, so a reader sees all of
// it or nothing: every look-up answers with a copy, every walk runs over one state, and the lock is never held while a
// callback runs or a line is logged. Nothing throws but the two look-ups that say so.
// Rejected values go into `invalid_parameters`, an array writer: one object of key and value each.
class GlobalConfig {
 public:
  static constexpr const char* common_name = "common";

  // With a text, that is loaded. Otherwise, with a path, that file, if it can be opened. Whatever was loaded is saved
  // again, so that the file is normalised at every start. An empty path means no file.
  explicit GlobalConfig(std::string path, const std::optional<std::string>& text = std::nullopt);
  GlobalConfig(const GlobalConfig&) = delete;
  GlobalConfig& operator=(const GlobalConfig&) = delete;

  // Look-ups, from any thread.
  const std::string& path() const { return path_; }
  const std::string& hostname() const { return hostname_; }
  bool enabled() const;
  GlobalSettings global() const;
  DomainConfig common() const;
  // "common" or a pattern's settings; empty for an unknown name.
  std::optional<DomainConfig> pattern(const std::string& name) const;
  std::optional<DomainInfo> domain_info(const std::string& domain) const;
  bool is_domain_exist(const std::string& domain) const;
  // Throws std::out_of_range: "Domain not found", "Pattern not found" or "Domain config not found".
  DomainConfig domain_config(const std::string& domain) const;
  // Throws std::out_of_range: "Domain (time zone) not found".
  std::int32_t time_zone_offset(const std::string& domain) const;

  using SettingsCallback = std::function<void(const std::string& name, const DomainConfig& settings)>;
  using InfoCallback = std::function<void(const std::string& domain, const DomainInfo& info)>;
  void for_each_pattern(const SettingsCallback& callback) const;  // "common" first
  void for_each_domain(const InfoCallback& callback) const;
  void for_each_domain_config(const SettingsCallback& callback) const;

  // What would turn this configuration into `other`: the callbacks run in the order of the arguments; an empty one is
  // passed over.
  using NameCallback = std::function<void(const std::string& name)>;
  void compare(const GlobalConfig& other, const std::function<void()>& on_global,
               const NameCallback& on_pattern_changed, const NameCallback& on_pattern_added,
               const NameCallback& on_pattern_removed, const NameCallback& on_domain_changed,
               const NameCallback& on_domain_added, const NameCallback& on_domain_removed) const;
  // Equal global settings, common settings, patterns and domain bindings.
  bool operator==(const GlobalConfig& other) const;

  // Whole documents. `load` applies what is valid and passes over the rest; `set` loads only what validates as a whole.
  // The results say whether anything changed.
  static bool validate(const JsonReader& document, JsonWriter& invalid_parameters);
  bool load(const JsonReader& document);
  bool set(const JsonReader& document, JsonWriter& invalid_parameters, bool& failed);
  bool reload();
  // Writes the file; nothing without a path, and a file that cannot be written is passed over.
  void save() const;

  // One section: validated first, applied only if every key passed. `failed` is set either way; the result says
  // whether anything changed.
  bool set_global(const JsonReader& section, JsonWriter& invalid_parameters, bool& failed);
  static bool set_domain_settings(DomainConfig& settings, const JsonReader& section, JsonWriter& invalid_parameters,
                                  bool& failed);

  // Reads `time_zone`. False, with `failed` set, if it is out of range; without the key nothing changes and it passes.
  static bool get_time_zone(const JsonReader& section, std::string& text, std::int32_t& seconds, bool& failed,
                            bool& changed, JsonWriter& invalid_parameters);

  // Edits of domains and patterns. The result is false if the operation was refused; `changed` and `failed` are only
  // ever set to true, save that the pattern operations set `failed` either way once they validate.
  // A refused domain_add leaves {"pattern": name} in `invalid_parameters`.
  bool domain_add(const std::string& domain, const std::string& pattern, const std::string& time_zone,
                  std::int32_t time_zone_offset, JsonWriter& invalid_parameters, bool& changed);
  bool domain_change(const std::string& domain, const std::string& pattern, const std::string& time_zone,
                     std::int32_t time_zone_offset, bool& changed);
  bool domain_remove(const std::string& domain, bool& changed);
  bool pattern_add(const std::string& name, const JsonReader& settings, JsonWriter& invalid_parameters, bool& failed,
                   bool& changed);
  bool pattern_change(const std::string& name, const JsonReader& settings, JsonWriter& invalid_parameters, bool& failed,
                      bool& changed);
  // `domains` are the domains bound to the pattern; they go with it.
  bool pattern_remove(const std::string& name, const std::vector<std::string>& domains, bool& changed);

 private:
  // One complete configuration. Immutable once published.
  struct State {
    GlobalSettings global;
    DomainConfig common;
    // Ordered, so that files, lists and notifications come out alike on every run and machine.
    std::map<std::string, DomainConfig> domain_configs;
    std::map<std::string, DomainConfig> patterns;
    std::map<std::string, DomainInfo> domain_infos;

    // The settings of "common" or of a pattern; null for an unknown name.
    const DomainConfig* settings_of(const std::string& pattern) const;
    void bind(const std::string& domain, DomainInfo info);
    bool load(const JsonReader& document);
    bool load_patterns(const JsonReader& array);
    bool load_domains(const JsonReader& array);
    void write(JsonWriter& document) const;
  };

  std::shared_ptr<const State> state() const RRM_EXCLUDES(mutex_);
  void publish(State state) RRM_EXCLUDES(mutex_);

  const std::string path_;
  const std::string hostname_;

  mutable Mutex mutex_;  // a leaf: held to copy or replace the pointer, for nothing else
  std::shared_ptr<const State> state_ RRM_GUARDED_BY(mutex_);
};

}  // namespace rrm
