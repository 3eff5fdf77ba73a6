// The alarms that the daemon raised, as the controller keeps and prints them.
#pragma once

#include <cstdint>
#include <ctime>
#include <deque>
#include <string>

#include "platform/bus/Frame.h"

namespace controller {

struct Alarm {
  std::time_t time = 0;
  std::string location;
  std::int64_t status = 0;
};

// "waiting for scans" and the like; "unknown" for a number without a meaning.
const char* status_name(std::int64_t status);

zal::bus::Fields to_fields(const Alarm& alarm);
// "2026-01-02T03:04:05Z office: 3 waiting for scans"
std::string to_text(const Alarm& alarm);

// The latest ones, the oldest first.
class AlarmHistory {
 public:
  static constexpr std::size_t capacity = 1000;

  void add(Alarm alarm);
  const std::deque<Alarm>& all() const { return alarms_; }

 private:
  std::deque<Alarm> alarms_;
};

}  // namespace controller
