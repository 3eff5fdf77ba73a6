// Watches the liveness of every session once a second: pings the quiet ones, and drops those that have said nothing for
// more than 90 seconds, or whose connection has had no room for what waits for them for more than 300, at the WebSocket
// worker and at all domain workers. A late scan skips the pings of the seconds that it missed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Worker.h"
#include "core/TimerList.h"

namespace rrm {

struct WebsockSession;

class PingWorker final : public Worker {
 public:
  // All live sessions at this moment. Called on the worker's thread.
  using SessionSource = std::function<std::vector<std::shared_ptr<WebsockSession>>()>;

  PingWorker(RRM* server, SessionSource live_sessions);

  void process_message(JsonReader&, BaseSession&) override {}
  void report_status(JsonWriter&) override {}
  void report_details(JsonWriter&) override {}

 protected:
  bool keep_running(const bool& now_running) override { return now_running; }
  void before_messages() override { timers.run_due(); }
  void disconnect() override;
  bool connect() override;

 private:
  void scan();
  void check(const WebsockSession& session, std::int64_t now_s);

  const SessionSource sessions;
  TimerList timers;  // one timer, number 0
  const std::function<void()> tick = [this] { scan(); };
};

}  // namespace rrm
