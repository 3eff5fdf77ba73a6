// Turns the running configuration into the one of a later setup, difference by difference, and lets each take effect as
// it should: a change of the global settings restarts the server, a change of a pattern or a domain removes the workers
// of the domains concerned, whose access points come back by subscribing. Every step is one edit of the configuration,
// checked like any other; what it rejects is logged and left as it was.
//
// Main thread. Neither object is owned; both outlive this one.
#pragma once

#include <list>
#include <string>

namespace rrm {
class GlobalConfig;
class JsonWriter;
class RRM;
}  // namespace rrm

class SetupChanges {
 public:
  SetupChanges(rrm::GlobalConfig& config, rrm::RRM& server) : config_(config), server_(server) {}

  void apply(const rrm::GlobalConfig& next);

 private:
  void set_global(const rrm::GlobalConfig& next);
  void set_pattern(const std::string& name, const rrm::GlobalConfig& next);
  void add_pattern(const std::string& name, const rrm::GlobalConfig& next);
  void remove_pattern(const std::string& name);
  void set_domain(const std::string& domain, const rrm::GlobalConfig& next);
  void add_domain(const std::string& domain, const rrm::GlobalConfig& next);
  void remove_domain(const std::string& domain);

  std::list<std::string> domains_of(const std::string& pattern) const;
  void drop_workers(const std::list<std::string>& domains, bool changed);
  // Logs why a step was refused, and the values that its check rejected.
  void report(const std::string& step, bool done, bool failed, const rrm::JsonWriter& invalid_parameters) const;

  rrm::GlobalConfig& config_;
  rrm::RRM& server_;
};
