#include "core/PingWorker.h"

#include <utility>

#include "RRM.h"
#include "core/clock.h"
#include "core/log.h"
#include "websock/WebsockSession.h"

namespace rrm {
namespace {

constexpr std::uint32_t scan_timer = 0;
constexpr std::int64_t longest_silence_s = 90;
constexpr std::int64_t quiet_s = 29;  // up to here a session needs no ping
constexpr std::int64_t ping_period_s = 10;
constexpr std::int64_t longest_wait_s = 300;  // for room: long beyond any pause of a network

}  // namespace

PingWorker::PingWorker(RRM* server, SessionSource live_sessions)
    : Worker("Ping-worker", server, 10000, 2048, false), sessions(std::move(live_sessions)) {}

bool PingWorker::connect() {
  RRM_LOG(LOG_TRACE, "Start worker %s", name.c_str());
  // An exception may have ended the worker with its timer still listed.
  timers.replace(scan_timer, tick, 1);
  return true;
}

void PingWorker::disconnect() {
  RRM_LOG(LOG_TRACE, "Stop worker %s", name.c_str());
  timers.remove(scan_timer);
}

void PingWorker::scan() {
  const std::int64_t now = monotonic_seconds();
  for (const auto& session : sessions()) check(*session, now);
  timers.add(tick, scan_timer, 1);
}

// A session may talk all the time and take nothing of what it is told: it is no use to anybody.
void PingWorker::check(const WebsockSession& session, std::int64_t now_s) {
  const std::int64_t age_s = now_s - session.last_seen;
  const std::int64_t waits_since = session.waits_since;
  const bool has_no_room = waits_since != WebsockSession::nothing_waits && now_s - waits_since > longest_wait_s;
  if (age_s > longest_silence_s || has_no_room) {
    owner->drop_session_at_websock_worker(session, true);
    owner->drop_session_at_rrm_workers(session);
  } else if (age_s > quiet_s && age_s % ping_period_s == 0) {
    owner->ping_session_at_websock_worker(session);
  }
}

}  // namespace rrm
