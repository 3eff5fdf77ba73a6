// Reading site files: what is taken from them, what is filled in, and what is refused with which words.
#include <gtest/gtest.h>

#include "sim/site.h"
#include "sites.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

TEST(SiteFile, IsReadWhole) {
  const Site site = parse_site(two_aps);
  EXPECT_EQ(site.name, "two");
  EXPECT_EQ(site.domain, "lab");
  EXPECT_EQ(site.seed, 7U);
  EXPECT_EQ(site.scan.rounds, 2);
  ASSERT_EQ(site.access_points.size(), 2U);
  const AccessPoint& a = site.access_points[0];
  EXPECT_EQ(a.mac.text(), "02:00:5e:00:01:00");
  EXPECT_EQ(a.position, (Point{4, 5, 3}));
  ASSERT_EQ(a.radios.size(), 3U);
  EXPECT_EQ(a.radios[1].available_channels, (std::vector<int>{36, 40, 44, 48, 52, 100}));
  EXPECT_EQ(a.radios[1].primary, "ll");
  EXPECT_EQ(a.radios[2].primary, "lu");
  EXPECT_EQ(a.radios[0].vaps[1].ssid, "guest");
  EXPECT_EQ(site.clients[0].position, (Point{5, 5, 1.2}));
  EXPECT_EQ(site.room_at({4, 5})->name, "West");
  EXPECT_EQ(site.room_at({13, 5})->name, "East");
  EXPECT_EQ(site.room_at({50, 5}), nullptr);
}

TEST(SiteFile, FillsInWhatItDoesNotSay) {
  const Site site = parse_site(R"({"name": "n", "domain": "d", "floor": {"width": 1, "depth": 2}})");
  EXPECT_EQ(site.seed, 1U);
  EXPECT_EQ(site.radio_model.shadowing_db, 5);
  EXPECT_EQ(site.radio_model.noise_db, 1.5);
  EXPECT_EQ(site.scan.rounds, 3);
  EXPECT_EQ(site.scan.fast_seconds, 6);
  EXPECT_EQ(site.scan.sensitivity_dbm.of(6), -92);
  EXPECT_TRUE(site.access_points.empty());
  EXPECT_EQ(site.expectations.power_falls_within_m, 0);
}

TEST(SiteFile, OwnRadiosReplaceTheProfile) {
  const Site site = parse_site(with(two_aps, R"("serial": "SN2")", R"("radios": [{"id": 2, "band": 5, "channel": 149,
      "power": 9, "power_min": 1, "power_max": 9, "enabled": false, "locked_for_dca": true}], "serial": "SN2")"));
  const auto& radios = site.access_points[1].radios;
  ASSERT_EQ(radios.size(), 1U);
  EXPECT_EQ(radios[0].id, 2);
  EXPECT_FALSE(radios[0].enabled);
  EXPECT_TRUE(radios[0].locked_for_dca);
  EXPECT_FALSE(radios[0].locked_for_tpc);
}

TEST(SiteFile, MaterialsOfItsOwnJoinThePublishedOnes) {
  const Site site = parse_site(with(with(two_aps, R"("material": "partition")", R"("material": "bookcase")"),
                                    R"("walls")", R"("materials": {"bookcase": {"2": 4, "5": 6, "6": 6.5}}, "walls")"));
  EXPECT_EQ(site.radio_model.materials.at("bookcase").of(6), 6.5);
  EXPECT_EQ(site.radio_model.materials.count("concrete"), 1U);
}

TEST(SiteFile, ClientsHaveATemperAndHours) {
  const auto client = [](const std::string& more) {
    return parse_site(with(two_aps, R"("bands": [2, 5])", R"("bands": [2, 5])" + more)).clients[0];
  };
  EXPECT_EQ(client("").temper, Temper::obedient);
  EXPECT_EQ(client("").from, 0);
  EXPECT_EQ(client("").until, std::nullopt);
  EXPECT_EQ(client(R"(, "temper": "obedient")").temper, Temper::obedient);
  EXPECT_EQ(client(R"(, "temper": "refuses")").temper, Temper::refuses);
  EXPECT_EQ(client(R"(, "temper": "sticks")").temper, Temper::sticks);
  EXPECT_EQ(client(R"(, "temper": "comes_back")").temper, Temper::comes_back);
  EXPECT_EQ(client(R"(, "from": 60, "until": 61)").from, 60);
  EXPECT_EQ(client(R"(, "from": 60, "until": 61)").until, 61);
}

