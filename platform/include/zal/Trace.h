// The controller's logging. A Trace is a named source of lines; all sources of a process share one destination, which
// global_init opens and global_deinit closes. A Trace may be constructed before global_init, as a static object; a line
// written before global_init or after global_deinit goes to standard error. All operations may be called from any
// thread, and none of them throws or fails visibly: a process must not die of its log.
//
// Four grades, from the most to the least talkative: ap (what concerns single access points), sys (the process), warn,
// error. The logging configuration tells the lowest grade that is written; reload_config reads it again. No line floods
// the log: whether one passes is decided before it is formatted and without a lock, and those that do not are counted
// and reported. Formats must live as long as the process.
#pragma once

#include <cstdarg>
#include <string>

#include "zal/MacAddr.h"
#include "zal/MacFilter.h"

namespace zal {

class Trace {
 public:
  // Opens the log under the process's name. Once, before any thread is started.
  static void global_init(const char* process_name);
  // Reports what is still to be reported and closes the log. May serve as the process's exit function.
  static void global_deinit();

  // With to_console every line is also written to standard error.
  Trace(const std::string& name, bool to_console);

  void ap(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
  void sys(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
  void warn(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
  void error(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
  // An error that is tied to a device, whose address stands in the line. The MAC filter decides about it first.
  void error_mac(const MacAddr& mac, const char* fmt, ...) const __attribute__((format(printf, 3, 4)));
  // Grade ap for bulk text, which may come with every message of an access point: only so many lines of one format pass
  // in a second, fewer than of the other grades. The second form is for the text of a library.
  void ap_limited(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
  void ap_lib_limited_ap(const char* fmt, va_list args) const __attribute__((format(printf, 2, 0)));

  // Reads the logging configuration again, for the whole process.
  void reload_config() const;

  // This source's own; off and empty at first.
  MacFilter& mac_filter() const { return mac_filter_; }

 private:
  std::string name_;
  bool to_console_;
  mutable MacFilter mac_filter_;
};

}  // namespace zal
