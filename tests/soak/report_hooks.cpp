#include "soak/report_hooks.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "core/log.h"
#include "support/capture.h"

namespace soak {
namespace {

constexpr std::size_t most_troubles = 12;
constexpr int domain_changed = 23;
constexpr int status_changed = 24;
// Exceptions that end a worker or lose a message, queues that overflow, files that fail.
constexpr std::array bad_events = {2, 5, 6, 7, 10, 12, 14, 16, 18, 19, 20, 21, 25, 26};
// What a misfit brings about: halves of messages, messages of a session that is another's by now, and a far end that
// does not read what it is sent.
constexpr std::array by_misfits = {14, 26};

ReportHooks* present = nullptr;

bool is_expected(std::string_view line) {
  constexpr std::array expected = {"json parse failed", "invalid session", "AP not found", "queue overflow",
                                   "New expected sta"};  // the last is no trouble, and an error in the log all the same
  return std::any_of(expected.begin(), expected.end(),
                     [&](std::string_view part) { return line.find(part) != std::string_view::npos; });
}

}  // namespace

ReportHooks::ReportHooks() {
  present = this;
  rrm::set_log_hook(on_log);
  rrm::set_event_hook(on_event);
}

ReportHooks::~ReportHooks() {
  rrm::set_event_hook(nullptr);
  rrm::set_log_hook([](const char*, int, const char*, int, const char*, va_list) {});
  present = nullptr;
}

void ReportHooks::on_log(const char*, int, const char*, int level, const char* format, va_list args) {
  if (level == rrm::LOG_TRACE && std::string_view(format) == "Stop worker %s") {
    const rrm::MutexLock lock(present->mutex_);
    ++present->ends_;
  }
  if (level != rrm::LOG_ERROR) return;
  const std::string line = rrm::testing::format_text(format, args);
  const rrm::MutexLock lock(present->mutex_);
  if (!is_expected(line)) present->note_trouble(line);
}

void ReportHooks::on_event(const int& id, const std::shared_ptr<std::string>& payload) {
  present->note_event(id, payload ? *payload : "");
}

void ReportHooks::note_event(int id, const std::string& payload) {
  constexpr std::string_view computing = "\"status\":5}";
  const rrm::MutexLock lock(mutex_);
  ++events_[id];
  if (id == domain_changed) changed_.insert(payload);
  if (id == status_changed && payload.ends_with(computing)) ++cycles_;
  const bool bad = std::find(bad_events.begin(), bad_events.end(), id) != bad_events.end();
  const bool by_misfit = std::find(by_misfits.begin(), by_misfits.end(), id) != by_misfits.end();
  if (bad && !by_misfit) note_trouble("event " + std::to_string(id) + " " + payload);
}

void ReportHooks::note_trouble(const std::string& text) {
  if (troubles_.size() < most_troubles) troubles_.push_back(text);
}

std::set<std::string> ReportHooks::take_changed_domains() {
  const rrm::MutexLock lock(mutex_);
  return std::exchange(changed_, {});
}

std::uint64_t ReportHooks::count(int event) const {
  const rrm::MutexLock lock(mutex_);
  const auto found = events_.find(event);
  return found == events_.end() ? 0 : found->second;
}

std::uint64_t ReportHooks::cycles() const {
  const rrm::MutexLock lock(mutex_);
  return cycles_;
}

std::uint64_t ReportHooks::ends() const {
  const rrm::MutexLock lock(mutex_);
  return ends_;
}

std::vector<std::string> ReportHooks::troubles() const {
  const rrm::MutexLock lock(mutex_);
  return troubles_;
}

}  // namespace soak
