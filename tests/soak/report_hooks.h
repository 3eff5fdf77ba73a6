// Takes what the library reports, for its life: counts the events, keeps the first of the error lines, and remembers
// which domains are to be backed up.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/mutex.h"

namespace soak {

class ReportHooks {
 public:
  ReportHooks();
  ~ReportHooks();
  ReportHooks(const ReportHooks&) = delete;
  ReportHooks& operator=(const ReportHooks&) = delete;

  std::set<std::string> take_changed_domains() RRM_EXCLUDES(mutex_);
  std::uint64_t count(int event) const RRM_EXCLUDES(mutex_);
  // Domains that began to compute a plan.
  std::uint64_t cycles() const RRM_EXCLUDES(mutex_);
  // Domain workers that ended.
  std::uint64_t ends() const RRM_EXCLUDES(mutex_);
  // Errors and events that must not be, whatever access points do.
  std::vector<std::string> troubles() const RRM_EXCLUDES(mutex_);

 private:
  static void on_log(const char*, int, const char*, int level, const char* format, va_list args);
  static void on_event(const int& id, const std::shared_ptr<std::string>& payload);
  void note_event(int id, const std::string& payload) RRM_EXCLUDES(mutex_);
  void note_trouble(const std::string& text) RRM_REQUIRES(mutex_);

  mutable rrm::Mutex mutex_;  // a leaf
  std::set<std::string> changed_ RRM_GUARDED_BY(mutex_);
  std::map<int, std::uint64_t> events_ RRM_GUARDED_BY(mutex_);
  std::uint64_t cycles_ RRM_GUARDED_BY(mutex_) = 0;
  std::uint64_t ends_ RRM_GUARDED_BY(mutex_) = 0;
  std::vector<std::string> troubles_ RRM_GUARDED_BY(mutex_);
};

}  // namespace soak
