// Where the reports of a domain lie. All functions throw std::invalid_argument for an empty argument.
#pragma once

#include <string>

namespace reports {

// Behind the names of files while these are rewritten: see recovery.h.
inline constexpr const char* tmp_suffix = ".tmp";
inline constexpr const char* old_suffix = ".old";
inline constexpr const char* start_status_suffix = ".start_status";
inline constexpr const char* done_status_suffix = ".done_status";

std::string get_report_file_name(const std::string& domain_name, const std::string& report_files_path);
std::string get_report_config_file_name(const std::string& domain_name, const std::string& report_files_path);
std::string get_report_index_file_name(const std::string& domain_name, const std::string& report_files_path);
std::string get_report_lock_file_name(const std::string& domain_name, const std::string& report_files_path);

// The three files of a domain.
struct ReportFiles {
  ReportFiles(const std::string& domain_name, const std::string& report_files_path);

  std::string report;
  std::string config;
  std::string index;
};

// 0, or 22 after a log line for a domain that must not become part of a file's name: an empty one, one whose file
// would lie elsewhere than in the directory, and one of more than 231 bytes, for which a name beside it would be too
// long.
int check_report_domain_name(const std::string& domain_name);

}  // namespace reports
