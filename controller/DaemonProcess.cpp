#include "controller/DaemonProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

#include "controller/PrivateView.h"
#include "platform/bus/UniqueFd.h"

namespace controller {

using zal::bus::UniqueFd;

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void redirect(const char* path, int flags, int onto) {
  const UniqueFd file(open(path, flags | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!file || dup2(file.get(), onto) < 0) fail(std::string("cannot redirect to ") + path);
}

void prepare_environment(const StateDir& state) {
  setenv("ZAL_SUPERVISOR", "zal_controller", 1);
  setenv("ZAL_BUS", state.bus_socket().c_str(), 1);
  setenv("ZAL_TRACE_FILE", state.log().c_str(), 1);
}

// The controller's own view of signals is not the daemon's.
void restore_signals() {
  signal(SIGPIPE, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// In a session of its own: a key pressed at the controller's terminal is for the controller, which ends its daemon in
// order.
void leave_terminal() {
  setsid();
}

// Death of the parent before this call has gone unnoticed: hence the look at who the parent is now.
void die_with(pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(EXIT_FAILURE);
}

[[noreturn]] void become_daemon(const DaemonCommand& command, const StateDir& state, pid_t parent) {
  restore_signals();
  leave_terminal();
  prepare_environment(state);
  redirect("/dev/null", O_RDONLY, STDIN_FILENO);
  redirect(state.errors().c_str(), O_WRONLY | O_CREAT | O_APPEND, STDOUT_FILENO);
  redirect(state.errors().c_str(), O_WRONLY | O_CREAT | O_APPEND, STDERR_FILENO);
  if (!command.uses_host_paths)
    enter_private_view({{"/etc/zal", state.etc()}, {"/mnt/data/zal", state.data()}}, state.root(), state.view());
  die_with(parent);
  char name[] = "zal_rrm";
  char* const argv[] = {name, nullptr};
  execv(command.program.c_str(), argv);
  fail("cannot execute " + command.program.string());
}

[[noreturn]] void run_child(const DaemonCommand& command, const StateDir& state, pid_t parent, int complaints) {
  std::string complaint;
  try {
    become_daemon(command, state, parent);
  } catch (const std::exception& e) {
    complaint = e.what();
  }
  [[maybe_unused]] const ssize_t written = write(complaints, complaint.data(), complaint.size());
  _exit(EXIT_FAILURE);
}

// Empty once the child has become the daemon.
std::string read_complaint(int fd) {
  std::string text;
  char part[512];
  for (ssize_t got = 0; (got = read(fd, part, sizeof part)) > 0;) text.append(part, static_cast<std::size_t>(got));
  return text;
}

}  // namespace

pid_t start_daemon(const DaemonCommand& command, const StateDir& state) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) fail("cannot make a pipe");
  const UniqueFd complaints(ends[0]);
  UniqueFd complain(ends[1]);
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child < 0) fail("cannot fork");
  if (child == 0) run_child(command, state, parent, complain.get());
  complain.reset();
  const std::string complaint = read_complaint(complaints.get());
  if (complaint.empty()) return child;
  waitpid(child, nullptr, 0);
  throw std::runtime_error(complaint);
}

}  // namespace controller
