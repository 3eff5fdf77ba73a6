#include "WebsockServerWorker.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

#include "Config.h"
#include "RRM.h"
#include "core/clock.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm {
namespace {

constexpr std::uint32_t least_queue_capacity = 2048;
constexpr std::size_t most_jsonificators = 100;
constexpr int service_timeout_ms = 500;
constexpr int all_log_levels = 1023;
constexpr std::int64_t report_period = 60;  // seconds between two reports of attempts that fail

constexpr const char* protocol_name = "websock-rrm";
constexpr const char* mountpoint = "/apb/rrm";

WebsockServerWorker::Upstream dispatcher_of(RRM* server) {
  return {
      [server](JsonReader& json, const BaseSession& session) { server->process_incoming_message(json, session); },
      [server](const BaseSession& session) { server->drop_session_at_rrm_workers(session); },
      [server](const BaseSession& session) { server->stop_load_balancer_at_rrm_worker(session); },
  };
}

// Null for a reason that passes without a word: the writable events, which come by the thousand, and whatever the
// server takes no part in.
const char* name_of(int reason) {
  constexpr int fds_limit = 1001;  // of other versions of the library
  switch (reason) {
    case LWS_CALLBACK_ESTABLISHED:
      return "LWS_CALLBACK_ESTABLISHED";
    case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
      return "LWS_CALLBACK_CLIENT_CONNECTION_ERROR";
    case LWS_CALLBACK_CLIENT_ESTABLISHED:
      return "LWS_CALLBACK_CLIENT_ESTABLISHED";
    case LWS_CALLBACK_CLOSED:
      return "LWS_CALLBACK_CLOSED";
    case LWS_CALLBACK_CLOSED_HTTP:
      return "LWS_CALLBACK_CLOSED_HTTP";
    case LWS_CALLBACK_RECEIVE:
      return "LWS_CALLBACK_RECEIVE";
    case LWS_CALLBACK_RECEIVE_PONG:
      return "LWS_CALLBACK_RECEIVE_PONG";
    case LWS_CALLBACK_CLIENT_RECEIVE:
      return "LWS_CALLBACK_CLIENT_RECEIVE";
    case LWS_CALLBACK_CLIENT_RECEIVE_PONG:
      return "LWS_CALLBACK_CLIENT_RECEIVE_PONG";
    case LWS_CALLBACK_CLIENT_WRITEABLE:
      return "LWS_CALLBACK_CLIENT_WRITEABLE";
    case LWS_CALLBACK_SERVER_NEW_CLIENT_INSTANTIATED:
      return "LWS_CALLBACK_SERVER_NEW_CLIENT_INSTANTIATED";
    case LWS_CALLBACK_PROTOCOL_INIT:
      return "LWS_CALLBACK_PROTOCOL_INIT";
    case LWS_CALLBACK_PROTOCOL_DESTROY:
      return "LWS_CALLBACK_PROTOCOL_DESTROY";
    case LWS_CALLBACK_WSI_CREATE:
      return "LWS_CALLBACK_WSI_CREATE";
    case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
      return "LWS_CALLBACK_EVENT_WAIT_CANCELLED";
    case fds_limit:
      return "LWS_CALLBACK_FDS_LIMIT";
    default:
      return nullptr;
  }
}

// The library closes the connection of a callback that fails. These three have none: there it would lose its own
// wake-up instead, and crash at the next one.
bool concerns_connection(lws_callback_reasons reason) {
  return reason != LWS_CALLBACK_PROTOCOL_INIT && reason != LWS_CALLBACK_PROTOCOL_DESTROY &&
         reason != LWS_CALLBACK_EVENT_WAIT_CANCELLED;
}

}  // namespace

std::function<int(lws*, lws_callback_reasons, void*, void*, std::size_t)> WebsockServerWorker::lws_callback_target;

WebsockServerWorker::WebsockServerWorker(RRM* server, GlobalConfig* settings)
    : WebsockServerWorker(server, settings, dispatcher_of(server), libwebsockets()) {}

WebsockServerWorker::WebsockServerWorker(RRM* server, GlobalConfig* settings, Upstream dispatcher, LwsApi& lws_api)
    : Worker("websock-server-worker", server, 10000, least_queue_capacity, false),
      config(settings),
      upstream(std::move(dispatcher)),
      library(lws_api),
      jsonificator_queue(std::max(least_queue_capacity, session_capacity), true) {
  set_notify([] {});
  lws_callback_target = [this](lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) {
    return worker_lws_callback(wsi, reason, user, in, len);
  };
}

