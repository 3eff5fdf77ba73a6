// The settings table against the structs, the defaults, the ranges and the orders in which keys are checked and
// written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "Config.h"
#include "ConfigTable.h"
#include "config/config_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Compiles only while the struct has exactly these members.
std::size_t domain_member_count() {
  const DomainConfig config;
  const auto& [a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, a15, a16, a17, a18, a19, a20, a21, a22, a23,
               a24, a25, a26, a27, a28, a29, a30, a31, a32, a33, a34, a35, a36, a37, a38, a39, a40, a41, a42, a43, a44,
               a45, a46, a47, a48] = config;
  return a48 == config.tick ? 48 : 0;
}

std::size_t global_member_count() {
  const GlobalSettings settings;
  const auto& [a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13] = settings;
  return a13 == settings.use_wildcard_80211r ? 13 : 0;
}

template <class S>
struct AddressesOfSetting {
  const S& section;
  std::vector<const void*> operator()(const FlagSetting<S>& flag) const { return {&(section.*flag.member)}; }
  std::vector<const void*> operator()(const NumberSetting<S>& number) const { return {&(section.*number.member)}; }
  std::vector<const void*> operator()(const TextSetting<S>& text) const { return {&(section.*text.member)}; }
  std::vector<const void*> operator()(const TimeSetting<S>& time) const {
    if (time.seconds == nullptr) return {&(section.*time.text)};
    return {&(section.*time.text), &(section.*time.seconds)};
  }
};

template <class S>
std::set<const void*> addresses_in_table(const S& section) {
  std::set<const void*> addresses;
  for (const auto& setting : settings_table<S>()) {
    for (const void* address : std::visit(AddressesOfSetting<S>{section}, setting.kind)) {
      EXPECT_TRUE(addresses.insert(address).second) << setting.key << " shares its member with another row";
    }
  }
  return addresses;
}

TEST(ConfigTable, EveryDomainMemberHasARowOrIsFixed) {
  constexpr std::size_t fixed = 9;  // report_format_reserved and the eight at the end
  const DomainConfig config;
  const auto addresses = addresses_in_table(config);
  EXPECT_EQ(addresses.size() + fixed, domain_member_count());
  for (const auto* member : {&config.report_format_reserved, &config.dunva_scan_count, &config.dunva_scan_time,
                             &config.default_power_max, &config.default_power_min, &config.force_delay,
                             &config.mode_response_wait, &config.scan_step_time, &config.tick}) {
    EXPECT_FALSE(addresses.contains(member));
  }
}

TEST(ConfigTable, EveryGlobalMemberHasARow) {
  const GlobalSettings settings;
  EXPECT_EQ(addresses_in_table(settings).size(), global_member_count());
}

TEST(ConfigTable, DomainKeysAreWrittenInTheDocumentedOrderWithTheirDefaults) {
  EXPECT_EQ(written(DomainConfig()),
            "{\"use_dunva_rrm_scan\":1,\"use_dca\":1,\"use_tpc\":1,\"use_hd_mode\":1,\"dca_threshold\":25,"
            "\"ap_rssi_threshold_2g\":-70,\"ap_rssi_threshold_5g\":-70,\"ap_rssi_threshold_6g\":-70,"
            "\"hysteresis_2g\":2,\"hysteresis_5g\":2,\"hysteresis_6g\":2,\"optimization_time\":\"00:00\","
            "\"use_optimization_time\":0,\"use_optimization_event\":1,\"away_timeout\":300,"
            "\"blacklist_thr_low\":-75,\"blacklist_thr_high\":-65,\"blacklist_timeout\":30,"
            "\"load_balance_sta_low\":5,\"load_balance_sta_high\":20,\"roam_attempt_timeout\":600,"
            "\"sta_load_balance_period\":60,\"load_balance_roam_count_min\":2,\"load_balance_roam_count_max\":4,"
            "\"use_all_ap_balance\":0,\"use_balance\":1,\"client_rssi_renew\":15,\"client_max_age\":20,"
            "\"client_try_no_balance\":2,\"no_balance_enterprise\":0,\"use_rrm_report\":1,"
            "\"report_days_to_live\":93,\"use_80211k\":1,\"use_80211r\":1,\"use_80211r_2g_cross_band\":1,"
            "\"use_80211v\":0,\"fbt_reassoc_deadline\":1000,\"fbt_over_ds\":0}");
}

