#include "support/journal.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <utility>

#include "core/log.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

std::atomic<Journal*> current{nullptr};

std::string level_name(int level) {
  switch (level) {
    case LOG_TRACE:
      return "TRACE";
    case LOG_ERROR:
      return "ERROR";
    case LOG_WARNING:
      return "WARNING";
    case LOG_EVENT:
      return "EVENT-LOG";
    default:
      return "LEVEL-" + std::to_string(level);
  }
}

void silent_log(const char*, int, const char*, int, const char*, va_list) {}

}  // namespace

Journal::Journal() {
  current = this;
  set_log_hook(on_log);
  set_event_hook(on_event);
}

Journal::~Journal() {
  set_log_hook(silent_log);
  set_event_hook(nullptr);
  current = nullptr;
}

void Journal::note(const std::string& line) {
  MutexLock lock(mutex_);
  lines_.push_back(line);
}

std::vector<std::string> Journal::take() {
  MutexLock lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<std::string> Journal::lines(const std::string& prefix) const {
  MutexLock lock(mutex_);
  std::vector<std::string> found;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
               [&](const std::string& line) { return line.starts_with(prefix); });
  return found;
}

bool Journal::has(const std::string& line) const {
  MutexLock lock(mutex_);
  return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
}

void Journal::on_log(const char*, int, const char*, int level, const char* format, va_list args) {
  if (level == LOG_DUMP) return;
  if (Journal* journal = current) journal->note(level_name(level) + " " + format_text(format, args));
}

void Journal::on_event(const int& id, const std::shared_ptr<std::string>& payload) {
  if (Journal* journal = current) {
    journal->note("EVENT " + std::to_string(id) + (payload != nullptr ? " " + *payload : ""));
  }
}

}  // namespace rrm::testing
