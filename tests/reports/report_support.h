// What the tests of reports share: a directory of report files, what was logged meanwhile, and ways to make a disk say
// no.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/log.h"
#include "report_optimize_tpc_dca.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace reports::testing {

using Texts = std::vector<std::string>;

// What the std::invalid_argument says that the call throws.
inline std::string invalid_argument_of(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "no such exception";
}

inline const std::string some_date = "2023-11-14,22:13:20";

// A radio's entry in which no two numbers are alike.
inline RadioReportRecord a_record() {
  RadioReportRecord record;
  record.power_before = 101;
  record.power_after = 102;
  record.eirp_before = 103;
  record.eirp_after = 104;
  record.channel_before = 105;
  record.channel_after = 106;
  record.radio_id = 107;
  record.bandwidth = 108;
  record.max_power = 109;
  record.min_power = -110;
  record.eirp_min = 111;
  record.eirp_max = 112;
  record.antenna_gain = 113;
  record.cable_loss = 114;
  record.primary_channel = 115;
  record.available_channels = "36 40 44";
  return record;
}

// The line of that record behind the key.
inline const std::string record_text = ",101,102,105,106,107,108,109,-110,115,36 40 44,103,104,111,112,113,114\n";

// The configuration line's settings when all have their defaults.
inline const std::string default_settings = "1,1,1,1,25,-70,-70,2,2,0,300,-75,-65,30,5,20,0,1,15,20,2,0,1,93,1";

// Reports of the domain "lab" unless another is named.
class ReportTest : public ::testing::Test {
 protected:
  std::string path() const { return dir_.path().string(); }
  std::string file(const std::string& name) const { return dir_.file(name); }
  std::string report_file() const { return file("report_lab.txt"); }
  std::string config_file() const { return file("report_cfg_lab.txt"); }
  std::string index_file() const { return file("report_idx_lab.txt"); }
  void write(const std::string& name, const std::string& text) const { rrm::testing::write_file(name, text); }
  std::string read(const std::string& name) const { return rrm::testing::read_file(name); }

  // Every file and directory by its name, with what is in the plain files.
  std::map<std::string, std::string> content() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
      const std::string name = entry.path().lexically_relative(dir_.path()).string();
      files[name] = entry.is_regular_file() ? read(entry.path().string()) : "";
    }
    return files;
  }

  Texts errors() const { return capture_.lines(rrm::LOG_ERROR); }
  std::vector<rrm::testing::Event> events() const { return capture_.events(); }
  static rrm::testing::Event event(int id, const std::string& payload) { return {id, true, payload}; }

  rrm::testing::TempDir dir_;
  rrm::testing::Capture capture_;
};

// Somebody waits for a lock of this file that another holds.
inline bool is_waited_for(const std::string& name) {
  struct stat status {};
  if (::stat(name.c_str(), &status) != 0) return false;
  const std::string lock = ":" + std::to_string(status.st_ino) + " 0 EOF";
  std::ifstream locks("/proc/locks");
  std::string line;
  while (std::getline(locks, line)) {
    if (line.find("->") != std::string::npos && line.ends_with(lock)) return true;
  }
  return false;
}

// For its life the process is nobody, whom file permissions bind, even if it was started as root.
class Nobody {
 public:
  Nobody() { become(65534); }
  ~Nobody() { become(0); }
  Nobody(const Nobody&) = delete;
  Nobody& operator=(const Nobody&) = delete;

 private:
  void become(uid_t user) const {
    if (was_root_) {
      EXPECT_EQ(seteuid(user), 0);
    }
  }

  const bool was_root_ = geteuid() == 0;
};

// For its life no file can become longer than this. What does not fit is written up to there.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    old_handler_ = std::signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &old_), 0);
    const rlimit limit{bytes, old_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &old_), 0);
    std::signal(SIGXFSZ, old_handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit old_{};
  void (*old_handler_)(int) = SIG_DFL;
};

}  // namespace reports::testing
