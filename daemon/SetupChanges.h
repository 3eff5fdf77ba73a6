// Turns the running configuration into the one of a later setup, difference by difference. Every difference is one
// command to the server's interface, which checks it like any other edit and lets it take effect; what is refused is
// logged and left as it was.
//
// Main thread. Neither object is owned; both outlive this one.
#pragma once

#include <string>

#include "ApiZAL.h"

namespace rrm {
class GlobalConfig;
}

class SetupChanges {
 public:
  // `present` is the configuration that the server of `api` runs on.
  SetupChanges(ApiZAL& api, const rrm::GlobalConfig& present) : api_(api), present_(present) {}

  void apply(const rrm::GlobalConfig& next);

 private:
  void issue(const std::string& step, const std::string& command);

  ApiZAL& api_;
  const rrm::GlobalConfig& present_;
};
