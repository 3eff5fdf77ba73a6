#include "yajson/arena.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace yajson {
namespace {

// Sums and doubles of sizes up to here have a number.
constexpr std::size_t largest_size = std::numeric_limits<std::size_t>::max() / 4;

constinit thread_local ArenaScope* innermost_scope = nullptr;

}  // namespace

void MonotonicArena::release() noexcept {
  while (blocks_ != nullptr) std::free(std::exchange(blocks_, blocks_->next));
  current_ = initial_buffer_;
  end_ = initial_buffer_ + initial_size_;
  total_bytes_ = 0;
}

void* MonotonicArena::take_from_new_block(std::size_t bytes, std::size_t alignment) {
  if (std::max({bytes, alignment, next_block_size_}) > largest_size) throw std::bad_alloc();
  const std::size_t padding = alignment > alignof(std::max_align_t) ? alignment : 0;
  add_block(std::max(next_block_size_, bytes + padding));
  return take(bytes, alignment);
}

void MonotonicArena::add_block(std::size_t size) {
  auto* block = static_cast<Block*>(std::malloc(sizeof(Block) + size));
  if (block == nullptr) throw std::bad_alloc();
  *block = {blocks_, size};
  blocks_ = block;
  current_ = reinterpret_cast<char*>(block + 1);
  end_ = current_ + size;
  total_bytes_ += sizeof(Block) + size;
  next_block_size_ = 2 * size;
}

ArenaScope::ArenaScope(MonotonicArena* arena) noexcept : arena_(arena), outer_(innermost_scope) {
  innermost_scope = this;
  current_arena = arena;
}

ArenaScope::~ArenaScope() {
  ArenaScope** link = &innermost_scope;
  while (*link != this) {
    assert(*link != nullptr);
    link = &(*link)->outer_;
  }
  *link = outer_;
  current_arena = innermost_scope != nullptr ? innermost_scope->arena_ : nullptr;
}

}  // namespace yajson
