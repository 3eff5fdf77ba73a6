#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace rrm::testing {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int status_without_program = 99;

int count_of(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

[[noreturn]] void become_child(const std::function<void()>& body, int output) {
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  try {
    body();
  } catch (const std::exception& e) {
    dprintf(STDERR_FILENO, "%s\n", e.what());
  }
  _exit(status_without_program);
}

int shell_status(int status) {
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void()>& body) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  pid_ = fork();
  if (pid_ < 0) throw std::runtime_error("fork");
  if (pid_ == 0) become_child(body, ends[1]);
  close(ends[1]);
  fd_ = ends[0];
}

ChildProcess ChildProcess::run(const std::vector<std::string>& command) {
  return ChildProcess([&command] { execute(command.front(), command); });
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0 && !status_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (fd_ >= 0) close(fd_);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      fd_(std::exchange(other.fd_, -1)),
      output_(std::move(other.output_)),
      status_(other.status_) {}

void ChildProcess::send_signal(int signal) const {
  kill(pid_, signal);
}

bool ChildProcess::read_more(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd fd{fd_, POLLIN, 0};
  if (fd_ < 0 || poll(&fd, 1, static_cast<int>(left > 0 ? left : 0)) <= 0) return false;
  char part[4096];
  const ssize_t got = read(fd_, part, sizeof part);
  if (got > 0) output_.append(part, static_cast<std::size_t>(got));
  return got > 0;
}

const std::string& ChildProcess::output() {
  while (read_more(Clock::now())) {
  }
  return output_;
}

bool ChildProcess::wait_for(const std::string& text, int times) {
  const auto deadline = Clock::now() + patience;
  while (count_of(output_, text) < times)
    if (!read_more(deadline)) return false;
  return true;
}

void ChildProcess::wait_for_end_of_output() {
  const auto deadline = Clock::now() + patience;
  while (read_more(deadline)) {
  }
}

int ChildProcess::wait() {
  const auto deadline = Clock::now() + patience;
  int status = 0;
  while (!status_) {
    const pid_t ended = waitpid(pid_, &status, WNOHANG);
    if (ended == pid_) status_ = shell_status(status);
    if (ended == 0 && Clock::now() >= deadline) return -1;
    if (ended == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  output();
  return *status_;
}

Finished run_to_end(const std::vector<std::string>& command) {
  ChildProcess child = ChildProcess::run(command);
  child.wait_for_end_of_output();
  const int status = child.wait();
  return {status, child.output()};
}

bool eventually_true(const std::function<bool()>& condition) {
  const auto deadline = Clock::now() + ChildProcess::patience;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

void execute(const std::string& program, const std::vector<std::string>& argv) {
  std::vector<char*> arguments;
  for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
  arguments.push_back(nullptr);
  execv(program.c_str(), arguments.data());
  throw std::runtime_error("cannot execute " + program + ": " + std::strerror(errno));
}

bool is_alive(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const auto name_end = stat.rfind(')');
  return name_end != std::string::npos && stat.size() > name_end + 2 && stat[name_end + 2] != 'Z';
}

}  // namespace rrm::testing
