// The hash of object keys: a multiply-xor mix over at most sixteen bytes a step, cheap on the short keys of messages.
#pragma once

#include <cstdint>
#include <string_view>

namespace yajson {

std::uint64_t hash_key(std::string_view key) noexcept;

}  // namespace yajson
