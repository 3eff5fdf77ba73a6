// The parts of the daily rewrite that stand for themselves. Times are seconds since the epoch, lives are days; the int
// results are 0 or an errno value, after a log line.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace reports {

// A record without a readable date, or from the future, is as good as expired.
bool is_report_line_expired_or_invalid(const std::string& line, std::time_t now, double ttl_seconds,
                                       const std::string& filename);

int count_expired_reports_in_file(std::time_t now, std::uint32_t days_to_live, const std::string& filename,
                                  std::uint32_t& count);

// Writes what is to stay to the file's ".tmp". A file without any line has none. Throws std::invalid_argument for an
// empty name or 0 days.
int copy_new_reports_from_one_file(std::time_t now, std::uint32_t days_to_live, const std::string& filename,
                                   std::uint32_t& removed_count);

}  // namespace reports
