// A process that a test starts: what it prints is collected, and it does not outlive the object. Every wait ends with
// what was waited for or, loudly, after `patience`. One thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace rrm::testing {

class ChildProcess {
 public:
  static constexpr std::chrono::seconds patience{60};

  // Runs the body in a child whose standard output and error lead here. The body ends by executing a program or by
  // returning, which is exit status 99; an exception of it is printed.
  explicit ChildProcess(const std::function<void()>& body);
  // Runs a program, with its path as argv[0] unless another name is given.
  static ChildProcess run(const std::vector<std::string>& command);
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  void send_signal(int signal) const;

  // What it has printed so far.
  const std::string& output();
  // Waits until the text has been printed that many times. False if it was not before the process closed its output.
  bool wait_for(const std::string& text, int times = 1);
  // Waits until nobody can print any more.
  void wait_for_end_of_output();
  // Waits for its end. The exit status, or 128 and the signal's number as a shell tells it; -1 if it did not end.
  int wait();

 private:
  bool read_more(std::chrono::steady_clock::time_point deadline);

  pid_t pid_ = -1;
  int fd_ = -1;
  std::string output_;
  std::optional<int> status_;
};

// What a shell would have in $? and on its screen.
struct Finished {
  int status = -1;
  std::string output;
  bool operator==(const Finished&) const = default;
};
Finished run_to_end(const std::vector<std::string>& command);

// True as soon as the condition holds; false if that takes longer than ChildProcess::patience.
bool eventually_true(const std::function<bool()>& condition);

// Replaces this process; throws if that fails.
[[noreturn]] void execute(const std::string& program, const std::vector<std::string>& argv);

// The process exists and is no zombie.
bool is_alive(pid_t pid);

}  // namespace rrm::testing
