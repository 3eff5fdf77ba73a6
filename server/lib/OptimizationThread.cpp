#include "OptimizationThread.h"

#include <exception>
#include <system_error>
#include <utility>

#include "core/clock.h"
#include "planning/dca.h"
#include "planning/tpc.h"
#include "report_optimize_tpc_dca.h"
#include "reports/lines.h"

namespace rrm {
namespace {

OptimizationResult failure(std::string message) {
  OptimizationResult result;
  result.error_message = std::move(message);
  return result;
}

OptimizationResult failure_of(const std::exception& error) {
  return failure(std::string("exception during optimization: ") + error.what());
}

// The second pass sees the channels that the first one chose.
PlanResult plan_channels(const OptimizationStages& stages, OptimizationContext& context) {
  SpectrumTable table;
  if (context.force_dca) table.ignore_dca_threshold = true;
  PlanResult result;
  stages.channel_pass(table, context.aps, context.config, result);
  stages.channel_pass(table, context.aps, context.config, result);
  return result;
}

// The report of one run: what the radios have before, then what they have after.
class RunReport {
 public:
  explicit RunReport(const OptimizationContext& context)
      : context_(context), date_(reports::report_date_text(wall_seconds().value_or(0))) {
    if (context_.do_report) reports::remember_radio_report_before_optimize(report_, date_, context_.aps);
  }

  void finish() {
    if (!context_.do_report) return;
    reports::remember_radio_report_after_optimize(report_, date_, context_.aps);
    reports::save_radio_report_to_files(report_, context_.domain, date_, context_.reports_path, context_.config);
  }

 private:
  const OptimizationContext& context_;
  const std::string date_;
  reports::RadioReport report_;
};

OptimizationResult compute(const OptimizationStages& stages, OptimizationContext& context,
                           const std::atomic<bool>& cancel) {
  RunReport report(context);
  if (cancel) return failure("cancelled before DCA");
  PlanResult by_channel;
  if (context.do_dca) by_channel = plan_channels(stages, context);
  if (cancel) return failure("cancelled after DCA");
  OptimizationResult result;
  if (context.do_tpc) stages.power(context.aps, context.config, result.radios);
  // Both stages work on the same copy: where power control has an entry, that carries the new channels too.
  result.radios.merge(by_channel);
  report.finish();
  result.success = true;
  return result;
}

}  // namespace

OptimizationResult run_stages(const OptimizationStages& stages, OptimizationContext& context,
                              const std::atomic<bool>& cancel) {
  try {
    return compute(stages, context, cancel);
  } catch (const std::exception& error) {
    return failure_of(error);
  } catch (...) {
    return failure("non-standard exception during optimization");
  }
}

OptimizationResult run_optimization(OptimizationContext& context, const std::atomic<bool>& cancel) {
  return run_stages({run_dca_pass, run_tpc}, context, cancel);
}

OptimizationThread::OptimizationThread(Body body, Spawn spawn) : body_(std::move(body)), spawn_(std::move(spawn)) {}

std::thread OptimizationThread::spawn_thread(std::function<void()> action) {
  return std::thread(std::move(action));
}

void OptimizationThread::start(OptimizationContext context) {
  join();
  done_ = false;
  cancel_ = false;
  result_.reset();
  const auto shared = std::make_shared<OptimizationContext>(std::move(context));
  try {
    thread_ = spawn_([this, shared] { run(*shared); });
  } catch (const std::system_error& error) {
    result_ = std::make_unique<OptimizationResult>(failure_of(error));
    done_ = true;
  }
}

void OptimizationThread::run(OptimizationContext& context) noexcept {
  try {
    result_ = std::make_unique<OptimizationResult>(body_(context, cancel_));
  } catch (...) {
    result_.reset();
  }
  done_ = true;
}

void OptimizationThread::join() {
  if (thread_.joinable()) thread_.join();
}

void OptimizationThread::stop() {
  cancel_ = true;
  join();
  done_ = false;
  result_.reset();
}

}  // namespace rrm
