// Benchmarks of one thing done in two ways: ours, and an anchor's. Each is registered under "what/way" and counts bytes
// or items; all are repeated in random order, so that a disturbed machine disturbs both, and medians are compared.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "Measures.h"

namespace zal::bench {

class Comparison final : public benchmark::BenchmarkReporter {
 public:
  // `goals` are the ratios to reach, by what is done; an empty one for all others.
  Comparison(Measures& measures, std::string ours, std::string anchor, std::map<std::string, std::string> goals = {});

  // Runs what is registered, with the options of the command line.
  int run(int argc, char** argv);

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

 private:
  void tell();

  Measures& measures_;
  const std::string ours_;
  const std::string anchor_;
  const std::map<std::string, std::string> goals_;
  bool failed_ = false;
  std::string unit_;
  std::map<std::string, std::map<std::string, std::vector<double>>> rates_;
};

}  // namespace zal::bench
