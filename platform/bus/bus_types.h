// The frames that the standalone bus itself needs, beside the controller's message family; their numbers lie above all
// of the family's. docs/ipc.md tells the fields of both in one table.
#pragma once

namespace zal::bus {

enum BusType : int {
  bus_open = 1000,    // process to controller: a port joins, again after each lost connection
  bus_ready = 1001,   // process to controller: ready, waiting for the run order
  bus_run = 1002,     // controller to process: run
  bus_alarm = 1003,   // process to controller: the optimisation status of a location changed
  bus_served = 1004,  // process to controller: the frame with this id was served, with this result
};

// Environment variable of a process: the path of the controller's bus socket.
constexpr const char* bus_variable = "ZAL_BUS";

}  // namespace zal::bus
