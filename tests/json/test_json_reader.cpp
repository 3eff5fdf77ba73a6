#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "json/JsonReader.h"

namespace rrm {
namespace {

// --- the tables of reads

struct IntCase {
  const char* label;
  const char* json;
  std::int32_t as_int;
  std::optional<int> as_opt_int;
};

const IntCase int_cases[] = {
    {"zero", "0", 0, 0},
    {"positive", "42", 42, 42},
    {"negative", "-42", -42, -42},
    {"largest", "2147483647", 2147483647, 2147483647},
    {"smallest", "-2147483648", -2147483648, -2147483648},
    {"one above is cut to 32 bits", "2147483648", -2147483648, -2147483648},
    {"one below is cut to 32 bits", "-2147483649", 2147483647, 2147483647},
    {"2^32 + 5 is cut to 32 bits", "4294967301", 5, 5},
    {"unsigned is cut to 32 bits", "18446744073709551615", -1, -1},
    {"float reads as 0", "1.5", 0, 0},
    {"whole float reads as 0", "3.0", 0, 0},
    {"beyond 64 bits reads as 0", "18446744073709551616", 0, 0},
    {"true", "true", 1, {}},
    {"false", "false", 0, {}},
    {"null", "null", 0, {}},
    {"text of a number", R"("42")", 42, {}},
    {"text of a negative number", R"("-42")", -42, {}},
    {"text with a sign", R"("+7")", 7, {}},
    {"text with a space in front", R"(" 7")", 7, {}},
    {"text with a space behind", R"("7 ")", 0, {}},
    {"text of a number and more", R"("42x")", 0, {}},
    {"text of a float", R"("1.5")", 0, {}},
    {"hexadecimal text", R"("0x10")", 0, {}},
    {"empty text", R"("")", 0, {}},
    {"text of letters", R"("abc")", 0, {}},
    {"text of a long number is cut to 32 bits", R"("99999999999")", 1215752191, {}},
    {"text of the largest long", R"("9223372036854775807")", -1, {}},
    {"text beyond the largest long", R"("9223372036854775808")", 0, {}},
    {"text below the smallest long", R"("-9223372036854775809")", 0, {}},
    {"text with a NUL behind the number", R"("42\u0000")", 0, {}},
    {"array", "[1]", 0, {}},
    {"object", R"({"a":1})", 0, {}},
};

TEST(JsonReaderInt, converts_by_one_rule_for_members_and_elements) {
  for (const IntCase& c : int_cases) {
    SCOPED_TRACE(c.label);
    const JsonReader object((std::string(R"({"key":)") + c.json + "}").c_str());
    ASSERT_FALSE(object.empty());
    EXPECT_EQ(object.get_int("key"), c.as_int);
    EXPECT_EQ(object.get_opt_int("key"), c.as_opt_int);
    const JsonReader array((std::string("[") + c.json + "]").c_str());
    EXPECT_EQ(array.get_int(0), c.as_int);
  }
}

TEST(JsonReaderInt, of_a_missing_member_is_0_and_not_engaged) {
  const JsonReader reader(R"({"key":1})");
  EXPECT_EQ(reader.get_int("other"), 0);
  EXPECT_EQ(reader.get_opt_int("other"), std::nullopt);
  EXPECT_EQ(JsonReader("[1]").get_int("key"), 0);
  EXPECT_EQ(JsonReader("[1]").get_opt_int("key"), std::nullopt);
}

TEST(JsonReaderString, gives_texts_of_every_length_and_empty_ones_for_the_rest) {
  const JsonReader reader(
      R"({"short":"text","fifteen":"123456789012345","sixteen":"1234567890123456","empty":"","int":5,"null":null,)"
      R"("list":["a",1,"12345678901234567890"],"escaped":"a\"b\u00e9"})");
  EXPECT_STREQ(reader.get_string("short"), "text");
  EXPECT_STREQ(reader.get_string("fifteen"), "123456789012345");
  EXPECT_STREQ(reader.get_string("sixteen"), "1234567890123456");
  EXPECT_STREQ(reader.get_string("empty"), "");
  EXPECT_STREQ(reader.get_string("escaped"), "a\"b\xC3\xA9");
  for (const char* other : {"int", "null", "list", "missing"}) EXPECT_STREQ(reader.get_string(other), "") << other;
  const JsonReader list = reader.get("list");
  EXPECT_STREQ(list.get_string(0), "a");
  EXPECT_STREQ(list.get_string(1), "");
  EXPECT_STREQ(list.get_string(2), "12345678901234567890");
  EXPECT_STREQ(list.get_string(3), "");
  EXPECT_STREQ(list.get_string(-1), "");
  EXPECT_STREQ(list.get_string("a"), "");
}

TEST(JsonReaderMembers, are_there_or_not) {
  const JsonReader reader(R"({"a":1,"null":null,"":2})");
  EXPECT_TRUE(reader.has("a"));
  EXPECT_TRUE(reader.has("null"));
  EXPECT_TRUE(reader.has(""));
  EXPECT_FALSE(reader.has("b"));
  EXPECT_TRUE(reader.get("null").empty());
  EXPECT_TRUE(reader.get("b").empty());
  for (const char* text : {"[1]", "1", "\"a\"", "null"}) EXPECT_FALSE(JsonReader(text).has("a")) << text;
}

TEST(JsonReaderMembers, of_another_kind_than_asked_for_are_empty) {
  const JsonReader reader(R"({"array":[1],"object":{"a":1},"null":null,"text":"[1]","number":1})");
  EXPECT_STREQ(reader.get_array("array").to_string(), "[1]");
  EXPECT_STREQ(reader.get_object("object").to_string(), R"({"a":1})");
  for (const char* key : {"object", "null", "text", "number", "none"})
    EXPECT_TRUE(reader.get_array(key).empty()) << key;
  for (const char* key : {"array", "null", "text", "number", "none"})
    EXPECT_TRUE(reader.get_object(key).empty()) << key;
}

TEST(JsonReaderMembers, take_no_null_pointer_for_a_key) {
  const JsonReader reader(R"({"":1})");
  const char* none = nullptr;
  EXPECT_FALSE(reader.has(none));
  EXPECT_TRUE(reader.get(none).empty());
  EXPECT_STREQ(reader.get_string(none), "");
  EXPECT_EQ(reader.get_int(none), 0);
  EXPECT_EQ(reader.get_opt_int(none), std::nullopt);
}

TEST(JsonReaderMembers, of_a_repeated_key_are_the_last) {
  const JsonReader reader(R"({"a":1,"b":2,"a":3})");
  EXPECT_EQ(reader.get_int("a"), 3);
  EXPECT_STREQ(reader.to_string(), R"({"b":2,"a":3})");
}

TEST(JsonReaderElements, exist_within_the_array_only) {
  const JsonReader reader(R"([10,{"a":[1]},null])");
  EXPECT_EQ(reader.size(), 3);
  EXPECT_EQ(reader.get_int(0), 10);
  EXPECT_EQ(reader.at(1).get("a").get_int(0), 1);
  EXPECT_TRUE(reader.at(2).empty());
  for (const int beyond : {-1, 3, 2147483647, -2147483647 - 1}) {
    EXPECT_TRUE(reader.at(beyond).empty());
    EXPECT_EQ(reader.get_int(beyond), 0);
  }
}

TEST(JsonReaderElements, are_none_in_anything_but_an_array) {
  for (const char* text : {R"({"a":1,"b":2})", "1", "\"abc\"", "null", "true", "bad"}) {
    const JsonReader reader(text);
    EXPECT_EQ(reader.size(), 0) << text;
    EXPECT_TRUE(reader.at(0).empty()) << text;
  }
}

TEST(JsonReaderText, is_compact_and_of_the_own_value_only) {
  const JsonReader reader("{ \"a\" : [ 1 , 2.5 , \"x\" ] , \"b\" : { } , \"c\" : null }");
  EXPECT_STREQ(reader.to_string(), R"({"a":[1,2.5,"x"],"b":{},"c":null})");
  const JsonReader list = reader.get("a");
  EXPECT_STREQ(list.to_string(), R"([1,2.5,"x"])");
  EXPECT_STREQ(reader.get("b").to_string(), "{}");
  EXPECT_STREQ(reader.get("c").to_string(), "null");
  EXPECT_STREQ(reader.get("d").to_string(), "null");
  EXPECT_STREQ(list.at(2).to_string(), R"("x")");
}

// --- empty readers

void expect_all_reads_safe(const JsonReader& reader) {
  EXPECT_TRUE(reader.empty());
  EXPECT_FALSE(reader.has("x"));
  EXPECT_TRUE(reader.get("x").empty());
  EXPECT_EQ(reader.get("x").get_int("y"), 0);
  EXPECT_STREQ(reader.get_string("x"), "");
  EXPECT_EQ(reader.get_int("x"), 0);
  EXPECT_EQ(reader.get_opt_int("x"), std::nullopt);
  EXPECT_EQ(reader.size(), 0);
  EXPECT_TRUE(reader.at(0).empty());
  EXPECT_EQ(reader.get_int(0), 0);
  EXPECT_STREQ(reader.get_string(0), "");
  EXPECT_STREQ(reader.to_string(), "null");
}

TEST(JsonReaderEmpty, is_what_a_bad_text_gives) {
  for (const char* text :
       {"", " ", "{", "[1,]", "{\"a\":1}}", "nul", "{'a':1}", "[NaN]", "[0x1]", "// c\n1", "{a:1}"}) {
    SCOPED_TRACE(text);
    expect_all_reads_safe(JsonReader(text));
    expect_all_reads_safe(JsonReader(text, 8192));
  }
}

TEST(JsonReaderEmpty, is_what_no_text_and_null_give) {
  expect_all_reads_safe(JsonReader(nullptr));
  expect_all_reads_safe(JsonReader(nullptr, 8192));
  expect_all_reads_safe(JsonReader("null"));
  yajson::MonotonicArena arena(4096);
  expect_all_reads_safe(JsonReader(nullptr, arena));
}

TEST(JsonReaderEmpty, is_not_what_an_empty_container_gives) {
  EXPECT_FALSE(JsonReader("{}").empty());
  EXPECT_FALSE(JsonReader("[]").empty());
  EXPECT_FALSE(JsonReader("0").empty());
  EXPECT_FALSE(JsonReader("\"\"").empty());
}

TEST(JsonReaderEmpty, is_what_more_than_512_levels_give) {
  const auto nested = [](std::size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); };
  EXPECT_FALSE(JsonReader(nested(512).c_str()).empty());
  EXPECT_TRUE(JsonReader(nested(513).c_str()).empty());
}