WebsockServerWorker::~WebsockServerWorker() {
  WebsockServerWorker::disconnect();  // nothing, unless an exception ended the worker's thread
  lws_callback_target = nullptr;
}

bool WebsockServerWorker::connect() {
  if (has_context()) disconnect();
  fill_context_info();
  const DescriptorPlan descriptors = plan_descriptors(descriptor_limit(), session_capacity);
  const bool reported = attempt_is_reported();
  if (reported) log_attempt(descriptors);
  library.set_log_level(reported ? all_log_levels : 0, logger_callback);
  lws_context* const created = create_context(descriptors);
  if (created == nullptr) {
    if (reported) RRM_LOG(LOG_ERROR, "Can't listen on port %d, trying again", context_info.port);
    return false;
  }
  quiet_until = 0;
  library.set_log_level(all_log_levels, logger_callback);
  return start_threads(created);
}

void WebsockServerWorker::fill_context_info() {
  mount = {};
  mount.mountpoint = mountpoint;
  mount.mountpoint_len = static_cast<unsigned char>(std::strlen(mountpoint));
  mount.origin = "/tmp";
  mount.def = "test.html";
  mount.protocol = protocol_name;
  mount.origin_protocol = LWSMPRO_CALLBACK;

  protocols = {};
  protocols[0].name = "http";
  protocols[0].callback = lws_callback_http_dummy;
  protocols[1].name = protocol_name;
  protocols[1].callback = lws_callback;
  protocols[1].per_session_data_size = sizeof(void*);  // the session's address
  protocols[1].rx_buffer_size = 65536;

  context_info = {};
  context_info.port = config->global().listen_port;
  context_info.protocols = protocols.data();
  context_info.mounts = &mount;
  context_info.gid = -1;
  context_info.uid = -1;
  context_info.options = LWS_SERVER_OPTION_DISABLE_IPV6 | LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND;
  context_info.count_threads = 1;
  context_info.fd_limit_per_thread = session_capacity + 3;
}

bool WebsockServerWorker::attempt_is_reported() {
  const std::int64_t now = monotonic_seconds();
  if (now < quiet_until && context_info.port == quiet_port) return false;
  quiet_until = now + report_period;
  quiet_port = context_info.port;
  return true;
}

void WebsockServerWorker::log_attempt(const DescriptorPlan& descriptors) const {
  RRM_LOG(LOG_TRACE, "WebSocket server: threads %u, session capacity %u, descriptor limit %u",
          context_info.count_threads, session_capacity, context_info.fd_limit_per_thread);
  if (descriptors.sessions < session_capacity) {
    RRM_LOG(LOG_WARNING, "The descriptor limit leaves room for %llu of %u WebSocket sessions",
            static_cast<unsigned long long>(descriptors.sessions), session_capacity);
  }
}

lws_context* WebsockServerWorker::create_context(const DescriptorPlan& descriptors) {
  const DescriptorStage stage(descriptors);
  lws_context* const created = library.create_context(context_info);
  MutexLock lock(context_mutex);
  return context = created;
}

void WebsockServerWorker::destroy_context() {
  lws_context* ended = nullptr;
  {
    MutexLock lock(context_mutex);
    std::swap(ended, context);
  }
  if (ended != nullptr) library.context_destroy(ended);
}

bool WebsockServerWorker::has_context() const {
  MutexLock lock(context_mutex);
  return context != nullptr;
}

bool WebsockServerWorker::start_threads(lws_context* served) {
  const int count = library.get_count_threads(served);
  RRM_LOG(LOG_TRACE, "Starting %d lws threads", count);
  try {
    for (int tsi = 0; tsi < count; ++tsi) {
      service_threads.emplace_back(&WebsockServerWorker::service_loop, this, served, tsi);
    }
    while (jsonificator_threads.size() < std::min(service_threads.size(), most_jsonificators)) {
      jsonificator_threads.emplace_back(&WebsockServerWorker::jsonificator_loop, this);
    }
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Can't start the WebSocket threads: %s", error.what());
    disconnect();
    return false;
  }
  return true;
}

void WebsockServerWorker::disconnect() {
  stop_threads();
  for (SendQueues& queues : send_queues) {
    MutexLock lock(queues.mutex);
    queues.map.clear();
    queues.filled.clear();
  }
  destroy_context();
  jsonificators_stopping = false;
  set_stopping(false);
}

