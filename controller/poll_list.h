// Descriptors in the list of one poll.
#pragma once

#include <poll.h>

#include <vector>

#include "platform/bus/Connection.h"

namespace controller {

inline pollfd poll_entry(const zal::bus::Connection& connection) {
  return {connection.fd(), static_cast<short>(connection.wants_write() ? POLLIN | POLLOUT : POLLIN), 0};
}

// What poll saw of the descriptor; 0 if it was not in the list.
inline short events_of(const std::vector<pollfd>& fds, int fd) {
  for (const pollfd& entry : fds)
    if (entry.fd == fd) return entry.revents;
  return 0;
}

}  // namespace controller
