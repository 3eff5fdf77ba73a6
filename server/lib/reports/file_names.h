// Where the reports of a domain lie. All functions throw std::invalid_argument for an empty argument.
#pragma once

#include <string>

namespace reports {

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

// 0, or 22 after a log line for a domain that must not become part of a file's name: an empty one, and one whose file
// would lie elsewhere than in the directory.
int check_report_domain_name(const std::string& domain_name);

}  // namespace reports
