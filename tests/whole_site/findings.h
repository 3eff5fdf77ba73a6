// What a watcher holds to be wrong, with the second in which it saw it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace whole_site {

class Findings {
 public:
  void add(std::int64_t second, const std::string& what) {
    ++count_;
    if (first_.size() < most) first_.push_back("at " + std::to_string(second) + ": " + what);
  }
  int count() const { return count_; }
  // The first ones.
  const std::vector<std::string>& first() const { return first_; }

 private:
  static constexpr std::size_t most = 12;
  int count_ = 0;
  std::vector<std::string> first_;
};

}  // namespace whole_site
