#include "soak/soaked_server.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "TpcDcaSubworker.h"
#include "WebsockServerWorker.h"
#include "core/PingWorker.h"
#include "json/JsonReader.h"
#include "soak/patience.h"

namespace soak {
namespace {

constexpr const char* beat_text = R"({"service":"beat"})";
constexpr const char* look_text = R"({"service":"internal-ipc","cmd":"look"})";  // an order that orders nothing

}  // namespace

SoakedServer::SoakedServer(rrm::GlobalConfig& configuration, LockstepClock& clock)
    : RRM(&configuration), clock_(clock) {
  ping_worker.reset();
  websock_worker.reset();  // there is one at a time
  const auto dispatch = [this](rrm::JsonReader& json, const rrm::BaseSession& session) {
    if (session.wsi != beat_) return process_incoming_message(json, session);
    const rrm::MutexLock lock(mutex_);
    ++beats_;
    changed_.notify_all();
  };
  auto websocket_server = std::make_shared<rrm::WebsockServerWorker>(
      this, &configuration,
      rrm::WebsockServerWorker::Upstream{
          dispatch, [this](const rrm::BaseSession& session) { drop_session_at_rrm_workers(session); },
          [this](const rrm::BaseSession& session) { stop_load_balancer_at_rrm_worker(session); }},
      wire_);
  websock_worker = websocket_server;
  ping_worker = std::make_shared<rrm::PingWorker>(this, [this, websocket_server] {
    auto sessions = websocket_server->sessions_snapshot();
    const rrm::MutexLock lock(mutex_);
    ++scans_;
    changed_.notify_all();
    return sessions;
  });
}

SoakedServer::~SoakedServer() {
  release();
}

void SoakedServer::begin() {
  start();
  update_vrrp_role(role_master, nullptr);
  wire_.await_context();
  await_first_scan();
  await_end_of_scan();
  beat_ = wire_.open();
  await_dispatched();
}

// The ping worker has to see every second: it pings in some of them only.
void SoakedServer::second() {
  std::uint64_t scans = 0;
  {
    const rrm::MutexLock lock(mutex_);
    scans = scans_;
  }
  clock_.advance(1);
  await_scan(scans + 1);
  await_end_of_scan();
  wire_.end_overdue();
  settle();
}

void SoakedServer::settle() {
  await_dispatched();
  pass_twice();
  wire_.await_rest();
}

void SoakedServer::await_plans() {
  Patience patience("a plan");
  const auto any_is_computing = [this] {
    bool computing = false;
    for (const auto& domain : domains()) {
      domain->execute_locked([&] { computing = computing || domain->tpc_dca().computing(); });
    }
    return computing;
  };
  while (any_is_computing()) {
    patience.check();
    pass_twice();
  }
}

// One service thread and one jsonificator keep the order: what was sent before the beat has been dispatched.
void SoakedServer::await_dispatched() {
  if (!has_news()) return;
  wire_.send(beat_, beat_text);
  ++beats_sent_;
  settled_ = wire_.actions();
  Patience patience("the messages' dispatch");
  const rrm::MutexLock lock(mutex_);
  while (beats_ < beats_sent_) patience.wait(changed_, mutex_);
}

// The ping worker counts from when its thread is under way, which may be after the others'.
void SoakedServer::await_first_scan() {
  Patience patience("the first scan of the sessions");
  const rrm::MutexLock lock(mutex_);
  while (scans_ == 0) {
    clock_.advance(1);
    patience.wait(changed_, mutex_);
  }
}

void SoakedServer::await_scan(std::uint64_t number) {
  Patience patience("a scan of the sessions");
  const rrm::MutexLock lock(mutex_);
  while (scans_ < number) patience.wait(changed_, mutex_);
}

// A scan lists the next one when it ends, a second after the time that it then is.
void SoakedServer::await_end_of_scan() const {
  ping_worker->execute_locked([] {});
}

// The first pass serves what was queued and what is due; once there was another, what that buffered has been sent.
void SoakedServer::pass_twice() {
  const auto running_domains = domains();
  for (const auto& worker : running_domains) {
    longest_queue_ = std::max(longest_queue_, worker->queue_length());
    worker->enqueue_message(rrm::JsonReader(look_text), rrm::no_session);
    worker->enqueue_message(rrm::JsonReader(look_text), rrm::no_session);
  }
  for (const auto& worker : running_domains) {
    Patience patience("the messages of " + worker->name);
    while (worker->queue_length() != 0 && find_worker(worker->name) == worker) {
      patience.check();
      std::this_thread::yield();
    }
    worker->execute_locked([] {});
  }
}

std::vector<std::shared_ptr<rrm::RrmWorker>> SoakedServer::domains() const {
  std::vector<std::shared_ptr<rrm::RrmWorker>> found;
  for (const auto& worker : worker_snapshot()) {
    if (auto domain = std::dynamic_pointer_cast<rrm::RrmWorker>(worker)) found.push_back(std::move(domain));
  }
  return found;
}

std::vector<std::uint32_t> SoakedServer::sessions() const {
  std::vector<std::uint32_t> ids;
  const auto* const server = dynamic_cast<const rrm::WebsockServerWorker*>(websock_worker.get());
  for (const auto& session : server->sessions_snapshot()) {
    if (session->wsi != beat_) ids.push_back(session->id);
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

std::size_t SoakedServer::queued() const {
  std::size_t queued = 0;
  for (const auto& worker : domains()) queued += worker->queue_length();
  return queued;
}

std::vector<std::uint32_t> SoakedServer::waited_for() const {
  std::vector<std::uint32_t> ids;
  const auto* const server = dynamic_cast<const rrm::WebsockServerWorker*>(websock_worker.get());
  for (const auto& session : server->sessions_snapshot()) {
    if (session->waits_since != rrm::WebsockSession::nothing_waits) ids.push_back(session->id);
  }
  return ids;
}

std::optional<std::uint32_t> SoakedServer::session_of(lws* line) const {
  const auto* const server = dynamic_cast<const rrm::WebsockServerWorker*>(websock_worker.get());
  for (const auto& session : server->sessions_snapshot()) {
    if (session->wsi == line) return session->id;
  }
  return std::nullopt;
}

}  // namespace soak
