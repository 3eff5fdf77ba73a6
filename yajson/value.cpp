#include "yajson/value.h"

#include <limits>
#include <utility>

#include "yajson/error.h"
#include "yajson/object.h"

namespace yajson {

const char* type_name(Type type) noexcept {
  switch (type) {
    case Type::null:
      return "null";
    case Type::boolean:
      return "bool";
    case Type::integer:
      return "integer";
    case Type::floating:
      return "float";
    case Type::string:
      return "string";
    case Type::array:
      return "array";
    case Type::object:
      return "object";
    case Type::uinteger:
      return "uinteger";
  }
  return "unknown";
}

void Value::fail_type(const char* expected) const {
  throw TypeError(std::string("expected ") + expected + ", got " + type_name(type()));
}

Value Value::array(MonotonicArena* arena) {
  Value value;
  value.assign_array(arena);
  return value;
}

Value Value::object(MonotonicArena* arena) {
  Value value;
  value.assign_object(arena);
  return value;
}

// Delegates, so that a copy that fails half-way is ended like any value.
Value::Value(const Value& other) : Value() {
  switch (other.type()) {
    case Type::string:
      assign(other.text(), current_arena);
      break;
    case Type::array:
      assign_array(current_arena) = other.as_array();
      break;
    case Type::object:
      assign_object(current_arena).assign(other.as_object());
      break;
    default:
      record_ = other.record_;
  }
}

// Takes over first: the other value may lie inside of what this one owns.
Value& Value::operator=(Value&& other) noexcept {
  Value taken(std::move(other));
  std::swap(record_, taken.record_);
  return *this;
}

Array& Value::assign_array(MonotonicArena* arena) {
  become(Type::null).array = make_in<Array>(arena, ArenaAllocator<Value>(arena));
  record_.flags = arena != nullptr ? in_arena_flag : 0;
  record_.type = Type::array;
  return *record_.payload.array;
}

Object& Value::assign_object(MonotonicArena* arena) {
  become(Type::null).object = make_in<Object>(arena, arena);
  record_.flags = arena != nullptr ? in_arena_flag : 0;
  record_.type = Type::object;
  return *record_.payload.object;
}

void Value::assign_long(std::string_view text, MonotonicArena* arena) {
  Payload& payload = become(Type::null);
  if (arena != nullptr && text.size() <= std::numeric_limits<std::uint32_t>::max()) {
    auto* bytes = static_cast<char*>(arena->take(text.size() + 1, 1));
    text.copy(bytes, text.size());
    bytes[text.size()] = '\0';
    payload.arena_text = bytes;
    record_.arena_length = static_cast<std::uint32_t>(text.size());
    record_.flags = in_arena_flag;
  } else {
    payload.heap_text = new std::string(text);
  }
  record_.inline_length = out_of_line;
  record_.type = Type::string;
}

std::string_view Value::long_text() const noexcept {
  if (in_arena()) return {record_.payload.arena_text, record_.arena_length};
  return *record_.payload.heap_text;
}

void Value::release_body() noexcept {
  const Payload& payload = record_.payload;
  switch (type()) {
    case Type::string:
      if (record_.inline_length == out_of_line && !in_arena()) delete payload.heap_text;
      break;
    case Type::array:
      end_in(payload.array->get_allocator().arena(), payload.array);
      break;
    case Type::object:
      end_in(payload.object->arena(), payload.object);
      break;
    default:
      break;
  }
}

std::uint64_t Value::as_uinteger() const {
  if (type() == Type::uinteger) return record_.payload.uinteger;
  if (type() == Type::integer && record_.payload.integer >= 0) {
    return static_cast<std::uint64_t>(record_.payload.integer);
  }
  fail_type("uinteger");
}

bool Value::as_bool() const {
  if (type() != Type::boolean) fail_type("bool");
  return record_.payload.boolean;
}

double Value::as_number() const {
  switch (type()) {
    case Type::floating:
      return record_.payload.floating;
    case Type::integer:
      return static_cast<double>(record_.payload.integer);
    case Type::uinteger:
      return static_cast<double>(record_.payload.uinteger);
    default:
      fail_type("number");
  }
}

// Both leave a value of another type untouched.
Array& Value::as_array() {
  const Array& elements = std::as_const(*this).as_array();
  open_for_change();
  return const_cast<Array&>(elements);
}

Object& Value::as_object() {
  const Object& object = std::as_const(*this).as_object();
  open_for_change();
  return const_cast<Object&>(object);
}

std::size_t Value::size() const noexcept {
  if (is_array()) return record_.payload.array->size();
  if (is_object()) return record_.payload.object->size();
  return 0;
}

const Value& Value::element(std::size_t index) const {
  const Array& elements = as_array();
  if (index < elements.size()) return elements[index];
  throw OutOfRangeError("array index " + std::to_string(index) +
                        " out of range (size=" + std::to_string(elements.size()) + ")");
}

Value& Value::element(std::size_t index) {
  const Value& element = std::as_const(*this).element(index);
  open_for_change();
  return const_cast<Value&>(element);
}

const Value* Value::find(std::string_view key) const noexcept {
  return is_object() ? std::as_const(*record_.payload.object).find(key) : nullptr;
}

Value* Value::find(std::string_view key) noexcept {
  if (is_object()) open_for_change();
  return const_cast<Value*>(std::as_const(*this).find(key));
}

void Value::set(std::string_view key, Value value) {
  as_object().set(key, std::move(value));
}

}  // namespace yajson
