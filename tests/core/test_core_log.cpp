// What the library's two hooks do before anybody has installed a target.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "core/log.h"

namespace rrm {
namespace {

TEST(LogHook, UntilOneIsSetLinesOfEveryLevelGoToStandardOutput) {
  ::testing::internal::CaptureStdout();
  RRM_LOG(LOG_TRACE, "domain '%s' has %d", "office", 12);
  RRM_LOG(LOG_ERROR, "100 %%");
  RRM_LOG(3, "no level of ours");
  RRM_LOG(LOG_DUMP, "one\ntwo\n");
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "domain 'office' has 12\n100 %\nno level of ours\none\ntwo\n\n");
}

TEST(EventHook, UntilOneIsSetNothingHappens) {
  ::testing::internal::CaptureStdout();
  emit_event(13, std::make_shared<std::string>("office"));
  emit_event(0, nullptr);
  emit_event_text(13, "office");
  emit_event_plain(0);
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace rrm
