// Every read of a JsonReader on any text, with keys that the text itself may hold.
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "json/JsonReader.h"
#include "yajson/object.h"

namespace {

using rrm::JsonReader;
using yajson::Type;
using yajson::Value;
using zal::fuzz::require;

// What stands between quotes in the text, some of it keys.
std::vector<std::string> quoted_words(const std::string& text) {
  std::vector<std::string> words{""};
  for (std::size_t open = text.find('"'); open != text.npos && words.size() < 20;) {
    const std::size_t close = text.find('"', open + 1);
    if (close == text.npos) break;
    words.push_back(text.substr(open + 1, close - open - 1));
    open = close;
  }
  return words;
}

void read_everything(const JsonReader& reader, const std::vector<std::string>& keys, int depth);

void read_member(const JsonReader& reader, const std::string& key, const std::vector<std::string>& keys, int depth) {
  const char* name = key.c_str();
  const auto optional = reader.get_opt_int(name);
  const JsonReader child = reader.get(name);
  require(!optional.has_value() || *optional == reader.get_int(name), "both integer reads agree");
  require(reader.has(name) || child.empty(), "what is not there is empty");
  require(reader.has(name) || reader.get_int(name) == 0, "what is not there is 0");
  require(reader.has(name) || *reader.get_string(name) == '\0', "what is not there is no text");
  require(std::strlen(reader.get_string(name)) <= std::strlen(child.to_string()), "a text is a part of its JSON");
  read_everything(child, keys, depth + 1);
}

void read_everything(const JsonReader& reader, const std::vector<std::string>& keys, int depth) {
  require(!reader.empty() || std::strcmp(reader.to_string(), "null") == 0, "an empty reader is null");
  require(!reader.has("") || reader.size() == 0, "no array has members");
  const int last = reader.size() < 50 ? reader.size() : 50;
  for (int i = -1; i <= last; ++i) {
    const JsonReader element = reader.at(i);
    require((i >= 0 && i < reader.size()) || element.empty(), "what is beyond an array is empty");
    require(!element.empty() || (reader.get_int(i) == 0 && *reader.get_string(i) == '\0'), "nothing reads as nothing");
    if (!element.empty() && depth < 4) read_everything(element, keys, depth + 1);
  }
  if (depth >= 4) return;
  for (const std::string& key : keys) {
    if (reader.has(key.c_str())) read_member(reader, key, keys, depth);
  }
}

// A number with a short form is written in it, any other with 17 digits, and the reader divides in doubles: where both
// round, the double beside it comes back. A whole number is written with one decimal, and stays what it is as long as a
// double counts its tenths.
bool is_kept(double number, const Value& again) {
  if (again.type() != Type::floating) return std::isinf(number) && again.is_null();  // JSON has no word for it
  const double back = again.as_number();
  if (number == std::trunc(number) && std::abs(number) * 10 <= 0x1p53) return back == number;
  return back == number || back == std::nextafter(number, back);
}

bool is_kept(const Value& value, const Value& again);

bool are_kept_elements(const Value& value, const Value& again) {
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (!is_kept(value.element(i), again.element(i))) return false;
  }
  return true;
}

bool are_kept_members(const yajson::Object& object, const yajson::Object& again) {
  for (std::size_t i = 0; i < object.members().size(); ++i) {
    const yajson::Member& member = object.members()[i];
    const yajson::Member& other = again.members()[i];
    if (member.key() != other.key() || !is_kept(member.value, other.value)) return false;
  }
  return true;
}

bool is_kept(const Value& value, const Value& again) {
  if (value.type() == Type::floating) return is_kept(value.as_number(), again);
  if (value.type() != again.type() || value.size() != again.size()) return false;
  switch (value.type()) {
    case Type::boolean:
      return value.as_bool() == again.as_bool();
    case Type::integer:
      return value.as_integer() == again.as_integer();
    case Type::uinteger:
      return value.as_uinteger() == again.as_uinteger();
    case Type::string:
      return value.as_string() == again.as_string();
    case Type::array:
      return are_kept_elements(value, again);
    case Type::object:
      return are_kept_members(value.as_object(), again.as_object());
    default:
      return true;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::vector<std::string> keys = quoted_words(text);
  const JsonReader on_heap(text.c_str());
  JsonReader in_arena(text.c_str(), 256);
  require(std::strcmp(on_heap.to_string(), in_arena.to_string()) == 0, "an arena changes nothing");
  const JsonReader moved(std::move(in_arena));
  require(in_arena.empty(), "a moved reader is empty");
  read_everything(moved, keys, 0);
  read_member(moved, "no such key", keys, 0);
  const JsonReader again(moved.to_string());
  require(is_kept(moved.value(), again.value()), "what was written reads back");
  return 0;
}
