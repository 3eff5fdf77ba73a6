// As many idle threads as the daemon has with one domain, on the daemon's CPU: what they cost that only sleep.
//
//   idle_threads SECONDS      prints the CPU that they used, in seconds
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

namespace {

// Three workers sleep for 10 ms, the parser of messages and the domain's worker wait as long for a signal, the main
// thread 25 ms for a command.
constexpr int sleepers = 3;
constexpr useconds_t sleep_us = 10000;
constexpr int signalled = 2;
constexpr int signal_wait_ms = 10;
constexpr int main_wait_ms = 25;

double seconds_of(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

template <class Pass>
void repeat(double end, Pass pass) {
  while (seconds_of(CLOCK_MONOTONIC) < end) pass();
}

void wait_for_nothing(double end, int milliseconds) {
  const int signal = ::eventfd(0, EFD_CLOEXEC);
  if (signal < 0) std::abort();
  repeat(end, [&] {
    pollfd waited{signal, POLLIN, 0};
    ::poll(&waited, 1, milliseconds);
  });
  ::close(signal);
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 0;
  if (seconds <= 0) {
    std::fputs("usage: idle_threads SECONDS\n", stderr);
    return 2;
  }
  cpu_set_t first;
  CPU_ZERO(&first);
  CPU_SET(0, &first);
  if (::sched_setaffinity(0, sizeof first, &first) != 0) {
    std::perror("sched_setaffinity");
    return 1;
  }
  const double end = seconds_of(CLOCK_MONOTONIC) + seconds;
  std::vector<std::thread> threads;
  for (int i = 0; i < sleepers; ++i) {
    threads.emplace_back([end] { repeat(end, [] { ::usleep(sleep_us); }); });
  }
  for (int i = 0; i < signalled; ++i) {
    threads.emplace_back([end] { wait_for_nothing(end, signal_wait_ms); });
  }
  wait_for_nothing(end, main_wait_ms);
  for (std::thread& thread : threads) thread.join();
  std::printf("%.6f\n", seconds_of(CLOCK_PROCESS_CPUTIME_ID));
}
