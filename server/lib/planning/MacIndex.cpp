#include "planning/MacIndex.h"

#include <algorithm>

namespace rrm {

// The places are added in ascending order, and a stable sort keeps it.
void MacIndex::build() {
  std::stable_sort(entries_.begin(), entries_.end(),
                   [](const Entry& a, const Entry& b) { return a.address < b.address; });
}

std::span<const MacIndex::Entry> MacIndex::of(const MacAddr& mac) const {
  const auto found = exactly(mac.to_number());
  return found.empty() ? exactly(mac.with_local_bit_flipped().to_number()) : found;
}

std::span<const MacIndex::Entry> MacIndex::exactly(std::uint64_t address) const {
  const auto first = std::partition_point(entries_.begin(), entries_.end(),
                                          [=](const Entry& entry) { return entry.address < address; });
  const auto last = std::find_if(first, entries_.end(), [=](const Entry& entry) { return entry.address != address; });
  return {first, last};
}

}  // namespace rrm
