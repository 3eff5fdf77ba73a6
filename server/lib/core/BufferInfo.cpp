#include "core/BufferInfo.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>

#include "core/log.h"

namespace rrm {

void BufferInfo::append(const char* bytes, int length) {
  if (length < 1) return;
  if (length >= std::numeric_limits<std::int32_t>::max() - size_) throw std::bad_alloc();
  const std::size_t grown = static_cast<std::size_t>(size_) + static_cast<std::size_t>(length);
  void* block = std::realloc(data_, grown + 1);
  if (block == nullptr) throw std::bad_alloc();
  data_ = static_cast<char*>(block);
  std::memcpy(data_ + size_, bytes, static_cast<std::size_t>(length));
  data_[grown] = '\0';
  size_ = static_cast<std::int32_t>(grown);
}

char* BufferInfo::release() {
  size_ = 0;
  return std::exchange(data_, nullptr);
}

void BufferInfo::clear() {
  std::free(release());
}

void BufferInfo::dump() const {
  constexpr std::int32_t line = 32;
  constexpr std::int32_t shortened_from = 12832;
  constexpr std::int32_t head = 50 * line;
  constexpr std::int32_t tail = 49 * line;

  std::string text = "Buffer info dump:\n";
  const auto add_lines = [&](std::int32_t from, std::int32_t to) {
    for (; from < to; from += line) {
      const std::int32_t length = to - from < line ? to - from : line;
      text.append("\t").append(data_ + from, static_cast<std::size_t>(length)).append("\n");
    }
  };
  if (size_ < shortened_from) {
    add_lines(0, size_);
  } else {
    add_lines(0, head);
    text.append("\t....part of message are skipped...\n");
    add_lines(size_ - size_ % line - tail, size_);
  }
  RRM_LOG(LOG_TRACE, "%s", text.c_str());
}

}  // namespace rrm
