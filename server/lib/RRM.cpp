#include "RRM.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <string_view>
#include <utility>

#include "Config.h"
#include "RrmWorker.h"
#include "WebsockServerWorker.h"
#include "Worker.h"
#include "core/DefaultWorker.h"
#include "core/PingWorker.h"
#include "core/QueueMessage.h"
#include "core/log.h"
#include "core/version.h"
#include "json/JsonReader.h"
#include "protocol/keys.h"

namespace rrm {
namespace {

// A domain worker's queue: a fair share of all sessions, but never too small for a burst.
std::int32_t queue_capacity(int worker_count) {
  constexpr std::int32_t smallest = 2048;
  return std::max(static_cast<std::int32_t>(session_capacity) / std::max(worker_count, 1), smallest);
}

void log_exception(const std::string& domain, const std::exception& error) {
  RRM_LOG(LOG_ERROR, "Exception at processing message for domain '%s': %s", domain.c_str(), error.what());
  emit_event_text(13, domain);
}

// The domain is still configured as it was when the worker was made.
bool is_up_to_date(const GlobalConfig& config, const RrmWorker& worker) {
  try {
    return config.domain_config(worker.name) == worker.config() &&
           config.time_zone_offset(worker.name) == worker.time_zone_offset();
  } catch (const std::out_of_range&) {
    return false;
  }
}

bool is_internal(std::string_view service) {
  return service == service_name::internal_ipc || service == service_name::rrm_internal;
}

}  // namespace

RRM::RRM(GlobalConfig* configuration)
    : config(configuration),
      report_maintenance(std::make_unique<ReportMaintenance>(*configuration)),
      default_worker(std::make_shared<DefaultWorker>(this)),
      create_domain_worker([this](const DomainConfig& settings, const std::string& domain,
                                  std::int32_t time_zone_offset, std::int32_t capacity) {
        return std::make_unique<RrmWorker>(config, settings, domain, this, time_zone_offset, capacity);
      }) {
  auto websocket_server = std::make_shared<WebsockServerWorker>(this, config);
  websock_worker = websocket_server;
  ping_worker =
      std::make_shared<PingWorker>(this, [websocket_server] { return websocket_server->sessions_snapshot(); });
}

RRM::~RRM() {
  release();
}

// --- Life.

void RRM::start(bool preserve_role) {
  if (!config->enabled()) {
    RRM_LOG(LOG_TRACE, "MorVane version %s is disabled", build_version);
    return;
  }
  RRM_LOG(LOG_TRACE, "MorVane version %s start\n", build_version);
  if (config->global().vrrp_enabled) enter_vrrp_mode(preserve_role);
  report_maintenance->ensure_report_maintenance_started();
  accept_domains(true);
  if (vrrp_role == role_master) start_fixed_workers();
}

void RRM::enter_vrrp_mode(bool preserve_role) {
  if (preserve_role) {
    RRM_LOG(LOG_TRACE, "MorVane start in vrrp mode, preserving role: %s\n", role_name(vrrp_role));
  } else {
    vrrp_role = role_backup;
    RRM_LOG(LOG_TRACE, "MorVane start in vrrp mode\n");
  }
}

void RRM::start_fixed_workers() {
  default_worker->start();
  websock_worker->start();
  ping_worker->start();
}

// The order matters: nobody may drop sessions during the stop but the stop itself, and the WebSocket worker goes last,
// because the removal of the domains still orders it to close their sessions.
void RRM::release() {
  report_maintenance->stop_report_maintenance();
  ping_worker->stop();
  accept_domains(false);
  for (const auto& worker : worker_snapshot()) {
    RRM_LOG(LOG_TRACE, "Cancel domain %s", worker->name.c_str());
    remove_worker(worker->name);
  }
  default_worker->stop();
  websock_worker->stop();
  await_detached_threads();
}

void RRM::restart() {
  const std::int32_t kept_role = vrrp_role;
  release();
  vrrp_role = kept_role;
  start(true);
}

void RRM::accept_domains(bool accept) {
  MutexLock lock(workers.mutex);
  accepts_domains = accept;
}

// --- Role.

const char* RRM::role_name(std::int32_t role) {
  switch (role) {
    case role_backup:
      return "backup";
    case role_master:
      return "master";
    default:
      return "unknown";
  }
}

void RRM::update_vrrp_role(int role, const std::shared_ptr<std::string>& domains) {
  if (role == vrrp_role) {
    RRM_LOG(LOG_WARNING, "try to switch VRRP role to the same: %s -> %s", role_name(vrrp_role), role_name(role));
    return;
  }
  RRM_LOG(LOG_EVENT, "VRRP role: %s -> %s", role_name(vrrp_role), role_name(role));
  if (role == role_backup && vrrp_role == role_master) release();
  if (role == role_master) switch_to_master(domains);
  vrrp_role = role;
}

void RRM::switch_to_master(const std::shared_ptr<std::string>& domains) {
  if (vrrp_role != role_backup) return;
  report_maintenance->ensure_report_maintenance_started();
  accept_domains(true);
  // Before anybody can connect: the access points of a master that has died come at once, and a domain that one of them
  // has brought to life is not restored any more.
  restore_domains(domains);
  start_fixed_workers();
}

void RRM::restore_domains(const std::shared_ptr<std::string>& text) {
  if (text == nullptr) return;
  const JsonReader list(text->c_str());
  const int count = static_cast<int>(list.size());
  for (int i = 0; i < count; ++i) {
    JsonReader domain = list.at(i);
    if (!domain.empty()) restore_domain(domain);
  }
}

void RRM::restore_domain(JsonReader& domain) {
  const std::string name = domain.get_string("name");
  if (name.empty() || !config->enabled()) return;
  if (find_worker(name) != nullptr) return;
  const auto worker = make_worker(name);
  if (worker == nullptr) return;
  // One domain must not cost the others theirs, nor the server its start.
  try {
    launch(worker, [&] {
      if (auto* const domain_worker = dynamic_cast<RrmWorker*>(worker.get())) domain_worker->restore(domain);
    });
  } catch (const std::exception& error) {
    log_exception(name, error);
  }
}

// --- Routing.

void RRM::process_incoming_message(JsonReader& json, const BaseSession& session) {
  if (json.empty()) {
    RRM_LOG(LOG_ERROR, "process_incoming_message: json parse failed or null root");
    emit_event_plain(14);
    return;
  }
  // Orders between the server's own threads do not come from outside.
  if (is_internal(json.get_string(protocol::key::service))) {
    RRM_LOG(LOG_WARNING, "Incoming message validation failed");
    emit_event_plain(0);
    return;
  }
  const std::string domain = json.get_string(protocol::key::domain);
  const std::string cmd = json.get_string(protocol::key::cmd);
  try {
    route_domain(domain.c_str(), cmd.c_str(), json, session);
  } catch (const std::exception& error) {
    log_exception(domain, error);
  }
}

void RRM::route_domain(const char* domain, const char* cmd, JsonReader& json, const BaseSession& session) {
  if (!config->enabled()) return;
  const std::string name = domain;  // the message may be gone before the name is needed last
  if (const auto worker = find_worker(name)) {
    deliver(*worker, &Worker::enqueue_message, std::move(json), session);
  } else if (std::string_view(cmd) == "subscribe-request") {
    deliver_to_new(name, std::move(json), session);
  }
}

// The message is queued before anybody else knows the worker, so that it is the first one handled.
void RRM::deliver_to_new(const std::string& domain, JsonReader&& json, const BaseSession& session) {
  const auto worker = make_worker(domain);
  if (worker == nullptr) return;
  worker->enqueue_message(std::move(json), session);
  if (!launch(worker)) route_leftovers(*worker);
}

// A worker that has ended by itself meanwhile will not see the message: whoever finds that out routes it again.
void RRM::deliver(Worker& worker, Enqueue enqueue, JsonReader&& json, const BaseSession& session) {
  (worker.*enqueue)(std::move(json), session);
  if (worker.closed()) route_leftovers(worker);
}

void RRM::route_leftovers(Worker& worker) {
  std::vector<std::shared_ptr<QueueMessage>> orders;
  while (auto order = worker.queue.pop(worker.queue.force)) orders.push_back(std::move(*order));
  while (auto message = worker.queue.pop(worker.queue.normal)) {
    JsonReader& json = (*message)->json;
    if (is_internal(json.get_string(protocol::key::service))) continue;
    const std::string cmd = json.get_string(protocol::key::cmd);
    route_domain(worker.name.c_str(), cmd.c_str(), json, (*message)->session);
  }
  for (const auto& order : orders) {
    const auto heir = find_worker(worker.name);
    if (heir != nullptr) deliver(*heir, &Worker::enqueue_message_force, std::move(order->json), order->session);
  }
}

// --- Orders.

void RRM::send_text(const char* text, const BaseSession& session) {
  if (text != nullptr) send_text(std::string(text), session);
}

void RRM::send_text(std::string&& text, const BaseSession& session) {
  auto* websocket_server = dynamic_cast<WebsockServerWorker*>(websock_worker.get());
  if (websocket_server != nullptr) websocket_server->enqueue_serialized(std::move(text), session);
}

bool RRM::has_session(const BaseSession& session) const {
  const auto* websocket_server = dynamic_cast<const WebsockServerWorker*>(websock_worker.get());
  return websocket_server == nullptr || websocket_server->has_session(session);
}

void RRM::send_message(const char* text, const BaseSession& session) {
  JsonReader json(text);
  if (json.empty()) {
    RRM_LOG(LOG_ERROR, "send_message json null");
    RRM_LOG(LOG_TRACE, "send_message str: %s", text != nullptr ? text : "");
    emit_event_plain(14);
    return;
  }
  websock_worker->enqueue_message(std::move(json), session);
}

void RRM::drop_session_at_websock_worker(const BaseSession& session, bool force) {
  RRM_LOG(LOG_TRACE, "drop_session_at_websock_worker: %d force: %d", session.id, force);
  JsonReader order(internal_message::drop_session);
  if (force) {
    websock_worker->enqueue_message_force(std::move(order), session);
  } else {
    websock_worker->enqueue_message(std::move(order), session);
  }
}

void RRM::ping_session_at_websock_worker(const BaseSession& session) {
  websock_worker->enqueue_message(JsonReader(internal_message::ping_session), session);
}

void RRM::drop_session_at_rrm_workers(const BaseSession& session) {
  order_all(internal_message::drop_session, session);
}

void RRM::stop_load_balancer_at_rrm_worker(const BaseSession& session) {
  RRM_LOG(LOG_EVENT, "rrm: stop-load-balancer:");
  order_all(internal_message::stop_load_balancer, session);
}

void RRM::order_all(const char* order, const BaseSession& session) {
  for (const auto& worker : worker_snapshot()) {
    deliver(*worker, &Worker::enqueue_message_force, JsonReader(order), session);
  }
}

// --- Domain workers.

std::shared_ptr<Worker> RRM::find_worker(const std::string& domain) const {
  MutexLock lock(workers.mutex);
  const auto found = workers.map.find(domain);
  return found != workers.map.end() ? found->second : nullptr;
}

std::vector<std::shared_ptr<Worker>> RRM::worker_snapshot() const {
  std::vector<std::shared_ptr<Worker>> snapshot;
  {
    MutexLock lock(workers.mutex);
    for (const auto& [domain, worker] : workers.map) snapshot.push_back(worker);
  }
  std::sort(snapshot.begin(), snapshot.end(), [](const auto& a, const auto& b) { return a->name < b->name; });
  return snapshot;
}

std::unique_ptr<Worker> RRM::make_rrm_worker(const std::string& domain, int worker_count) {
  try {
    const DomainConfig settings = config->domain_config(domain);
    return create_domain_worker(settings, domain, config->time_zone_offset(domain), queue_capacity(worker_count));
  } catch (const std::exception& error) {
    log_exception(domain, error);
    return nullptr;
  }
}

// Null also while the server stops.
std::shared_ptr<Worker> RRM::make_worker(const std::string& domain) {
  std::size_t count = 0;
  {
    MutexLock lock(workers.mutex);
    if (!accepts_domains) return nullptr;
    count = workers.map.size();
  }
  return make_rrm_worker(domain, static_cast<int>(count) + 1);
}

// Puts a new worker into the map and starts it. Its mutex is held meanwhile, so that whoever removes it waits until the
// thread runs; so is it while `prepare` fills it, before it meets its first message. False if the name is taken by now,
// the domain was edited meanwhile or the server stops: the worker is then nobody's.
bool RRM::launch(const std::shared_ptr<Worker>& worker, const std::function<void()>& prepare) {
  bool inserted = false;
  worker->execute_locked([&] {
    inserted = insert(worker);
    if (!inserted) return;
    if (start_or_take_out(worker) && prepare) prepare();
  });
  return inserted;
}

bool RRM::start_or_take_out(const std::shared_ptr<Worker>& worker) {
  try {
    worker->start();
  } catch (const std::exception& error) {
    log_exception(worker->name, error);
    MutexLock lock(workers.mutex);
    take_out(worker->name, worker.get());
    return false;
  }
  const auto* rrm_worker = dynamic_cast<const RrmWorker*>(worker.get());
  const bool common = rrm_worker != nullptr && rrm_worker->config() == config->common();
  RRM_LOG(LOG_TRACE, common ? "Created new worker '%s' with common config." : "Created new worker '%s'.",
          worker->name.c_str());
  return true;
}

// The configuration is looked at again under the map lock: an edit that comes later finds the worker in the map and
// removes it, and one that came since the worker was made shows here.
bool RRM::insert(const std::shared_ptr<Worker>& worker) {
  MutexLock lock(workers.mutex);
  const auto* const rrm_worker = dynamic_cast<const RrmWorker*>(worker.get());
  if (rrm_worker != nullptr && !is_up_to_date(*config, *rrm_worker)) return false;
  return accepts_domains && workers.map.emplace(worker->name, worker).second;
}

// Takes the entry out of the map; with `only`, not if it is another worker than that.
std::shared_ptr<Worker> RRM::take_out(const std::string& domain, const Worker* only) {
  const auto found = workers.map.find(domain);
  if (found == workers.map.end() || (only != nullptr && found->second.get() != only)) return nullptr;
  std::shared_ptr<Worker> worker = std::move(found->second);
  workers.map.erase(found);
  return worker;
}

void RRM::remove_workers(const std::list<std::string>& domains) {
  for (const std::string& domain : domains) remove_worker(domain);
}

void RRM::remove_worker(const std::string& domain) {
  std::shared_ptr<Worker> worker;
  {
    MutexLock lock(workers.mutex);
    worker = take_out(domain, nullptr);
  }
  if (worker == nullptr) return;
  cancel_worker(domain, worker.get());
  RRM_LOG(LOG_TRACE, "Worker with domain '%s' erased.", domain.c_str());
}

void RRM::cancel_worker(const std::string& domain, Worker* worker) {
  std::unordered_set<std::uint32_t> dropped;
  drop_ap_sessions(domain, *worker, dropped);
  worker->stop();
  // An access point whose subscribe was served in between would stay connected for ever, without a domain.
  drop_ap_sessions(domain, *worker, dropped);
}

// Orders closed what has not been ordered closed yet. `dropped` holds the sessions' numbers.
void RRM::drop_ap_sessions(const std::string& domain, Worker& worker, std::unordered_set<std::uint32_t>& dropped) {
  std::vector<RrmWorker::ApSession> open;
  worker.execute_locked([&] {
    if (const auto* rrm_worker = dynamic_cast<const RrmWorker*>(&worker)) open = rrm_worker->ap_sessions();
    std::erase_if(open, [&](const auto& ap) { return dropped.contains(ap.session.id); });
    for (const auto& ap : open) {
      RRM_LOG(LOG_TRACE, "Drop session %s(%d) on worker '%s'.", ap.mac.to_string().c_str(), ap.session.id,
              domain.c_str());
    }
  });
  for (const auto& ap : open) {
    drop_session_at_websock_worker(ap.session, true);
    dropped.insert(ap.session.id);
  }
}

// --- Workers that end by themselves.

bool RRM::stop_domain_event(const std::string& domain, Worker& caller) {
  std::shared_ptr<Worker> worker;
  {
    MutexLock lock(workers.mutex);
    worker = take_out(domain, &caller);
    if (worker == nullptr) return false;
    ++detached_threads;
  }
  try {
    worker->detach();
    worker->close();
    route_leftovers(*worker);
    // Only one that an exception has ended has access points left, and these do not subscribe again by themselves.
    std::unordered_set<std::uint32_t> dropped;
    drop_ap_sessions(domain, *worker, dropped);
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Exception at processing stop_domain_event: %s", error.what());
    emit_event_text(12, domain);
  }
  return true;
}

void RRM::detached_thread_ended() {
  MutexLock lock(workers.mutex);
  --detached_threads;
  detached_gone.notify_all();
}

void RRM::await_detached_threads() {
  MutexLock lock(workers.mutex);
  while (detached_threads != 0) detached_gone.wait(workers.mutex);
  assert(workers.map.empty());
}

}  // namespace rrm