// --- arenas

const std::string message =
    R"({"cmd":"rrm-response","long":"a text that is longer than fifteen","list":[1,{"deep":"x"}]})";

TEST(JsonReaderArena, of_its_own_or_the_callers_reads_like_the_heap) {
  const JsonReader heap(message.c_str());
  for (const std::size_t block_size : {0u, 1u, 255u, 256u, 4096u, 8192u}) {
    const JsonReader own(message.c_str(), block_size);
    EXPECT_STREQ(own.to_string(), heap.to_string()) << block_size;
    EXPECT_STREQ(own.get_string("long"), "a text that is longer than fifteen");
  }
  yajson::MonotonicArena arena(4096);
  const JsonReader callers(message.c_str(), arena);
  EXPECT_STREQ(callers.to_string(), heap.to_string());
  EXPECT_EQ(arena.total_bytes(), 4096u + 16);
}

TEST(JsonReaderArena, is_bound_during_the_parse_only) {
  const JsonReader reader(message.c_str(), 4096);
  EXPECT_EQ(yajson::current_arena, nullptr);
  const JsonReader bad("[1,", 4096);
  EXPECT_EQ(yajson::current_arena, nullptr);
  yajson::MonotonicArena bound(4096);
  const yajson::ArenaScope scope(&bound);
  const JsonReader other(message.c_str(), 4096);
  EXPECT_EQ(yajson::current_arena, &bound);
  EXPECT_EQ(bound.total_bytes(), 0u);
}

