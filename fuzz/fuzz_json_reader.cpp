// Every read of a JsonReader on any text, with keys that the text itself may hold.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "json/JsonReader.h"

namespace {

using rrm::JsonReader;
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
  const std::string written = moved.to_string();
  const JsonReader again(written.c_str());
  require(again.to_string() == written || written.find('.') != written.npos, "what was written reads back");
  return 0;
}
