// Memory that is taken piece by piece and given back at once. A document parsed into an arena costs a few blocks
// instead of a call per node. The arena's owner destroys every value that lies in it before the arena goes.
//
// While an ArenaScope binds an arena, the values made, copied and given long strings on its thread lie there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <memory_resource>
#include <new>
#include <utility>

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
        initial_buffer_(current_),
        initial_size_(buffer_size),
        next_block_size_(next_block_size) {}

  ~MonotonicArena() override { release(); }
  MonotonicArena(const MonotonicArena&) = delete;
  MonotonicArena& operator=(const MonotonicArena&) = delete;

  // allocate() without the virtual call. Requires: `alignment` is a power of two.
  void* take(std::size_t bytes, std::size_t alignment) {
    const std::size_t padding = (0 - reinterpret_cast<std::uintptr_t>(current_)) & (alignment - 1);
    const auto room = static_cast<std::size_t>(end_ - current_);
    if (padding > room || bytes > room - padding) return take_from_new_block(bytes, alignment);
    char* taken = current_ + padding;
    current_ = taken + bytes;
    return taken;
  }

  // Gives all blocks back; what was served before is gone. The caller's buffer serves again.
  void release() noexcept;

  // Bytes that the blocks take from malloc, block headers included.
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
  char* initial_buffer_ = nullptr;
  std::size_t initial_size_ = 0;
  Block* blocks_ = nullptr;  // newest first
  std::size_t total_bytes_ = 0;
  std::size_t next_block_size_;
};

// Makes and ends one object in an arena, or on the heap where `arena` is null. What lies in an arena only ends: its
// bytes go with the arena.
template <class T, class... Args>
T* make_in(MonotonicArena* arena, Args&&... args) {
  if (arena == nullptr) return new T(std::forward<Args>(args)...);
  return new (arena->take(sizeof(T), alignof(T))) T(std::forward<Args>(args)...);
}

template <class T>
void end_in(const MonotonicArena* arena, T* object) noexcept {
  if (arena == nullptr) {
    delete object;
  } else {
    std::destroy_at(object);
  }
}

// The arena that this thread's values go to; null means the heap. Set by ArenaScope only.
inline constinit thread_local MonotonicArena* current_arena = nullptr;

// For standard containers whose elements lie in one arena, or on the heap where it is null.
template <class T>
class ArenaAllocator {
 public:
  using value_type = T;

  explicit ArenaAllocator(MonotonicArena* arena = current_arena) noexcept : arena_(arena) {}
  template <class U>
  explicit ArenaAllocator(const ArenaAllocator<U>& other) noexcept : arena_(other.arena()) {}
  // A copied container lies where everything lies that its thread makes.
  ArenaAllocator select_on_container_copy_construction() const noexcept { return ArenaAllocator(); }

  T* allocate(std::size_t count) {
    if (arena_ == nullptr) return std::allocator<T>().allocate(count);
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_array_new_length();
    return static_cast<T*>(arena_->take(count * sizeof(T), alignof(T)));
  }
  void deallocate(T* elements, std::size_t count) noexcept {
    if (arena_ == nullptr) std::allocator<T>().deallocate(elements, count);
  }

  MonotonicArena* arena() const noexcept { return arena_; }
  bool operator==(const ArenaAllocator&) const noexcept = default;

 private:
  MonotonicArena* arena_;
};

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