TEST(JsonReaderArena, of_a_size_that_no_memory_has_leaves_the_reader_empty) {
  expect_all_reads_safe(JsonReader(message.c_str(), std::numeric_limits<std::size_t>::max()));
}

TEST(JsonReaderArena, of_somebody_else_is_never_used) {
  auto bound = std::make_unique<yajson::MonotonicArena>(4096);
  std::optional<JsonReader> reader;
  {
    const yajson::ArenaScope scope(bound.get());
    reader.emplace(message.c_str());
  }
  EXPECT_EQ(bound->total_bytes(), 0u);
  bound.reset();
  EXPECT_STREQ(reader->to_string(), message.c_str());
}

// --- moves and copies

TEST(JsonReaderMove, takes_document_and_place_along) {
  for (const bool in_arena : {false, true}) {
    JsonReader source = in_arena ? JsonReader(message.c_str(), 4096) : JsonReader(message.c_str());
    const JsonReader child = source.get("list").at(1);
    const char* text = source.get_string("long");
    JsonReader moved(std::move(source));
    expect_all_reads_safe(source);
    EXPECT_STREQ(moved.to_string(), message.c_str());
    // What pointed into the document still does.
    EXPECT_STREQ(child.get_string("deep"), "x");
    EXPECT_EQ(moved.get_string("long"), text);

    JsonReader target(R"({"replaced":"a text that is longer than fifteen"})", 8192);
    target = std::move(moved);
    expect_all_reads_safe(moved);
    EXPECT_STREQ(target.to_string(), message.c_str());
    EXPECT_EQ(target.get_string("long"), text);
  }
}

