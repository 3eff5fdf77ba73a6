// zal_apsim: plays every AP of a simulated site against a controller.
#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "sim/ap_records.h"
#include "sim/fleet.h"
#include "sim/scene.h"
#include "sim/simulation.h"
#include "sim/site.h"
#include "sim/source_addresses.h"

namespace {

volatile std::sig_atomic_t interrupted = 0;

void interrupt(int /*signal*/) {
  interrupted = 1;
}

struct Options {
  std::string server = "ws://127.0.0.1:8099/apb/rrm";
  std::string records;
  sim::SceneOptions scene;
};

void log_line(const std::string& text) {
  std::cerr << text << std::endl;
}

void write_file(const std::filesystem::path& path, const std::string& text) {
  std::ofstream file(path);
  if (!(file << text << std::flush)) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

// Whoever starts the controller needs these first; so nothing is played.
int write_records(const Options& options) {
  const sim::Site site = sim::load_site(options.scene.site);
  const std::string host = sim::ServerAddress::parse(options.server).host;
  const auto boards = sim::boards(site);
  const std::filesystem::path directory = options.records;
  std::filesystem::create_directories(directory);
  write_file(directory / "ap-info.json", sim::ap_records(site, sim::source_addresses(host, site.access_points.size())));
  std::filesystem::remove(directory / "boards.json");  // of another site
  if (boards) {
    write_file(directory / "boards.json", *boards);
  }
  return 0;
}

int run(const Options& options) {
  const sim::Site site = sim::load_site(options.scene.site);
  const auto scene = sim::make_scene(site, options.scene, log_line);
  sim::Simulation simulation(site, log_line, [&](const sim::SteeringEvent& event) { scene->take(event); });
  // Before the fleet's clock begins, so that no event is later than the moment at which it is shown.
  const auto started = std::chrono::steady_clock::now();
  const auto now = [&]() -> sim::Millis {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
  };
  sim::Fleet fleet(simulation, sim::ServerAddress::parse(options.server), log_line);
  std::cout << site.name << ": " << site.access_points.size() << " APs, " << site.foreign_aps.size() << " foreign APs, "
            << site.clients.size() << " clients; domain " << site.domain << " at " << options.server << std::endl;

  fleet.run([&] {
    scene->show(simulation, now());
    return interrupted != 0 || scene->over(simulation, now());
  });
  return scene->end(simulation, now(), interrupted != 0);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"Plays the access points of a simulated site against a controller."};
  app.add_option("--site", options.scene.site, "site file (docs/site-format.md)")->required();
  app.add_option("--server", options.server, "where the controller listens")->capture_default_str();
  app.add_option("--scene", options.scene.scene, "what to show: plan or steering")->capture_default_str();
  app.add_option("--out", options.scene.out,
                 "directory for plan.json, plan-before.svg and plan-after.svg, or for steering.json");
  app.add_flag("--once", options.scene.once,
               "end after the first whole cycle, or with the scene of steering; the status says whether it was as the "
               "site expects");
  app.add_option("--timeout", options.scene.timeout, "with --once: seconds to wait for a whole cycle")
      ->capture_default_str();
  app.add_option(
      "--records", options.records,
      "write what the controller knows of the access points, ap-info.json and boards.json, to this directory "
      "and end");
  CLI11_PARSE(app, argc, argv);
  std::signal(SIGINT, interrupt);
  std::signal(SIGTERM, interrupt);
  std::signal(SIGPIPE, SIG_IGN);
  try {
    return options.records.empty() ? run(options) : write_records(options);
  } catch (const std::exception& error) {
    log_line(std::string("zal_apsim: ") + error.what());
    return 2;
  }
}