TEST(SiteFile, RadiosAndApsSayWhatTheControllerMayDoWithThem) {
  const Site plain = parse_site(two_aps);
  EXPECT_FALSE(plain.access_points[0].wildcard_80211r);
  EXPECT_FALSE(plain.access_points[0].radios[1].locked_for_balancer);
  EXPECT_FALSE(plain.access_points[0].radios[1].locked_for_80211v);
  const Site site = parse_site(with(with(two_aps, R"("serial": "SN1")", R"("serial": "SN1", "wildcard_80211r": true)"),
                                    R"("id": 1, "band": 5)",
                                    R"("id": 1, "locked_for_balancer": true, "locked_for_80211v": true, "band": 5)"));
  EXPECT_TRUE(site.access_points[0].wildcard_80211r);
  EXPECT_FALSE(site.access_points[1].wildcard_80211r);
  EXPECT_TRUE(site.access_points[1].radios[1].locked_for_balancer);
  EXPECT_TRUE(site.access_points[1].radios[1].locked_for_80211v);
}

struct Refusal {
  const char* what;
  const char* by;
  const char* complaint;
};

TEST(SiteFile, RefusesWithThePlaceAndTheReason) {
  for (const Refusal& c : {
           Refusal{R"("name": "two",)", "", "site.name is missing"},
           {R"("domain": "lab")", R"("domain": "")", "site.domain must be a text that is not empty"},
           {R"("seed": 7)", R"("seed": "7")", "site.seed must be an integer of 32 bits"},
           {R"("seed": 7)", R"("seed": 4294967296)", "site.seed must be an integer of 32 bits"},
           {R"("seed": 7)", R"("sed": 7)", "site has an unknown key \"sed\""},
           {R"({"width": 20, "depth": 10})", "3", "site.floor must be an object"},
           {R"("width": 20)", R"("width": 0)", "site.floor must have a width and a depth above 0"},
           {R"("rounds": 2)", R"("rounds": 0)", "site.scan must have at least one round and no negative time"},
           {R"("from": [13, 0])", R"("from": [13])",
            "site.walls[0].from must be two numbers, metres from the left and from the top"},
           {R"("material": "partition")", R"("material": "paper")",
            "site.walls[0].material is of no known material \"paper\""},
           {R"("id": 1, "band": 5)", R"("id": 3, "band": 5)", "site.radio_profile[1].id must be 0, 1 or 2"},
           {R"("id": 1, "band": 5)", R"("id": 0, "band": 5)", "site.radio_profile[1].id stands twice"},
           {R"("band": 5, "channel": 36)", R"("band": 4, "channel": 36)",
            "site.radio_profile[1].band must be 2, 5 or 6"},
           {R"("channel": 36)", R"("channel": 38)",
            "site.radio_profile[1].channel is no channel of this band and bandwidth"},
           {R"([165, 181])", R"([165, 182])",
            "site.radio_profile[2].available_channels has no channel 182 in this band"},
           {R"([165, 181])", R"("165")",
            "site.radio_profile[2].available_channels must be an array of integers of 32 bits"},
           {R"([165, 181])", R"([4294967461])",
            "site.radio_profile[2].available_channels must be an array of integers of 32 bits"},
           {R"([165, 181])", R"([18446744073709551615])",
            "site.radio_profile[2].available_channels must be an array of integers of 32 bits"},
           {R"("shadowing_db": 0)", R"("shadowing_db": -1)", "site.radio_model must have no negative deviation"},
           {R"("noise_db": 0)", R"("noise_db": -0.1)", "site.radio_model must have no negative deviation"},
           {R"("power": 20)", R"("power": 21)", "site.radio_profile[0].power must lie in power_min to power_max"},
           {R"("id": 1, "ssid": "guest")", R"("id": 16, "ssid": "guest")",
            "site.radio_profile[0].vaps[1].id must lie in 0 to 15"},
           {R"("id": 1, "ssid": "guest")", R"("id": 0, "ssid": "guest")",
            "site.radio_profile[0].vaps[1].id stands twice"},
           {R"("02:00:5e:00:01:00")", R"("02:00:5e:00:01")",
            "site.access_points[0].mac must be a MAC address such as \"02:00:5e:00:01:00\""},
           {R"("02:00:5e:00:02:00")", R"("02:00:5e:00:01:2f")",
            "site.access_points[1].mac lies within 48 addresses of another access point's"},
           {R"("06:00:00:00:00:01")", R"("02:00:5e:00:01:2f")", "site.foreign[0].bssid is taken already"},
           {R"("foreign": [)", R"("foreign": [{"name": "g", "bssid": "06:00:00:00:00:01", "position": [1, 1], "band": 2,
             "channel": 1, "power": 9}, )",
            "site.foreign[1].bssid is taken already"},
           {R"("clients": [)", R"("clients": [{"mac": "02:c1:00:00:00:01", "ssid": "staff", "bands": [2],
             "position": [1, 1]}, )",
            "site.clients[1].mac is taken already"},
           {R"("channel": 100, "power": 15)", R"("channel": 101, "power": 15)",
            "site.foreign[0].channel is no channel of this band and bandwidth"},
           {R"("bands": [2, 5])", R"("bands": [])", "site.clients[0].bands must name one or more of 2, 5 and 6"},
           {R"("bands": [2, 5])", R"("bands": [3])", "site.clients[0].bands must name one or more of 2, 5 and 6"},
           {R"("bands": [2, 5])", R"("bands": [2], "speed": -1)", "site.clients[0].speed must not be negative"},
           {R"("bands": [2, 5])", R"("bands": [2], "temper": "angry")",
            R"(site.clients[0].temper must be "obedient", "refuses", "sticks" or "comes_back")"},
           {R"("bands": [2, 5])", R"("bands": [2], "from": -1)", "site.clients[0].from must not be negative"},
           {R"("bands": [2, 5])", R"("bands": [2], "from": 5, "until": 5)",
            "site.clients[0].until must be later than from"},
           {R"("bands": [2, 5])", R"("bands": [2], "until": 0)", "site.clients[0].until must be later than from"},
           {R"("clients": [)", R"("clients": 5, "x": [)", "site.clients must be an array"},
       }) {
    try {
      parse_site(with(two_aps, c.what, c.by));
      ADD_FAILURE() << "taken, instead of: " << c.complaint;
    } catch (const SiteError& error) {
      EXPECT_STREQ(error.what(), c.complaint);
    }
  }
}

