// One AP's connection as the WebSocket worker keeps it. Shared: the session table holds it, and a snapshot of the table
// may keep it alive after the connection has ended.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>

#include "core/BaseSession.h"
#include "core/BufferInfo.h"

namespace rrm {

struct WebsockSession : BaseSession {
  WebsockSession(const BaseSession& identity, std::string peer_address, std::int64_t now)
      : BaseSession(identity), peer(std::move(peer_address)), last_seen(now) {}

  const std::string peer;  // the peer's address as text

  // Only with the session lock.
  BufferInfo buffer;     // the message being assembled
  bool stalled = false;  // a message was lost on its full send ring, and it has taken nothing since

  // Written with the session lock, read without it. Something waits to be sent, and the connection has had no room for
  // any of it since that monotonic second.
  static constexpr std::int64_t nothing_waits = -1;
  std::atomic<std::int64_t> waits_since{nothing_waits};
  std::atomic<std::int64_t> last_seen;    // monotonic second of the last whole message or pong
  std::atomic<bool> drop_ordered{false};  // a forced drop-session waits in its send queue
};

}  // namespace rrm
