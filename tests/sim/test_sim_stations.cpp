// The clients of a site: whom they choose, when they roam, how they walk, come and go, what they do when they are
// turned away, and how those of each temper answer an AP that wants them elsewhere.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "sim/stations.h"
#include "sites.h"
#include "steering_lines.h"

namespace sim {
namespace {

using testing::lines_of;
using testing::two_aps;
using testing::with;

// APs that refuse on the radios that the test names, and let in for good whoever has knocked often enough.
class Doors : public StationObserver {
 public:
  Answer ask(const Place& at, const Mac&) override {
    if (closed.count(at) == 0) {
      return Answer::accepts;
    }
    return knocks++ >= patience ? Answer::accepts_for_good : Answer::refuses;
  }
  bool takes_keys(const Place& at, const Station& station) override {
    return linked.count({station.keys->holder, at}) != 0;
  }
  std::optional<FtSession> authenticate(const Place& at, const Station&) override {
    return has_keys ? std::optional<FtSession>(FtSession{at, 1, "r0"}) : std::nullopt;
  }
  bool joined(const Station&) override { return false; }
  void left(const Station&, const Association&, Cause) override {}
  void departed(const Station&) override {}
  void happened(const SteeringEvent& event) override { events.push_back(event); }

  std::set<Place> closed;
  int knocks = 0;
  int patience = 100;
  bool has_keys = false;
  std::set<std::pair<Place, Place>> linked;
  std::vector<SteeringEvent> events;
};

constexpr Place a0{0, 0};
constexpr Place a1{0, 1};
constexpr Place b0{1, 0};
constexpr Place b1{1, 1};
constexpr const char* mac_text = "02:c1:00:00:00:01";
const Mac bssid_of_a1 = *Mac::parse("02:00:5e:00:01:10");
const Mac bssid_of_b0 = *Mac::parse("02:00:5e:00:02:00");
const Mac bssid_of_b1 = *Mac::parse("02:00:5e:00:02:10");

class StationsTest : public ::testing::Test {
 protected:
  void set(const std::string& what, const std::string& by) { site_ = parse_site(with(text_, what, by)); }
  // The client with another temper, at (x, 5).
  void set_client(const std::string& temper, double x) {
    set(R"("position": [5, 5])", R"("temper": ")" + temper + R"(", "position": [)" + std::to_string(x) + ", 5]");
  }
  void start() {
    world_.emplace(site_);
    stations_.emplace(*world_, doors_);
  }
  void steps(int count) {
    for (int i = 0; i < count; ++i) {
      stations_->step();
    }
  }
  void teleport(double x) { stations_->enter(mac_, {x, 5, 1.2}); }
  // Gives a radio the power with which the client hears it at `level` dBm or up to one above.
  void set_level(const Place& place, int level) {
    Radio radio = *world_->radio(place.ap, place.radio);
    const double now = world_->downlink_dbm(place.ap, radio, client().position, mac_);
    radio.power += level - static_cast<int>(std::floor(now));
    radio.power_min = -100;
    ASSERT_EQ(world_->reconfigure(place.ap, radio), "");
  }
  const Station& client() const { return stations_->all().front(); }
  Place place() const { return client().association.value().place(); }
  // What has happened since the last call, without the client's address.
  std::vector<std::string> story() {
    std::vector<std::string> lines = lines_of(std::exchange(doors_.events, {}));
    for (std::string& line : lines) {
      line.erase(0, std::string(mac_text).size() + 1);
    }
    return lines;
  }
  using Story = std::vector<std::string>;

