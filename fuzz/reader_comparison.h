// The product's parser beside the plain reader.
#pragma once

#include <string>
#include <string_view>

#include "yajson/parser.h"

namespace zal::fuzz {

// What the two readers tell differently of a text; empty if they agree in everything: whether it is taken, the value to
// the last bit of a number, or the error with its place and words.
std::string difference_of_readers(std::string_view text, const yajson::ParseOptions& options);

}  // namespace zal::fuzz
