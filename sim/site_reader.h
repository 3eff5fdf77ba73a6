// A checked view of one JSON object of a site file. Every complaint names the place; a key that nobody asked for is a
// complaint too, since a mistyped key would otherwise silently become a default.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "sim/geometry.h"
#include "sim/mac.h"
#include "sim/site.h"

namespace sim {

class SiteReader {
 public:
  SiteReader(const nlohmann::json& value, std::string path);

  bool has(const char* key);
  double number(const char* key);
  double number(const char* key, double fallback);
  int integer(const char* key);
  int integer(const char* key, int fallback);
  bool flag(const char* key, bool fallback);
  std::string text(const char* key);
  std::string text(const char* key, const std::string& fallback);
  Mac mac(const char* key);
  Point point(const char* key, double height);
  int band(const char* key);
  std::vector<int> integers(const char* key);
  PerBand per_band(const char* key, const PerBand& fallback);
  SiteReader object(const char* key);

  // Calls `visit` for each object of the array; a missing array has none.
  void each(const char* key, const std::function<void(SiteReader&)>& visit);
  // Calls `visit` for each key of this object, which counts as asked for.
  void each_key(const std::function<void(const std::string&, SiteReader&)>& visit);
  std::vector<Point> points(const char* key, double height);

  // To be called when all keys were read. Throws for a key that was not.
  void finish() const;
  [[noreturn]] void fail(const std::string& what) const;
  [[noreturn]] void fail_at(const char* key, const std::string& what) const;

 private:
  const nlohmann::json& required(const char* key);
  const nlohmann::json* optional(const char* key);
  Point as_point(const nlohmann::json& value, const char* key, double height) const;

  const nlohmann::json& value_;
  std::string path_;
  std::set<std::string> known_;
};

}  // namespace sim
