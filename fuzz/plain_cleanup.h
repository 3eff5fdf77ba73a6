// The daily clean-up of a domain's report files and its recovery, told over texts by name instead of files: what must
// lie in the directory afterwards.
#pragma once

#include <ctime>
#include <map>
#include <string>

namespace zal::fuzz {

inline constexpr const char* report_index = "report_idx_lab.txt";
inline constexpr const char* report_config = "report_cfg_lab.txt";
inline constexpr const char* report_data = "report_lab.txt";
inline constexpr const char* report_start = "report_lab.txt.start_status";
inline constexpr const char* report_done = "report_lab.txt.done_status";

using ReportTexts = std::map<std::string, std::string>;

// Undoes or finishes what was cut off, by the marker that lies there.
void plain_recovery(ReportTexts& files);

// One run of the clean-up; false if it fails.
bool plain_cleanup(ReportTexts& files, std::time_t now, unsigned days);

// No file that a rewrite makes on its way lies there.
bool is_at_rest(const ReportTexts& files);

}  // namespace zal::fuzz
