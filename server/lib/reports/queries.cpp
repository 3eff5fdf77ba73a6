#include "reports/queries.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "Config.h"
#include "core/log.h"
#include "json/JsonWriter.h"
#include "report_optimize_tpc_dca.h"
#include "reports/file_lock.h"
#include "reports/file_names.h"
#include "reports/file_sync.h"
#include "reports/lines.h"
#include "reports/recovery.h"
#include "reports/settings.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

using rrm::JsonWriter;

bool given(const std::string& value, const char* argument) {
  if (!value.empty()) return true;
  RRM_LOG(LOG_ERROR, "Argument '%s' empty.", argument);
  return false;
}

std::string report_id(const std::string& date, const std::string& domain) {
  return date + "," + domain;
}

void add_report_name(JsonWriter& object, const ReportName& name) {
  object.add_string("id", name.id);
  object.add_string("domain", name.domain);
  object.add_string("date", name.date + " UTC");
}

// --- The list.

struct Period {
  std::time_t start = 0;
  std::time_t finish = 0;

  bool contains(std::time_t time) const { return start <= time && time < finish; }
};

int parse_period(const std::string& date_start, const std::string& date_finish, Period& period) {
  if (get_utc_timestamp_from_string(date_start, period.start) != 0) {
    RRM_LOG(LOG_ERROR, "Incorrect data/time for 'date_start' in reports query (\"%s\").", date_start.c_str());
    return EINVAL;
  }
  if (get_utc_timestamp_from_string(date_finish, period.finish) != 0) {
    RRM_LOG(LOG_ERROR, "Incorrect data/time for 'date_finish' in reports query (\"%s\").", date_finish.c_str());
    return EINVAL;
  }
  if (std::difftime(period.finish, period.start) > 0) return 0;
  RRM_LOG(LOG_ERROR, "'date_start' in reports query must < 'date_finish' (date_start = \"%s\", date_finish = \"%s\").",
          date_start.c_str(), date_finish.c_str());
  return EINVAL;
}

int read_report_date(const std::string& line, const std::string& filename, std::string& date, std::time_t& time) {
  if (get_date_time_fields_from_file_line_as_str(line, date) == 0 &&
      parse_date_time_fields_to_time_t(date, time) == 0) {
    return 0;
  }
  RRM_LOG(LOG_ERROR, "Incorrect report data/time in file: \"%s\", line: \"%s\".", filename.c_str(), line.c_str());
  return EIO;
}

// A line that cannot be read fails the query, but not before all others were listed.
int list_index(JsonWriter& writer, const std::string& domain, const std::string& filename, const Period& period) {
  LineReader index(filename);
  if (index.error() != 0) return index.error();
  JsonWriter data = JsonWriter::array(writer, "data");
  int result = 0;
  std::int32_t count = 0;
  const int error = index.for_each([&](const std::string& line) {
    std::string date;
    std::time_t time = 0;
    if (const int failure = read_report_date(line, filename, date, time)) {
      result = failure;
    } else if (period.contains(time)) {
      JsonWriter entry = JsonWriter::object(data, nullptr);
      add_report_name(entry, {report_id(date, domain), domain, date});
      ++count;
    }
    return true;
  });
  if (error != 0) return error;
  writer.add_int("count", count);
  return result;
}

int list_reports(JsonWriter& writer, const std::string& domain, const std::string& path, const std::string& date_start,
                 const std::string& date_finish, bool domain_exists) {
  const DomainReadAccess access(domain, path);
  if (access.error() != 0) return access.error();
  Period period;
  if (const int error = parse_period(date_start, date_finish, period)) return error;
  const std::string filename = get_report_index_file_name(domain, path);
  if (exists(filename) || !domain_exists) return list_index(writer, domain, filename, period);
  RRM_LOG(LOG_TRACE, "No reports for domain: \"%s\".", domain.c_str());
  JsonWriter::array(writer, "data");
  writer.add_int("count", 0);
  return 0;
}

// --- The newest one.

// The last line, without its LF, sought backward from the end.
int read_last_line(const std::string& filename, std::string& line) {
  constexpr std::streamoff block_size = 4096;
  errno = 0;
  std::ifstream file;
  file.exceptions(std::ios_base::badbit | std::ios_base::failbit);
  try {
    file.open(filename);
    file.peek();  // what cannot be read fails here, and not by an end that it does not have
    file.clear();
    file.seekg(0, std::ios_base::end);
    std::streamoff start = file.tellg();
    std::size_t previous_end = std::string::npos;
    while (start > 0 && previous_end == std::string::npos) {
      std::string block(static_cast<std::size_t>(std::min(start, block_size)), '\0');
      start -= static_cast<std::streamoff>(block.size());
      file.seekg(start);
      file.read(block.data(), static_cast<std::streamsize>(block.size()));
      // The file's last byte ends the line or is of it.
      const std::size_t searched = line.empty() ? block.size() - 1 : block.size();
      if (searched > 0) previous_end = block.rfind('\n', searched - 1);
      line.insert(0, block);
    }
    if (previous_end != std::string::npos) line.erase(0, previous_end + 1);
    if (line.ends_with('\n')) line.pop_back();
    return 0;
  } catch (const std::ios_base::failure& failure) {
    return stream_failure(failure);
  }
}

