// The neighbour lists that a domain sends: to whom, when, and in what order with the links.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LoadBalancer802dot11vSubworker.h"
#include "domain/pipeline_support.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";
const char* const ap3 = "00:11:22:33:66:00";

// An office radio left to 802.11k alone.
RadioJson locked_office(int channel = 36) {
  return an_office_radio(channel).with("locked-for-80211v", 1);
}
// One with 802.11r as well, with keys that the AP knows already.
RadioJson fast_office() {
  return a_5ghz_radio().with_raw("vaps",
                                 R"([{"id":3,"ssid":"office","802dot11k":1,"802dot11r":1,"fbt-r0-keyholder":"SN44:00",)"
                                 R"("fbt-r1-keyholder":"00:11:22:33:44:13","fbt-rrb-key":"AbCdEfGhIjKlMnOp"}])");
}

std::string not_planned(int status) {
  return "TRACE NOT Planning update 802dot11k domain lab status " + std::to_string(status);
}

class Lists : public Pipeline {
 protected:
  // Nothing is planned but by the tests themselves.
  Lists() { settings.use_optimization_event = false; }

  void start_with_offices(std::initializer_list<const char*> macs) { start_with(macs, an_office_radio()); }
  // The first AP hears the others' radio 1, and none of their VAPs.
  void let_hear(const char* listener, std::initializer_list<const char*> others) {
    for (const char* other : others) {
      ap(listener)->visible_members.insert(ap(other)->radios.list[1].mac, Neighbour{});
    }
  }
  // Only what was sent.
  std::vector<std::string> sent() {
    std::vector<std::string> lines = journal.lines("SEND");
    journal.take();
    return lines;
  }
  LoadBalancer802dot11vSubworker& balancer() { return worker->load_balancer_802dot11v(); }
};

// Plain lists

TEST_F(Lists, APlainListIsPlannedTwentySecondsAheadAndSentWithoutTheRadios) {
  start_with_offices({ap1, ap2});
  let_hear(ap1, {ap2});
  told();
  pipeline().planning_update_802dot11k();
  EXPECT_LINES(told(), ({"TRACE Planning update 802dot11k domain lab"}));
  advance(19);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({
                           "TRACE Process update 802dot11k domain lab",
                           "TRACE Post tpc-results",
                           "SEND 1 " + told_lists(ap1, {told_office(ap2, 255)}),
                           "SEND 2 " + told_lists(ap2, {}),
                       }));
  advance(60);
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Lists, ThePlainListsLeaveAtTheEndOfThePass) {
  start_with_offices({ap1});
  pipeline().planning_update_802dot11k();
  clock.advance(20);
  journal.take();
  locked([](RrmWorker& lab) RRM_NO_THREAD_SAFETY_ANALYSIS { lab.before_messages(); });
  EXPECT_THAT(sent(), IsEmpty());
  worker->after_messages();
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + told_lists(ap1, {})));
}

TEST_F(Lists, PlainListsAreSentAlsoWhenNothingChanged) {
  start_with_offices({ap1});
  for (int i = 0; i < 2; ++i) {
    pipeline().planning_update_802dot11k();
    advance(20);
    EXPECT_THAT(sent(), ElementsAre("SEND 1 " + told_lists(ap1, {})));
  }
}

TEST_F(Lists, ANewPlanOfThePlainListsPutsThemOff) {
  start_with_offices({ap1});
  pipeline().planning_update_802dot11k();
  advance(15);
  pipeline().planning_update_802dot11k();
  told();
  advance(19);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + told_lists(ap1, {})));
}

TEST_F(Lists, AnUpdateByOrderSaysSo) {
  start_with_offices({ap1});
  told();
  pipeline().update_802dot11k();
  EXPECT_LINES(told(), ({"TRACE Update  domain lab", "TRACE Planning update 802dot11k domain lab"}));
}

TEST_F(Lists, PlainListsAreNotPlannedWhereTheSettingIsOff) {
  settings.use_80211k = false;
  start_with_offices({ap1});
  told();
  pipeline().planning_update_802dot11k();
  EXPECT_LINES(told(), ({not_planned(0)}));
  advance(40);
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Lists, AnApWithout80211kIsToldNoList) {
  start_with({ap1, ap2});
  pipeline().planning_update_802dot11k();
  advance(20);
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + told_lists(ap1), "SEND 2 " + told_lists(ap2)));
}

