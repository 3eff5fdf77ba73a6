#include "yajson/value.h"

#include <limits>
#include <new>
#include <utility>

#include "yajson/error.h"

namespace yajson {
namespace {

[[noreturn]] void throw_type_error(const char* expected, Type actual) {
  throw TypeError(std::string("expected ") + expected + ", got " + type_name(actual));
}

[[noreturn]] void throw_out_of_range(std::size_t index, std::size_t size) {
  throw OutOfRangeError("array index " + std::to_string(index) + " out of range (size=" + std::to_string(size) + ")");
}

template <class Body, class... Args>
Body* make_body(MonotonicArena* arena, Args&&... args) {
  if (arena == nullptr) return new Body(std::forward<Args>(args)...);
  return new (arena->take(sizeof(Body), alignof(Body))) Body(std::forward<Args>(args)...);
}

// A body in an arena only ends; its bytes go with the arena.
template <class Body>
void end_body(Body* body, bool in_arena) noexcept {
  if (in_arena) {
    std::destroy_at(body);
  } else {
    delete body;
  }
}

}  // namespace

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

Value Value::array(MonotonicArena* arena) {
  Value value;
  value.record_.payload.array = make_body<Array>(arena);
  value.record_.flags = arena != nullptr ? in_arena_flag : 0;
  value.record_.type = Type::array;
  return value;
}

Value Value::object(MonotonicArena* arena) {
  Value value;
  value.record_.payload.object = make_body<Object>(arena);
  value.record_.flags = arena != nullptr ? in_arena_flag : 0;
  value.record_.type = Type::object;
  return value;
}

Value::Value(const Value& other) {
  switch (other.record_.type) {
    case Type::string:
      make_string(other.text(), current_arena);
      break;
    case Type::array:
      *this = array();
      *record_.payload.array = *other.record_.payload.array;
      break;
    case Type::object:
      *this = object();
      record_.payload.object->assign(*other.record_.payload.object);
      break;
    default:
      record_ = other.record_;
  }
}

Value& Value::operator=(Value&& other) noexcept {
  // Taken over first: the other value may lie inside of what this one owns.
  Value taken(std::move(other));
  std::swap(record_, taken.record_);
  return *this;
}

void Value::make_long_string(std::string_view text, MonotonicArena* arena) {
  if (arena != nullptr && text.size() <= std::numeric_limits<std::uint32_t>::max()) {
    auto* bytes = static_cast<char*>(arena->take(text.size() + 1, 1));
    text.copy(bytes, text.size());
    bytes[text.size()] = '\0';
    record_.payload.arena_text = bytes;
    record_.arena_length = static_cast<std::uint32_t>(text.size());
    record_.flags = in_arena_flag;
  } else {
    record_.payload.heap_text = new std::string(text);
  }
  record_.inline_length = out_of_line;
  record_.type = Type::string;
}

std::string_view Value::text() const noexcept {
  if (record_.inline_length != out_of_line) return {record_.payload.text, record_.inline_length};
  if (in_arena()) return {record_.payload.arena_text, record_.arena_length};
  return *record_.payload.heap_text;
}

void Value::release_body() noexcept {
  switch (record_.type) {
    case Type::string:
      if (record_.inline_length == out_of_line && !in_arena()) delete record_.payload.heap_text;
      break;
    case Type::array:
      end_body(record_.payload.array, in_arena());
      break;
    case Type::object:
      end_body(record_.payload.object, in_arena());
      break;
    default:
      break;
  }
}

std::string_view Value::as_string() const {
  if (!is_string()) throw_type_error("string", type());
  return text();
}

std::int64_t Value::as_integer() const {
  if (type() == Type::integer) return record_.payload.integer;
  if (type() == Type::uinteger && std::in_range<std::int64_t>(record_.payload.uinteger)) {
    return static_cast<std::int64_t>(record_.payload.uinteger);
  }
  throw_type_error("integer", type());
}

std::uint64_t Value::as_uinteger() const {
  if (type() == Type::uinteger) return record_.payload.uinteger;
  if (type() == Type::integer && record_.payload.integer >= 0) {
    return static_cast<std::uint64_t>(record_.payload.integer);
  }
  throw_type_error("uinteger", type());
}

bool Value::as_bool() const {
  if (type() != Type::boolean) throw_type_error("bool", type());
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
      throw_type_error("number", type());
  }
}

const Array& Value::as_array() const {
  if (!is_array()) throw_type_error("array", type());
  return *record_.payload.array;
}

Array& Value::as_array() {
  return const_cast<Array&>(std::as_const(*this).as_array());
}

const Object& Value::as_object() const {
  if (!is_object()) throw_type_error("object", type());
  return *record_.payload.object;
}

Object& Value::as_object() {
  return const_cast<Object&>(std::as_const(*this).as_object());
}

std::size_t Value::size() const noexcept {
  if (is_array()) return record_.payload.array->size();
  if (is_object()) return record_.payload.object->size();
  return 0;
}

const Value& Value::element(std::size_t index) const {
  const Array& elements = as_array();
  if (index >= elements.size()) throw_out_of_range(index, elements.size());
  return elements[index];
}

Value& Value::element(std::size_t index) {
  return const_cast<Value&>(std::as_const(*this).element(index));
}

const Value* Value::find(std::string_view key) const noexcept {
  return is_object() ? std::as_const(*record_.payload.object).find(key) : nullptr;
}

Value* Value::find(std::string_view key) noexcept {
  return const_cast<Value*>(std::as_const(*this).find(key));
}

void Value::set(std::string_view key, Value value) {
  as_object().set(key, std::move(value));
}

}  // namespace yajson
