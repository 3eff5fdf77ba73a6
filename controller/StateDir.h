// The state directory of a small controller: everything that it and its daemon write lies here, and nowhere else. One
// controller at a time owns it, which a lock on one of its files guarantees. A plain list of names for everybody else.
//
//   lock             held while a controller runs; tells its pid
//   bus.sock         the bus that the daemon joins
//   control.sock     where zalctl asks
//   zal_rrm.log      the daemon's log, with the older ones behind it as zal_rrm.1.log and so on
//   zal_rrm.err      the daemon's standard output and error: crash back-traces; that of the run before ends in .1
//   etc/zal          the daemon's /etc/zal
//   data/zal         the daemon's /mnt/data/zal
//   view             where the daemon's view of the file system is put together; empty for everybody else
#pragma once

#include <filesystem>

#include "platform/bus/UniqueFd.h"

namespace controller {

class StateDir {
 public:
  // Names the directory; nothing is touched yet. Throws std::runtime_error if the name is empty.
  explicit StateDir(const std::filesystem::path& root);

  const std::filesystem::path& root() const { return root_; }
  std::filesystem::path lock_file() const { return root_ / "lock"; }
  std::filesystem::path bus_socket() const { return root_ / "bus.sock"; }
  std::filesystem::path control_socket() const { return root_ / "control.sock"; }
  std::filesystem::path log() const { return root_ / "zal_rrm.log"; }
  std::filesystem::path errors() const { return root_ / "zal_rrm.err"; }
  std::filesystem::path etc() const { return root_ / "etc" / "zal"; }
  std::filesystem::path data() const { return root_ / "data" / "zal"; }
  std::filesystem::path view() const { return root_ / "view"; }

  // Makes what is missing, a new directory for this user alone, and locks it. Throws std::runtime_error if another
  // controller runs here or something cannot be made. The lock lasts as long as the result.
  zal::bus::UniqueFd occupy() const;
  // Sockets of a controller that is gone. Requires: occupied.
  void remove_sockets() const;

 private:
  void make_directories() const;
  void make_database() const;

  std::filesystem::path root_;
};

}  // namespace controller
