#include "zal/Timer.h"

namespace zal {

Timer::Timer(std::chrono::milliseconds interval) : interval_(interval), started_(std::chrono::steady_clock::now()) {}

bool Timer::is_expired() const {
  return std::chrono::steady_clock::now() - started_ >= interval_;
}

void Timer::reset() {
  started_ = std::chrono::steady_clock::now();
}

}  // namespace zal
