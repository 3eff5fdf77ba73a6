#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "yajson/error.h"
#include "yajson/object.h"
#include "yajson/serializer.h"
#include "yajson/value.h"

namespace yajson {
namespace {

constexpr std::int64_t int64_max = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t int64_min = std::numeric_limits<std::int64_t>::min();
constexpr std::uint64_t uint64_max = std::numeric_limits<std::uint64_t>::max();

const std::string text_15 = "fifteen bytes..";
const std::string text_16 = "sixteen bytes...";
const std::string text_17 = "seventeen bytes..";

// A tree with every kind of body, its long parts wherever the thread's arena says.
Value sample_tree() {
  Value tree = Value::object();
  tree.set("short", Value("text"));
  tree.set("long", Value(text_17));
  tree.set("a key that is long", Value(text_16));
  Value list = Value::array();
  for (int i = 0; i < 20; ++i) list.push_back(Value(i));
  list.push_back(Value(text_17));
  tree.set("list", std::move(list));
  Value wide = Value::object();
  for (int i = 0; i < 17; ++i) wide.set("key " + std::to_string(i), Value(i));
  tree.set("wide", std::move(wide));
  return tree;
}

TEST(Value, has_24_bytes) {
  EXPECT_EQ(sizeof(Value), 24u);
}

TEST(TypeName, names_every_tag) {
  const char* const names[] = {"null", "bool", "integer", "float", "string", "array", "object", "uinteger"};
  for (std::uint8_t tag = 0; tag < 8; ++tag) EXPECT_STREQ(type_name(static_cast<Type>(tag)), names[tag]);
  EXPECT_STREQ(type_name(static_cast<Type>(8)), "unknown");
  EXPECT_STREQ(type_name(static_cast<Type>(255)), "unknown");
}

TEST(Value, takes_the_type_of_what_it_is_made_from) {
  EXPECT_EQ(Value().type(), Type::null);
  EXPECT_EQ(Value(true).type(), Type::boolean);
  EXPECT_EQ(Value(-1).type(), Type::integer);
  EXPECT_EQ(Value(int64_min).type(), Type::integer);
  EXPECT_EQ(Value(uint64_max).type(), Type::uinteger);
  EXPECT_EQ(Value(0.5).type(), Type::floating);
  EXPECT_EQ(Value("text").type(), Type::string);
  EXPECT_EQ(Value::array().type(), Type::array);
  EXPECT_EQ(Value::object().type(), Type::object);
}

// --- typed access

struct AccessCase {
  const char* label;
  Value value;
  const char* actual;  // the type's name
  // Empty where the access must fail.
  std::optional<std::int64_t> integer = {};
  std::optional<std::uint64_t> uinteger = {};
  std::optional<double> number = {};
};

template <class Access>
std::string error_of(Access access) {
  try {
    access();
    return "no error";
  } catch (const TypeError& error) {
    EXPECT_EQ(error.code(), std::error_code(50, json_category()));
    return error.what();
  }
}

TEST(ValueAccess, converts_numbers_that_fit_and_refuses_the_rest) {
  const AccessCase cases[] = {
      {"null", Value(), "null"},
      {"bool", Value(true), "bool"},
      {"zero", Value(0), "integer", 0, 0, 0.0},
      {"minus one", Value(-1), "integer", -1, {}, -1.0},
      {"largest signed", Value(int64_max), "integer", int64_max, int64_max, 9223372036854775807.0},
      {"smallest signed", Value(int64_min), "integer", int64_min, {}, -9223372036854775808.0},
      {"small unsigned", Value(std::uint64_t{7}), "uinteger", 7, 7, 7.0},
      {"largest signed as unsigned", Value(std::uint64_t{int64_max}), "uinteger", int64_max, int64_max, 0x1p63},
      {"one above signed", Value(std::uint64_t{int64_max} + 1), "uinteger", {}, 0x8000000000000000, 0x1p63},
      {"largest unsigned", Value(uint64_max), "uinteger", {}, uint64_max, 0x1p64},
      {"float", Value(1.0), "float", {}, {}, 1.0},
      {"string", Value("1"), "string"},
      {"array", Value::array(), "array"},
      {"object", Value::object(), "object"},
  };
  for (const AccessCase& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string got = std::string(", got ") + c.actual;
    if (c.integer) {
      EXPECT_EQ(c.value.as_integer(), *c.integer);
    } else {
      EXPECT_EQ(error_of([&] { return c.value.as_integer(); }), "expected integer" + got);
    }
    if (c.uinteger) {
      EXPECT_EQ(c.value.as_uinteger(), *c.uinteger);
    } else {
      EXPECT_EQ(error_of([&] { return c.value.as_uinteger(); }), "expected uinteger" + got);
    }
    if (c.number) {
      EXPECT_EQ(c.value.as_number(), *c.number);
    } else {
      EXPECT_EQ(error_of([&] { return c.value.as_number(); }), "expected number" + got);
    }
  }
}

TEST(ValueAccess, gives_each_other_type_to_its_own_accessor_only) {
  const Value values[] = {Value(),    Value(true),    Value(1),        Value(1.5),
                          Value("s"), Value::array(), Value::object(), Value(uint64_max)};
  for (const Value& value : values) {
    const std::string got = std::string(", got ") + type_name(value.type());
    const auto expect = [&](Type own, const char* name, const std::function<void()>& access) {
      EXPECT_EQ(error_of(access), value.type() == own ? "no error" : std::string("expected ") + name + got);
    };
    expect(Type::boolean, "bool", [&] { static_cast<void>(value.as_bool()); });
    expect(Type::string, "string", [&] { static_cast<void>(value.as_string()); });
    expect(Type::array, "array", [&] { static_cast<void>(value.as_array()); });
    expect(Type::object, "object", [&] { static_cast<void>(value.as_object()); });
    Value changeable = value;
    expect(Type::array, "array", [&] { static_cast<void>(changeable.as_array()); });
    expect(Type::object, "object", [&] { static_cast<void>(changeable.as_object()); });
  }
}

TEST(ValueAccess, reads_both_truth_values) {
  EXPECT_TRUE(Value(true).as_bool());
  EXPECT_FALSE(Value(false).as_bool());
}

TEST(ValueAccess, counts_elements_and_members_and_nothing_else) {
  const Value tree = sample_tree();
  EXPECT_EQ(tree.size(), 5u);
  EXPECT_EQ(tree.find("list")->size(), 21u);
  for (const Value& value : {Value(), Value(true), Value(5), Value(5.0), Value("five"), Value(uint64_max)}) {
    EXPECT_EQ(value.size(), 0u) << type_name(value.type());
  }
}

// --- elements and members

TEST(ValueElement, gives_an_array_element_to_read_and_to_change) {
  Value list = Value::array();
  list.push_back(Value(1));
  list.push_back(Value(2));
  list.element(1) = Value("two");
  EXPECT_EQ(std::as_const(list).element(0).as_integer(), 1);
  EXPECT_EQ(std::as_const(list).element(1).as_string(), "two");
}

TEST(ValueElement, refuses_an_index_beyond_the_last) {
  Value list = Value::array();
  list.push_back(Value(1));
  list.push_back(Value(2));
  try {
    list.element(2);
    FAIL();
  } catch (const OutOfRangeError& error) {
    EXPECT_EQ(error.code(), std::error_code(51, json_category()));
    EXPECT_STREQ(error.what(), "array index 2 out of range (size=2)");
  }
  EXPECT_THROW(Value::array().element(0), OutOfRangeError);
}

TEST(ValueElement, is_a_type_error_before_it_is_out_of_range) {
  EXPECT_EQ(error_of([] { Value::object().element(9); }), "expected array, got object");
  EXPECT_EQ(error_of([] { Value(1).element(0); }), "expected array, got integer");
}

TEST(ValuePushBack, appends_to_arrays_only) {
  Value number(1);
  EXPECT_EQ(error_of([&] { number.push_back(Value()); }), "expected array, got integer");
}

TEST(ValueFind, finds_members_and_never_throws) {
  Value tree = sample_tree();
  EXPECT_EQ(tree.find("short")->as_string(), "text");
  EXPECT_EQ(tree.find("a key that is long")->as_string(), text_16);
  EXPECT_EQ(tree.find("shor"), nullptr);
  EXPECT_EQ(tree.find("short "), nullptr);
  EXPECT_EQ(tree.find("a key that is lonG"), nullptr);
  EXPECT_EQ(tree.find(""), nullptr);
  for (Value value : {Value(), Value(1), Value("short"), Value::array()}) EXPECT_EQ(value.find("short"), nullptr);
  static_assert(noexcept(tree.find("short")));
}

TEST(ValueSet, appends_a_new_key_and_replaces_a_known_one_in_place) {
  Value tree = Value::object();
  tree.set("a", Value(1));
  tree.set("b", Value(2));
  tree.set("", Value(3));
  tree.set("a", Value("new"));
  EXPECT_EQ(serialize(tree), R"({"a":"new","b":2,"":3})");
  EXPECT_EQ(error_of([] { Value::array().set("a", Value()); }), "expected object, got array");
}

// --- storage

TEST(ValueString, keeps_every_length_on_the_heap_and_in_an_arena) {
  MonotonicArena arena(4096);
  for (std::size_t length = 0; length < 70; ++length) {
    const std::string text = std::string(length, 'x') + "";
    for (MonotonicArena* place : {static_cast<MonotonicArena*>(nullptr), &arena}) {
      const Value value(text, place);
      EXPECT_EQ(value.as_string(), text);
      EXPECT_EQ(value.as_string().data()[length], '\0');
    }
  }
}

TEST(ValueString, lies_within_the_value_up_to_15_bytes) {
  const auto is_inside = [](const Value& value) {
    const auto at = reinterpret_cast<std::uintptr_t>(value.as_string().data());
    const auto begin = reinterpret_cast<std::uintptr_t>(&value);
    return at == begin + 8;
  };
  MonotonicArena arena(4096);
  EXPECT_TRUE(is_inside(Value(text_15)));
  EXPECT_TRUE(is_inside(Value(text_15, &arena)));
  EXPECT_FALSE(is_inside(Value(text_16)));
  EXPECT_FALSE(is_inside(Value(text_16, &arena)));
}

TEST(ValueString, lies_in_the_current_arena_from_16_bytes_on) {
  MonotonicArena arena(4096);
  const ArenaScope scope(&arena);
  const Value in_place(text_15);
  EXPECT_FALSE(in_place.in_arena());
  EXPECT_EQ(arena.total_bytes(), 0u);
  const Value sixteen(text_16);
  const Value seventeen(text_17);
  EXPECT_TRUE(sixteen.in_arena());
  EXPECT_TRUE(seventeen.in_arena());
  EXPECT_EQ(sixteen.as_string(), text_16);
  EXPECT_EQ(seventeen.as_string(), text_17);
  // One behind the other, each with its NUL.
  EXPECT_EQ(sixteen.as_string().data() + 17, seventeen.as_string().data());
}

TEST(ValueString, counts_its_length_across_nul_bytes) {
  const std::string_view text("a\0b", 3);
  EXPECT_EQ(Value(text).as_string(), text);
  const std::string longer(20, '\0');
  EXPECT_EQ(Value(longer).as_string(), longer);
}

TEST(ValueString, compares_texts_wherever_they_lie) {
  MonotonicArena arena(4096);
  EXPECT_TRUE(Value(text_15).same_text(Value(text_15, &arena)));
  EXPECT_TRUE(Value(text_16).same_text(Value(text_16, &arena)));
  EXPECT_FALSE(Value(text_16).same_text(Value(text_17, &arena)));
  EXPECT_FALSE(Value("ab").same_text(Value("ac")));
  EXPECT_FALSE(Value("ab").same_text(Value(std::string_view("ab\0", 3))));
  EXPECT_FALSE(Value("short").same_text(Value(text_16)));
}

TEST(ValueBodies, lie_where_the_current_arena_says) {
  EXPECT_FALSE(Value::array().in_arena());
  EXPECT_FALSE(Value::object().in_arena());
  MonotonicArena arena(4096);
  const ArenaScope scope(&arena);
  EXPECT_TRUE(Value::array().in_arena());
  EXPECT_TRUE(Value::object().in_arena());
}

TEST(ValueBodies, of_an_arena_still_end_what_was_put_in_from_the_heap) {
  // The leak checker of a sanitized run is the witness.
  MonotonicArena arena(4096);
  Value list = Value::array(&arena);
  list.push_back(Value(text_17));
  list.push_back(sample_tree());
  Value object = Value::object(&arena);
  object.set("a key that is long", Value(text_17));
  object.set("list", std::move(list));
  EXPECT_FALSE(object.find("a key that is long")->in_arena());
  EXPECT_EQ(object.find("list")->size(), 2u);
}

// --- moves and copies

TEST(ValueMove, leaves_null_behind) {
  for (Value value : {Value(1), Value("s"), Value(text_17), sample_tree()}) {
    const std::string text = serialize(value);
    Value taken = std::move(value);
    EXPECT_TRUE(value.is_null());
    EXPECT_EQ(serialize(taken), text);
    value = std::move(taken);
    EXPECT_TRUE(taken.is_null());
    EXPECT_EQ(serialize(value), text);
  }
}

TEST(ValueMove, may_take_a_part_of_what_it_replaces) {
  Value tree = sample_tree();
  tree = std::move(*tree.find("long"));
  EXPECT_EQ(tree.as_string(), text_17);
  Value& same = tree;
  tree = std::move(same);
  EXPECT_EQ(tree.as_string(), text_17);
}

TEST(ValueCopy, is_deep) {
  Value tree = sample_tree();
  const std::string before = serialize(tree);
  Value copy = tree;
  copy.find("list")->push_back(Value(1));
  copy.find("wide")->set("key 3", Value("changed"));
  copy.set("long", Value());
  EXPECT_EQ(serialize(tree), before);
  EXPECT_NE(serialize(copy), before);
  copy = tree;
  EXPECT_EQ(serialize(copy), before);
}

TEST(ValueCopy, of_a_part_may_replace_the_whole) {
  Value tree = sample_tree();
  const Value& part = *tree.find("list");
  tree = part;
  EXPECT_EQ(tree.size(), 21u);
}

TEST(ValueCopy, lies_in_the_arena_of_the_copying_thread_and_outlives_the_original) {
  MonotonicArena target(4096);
  const ArenaScope scope(&target);
  Value copy;
  {
    MonotonicArena source(4096);
    const ArenaScope inner(&source);
    const Value tree = sample_tree();
    EXPECT_TRUE(tree.find("long")->in_arena());
    const ArenaScope outer(&target);
    copy = tree;
  }
  EXPECT_TRUE(copy.in_arena());
  EXPECT_TRUE(copy.find("long")->in_arena());
  EXPECT_TRUE(copy.find("list")->in_arena());
  const ArenaScope heap(nullptr);
  EXPECT_EQ(serialize(copy), serialize(sample_tree()));
}

TEST(ValueCopy, leaves_the_arena_when_none_is_bound) {
  Value copy;
  {
    MonotonicArena arena(4096);
    const ArenaScope scope(&arena);
    const Value tree = sample_tree();
    const ArenaScope heap(nullptr);
    copy = tree;
  }
  EXPECT_FALSE(copy.in_arena());
  EXPECT_FALSE(copy.find("long")->in_arena());
  EXPECT_EQ(serialize(copy), serialize(sample_tree()));
}

TEST(ValueAssign, replaces_any_value_by_any_other) {
  const std::vector<std::function<void(Value&)>> assignments = {
      [](Value& v) { v.assign(true); },
      [](Value& v) { v.assign(2.5); },
      [](Value& v) { v.assign(-3); },
      [](Value& v) { v.assign(uint64_max); },
      [](Value& v) { v.assign("short", nullptr); },
      [](Value& v) { v.assign(text_17, nullptr); },
      [](Value& v) { v.assign_array(nullptr).push_back(Value(text_17)); },
      [](Value& v) { v.assign_object(nullptr).append("key") = Value(text_17); },
  };
  const char* const texts[] = {"true",
                               "2.5",
                               "-3",
                               "18446744073709551615",
                               R"("short")",
                               R"("seventeen bytes..")",
                               R"(["seventeen bytes.."])",
                               R"({"key":"seventeen bytes.."})"};
  for (std::size_t from = 0; from < assignments.size(); ++from) {
    for (std::size_t to = 0; to < assignments.size(); ++to) {
      Value value;
      assignments[from](value);
      assignments[to](value);
      EXPECT_EQ(serialize(value), texts[to]);
    }
  }
}

}  // namespace
}  // namespace yajson
