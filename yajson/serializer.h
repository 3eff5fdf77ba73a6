// Value to text.
#pragma once

#include <cstdint>
#include <string>

#include "yajson/value.h"

namespace yajson {

struct SerializeOptions {
  std::int32_t indent = -1;     // spaces a level, each element on its own line; negative means no whitespace at all
  bool escape_unicode = false;  // bytes from 0x80 on as \u escapes; what is not UTF-8 becomes \ufffd
  bool allow_nan_inf = false;   // NaN and Infinity as such instead of null
  bool sort_keys = false;       // members in byte order of their keys instead of the order of insertion
};

std::string serialize(const Value& value, const SerializeOptions& options = {});

}  // namespace yajson
