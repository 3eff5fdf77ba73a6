#include "reports/file_names.h"

#include <cerrno>
#include <stdexcept>
#include <string_view>

#include "core/log.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

std::string file_name(const char* function, const char* prefix, const std::string& domain_name,
                      const std::string& report_files_path, const char* suffix) {
  if (domain_name.empty()) throw std::invalid_argument(std::string(function) + ": Invalid argument 'domain_name'.");
  if (report_files_path.empty()) {
    throw std::invalid_argument(std::string(function) + ": Invalid argument 'report_files_path'.");
  }
  return report_files_path + "/" + prefix + domain_name + suffix;
}

}  // namespace

std::string get_report_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, "report_", domain_name, report_files_path, ".txt");
}

std::string get_report_config_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, "report_cfg_", domain_name, report_files_path, ".txt");
}

std::string get_report_index_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, "report_idx_", domain_name, report_files_path, ".txt");
}

std::string get_report_lock_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, ".report_lock_", domain_name, report_files_path, "");
}

ReportFiles::ReportFiles(const std::string& domain_name, const std::string& report_files_path)
    : report(get_report_file_name(domain_name, report_files_path)),
      config(get_report_config_file_name(domain_name, report_files_path)),
      index(get_report_index_file_name(domain_name, report_files_path)) {}

int check_report_domain_name(const std::string& domain_name) {
  if (!domain_name.empty() && domain_name.find_first_of(std::string_view("/\0", 2)) == std::string::npos) return 0;
  RRM_LOG(LOG_ERROR, "Domain \"%s\" cannot have report files.", domain_name.c_str());
  return EINVAL;
}

}  // namespace reports