TEST(ConfigTable, GlobalKeysAreWrittenInTheDocumentedOrderWithTheirDefaults) {
  EXPECT_EQ(written(GlobalSettings()),
            "{\"enabled\":1,\"api_port\":8089,\"cli_api_port\":8082,\"listen_port\":8099,\"use_https\":0,"
            "\"report_delete_at_time_utc\":\"21:00\",\"reports_path\":\"/var/lib/dunva-morvane/reports\","
            "\"www_path\":\"/opt/dunva-morvane/www\",\"vrrp_enabled\":0,\"vrrp_timeout\":15,"
            "\"vrrp_backup_path\":\"/tmp/dunva-morvane/backup\",\"vrrp_state_file\":\"/tmp/keep.mode\","
            "\"use_wildcard_80211r\":0}");
}

TEST(ConfigTable, MembersWithoutAKeyHaveTheirFixedValues) {
  const DomainConfig config;
  EXPECT_EQ(config.optimization_time_seconds, 0);
  EXPECT_EQ(config.report_format_reserved, 0);
  EXPECT_EQ(config.dunva_scan_count, 1);
  EXPECT_EQ(config.dunva_scan_time, 6);
  EXPECT_EQ(config.default_power_max, 16);
  EXPECT_EQ(config.default_power_min, 10);
  EXPECT_EQ(config.force_delay, 20);
  EXPECT_EQ(config.mode_response_wait, 15);
  EXPECT_EQ(config.scan_step_time, 5);
  EXPECT_EQ(config.tick, 10);
}

// A number of a section, with the range in which a document of this key alone is valid.
struct NumberRow {
  const char* key;
  std::function<std::int32_t(const GlobalConfig&)> stored;
  std::int32_t standard;
  std::int32_t min;
  std::int32_t max;
  std::int32_t loaded_min;  // what a file may carry
  std::int32_t loaded_max;
  bool global = false;
};

NumberRow domain_number(const char* key, std::int32_t DomainConfig::*member, std::int32_t standard, std::int32_t min,
                        std::int32_t max) {
  return {key, [member](const GlobalConfig& c) { return c.common().*member; }, standard, min, max, min, max};
}

NumberRow global_number(const char* key, std::int32_t GlobalSettings::*member, std::int32_t standard, std::int32_t min,
                        std::int32_t max) {
  return {key, [member](const GlobalConfig& c) { return c.global().*member; }, standard, min, max, min, max, true};
}

NumberRow with_loaded_range(NumberRow row, std::int32_t min, std::int32_t max) {
  row.loaded_min = min;
  row.loaded_max = max;
  return row;
}

std::vector<NumberRow> all_numbers() {
  using D = DomainConfig;
  using G = GlobalSettings;
  return {
      domain_number("dca_threshold", &D::dca_threshold, 25, 0, 99),
      domain_number("ap_rssi_threshold_2g", &D::ap_rssi_threshold_2g, -70, -100, -1),
      domain_number("ap_rssi_threshold_5g", &D::ap_rssi_threshold_5g, -70, -100, -1),
      domain_number("ap_rssi_threshold_6g", &D::ap_rssi_threshold_6g, -70, -100, -1),
      domain_number("hysteresis_2g", &D::hysteresis_2g, 2, 1, 10),
      domain_number("hysteresis_5g", &D::hysteresis_5g, 2, 1, 10),
      domain_number("hysteresis_6g", &D::hysteresis_6g, 2, 1, 10),
      domain_number("away_timeout", &D::away_timeout, 300, 10, 3600),
      domain_number("blacklist_thr_low", &D::blacklist_thr_low, -75, -100, -1),
      domain_number("blacklist_thr_high", &D::blacklist_thr_high, -65, -100, -1),
      domain_number("blacklist_timeout", &D::blacklist_timeout, 30, 5, 3600),
      with_loaded_range(domain_number("load_balance_sta_low", &D::load_balance_sta_low, 5, 1, 20), 1, 100),
      with_loaded_range(domain_number("load_balance_sta_high", &D::load_balance_sta_high, 20, 5, 100), 1, 100),
      domain_number("roam_attempt_timeout", &D::roam_attempt_timeout, 600, 0, 86400),
      domain_number("sta_load_balance_period", &D::sta_load_balance_period, 60, 0, 86400),
      domain_number("load_balance_roam_count_min", &D::load_balance_roam_count_min, 2, 0, 100),
      domain_number("load_balance_roam_count_max", &D::load_balance_roam_count_max, 4, 0, 100),
      domain_number("client_rssi_renew", &D::client_rssi_renew, 15, 1, 300),
      domain_number("client_max_age", &D::client_max_age, 20, 0, 300),
      domain_number("client_try_no_balance", &D::client_try_no_balance, 2, 1, 10),
      domain_number("report_days_to_live", &D::report_days_to_live, 93, 1, 37200),
      domain_number("fbt_reassoc_deadline", &D::fbt_reassoc_deadline, 1000, 1000, 268431360),
      global_number("api_port", &G::api_port, 8089, 0, 65535),
      global_number("cli_api_port", &G::cli_api_port, 8082, 0, 65535),
      global_number("listen_port", &G::listen_port, 8099, 0, 65535),
      global_number("vrrp_timeout", &G::vrrp_timeout, 15, 1, 60),
  };
}

