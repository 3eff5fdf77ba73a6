// The WebSocket sessions of a simulated site: one for each AP, all on one thread and one libwebsockets context. It
// connects, reconnects with a back-off, and carries texts between the sessions and the simulation.
//
// Sub-protocol "websock-rrm", text messages, no TLS. To a server on this machine each AP comes from an address of its
// own, as source_addresses tells. The simulation must outlive the fleet.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/simulation.h"

struct lws_context;

namespace sim {

struct ServerAddress {
  std::string host;
  int port = 0;
  std::string path;

  // Reads "ws://host:port/path"; throws std::invalid_argument for anything else.
  static ServerAddress parse(const std::string& url);
};

class Fleet {
 public:
  // Throws std::runtime_error when the library cannot be set up.
  Fleet(Simulation& simulation, ServerAddress server, Log log);
  ~Fleet();
  Fleet(const Fleet&) = delete;
  Fleet& operator=(const Fleet&) = delete;

  // Runs until `done` says so; it is asked several times a second. Then closes the sessions.
  void run(const std::function<bool()>& done);

 private:
  friend struct FleetAccess;  // the library's callbacks
  struct Session;

  Millis now() const;
  void beat();
  void connect(Session& session);
  void went_up(Session& session);
  void went_down(Session& session, const std::string& why);
  void tell(const Session& session, const std::string& what) const;
  void collect_outgoing();
  void schedule_beat();
  void close_all();
  bool any_up() const;

  Simulation& simulation_;
  const ServerAddress server_;
  const std::vector<std::string> sources_;  // by AP; empty if they need none
  const Log log_;
  const std::int64_t started_;
  std::vector<std::unique_ptr<Session>> sessions_;
  struct Timer;
  std::unique_ptr<Timer> timer_;
  lws_context* context_ = nullptr;
};

}  // namespace sim
