// The logging configuration of the standalone platform, read from /etc/zal/trace.json at start and at each reload. A
// missing file or key means the default.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zal {

enum class Grade : int { ap = 0, sys = 1, warn = 2, error = 3 };
const char* grade_name(Grade grade);

struct TraceConfig {
  static constexpr const char* path = "/etc/zal/trace.json";

  Grade lowest_grade = Grade::ap;                // "grade": "ap", "sys", "warn" or "error"
  std::uint32_t lines_per_second = 1000;         // of each kind; 1 to 1000000
  std::uint32_t library_lines_per_second = 100;  // of each kind; 0 to 1000000
  std::size_t max_file_bytes = 10u << 20;        // 65536 to 1073741824; a longer log is renamed. Read at start only
  std::size_t max_files = 5;                     // 1 to 100 renamed logs are kept. Read at start only
  bool operator==(const TraceConfig&) const = default;
};

// Takes over every key that is good; a complaint names each that is not, and is empty if all are. An empty text, as a
// missing file reads, is good.
TraceConfig parse_trace_config(std::string_view text, std::string& complaint);

}  // namespace zal