TEST_F(Lists, APlannedUpdateOfTheDailyPlanIsStillTaken) {
  settings.use_optimization_time = true;
  start_with_offices({ap1});
  ASSERT_EQ(rrm_status(), 1);
  told();
  pipeline().planning_update_802dot11k();
  EXPECT_LINES(told(), ({"TRACE Planning update 802dot11k domain lab"}));
  advance(20);
  EXPECT_TRUE(journal.has("TRACE Process update 802dot11k domain lab"));
}

TEST_F(Lists, FromAForcedPlanToItsEndPlainListsAreRefused) {
  Gate computed;
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) {
    computed.wait();
    return OptimizationResult{};
  };
  start_with_offices({ap1});
  const auto refuses = [&](int status) {
    ASSERT_EQ(rrm_status(), status);
    told();
    pipeline().planning_update_802dot11k();
    EXPECT_LINES(told(), ({not_planned(status)}));
  };
  pipeline().planning_request_modes(true);
  refuses(4);
  to_mode_requests();
  refuses(2);
  answer_mode(1, ap1, an_office_radio());
  to_scan();
  refuses(3);
  answer_scan(1, ap1, an_office_radio());
  refuses(5);
  computed.open();
  finish_computing();
  advance(60);
  EXPECT_FALSE(journal.has("TRACE Process update 802dot11k domain lab"));
}

TEST_F(Lists, AForcedPlanMakesAPlannedUpdateNeedless) {
  start_with_offices({ap1});
  pipeline().planning_update_802dot11k();
  advance(5);
  pipeline().planning_request_modes(true);
  told();
  advance(19);
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Lists, ACycleMakesAPlannedUpdateNeedless) {
  settings.use_optimization_time = true;
  settings.optimization_time_seconds = static_cast<std::int32_t>((*clock.wall_seconds() + 10) % 86400);
  start_with_offices({ap1});
  pipeline().planning_update_802dot11k();
  advance(60);
  EXPECT_TRUE(journal.has("TRACE Post request mode"));
  EXPECT_THAT(journal.lines("TRACE Process update 802dot11k"), IsEmpty());
  EXPECT_THAT(journal.lines("TRACE Not update 802dot11k"), IsEmpty());
}

TEST_F(Lists, AnUpdateWhoseTimeFallsIntoARestoredPlanIsNotMade) {
  start_with_offices({ap1});
  pipeline().planning_update_802dot11k();
  pipeline().restore(4, 0, 300);
  told();
  advance(20);
  EXPECT_LINES(told(), ({"TRACE Not update 802dot11k domain lab"}));
}

TEST_F(Lists, AnApThatHasGoneStaysInThePlainListsUntilItsTimeIsUp) {
  settings.away_timeout = 60;
  start_with_offices({ap1, ap2, ap3});
  let_hear(ap1, {ap2, ap3});
  radio(ap2).priority = 127;
  drop(2);
  const auto list_of_ap1 = [&] {
    journal.take();
    receive(1, a_message("rrm-config-changed", ap1).with_radio(an_office_radio()));
    return sent();
  };
  const std::string radios = told_radio(1, 36, 5, 14);
  EXPECT_THAT(list_of_ap1(), ElementsAre("SEND 1 " + with_neighbours({told_office(ap3, 255), told_office(ap2, 127)},
                                                                     told_info(ap1, {radios}))));
  advance(60);
  EXPECT_THAT(list_of_ap1(),
              ElementsAre("SEND 1 " + with_neighbours({told_office(ap3, 255)}, told_info(ap1, {radios}))));
}

TEST_F(Lists, WhereAllApsCountTheGoneOnesStayInThePlainListsToo) {
  settings.use_all_ap_balance = true;
  start_with_offices({ap1, ap2, ap3});
  drop(2);
  journal.take();
  receive(1, a_message("rrm-config-changed", ap1).with_radio(an_office_radio()));
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + with_neighbours({told_office(ap3, 255), told_office(ap2, 255)},
                                                              told_info(ap1, {told_radio(1, 36, 5, 14)}))));
}

