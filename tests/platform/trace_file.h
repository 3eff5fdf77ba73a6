// The process's log as a test reads it: while the object lives, Trace writes to a file of its own.
#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "platform/standalone/TraceLog.h"
#include "support/temp_dir.h"
#include "zal/Trace.h"

namespace zal::testing {

class TraceFile {
 public:
  TraceFile() {
    setenv(trace_file_variable, path().c_str(), 1);
    Trace::global_init("test");
  }
  ~TraceFile() {
    Trace::global_deinit();
    unsetenv(trace_file_variable);
  }
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  std::string path() const { return directory_.file("log"); }
  // All lines so far, without their times.
  std::vector<std::string> lines() const {
    constexpr std::size_t time_size = sizeof "2026-01-02T03:04:05.678Z";
    std::istringstream text(rrm::testing::read_file(path()));
    std::vector<std::string> all;
    for (std::string line; std::getline(text, line);)
      all.push_back(line.size() > time_size ? line.substr(time_size) : line);
    return all;
  }

 private:
  rrm::testing::TempDir directory_;
};

}  // namespace zal::testing
