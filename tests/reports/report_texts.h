// The report files of a domain as texts, so that a test can lay them out and compare them whole.
#pragma once

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "report_optimize_tpc_dca.h"
#include "reports/report_support.h"
#include "support/temp_dir.h"

namespace rrm::testing {

inline constexpr std::time_t a_day = 86400;

// "YYYY-MM-DD,HH:MM:SS", in UTC.
inline std::string date_text(std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d,%H:%M:%S", &utc);
  return text;
}

// Radios 0 and 1 are the first AP's, 2 and 3 the second's, and so on.
struct RadioNames {
  explicit RadioNames(int number) {
    std::snprintf(ap, sizeof ap, "00:11:22:00:%02X:00", static_cast<unsigned>(number / 2) & 0xFF);
    std::snprintf(radio, sizeof radio, "00:11:22:00:%02X:%02X", static_cast<unsigned>(number / 2) & 0xFF,
                  static_cast<unsigned>(number % 2 + 1));
  }
  char ap[18];
  char radio[18];
};

// What behind the date stands in each radio's line, and the record that is written so.
inline std::string radio_fields(int number) {
  const RadioNames names(number);
  return std::string(names.ap) + "," + names.radio + ",20,17,36,44," + std::to_string(number % 2) +
         ",40,23,5,1,36 40 44 48,22,19,7,30,3,1";
}

inline reports::RadioReportRecord radio_record(int number) {
  reports::RadioReportRecord record;
  record.power_before = 20;
  record.power_after = 17;
  record.channel_before = 36;
  record.channel_after = 44;
  record.radio_id = number % 2;
  record.bandwidth = 40;
  record.max_power = 23;
  record.min_power = 5;
  record.primary_channel = 1;
  record.available_channels = "36 40 44 48";
  record.eirp_before = 22;
  record.eirp_after = 19;
  record.eirp_min = 7;
  record.eirp_max = 30;
  record.antenna_gain = 3;
  record.cable_loss = 1;
  return record;
}

inline reports::RadioReport a_report(const std::string& date, int radios) {
  reports::RadioReport report;
  for (int i = 0; i < radios; ++i) {
    const RadioNames names(i);
    report[reports::create_key_for_domain_radio_report(date, names.ap, names.radio)] = radio_record(i);
  }
  return report;
}

// The texts by file name, without the lock file, which stays.
using FileTexts = std::map<std::string, std::string>;

// The reports of these moments, of that many radios each.
inline FileTexts report_files(const std::string& domain, const std::vector<std::time_t>& times, int radios) {
  std::string data;
  std::string config;
  std::string index;
  for (const std::time_t time : times) {
    const std::string begin = "1.1," + date_text(time);
    for (int i = 0; i < radios; ++i) data += begin + "," + radio_fields(i) + "\n";
    config += begin + "," + reports::testing::default_settings + "\n";
    index += begin + "\n";
  }
  return {{"report_" + domain + ".txt", data},
          {"report_cfg_" + domain + ".txt", config},
          {"report_idx_" + domain + ".txt", index}};
}

inline FileTexts files_in(const std::filesystem::path& directory) {
  FileTexts files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with(".report_lock_")) files[name] = read_file(entry.path());
  }
  return files;
}

// Afterwards the directory has these files, and no other but a lock file.
inline void lay_out(const std::filesystem::path& directory, const FileTexts& files) {
  for (const auto& [name, text] : files_in(directory)) std::filesystem::remove(directory / name);
  for (const auto& [name, text] : files) write_file(directory / name, text);
}

}  // namespace rrm::testing
