// Whole cycles of a site: when one is whole, what is measured before and after it, what a person expects of it, and how
// it is printed, written and drawn. The same seed gives the same bytes.
#include <cmath>

#include "scripted_controller.h"
#include "sim/floor_plan.h"
#include "sim/picture.h"
#include "sim/report.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

const std::string expecting = R"("expectations": {"interference_falls_by_db": 20, "rooms_share_no_block": [5, 6],
    "power_falls": {"within_m": 10, "bands": [5]}}, "clients")";

class CycleTest : public testing::ScriptedController {
 protected:
  void SetUp() override { start(with(two_aps, R"("clients")", expecting)); }

  void run_scan() {
    for (std::size_t ap = 0; ap < simulation_->size(); ++ap) {
      say(ap, "rrm-request-mode");
    }
    for (std::size_t ap = 0; ap < simulation_->size(); ++ap) {
      order_scan(ap);
    }
    pass(6'000);
  }

  CycleResult run_cycle(const Json& plan_of_a, const Json& plan_of_b) {
    run_scan();
    say(0, "rrm-info", plan_of_a);
    say(1, "rrm-info", plan_of_b);
    auto result = simulation_->take_result();
    EXPECT_TRUE(result.has_value());
    return result.value_or(CycleResult{});
  }
};

TEST_F(CycleTest, IsWholeWhenEveryApHasItsPlan) {
  subscribe_all();
  run_scan();
  say(0, "rrm-info", plan(36, 20));
  EXPECT_EQ(simulation_->whole_cycles(), 0);
  EXPECT_EQ(simulation_->missing(), "1 of 2 APs, first B: no rrm-info with a plan");
  say(1, "rrm-info", plan(52, 20));
  EXPECT_EQ(simulation_->whole_cycles(), 1);
  EXPECT_EQ(simulation_->missing(), "");
  const auto result = simulation_->take_result();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->number, 1);
  EXPECT_EQ(result->seconds, 6);
  EXPECT_FALSE(simulation_->take_result());
}

TEST_F(CycleTest, SaysWhatIsMissing) {
  EXPECT_EQ(simulation_->missing(), "2 of 2 APs, first A: not subscribed");
  subscribe_all();
  EXPECT_EQ(simulation_->missing(), "2 of 2 APs, first A: no rrm-request-mode");
  say(0, "rrm-request-mode");
  EXPECT_EQ(simulation_->missing(), "2 of 2 APs, first A: no rrm-update");
  order_scan(0);
  EXPECT_EQ(simulation_->missing(), "2 of 2 APs, first A: the scan is not finished");
}

TEST_F(CycleTest, AnInfoWithoutRadiosIsNoPlan) {
  subscribe_all();
  run_scan();
  say(0, "rrm-info", {{"802dot11k", Json::array()}});
  say(1, "rrm-info", plan(52, 20));
  EXPECT_EQ(simulation_->whole_cycles(), 0);
}

TEST_F(CycleTest, AnInfoBeforeTheScanIsNoPlan) {
  subscribe_all();
  say(0, "rrm-request-mode");
  say(1, "rrm-request-mode");
  say(0, "rrm-info", plan(36, 20));
  order_scan(0);
  order_scan(1);
  pass(6'000);
  say(1, "rrm-info", plan(52, 20));
  EXPECT_EQ(simulation_->whole_cycles(), 0);
}

TEST_F(CycleTest, AnApThatMissedTheBeginningLeavesTheCycleOpen) {
  subscribe_all();
  run_cycle(plan(36, 20), plan(52, 20));
  say(0, "rrm-request-mode");
  order_scan(0);
  pass(6'000);
  say(0, "rrm-info", plan(36, 19));
  EXPECT_EQ(simulation_->whole_cycles(), 1);
  pass(60'000);  // the next cycle asks both
  run_cycle(plan(36, 18), plan(52, 18));
  EXPECT_EQ(simulation_->whole_cycles(), 2);
}

TEST_F(CycleTest, MeasuresBeforeAndAfter) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 20), plan(52, 18));
  ASSERT_EQ(cycle.before.radios.size(), 6U);
  EXPECT_EQ(cycle.before.radios[4].radio.channel, 36);
  EXPECT_EQ(cycle.before.radios[4].radio.power, 23);
  EXPECT_EQ(cycle.after.radios[4].radio.channel, 52);
  EXPECT_EQ(cycle.after.radios[4].radio.power, 18);
  // Both hear each other at -44.78 dBm before; afterwards each is alone on its block.
  EXPECT_NEAR(mw_to_dbm(cycle.before.interference_mw(5)), -44.78 + 3.01, 0.01);
  EXPECT_EQ(cycle.after.interference_mw(5), 0);
  EXPECT_EQ(cycle.before.contending_pairs(5), 1U);
  EXPECT_EQ(cycle.after.contending_pairs(5), 0U);
  EXPECT_EQ(cycle.before.contending_pairs(0), 3U);
  EXPECT_NEAR(cycle.before.median_interference_dbm(5), -44.78, 0.01);
  EXPECT_TRUE(std::isinf(cycle.after.median_interference_dbm(5)));
}

