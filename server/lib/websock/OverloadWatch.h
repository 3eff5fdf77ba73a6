// Watches how many messages the whole server receives in a second, and says when the load balancers should stop: when a
// second turns and 1024 or more messages have come since the last turn, at most once in 30 seconds. Safe from any
// thread; its lock is a leaf.
#pragma once

#include <cstdint>

#include "core/mutex.h"

namespace rrm {

class OverloadWatch {
 public:
  // Counts one message that came in at this monotonic second. True if the overload order is due now.
  // The count is looked at only on the first message of a later second, that message included.
  [[nodiscard]] bool count_message(std::int64_t now);

 private:
  static constexpr std::uint32_t quiet_messages = 1023;  // up to here a second is not overloaded
  static constexpr std::int64_t quiet_seconds = 29;      // up to here after an order no other is given

  Mutex rate_mutex;
  std::int64_t last_lb_stop RRM_GUARDED_BY(rate_mutex) = 0;  // the second of the last order
  std::uint32_t messages_this_second RRM_GUARDED_BY(rate_mutex) = 0;
  std::int64_t current_second RRM_GUARDED_BY(rate_mutex) = 0;
};

}  // namespace rrm
