// The server side of the APs' WebSocket sessions, on libwebsockets: the listening context, the session table, the way
// in of a message up to the dispatcher, and the way out from any thread to the socket.
//
// RRM owns the one instance that may exist at a time. Its own thread builds and ends the context and idles in between.
// A service thread is the only one to touch a connection: it assembles messages and hands them to the jsonificator
// threads, which parse them and call the dispatcher; it writes one message per writable event. Other threads reach a
// session only through the enqueue operations, which put the message into the session's send queue and wake the service
// thread. A sender learns nothing of the outcome: every refusal is a log line, every loss an event besides.
//
// A session is known by its BaseSession. The library reuses `wsi` values, so whatever is sent is checked against the
// live session's identity when it is queued and again when it is written.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Worker.h"
#include "core/SafeMap.h"
#include "core/SafeQueue.h"
#include "websock/LwsApi.h"
#include "websock/OverloadWatch.h"
#include "websock/WebsockSession.h"
#include "websock/descriptor_limit.h"

namespace rrm {

class GlobalConfig;

class WebsockServerWorker final : public Worker {
 public:
  // What the worker tells the dispatcher, from its service and jsonificator threads, with no lock held.
  struct Upstream {
    std::function<void(JsonReader& json, const BaseSession& session)> process_incoming_message;
    std::function<void(const BaseSession& session)> drop_session_at_rrm_workers;
    std::function<void(const BaseSession& session)> stop_load_balancer_at_rrm_worker;
  };

  WebsockServerWorker(RRM* server, GlobalConfig* settings);
  // With other ends than the dispatcher and the library itself.
  WebsockServerWorker(RRM* server, GlobalConfig* settings, Upstream dispatcher, LwsApi& lws_api);
  ~WebsockServerWorker() override;

  void process_message(JsonReader&, BaseSession&) override {}

  // Sends to a session, from any thread. A message for a session that is gone, or whose `wsi` belongs to another one by
  // now, is refused; one that comes before the session's first writable event is lost, and so is one that finds the
  // ring of 16 full for 256 attempts, some 120 ms, or that finds it full again before the session took anything more.
  // Nobody else waits meanwhile. A forced drop-session is queued once, however often it is ordered: it ends the session
  // at its next writable event, or after 5 seconds without one. One that its full ring has lost is ordered anew as such
  // a one.
  void enqueue_message(JsonReader&& json, const BaseSession& session) override;
  void enqueue_message_force(JsonReader&& json, const BaseSession& session) override;
  // The same on the normal ring, with a text that is ready to be sent.
  void enqueue_serialized(std::string&& text, const BaseSession& session);

  // Whether its connection is open. A later one of the same `wsi` is another session.
  bool has_session(const BaseSession& session) const RRM_EXCLUDES(sessions.mutex);
  // All sessions of this moment, in no particular order.
  std::vector<std::shared_ptr<WebsockSession>> sessions_snapshot() const RRM_EXCLUDES(sessions.mutex);
  // Adds "websock-sessions", an array with `id` and `peer` of each.
  void report_status(JsonWriter& writer) override;
  void report_details(JsonWriter& writer) override { report_status(writer); }

  // Listens on the configuration's port and starts the threads. False if that is not possible now: it then lasts as
  // long as one attempt, and only one attempt a minute is reported. Only the worker's thread calls these two.
  bool connect() override;
  // Ends the threads, then the context and with it all sessions.
  void disconnect() override;

 private:
  using Message = std::shared_ptr<QueueMessage>;
  using SendQueue = _SafeQueue<Message>;
  using SendRing = Ring<Message> SendQueue::*;

  // The send queues of the connections of one service thread.
  struct SendQueues : SafeUnorderedMap<lws*, SendQueue> {
    // Who got a message into an empty queue, or a forced one, since the last wake-up: all that it has to look at.
    std::vector<lws*> filled RRM_GUARDED_BY(mutex);
  };

  struct FreeText {
    void operator()(char* text) const { std::free(text); }
  };
  // A whole message on its way to be parsed.
  struct JsonificatorItem {
    std::unique_ptr<char, FreeText> text;  // zero-terminated; null for an empty message
    BaseSession session;                   // the sender at receipt
  };

  enum class HandOver { queued, before_first_event, full, still_full, session_gone, stale };
  enum class Written { all, more_waits, close };
  enum class Sent { done, close_ordered };

  // Life.
  void fill_context_info();
  bool attempt_is_reported();
  void log_attempt(const DescriptorPlan& descriptors) const;
  lws_context* create_context(const DescriptorPlan& descriptors) RRM_EXCLUDES(context_mutex);
  void destroy_context() RRM_EXCLUDES(context_mutex);
  bool has_context() const RRM_EXCLUDES(context_mutex);
  bool start_threads(lws_context* served);
  void stop_threads();
  void set_stopping(bool now_stopping);
  void wake_service() RRM_EXCLUDES(context_mutex);
  void service_loop(lws_context* served, int tsi);

