// The last step of the way out: text that leaves through one connection. All of it runs on the service thread that owns
// the connection, inside a writable event.
#pragma once

#include <cstdint>
#include <string_view>

#include "websock/LwsApi.h"

namespace rrm {

// Writes one frame. Nothing happens for null data or a length below 1. The result is the library's: a short or failed
// write is logged and raises event 8, and the message counts as sent all the same.
int lws_send(LwsApi& library, lws* wsi, const char* data, int length, lws_write_protocol mode);

// Writes one text frame, or refuses a text that is too long for the library with a log line that begins with `what`,
// and event 8. `id` is the session's.
void send_text(LwsApi& library, lws* wsi, std::string_view text, const char* what, std::uint32_t id);

}  // namespace rrm
