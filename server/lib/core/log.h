// The server library's only two ways to report anything: a log line and a numbered event. The library never names what
// stands behind them; the process installs the targets before it starts any thread and never changes them afterwards,
// so both hooks are read without a lock.
#pragma once

#include <cstdarg>
#include <memory>
#include <string>

namespace rrm {

// The library's own classification of its log lines; the values are part of the log hook's contract.
enum LogLevel : int {
  LOG_DUMP = 2,      // multi-line dumps of state
  LOG_TRACE = 4,     // message traces, start and stop notes
  LOG_ERROR = 16,    // errors
  LOG_WARNING = 32,  // warnings, rejected values
  LOG_EVENT = 128,   // notable state changes
};

using LogHook = void (*)(const char* file, int line, const char* function, int level, const char* format, va_list args);
using EventHook = void (*)(const int& event_id, const std::shared_ptr<std::string>& payload);

// Packs the arguments and hands them to the log hook. Until one is set, the text goes to standard output with a
// newline.
void log_message(const char* file, int line, const char* function, int level, const char* format, ...)
    __attribute__((format(printf, 5, 6)));
void set_log_hook(LogHook hook);

// Raises a numbered event; the payload may be null. Without an event hook nothing happens.
void emit_event(const int& event_id, const std::shared_ptr<std::string>& payload);
void set_event_hook(EventHook hook);

// emit_event with a text that is copied, or without one.
void emit_event_text(int event_id, const std::string& payload);
void emit_event_plain(int event_id);

}  // namespace rrm

// The call site's file, line and function come from here, so that no caller can get them wrong.
#define RRM_LOG(level, ...) ::rrm::log_message(__FILE__, __LINE__, __func__, (level), __VA_ARGS__)
