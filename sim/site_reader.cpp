#include "sim/site_reader.h"

#include <cstdint>
#include <limits>
#include <utility>

#include "sim/spectrum.h"

namespace sim {

using nlohmann::json;

namespace {

bool is_integer(const json& value) {
  // Compared as it stands: the library would compare it as a signed number, and so take a huge one for a negative one.
  if (value.is_number_unsigned()) return value.get<std::uint64_t>() <= std::numeric_limits<int>::max();
  return value.is_number_integer() && value >= std::numeric_limits<int>::min() &&
         value <= std::numeric_limits<int>::max();
}

}  // namespace

SiteReader::SiteReader(const json& value, std::string path) : value_(value), path_(std::move(path)) {
  if (!value_.is_object()) {
    fail("must be an object");
  }
}

bool SiteReader::has(const char* key) {
  return optional(key) != nullptr;
}

double SiteReader::number(const char* key) {
  const json& value = required(key);
  if (!value.is_number()) {
    fail_at(key, "must be a number");
  }
  return value.get<double>();
}

double SiteReader::number(const char* key, double fallback) {
  return has(key) ? number(key) : fallback;
}

int SiteReader::integer(const char* key) {
  const json& value = required(key);
  if (!is_integer(value)) {
    fail_at(key, "must be an integer of 32 bits");
  }
  return value.get<int>();
}

int SiteReader::integer(const char* key, int fallback) {
  return has(key) ? integer(key) : fallback;
}

bool SiteReader::flag(const char* key, bool fallback) {
  const json* const value = optional(key);
  if (value != nullptr && !value->is_boolean()) {
    fail_at(key, "must be true or false");
  }
  return value == nullptr ? fallback : value->get<bool>();
}

std::string SiteReader::text(const char* key) {
  const json& value = required(key);
  if (!value.is_string() || value.get_ref<const std::string&>().empty()) {
    fail_at(key, "must be a text that is not empty");
  }
  return value.get<std::string>();
}

std::string SiteReader::text(const char* key, const std::string& fallback) {
  return has(key) ? text(key) : fallback;
}

Mac SiteReader::mac(const char* key) {
  const std::optional<Mac> mac = Mac::parse(text(key));
  if (!mac) {
    fail_at(key, "must be a MAC address such as \"02:00:5e:00:01:00\"");
  }
  return *mac;
}

Point SiteReader::point(const char* key, double height) {
  return as_point(required(key), key, height);
}

int SiteReader::band(const char* key) {
  const int band = integer(key);
  if (!is_band(band)) {
    fail_at(key, "must be 2, 5 or 6");
  }
  return band;
}

std::vector<int> SiteReader::integers(const char* key) {
  const json* const value = optional(key);
  std::vector<int> result;
  if (value == nullptr) {
    return result;
  }
  if (!value->is_array()) {
    fail_at(key, "must be an array of integers of 32 bits");
  }
  for (const json& element : *value) {
    if (!is_integer(element)) {
      fail_at(key, "must be an array of integers of 32 bits");
    }
    result.push_back(element.get<int>());
  }
  return result;
}

PerBand SiteReader::per_band(const char* key, const PerBand& fallback) {
  if (!has(key)) {
    return fallback;
  }
  SiteReader bands = object(key);
  const PerBand result{bands.number("2", fallback.at_2g), bands.number("5", fallback.at_5g),
                       bands.number("6", fallback.at_6g)};
  bands.finish();
  return result;
}

SiteReader SiteReader::object(const char* key) {
  return {required(key), path_ + "." + key};
}

void SiteReader::each(const char* key, const std::function<void(SiteReader&)>& visit) {
  const json* const array = optional(key);
  if (array == nullptr) {
    return;
  }
  if (!array->is_array()) {
    fail_at(key, "must be an array");
  }
  for (std::size_t i = 0; i < array->size(); ++i) {
    SiteReader element((*array)[i], path_ + "." + key + "[" + std::to_string(i) + "]");
    visit(element);
    element.finish();
  }
}

void SiteReader::each_key(const std::function<void(const std::string&, SiteReader&)>& visit) {
  for (const auto& [key, value] : value_.items()) {
    SiteReader element(value, path_ + "." + key);
    known_.insert(key);
    visit(key, element);
    element.finish();
  }
}

std::vector<Point> SiteReader::points(const char* key, double height) {
  const json* const array = optional(key);
  std::vector<Point> result;
  if (array == nullptr) {
    return result;
  }
  if (!array->is_array()) {
    fail_at(key, "must be an array of points");
  }
  for (const json& element : *array) {
    result.push_back(as_point(element, key, height));
  }
  return result;
}

void SiteReader::finish() const {
  for (const auto& [key, value] : value_.items()) {
    if (known_.count(key) == 0) {
      fail("has an unknown key \"" + key + "\"");
    }
  }
}

void SiteReader::fail(const std::string& what) const {
  throw SiteError(path_ + " " + what);
}

void SiteReader::fail_at(const char* key, const std::string& what) const {
  throw SiteError(path_ + "." + key + " " + what);
}

const json& SiteReader::required(const char* key) {
  const json* const value = optional(key);
  if (value == nullptr) {
    fail_at(key, "is missing");
  }
  return *value;
}

const json* SiteReader::optional(const char* key) {
  known_.insert(key);
  const auto found = value_.find(key);
  return found == value_.end() ? nullptr : &*found;
}

Point SiteReader::as_point(const json& value, const char* key, double height) const {
  if (!value.is_array() || value.size() != 2 || !value[0].is_number() || !value[1].is_number()) {
    fail_at(key, "must be two numbers, metres from the left and from the top");
  }
  return {value[0].get<double>(), value[1].get<double>(), height};
}

}  // namespace sim
