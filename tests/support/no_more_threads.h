// A system that has no thread left.
#pragma once

#include <pthread.h>

#include <cstddef>

namespace rrm::testing {

// Asks for more stack than there are addresses, so that no thread can be started for the life of the object.
class NoMoreThreads {
 public:
  NoMoreThreads() {
    pthread_getattr_default_np(&usual_);
    pthread_attr_t impossible;
    pthread_attr_init(&impossible);
    pthread_attr_setstacksize(&impossible, std::size_t{1} << 62);
    pthread_setattr_default_np(&impossible);
    pthread_attr_destroy(&impossible);
  }
  ~NoMoreThreads() {
    pthread_setattr_default_np(&usual_);
    pthread_attr_destroy(&usual_);
  }
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;

 private:
  pthread_attr_t usual_;
};

}  // namespace rrm::testing
