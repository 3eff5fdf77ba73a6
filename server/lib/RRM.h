// The server core: owns the fixed workers and the map of domain workers, routes every message of an access point to
// its domain's worker, makes domain workers on demand, and carries out starts, stops and changes of the VRRP role.
//
// Its operations run on the caller's thread. Those that start, stop or change the role belong to the main thread alone;
// routing, sending and session orders may come from any thread. Lock order: a worker's mutex, then the map lock, which
// is held for look-ups and copies only, never across a push, a start, a stop or execute_locked.
//
// `config` is the owner's and outlives this object; every worker and every thread of one is gone when release() or the
// destructor returns. A subclass that overrides send_text or has_session calls release() in its own destructor.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "core/BaseSession.h"
#include "core/ReportMaintenance.h"
#include "core/SafeMap.h"
#include "core/mutex.h"

namespace rrm {

class GlobalConfig;
class JsonReader;
class Worker;
struct DomainConfig;

// Access point sessions that the server is dimensioned for: sizes its queues and its file descriptors.
inline constexpr std::uint32_t session_capacity = 20000;

class RRM {
 public:
  enum Role : std::int32_t { role_backup = 0, role_master = 1 };

  // Makes the fixed workers; no thread runs yet.
  explicit RRM(GlobalConfig* configuration);
  RRM(const RRM&) = delete;
  RRM& operator=(const RRM&) = delete;
  virtual ~RRM();

  // Sends a ready text as it stands. The first form ignores a null text.
  virtual void send_text(const char* text, const BaseSession& session);
  virtual void send_text(std::string&& text, const BaseSession& session);
  // Sends a text that must be checked first.
  void send_message(const char* text, const BaseSession& session);

  // False if the session's connection has ended; without a WebSocket side nobody can tell. From any thread.
  virtual bool has_session(const BaseSession& session) const;

  // Life, on the main thread.
  void start(bool preserve_role = false);
  void release();
  // Stops and starts everything under the same role. Domain workers come back as access points subscribe.
  void restart();
  std::int32_t role() const { return vrrp_role; }
  static const char* role_name(std::int32_t role);
  // `domains`, which may be null, is the JSON array of the domains that a new master restores.
  void update_vrrp_role(int role, const std::shared_ptr<std::string>& domains);

  // The main thread's look at whether old reports are to be deleted; another thread looks as well.
  void check_old_reports() { report_maintenance->check_old_reports(); }

  // Routing, from any thread. The message is taken over from `json`.
  void process_incoming_message(JsonReader& json, const BaseSession& session);
  void route_domain(const char* domain, const char* cmd, JsonReader& json, const BaseSession& session);

  // Orders to sessions and to all domain workers, from any thread.
  void drop_session_at_websock_worker(const BaseSession& session, bool force);
  void ping_session_at_websock_worker(const BaseSession& session);
  void drop_session_at_rrm_workers(const BaseSession& session);
  void stop_load_balancer_at_rrm_worker(const BaseSession& session);

  // Domain workers. Null if there is none of that name.
  std::shared_ptr<Worker> find_worker(const std::string& domain) const RRM_EXCLUDES(workers.mutex);
  // All of them, in ascending order of their names.
  std::vector<std::shared_ptr<Worker>> worker_snapshot() const RRM_EXCLUDES(workers.mutex);
  // Takes the worker out, drops its access points' sessions and joins it. Main thread.
  void remove_worker(const std::string& domain);
  void remove_workers(const std::list<std::string>& domains);
  // Makes a worker from a backup's record, unless one of that name lives. Main thread.
  void restore_domain(JsonReader& domain);

  // On the thread of a worker that ends by itself: takes it out of the map, lets its thread go, routes again what it
  // left in its queue and drops the sessions of access points that it may still have. Another worker of the same name
  // stays. True if the thread was let go: it then reports the very end of its life by detached_thread_ended, and
  // release waits for that.
  bool stop_domain_event(const std::string& domain, Worker& caller);
  void detached_thread_ended() RRM_EXCLUDES(workers.mutex);

  GlobalConfig& configuration() const { return *config; }
  const std::shared_ptr<Worker>& websocket() const { return websock_worker; }

 protected:
  using DomainWorkerFactory =
      std::function<std::unique_ptr<Worker>(const DomainConfig& settings, const std::string& domain,
                                            std::int32_t time_zone_offset, std::int32_t queue_capacity)>;

  // Null, after the reason was logged, if the domain is unknown or the worker cannot be made.
  std::unique_ptr<Worker> make_rrm_worker(const std::string& domain, int worker_count);
  // Drops the sessions of the worker's access points and joins it.
  void cancel_worker(const std::string& domain, Worker* worker);
  void restore_domains(const std::shared_ptr<std::string>& text);

  SafeUnorderedMap<std::string, Worker> workers;  // domain workers by domain; its mutex is the map lock
  GlobalConfig* const config;

  // Constant while any thread runs. Tests put their own in place.
  std::unique_ptr<ReportMaintenance> report_maintenance;
  std::shared_ptr<Worker> default_worker;
  std::shared_ptr<Worker> websock_worker;
  std::shared_ptr<Worker> ping_worker;
  DomainWorkerFactory create_domain_worker;

 private:
  using Enqueue = void (Worker::*)(JsonReader&&, const BaseSession&);

  void enter_vrrp_mode(bool preserve_role);
  void start_fixed_workers();
  void switch_to_master(const std::shared_ptr<std::string>& domains);
  void accept_domains(bool accept) RRM_EXCLUDES(workers.mutex);
  void await_detached_threads() RRM_EXCLUDES(workers.mutex);

  void deliver(Worker& worker, Enqueue enqueue, JsonReader&& json, const BaseSession& session);
  void deliver_to_new(const std::string& domain, JsonReader&& json, const BaseSession& session);
  void route_leftovers(Worker& worker);
  void order_all(const char* order, const BaseSession& session);
  void drop_ap_sessions(const std::string& domain, Worker& worker, std::unordered_set<std::uint32_t>& dropped);

  std::shared_ptr<Worker> make_worker(const std::string& domain) RRM_EXCLUDES(workers.mutex);
  bool launch(const std::shared_ptr<Worker>& worker, const std::function<void()>& prepare = {})
      RRM_EXCLUDES(workers.mutex);
  bool start_or_take_out(const std::shared_ptr<Worker>& worker) RRM_EXCLUDES(workers.mutex);
  bool insert(const std::shared_ptr<Worker>& worker) RRM_EXCLUDES(workers.mutex);
  std::shared_ptr<Worker> take_out(const std::string& domain, const Worker* only) RRM_REQUIRES(workers.mutex);

  std::int32_t vrrp_role = role_backup;  // main thread

  bool accepts_domains RRM_GUARDED_BY(workers.mutex) =
      true;  // not from the stop of the domain workers to the next start
  std::uint32_t detached_threads RRM_GUARDED_BY(workers.mutex) = 0;  // let go, but not at their end yet
  std::condition_variable_any detached_gone;
};

}  // namespace rrm
