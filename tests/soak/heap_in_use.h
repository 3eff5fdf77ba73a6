// The bytes that the process has allocated and not freed, whoever its allocator is.
#pragma once

#include <malloc.h>

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZAL_SOAK_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZAL_SOAK_SANITIZED 1
#endif

#ifdef ZAL_SOAK_SANITIZED
#include <sanitizer/allocator_interface.h>
#endif

namespace soak {

inline std::size_t heap_in_use() {
#ifdef ZAL_SOAK_SANITIZED
  return __sanitizer_get_current_allocated_bytes();
#else
  const auto heap = ::mallinfo2();
  return heap.uordblks + heap.hblkhd;  // large blocks have mappings of their own
#endif
}

}  // namespace soak
