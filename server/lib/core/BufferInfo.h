// The assembly buffer of one incoming WebSocket message: bytes that grow by `realloc`, always zero-terminated, handed
// over without a copy. Owned by one session and guarded by that session's lock.
#pragma once

#include <cstdint>

namespace rrm {

class BufferInfo {
 public:
  BufferInfo() = default;
  ~BufferInfo() { clear(); }
  BufferInfo(const BufferInfo&) = delete;
  BufferInfo& operator=(const BufferInfo&) = delete;

  // Throws std::bad_alloc, leaving the buffer as it was, when memory or the 32-bit size run out. A length below 1
  // appends nothing.
  void append(const char* bytes, int length);
  // Hands the block to the caller, who frees it with `free`; null if the buffer was empty.
  [[nodiscard]] char* release();
  void clear();

  const char* data() const { return data_; }
  std::int32_t size() const { return size_; }  // without the terminator

  // Logs the content, shortened in the middle if it is long. For diagnosis only.
  void dump() const;

 private:
  char* data_ = nullptr;  // from the malloc family; null when empty
  std::int32_t size_ = 0;
};

}  // namespace rrm
