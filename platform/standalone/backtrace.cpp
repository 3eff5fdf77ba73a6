#include "zal/backtrace.h"

#include <execinfo.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <backward.hpp>
#include <csignal>
#include <string_view>

namespace zal {
namespace {

// A frame's name takes milliseconds to find.
constexpr unsigned patience_s = 10;

std::atomic<int> crash_signal{0};
std::array<void*, 64> crash_frames;
std::atomic<int> crash_frame_count{0};

void unblock(int signal) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, signal);
  pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

// In a signal handler: ends the process, and waits for nobody but the loader, which has `patience_s` for it.
void end_with_addresses(int) {
  alarm(patience_s);
  constexpr std::string_view title = "Stack trace (addresses only: their names cannot be found after this crash)\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, title.data(), title.size());
  backtrace_symbols_fd(crash_frames.data(), crash_frame_count, STDERR_FILENO);
  const int signal = crash_signal;
  std::signal(signal, SIG_DFL);
  unblock(signal);
  raise(signal);
}

// Who prints the names allocates memory. A crash that left the allocator locked would keep it, and the process with its
// port and its access points, for ever.
void end_within_patience() {
  struct sigaction action {};
  action.sa_handler = end_with_addresses;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  sigaction(SIGALRM, &action, nullptr);
  unblock(SIGALRM);
  alarm(patience_s);
}

void on_crash(int signal, siginfo_t* info, void* context) {
  int none = 0;
  // Who prints the names may crash over what the first crash left behind.
  if (!crash_signal.compare_exchange_strong(none, signal)) end_with_addresses(signal);
  end_within_patience();
  crash_frame_count = backtrace(crash_frames.data(), static_cast<int>(crash_frames.size()));
  backward::SignalHandling::handleSignal(signal, info, context);
  raise(signal);
}

}  // namespace

// The frames' names come from the running program itself, so the arguments are not needed.
void backtrace_init(char* const*) {
  // The first call loads a library, which no handler may.
  backtrace(crash_frames.data(), 1);
  // Its handlers are replaced, the stack that it gives the handlers of this thread is not. Never destroyed: a process
  // may crash as it exits.
  [[maybe_unused]] static const auto* const handling = new backward::SignalHandling;
  for (const int signal : backward::SignalHandling::make_default_signals()) {
    struct sigaction action {};
    action.sa_sigaction = on_crash;
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_NODEFER | SA_RESETHAND);
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace zal
