#include "core/EventFd.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace rrm {

EventFd::EventFd(bool open) : fd_(open ? ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC) : -1) {}

EventFd::~EventFd() {
  if (valid()) ::close(fd_);
}

void EventFd::signal() {
  if (!valid() || signalled_.exchange(true, std::memory_order_acq_rel)) return;
  const std::uint64_t one = 1;
  // It fails only when the counter is at its end, and then it wakes all the same.
  [[maybe_unused]] const ssize_t written = ::write(fd_, &one, sizeof one);
}

void EventFd::drain() {
  if (!valid()) return;
  std::uint64_t signals = 0;
  [[maybe_unused]] const ssize_t got = ::read(fd_, &signals, sizeof signals);
  // In this order: a signal in between writes nothing and is taken by this, whereas in the other order its write would
  // be taken and every later signal held for one that is still to be read.
  signalled_.exchange(false, std::memory_order_acq_rel);
}

void EventFd::wait(std::int32_t timeout_us) {
  if (!valid()) return;
  if (signalled_.load(std::memory_order_acquire)) return drain();
  pollfd waited{fd_, POLLIN, 0};
  const int timeout_ms = timeout_us < 0 ? -1 : static_cast<int>((std::int64_t{timeout_us} + 999) / 1000);
  if (::poll(&waited, 1, timeout_ms) > 0) drain();
}

}  // namespace rrm
