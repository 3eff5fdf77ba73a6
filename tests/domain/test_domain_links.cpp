// 802.11r: when a domain links its VAPs, and what its APs are told of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "domain/pipeline_support.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm::testing {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";
const char* const ap3 = "00:11:22:33:66:00";

struct LinkText {
  std::string r0, r1, key;
};

std::string array_of(const std::vector<LinkText>& links) {
  std::vector<std::string> texts;
  for (const LinkText& link : links) {
    texts.push_back(R"({"remote-r0-kh-id":")" + link.r0 + R"(","remote-r1-kh-id":")" + link.r1 +
                    R"(","remote-r1-kh-key":")" + link.key + R"("})");
  }
  return array_text(texts);
}

// A VAP of fbt-info, of the network "office".
std::string told_vap(int vap, int radio, const LinkText& own, const std::vector<LinkText>& remotes,
                     int mobility_domain = 32255) {
  return R"({"vap_id":)" + std::to_string(vap) + R"(,"radio_id":)" + std::to_string(radio) + R"(,"fbt-rrb-key":")" +
         own.key + R"(","mobility-domain":)" + std::to_string(mobility_domain) + R"(,"r0-key-holder-id":")" + own.r0 +
         R"(","r1-key-holder-id":")" + own.r1 + R"(","remotes":)" + array_of(remotes) + "}";
}

std::string told_links(int session, const std::string& mac, const std::vector<std::string>& vaps) {
  return "SEND " + std::to_string(session) + R"( {"service":"rrm","version":"2.4","cmd":"fbt-info","ap-mac":")" + mac +
         R"(","morvane-use-80211r":1,"fbt-over-ds":0,"fbt-reassoc-deadline":1000,"vaps":)" + array_text(vaps) + "}";
}

// A radio with VAP 1 of this network, with 802.11r.
RadioJson with_11r(RadioJson radio = a_5ghz_radio(), const std::string& ssid = "office") {
  return radio.with_raw("vaps", R"([{"id":1,"ssid":")" + ssid + R"(","802dot11r":1}])");
}

// The same, of an AP that was given key holders before.
RadioJson with_key_holders(const LinkText& own, const std::vector<LinkText>& links = {}) {
  return a_5ghz_radio().with_raw("vaps", R"([{"id":1,"ssid":"office","802dot11r":1,"fbt-r0-keyholder":")" + own.r0 +
                                             R"(","fbt-r1-keyholder":")" + own.r1 + R"(","fbt-rrb-key":")" + own.key +
                                             R"(","fbt-links":)" + array_of(links) + "}]");
}

const LinkText holder1{"SN44:00", "00:11:22:33:44:11", "keyofthefirstvap"};
const LinkText holder2{"SN55:00", "00:11:22:33:55:11", "keyofsecondvap22"};
const LinkText holder3{"SN66:00", "00:11:22:33:66:11", "keyofthethirdvap"};
const LinkText nobody{"", "00:00:00:00:00:00", ""};

// A domain that does nothing but link its VAPs, so that no cycle comes between.
class Links : public Pipeline {
 protected:
  Links() {
    settings.use_80211r = true;
    settings.use_dca = settings.use_tpc = settings.use_80211k = settings.use_80211v = settings.use_balance = false;
  }
  void subscribe_two() {
    start();
    subscribe(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)));
    subscribe(2, a_subscribe(ap2).with_radio(with_key_holders(holder2)));
  }
  void start_linked() {
    subscribe_two();
    advance(20);
    journal.take();
  }
  VapEntry& vap(const char* mac) { return *radio(mac).vaps.find("office"); }
  // The texts of the links, as a backup would hold them.
  std::string links_of(const char* mac) {
    JsonWriter array;
    JsonWriter links = JsonWriter::array(array, "links");
    for (const SharedFbtLink& link : vap(mac).fbt_links) link->write(links);
    return JsonReader(array.to_string()).get("links").to_string();
  }
  void set_wildcard(bool on) {
    const std::string section = std::string(R"({"use_wildcard_80211r":)") + (on ? "1" : "0") + "}";
    JsonWriter invalid;
    bool failed = false;
    global.set_global(JsonReader(section.c_str()), invalid, failed);
    ASSERT_FALSE(failed);
  }
  // The lines of an update that changed something, for so many APs.
  static std::vector<std::string> update_lines(int aps, int changed = 1, int wildcard = 0) {
    std::vector<std::string> lines = {"TRACE Update 802dot11r domain lab",
                                      "TRACE morvane use_wildcard_80211r=" + std::to_string(wildcard),
                                      "TRACE FBT settings changed = " + std::to_string(changed)};
    for (int i = 0; changed != 0 && i < aps; ++i) lines.push_back(looks_at_links);
    return lines;
  }
};

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