// 23 + 3 dBm at 2.06 m and B's radio behind the wall, at 9 m and 1.8 m below, on the same block.
TEST_F(CycleTest, MeasuresWhatClientsReceive) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 20), plan(52, 23));
  ASSERT_EQ(cycle.before.stations.size(), 1U);
  EXPECT_EQ(cycle.before.stations[0].band, 5);
  EXPECT_NEAR(cycle.before.stations[0].level_dbm, -27.06, 0.01);
  // 26 - (40.05 + 6.73 + 19.25 + 7) = -47.03 from B; noise of 80 MHz is -174 + 79.03 + 7 = -87.97 dBm.
  EXPECT_NEAR(cycle.before.stations[0].sinr_db, -27.06 + 47.03, 0.02);
  EXPECT_NEAR(cycle.after.stations[0].sinr_db, -30.06 + 87.97, 0.02);
  EXPECT_EQ(cycle.before.associated(), 1U);
}

struct CheckCase {
  const char* label;
  int channel_of_b;
  int power_of_b;
  std::vector<bool> passed;
  std::vector<std::string> measured;
};

// 2.4 and 6 GHz stay as they were in all cases: -38.1 and -50.1 dBm of the sum.
TEST_F(CycleTest, ChecksWhatTheSiteExpects) {
  for (const CheckCase& c : {
           CheckCase{"apart and quieter",
                     52,
                     18,
                     {false, true, true},
                     {"-36.3 dBm -> -37.8 dBm", "none do", "2 of 2 radios"}},
           {"apart, as loud as before",
            52,
            23,
            {false, true, false},
            {"-36.3 dBm -> -37.8 dBm", "none do", "1 of 2 radios, not B at 5 GHz"}},
       }) {
    SetUp();
    subscribe_all();
    const auto checks = check_plan(site_, run_cycle(plan(36, 20), plan(c.channel_of_b, c.power_of_b)));
    ASSERT_EQ(checks.size(), 3U) << c.label;
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_EQ(checks[i].passed, c.passed[i]) << c.label << ": " << checks[i].name;
      EXPECT_EQ(checks[i].measured, c.measured[i]) << c.label << ": " << checks[i].name;
    }
  }
}

// At 23 dBm the two hear each other at -44.78 dBm; the level of deference is -82.
TEST_F(CycleTest, AirTimeIsSharedDownToTheLevelOfDeference) {
  for (const auto& [power, pairs] : {std::pair{-14, 1U}, {-15, 0U}}) {
    site_ = parse_site(two_aps);
    for (AccessPoint& ap : site_.access_points) {
      ap.radios[1].power = power;
    }
    EXPECT_EQ(take_picture(World(site_)).contending_pairs(5), pairs) << power;
  }
}

TEST_F(CycleTest, TheLouderDirectionDecidesAboutAirTime) {
  site_.access_points[0].radios[1].power = -50;
  EXPECT_EQ(take_picture(World(site_)).contending_pairs(5), 1U);
}

