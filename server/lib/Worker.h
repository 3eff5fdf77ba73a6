// The base of everything that happens in the server: a thread with an inbound queue, a name and a mutex. Each pass of
// the thread holds the mutex for the due timers and at most one message, force ring first, and rests up to `sleep_us`
// when there was none; a message in progress is never interrupted. Other threads only push messages, or enter through
// execute_locked.
//
// RRM owns every worker by std::shared_ptr and outlives it. The thread holds a reference to its worker too, so the
// worker lives at least as long as its thread. start() and stop() are the owner's; a stopped worker may be started
// again. A worker ends by stop(), which joins, or by itself, which it tells the owner.
//
// Who overrides what: RrmWorker nearly all of the loop's operations, DefaultWorker and PingWorker what they need of it,
// WebsockServerWorker connect, disconnect and the two enqueue operations, which lead into its sessions' queues.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/BaseSession.h"
#include "core/SafeQueue.h"
#include "core/mutex.h"

namespace rrm {

class JsonReader;
class JsonWriter;
class RRM;
struct QueueMessage;

class alignas(64) Worker : public std::enable_shared_from_this<Worker> {
 public:
  // `server` is never null. A capacity below 1 means 2; with an eventfd a push wakes the worker at once, without one
  // it is seen at the end of the rest.
  Worker(std::string worker_name, RRM* server, std::int32_t idle_sleep_us, std::int32_t capacity, bool with_event_fd);
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // Handles one message. Every implementation begins with process_internal_ipc_msg and returns at once on true.
  // Overridden by all.
  virtual void process_message(JsonReader& json, BaseSession& session) RRM_REQUIRES(mutex) = 0;

 protected:
  // Takes the orders to the worker itself: true if `json` is one, whatever it says.
  virtual bool process_internal_ipc_msg(const JsonReader& json);
  // Asked before every pass; false ends the inner loop. RrmWorker and PingWorker override it, to the same effect.
  virtual bool keep_running(const bool& now_running) { return now_running; }
  // First in a pass, with the mutex held. RrmWorker and PingWorker run their timers here.
  virtual void before_messages() RRM_REQUIRES(mutex) {}
  // Last in a pass, without the mutex. RrmWorker sends what the pass has buffered.
  virtual void after_messages() RRM_EXCLUDES(mutex) {}

 public:
  // From any thread. The message is taken over from `json`. A full ring makes the caller wait, over a minute at worst;
  // then the message is lost, logged and reported as event 25. WebsockServerWorker overrides both.
  virtual void enqueue_message(JsonReader&& json, const BaseSession& session);
  virtual void enqueue_message_force(JsonReader&& json, const BaseSession& session);

  // Throws away what is queued, ends the thread and joins it; never fails. Leaves both rings empty, so that nothing
  // stale meets the next start. Requires: not called on the worker's own thread.
  virtual void stop() RRM_EXCLUDES(mutex, thread_mutex);

  virtual ~Worker();

 protected:
  // Handles at most one message, so that timers and a stop are looked at between any two. True if there was none.
  virtual bool process_queues() RRM_REQUIRES(mutex);
  // Last on the worker's thread, unless an exception ended it. RrmWorker, PingWorker and WebsockServerWorker override.
  virtual void disconnect() { connected = false; }
  // First on the worker's thread. False is retried at once; the pace is connect's own. The same three override it.
  virtual bool connect() {
    connected = true;
    return true;
  }

 public:
  // The worker's state as JSON, for the command interface. Requires: called in execute_locked.
  virtual void report_status(JsonWriter& writer) = 0;
  virtual void report_details(JsonWriter& writer) = 0;

  // Starts the thread; nothing if it is started already. Leaves what is queued alone. Throws std::system_error if the
  // system has no thread left. Requires: a std::shared_ptr owns the worker.
  void start() RRM_EXCLUDES(thread_mutex);

  // Runs `action` between two passes. Requires: the caller does not hold the mutex, as the worker does in a pass.
  void execute_locked(const std::function<void()>& action) RRM_EXCLUDES(mutex);

  // Has `notify` called with every push. Requires: no other thread knows the worker yet.
  void set_notify(std::function<void()> notify) { queue.notify.swap(notify); }

  const std::string name;  // a domain's name for a domain worker

 protected:
  // Ends the loop after the message in progress.
  void request_stop();

  // Constant after construction.
  static constexpr const char* title = "Worker";  // of the thread, and in the messages of its exceptions
  RRM* const owner;
  const std::int32_t sleep_us;

  _SafeQueue<std::shared_ptr<QueueMessage>> queue;

  Mutex mutex;  // held while the timers and one message run

  // Written by any thread, read on each pass.
  std::atomic<bool> connected{false};  // the inner loop runs while this is true
  std::atomic<bool> running{true};
  std::atomic<bool> stop_requested{false};
  std::atomic<bool> notify_owner{true};  // the thread tells the owner of its end

 private:
  friend class RRM;

  void enqueue(Ring<std::shared_ptr<QueueMessage>>& ring, const char* overflow, JsonReader&& json,
               const BaseSession& session);
  bool run();
  void serve();
  bool pass() RRM_EXCLUDES(mutex);
  void join() RRM_EXCLUDES(thread_mutex);

  // For the owner, when the worker has ended by itself: detach lets the thread go, close marks the queue as served by
  // nobody, and then the owner takes out what is still in it. A producer that finds the mark after its push sees to the
  // leftovers itself: either it or the owner, and never both, gets each message.
  void detach() RRM_EXCLUDES(thread_mutex);
  void close() { closed_.fetch_or(1, std::memory_order_acq_rel); }
  bool closed() { return closed_.fetch_or(0, std::memory_order_acq_rel) != 0; }

  std::atomic<std::uint32_t> closed_{0};

  Mutex thread_mutex;  // a leaf: start, detach and join hand the thread over under it
  bool started RRM_GUARDED_BY(thread_mutex) = false;
  std::thread thread RRM_GUARDED_BY(thread_mutex);
};

}  // namespace rrm
