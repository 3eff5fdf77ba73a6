// What holds in a domain at any moment, and in the files of its reports. Each function tells what does not.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "RrmWorker.h"
#include "sim/mac.h"

namespace soak {

// How much a domain holds.
struct Sizes {
  std::size_t aps = 0;
  std::size_t away = 0;     // gone or silent
  std::size_t clients = 0;  // with those that are expected
  std::size_t blocked = 0;  // on blacklists
  std::size_t heard = 0;    // of members and of others

  Sizes& operator+=(const Sizes& other);
};

// `sessions` are the numbers of those that live, ascending; `served` the access points that know themselves served.
std::vector<std::string> faults_of(rrm::RrmWorker& domain, const std::vector<std::uint32_t>& sessions,
                                   const std::vector<sim::Mac>& served, Sizes& sizes);

// What a look has found of the reports of a domain.
struct SeenReports {
  std::size_t count = 0;
  std::string oldest;
  std::size_t looks = 0;
};

// The reports that are new since the last look can be read back, and an older one, each in its turn, or all of them
// when some have been deleted; every file ends with a whole line.
std::vector<std::string> faults_of_reports(const std::string& domain, const std::string& path, SeenReports& seen);

}  // namespace soak
