// The network between the access points of a test and the server's WebSocket worker, in place of the library: no
// socket, and no time of its own, but a real service thread of the worker's. It serves one thing at a time, what the
// server wants before what the access points do, and can tell when nothing is left to be served.
//
// The test's thread plays the far ends. A far end that does not read has no writable events.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/mutex.h"
#include "websock/LwsApi.h"

namespace soak {

class Wire final : public rrm::LwsApi {
 public:
  // What the server did to a far end.
  struct Event {
    enum class Kind { text, ping, closed };
    lws* line = nullptr;
    Kind kind = Kind::text;
    std::string text;
  };

  // Until the server listens.
  void await_context() RRM_EXCLUDES(mutex_);

  // The far ends. Handles of connections that have ended are given out again, the last one first, as soon as the test
  // can know of the end.
  lws* open() RRM_EXCLUDES(mutex_);
  void send(lws* line, std::string text) RRM_EXCLUDES(mutex_);
  void pong(lws* line) RRM_EXCLUDES(mutex_);
  void close(lws* line) RRM_EXCLUDES(mutex_);
  void stop_reading(lws* line) RRM_EXCLUDES(mutex_);

  // The connections whose time is up by the server's own clock are ended.
  void end_overdue() RRM_EXCLUDES(mutex_);
  // Until everything is served that was to be served.
  void await_rest() RRM_EXCLUDES(mutex_);
  // In order, since the last call.
  std::vector<Event> take_events() RRM_EXCLUDES(mutex_);

  std::size_t lines() const RRM_EXCLUDES(mutex_);
  // What the far ends did so far.
  std::uint64_t actions() const RRM_EXCLUDES(mutex_);

  void set_log_level(int, void (*)(int level, const char* line)) override {}
  lws_context* create_context(const lws_context_creation_info& info) override RRM_EXCLUDES(mutex_);
  void context_destroy(lws_context* context) override RRM_EXCLUDES(mutex_);
  int get_count_threads(lws_context*) override { return 1; }
  int service_tsi(lws_context* context, int timeout_ms, int tsi) override RRM_EXCLUDES(mutex_);
  void cancel_service(lws_context* context) override RRM_EXCLUDES(mutex_);
  int get_tsi(lws*) override { return 0; }
  std::string get_peer_simple(lws*) override { return "192.0.2.1"; }
  std::size_t remaining_packet_payload(lws*) override { return 0; }
  bool is_final_fragment(lws*) override { return true; }
  void set_timeout(lws* wsi, pending_timeout reason, int seconds) override RRM_EXCLUDES(mutex_);
  void callback_on_writable(lws* wsi) override RRM_EXCLUDES(mutex_);
  int write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) override
      RRM_EXCLUDES(mutex_);
  void close_reason(lws*, lws_close_status, std::string_view) override {}

 private:
  struct Line {
    void* user_data = nullptr;  // the connection's own 8 bytes
    bool reads = true;
    std::int64_t deadline = 0;  // second in which the connection is ended; 0: none
  };
  using Action = std::function<void()>;

  static lws* handle(std::uintptr_t number) { return reinterpret_cast<lws*>(number << 6); }
  int call(lws* line, lws_callback_reasons reason, const std::string& text = {}) RRM_EXCLUDES(mutex_);
  void act_on(lws* line, Action action) RRM_EXCLUDES(mutex_);
  void end(lws* line, bool by_server) RRM_EXCLUDES(mutex_);
  lws* next_writable() RRM_REQUIRES(mutex_);
  bool at_rest() const RRM_REQUIRES(mutex_);
  lws_callback_function* callback() const RRM_EXCLUDES(mutex_);
  void serve_one() RRM_EXCLUDES(mutex_);
  void write_event(lws* line) RRM_EXCLUDES(mutex_);

  mutable rrm::Mutex mutex_;  // never held in a callback
  std::condition_variable_any changed_;
  lws_callback_function* callback_ RRM_GUARDED_BY(mutex_) = nullptr;  // null until the server listens
  std::map<lws*, Line> lines_ RRM_GUARDED_BY(mutex_);
  std::vector<lws*> free_ RRM_GUARDED_BY(mutex_);
  std::uintptr_t last_number_ RRM_GUARDED_BY(mutex_) = 0;
  std::deque<Action> actions_ RRM_GUARDED_BY(mutex_);
  std::set<lws*> writable_ RRM_GUARDED_BY(mutex_);  // asked for their writable event
  bool wake_ RRM_GUARDED_BY(mutex_) = false;
  std::uint64_t action_count_ RRM_GUARDED_BY(mutex_) = 0;
  bool serving_ RRM_GUARDED_BY(mutex_) = false;
  std::vector<Event> events_ RRM_GUARDED_BY(mutex_);
};

}  // namespace soak
