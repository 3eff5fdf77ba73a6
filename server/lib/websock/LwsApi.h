// The calls into libwebsockets that the WebSocket worker makes, as an interface: the rules around them are then tested
// without a socket. Every function is the library's own of the same name, with C++ types where the library wants
// buffers. All of them belong to the service thread of the connection, or to the thread that builds and ends the
// context, except `cancel_service`: any thread may call that while the context stands.
#pragma once

#include <libwebsockets.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace rrm {

class LwsApi {
 public:
  virtual ~LwsApi() = default;

  virtual void set_log_level(int level, void (*emit)(int level, const char* line)) = 0;
  // Null if that is not possible now, for example while the port is taken.
  virtual lws_context* create_context(const lws_context_creation_info& info) = 0;
  virtual void context_destroy(lws_context* context) = 0;
  virtual int get_count_threads(lws_context* context) = 0;
  virtual int service_tsi(lws_context* context, int timeout_ms, int tsi) = 0;
  virtual void cancel_service(lws_context* context) = 0;

  virtual int get_tsi(lws* wsi) = 0;
  // The peer's address as text, at most 255 characters.
  virtual std::string get_peer_simple(lws* wsi) = 0;
  virtual std::size_t remaining_packet_payload(lws* wsi) = 0;
  virtual bool is_final_fragment(lws* wsi) = 0;
  virtual void set_timeout(lws* wsi, pending_timeout reason, int seconds) = 0;
  virtual void callback_on_writable(lws* wsi) = 0;
  // `payload` has LWS_PRE writable bytes in front of it. The result is the number of bytes taken, or negative.
  virtual int write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) = 0;
  virtual void close_reason(lws* wsi, lws_close_status status, std::string_view reason) = 0;
};

// What the library is told instead: it keeps no watch over silence of its own, and hangs up on plain HTTP on the
// sessions' path and on whoever has upgraded without the sessions' protocol. Its protocols live until the next call.
lws_context_creation_info for_sessions_only(lws_context_creation_info info);

// The library itself.
LwsApi& libwebsockets();

}  // namespace rrm