TEST(JsonReaderMove, of_a_child_keeps_pointing_into_the_parent) {
  const JsonReader parent(message.c_str());
  JsonReader child = parent.get("list");
  const JsonReader moved(std::move(child));
  EXPECT_EQ(moved.size(), 2);
  EXPECT_STREQ(parent.to_string(), message.c_str());
}

TEST(JsonReaderMove, of_a_document_that_is_one_short_text_keeps_it) {
  JsonReader source("\"short\"");
  const JsonReader moved(std::move(source));
  EXPECT_STREQ(moved.to_string(), "\"short\"");
}

TEST(JsonReaderMove, to_itself_changes_nothing) {
  JsonReader reader(message.c_str(), 4096);
  JsonReader& same = reader;
  reader = std::move(same);
  EXPECT_STREQ(reader.to_string(), message.c_str());
}

TEST(JsonReaderMove, never_throws_so_that_readers_live_in_vectors) {
  static_assert(std::is_nothrow_move_constructible_v<JsonReader> && std::is_nothrow_move_assignable_v<JsonReader>);
  std::vector<JsonReader> readers;
  for (int i = 0; i < 10; ++i) readers.emplace_back(std::to_string(i).c_str());
  for (std::size_t i = 0; i < 10; ++i) EXPECT_EQ(readers[i].to_string(), std::to_string(i));
}

TEST(JsonReaderCopy, always_throws) {
  const JsonReader reader("1");
  JsonReader other("2");
  const auto text_of = [](auto copy) -> std::string {
    try {
      copy();
      return "no error";
    } catch (const std::logic_error& error) {
      return error.what();
    }
  };
  EXPECT_EQ(text_of([&] { const JsonReader copy(reader); }), "Copy JsonReader not allowed\n");
  EXPECT_EQ(text_of([&] { other = reader; }), "Copy JsonReader not allowed\n");
  EXPECT_STREQ(other.to_string(), "2");
}

// --- descriptors

// A pipe that holds a text, closed for writing.
class Pipe {
 public:
  explicit Pipe(const std::string& text) {
    EXPECT_EQ(::pipe(ends_), 0);
    EXPECT_EQ(::write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    ::close(ends_[1]);
  }
  ~Pipe() { ::close(ends_[0]); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  int fd() const { return ends_[0]; }

 private:
  int ends_[2] = {-1, -1};
};

TEST(JsonReaderFromFd, reads_to_the_end_in_steps) {
  for (const std::size_t length : {1u, 4000u, 4093u, 4094u, 4095u, 4096u, 8190u, 20000u}) {
    const std::string text = "[\"" + std::string(length, 'x') + "\"]";
    const Pipe pipe(text);
    EXPECT_EQ(JsonReader::from_fd(pipe.fd()).to_string(), text) << length;
  }
}

TEST(JsonReaderFromFd, leaves_the_descriptor_open) {
  const Pipe pipe("1");
  EXPECT_FALSE(JsonReader::from_fd(pipe.fd()).empty());
  EXPECT_NE(::fcntl(pipe.fd(), F_GETFD), -1);
}

TEST(JsonReaderFromFd, is_empty_for_nothing_an_error_and_a_bad_text) {
  expect_all_reads_safe(JsonReader::from_fd(-1));
  expect_all_reads_safe(JsonReader::from_fd(Pipe("").fd()));
  expect_all_reads_safe(JsonReader::from_fd(Pipe("[1,").fd()));
  expect_all_reads_safe(JsonReader::from_fd(Pipe(std::string("1\0", 2)).fd()));
  const int directory = ::open("/", O_RDONLY | O_DIRECTORY);
  ASSERT_NE(directory, -1);
  expect_all_reads_safe(JsonReader::from_fd(directory));
  ::close(directory);
}

// --- the value itself

TEST(JsonReader, AValueIsTheReadersOwnAndItsCopiesOutliveIt) {
  yajson::Value copy;
  {
    const JsonReader reader(R"({"ap":{"mac":"A8:F9:4B:00:11:00"}})", 256);
    EXPECT_EQ(&reader.get("ap").value(), reader.value().find("ap"));
    copy = reader.get("ap").value();
  }
  EXPECT_EQ(copy.find("mac")->as_string(), "A8:F9:4B:00:11:00");
}

TEST(JsonReader, TheValueOfAnEmptyReaderIsNull) {
  EXPECT_TRUE(JsonReader(static_cast<const char*>(nullptr)).value().is_null());
  EXPECT_TRUE(JsonReader("{}").get("absent").value().is_null());
}

}  // namespace
}  // namespace rrm