  std::string text_ = two_aps;
  Site site_ = parse_site(two_aps);
  Doors doors_;
  std::optional<World> world_;
  std::optional<Stations> stations_;
  const Mac mac_ = *Mac::parse(mac_text);
};

TEST_F(StationsTest, ChoosesTheNearestRadioAndPrefersTheHigherBands) {
  start();
  steps(1);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full"}));
  EXPECT_EQ(stations_->served_by(0, 1).size(), 1U);
  EXPECT_TRUE(stations_->served_by(0, 0).empty());
}

TEST_F(StationsTest, AClientOf24GhzTakesThat) {
  set(R"("bands": [2, 5])", R"("bands": [2])");
  start();
  steps(1);
  EXPECT_EQ(story(), (Story{"joined A0: arrival, full"}));
}

TEST_F(StationsTest, StaysAwayFromForeignSsids) {
  set(R"("ssid": "staff", "bands")", R"("ssid": "elsewhere", "bands")");
  start();
  steps(10);
  EXPECT_EQ(story(), Story{});
}

TEST_F(StationsTest, SitsStillWithoutAPath) {
  start();
  steps(100);
  EXPECT_EQ(client().position, (Point{5, 5, 1.2}));
  EXPECT_EQ(story().size(), 1U);
}

TEST_F(StationsTest, WalksItsPathRoundAndRoundAtItsSpeed) {
  set(R"("position": [5, 5])", R"("position": [5, 5], "path": [[9, 5], [5, 5]], "speed": 1.5)");
  start();
  for (const double x : {6.5, 8.0, 9.0, 7.5, 6.0, 5.0, 6.5}) {
    steps(1);
    EXPECT_DOUBLE_EQ(client().position.x, x);
  }
}

TEST_F(StationsTest, RoamsWhenAnotherApIsClearlyBetter) {
  set(R"("position": [5, 5])", R"("position": [5, 5], "path": [[15, 5]], "speed": 1)");
  start();
  steps(5);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full"}));
  steps(20);
  EXPECT_EQ(story(), (Story{"moved A1 to B1: own choice, full"}));
}

TEST_F(StationsTest, DoesNotRoamForAFewDecibels) {
  // Two metres nearer to B than to A, on B's side of the wall.
  set(R"("position": [5, 5])", R"("position": [10, 5])");
  site_.walls.clear();
  start();
  doors_.closed = {b0, b1};
  steps(1);
  ASSERT_EQ(place(), a1);
  doors_.closed.clear();
  steps(50);
  EXPECT_EQ(place(), a1);
}

TEST_F(StationsTest, TurnedAwayItTakesTheNextBest) {
  doors_.closed = {a1};
  start();
  steps(1);
  EXPECT_EQ(story(), (Story{"turned away A1: arrival", "joined A0: arrival, full, refused 1 times"}));
}

TEST_F(StationsTest, TurnedAwayEverywhereItKeepsTrying) {
  doors_.closed = {a0, a1, b0, b1};
  doors_.patience = 9;
  start();
  steps(2);
  EXPECT_FALSE(client().association);
  EXPECT_EQ(story().size(), 8U);
  steps(1);
  EXPECT_EQ(story(), (Story{"turned away A1: arrival", "joined A0: arrival, full, for good, refused 9 times"}));
}

// It is served by A and would like to move to B, which is closed to it.
TEST_F(StationsTest, OneWithServiceLetsARefusingRadioAloneForHalfAMinute) {
  start();
  steps(1);
  doors_.closed = {b0, b1};
  teleport(14);
  steps(5);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "turned away A1 to B1: own choice",
                            "turned away A1 to B0: own choice"}));
  steps(29);
  EXPECT_EQ(story(), Story{});
  steps(1);
  EXPECT_EQ(story(), (Story{"turned away A1 to B1: own choice", "turned away A1 to B0: own choice"}));
}

TEST_F(StationsTest, OnAnotherRadioItForgetsWhoRefusedIt) {
  start();
  steps(1);
  doors_.closed = {b1};
  teleport(14);
  steps(5);
  ASSERT_EQ(place(), b0);
  doors_.closed.clear();
  set_level(b0, -75);
  story();
  steps(5);
  EXPECT_EQ(story(), (Story{"moved B0 to B1: own choice, full"}));
}

TEST_F(StationsTest, DismissedItListensForASecondAndLooksElsewhere) {
  start();
  steps(1);
  doors_.closed = {a0, a1};
  stations_->dismiss(mac_);
  EXPECT_FALSE(client().association);
  steps(1);
  EXPECT_FALSE(client().association);
  steps(1);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "left A1: sent away", "turned away A1: sent away",
                            "turned away A0: sent away", "joined A1 to B1: sent away, full, refused 2 times"}));
}