std::string one_key(const std::string& key, std::int32_t value) {
  return "{\"" + key + "\":" + std::to_string(value) + "}";
}

// The whole section's verdict on one key.
bool validates(const NumberRow& row, std::int32_t value, Rejected& rejected) {
  const JsonReader section(one_key(row.key, value).c_str());
  bool failed = false;
  if (row.global) {
    GlobalConfig("").set_global(section, rejected.list(), failed);
  } else {
    DomainConfig config;
    GlobalConfig::set_domain_settings(config, section, rejected.list(), failed);
  }
  return !failed;
}

TEST(ConfigTable, TheTestKnowsEveryNumberOfTheTable) {
  std::vector<std::string> known;
  for (const auto& row : all_numbers()) known.emplace_back(row.key);
  std::vector<std::string> in_table;
  for (const auto& s : settings_table<DomainConfig>()) {
    if (std::holds_alternative<NumberSetting<DomainConfig>>(s.kind)) in_table.emplace_back(s.key);
  }
  for (const auto& s : settings_table<GlobalSettings>()) {
    if (std::holds_alternative<NumberSetting<GlobalSettings>>(s.kind)) in_table.emplace_back(s.key);
  }
  EXPECT_THAT(known, ::testing::UnorderedElementsAreArray(in_table));
}

TEST(ConfigTable, EveryNumberIsValidAtBothEndsOfItsRangeAndRejectedBeyond) {
  Capture capture;
  for (const auto& row : all_numbers()) {
    SCOPED_TRACE(row.key);
    for (const std::int32_t value : {row.min, row.max}) {
      Rejected rejected;
      EXPECT_TRUE(validates(row, value, rejected)) << value;
      EXPECT_EQ(rejected.text(), Rejected::of("")) << value;
    }
    for (const std::int32_t value : {row.min - 1, row.max + 1}) {
      Rejected rejected;
      capture.clear();
      EXPECT_FALSE(validates(row, value, rejected)) << value;
      EXPECT_EQ(rejected.text(), Rejected::of(one_key(row.key, value)));
      EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_WARNING, "Invalid value for '" + std::string(row.key) +
                                                                        "': " + std::to_string(value) +
                                                                        " (allowed range: [" + std::to_string(row.min) +
                                                                        ", " + std::to_string(row.max) + "])"}));
    }
  }
}

TEST(ConfigTable, EveryNumberIsLoadedWithinItsRangeAndLeftAtTheDefaultBeyond) {
  for (const auto& row : all_numbers()) {
    SCOPED_TRACE(row.key);
    const auto loaded = [&](std::int32_t value) {
      const std::string section = one_key(row.key, value);
      return row.stored(
          GlobalConfig("", row.global ? "{\"global\":" + section + "}" : "{\"global\":{},\"common\":" + section + "}"));
    };
    EXPECT_EQ(row.stored(GlobalConfig("")), row.standard);
    EXPECT_EQ(loaded(row.loaded_min), row.loaded_min);
    EXPECT_EQ(loaded(row.loaded_max), row.loaded_max);
    EXPECT_EQ(loaded(row.loaded_min - 1), row.standard);
    EXPECT_EQ(loaded(row.loaded_max + 1), row.standard);
  }
}

