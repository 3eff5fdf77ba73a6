#include "model/ChannelSet.h"

#include <algorithm>
#include <utility>

namespace rrm {

ChannelSet::ChannelSet(std::vector<std::int32_t> channels) : channels_(std::move(channels)) {
  std::sort(channels_.begin(), channels_.end());
  channels_.erase(std::unique(channels_.begin(), channels_.end()), channels_.end());
}

void ChannelSet::insert(std::int32_t channel) {
  const auto place = std::lower_bound(channels_.begin(), channels_.end(), channel);
  if (place == channels_.end() || *place != channel) channels_.insert(place, channel);
}

bool ChannelSet::contains(std::int32_t channel) const {
  return std::binary_search(channels_.begin(), channels_.end(), channel);
}

}  // namespace rrm
