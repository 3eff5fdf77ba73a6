// A wait in the world's time for what the server does within milliseconds. A server that never does it could not be
// stopped in order either: the test is ended where it stands, and tells what was waited for.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "core/mutex.h"

namespace soak {

class Patience {
 public:
  explicit Patience(std::string what) : what_(std::move(what)) {}

  // Until there is news, or a second has passed.
  void wait(std::condition_variable_any& news, rrm::Mutex& mutex) RRM_REQUIRES(mutex) {
    news.wait_until(mutex, next_);
    check();
  }
  void check() {
    const auto now = std::chrono::steady_clock::now();
    if (now < next_) return;
    next_ = now + second;
    if (++seconds_ <= longest) return;
    std::fprintf(stderr, "waited in vain for %s\n", what_.c_str());
    std::abort();
  }

 private:
  static constexpr std::chrono::seconds second{1};
  static constexpr int longest = 120;

  const std::string what_;
  std::chrono::steady_clock::time_point next_ = std::chrono::steady_clock::now() + second;
  int seconds_ = 0;  // in which the process lived: one that was stopped for an hour has waited for one
};

}  // namespace soak
