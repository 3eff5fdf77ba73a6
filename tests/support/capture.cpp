#include "support/capture.h"

#include <algorithm>
#include <cstdio>
#include <ostream>

namespace rrm::testing {
namespace {

std::atomic<Capture*> current{nullptr};

void print_log(const char*, int, const char*, int, const char* format, va_list args) {
  std::puts(format_text(format, args).c_str());
}

}  // namespace

std::string format_text(const char* format, va_list args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, args);
#pragma GCC diagnostic pop
  return text;
}

void PrintTo(const LogLine& line, std::ostream* out) {
  *out << "{" << line.level << ", \"" << line.text << "\"}";
}

void PrintTo(const Event& event, std::ostream* out) {
  *out << "{event " << event.id << ", " << (event.has_payload ? "\"" + event.payload + "\"" : "null") << "}";
}

Capture::Capture() {
  current = this;
  set_log_hook(on_log);
  set_event_hook(on_event);
}

Capture::~Capture() {
  set_log_hook(print_log);
  set_event_hook(nullptr);
  current = nullptr;
}

void Capture::on_log(const char*, int, const char*, int level, const char* format, va_list args) {
  Capture* capture = current;
  if (capture == nullptr) return;
  std::string text = format_text(format, args);
  MutexLock lock(capture->mutex_);
  capture->lines_.push_back({level, std::move(text)});
}

void Capture::on_event(const int& id, const std::shared_ptr<std::string>& payload) {
  Capture* capture = current;
  if (capture == nullptr) return;
  MutexLock lock(capture->mutex_);
  capture->events_.push_back({id, payload != nullptr, payload != nullptr ? *payload : std::string()});
}

std::vector<LogLine> Capture::lines() const {
  MutexLock lock(mutex_);
  return lines_;
}

std::vector<std::string> Capture::lines(int level) const {
  std::vector<std::string> texts;
  for (const LogLine& line : lines()) {
    if (line.level == level) texts.push_back(line.text);
  }
  return texts;
}

bool Capture::has_line(int level, const std::string& text) const {
  const auto all = lines();
  return std::find(all.begin(), all.end(), LogLine{level, text}) != all.end();
}

std::size_t Capture::count(const std::string& text) const {
  const auto all = lines();
  return static_cast<std::size_t>(
      std::count_if(all.begin(), all.end(), [&](const LogLine& line) { return line.text == text; }));
}

std::vector<Event> Capture::events() const {
  MutexLock lock(mutex_);
  return events_;
}

void Capture::clear() {
  MutexLock lock(mutex_);
  lines_.clear();
  events_.clear();
}

ManualClock::ManualClock(std::int64_t monotonic, std::int64_t wall) : monotonic_(monotonic), wall_(wall) {
  set_clock(this);
}

ManualClock::~ManualClock() {
  set_clock(nullptr);
}

std::optional<std::int64_t> ManualClock::wall_seconds() const {
  if (wall_fails_) return std::nullopt;
  return wall_;
}

void ManualClock::advance(std::int64_t seconds) {
  monotonic_ += seconds;
  wall_ += seconds;
}

}  // namespace rrm::testing
