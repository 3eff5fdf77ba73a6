// Crashes: what they print, and that they end the process whatever they left behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "support/failing_memory.h"
#include "zal/backtrace.h"

namespace zal {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::KilledBySignal;

constexpr const char* addresses_only =
    "^Stack trace \\(addresses only: their names cannot be found after this crash\\)\n"
    "[^ ]*test_platform_backtrace\\(.*0x";

// Waits for ever, as an allocator does whose lock the crashed code holds. The end of who waits need not be waited for,
// but there must be one.
class LockedAllocator final : public rrm::testing::MemoryWatch {
 public:
  bool on_new() override {
    while (alarm(0) != 0) kill(getpid(), SIGALRM);
    _exit(EXIT_FAILURE);
  }
};

class CrashingAllocator final : public rrm::testing::MemoryWatch {
 public:
  bool on_new() override { return raise(SIGSEGV) == 0; }
};

class BacktraceDeathTest : public ::testing::Test {
 protected:
  BacktraceDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }

  static void arm() {
    char name[] = "test";
    char* const argv[] = {name, nullptr};
    backtrace_init(argv);
  }
};

TEST_F(BacktraceDeathTest, AnArmedCrashPrintsItsFramesAndEndsByItsSignal) {
  EXPECT_EXIT(
      {
        arm();
        std::abort();
      },
      KilledBySignal(SIGABRT), HasSubstr("Stack trace (most recent call last)"));
}

TEST_F(BacktraceDeathTest, ACrashAtTheExitPrintsItsFramesToo) {
  EXPECT_EXIT(
      {
        std::atexit(std::abort);
        arm();
        std::exit(EXIT_SUCCESS);
      },
      KilledBySignal(SIGABRT), HasSubstr("Stack trace (most recent call last)"));
}

TEST_F(BacktraceDeathTest, ACrashThatLeavesTheAllocatorLockedEndsByItsSignalToo) {
  EXPECT_EXIT(
      {
        arm();
        const LockedAllocator allocator;
        raise(SIGSEGV);
      },
      KilledBySignal(SIGSEGV), ContainsRegex(addresses_only));
}

// Worker threads leave signals to the main thread.
TEST_F(BacktraceDeathTest, ACrashIsNotKeptByBlockedSignals) {
  EXPECT_EXIT(
      {
        arm();
        sigset_t all;
        sigfillset(&all);
        sigdelset(&all, SIGABRT);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        const LockedAllocator allocator;
        std::abort();
      },
      KilledBySignal(SIGABRT), ContainsRegex(addresses_only));
}

TEST_F(BacktraceDeathTest, ACrashOfThePrinterEndsByTheFirstSignal) {
  EXPECT_EXIT(
      {
        arm();
        const CrashingAllocator allocator;
        std::abort();
      },
      KilledBySignal(SIGABRT), ContainsRegex(addresses_only));
}

}  // namespace
}  // namespace zal
