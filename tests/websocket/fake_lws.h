// libwebsockets as a test plays it: the test is the network, and the service thread too unless it asks for real
// threads. Every call into the library is noted as one line, in order.
#pragma once

#include <sys/resource.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/mutex.h"
#include "websock/LwsApi.h"

namespace rrm::testing {

class FakeLws : public LwsApi {
 public:
  // What the library knows of a connection.
  struct Peer {
    int tsi = 0;
    std::string address = "192.0.2.1";
    std::size_t remaining = 0;
    bool final = true;
    void* user_data = nullptr;  // the connection's own 8 bytes
  };

  // Set before the worker connects. With threads the worker starts its own: a service thread then sleeps until it is
  // woken and calls back for the wake-up, or runs `service` instead.
  int threads = 0;
  int creations_to_refuse = 0;
  std::function<int()> service;
  std::function<void()> before_threads;
  // Set at any time by a test without threads.
  int write_result = 0;  // 0: all that was given
  std::function<void()> on_get_tsi;

  // The n-th handle that the library may give out. Handles are reused as the test likes.
  static lws* handle(std::uintptr_t n) { return reinterpret_cast<lws*>(n << 6); }
  Peer& peer(lws* wsi) RRM_EXCLUDES(mutex_);

  // The library calls the worker back.
  int call(lws* wsi, lws_callback_reasons reason, const void* in = nullptr, std::size_t len = 0);
  void open(lws* wsi);
  void open_and_make_queue(lws* wsi);
  void close(lws* wsi);
  int receive(lws* wsi, std::string_view text, bool final = true, std::size_t remaining = 0);
  int writeable(lws* wsi) { return call(wsi, LWS_CALLBACK_SERVER_WRITEABLE); }
  // What follows every lws_cancel_service: the library calls with a stand-in for a connection.
  int wake() { return call(stand_in(), LWS_CALLBACK_EVENT_WAIT_CANCELLED); }
  static lws* stand_in() { return handle(9999); }
  void log(int level, const char* line) const { emit_(level, line); }

  const lws_context_creation_info& info() const { return info_; }
  lws_callback_function* callback() const { return callback_; }
  rlim_t soft_limit_at_creation() const { return soft_limit_; }

  // The lines since the last call.
  std::vector<std::string> take_calls() RRM_EXCLUDES(mutex_);
  // True once the line is among them; false if it does not come in time.
  bool wait_for_call(const std::string& line) RRM_EXCLUDES(mutex_);

  void set_log_level(int level, void (*emit)(int level, const char* line)) override;
  lws_context* create_context(const lws_context_creation_info& info) override;
  void context_destroy(lws_context* context) override;
  int get_count_threads(lws_context* context) override;
  int service_tsi(lws_context* context, int timeout_ms, int tsi) override;
  void cancel_service(lws_context* context) override;
  int get_tsi(lws* wsi) override;
  std::string get_peer_simple(lws* wsi) override { return peer(wsi).address; }
  std::size_t remaining_packet_payload(lws* wsi) override { return peer(wsi).remaining; }
  bool is_final_fragment(lws* wsi) override { return peer(wsi).final; }
  void set_timeout(lws* wsi, pending_timeout reason, int seconds) override;
  void callback_on_writable(lws* wsi) override;
  int write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) override;
  void close_reason(lws* wsi, lws_close_status status, std::string_view reason) override;

 private:
  void note(std::string line) RRM_EXCLUDES(mutex_);

  void (*emit_)(int level, const char* line) = nullptr;
  lws_context_creation_info info_{};
  lws_callback_function* callback_ = nullptr;
  rlim_t soft_limit_ = 0;

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::map<lws*, Peer> peers_ RRM_GUARDED_BY(mutex_);
  std::set<lws*> open_ RRM_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ RRM_GUARDED_BY(mutex_);
  std::uint64_t wakeups_ RRM_GUARDED_BY(mutex_) = 0;
  std::map<int, std::uint64_t> wakeups_seen_ RRM_GUARDED_BY(mutex_);  // by service thread
};

}  // namespace rrm::testing