TEST_F(Lists, ASilentApIsInNoList) {
  start_with_offices({ap1, ap2});
  let_hear(ap1, {ap2});
  pipeline().planning_request_modes(true);
  to_mode_requests();
  answer_mode(1, ap1, an_office_radio());
  to_scan();
  ASSERT_EQ(unanswered_aps().size(), 1u);
  receive(1, a_message("rrm-config-changed", ap1).with_radio(an_office_radio()));
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + with_neighbours({}, told_info(ap1, {told_radio(1, 36, 5, 14)}))));
}

// Lists of 802.11v

class TransitionLists : public Lists {
 protected:
  TransitionLists() { settings.use_80211v = true; }

  static std::string news(const std::string& ap) {
    return "TRACE 802.11kv list has changed (or has no actual lists after reboot) on " + ap +
           ", sending new 802.11kv list";
  }
  static std::string no_news(const std::string& ap) {
    return "TRACE 802.11kv list has not changed on " + ap + ", no need to send new one";
  }
  static std::string info(const std::string& ap, const std::vector<std::string>& neighbours) {
    return with_switch("use-80211v", 1, told_lists(ap, neighbours));
  }
};

TEST_F(TransitionLists, AnApWhoseListIsAsSentIsToldNothingRadiosIncludedIfOnlyNewsAreWanted) {
  start_with_offices({ap1, ap2});
  balancer().commit_priorities();
  told();
  pipeline().post_tpc_results_ap(*ap(ap1), true, true, true);
  EXPECT_LINES(told(), ({no_news(ap1)}));
  pipeline().post_tpc_results_ap(*ap(ap1), true, true, false);
  EXPECT_LINES(
      told(), ({
                  news(ap1),
                  "SEND 1 " + with_neighbours({told_office(ap2, 127)},
                                              with_switch("use-80211v", 1, told_info(ap1, {told_radio(1, 36, 5, 14)}))),
              }));
  radio(ap2).lists_stale = true;
  pipeline().post_tpc_results_ap(*ap(ap1), true, false, true);
  EXPECT_LINES(told(), ({news(ap1), "SEND 1 " + info(ap1, {told_office(ap2, 127)})}));
}

TEST_F(TransitionLists, AnApThatHasGoneIsInNone) {
  start_with_offices({ap1, ap2, ap3});
  drop(2);
  journal.take();
  pipeline().post_tpc_results_ap(*ap(ap1), true, false, false);
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + info(ap1, {told_office(ap3, 127)})));
}

TEST_F(TransitionLists, AnApWithoutARadioForThemGetsAPlainListWhetherItIsNewsOrNot) {
  start_with({ap1, ap2}, locked_office());
  drop(2);
  told();
  pipeline().post_tpc_results_ap(*ap(ap1), true, false, true);
  EXPECT_LINES(told(), ({"SEND 1 " + info(ap1, {told_office(ap2, 255)})}));
}

TEST_F(TransitionLists, AnApWithoutARadioForThemGetsNoListWhere80211kIsOff) {
  settings.use_80211k = false;
  start_with({ap1, ap2}, locked_office());
  told();
  pipeline().post_tpc_results_ap(*ap(ap1), true, false, true);
  EXPECT_LINES(told(), ({"SEND 1 " + with_switch("use-80211v", 1, told_lists(ap1))}));
}

TEST_F(TransitionLists, EveryResultThatIsSentToAllCommitsThePriorities) {
  start_with_offices({ap1, ap2});
  radio(ap1).priority = 127;
  radio(ap2).lists_stale = true;
  pipeline().planning_update_802dot11k();
  advance(20);
  ASSERT_EQ(journal.lines("SEND").size(), 2u);
  for (const char* mac : {ap1, ap2}) {
    for (const Radio& each : ap(mac)->radios.list) {
      EXPECT_EQ(each.sent_priority, each.priority) << mac << " radio " << each.id;
      EXPECT_FALSE(each.lists_stale) << mac << " radio " << each.id;
    }
  }
  told();
  balancer().force_optimization();
  EXPECT_LINES(told(), ({
                           "TRACE Forced 802.11v optimization;",
                           "TRACE 802.11v optimization started for each AP",
                           no_news(ap1),
                           no_news(ap2),
                           "TRACE AP(00:11:22:33:44:00): no radios need load balance",
                           "TRACE AP(00:11:22:33:55:00): no radios need load balance",
                       }));
}

