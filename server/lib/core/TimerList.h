// The timers of one worker, in the order in which they fall due, with a resolution of one second. No lock: it belongs
// to its worker's thread, or is touched with that worker's mutex held.
#pragma once

#include <cstdint>
#include <functional>
#include <list>

namespace rrm {

class TimerList {
 public:
  using Callback = std::function<void()>;

  // Runs once, `delay_s` seconds from now; among equal expiries the oldest first. Several timers may share an id.
  void add(Callback callback, std::uint32_t id, std::int32_t delay_s);
  void replace(std::uint32_t id, Callback callback, std::int32_t delay_s);
  void remove(std::uint32_t id);

  // Runs all that are due, then forgets all that are due: a callback removed by an earlier one of the same run still
  // runs, and one added with a delay of 0 by a callback never does.
  void run_due();

 private:
  struct Entry {
    Callback callback;
    std::uint32_t id;
    std::int64_t expiry;  // monotonic seconds
  };

  std::list<Entry> entries_;  // ascending expiry
};

}  // namespace rrm
