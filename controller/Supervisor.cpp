#include "controller/Supervisor.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace controller {

namespace {

std::string describe(int status) {
  if (WIFSIGNALED(status))
    return "was killed by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
  return "ended with status " + std::to_string(WEXITSTATUS(status));
}

std::string seconds_text(std::chrono::seconds duration) {
  return std::to_string(duration.count()) + " s";
}

}  // namespace

const char* phase_name(Supervisor::Phase phase) {
  switch (phase) {
    case Supervisor::Phase::starting:
      return "starting";
    case Supervisor::Phase::running:
      return "running";
    case Supervisor::Phase::pausing:
      return "waiting for its restart";
    case Supervisor::Phase::ending:
    case Supervisor::Phase::terminating:
    case Supervisor::Phase::killing:
      return "ending";
    case Supervisor::Phase::ended:
      return "ended";
  }
  return "";
}

void Supervisor::enter(Phase phase, std::optional<Clock::time_point> deadline) {
  phase_ = phase;
  deadline_ = deadline;
}

void Supervisor::start(Clock::time_point now) {
  pid_ = orders_.start();
  started_ = now;
  enter(Phase::starting, now + time_to_ready);
  orders_.say("zal_rrm started, pid " + std::to_string(pid_));
}

void Supervisor::on_ready() {
  if (phase_ != Phase::starting) return;
  enter(Phase::running, std::nullopt);
  orders_.say("zal_rrm is ready and was ordered to run");
}

void Supervisor::on_exit(int status, Clock::time_point now) {
  orders_.say("zal_rrm, pid " + std::to_string(pid_) + ", " + describe(status));
  pid_ = 0;
  if (phase_ == Phase::starting || phase_ == Phase::running) return pause(now);
  ended_well_ = phase_ == Phase::ending && status == 0;
  enter(Phase::ended, std::nullopt);
}

void Supervisor::start_again(Clock::time_point now) {
  try {
    start(now);
  } catch (const std::runtime_error& e) {
    orders_.say(std::string("zal_rrm cannot be started: ") + e.what());
    started_ = now;
    pause(now);
  }
}

void Supervisor::pause(Clock::time_point now) {
  if (now - started_ >= good_run) pause_ = first_pause;
  orders_.say("zal_rrm is started again in " + seconds_text(pause_));
  enter(Phase::pausing, now + pause_);
  pause_ = std::min(2 * pause_, longest_pause);
}

void Supervisor::end(Clock::time_point now) {
  if (phase_ == Phase::pausing) return enter(Phase::ended, std::nullopt);
  if (phase_ == Phase::ending || phase_ == Phase::terminating) return kill();
  if (phase_ == Phase::starting) return terminate(now);
  if (phase_ != Phase::running) return;
  if (!orders_.order_shutdown()) return terminate(now);
  orders_.say("zal_rrm was ordered to end");
  enter(Phase::ending, now + time_to_end);
}

void Supervisor::on_time(Clock::time_point now) {
  if (phase_ == Phase::pausing) return start_again(now);
  if (phase_ == Phase::starting) {
    orders_.say("zal_rrm is not ready after " + seconds_text(time_to_ready) + ": killing it");
    deadline_.reset();
    orders_.send_signal(SIGKILL);
  } else if (phase_ == Phase::ending) {
    orders_.say("zal_rrm has not ended after " + seconds_text(time_to_end));
    terminate(now);
  } else if (phase_ == Phase::terminating) {
    orders_.say("zal_rrm has not ended " + seconds_text(time_to_terminate) + " after SIGTERM");
    kill();
  }
}

void Supervisor::terminate(Clock::time_point now) {
  orders_.say("sending SIGTERM to zal_rrm");
  enter(Phase::terminating, now + time_to_terminate);
  orders_.send_signal(SIGTERM);
}

void Supervisor::kill() {
  orders_.say("killing zal_rrm");
  enter(Phase::killing, std::nullopt);
  orders_.send_signal(SIGKILL);
}

}  // namespace controller
