// zal_controller: starts zal_rrm, plays the controller for it, and stops it.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "controller/Controller.h"
#include "controller/files.h"

namespace {

namespace fs = std::filesystem;

struct Options {
  std::string state = ".zal";
  std::string setup;
  std::string ap_info;
  std::string daemon;
  int vrrp = 1;
  bool host_paths = false;
};

// Beside this program, as installed, or where the build leaves it.
fs::path find_daemon() {
  const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
  for (const fs::path& candidate : {here / "zal_rrm", here.parent_path() / "daemon" / "zal_rrm"})
    if (fs::is_regular_file(candidate)) return candidate;
  throw std::runtime_error("no zal_rrm beside this program: name it by --daemon");
}

void add_options(CLI::App& app, Options& options) {
  app.add_option("--state", options.state, "directory of everything that is written")
      ->capture_default_str()
      ->type_name("DIR");
  app.add_option("--setup", options.setup, "file of the setup that the daemon gets")->type_name("FILE");
  app.add_option("--vrrp", options.vrrp, "VRRP state: 0 or 1 master, 2 standby, 3 undecided")
      ->check(CLI::Range(0, 3))
      ->capture_default_str()
      ->type_name("N");
  app.add_option("--ap-info", options.ap_info, "file of AP records: a JSON array of objects with \"mac\"")
      ->type_name("FILE");
  app.add_option("--daemon", options.daemon, "the zal_rrm to start; by default the one beside this program")
      ->type_name("PROGRAM");
  app.add_flag("--host-paths", options.host_paths, "no private view: /etc/zal and /mnt/data/zal are the host's own");
}

int run(const Options& options) {
  controller::Site site;
  site.vrrp_state = options.vrrp;
  if (!options.setup.empty()) site.setup = controller::read_setup(options.setup);
  if (!options.ap_info.empty()) site.ap_records = controller::read_ap_records(options.ap_info);
  const controller::DaemonCommand command{options.daemon.empty() ? find_daemon() : fs::absolute(options.daemon),
                                          options.host_paths};
  return controller::Controller(controller::StateDir(options.state), command, std::move(site)).run();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("Starts zal_rrm and plays the wireless LAN controller for it.", "zal_controller");
  add_options(app, options);
  CLI11_PARSE(app, argc, argv);
  try {
    return run(options);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zal_controller: %s\n", e.what());
    return 1;
  }
}