TEST_F(StationsTest, LeavesARadioThatItCannotHearAnyMore) {
  start();
  steps(1);
  teleport(400);
  steps(6);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "left A1: out of reach"}));
  teleport(5);
  steps(1);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full"}));  // having heard no radio for a while, it begins anew
}

TEST_F(StationsTest, UnknownStationsAreNobody) {
  start();
  EXPECT_EQ(stations_->find(Mac{1}), nullptr);
  stations_->dismiss(Mac{1});
  EXPECT_FALSE(stations_->enter(Mac{1}, {5, 5, 1}));
  EXPECT_FALSE(stations_->leave(Mac{1}));
  EXPECT_EQ(stations_->propose(Mac{1}, {{bssid_of_b1, 255}}), std::nullopt);
  EXPECT_EQ(story(), Story{});
}

// --- coming and going

TEST_F(StationsTest, KeepsTheHoursOfItsSite) {
  set(R"("position": [5, 5])", R"("position": [5, 5], "from": 3, "until": 7)");
  start();
  steps(3);
  EXPECT_FALSE(client().present);
  EXPECT_EQ(story(), Story{});
  steps(1);
  EXPECT_TRUE(client().present);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full"}));
  steps(3);
  EXPECT_EQ(story(), Story{});
  steps(1);
  EXPECT_FALSE(client().present);
  EXPECT_EQ(story(), (Story{"left A1: departure"}));
}

TEST_F(StationsTest, EntersAndLeavesWhenItIsTold) {
  start();
  steps(1);
  EXPECT_TRUE(stations_->leave(mac_));
  EXPECT_FALSE(stations_->leave(mac_));
  steps(10);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "left A1: departure"}));
  EXPECT_TRUE(stations_->enter(mac_, {14, 5, 1.2}));
  steps(1);
  EXPECT_EQ(story(), (Story{"joined B1: arrival, full"}));
}

TEST_F(StationsTest, LosesARadioThatIsSwitchedOff) {
  start();
  steps(1);
  Radio off = *world_->radio(0, 1);
  off.enabled = false;
  ASSERT_EQ(world_->reconfigure(0, off), "");
  stations_->lose_unserved();
  steps(2);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "left A1: radio gone", "joined A1 to A0: radio gone, full"}));
}

TEST_F(StationsTest, LosesAllRadiosOfAnApThatStartsAnew) {
  start();
  steps(1);
  stations_->lose_all(1);
  EXPECT_EQ(place(), a1);
  stations_->lose_all(0);
  EXPECT_FALSE(client().association);
}

// --- 802.11v

class TransitionTest : public StationsTest {
 protected:
  // Served by A on 5 GHz; it hears both APs well wherever the tests put it.
  void start_at(double x, const std::string& temper = "obedient") {
    set_client(temper, x);
    start();
    doors_.closed = {b0, b1};
    steps(1);
    doors_.closed.clear();
    ASSERT_EQ(place(), a1);
    story();
  }
};

TEST_F(TransitionTest, AnObedientOneAgreesAndMovesInItsNextStep) {
  start_at(8);
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  EXPECT_EQ(place(), a1);
  steps(1);
  EXPECT_EQ(story(), (Story{"moved A1 to B1: transition, full"}));
}

TEST_F(TransitionTest, TakesTheHighestPriorityAndAmongEqualsTheStrongest) {
  struct Case {
    const char* label;
    std::vector<TransitionCandidate> list;
    Mac answer;
  };
  // At x = 8 the radio b0 (2.4 GHz) is heard better than b1.
  for (const Case& c :
       {Case{"the higher one though it is weaker", {{bssid_of_b0, 127}, {bssid_of_b1, 255}}, bssid_of_b1},
        {"the higher one, named first", {{bssid_of_b1, 255}, {bssid_of_b0, 127}}, bssid_of_b1},
        {"the stronger one of equals", {{bssid_of_b1, 127}, {bssid_of_b0, 127}}, bssid_of_b0},
        {"the stronger one, named first", {{bssid_of_b0, 127}, {bssid_of_b1, 127}}, bssid_of_b0},
        {"anything before a last resort", {{bssid_of_b0, 0}, {bssid_of_b1, 1}}, bssid_of_b1}}) {
    start_at(8);
    EXPECT_EQ(stations_->propose(mac_, c.list), c.answer) << c.label;
  }
}

