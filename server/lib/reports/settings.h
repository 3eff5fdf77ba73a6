// The settings of a domain that a report carries, in the order of its fields. Those of later features are not among
// them: old readers count the fields.
#pragma once

#include <array>
#include <cstdint>
#include <variant>

#include "Config.h"

namespace reports {

using ReportSetting = std::variant<bool rrm::DomainConfig::*, std::int32_t rrm::DomainConfig::*>;

inline constexpr std::array<ReportSetting, 25> report_settings{
    &rrm::DomainConfig::use_dunva_rrm_scan,
    &rrm::DomainConfig::use_dca,
    &rrm::DomainConfig::use_tpc,
    &rrm::DomainConfig::use_hd_mode,
    &rrm::DomainConfig::dca_threshold,
    &rrm::DomainConfig::ap_rssi_threshold_2g,
    &rrm::DomainConfig::ap_rssi_threshold_5g,
    &rrm::DomainConfig::hysteresis_2g,
    &rrm::DomainConfig::hysteresis_5g,
    &rrm::DomainConfig::report_format_reserved,
    &rrm::DomainConfig::away_timeout,
    &rrm::DomainConfig::blacklist_thr_low,
    &rrm::DomainConfig::blacklist_thr_high,
    &rrm::DomainConfig::blacklist_timeout,
    &rrm::DomainConfig::load_balance_sta_low,
    &rrm::DomainConfig::load_balance_sta_high,
    &rrm::DomainConfig::use_all_ap_balance,
    &rrm::DomainConfig::use_balance,
    &rrm::DomainConfig::client_rssi_renew,
    &rrm::DomainConfig::client_max_age,
    &rrm::DomainConfig::client_try_no_balance,
    &rrm::DomainConfig::no_balance_enterprise,
    &rrm::DomainConfig::use_rrm_report,
    &rrm::DomainConfig::report_days_to_live,
    &rrm::DomainConfig::use_80211k,
};

// A flag is 0 or 1.
inline std::int32_t value_of(const ReportSetting& setting, const rrm::DomainConfig& config) {
  return std::visit([&](auto member) { return static_cast<std::int32_t>(config.*member); }, setting);
}

inline void set_value(const ReportSetting& setting, rrm::DomainConfig& config, std::int32_t value) {
  if (const auto* flag = std::get_if<bool rrm::DomainConfig::*>(&setting)) {
    config.** flag = value != 0;
  } else {
    config.*std::get<std::int32_t rrm::DomainConfig::*>(setting) = value;
  }
}

}  // namespace reports
