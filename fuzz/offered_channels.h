// The channels that APs have offered to a domain, against its pools: a pool holds nothing else, and all that was
// offered since the pools were emptied.
#pragma once

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "json/JsonReader.h"
#include "model/bands.h"

namespace zal::fuzz {

class OfferedChannels {
 public:
  using Offer = std::pair<std::int32_t, std::int32_t>;  // a band and a channel

  // A worker begins with empty pools.
  void begin() { *this = {}; }
  // A cycle begins: the answers fill the pools again.
  void pools_are_emptied() { due_.clear(), allowed_.clear(); }
  // A cycle without an AP on air ends as it begins, and nobody is asked.
  void pools_may_be_emptied() { due_.clear(); }
  // The array of radios of a message that was read, which names channels in a text.
  void read_message(const rrm::JsonReader& radios);
  // That of an AP's backup, which names them in an array.
  void read_backup(const rrm::JsonReader& radios);

  void check(const rrm::ChannelPools& pools) const;
  // A scan order: of the pools, or of the AP's own lists.
  void check_order(const rrm::JsonReader& order, const rrm::ChannelPools& pools) const;

 private:
  void read(const rrm::JsonReader& radio, std::vector<std::int32_t> permitted);

  // Since the pools were emptied. Where a message does not tell a radio's band, it may be any.
  std::set<Offer> due_;
  std::set<Offer> allowed_;
  std::set<Offer> ever_allowed_;
};

}  // namespace zal::fuzz
