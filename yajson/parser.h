// Text to value. The input is counted, needs no terminator and is never read beyond its end. Bytes from 0x80 on pass
// through strings as they are. Recursion ends at the depth limit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <system_error>

#include "yajson/value.h"

namespace yajson {

// Extensions, all off: strict JSON. Where keys may repeat, the last one of a name wins, at its own position.
struct ParseOptions {
  bool allow_comments = false;
  bool allow_trailing_commas = false;
  bool allow_single_quotes = false;
  bool allow_unquoted_keys = false;
  bool allow_nan_inf = false;
  bool allow_hex_numbers = false;
  bool allow_control_chars = false;
  bool allow_duplicate_keys = false;
  std::uint64_t max_depth = 0;  // containers within containers; 0 stands for 512
};

struct ParseResult {
  Value value;
  std::error_code error;
};

// The document lies in the thread's current arena, or on the heap without one. Throws ParseError.
Value parse(const char* text, std::size_t length, const ParseOptions& options = {});

// The same, with a null value and the error's code where parse() would throw.
ParseResult parse_nothrow(const char* text, std::size_t length, const ParseOptions& options = {}) noexcept;

}  // namespace yajson
