// An interval timer that its owner polls. It runs from its construction and from each reset, and once expired stays
// expired until it is reset. A plain value for one thread.
#pragma once

#include <chrono>

namespace zal {

class Timer {
 public:
  explicit Timer(std::chrono::milliseconds interval);

  bool is_expired() const;
  void reset();

 private:
  std::chrono::milliseconds interval_;
  std::chrono::steady_clock::time_point started_;
};

}  // namespace zal
