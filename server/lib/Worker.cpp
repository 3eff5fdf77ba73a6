#include "Worker.h"

#include <sys/prctl.h>

#include <cassert>
#include <exception>
#include <string_view>
#include <utility>

#include "RRM.h"
#include "core/QueueMessage.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "protocol/keys.h"

namespace rrm {
namespace {

// How long a producer waits for room: attempts, and the longest sleep between two of them.
constexpr std::uint32_t push_attempts = 65536;
constexpr std::uint32_t push_max_sleep_us = 1000;

std::uint64_t queue_capacity(std::int32_t wanted) {
  return wanted < 1 ? 2 : static_cast<std::uint64_t>(wanted);
}

}  // namespace

Worker::Worker(std::string worker_name, RRM* server, std::int32_t idle_sleep_us, std::int32_t capacity,
               bool with_event_fd)
    : name(std::move(worker_name)),
      owner(server),
      sleep_us(idle_sleep_us),
      queue(queue_capacity(capacity), with_event_fd) {
  assert(owner != nullptr);
}

Worker::~Worker() = default;

bool Worker::process_internal_ipc_msg(const JsonReader& json) {
  if (std::string_view(json.get_string(protocol::key::service)) != service_name::internal_ipc) return false;
  if (std::string_view(json.get_string(protocol::key::cmd)) == "stop") {
    RRM_LOG(LOG_TRACE, "Aborting %s", name.c_str());
    request_stop();
  }
  return true;
}

void Worker::request_stop() {
  stop_requested = true;
  running = false;
}

void Worker::enqueue_message(JsonReader&& json, const BaseSession& session) {
  enqueue(queue.normal, "Worker '%s' queue overflow: message dropped from session %d", std::move(json), session);
}

void Worker::enqueue_message_force(JsonReader&& json, const BaseSession& session) {
  enqueue(queue.force, "Worker '%s' force queue overflow: message dropped from session %d", std::move(json), session);
}

void Worker::enqueue(Ring<std::shared_ptr<QueueMessage>>& ring, const char* overflow, JsonReader&& json,
                     const BaseSession& session) {
  auto message = std::make_shared<QueueMessage>(std::move(json), session);
  if (queue.push(ring, std::move(message), push_attempts, push_max_sleep_us)) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  RRM_LOG(LOG_ERROR, overflow, name.c_str(), session.id);
#pragma GCC diagnostic pop
  emit_event_text(25, name);
}

bool Worker::process_queues() {
  const std::optional<std::shared_ptr<QueueMessage>> message = queue.pop_next();
  if (!message) return true;
  process_message((*message)->json, (*message)->session);
  return false;
}

void Worker::execute_locked(const std::function<void()>& action) {
  MutexLock lock(mutex);
  action();
}

void Worker::start() {
  MutexLock lock(thread_mutex);
  if (started) return;
  running = true;
  connected = false;
  stop_requested = false;
  notify_owner = true;
  closed_ = 0;
  thread = std::thread([self = shared_from_this()]() mutable {
    RRM* const server = self->owner;
    const bool detached = self->run();
    self.reset();
    if (detached) server->detached_thread_ended();
  });
  started = true;
}

void Worker::stop() {
  notify_owner = false;
  auto order = std::make_shared<QueueMessage>(JsonReader(internal_message::stop), no_session);
  queue.clear();
  queue.event_fd.drain();
  // Without a limit of attempts it always succeeds.
  [[maybe_unused]] const bool pushed = queue.push_wait(queue.normal, std::move(order), 0, push_max_sleep_us);
  request_stop();
  join();
  queue.clear();
}

void Worker::join() {
  std::thread ended;
  {
    MutexLock lock(thread_mutex);
    ended.swap(thread);
  }
  if (ended.joinable()) ended.join();
  MutexLock lock(thread_mutex);
  started = false;
}

void Worker::detach() {
  MutexLock lock(thread_mutex);
  if (thread.joinable()) thread.detach();
  started = false;
}

// The whole life of the worker's thread. True if the owner let the thread go.
bool Worker::run() {
  ::prctl(PR_SET_NAME, title);
  try {
    serve();
    disconnect();
    connected = false;
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Unhandled exception '%s' at worker %s", error.what(), title);
    emit_event_text(5, title);
    request_stop();
  } catch (...) {
    RRM_LOG(LOG_ERROR, "Unhandled exception at worker %s", title);
    emit_event_text(5, title);
    request_stop();
  }
  return notify_owner && owner->stop_domain_event(name, *this);
}

void Worker::serve() {
  while (!stop_requested) {
    connected = connect();
    while (connected && keep_running(running)) {
      const bool idle = pass();
      after_messages();
      if (idle && sleep_us >= 1) queue.wait(sleep_us);
    }
  }
}

bool Worker::pass() {
  MutexLock lock(mutex);
  before_messages();
  // Whoever subscribes to a domain that its tick has just ended belongs to the next one.
  return !stop_requested && process_queues();
}

}  // namespace rrm
