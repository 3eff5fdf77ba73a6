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
#include <string>
#include <vector>

#include "Measures.h"
#include "campus.h"
#include "planning/dca.h"
#include "planning/tpc.h"
#include "tests/planning/describe.h"
#include "tests/planning/plain_dca.h"
#include "tests/planning/plain_tpc.h"

namespace {

using namespace rrm;
using namespace zal::bench;

constexpr int rounds = 9;
constexpr int sizes[] = {125, 250, 500, 1000, 2000, 4000, 8000};
constexpr const char* time_goal = "150";
constexpr const char* growth_goal = "2.2";

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

// A step of a plan by its name.
struct Step {
  const char* name;
  double (*time)(const Times&);
};

const Step whole{"whole plan", [](const Times& times) { return times.total(); }};
const Step parts[] = {
    {"copy", [](const Times& times) { return times.copy; }},
    {"first channel pass", [](const Times& times) { return times.pass_1; }},
    {"second channel pass", [](const Times& times) { return times.pass_2; }},
    {"power", [](const Times& times) { return times.power; }},
};

struct Size {
  int count;
  ApMap site;
  std::vector<Run> runs;

  std::string label(const Step& step) const { return std::string(step.name) + "/" + std::to_string(count) + " APs"; }
};

double median_time(const Size& size, const Step& step) {
  std::vector<double> values;
  for (const Run& run : size.runs) values.push_back(step.time(run.times));
  return median(values);
}

// Size against size within each round, so that whatever slows the machine down for a while slows both.
double growth(const Size& smaller, const Size& larger, const Step& step) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < larger.runs.size(); ++i) {
    ratios.push_back(step.time(larger.runs[i].times) / step.time(smaller.runs[i].times));
  }
  return median(ratios);
}

void check_moves(const Size& size) {
  const Run& run = size.runs.front();
  std::printf("%d APs: moved %zu, then %zu; lowered %zu, raised %zu\n", size.count, run.first.moved, run.second.moved,
              run.power.lowered, run.power.raised);
  if (run.first.moved == Radios::count * size.site.size()) return;
  std::fprintf(stderr, "not every radio moved in the first pass\n");
  std::exit(EXIT_FAILURE);
}

void add_times(Measures& measures, const std::vector<Size>& measured, const Step& step, int goal_size = 0) {
  for (const Size& size : measured) {
    measures.add({size.label(step), median_time(size, step), "ms", {}, size.count == goal_size ? time_goal : ""});
  }
}

void add_growth(Measures& measures, const std::vector<Size>& measured, const Step& step, const char* goal = "") {
  for (std::size_t i = 1; i < measured.size(); ++i) {
    const double factor = growth(measured[i - 1], measured[i], step);
    measures.add({"growth of " + measured[i].label(step), factor, "x", {}, goal});
  }
}

}  // namespace

int main(int argc, char** argv) {
  Measures measures(argc, argv);
  silence_logs();
  if (!same_as_plain(100)) {
    std::fprintf(stderr, "the plan of a site of 100 APs differs from the plain version's\n");
    return EXIT_FAILURE;
  }
  const DomainConfig config;
  std::vector<Size> measured;
  for (const int count : sizes) measured.push_back({count, make_campus(config, count), {}});
  for (int round = 0; round < rounds; ++round) {
    for (Size& size : measured) size.runs.push_back(plan(size.site, config));
  }
  for (const Size& size : measured) check_moves(size);
  add_times(measures, measured, whole, 1000);
  add_growth(measures, measured, whole, growth_goal);
  for (const Step& part : parts) {
    add_times(measures, measured, part);
    add_growth(measures, measured, part);
  }
  measures.write();
  return EXIT_SUCCESS;
}
