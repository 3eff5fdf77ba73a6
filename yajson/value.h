// A JSON value: 24 bytes that hold a scalar or a string of up to 15 bytes in place and point to anything larger. Where
// the larger parts lie is decided when they are made: in the thread's current arena, or on the heap without one. Copies
// are deep and decide anew; moves leave null behind. Plain data, for one thread at a time; see Object for shared
// reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "yajson/arena.h"

namespace yajson {

class Object;
class Value;
using Array = std::vector<Value, ArenaAllocator<Value>>;

// The order is part of the stored form. `uinteger` is what the parser gives only above the signed range.
enum class Type : std::uint8_t { null, boolean, integer, floating, string, array, object, uinteger };

// The type's name in messages, "unknown" for a tag outside the enumeration.
const char* type_name(Type type) noexcept;

template <class T>
concept Integer = std::is_integral_v<T> && !std::is_same_v<T, bool>;

class Value {
 public:
  static constexpr std::size_t max_inline_length = 15;

  Value() noexcept = default;
  Value(bool value) noexcept { assign(value); }
  Value(double value) noexcept { assign(value); }
  template <Integer T>
  Value(T value) noexcept {
    assign(value);
  }
  Value(std::string_view text, MonotonicArena* arena = current_arena) { assign(text, arena); }
  Value(const char* text) : Value(std::string_view(text)) {}
  static Value array(MonotonicArena* arena = current_arena);
  static Value object(MonotonicArena* arena = current_arena);

  Value(const Value& other);
  Value(Value&& other) noexcept : record_(other.record_) { other.record_.type = Type::null; }
  Value& operator=(const Value& other) { return *this = Value(other); }
  Value& operator=(Value&& other) noexcept;
  ~Value() { release(); }

  // Assignment in place. A failure leaves null. Requires: a text does not lie in this value.
  void assign(bool value) noexcept { become(Type::boolean).boolean = value; }
  void assign(double value) noexcept { become(Type::floating).floating = value; }
  template <Integer T>
  void assign(T value) noexcept;
  void assign(std::string_view text, MonotonicArena* arena);
  Array& assign_array(MonotonicArena* arena);
  Object& assign_object(MonotonicArena* arena);

  Type type() const noexcept { return record_.type; }
  bool is_null() const noexcept { return record_.type == Type::null; }
  bool is_string() const noexcept { return record_.type == Type::string; }
  bool is_array() const noexcept { return record_.type == Type::array; }
  bool is_object() const noexcept { return record_.type == Type::object; }
  // True if a part of this value lies in an arena, and dies with it.
  bool in_arena() const noexcept { return !is_null() && has(in_arena_flag); }

  // Each throws TypeError unless the value is of the type or converts to it without loss; a number may round. A string
  // is followed by a NUL, and at least 16 bytes can be read from its start.
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

  // Requires: both are strings.
  bool same_text(const Value& other) const noexcept;
  // A number below 64 that tells most short texts apart; equal texts have equal ones. Requires: this is a string.
  unsigned text_mark() const noexcept;

  // Promises that everything in and below this container lies in an arena, so that ending it has nothing to visit. Any
  // way to change what is below takes the promise back.
  void mark_frees_nothing() noexcept { record_.flags |= frees_nothing_flag; }

 private:
  static constexpr std::uint8_t in_arena_flag = 1;
  static constexpr std::uint8_t frees_nothing_flag = 2;
  static constexpr std::uint8_t out_of_line = 255;

  union Payload {
    char text[max_inline_length + 1];  // filled up with NUL
    bool boolean;
    std::int64_t integer;
    std::uint64_t uinteger;
    double floating;
    const char* arena_text;
    std::string* heap_text;
    Array* array;
    Object* object;
  };

  struct Record {
    Type type = Type::null;
    std::uint8_t inline_length = 0;  // `out_of_line` for a longer string
    std::uint8_t flags = 0;
    std::uint32_t arena_length = 0;  // of a string in an arena
    Payload payload{};
  };
  static_assert(sizeof(Record) == 24 && offsetof(Record, arena_length) == 4 && offsetof(Record, payload) == 8);

  bool has(std::uint8_t flag) const noexcept { return (record_.flags & flag) != 0; }
  void open_for_change() noexcept { record_.flags &= static_cast<std::uint8_t>(~frees_nothing_flag); }
  Payload& become(Type type) noexcept;
  void assign_long(std::string_view text, MonotonicArena* arena);
  std::string_view text() const noexcept;
  std::string_view long_text() const noexcept;
  void release() noexcept;
  void release_body() noexcept;
  [[noreturn]] void fail_type(const char* expected) const;

  Record record_;
};

inline void Value::release() noexcept {
  if (type() >= Type::string && type() <= Type::object && !has(frees_nothing_flag)) release_body();
}

inline Value::Payload& Value::become(Type type) noexcept {
  release();
  record_.type = type;
  record_.inline_length = 0;
  record_.flags = 0;
  record_.arena_length = 0;
  return record_.payload;
}

template <Integer T>
void Value::assign(T value) noexcept {
  if constexpr (std::is_signed_v<T>) {
    become(Type::integer).integer = value;
  } else {
    become(Type::uinteger).uinteger = value;
  }
}

inline void Value::assign(std::string_view text, MonotonicArena* arena) {
  if (text.size() > max_inline_length) return assign_long(text, arena);
  Payload& payload = become(Type::string);
  payload = Payload{};
  text.copy(payload.text, text.size());
  record_.inline_length = static_cast<std::uint8_t>(text.size());
}

inline std::string_view Value::text() const noexcept {
  if (record_.inline_length == out_of_line) return long_text();
  return {record_.payload.text, record_.inline_length};
}

inline std::string_view Value::as_string() const {
  if (!is_string()) fail_type("string");
  return text();
}

inline std::int64_t Value::as_integer() const {
  if (type() == Type::integer) return record_.payload.integer;
  if (type() == Type::uinteger && std::in_range<std::int64_t>(record_.payload.uinteger)) {
    return static_cast<std::int64_t>(record_.payload.uinteger);
  }
  fail_type("integer");
}

inline const Array& Value::as_array() const {
  if (!is_array()) fail_type("array");
  return *record_.payload.array;
}

inline const Object& Value::as_object() const {
  if (!is_object()) fail_type("object");
  return *record_.payload.object;
}

inline bool Value::same_text(const Value& other) const noexcept {
  if (record_.inline_length != other.record_.inline_length) return false;
  if (record_.inline_length == out_of_line) return long_text() == other.long_text();
  return std::memcmp(record_.payload.text, other.record_.payload.text, sizeof record_.payload.text) == 0;
}

inline unsigned Value::text_mark() const noexcept {
  if (record_.inline_length == out_of_line) return 0;
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  std::memcpy(&low, record_.payload.text, sizeof low);
  std::memcpy(&high, record_.payload.text + sizeof low, sizeof high);
  constexpr std::uint64_t golden = 0x9E3779B97F4A7C15;
  return static_cast<unsigned>(((low ^ (high * golden)) * golden) >> 58);
}

}  // namespace yajson
