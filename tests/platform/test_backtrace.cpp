// Crashes: what they print, and that they end the process whatever they left behind. The allocator of this program can
// be told to wait for ever, as one does whose lock the crashed code holds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <new>

#include "zal/backtrace.h"

namespace {

enum class Allocator { serves, is_locked, crashes };

volatile Allocator allocator = Allocator::serves;

}  // namespace

void* operator new(std::size_t size) {
  if (allocator == Allocator::crashes) raise(SIGSEGV);
  // The end of who waits for the lock need not be waited for, but there must be one.
  while (allocator == Allocator::is_locked) {
    if (alarm(0) == 0) _exit(EXIT_FAILURE);
    kill(getpid(), SIGALRM);
  }
  void* memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace zal {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::KilledBySignal;

constexpr const char* addresses_only =
    "^Stack trace \\(addresses only: their names cannot be found after this crash\\)\n"
    "[^ ]*test_platform_backtrace\\(.*0x";

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
        allocator = Allocator::is_locked;
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
        allocator = Allocator::is_locked;
        std::abort();
      },
      KilledBySignal(SIGABRT), ContainsRegex(addresses_only));
}

TEST_F(BacktraceDeathTest, ACrashOfThePrinterEndsByTheFirstSignal) {
  EXPECT_EXIT(
      {
        arm();
        allocator = Allocator::crashes;
        std::abort();
      },
      KilledBySignal(SIGABRT), ContainsRegex(addresses_only));
}

}  // namespace
}  // namespace zal
