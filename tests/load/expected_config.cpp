#include "load/expected_config.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace load {
namespace {

using Kind = Key::Kind;

constexpr int day = 86400;
constexpr int last_minute_of_day = 86340;
constexpr int westernmost = -43200;
constexpr int easternmost = 50400;

std::optional<int> number_in(const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// Of "H:MM"; only the hours have a sign.
std::optional<int> seconds_of(const std::string& text) {
  const auto colon = text.find(':');
  if (colon == std::string::npos || text.size() > 6) return std::nullopt;
  const auto hours = number_in(text.substr(0, colon));
  const auto minutes = number_in(text.substr(colon + 1));
  if (!hours || !minutes || *minutes < 0 || *minutes > 59) return std::nullopt;
  return *hours * 3600 + (*hours < 0 ? -*minutes : *minutes) * 60;
}

bool is_in_range(const Key& key, const Json& value, const Json& section) {
  if (key.kind == Kind::flag || key.kind == Kind::text) return true;
  const std::string name = key.name;
  int least = key.least;
  int most = key.most;
  if (name == "load_balance_sta_low") most = section.value("load_balance_sta_high", 20);
  if (name == "load_balance_sta_high") least = section.value("load_balance_sta_low", 5);
  const auto number = key.kind == Kind::time ? seconds_of(value.get<std::string>()) : std::optional(value.get<int>());
  return number && *number >= least && *number <= most;
}

Json standard_section(const std::vector<Key>& keys) {
  Json section = Json::object();
  for (const Key& key : keys) section[key.name] = key.standard;
  return section;
}

Json named(const char* key, const std::string& name, const Json& section) {
  Json whole{{key, name}};
  whole.update(section);
  return whole;
}

}  // namespace

const std::vector<Key>& global_keys() {
  static const std::vector<Key> keys{
      {"enabled", Kind::flag, 1},
      {"api_port", Kind::number, 8089, 0, 65535},
      {"cli_api_port", Kind::number, 8082, 0, 65535},
      {"listen_port", Kind::number, 8099, 0, 65535},
      {"use_https", Kind::flag, 0},
      {"report_delete_at_time_utc", Kind::time, "21:00", 0, last_minute_of_day},
      {"reports_path", Kind::text, "/var/lib/dunva-morvane/reports"},
      {"www_path", Kind::text, "/opt/dunva-morvane/www"},
      {"vrrp_enabled", Kind::flag, 0},
      {"vrrp_timeout", Kind::number, 15, 1, 60},
      {"vrrp_backup_path", Kind::text, "/tmp/dunva-morvane/backup"},
      {"vrrp_state_file", Kind::text, "/tmp/keep.mode"},
      {"use_wildcard_80211r", Kind::flag, 0},
  };
  return keys;
}

const std::vector<Key>& domain_keys() {
  static const std::vector<Key> keys{
      {"use_dunva_rrm_scan", Kind::flag, 1},
      {"use_dca", Kind::flag, 1},
      {"use_tpc", Kind::flag, 1},
      {"use_hd_mode", Kind::flag, 1},
      {"dca_threshold", Kind::number, 25, 0, 99},
      {"ap_rssi_threshold_2g", Kind::number, -70, -100, -1},
      {"ap_rssi_threshold_5g", Kind::number, -70, -100, -1},
      {"ap_rssi_threshold_6g", Kind::number, -70, -100, -1},
      {"hysteresis_2g", Kind::number, 2, 1, 10},
      {"hysteresis_5g", Kind::number, 2, 1, 10},
      {"hysteresis_6g", Kind::number, 2, 1, 10},
      {"optimization_time", Kind::time, "00:00", 0, day},
      {"use_optimization_time", Kind::flag, 0},
      {"use_optimization_event", Kind::flag, 1},
      {"away_timeout", Kind::number, 300, 10, 3600},
      {"blacklist_thr_low", Kind::number, -75, -100, -1},
      {"blacklist_thr_high", Kind::number, -65, -100, -1},
      {"blacklist_timeout", Kind::number, 30, 5, 3600},
      {"load_balance_sta_low", Kind::number, 5, 1, 100},
      {"load_balance_sta_high", Kind::number, 20, 1, 100},
      {"roam_attempt_timeout", Kind::number, 600, 0, 86400},
      {"sta_load_balance_period", Kind::number, 60, 0, 86400},
      {"load_balance_roam_count_min", Kind::number, 2, 0, 100},
      {"load_balance_roam_count_max", Kind::number, 4, 0, 100},
      {"use_all_ap_balance", Kind::flag, 0},
      {"use_balance", Kind::flag, 1},
      {"client_rssi_renew", Kind::number, 15, 1, 300},
      {"client_max_age", Kind::number, 20, 0, 300},
      {"client_try_no_balance", Kind::number, 2, 1, 10},
      {"no_balance_enterprise", Kind::flag, 0},
      {"use_rrm_report", Kind::flag, 1},
      {"report_days_to_live", Kind::number, 93, 1, 37200},
      {"use_80211k", Kind::flag, 1},
      {"use_80211r", Kind::flag, 1},
      {"use_80211r_2g_cross_band", Kind::flag, 1},
      {"use_80211v", Kind::flag, 0},
      {"fbt_reassoc_deadline", Kind::number, 1000, 1000, 268431360},
      {"fbt_over_ds", Kind::flag, 0},
  };
  return keys;
}

ExpectedConfig::ExpectedConfig() : global(standard_section(global_keys())), common(standard_section(domain_keys())) {}

Json* ExpectedConfig::settings_of(const std::string& pattern) {
  if (pattern == "common") return &common;
  const auto found = patterns.find(pattern);
  return found == patterns.end() ? nullptr : &found->second;
}

bool ExpectedConfig::is_bound(const std::string& pattern) const {
  return std::any_of(domains.begin(), domains.end(),
                     [&](const auto& domain) { return domain.second.pattern == pattern; });
}

void ExpectedConfig::remove_pattern(const std::string& pattern) {
  patterns.erase(pattern);
  std::erase_if(domains, [&](const auto& domain) { return domain.second.pattern == pattern; });
}

Json ExpectedConfig::document() const {
  Json document{{"global", global}, {"common", common}, {"patterns", Json::array()}, {"domains", Json::array()}};
  for (const auto& [name, section] : patterns) document["patterns"].push_back(named("pattern", name, section));
  for (const auto& [name, binding] : domains) {
    Json domain{{"domain", name}, {"pattern", binding.pattern}};
    if (!binding.time_zone.empty()) domain["time_zone"] = binding.time_zone;
    document["domains"].push_back(std::move(domain));
  }
  return document;
}

Json offenders(const std::vector<Key>& keys, const Json& section) {
  Json list = Json::array();
  for (const Key& key : keys) {
    const bool wrong = section.contains(key.name) && !is_in_range(key, section[key.name], section);
    if (wrong) list.push_back({{key.name, section[key.name]}});
  }
  return list;
}

bool take_over(Json& stored, const Json& section) {
  const Json before = stored;
  for (const auto& [key, value] : section.items()) stored.at(key) = value;
  return stored != before;
}

bool is_time_zone(const std::string& text) {
  const auto seconds = seconds_of(text);
  return seconds && *seconds >= westernmost && *seconds <= easternmost;
}

}  // namespace load
