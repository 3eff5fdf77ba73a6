// What a domain worker does beyond its membership: one job each, with timers of its own. A sub-worker has no thread;
// all its operations run on the worker's thread, or with the worker's mutex held. The worker owns it and outlives it,
// and with it the settings and the three sets of APs that a sub-worker works on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/TimerList.h"
#include "protocol/IncomingMessage.h"

namespace rrm {

class ApEntry;
class ApMap;
class JsonReader;
class RrmWorker;
struct DomainConfig;
struct Radio;

class IRrmSubworker {
 public:
  IRrmSubworker(const IRrmSubworker&) = delete;
  IRrmSubworker& operator=(const IRrmSubworker&) = delete;

  // The domain's picture changed enough to need a new plan.
  virtual void force_optimization() = 0;
  // A message of an AP that the worker found in one of its sets; true if this sub-worker takes such messages.
  virtual bool process_message(const JsonReader& json, protocol::Command command,
                               const std::shared_ptr<ApEntry>& ap) = 0;
  // The periodic work.
  virtual void process_timer() = 0;
  // The worker ends: nothing of this sub-worker may run on any thread when it returns.
  virtual void stop() = 0;
  virtual ~IRrmSubworker();

  // Once a pass.
  void run_timers() { timers_.run_due(); }

 protected:
  explicit IRrmSubworker(RrmWorker& worker);

  // The AP's radio of this number; null, with a warning that names what is skipped, if it has none.
  static Radio* find_radio(ApEntry& ap, std::int32_t radio_id, const char* what);

  RrmWorker& worker_;
  const DomainConfig& config_;
  const std::string& domain_;
  ApMap& aps_;
  ApMap& deleted_aps_;
  ApMap& unanswered_aps_;
  TimerList timers_;
};

}  // namespace rrm
