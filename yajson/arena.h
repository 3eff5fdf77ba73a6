// Memory that is taken piece by piece and given back at once. A document parsed into an arena costs a few blocks
// instead of a call per node. The arena's owner destroys every value that lies in it before the arena goes.
//
// While an ArenaScope binds an arena, the values made, copied and given long strings on its thread lie there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory_resource>

namespace yajson {

// Blocks double in size. Nothing is freed before the arena dies; a block that cannot be had is std::bad_alloc. One
// thread at a time.
class MonotonicArena final : public std::pmr::memory_resource {
 public:
  // The first block, of `block_size` bytes, is taken when the first byte is asked for.
  explicit MonotonicArena(std::size_t block_size) noexcept : next_block_size_(block_size) {}

  // Serves from the caller's buffer first; it must outlive the arena.
  MonotonicArena(void* buffer, std::size_t buffer_size, std::size_t next_block_size) noexcept
      : current_(static_cast<char*>(buffer)),
        end_(current_ + buffer_size),
        initial_buffer_(buffer),
        initial_size_(buffer_size),
        next_block_size_(next_block_size) {}

  ~MonotonicArena() override;
  MonotonicArena(const MonotonicArena&) = delete;
  MonotonicArena& operator=(const MonotonicArena&) = delete;

  // allocate() without the virtual call. Requires: `alignment` is a power of two.
  void* take(std::size_t bytes, std::size_t alignment) {
    const auto free_at = reinterpret_cast<std::uintptr_t>(current_);
    const std::size_t padding = (alignment - free_at % alignment) % alignment;
    const auto room = static_cast<std::size_t>(end_ - current_);
    if (padding > room || bytes > room - padding) return take_from_new_block(bytes, alignment);
    char* taken = current_ + padding;
    current_ = taken + bytes;
    return taken;
  }

  // Bytes taken from malloc so far, block headers included.
  std::size_t total_bytes() const noexcept { return total_bytes_; }
  std::size_t next_block_size() const noexcept { return next_block_size_; }

 private:
  struct Block {
    Block* next;
    std::size_t size;
  };

  void* do_allocate(std::size_t bytes, std::size_t alignment) override { return take(bytes, alignment); }
  void do_deallocate(void*, std::size_t, std::size_t) override {}
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }

  void* take_from_new_block(std::size_t bytes, std::size_t alignment);
  void add_block(std::size_t size);

  char* current_ = nullptr;  // the free range of the current block
  char* end_ = nullptr;
  void* initial_buffer_ = nullptr;
  std::size_t initial_size_ = 0;
  Block* blocks_ = nullptr;  // newest first
  std::size_t total_bytes_ = 0;
  std::size_t next_block_size_;
};

// The arena that this thread's values go to; null means the heap. Set by ArenaScope only.
inline constinit thread_local MonotonicArena* current_arena = nullptr;

// Binds an arena, or with null the heap, for this thread until it ends. The scopes of a thread may end in any order:
// the innermost that still stands decides. A scope ends on the thread that made it.
class ArenaScope {
 public:
  explicit ArenaScope(MonotonicArena* arena) noexcept;
  ~ArenaScope();
  ArenaScope(const ArenaScope&) = delete;
  ArenaScope& operator=(const ArenaScope&) = delete;

 private:
  MonotonicArena* arena_;
  ArenaScope* outer_;
};

}  // namespace yajson
