// The service of the process: from the port on the bus to the end of the main loop. Main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "RadioRM.h"
#include "zal/IpcPort.h"

// From here on SIGHUP asks for the logging configuration to be read again; the main loop does it.
void catch_sighup();

// One pass after another until the port is finalised: the bus, the two slow timers, SIGHUP.
class MainLoop {
 public:
  MainLoop(zal::IpcPort& port, RadioRM& radio) : port_(port), radio_(radio) {}

  void run();

 private:
  void pass();
  // Once a second, as the clock's whole seconds change.
  void tick();

  zal::IpcPort& port_;
  RadioRM& radio_;
  std::optional<std::int64_t> last_second_;
};

// Opens the port, waits for the supervisor's run order and serves. The result is the exit status of the process.
int serve(const std::string& backup_directory = RadioRM::usual_backup_directory);

// The exit status that the body gives, or that of a failure after what it threw was logged.
int status_of(const std::function<int()>& body);
