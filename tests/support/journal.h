// Everything that the outside sees of the server, in one list in the order in which it happened: log lines, events and,
// where a test's own face of the server notes them, messages sent. Installed as log and event hook for its life; one at
// a time, and not together with a Capture.
#pragma once

#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

#include "core/mutex.h"

namespace rrm::testing {

class Journal {
 public:
  Journal();
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Puts a line of a test's own at the end.
  void note(const std::string& line);

  // All lines since the last call. A log line is its level's name and its text ("TRACE Start worker lab"); LOG_DUMP
  // lines are left out. An event is "EVENT 23 lab", or "EVENT 0" without a payload.
  std::vector<std::string> take();
  // The lines since the last `take` that begin with `prefix`; takes nothing.
  std::vector<std::string> lines(const std::string& prefix) const;
  bool has(const std::string& line) const;

 private:
  static void on_log(const char*, int, const char*, int level, const char* format, va_list args);
  static void on_event(const int& id, const std::shared_ptr<std::string>& payload);

  mutable Mutex mutex_;
  std::vector<std::string> lines_ RRM_GUARDED_BY(mutex_);
};

}  // namespace rrm::testing
