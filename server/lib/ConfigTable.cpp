#include "ConfigTable.h"

#include <array>

namespace rrm {
namespace {

// The validated rows are numbered from 1 without a gap or a repetition.
template <class Rows>
constexpr bool checks_are_numbered(const Rows& rows) {
  int validated = 0;
  for (const auto& row : rows) validated += row.check != 0 ? 1 : 0;
  for (int place = 1; place <= validated; ++place) {
    int seen = 0;
    for (const auto& row : rows) seen += row.check == place ? 1 : 0;
    if (seen != 1) return false;
  }
  return true;
}

// clang-format off
namespace domain_section {

using S = DomainConfig;
using Row = Setting<S>;
using Flag = FlagSetting<S>;
using Number = NumberSetting<S>;
using Time = TimeSetting<S>;

constexpr std::array rows = {
  //  key                            unit        check and kind member                         default, min, max
  Row{"use_dunva_rrm_scan",          "",         1,  Flag{   &S::use_dunva_rrm_scan,            true}},
  Row{"use_dca",                     "",         2,  Flag{   &S::use_dca,                       true}},
  Row{"use_tpc",                     "",         3,  Flag{   &S::use_tpc,                       true}},
  Row{"use_hd_mode",                 "",         4,  Flag{   &S::use_hd_mode,                   true}},
  Row{"dca_threshold",               "%",        17, Number{ &S::dca_threshold,                 25,   0,    99}},
  Row{"ap_rssi_threshold_2g",        "dBm",      18, Number{ &S::ap_rssi_threshold_2g,          -70,  -100, -1}},
  Row{"ap_rssi_threshold_5g",        "dBm",      19, Number{ &S::ap_rssi_threshold_5g,          -70,  -100, -1}},
  Row{"ap_rssi_threshold_6g",        "dBm",      20, Number{ &S::ap_rssi_threshold_6g,          -70,  -100, -1}},
  Row{"hysteresis_2g",               "dB",       21, Number{ &S::hysteresis_2g,                 2,    1,    10}},
  Row{"hysteresis_5g",               "dB",       22, Number{ &S::hysteresis_5g,                 2,    1,    10}},
  Row{"hysteresis_6g",               "dB",       23, Number{ &S::hysteresis_6g,                 2,    1,    10}},
  Row{"optimization_time",           "H:MM",     24, Time{   &S::optimization_time,             &S::optimization_time_seconds, "00:00",
                                                                                              0,    86400}},
  Row{"use_optimization_time",       "",         10, Flag{   &S::use_optimization_time,         false}},
  Row{"use_optimization_event",      "",         11, Flag{   &S::use_optimization_event,        true}},
  Row{"away_timeout",                "s",        25, Number{ &S::away_timeout,                  300,  10,   3600}},
  Row{"blacklist_thr_low",           "dBm",      26, Number{ &S::blacklist_thr_low,             -75,  -100, -1}},
  Row{"blacklist_thr_high",          "dBm",      27, Number{ &S::blacklist_thr_high,            -65,  -100, -1}},
  Row{"blacklist_timeout",           "s",        28, Number{ &S::blacklist_timeout,             30,   5,    3600}},
  // The two loads bound each other within one document only: a stored value never counts.
  Row{"load_balance_sta_low",        "stations", 29, Number{ &S::load_balance_sta_low,          5,    1,    100,
                                                              {}, {"load_balance_sta_high", 20}}},
  Row{"load_balance_sta_high",       "stations", 30, Number{ &S::load_balance_sta_high,         20,   1,    100,
                                                              {"load_balance_sta_low", 5}, {}}},
  Row{"roam_attempt_timeout",        "s",        31, Number{ &S::roam_attempt_timeout,          600,  0,    86400}},
  Row{"sta_load_balance_period",     "s",        32, Number{ &S::sta_load_balance_period,       60,   0,    86400}},
  Row{"load_balance_roam_count_min", "",         33, Number{ &S::load_balance_roam_count_min,   2,    0,    100}},
  Row{"load_balance_roam_count_max", "",         34, Number{ &S::load_balance_roam_count_max,   4,    0,    100}},
  Row{"use_all_ap_balance",          "",         5,  Flag{   &S::use_all_ap_balance,            false}},
  Row{"use_balance",                 "",         6,  Flag{   &S::use_balance,                   true}},
  Row{"client_rssi_renew",           "s",        35, Number{ &S::client_rssi_renew,             15,   1,    300}},
  Row{"client_max_age",              "s",        36, Number{ &S::client_max_age,                20,   0,    300}},
  Row{"client_try_no_balance",       "",         37, Number{ &S::client_try_no_balance,         2,    1,    10}},
  Row{"no_balance_enterprise",       "",         7,  Flag{   &S::no_balance_enterprise,         false}},
  Row{"use_rrm_report",              "",         8,  Flag{   &S::use_rrm_report,                true}},
  Row{"report_days_to_live",         "days",     38, Number{ &S::report_days_to_live,           93,   1,    37200}},
  Row{"use_80211k",                  "",         9,  Flag{   &S::use_80211k,                    true}},
  Row{"use_80211r",                  "",         12, Flag{   &S::use_80211r,                    true}},
  Row{"use_80211r_2g_cross_band",    "",         13, Flag{   &S::use_80211r_2g_cross_band,      true}},
  Row{"use_80211v",                  "",         15, Flag{   &S::use_80211v,                    false}},
  // Time units of 1024 microseconds. The upper bound is wider than the 16 bits of the air interface on purpose.
  Row{"fbt_reassoc_deadline",        "TU",       16, Number{ &S::fbt_reassoc_deadline,          1000, 1000, 0xffff000}},
  Row{"fbt_over_ds",                 "",         14, Flag{   &S::fbt_over_ds,                   false}},
};

static_assert(checks_are_numbered(rows));

}  // namespace domain_section

namespace global_section {

using S = GlobalSettings;
using Row = Setting<S>;
using Flag = FlagSetting<S>;
using Number = NumberSetting<S>;
using Time = TimeSetting<S>;
using Text = TextSetting<S>;

constexpr std::int32_t S::*no_seconds = nullptr;

constexpr std::array rows = {
  Row{"enabled",                     "",         1,  Flag{   &S::enabled,                       true}},
  Row{"api_port",                    "",         3,  Number{ &S::api_port,                      8089, 0,    65535}},
  Row{"cli_api_port",                "",         5,  Number{ &S::cli_api_port,                  8082, 0,    65535}},
  Row{"listen_port",                 "",         4,  Number{ &S::listen_port,                   8099, 0,    65535}},
  Row{"use_https",                   "",         2,  Flag{   &S::use_https,                     false}},
  Row{"report_delete_at_time_utc",   "H:MM",     9,  Time{   &S::report_delete_at_time_utc,     no_seconds, "21:00", 0, 86340}},
  Row{"reports_path",                "",         0,  Text{   &S::reports_path,                  "/var/lib/dunva-morvane/reports"}},
  Row{"www_path",                    "",         0,  Text{   &S::www_path,                      "/opt/dunva-morvane/www"}},
  Row{"vrrp_enabled",                "",         6,  Flag{   &S::vrrp_enabled,                  false}},
  Row{"vrrp_timeout",                "s",        7,  Number{ &S::vrrp_timeout,                  15,   1,    60}},
  Row{"vrrp_backup_path",            "",         0,  Text{   &S::vrrp_backup_path,              "/tmp/dunva-morvane/backup"}},
  Row{"vrrp_state_file",             "",         0,  Text{   &S::vrrp_state_file,               "/tmp/keep.mode"}},
  Row{"use_wildcard_80211r",         "",         8,  Flag{   &S::use_wildcard_80211r,           false}},
};

static_assert(checks_are_numbered(rows));

}  // namespace global_section
// clang-format on

}  // namespace

template <>
std::span<const Setting<DomainConfig>> settings_table() {
  return domain_section::rows;
}

template <>
std::span<const Setting<GlobalSettings>> settings_table() {
  return global_section::rows;
}

}  // namespace rrm
