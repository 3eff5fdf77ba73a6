#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "yajson/error.h"

namespace rrm {
namespace {

struct EnvelopeCase {
  const char* service;
  const char* cmd;
  const char* version;
  const char* text;
};

TEST(JsonWriterEnvelope, orders_version_service_and_cmd) {
  const EnvelopeCase cases[] = {
      {"rrm", "ping", "2.1", R"({"version":"2.1","service":"rrm","cmd":"ping"})"},
      {"rrm", "ping", nullptr, R"({"service":"rrm","version":"2.4","cmd":"ping"})"},
      {"rrm", "ping", "", R"({"service":"rrm","version":"2.4","cmd":"ping"})"},
      {"cfg", "ping", nullptr, R"({"service":"cfg","cmd":"ping"})"},
      {"cfg", "ping", "2.1", R"({"version":"2.1","service":"cfg","cmd":"ping"})"},
      {"rrm", nullptr, nullptr, R"({"service":"rrm","version":"2.4"})"},
      {"rrm", "", nullptr, R"({"service":"rrm","version":"2.4"})"},
      {nullptr, "ping", nullptr, R"({"cmd":"ping"})"},
      {"", "ping", "2.1", R"({"version":"2.1","cmd":"ping"})"},
      {"rrm2", "ping", nullptr, R"({"service":"rrm2","cmd":"ping"})"},
      {nullptr, nullptr, nullptr, "{}"},
  };
  for (const EnvelopeCase& c : cases) EXPECT_STREQ(JsonWriter(c.service, c.cmd, c.version).to_string(), c.text);
}

TEST(JsonWriterEnvelope, has_a_version_alone_when_one_is_given) {
  EXPECT_STREQ(JsonWriter("2.1").to_string(), R"({"version":"2.1"})");
  EXPECT_STREQ(JsonWriter("").to_string(), "{}");
  EXPECT_STREQ(JsonWriter(nullptr).to_string(), "{}");
  EXPECT_STREQ(JsonWriter().to_string(), "{}");
}

TEST(JsonWriterAdd, writes_integers_and_texts) {
  JsonWriter writer;
  writer.add_int("zero", 0).add_int("largest", INT32_MAX).add_int("smallest", INT32_MIN);
  writer.add_string("text", "a \"b\"").add_string("none", nullptr).add_string("counted", std::string("a\0b", 3));
  writer.add_opt_int("given", 5).add_opt_int("not given", std::nullopt);
  EXPECT_STREQ(writer.to_string(),
               R"({"zero":0,"largest":2147483647,"smallest":-2147483648,"text":"a \"b\"","none":"",)"
               R"("counted":"a\u0000b","given":5})");
}

TEST(JsonWriterAdd, replaces_the_value_of_a_known_key_in_place) {
  JsonWriter writer("2.1");
  writer.add_int("a", 1).add_string("b", "two").add_int("version", 3).add_string("a", "one");
  EXPECT_STREQ(writer.to_string(), R"({"version":3,"a":"one","b":"two"})");
}

TEST(JsonWriterAdd, takes_no_key_for_the_empty_one) {
  JsonWriter writer;
  writer.add_int(nullptr, 1);
  JsonWriter::array(writer, "list").add_int(nullptr, 2);
  EXPECT_STREQ(writer.to_string(), R"({"":1,"list":[2]})");
}

TEST(JsonWriterAdd, keeps_texts_of_15_16_and_17_bytes) {
  for (const bool in_arena : {false, true}) {
    JsonWriter writer;
    if (in_arena) writer.use_arena(4096);
    for (const std::size_t length : {15u, 16u, 17u})
      writer.add_string(std::string(length, 'k').c_str(), std::string(length, 'v'));
    EXPECT_STREQ(writer.to_string(), R"({"kkkkkkkkkkkkkkk":"vvvvvvvvvvvvvvv","kkkkkkkkkkkkkkkk":"vvvvvvvvvvvvvvvv",)"
                                     R"("kkkkkkkkkkkkkkkkk":"vvvvvvvvvvvvvvvvv"})");
  }
}

TEST(JsonWriterAdd, keeps_every_member_across_the_index_threshold) {
  JsonWriter writer;
  std::string expected = "{";
  for (int i = 0; i < 40; ++i) {
    writer.add_int(("k" + std::to_string(i)).c_str(), -1).add_int(("k" + std::to_string(i)).c_str(), i);
    expected += (i > 0 ? ",\"k" : "\"k") + std::to_string(i) + "\":" + std::to_string(i);
    EXPECT_EQ(writer.to_string(), expected + "}");
  }
}

// --- children

TEST(JsonWriterChild, ignores_keys_in_an_array) {
  JsonWriter writer;
  JsonWriter list = JsonWriter::array(writer, "list");
  list.add_int("ignored", 1).add_int("ignored", 2).add_string("ignored", "three").add_opt_int("ignored", std::nullopt);
  JsonWriter::object(list, "ignored").add_int("key", 4);
  JsonWriter::array(list, nullptr).add_int("ignored", 5);
  EXPECT_STREQ(writer.to_string(), R"({"list":[1,2,"three",{"key":4},[5]]})");
}

TEST(JsonWriterChild, is_made_under_its_key_in_place_of_what_was_there) {
  JsonWriter writer;
  writer.add_int("a", 1).add_int("b", 2);
  JsonWriter::object(writer, "a").add_int("x", 3);
  JsonWriter::array(writer, nullptr);
  JsonWriter(writer, true, "c").add_int("", 4);
  JsonWriter(writer, false, "d");
  EXPECT_STREQ(writer.to_string(), R"({"a":{"x":3},"b":2,"":[],"c":[4],"d":{}})");
}

TEST(JsonWriterChild, writes_into_its_own_element_however_its_parents_grow) {
  JsonWriter writer;
  JsonWriter list = JsonWriter::array(writer, "list");
  JsonWriter first = JsonWriter::object(list, nullptr);
  JsonWriter inner = JsonWriter::array(first, "inner");
  inner.add_int("", 1);
  std::string others;
  for (int i = 0; i < 1000; ++i) {
    list.add_int("", i);
    writer.add_int(("k" + std::to_string(i)).c_str(), i);
    others += "," + std::to_string(i);
  }
  first.add_int("late", 2);
  inner.add_int("", 3);
  EXPECT_EQ(list.to_string(), R"([{"inner":[1,3],"late":2})" + others + "]");
}

TEST(JsonWriterChild, may_be_one_of_many_open_at_once) {
  JsonWriter writer;
  JsonWriter a = JsonWriter::object(writer, "a");
  JsonWriter b = JsonWriter::array(writer, "b");
  JsonWriter c = JsonWriter::object(b, nullptr);
  JsonWriter d = JsonWriter::object(b, nullptr);
  d.add_int("d", 1);
  a.add_int("a", 2);
  c.add_int("c", 3);
  b.add_int("", 4);
  EXPECT_STREQ(writer.to_string(), R"({"a":{"a":2},"b":[{"c":3},{"d":1},4]})");
}

TEST(JsonWriterChild, gives_the_text_of_its_own_part_only) {
  JsonWriter writer;
  JsonWriter a = JsonWriter::object(writer, "a");
  JsonWriter list = JsonWriter::array(a, "list");
  list.add_int("", 1);
  EXPECT_STREQ(list.to_string(), "[1]");
  EXPECT_STREQ(list.to_pretty_string(), "[\n    1\n]");
  EXPECT_STREQ(a.to_string(), R"({"list":[1]})");
}

template <class Exception>
std::string error_of(JsonWriter& writer) {
  try {
    writer.add_int("key", 1);
    return "no error";
  } catch (const Exception& error) {
    return error.what();
  }
}

TEST(JsonWriterChild, fails_when_its_parent_has_replaced_its_container) {
  JsonWriter writer;
  JsonWriter object = JsonWriter::object(writer, "object");
  JsonWriter list = JsonWriter::array(writer, "list");
  JsonWriter grandchild = JsonWriter::object(object, "inner");
  JsonWriter element = JsonWriter::object(list, nullptr);
  writer.add_int("object", 1).add_string("list", "none");
  EXPECT_EQ(error_of<yajson::TypeError>(object), "expected object, got integer");
  EXPECT_EQ(error_of<yajson::TypeError>(list), "expected array, got string");
  EXPECT_EQ(error_of<yajson::TypeError>(grandchild), "expected object, got integer");
  EXPECT_EQ(error_of<yajson::TypeError>(element), "expected array, got string");

  const JsonWriter fresh_object = JsonWriter::object(writer, "object");
  const JsonWriter fresh_list = JsonWriter::array(writer, "list");
  EXPECT_EQ(error_of<yajson::TypeError>(grandchild), "expected object, got null");
  EXPECT_EQ(error_of<yajson::OutOfRangeError>(element), "array index 0 out of range (size=0)");
  EXPECT_STREQ(writer.to_string(), R"({"object":{},"list":[]})");
}

// --- text

TEST(JsonWriterText, is_pretty_with_four_spaces_a_level) {
  JsonWriter writer;
  writer.add_int("a", 1);
  JsonWriter list = JsonWriter::array(writer, "list");
  JsonWriter::object(list, nullptr).add_string("b", "c");
  JsonWriter::object(writer, "empty");
  EXPECT_STREQ(writer.to_pretty_string(),
               "{\n"
               "    \"a\": 1,\n"
               "    \"list\": [\n"
               "        {\n"
               "            \"b\": \"c\"\n"
               "        }\n"
               "    ],\n"
               "    \"empty\": {}\n"
               "}");
}

TEST(JsonWriterText, of_both_forms_stands_side_by_side) {
  JsonWriter writer("1");
  const char* compact = writer.to_string();
  const char* pretty = writer.to_pretty_string();
  EXPECT_STREQ(compact, R"({"version":"1"})");
  EXPECT_STREQ(pretty, "{\n    \"version\": \"1\"\n}");
}

// --- moves

TEST(JsonWriterMove, leaves_an_empty_writer_and_nothing_else_is_empty) {
  JsonWriter writer;
  EXPECT_FALSE(writer.empty());
  writer.add_int("a", 1);
  JsonWriter child = JsonWriter::object(writer, "child");
  EXPECT_FALSE(child.empty());
  JsonWriter moved(std::move(writer));
  EXPECT_TRUE(writer.empty());
  EXPECT_FALSE(moved.empty());
  EXPECT_STREQ(moved.to_string(), R"({"a":1,"child":{}})");
  EXPECT_STREQ(writer.to_string(), "null");
  writer = std::move(moved);
  EXPECT_TRUE(moved.empty());
  EXPECT_STREQ(writer.to_string(), R"({"a":1,"child":{}})");
  EXPECT_EQ(error_of<yajson::TypeError>(moved), "expected object, got null");
}

TEST(JsonWriterMove, of_a_child_keeps_its_place) {
  JsonWriter writer;
  JsonWriter child = JsonWriter::object(writer, "a_key_that_is_longer_than_fifteen");
  child.add_int("x", 1);
  JsonWriter moved(std::move(child));
  moved.add_int("y", 2);
  EXPECT_STREQ(writer.to_string(), R"({"a_key_that_is_longer_than_fifteen":{"x":1,"y":2}})");
}

TEST(JsonWriterMove, to_itself_changes_nothing) {
  JsonWriter writer("1");
  writer.use_arena(256);
  JsonWriter& same = writer;
  writer = std::move(same);
  EXPECT_STREQ(writer.to_string(), R"({"version":"1"})");
}

// --- arenas

void fill(JsonWriter& writer) {
  writer.add_string("a key that is longer than fifteen", "a text that is longer than fifteen");
  JsonWriter list = JsonWriter::array(writer, "list");
  for (int i = 0; i < 20; ++i)
    JsonWriter::object(list, nullptr).add_int("id", i).add_string("name", "another long text");
}

TEST(JsonWriterArena, holds_what_was_there_and_what_comes) {
  JsonWriter plain("2.1");
  fill(plain);
  for (const std::size_t block_size : {0u, 1u, 256u, 8192u}) {
    JsonWriter early("2.1");
    fill(early.use_arena(block_size));
    EXPECT_STREQ(early.to_string(), plain.to_string());
    JsonWriter late("2.1");
    fill(late);
    late.use_arena(block_size);
    EXPECT_STREQ(late.to_string(), plain.to_string());
  }
}

TEST(JsonWriterArena, takes_over_a_tree_whose_children_are_open) {
  JsonWriter writer;
  JsonWriter list = JsonWriter::array(writer, "list");
  JsonWriter first = JsonWriter::object(list, nullptr);
  first.add_string("early", "a text that is longer than fifteen");
  writer.use_arena(256);
  first.add_string("late", "another text that is longer than fifteen");
  JsonWriter::object(list, nullptr).add_int("second", 2);
  EXPECT_STREQ(writer.to_string(), R"({"list":[{"early":"a text that is longer than fifteen",)"
                                   R"("late":"another text that is longer than fifteen"},{"second":2}]})");
}

TEST(JsonWriterArena, is_bound_until_the_writer_dies) {
  {
    JsonWriter writer;
    EXPECT_EQ(yajson::current_arena, nullptr);
    writer.use_arena(4096);
    const yajson::MonotonicArena* bound = yajson::current_arena;
    ASSERT_NE(bound, nullptr);
    EXPECT_EQ(bound->total_bytes(), 4096u + 16);
    writer.use_arena(8192);
    EXPECT_EQ(yajson::current_arena, bound);
    JsonWriter child = JsonWriter::object(writer, "child");
    child.use_arena(8192);
    EXPECT_EQ(yajson::current_arena, bound);
    const JsonWriter moved(std::move(writer));
    EXPECT_EQ(yajson::current_arena, bound);
  }
  EXPECT_EQ(yajson::current_arena, nullptr);
}

TEST(JsonWriterArena, has_blocks_of_256_bytes_at_least) {
  JsonWriter writer;
  writer.use_arena(1);
  EXPECT_EQ(yajson::current_arena->total_bytes(), 256u + 16);
}

// Two writers with arenas that die in the order in which they were made: neither leaves anything in the other's.
TEST(JsonWriterArena, holds_no_part_of_another_writers_tree) {
  std::optional<JsonWriter> first;
  std::optional<JsonWriter> second;
  JsonWriter plain;
  first.emplace("1").use_arena(256);
  second.emplace("2").use_arena(256);
  fill(*first);
  fill(*second);
  fill(plain);
  first.reset();
  JsonWriter expected("2");
  fill(expected);
  EXPECT_STREQ(second->to_string(), expected.to_string());
  second.reset();
  EXPECT_EQ(yajson::current_arena, nullptr);
  JsonWriter expected_plain;
  fill(expected_plain);
  EXPECT_STREQ(plain.to_string(), expected_plain.to_string());
}

TEST(JsonWriterArena, goes_with_the_tree_that_replaces_another) {
  JsonWriter target("1");
  fill(target.use_arena(256));
  {
    JsonWriter source("2");
    fill(source.use_arena(256));
    target = std::move(source);
  }
  JsonWriter expected("2");
  fill(expected);
  EXPECT_STREQ(target.to_string(), expected.to_string());
  target = JsonWriter("3");
  EXPECT_EQ(yajson::current_arena, nullptr);
  EXPECT_STREQ(target.to_string(), R"({"version":"3"})");
}

TEST(JsonWriter, copies_what_a_reader_has) {
  JsonWriter writer;
  {
    const JsonReader reader(R"({"ap":{"mac":"A8:F9:4B:00:11:00","radios":[1,{"id":2}],"n":null},"list":[3]})", 256);
    writer.add_string("kept", "where it was").add_string("mac", "replaced where it was");
    writer.add_members(reader.get("ap"));
    writer.add_value("copy", reader.get("ap").get("radios"));
    writer.add_value("absent", reader.get("absent"));
    writer.add_members(reader.get("list")).add_members(reader.get("absent"));
  }
  EXPECT_STREQ(writer.to_string(), R"({"kept":"where it was","mac":"A8:F9:4B:00:11:00","radios":[1,{"id":2}],"n":null,)"
                                   R"("copy":[1,{"id":2}],"absent":null})");
}

TEST(JsonWriter, copies_into_an_array_without_keys) {
  const JsonReader reader(R"({"a":1,"b":"two"})");
  JsonWriter writer;
  JsonWriter list = JsonWriter::array(writer, "list");
  list.add_value("ignored", reader).add_members(reader);
  EXPECT_STREQ(writer.to_string(), R"({"list":[{"a":1,"b":"two"},1,"two"]})");
}

TEST(JsonWriterArena, takes_copies_into_its_own_tree) {
  const JsonReader reader(R"({"text":"longer than what is kept in place"})");
  JsonWriter on_heap;
  {
    JsonWriter in_arena;
    in_arena.use_arena(256).add_members(reader);
    on_heap.add_value("copy", reader).add_members(reader);
  }
  EXPECT_STREQ(on_heap.to_string(), R"({"copy":{"text":"longer than what is kept in place"},)"
                                    R"("text":"longer than what is kept in place"})");
}

TEST(JsonWriter, writes_what_a_reader_reads) {
  JsonWriter writer("rrm", "rrm-info");
  fill(writer);
  const JsonReader reader(writer.to_string(), 4096);
  EXPECT_STREQ(reader.to_string(), writer.to_string());
  EXPECT_EQ(reader.get("list").at(19).get_int("id"), 19);
}

}  // namespace
}  // namespace rrm
