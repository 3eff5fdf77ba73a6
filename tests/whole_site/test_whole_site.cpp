// Client steering as a whole: a site lives through hundreds of random events while the domain steers its clients, and
// watchers see to it that some things hold all the time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "whole_site/controlled_site.h"
#include "whole_site/daily_life.h"
#include "whole_site/hall.h"
#include "whole_site/hold_watch.h"
#include "whole_site/link_watch.h"
#include "whole_site/list_watch.h"
#include "whole_site/reach_watch.h"

namespace whole_site {
namespace {

using ::testing::IsEmpty;

constexpr int events = 500;
constexpr int longest_settling = 400;  // seconds

// A seed, and which switches are on: balance, k, r, v; all_aps for neighbours; cross_band links of 2.4 GHz; the
// wildcard of 802.11r.
struct SiteRun {
  std::uint64_t seed;
  std::string switches;

  bool has(const std::string& name) const { return (" " + switches + " ").find(" " + name + " ") != std::string::npos; }
};

void PrintTo(const SiteRun& run, std::ostream* out) {
  *out << "seed " << run.seed << ": " << run.switches;
}

const std::vector<SiteRun> runs = {{1, "balance r v"},
                                   {2, "balance k r v cross_band"},
                                   {3, "balance r v all_aps cross_band"},
                                   {4, "balance k r v all_aps wildcard"},
                                   {5, "balance k r cross_band"},
                                   {6, "balance r all_aps wildcard"},
                                   {7, "balance k v all_aps"},
                                   {8, "balance r v cross_band wildcard"},
                                   {9, "r v"},
                                   {10, "balance k r all_aps cross_band"}};

rrm::DomainConfig settings_of(const SiteRun& run) {
  rrm::DomainConfig settings;
  settings.use_dunva_rrm_scan = true;
  settings.use_rrm_report = false;
  settings.use_optimization_event = true;
  settings.use_balance = run.has("balance");
  settings.use_80211k = run.has("k");
  settings.use_80211r = run.has("r");
  settings.use_80211v = run.has("v");
  settings.use_all_ap_balance = run.has("all_aps");
  settings.use_80211r_2g_cross_band = run.has("cross_band");
  settings.mode_response_wait = 3;
  settings.away_timeout = 60;
  settings.blacklist_thr_low = -70;
  settings.blacklist_thr_high = -62;
  settings.blacklist_timeout = 20;
  settings.load_balance_sta_low = 2;
  settings.load_balance_sta_high = 5;
  settings.load_balance_roam_count_min = 0;
  settings.sta_load_balance_period = 15;
  settings.client_rssi_renew = 5;
  settings.roam_attempt_timeout = 60;
  return settings;
}

// What an outsider hears and sees.
class Transcript final : public Watcher {
 public:
  void told(std::size_t ap, const Json& message) override { note("to", ap, message); }
  void said(std::size_t ap, const Json& message) override { note("from", ap, message); }
  void happened(const sim::SteeringEvent& event) override {
    lines.push_back(event.client.text() + " " + name_of(event.what) + " " + name_of(event.cause));
  }

  std::vector<std::string> lines;

 private:
  void note(const char* word, std::size_t ap, const Json& message) {
    lines.push_back(std::string(word) + " " + std::to_string(ap) + ": " + message.dump());
  }
};

std::vector<std::string> transcript_of(const SiteRun& run) {
  constexpr int few_events = 80;
  const sim::Site site = hall(run.seed);
  Transcript transcript;
  ControlledSite controlled(site, settings_of(run), run.has("wildcard"), run.seed, {&transcript});
  Dice dice(run.seed);
  DailyLife life(controlled, dice);
  life.open();
  for (int i = 0; i < few_events; ++i) {
    life.event();
    life.second();
  }
  return transcript.lines;
}

TEST(WholeSiteOfASeed, GivesTheSameMessagesAndEventsEachTime) {
  const SiteRun run{11, "balance r v cross_band"};  // the key of the wildcard is the process's, not the run's
  const auto first = transcript_of(run);
  EXPECT_GT(first.size(), 1000U);
  EXPECT_TRUE(first == transcript_of(run));
}

class WholeSite : public ::testing::TestWithParam<SiteRun> {
 protected:
  WholeSite() {
    links.look_at(site, GetParam().has("wildcard"));
    reach.look_at(site);
    holds.look_at(site);
    lists.look_at(site);
  }

  // Nothing happens any more, until nothing is planned or under way.
  void settle() {
    int quiet = 0;
    for (int i = 0; i < longest_settling && quiet < 15; ++i) {
      life.second();
      const bool rests = site.rrm_status() < 2 && site.fbt_status() == 0 && site.deleted_aps().empty();
      quiet = rests ? quiet + 1 : 0;
    }
    EXPECT_EQ(quiet, 15) << "the site does not come to rest";
  }

