// The way in: from a connection's first event to its last, and from its fragments to the dispatcher.
#include <climits>
#include <utility>

#include "WebsockServerWorker.h"
#include "core/clock.h"
#include "core/log.h"
#include "json/JsonReader.h"

namespace rrm {
namespace {

constexpr std::size_t parse_buffer_size = 8192;
constexpr std::int64_t idle_wait_us = 10000;
constexpr std::uint32_t push_attempts = 65536;
constexpr std::uint32_t push_max_sleep_us = 1000;

// The connection's own data, of the size of a pointer; null where the library has none.
void set_user_data(void* user, WebsockSession* session) {
  if (user != nullptr) *static_cast<WebsockSession**>(user) = session;
}

// False if nothing was appended.
bool append(WebsockSession& session, const char* in, std::size_t len, const char* what) {
  if (in == nullptr) return false;
  if (len > INT_MAX) {
    RRM_LOG(LOG_ERROR, "websocket %s exceeds INT_MAX; session %u", what, session.id);
    return false;
  }
  session.buffer.append(in, static_cast<int>(len));
  return true;
}

}  // namespace

void WebsockServerWorker::process_established(lws* wsi, void* user) {
  {
    MutexLock lock(sessions.mutex);
    if (!sessions.map.contains(wsi)) {
      const BaseSession identity{wsi, library.get_tsi(wsi), take_session_id()};
      auto session = std::make_shared<WebsockSession>(identity, library.get_peer_simple(wsi), monotonic_seconds());
      set_user_data(user, session.get());
      sessions.map.emplace(wsi, std::move(session));
    }
  }
  library.callback_on_writable(wsi);  // the first writable event creates the send queue
}

std::uint32_t WebsockServerWorker::take_session_id() {
  MutexLock lock(id_mutex);
  return next_session_id++;
}

void WebsockServerWorker::process_received(lws* wsi, const char* in, std::size_t len) {
  JsonificatorItem item;
  bool overloaded = false;
  {
    MutexLock lock(sessions.mutex);
    auto* const session = find_session(wsi);
    if (session == nullptr) return;
    if (library.remaining_packet_payload(wsi) != 0 || !library.is_final_fragment(wsi)) {
      if (len != 0) append(*session, in, len, "fragment");
      return;
    }
    if (!finish_message(*session, in, len)) return;
    overloaded = overload_watch.count_message(session->last_seen);
    item = {std::unique_ptr<char, FreeText>(session->buffer.release()), *session};
  }
  const BaseSession sender = item.session;
  hand_to_jsonificator(std::move(item));
  if (overloaded) upstream.stop_load_balancer_at_rrm_worker(sender);
}

// The end of a message has come. False if its last part was refused; what came before it then stays in the buffer.
bool WebsockServerWorker::finish_message(WebsockSession& session, const char* in, std::size_t len) {
  note_life(session);
  if (len != 0 && !append(session, in, len, "frame")) return false;
  const char* text = session.buffer.data();
  RRM_LOG(LOG_TRACE, "Recv %.*s", text != nullptr ? session.buffer.size() : 0, text != nullptr ? text : "");
  return true;
}

// May wait long for room, so never with the session lock. One service thread keeps a session's messages in order.
void WebsockServerWorker::hand_to_jsonificator(JsonificatorItem&& item) {
  const std::uint32_t id = item.session.id;
  if (jsonificator_queue.push(jsonificator_queue.normal, std::move(item), push_attempts, push_max_sleep_us)) return;
  RRM_LOG(LOG_ERROR, "jsonificator_queue overflow: message dropped from session %d", static_cast<int>(id));
  emit_event_plain(26);
}

void WebsockServerWorker::process_pong(lws* wsi) {
  MutexLock lock(sessions.mutex);
  auto* const session = find_session(wsi);
  if (session != nullptr) note_life(*session);
}

// No life sign delays the end of a session that is ordered dropped.
void WebsockServerWorker::note_life(WebsockSession& session) {
  session.last_seen = monotonic_seconds();
  if (!session.drop_ordered) library.set_timeout(session.wsi, NO_PENDING_TIMEOUT, 0);
}

void WebsockServerWorker::process_closed(lws* wsi, void* user) {
  BaseSession closed;
  {
    MutexLock lock(sessions.mutex);
    auto* const session = find_session(wsi);
    if (session == nullptr) return;  // ended by a drop-session
    closed = *session;
    const int tsi = library.get_tsi(wsi);
    if (!valid_tsi(tsi)) RRM_LOG(LOG_ERROR, "process_closed: invalid lws tsi %d", tsi);
    forget_session(wsi, user, tsi);
  }
  upstream.drop_session_at_rrm_workers(closed);
}

// Takes the session out of the table, with its send queue and all that waits there.
void WebsockServerWorker::forget_session(lws* wsi, void* user, int tsi) {
  set_user_data(user, nullptr);
  if (valid_tsi(tsi)) erase_send_queue(send_queues[static_cast<std::size_t>(tsi)], wsi);
  sessions.map.erase(wsi);
}

void WebsockServerWorker::jsonificator_loop() {
  while (!jsonificators_stopping) {
    if (const auto item = jsonificator_queue.pop_next()) {
      parse(*item);
    } else {
      jsonificator_queue.wait(idle_wait_us);
    }
  }
}

// The look-up is by `wsi` alone: a dead session whose `wsi` has a new owner is found out on the way back.
void WebsockServerWorker::parse(const JsonificatorItem& item) {
  if (item.text == nullptr || !is_live(item.session.wsi)) return;
  JsonReader json(item.text.get(), parse_buffer_size);
  upstream.process_incoming_message(json, item.session);
}

}  // namespace rrm
