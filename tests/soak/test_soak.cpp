// Days in the life of a server, in minutes: ten halls of access points live through three days of simulated time. At
// every rest all that must always hold does, nothing waits for a domain or for who reads, and the memory in use stays
// the same from the first day to the last.
//
// ZAL_SOAK_HOURS and ZAL_SOAK_HALLS (three at least) make it longer and bigger, ZAL_SOAK_SEED gives it another life.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "platform/trace_file.h"
#include "soak/campus.h"

namespace soak {
namespace {

using ::testing::IsEmpty;

// The halls' own share of the heap, between the medians of the first and of the last part after the warm-up. What they
// hold sways by as much from rest to rest, with the devices that are away at the moment; a median of many rests does
// not. In a few hours there are few of them.
constexpr double largest_growth_of_days = 0.02;
constexpr double largest_growth_of_hours = 0.05;

// Messages of one domain: what its few access points have to say at once, and some of them three times.
constexpr std::size_t most_queued = 100;

int number_of_environment(const char* name, int otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::atoi(text);
}

double median(std::vector<std::size_t> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return static_cast<double>(*middle);
}

class Soak : public ::testing::Test {
 protected:
  static constexpr int rests_per_hour = Campus::hour / Campus::rest_period;

  void live_for(int hours) {
    for (int rest = 1; rest <= hours * rests_per_hour; ++rest) {
      campus_.live();
      const Rest found = campus_.look();
      heap_.push_back(found.heap);
      longest_queue_ = std::max(longest_queue_, found.longest_queue);
      if (rest % tell_every_ == 0) tell(found);
      ASSERT_THAT(found.faults, IsEmpty()) << "in hour " << rest / rests_per_hour;
    }
  }

  // A sixth of the time is the warm-up; the days after that begin and end with a part each.
  double growth(int hours) const {
    const std::size_t part = std::min(heap_.size() / 3, static_cast<std::size_t>(24 * rests_per_hour));
    const std::size_t warm_up = static_cast<std::size_t>(std::max(hours / 6, 1) * rests_per_hour);
    const auto first = heap_.begin() + static_cast<std::ptrdiff_t>(warm_up);
    const double before = median({first, first + static_cast<std::ptrdiff_t>(part)});
    const double after = median({heap_.end() - static_cast<std::ptrdiff_t>(part), heap_.end()});
    const double own = before - static_cast<double>(campus_.heap_at_start());
    std::printf(
        "heap: %zu KiB at the start; medians of the first and the last part %.0f and %.0f KiB: %+.2f %% of %.0f\n",
        campus_.heap_at_start() / 1024, before / 1024, after / 1024, 100 * (after - before) / own, own / 1024);
    return (after - before) / own;
  }

  void tell_head() const {
    std::printf("%5s %7s %8s %8s %7s %7s %7s %5s %5s %6s %8s %7s %7s %6s %6s %7s %8s %9s %7s\n", "hour", "events",
                "said", "heard", "cycles", "plans", "backups", "ends", "halls", "APs", "sessions", "clients", "blocked",
                "heard", "queue", "reports", "files KiB", "heap KiB", "wall s");
  }
  void tell(const Rest& rest) const {
    const Totals all = campus_.totals();
    const auto wall = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - began_);
    std::printf(
        "%5.1f %7lu %8lu %8lu %7lu %7lu %7lu %5lu %5zu %3zu+%-2zu %8zu %7zu %7zu %6zu %6zu %7zu %9zu %8zu %7lld\n",
        static_cast<double>(campus_.seconds()) / Campus::hour, all.events, all.said, all.heard, all.cycles, all.plans,
        all.backups, all.ends, rest.domains, rest.sizes.aps, rest.sizes.away, rest.sessions, rest.sizes.clients,
        rest.sizes.blocked, rest.sizes.heard, rest.longest_queue, rest.reports, rest.files / 1024, rest.heap / 1024,
        static_cast<long long>(wall.count()));
    std::fflush(stdout);
  }

  const int hours_ = number_of_environment("ZAL_SOAK_HOURS", 3);
  const int tell_every_ = hours_ >= 12 ? 6 * rests_per_hour : rests_per_hour;
  zal::testing::TraceFile log_;
  const std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
  const int halls_ = number_of_environment("ZAL_SOAK_HALLS", 3);
  Campus campus_{halls_, static_cast<std::uint64_t>(number_of_environment("ZAL_SOAK_SEED", 1))};
  std::vector<std::size_t> heap_;
  std::size_t longest_queue_ = 0;
};

TEST_F(Soak, TheServerIsTheSameAfterAllThatTime) {
  ASSERT_GE(hours_, 2);
  ASSERT_GE(halls_, 3) << "one goes dark, one is configured anew";
  heap_.reserve(static_cast<std::size_t>(hours_ * rests_per_hour));
  tell_head();
  campus_.begin();
  live_for(hours_);
  if (HasFatalFailure()) return;

  EXPECT_LT(growth(hours_), hours_ >= 24 ? largest_growth_of_days : largest_growth_of_hours);
  EXPECT_LE(longest_queue_, most_queued);
  EXPECT_THAT(campus_.hooks().troubles(), IsEmpty());
  const Totals all = campus_.totals();
  EXPECT_GE(all.fewest_cycles, static_cast<std::uint64_t>(2 * hours_));
  EXPECT_GE(all.plans, 4 * all.cycles);
  EXPECT_EQ(all.ends, campus_.expected_ends()) << "the dark hall and the one that is configured anew";
}

}  // namespace
}  // namespace soak
