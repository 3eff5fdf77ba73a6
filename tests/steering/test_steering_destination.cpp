// Where a client is better served: which radio is chosen, and whether the move is worth it.
#include "steering/destination.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

const MacAddr client = mac("0a:00:00:00:00:01");

MacAddr station(std::int32_t number) {
  return MacAddr::from_number(0x0a0000010000 + static_cast<std::uint64_t>(number));
}

// AP 1 is 00:11:22:00:01:00. The address of its one radio is not its own.
MacAddr ap_mac(std::int32_t number) {
  return MacAddr::from_number(0x001122000000 + (static_cast<std::uint64_t>(number) << 8));
}

MacAddr radio_mac(std::int32_t number) {
  return ap_mac(number).plus(1);
}

// A radio that has answered. With the client on it, the client is one of those who make up its load.
struct Answer {
  std::int32_t load;
  std::int32_t rssi;
  bool client_there = false;
};

void fill(Radio& radio, std::int32_t load, bool client_there) {
  if (client_there) radio.assoc.add_client(client, -60, "office", false, false);
  for (std::int32_t i = client_there ? 1 : 0; i < load; ++i) {
    radio.assoc.add_client(station(i), -60, "office", false, false);
  }
}

class Destination : public ::testing::Test {
 protected:
  // The answers are those of AP 1, AP 2 and so on.
  void answer(const std::vector<Answer>& answers) {
    aps = ApMap();
    query = ProbeRequest();
    std::int32_t number = 0;
    for (const Answer& given : answers) {
      const MacAddr own = ap_mac(++number);
      const auto ap = an_ap()
                          .mac(own.to_string())
                          .with_radio(a_radio().channel(36).pool(1, 16).with(
                              [&](Radio& radio) { fill(radio, given.load, given.client_there); }))
                          .build(config);
      aps.insert(own, ap);
      query.responses[radio_mac(number)] = given.rssi;
    }
  }

  // "AP 2, load 4, -50 dBm", with " already" behind it for a client that is on it.
  std::string chosen() const {
    const auto choice = choose_destination(aps, config, client, query);
    if (!choice) return "nobody";
    EXPECT_EQ(choice->radio->mac, choice->mac);
    EXPECT_EQ(choice->radio, &choice->ap->radios.list[static_cast<std::size_t>(choice->radio->id)]);
    const auto number = static_cast<std::int32_t>((choice->ap->mac.to_number() >> 8) & 0xff);
    return "AP " + std::to_string(number) + ", load " + std::to_string(choice->load) + ", " +
           std::to_string(choice->rssi) + " dBm" + (choice->is_there ? " already" : "");
  }

  const Capture capture;
  DomainConfig config;  // light below 5 clients, full with 20, levels -75 and -65
  ApMap aps;
  ProbeRequest query;
};

TEST_F(Destination, TheLeastLoadedRadioIsChosenThenTheOneThatHearsTheClientBestThenTheFirst) {
  const struct {
    const char* what;
    std::vector<Answer> answers;
    const char* expected;
  } cases[] = {
      {"nobody has answered", {}, "nobody"},
      {"one has", {{7, -60}}, "AP 1, load 7, -60 dBm"},
      {"the lighter one, however weak", {{7, -40}, {6, -64}}, "AP 2, load 6, -64 dBm"},
      {"the lighter one, though it comes first", {{6, -64}, {7, -40}}, "AP 1, load 6, -64 dBm"},
      {"light loads are equal: the stronger signal", {{1, -60}, {3, -50}}, "AP 2, load 4, -50 dBm"},
      {"and the other way round", {{1, -50}, {3, -60}}, "AP 1, load 4, -50 dBm"},
      {"no load at all is light, not better", {{0, -60}, {4, -50}}, "AP 2, load 4, -50 dBm"},
      {"the first load that is not light", {{5, -40}, {4, -64}}, "AP 2, load 4, -64 dBm"},
      {"it is the first that counts as it is", {{5, -40}, {6, -30}}, "AP 1, load 5, -40 dBm"},
      {"equal loads: the stronger signal", {{8, -60}, {8, -59}}, "AP 2, load 8, -59 dBm"},
      {"equal in both: the lowest address", {{8, -60}, {8, -60}, {8, -60}}, "AP 1, load 8, -60 dBm"},
      {"an earlier best is kept past a worse one", {{9, -60}, {6, -60}, {8, -40}}, "AP 2, load 6, -60 dBm"},
  };
  for (const auto& row : cases) {
    answer(row.answers);
    EXPECT_EQ(chosen(), row.expected) << row.what;
  }
  EXPECT_THAT(capture.lines(LOG_TRACE), ::testing::IsEmpty());
}

