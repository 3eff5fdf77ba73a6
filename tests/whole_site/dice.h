// The chance of a run: the same seed draws the same numbers on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace whole_site {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : generator_(seed) {}

  // Requires: below is above 0.
  std::size_t below(std::size_t below) { return static_cast<std::size_t>(generator_() % below); }
  int between(int first, int last) {
    return first + static_cast<int>(below(static_cast<std::size_t>(last - first + 1)));
  }
  bool happens(int per_cent) { return between(0, 99) < per_cent; }
  // Requires: the list is not empty.
  template <class T>
  const T& one_of(const std::vector<T>& list) {
    return list[below(list.size())];
  }
  template <class T>
  void shuffle(std::vector<T>& list) {
    for (std::size_t i = list.size(); i > 1; --i) std::swap(list[i - 1], list[below(i)]);
  }

 private:
  std::mt19937_64 generator_;
};

}  // namespace whole_site
