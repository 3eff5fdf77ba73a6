// The controller's alarm on a change of a location's optimisation status. It leaves through the process's port; without
// one it is logged and lost. From any thread; never waits.
#pragma once

#include <string>

namespace zal {

enum class MorvaneOptimizationEventType : int {
  idle = 0,
  delay_before_optimization = 1,
  waiting_for_modes = 2,
  waiting_for_scans = 3,
  delay_before_forced_optimization = 4,
};

void emit_alarm_MORVANE_OPTIMIZATION_STATUS_CHANGED(const std::string& location, MorvaneOptimizationEventType status);

}  // namespace zal
