#include "report_optimize_tpc_dca.h"

#include <cerrno>
#include <exception>
#include <ostream>
#include <stdexcept>

#include "ApEntry.h"
#include "Config.h"
#include "core/log.h"
#include "model/ApMap.h"
#include "reports/file_lock.h"
#include "reports/file_names.h"
#include "reports/file_sync.h"
#include "reports/lines.h"
#include "reports/recovery.h"
#include "reports/settings.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

void require(bool given, const char* function, const char* argument) {
  if (!given) throw std::invalid_argument(std::string(function) + ": Invalid argument '" + argument + "'.");
}

// Nothing is planned for such a radio.
bool left_out(const rrm::Radio& radio) {
  return (radio.locked_tpc != 0 && radio.locked_dca != 0) || radio.available_channels.empty() || !radio.status;
}

// Calls `take` with the record of every radio of the report.
template <class Take>
void for_each_radio(RadioReport& report, const std::string& date, const rrm::ApMap& aps, Take take) {
  for (const auto& [mac, ap] : aps) {
    for (const rrm::Radio& radio : ap->radios.list) {
      if (left_out(radio)) continue;
      take(report[create_key_for_domain_radio_report(date, ap->mac.to_string(), radio.mac.to_string())], radio);
    }
  }
}

std::string channels_text(const rrm::ChannelSet& channels) {
  std::string text;
  for (const std::int32_t channel : channels) {
    if (!text.empty()) text += ' ';
    text += std::to_string(channel);
  }
  return text;
}

void write_record(std::ostream& out, const std::string& key, const RadioReportRecord& r) {
  out << report_version << ',' << key << ',' << r.power_before << ',' << r.power_after << ',' << r.channel_before << ','
      << r.channel_after << ',' << r.radio_id << ',' << r.bandwidth << ',' << r.max_power << ',' << r.min_power << ','
      << r.primary_channel << ',' << r.available_channels << ',' << r.eirp_before << ',' << r.eirp_after << ','
      << r.eirp_min << ',' << r.eirp_max << ',' << r.antenna_gain << ',' << r.cable_loss << '\n';
}

// Appends to one of the files; `failed` says on failure which, with the error and the name.
template <class Write>
int append(const std::string& file, const char* failed, Write write) {
  const int error = append_to_file(file, write);
  if (error != 0)
    RRM_LOG(LOG_ERROR, "Write %s to file exit with error code: %d. Filename: \"%s\".", failed, error, file.c_str());
  return error;
}

int append_to_all(const ReportFiles& names, const RadioReport& report, const std::string& date,
                  const rrm::DomainConfig& config) {
  int error = append(names.report, "radio report", [&](std::ostream& out) {
    for (const auto& [key, record] : report) write_record(out, key, record);
  });
  if (error != 0) return error;
  error = append(names.config, "radio report domain config", [&](std::ostream& out) {
    out << report_version << ',' << date;
    for (const ReportSetting& setting : report_settings) out << ',' << value_of(setting, config);
    out << '\n';
  });
  if (error != 0) return error;
  return append(names.index, "radio report id",
                [&](std::ostream& out) { out << report_version << ',' << date << '\n'; });
}

// The rollback of a rewrite that was cut off would bury what is appended now, so it comes first.
int save(const RadioReport& report, const std::string& domain, const std::string& date, const std::string& path,
         const rrm::DomainConfig& config) {
  const ReportFiles names(domain, path);
  RRM_LOG(LOG_TRACE, "report_file_name = \"%s\"", names.report.c_str());
  RRM_LOG(LOG_TRACE, "report_config_file_name = \"%s\"", names.config.c_str());
  RRM_LOG(LOG_TRACE, "report_index_file_name = \"%s\"", names.index.c_str());
  const DomainWriteAccess access(domain, path);
  if (access.error() != 0) return access.error();
  if (const int error = recover_unclean_reports(domain, path)) return error;
  if (const int error = append_to_all(names, report, date, config)) return error;
  return fsync_directory_path(path);
}

}  // namespace

std::string create_key_for_domain_radio_report(const std::string& optimize_start_date, const std::string& ap_mac_str,
                                               const std::string& radio_mac_str) {
  require(!optimize_start_date.empty(), __func__, "optimize_start_date");
  require(!ap_mac_str.empty(), __func__, "ap_mac_str");
  require(!radio_mac_str.empty(), __func__, "radio_mac_str");
  return optimize_start_date + "," + ap_mac_str + "," + radio_mac_str;
}

void remember_radio_report_before_optimize(RadioReport& report, const std::string& optimize_start_date,
                                           const rrm::ApMap& aps) {
  for_each_radio(report, optimize_start_date, aps, [](RadioReportRecord& record, const rrm::Radio& radio) {
    record = {};
    record.power_before = radio.power;
    record.eirp_before = radio.eirp;
    record.channel_before = radio.channel;
    record.radio_id = radio.id;
    record.bandwidth = radio.bandwidth;
    record.max_power = radio.power_max;
    record.min_power = radio.power_min;
    record.eirp_min = radio.eirp_min;
    record.eirp_max = radio.eirp_max;
    record.antenna_gain = radio.antenna_gain;
    record.cable_loss = radio.cable_loss;
    record.primary_channel = radio.primary_channel;
    record.available_channels = channels_text(radio.available_channels);
  });
}

void remember_radio_report_after_optimize(RadioReport& report, const std::string& optimize_start_date,
                                          const rrm::ApMap& aps) {
  for_each_radio(report, optimize_start_date, aps, [](RadioReportRecord& record, const rrm::Radio& radio) {
    record.power_after = radio.power;
    record.eirp_after = radio.eirp;
    record.channel_after = radio.channel;
  });
}

int save_radio_report_to_files(const RadioReport& report, const std::string& domain_name,
                               const std::string& report_date, const std::string& report_files_path,
                               const rrm::DomainConfig& config) {
  int error = EINVAL;
  try {
    error = save(report, domain_name, report_date, report_files_path, config);
  } catch (const std::exception& exception) {  // the plan that is reported goes on
    RRM_LOG(LOG_ERROR, "%s", exception.what());
  }
  if (error != 0) {
    RRM_LOG(LOG_ERROR, "Error while save radio report for domain: \"%s\". Report date: \"%s\". Exit code: %d.",
            domain_name.c_str(), report_date.c_str(), error);
    rrm::emit_event_text(18, domain_name);
  }
  return error;
}

}  // namespace reports
