// A set of channel numbers, kept as a sorted vector: small, quick to copy, and always walked in ascending order, so
// that whatever is derived from it comes out alike on every run and machine. A plain value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace rrm {

class ChannelSet {
 public:
  using const_iterator = std::vector<std::int32_t>::const_iterator;

  ChannelSet() = default;
  ChannelSet(std::initializer_list<std::int32_t> channels) : ChannelSet(std::vector<std::int32_t>(channels)) {}
  // In any order, repeats included.
  explicit ChannelSet(std::vector<std::int32_t> channels);

  void insert(std::int32_t channel);
  bool contains(std::int32_t channel) const;
  void clear() { channels_.clear(); }

  bool empty() const { return channels_.empty(); }
  std::size_t size() const { return channels_.size(); }
  const_iterator begin() const { return channels_.begin(); }
  const_iterator end() const { return channels_.end(); }

  bool operator==(const ChannelSet&) const = default;

 private:
  std::vector<std::int32_t> channels_;  // ascending, no repeats
};

}  // namespace rrm
