#include "service.h"

#include <atomic>
#include <csignal>
#include <exception>

#include "core/clock.h"
#include "events.h"
#include "trace.h"

namespace {

constexpr long pass_milliseconds = 25;
constexpr int exit_failure = -1;

std::atomic<std::uint8_t> sighup_pending{0};
static_assert(std::atomic<std::uint8_t>::is_always_lock_free);

void on_sighup(int) {
  sighup_pending = 1;
}

}  // namespace

void catch_sighup() {
  std::signal(SIGHUP, on_sighup);
}

void MainLoop::run() {
  while (!port_.is_finalized()) pass();
}

void MainLoop::pass() {
  port_.run_once_for_timeout(pass_milliseconds);
  radio_.poll_maintenance();
  tick();
  if (sighup_pending.exchange(0) == 0) return;
  trace.sys("Reload config by SIGHUP");
  trace.reload_config();
}

void MainLoop::tick() {
  const std::int64_t second = rrm::monotonic_seconds();
  if (last_second_ == second) return;
  if (last_second_ && radio_.vrrp_state() < RadioRM::vrrp_standby) radio_.backup_marked_domains();
  last_second_ = second;
}

int serve(const std::string& backup_directory) {
  zal::IpcPort port(zal::PortId::rrm, trace);
  RadioRM radio(port, backup_directory);
  if (!port.register_msg_callback(RadioRM::on_ipc_message, &radio)) return exit_failure;
  if (!zal::ipc_send_ready_and_wait_for_run(port)) {
    trace.error("Send ipc ready and wait for ipc run failed");
    return exit_failure;
  }
  set_domain_changed_hook([&radio](const std::string& domain) { radio.mark_domain_for_backup(domain); });
  MainLoop(port, radio).run();
  return 0;
}

int status_of(const std::function<int()>& body) {
  try {
    return body();
  } catch (const std::exception& e) {
    trace.error("SYSTEM: Got exception: %s", e.what());
  } catch (...) {
    trace.error("SYSTEM: Got exception: UNKNOWN");
  }
  return exit_failure;
}
