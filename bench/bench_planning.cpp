// How a planning run grows with the site: deep copy, two channel passes, power run, as the optimisation thread does
// them.
//
// The campus of campus.h, where in the first pass every radio moves.
//
// Grows along one dimension, the number of APs. Before any time is taken the plan of a small site is compared with that
// of the plain version. Times are CPU time of the thread, the median of several rounds over all sizes; the growth is
// the median of the ratios within each round.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "campus.h"
#include "planning/dca.h"
#include "planning/tpc.h"
#include "tests/planning/describe.h"
#include "tests/planning/plain_dca.h"
#include "tests/planning/plain_tpc.h"

namespace {

using namespace rrm;
using namespace zal::bench;

constexpr int rounds = 15;
constexpr int sizes[] = {125, 250, 500, 1000, 2000};

struct Times {
  double copy = 0;
  double pass_1 = 0;
  double pass_2 = 0;
  double power = 0;
  double total() const { return copy + pass_1 + pass_2 + power; }
};

struct Run {
  Times times;
  ChannelPassSummary first;
  ChannelPassSummary second;
  PowerRunSummary power;
};

// Every run starts without memory left over from an earlier one, so that all sizes pay for theirs alike.
Run plan(const ApMap& site, const DomainConfig& config) {
  malloc_trim(0);
  Run run;
  PlanResult channels;
  PlanResult power;
  SpectrumTable table;
  StopWatch watch;
  ApMap copy = site.clone();
  run.times.copy = watch.lap();
  run.first = run_dca_pass(table, copy, config, channels);
  run.times.pass_1 = watch.lap();
  run.second = run_dca_pass(table, copy, config, channels);
  run.times.pass_2 = watch.lap();
  run.power = run_tpc(copy, config, power);
  run.times.power = watch.lap();
  return run;
}

bool same_as_plain(int count) {
  const DomainConfig config;
  ApMap ours = make_campus(config, count);
  ApMap plain = ours.clone();
  PlanResult our_results;
  PlanResult plain_results;
  SpectrumTable table;
  testing::PlainTable plain_table;
  for (int pass = 0; pass < 2; ++pass) {
    run_dca_pass(table, ours, config, our_results);
    testing::plain_dca_pass(plain_table, plain, config, plain_results);
  }
  run_tpc(ours, config, our_results);
  testing::plain_tpc(plain, config, plain_results);
  return testing::describe_radios(ours) == testing::describe_radios(plain) &&
         testing::describe(our_results) == testing::describe(plain_results);
}

double median_of(const std::vector<Run>& runs, double (*value)(const Times&)) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(value(run.times));
  return median(values);
}

// Size against size within each round, so that whatever slows the machine down for a while slows both.
double growth(const std::vector<Run>& smaller, const std::vector<Run>& larger) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < larger.size(); ++i) ratios.push_back(larger[i].times.total() / smaller[i].times.total());
  return median(ratios);
}

void print_row(int count, const std::vector<Run>& runs, const std::vector<Run>* smaller) {
  std::printf(
      "%5d %6d %9.2f %9.2f %9.2f %9.2f %9.2f", count, 3 * count, median_of(runs, [](const Times& t) { return t.copy; }),
      median_of(runs, [](const Times& t) { return t.pass_1; }),
      median_of(runs, [](const Times& t) { return t.pass_2; }), median_of(runs, [](const Times& t) { return t.power; }),
      median_of(runs, [](const Times& t) { return t.total(); }));
  smaller != nullptr ? std::printf("   x %.2f", growth(*smaller, runs)) : std::printf("         ");
  const Run& run = runs.front();
  std::printf("   moved %zu + %zu, lowered %zu, raised %zu\n", run.first.moved, run.second.moved, run.power.lowered,
              run.power.raised);
}

}  // namespace

int main() {
  silence_logs();
  if (!same_as_plain(100)) {
    std::fprintf(stderr, "the plan of a site of 100 APs differs from the plain version's\n");
    return EXIT_FAILURE;
  }
  const DomainConfig config;
  std::vector<ApMap> sites;
  for (const int count : sizes) sites.push_back(make_campus(config, count));

  std::vector<std::vector<Run>> runs(sites.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sites.size(); ++i) runs[i].push_back(plan(sites[i], config));
  }
  std::printf("  APs radios   copy ms pass 1 ms pass 2 ms  power ms  total ms   growth\n");
  for (std::size_t i = 0; i < sites.size(); ++i) {
    if (runs[i].front().first.moved != 3 * sites[i].size()) {
      std::fprintf(stderr, "not every radio moved in the first pass\n");
      return EXIT_FAILURE;
    }
    print_row(sizes[i], runs[i], i == 0 ? nullptr : &runs[i - 1]);
  }
  return EXIT_SUCCESS;
}