TEST_F(TransitionLists, AResultIsSentToAllWhetherItIsNewsOrNot) {
  start_with_offices({ap1, ap2});
  balancer().commit_priorities();
  pipeline().planning_update_802dot11k();
  advance(20);
  EXPECT_THAT(sent(), ElementsAre("SEND 1 " + info(ap1, {told_office(ap2, 127)}),
                                  "SEND 2 " + info(ap2, {told_office(ap1, 127)})));
}

TEST_F(TransitionLists, WhatASingleApIsToldCommitsNothing) {
  start_with_offices({ap1, ap2});
  receive(1, a_message("rrm-config-changed", ap1).with_radio(an_office_radio()));
  receive(1, a_subscribe(ap1).with_radio(an_office_radio()));
  EXPECT_EQ(radio(ap2).sent_priority, 0u);
  told();
  pipeline().post_tpc_results_ap(*ap(ap1), true, false, true);
  EXPECT_TRUE(journal.has(news(ap1)));
}

// Subscribing

class SubscribedLists : public Lists {
 protected:
  static std::string fbt(std::uint32_t session) {
    return "SEND " + std::to_string(session) +
           R"( {"service":"rrm","version":"2.4","cmd":"fbt-info","ap-mac":"00:11:22:33:44:00",)"
           R"("morvane-use-80211r":1,"fbt-over-ds":0,"fbt-reassoc-deadline":1000,"vaps":[{"vap_id":3,"radio_id":1,)"
           R"("fbt-rrb-key":"AbCdEfGhIjKlMnOp","mobility-domain":32255,"r0-key-holder-id":"SN44:00",)"
           R"("r1-key-holder-id":"00:11:22:33:44:13","remotes":[]}]})";
  }
  static std::string success(std::uint32_t session, const std::vector<std::string>& neighbours) {
    return "SEND " + std::to_string(session) + " " +
           with_neighbours(neighbours, told_success(ap1, {told_radio(1, 36, 5, 14)}));
  }
  // All that a subscribe of ap1 makes the domain say to it, none of it at the end of the pass.
  std::vector<std::string> subscribing(std::uint32_t session) {
    journal.take();
    process(session, a_subscribe(ap1).with_radio(fast_office()).text());
    std::vector<std::string> lines = journal.take();
    std::erase_if(lines, [](const std::string& line) {
      return !line.starts_with("SEND") && line != looks_at_links && line != "EVENT 23 lab";
    });
    return lines;
  }
};

TEST_F(SubscribedLists, ANewApIsToldItsListAndThenItsLinksAtOnce) {
  settings.use_80211r = true;
  settings.use_all_ap_balance = true;
  start_with_offices({ap2, ap3});
  drop(2);
  EXPECT_LINES(subscribing(7), ({
                                   "EVENT 23 lab",
                                   "EVENT 23 lab",
                                   success(7, {told_office(ap2, 255), told_office(ap3, 255)}),
                                   looks_at_links,
                                   fbt(7),
                               }));
}

TEST_F(SubscribedLists, AnActiveApIsToldItsListAndThenItsLinksAtOnce) {
  settings.use_80211r = true;
  start_with_offices({ap2, ap3});
  subscribe(7, a_subscribe(ap1).with_radio(fast_office()));
  let_hear(ap1, {ap2, ap3});
  drop(1);
  EXPECT_LINES(subscribing(8), ({
                                   success(8, {told_office(ap3, 255), told_office(ap2, 255)}),
                                   looks_at_links,
                                   fbt(8),
                               }));
}

TEST_F(SubscribedLists, AnApThatReturnsIsToldItsListAndItsLinksBeforeItIsActive) {
  settings.use_80211r = true;
  start_with_offices({ap2});
  subscribe(7, a_subscribe(ap1).with_radio(fast_office()));
  let_hear(ap1, {ap2});
  drop(7);
  EXPECT_LINES(subscribing(8), ({success(8, {told_office(ap2, 255)}), looks_at_links, fbt(8), "EVENT 23 lab"}));
}

TEST_F(SubscribedLists, ASilentApIsToldItsListAndThenItsLinksAtOnce) {
  settings.use_80211r = true;
  start_with_offices({ap2});
  subscribe(7, a_subscribe(ap1).with_radio(fast_office()));
  let_hear(ap1, {ap2});
  pipeline().planning_request_modes(true);
  to_mode_requests();
  answer_mode(1, ap2, an_office_radio());
  to_scan();
  ASSERT_NE(unanswered_aps().find(MacAddr::parse(ap1)), nullptr);
  EXPECT_LINES(subscribing(8), ({success(8, {told_office(ap2, 255)}), looks_at_links, fbt(8)}));
}

