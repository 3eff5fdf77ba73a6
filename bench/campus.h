// The site that the benchmarks of planning and steering work on: an office campus, the same on every machine and every
// run.
//
// APs on a square grid 12 m apart, three radios each (2.4 GHz at 20 MHz, 5 GHz and 6 GHz at 80 MHz) with four networks,
// addresses numbered serially out of one block. Every AP hears 300 radios: of the domain the 100 nearest, at levels of
// a log-distance model with a fixed shadow per pair, and 200 strangers. Every radio stands off its list.
#pragma once

#include <cstddef>
#include <vector>

#include "Config.h"
#include "model/ApMap.h"

namespace zal::bench {

inline constexpr std::size_t members_heard = 100;
inline constexpr std::size_t strangers_heard = 200;

// A smaller site hears all of itself. The settings must outlive the site.
rrm::ApMap make_campus(const rrm::DomainConfig& config, int aps);

// CPU time of this thread.
double cpu_milliseconds();

class StopWatch {
 public:
  // Milliseconds of CPU time since the last lap, or since it was made.
  double lap();

 private:
  double last_ = cpu_milliseconds();
};

double median(std::vector<double> values);

// Takes the library's log lines away: without a hook they go to standard output.
void silence_logs();

}  // namespace zal::bench
