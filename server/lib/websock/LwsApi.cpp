#include "websock/LwsApi.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace rrm {
namespace {

// Whether the port can be bound now, as the library would do it.
bool can_bind(int port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return bound;
}

// Of the protocols as the library is given them: they live as long as its context.
std::vector<lws_protocols> served;
lws_callback_function* callback = nullptr;

// Whoever asks for the path of the WebSocket without an upgrade would wait for an answer that nobody gives, and
// whatever he sends meanwhile, his end included, would keep the library busy without a pause until his time is up.
int close_plain_http(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) {
  return reason == LWS_CALLBACK_HTTP ? -1 : callback(wsi, reason, user, in, len);
}

// Whoever upgrades without the sessions' protocol has no session, and nobody would ever ask whether he is still there.
int end_without_session(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) {
  return reason == LWS_CALLBACK_ESTABLISHED ? -1 : lws_callback_http_dummy(wsi, reason, user, in, len);
}

// The sessions' silence is the ping worker's affair. The library's own watch over it sorts every pong into a list of
// all connections, which takes half a CPU where 10000 of them are silent, and ends those that talk but answer no ping.
const lws_retry_bo_t no_watch{};

}  // namespace

lws_context_creation_info for_sessions_only(lws_context_creation_info info) {
  info.retry_and_idle_policy = &no_watch;
  served.clear();
  for (const lws_protocols* protocol = info.protocols; protocol->name != nullptr; ++protocol) {
    served.push_back(*protocol);
    if (protocol->callback == lws_callback_http_dummy) {
      served.back().callback = end_without_session;
    } else {
      callback = std::exchange(served.back().callback, close_plain_http);
    }
  }
  served.push_back({});
  info.protocols = served.data();
  return info;
}

namespace {

class Libwebsockets final : public LwsApi {
 public:
  void set_log_level(int level, void (*emit)(int level, const char* line)) override { lws_set_log_level(level, emit); }
  // The library never frees all of a context that could not be created, and the worker tries again without a pause: a
  // port that somebody else holds is found out without it.
  lws_context* create_context(const lws_context_creation_info& info) override {
    if (!can_bind(info.port)) return nullptr;
    const lws_context_creation_info told = for_sessions_only(info);
    return lws_create_context(&told);
  }
  void context_destroy(lws_context* context) override { lws_context_destroy(context); }
  int get_count_threads(lws_context* context) override { return lws_get_count_threads(context); }
  int service_tsi(lws_context* context, int timeout_ms, int tsi) override {
    return lws_service_tsi(context, timeout_ms, tsi);
  }
  void cancel_service(lws_context* context) override { lws_cancel_service(context); }

  int get_tsi(lws* wsi) override { return lws_get_tsi(wsi); }
  std::string get_peer_simple(lws* wsi) override {
    std::array<char, 256> name{};
    const char* peer = lws_get_peer_simple(wsi, name.data(), name.size());
    return peer != nullptr ? peer : "";
  }
  std::size_t remaining_packet_payload(lws* wsi) override { return lws_remaining_packet_payload(wsi); }
  bool is_final_fragment(lws* wsi) override { return lws_is_final_fragment(wsi) != 0; }
  void set_timeout(lws* wsi, pending_timeout reason, int seconds) override { lws_set_timeout(wsi, reason, seconds); }
  void callback_on_writable(lws* wsi) override { lws_callback_on_writable(wsi); }
  int write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) override {
    return lws_write(wsi, payload, length, mode);
  }
  void close_reason(lws* wsi, lws_close_status status, std::string_view reason) override {
    std::string text(reason);
    lws_close_reason(wsi, status, reinterpret_cast<unsigned char*>(text.data()), text.size());
  }
};

}  // namespace

LwsApi& libwebsockets() {
  static Libwebsockets library;
  return library;
}

}  // namespace rrm
