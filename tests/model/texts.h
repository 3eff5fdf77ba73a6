// What the tests of the model share: JSON texts in and out.
#pragma once

#include <string>

#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm::testing {

// What `fill` writes into an object, as text.
template <class Fill>
std::string object_text(Fill fill) {
  JsonWriter object;
  fill(object);
  return object.to_string();
}

// What `fill` adds to an array, as text.
template <class Fill>
std::string array_text(Fill fill) {
  JsonWriter document;
  JsonWriter array = JsonWriter::array(document, "list");
  fill(array);
  return array.to_string();
}

inline JsonReader reader(const std::string& text) {
  return JsonReader(text.c_str());
}

}  // namespace rrm::testing
