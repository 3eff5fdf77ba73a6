// Records by MAC address, built once and then only asked: a sorted vector, which keeps its speed whatever the addresses
// look like. Several records of one address keep the order in which they were added.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "model/MacAddr.h"

namespace rrm {

template <class Record>
class MacIndex {
 public:
  using Entry = std::pair<MacAddr, Record>;

  void reserve(std::size_t count) { entries_.reserve(count); }
  void add(const MacAddr& mac, Record record) { entries_.emplace_back(mac, std::move(record)); }
  // To be called once, between the last add and the first look-up.
  void build() {
    std::stable_sort(entries_.begin(), entries_.end(),
                     [](const Entry& a, const Entry& b) { return a.first < b.first; });
  }

  // The records of this address; where it has none, those of the address with the local bit flipped.
  std::span<const Entry> of(const MacAddr& mac) const {
    const auto found = exactly(mac);
    return found.empty() ? exactly(mac.with_local_bit_flipped()) : found;
  }

 private:
  std::span<const Entry> exactly(const MacAddr& mac) const {
    const auto first = std::lower_bound(entries_.begin(), entries_.end(), mac,
                                        [](const Entry& entry, const MacAddr& key) { return entry.first < key; });
    const auto last = std::find_if(first, entries_.end(), [&](const Entry& entry) { return entry.first != mac; });
    return {first, last};
  }

  std::vector<Entry> entries_;
};

}  // namespace rrm
