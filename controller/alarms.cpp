#include "controller/alarms.h"

#include <utility>

#include "zal/alarm.h"

namespace controller {

namespace {

std::string utc_text(std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

}  // namespace

const char* status_name(std::int64_t status) {
  using Status = zal::MorvaneOptimizationEventType;
  constexpr std::int64_t computing = 5;  // told where it is asked for, and never an alarm
  if (status == computing) return "computing";
  if (status < 0 || status > static_cast<int>(Status::delay_before_forced_optimization)) return "unknown";
  switch (Status{static_cast<int>(status)}) {
    case Status::idle:
      return "idle";
    case Status::delay_before_optimization:
      return "waiting for the planned time";
    case Status::waiting_for_modes:
      return "waiting for modes";
    case Status::waiting_for_scans:
      return "waiting for scans";
    case Status::delay_before_forced_optimization:
      return "about to optimise";
  }
  return "unknown";
}

zal::bus::Fields to_fields(const Alarm& alarm) {
  return {{"time", utc_text(alarm.time)}, {"location", alarm.location}, {"status", alarm.status}};
}

std::string to_text(const Alarm& alarm) {
  return utc_text(alarm.time) + " " + alarm.location + ": " + std::to_string(alarm.status) + " " +
         status_name(alarm.status);
}

void AlarmHistory::add(Alarm alarm) {
  if (alarms_.size() == capacity) alarms_.pop_front();
  alarms_.push_back(std::move(alarm));
}

}  // namespace controller
