// What no access point would send, sent all the same: each kind alone, with what becomes of it and what the server
// reports, then a dozen kinds at once, and all kinds from fifty connections, while a campus of access points goes
// through an optimisation. The campus must not notice.
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
#include "hostile/asker.h"
#include "hostile/campus.h"
#include "hostile/kinds.h"
#include "hostile/leaping_clock.h"
#include "hostile/peer.h"
#include "hostile/resident.h"
#include "hostile/site_server.h"
#include "hostile/storm.h"
#include "json/JsonReader.h"
#include "load/hurried_clock.h"
#include "support/capture.h"
#include "support/gate.h"

namespace hostile {
namespace {

using rrm::testing::eventually;
using std::chrono::milliseconds;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using Steady = std::chrono::steady_clock;

// A server with one access point in the yard, which every kind has for its victim. The time stands still, so nothing
// but the kinds can change what is known of that one.
class KindAlone : public ::testing::TestWithParam<Kind> {
 protected:
  static void SetUpTestSuite() {
    clock_.emplace();
    server_ = std::make_unique<SiteServer>();
    resident_.emplace(*server_, *clock_);
  }
  static void TearDownTestSuite() {
    resident_.reset();
    server_.reset();
    clock_.reset();
  }

  static bool only_the_resident_has_a_session() { return server_->sessions().size() == 1; }

  // What the kind has added is taken back before the records are compared.
  static void expect_effect_on_resident(const Kind& kind, const std::string& record_before) {
    EXPECT_TRUE(yard_has_heard_all(resident_->surroundings()));
    if (!kind.client.empty()) {
      EXPECT_THAT(resident_->record(), HasSubstr(kind.client));
      resident_->see_off(kind.client);
    }
    EXPECT_EQ(resident_->record(), record_before);
    EXPECT_TRUE(resident_->is_served());
  }