const std::vector<std::string> timer_line = {"TRACE Process update 802dot11r domain lab"};
const std::vector<std::string> backup_event = {"EVENT 23 lab"};

// Telling

TEST_F(Links, TwentySecondsAfterASubscribeAllApsOfTheNetworkAreToldEachOther) {
  subscribe_two();
  advance(19);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  const std::vector<std::string> sent = {
      told_links(1, ap1, {told_vap(1, 1, holder1, {holder2})}),
      told_links(2, ap2, {told_vap(1, 1, holder2, {holder1})}),
  };
  EXPECT_LINES(told(), (timer_line + update_lines(2) + backup_event + sent));
}

TEST_F(Links, AnApWithoutKeyHoldersIsGivenThemAndTold) {
  start_with({ap1, ap2}, with_11r());
  advance(20);
  const LinkText own{"SN44:00", "00:11:22:33:44:11", vap(ap1).fbt_rrb_key};
  const LinkText peer{"SN55:00", "00:11:22:33:55:11", vap(ap2).fbt_rrb_key};
  EXPECT_THAT(own.key, ::testing::MatchesRegex("[A-Za-z]{16}"));
  EXPECT_NE(own.key, peer.key);
  EXPECT_TRUE(journal.has(told_links(1, ap1, {told_vap(1, 1, own, {peer})})));
  EXPECT_TRUE(journal.has(told_links(2, ap2, {told_vap(1, 1, peer, {own})})));
}

TEST_F(Links, AllRadiosThatAreOnAndAllVapsWith80211rAreTold) {
  start();
  const auto vaps = [](const char* r0, const char* guests_r0) {
    return std::string(R"([{"id":3,"ssid":"office","802dot11r":1,"fbt-r0-keyholder":")") + r0 +
           R"(","fbt-r1-keyholder":"00:11:22:33:44:AA","fbt-rrb-key":"k1"},{"id":4,"ssid":"plain"},)" +
           R"({"id":5,"ssid":"guests","802dot11r":1,"fbt-r0-keyholder":")" + guests_r0 +
           R"(","fbt-r1-keyholder":"00:11:22:33:44:BB","fbt-rrb-key":"k2"}])";
  };
  receive(1, a_subscribe(ap1)
                 .with_radio(a_2ghz_radio().disabled().with_raw("vaps", vaps("a", "b")))
                 .with_radio(a_5ghz_radio().with_raw("vaps", vaps("c", "d")))
                 .with_radio(a_6ghz_radio().with_raw("vaps", vaps("e", "f"))));
  EXPECT_TRUE(journal.has(told_links(1, ap1,
                                     {told_vap(5, 1, {"d", "00:11:22:33:44:BB", "k2"}, {}, 16842),
                                      told_vap(3, 1, {"c", "00:11:22:33:44:AA", "k1"}, {}),
                                      told_vap(5, 2, {"f", "00:11:22:33:44:BB", "k2"}, {}, 16842),
                                      told_vap(3, 2, {"e", "00:11:22:33:44:AA", "k1"}, {})})));
}

TEST_F(Links, TheSettingsOfFastTransitionAreTold) {
  settings.fbt_over_ds = true;
  settings.fbt_reassoc_deadline = 2345;
  start_with({ap1}, with_key_holders(holder1));
  receive(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)));
  std::string expected = with_switch("fbt-over-ds", 1, told_links(1, ap1, {told_vap(1, 1, holder1, {})}));
  expected.replace(expected.find("1000"), 4, "2345");
  EXPECT_TRUE(journal.has(expected));
}

TEST_F(Links, OnlyApsWhoseLinksChangedAreTold) {
  start();
  subscribe(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)));
  subscribe(2, a_subscribe(ap2).with_radio(with_key_holders(holder2)));
  subscribe(3, a_subscribe(ap3).with_radio(with_11r(a_5ghz_radio(), "guests")));
  advance(20);
  EXPECT_EQ(journal.lines("SEND").size(), 2u);
  EXPECT_THAT(journal.lines("SEND 3"), IsEmpty());
  for (const char* mac : {ap1, ap2, ap3}) EXPECT_FALSE(ap(mac)->fbt_changed) << mac;
}