TEST_F(TransitionTest, ABssidCountsUpToTheLocalBit) {
  start_at(8);
  const Mac flipped{bssid_of_b1.value ^ Mac::local_bit};
  EXPECT_EQ(stations_->propose(mac_, {{flipped, 255}}), flipped);
  steps(1);
  EXPECT_EQ(place(), b1);
}

TEST_F(TransitionTest, DeclinesWhatItCannotUse) {
  struct Case {
    const char* label;
    std::vector<TransitionCandidate> list;
  };
  for (const Case& c : {Case{"nothing", {}},
                        {"the radio that it is on", {{bssid_of_a1, 255}}},
                        {"a radio that nobody has", {{Mac{0x060000000077}, 255}}},
                        {"a band that it has not", {{*Mac::parse("02:00:5e:00:02:20"), 255}}},
                        {"a last resort, served well", {{bssid_of_b1, 0}}}}) {
    start_at(8);
    EXPECT_EQ(stations_->propose(mac_, c.list), std::nullopt) << c.label;
    EXPECT_EQ(story(), (Story{"declined A1: transition"})) << c.label;
    steps(1);
    EXPECT_EQ(place(), a1) << c.label;
  }
}

TEST_F(TransitionTest, ACandidateIsHeardWellFromMinus67Upwards) {
  start_at(8);
  set_level(b1, -68);
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), std::nullopt);
  set_level(b1, -67);
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
}

TEST_F(TransitionTest, TakesALastResortWhenItsOwnRadioServesItBadly) {
  start_at(8);
  set_level(a1, -67);
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 0}}), std::nullopt);
  set_level(a1, -68);
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 0}}), bssid_of_b1);
}

// It sits beside A, and hears it far better than B.
TEST_F(TransitionTest, WhereItWasLedItStaysWhileItHearsWell) {
  start_at(5);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  steps(60);
  EXPECT_EQ(story(), (Story{"moved A1 to B1: transition, full"}));
  set_level(b1, -70);
  steps(10);
  EXPECT_EQ(story(), Story{});
  set_level(b1, -71);
  steps(5);
  EXPECT_EQ(story(), (Story{"moved B1 to A1: own choice, full"}));
}

TEST_F(TransitionTest, OneThatRefusesDeclinesAndStillGoesWhenItIsSent) {
  start_at(8, "refuses");
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), std::nullopt);
  doors_.closed = {a0, a1};
  stations_->dismiss(mac_);
  steps(2);
  EXPECT_EQ(story(), (Story{"declined A1: transition", "left A1: sent away", "turned away A1: sent away",
                            "turned away A0: sent away", "joined A1 to B1: sent away, full, refused 2 times"}));
}

TEST_F(TransitionTest, OneThatSticksRoamsOnlyWhenItsRadioIsGone) {
  start_at(5, "sticks");
  teleport(14);
  steps(50);
  EXPECT_EQ(story(), Story{});
  set_level(a1, -80);
  steps(10);
  EXPECT_EQ(story(), Story{});
  set_level(a1, -81);
  steps(5);
  EXPECT_EQ(story(), (Story{"moved A1 to B1: own choice, full"}));
}

TEST_F(TransitionTest, OneThatSticksMakesATransition) {
  start_at(8, "sticks");
  EXPECT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
}

TEST_F(TransitionTest, OneThatComesBackReturnsAtOnce) {
  start_at(8, "comes_back");
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  steps(60);
  EXPECT_EQ(story(), (Story{"moved A1 to B1: transition, full", "moved B1 to A1: came back, full"}));
}

