// A small site that a test draws: a letter is an AP, a line between two the level at which they hear each other. AP "A"
// has the address 00:00:00:00:0A:00, its radios end in 00, 10 and 20.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "planning/PlanResult.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {

inline MacAddr address(char name, std::int32_t radio_id = 0) {
  const auto letter = static_cast<std::uint8_t>(0x0A + (name - 'A'));
  return MacAddr({0, 0, 0, 0, letter, static_cast<std::uint8_t>(16 * radio_id)});
}

inline std::string bssid(char name, std::int32_t radio_id = 0) {
  return address(name, radio_id).to_string();
}

class DrawnSite : public ::testing::Test {
 protected:
  // In place of what was there.
  void site(std::initializer_list<ApBuilder> builders) {
    aps = ApMap();
    results.clear();
    for (const ApBuilder& builder : builders) {
      const auto built = builder.build(config);
      aps.insert(built->mac, built);
    }
  }

  Radio& radio(char name, std::int32_t id = 0) {
    return aps.find(address(name))->radios.list[static_cast<std::size_t>(id)];
  }
  // The APs with a result, by their letters.
  std::string changed() const {
    std::string letters;
    for (const auto& [mac, radios] : results) letters += static_cast<char>('A' + (mac.bytes()[4] - 0x0A));
    return letters;
  }

  Capture quiet;
  DomainConfig config;
  ApMap aps;
  PlanResult results;
};

}  // namespace rrm::testing
