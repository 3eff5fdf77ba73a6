// How many records of one AP stand on each channel, so that the number of distinct channels follows a change of one
// record without a walk over all. Channels outside 1 to 255 are not counted.
#pragma once

#include <array>
#include <cstdint>

namespace rrm {

class ChannelCounter {
 public:
  void add(std::int32_t channel) {
    if (counts(channel) && records_[static_cast<std::size_t>(channel)]++ == 0) ++distinct_;
  }
  // Requires: a record of this channel was added.
  void remove(std::int32_t channel) {
    if (counts(channel) && --records_[static_cast<std::size_t>(channel)] == 0) --distinct_;
  }
  std::int32_t distinct() const { return distinct_; }

 private:
  static constexpr std::int32_t highest = 255;
  static bool counts(std::int32_t channel) { return channel >= 1 && channel <= highest; }

  std::array<std::uint32_t, highest + 1> records_{};
  std::int32_t distinct_ = 0;
};

}  // namespace rrm