  void print() const {
    std::printf("seed %d, %d seconds:", static_cast<int>(GetParam().seed), static_cast<int>(site.seconds()));
    for (const auto& [name, count] : life.counts()) std::printf(" %s %d,", name.c_str(), count);
    std::printf("\n  links: %d updates, %d looked at\n", links.updates(), links.links());
    std::printf("  reach: %d refused client-seconds, stranded %d times, %d s at most\n", reach.refused_seconds(),
                reach.stranded(), reach.longest());
    std::printf("  holds: %d, acknowledged %d, sent away %d, left %d, timed out %d, session lost %d\n", holds.holds(),
                holds.ended(sim::HoldEnd::acknowledged), holds.ended(sim::HoldEnd::sent_away),
                holds.ended(sim::HoldEnd::client_left), holds.ended(sim::HoldEnd::timed_out),
                holds.ended(sim::HoldEnd::session_lost));
    std::printf("  moves: %d queries, %d decided, %d ordered, %d lost, %d overloads, %d transitions\n", holds.queries(),
                holds.moves(), holds.told_moves(), holds.lost_moves(), holds.overloads(), holds.transitions());
    std::printf("  lists: %d passes, %d sent, %d skipped, %d repeated, %d in all\n", lists.passes(), lists.sent(),
                lists.skipped(), lists.repeated(), lists.told_in_all());
  }

  void expect_nothing_wrong() const {
    EXPECT_THAT(links.findings().first(), IsEmpty()) << links.findings().count();
    EXPECT_THAT(reach.findings().first(), IsEmpty()) << reach.findings().count();
    EXPECT_THAT(holds.findings().first(), IsEmpty()) << holds.findings().count();
    EXPECT_THAT(lists.findings().first(), IsEmpty()) << lists.findings().count();
    EXPECT_THAT(site.surprises(), IsEmpty());
  }

  // What was looked at was worth looking at.
  void expect_links() const {
    if (GetParam().has("r")) {
      EXPECT_GE(links.updates(), 12);
      EXPECT_GE(links.links(), 400);
    } else {
      EXPECT_EQ(links.updates(), 0);
    }
  }
  void expect_steering() const {
    if (GetParam().has("balance")) {
      EXPECT_GE(reach.refused_seconds(), 2000);
      EXPECT_GE(holds.ended(sim::HoldEnd::acknowledged), 300);
      EXPECT_GE(holds.ended(sim::HoldEnd::sent_away), 10);
      EXPECT_GE(holds.queries(), 100);
      EXPECT_GE(holds.told_moves(), 30);
      EXPECT_LE(holds.ended(sim::HoldEnd::timed_out), holds.lost_moves());
    } else {
      EXPECT_EQ(reach.refused_seconds() + holds.holds() + holds.queries(), 0);
    }
  }
  void expect_transition_lists() const {
    if (GetParam().has("v")) {
      EXPECT_GE(lists.passes(), 8);
      EXPECT_GE(lists.sent(), 15);
      EXPECT_GE(lists.skipped(), 10);
      EXPECT_GE(lists.told_in_all(), 100);
    } else {
      EXPECT_EQ(lists.passes(), 0);
    }
    if (GetParam().has("v") && GetParam().has("balance")) {
      EXPECT_GE(holds.overloads(), 40);
      EXPECT_GE(holds.transitions(), 40);
    }
  }

  const sim::Site the_hall = hall(GetParam().seed);
  LinkWatch links;
  ReachWatch reach;
  HoldWatch holds;
  ListWatch lists;
  ControlledSite site{
      the_hall, settings_of(GetParam()), GetParam().has("wildcard"), GetParam().seed, {&links, &reach, &holds, &lists}};
  Dice dice{GetParam().seed};
  DailyLife life{site, dice};
};

TEST_P(WholeSite, KeepsItsPromisesThroughRandomEvents) {
  life.open();
  for (int i = 0; i < events; ++i) {
    life.event();
    for (int pause = dice.between(0, 4); pause > 0; --pause) life.second();
  }
  life.lose_one_for_good();
  life.all_come_back();
  settle();
  site.force_optimization();
  settle();
  if (GetParam().has("r")) links.check_now();
  print();

  expect_nothing_wrong();
  expect_links();
  expect_steering();
  expect_transition_lists();
}

INSTANTIATE_TEST_SUITE_P(Seeds, WholeSite, ::testing::ValuesIn(runs),
                         [](const auto& test) { return std::to_string(test.param.seed); });

}  // namespace
}  // namespace whole_site
