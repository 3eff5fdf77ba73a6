// Takes what the library reports, for its life: counts events and cycles, keeps the first of the error lines, and
// remembers which domains are to be backed up, which sessions did not take what was sent, and where clients were lost.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/mutex.h"
#include "sim/mac.h"

namespace soak {

class ReportHooks {
 public:
  ReportHooks();
  ~ReportHooks();
  ReportHooks(const ReportHooks&) = delete;
  ReportHooks& operator=(const ReportHooks&) = delete;

  std::set<std::string> take_changed_domains() RRM_EXCLUDES(mutex_);
  // How often a domain began to compute a plan.
  std::uint64_t cycles(const std::string& domain) const RRM_EXCLUDES(mutex_);
  // The numbers of the sessions that did not take what was sent to them.
  std::set<std::uint32_t> take_overflowed() RRM_EXCLUDES(mutex_);
  // Where clients went that the domain does not know.
  std::vector<sim::Mac> take_lost_targets() RRM_EXCLUDES(mutex_);
  // Halves of messages are among those that arrive.
  void expect_garbled(bool some) RRM_EXCLUDES(mutex_);
  // Domain workers that ended.
  std::uint64_t ends() const RRM_EXCLUDES(mutex_);
  // Errors and events that must not be, whatever access points do.
  std::vector<std::string> troubles() const RRM_EXCLUDES(mutex_);

 private:
  static void on_log(const char*, int, const char*, int level, const char* format, va_list args);
  static void on_event(const int& id, const std::shared_ptr<std::string>& payload);
  void note_event(int id, const std::string& payload) RRM_EXCLUDES(mutex_);
  void note_error(const std::string& line) RRM_REQUIRES(mutex_);
  void note_trouble(const std::string& text) RRM_REQUIRES(mutex_);

  mutable rrm::Mutex mutex_;  // a leaf
  std::set<std::string> changed_ RRM_GUARDED_BY(mutex_);
  std::set<std::uint32_t> overflowed_ RRM_GUARDED_BY(mutex_);
  std::vector<sim::Mac> lost_targets_ RRM_GUARDED_BY(mutex_);
  bool some_garbled_ RRM_GUARDED_BY(mutex_) = false;
  std::map<std::string, std::uint64_t> cycles_ RRM_GUARDED_BY(mutex_);  // by domain
  std::uint64_t ends_ RRM_GUARDED_BY(mutex_) = 0;
  std::vector<std::string> troubles_ RRM_GUARDED_BY(mutex_);
};

}  // namespace soak
