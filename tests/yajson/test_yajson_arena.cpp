#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <memory_resource>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

#include "yajson/arena.h"

namespace yajson {
namespace {

constexpr std::size_t header = 16;

bool lies_in(const void* p, const std::array<char, 64>& buffer) {
  const auto at = reinterpret_cast<std::uintptr_t>(p);
  const auto begin = reinterpret_cast<std::uintptr_t>(buffer.data());
  return at >= begin && at < begin + buffer.size();
}

TEST(MonotonicArena, takes_nothing_from_malloc_before_the_first_byte) {
  const MonotonicArena arena(1024);
  EXPECT_EQ(arena.total_bytes(), 0u);
  EXPECT_EQ(arena.next_block_size(), 1024u);
}

TEST(MonotonicArena, doubles_its_blocks_and_counts_their_headers) {
  MonotonicArena arena(1024);
  std::memset(arena.take(1024, 1), 'a', 1024);
  EXPECT_EQ(arena.total_bytes(), 1024 + header);
  EXPECT_EQ(arena.next_block_size(), 2048u);
  std::memset(arena.take(1, 1), 'b', 1);
  EXPECT_EQ(arena.total_bytes(), 1024 + header + 2048 + header);
  EXPECT_EQ(arena.next_block_size(), 4096u);
}

TEST(MonotonicArena, makes_a_block_as_large_as_the_request_and_doubles_from_there) {
  MonotonicArena arena(256);
  std::memset(arena.take(10000, 8), 'a', 10000);
  EXPECT_EQ(arena.total_bytes(), 10000 + header);
  EXPECT_EQ(arena.next_block_size(), 20000u);
}

TEST(MonotonicArena, serves_neighbouring_bytes_from_one_block) {
  MonotonicArena arena(256);
  auto* first = static_cast<char*>(arena.take(3, 1));
  EXPECT_EQ(arena.take(5, 1), first + 3);
  EXPECT_EQ(arena.total_bytes(), 256 + header);
}

TEST(MonotonicArena, aligns_what_it_serves) {
  MonotonicArena arena(256);
  for (const std::size_t alignment : {1u, 2u, 4u, 8u, 16u, 64u, 256u, 4096u}) {
    arena.take(1, 1);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(arena.take(8, alignment)) % alignment, 0u) << alignment;
  }
}

TEST(MonotonicArena, uses_the_callers_buffer_first) {
  std::array<char, 64> buffer;
  MonotonicArena arena(buffer.data(), buffer.size(), 128);
  EXPECT_TRUE(lies_in(arena.take(buffer.size(), 1), buffer));
  EXPECT_EQ(arena.total_bytes(), 0u);
  EXPECT_FALSE(lies_in(arena.take(1, 1), buffer));
  EXPECT_EQ(arena.total_bytes(), 128 + header);
}

TEST(MonotonicArena, gives_its_blocks_back_and_serves_from_the_buffer_again) {
  std::array<char, 64> buffer;
  MonotonicArena arena(buffer.data(), buffer.size(), 128);
  arena.take(1000, 1);
  arena.release();
  EXPECT_EQ(arena.total_bytes(), 0u);
  EXPECT_TRUE(lies_in(arena.take(buffer.size(), 1), buffer));
}

TEST(MonotonicArena, is_a_memory_resource_equal_only_to_itself) {
  static_assert(std::is_base_of_v<std::pmr::memory_resource, MonotonicArena>);
  MonotonicArena arena(256);
  MonotonicArena other(256);
  std::pmr::memory_resource& memory = arena;
  EXPECT_TRUE(memory.is_equal(arena));
  EXPECT_FALSE(memory.is_equal(other));
}

TEST(MonotonicArena, keeps_what_is_deallocated) {
  MonotonicArena arena(256);
  std::pmr::memory_resource& memory = arena;
  void* first = memory.allocate(16, 8);
  std::memset(first, 'a', 16);
  memory.deallocate(first, 16, 8);
  EXPECT_NE(memory.allocate(16, 8), first);
  EXPECT_EQ(static_cast<char*>(first)[15], 'a');
}

TEST(MonotonicArena, refuses_a_size_that_no_block_can_have) {
  MonotonicArena arena(256);
  std::pmr::memory_resource& memory = arena;
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
  for (const std::size_t size : {most, most - 8, most / 2, most / 4 + 1}) {
    EXPECT_THROW(static_cast<void>(memory.allocate(size, 8)), std::bad_alloc) << size;
  }
  EXPECT_EQ(arena.total_bytes(), 0u);
  EXPECT_EQ(arena.next_block_size(), 256u);
}

// With the block's header on top these sizes would wrap around to a few bytes.
TEST(MonotonicArena, refuses_a_block_size_that_no_block_can_have) {
  constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
  for (const std::size_t size : {most, most - 8, most - 16, most / 2 + 1, most / 4 + 1}) {
    MonotonicArena arena(size);
    EXPECT_THROW(arena.take(1, 1), std::bad_alloc) << size;
    EXPECT_EQ(arena.total_bytes(), 0u);
  }
}

TEST(ArenaAllocator, throws_when_the_number_of_bytes_has_no_number) {
  MonotonicArena arena(256);
  ArenaAllocator<std::uint64_t> allocator(&arena);
  EXPECT_THROW(static_cast<void>(allocator.allocate(std::numeric_limits<std::size_t>::max() / 4)), std::bad_alloc);
}

TEST(ArenaAllocator, gives_a_copied_container_the_arena_of_its_thread) {
  using Numbers = std::vector<int, ArenaAllocator<int>>;
  MonotonicArena arena(256);
  const Numbers numbers({1, 2, 3}, ArenaAllocator<int>(&arena));
  const Numbers on_the_heap(numbers);
  EXPECT_EQ(on_the_heap.get_allocator().arena(), nullptr);
  EXPECT_EQ(on_the_heap, numbers);
  MonotonicArena other(256);
  const ArenaScope scope(&other);
  const Numbers in_the_other(numbers);
  EXPECT_EQ(in_the_other.get_allocator().arena(), &other);
}

TEST(ArenaScope, binds_an_arena_and_restores_what_was_bound) {
  MonotonicArena outer(256);
  MonotonicArena inner(256);
  EXPECT_EQ(current_arena, nullptr);
  {
    const ArenaScope first(&outer);
    EXPECT_EQ(current_arena, &outer);
    {
      const ArenaScope second(&inner);
      EXPECT_EQ(current_arena, &inner);
      const ArenaScope heap(nullptr);
      EXPECT_EQ(current_arena, nullptr);
    }
    EXPECT_EQ(current_arena, &outer);
  }
  EXPECT_EQ(current_arena, nullptr);
}

TEST(ArenaScope, never_restores_an_arena_whose_scope_has_ended) {
  MonotonicArena first_arena(256);
  MonotonicArena second_arena(256);
  auto first = std::make_unique<ArenaScope>(&first_arena);
  auto second = std::make_unique<ArenaScope>(&second_arena);
  first.reset();
  EXPECT_EQ(current_arena, &second_arena);
  second.reset();
  EXPECT_EQ(current_arena, nullptr);
}

TEST(ArenaScope, binds_for_its_own_thread_only) {
  MonotonicArena arena(256);
  const ArenaScope scope(&arena);
  const MonotonicArena* elsewhere = &arena;
  std::thread([&] { elsewhere = current_arena; }).join();
  EXPECT_EQ(elsewhere, nullptr);
  EXPECT_EQ(current_arena, &arena);
}

}  // namespace
}  // namespace yajson
