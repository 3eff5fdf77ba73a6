// The small controller: one daemon under supervision, the other end of its bus, and the command line's counterpart. It
// tells the daemon what a controller tells it, passes on what zalctl sends, keeps the alarms, and says on standard
// output what happens. One thread, one poll; SIGTERM, SIGINT and SIGCHLD arrive through a descriptor.
#pragma once

#include <poll.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "controller/Bus.h"
#include "controller/Control.h"
#include "controller/DaemonProcess.h"
#include "controller/Site.h"
#include "controller/StateDir.h"
#include "controller/Supervisor.h"
#include "controller/alarms.h"

namespace controller {

class Controller final : private SupervisorOrders, private BusListener {
 public:
  // Occupies the state directory and opens its sockets. Throws std::runtime_error if that is not possible.
  Controller(StateDir state, DaemonCommand command, Site site);
  ~Controller() override;
  Controller(const Controller&) = delete;
  Controller& operator=(const Controller&) = delete;

  // Runs the daemon until the order to end. The result is the exit status: 0 if the daemon ended as ordered.
  int run();

 private:
  // A request that waits for the daemon to serve its message.
  struct Pending {
    Control::ClientId client = 0;
    std::int64_t type = 0;
    Clock::time_point deadline;
    std::optional<zal::bus::Fields> reply;
  };

  int start() override;
  bool order_shutdown() override;
  void send_signal(int signal) override;
  void say(const std::string& text) override;

  void on_daemon_ready() override;
  void on_daemon_gone() override;
  void on_alarm(const std::string& location, std::int64_t status) override;
  void on_served(std::int64_t id, std::int64_t error) override;
  void on_message(const zal::bus::Fields& frame) override;

  void on_request(Control::ClientId client, const zal::bus::Fields& request);
  void answer_status(Control::ClientId client);
  void answer_alarms(Control::ClientId client, bool follow);
  void pass_on(Control::ClientId client, const zal::bus::Fields& request);
  void pass_on_to_daemon(const Pending& request, const std::optional<zal::bus::Fields>& before,
                         zal::bus::Fields message);
  void give_up_requests(const std::string& reason, Clock::time_point due);

  void wait_for_events();
  int wait_milliseconds() const;
  void on_signals();
  void collect_exit();
  void keep_old_errors() const;

  const StateDir state_;
  const DaemonCommand command_;
  const zal::bus::UniqueFd lock_;
  zal::bus::UniqueFd signals_;
  Bus bus_;
  Control control_;
  Supervisor supervisor_;
  Site site_;
  AlarmHistory alarms_;
  std::set<Control::ClientId> followers_;  // of the alarms
  std::set<Control::ClientId> stoppers_;   // wait for the end
  std::map<std::int64_t, Pending> pending_;
  std::int64_t next_id_ = 1;
};

}  // namespace controller
