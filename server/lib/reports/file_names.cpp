#include "reports/file_names.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <stdexcept>
#include <string_view>

#include "core/log.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

constexpr const char* report_prefix = "report_";
constexpr const char* config_prefix = "report_cfg_";
constexpr const char* index_prefix = "report_idx_";
constexpr const char* lock_prefix = ".report_lock_";
constexpr const char* text_suffix = ".txt";

constexpr std::size_t length_of(std::string_view text) {
  return text.size();
}

// What the longest name of a domain's files has besides the domain.
constexpr std::size_t longest_addition() {
  const std::size_t longest_prefix = std::max(length_of(config_prefix), length_of(index_prefix));
  const std::size_t of_copy = longest_prefix + std::max(length_of(tmp_suffix), length_of(old_suffix));
  const std::size_t of_status =
      length_of(report_prefix) + std::max(length_of(start_status_suffix), length_of(done_status_suffix));
  return std::max(std::max(of_copy, of_status) + length_of(text_suffix), length_of(lock_prefix));
}

constexpr std::size_t longest_domain = NAME_MAX - longest_addition();
static_assert(longest_domain == 231, "the limit that is documented");

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
  return file_name(__func__, report_prefix, domain_name, report_files_path, text_suffix);
}

std::string get_report_config_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, config_prefix, domain_name, report_files_path, text_suffix);
}

std::string get_report_index_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, index_prefix, domain_name, report_files_path, text_suffix);
}

std::string get_report_lock_file_name(const std::string& domain_name, const std::string& report_files_path) {
  return file_name(__func__, lock_prefix, domain_name, report_files_path, "");
}

ReportFiles::ReportFiles(const std::string& domain_name, const std::string& report_files_path)
    : report(get_report_file_name(domain_name, report_files_path)),
      config(get_report_config_file_name(domain_name, report_files_path)),
      index(get_report_index_file_name(domain_name, report_files_path)) {}

int check_report_domain_name(const std::string& domain_name) {
  const bool fits = !domain_name.empty() && domain_name.size() <= longest_domain;
  if (fits && domain_name.find_first_of(std::string_view("/\0", 2)) == std::string::npos) return 0;
  RRM_LOG(LOG_ERROR, "Domain \"%s\" cannot have report files.", domain_name.c_str());
  return EINVAL;
}

}  // namespace reports