TEST_F(Links, AChangedKeyReachesThePeersInTheSameUpdate) {
  start_linked();
  vap(ap2).fbt_rrb_key = "another key";
  pipeline().update_802dot11r();
  pass();
  const std::vector<std::string> sent = {
      told_links(1, ap1, {told_vap(1, 1, holder1, {{"SN55:00", "00:11:22:33:55:11", "another key"}})})};
  EXPECT_LINES(told(), (update_lines(2) + sent));
}

TEST_F(Links, AnUpdateWithoutAChangeTellsNobody) {
  start_linked();
  pipeline().update_802dot11r();
  pass();
  EXPECT_LINES(told(), (update_lines(2, 0)));
}

TEST_F(Links, AnApThatHasLeftIsTakenOutOfTheLinksOfTheOthers) {
  start_linked();
  drop(2);
  pipeline().update_802dot11r();
  journal.take();
  pass();
  EXPECT_LINES(told(), ({told_links(1, ap1, {told_vap(1, 1, holder1, {})})}));
}

// Its VAP, read anew, has lost the record of the link that the AP holds, and there is nobody to link it with.
TEST_F(Links, AnApWhoseRebuiltVapStaysAloneIsToldThatTheOtherHasLeft) {
  start_linked();
  drop(2);
  receive(1, a_subscribe(ap1).with_radio(with_11r().with_raw("vaps", R"([{"id":2,"ssid":"office","802dot11r":1}])")));
  journal.take();
  advance(20);
  const LinkText given{"SN44:00", "00:11:22:33:44:12", vap(ap1).fbt_rrb_key};
  EXPECT_THAT(told(), Contains(told_links(1, ap1, {told_vap(2, 1, given, {})})));
}

TEST_F(Links, WhatIsToldWaitsForTheEndOfThePass) {
  start_linked();
  vap(ap2).fbt_rrb_key = "another key";
  pipeline().update_802dot11r();
  EXPECT_THAT(journal.lines("SEND"), IsEmpty());
  pass();
  EXPECT_EQ(journal.lines("SEND").size(), 1u);
}

TEST_F(Links, With80211rOffNothingIsToldWhateverChanged) {
  settings.use_80211r = false;
  start_with({ap1}, with_key_holders(holder1));
  ap(ap1)->fbt_changed = true;
  receive(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)));
  EXPECT_TRUE(journal.has(looks_at_links));
  EXPECT_EQ(journal.lines("SEND").size(), 1u) << "the answer";
  journal.take();
  pipeline().update_802dot11r();
  pass();
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_TRUE(ap(ap1)->fbt_changed);
}

TEST_F(Links, AnApIsToldItsKeyHolderAsTheOthersHearItsRadio) {
  struct Case {
    const char* what;
    const char* heard;
    const char* r1;
  };
  const Case cases[] = {
      {"unheard", "00:EE:22:33:44:10", "00:11:22:33:44:11"},
      {"as it is", "00:11:22:33:44:10", "00:11:22:33:44:11"},
      {"with the local bit", "02:11:22:33:44:10", "02:11:22:33:44:11"},
      {"the VAP with the local bit", "02:11:22:33:44:11", "02:11:22:33:44:11"},
  };
  for (const Case& one : cases) {
    start_linked();
    ap(ap2)->visible_members.insert(MacAddr::parse(one.heard), Neighbour{});
    receive(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)));
    LinkText own = holder1;
    own.r1 = one.r1;
    EXPECT_TRUE(journal.has(told_links(1, ap1, {told_vap(1, 1, own, {holder2})}))) << one.what;
  }
}

TEST_F(Links, APeerIsNamedAsTheApHearsIt) {
  subscribe_two();
  ap(ap1)->visible_members.insert(MacAddr::parse("02:11:22:33:55:10"), Neighbour{});
  advance(20);
  LinkText heard = holder2;
  heard.r1 = "02:11:22:33:55:11";
  EXPECT_THAT(journal.lines("SEND 1"), Contains(told_links(1, ap1, {told_vap(1, 1, holder1, {heard})})));
}

// Wildcards

