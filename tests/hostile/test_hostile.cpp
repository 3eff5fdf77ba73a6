// What no access point would send, sent all the same: each kind alone, with what becomes of it and what the server
// reports, and then all kinds from fifty connections at once while a campus of two hundred access points goes through
// an optimisation. The campus must not notice.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/clock.h"
#include "hostile/campus.h"
#include "hostile/kinds.h"
#include "hostile/peer.h"
#include "hostile/site_server.h"
#include "hostile/storm.h"
#include "load/hurried_clock.h"
#include "support/gate.h"

namespace hostile {
namespace {

using rrm::testing::eventually;
using std::chrono::milliseconds;
using ::testing::IsSupersetOf;
using Steady = std::chrono::steady_clock;

// A server with one access point in the yard, which every kind has for its victim.
class KindAlone : public ::testing::TestWithParam<Kind> {
 protected:
  static void SetUpTestSuite() {
    server_ = std::make_unique<SiteServer>();
    resident_.emplace(Surroundings{server_->port, "", ""}, 0xffffff);
    resident_->upgrade();
    resident_->subscribe();
    surroundings_ = {server_->port, yard_domain, resident_->mac()};
  }
  static void TearDownTestSuite() {
    resident_.reset();
    server_.reset();
  }

  // Its configuration is acknowledged, so it is still the session's and the domain's access point.
  static bool resident_is_served() {
    resident_->send(resident_->message("rrm-config-changed").with_radio(rrm::testing::a_2ghz_radio()));
    return resident_->await("rrm-info").has_value();
  }

  static bool only_the_resident_has_a_session() { return server_->sessions().size() == 1; }

  static inline std::unique_ptr<SiteServer> server_;
  static inline std::optional<Peer> resident_;
  static inline Surroundings surroundings_;
};

TEST_P(KindAlone, HasItsFateAndNoEffectOnOthers) {
  const Kind& kind = GetParam();
  static int number = 0;
  server_->take_events();
  {
    Peer peer = played(kind, surroundings_, ++number);
    EXPECT_EQ(peer.look(kind.fate), kind.fate);
    if (!kind.fate.is_of_session() && kind.start == Start::connected) {
      EXPECT_TRUE(eventually(only_the_resident_has_a_session));
    }
    EXPECT_TRUE(resident_is_served());
  }
  EXPECT_TRUE(eventually(only_the_resident_has_a_session));
  const std::set<int> events = server_->take_events();
  EXPECT_THAT(events, IsSupersetOf(kind.events));
  std::set<int> expected = kind.events;
  expected.insert(kind.possible.begin(), kind.possible.end());
  EXPECT_THAT(expected, IsSupersetOf(events));
}

std::string test_name(const ::testing::TestParamInfo<Kind>& info) {
  std::string name = info.param.name;
  std::replace_if(
      name.begin(), name.end(), [](unsigned char letter) { return std::isalnum(letter) == 0; }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Http, KindAlone, ::testing::ValuesIn(http_kinds()), test_name);
INSTANTIATE_TEST_SUITE_P(Frames, KindAlone, ::testing::ValuesIn(frame_kinds()), test_name);
INSTANTIATE_TEST_SUITE_P(Json, KindAlone, ::testing::ValuesIn(json_kinds()), test_name);
INSTANTIATE_TEST_SUITE_P(Messages, KindAlone, ::testing::ValuesIn(message_kinds()), test_name);

// How many times as fast as the world the server's time passes: all its timers are as much shorter for the peers.
constexpr int times_as_fast = 5;
constexpr int times_as_fast_in_peace = 10;
constexpr std::int64_t pinged_after = 30;  // seconds of silence
constexpr std::int64_t dropped_after = 90;
constexpr std::uint64_t seed = 20;
constexpr std::size_t victim = 99;

// Looks every now and then until it holds; false if it takes too long.
bool holds_in_time(const std::function<bool()>& condition) {
  const auto deadline = Steady::now() + std::chrono::minutes(4);
  while (!condition()) {
    if (Steady::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return true;
}

std::vector<std::string> plan_in_peace() {
  const load::HurriedClock clock(times_as_fast_in_peace);
  SiteServer server;
  Campus campus(server.port, seed);
  EXPECT_TRUE(holds_in_time([&] { return campus.whole_cycles() > 0; }));
  return campus.plan();
}

// How long each session of the campus has been silent, by what the server knows. The campus has addresses of its own.
class SilenceWatch {
 public:
  explicit SilenceWatch(const SiteServer& server) : server_(server) {}

  void look() {
    const std::int64_t now = rrm::monotonic_seconds();
    present_.clear();
    for (const SiteServer::Session& session : server_.sessions()) {
      if (session->peer.rfind("127.1.", 0) != 0) continue;
      const std::int64_t silence = now - session->last_seen;
      present_[session->id] = silence;
      std::int64_t& longest = longest_[session->id];
      longest = std::max(longest, silence);
    }
  }
  // Each was silent for so long that it was pinged, and has answered.
  bool all_have_answered_a_ping() const {
    return present_.size() == Campus::size &&
           std::all_of(present_.begin(), present_.end(), [this](const auto& session) {
             return longest_.at(session.first) >= pinged_after && session.second < pinged_after;
           });
  }
  std::size_t sessions_ever() const { return longest_.size(); }
  std::size_t sessions_now() const { return present_.size(); }
  std::int64_t longest() const {
    std::int64_t longest = 0;
    for (const auto& [id, silence] : longest_) longest = std::max(longest, silence);
    return longest;
  }

 private:
  const SiteServer& server_;
  std::map<std::uint32_t, std::int64_t> present_;
  std::map<std::uint32_t, std::int64_t> longest_;
};

TEST(HostileStorm, LeavesTheCampusItsSessionsItsTimersAndItsPlan) {
  const std::vector<std::string> expected = plan_in_peace();
  const load::HurriedClock clock(times_as_fast);
  SiteServer server;
  SilenceWatch watch(server);
  std::optional<Campus> campus;
  {
    Storm storm({server.port, campus_domain, Campus::mac(victim)});
    campus.emplace(server.port, seed);
    const bool is_over = holds_in_time([&] {
      watch.look();
      return campus->whole_cycles() > 0 && watch.all_have_answered_a_ping() && storm.has_played_every_kind();
    });
    EXPECT_TRUE(is_over) << campus->whole_cycles() << " cycles, " << watch.sessions_now() << " sessions";
    storm.stop();
    EXPECT_THAT(storm.surprises(), ::testing::IsEmpty());
    std::cout << storm.played() << " hostile inputs of " << all_kinds().size() << " kinds; longest silence of "
              << Campus::size << " access points " << watch.longest() << " s of " << dropped_after
              << " s, in time that passes " << times_as_fast << " times as fast" << std::endl;
  }
  EXPECT_TRUE(holds_in_time([&] { return server.sessions().size() == Campus::size; }));
  watch.look();
  EXPECT_EQ(watch.sessions_ever(), Campus::size);  // none ended and came back
  EXPECT_EQ(watch.sessions_now(), Campus::size);
  EXPECT_LE(watch.longest(), dropped_after);
  EXPECT_THAT(campus->complaints(), ::testing::IsEmpty());
  EXPECT_THAT(server.steps(campus_domain),
              ::testing::ElementsAre("Send rrm-update messages on domain campus size 200 drop 0",
                                     "Start optimization on domain campus size 200 drop 0"));
  EXPECT_EQ(campus->whole_cycles(), 1);
  EXPECT_EQ(campus->plan(), expected);
}

}  // namespace
}  // namespace hostile