// The jsonificators work on until no service thread is left that might wait for room in their queue.
void WebsockServerWorker::stop_threads() {
  set_stopping(true);
  for (std::thread& ended : service_threads) ended.join();
  service_threads.clear();
  jsonificators_stopping = true;
  for (std::thread& ended : jsonificator_threads) ended.join();
  jsonificator_threads.clear();
}

// The library sleeps until it is woken, whatever time-out it was given.
void WebsockServerWorker::set_stopping(bool now_stopping) {
  stopping = now_stopping;
  wake_service();
}

void WebsockServerWorker::wake_service() {
  MutexLock lock(context_mutex);
  if (context != nullptr) library.cancel_service(context);
}

void WebsockServerWorker::service_loop(lws_context* served, int tsi) {
  int result = 0;
  while (!stopping && result >= 0) result = library.service_tsi(served, service_timeout_ms, tsi);
  if (result < 0) RRM_LOG(LOG_ERROR, "lws thread %d ended: %d", tsi, result);
}

int WebsockServerWorker::lws_callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) {
  return lws_callback_target ? lws_callback_target(wsi, reason, user, in, len) : -1;
}

// With every level on, the library says some 35 lines for each message: they share one buffer a thread, and as a rule
// the only newline is at the end.
void WebsockServerWorker::logger_callback(int level, const char* line) {
  static thread_local std::string text;
  text = line;
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at)) text[at] = ' ';
  RRM_LOG(LOG_TRACE, "libwebsocket-debug> %d: %.*s", level, static_cast<int>(text.size()), text.c_str());
}

int WebsockServerWorker::worker_lws_callback(lws* wsi, lws_callback_reasons reason, void* user, void* in,
                                             std::size_t len) {
  try {
    if (const char* reason_name = name_of(reason)) RRM_LOG(LOG_TRACE, "%s", reason_name);
    return dispatch(wsi, reason, user, in, len);
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Exception at processing message on websock-server-worker: %s", error.what());
    emit_event_plain(10);
    return concerns_connection(reason) ? -1 : 0;
  }
}

int WebsockServerWorker::dispatch(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) {
  switch (static_cast<int>(reason)) {
    case LWS_CALLBACK_ESTABLISHED:
      process_established(wsi, user);
      return 0;
    case LWS_CALLBACK_CLOSED:
    case LWS_CALLBACK_CLOSED_HTTP:
      process_closed(wsi, user);
      return 0;
    case LWS_CALLBACK_RECEIVE:
      process_received(wsi, static_cast<const char*>(in), len);
      return 0;
    case LWS_CALLBACK_RECEIVE_PONG:
      process_pong(wsi);
      return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      return process_server_writeable(wsi, user);
    case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
      process_wait_cancelled(wsi);
      return 0;
    default:
      return 0;
  }
}

WebsockSession* WebsockServerWorker::find_session(lws* wsi) const {
  const auto found = sessions.map.find(wsi);
  return found != sessions.map.end() ? found->second.get() : nullptr;
}

bool WebsockServerWorker::is_live(lws* wsi) const {
  MutexLock lock(sessions.mutex);
  return sessions.map.contains(wsi);
}

bool WebsockServerWorker::has_session(const BaseSession& session) const {
  MutexLock lock(sessions.mutex);
  const WebsockSession* const live = find_session(session.wsi);
  return live != nullptr && live->identity() == session.identity();
}

bool WebsockServerWorker::valid_tsi(int tsi) {
  return tsi >= 0 && static_cast<std::size_t>(tsi) < max_service_threads;
}

std::vector<std::shared_ptr<WebsockSession>> WebsockServerWorker::sessions_snapshot() const {
  std::vector<std::shared_ptr<WebsockSession>> snapshot;
  MutexLock lock(sessions.mutex);
  snapshot.reserve(sessions.map.size());
  for (const auto& [wsi, session] : sessions.map) snapshot.push_back(session);
  return snapshot;
}

void WebsockServerWorker::report_status(JsonWriter& writer) {
  JsonWriter list = JsonWriter::array(writer, "websock-sessions");
  for (const auto& session : sessions_snapshot()) {
    JsonWriter entry = JsonWriter::object(list, nullptr);
    entry.add_int("id", static_cast<std::int32_t>(session->id));
    entry.add_string("peer", session->peer);
  }
}

}  // namespace rrm