  // Callbacks of the library, on the service thread, or on the worker's while the context ends.
  static int lws_callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len);
  static void logger_callback(int level, const char* line);
  int worker_lws_callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len);
  int dispatch(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len);
  void process_established(lws* wsi, void* user) RRM_EXCLUDES(sessions.mutex);
  void process_received(lws* wsi, const char* in, std::size_t len) RRM_EXCLUDES(sessions.mutex);
  void process_pong(lws* wsi) RRM_EXCLUDES(sessions.mutex);
  void process_closed(lws* wsi, void* user) RRM_EXCLUDES(sessions.mutex);
  void process_wait_cancelled(lws* wsi) RRM_EXCLUDES(sessions.mutex);
  int process_server_writeable(lws* wsi, void* user) RRM_EXCLUDES(sessions.mutex);

  // The session table.
  WebsockSession* find_session(lws* wsi) const RRM_REQUIRES(sessions.mutex);
  bool is_live(lws* wsi) const RRM_EXCLUDES(sessions.mutex);
  void forget_session(lws* wsi, void* user, int tsi) RRM_REQUIRES(sessions.mutex);
  std::uint32_t take_session_id() RRM_EXCLUDES(id_mutex);

  // The way in.
  bool finish_message(WebsockSession& session, const char* in, std::size_t len) RRM_REQUIRES(sessions.mutex);
  void note_life(WebsockSession& session) RRM_REQUIRES(sessions.mutex);
  void hand_to_jsonificator(JsonificatorItem&& item) RRM_EXCLUDES(sessions.mutex);
  void jsonificator_loop();
  void parse(const JsonificatorItem& item) RRM_EXCLUDES(sessions.mutex);

  // The way out.
  void send_to_session(Message&& message, SendRing ring, const char* operation) RRM_EXCLUDES(sessions.mutex);
  HandOver hand_over(Message& message, SendRing ring, BaseSession& live) RRM_EXCLUDES(sessions.mutex);
  static HandOver force_drop(WebsockSession& session, SendQueues& queues, Message& message);
  static HandOver push_to(SendQueues& queues, Message& message, SendRing ring);
  void note_stall(const BaseSession& session) RRM_EXCLUDES(sessions.mutex);
  static SendQueue* find_send_queue(SendQueues& queues, lws* wsi) RRM_REQUIRES(queues.mutex);
  static void erase_send_queue(SendQueues& queues, lws* wsi) RRM_EXCLUDES(queues.mutex);
  static std::vector<lws*> take_filled(SendQueues& queues) RRM_EXCLUDES(queues.mutex);
  Written write_next(const WebsockSession& session, int tsi) RRM_REQUIRES(sessions.mutex);
  Sent send_one(const QueueMessage& message, const WebsockSession& session);
  Sent send_json(const QueueMessage& message, const WebsockSession& session);
  Sent obey(const char* cmd, const WebsockSession& session);

  static bool valid_tsi(int tsi);

  // The bound worker_lws_callback of the only instance; empty without one.
  static std::function<int(lws*, lws_callback_reasons, void*, void*, std::size_t)> lws_callback_target;
  static constexpr std::size_t max_service_threads = 32;

  // Constant after construction.
  GlobalConfig* const config;
  const Upstream upstream;
  LwsApi& library;

  // The worker's thread only.
  std::vector<std::thread> service_threads;
  std::vector<std::thread> jsonificator_threads;
  lws_http_mount mount{};
  lws_context_creation_info context_info{};
  std::array<lws_protocols, 3> protocols{};
  std::int64_t quiet_until = 0;  // until this second a failing attempt on the port is not reported again
  int quiet_port = 0;

  // Locks in the order in which they nest: `sessions`, then one of `send_queues`. The others are leaves.
  mutable Mutex id_mutex;
  std::uint32_t next_session_id RRM_GUARDED_BY(id_mutex) = 1;
  SafeUnorderedMap<lws*, WebsockSession> sessions;               // its mutex is the session lock
  std::array<SendQueues, max_service_threads> send_queues;       // by `tsi`
  mutable Mutex context_mutex;                                   // orders the wake-ups and the end of `context`
  lws_context* context RRM_GUARDED_BY(context_mutex) = nullptr;  // null when not connected

  // Safe from any thread.
  _SafeQueue<JsonificatorItem> jsonificator_queue;
  OverloadWatch overload_watch;
  std::atomic<bool> stopping{false};                // ends the service threads
  std::atomic<bool> jsonificators_stopping{false};  // ends the jsonificators, once nothing feeds them any more
};

}  // namespace rrm
