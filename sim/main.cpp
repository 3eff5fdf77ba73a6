// zal_apsim: plays every AP of a simulated site against a controller.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "sim/fleet.h"
#include "sim/floor_plan.h"
#include "sim/report.h"
#include "sim/simulation.h"
#include "sim/site.h"

namespace {

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int /*signal*/) {
  interrupted = 1;
}

struct Options {
  std::string site;
  std::string server = "ws://127.0.0.1:8099/apb/rrm";
  std::string out;
  bool once = false;
  int timeout = 300;
};

void log_line(const std::string& text) {
  std::cerr << text << std::endl;
}

// "plan" for the first cycle, "plan-2" for the second.
std::string file_stem(int cycle) {
  return cycle == 1 ? "plan" : "plan-" + std::to_string(cycle);
}

void write_file(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << text) || !file.flush()) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

// Takes the results of the cycles as they come.
class Reporter {
 public:
  Reporter(const sim::Site& site, const Options& options) : site_(site), options_(options) {
    if (!options.out.empty()) {
      std::filesystem::create_directories(options.out);
    }
  }

  void take(const sim::CycleResult& cycle) {
    // A site expects what it says of the plan that takes it over from its installer, not of those that follow.
    const auto checks = cycle.number == 1 ? sim::check_plan(site_, cycle) : std::vector<sim::Check>{};
    std::cout << sim::plan_table(site_, cycle, checks) << std::flush;
    if (cycle.number == 1) {
      first_passed_ = std::all_of(checks.begin(), checks.end(), [](const sim::Check& check) { return check.passed; });
    }
    if (!options_.out.empty()) {
      write_files(cycle, checks);
    }
  }

  bool first_passed() const { return first_passed_; }

 private:
  void write_files(const sim::CycleResult& cycle, const std::vector<sim::Check>& checks) const {
    const std::filesystem::path directory = options_.out;
    const std::string stem = file_stem(cycle.number);
    const std::string ordinal = "cycle " + std::to_string(cycle.number);
    write_file(directory / (stem + ".json"), sim::plan_json(site_, cycle, checks));
    write_file(directory / (stem + "-before.svg"),
               sim::floor_plan_svg(site_, cycle.before, site_.name + ": before " + ordinal));
    write_file(directory / (stem + "-after.svg"),
               sim::floor_plan_svg(site_, cycle.after, site_.name + ": after " + ordinal));
    std::cout << "written: " << (directory / (stem + ".json")).string() << ", " << stem << "-before.svg, " << stem
              << "-after.svg" << std::endl;
  }

  const sim::Site& site_;
  const Options& options_;
  bool first_passed_ = false;
};

bool timed_out(const Options& options, std::chrono::steady_clock::time_point started) {
  return options.once && std::chrono::steady_clock::now() - started > std::chrono::seconds(options.timeout);
}

int run(const Options& options) {
  const sim::Site site = sim::load_site(options.site);
  Reporter reporter(site, options);
  sim::Simulation simulation(site, log_line);
  sim::Fleet fleet(simulation, sim::ServerAddress::parse(options.server), log_line);
  std::cout << site.name << ": " << site.access_points.size() << " APs, " << site.foreign_aps.size() << " foreign APs, "
            << site.clients.size() << " clients; domain " << site.domain << " at " << options.server << std::endl;

  const auto started = std::chrono::steady_clock::now();
  fleet.run([&] {
    while (const auto cycle = simulation.take_result()) {
      reporter.take(*cycle);
    }
    return interrupted != 0 || timed_out(options, started) || (options.once && simulation.whole_cycles() > 0);
  });
  if (!options.once) {
    return 0;
  }
  if (simulation.whole_cycles() == 0) {
    log_line("no whole cycle " +
             (interrupted != 0 ? "before the interruption" : "in " + std::to_string(options.timeout) + " s") + ": " +
             simulation.missing());
    return 1;
  }
  if (!reporter.first_passed()) {
    log_line("the plan does not meet the expectations of " + options.site);
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Plays the access points of a simulated site against a controller."};
  app.add_option("--site", options.site, "site file (docs/site-format.md)")->required();
  app.add_option("--server", options.server, "where the controller listens")->capture_default_str();
  app.add_option("--out", options.out, "directory for plan.json, plan-before.svg and plan-after.svg");
  app.add_flag("--once", options.once, "end after the first whole cycle; the status says whether the plan is good");
  app.add_option("--timeout", options.timeout, "with --once: seconds to wait for that cycle")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGINT, interrupt);
  std::signal(SIGTERM, interrupt);
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return run(options);
  } catch (const std::exception& error) {
    log_line(std::string("zal_apsim: ") + error.what());
    return 2;
  }
}
