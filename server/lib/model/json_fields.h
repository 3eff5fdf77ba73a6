// Reading habits that all records of the model share.
#pragma once

#include <cstdint>

#include "json/JsonReader.h"
#include "model/MacAddr.h"

namespace rrm {

// The fallback is for a key that is absent; a value of the wrong type reads by the reader's own conversion.
inline std::int32_t get_int_or(const JsonReader& object, const char* key, std::int32_t fallback) {
  return object.has(key) ? object.get_int(key) : fallback;
}

inline bool get_flag(const JsonReader& object, const char* key) {
  return object.get_int(key) != 0;
}

inline bool get_flag_or(const JsonReader& object, const char* key, bool fallback) {
  return object.has(key) ? get_flag(object, key) : fallback;
}

// All zero unless the text is an address.
inline MacAddr get_mac(const JsonReader& object, const char* key) {
  return MacAddr::parse(object.get_string(key));
}

// The elements of an array that are not null, in order.
template <class Visit>
void for_each_element(const JsonReader& array, Visit visit) {
  for (int i = 0; i < array.size(); ++i) {
    const JsonReader element = array.at(i);
    if (!element.empty()) visit(element);
  }
}

}  // namespace rrm
