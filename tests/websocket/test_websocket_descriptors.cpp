#include <gtest/gtest.h>

#include <ostream>

#include "support/capture.h"
#include "websock/descriptor_limit.h"

namespace rrm {

void PrintTo(const DescriptorPlan& plan, std::ostream* out) {
  *out << "{" << plan.while_creating << ", " << plan.afterwards << ", " << plan.sessions << "}";
}

namespace {

struct Case {
  const char* label;
  rlimit limit;
  unsigned capacity;
  DescriptorPlan plan;
};

void PrintTo(const Case& c, std::ostream* out) {
  *out << c.label;
}

class DescriptorPlanTest : public ::testing::TestWithParam<Case> {};

TEST_P(DescriptorPlanTest, FitsTheTableAndTheRest) {
  EXPECT_EQ(plan_descriptors(GetParam().limit, GetParam().capacity), GetParam().plan);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DescriptorPlanTest,
    ::testing::Values(Case{"the usual limits of a service", {1024, 524288}, 20000, {20003, 21027, 20000}},
                      Case{
                          "a second start finds what the first one set", {21027, 524288}, 20000, {20003, 21027, 20000}},
                      Case{"a higher soft limit comes back", {100000, 524288}, 20000, {20003, 100000, 20000}},
                      Case{"no hard limit", {RLIM_INFINITY, RLIM_INFINITY}, 20000, {20003, RLIM_INFINITY, 20000}},
                      Case{"a hard limit that just fits", {1024, 21027}, 20000, {20003, 21027, 20000}},
                      Case{"one below that costs one session", {1024, 21026}, 20000, {20002, 21026, 19999}},
                      Case{"a hard limit of 20000", {20000, 20000}, 20000, {18976, 20000, 18973}},
                      Case{"a low hard limit is shared, a quarter for the rest", {1024, 1024}, 20000, {768, 1024, 765}},
                      Case{"hardly anything", {4, 4}, 20000, {3, 4, 0}}, Case{"nothing", {0, 0}, 20000, {0, 0, 0}}));

TEST(DescriptorStage, SetsTheSoftLimitForItsLifeAndAnotherAtItsEnd) {
  const rlimit before = descriptor_limit();
  {
    DescriptorStage stage({200, 300, 197});
    EXPECT_EQ(descriptor_limit().rlim_cur, 200u);
    EXPECT_EQ(descriptor_limit().rlim_max, before.rlim_max);
  }
  EXPECT_EQ(descriptor_limit().rlim_cur, 300u);
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST(DescriptorStage, SaysSoWhenTheSystemRefuses) {
  const rlimit before = descriptor_limit();
  ASSERT_NE(before.rlim_max, RLIM_INFINITY);
  testing::Capture capture;
  { DescriptorStage stage({before.rlim_max + 1, before.rlim_cur, 0}); }
  EXPECT_EQ(capture.lines(LOG_ERROR),
            std::vector<std::string>{"Can't set the descriptor limit to " + std::to_string(before.rlim_max + 1) +
                                     ": Invalid argument"});
  EXPECT_EQ(descriptor_limit().rlim_cur, before.rlim_cur);
}

}  // namespace
}  // namespace rrm
