#include "core/log.h"

#include <cstdio>

namespace rrm {
namespace {

void print_log(const char*, int, const char*, int, const char* format, va_list args) {
  const std::string line = std::string(format) + "\n";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::vprintf(line.c_str(), args);
#pragma GCC diagnostic pop
}

LogHook log_hook = print_log;
EventHook event_hook = nullptr;

}  // namespace

void log_message(const char* file, int line, const char* function, int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  log_hook(file, line, function, level, format, args);
  va_end(args);
}

void set_log_hook(LogHook hook) {
  log_hook = hook;
}

void emit_event(const int& event_id, const std::shared_ptr<std::string>& payload) {
  if (event_hook != nullptr) event_hook(event_id, payload);
}

void set_event_hook(EventHook hook) {
  event_hook = hook;
}

void emit_event_text(int event_id, const std::string& payload) {
  emit_event(event_id, std::make_shared<std::string>(payload));
}

void emit_event_plain(int event_id) {
  emit_event(event_id, nullptr);
}

}  // namespace rrm
