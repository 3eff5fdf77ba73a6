// How often and for how much the JSON layer goes to the allocator: malloc serves the blocks of arenas, operator new the
// rest.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/failing_memory.h"
#include "yajson/object.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace rrm {
namespace {

constexpr std::size_t header = 16;

struct Counts {
  std::size_t blocks;
  std::size_t last_block;
  std::size_t news;
};

template <class Action>
Counts counts_of(Action action) {
  const testing::MemoryWatch watch;
  action();
  return {watch.mallocs(), watch.last_malloc_size(), watch.news()};
}

// A message with all that needs memory elsewhere: long keys, long texts, wide and nested objects.
std::string message(int neighbours) {
  JsonWriter writer("rrm", "rrm-response");
  for (int i = 0; i < 20; ++i) writer.add_int(("a-key-of-the-wide-object-" + std::to_string(i)).c_str(), i);
  JsonWriter list = JsonWriter::array(writer, "neighbours");
  for (int i = 0; i < neighbours; ++i) {
    JsonWriter neighbour = JsonWriter::object(list, nullptr);
    neighbour.add_string("bssid", "00:11:22:33:44:55").add_int("rssi", -60).add_int("channel", 36);
    JsonWriter::array(neighbour, "bandwidth").add_int(nullptr, 20);
  }
  return writer.to_string();
}

TEST(ReaderWithAnArena, takes_a_few_blocks_for_a_message_of_any_size) {
  struct Case {
    int neighbours;
    std::size_t blocks;
  };
  for (const Case& c : {Case{1, 1}, Case{10, 2}, Case{100, 4}, Case{1000, 7}}) {
    const std::string text = message(c.neighbours);
    const Counts counts = counts_of([&] { EXPECT_FALSE(JsonReader(text.c_str(), 8192).empty()); });
    EXPECT_LE(counts.blocks, c.blocks) << c.neighbours;
    EXPECT_EQ(counts.news, 1u) << "the arena itself";
  }
}

TEST(ReaderWithAnArena, begins_with_a_block_of_the_size_it_is_given) {
  struct Case {
    std::size_t given;
    std::size_t taken;
  };
  for (const Case& c :
       {Case{0, 4096}, Case{1, 256}, Case{255, 256}, Case{256, 256}, Case{257, 257}, Case{8192, 8192}}) {
    const Counts counts = counts_of([&] { EXPECT_FALSE(JsonReader("[]", c.given).empty()); });
    EXPECT_EQ(counts.blocks, 1u) << c.given;
    EXPECT_EQ(counts.last_block, c.taken + header) << c.given;
  }
}

TEST(WriterWithAnArena, begins_with_a_block_of_the_size_it_is_given) {
  struct Case {
    std::size_t given;
    std::size_t taken;
  };
  for (const Case& c : {Case{0, 256}, Case{255, 256}, Case{256, 256}, Case{257, 257}, Case{8192, 8192}}) {
    const Counts counts = counts_of([&] { JsonWriter().use_arena(c.given); });
    EXPECT_EQ(counts.blocks, 1u) << c.given;
    EXPECT_EQ(counts.last_block, c.taken + header) << c.given;
  }
}

TEST(ReaderWithoutAnArena, takes_no_block) {
  const std::string text = message(10);
  EXPECT_EQ(counts_of([&] { EXPECT_FALSE(JsonReader(text.c_str()).empty()); }).blocks, 0u);
}

TEST(ReaderWithoutAnArena, takes_nothing_for_numbers_and_short_texts) {
  for (const char* text : {"1", "1.5", "18446744073709551616", "true", "\"fifteen bytes..\"", "\"a\\nb\""}) {
    const Counts counts = counts_of([&] { EXPECT_FALSE(JsonReader(text).empty()); });
    EXPECT_EQ(counts.blocks + counts.news, 0u) << text;
  }
}

TEST(Parser, unescapes_within_its_stack_memory) {
  const std::string text = "\"\\n" + std::string(1000, 'x') + "\\n\"";
  const Counts counts = counts_of([&] { static_cast<void>(yajson::parse(text.data(), text.size())); });
  EXPECT_EQ(counts.blocks, 0u);
  EXPECT_EQ(counts.news, 2u) << "the text's body and its bytes";
}

TEST(ObjectValue, has_no_hash_table_below_16_members) {
  const auto object_of = [](int count) {
    yajson::Value object = yajson::Value::object(nullptr);
    for (int i = 0; i < count; ++i) object.set("k" + std::to_string(i), yajson::Value(i));
    return object;
  };
  const yajson::Value small = object_of(15);
  EXPECT_EQ(counts_of([&] { EXPECT_NE(small.find("k7"), nullptr); }).news, 0u);
  const yajson::Value large = object_of(16);
  EXPECT_GT(counts_of([&] { EXPECT_NE(large.find("k7"), nullptr); }).news, 0u);
  EXPECT_EQ(counts_of([&] { EXPECT_NE(large.find("k8"), nullptr); }).news, 0u);
}

TEST(Serialize, takes_one_allocation_for_a_message_of_up_to_4096_bytes) {
  const JsonReader reader(message(10).c_str(), 8192);
  const std::string text = reader.to_string();
  ASSERT_GT(text.size(), 1000u);
  ASSERT_LT(text.size(), 4096u);
  EXPECT_EQ(counts_of([&] { reader.to_string(); }).news, 1u);
}

}  // namespace
}  // namespace rrm
