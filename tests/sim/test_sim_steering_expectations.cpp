// What a site file may say about a scene of steering, and what is refused with which words.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "sim/site.h"
#include "sim/stations.h"
#include "sites.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

const std::string one_hall = with(two_aps, R"("size": [13, 10])", R"("size": [20, 10])");
const std::string with_walker = with(one_hall, R"("position": [5, 5]})", R"("position": [5, 5], "path": [[9, 5]]})");

std::string with_steering(const std::string& window) {
  return with(with_walker, R"("clients")", R"("steering": )" + window + R"(, "clients")");
}

std::string expecting(const std::string& site, const std::string& expectations) {
  return with(site, R"("clients")", R"("expectations": {"steering": )" + expectations + R"(}, "clients")");
}

TEST(SteeringExpectations, IsReadWhole) {
  const Site site = parse_site(expecting(with_steering(R"({"before": 40, "after": 165.5})"), R"({
      "fullest_radio_falls_by": 6, "spread_shrinks": {"room": "West", "band": 5, "by": 4},
      "walker_fast_transitions": 3, "ordered_moves_succeed": 0.8, "moves_bounce_at_most": 0.1,
      "held_are_answered": 1})"));
  ASSERT_TRUE(site.steering);
  EXPECT_EQ(site.steering->before_s, 40);
  EXPECT_EQ(site.steering->after_s, 165.5);
  const SteeringExpectations& expected = site.expectations.steering;
  EXPECT_EQ(expected.fullest_radio_falls_by, 6);
  ASSERT_TRUE(expected.spread);
  EXPECT_EQ(expected.spread->room, "West");
  EXPECT_EQ(expected.spread->band, 5);
  EXPECT_EQ(expected.spread->shrinks_by, 4);
  EXPECT_EQ(expected.walker_fast_transitions, 3);
  EXPECT_EQ(expected.ordered_moves_succeed, 0.8);
  EXPECT_EQ(expected.moves_bounce_at_most, 0.1);
  EXPECT_EQ(expected.held_are_answered, 1);
}

TEST(SteeringExpectations, IsNoneAndExpectsNothingUnlessTheFileSaysSo) {
  EXPECT_FALSE(parse_site(two_aps).steering);
  const SteeringExpectations expected = parse_site(expecting(two_aps, "{}")).expectations.steering;
  EXPECT_FALSE(expected.fullest_radio_falls_by);
  EXPECT_FALSE(expected.spread);
  EXPECT_FALSE(expected.walker_fast_transitions);
  EXPECT_FALSE(expected.ordered_moves_succeed);
  EXPECT_FALSE(expected.moves_bounce_at_most);
  EXPECT_FALSE(expected.held_are_answered);
}

TEST(SteeringExpectations, AcceptsTheEndsOfItsRanges) {
  for (const char* const window : {R"({"before": 0.1, "after": 0.2})", R"({"before": 1, "after": 100000})"}) {
    EXPECT_TRUE(parse_site(with_steering(window)).steering) << window;
  }
  for (const char* const expectations :
       {R"({"fullest_radio_falls_by": 1})", R"({"spread_shrinks": {"room": "West", "band": 2, "by": 1}})",
        R"({"walker_fast_transitions": 1})", R"({"ordered_moves_succeed": 0.01})", R"({"ordered_moves_succeed": 1})",
        R"({"moves_bounce_at_most": 0})", R"({"moves_bounce_at_most": 0.99})", R"({"held_are_answered": 0.01})"}) {
    EXPECT_NO_THROW(parse_site(expecting(with_walker, expectations))) << expectations;
  }
}

struct Refused {
  std::string site;
  const char* complaint;
};

