#include "platform/standalone/TraceLog.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <sstream>

namespace zal {

namespace {

constexpr const char* own_name = "TRACE";

// Empty if it cannot be opened or read: an inserter keeps the exceptions of a buffer to itself.
std::string read_file(const char* path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

std::uint32_t current_second() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return static_cast<std::uint32_t>(now.tv_sec);
}

spdlog::sink_ptr make_sink(const TraceConfig& config, std::string& complaint) {
  const char* path = std::getenv(trace_file_variable);
  if (path && *path) try {
      return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, config.max_file_bytes, config.max_files);
    } catch (const std::exception& e) {
      complaint = e.what();
    }
  return std::make_shared<spdlog::sinks::stderr_sink_mt>();
}

std::string compose(Grade grade, const std::string& name, std::string_view text) {
  constexpr const char* labels[] = {"AP   ", "SYS  ", "WARN ", "ERROR"};
  return std::string(labels[static_cast<int>(grade)]) + " [" + name + "] " + safe_line(text);
}

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

void append_escaped(std::string& line, char c) {
  char escaped[8];
  std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
  line += escaped;
}

}  // namespace

std::string safe_line(std::string_view text) {
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  std::string line;
  line.reserve(text.size());
  for (const char c : text) {
    if (c == '\n')
      line += "\n    ";
    else if (is_control(c) && c != '\t')
      append_escaped(line, c);
    else
      line += c;
  }
  return line;
}

TraceLog& TraceLog::instance() {
  static auto* const log = new TraceLog;
  return *log;
}

void TraceLog::open(const char* process_name) {
  const TraceConfig config = read_config();
  std::string complaint;
  logger_ = std::make_shared<spdlog::logger>(process_name, make_sink(config, complaint));
  logger_->set_formatter(
      std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%eZ %v", spdlog::pattern_time_type::utc));
  logger_->set_level(spdlog::level::trace);
  logger_->flush_on(spdlog::level::trace);
  is_open_ = true;
  if (!complaint.empty()) write(Grade::error, own_name, "the log goes to standard error: " + complaint, false);
}

void TraceLog::close() {
  report_refused_lines();
  is_open_ = false;
}

void TraceLog::configure() {
  const TraceConfig config = read_config();
  write(Grade::sys, own_name,
        std::string("grade ") + grade_name(config.lowest_grade) + ", a second at most " +
            std::to_string(config.lines_per_second) + " lines of each kind, " +
            std::to_string(config.library_lines_per_second) + " of the library",
        false);
}

TraceConfig TraceLog::read_config() {
  std::string complaint;
  const TraceConfig config = parse_trace_config(read_file(TraceConfig::path), complaint);
  apply(config);
  if (!complaint.empty()) write(Grade::error, own_name, std::string(TraceConfig::path) + ": " + complaint, false);
  return config;
}

void TraceLog::apply(const TraceConfig& config) {
  lowest_grade_ = static_cast<int>(config.lowest_grade);
  lines_.set_per_second(config.lines_per_second);
  library_lines_.set_per_second(config.library_lines_per_second);
}

bool TraceLog::admits(Grade grade, const char* format, KindLimit& limit) {
  if (!writes(grade)) return false;
  const std::uint32_t second = current_second();
  if (!limit.admit(format, second)) return false;
  if (reports_.admit(second)) report_refused_lines();
  return true;
}

// While warnings are not wanted the count goes on.
void TraceLog::report_refused_lines() {
  if (!writes(Grade::warn)) return;
  const std::uint64_t refused = lines_.take_refused() + library_lines_.take_refused();
  if (refused > 0)
    write(Grade::warn, own_name, std::to_string(refused) + " lines not logged: too many of their kind in a second",
          false);
}

void TraceLog::write(Grade grade, const std::string& name, std::string_view text, bool to_console) {
  if (!writes(grade)) return;
  const std::string line = compose(grade, name, text);
  const bool open = is_open_;
  if (open) logger_->log(spdlog::level::info, spdlog::string_view_t(line));
  if (!open || to_console) std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace zal
