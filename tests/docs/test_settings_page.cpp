// The page about the settings: it names each, with its default and its range, and no other.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <variant>

#include "Config.h"
#include "ConfigTable.h"
#include "docs/page.h"

namespace docs {
namespace {

const Page& page() {
  static const Page settings(SETTINGS_PAGE);
  return settings;
}

std::string clock_time(std::int32_t seconds) {
  char text[16];
  std::snprintf(text, sizeof text, "%02d:%02d", seconds / 3600, seconds / 60 % 60);
  return text;
}

struct DefaultAndRange {
  template <class S>
  std::string operator()(const rrm::FlagSetting<S>& flag) const {
    return flag.standard ? "on" : "off";
  }
  template <class S>
  std::string operator()(const rrm::NumberSetting<S>& number) const {
    return std::to_string(number.standard) + ", " + std::to_string(number.min) + " to " + std::to_string(number.max) +
           (*unit == '\0' ? "" : " ") + unit;
  }
  template <class S>
  std::string operator()(const rrm::TimeSetting<S>& time) const {
    EXPECT_EQ(time.min, 0);
    return std::string(time.standard) + ", to " + clock_time(time.max);
  }
  template <class S>
  std::string operator()(const rrm::TextSetting<S>& text) const {
    return text.standard;
  }

  const char* unit;
};

template <class Section>
std::map<std::string, std::string> documented() {
  std::map<std::string, std::string> rows;
  for (const auto& setting : rrm::settings_table<Section>()) {
    rows[setting.key] = std::visit(DefaultAndRange{setting.unit}, setting.kind);
  }
  return rows;
}

TEST(SettingsPage, TellsEachSettingOfTheServerAndNoOther) {
  EXPECT_EQ(page().table("setting of the server", "default and range"), documented<rrm::GlobalSettings>());
}

TEST(SettingsPage, TellsEachSettingOfADomainAndNoOther) {
  EXPECT_EQ(page().table("setting of a domain", "default and range"), documented<rrm::DomainConfig>());
}

TEST(SettingsPage, ItsSetupIsTakenAsAWhole) {
  const rrm::GlobalConfig config("", page().text_of("json setup"));
  EXPECT_EQ(config.global().reports_path, "/mnt/data/zal//morvane-reports/");
  EXPECT_EQ(config.domain_config("auditorium").ap_rssi_threshold_5g, -65);
  EXPECT_TRUE(config.domain_config("auditorium").use_80211v);
  EXPECT_EQ(config.domain_config("lobby"), rrm::DomainConfig());
  EXPECT_EQ(config.time_zone_offset("lobby"), 3600);
}

}  // namespace
}  // namespace docs
