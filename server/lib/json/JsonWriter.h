// Builds a JSON text: a tree of values that grows by the calls below and is written out at the end. A writer made from
// a parent fills a container within the parent's tree. Children find their container afresh on every call, so any
// number of them may be open while their parents grow; a child must not outlive its parent, and only a top-level writer
// or a finished child is moved.
//
// Booleans travel as 0 and 1. In an array every key is ignored and the value is appended.
//
// One thread at a time; a writer with an arena stays on the thread that made it. Calls fail with std::bad_alloc, with
// yajson::TypeError when the parent has meanwhile replaced the container, and with yajson::OutOfRangeError when it has
// dropped it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "yajson/value.h"

namespace rrm {

class JsonReader;

class JsonWriter {
 public:
  // An object, with the members that are given and not "".
  explicit JsonWriter(const char* version = nullptr);
  // Service "rrm" has a version of its own where none is given, behind the service.
  JsonWriter(const char* service, const char* cmd, const char* version = nullptr);
  // A new container in the parent: under `key` (null means "") in an object, behind the last element in an array.
  JsonWriter(JsonWriter& parent, bool is_array, const char* key);
  static JsonWriter array(JsonWriter& parent, const char* key) { return {parent, true, key}; }
  static JsonWriter object(JsonWriter& parent, const char* key) { return {parent, false, key}; }

  JsonWriter(JsonWriter&& other) noexcept = default;
  JsonWriter& operator=(JsonWriter&& other) noexcept;
  JsonWriter(const JsonWriter&) = delete;
  JsonWriter& operator=(const JsonWriter&) = delete;
  ~JsonWriter() = default;

  // Setting a key again replaces its value where it stands.
  JsonWriter& add_int(const char* key, std::int32_t value);
  JsonWriter& add_opt_int(const char* key, const std::optional<int>& value);
  // Null writes "".
  JsonWriter& add_string(const char* key, const char* text);
  JsonWriter& add_string(const char* key, const std::string& text);

  // Copies of what was read: a value, null from an empty reader, and all members of an object, none of anything else.
  JsonWriter& add_value(const char* key, const JsonReader& value);
  JsonWriter& add_members(const JsonReader& object);

  // The text of this writer's container alone; valid until the next call.
  const char* to_string() const;
  const char* to_pretty_string() const;

  // True for a top-level writer that was moved from.
  bool empty() const;

  // From here on this writer's tree, and whatever else this thread makes until the writer dies, lies in an arena of its
  // own. Only for a top-level writer without one.
  JsonWriter& use_arena(std::size_t block_size);

 private:
  void add(const char* key, yajson::Value value);
  yajson::MonotonicArena* tree_arena() const;
  yajson::Value& container();
  const yajson::Value& container() const;

  // The tree goes before the arena that it lies in.
  std::unique_ptr<yajson::MonotonicArena> arena_;
  std::unique_ptr<yajson::ArenaScope> arena_scope_;
  yajson::Value root_;  // top level only
  bool is_array_ = false;
  mutable std::string text_compact_;
  mutable std::string text_pretty_;
  JsonWriter* parent_ = nullptr;
  std::string key_;
  std::int32_t index_ = -1;  // in a parent array
};

}  // namespace rrm