TEST(SteeringExpectations, IsRefusedWithItsPlaceAndReason) {
  for (const Refused& c : {
           Refused{with_steering("7"), "site.steering must be an object"},
           {with_steering(R"({"before": 40})"), "site.steering.after is missing"},
           {with_steering(R"({"after": 40})"), "site.steering.before is missing"},
           {with_steering(R"({"before": 0, "after": 40})"), "site.steering.before must be above 0"},
           {with_steering(R"({"before": 40, "after": 40})"), "site.steering.after must be above \"before\""},
           {with_steering(R"({"before": 4, "after": 40, "at": 1})"), "site.steering has an unknown key \"at\""},
           {expecting(with_walker, R"({"all": 1})"), "site.expectations.steering has an unknown key \"all\""},
           {expecting(with_walker, R"({"fullest_radio_falls_by": 0})"),
            "site.expectations.steering.fullest_radio_falls_by must be 1 or more"},
           {expecting(with_walker, R"({"fullest_radio_falls_by": 1.5})"),
            "site.expectations.steering.fullest_radio_falls_by must be an integer of 32 bits"},
           {expecting(with_walker, R"({"spread_shrinks": {"room": "West", "band": 5, "by": 0}})"),
            "site.expectations.steering.spread_shrinks.by must be 1 or more"},
           {expecting(with_walker, R"({"spread_shrinks": {"room": "Attic", "band": 5, "by": 1}})"),
            "site.expectations.steering.spread_shrinks.room has fewer than two radios of this band"},
           {expecting(two_aps, R"({"spread_shrinks": {"room": "West", "band": 5, "by": 1}})"),
            "site.expectations.steering.spread_shrinks.room has fewer than two radios of this band"},
           {expecting(with_walker, R"({"walker_fast_transitions": 0})"),
            "site.expectations.steering.walker_fast_transitions must be 1 or more"},
           {expecting(one_hall, R"({"walker_fast_transitions": 1})"),
            "site.expectations.steering.walker_fast_transitions is of no use where no client walks"},
           {expecting(with_walker, R"({"ordered_moves_succeed": 0})"),
            "site.expectations.steering.ordered_moves_succeed must be above 0, and 1 at most"},
           {expecting(with_walker, R"({"ordered_moves_succeed": 1.01})"),
            "site.expectations.steering.ordered_moves_succeed must be above 0, and 1 at most"},
           {expecting(with_walker, R"({"moves_bounce_at_most": -0.01})"),
            "site.expectations.steering.moves_bounce_at_most must be 0 or more, and below 1"},
           {expecting(with_walker, R"({"moves_bounce_at_most": 1})"),
            "site.expectations.steering.moves_bounce_at_most must be 0 or more, and below 1"},
           {expecting(with_walker, R"({"held_are_answered": 0})"),
            "site.expectations.steering.held_are_answered must be above 0, and 1 at most"},
       }) {
    try {
      parse_site(c.site);
      ADD_FAILURE() << "accepted where \"" << c.complaint << "\" was due";
    } catch (const SiteError& error) {
      EXPECT_STREQ(error.what(), c.complaint);
    }
  }
}

// Left to themselves, its people crowd one radio, although each of them hears every AP of the room well. Somebody walks
// along the corridor after most have come.
TEST(SteeringExpectations, TheMeetingIsAsItsStorySays) {
  const Site site = load_site(MEETING_SITE);
  const World world(site);
  ASSERT_TRUE(site.steering);
  std::map<Place, int> liked_best;
  int in_room = 0;
  for (const Client& client : site.clients) {
    const Room* const room = site.room_at(client.position);
    ASSERT_NE(room, nullptr);
    const auto radios = candidates(world, client, client.position);
    ASSERT_FALSE(radios.empty());
    if (room->name != "Meeting room") {
      continue;
    }
    ++in_room;
    ++liked_best[radios.front().place()];
    std::set<std::size_t> heard_well;
    for (const Candidate& candidate : radios) {
      const double level =
          world.downlink_dbm(candidate.ap, *world.radio(candidate.ap, candidate.radio), client.position, client.mac);
      if (level >= weakest_good_dbm && site.room_at(site.access_points[candidate.ap].position) == room) {
        heard_well.insert(candidate.ap);
      }
    }
    EXPECT_EQ(heard_well.size(), 4U) << client.mac.text();
  }
  EXPECT_EQ(in_room, 36);
  const auto fewer = [](const auto& a, const auto& b) { return a.second < b.second; };
  const auto fullest = std::max_element(liked_best.begin(), liked_best.end(), fewer);
  EXPECT_EQ(site.access_points[fullest->first.ap].name, "Hall-2");
  EXPECT_GE(fullest->second, in_room / 2);
  EXPECT_EQ(std::count_if(site.clients.begin(), site.clients.end(),
                          [&](const Client& client) {
                            return !client.path.empty() && client.from >= site.steering->before_s &&
                                   site.room_at(client.position)->name == "Corridor";
                          }),
            1);
}

}  // namespace
}  // namespace sim
