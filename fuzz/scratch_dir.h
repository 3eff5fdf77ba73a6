// A directory for the files of one process, emptied for each input: in the one that ZAL_FUZZ_DIR names, or in memory
// where the system has a place for that. A process that is ended from outside leaves it.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "fuzz/fuzz.h"
#include "support/temp_dir.h"

namespace zal::fuzz {

class ScratchDir {
 public:
  ScratchDir() {
    std::string name = parent() + "/zal-fuzz-XXXXXX";
    require(::mkdtemp(name.data()) != nullptr, "there is room for a directory");
    path_ = name;
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

  void clear() const {
    for (const auto& entry : std::filesystem::directory_iterator(path_)) std::filesystem::remove_all(entry.path());
  }

  // By name, without those that begin with `hidden`.
  std::map<std::string, std::string> files(const std::string& hidden = "/") const {
    std::map<std::string, std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      const std::string name = entry.path().filename().string();
      if (!name.starts_with(hidden)) texts[name] = rrm::testing::read_file(entry.path());
    }
    return texts;
  }

 private:
  static std::string parent() {
    const std::string memory = "/dev/shm";
    if (const char* const named = std::getenv("ZAL_FUZZ_DIR")) return named;
    return ::access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path().string();
  }

  std::string path_;
};

}  // namespace zal::fuzz
