// What the parser's tests share.
#pragma once

#include <algorithm>
#include <memory>
#include <string_view>

#include "yajson/parser.h"

namespace yajson {

// Parses a copy that ends where its allocation ends, so that a sanitizer sees every byte read beyond.
inline Value parse_exactly(std::string_view text, const ParseOptions& options = {}) {
  const auto copy = std::make_unique<char[]>(text.size());
  std::copy(text.begin(), text.end(), copy.get());
  return parse(copy.get(), text.size(), options);
}

}  // namespace yajson
