// Reading the lines of report files: fields separated by commas, numbers, and dates in UTC. All functions that return
// int return 0 for success, else an errno value (22 for what is missing or malformed), after a log line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace reports {

inline constexpr const char* report_version = "1.1";

// The length of "YYYY-MM-DD,HH:MM:SS".
inline constexpr std::size_t report_date_length = 19;
// The date and time text of a moment, in UTC.
std::string report_date_text(std::time_t time);

// The text between the `num`-th separator and the next, from 0; the last field runs to the end.
int get_field_by_num_as_str(const std::string& source, std::size_t num, std::string& out, char separator = ',',
                            bool allow_empty = false);
int get_field_by_num_as_int(const std::string& source, std::size_t num, std::int32_t& out, char separator = ',');

struct ParsedInt {
  std::int32_t value = 0;
  int error = 0;
};
// As strtol reads it, so that "0x10" and "010" are 16 and 8.
ParsedInt str_to_int_with_log(const std::string& text);

// Fields 1 and 2 of a line, joined again.
int get_date_time_fields_from_file_line_as_str(const std::string& line, std::string& out);
int parse_date_time_fields_to_time_t(const std::string& text, std::time_t& time);
// "YYYY-MM-DD,HH:MM:SS UTC", as queries give it.
int get_utc_timestamp_from_string(const std::string& text, std::time_t& time);

}  // namespace reports
