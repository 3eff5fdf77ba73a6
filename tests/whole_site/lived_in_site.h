// A simulated site under a controller, as those see it to whom things happen there.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Config.h"
#include "sim/simulation.h"

namespace whole_site {

class LivedInSite {
 public:
  virtual ~LivedInSite() = default;

  virtual sim::Simulation& simulation() = 0;
  virtual const rrm::DomainConfig& settings() const = 0;
  virtual std::int64_t seconds() const = 0;

  virtual void second() = 0;
  // All that was said is heard.
  virtual void exchange() = 0;

  // Sessions.
  virtual void connect(std::size_t ap) = 0;
  virtual void disconnect(std::size_t ap) = 0;
  // The AP leaves the domain, and its session stays.
  virtual void unsubscribe(std::size_t ap) = 0;

  // Orders of an operator.
  virtual void pause_balancing() = 0;
  virtual bool force_optimization() = 0;
};

}  // namespace whole_site
