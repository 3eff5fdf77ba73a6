// Every request for memory refused in turn: each operation ends in std::bad_alloc, leaves what it worked on whole and,
// as a sanitized run sees, leaks nothing.
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <system_error>

#include "support/failing_memory.h"
#include "yajson/error.h"
#include "yajson/object.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace yajson {
namespace {

using rrm::testing::MemoryWatch;

const std::string long_text = "a text that is longer than fifteen bytes";

const std::string document = [] {
  std::string text = R"({"a key that is longer than fifteen":"a text that is longer than fifteen","list":[)";
  for (int i = 0; i < 40; ++i) text += std::to_string(i) + ",";
  text += R"({"escaped":"\n and longer than fifteen"}],"wide":{)";
  for (int i = 0; i < 40; ++i) text += (i > 0 ? ",\"k" : "\"k") + std::to_string(i) + "\":[]";
  return text + "}}";
}();

Value parsed(const std::string& text) {
  return parse(text.data(), text.size(), {.allow_duplicate_keys = true});
}

// Runs an action with 0, 1, 2... requests served until it gets through. Returns how often it failed.
std::size_t fail_at_every_request(const std::function<void()>& action) {
  for (std::size_t served = 0; served < 10000; ++served) {
    try {
      const MemoryWatch watch(served);
      action();
      return served;
    } catch (const std::bad_alloc&) {
      continue;
    }
  }
  ADD_FAILURE() << "never got through";
  return 0;
}

TEST(OutOfMemory, ends_a_parse_on_the_heap) {
  EXPECT_GT(fail_at_every_request([] { EXPECT_EQ(parsed(document).size(), 3u); }), 10u);
}

TEST(OutOfMemory, ends_a_parse_into_an_arena) {
  const auto action = [] {
    MonotonicArena arena(256);
    const ArenaScope scope(&arena);
    EXPECT_EQ(parsed(document).size(), 3u);
  };
  EXPECT_GT(fail_at_every_request(action), 3u);
}

TEST(OutOfMemory, is_code_2_of_the_nothrow_entry) {
  const MemoryWatch watch(0);
  const ParseResult result = parse_nothrow(document.data(), document.size());
  EXPECT_EQ(result.error, std::error_code(2, json_category()));
  EXPECT_TRUE(result.value.is_null());
}

TEST(OutOfMemory, ends_a_deep_copy_and_leaves_the_original) {
  const Value original = parsed(document);
  EXPECT_GT(fail_at_every_request([&] { EXPECT_EQ(Value(original).size(), 3u); }), 10u);
  EXPECT_EQ(serialize(original).size(), serialize(Value(original)).size());
}

TEST(OutOfMemory, ends_every_constructor_that_needs_memory) {
  MonotonicArena arena(256);
  for (MonotonicArena* place : {static_cast<MonotonicArena*>(nullptr), &arena}) {
    const MemoryWatch watch(0);
    EXPECT_THROW(Value(long_text, place), std::bad_alloc);
    EXPECT_THROW(Value::array(place), std::bad_alloc);
    EXPECT_THROW(Value::object(place), std::bad_alloc);
  }
  EXPECT_EQ(arena.total_bytes(), 0u);
  EXPECT_EQ(arena.next_block_size(), 256u);
}

TEST(OutOfMemory, leaves_null_where_an_assignment_failed) {
  Value value(1);
  {
    const MemoryWatch watch(0);
    EXPECT_THROW(value.assign(long_text, nullptr), std::bad_alloc);
  }
  EXPECT_TRUE(value.is_null());
}

TEST(OutOfMemory, ends_serialising) {
  const Value value = parsed(document);
  EXPECT_EQ(fail_at_every_request([&] { EXPECT_EQ(serialize(value).size(), document.size()); }), 1u);
}

// A look-up does without an index where there is no memory for one.
TEST(OutOfMemory, does_not_stop_a_look_up) {
  Value object = Value::object();
  for (int i = 0; i < 40; ++i) object.as_object().append("k" + std::to_string(i)).assign(i);
  {
    const MemoryWatch watch(0);
    EXPECT_EQ(object.find("k39")->as_integer(), 39);
    EXPECT_EQ(object.find("none"), nullptr);
  }
  EXPECT_EQ(object.find("k39")->as_integer(), 39);
}

// 29 buckets are full at the 30th member: the index must grow, cannot, and comes back with the next look-up.
TEST(OutOfMemory, for_a_larger_index_leaves_the_new_member_in_place) {
  Object object(nullptr);
  object.reserve(40);
  for (int i = 0; i < 29; ++i) object.append("k" + std::to_string(i)).assign(i);
  ASSERT_EQ(object.find("k28")->as_integer(), 28);
  {
    const MemoryWatch watch(0);
    object.append("k29").assign(29);
    EXPECT_EQ(object.find("k29")->as_integer(), 29);
  }
  for (int i = 0; i < 30; ++i) EXPECT_EQ(object.find("k" + std::to_string(i))->as_integer(), i);
}

}  // namespace
}  // namespace yajson
