// Counts what a test program takes from malloc and from operator new, and can refuse any of it. Link the library
// failing_memory. Calls of malloc within shared libraries are not seen.
#pragma once

#include <cstddef>

namespace rrm::testing {

// Watches from its construction to its end. One at a time, one thread.
class MemoryWatch {
 public:
  static constexpr std::size_t never = static_cast<std::size_t>(-1);

  // Serves so many requests of each kind and refuses the rest.
  explicit MemoryWatch(std::size_t requests_served = never);
  virtual ~MemoryWatch();
  MemoryWatch(const MemoryWatch&) = delete;
  MemoryWatch& operator=(const MemoryWatch&) = delete;

  std::size_t mallocs() const { return mallocs_; }
  std::size_t news() const { return news_; }
  std::size_t last_malloc_size() const { return last_malloc_size_; }

  // For the replaced functions: true if the request is to be served. Who wants a failure of another kind overrides the
  // second.
  bool on_malloc(std::size_t size);
  virtual bool on_new();

 private:
  std::size_t requests_served_;
  std::size_t mallocs_ = 0;
  std::size_t news_ = 0;
  std::size_t last_malloc_size_ = 0;
};

}  // namespace rrm::testing