  static inline std::optional<rrm::testing::ManualClock> clock_;
  static inline std::unique_ptr<SiteServer> server_;
  static inline std::optional<Resident> resident_;
};

TEST_P(KindAlone, HasItsFateAndNoEffectOnOthers) {
  const Kind& kind = GetParam();
  static int number = 0;
  server_->take_events();
  const std::string record = resident_->record();
  {
    Peer peer = played(kind, resident_->surroundings(), ++number);
    const Fate fate = peer.look(kind.fate);
    EXPECT_TRUE(may_end_so(kind, fate)) << ::testing::PrintToString(fate);
    if (!kind.fate.is_of_session() && kind.start == Start::connected) {
      EXPECT_TRUE(eventually(only_the_resident_has_a_session));
    }
    expect_effect_on_resident(kind, record);
  }
  EXPECT_TRUE(eventually(only_the_resident_has_a_session));
  EXPECT_TRUE(yard_has_heard_all(resident_->surroundings()));
  EXPECT_EQ(resident_->record(), record);
  EXPECT_TRUE(eventually(only_the_resident_has_a_session));
  const std::set<int> events = server_->take_events();
  EXPECT_THAT(events, IsSupersetOf(kind.events));
  std::set<int> expected = kind.events;
  expected.insert(kind.possible.begin(), kind.possible.end());
  EXPECT_THAT(expected, IsSupersetOf(events));
}

// What the comparison is worth: the record tells of everything that a kind could change.
TEST_F(KindAlone, TheVictimsRecordTellsOfItsRadiosItsClientAndItsNeighbour) {
  for (const char* part : {"\"active-ap\"", "\"channel\":1,", "\"channel\":36,", "\"ssid\":\"staff\"",
                           "02:BB:00:00:00:01", "02:CC:00:00:00:01"}) {
    EXPECT_THAT(resident_->record(), HasSubstr(part));
  }
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
constexpr int times_as_fast = 2;
constexpr int times_as_fast_in_peace = 3;
constexpr std::int64_t pinged_after = 30;  // seconds of silence
constexpr std::int64_t dropped_after = 90;
constexpr std::int64_t answered_within = 60;  // its second or third ping at the latest reaches everybody
constexpr std::uint64_t seed = 20;
constexpr std::size_t campus_size = 200;
constexpr std::size_t victim = 99;
constexpr std::size_t storm_size = 50;
constexpr milliseconds longest_answer{15000};

// Looks every now and then until it holds; false if it takes too long.
bool holds_in_time(const std::function<bool()>& condition) {
  const auto deadline = Steady::now() + std::chrono::minutes(4);
  while (!condition()) {
    if (Steady::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return true;
}

void expect_one_cycle_of_all(SiteServer& server, Campus& campus) {
  EXPECT_THAT(server.steps(campus_domain),
              ::testing::ElementsAre("Send rrm-update messages on domain campus size 200 drop 0",
                                     "Start optimization on domain campus size 200 drop 0"));
  EXPECT_EQ(campus.whole_cycles(), 1);
}

std::vector<std::string> plan_in_peace() {
  const load::HurriedClock clock(times_as_fast_in_peace);
  SiteServer server;
  Campus campus(server.port, campus_size, seed);
  EXPECT_TRUE(holds_in_time([&] { return campus.whole_cycles() > 0; }));
  expect_one_cycle_of_all(server, campus);
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
  // Each was silent for so long that it was pinged.
  bool all_were_silent_and_spoke_again() const {
    return present_.size() == campus_size && std::all_of(present_.begin(), present_.end(), [this](const auto& session) {
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
  Asker asker(server.port);
  std::optional<Campus> campus;
  {
    Storm storm(storm_size, all_kinds(), {server.port, campus_domain, Campus::mac(victim)});
    campus.emplace(server.port, campus_size, seed);
    const bool is_over = holds_in_time([&] {
      watch.look();
      return campus->whole_cycles() > 0 && watch.all_were_silent_and_spoke_again() && storm.has_played_every_kind();
    });
    EXPECT_TRUE(is_over) << campus->whole_cycles() << " cycles, " << watch.sessions_now() << " sessions";
    storm.stop();
    asker.stop();
    EXPECT_THAT(storm.surprises(), ::testing::IsEmpty());
    EXPECT_TRUE(asker.has_every_answer()) << "after " << asker.answered() << " answers";
    EXPECT_LT(asker.slowest(), longest_answer);
    std::cout << storm.played() << " hostile inputs of " << all_kinds().size() << " kinds; longest silence of "
              << campus_size << " access points " << watch.longest() << " s of " << dropped_after
              << " s, in time that passes " << times_as_fast << " times as fast; slowest of " << asker.answered()
              << " answers to one of them after " << asker.slowest().count() << " ms" << std::endl;
  }
  EXPECT_TRUE(holds_in_time([&] { return server.sessions().size() == campus_size; }));
  watch.look();
  EXPECT_EQ(watch.sessions_ever(), campus_size);  // none ended and came back
  EXPECT_EQ(watch.sessions_now(), campus_size);
  EXPECT_LE(watch.longest(), answered_within);
  EXPECT_THAT(campus->complaints(), ::testing::IsEmpty());
  expect_one_cycle_of_all(server, *campus);
  EXPECT_EQ(campus->plan(), expected);
}

// A dozen kinds that are soon played, of every sort, none of which has more answers than wait for a session: what they
// show is no matter of time, and so the sanitizers see it too.
constexpr std::size_t squall_size = 12;
constexpr std::size_t small_campus_size = 24;
constexpr std::size_t small_campus_victim = 7;
constexpr std::size_t many_answers = 100;
constexpr std::int64_t forced_delay_s = 20;
constexpr std::int64_t mode_wait_s = 15;

std::vector<Kind> squall_kinds() {
  return kinds_named({"a reset behind the upgrade", "an upgrade line by line", "a reset between fragments",
                      "a message letter by letter", "a close in the middle of a text", "arrays 513 deep",
                      "a subscription that is refused by a domain of its own", "a subscription on two sessions",
                      "1000 answers to probes", "the departure of another", "the scan of another",
                      "a client of another"});
}

// Of every access point of the small campus, as the server tells of it.
bool holds_of_all(SiteServer& server, const std::function<bool(const rrm::JsonReader& ap)>& condition) {
  for (std::size_t ap = 0; ap < small_campus_size; ++ap) {
    const std::string answer = server.access_point(campus_domain, Campus::mac(ap));
    if (!condition(rrm::JsonReader(answer.c_str()).get("active-ap"))) return false;
  }
  return true;
}

bool is_known(const rrm::JsonReader& ap) {
  return ap.has("mac");
}

// In the cycle under way.
bool has_told_its_mode(const rrm::JsonReader& ap) {
  return ap.get_int("active") != 0;
}

TEST(HostileSquall, LeavesTheCampusItsSessionsItsAnswersAndItsCycle) {
  LeapingClock clock;
  SiteServer server;
  Asker asker(server.port);
  Storm squall(squall_size, squall_kinds(), {server.port, campus_domain, Campus::mac(small_campus_victim)});
  Campus campus(server.port, small_campus_size, seed);
  EXPECT_TRUE(holds_in_time([&] { return holds_of_all(server, is_known); }));
  clock.leap(forced_delay_s);
  EXPECT_TRUE(holds_in_time([&] { return holds_of_all(server, has_told_its_mode); }));
  clock.leap(mode_wait_s);
  clock.let_go();
  EXPECT_TRUE(holds_in_time([&] {
    return campus.whole_cycles() > 0 && squall.has_played_every_kind() && asker.answered() >= many_answers;
  })) << campus.whole_cycles()
      << " cycles, " << asker.answered() << " answers";
  squall.stop();
  asker.stop();
  EXPECT_THAT(squall.surprises(), ::testing::IsEmpty());
  EXPECT_TRUE(asker.has_every_answer());
  EXPECT_THAT(campus.complaints(), ::testing::IsEmpty());
  EXPECT_THAT(server.steps(campus_domain),
              ::testing::ElementsAre("Send rrm-update messages on domain campus size 24 drop 0",
                                     "Start optimization on domain campus size 24 drop 0"));
  EXPECT_TRUE(holds_in_time([&] { return server.sessions().size() == small_campus_size; }));
  std::cout << squall.played() << " hostile inputs of " << squall_size << " kinds, " << asker.answered()
            << " answers to an access point beside them" << std::endl;
}

}  // namespace
}  // namespace hostile