TEST_F(Destination, ExpectedClientsCountAsLoad) {
  answer({{5, -50}, {5, -60}});
  aps.find(ap_mac(1))->radios.list[0].assoc.add_expected(station(99), {ap_mac(2), 0, 30});
  EXPECT_EQ(chosen(), "AP 2, load 5, -60 dBm");
}

TEST_F(Destination, WhoeverHasLeftTheDomainIsNoDestination) {
  answer({{1, -40}, {7, -60}});
  const auto gone = aps.find(ap_mac(1));
  aps.erase_from_index(gone);
  aps.erase_node(aps.begin());
  EXPECT_EQ(chosen(), "AP 2, load 7, -60 dBm");
}

TEST_F(Destination, ARadioThatWasSwitchedOffIsNoDestination) {
  answer({{1, -40}, {7, -60}});
  const auto ap = aps.find(ap_mac(1));
  ap->radios.list[0].status = false;
  aps.reindex(ap);
  EXPECT_EQ(chosen(), "AP 2, load 7, -60 dBm");
}

TEST_F(Destination, ARadioThatServesTheClientWellEndsTheSearch) {
  const struct {
    const char* what;
    std::vector<Answer> answers;
    const char* expected;
  } cases[] = {
      {"what comes behind is not looked at", {{9, -64, true}, {1, -30}}, "AP 1, load 8, -64 dBm already"},
      {"what came before is forgotten", {{1, -30}, {9, -64, true}}, "AP 2, load 8, -64 dBm already"},
      {"the first such radio", {{9, -64, true}, {2, -40, true}}, "AP 1, load 8, -64 dBm already"},
      {"a light load stands as it is, without the client", {{1, -50, true}}, "AP 1, load 0, -50 dBm already"},
      {"full is not too full", {{20, -50, true}, {1, -30}}, "AP 1, load 19, -50 dBm already"},
      {"too full: a candidate like the others", {{21, -50, true}, {21, -60}}, "AP 1, load 21, -50 dBm"},
      {"too full, and another is lighter", {{21, -50, true}, {20, -60}}, "AP 2, load 20, -60 dBm"},
      {"heard at the upper level: like the others", {{9, -65, true}, {9, -64}}, "AP 2, load 9, -64 dBm"},
  };
  for (const auto& row : cases) {
    answer(row.answers);
    EXPECT_EQ(chosen(), row.expected) << row.what;
  }
}

TEST_F(Destination, TheLineOfTheRadioItIsOnTellsTheLoadWithTheClient) {
  answer({{3, -50, true}});
  chosen();
  EXPECT_THAT(capture.lines(LOG_TRACE),
              ::testing::ElementsAre("LoadBalancer: exist_ap 00:11:22:00:01:01 size 3 rssi -50"));
}

TEST(WorthMoving, AsksForSignalRoomAndALighterLoadOrABadSource) {
  const DomainConfig config;
  const struct {
    const char* what;
    SteeringSource source;
    std::int32_t load;
    std::int32_t rssi;
    bool is_there;
    bool expected;
  } cases[] = {
      {"heard just above the upper level", {9, -80}, 4, -64, false, true},
      {"heard at it", {9, -80}, 4, -65, false, false},
      {"heard at it, and there already", {9, -80}, 4, -65, true, false},
      {"room for one more", {9, -80}, 19, -50, false, true},
      {"full", {40, -80}, 20, -50, false, false},
      {"full without the client, who is there", {40, -80}, 20, -50, true, false},
      {"good signal, lighter by two", {7, -74}, 5, -50, false, true},
      {"good signal, lighter by one", {6, -74}, 5, -50, false, false},
      {"good signal, equal", {6, -74}, 6, -50, false, false},
      {"good signal, a light source counts as the limit", {1, -74}, 4, -50, false, false},
      {"good signal, just above the limit", {6, -74}, 4, -50, false, true},
      {"good signal, at the limit", {5, -74}, 4, -50, false, false},
      {"at the lower level, lighter by one", {6, -75}, 5, -50, false, true},
      {"at the lower level, the destination is heavier", {6, -75}, 19, -50, false, true},
      {"a level of 0 is no bad signal", {6, 0}, 5, -50, false, false},
      {"there already, whatever the loads", {1, -74}, 19, -50, true, true},
  };
  for (const auto& row : cases) {
    SteeringChoice choice;
    choice.load = row.load;
    choice.rssi = row.rssi;
    choice.is_there = row.is_there;
    EXPECT_EQ(worth_moving(row.source, choice, config), row.expected) << row.what;
  }
}

// The search step by step, with plain walks for look-ups, against random domains.

struct Found {
  bool found = false;
  bool exist = false;
  MacAddr dst;
  std::int32_t min_size = 0;
  std::int32_t min_rssi = 0;

  bool operator==(const Found&) const = default;
};

