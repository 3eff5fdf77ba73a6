// What turns a random domain into one with 802.11r: networks that nobody would configure so, and the changes that
// befall a domain between two updates of its links. Always the same for the same seed.
#pragma once

#include <cstdint>
#include <random>

#include "Config.h"
#include "model/ApMap.h"

namespace rrm::testing {

class RandomLinks {
 public:
  explicit RandomLinks(std::uint32_t seed) : engine_(seed) {}

  // Switches 802.11r on at most VAPs and gives some of them key holders, keys and links of their own.
  void set_up(ApMap& aps);
  // APs leave, keys change, radios go off the air, links appear from nowhere.
  void disturb(ApMap& aps);
  bool percent(std::uint32_t chance) { return pick(100) < chance; }

 private:
  std::uint32_t pick(std::uint32_t count) { return static_cast<std::uint32_t>(engine_() % count); }
  void give_odd_texts(ApMap& aps, VapEntry& vap);
  void add_odd_link(ApMap& aps, VapEntry& vap);
  const VapEntry& any_vap(ApMap& aps);

  std::mt19937 engine_;
};

}  // namespace rrm::testing
