#include "sim/scene.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <utility>

#include "sim/floor_plan.h"
#include "sim/report.h"
#include "sim/steering_figures.h"
#include "sim/steering_report.h"

namespace sim {
namespace {

constexpr Millis table_every_ms = 30'000;

bool all_passed(const std::vector<Check>& checks) {
  return std::all_of(checks.begin(), checks.end(), [](const Check& check) { return check.passed; });
}

void write_file(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << text) || !file.flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

// The cycles of the controller: each with its table and its floor plans.
class PlanScene : public Scene {
 public:
  PlanScene(const Site& site, SceneOptions options, Log log)
      : site_(site), options_(std::move(options)), log_(std::move(log)) {}

  void take(const SteeringEvent&) override {}

  void show(Simulation& simulation, Millis) override {
    while (const auto cycle = simulation.take_result()) {
      show_cycle(*cycle);
    }
  }

  bool over(const Simulation& simulation, Millis now) const override {
    return options_.once && (simulation.whole_cycles() > 0 || now > options_.timeout * Millis{1000});
  }

  int end(const Simulation& simulation, Millis, bool interrupted) override {
    if (!options_.once) {
      return 0;
    }
    if (simulation.whole_cycles() == 0) {
      log_("no whole cycle " +
           (interrupted ? "before the interruption" : "in " + std::to_string(options_.timeout) + " s") + ": " +
           simulation.missing());
      return 1;
    }
    if (!first_passed_) {
      log_("the plan does not meet the expectations of " + options_.site);
      return 1;
    }
    return 0;
  }

 private:
  void show_cycle(const CycleResult& cycle) {
    // A site expects what it says of the plan that takes it over from its installer, not of those that follow.
    const auto checks = cycle.number == 1 ? check_plan(site_, cycle) : std::vector<Check>{};
    std::cout << plan_table(site_, cycle, checks) << std::flush;
    if (cycle.number == 1) {
      first_passed_ = all_passed(checks);
    }
    if (!options_.out.empty()) {
      write_files(cycle, checks);
    }
  }

  void write_files(const CycleResult& cycle, const std::vector<Check>& checks) const {
    const std::filesystem::path directory = options_.out;
    const std::string number = std::to_string(cycle.number);
    const std::string stem = cycle.number == 1 ? "plan" : "plan-" + number;
    write_file(directory / (stem + ".json"), plan_json(site_, cycle, checks));
    write_file(directory / (stem + "-before.svg"),
               floor_plan_svg(site_, cycle.before, site_.name + ": before cycle " + number));
    write_file(directory / (stem + "-after.svg"),
               floor_plan_svg(site_, cycle.after, site_.name + ": after cycle " + number));
    std::cout << "written: " << (directory / (stem + ".json")).string() << ", " << stem << "-before.svg, " << stem
              << "-after.svg" << std::endl;
  }

  const Site& site_;
  const SceneOptions options_;
  const Log log_;
  bool first_passed_ = false;
};

// The clients: a table every half minute, and the checks at the last moment of the site's window.
class SteeringScene : public Scene {
 public:
  SteeringScene(const Site& site, const SteeringWindow& window, SceneOptions options, Log log)
      : site_(site), window_(window), options_(std::move(options)), log_(std::move(log)), ledger_(site, window) {}

  void take(const SteeringEvent& event) override { ledger_.take(event); }

  void show(Simulation&, Millis now) override {
    if (!judged_ && now >= last_moment()) {
      judge(now);
    } else if (now >= next_table_) {
      std::cout << steering_table(site_, window_, ledger_.figures(now), {}) << std::flush;
    }
    while (next_table_ <= now) {
      next_table_ += table_every_ms;
    }
  }

  bool over(const Simulation&, Millis) const override { return options_.once && judged_; }

  int end(const Simulation&, Millis now, bool interrupted) override {
    if (interrupted) {
      std::cout << steering_table(site_, window_, ledger_.figures(now), {}) << std::flush;
    }
    if (!options_.once) {
      return 0;
    }
    if (!judged_) {
      log_("interrupted before the scene was over");
      return 1;
    }
    for (const Check& check : checks_) {
      if (!check.passed) {
        log_("not as expected: " + check.name + ": " + check.measured);
      }
    }
    return all_passed(checks_) ? 0 : 1;
  }

 private:
  Millis last_moment() const { return static_cast<Millis>(window_.after_s * 1000); }

  void judge(Millis now) {
    judged_ = true;
    const SteeringFigures figures = ledger_.figures(now);
    checks_ = check_steering(site_, figures);
    std::cout << steering_table(site_, window_, figures, checks_) << std::flush;
    if (!options_.out.empty()) {
      const auto path = std::filesystem::path(options_.out) / "steering.json";
      write_file(path, steering_json(site_, window_, figures, checks_));
      std::cout << "written: " << path.string() << std::endl;
    }
  }

  const Site& site_;
  const SteeringWindow window_;
  const SceneOptions options_;
  const Log log_;
  SteeringLedger ledger_;
  Millis next_table_ = table_every_ms;
  bool judged_ = false;
  std::vector<Check> checks_;
};

}  // namespace

std::unique_ptr<Scene> make_scene(const Site& site, const SceneOptions& options, Log log) {
  if (options.scene != "plan" && options.scene != "steering") {
    throw std::runtime_error("no scene \"" + options.scene + "\"; there are plan and steering");
  }
  if (options.scene == "steering" && !site.steering) {
    throw std::runtime_error("no scene of steering in " + options.site + ": it has no \"steering\"");
  }
  if (options.scene == "steering" && options.once && site.expectations.steering == SteeringExpectations{}) {
    throw std::runtime_error("nothing to judge in " + options.site + ": it expects nothing of steering");
  }
  if (!options.out.empty()) {
    std::filesystem::create_directories(options.out);
  }
  if (options.scene == "plan") {
    return std::make_unique<PlanScene>(site, options, std::move(log));
  }
  return std::make_unique<SteeringScene>(site, *site.steering, options, std::move(log));
}

}  // namespace sim
