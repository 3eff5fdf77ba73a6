// The command line's end of the control socket: one request, and the frames that answer it. It waits for them. For one
// thread.
#pragma once

#include <optional>

#include "controller/StateDir.h"
#include "platform/bus/Connection.h"
#include "platform/bus/Frame.h"

namespace controller {

class ControlClient {
 public:
  // Throws std::runtime_error if no controller runs in the directory.
  explicit ControlClient(const StateDir& state);

  // Throws std::runtime_error if the controller goes away.
  void send(const zal::bus::Fields& request);
  // The next frame. Throws std::runtime_error if the controller goes away or the frame tells a failure.
  zal::bus::Fields receive();

 private:
  void wait_for(short events);

  zal::bus::Connection connection_;
};

}  // namespace controller
