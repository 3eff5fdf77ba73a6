// The clients of a site: whom they choose, when they roam, how they walk and what they do when they are turned away.
#include <gtest/gtest.h>

#include "sim/stations.h"
#include "sites.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

// Writes down what happens; refuses the radios that the test names.
class Diary : public StationObserver {
 public:
  Answer ask(std::size_t ap, int radio, const Mac&, int refusals) override {
    if (closed.count({ap, radio}) == 0) {
      return Answer::accepts;
    }
    return refusals >= patience ? Answer::accepts_for_good : Answer::refuses;
  }
  void joined(const Station& station) override {
    lines.push_back("joins " + name(*station.association) + (station.association->no_balance ? " for good" : ""));
  }
  void left(const Station&, const Association& from) override { lines.push_back("leaves " + name(from)); }

  static std::string name(const Association& association) {
    return (association.ap == 0 ? "A" : "B") + std::to_string(association.radio);
  }

  std::set<std::pair<std::size_t, int>> closed;
  int patience = 100;
  std::vector<std::string> lines;
};

class StationsTest : public ::testing::Test {
 protected:
  void set(const std::string& what, const std::string& by) { site_ = parse_site(with(two_aps, what, by)); }
  void start() {
    world_.emplace(site_);
    stations_.emplace(*world_, diary_);
  }
  void steps(int count) {
    for (int i = 0; i < count; ++i) {
      stations_->step();
    }
  }
  const Station& client() const { return stations_->all().front(); }

  Site site_ = parse_site(two_aps);
  Diary diary_;
  std::optional<World> world_;
  std::optional<Stations> stations_;
  const Mac mac_ = site_.clients[0].mac;
};

TEST_F(StationsTest, ChoosesTheNearestRadioAndPrefersTheHigherBands) {
  start();
  steps(1);
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A1"}));
  EXPECT_EQ(stations_->served_by(0, 1).size(), 1U);
  EXPECT_TRUE(stations_->served_by(0, 0).empty());
}

TEST_F(StationsTest, AClientOf24GhzTakesThat) {
  set(R"("bands": [2, 5])", R"("bands": [2])");
  start();
  steps(1);
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A0"}));
}

TEST_F(StationsTest, StaysAwayFromForeignSsids) {
  set(R"("ssid": "staff", "bands")", R"("ssid": "elsewhere", "bands")");
  start();
  steps(10);
  EXPECT_TRUE(diary_.lines.empty());
}

TEST_F(StationsTest, SitsStillWithoutAPath) {
  start();
  steps(100);
  EXPECT_EQ(client().position, (Point{5, 5, 1.2}));
  EXPECT_EQ(diary_.lines.size(), 1U);
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
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A1"}));
  steps(20);
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A1", "leaves A1", "joins B1"}));
}

TEST_F(StationsTest, DoesNotRoamForAFewDecibels) {
  // Two metres nearer to B than to A, on B's side of the wall.
  set(R"("position": [5, 5])", R"("position": [10, 5])");
  site_.walls.clear();
  start();
  diary_.closed = {{1, 0}, {1, 1}};
  steps(1);
  ASSERT_EQ(diary_.lines, (std::vector<std::string>{"joins A1"}));
  diary_.closed.clear();
  steps(50);
  EXPECT_EQ(diary_.lines.size(), 1U);
}

TEST_F(StationsTest, TurnedAwayItTakesTheNextBest) {
  diary_.closed = {{0, 1}};
  start();
  steps(1);
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A0"}));
}

TEST_F(StationsTest, TurnedAwayEverywhereItKeepsTrying) {
  diary_.closed = {{0, 0}, {0, 1}, {1, 0}, {1, 1}};
  diary_.patience = 5;
  start();
  steps(2);
  EXPECT_TRUE(diary_.lines.empty());
  steps(1);  // the sixth knock at A, with its second radio
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A0 for good"}));
}

TEST_F(StationsTest, DismissedItLooksElsewhere) {
  start();
  steps(1);
  diary_.closed = {{0, 0}, {0, 1}};
  stations_->dismiss(mac_);
  EXPECT_EQ(diary_.lines, (std::vector<std::string>{"joins A1", "leaves A1", "joins B1"}));
}

TEST_F(StationsTest, IsMovedToARadioThatItHears) {
  start();
  steps(1);
  stations_->move(mac_, 1, 1);
  EXPECT_EQ(client().association, (Association{1, 1, false}));
  stations_->move(mac_, 0, 2);  // a 6 GHz radio, and the client has none
  EXPECT_EQ(client().association, (Association{1, 1, false}));
}

TEST_F(StationsTest, LeavesARadioThatItCannotHearAnyMore) {
  set(R"("position": [5, 5])", R"("position": [5, 5], "path": [[400, 5]], "speed": 50)");
  start();
  steps(12);
  EXPECT_EQ(diary_.lines.back().substr(0, 6), "leaves");
  EXPECT_FALSE(client().association);
}

TEST_F(StationsTest, UnknownStationsAreNobody) {
  start();
  EXPECT_EQ(stations_->find(Mac{1}), nullptr);
  stations_->dismiss(Mac{1});
  stations_->move(Mac{1}, 0, 0);
  EXPECT_TRUE(diary_.lines.empty());
}

}  // namespace
}  // namespace sim
