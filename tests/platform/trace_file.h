// The process's log as a test reads it: while the object lives, Trace writes to a file of its own.
#pragma once

#include <cstdarg>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "platform/standalone/TraceLog.h"
#include "support/temp_dir.h"
#include "zal/Trace.h"

namespace zal::testing {

// A line of the server library.
__attribute__((format(printf, 2, 3))) inline void library_line(const Trace& trace, const char* format, ...) {
  va_list args;
  va_start(args, format);
  trace.ap_lib_limited_ap(format, args);
  va_end(args);
}

class TraceFile {
 public:
  TraceFile() {
    setenv(trace_file_variable, path().c_str(), 1);
    Trace::global_init("test");
  }
  ~TraceFile() {
    Trace::global_deinit();
    unsetenv(trace_file_variable);
  }
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  std::string path() const { return directory_.file("log"); }
  // All lines so far, without their times.
  std::vector<std::string> lines() const {
    constexpr std::size_t time_size = sizeof "2026-01-02T03:04:05.678Z";
    std::istringstream text(rrm::testing::read_file(path()));
    std::vector<std::string> all;
    for (std::string line; std::getline(text, line);)
      all.push_back(line.size() > time_size ? line.substr(time_size) : line);
    return all;
  }

 private:
  rrm::testing::TempDir directory_;
};

// Holds from its construction to its end, and then the defaults hold again.
class AppliedConfig {
 public:
  explicit AppliedConfig(const TraceConfig& config) { TraceLog::instance().apply(config); }
  ~AppliedConfig() { TraceLog::instance().apply(TraceConfig()); }
  AppliedConfig(const AppliedConfig&) = delete;
  AppliedConfig& operator=(const AppliedConfig&) = delete;

  static TraceConfig without_budgets() {
    TraceConfig config;
    config.lines_per_second = config.library_lines_per_second = 0;
    return config;
  }
  static TraceConfig from_grade(Grade lowest) {
    TraceConfig config;
    config.lowest_grade = lowest;
    return config;
  }
};

}  // namespace zal::testing
