// What the commands of zalctl share: where the controller is, how answers are wanted, and how to ask. Everything that
// fails throws std::runtime_error, whose text is for the person who asked.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "controller/StateDir.h"
#include "platform/bus/Frame.h"

namespace controller {

struct CtlBase {
  std::string state = ".zal";
  bool json = false;  // answers as they came, one object a line

  StateDir directory() const { return StateDir(state); }
};

// What the command that was given does.
using CtlAction = std::function<void()>;

// One line, or lines that end with a line break already.
void print(const std::string& line);
void print_lines(const std::string& lines);

// One request to the controller, and its answer.
zal::bus::Fields ask(const CtlBase& base, const zal::bus::Fields& request);
// A message to the daemon: the controller's answer, or the frame of this type with which the daemon answered. The
// controller waits for it, at most so many seconds and never more than 30.
zal::bus::Fields send_message(const CtlBase& base, const zal::bus::Fields& message);
zal::bus::Fields ask_daemon(const CtlBase& base, const zal::bus::Fields& message, int reply_type,
                            std::int64_t patience_seconds = 30);

}  // namespace controller
