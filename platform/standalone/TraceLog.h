// Where the lines of all Trace objects of the process go: the file that ZAL_TRACE_FILE names, renamed when it grows too
// long, or standard error. open and close belong to the main thread while no other thread logs; the rest is for any
// thread. Lines are written at once, so that nothing is lost in a crash.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/standalone/KindLimit.h"
#include "platform/standalone/RateLimit.h"
#include "platform/standalone/TraceConfig.h"

namespace spdlog {
class logger;
}

namespace zal {

class TraceLog {
 public:
  // The process's own; never destroyed, so that exit functions may still log.
  static TraceLog& instance();

  void open(const char* process_name);
  void close();
  // Reads the configuration file again. A bad key keeps its default and is logged.
  void configure();
  // What of a configuration may change while the log is open holds from now on.
  void apply(const TraceConfig& config);

  // False if a line of the grade is not wanted or one too many this second: such a line costs some atomic operations,
  // whoever else is writing. Lines of one kind, those of one format, have a budget of their own, so that a chatty kind
  // does not silence the others; a library's is smaller.
  bool admits(Grade grade, const char* format) { return admits(grade, format, lines_); }
  bool admits_of_library(Grade grade, const char* format) { return admits(grade, format, library_lines_); }
  void write(Grade grade, const std::string& name, std::string_view text, bool to_console);

 private:
  TraceLog() = default;
  bool admits(Grade grade, const char* format, KindLimit& limit);
  bool writes(Grade grade) const { return static_cast<int>(grade) >= lowest_grade_.load(std::memory_order_relaxed); }
  void report_refused_lines();
  TraceConfig read_config();

  std::shared_ptr<spdlog::logger> logger_;  // set by open, constant afterwards
  std::atomic<bool> is_open_{false};
  std::atomic<int> lowest_grade_{static_cast<int>(TraceConfig{}.lowest_grade)};
  KindLimit lines_{TraceConfig{}.lines_per_second};
  KindLimit library_lines_{TraceConfig{}.library_lines_per_second};
  RateLimit reports_{1};  // of lines that were not logged
};

// One line of the log: a text may come from anybody, so control characters are written as \xNN, what follows a line
// break is indented, and a break at the end is dropped. No text can look like another line of the log.
std::string safe_line(std::string_view text);

// Environment variable of a process: the file that its log goes to.
constexpr const char* trace_file_variable = "ZAL_TRACE_FILE";

}  // namespace zal