bool has_reports(const std::string& index) {
  struct stat status {};
  return ::stat(index.c_str(), &status) == 0 ? status.st_size > 1 : exists(index);
}

int last_report(JsonWriter& writer, const std::string& domain, const std::string& path, bool domain_exists) {
  const DomainReadAccess access(domain, path);
  if (access.error() != 0) return access.error();
  const std::string index = get_report_index_file_name(domain, path);
  if (domain_exists && !has_reports(index)) {
    RRM_LOG(LOG_TRACE, "No reports for domain: \"%s\".", domain.c_str());
    return 0;
  }
  std::string line;
  if (const int error = read_last_line(index, line)) return error;
  std::string date;
  std::time_t time = 0;
  if (const int error = read_report_date(line, index, date, time)) return error;
  const int error = get_radio_report_unlocked(writer, report_id(date, domain), path, domain, date);
  if (error != 0) RRM_LOG(LOG_ERROR, "Error call 'get_radio_report_unlocked'. Exit code: %d.", error);
  return error;
}

// --- The parts of a report.

void check_file_and_date(const char* function, const std::string& filename, const std::string& date) {
  if (filename.empty()) throw std::invalid_argument(std::string(function) + ": Invalid argument 'filename'.");
  if (date.empty()) throw std::invalid_argument(std::string(function) + ": Invalid argument 'requested_report_date'.");
}

int parser_error(const std::string& line) {
  RRM_LOG(LOG_ERROR, "Report parser error in string: \"%s\".", line.c_str());
  return EIO;
}

int parse_settings(const std::string& line, rrm::DomainConfig& config) {
  constexpr std::size_t first_setting = 3;
  for (std::size_t i = 0; i < report_settings.size(); ++i) {
    std::int32_t value = 0;
    if (get_field_by_num_as_int(line, first_setting + i, value) != 0) return parser_error(line);
    set_value(report_settings[i], config, value);
  }
  return 0;
}

// A line of the report data file.
struct ReportLine {
  std::string radio_mac;
  RadioReportRecord record;
  std::vector<std::int32_t> available_channels;
  bool has_eirp = false;  // lines of older versions end before it
};

struct NumberField {
  std::size_t num;
  std::int32_t RadioReportRecord::*member;
  bool with_eirp = false;
};
constexpr std::array<NumberField, 15> number_fields{{
    {5, &RadioReportRecord::power_before},
    {6, &RadioReportRecord::power_after},
    {7, &RadioReportRecord::channel_before},
    {8, &RadioReportRecord::channel_after},
    {9, &RadioReportRecord::radio_id},
    {10, &RadioReportRecord::bandwidth},
    {11, &RadioReportRecord::max_power},
    {12, &RadioReportRecord::min_power},
    {13, &RadioReportRecord::primary_channel},
    {15, &RadioReportRecord::eirp_before, true},
    {16, &RadioReportRecord::eirp_after, true},
    {17, &RadioReportRecord::eirp_min, true},
    {18, &RadioReportRecord::eirp_max, true},
    {19, &RadioReportRecord::antenna_gain, true},
    {20, &RadioReportRecord::cable_loss, true},
}};

int parse_channels(const std::string& text, std::vector<std::int32_t>& channels) {
  std::istringstream stream(text);
  std::string channel;
  while (std::getline(stream, channel, ' ')) {
    const ParsedInt parsed = str_to_int_with_log(channel);
    if (parsed.error != 0) return parsed.error;
    channels.push_back(parsed.value);
  }
  return 0;
}

int parse_radio(const std::string& line, ReportLine& radio) {
  std::string version;
  std::string channels;
  if (get_field_by_num_as_str(line, 0, version) != 0 || get_field_by_num_as_str(line, 4, radio.radio_mac) != 0 ||
      get_field_by_num_as_str(line, 14, channels) != 0 || parse_channels(channels, radio.available_channels) != 0) {
    return parser_error(line);
  }
  radio.has_eirp = version == report_version;
  for (const NumberField& field : number_fields) {
    if (field.with_eirp && !radio.has_eirp) continue;
    if (get_field_by_num_as_int(line, field.num, radio.record.*field.member) != 0) return parser_error(line);
  }
  return 0;
}

