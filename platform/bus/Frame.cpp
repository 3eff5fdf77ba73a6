#include "platform/bus/Frame.h"

#include <algorithm>
#include <array>
#include <limits>
#include <nlohmann/json.hpp>

namespace zal::bus {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

// Builds the fields as the parser goes, and stops it at the first thing that no frame may hold.
class FieldsBuilder final : public nlohmann::json_sax<json> {
 public:
  Fields fields;
  std::string reason;

  bool null() override {
    fields.erase(key_);
    return inside_object();
  }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(std::int64_t{value}); }
  bool number_unsigned(number_unsigned_t value) override {
    if (value > static_cast<number_unsigned_t>(std::numeric_limits<std::int64_t>::max())) return unfit();
    return add(static_cast<std::int64_t>(value));
  }
  bool number_float(number_float_t, const string_t&) override { return unfit(); }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t&) override { return unfit(); }
  bool start_array(std::size_t) override { return unfit(); }
  bool end_array() override { return true; }
  bool start_object(std::size_t) override {
    if (inside_) return unfit();
    inside_ = true;
    return true;
  }
  bool end_object() override { return true; }
  bool key(string_t& value) override {
    key_ = std::move(value);
    return true;
  }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception&) override {
    return fail("no JSON, from byte " + std::to_string(position));
  }

 private:
  bool fail(std::string text) {
    if (reason.empty()) reason = std::move(text);
    return false;
  }
  bool inside_object() { return inside_ || fail("no JSON object"); }
  bool unfit() { return inside_object() && fail("the field '" + key_ + "' is neither text, integer nor boolean"); }
  bool add(Value value) {
    if (!inside_object()) return false;
    fields.set(key_, std::move(value));
    return fields.size() <= max_fields || fail("more than " + std::to_string(max_fields) + " fields");
  }

  bool inside_ = false;
  std::string key_;
};

constexpr std::size_t header_size = 4;

std::size_t read_length(const char* header) {
  std::size_t length = 0;
  for (std::size_t i = header_size; i-- > 0;) length = length << 8 | static_cast<unsigned char>(header[i]);
  return length;
}

std::array<char, header_size> write_length(std::size_t length) {
  std::array<char, header_size> header{};
  for (char& byte : header) {
    byte = static_cast<char>(length & 0xff);
    length >>= 8;
  }
  return header;
}

}  // namespace

const Value* Fields::find(std::string_view key) const {
  const auto found =
      std::find_if(fields_.begin(), fields_.end(), [&](const auto& field) { return field.first == key; });
  return found == fields_.end() ? nullptr : &found->second;
}

const std::string* Fields::text(std::string_view key) const {
  const Value* value = find(key);
  return value ? std::get_if<std::string>(value) : nullptr;
}

std::optional<std::int64_t> Fields::number(std::string_view key) const {
  const Value* value = find(key);
  const auto* number = value ? std::get_if<std::int64_t>(value) : nullptr;
  return number ? std::optional(*number) : std::nullopt;
}

std::optional<bool> Fields::flag(std::string_view key) const {
  const Value* value = find(key);
  const auto* flag = value ? std::get_if<bool>(value) : nullptr;
  return flag ? std::optional(*flag) : std::nullopt;
}

void Fields::set(std::string_view key, Value value) {
  const auto found =
      std::find_if(fields_.begin(), fields_.end(), [&](const auto& field) { return field.first == key; });
  if (found == fields_.end())
    fields_.emplace_back(key, std::move(value));
  else
    found->second = std::move(value);
}

void Fields::erase(std::string_view key) {
  std::erase_if(fields_, [&](const auto& field) { return field.first == key; });
}

std::optional<Fields> parse_fields(std::string_view text, std::string& reason) {
  FieldsBuilder builder;
  if (json::sax_parse(text.begin(), text.end(), &builder)) return std::move(builder.fields);
  reason = std::move(builder.reason);
  return std::nullopt;
}

std::string to_json(const Fields& fields) {
  ordered_json object = ordered_json::object();
  for (const auto& [key, value] : fields)
    std::visit([&object, &name = key](const auto& held) { object[name] = held; }, value);
  return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::optional<std::string> encode_frame(const Fields& fields) {
  const std::string text = to_json(fields);
  if (text.size() > max_payload) return std::nullopt;
  const auto header = write_length(text.size());
  std::string frame;
  frame.reserve(header.size() + text.size());
  frame.append(header.data(), header.size());
  frame.append(text);
  return frame;
}

void FrameReader::append(const char* bytes, std::size_t count) {
  const std::size_t skipped = std::min(skip_, count);
  skip_ -= skipped;
  buffer_.append(bytes + skipped, count - skipped);
}

std::optional<FrameReader::Item> FrameReader::next() {
  const std::size_t available = buffer_.size() - begin_;
  if (available < header_size) return std::nullopt;
  const std::size_t length = read_length(buffer_.data() + begin_);
  if (length > max_payload) {
    const std::size_t here = std::min(length, available - header_size);
    consume(header_size + here);
    skip_ = length - here;
    return Item{true, length, {}};
  }
  if (available - header_size < length) return std::nullopt;
  Item item{false, length, buffer_.substr(begin_ + header_size, length)};
  consume(header_size + length);
  return item;
}

// Moves the rest to the front only when at least as much has been handed out, so that each byte moves once on average.
void FrameReader::consume(std::size_t count) {
  begin_ += count;
  if (begin_ < buffer_.size() - begin_) return;
  buffer_.erase(0, begin_);
  begin_ = 0;
  constexpr std::size_t keep = 1u << 20;
  if (buffer_.empty() && buffer_.capacity() > keep) buffer_.shrink_to_fit();
}

}  // namespace zal::bus
