// Which APs of a set stand behind a MAC address, by their places in the order of the set. Built once and then only
// asked: a sorted vector, which keeps its speed whatever the addresses look like.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "model/MacAddr.h"

namespace rrm {

class MacIndex {
 public:
  struct Entry {
    std::uint64_t address;  // as MacAddr::to_number gives it, which compares faster than bytes
    std::size_t place;
  };

  void reserve(std::size_t count) { entries_.reserve(count); }
  // Requires: places are added in ascending order.
  void add(const MacAddr& mac, std::size_t place) { entries_.push_back({mac.to_number(), place}); }
  // To be called once, between the last add and the first look-up.
  void build();

  // The entries of this address in ascending order of their places; where it has none, those of the address with the
  // local bit flipped.
  std::span<const Entry> of(const MacAddr& mac) const;

 private:
  std::span<const Entry> exactly(std::uint64_t address) const;

  std::vector<Entry> entries_;
};

}  // namespace rrm