TEST_F(TransitionTest, OneThatComesBackKnocksUntilItIsLetIn) {
  start_at(8, "comes_back");
  doors_.closed = {a0, a1};
  doors_.knocks = 0;
  doors_.patience = 4;
  stations_->dismiss(mac_);
  steps(20);
  EXPECT_EQ(story(),
            (Story{"left A1: sent away", "turned away A1: came back", "turned away A0: sent away",
                   "joined A1 to B1: sent away, full, refused 2 times", "turned away B1 to A1: came back",
                   "turned away B1 to A1: came back", "moved B1 to A1: came back, full, for good, refused 2 times"}));
}

TEST_F(TransitionTest, ARefusingTargetLeavesItWhereItIs) {
  start_at(8);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  doors_.closed = {b1};
  steps(1);
  EXPECT_EQ(story(), (Story{"turned away A1 to B1: transition"}));
  EXPECT_EQ(place(), a1);
}

TEST_F(TransitionTest, ATargetThatHasGoneSilentIsGivenUp) {
  start_at(8);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  Radio off = *world_->radio(1, 1);
  off.enabled = false;
  ASSERT_EQ(world_->reconfigure(1, off), "");
  steps(2);
  EXPECT_EQ(story(), (Story{"gave up A1 to B1: transition"}));
  EXPECT_EQ(place(), a1);
}

TEST_F(TransitionTest, SentAwayBeforeItsNextStepItGivesTheTransitionUp) {
  start_at(8);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  stations_->dismiss(mac_);
  steps(2);
  EXPECT_EQ(story(), (Story{"gave up A1 to B1: transition", "left A1: sent away", "joined A1 to A1: sent away, full"}));
}

TEST_F(TransitionTest, LeavingTheSiteBeforeItsNextStepItGivesTheTransitionUp) {
  start_at(8);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  stations_->leave(mac_);
  steps(2);
  EXPECT_EQ(story(), (Story{"gave up A1 to B1: transition", "left A1: departure"}));
}

TEST_F(TransitionTest, ASecondTransitionReplacesTheOneThatItHasNotMadeYet) {
  start_at(8);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b1, 255}}), bssid_of_b1);
  ASSERT_EQ(stations_->propose(mac_, {{bssid_of_b0, 255}}), bssid_of_b0);
  steps(1);
  EXPECT_EQ(story(), (Story{"gave up A1 to B1: transition", "moved A1 to B0: transition, full"}));
}

// --- 802.11r

class KeysTest : public TransitionTest {
 protected:
  void SetUp() override { doors_.has_keys = true; }
  void go(double x) {
    teleport(x);
    steps(5);
  }
};

TEST_F(KeysTest, AMoveIsFastWhereTheApsAreLinked) {
  doors_.linked = {{a1, b1}};
  start();
  steps(1);
  go(14);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "moved A1 to B1: own choice, fast"}));
}

// The keys come from the first full authentication, not from the AP that served last.
TEST_F(KeysTest, TheRootOfTheKeysStaysWhereTheyWereMade) {
  doors_.linked = {{a1, b1}, {a1, a1}};
  start();
  steps(1);
  go(14);
  go(4);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "moved A1 to B1: own choice, fast",
                            "moved B1 to A1: own choice, fast"}));
  EXPECT_EQ(client().keys->holder, a1);
}

TEST_F(KeysTest, WithoutALinkTheNewApMakesNewKeys) {
  start();
  steps(1);
  go(14);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "moved A1 to B1: own choice, full"}));
  EXPECT_EQ(client().keys->holder, b1);
}

TEST_F(KeysTest, OneThatWasSentAwayHasNoKeysLeft) {
  doors_.linked = {{a1, a1}, {a1, b1}};
  start();
  steps(1);
  stations_->dismiss(mac_);
  steps(2);
  EXPECT_EQ(story(), (Story{"joined A1: arrival, full", "left A1: sent away", "joined A1 to A1: sent away, full"}));
}

}  // namespace
}  // namespace sim
