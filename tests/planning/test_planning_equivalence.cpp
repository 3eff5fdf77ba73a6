// The planners against their plain versions over random domains: equal radios, equal neighbour entries, equal results
// after each pass and after the power run.
#include <gtest/gtest.h>

#include <set>

#include "planning/dca.h"
#include "planning/describe.h"
#include "planning/plain_dca.h"
#include "planning/plain_tpc.h"
#include "planning/random_domain.h"
#include "planning/tpc.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

constexpr std::uint32_t domains = 500;

// Both versions over copies of one domain.
struct Both {
  explicit Both(std::uint32_t seed)
      : config(random_config(seed)), plain(random_domain(config, seed)), ours(plain.clone()) {
    table.ignore_dca_threshold = plain_table.ignore_dca_threshold = seed % 4 != 0;
  }

  ChannelPassSummary run_channel_pass() {
    plain_dca_pass(plain_table, plain, config, plain_results);
    return run_dca_pass(table, ours, config, our_results);
  }
  PowerRunSummary run_power() {
    plain_tpc(plain, config, plain_results);
    return run_tpc(ours, config, our_results);
  }
  void expect_equal(const char* stage) const {
    EXPECT_EQ(describe_radios(ours), describe_radios(plain)) << stage;
    EXPECT_EQ(describe(our_results), describe(plain_results)) << stage;
    for (const auto& [mac, ap] : ours) {
      const ApEntry& other = *plain.find(mac);
      EXPECT_EQ(ap->visible_members, other.visible_members) << stage << "\n" << describe(*ap) << describe(other);
      EXPECT_EQ(ap->visible_rogue, other.visible_rogue) << stage << "\n" << describe(*ap) << describe(other);
    }
  }

  DomainConfig config;
  ApMap plain;
  ApMap ours;
  PlainTable plain_table;
  SpectrumTable table;
  PlanResult plain_results;
  PlanResult our_results;
};

TEST(PlanningEquivalence, BothChannelPassesAndThePowerRunGiveWhatThePlainVersionsGive) {
  const Capture quiet;
  ChannelPassSummary first;
  ChannelPassSummary second;
  PowerRunSummary power;
  for (std::uint32_t seed = 1; seed <= domains; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Both both(seed);
    const ChannelPassSummary pass_1 = both.run_channel_pass();
    both.expect_equal("pass 1");
    const ChannelPassSummary pass_2 = both.run_channel_pass();
    both.expect_equal("pass 2");
    const PowerRunSummary run = both.run_power();
    both.expect_equal("power");
    if (HasFailure()) break;
    first.moved += pass_1.moved;
    first.repositioned += pass_1.repositioned;
    second.moved += pass_2.moved;
    power.lowered += run.lowered;
    power.raised += run.raised;
  }
  // The domains are worth the comparison: a good part of all decisions of each kind was taken.
  EXPECT_GT(first.moved, 10000u);
  EXPECT_GT(first.repositioned, 500u);
  EXPECT_GT(second.moved, 2000u);
  EXPECT_GT(power.lowered, 2000u);
  EXPECT_GT(power.raised, 2000u);
}

// The power run alone, so that channels that no plan would choose are compared too.
TEST(PlanningEquivalence, ThePowerRunWithoutAChannelPlanGivesWhatThePlainVersionGives) {
  const Capture quiet;
  for (std::uint32_t seed = 10001; seed <= 10000 + domains / 2 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Both both(seed);
    both.run_power();
    both.expect_equal("power");
  }
}

TEST(PlanningEquivalence, TheSameDomainGivesTheSamePlanOnEveryRun) {
  const Capture quiet;
  std::set<std::string> plans;
  for (int run = 0; run < 3; ++run) {
    Both both(42);
    both.run_channel_pass();
    both.run_power();
    plans.insert(describe_radios(both.ours) + describe(both.our_results));
  }
  EXPECT_EQ(plans.size(), 1u);
}

}  // namespace
}  // namespace rrm::testing