const Radio* enabled_radio_with(const ApMap& aps, const MacAddr& address) {
  for (const auto& [key, ap] : aps) {
    for (const Radio& radio : ap->radios.list) {
      if (radio.status && radio.mac == address) return &radio;
    }
  }
  return nullptr;
}

Found plain_search(const ApMap& aps, const DomainConfig& config, const ProbeRequest& query) {
  Found present;
  for (const auto& [address, rssi] : query.responses) {
    if (present.exist) continue;
    const Radio* radio = enabled_radio_with(aps, address);
    if (radio == nullptr) continue;
    std::int32_t size = radio->assoc.load();
    const bool there = radio->assoc.find_client(client) != nullptr;
    if (there && rssi > config.blacklist_thr_high && size <= config.load_balance_sta_high) {
      present.exist = true;
      if (size > 0) size = size - 1;
    } else {
      if (size < config.load_balance_sta_low) size = config.load_balance_sta_low - 1;
      if (present.found) {
        if (size > present.min_size) continue;
        if (size == present.min_size && present.min_rssi >= rssi) continue;
      }
    }
    present.min_size = size;
    present.dst = address;
    present.min_rssi = rssi;
    present.found = true;
  }
  return present;
}

Found as_found(const std::optional<SteeringChoice>& choice) {
  if (!choice) return {};
  return {true, choice->is_there, choice->mac, choice->load, choice->rssi};
}

bool plain_verdict(const SteeringSource& source, const Found& found, const DomainConfig& config) {
  if (found.min_rssi <= config.blacklist_thr_high) return false;
  if (found.min_size >= config.load_balance_sta_high) return false;
  const std::int32_t larger = std::max(config.load_balance_sta_low, source.load);
  return found.exist || larger > found.min_size + 1 || source.rssi <= config.blacklist_thr_low;
}

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}
  std::int32_t in(std::int32_t low, std::int32_t high) {
    return low + static_cast<std::int32_t>(engine_() % static_cast<std::uint32_t>(high - low + 1));
  }
  bool percent(std::int32_t chance) { return in(0, 99) < chance; }

 private:
  std::mt19937 engine_;
};

// Few loads and levels, so that there are many ties, around the limits.
struct RandomCase {
  explicit RandomCase(Dice& dice) {
    config.load_balance_sta_low = dice.in(1, 6);
    config.load_balance_sta_high = config.load_balance_sta_low + dice.in(0, 4);
    config.blacklist_thr_high = dice.in(-67, -63);
    config.blacklist_thr_low = config.blacklist_thr_high - dice.in(0, 3);
    source = {dice.in(0, 12), dice.percent(10) ? 0 : dice.in(-72, -60)};
    const std::int32_t ap_count = dice.in(0, 8);
    for (std::int32_t number = 1; number <= ap_count; ++number) add_ap(dice, number);
    if (dice.percent(20)) query.responses[radio_mac(200)] = -40;
  }

  void add_ap(Dice& dice, std::int32_t number) {
    auto ap = an_ap().mac(ap_mac(number).to_string());
    for (std::int32_t i = dice.in(1, 3); i > 0; --i) {
      const std::int32_t load = dice.in(0, 10);
      const bool client_there = load > 0 && dice.percent(15);
      const bool enabled = dice.percent(90);
      ap.with_radio(a_radio().channel(36).with([=](Radio& radio) {
        radio.status = enabled;
        fill(radio, load, client_there);
      }));
    }
    const auto built = ap.build(config);
    aps.insert(built->mac, built);
    for (const Radio& radio : built->radios.list) {
      if (dice.percent(70)) query.responses[radio.mac] = dice.in(-67, -60);
    }
  }

  DomainConfig config;
  ApMap aps;
  ProbeRequest query;
  SteeringSource source;
};

TEST(DestinationByChance, AgreesWithTheSearchStepByStep) {
  const Capture capture;
  std::int32_t moves = 0;
  std::int32_t stays = 0;
  std::int32_t already = 0;
  for (std::uint32_t seed = 1; seed <= 3000; ++seed) {
    Dice dice(seed);
    const RandomCase random(dice);
    const Found expected = plain_search(random.aps, random.config, random.query);
    const auto choice = choose_destination(random.aps, random.config, client, random.query);
    ASSERT_EQ(as_found(choice), expected) << "seed " << seed;
    if (!choice) continue;
    ASSERT_EQ(choice->radio, enabled_radio_with(random.aps, expected.dst)) << "seed " << seed;
    const bool verdict = plain_verdict(random.source, expected, random.config);
    ASSERT_EQ(worth_moving(random.source, *choice, random.config), verdict) << "seed " << seed;
    (verdict ? moves : stays) += 1;
    already += choice->is_there ? 1 : 0;
  }
  EXPECT_GT(moves, 300);
  EXPECT_GT(stays, 300);
  EXPECT_GT(already, 300);
}

}  // namespace
}  // namespace rrm::testing
