#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "yajson/key_hash.h"
#include "yajson/object.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace yajson {
namespace {

struct HashCase {
  std::string_view key;
  std::uint64_t hash;
};

TEST(KeyHash, mixes_every_length_as_computed_elsewhere) {
  using namespace std::string_view_literals;
  const HashCase cases[] = {
      {"", 0x57e847f7c8430bbf},
      {"a", 0xcb7054bd832e3c69},
      {"id", 0xa474d1e285a779eb},
      {"mac", 0x937ce55fac0e95c6},
      {"rssi", 0x04ee9a28e9faeec3},
      {"band2", 0x50ff1ccdf698962c},
      {"bssids", 0x0a41a6cb160720cd},
      {"channel", 0x20096961b687b65d},
      {"tx-power", 0x5e340027da863c30},
      {"802dot11r", 0xdafedb6c01f49da0},
      {"ap-mac-count", 0x5529ecc79a50f4ed},
      {"primary-channel", 0x2854ceb1feb2a677},
      {"fbt-r0-keyholder", 0xcd6d449d4ff008f8},
      {"locked-for-80211v", 0x797be08a89552382},
      {"antenna-configuration", 0x55d4715b9570c295},
      {"0123456789abcdef0123456789abcde", 0xe549ff84768b1198},
      {"0123456789abcdef0123456789abcdef", 0xb91d69b01854d91a},
      {"0123456789abcdef0123456789abcdef0", 0x966f15de3518e1a3},
      {"\0"sv, 0x6322c5de64c59282},
      {"\xff\x80\xc3"sv, 0xa772bd523809726b},
      {"\xff\xff\xff\xff\xff\xff\xff\xff"sv, 0x908288b53f1aa8b1},
      {"\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"sv, 0x2f0f18f420a386cc},
  };
  for (const HashCase& c : cases) EXPECT_EQ(hash_key(c.key), c.hash) << c.key;
}

std::string key_of(std::size_t i) {
  return "key-" + std::to_string(i);
}

// Every member is found with its own value, and a key beside each is not.
void expect_all_found(const Object& object, std::size_t count) {
  ASSERT_EQ(object.size(), count);
  for (std::size_t i = 0; i < count; ++i) {
    const Value* found = object.find(key_of(i));
    ASSERT_NE(found, nullptr) << i << " of " << count;
    EXPECT_EQ(found, &object.members()[i].value);
    EXPECT_EQ(found->as_integer(), static_cast<std::int64_t>(i));
    EXPECT_EQ(object.find(key_of(i) + "x"), nullptr);
  }
  EXPECT_EQ(object.find(key_of(count)), nullptr);
}

TEST(ObjectLookup, gives_the_same_result_at_every_size) {
  for (MonotonicArena arena(65536); MonotonicArena * place : {static_cast<MonotonicArena*>(nullptr), &arena}) {
    for (const std::size_t count : {0u, 1u, 14u, 15u, 16u, 17u, 18u, 29u, 30u, 31u, 59u, 60u, 61u, 300u}) {
      Object object(place);
      for (std::size_t i = 0; i < count; ++i) object.append(key_of(i)).assign(i);
      expect_all_found(object, count);
    }
  }
}

TEST(ObjectLookup, stays_right_while_the_members_move_and_the_index_grows) {
  Object object(nullptr);
  for (std::size_t i = 0; i < 200; ++i) {
    object.set(key_of(i), Value(i));
    expect_all_found(object, i + 1);
  }
}

TEST(ObjectLookup, finds_a_replaced_value_below_at_and_above_the_threshold) {
  for (const std::size_t count : {15u, 16u, 17u}) {
    Object object(nullptr);
    for (std::size_t i = 0; i < count; ++i) object.set(key_of(i), Value(-1));
    for (std::size_t i = 0; i < count; ++i) object.set(key_of(i), Value(i));
    expect_all_found(object, count);
  }
}

TEST(ObjectLookup, tells_keys_apart_that_share_a_bucket) {
  // 29 buckets hold 29 keys at most; with 29 keys some must share one.
  Object object(nullptr);
  for (std::size_t i = 0; i < 29; ++i) object.set(key_of(i), Value(i));
  std::set<std::uint64_t> buckets;
  for (std::size_t i = 0; i < 29; ++i) buckets.insert(static_cast<std::uint32_t>(hash_key(key_of(i))) % 29);
  ASSERT_LT(buckets.size(), 29u);
  expect_all_found(object, 29);
}

TEST(ObjectLookup, of_a_copy_has_an_index_of_its_own) {
  Value original = Value::object();
  for (std::size_t i = 0; i < 17; ++i) original.set(key_of(i), Value(i));
  Value copy = original;
  original = Value();
  expect_all_found(copy.as_object(), 17);
}

// --- repeated keys

// An object text with `count` distinct keys, in which the first key comes again at the end.
std::string with_the_first_key_again(std::size_t count) {
  std::string text = "{";
  for (std::size_t i = 0; i < count; ++i) text += "\"" + key_of(i) + "\":" + std::to_string(i) + ",";
  return text + "\"" + key_of(0) + "\":\"last\"}";
}

std::string without_repeats(const std::string& text) {
  ParseOptions options;
  options.allow_duplicate_keys = true;
  return serialize(parse(text.data(), text.size(), options));
}

TEST(RepeatedKeys, leave_the_last_value_at_the_last_position_on_both_sides_of_the_threshold) {
  // With the repetition the object has 15, 16, 17, 18 and 40 members.
  for (const std::size_t distinct : {14u, 15u, 16u, 17u, 39u}) {
    std::string expected = "{";
    for (std::size_t i = 1; i < distinct; ++i) expected += "\"" + key_of(i) + "\":" + std::to_string(i) + ",";
    expected += "\"" + key_of(0) + "\":\"last\"}";
    EXPECT_EQ(without_repeats(with_the_first_key_again(distinct)), expected) << distinct;
  }
}

TEST(RepeatedKeys, leave_the_last_of_many) {
  EXPECT_EQ(without_repeats(R"({"a":1,"a":2})"), R"({"a":2})");
  EXPECT_EQ(without_repeats(R"({"a":1,"b":2,"a":3})"), R"({"b":2,"a":3})");
  EXPECT_EQ(without_repeats(R"({"a":1,"a":2,"a":3,"b":4,"b":5,"a":6})"), R"({"b":5,"a":6})");
  EXPECT_EQ(without_repeats(R"({"":1,"b":2,"":3})"), R"({"b":2,"":3})");
  EXPECT_EQ(without_repeats(R"({"a":{"x":1,"x":2},"a":{"y":1,"y":2}})"), R"({"a":{"y":2}})");
}

TEST(RepeatedKeys, are_told_by_their_bytes_after_escapes) {
  EXPECT_EQ(without_repeats(R"({"a":1,"\u0061":2})"), R"({"a":2})");
  EXPECT_EQ(without_repeats(R"({"a":1,"a\u0000":2})"), R"({"a":1,"a\u0000":2})");
  EXPECT_EQ(without_repeats(R"({"a longer key, repeated":1,"a longer key, repeateD":2,"a longer key, repeated":3})"),
            R"({"a longer key, repeateD":2,"a longer key, repeated":3})");
}

// 20 keys come 1 to 4 times each; also the empty one, whose members are moved about.
TEST(RepeatedKeys, among_many_members_keep_the_order_of_their_last_positions) {
  std::vector<std::pair<std::string, int>> members;
  for (int round = 0; round < 4; ++round) {
    for (int key = 0; key < 20; ++key) {
      if (key % 4 >= round) members.emplace_back(key == 7 ? "" : "k" + std::to_string(key), 100 * round + key);
    }
  }
  std::string text = "{";
  std::string expected = "{";
  for (std::size_t i = 0; i < members.size(); ++i) {
    const auto& [key, value] = members[i];
    const std::string member = "\"" + key + "\":" + std::to_string(value);
    text += (i > 0 ? "," : "") + member;
    bool comes_again = false;
    for (std::size_t later = i + 1; later < members.size(); ++later) comes_again |= members[later].first == key;
    if (!comes_again) expected += (expected.size() > 1 ? "," : "") + member;
  }
  EXPECT_EQ(without_repeats(text + "}"), expected + "}");
}

TEST(RepeatedKeys, leave_every_look_up_right) {
  ParseOptions options;
  options.allow_duplicate_keys = true;
  for (MonotonicArena arena(65536); MonotonicArena * place : {static_cast<MonotonicArena*>(nullptr), &arena}) {
    const ArenaScope scope(place);
    for (const std::size_t distinct : {14u, 15u, 16u, 17u}) {
      const std::string text = with_the_first_key_again(distinct);
      Value value = parse(text.data(), text.size(), options);
      ASSERT_EQ(value.size(), distinct);
      EXPECT_EQ(value.find(key_of(0))->as_string(), "last");
      for (std::size_t i = 1; i < distinct; ++i) {
        EXPECT_EQ(value.find(key_of(i))->as_integer(), static_cast<std::int64_t>(i));
      }
      value.set("one more", Value(1));
      EXPECT_EQ(value.find("one more")->as_integer(), 1);
      EXPECT_EQ(value.find(key_of(distinct - 1))->as_integer(), static_cast<std::int64_t>(distinct - 1));
    }
  }
}

}  // namespace
}  // namespace yajson
