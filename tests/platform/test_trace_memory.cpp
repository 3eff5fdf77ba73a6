// What the log does without memory, and how much of it a line takes that is not written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "platform/standalone/TraceLog.h"
#include "platform/trace_file.h"
#include "support/failing_memory.h"
#include "zal/Trace.h"

namespace zal {
namespace {

using rrm::testing::MemoryWatch;
using ::testing::ElementsAre;
using zal::testing::AppliedConfig;
using zal::testing::library_line;
using zal::testing::TraceFile;

void write_one_of_each(const Trace& trace, const std::string& text) {
  trace.ap("ap %s", text.c_str());
  trace.sys("sys %s", text.c_str());
  trace.warn("warn %s", text.c_str());
  trace.error("error %s", text.c_str());
  trace.error_mac(MacAddr(), "error_mac %s", text.c_str());
  library_line(trace, "library %s", text.c_str());
}

TEST(TraceMemory, WithoutMemoryALineIsLostAndTheProcessIsNot) {
  const TraceFile file;
  const Trace trace("RRM", false);
  const std::string text(1000, 'x');
  ::testing::internal::CaptureStderr();
  {
    const MemoryWatch watch(0);
    write_one_of_each(trace, text);
    trace.reload_config();
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "not logged: ap %s\nnot logged: sys %s\nnot logged: warn %s\nnot logged: error %s\n"
            "not logged: error_mac %s\nnot logged: library %s\nnot logged: reload_config\n");
  trace.sys("and on");
  EXPECT_THAT(file.lines(), ElementsAre("SYS   [RRM] and on"));
}

TEST(TraceMemory, ARefusedLineTakesNone) {
  const TraceFile file;
  const Trace trace("RRM", false);
  const std::string text(1000, 'x');
  const AppliedConfig none(AppliedConfig::without_budgets());
  const MemoryWatch watch;
  write_one_of_each(trace, text);
  EXPECT_EQ(watch.news() + watch.mallocs(), 0u);
}

}  // namespace
}  // namespace zal