void write_state(JsonWriter& radio, const char* key, std::int32_t power, std::int32_t channel,
                 const std::int32_t* eirp) {
  JsonWriter state = JsonWriter::object(radio, key);
  state.add_int("power", power);
  state.add_int("channel", channel);
  if (eirp != nullptr) state.add_int("eirp", *eirp);
}

void write_radio(JsonWriter& interfaces, const ReportLine& line) {
  const RadioReportRecord& r = line.record;
  JsonWriter radio = JsonWriter::object(interfaces, nullptr);
  radio.add_int("radio_id", r.radio_id);
  radio.add_string("radio_mac", line.radio_mac);
  write_state(radio, "before", r.power_before, r.channel_before, line.has_eirp ? &r.eirp_before : nullptr);
  write_state(radio, "after", r.power_after, r.channel_after, line.has_eirp ? &r.eirp_after : nullptr);
  radio.add_int("bandwidth", r.bandwidth);
  radio.add_int("max_power", r.max_power);
  radio.add_int("min_power", r.min_power);
  radio.add_int("primary_channel", r.primary_channel);
  JsonWriter channels = JsonWriter::array(radio, "available_channels");
  for (const std::int32_t channel : line.available_channels) channels.add_int(nullptr, channel);
  if (!line.has_eirp) return;
  radio.add_int("eirp-min", r.eirp_min);
  radio.add_int("eirp-max", r.eirp_max);
  JsonWriter antenna = JsonWriter::object(radio, "antenna-configuration");
  antenna.add_int("antenna-gain", r.antenna_gain);
  antenna.add_int("cable-loss", r.cable_loss);
}

// Adds the lines of one report to `details`, in the order of the file, which brings the radios of an AP together.
class DetailsWriter {
 public:
  explicit DetailsWriter(JsonWriter& report) : details_(JsonWriter::array(report, "details")) {}

  int add(const std::string& line) {
    std::string mac;
    if (get_field_by_num_as_str(line, 3, mac) != 0) {
      RRM_LOG(LOG_ERROR, "Not found AP MAC-address in report line: \"%s\".", line.c_str());
      return EIO;
    }
    if (!ap_ || mac != mac_) begin_ap(mac);
    ReportLine radio;
    if (const int error = parse_radio(line, radio)) return error;
    write_radio(*interfaces_, radio);
    return 0;
  }

  bool empty() const { return !ap_; }

 private:
  void begin_ap(const std::string& mac) {
    mac_ = mac;
    interfaces_.reset();
    ap_.emplace(details_, false, nullptr);
    ap_->add_string("ap_mac", mac);
    interfaces_.emplace(*ap_, true, "radio_interfaces");
  }

  JsonWriter details_;
  std::string mac_;
  std::optional<JsonWriter> ap_;
  std::optional<JsonWriter> interfaces_;
};

// Adds a line if it is of the report; false ends the scan.
bool take_data_line(const std::string& line, const ReportName& name, const std::string& filename,
                    DetailsWriter& details, int& error) {
  std::string date;
  if (get_date_time_fields_from_file_line_as_str(line, date) != 0) {
    if (details.empty()) {
      RRM_LOG(LOG_ERROR, "Not found report data/time in file: \"%s\", line: \"%s\".", filename.c_str(), line.c_str());
      error = EIO;
    } else {
      RRM_LOG(LOG_TRACE, "Report loaded, but not found report data/time in file: \"%s\", line: \"%s\".",
              filename.c_str(), line.c_str());
    }
    return false;
  }
  if (date != name.date) return details.empty();
  error = details.add(line);
  return error == 0;
}

int not_found(const ReportName& name, int error) {
  RRM_LOG(LOG_ERROR, "Report not found. Report Id: \"%s\". Domain: \"%s\". Report date: \"%s\". Exit code: %d.",
          name.id.c_str(), name.domain.c_str(), name.date.c_str(), error);
  return error;
}

}  // namespace

int get_fields_from_report_id(const std::string& report_id, std::string& domain_name, std::string& report_date,
                              std::time_t& time) {
  if (get_field_by_num_as_str(report_id, 2, domain_name) != 0) {
    RRM_LOG(LOG_ERROR, "Not found domain name in 'report_id': \"%s\".", report_id.c_str());
    return EINVAL;
  }
  // The domain is the third field, so there are two commas.
  report_date = report_id.substr(0, report_id.find(',', report_id.find(',') + 1));
  if (parse_date_time_fields_to_time_t(report_date, time) == 0) return 0;
  RRM_LOG(LOG_ERROR, "Incorrect data/time in 'report_id': \"%s\".", report_id.c_str());
  return EINVAL;
}

