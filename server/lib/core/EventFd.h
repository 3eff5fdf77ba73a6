// A wake-up that a thread can sleep on: an eventfd, or nothing at all, where the owner polls instead. Any thread may
// signal; one thread waits, and looks afresh at what it waits for after every wait. Signals until then are one: only
// the first is written, since to a busy waiter a write for each would cost more than what it tells of.
#pragma once

#include <atomic>
#include <cstdint>

namespace rrm {

class EventFd {
 public:
  // With `open` false, or where the system has no descriptor left, every operation does nothing.
  explicit EventFd(bool open);
  ~EventFd();
  EventFd(const EventFd&) = delete;
  EventFd& operator=(const EventFd&) = delete;

  bool valid() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  void signal();
  // Takes all signals given so far.
  void drain();
  // Sleeps until signalled or for `timeout_us`, rounded up to milliseconds; negative means without limit. Takes the
  // signals.
  void wait(std::int32_t timeout_us);

 private:
  const int fd_;  // -1 if there is none
  std::atomic<bool> signalled_{false};
};

}  // namespace rrm