TEST_F(SubscribedLists, LinksThatAreOffAreNotToldAndNeitherAreThoseOfAnApWithout80211r) {
  start_with_offices({ap2});
  EXPECT_LINES(subscribing(7),
               ({"EVENT 23 lab", "EVENT 23 lab", with_switch("use-80211r", 0, success(7, {})), looks_at_links}));
  settings.use_80211r = true;
  start();
  receive(7, a_subscribe(ap2).with_radio(an_office_radio()));
  EXPECT_THAT(journal.lines("SEND"), ElementsAre(HasSubstr("subscribe-response")));
}

TEST_F(SubscribedLists, With80211vTheListIsTheOneForTransitions) {
  settings.use_80211v = true;
  start_with_offices({ap2, ap3});
  drop(1);
  EXPECT_EQ(subscribing(7)[2],
            with_switch("use-80211v", 1, with_switch("use-80211r", 0, success(7, {told_office(ap3, 127)}))));
}

// What a known AP says anew

class ListUpdates : public Lists {
 protected:
  // What the domain plans when ap1 repeats itself with this radio.
  std::vector<std::string> plans(const RadioJson& radio, int wildcard = 0) {
    journal.take();
    receive(1, a_subscribe(ap1).with_radio(radio).with("use-wildcard-80211r", wildcard));
    std::vector<std::string> lines = journal.take();
    std::erase_if(lines, [](const std::string& line) { return line.find("lanning") == std::string::npos; });
    return lines;
  }
};

TEST_F(ListUpdates, AnotherPictureOfAnApMakesTheListsDueThatItHas) {
  struct Case {
    const char* label;
    bool use_80211k, use_80211v, use_80211r;
    RadioJson before, after;
    std::vector<std::string> plans;
  };
  const std::string plain = "TRACE Planning update 802dot11k domain lab";
  const std::string transition = "TRACE Planning 802.11v optimization (timer restarted)";
  const std::string links = "TRACE Planning update 802dot11r domain lab";
  const RadioJson guests = a_5ghz_radio().with_vap(3, "guests");
  const Case cases[] = {
      {"channel, 802.11k", true, false, true, an_office_radio(36), an_office_radio(40), {plain}},
      {"channel, 802.11v", true, true, true, an_office_radio(36), an_office_radio(40), {transition}},
      {"channel, 802.11v, but locked", true, true, true, locked_office(36), locked_office(40), {plain}},
      {"channel, neither", false, false, true, an_office_radio(36), an_office_radio(40), {}},
      {"channel, no VAPs", true, true, true, a_5ghz_radio(36), a_5ghz_radio(40), {}},
      {"VAPs, 802.11k", true, false, true, an_office_radio(), guests, {plain, links}},
      {"VAPs, 802.11v", true, true, true, an_office_radio(), guests, {transition, links}},
      {"VAPs, without 802.11r", true, true, false, an_office_radio(), guests, {transition}},
      {"VAPs, the last with 802.11k", true, false, true, an_office_radio(), a_5ghz_radio(), {links}},
      {"the same", true, true, true, an_office_radio(), an_office_radio(), {}},
  };
  settings.use_dca = false;
  for (const Case& test : cases) {
    settings.use_80211k = test.use_80211k;
    settings.use_80211v = test.use_80211v;
    settings.use_80211r = test.use_80211r;
    start_with({ap1}, test.before);
    EXPECT_EQ(plans(test.after), test.plans) << test.label;
  }
}

TEST_F(ListUpdates, AnotherPriorityAloneMakesTheListsOf80211vDue) {
  settings.use_80211v = true;
  start_with_offices({ap1});
  for (int i = 0; i < 5; ++i)
    radio(ap1).assoc.add_client(MacAddr::parse("02:00:00:00:00:00").plus(i), -50, "x", false, false);
  EXPECT_LINES(plans(an_office_radio()), ({"TRACE Planning 802.11v optimization (timer restarted)"}));
  EXPECT_THAT(plans(an_office_radio()), IsEmpty());
}