TEST_F(Links, TheServersWildcardSettingCountsFromTheNextUpdateOn) {
  start();
  subscribe(1, a_subscribe(ap1).with_radio(with_11r()).with("use-wildcard-80211r", 1));
  set_wildcard(true);
  advance(20);
  const LinkText own{"001122334411", "00:11:22:33:44:11", vap(ap1).fbt_rrb_key};
  const LinkText everybody{"*", "ff:ff:ff:ff:ff:ff", broadcast_fbt_key()};
  const std::vector<std::string> added = {"TRACE Update 802dot11r domain lab", "TRACE morvane use_wildcard_80211r=1",
                                          "TRACE FBT broadcast mac added", "TRACE FBT settings changed = 1",
                                          looks_at_links};
  EXPECT_LINES(told(), (timer_line + added + backup_event +
                        std::vector{told_links(1, ap1, {told_vap(1, 1, own, {everybody})})}));

  pipeline().update_802dot11r();
  EXPECT_LINES(told(), ({"TRACE Update 802dot11r domain lab", "TRACE morvane use_wildcard_80211r=1",
                         "TRACE skip wildcarg keyholder", "TRACE FBT settings changed = 0"}));

  set_wildcard(false);
  pipeline().update_802dot11r();
  EXPECT_LINES(told(), (update_lines(1)));
  pass();
  EXPECT_LINES(told(), ({told_links(1, ap1, {told_vap(1, 1, own, {})})}));
}

// At a subscribe

TEST_F(Links, ANewApIsToldAtOnceThatItHasNoKeyHolders) {
  start();
  receive(1, a_subscribe(ap1).with_radio(with_11r()));
  const std::vector<std::string> lines = journal.take();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_THAT(lines[lines.size() - 3], ::testing::StartsWith("SEND 1 {\"service\":\"rrm\",\"version\":\"2.4\","
                                                             "\"cmd\":\"subscribe-response\""));
  EXPECT_EQ(lines[lines.size() - 2], looks_at_links);
  EXPECT_EQ(lines.back(), told_links(1, ap1, {told_vap(1, 1, nobody, {})}));
}

TEST_F(Links, AKnownApIsToldItsLinksWhicheverSetItIsIn) {
  const std::string links = told_links(1, ap1, {told_vap(1, 1, holder1, {holder2})});
  start_linked();
  receive(1, a_subscribe(ap1).with_radio(with_11r()));
  EXPECT_THAT(journal.take(), Contains(links)) << "active";

  drop(1);
  receive(3, a_subscribe(ap1).with_radio(with_11r()));
  EXPECT_THAT(journal.take(), Contains(told_links(3, ap1, {told_vap(1, 1, holder1, {holder2})}))) << "gone";

  unanswered_aps().take_all_from(aps());
  receive(3, a_subscribe(ap1).with_radio(with_11r()));
  EXPECT_THAT(journal.take(), Contains(told_links(3, ap1, {told_vap(1, 1, holder1, {holder2})}))) << "silent";
}

TEST_F(Links, AnApWithout80211rIsNotToldUnlessItsLinksChanged) {
  start_with({ap1});
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio()));
  EXPECT_EQ(journal.lines("SEND").size(), 1u) << "the answer";
  journal.take();
  ap(ap1)->fbt_changed = true;
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio()));
  EXPECT_THAT(journal.take(), Contains(told_links(1, ap1, {})));
}

TEST_F(Links, AVapOnARadioThatIsOffIsReasonEnoughToTell) {
  start();
  receive(1, a_subscribe(ap1).with_radio(with_11r(a_5ghz_radio().disabled())));
  EXPECT_EQ(journal.take().back(), told_links(1, ap1, {}));
}

// Planning

TEST_F(Links, AnUpdateIsPlannedForTwentySecondsFromTheLastChange) {
  start_linked();
  receive(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)).with("use-wildcard-80211r", 1));
  EXPECT_TRUE(journal.has("TRACE Planning update 802dot11r domain lab"));
  EXPECT_EQ(pipeline().fbt_status(), 1);
  advance(10);
  receive(1, a_subscribe(ap1).with_radio(with_key_holders(holder1)));
  journal.take();
  advance(19);
  EXPECT_THAT(told(), IsEmpty());
  EXPECT_EQ(pipeline().fbt_status(), 1);
  advance(1);
  EXPECT_LINES(told(), (timer_line + update_lines(2, 0) + backup_event));
  EXPECT_EQ(pipeline().fbt_status(), 0);
}

TEST_F(Links, ARebuiltVapIsPlannedForNewLinks) {
  start_linked();
  receive(1, a_subscribe(ap1).with_radio(with_11r().with_raw("vaps", R"([{"id":2,"ssid":"office","802dot11r":1}])")));
  EXPECT_TRUE(journal.has("EVENT-LOG process_exists_ap update_802dot11r 1"));
  EXPECT_TRUE(journal.has("TRACE Planning update 802dot11r domain lab"));
  advance(20);
  journal.take();
  EXPECT_EQ(links_of(ap2), array_of({{"SN44:00", "00:11:22:33:44:12", vap(ap1).fbt_rrb_key}}));
}

