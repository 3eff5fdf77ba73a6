// A whole cycle with the domain's own planners, from the first subscribe to what the APs are told.
//
//        36            36            36
//       [ap1] -45 dBm [ap2] -45 dBm [ap3]        ap1 and ap3 hear one another at -60 dBm
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "domain/domain_support.h"
#include "json/JsonReader.h"

namespace rrm::testing {
namespace {

const std::vector<std::string> macs = {"00:11:22:33:01:00", "00:11:22:33:02:00", "00:11:22:33:03:00"};

// Radio 1 of an AP.
std::string radio_of(std::string mac) {
  mac.replace(mac.size() - 2, 2, "10");
  return mac;
}

class Cycle : public DomainTest {
 protected:
  using Plan = std::map<std::string, std::pair<int, int>>;  // channel and power by the AP's MAC

  void start_with_three() {
    start();
    for (std::size_t place = 0; place < macs.size(); ++place) {
      subscribe(session(place), a_subscribe(macs[place]).with_radio(a_5ghz_radio()));
    }
  }

  // A cycle in which the APs answer in the order of these places, each on its channel.
  Plan cycle(const std::vector<std::size_t>& order, const std::vector<int>& channels) {
    to_mode_requests();
    for (const std::size_t place : order) {
      receive(session(place), a_message("rrm-mode-response", macs[place]).with_radio(a_5ghz_radio(channels[place])));
    }
    to_scan();
    for (const std::size_t place : order) {
      receive(session(place), a_message("rrm-response", macs[place])
                                  .with_radio(a_5ghz_radio(channels[place]))
                                  .with_heard(heard_by(place, channels)));
    }
    journal.take();
    finish_computing();
    return told_plan();
  }

 private:
  static std::uint32_t session(std::size_t place) { return static_cast<std::uint32_t>(place + 1); }

  static std::vector<HeardJson> heard_by(std::size_t place, const std::vector<int>& channels) {
    std::vector<HeardJson> heard;
    for (std::size_t other = 0; other < macs.size(); ++other) {
      if (other == place) continue;
      const bool next_door = std::max(other, place) - std::min(other, place) == 1;
      heard.emplace_back(radio_of(macs[other]), channels[other], next_door ? -45 : -60);
    }
    return heard;
  }

  // From the rrm-info of each AP.
  Plan told_plan() {
    Plan plan;
    for (const std::string& line : journal.lines("SEND")) {
      const JsonReader message(line.c_str() + line.find('{'));
      EXPECT_STREQ(message.get_string("cmd"), "rrm-info");
      const JsonReader radio = message.get("radios").at(0);
      plan[message.get_string("ap-mac")] = {radio.get_int("channel"), radio.get_int("power")};
    }
    return plan;
  }
};

TEST_F(Cycle, ThreeNeighboursOnOneChannelArePutApartAndThenNeedNotHoldBack) {
  start_with_three();
  const Plan plan = cycle({0, 1, 2}, {36, 36, 36});
  ASSERT_EQ(plan.size(), 3u);
  std::set<int> channels;
  for (const auto& [mac, told] : plan) {
    channels.insert(told.first);
    EXPECT_EQ(told.second, 20) << mac << ": on a channel of its own";
  }
  EXPECT_EQ(channels.size(), 3u);
  EXPECT_EQ(rrm_status(), 0);
}

TEST_F(Cycle, WhereEveryNeighbourOfTheBandCountsTheyAreTurnedDown) {
  settings.use_hd_mode = false;
  start_with_three();
  for (const auto& [mac, told] : cycle({0, 1, 2}, {36, 36, 36})) {
    EXPECT_EQ(told.second, 5) << mac << ": 25 dB too loud, and 5 dBm is the least";
  }
}

TEST_F(Cycle, ThePlanDoesNotDependOnWhoSpeaksFirst) {
  start_with_three();
  const Plan plan = cycle({0, 1, 2}, {36, 36, 36});
  std::vector<std::size_t> order = {0, 1, 2};
  while (std::next_permutation(order.begin(), order.end())) {
    start_with_three();
    EXPECT_EQ(cycle(order, {36, 36, 36}), plan);
  }
}

TEST_F(Cycle, APlanThatTheApsFollowIsKeptByTheNextCycle) {
  start_with_three();
  const Plan plan = cycle({0, 1, 2}, {36, 36, 36});
  EXPECT_TRUE(force_optimization());
  std::vector<int> channels;
  for (const std::string& mac : macs) channels.push_back(plan.at(mac).first);
  const Plan next = cycle({0, 1, 2}, channels);
  for (const std::string& mac : macs) EXPECT_EQ(next.at(mac).first, plan.at(mac).first) << mac;
}

}  // namespace
}  // namespace rrm::testing
