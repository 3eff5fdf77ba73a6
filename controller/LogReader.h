// Reads a log that grows: what is there, and then what is added, across the renaming of the file when it grew too long.
// For one thread.
#pragma once

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "platform/bus/UniqueFd.h"

namespace controller {

class LogReader {
 public:
  // Throws std::runtime_error if there is no such file.
  explicit LogReader(const std::filesystem::path& path);

  // The next whole line, without its end. Empty if there is none yet.
  std::optional<std::string> next_line();
  // Waits until something may have been added, at most that long.
  void wait(int milliseconds);

 private:
  bool read_more();
  bool open_renewed();

  const std::filesystem::path path_;
  zal::bus::UniqueFd file_;
  zal::bus::UniqueFd watch_;
  std::string rest_;  // read, not yet handed out
};

}  // namespace controller
