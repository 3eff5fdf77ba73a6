// The wire of the standalone bus. A frame is a 4-byte little-endian length and that many bytes of JSON text: one flat
// object whose fields are texts, integers or booleans. A null field counts as absent; of a field given twice the last
// one holds. Both ends of the bus use this, and the controller's command line too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace zal::bus {

constexpr std::size_t max_payload = 64u << 20;
constexpr std::size_t max_fields = 64;

using Value = std::variant<bool, std::int64_t, std::string>;

// The fields of a frame in the order of the text. A plain value.
class Fields {
 public:
  Fields() = default;
  Fields(std::initializer_list<std::pair<std::string, Value>> fields) : fields_(fields) {}

  const Value* find(std::string_view key) const;
  // Null if the field is absent or of another kind.
  const std::string* text(std::string_view key) const;
  std::optional<std::int64_t> number(std::string_view key) const;
  std::optional<bool> flag(std::string_view key) const;
  // Adds a field or replaces its value.
  void set(std::string_view key, Value value);
  void erase(std::string_view key);

  std::size_t size() const { return fields_.size(); }
  auto begin() const { return fields_.begin(); }
  auto end() const { return fields_.end(); }
  bool operator==(const Fields&) const = default;

 private:
  std::vector<std::pair<std::string, Value>> fields_;
};

// Empty, with the reason told, if the text is no such object. Its cost is bounded by the text's length: nothing nests.
std::optional<Fields> parse_fields(std::string_view text, std::string& reason);

// The text of the object on one line. Bytes that are not UTF-8 become U+FFFD.
std::string to_json(const Fields& fields);

// A whole frame. Empty if the text would be longer than max_payload.
std::optional<std::string> encode_frame(const Fields& fields);

// Cuts a stream of bytes into frames, however it was fragmented. Memory grows with the bytes that came, never with the
// length that a header promises. The payload of a frame that is too long is skipped as it comes, so the frames behind
// it are found.
class FrameReader {
 public:
  struct Item {
    bool too_long = false;  // then there is no payload, and `length` is what the header said
    std::size_t length = 0;
    std::string payload;
  };

  void append(const char* bytes, std::size_t count);
  // The next whole frame, or a report of one that is being skipped; empty until more bytes come.
  std::optional<Item> next();
  // Bytes of a frame have come, but not all.
  bool is_inside_frame() const { return skip_ > 0 || begin_ < buffer_.size(); }

 private:
  void consume(std::size_t count);

  std::string buffer_;
  std::size_t begin_ = 0;  // what is before it has been handed out
  std::size_t skip_ = 0;   // bytes still to come of a frame that is too long
};

}  // namespace zal::bus