TEST(ConfigTable, TheTwoClientLoadsBoundEachOtherByTheDocumentAlone) {
  struct Case {
    const char* label;
    const char* section;
    const char* rejected;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"low alone, at the default of high", "{\"load_balance_sta_low\":20}", "", {}},
      {"low alone, above the default of high",
       "{\"load_balance_sta_low\":30}",
       "{\"load_balance_sta_low\":30}",
       {"Invalid value for 'load_balance_sta_low': 30 (allowed range: [1, 20])"}},
      {"low up to a high beside it", "{\"load_balance_sta_low\":50,\"load_balance_sta_high\":50}", "", {}},
      {"low above a high beside it rejects both",
       "{\"load_balance_sta_low\":51,\"load_balance_sta_high\":50}",
       "{\"load_balance_sta_low\":51},{\"load_balance_sta_high\":50}",
       {"Invalid value for 'load_balance_sta_low': 51 (allowed range: [1, 50])",
        "Invalid value for 'load_balance_sta_high': 50 (allowed range: [51, 100])"}},
      {"high alone, below the default of low",
       "{\"load_balance_sta_high\":4}",
       "{\"load_balance_sta_high\":4}",
       {"Invalid value for 'load_balance_sta_high': 4 (allowed range: [5, 100])"}},
      {"high down to a low beside it", "{\"load_balance_sta_low\":1,\"load_balance_sta_high\":1}", "", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    Capture capture;
    Rejected rejected;
    DomainConfig config;
    // Stored values that would decide otherwise, if they counted.
    config.load_balance_sta_low = 90;
    config.load_balance_sta_high = 95;
    bool failed = false;
    GlobalConfig::set_domain_settings(config, JsonReader(c.section), rejected.list(), failed);
    EXPECT_EQ(failed, *c.rejected != '\0');
    EXPECT_EQ(rejected.text(), Rejected::of(c.rejected));
    EXPECT_EQ(capture.lines(LOG_WARNING), c.lines);
  }
}

std::vector<std::string> rejected_keys(const std::string& text) {
  const JsonReader document(text.c_str());
  const JsonReader list = document.get("invalid_parameters");
  std::vector<std::string> keys;
  for (int i = 0; i < static_cast<int>(list.size()); ++i) {
    const std::string element = list.at(i).to_string();
    keys.push_back(element.substr(2, element.find('"', 2) - 2));
  }
  return keys;
}

std::string all_keys_with(const std::vector<std::string>& keys, const std::string& value) {
  std::string text = "{";
  for (const auto& key : keys) text += (text.size() > 1 ? ",\"" : "\"") + key + "\":" + value;
  return text + "}";
}

// A text too large for any number fails every kind of setting.
constexpr const char* overflowing = "\"99999999999999999999999\"";

TEST(ConfigTable, DomainKeysAreCheckedInTheDocumentedOrderAndAllOfThem) {
  const std::vector<std::string> order = {"use_dunva_rrm_scan",
                                          "use_dca",
                                          "use_tpc",
                                          "use_hd_mode",
                                          "use_all_ap_balance",
                                          "use_balance",
                                          "no_balance_enterprise",
                                          "use_rrm_report",
                                          "use_80211k",
                                          "use_optimization_time",
                                          "use_optimization_event",
                                          "use_80211r",
                                          "use_80211r_2g_cross_band",
                                          "fbt_over_ds",
                                          "use_80211v",
                                          "fbt_reassoc_deadline",
                                          "dca_threshold",
                                          "ap_rssi_threshold_2g",
                                          "ap_rssi_threshold_5g",
                                          "ap_rssi_threshold_6g",
                                          "hysteresis_2g",
                                          "hysteresis_5g",
                                          "hysteresis_6g",
                                          "optimization_time",
                                          "away_timeout",
                                          "blacklist_thr_low",
                                          "blacklist_thr_high",
                                          "blacklist_timeout",
                                          "load_balance_sta_low",
                                          "load_balance_sta_high",
                                          "roam_attempt_timeout",
                                          "sta_load_balance_period",
                                          "load_balance_roam_count_min",
                                          "load_balance_roam_count_max",
                                          "client_rssi_renew",
                                          "client_max_age",
                                          "client_try_no_balance",
                                          "report_days_to_live"};
  std::vector<std::string> reversed(order.rbegin(), order.rend());
  Capture capture;
  Rejected rejected;
  DomainConfig config;
  bool failed = false;
  const JsonReader section(all_keys_with(reversed, overflowing).c_str());
  EXPECT_FALSE(GlobalConfig::set_domain_settings(config, section, rejected.list(), failed));
  EXPECT_TRUE(failed);
  EXPECT_EQ(rejected_keys(rejected.text()), order);
  EXPECT_EQ(config, DomainConfig());
}

