// What travels through the queues: a session with either a parsed message or a ready text. Held by std::shared_ptr. A
// parsed message is taken over from its reader, which cannot be copied, and belongs to whoever holds the queue message.
#pragma once

#include <string>
#include <string_view>

#include "core/BaseSession.h"
#include "json/JsonReader.h"

namespace rrm {

struct QueueMessage {
  QueueMessage(JsonReader&& message, const BaseSession& peer);
  QueueMessage(std::string&& text, const BaseSession& peer);

  // The ready text, or else the parsed message serialised. Valid as long as this message is not touched.
  std::string_view text() const;

  BaseSession session;     // the sender, or the session to send to
  JsonReader json;         // empty when `serialized` is used
  std::string serialized;  // empty when `json` is used
};

// The fixed orders between the server's own threads.
namespace internal_message {
inline constexpr const char* stop = R"({"service":"internal-ipc", "cmd":"stop"})";
inline constexpr const char* drop_session = R"({"service":"rrm-internal", "cmd":"drop-session"})";
inline constexpr const char* ping_session = R"({"service":"rrm-internal", "cmd":"ping-session"})";
inline constexpr const char* stop_load_balancer = R"({"service":"rrm-internal", "cmd":"stop-load-balancer"})";
}  // namespace internal_message

// The services of an envelope.
namespace service_name {
inline constexpr const char* rrm = "rrm";                    // the protocol of the access points
inline constexpr const char* rrm_internal = "rrm-internal";  // orders to sessions and domain workers; never on the wire
inline constexpr const char* internal_ipc = "internal-ipc";  // orders to a worker itself; never on the wire
}  // namespace service_name

}  // namespace rrm
