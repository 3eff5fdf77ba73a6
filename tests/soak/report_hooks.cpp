#include "soak/report_hooks.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "core/log.h"
#include "support/capture.h"

namespace soak {
namespace {

constexpr std::size_t most_troubles = 12;
constexpr int domain_changed = 23;
constexpr int status_changed = 24;
constexpr int computing = 5;
// Exceptions that end a worker, files that fail. What is lost besides has its line, and is judged by that.
constexpr std::array bad_events = {2, 5, 6, 7, 10, 12, 16, 18, 19, 20, 21, 25};

ReportHooks* present = nullptr;

constexpr std::string_view no_target = "No target ap with mac ";

// What was late: of a session that is another's by now, or of an access point that has left. The last is no trouble,
// and an error in the log all the same.
bool is_expected(std::string_view line) {
  constexpr std::array expected = {"invalid session", "AP not found", "New expected sta"};
  return std::any_of(expected.begin(), expected.end(),
                     [&](std::string_view part) { return line.find(part) != std::string_view::npos; });
}

std::string last_word(const std::string& line) {
  return line.substr(line.rfind(' ') + 1);
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
  present->note_error(line);
}

void ReportHooks::note_error(const std::string& line) {
  if (line.starts_with("per-wsi ") && line.find("queue overflow") != std::string::npos) {
    overflowed_.insert(static_cast<std::uint32_t>(std::stoul(last_word(line))));
  } else if (line.starts_with(no_target)) {
    lost_targets_.push_back(sim::Mac::parse(last_word(line)).value());
  } else if (!is_expected(line) && !(some_garbled_ && line.find("json parse failed") != std::string::npos)) {
    note_trouble(line);
  }
}

void ReportHooks::on_event(const int& id, const std::shared_ptr<std::string>& payload) {
  present->note_event(id, payload ? *payload : "");
}

void ReportHooks::note_event(int id, const std::string& payload) {
  const rrm::MutexLock lock(mutex_);
  if (id == domain_changed) changed_.insert(payload);
  if (id == status_changed) {
    const auto status = nlohmann::json::parse(payload);
    if (status.at("status") == computing) ++cycles_[status.at("location")];
  }
  const bool bad = std::find(bad_events.begin(), bad_events.end(), id) != bad_events.end();
  if (bad) note_trouble("event " + std::to_string(id) + " " + payload);
}

void ReportHooks::note_trouble(const std::string& text) {
  if (troubles_.size() < most_troubles) troubles_.push_back(text);
}

std::set<std::string> ReportHooks::take_changed_domains() {
  const rrm::MutexLock lock(mutex_);
  return std::exchange(changed_, {});
}

std::uint64_t ReportHooks::cycles(const std::string& domain) const {
  const rrm::MutexLock lock(mutex_);
  const auto found = cycles_.find(domain);
  return found == cycles_.end() ? 0 : found->second;
}

std::set<std::uint32_t> ReportHooks::take_overflowed() {
  const rrm::MutexLock lock(mutex_);
  return std::exchange(overflowed_, {});
}

std::vector<sim::Mac> ReportHooks::take_lost_targets() {
  const rrm::MutexLock lock(mutex_);
  return std::exchange(lost_targets_, {});
}

void ReportHooks::expect_garbled(bool some) {
  const rrm::MutexLock lock(mutex_);
  some_garbled_ = some;
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
