// Threads of this process are cheap to start from here on: their stacks, and a sanitizer's picture of them, are small.
#pragma once

#include <pthread.h>

#include <cstddef>

#include "fuzz/fuzz.h"

namespace zal::fuzz {

inline bool use_small_stacks() {
  constexpr std::size_t bytes = 512U << 10;
  pthread_attr_t attributes;
  require(::pthread_attr_init(&attributes) == 0, "a thread has attributes");
  require(::pthread_attr_setstacksize(&attributes, bytes) == 0, "a stack may be small");
  require(::pthread_setattr_default_np(&attributes) == 0, "threads take it over");
  return ::pthread_attr_destroy(&attributes) == 0;
}

}  // namespace zal::fuzz
