// Decides about the life of the daemon: when it is started, started again, ordered to end and, if it does not, killed.
// It knows neither processes nor clocks: its owner tells it what happened and when, and carries out its orders. For one
// thread.
//
// A daemon that ends without an order is started again after a pause that doubles from 1 to 30 seconds and begins anew
// once a daemon has run for a minute. One that does not report ready within 30 seconds is killed. A daemon that was
// ordered to end has 15 seconds, then gets SIGTERM, and 5 seconds later SIGKILL.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace controller {

using Clock = std::chrono::steady_clock;

// What a supervisor orders.
class SupervisorOrders {
 public:
  virtual ~SupervisorOrders() = default;
  // The result is the daemon's pid. Throws std::runtime_error if it cannot be started.
  virtual int start() = 0;
  // Hands the order to end to the daemon itself. False if it cannot be reached.
  virtual bool order_shutdown() = 0;
  virtual void send_signal(int signal) = 0;
  virtual void say(const std::string& text) = 0;
};

class Supervisor {
 public:
  static constexpr std::chrono::seconds first_pause{1};
  static constexpr std::chrono::seconds longest_pause{30};
  static constexpr std::chrono::seconds good_run{60};
  static constexpr std::chrono::seconds time_to_ready{30};
  static constexpr std::chrono::seconds time_to_end{15};
  static constexpr std::chrono::seconds time_to_terminate{5};

  enum class Phase {
    starting,     // the process exists, and has not reported ready
    running,      // it was ordered to run
    pausing,      // it ended and is going to be started again
    ending,       // it was ordered to end
    terminating,  // it was sent SIGTERM
    killing,      // it was sent SIGKILL because of the order to end
    ended
  };

  explicit Supervisor(SupervisorOrders& orders) : orders_(orders) {}

  // The first start. Throws what the order throws; a later start that fails counts as a death instead.
  void start(Clock::time_point now);
  void on_ready();
  // `status` is that of waitpid.
  void on_exit(int status, Clock::time_point now);
  // The second order to end kills.
  void end(Clock::time_point now);
  // Requires: to be called when deadline() has passed.
  void on_time(Clock::time_point now);

  std::optional<Clock::time_point> deadline() const { return deadline_; }
  Phase phase() const { return phase_; }
  // It was ordered to end, whatever has come of it.
  bool is_ending() const { return phase_ >= Phase::ending; }
  int pid() const { return pid_; }  // 0 while there is no process
  Clock::time_point started() const { return started_; }
  // The daemon ended as it was ordered to, by itself and with success.
  bool ended_well() const { return ended_well_; }

 private:
  void enter(Phase phase, std::optional<Clock::time_point> deadline);
  void start_again(Clock::time_point now);
  void pause(Clock::time_point now);
  void terminate(Clock::time_point now);
  void kill();

  SupervisorOrders& orders_;
  Phase phase_ = Phase::pausing;
  std::optional<Clock::time_point> deadline_;
  Clock::time_point started_{};
  std::chrono::seconds pause_ = first_pause;
  int pid_ = 0;
  bool ended_well_ = true;
};

const char* phase_name(Supervisor::Phase phase);

}  // namespace controller
