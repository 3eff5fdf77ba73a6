#include "zal/Trace.h"

#include <cstdio>
#include <exception>

#include "platform/standalone/TraceLog.h"

namespace zal {

namespace {

__attribute__((format(printf, 1, 0))) std::string format_text(const char* fmt, va_list args) {
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, args);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, fmt, again);
  va_end(again);
  return length < 0 ? fmt : text;
}

// A process must not die of its log: of what fails, for want of memory, only this much is told.
template <class Action>
void without_failing(const char* what, const Action& action) noexcept {
  try {
    action();
  } catch (const std::exception&) {
    std::fprintf(stderr, "not logged: %s\n", what);
  }
}

}  // namespace

void Trace::global_init(const char* process_name) {
  without_failing("start", [process_name] { TraceLog::instance().open(process_name); });
}

void Trace::global_deinit() {
  without_failing("end", [] { TraceLog::instance().close(); });
}

Trace::Trace(const std::string& name, bool to_console) : name_(name), to_console_(to_console) {}

// The four grades differ in nothing but the grade. The arguments are looked at only once the line has passed.
#define ZAL_TRACE_GRADE(grade)                                                                                \
  void Trace::grade(const char* fmt, ...) const {                                                             \
    va_list args;                                                                                             \
    va_start(args, fmt);                                                                                      \
    without_failing(fmt, [&] {                                                                                \
      TraceLog& log = TraceLog::instance();                                                                   \
      if (log.admits(Grade::grade, fmt)) log.write(Grade::grade, name_, format_text(fmt, args), to_console_); \
    });                                                                                                       \
    va_end(args);                                                                                             \
  }
ZAL_TRACE_GRADE(ap)
ZAL_TRACE_GRADE(sys)
ZAL_TRACE_GRADE(warn)
ZAL_TRACE_GRADE(error)
#undef ZAL_TRACE_GRADE

void Trace::error_mac(const MacAddr& mac, const char* fmt, ...) const {
  va_list args;
  va_start(args, fmt);
  without_failing(fmt, [&] {
    TraceLog& log = TraceLog::instance();
    if (mac_filter_.passes(mac) && log.admits(Grade::error, fmt))
      log.write(Grade::error, name_, mac.to_string() + ": " + format_text(fmt, args), to_console_);
  });
  va_end(args);
}

void Trace::ap_limited(const char* fmt, ...) const {
  va_list args;
  va_start(args, fmt);
  ap_lib_limited_ap(fmt, args);
  va_end(args);
}

void Trace::ap_lib_limited_ap(const char* fmt, va_list args) const {
  without_failing(fmt, [&] {
    TraceLog& log = TraceLog::instance();
    if (log.admits_of_library(Grade::ap, fmt)) log.write(Grade::ap, name_, format_text(fmt, args), to_console_);
  });
}

void Trace::reload_config() const {
  without_failing("reload_config", [] { TraceLog::instance().configure(); });
}

}  // namespace zal