TEST_F(CycleTest, InterferenceMustFallByAsMuchAsExpected) {
  subscribe_all();
  CycleResult cycle = run_cycle(plan(36, 20), plan(52, 20));
  cycle.before.radios.resize(1);
  cycle.after.radios.resize(1);
  cycle.before.radios[0].interference_mw = 1e-3;
  for (const auto& [after, passed] : {std::pair{1e-5, true}, {1.001e-5, false}, {1e-3, false}, {0.0, true}}) {
    cycle.after.radios[0].interference_mw = after;
    EXPECT_EQ(check_plan(site_, cycle)[0].passed, passed) << after;
  }
  EXPECT_EQ(check_plan(site_, cycle)[0].name, "interference summed over all radios falls by 20 dB or more");
  EXPECT_EQ(check_plan(site_, cycle)[0].measured, "-30.0 dBm -> none");
}

TEST_F(CycleTest, RadiosOfOneRoomMustNotShareSpectrum) {
  site_.rooms = {{"Hall", {{0, 0}, 20, 10}}};
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 20), plan(48, 20));
  const Check check = check_plan(site_, cycle)[1];
  EXPECT_FALSE(check.passed);
  EXPECT_EQ(check.name, "no two radios of one room share spectrum at 5 GHz and 6 GHz");
  EXPECT_EQ(check.measured, "A and B at 5 GHz, A and B at 6 GHz");
}

TEST_F(CycleTest, PowerMustFallOnlyWhereApsStandClose) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 22), plan(52, 22));
  EXPECT_TRUE(check_plan(site_, cycle)[2].passed);
  EXPECT_EQ(check_plan(site_, cycle)[2].measured, "2 of 2 radios");
  site_.expectations.power_falls_within_m = 9.99;  // nobody stands that close: the expectation itself is wrong
  EXPECT_FALSE(check_plan(site_, cycle)[2].passed);
}

TEST_F(CycleTest, NothingExpectedNothingChecked) {
  start(two_aps);
  subscribe_all();
  EXPECT_TRUE(check_plan(site_, run_cycle(plan(36, 20), plan(52, 20))).empty());
}

TEST_F(CycleTest, TableShowsEachRadioBeforeAndAfter) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 20), plan(52, 18));
  const std::string table = plan_table(site_, cycle, {{"a thing", "17", true}, {"another", "0", false}});
  EXPECT_NE(table.find("lab: cycle 1 planned 2 APs in 6.0 s\n"), std::string::npos) << table;
  EXPECT_NE(
      table.find("B        East               5 GHz       36/80 -> 52/80      23 -> 18  dBm    -44.8 dBm -> none"),
      std::string::npos)
      << table;
  EXPECT_NE(table.find("  5 GHz        sum   -41.8 dBm -> none        median radio   -44.8 dBm -> none        "
                       "pairs sharing air time   1 -> 0\n"),
            std::string::npos)
      << table;
  EXPECT_NE(table.find("ok      a thing: 17\nFAILED  another: 0\n"), std::string::npos) << table;
}

TEST_F(CycleTest, JsonHoldsTheSameFigures) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 20), plan(52, 18));
  const Json json = Json::parse(plan_json(site_, cycle, check_plan(site_, cycle)));
  EXPECT_EQ(json["site"], "two");
  EXPECT_EQ(json["domain"], "lab");
  EXPECT_EQ(json["access_points"][1]["room"], "East");
  EXPECT_EQ(json["access_points"][1]["radios"][1], Json::parse(R"({"id": 1, "band": 5,
      "before": {"channel": 36, "bandwidth": 80, "primary": "ll", "power": 23, "interference": -44.8},
      "after": {"channel": 52, "bandwidth": 80, "primary": "ll", "power": 18, "interference": null}})"));
  EXPECT_EQ(json["interference"]["before"]["sum_5"], -41.8);
  EXPECT_EQ(json["interference"]["before"]["contending_pairs"], 3);
  EXPECT_EQ(json["clients"]["after"]["associated"], 1);
  EXPECT_EQ(json["checks"].size(), 3U);
  EXPECT_EQ(json["checks"][1]["passed"], true);
}

