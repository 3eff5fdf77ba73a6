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

// Every report of the index can be read back, and every file ends with a whole line.
std::vector<std::string> faults_of_reports(const std::string& domain, const std::string& path, std::size_t& reports);

}  // namespace soak
