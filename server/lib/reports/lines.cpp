#include "reports/lines.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <limits>
#include <sstream>
#include <string_view>

#include "core/log.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

constexpr const char* date_format = "%Y-%m-%d,%H:%M:%S";
constexpr std::string_view query_zone = " UTC";

// Where the field begins; npos where there are not so many.
std::size_t start_of_field(const std::string& source, std::size_t num, char separator) {
  std::size_t start = 0;
  for (; num > 0; --num) {
    const std::size_t end = source.find(separator, start);
    if (end == std::string::npos) return end;
    start = end + 1;
  }
  return start;
}

}  // namespace

std::string report_date_text(std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << std::put_time(&utc, date_format);
  return text.str();
}

int get_field_by_num_as_str(const std::string& source, std::size_t num, std::string& out, char separator,
                            bool allow_empty) {
  out.clear();
  if (source.empty()) {
    RRM_LOG(LOG_ERROR, "'source' string is empty.");
    return EINVAL;
  }
  const std::size_t start = start_of_field(source, num, separator);
  if (start == std::string::npos) {
    RRM_LOG(LOG_ERROR, "Not found field %zu in string: \"%s\".", num, source.c_str());
    return EINVAL;
  }
  const std::size_t end = source.find(separator, start);
  out.assign(source, start, end == std::string::npos ? end : end - start);
  if (!out.empty() || allow_empty) return 0;
  if (end == std::string::npos) {
    RRM_LOG(LOG_ERROR, "Requested field %zu is empty (string: \"%s\").", num, source.c_str());
  } else {
    RRM_LOG(LOG_ERROR, "Requested empty field %zu in string: \"%s\".", num, source.c_str());
  }
  return EINVAL;
}

ParsedInt str_to_int_with_log(const std::string& text) {
  if (text.empty()) {
    RRM_LOG(LOG_ERROR, "String for convert is empty.");
    return {0, EINVAL};
  }
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 0);
  if (errno != 0) {
    const int error = errno;
    RRM_LOG(LOG_ERROR, "Argument \"%s\" invalid. Error code: %d (%s).", text.c_str(), error, std::strerror(error));
    return {0, error};
  }
  if (value > std::numeric_limits<std::int32_t>::max()) {
    RRM_LOG(LOG_ERROR, "Argument \"%s\" too big.", text.c_str());
    return {0, EINVAL};
  }
  if (value < std::numeric_limits<std::int32_t>::min()) {
    RRM_LOG(LOG_ERROR, "Argument \"%s\" too small.", text.c_str());
    return {0, EINVAL};
  }
  if (end != text.c_str() + text.size()) {
    RRM_LOG(LOG_ERROR, "Argument \"%s\" inconvertible.", text.c_str());
    return {0, EINVAL};
  }
  return {static_cast<std::int32_t>(value), 0};
}

int get_field_by_num_as_int(const std::string& source, std::size_t num, std::int32_t& out, char separator) {
  out = 0;
  std::string text;
  if (const int error = get_field_by_num_as_str(source, num, text, separator)) return error;
  const ParsedInt parsed = str_to_int_with_log(text);
  if (parsed.error != 0) {
    RRM_LOG(LOG_ERROR, "Incorrect field %zu in string: \"%s\".", num, source.c_str());
    return parsed.error;
  }
  out = parsed.value;
  return 0;
}

int get_date_time_fields_from_file_line_as_str(const std::string& line, std::string& out) {
  out.clear();
  std::string date;
  if (const int error = get_field_by_num_as_str(line, 1, date)) {
    RRM_LOG(LOG_ERROR, "Not found date in report line: \"%s\".", line.c_str());
    return error;
  }
  std::string time;
  if (const int error = get_field_by_num_as_str(line, 2, time)) {
    RRM_LOG(LOG_ERROR, "Not found time in report line: \"%s\".", line.c_str());
    return error;
  }
  out = date + "," + time;
  return 0;
}

int parse_date_time_fields_to_time_t(const std::string& text, std::time_t& time) {
  time = -1;
  std::tm utc{};
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  stream >> std::get_time(&utc, date_format);
  if (stream.fail()) {
    RRM_LOG(LOG_ERROR, "Parser error in string: \"%s\".", text.c_str());
    return EINVAL;
  }
  time = timegm(&utc);
  if (time != -1) return 0;
  RRM_LOG(LOG_ERROR, "Incorrect data/time in string: \"%s\".", text.c_str());
  return EINVAL;
}

int get_utc_timestamp_from_string(const std::string& text, std::time_t& time) {
  time = -1;
  if (text.size() != report_date_length + query_zone.size()) {
    RRM_LOG(LOG_ERROR, "Incorrect text length in: \"%s\".", text.c_str());
    return EINVAL;
  }
  if (!text.ends_with(query_zone)) {
    RRM_LOG(LOG_ERROR, "Expected UTC timezone in: \"%s\".", text.c_str());
    return EINVAL;
  }
  if (parse_date_time_fields_to_time_t(text.substr(0, report_date_length), time) == 0) return 0;
  RRM_LOG(LOG_ERROR, "Incorrect data/time in: \"%s\".", text.c_str());
  return EINVAL;
}

}  // namespace reports
