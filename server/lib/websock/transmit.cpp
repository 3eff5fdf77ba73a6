// The way out: from any thread into a session's send queue, and from there, on the service thread, to the socket.
#include <cstring>
#include <utility>

#include "WebsockServerWorker.h"
#include "core/Backoff.h"
#include "core/QueueMessage.h"
#include "core/clock.h"
#include "core/log.h"
#include "websock/send.h"

namespace rrm {
namespace {

constexpr std::uint64_t send_capacity = 16;
constexpr std::uint32_t push_attempts = 256;
constexpr std::uint32_t push_max_sleep_us = 1000;
constexpr int pong_timeout_s = 40;
constexpr int drop_timeout_s = 5;  // how long a forced drop waits for a connection that takes nothing more

constexpr const char* drop_session = "drop-session";
constexpr const char* ping_session = "ping-session";

bool is_drop(const QueueMessage& message) {
  return std::strcmp(message.json.get_string("service"), service_name::rrm_internal) == 0 &&
         std::strcmp(message.json.get_string("cmd"), drop_session) == 0;
}

}  // namespace

void WebsockServerWorker::enqueue_message(JsonReader&& json, const BaseSession& session) {
  send_to_session(std::make_shared<QueueMessage>(std::move(json), session), &SendQueue::normal, "enqueue_message");
}

void WebsockServerWorker::enqueue_message_force(JsonReader&& json, const BaseSession& session) {
  send_to_session(std::make_shared<QueueMessage>(std::move(json), session), &SendQueue::force, "enqueue_message_force");
}

void WebsockServerWorker::enqueue_serialized(std::string&& text, const BaseSession& session) {
  send_to_session(std::make_shared<QueueMessage>(std::move(text), session), &SendQueue::normal, "enqueue_serialized");
}

void WebsockServerWorker::send_to_session(Message&& message, SendRing ring, const char* operation) {
  const BaseSession session = message->session;
  if (session.wsi == nullptr) return;
  if (!valid_tsi(session.tsi)) {
    RRM_LOG(LOG_ERROR, "%s: invalid lws tsi %d", operation, session.tsi);
    return;
  }
  BaseSession live;
  HandOver result = hand_over(message, ring, live);
  // Room is waited for with no lock held: it is the service thread that makes it.
  Backoff backoff(push_max_sleep_us);
  for (std::uint32_t attempt = 1; result == HandOver::full && attempt <= push_attempts; ++attempt) {
    backoff.pause(attempt);
    result = hand_over(message, ring, live);
  }
  switch (result) {
    case HandOver::session_gone:
      RRM_LOG(LOG_TRACE, "%s: no live websocket session for wsi (dropped id=%u)", operation, session.id);
      return;
    case HandOver::stale:
      RRM_LOG(LOG_TRACE, "%s: BaseSession stale or mismatched (msg id=%u tsi=%d vs live id=%u tsi=%d)", operation,
              session.id, session.tsi, live.id, live.tsi);
      return;
    case HandOver::full:
      note_stall(session);
      [[fallthrough]];
    case HandOver::still_full:
      RRM_LOG(LOG_ERROR, "per-wsi %squeue overflow: outgoing message dropped for session %d",
              ring == &SendQueue::force ? "force " : "", static_cast<int>(session.id));
      emit_event_plain(26);
      // By taking nothing a peer must not keep its session.
      if (ring == &SendQueue::normal && is_drop(*message)) {
        return send_to_session(std::move(message), &SendQueue::force, operation);
      }
      break;
    case HandOver::before_first_event:
    case HandOver::queued:
      break;
  }
  wake_service();
}

// `live` gets the identity of the session that owns the message's `wsi` now.
WebsockServerWorker::HandOver WebsockServerWorker::hand_over(Message& message, SendRing ring, BaseSession& live) {
  const BaseSession session = message->session;
  MutexLock lock(sessions.mutex);
  auto* const found = find_session(session.wsi);
  if (found == nullptr) return HandOver::session_gone;
  live = *found;
  if (session.identity() != live.identity()) return HandOver::stale;
  SendQueues& queues = send_queues[static_cast<std::size_t>(session.tsi)];
  const bool forced_drop = ring == &SendQueue::force && is_drop(*message);
  const HandOver result = forced_drop ? force_drop(*found, queues, message) : push_to(queues, message, ring);
  if (result == HandOver::queued && found->waits_since == WebsockSession::nothing_waits) {
    found->waits_since = monotonic_seconds();
  }
  return result == HandOver::full && found->stalled ? HandOver::still_full : result;
}

// One is enough: while the connection takes nothing, the ping worker repeats the order every second, and would fill the
// ring and begin the time-out of the drop anew.
WebsockServerWorker::HandOver WebsockServerWorker::force_drop(WebsockSession& session, SendQueues& queues,
                                                              Message& message) {
  if (session.drop_ordered) return HandOver::queued;
  const HandOver result = push_to(queues, message, &SendQueue::force);
  if (result == HandOver::queued) session.drop_ordered = true;
  return result;
}

// For a peer that takes nothing nobody waits again, or its many answers would hold up its domain.
void WebsockServerWorker::note_stall(const BaseSession& session) {
  MutexLock lock(sessions.mutex);
  auto* const found = find_session(session.wsi);
  if (found != nullptr && found->identity() == session.identity()) found->stalled = true;
}

WebsockServerWorker::HandOver WebsockServerWorker::push_to(SendQueues& queues, Message& message, SendRing ring) {
  lws* const wsi = message->session.wsi;
  MutexLock lock(queues.mutex);
  SendQueue* send_queue = find_send_queue(queues, wsi);
  if (send_queue == nullptr) return HandOver::before_first_event;
  const bool is_news = send_queue->empty() || ring == &SendQueue::force;
  if (!send_queue->try_push(send_queue->*ring, std::move(message))) return HandOver::full;
  if (is_news) queues.filled.push_back(wsi);
  return HandOver::queued;
}

// Null if the connection had no queue until now; it then gets one.
WebsockServerWorker::SendQueue* WebsockServerWorker::find_send_queue(SendQueues& queues, lws* wsi) {
  const auto found = queues.map.find(wsi);
  if (found != queues.map.end()) return found->second.get();
  queues.map.emplace(wsi, std::make_shared<SendQueue>(send_capacity));
  return nullptr;
}

void WebsockServerWorker::erase_send_queue(SendQueues& queues, lws* wsi) {
  MutexLock lock(queues.mutex);
  queues.map.erase(wsi);
}

// Connections with something to send ask for their writable event. The rest have asked for it already, since a queue
// that is not empty always has: here, or after the message before. A connection that takes nothing more has no such
// event: where it is to be dropped, the library ends it after a while.
void WebsockServerWorker::process_wait_cancelled(lws* wsi) {
  if (wsi == nullptr) return;
  const int tsi = library.get_tsi(wsi);
  if (!valid_tsi(tsi)) return;
  SendQueues& queues = send_queues[static_cast<std::size_t>(tsi)];
  std::vector<lws*> gone;
  const std::vector<lws*> all_filled = take_filled(queues);
  {
    MutexLock lock(sessions.mutex);
    for (lws* const filled : all_filled) {
      const WebsockSession* const session = find_session(filled);
      if (session == nullptr) {
        gone.push_back(filled);
        continue;
      }
      library.callback_on_writable(filled);
      if (session->drop_ordered) library.set_timeout(filled, PENDING_TIMEOUT_CLOSE_SEND, drop_timeout_s);
    }
  }
  for (lws* const wsi_gone : gone) erase_send_queue(queues, wsi_gone);
}

std::vector<lws*> WebsockServerWorker::take_filled(SendQueues& queues) {
  std::vector<lws*> filled;
  MutexLock lock(queues.mutex);
  for (lws* const wsi : queues.filled) {
    const auto found = queues.map.find(wsi);
    if (found != queues.map.end() && !found->second->empty()) filled.push_back(wsi);
  }
  queues.filled.clear();
  return filled;
}

int WebsockServerWorker::process_server_writeable(lws* wsi, void* user) {
  MutexLock lock(sessions.mutex);
  auto* const session = find_session(wsi);
  if (session == nullptr) return 0;
  session->stalled = false;
  const int tsi = library.get_tsi(wsi);
  switch (write_next(*session, tsi)) {
    case Written::all:
      session->waits_since = WebsockSession::nothing_waits;
      return 0;
    case Written::more_waits:
      session->waits_since = monotonic_seconds();
      library.callback_on_writable(wsi);
      return 0;
    case Written::close:
      // The closed callback will find no session, so the domain workers hear of this only from whoever ordered it.
      forget_session(wsi, user, tsi);
      return 1;
  }
  return 0;
}

// One message, force first.
WebsockServerWorker::Written WebsockServerWorker::write_next(const WebsockSession& session, int tsi) {
  if (!valid_tsi(tsi)) {
    RRM_LOG(LOG_ERROR, "process_server_writeable: invalid lws tsi %d", tsi);
    return Written::all;
  }
  SendQueues& queues = send_queues[static_cast<std::size_t>(tsi)];
  MutexLock lock(queues.mutex);
  SendQueue* send_queue = find_send_queue(queues, session.wsi);
  const std::optional<Message> message = send_queue != nullptr ? send_queue->pop_next() : std::nullopt;
  if (!message) return Written::all;
  if (send_one(**message, session) == Sent::close_ordered) return Written::close;
  return send_queue->empty() ? Written::all : Written::more_waits;
}

WebsockServerWorker::Sent WebsockServerWorker::send_one(const QueueMessage& message, const WebsockSession& session) {
  if (message.session.id != session.id) {
    RRM_LOG(LOG_TRACE,
            "process_server_writeable: session ID mismatch (msg_id=%u, current_id=%u); skipping stale message",
            message.session.id, session.id);
  } else if (!message.serialized.empty()) {
    send_text(library, session.wsi, message.serialized, "serialized payload", session.id);
  } else if (message.json.empty()) {
    RRM_LOG(LOG_ERROR, "ws_send json null");
    emit_event_plain(7);
  } else {
    return send_json(message, session);
  }
  return Sent::done;
}

WebsockServerWorker::Sent WebsockServerWorker::send_json(const QueueMessage& message, const WebsockSession& session) {
  if (process_internal_ipc_msg(message.json)) return Sent::done;
  if (std::strcmp(message.json.get_string("service"), service_name::rrm_internal) == 0) {
    return obey(message.json.get_string("cmd"), session);
  }
  send_text(library, session.wsi, message.text(), "json serialized_view", session.id);
  return Sent::done;
}

WebsockServerWorker::Sent WebsockServerWorker::obey(const char* cmd, const WebsockSession& session) {
  if (std::strcmp(cmd, drop_session) == 0) {
    RRM_LOG(LOG_TRACE, "cmd:drop-session %d", static_cast<int>(session.id));
    library.close_reason(session.wsi, LWS_CLOSE_STATUS_NORMAL, "done");
    return Sent::close_ordered;
  }
  if (std::strcmp(cmd, ping_session) == 0) {
    static constexpr std::string_view payload = "lws_ping";
    lws_send(library, session.wsi, payload.data(), static_cast<int>(payload.size()), LWS_WRITE_PING);
    library.set_timeout(session.wsi, PENDING_TIMEOUT_WS_PONG_CHECK_GET_PONG, pong_timeout_s);
  }
  return Sent::done;
}

}  // namespace rrm