int get_radio_report_domain_config(JsonWriter& report, const ReportName& name, const std::string& filename) {
  check_file_and_date(__func__, filename, name.date);
  JsonWriter object = JsonWriter::object(report, "domain_config");
  bool found = false;
  int error = 0;
  const int read_error = for_each_line(filename, [&](const std::string& line) {
    std::string date;
    if (get_date_time_fields_from_file_line_as_str(line, date) != 0) {
      RRM_LOG(LOG_ERROR, "Not found report data/time in file: \"%s\", line: \"%s\".", filename.c_str(), line.c_str());
      error = EIO;
      return false;
    }
    if (date != name.date) return true;
    found = true;
    rrm::DomainConfig config;
    error = parse_settings(line, config);
    if (error == 0) rrm::write_settings(config, object);
    return false;
  });
  if (read_error != 0 || error != 0) return read_error != 0 ? read_error : error;
  if (found) return 0;
  RRM_LOG(LOG_ERROR,
          "Domain config for report not found. Report Id: \"%s\". Domain: \"%s\". Report date: \"%s\". File: \"%s\".",
          name.id.c_str(), name.domain.c_str(), name.date.c_str(), filename.c_str());
  return EINVAL;
}

int get_radio_report_data(JsonWriter& report, const ReportName& name, const std::string& filename) {
  check_file_and_date(__func__, filename, name.date);
  DetailsWriter details(report);
  int error = 0;
  const int read_error = for_each_line(
      filename, [&](const std::string& line) { return take_data_line(line, name, filename, details, error); });
  if (read_error != 0 || error != 0) return read_error != 0 ? read_error : error;
  if (!details.empty()) return 0;
  RRM_LOG(LOG_ERROR, "Report data not found. Report Id: \"%s\". Domain: \"%s\". Report date: \"%s\". File: \"%s\".",
          name.id.c_str(), name.domain.c_str(), name.date.c_str(), filename.c_str());
  return EINVAL;
}

int get_radio_report_unlocked(JsonWriter& writer, const std::string& report_id, const std::string& report_files_path,
                              const std::string& domain_name, const std::string& report_date) {
  const ReportName name{report_id, domain_name, report_date};
  const ReportFiles files(domain_name, report_files_path);
  JsonWriter report = JsonWriter::object(writer, "report");
  add_report_name(report, name);
  int error = get_radio_report_domain_config(report, name, files.config);
  if (error != 0) {
    RRM_LOG(LOG_ERROR, "Error call 'get_radio_report_domain_config'.");
    return not_found(name, error);
  }
  error = get_radio_report_data(report, name, files.report);
  if (error == 0) return 0;
  RRM_LOG(LOG_ERROR, "Error call 'get_radio_report_data'.");
  return not_found(name, error);
}

int get_radio_report_list(JsonWriter& writer, const std::string& domain_name, const std::string& report_files_path,
                          const std::string& date_start, const std::string& date_finish, bool domain_exists) {
  if (!given(domain_name, "domain_name") || !given(report_files_path, "report_files_path") ||
      !given(date_start, "date_start") || !given(date_finish, "date_finish")) {
    return EINVAL;
  }
  const int error = list_reports(writer, domain_name, report_files_path, date_start, date_finish, domain_exists);
  if (error != 0) {
    RRM_LOG(LOG_ERROR,
            "Query reports list exit with error code: %d. Domain: \"%s\". Reports start date: \"%s\". Reports end "
            "date: \"%s\".",
            error, domain_name.c_str(), date_start.c_str(), date_finish.c_str());
    rrm::emit_event_text(19, domain_name);
  }
  return error;
}

int get_radio_report(JsonWriter& writer, const std::string& report_id, const std::string& report_files_path) {
  if (report_id.empty()) {
    RRM_LOG(LOG_ERROR, "Argument 'report_id' is empty.");
    return EINVAL;
  }
  if (report_files_path.empty()) {
    RRM_LOG(LOG_ERROR, "Argument 'report_files_path' is empty.");
    return EINVAL;
  }
  std::string domain;
  std::string date;
  std::time_t time = 0;
  if (const int error = get_fields_from_report_id(report_id, domain, date, time)) {
    RRM_LOG(LOG_ERROR, "Error call 'get_fields_from_report_id'.");
    rrm::emit_event_text(21, report_id);
    return error;
  }
  const DomainReadAccess access(domain, report_files_path);
  if (access.error() != 0) {
    rrm::emit_event_text(21, report_id);
    return access.error();
  }
  return get_radio_report_unlocked(writer, report_id, report_files_path, domain, date);
}

int get_last_radio_report(JsonWriter& writer, const std::string& domain_name, const std::string& report_files_path,
                          bool domain_exists) {
  if (!given(domain_name, "domain_name") || !given(report_files_path, "report_files_path")) return EINVAL;
  const int error = last_report(writer, domain_name, report_files_path, domain_exists);
  if (error != 0) {
    RRM_LOG(LOG_ERROR, "Query last radio report exit with error code: %d. Domain: \"%s\".", error, domain_name.c_str());
    rrm::emit_event_text(20, domain_name);
  }
  return error;
}

}  // namespace reports
