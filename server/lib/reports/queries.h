// The parts of the report queries. The caller of the last three holds the domain's locks. All results are 0 or an errno
// value, after a log line.
#pragma once

#include <ctime>
#include <string>

namespace rrm {
class JsonWriter;
}

namespace reports {

int get_fields_from_report_id(const std::string& report_id, std::string& domain_name, std::string& report_date,
                              std::time_t& time);

// What a report is asked for by.
struct ReportName {
  std::string id;
  std::string domain;
  std::string date;
};

// Adds the object `report`, with the two parts below.
int get_radio_report_unlocked(rrm::JsonWriter& writer, const std::string& report_id,
                              const std::string& report_files_path, const std::string& domain_name,
                              const std::string& report_date);
// Adds `domain_config`, or `details`, from this file. Throw std::invalid_argument for an empty file name or date.
int get_radio_report_domain_config(rrm::JsonWriter& report, const ReportName& name, const std::string& filename);
int get_radio_report_data(rrm::JsonWriter& report, const ReportName& name, const std::string& filename);

}  // namespace reports
