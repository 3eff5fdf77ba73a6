// A JSON value: 24 bytes that hold a scalar or a string of up to 15 bytes in place and point to anything larger. Where
// the larger parts lie is decided when they are made: in the thread's current arena, or on the heap without one. Copies
// are deep and decide anew; moves leave null behind.
//
// Objects keep their members in the order of insertion and grow a hash index at 16 members. The first look-up builds
// it, also through a const value, so that a value may be read by several threads only once every index is there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "yajson/arena.h"

namespace yajson {

class Object;
class Value;
using Array = std::vector<Value>;

// The order is part of the stored form. `uinteger` is what the parser gives only above the signed range.
enum class Type : std::uint8_t { null, boolean, integer, floating, string, array, object, uinteger };

// The type's name in messages, "unknown" for a tag outside the enumeration.
const char* type_name(Type type) noexcept;

class Value {
 public:
  Value() noexcept = default;
  Value(bool value) noexcept : record_{.type = Type::boolean} { record_.payload.boolean = value; }
  Value(double value) noexcept : record_{.type = Type::floating} { record_.payload.floating = value; }
  template <class T>
  requires(std::is_integral_v<T> && !std::is_same_v<T, bool>) Value(T value)
  noexcept : record_{.type = std::is_signed_v<T> ? Type::integer : Type::uinteger} {
    if constexpr (std::is_signed_v<T>) {
      record_.payload.integer = value;
    } else {
      record_.payload.uinteger = value;
    }
  }
  Value(std::string_view text, MonotonicArena* arena = current_arena) { make_string(text, arena); }
  Value(const char* text) : Value(std::string_view(text)) {}
  static Value array(MonotonicArena* arena = current_arena);
  static Value object(MonotonicArena* arena = current_arena);

  Value(const Value& other);
  Value(Value&& other) noexcept : record_(other.record_) { other.record_.type = Type::null; }
  Value& operator=(const Value& other) { return *this = Value(other); }
  Value& operator=(Value&& other) noexcept;
  ~Value() { release(); }

  Type type() const noexcept { return record_.type; }
  bool is_null() const noexcept { return record_.type == Type::null; }
  bool is_string() const noexcept { return record_.type == Type::string; }
  bool is_array() const noexcept { return record_.type == Type::array; }
  bool is_object() const noexcept { return record_.type == Type::object; }
  // True if a part of this value lies in an arena, and dies with it.
  bool in_arena() const noexcept { return (record_.flags & in_arena_flag) != 0; }

  // Each throws TypeError unless the value is of the type or converts to it without loss. A string is followed by a
  // NUL.
  std::string_view as_string() const;
  std::int64_t as_integer() const;
  std::uint64_t as_uinteger() const;
  bool as_bool() const;
  double as_number() const;
  Array& as_array();
  const Array& as_array() const;
  Object& as_object();
  const Object& as_object() const;

  // Elements of an array, members of an object, else 0.
  std::size_t size() const noexcept;

  // An array's element. Throws TypeError, or OutOfRangeError beyond the last one.
  Value& element(std::size_t index);
  const Value& element(std::size_t index) const;
  // Throws TypeError.
  void push_back(Value value) { as_array().push_back(std::move(value)); }

  // The member's value; null if there is none or this is no object.
  Value* find(std::string_view key) noexcept;
  const Value* find(std::string_view key) const noexcept;
  // Replaces the value of a member in place, or appends one. Throws TypeError.
  void set(std::string_view key, Value value);

 private:
  static constexpr std::uint8_t in_arena_flag = 1;
  static constexpr std::uint8_t out_of_line = 255;
  static constexpr std::size_t max_inline_length = 15;

  union Payload {
    bool boolean;
    std::int64_t integer;
    std::uint64_t uinteger;
    double floating;
    char text[max_inline_length + 1];
    const char* arena_text;
    std::string* heap_text;
    Array* array;
    Object* object;
  };

  struct Record {
    Type type = Type::null;
    std::uint8_t inline_length = 0;  // `out_of_line` for a longer string
    std::uint8_t flags = 0;
    std::uint32_t arena_length = 0;
    Payload payload{};
  };
  static_assert(sizeof(Record) == 24 && offsetof(Record, arena_length) == 4 && offsetof(Record, payload) == 8);

  void make_string(std::string_view text, MonotonicArena* arena) {
    record_.type = Type::string;
    if (text.size() <= max_inline_length) {
      record_.inline_length = static_cast<std::uint8_t>(text.size());
      text.copy(record_.payload.text, text.size());
      record_.payload.text[text.size()] = '\0';
    } else {
      make_long_string(text, arena);
    }
  }
  void make_long_string(std::string_view text, MonotonicArena* arena);
  std::string_view text() const noexcept;
  void release() noexcept {
    if (record_.type >= Type::string && record_.type <= Type::object) release_body();
  }
  void release_body() noexcept;

  Record record_;
};

struct Member {
  Member(std::string_view name, Value content) : key(name), value(std::move(content)) {}
  explicit Member(std::string_view name) : key(name) {}

  std::string key;
  Value value;
};

// From key to position, as a hash table with prime bucket counts and at most one entry a bucket on average. It keeps
// positions only and reads the keys where the members are, so growing the members leaves it valid.
class ObjectIndex {
 public:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  // Of equal keys the last one counts.
  explicit ObjectIndex(const std::vector<Member>& members) { rebuild(members); }

  std::size_t find(const std::vector<Member>& members, std::string_view key) const noexcept;
  // Enters the last member.
  void add_last(const std::vector<Member>& members);
  // True if a key came more than once.
  bool has_repeats() const noexcept { return has_repeats_; }

 private:
  void rebuild(const std::vector<Member>& members);
  void enter(const std::vector<Member>& members, std::size_t position) noexcept;

  std::vector<std::size_t> buckets_;  // first position of each chain
  std::vector<std::size_t> next_;     // by position
  bool has_repeats_ = false;
};

// An object's members and, from 16 of them on, their index.
class Object {
 public:
  static constexpr std::size_t index_threshold = 16;

  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  const std::vector<Member>& members() const noexcept { return members_; }
  std::size_t size() const noexcept { return members_.size(); }
  void reserve(std::size_t count) { members_.reserve(count); }

  Value* find(std::string_view key) noexcept;
  const Value* find(std::string_view key) const noexcept;
  void set(std::string_view key, Value value);
  // Takes a deep copy of the members; the index comes back when it is needed.
  void assign(const Object& other);

  // Appends a null member, whether or not the key is there already, and returns its value.
  Value& append(std::string_view key);
  // Of each repeated key only the last member stays, where it stands.
  void drop_repeated_keys();

 private:
  std::size_t position_of(std::string_view key) const noexcept;
  std::size_t scan_for(std::string_view key) const noexcept;
  void index_last() noexcept;
  void drop_repeated_few();
  void drop_repeated_many();

  std::vector<Member> members_;
  mutable std::unique_ptr<ObjectIndex> index_;
};

}  // namespace yajson
