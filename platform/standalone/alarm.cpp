#include "zal/alarm.h"

#include "platform/bus/Frame.h"
#include "platform/bus/bus_types.h"
#include "platform/standalone/AlarmMailbox.h"
#include "zal/Trace.h"

namespace zal {

void emit_alarm_MORVANE_OPTIMIZATION_STATUS_CHANGED(const std::string& location, MorvaneOptimizationEventType status) {
  static const Trace trace("ALARM", false);
  auto frame = bus::encode_frame({{"type", std::int64_t{bus::bus_alarm}},
                                  {"location", location},
                                  {"status", std::int64_t{static_cast<int>(status)}}});
  if (!frame || !AlarmMailbox::instance().put(std::move(*frame)))
    trace.error("alarm lost: optimisation status %d of '%s'", static_cast<int>(status), location.c_str());
}

}  // namespace zal