TEST_F(Links, WhileADailyPlanWaitsUpdatesAreTaken) {
  settings.use_dca = true;
  settings.use_optimization_time = true;
  settings.optimization_time_seconds = 3600;
  settings.use_optimization_event = false;
  clock.set_wall(19000LL * 86400);
  start_with({ap1}, with_key_holders(holder1));
  ASSERT_EQ(rrm_status(), 1);
  journal.take();
  pipeline().planning_update_802dot11r();
  EXPECT_LINES(told(), ({"TRACE Planning update 802dot11r domain lab"}));
  advance(20);
  EXPECT_THAT(told(), Contains("TRACE Process update 802dot11r domain lab"));
}

TEST_F(Links, AnUpdateThatFallsDueInACycleIsNotMade) {
  settings.use_dca = true;
  settings.use_optimization_time = true;
  settings.optimization_time_seconds = 3600;
  settings.use_optimization_event = false;
  clock.set_wall(19000LL * 86400 + 3590);
  start_with({ap1}, with_key_holders(holder1));
  pipeline().planning_update_802dot11r();
  advance(10);
  ASSERT_EQ(rrm_status(), 2);
  told();
  advance(10);
  EXPECT_LINES(told(), ({"TRACE Not update 802dot11r domain lab"}));
  EXPECT_EQ(pipeline().fbt_status(), 1) << "still planned, for a backup";
}

TEST_F(Links, DuringACycleUpdatesAreRefused) {
  Gate computed;
  settings.use_dca = true;
  optimization = [&](OptimizationContext&, const std::atomic<bool>&) {
    computed.wait();
    return OptimizationResult{};
  };
  const auto expect_refused = [this](int state) {
    ASSERT_EQ(rrm_status(), state);
    journal.take();
    pipeline().planning_update_802dot11r();
    EXPECT_LINES(journal.take(), ({"TRACE NOT Planning update 802dot11r domain lab"})) << state;
    EXPECT_EQ(pipeline().fbt_status(), 0) << state;
  };
  start_with({ap1}, with_key_holders(holder1));
  expect_refused(4);
  to_mode_requests();
  expect_refused(2);
  answer_mode(1, ap1, with_key_holders(holder1));
  to_scan();
  expect_refused(3);
  answer_scan(1, ap1, with_key_holders(holder1));
  expect_refused(5);
  computed.open();
  finish_computing();
}

TEST_F(Links, With80211rOffNothingIsPlanned) {
  settings.use_80211r = false;
  start();
  pipeline().planning_update_802dot11r();
  EXPECT_LINES(journal.take(), ({"TRACE NOT Planning update 802dot11r domain lab"}));
  EXPECT_EQ(pipeline().fbt_status(), 0);
}

TEST_F(Links, AForcedPlanTakesThePlaceOfAPlannedUpdate) {
  settings.use_dca = true;
  start();
  pipeline().planning_update_802dot11r();
  ASSERT_EQ(pipeline().fbt_status(), 1);
  pipeline().planning_request_modes(true);
  EXPECT_EQ(pipeline().fbt_status(), 0);
  advance(30);
  EXPECT_THAT(journal.lines("TRACE Process update"), IsEmpty());
  EXPECT_THAT(journal.lines("TRACE Not update"), IsEmpty());
}

// After an optimisation

TEST_F(Links, AnOptimisationEndsWithAnUpdate) {
  settings.use_dca = true;
  start_with({ap1, ap2}, with_key_holders(holder1));
  to_mode_requests();
  answer_mode(1, ap1, with_key_holders(holder1));
  answer_mode(2, ap2, with_key_holders(holder2));
  to_scan();
  answer_scan(1, ap1, with_key_holders(holder1));
  answer_scan(2, ap2, with_key_holders(holder2, {holder1, holder3}));
  journal.take();
  finish_computing();
  const auto info = [](int session, const char* mac) {
    return "SEND " + std::to_string(session) + " " +
           with_switch("use-tpc", 0, with_switch("use-load-balance", 0, told_info(mac, {told_radio(1, 36, 5, 14)})));
  };
  const std::vector<std::string> rest = {
      status_event(0),
      "EVENT 23 lab",
      status_event(0),
      "TRACE Optimization on domain lab finished",
      info(1, ap1),
      info(2, ap2),
      told_links(1, ap1, {told_vap(1, 1, holder1, {holder2})}),
      told_links(2, ap2, {told_vap(1, 1, holder2, {holder1})}),
  };
  EXPECT_LINES(told(), (std::vector<std::string>{"TRACE Post tpc-results"} + update_lines(2) + rest));
}

