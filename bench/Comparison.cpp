#include "Comparison.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace zal::bench {
namespace {

double median(std::vector<double>& values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

Comparison::Comparison(Measures& measures, std::string ours, std::string anchor,
                       std::map<std::string, std::string> goals)
    : measures_(measures), ours_(std::move(ours)), anchor_(std::move(anchor)), goals_(std::move(goals)) {}

int Comparison::run(int argc, char** argv) {
  std::vector<std::string> defaults{argv[0], "--benchmark_repetitions=11", "--benchmark_min_time=0.05",
                                    "--benchmark_enable_random_interleaving=true"};
  std::vector<char*> arguments;
  for (std::string& argument : defaults) arguments.push_back(argument.data());
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  benchmark::RunSpecifiedBenchmarks(this);
  if (failed_) return 1;
  tell();
  return 0;
}

bool Comparison::ReportContext(const Context& context) {
  PrintBasicContext(&GetErrorStream(), context);
  return true;
}

void Comparison::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      failed_ = true;
    } else if (run.run_type == Run::RT_Iteration) {
      const bool counts_bytes = run.counters.count("bytes_per_second") > 0;
      unit_ = counts_bytes ? "MB/s" : "1/us";
      const std::string name = run.run_name.function_name;
      const std::size_t slash = name.rfind('/');
      rates_[name.substr(0, slash)][name.substr(slash + 1)].push_back(
          run.counters.at(counts_bytes ? "bytes_per_second" : "items_per_second") / 1e6);
    }
  }
}

void Comparison::tell() {
  for (auto& [what, by_way] : rates_) {
    Measure measure{what, median(by_way[ours_]), unit_};
    const double theirs = median(by_way[anchor_]);
    if (theirs > 0) measure.anchor = Anchor{anchor_, theirs, measure.value / theirs};
    const auto goal = goals_.find(what);
    if (goal != goals_.end()) measure.goal = goal->second;
    measures_.add(std::move(measure));
    for (auto& [way, rates] : by_way) {
      if (way != ours_ && way != anchor_) measures_.add({what + ", " + way, median(rates), unit_});
    }
  }
}

}  // namespace zal::bench
