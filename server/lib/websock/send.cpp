#include "websock/send.h"

#include <array>
#include <climits>
#include <cstring>
#include <vector>

#include "core/log.h"

namespace rrm {
namespace {

constexpr std::size_t stack_payload = 4096;  // up to here a message needs no allocation on its way out

int write_behind_headroom(LwsApi& library, lws* wsi, unsigned char* buffer, const char* data, std::size_t length,
                          lws_write_protocol mode) {
  std::memcpy(buffer + LWS_PRE, data, length);
  return library.write(wsi, buffer + LWS_PRE, length, mode);
}

int write_copy(LwsApi& library, lws* wsi, const char* data, std::size_t length, lws_write_protocol mode) {
  if (length <= stack_payload) {
    std::array<unsigned char, LWS_PRE + stack_payload> buffer;
    return write_behind_headroom(library, wsi, buffer.data(), data, length, mode);
  }
  std::vector<unsigned char> buffer(LWS_PRE + length);
  return write_behind_headroom(library, wsi, buffer.data(), data, length, mode);
}

}  // namespace

int lws_send(LwsApi& library, lws* wsi, const char* data, int length, lws_write_protocol mode) {
  if (data == nullptr || length < 1) return 0;
  RRM_LOG(LOG_TRACE, "Send %.*s", length, data);
  const int result = write_copy(library, wsi, data, static_cast<std::size_t>(length), mode);
  if (result < length) {
    RRM_LOG(LOG_ERROR, "Can't send msg type [%d] to websocket (ret=%d len=%d)", static_cast<int>(mode), result, length);
    emit_event_plain(8);
  }
  return result;
}

void send_text(LwsApi& library, lws* wsi, std::string_view text, const char* what, std::uint32_t id) {
  if (text.size() <= INT_MAX) {
    lws_send(library, wsi, text.data(), static_cast<int>(text.size()), LWS_WRITE_TEXT);
    return;
  }
  RRM_LOG(LOG_ERROR, "%s exceeds INT_MAX; drop session %u", what, id);
  emit_event_plain(8);
}

}  // namespace rrm
