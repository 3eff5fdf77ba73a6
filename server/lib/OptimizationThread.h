// The computing part of an optimisation: what it is given, what it answers with, and the thread that it runs on, at
// most one at a time. The thread works on nothing but its own copy of the domain, so the worker serves messages
// meanwhile. Cancelling is cooperative: a stage that has begun runs to its end.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Config.h"
#include "model/ApMap.h"
#include "planning/PlanResult.h"
#include "planning/SpectrumTable.h"

namespace rrm {

struct OptimizationContext {
  ApMap aps;  // a deep copy; its entries have no session
  DomainConfig config;
  bool do_dca = false;
  bool do_tpc = false;
  bool force_dca = false;  // dca_threshold plays no part
  bool do_report = false;
  std::string domain;        // for the report
  std::string reports_path;  // where it goes
};

struct OptimizationResult {
  PlanResult radios;
  bool success = false;
  std::string error_message;  // of a failure
};

// The two stages of the computing, each over the whole copy.
struct OptimizationStages {
  std::function<void(SpectrumTable&, ApMap&, const DomainConfig&, PlanResult&)> channel_pass;
  std::function<void(ApMap&, const DomainConfig&, PlanResult&)> power;
};

// Plans channels, in two passes, and power, and leaves a report; one that cannot be saved does not spoil the plan.
// Never throws: an exception is a failed result. `cancel` is looked at before the channel stage and between the stages.
OptimizationResult run_stages(const OptimizationStages& stages, OptimizationContext& context,
                              const std::atomic<bool>& cancel);
// The same with the domain's own planners.
OptimizationResult run_optimization(OptimizationContext& context, const std::atomic<bool>& cancel);

// All operations are the owner's, on one thread.
class OptimizationThread {
 public:
  using Body = std::function<OptimizationResult(OptimizationContext&, const std::atomic<bool>& cancel)>;
  using Spawn = std::function<std::thread(std::function<void()>)>;

  // `body` is what the thread runs; one that throws ends without a result. `spawn` makes a thread that runs its
  // argument.
  explicit OptimizationThread(Body body, Spawn spawn = spawn_thread);
  ~OptimizationThread() { stop(); }
  OptimizationThread(const OptimizationThread&) = delete;
  OptimizationThread& operator=(const OptimizationThread&) = delete;

  // Waits for an earlier run and drops its result. Where the system has no thread left, the run is done with a failure.
  void start(OptimizationContext context);
  bool started() const { return thread_.joinable(); }
  // A started thread has computed its last; join then returns at once.
  bool done() const { return done_.load(std::memory_order_seq_cst); }
  void join();
  // The result of a thread that was joined; null if there is none.
  std::unique_ptr<OptimizationResult> take_result() { return std::move(result_); }
  // Cancels and joins, then as if nothing had been started.
  void stop();

 private:
  static std::thread spawn_thread(std::function<void()> action);
  void run(OptimizationContext& context) noexcept;

  const Body body_;
  const Spawn spawn_;
  std::thread thread_;  // the owner's thread only

  // Written by one thread, read by the other.
  std::atomic<bool> done_{false};    // set last of all by the thread
  std::atomic<bool> cancel_{false};  // set by the owner

  std::unique_ptr<OptimizationResult> result_;  // the thread's until done_ is set, then the owner's
};

}  // namespace rrm
