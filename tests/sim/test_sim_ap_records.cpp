// What a controller is told of a site's access points, and the addresses from which these connect.
#include <gtest/gtest.h>

#include <set>

#include "sim/ap_records.h"
#include "sim/source_addresses.h"
#include "sites.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

const char* const b_with_one_radio =
    R"("radios": [{"id": 1, "band": 6, "channel": 165, "bandwidth": 80, "power": 9, "power_min": 1, "power_max": 9}], )";

TEST(ApRecords, TellAddressPlaceAndBoardOfEachAccessPoint) {
  const Site site = parse_site(with(two_aps, R"("serial": "SN2")", R"("serial": "SN2", "board": "outdoor")"));
  EXPECT_EQ(ap_records(site, {"127.1.0.1", "127.1.0.2"}),
            R"([{"mac":"02:00:5e:00:01:00","ip":"127.1.0.1","location":"lab","board-type":"SIM-AP3"},)"
            "\n"
            R"( {"mac":"02:00:5e:00:02:00","ip":"127.1.0.2","location":"lab","board-type":"outdoor"}])"
            "\n");
}

TEST(ApRecords, HaveNoAddressWhereNobodyKnowsIt) {
  EXPECT_EQ(ap_records(parse_site(two_aps), {}),
            R"([{"mac":"02:00:5e:00:01:00","location":"lab","board-type":"SIM-AP3"},)"
            "\n"
            R"( {"mac":"02:00:5e:00:02:00","location":"lab","board-type":"SIM-AP3"}])"
            "\n");
}

TEST(ApRecords, OfASiteWithoutAccessPointsAreNone) {
  EXPECT_EQ(ap_records(parse_site(R"({"name": "n", "domain": "d", "floor": {"width": 1, "depth": 2}})"), {}), "[]\n");
}

TEST(Boards, WithTheOrdinaryBandsNeedNotBeTold) {
  EXPECT_EQ(boards(parse_site(two_aps)), std::nullopt);
}

TEST(Boards, OfOtherBandsAreToldByTheirRadios) {
  const Site site = parse_site(
      with(two_aps, R"("serial": "SN2")", b_with_one_radio + std::string(R"("serial": "SN2", "board": "outdoor")")));
  EXPECT_EQ(boards(site), "{\"outdoor\":\"2g 6g 6g\"}\n");
}

TEST(Boards, OfOneNameWithTwoBandsForARadioAreRefused) {
  const Site site =
      parse_site(with(two_aps, R"("serial": "SN2")", b_with_one_radio + std::string(R"("serial": "SN2")")));
  try {
    boards(site);
    ADD_FAILURE() << "accepted";
  } catch (const SiteError& error) {
    EXPECT_STREQ(error.what(),
                 "site.access_points: radio 1 of the board \"SIM-AP3\" has two bands; give the access points boards of "
                 "different names");
  }
}

TEST(SourceAddresses, AreOneForEachAccessPointOnLoopback) {
  for (const char* host : {"127.0.0.1", "127.9.9.9", "localhost"}) {
    EXPECT_EQ(source_addresses(host, 3), (std::vector<std::string>{"127.1.0.1", "127.1.0.2", "127.1.0.3"})) << host;
  }
}

TEST(SourceAddresses, NeverRepeatAndNeverEndIn0Or255) {
  const auto addresses = source_addresses("127.0.0.1", 62501, [](const std::string&) { return true; });
  EXPECT_EQ(addresses[249], "127.1.0.250");
  EXPECT_EQ(addresses[250], "127.1.1.1");
  EXPECT_EQ(addresses[62499], "127.1.249.250");
  EXPECT_EQ(addresses[62500], "127.2.0.1");
  EXPECT_EQ(std::set<std::string>(addresses.begin(), addresses.end()).size(), addresses.size());
}

TEST(SourceAddresses, AreOneForAllIfOneOfThemCannotBeUsed) {
  const auto without_the_third = [](const std::string& address) { return address != "127.1.0.3"; };
  EXPECT_EQ(source_addresses("127.0.0.1", 3, without_the_third),
            (std::vector<std::string>{"127.0.0.1", "127.0.0.1", "127.0.0.1"}));
  EXPECT_EQ(source_addresses("127.0.0.1", 2, without_the_third), (std::vector<std::string>{"127.1.0.1", "127.1.0.2"}));
}

TEST(SourceAddresses, OfOtherMachinesCannotBeUsed) {
  EXPECT_TRUE(can_be_used("127.1.0.1"));
  EXPECT_FALSE(can_be_used("192.0.2.1"));
}

TEST(SourceAddresses, AreLeftToTheMachineForAServerElsewhere) {
  for (const char* host : {"192.0.2.1", "128.0.0.1", "126.255.255.255", "controller.example", "::1", ""}) {
    EXPECT_TRUE(source_addresses(host, 3).empty()) << host;
  }
}

}  // namespace
}  // namespace sim
