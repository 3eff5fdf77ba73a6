// The channel pass as plainly as it can be told: the work list is scanned from the front at every step, every AP is
// recounted after every move, every mask is laid cell by cell. Slow and obvious; the planner must give what this gives.
#pragma once

#include <array>
#include <cstdint>

#include "model/ApMap.h"
#include "planning/PlanResult.h"

namespace rrm::testing {

struct PlainTable {
  std::array<std::int32_t, 275> cells{};
  bool ignore_dca_threshold = true;

  void clear() { cells.fill(0); }
  void write(int channel, int value);
  int read(int channel) const;
  void lay_mask20(int channel, int weight);
  void lay_wide_mask(int centre, int half_width, int weight);
  void lay(const Neighbour& entry);
  void add_neighbours(const ApEntry& ap, const Radio& radio);
  int sum(int centre, int half_width) const;
  int channel_cost(int channel, int bandwidth, int primary_channel) const;
  int best_channel(const ChannelSet& available, int channel, int bandwidth, int primary_channel, int threshold) const;
};

void plain_dca_pass(PlainTable& table, ApMap& aps, const DomainConfig& config, PlanResult& results);

}  // namespace rrm::testing
