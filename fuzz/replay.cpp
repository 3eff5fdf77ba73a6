// Runs a fuzz target over the files of a directory, whole, cut after each byte and with each byte left out, so that
// what was found once is tried again by every build, also without a fuzzer. A target that takes long for each input is
// given fewer places in a file.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t usual_places = 1024;

// From memory that ends with the input, so that a sanitizer sees a read beyond.
void run_once(const std::string& input) {
  const auto copy = std::make_unique<std::uint8_t[]>(input.size());
  std::copy(input.begin(), input.end(), copy.get());
  LLVMFuzzerTestOneInput(copy.get(), input.size());
}

// In a longer file at so many places, spread over its length.
void run_variants(const std::string& input, std::size_t most_places) {
  run_once(input);
  const std::size_t step = input.size() / most_places + 1;
  for (std::size_t place = 0; place < input.size(); place += step) {
    run_once(input.substr(0, place));
    run_once(input.substr(0, place) + input.substr(place + 1));
  }
}

std::vector<fs::path> files_of(const fs::path& directory) {
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: %s DIRECTORY [PLACES]; in the directory one input a file\n", argv[0]);
    return 1;
  }
  const std::size_t places = argc == 3 ? std::stoul(argv[2]) : usual_places;
  std::size_t count = 0;
  for (const fs::path& path : files_of(argv[1])) {
    std::ifstream file(path, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    std::printf("%s, %zu bytes\n", path.filename().c_str(), input.size());
    std::fflush(stdout);
    run_variants(input, places);
    ++count;
  }
  return count > 0 ? 0 : 1;
}
