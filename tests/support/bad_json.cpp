#include "support/bad_json.h"

#include <sstream>
#include <utility>
#include <vector>

#include "yajson/object.h"
#include "yajson/parser.h"
#include "yajson/serializer.h"

namespace rrm::testing {
namespace {

using yajson::Value;

constexpr const char* unknown_member = R"("nobody-knows-it":{"deep":[1]})";

struct Replacement {
  std::string how;
  std::string json;
  std::string read;
};

const std::vector<Replacement>& replacements() {
  static const std::string long_text(std::size_t{64} * 1024, 'a');
  static const std::string letters(100000, 'a');
  static const std::vector<Replacement> all{
      {"null", "null", ""},
      {"number", "7", ""},
      {"negative", "-7", ""},
      {"fraction", "1.5", ""},
      {"true", "true", ""},
      {"text", R"("x y")", "x y"},
      {"empty", R"("")", ""},
      {"long", "\"" + long_text + "\"", long_text},
      {"control", "\"" + letters + R"(\u0001\n\u001f")", letters + "\x01\n\x1f"},
      {"nul", "\"" + letters + R"(\u0000b")", letters},
      {"array", "[]", ""},
      {"object", "{}", ""},
  };
  return all;
}

// Writes a value with one place in it changed.
class Rewriter {
 public:
  // An empty json takes the place away.
  Rewriter(const std::string& where, const std::string& json, bool adds_member)
      : where_(where), json_(json), adds_member_(adds_member) {}

  std::string rewrite(const Value& value) const { return text_of(value, ""); }

 private:
  bool is_gone(const std::string& path) const { return path == where_ && !adds_member_ && json_.empty(); }

  std::string text_of(const Value& value, const std::string& path) const {
    if (path == where_ && !adds_member_) return json_;
    if (value.is_object()) return object_text(value, path);
    if (value.is_array()) return array_text(value, path);
    return yajson::serialize(value);
  }

  std::string object_text(const Value& value, const std::string& path) const {
    std::string members;
    for (const yajson::Member& member : value.as_object().members()) {
      const std::string inner = path + "/" + std::string(member.key());
      if (is_gone(inner)) continue;
      members +=
          (members.empty() ? "" : ",") + yajson::serialize(Value(member.key())) + ":" + text_of(member.value, inner);
    }
    if (path == where_ && adds_member_) members += (members.empty() ? "" : ",") + json_;
    return "{" + members + "}";
  }

  std::string array_text(const Value& value, const std::string& path) const {
    std::string elements;
    for (std::size_t i = 0; i < value.size(); ++i) {
      const std::string inner = path + "/" + std::to_string(i);
      if (!is_gone(inner)) elements += (elements.empty() ? "" : ",") + text_of(value.element(i), inner);
    }
    return "[" + elements + "]";
  }

  const std::string where_;
  const std::string json_;
  const bool adds_member_;
};

struct Place {
  std::string where;
  bool is_object;
};

void collect_places(const Value& value, const std::string& path, std::vector<Place>& places) {
  places.push_back({path, value.is_object()});
  if (value.is_object()) {
    for (const yajson::Member& member : value.as_object().members()) {
      collect_places(member.value, path + "/" + std::string(member.key()), places);
    }
  }
  if (value.is_array()) {
    for (std::size_t i = 0; i < value.size(); ++i) {
      collect_places(value.element(i), path + "/" + std::to_string(i), places);
    }
  }
}

std::vector<Place> places_of(const Value& document) {
  std::vector<Place> places;
  collect_places(document, "", places);
  return places;
}

void visit_faults(const Value& document, const Place& place, const std::function<void(const Fault&)>& visit) {
  const std::string& where = place.where;
  if (!where.empty()) visit({where, "missing", Rewriter(where, "", false).rewrite(document), ""});
  if (place.is_object) visit({where, "unknown", Rewriter(where, unknown_member, true).rewrite(document), ""});
  for (const Replacement& replacement : replacements()) {
    visit({where, replacement.how, Rewriter(where, replacement.json, false).rewrite(document), replacement.read});
  }
}

}  // namespace

void for_each_fault(const std::string& valid, const std::function<void(const Fault&)>& visit) {
  const Value document = yajson::parse(valid.data(), valid.size());
  for (const Place& place : places_of(document)) visit_faults(document, place, visit);
}

void for_each_fault_at(const std::string& where, const std::string& valid,
                       const std::function<void(const Fault&)>& visit) {
  const Value document = yajson::parse(valid.data(), valid.size());
  for (const Place& place : places_of(document)) {
    if (place.where == where) visit_faults(document, place, visit);
  }
}

bool names_kind(const std::string& kinds, const std::string& kind) {
  std::istringstream words(kinds);
  for (std::string word; words >> word;) {
    if (word == kind || word == any) return true;
  }
  return false;
}

std::string as_json(const std::string& read) {
  std::string json = read;
  for (const auto& [raw, escape] : {std::pair("\x01", "\\u0001"), {"\x1f", "\\u001f"}, {"\n", "\\n"}}) {
    json = replaced_all(json, raw, escape);
  }
  return "\"" + json + "\"";
}

std::string replaced_all(std::string text, const std::string& part, const std::string& by) {
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size())) {
    text.replace(at, part.size(), by);
  }
  return text;
}

}  // namespace rrm::testing
