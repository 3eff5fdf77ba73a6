// Test faces of the log hook, the event hook and the clock. Each is installed for the life of the object.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include "core/clock.h"
#include "core/log.h"
#include "core/mutex.h"

namespace rrm::testing {

struct LogLine {
  int level = 0;
  std::string text;
  bool operator==(const LogLine&) const = default;
};

struct Event {
  int id = 0;
  bool has_payload = false;
  std::string payload;
  bool operator==(const Event&) const = default;
};

// The text of a log line as the hook is handed it.
std::string format_text(const char* format, va_list args);

// How gtest prints the two.
void PrintTo(const LogLine& line, std::ostream* out);
void PrintTo(const Event& event, std::ostream* out);

// Collects every log line and every event of the process while it lives. One at a time.
class Capture {
 public:
  Capture();
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  std::vector<LogLine> lines() const;
  // The texts of one level, in order.
  std::vector<std::string> lines(int level) const;
  bool has_line(int level, const std::string& text) const;
  std::size_t count(const std::string& text) const;
  std::vector<Event> events() const;
  void clear();

 private:
  static void on_log(const char*, int, const char*, int level, const char* format, va_list args);
  static void on_event(const int& id, const std::shared_ptr<std::string>& payload);

  mutable Mutex mutex_;
  std::vector<LogLine> lines_ RRM_GUARDED_BY(mutex_);
  std::vector<Event> events_ RRM_GUARDED_BY(mutex_);
};

// Time that stands still until a test moves it.
class ManualClock final : public Clock {
 public:
  explicit ManualClock(std::int64_t monotonic = 1000, std::int64_t wall = 1700000000);
  ~ManualClock() override;
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  std::int64_t monotonic_seconds() const override { return monotonic_; }
  std::optional<std::int64_t> wall_seconds() const override;
  void advance(std::int64_t seconds);
  void set_wall(std::int64_t seconds) { wall_ = seconds; }
  void fail_wall(bool fail) { wall_fails_ = fail; }

 private:
  std::atomic<std::int64_t> monotonic_;
  std::atomic<std::int64_t> wall_;
  std::atomic<bool> wall_fails_{false};
};

}  // namespace rrm::testing