// The APs report their VAPs in each answer, but no key material: what they were given stays.
class LinksOverCycles : public Links {
 protected:
  LinksOverCycles() { settings.use_dca = true; }

  void run_cycle() {
    to_mode_requests();
    answer_mode(1, ap1, with_11r());
    answer_mode(2, ap2, with_11r());
    to_scan();
    answer_scan(1, ap1, with_11r());
    answer_scan(2, ap2, with_11r());
    finish_computing();
  }
  // fbt-info for ap1, linked with ap2 by what both were given.
  std::string links_of_ap1() {
    const LinkText own{"SN44:00", "00:11:22:33:44:11", vap(ap1).fbt_rrb_key};
    const LinkText peer{"SN55:00", "00:11:22:33:55:11", vap(ap2).fbt_rrb_key};
    return told_links(1, ap1, {told_vap(1, 1, own, {peer})});
  }
};

TEST_F(LinksOverCycles, FurtherCyclesTellNothingNew) {
  start_with({ap1, ap2}, with_11r());
  run_cycle();
  EXPECT_TRUE(journal.has(links_of_ap1()));
  pipeline().force_optimization();
  journal.take();
  run_cycle();
  EXPECT_TRUE(journal.has("TRACE FBT settings changed = 0"));
  EXPECT_THAT(journal.lines("SEND 1 {\"service\":\"rrm\",\"version\":\"2.4\",\"cmd\":\"fbt-info\""), IsEmpty());
}

TEST_F(LinksOverCycles, AnApThatSubscribesDuringACycleIsToldItsLinks) {
  start_with({ap1, ap2}, with_11r());
  run_cycle();
  const std::string links = links_of_ap1();
  pipeline().force_optimization();
  to_mode_requests();
  answer_mode(1, ap1, with_11r());
  journal.take();
  receive(1, a_subscribe(ap1).with_radio(with_11r()));
  EXPECT_THAT(journal.take(), Contains(links));
}

TEST_F(Links, AFailedOptimisationLeavesTheLinksAlone) {
  settings.use_dca = true;
  success = false;
  start_with({ap1, ap2}, with_key_holders(holder1));
  to_mode_requests();
  answer_mode(1, ap1, with_key_holders(holder1));
  to_scan();
  answer_scan(1, ap1, with_key_holders(holder1, {holder3}));
  journal.take();
  finish_computing();
  EXPECT_FALSE(journal.has("TRACE Update 802dot11r domain lab"));
  EXPECT_EQ(links_of(ap1), array_of({holder3}));
}

// What a backup brings back

TEST_F(Links, WhileARestoreWaitsAnUpdateIsOnlyNoted) {
  start();
  pipeline().restore(0, 0, 30);
  journal.take();
  pipeline().planning_update_802dot11r();
  EXPECT_THAT(journal.take(), IsEmpty());
  EXPECT_EQ(pipeline().fbt_status(), 1);
  advance(29);
  EXPECT_THAT(told(), IsEmpty());
  advance(1);
  EXPECT_LINES(told(), ({"TRACE Planning update 802dot11r domain lab"}));
  advance(20);
  EXPECT_LINES(told(), (timer_line + update_lines(0, 0) + backup_event));
  EXPECT_EQ(pipeline().fbt_status(), 0);
}

TEST_F(Links, AfterTheRestoreAPendingUpdateIsMadeUpFor) {
  struct Case {
    int fbt_status;
    bool use_80211r;
    std::vector<std::string> expected;
  };
  const std::vector<std::string> plans = {"TRACE Planning update 802dot11r domain lab"};
  const std::vector<std::string> refused = {"TRACE NOT Planning update 802dot11r domain lab"};
  for (const Case& one : {Case{1, true, plans}, Case{1, false, refused}, Case{0, true, plans}, Case{0, false, {}},
                          Case{2, true, {}}, Case{-1, true, {}}}) {
    settings.use_80211r = one.use_80211r;
    start();
    pipeline().restore(0, one.fbt_status, 30);
    EXPECT_EQ(pipeline().fbt_status(), one.fbt_status);
    journal.take();
    advance(30);
    EXPECT_LINES(told(), (one.expected)) << one.fbt_status << one.use_80211r;
  }
}

}  // namespace
}  // namespace rrm::testing
