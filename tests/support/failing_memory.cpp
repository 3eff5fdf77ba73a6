#include "support/failing_memory.h"

#include <cstdlib>
#include <new>

namespace rrm::testing {
namespace {

MemoryWatch* watch = nullptr;

}  // namespace

MemoryWatch::MemoryWatch(std::size_t requests_served) : requests_served_(requests_served) {
  watch = this;
}

MemoryWatch::~MemoryWatch() {
  watch = nullptr;
}

bool MemoryWatch::on_malloc(std::size_t size) {
  last_malloc_size_ = size;
  return mallocs_++ < requests_served_;
}

bool MemoryWatch::on_new() {
  return news_++ < requests_served_;
}

}  // namespace rrm::testing

using rrm::testing::watch;

// The linker sends the program's own calls of malloc to the second of these.
extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  return watch == nullptr || watch->on_malloc(size) ? __real_malloc(size) : nullptr;
}
}

void* operator new(std::size_t size) {
  void* memory = watch == nullptr || watch->on_new() ? __real_malloc(size) : nullptr;
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
