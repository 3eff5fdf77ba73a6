// The server's view of a JSON document: reads are forgiving, never throw and work on an empty reader. What is missing
// or of the wrong type reads as an empty reader, "" or 0; a text that is not a document gives an empty reader.
//
// A reader that parsed a text owns the document. The readers that get() and at() return point into it and must not
// outlive it, nor may the texts that get_string() returns. A reader moves and takes its document along; child readers
// and texts stay valid. One reader and its children belong to one thread at a time.
//
// Keys repeat in some clients' messages: the last one of a name counts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "yajson/value.h"

namespace rrm {

class JsonReader {
 public:
  // Null gives an empty reader.
  explicit JsonReader(const char* text);
  // Parses into an arena of its own: one that frees a whole message at once. 0 stands for blocks of 4096 bytes.
  JsonReader(const char* text, std::size_t arena_block_size);
  // Parses into the caller's arena, which must outlive the reader.
  JsonReader(const char* text, yajson::MonotonicArena& arena);
  // Reads the descriptor to its end. Empty if there is nothing or reading fails. The descriptor stays open.
  static JsonReader from_fd(int fd);

  JsonReader(JsonReader&& other) noexcept;
  JsonReader& operator=(JsonReader&& other) noexcept;
  // A document has one owner: both throw std::logic_error.
  JsonReader(const JsonReader& other);
  JsonReader& operator=(const JsonReader& other);
  ~JsonReader() = default;

  // True without a value, and for null.
  bool empty() const;

  bool is_array() const;
  bool has(const char* key) const;
  JsonReader get(const char* key) const;
  // The same, empty also where the value is of another kind.
  JsonReader get_array(const char* key) const;
  JsonReader get_object(const char* key) const;
  const char* get_string(const char* key) const;
  // Integers are cut to 32 bits, booleans are 0 and 1, a string counts if all of it is a decimal number, the rest is 0.
  std::int32_t get_int(const char* key) const;
  // Engaged for numbers only.
  std::optional<int> get_opt_int(const char* key) const;

  // Elements of an array; 0 for anything else.
  int size() const;
  JsonReader at(int index) const;
  std::int32_t get_int(int index) const;
  const char* get_string(int index) const;

  // The value itself, null for an empty reader. Copies of it are the caller's own.
  const yajson::Value& value() const;

  // The value's compact text, "null" for an empty reader; valid until the next call.
  const char* to_string() const;

 private:
  JsonReader() = default;
  // Points at a value within this reader's document.
  static JsonReader child(const yajson::Value* value);

  void parse(const char* text, std::size_t length, yajson::MonotonicArena* arena);
  const yajson::Value* member(const char* key) const;
  const yajson::Value* element(int index) const;

  // The document goes before the arena that it lies in.
  std::unique_ptr<yajson::MonotonicArena> arena_;
  yajson::Value document_;
  const yajson::Value* current_ = nullptr;
  mutable std::string text_cache_;
};

}  // namespace rrm
