// What the server's configuration must be after the edits that it was given: each edit is applied here by the rules
// that an operator is told, on plain JSON, with a table of keys, defaults and ranges of its own.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace load {

using Json = nlohmann::ordered_json;

// One key of a section of settings.
struct Key {
  enum class Kind { flag, number, time, text };

  const char* name;
  Kind kind;
  Json standard;
  int least = 0;  // of a number; of a time in seconds
  int most = 1;
};

// The keys in the order in which a section is written.
const std::vector<Key>& global_keys();
const std::vector<Key>& domain_keys();

struct Binding {
  std::string pattern;
  std::string time_zone;
  bool operator==(const Binding&) const = default;
};

struct ExpectedConfig {
  ExpectedConfig();

  Json global;
  Json common;
  std::map<std::string, Json> patterns;
  std::map<std::string, Binding> domains;

  // The settings of "common" or a pattern; null for an unknown name.
  Json* settings_of(const std::string& pattern);
  bool is_bound(const std::string& pattern) const;
  void remove_pattern(const std::string& pattern);  // and its domains
  Json document() const;
};

// What is wrong with the values of a section: an object of key and value each, in the order of the keys.
Json offenders(const std::vector<Key>& keys, const Json& section);
// Takes the values over. True if any of them is new. Requires: nothing is wrong with them.
bool take_over(Json& stored, const Json& section);

bool is_time_zone(const std::string& text);

}  // namespace load
