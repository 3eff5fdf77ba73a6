// Well-behaved access points of one domain, simulated on a thread of their own. The same seed gives the same site, and
// so the same plan.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "core/mutex.h"
#include "sim/fleet.h"
#include "sim/simulation.h"
#include "sim/site.h"

namespace hostile {

class Campus {
 public:
  Campus(int port, std::size_t size, std::uint64_t seed);
  // Closes the sessions.
  ~Campus();
  Campus(const Campus&) = delete;
  Campus& operator=(const Campus&) = delete;

  static std::string mac(std::size_t ap);
  // How often all of them went through an optimisation together.
  int whole_cycles() const { return whole_cycles_; }
  // What any of them had to say since the start, a line each: refusals, lost sessions.
  std::vector<std::string> complaints() const;
  // What each radio is set to once the access points are gone, a line each.
  std::vector<std::string> plan();

 private:
  bool look();
  void stop();

  const sim::Site site_;
  mutable rrm::Mutex mutex_;
  std::vector<std::string> complaints_ RRM_GUARDED_BY(mutex_);
  sim::Simulation simulation_;
  sim::Fleet fleet_;
  std::atomic<int> whole_cycles_{0};
  std::atomic<bool> is_over_{false};
  std::thread thread_;  // last: it uses all the others
};

}  // namespace hostile
