// The identity of one access point's WebSocket connection: a plain value, copied freely. It goes stale when the
// connection ends, and `wsi` may then be reused for another one; whoever acts on a session compares `identity()` with
// the live session's first.
#pragma once

#include <cstdint>

struct lws;

namespace rrm {

struct BaseSession {
  lws* wsi = nullptr;    // the library's handle; null means no session
  std::int32_t tsi = 0;  // index of the service thread that owns the connection
  std::uint32_t id = 0;  // session number, from 1, never used twice in the process's life

  // What tells two connections with the same `wsi` apart.
  std::uint64_t identity() const { return (std::uint64_t{static_cast<std::uint32_t>(tsi)} << 32) | id; }

  bool operator==(const BaseSession&) const = default;
};

// The session of messages that belong to none.
inline constexpr BaseSession no_session{};

}  // namespace rrm