TEST_F(ListUpdates, AnotherWildcardSettingAloneMakesTheLinksDue) {
  settings.use_80211r = true;
  start_with_offices({ap1});
  EXPECT_LINES(plans(an_office_radio(), 1), ({"TRACE Planning update 802dot11r domain lab"}));
}

// The new plan brings new lists anyway.
TEST_F(ListUpdates, ANewPlanLeavesTheListsAlone) {
  settings.use_optimization_event = true;
  settings.use_80211r = true;
  for (const bool use_80211v : {false, true}) {
    settings.use_80211v = use_80211v;
    start_with_offices({ap1});
    pipeline().planning_request_modes(false);
    ASSERT_EQ(rrm_status(), 0);
    EXPECT_LINES(plans(a_5ghz_radio().with_vap(3, "guests").with("bandwidth", 40)),
                 ({"TRACE Planning domain lab update 4 after 20 sec"}));
  }
}

// Without a cycle

TEST_F(Lists, ADomainWithoutACycleListsAllItsApsAllTheSame) {
  struct Case {
    bool use_80211k, use_80211v, use_80211r;
    std::vector<std::string> plans;
  };
  const std::string plain = "TRACE Planning update 802dot11k domain lab";
  const std::string transition = "TRACE Planning 802.11v optimization (timer restarted)";
  const std::string links = "TRACE Planning update 802dot11r domain lab";
  const Case cases[] = {
      {false, false, false, {}},         {true, false, false, {plain}},       {false, true, false, {transition}},
      {true, true, false, {transition}}, {true, false, true, {plain, links}}, {true, true, true, {transition, links}},
  };
  settings.use_dca = settings.use_tpc = false;
  settings.use_all_ap_balance = true;
  for (const Case& test : cases) {
    settings.use_80211k = test.use_80211k;
    settings.use_80211v = test.use_80211v;
    settings.use_80211r = test.use_80211r;
    start();
    pipeline().planning_request_modes(true);
    std::vector<std::string> expected = {status_event(0)};
    expected.insert(expected.end(), test.plans.begin(), test.plans.end());
    EXPECT_EQ(told(), expected) << test.use_80211k << test.use_80211v << test.use_80211r;
  }
}

TEST_F(Lists, ADomainWithoutAnythingToDoPlansItsLinksOnly) {
  settings.use_dca = settings.use_tpc = settings.use_80211k = settings.use_balance = false;
  settings.use_80211r = true;
  start();
  pipeline().planning_request_modes(false);
  EXPECT_LINES(told(), ({status_event(0), "TRACE Planning update 802dot11r domain lab"}));
}

// The end of a cycle

TEST_F(TransitionLists, AtTheEndOfACycleAllAreToldThemAndThePrioritiesCountAsSent) {
  start_with_offices({ap1, ap2});
  pipeline().planning_request_modes(true);
  to_mode_requests();
  answer_mode(1, ap1, an_office_radio());
  answer_mode(2, ap2, an_office_radio());
  to_scan();
  answer_scan(1, ap1, an_office_radio());
  answer_scan(2, ap2, an_office_radio());
  told();
  finish_computing();
  const auto with_radios = [](const std::string& session, const char* mac, const char* neighbour) {
    return "SEND " + session + " " +
           with_neighbours({told_office(neighbour, 127)},
                           with_switch("use-80211v", 1, told_info(mac, {told_radio(1, 36, 5, 14)})));
  };
  EXPECT_LINES(told(), ({
                           "TRACE Post tpc-results",
                           news(ap1),
                           news(ap2),
                           status_event(0),
                           "EVENT 23 lab",
                           status_event(0),
                           "TRACE Optimization on domain lab finished",
                           with_radios("1", ap1, ap2),
                           with_radios("2", ap2, ap1),
                       }));
  for (const char* mac : {ap1, ap2}) EXPECT_EQ(radio(mac).sent_priority, 255u) << mac;
}

TEST_F(Lists, ACycleThatFailedTellsNothing) {
  settings.use_80211v = true;
  settings.use_80211r = true;
  success = false;
  start_with_offices({ap1});
  pipeline().planning_request_modes(true);
  to_computing({{1, ap1}});
  finish_computing();
  EXPECT_THAT(journal.lines("SEND"), IsEmpty());
  EXPECT_FALSE(journal.has("TRACE Update 802dot11r domain lab"));
  EXPECT_EQ(radio(ap1).sent_priority, 0u);
}

}  // namespace
}  // namespace rrm::testing
