// The controller's end of the bus as a test plays it: a listening socket, the one connection of the port under test,
// and frames or raw bytes in both directions. While the object lives, ZAL_BUS leads to it.
#pragma once

#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/bus/Connection.h"
#include "platform/bus/bus_types.h"
#include "support/temp_dir.h"

namespace zal::testing {

class BusPeer {
 public:
  BusPeer();
  ~BusPeer();
  BusPeer(const BusPeer&) = delete;
  BusPeer& operator=(const BusPeer&) = delete;

  std::string path() const { return directory_.file("bus.sock"); }
  // Takes the connection of the port, at once.
  bool accept();
  void hang_up() { connection_.reset(); }
  // No port finds the bus any more, or finds it again.
  void close_bus();
  void open_bus();

  void send(const bus::Fields& frame);
  // Whatever the bytes are. False if the port did not take them all at once.
  bool send_bytes(const std::string& bytes);
  // What the port has sent so far.
  std::vector<bus::Fields> receive();

 private:
  rrm::testing::TempDir directory_;
  bus::UniqueFd listener_;
  std::optional<bus::Connection> connection_;
};

// A frame's bytes around any payload.
std::string framed(const std::string& payload);

}  // namespace zal::testing

namespace zal::bus {

// How gtest prints a frame.
inline void PrintTo(const Fields& fields, std::ostream* out) {
  *out << to_json(fields);
}

}  // namespace zal::bus
