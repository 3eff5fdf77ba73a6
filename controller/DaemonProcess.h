// The daemon as a child process: its name, its environment, its view of the file system, where its output goes. It dies
// with its parent. For one thread.
#pragma once

#include <sys/types.h>

#include <filesystem>

#include "controller/StateDir.h"

namespace controller {

struct DaemonCommand {
  std::filesystem::path program;
  bool uses_host_paths = false;  // no private view: the host's own /etc/zal and /mnt/data/zal
};

// Starts the daemon; its end is told by SIGCHLD. Throws std::runtime_error, with the child gone, if it cannot be
// started.
pid_t start_daemon(const DaemonCommand& command, const StateDir& state);

}  // namespace controller
