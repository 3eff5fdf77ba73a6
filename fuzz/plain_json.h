// JSON with its extensions, read as plainly as it can be told: a byte at a time, with no thought for speed, and into
// values of its own. The product's parser must take and refuse the same texts, and tell the same of each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zal::fuzz {

struct PlainRules {
  bool comments = false;
  bool trailing_commas = false;
  bool single_quotes = false;
  bool unquoted_keys = false;
  bool nan_inf = false;
  bool hex_numbers = false;
  bool control_chars = false;
  bool duplicate_keys = false;
  std::size_t max_depth = 512;
};

struct PlainValue {
  enum class Kind { null, boolean, integer, uinteger, floating, string, array, object };

  Kind kind = Kind::null;
  bool truth = false;
  std::int64_t integer = 0;
  std::uint64_t uinteger = 0;
  double number = 0;
  std::string text;
  std::vector<std::string> keys;  // of an object, one for each element
  std::vector<PlainValue> elements;
};

struct PlainError {
  int code = 0;
  std::string message;
  std::size_t offset = 0;  // line and column count from 1
  std::size_t line = 1;
  std::size_t column = 1;
};

// A value if there is no error.
struct PlainResult {
  PlainValue value;
  std::optional<PlainError> error;
};

PlainResult read_plain_json(std::string_view text, const PlainRules& rules);

}  // namespace zal::fuzz
