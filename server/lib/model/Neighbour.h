// What an AP heard in its scan: one record per BSSID. A map is a sorted vector of records, since it is copied with the
// whole domain at every optimisation and walked far more often than it is changed; its order is that of the MACs.
// Belongs to the owning domain worker's thread, or to the optimisation thread's copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "model/MacAddr.h"

namespace rrm {

class JsonReader;
class JsonWriter;

struct Neighbour {
  std::int32_t rssi = 0;  // dBm
  std::int32_t channel = 0;
  std::int32_t band = 0;       // 2, 5, 6; 0 unknown
  std::int32_t bandwidth = 0;  // MHz
  std::int32_t tx_power = 0;   // dBm
  std::int32_t primary = 0;    // position code of the primary channel, as in Radio::primary_channel

  bool operator==(const Neighbour&) const = default;
};

class NeighbourMap {
 public:
  using value_type = std::pair<MacAddr, Neighbour>;
  using const_iterator = std::vector<value_type>::const_iterator;

  void clear() { entries_.clear(); }
  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  // Ascending by MAC. Invalidated by every change but one through `find`.
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }

  // The record of exactly this address; null if there is none.
  Neighbour* find(const MacAddr& mac);
  const Neighbour* find(const MacAddr& mac) const;
  // The same, tried again with the local bit flipped.
  Neighbour* find_with_local_bit_retry(const MacAddr& mac);
  const Neighbour* find_with_local_bit_retry(const MacAddr& mac) const;

  // An address that is there already keeps its record; the result says whether the new one went in.
  bool insert(const MacAddr& mac, const Neighbour& neighbour);
  // Many at once, in O(n log n): of several records of one address the first stays, and what is here comes first.
  void insert_all(std::vector<value_type> entries);

  // Takes the place of all records by the merged ones of several scan rounds. Per address the record is that of the
  // last round that heard it, its level a mean from which outliers are clipped in two stages (three samples or more).
  void merge_rounds(std::span<const NeighbourMap> rounds);

  // Number of distinct channels from 1 to 255 among the records.
  std::int32_t distinct_channels() const;

  // The form of the domain backup.
  void dump_json(JsonWriter& array) const;
  // Adds the records of a backup to those that are here.
  void restore(const JsonReader& array);

  bool operator==(const NeighbourMap&) const = default;

 private:
  std::vector<value_type> entries_;  // ascending by MAC, no repeats
};

}  // namespace rrm
