#include "websock/OverloadWatch.h"

namespace rrm {

bool OverloadWatch::count_message(std::int64_t now) {
  MutexLock lock(rate_mutex);
  ++messages_this_second;
  if (now <= current_second) return false;
  current_second = now;
  const bool order = messages_this_second > quiet_messages && now - last_lb_stop > quiet_seconds;
  if (order) last_lb_stop = now;
  messages_this_second = 0;
  return order;
}

}  // namespace rrm