TEST(ConfigTable, GlobalKeysAreCheckedInTheDocumentedOrderAndPathsAreNot) {
  Capture capture;
  Rejected rejected;
  GlobalConfig config("");
  bool failed = false;
  const JsonReader section(
      all_keys_with({"use_wildcard_80211r", "vrrp_state_file", "vrrp_backup_path", "vrrp_timeout", "vrrp_enabled",
                     "use_https", "www_path", "reports_path", "report_delete_at_time_utc", "listen_port",
                     "cli_api_port", "api_port", "enabled"},
                    overflowing)
          .c_str());
  EXPECT_FALSE(config.set_global(section, rejected.list(), failed));
  EXPECT_TRUE(failed);
  EXPECT_THAT(rejected_keys(rejected.text()),
              ElementsAre("enabled", "use_https", "api_port", "listen_port", "cli_api_port", "vrrp_enabled",
                          "vrrp_timeout", "use_wildcard_80211r", "report_delete_at_time_utc"));
  EXPECT_EQ(config.global(), GlobalSettings());
}

TEST(ConfigTable, ASwitchIsOnForAnyNumberButZero) {
  struct Case {
    const char* value;
    bool on;
  };
  for (const Case& c : {Case{"0", false}, Case{"1", true}, Case{"-7", true}, Case{"\"2\"", true}, Case{"true", true},
                        Case{"false", false}, Case{"\"on\"", false}}) {
    SCOPED_TRACE(c.value);
    Rejected rejected;
    DomainConfig config;
    config.use_dca = !c.on;
    bool failed = true;
    const JsonReader section(("{\"use_dca\":" + std::string(c.value) + "}").c_str());
    EXPECT_TRUE(GlobalConfig::set_domain_settings(config, section, rejected.list(), failed));
    EXPECT_FALSE(failed);
    EXPECT_EQ(config.use_dca, c.on);
  }
}

TEST(ConfigTable, ASwitchThatOverflowsIsRejected) {
  Capture capture;
  Rejected rejected;
  DomainConfig config;
  bool failed = false;
  const JsonReader section("{\"use_dca\":\"99999999999999999999999\"}");
  GlobalConfig::set_domain_settings(config, section, rejected.list(), failed);
  EXPECT_TRUE(failed);
  EXPECT_THAT(capture.lines(LOG_WARNING), ElementsAre("Invalid value for 'use_dca': 0 (allowed range: [0, 1])"));
  EXPECT_EQ(rejected.text(), Rejected::of("{\"use_dca\":0}"));
}

TEST(ConfigTable, ApplyingTheStoredValuesChangesNothing) {
  Rejected rejected;
  DomainConfig config;
  bool failed = true;
  const std::string same = written(config);
  EXPECT_FALSE(GlobalConfig::set_domain_settings(config, JsonReader(same.c_str()), rejected.list(), failed));
  EXPECT_FALSE(failed);
  EXPECT_EQ(config, DomainConfig());
}

TEST(ConfigTable, OneBadValueKeepsTheWholeSectionOut) {
  Capture capture;
  Rejected rejected;
  DomainConfig config;
  bool failed = false;
  const JsonReader section("{\"away_timeout\":100,\"client_max_age\":301}");
  EXPECT_FALSE(GlobalConfig::set_domain_settings(config, section, rejected.list(), failed));
  EXPECT_TRUE(failed);
  EXPECT_EQ(config, DomainConfig());
}

// Changes one member at a time; each change must make the sections unequal.
TEST(ConfigTable, EqualityLooksAtEveryMember) {
  const DomainConfig standard;
  for (const auto& setting : settings_table<DomainConfig>()) {
    DomainConfig changed;
    if (const auto* flag = std::get_if<FlagSetting<DomainConfig>>(&setting.kind)) {
      changed.*flag->member = !(changed.*flag->member);
    } else if (const auto* number = std::get_if<NumberSetting<DomainConfig>>(&setting.kind)) {
      changed.*number->member += 1;
    } else if (const auto* time = std::get_if<TimeSetting<DomainConfig>>(&setting.kind)) {
      changed.*time->text = "0:00";
    }
    EXPECT_NE(changed, standard) << setting.key;
  }
  for (const auto member :
       {&DomainConfig::report_format_reserved, &DomainConfig::dunva_scan_count, &DomainConfig::dunva_scan_time,
        &DomainConfig::default_power_max, &DomainConfig::default_power_min, &DomainConfig::force_delay,
        &DomainConfig::mode_response_wait, &DomainConfig::scan_step_time, &DomainConfig::tick,
        &DomainConfig::optimization_time_seconds}) {
    DomainConfig changed;
    changed.*member += 1;
    EXPECT_NE(changed, standard);
  }
}

}  // namespace
}  // namespace rrm::testing
