// What the configuration tests share: reading a text, a list of rejected values, a directory for a file.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "Config.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm::testing {

// The array that a caller hands to a validating operation.
class Rejected {
 public:
  JsonWriter& list() { return list_; }
  std::string text() { return root_.to_string(); }

  // {"invalid_parameters":[...]} around the given elements.
  static std::string of(const std::string& elements) { return "{\"invalid_parameters\":[" + elements + "]}"; }

 private:
  JsonWriter root_;
  JsonWriter list_ = JsonWriter::array(root_, "invalid_parameters");
};

inline std::string written(const auto& settings) {
  JsonWriter object;
  write_settings(settings, object);
  return object.to_string();
}

// A directory of its own, gone with the object.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zal_config_XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~ScratchDir() { std::filesystem::remove_all(path_); }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline void write_file(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

inline std::string read_file(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace rrm::testing
