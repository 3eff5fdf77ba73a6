// A WebSocket worker between a recorder in place of the dispatcher and either a played library or the real one.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "WebsockServerWorker.h"
#include "core/mutex.h"
#include "fake_lws.h"

namespace rrm::testing {

// What the worker told the dispatcher, a line each: "message 1 {…}", "dropped 1", "stop load balancer 1", with the
// session's id. A message that did not parse is "message 1 null".
class Dispatcher {
 public:
  WebsockServerWorker::Upstream upstream();

  // Called for every message after it was noted, on the jsonificator's thread. Set before the worker connects.
  std::function<void(const std::string& text, const BaseSession& session)> on_message;

  // The lines since the last call.
  std::vector<std::string> take() RRM_EXCLUDES(mutex_);
  // `take` once there are at least so many lines, or when nothing more comes in time.
  std::vector<std::string> wait_for(std::size_t count) RRM_EXCLUDES(mutex_);
  // Until released, a message holds up the jsonificator's thread once it is noted.
  void hold() RRM_EXCLUDES(mutex_);
  void release() RRM_EXCLUDES(mutex_);

 private:
  void message(JsonReader& json, const BaseSession& session) RRM_EXCLUDES(mutex_);
  void note(const std::string& line) RRM_EXCLUDES(mutex_);

  Mutex mutex_;
  std::condition_variable_any changed_;
  std::vector<std::string> lines_ RRM_GUARDED_BY(mutex_);
  bool held_ RRM_GUARDED_BY(mutex_) = false;
};

// With the played library. Without threads unless `library.threads` says so; the test's destructor disconnects.
struct FakeServer {
  FakeServer();
  ~FakeServer() { dispatcher.release(); }

  // The session of a handle, as the worker gave it out; all zero if there is none.
  BaseSession session(lws* wsi) const;
  void send(const std::string& text, const BaseSession& to) { worker->enqueue_serialized(std::string(text), to); }
  void order(const char* json, const BaseSession& to, bool force = false);

  GlobalConfig config;
  RRM rrm;  // owns the worker in name only; nothing of it runs
  FakeLws library;
  Dispatcher dispatcher;
  std::shared_ptr<WebsockServerWorker> worker;
};

// With the real library, on a free port of the loopback.
struct RealServer {
  RealServer();
  ~RealServer();

  // Every message goes back to its sender.
  void echo();
  // The only session; fails the test if there is not exactly one.
  BaseSession only_session() const;

  const int port;
  GlobalConfig config;
  RRM rrm;
  Dispatcher dispatcher;
  std::shared_ptr<WebsockServerWorker> worker;
};

}  // namespace rrm::testing
