// The gateway as it stands in its process: on a real port, with the server behind it and the controller's end of the
// bus before it. The thread of the test plays the main loop, and its backups are kept in a directory of the test's own.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/RadioRM.h"
#include "platform/bus/Frame.h"
#include "platform/bus_peer.h"
#include "zal/IpcPort.h"

namespace load {

// Told what the gateway turns to next.
using Progress = std::function<void(const std::string& step)>;

// Tells of each backup before it begins.
class TellingRadio final : public RadioRM {
 public:
  TellingRadio(zal::IpcPort& port, const std::string& backup_directory, Progress progress)
      : RadioRM(port, backup_directory), backup_directory_(backup_directory), progress_(std::move(progress)) {}
  // The texts of all backups.
  std::vector<std::string> backups();

 protected:
  bool save_domain(const std::string& domain, std::string& error) override;

 private:
  const std::string backup_directory_;
  const Progress progress_;
};

class Gateway {
 public:
  Gateway(const std::string& backup_directory, const Progress& progress);
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  // How the bus served a frame, and what was sent meanwhile.
  struct Served {
    std::int64_t error = 0;
    std::vector<zal::bus::Fields> replies;
  };
  Served send(int type, const zal::bus::Fields& fields = {});
  // Many at once, all of one type and without an answer. True if all were served well.
  bool send_all(int type, const std::vector<zal::bus::Fields>& frames);

  // A command of the server's own interface. Empty without an answer.
  std::optional<std::string> command(const std::string& text);

  // One pass of the main loop.
  void pass();

  TellingRadio& radio() { return radio_; }
  std::size_t alarms() const { return alarms_; }
  std::size_t rounds_of_backups() const { return rounds_of_backups_; }

 private:
  using Steady = std::chrono::steady_clock;

  Served await_served();

  zal::testing::BusPeer peer_;
  zal::IpcPort port_;
  TellingRadio radio_;
  std::deque<zal::bus::Fields> received_;
  std::int64_t last_id_ = 0;
  std::size_t alarms_ = 0;
  std::size_t rounds_of_backups_ = 0;
  Steady::time_point next_tick_ = Steady::now();
};

}  // namespace load