std::size_t count(const std::string& text, const std::string& what) {
  std::size_t found = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++found;
  }
  return found;
}

TEST_F(CycleTest, DrawingShowsEveryRadioOnItsFloor) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(36, 20), plan(52, 18));
  const std::string before = floor_plan_svg(site_, cycle.before, "two: before <1> & \"2\"");
  const std::string after = floor_plan_svg(site_, cycle.after, "two: after");
  EXPECT_EQ(before.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\" ", 0), 0U);
  EXPECT_EQ(before.substr(before.size() - 7), "</svg>\n");
  EXPECT_EQ(count(before, "two: before &lt;1&gt; &amp; &quot;2&quot;"), 1U);
  EXPECT_EQ(count(before, "class=\"ap\">A</text>"), 3U);
  EXPECT_EQ(count(before, "36/80, 23 dBm"), 2U);
  EXPECT_EQ(count(after, "36/80, 20 dBm"), 1U);
  EXPECT_EQ(count(after, "52/80, 18 dBm"), 1U);
  EXPECT_EQ(count(before, "5 GHz: interference -41.8 dBm, 1 pair of APs shares air time"), 1U);
  EXPECT_EQ(count(after, "5 GHz: interference none, 0 pairs of APs share air time"), 1U);
  EXPECT_EQ(count(before, "stroke=\"#d7263d\""), 3U);
  EXPECT_EQ(count(after, "stroke=\"#d7263d\""), 2U);
  EXPECT_EQ(count(before, "f 100/20"), 1U);
  EXPECT_EQ(count(before, ">West<"), 3U);
}

TEST_F(CycleTest, ASharedBlockWithAForeignApIsDashed) {
  subscribe_all();
  const CycleResult cycle = run_cycle(plan(100, 20), plan(52, 18));
  EXPECT_EQ(count(floor_plan_svg(site_, cycle.after, ""), "stroke-dasharray=\"5 4\""), 1U);
}

// Chance of every kind is in it, and time passes differently; the results are the same to the last byte.
TEST_F(CycleTest, TheSameSeedGivesTheSameBytes) {
  const std::string chancy = with(with(two_aps, R"("shadowing_db": 0, "noise_db": 0)", R"("shadowing_db": 5)"),
                                  R"("position": [5, 5])", R"("position": [5, 5], "path": [[15, 5]])");
  std::vector<std::string> results;
  std::vector<Json> scans;
  for (const Millis pause : {1'000, 7'000}) {
    now_ = 0;
    start(chancy);
    subscribe_all();
    pass(0);
    for (Millis waited = 0; waited < pause; waited += 1'000) {
      pass(1'000);
    }
    sent(0);
    run_scan();
    for (const Json& message : sent(0)) {
      if (message["cmd"] == "rrm-response") {
        scans.push_back(message["rf-environment"]);
      }
    }
    say(0, "rrm-info", plan(52, 13));
    say(1, "rrm-info", plan(44, 17));
    const CycleResult cycle = simulation_->take_result().value();
    results.push_back(plan_json(site_, cycle, {}) + floor_plan_svg(site_, cycle.before, "") +
                      floor_plan_svg(site_, cycle.after, ""));
  }
  ASSERT_EQ(scans.size(), 2U);
  EXPECT_EQ(scans[0], scans[1]);
  EXPECT_NE(scans[0][0], scans[0][1]);
  EXPECT_EQ(results[0], results[1]);
}

TEST_F(CycleTest, AnotherSeedGivesAnotherSite) {
  std::vector<Json> scans;
  for (const char* seed : {R"("seed": 7)", R"("seed": 8)"}) {
    start(with(with(two_aps, R"("shadowing_db": 0, "noise_db": 0)", R"("shadowing_db": 5)"), R"("seed": 7)", seed));
    subscribe_all();
    run_scan();
    scans.push_back(sent(0).back()["rf-environment"]);
  }
  EXPECT_NE(scans[0], scans[1]);
}

}  // namespace
}  // namespace sim
