// zal_rrm, the radio-resource-management server of a wireless LAN controller. The controller's supervisor starts it; it
// takes no arguments. Every failure before the service ends the process with exit status 255.
#include <cstdio>
#include <cstdlib>

#include "events.h"
#include "service.h"
#include "startup.h"
#include "trace.h"
#include "zal/Trace.h"
#include "zal/backtrace.h"

namespace {

constexpr int exit_failure = -1;

int run(char* const* argv) {
  if (!has_awaited_name(argv[0])) {
    std::fprintf(stderr, "wrong process_name: got %s != awaited %s\n", argv[0] ? argv[0] : "", process_name);
    return exit_failure;
  }
  if (std::atexit(zal::Trace::global_deinit) != 0) {
    std::fprintf(stderr, "cannot set exit function\n");
    return exit_failure;
  }
  zal::Trace::global_init(process_name);
  zal::backtrace_init(argv);
  catch_sighup();
  if (!std::getenv("ZAL_SUPERVISOR")) {
    trace.error("Cannot be run in standalone mode");
    return exit_failure;
  }
  pin_to_cpu(choose_cpu());
  install_report_hooks();
  create_directories();
  return serve();
}

}  // namespace

int main(int, char** argv) {
  return status_of([argv] { return run(argv); });
}
