#include "json/JsonWriter.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "json/JsonReader.h"
#include "yajson/object.h"
#include "yajson/serializer.h"

namespace rrm {
namespace {

using yajson::ArenaScope;
using yajson::Value;

constexpr std::size_t least_block_size = 256;
constexpr std::int32_t pretty_indent = 4;

bool is_given(const char* text) {
  return text != nullptr && *text != '\0';
}

const char* or_empty(const char* text) {
  return text != nullptr ? text : "";
}

}  // namespace

JsonWriter::JsonWriter(const char* version) : root_(Value::object(nullptr)) {
  if (is_given(version)) add_string("version", version);
}

JsonWriter::JsonWriter(const char* service, const char* cmd, const char* version) : JsonWriter(version) {
  if (is_given(service)) {
    add_string("service", service);
    if (!is_given(version) && std::strcmp(service, "rrm") == 0) add_string("version", "2.4");
  }
  if (is_given(cmd)) add_string("cmd", cmd);
}

JsonWriter::JsonWriter(JsonWriter& parent, bool is_array, const char* key) : is_array_(is_array), parent_(&parent) {
  if (parent.is_array_) {
    index_ = static_cast<std::int32_t>(parent.container().size());
  } else {
    key_ = or_empty(key);
  }
  parent.add(key, is_array ? Value::array(tree_arena()) : Value::object(tree_arena()));
}

JsonWriter& JsonWriter::operator=(JsonWriter&& other) noexcept {
  if (this == &other) return *this;
  root_ = std::move(other.root_);
  arena_scope_ = std::move(other.arena_scope_);
  arena_ = std::move(other.arena_);
  is_array_ = other.is_array_;
  text_compact_ = std::move(other.text_compact_);
  text_pretty_ = std::move(other.text_pretty_);
  parent_ = other.parent_;
  key_ = std::move(other.key_);
  index_ = other.index_;
  return *this;
}

JsonWriter& JsonWriter::add_int(const char* key, std::int32_t value) {
  add(key, value);
  return *this;
}

JsonWriter& JsonWriter::add_opt_int(const char* key, const std::optional<int>& value) {
  return value.has_value() ? add_int(key, *value) : *this;
}

JsonWriter& JsonWriter::add_string(const char* key, const char* text) {
  add(key, Value(or_empty(text), tree_arena()));
  return *this;
}

JsonWriter& JsonWriter::add_string(const char* key, const std::string& text) {
  add(key, Value(text, tree_arena()));
  return *this;
}

void JsonWriter::add(const char* key, Value value) {
  if (is_array_) {
    container().push_back(std::move(value));
  } else {
    container().set(or_empty(key), std::move(value));
  }
}

const char* JsonWriter::to_string() const {
  text_compact_ = yajson::serialize(container());
  return text_compact_.c_str();
}

const char* JsonWriter::to_pretty_string() const {
  text_pretty_ = yajson::serialize(container(), {.indent = pretty_indent});
  return text_pretty_.c_str();
}

bool JsonWriter::empty() const {
  return parent_ == nullptr && root_.is_null();
}

JsonWriter& JsonWriter::add_value(const char* key, const JsonReader& value) {
  const ArenaScope scope(tree_arena());
  add(key, Value(value.value()));
  return *this;
}

JsonWriter& JsonWriter::add_members(const JsonReader& object) {
  if (!object.value().is_object()) return *this;
  const ArenaScope scope(tree_arena());
  for (const yajson::Member& member : object.value().as_object().members()) {
    add(std::string(member.key()).c_str(), Value(member.value));
  }
  return *this;
}

JsonWriter& JsonWriter::use_arena(std::size_t block_size) {
  if (parent_ != nullptr || arena_ != nullptr) return *this;
  auto arena = std::make_unique<yajson::MonotonicArena>(std::max(block_size, least_block_size));
  auto scope = std::make_unique<ArenaScope>(arena.get());
  root_ = Value(std::as_const(root_));
  arena_ = std::move(arena);
  arena_scope_ = std::move(scope);
  return *this;
}

// The tree keeps to its own arena, or to the heap, whichever arena this thread has bound meanwhile.
yajson::MonotonicArena* JsonWriter::tree_arena() const {
  return parent_ != nullptr ? parent_->tree_arena() : arena_.get();
}

// A key that is gone from the parent's object stands for null, which no caller takes for a container.
const Value& JsonWriter::container() const {
  static const Value missing;
  if (parent_ == nullptr) return root_;
  const Value& outer = std::as_const(*parent_).container();
  if (index_ >= 0) return outer.element(static_cast<std::size_t>(index_));
  outer.as_object();
  const Value* found = outer.find(key_);
  return found != nullptr ? *found : missing;
}

Value& JsonWriter::container() {
  return const_cast<Value&>(std::as_const(*this).container());
}

}  // namespace rrm
