#include "json/JsonReader.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace rrm {
namespace {

using yajson::Type;
using yajson::Value;

constexpr std::size_t default_block_size = 4096;
constexpr std::size_t least_block_size = 256;
constexpr std::size_t read_step = 4096;

std::int32_t int_of_text(const char* text, std::size_t length) {
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text, &end, 10);
  const bool counts = end == text + length && errno != ERANGE;
  return counts ? static_cast<std::int32_t>(number) : 0;
}

std::int32_t int_of(const Value* value) {
  if (value == nullptr) return 0;
  switch (value->type()) {
    case Type::integer:
      return static_cast<std::int32_t>(value->as_integer());
    case Type::uinteger:
      return static_cast<std::int32_t>(value->as_uinteger());
    case Type::boolean:
      return value->as_bool() ? 1 : 0;
    case Type::string:
      return int_of_text(value->as_string().data(), value->as_string().size());
    default:
      return 0;
  }
}

const char* text_of(const Value* value) {
  return value != nullptr && value->is_string() ? value->as_string().data() : "";
}

// Empty if a read fails.
std::string read_all(int fd) {
  std::string text;
  std::array<char, read_step> chunk;
  while (true) {
    const ssize_t count = ::read(fd, chunk.data(), chunk.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {};
    if (count == 0) return text;
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

JsonReader::JsonReader(const char* text) {
  if (text != nullptr) parse(text, std::strlen(text), nullptr);
}

JsonReader::JsonReader(const char* text, std::size_t arena_block_size) {
  const std::size_t block_size = arena_block_size != 0 ? arena_block_size : default_block_size;
  arena_ = std::make_unique<yajson::MonotonicArena>(std::max(block_size, least_block_size));
  if (text != nullptr) parse(text, std::strlen(text), arena_.get());
}

JsonReader::JsonReader(const char* text, yajson::MonotonicArena& arena) {
  if (text != nullptr) parse(text, std::strlen(text), &arena);
}

JsonReader JsonReader::from_fd(int fd) {
  JsonReader reader;
  const std::string text = read_all(fd);
  if (!text.empty()) reader.parse(text.data(), text.size(), nullptr);
  return reader;
}

// Without an arena the document goes to the heap, whatever this thread has bound: a reader owes its life to nobody
// else.
void JsonReader::parse(const char* text, std::size_t length, yajson::MonotonicArena* arena) {
  const yajson::ArenaScope scope(arena);
  yajson::ParseOptions options;
  options.allow_duplicate_keys = true;
  yajson::ParseResult result = yajson::parse_nothrow(text, length, options);
  if (result.error) return;
  document_ = std::move(result.value);
  current_ = &document_;
}

JsonReader::JsonReader(JsonReader&& other) noexcept {
  *this = std::move(other);
}

JsonReader& JsonReader::operator=(JsonReader&& other) noexcept {
  if (this == &other) return *this;
  document_ = std::move(other.document_);
  arena_ = std::move(other.arena_);
  current_ = std::exchange(other.current_, nullptr);
  if (current_ == &other.document_) current_ = &document_;
  text_cache_ = std::move(other.text_cache_);
  return *this;
}

JsonReader::JsonReader(const JsonReader&) {
  throw std::logic_error("Copy JsonReader not allowed\n");
}

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): nothing is ever assigned.
JsonReader& JsonReader::operator=(const JsonReader&) {
  throw std::logic_error("Copy JsonReader not allowed\n");
}

bool JsonReader::empty() const {
  return current_ == nullptr || current_->is_null();
}

bool JsonReader::has(const char* key) const {
  return member(key) != nullptr;
}

JsonReader JsonReader::get(const char* key) const {
  return child(member(key));
}

bool JsonReader::is_array() const {
  return current_ != nullptr && current_->is_array();
}

JsonReader JsonReader::get_array(const char* key) const {
  const Value* value = member(key);
  return child(value != nullptr && value->is_array() ? value : nullptr);
}

JsonReader JsonReader::get_object(const char* key) const {
  const Value* value = member(key);
  return child(value != nullptr && value->is_object() ? value : nullptr);
}

const char* JsonReader::get_string(const char* key) const {
  return text_of(member(key));
}

std::int32_t JsonReader::get_int(const char* key) const {
  return int_of(member(key));
}

std::optional<int> JsonReader::get_opt_int(const char* key) const {
  const Value* value = member(key);
  if (value == nullptr) return std::nullopt;
  switch (value->type()) {
    case Type::integer:
    case Type::uinteger:
    case Type::floating:
      return int_of(value);
    default:
      return std::nullopt;
  }
}

int JsonReader::size() const {
  if (!is_array()) return 0;
  return static_cast<int>(std::min<std::size_t>(current_->size(), std::numeric_limits<int>::max()));
}

JsonReader JsonReader::at(int index) const {
  return child(element(index));
}

std::int32_t JsonReader::get_int(int index) const {
  return int_of(element(index));
}

const char* JsonReader::get_string(int index) const {
  return text_of(element(index));
}

const Value& JsonReader::value() const {
  static const Value nothing;
  return current_ != nullptr ? *current_ : nothing;
}

const char* JsonReader::to_string() const {
  text_cache_ = current_ != nullptr ? yajson::serialize(*current_) : "null";
  return text_cache_.c_str();
}

JsonReader JsonReader::child(const Value* value) {
  JsonReader reader;
  reader.current_ = value;
  return reader;
}

const Value* JsonReader::member(const char* key) const {
  return current_ != nullptr && key != nullptr ? current_->find(key) : nullptr;
}

const Value* JsonReader::element(int index) const {
  if (index < 0 || index >= size()) return nullptr;
  return &current_->element(static_cast<std::size_t>(index));
}

}  // namespace rrm