TEST(SiteFile, NeighbouringPoolsMayTouch) {
  EXPECT_NO_THROW(parse_site(with(two_aps, R"("02:00:5e:00:02:00")", R"("02:00:5e:00:01:30")")));
}

TEST(SiteFile, ThatIsNoJsonOrNotThereIsRefused) {
  EXPECT_THROW(parse_site("{"), SiteError);
  EXPECT_THROW(parse_site("[]"), SiteError);
  EXPECT_THROW(load_site("/nonexistent/site.json"), SiteError);
}

TEST(SiteFile, TheOfficeIsAsItsStorySays) {
  const Site office = load_site(OFFICE_SITE);
  EXPECT_EQ(office.access_points.size(), 12U);
  EXPECT_EQ(office.foreign_aps.size(), 6U);
  EXPECT_EQ(office.clients.size(), 40U);
  std::map<const Room*, int> aps_in;
  for (const AccessPoint& ap : office.access_points) {
    ASSERT_EQ(ap.radios.size(), 3U);
    const Room* const room = office.room_at(ap.position);
    ASSERT_NE(room, nullptr) << ap.name;
    ++aps_in[room];
    for (std::size_t i = 0; i < 3; ++i) {  // as an installer leaves them: all alike, at full power
      EXPECT_EQ(ap.radios[i].channel, office.access_points[0].radios[i].channel);
      EXPECT_EQ(ap.radios[i].power, ap.radios[i].power_max);
    }
  }
  const auto crowded = std::count_if(aps_in.begin(), aps_in.end(), [](const auto& entry) { return entry.second > 1; });
  EXPECT_GE(crowded, 2);
}

}  // namespace
}  // namespace sim
