// A domain taken over from a backup: what of it comes back, what is left out, and how its access points return.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Api.h"
#include "domain/domain_support.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/builders.h"
#include "support/no_more_threads.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";
const char* const ap3 = "00:11:22:33:66:00";

// An access point of a backup with one enabled radio, on 5 GHz.
class BackupAp : public JsonBuilder<BackupAp> {
 public:
  explicit BackupAp(const std::string& mac) {
    with("mac", mac).with("active", 1).with("ap-mac-count", 48).with("use-wildcard-80211r", 0);
    with_radios(R"({"id":1,"mac-offset":16,"radio-mac-count":16,"status":1,"channel":36,"band":5,"power":17,)"
                R"("max-power":20,"min-power":5,"bandwidth":20,"available-channels":[36,40]})");
    with_raw("visible-members", "[]").with_raw("visible-rogue", "[]");
    with("board", "NVA-3wz").with("hw", "1.0").with("serial", "SN" + mac.substr(12));
  }
  BackupAp& with_radios(const std::string& elements) {
    return with_raw("radios", R"({"received":1,"interfaces":[)" + elements + "]}");
  }
  std::string text() const { return object_.text(); }
};

std::string list(const std::string& key, const std::vector<std::string>& aps) {
  return "\"" + key + "\":" + array_text(aps);
}

class Restoring : public DomainTest {
 protected:
  // The backup's other members stand behind these.
  void restore(const std::string& members) {
    restore_text(R"({"name":"lab","rrm-status":0,"fbt-status":0,)" + members + "}");
  }
  void restore_text(const std::string& text) {
    locked([&](RrmWorker& lab) { lab.restore(JsonReader(text.c_str())); });
  }
  void restore_ap(const BackupAp& ap) { restore(list("aps", {ap.text()})); }

  std::string asked(const std::string& mac, RrmWorker::ApForm form) {
    JsonWriter answer;
    locked([&](RrmWorker& lab) { EXPECT_TRUE(lab.report_ap(testing::mac(mac), form, answer)); });
    return answer.to_string();
  }
  std::string whole(const std::string& mac) { return asked(mac, RrmWorker::ApForm::whole); }
  std::string links(const std::string& mac) { return asked(mac, RrmWorker::ApForm::links); }
  std::vector<std::string> gone() {
    std::vector<std::string> macs;
    for (const auto& [mac, entry] : deleted_aps()) macs.push_back(mac.to_string());
    return macs;
  }
};

// The way there and back

// The places of the arrays under this key, in order. Requires: no bracket within a text.
std::vector<std::pair<std::size_t, std::size_t>> arrays_under(const std::string& key, const std::string& json) {
  std::vector<std::pair<std::size_t, std::size_t>> places;
  const std::string begin = "\"" + key + "\":[";
  for (std::size_t at = json.find(begin); at != std::string::npos; at = json.find(begin, at + 1)) {
    const std::size_t first = at + begin.size() - 1;
    std::size_t end = first;
    int depth = 0;
    do {
      depth += json[end] == '[' ? 1 : json[end] == ']' ? -1 : 0;
      ++end;
    } while (depth > 0);
    places.emplace_back(first, end - first);
  }
  return places;
}

// The access point as it stands in a backup: what is told of it whole, with the VAPs that are told with their keys, and
// its factory's record.
std::string backup_of(const std::string& whole, const std::string& links, const ApFactory& factory) {
  std::string text = whole.substr(whole.find(':') + 1);
  text.pop_back();
  auto places = arrays_under("vaps", text);
  const auto full = arrays_under("vaps", links);
  EXPECT_EQ(places.size(), 3u);
  EXPECT_EQ(full.size(), 3u);
  for (std::size_t i = places.size(); i-- > 0;) {
    text.replace(places[i].first, places[i].second, links.substr(full[i].first, full[i].second));
  }
  text.pop_back();
  return text + R"(,"board":")" + factory.board + R"(","hw":")" + factory.hw + R"(","serial":")" + factory.serial +
         "\"}";
}

std::string replaced_all(std::string text, const std::string& part, const std::string& by) {
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size())) {
    text.replace(at, part.size(), by);
  }
  return text;
}

// Two access points with an 802.11r network, planned and linked, which hear each other and a stranger.
class RoundTrip : public Restoring {
 protected:
  static RadioJson radio(int channel = 36) {
    return a_5ghz_radio(channel).with_raw("vaps", R"([{"id":1,"ssid":"office","802dot11k":1,"802dot11r":1},)"
                                                  R"({"id":2,"ssid":"guests","802dot11k":0}])");
  }
  static MessageJson subscribe_of(const char* mac, int channel = 36) {
    return a_subscribe(mac).with_radio(radio(channel)).with_radio(a_2ghz_radio().disabled()).with("ap-mac-count", 64);
  }
  void plan(const char* mac, std::int32_t channel, const char* heard) {
    const auto entry = ap(mac);
    entry->radios.list[1].channel = channel;
    entry->radios.list[1].power = 17;
    entry->radios.list[1].power_changed = -3;
    entry->radios.list[1].conflicted = entry->radios.received = entry->active = true;
    entry->visible_members.insert(testing::mac(heard), a_neighbour(-60, 36));
    entry->visible_rogue.insert(testing::mac("00:99:99:00:00:01"), a_neighbour(-70, 1));
  }
  // What a backup of the domain holds.
  std::string backup() {
    const auto element = [&](const char* mac) { return backup_of(whole(mac), links(mac), ap(mac)->factory); };
    return list("aps", {element(ap1)}) + "," + list("deleted-aps", {}) + "," + list("unanswered-aps", {element(ap2)});
  }
  // An update of the links that finds nothing to do.
  void expect_links_hold() {
    locked([](RrmWorker& lab) { lab.tpc_dca().update_802dot11r(); });
    worker->after_messages();
    EXPECT_TRUE(journal.has("TRACE FBT settings changed = 0"));
    EXPECT_THAT(journal.lines("SEND"), IsEmpty());
    for (const auto& [mac, entry] : aps()) EXPECT_FALSE(entry->fbt_changed) << mac.to_string();
    journal.take();
  }

  void start_linked() {
    start();
    subscribe(1, subscribe_of(ap1));
    subscribe(2, subscribe_of(ap2));
    plan(ap1, 40, "00:11:22:33:55:11");
    plan(ap2, 44, "00:11:22:33:44:11");
    locked([](RrmWorker& lab) { lab.tpc_dca().update_802dot11r(); });
    worker->after_messages();
    journal.take();
    expect_links_hold();
    const auto silent = ap(ap2);
    locked([&](RrmWorker& lab) { lab.unanswered_aps().insert(silent->mac, silent); });
    aps().erase_from_index(silent);
    aps().erase_node(std::next(aps().begin()));
  }
  // Without what a new master starts with afresh.
  static std::string afresh(std::string told) {
    for (const char* set : {R"("active-ap")", R"("unanswered-ap")"}) told = replaced_all(told, set, R"("deleted-ap")");
    for (const char* flag : {R"("active":)", R"("received":)", R"("conflicted":)"}) {
      told = replaced_all(told, std::string(flag) + "1", std::string(flag) + "0");
    }
    return replaced_all(told, R"("power-changed":-3)", R"("power-changed":0)");
  }
};

TEST_F(RoundTrip, WhatABackupHoldsOfAnAccessPointComesBack) {
  start_linked();
  const std::string text = backup();
  const std::string whole1 = whole(ap1);
  const std::string whole2 = whole(ap2);
  const std::string links1 = links(ap1);
  const std::string links2 = links(ap2);
  ASSERT_NE(links1.find("remote-r1-kh-key"), std::string::npos);
  ASSERT_NE(whole1, afresh(whole1));
  start();
  restore(text);
  EXPECT_THAT(gone(), ElementsAre(ap1, ap2));
  EXPECT_EQ(whole(ap1), afresh(whole1));
  EXPECT_EQ(whole(ap2), afresh(whole2));
  EXPECT_EQ(links(ap1), afresh(links1));
  EXPECT_EQ(links(ap2), afresh(links2));
  EXPECT_EQ(ap(ap1)->factory, (ApFactory{"NVA-3wz", "1.0", "SN44:00", testing::mac(ap1)}));
  EXPECT_EQ(worker->channel_pools()[5], (ChannelSet{36, 40, 44, 48}));
}

// A second backup says what the first one said: nothing wears off from takeover to takeover.
TEST_F(RoundTrip, ABackupOfARestoredDomainIsTheSame) {
  start_linked();
  const std::string text = backup();
  start();
  restore(text);
  EXPECT_EQ(backup(), afresh(text));
}

TEST_F(RoundTrip, AnAccessPointThatReturnsKeepsItsPlanAndItsKeys) {
  start_linked();
  const std::string text = backup();
  const std::string key1 = ap(ap1)->radios.list[1].vaps.find("office")->fbt_rrb_key;
  const std::string key2 = ap(ap2)->radios.list[1].vaps.find("office")->fbt_rrb_key;
  start();
  restore(text);
  journal.take();
  receive(7, subscribe_of(ap1, 40));
  std::string response = told_success(ap1, {told_radio(1, 40, 5, 17)});
  response.insert(response.size() - 2,
                  R"(,"802dot11k":[{"neighbour-mac":"00:11:22:33:55:11","channel":44,"band":5,"bandwidth":20,)"
                  R"("primary-channel":"none","priority":255,)"
                  R"("vaps":[{"id":1,"ssid":"office","mac":"00:11:22:33:55:11"}]}])");
  EXPECT_LINES(
      journal.take(),
      ({
          "TRACE process_message subscribe-request for 00:11:22:33:44:00",
          "TRACE To delete subscribe request, scan state 0",
          "TRACE drop_session_at_websock_worker: 0 force: 1",
          "DROP-FORCE 0",
          "EVENT-LOG process_exists_ap update_802dot11k 0 (1/1)",
          "EVENT-LOG process_exists_ap update_802dot11r 0",
          "SEND 7 " + response,
          "TRACE Post 802dot11r results domain lab",
          R"(SEND 7 {"service":"rrm","version":"2.4","cmd":"fbt-info","ap-mac":"00:11:22:33:44:00",)"
          R"("morvane-use-80211r":1,"fbt-over-ds":0,"fbt-reassoc-deadline":1000,"vaps":[{"vap_id":1,"radio_id":1,)"
          R"("fbt-rrb-key":")" +
              key1 +
              R"(","mobility-domain":32255,"r0-key-holder-id":"SN44:00",)"
              R"("r1-key-holder-id":"00:11:22:33:44:11","remotes":[{"remote-r0-kh-id":"SN55:00",)"
              R"("remote-r1-kh-id":"00:11:22:33:55:11","remote-r1-kh-key":")" +
              key2 + R"("}]}]})",
          "EVENT 23 lab",
      }));
  EXPECT_EQ(aps().size(), 1u);
  EXPECT_THAT(gone(), ElementsAre(ap2));
  EXPECT_EQ(ap(ap1)->session.id, 7u);
  receive(8, subscribe_of(ap2, 44));
  journal.take();
  expect_links_hold();
  EXPECT_EQ(ap(ap1)->radios.list[1].power, 17) << "the message said 14";
  EXPECT_EQ(ap(ap2)->radios.list[1].channel, 44);
}

TEST_F(RoundTrip, ALinkToOneThatDoesNotReturnIsBrokenInTheEnd) {
  start_linked();
  const std::string text = backup();
  start();
  restore(text);
  subscribe(7, subscribe_of(ap1, 40));
  locked([](RrmWorker& lab) { lab.tpc_dca().update_802dot11r(); });
  EXPECT_TRUE(journal.has("TRACE FBT settings changed = 1"));
  EXPECT_EQ(links(ap1).find("remote-r1-kh-key"), std::string::npos);
}

// What is taken over, and in which order

TEST_F(Restoring, AllThreeSetsAreTakenOverAsGoneInTheirOrder) {
  start();
  restore(list("deleted-aps", {BackupAp(ap1).text()}) + "," + list("unanswered-aps", {BackupAp(ap2).text()}) + "," +
          list("aps", {BackupAp(ap3).text()}));
  EXPECT_LINES(journal.take(), ({
                                   status_event(0),
                                   "TRACE Restore ap '00:11:22:33:66:00' from backup",
                                   "TRACE Restore ap '00:11:22:33:55:00' from backup",
                                   "TRACE Restore ap '00:11:22:33:44:00' from backup",
                               }));
  EXPECT_THAT(gone(), ElementsAre(ap1, ap2, ap3));
  EXPECT_TRUE(aps().empty());
  EXPECT_TRUE(unanswered_aps().empty());
  for (const auto& [mac, entry] : deleted_aps()) {
    EXPECT_EQ(entry->session, no_session);
    EXPECT_FALSE(entry->session_dropped);
    EXPECT_FALSE(entry->active);
    EXPECT_FALSE(entry->radios.received);
    EXPECT_EQ(entry->delete_ttl, 30);
    EXPECT_EQ(entry->config, &worker->config());
    EXPECT_EQ(entry->platform, ApPlatform::brix);
  }
}

// Where a list is missing, the lists behind it are not looked at.
TEST_F(Restoring, NothingIsTakenOverFromBehindAMissingList) {
  const std::string one = list("aps", {BackupAp(ap1).text()});
  const std::string two = list("unanswered-aps", {BackupAp(ap2).text()});
  const std::string three = list("deleted-aps", {BackupAp(ap3).text()});
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {one + "," + two + "," + three, {ap1, ap2, ap3}},
      {one + "," + two, {ap1, ap2}},
      {one + "," + three, {ap1}},
      {one + R"(,"unanswered-aps":null,)" + three, {ap1}},
      {one, {ap1}},
      {two + "," + three, {}},
      {three, {}},
      {R"("aps":null,)" + two + "," + three, {}},
      {R"("aps":[],)" + two + "," + three, {ap2, ap3}},
      {R"("aps":[],"unanswered-aps":[],)" + three, {ap3}},
      {R"("aps":{},"unanswered-aps":7,)" + three, {ap3}},
      {R"("details":{)" + one + "}", {}},
  };
  for (const auto& [members, expected] : cases) {
    start();
    restore(members);
    EXPECT_EQ(gone(), expected) << members.substr(0, 60);
  }
}

TEST_F(Restoring, AnAccessPointInTwoListsIsTakenFromTheFirst) {
  start();
  restore(list("aps", {BackupAp(ap1).text()}) + R"(,"unanswered-aps":[],)" +
          list("deleted-aps", {BackupAp(ap1).with("serial", "other").text(), BackupAp(ap2).text()}));
  EXPECT_THAT(gone(), ElementsAre(ap1, ap2));
  EXPECT_EQ(ap(ap1)->factory.serial, "SN44:00");
}

TEST_F(Restoring, ABackupOfNothingIsADomainOfNothing) {
  for (const char* text :
       {"{}", "null", "[]", "7", R"("lab")", R"({"aps":"x"})", R"({"aps":[[[[]]]]})", R"({"aps":[null]})"}) {
    start();
    restore_text(text);
    EXPECT_THAT(gone(), IsEmpty()) << text;
    EXPECT_EQ(rrm_status(), 0) << text;
  }
}

// Its state

TEST_F(Restoring, TheStateOfThePlanComesBackUnlessItWasWithinACycle) {
  struct Case {
    const char* members;
    int status;
    int fbt;
    std::vector<std::string> warnings;
  };
  const auto remapped = [](const std::string& which, const std::string& to) {
    return "WARNING Restore domain lab: " + which + " remapped to " + to;
  };
  const Case cases[] = {
      {R"("rrm-status":0,"fbt-status":0)", 0, 0, {}},
      {R"("rrm-status":1,"fbt-status":1)", 1, 1, {}},
      {R"("rrm-status":2)", 4, 0, {remapped("mid-cycle rrm-status 2", "DELAY_BEFORE_OPT_FORCE")}},
      {R"("rrm-status":3)", 4, 0, {remapped("mid-cycle rrm-status 3", "DELAY_BEFORE_OPT_FORCE")}},
      {R"("rrm-status":4)", 4, 0, {}},
      {R"("rrm-status":5)", 4, 0, {remapped("mid-cycle rrm-status 5", "DELAY_BEFORE_OPT_FORCE")}},
      {R"("rrm-status":6)", 0, 0, {remapped("unknown rrm-status 6", "IDLE")}},
      {R"("rrm-status":-1)", 0, 0, {remapped("unknown rrm-status -1", "IDLE")}},
      {R"("fbt-status":1)", 0, 1, {}},
      {R"("rrm-status":"4","fbt-status":"1")", 4, 1, {}},
      {R"("rrm-status":"busy","fbt-status":{})", 0, 0, {}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.members);
    start();
    restore_text(std::string("{") + one.members + "}");
    std::vector<std::string> expected = one.warnings;
    expected.push_back(status_event(one.status));
    EXPECT_LINES(journal.take(), (expected));
    EXPECT_EQ(rrm_status(), one.status);
    EXPECT_NE(status().find("\"fbt-status\":" + std::to_string(one.fbt)), std::string::npos);
  }
}

TEST_F(Restoring, ThePlanStartsOverWhenTheTimeToReturnIsUp) {
  settings.away_timeout = 60;
  start();
  restore_text(R"({"rrm-status":3,"aps":[)" + BackupAp(ap1).text() + "]}");
  subscribe(1, a_subscribe(ap1).with_radio(a_5ghz_radio(36, "36 40")));
  advance(59);
  EXPECT_EQ(rrm_status(), 4);
  EXPECT_THAT(journal.lines("TRACE VRRP"), IsEmpty());
  advance(1);
  EXPECT_TRUE(journal.has("TRACE VRRP restore timer: restarting optimization pipeline on domain lab from state 4"));
  to_mode_requests();
}

// What is left out

TEST_F(Restoring, WithoutItsFactorysRecordAnAccessPointIsLeftOut) {
  const auto without = [](const char* key) { return BackupAp(ap1).without(key); };
  const std::string warning = "WARNING Can't read factory settings from backup for ap '00:11:22:33:44:00'";
  for (const char* key : {"board", "hw", "serial"}) {
    for (const BackupAp& bad : {without(key), without(key).with(key, ""), without(key).with(key, 7),
                                without(key).with_raw(key, "null"), without(key).with_raw(key, R"(["x"])")}) {
      SCOPED_TRACE(bad.text());
      start();
      restore(list("aps", {bad.text(), BackupAp(ap2).text()}));
      EXPECT_LINES(journal.take(), ({status_event(0), warning, "TRACE Restore ap '00:11:22:33:55:00' from backup"}));
      EXPECT_THAT(gone(), ElementsAre(ap2));
    }
  }
}

TEST_F(Restoring, WhatIsNoAccessPointIsLeftOut) {
  start();
  restore(list("aps", {"null", "7", R"("x")", "[]", "{}", BackupAp(ap1).text(), "null"}));
  const std::string warning = "WARNING Can't read factory settings from backup for ap '00:00:00:00:00:00'";
  EXPECT_LINES(journal.take(), ({status_event(0), warning, warning, warning, warning,
                                 "TRACE Restore ap '00:11:22:33:44:00' from backup"}));
  EXPECT_THAT(gone(), ElementsAre(ap1));
}

TEST_F(Restoring, AnAddressThatDoesNotScanIsAllZero) {
  start();
  restore_ap(BackupAp("not an address").with("serial", "SN1"));
  EXPECT_THAT(gone(), ElementsAre("00:00:00:00:00:00"));
}

std::string pool_radio(int id, int offset, int count, int status = 1) {
  return R"({"id":)" + std::to_string(id) + R"(,"mac-offset":)" + std::to_string(offset) + R"(,"radio-mac-count":)" +
         std::to_string(count) + R"(,"status":)" + std::to_string(status) + R"(,"channel":36,"band":5,)" +
         R"("available-channels":[36,)" + std::to_string(40 + 4 * id) + "]}";
}

TEST_F(Restoring, OverlappingPoolsCostThatAccessPointAlone) {
  start();
  const std::string bad = BackupAp(ap1).with_radios(pool_radio(0, 0, 16) + "," + pool_radio(1, 8, 16)).text();
  restore(list("aps", {bad, BackupAp(ap2).text()}));
  EXPECT_LINES(journal.take(),
               ({
                   status_event(0),
                   "TRACE Restore ap '00:11:22:33:44:00' from backup",
                   "ERROR MAC ranges overlapped: radio0 00:11:22:33:44:00 max_mac_count=16, radio1 00:11:22:33:44:08",
                   "ERROR Can't restore ap '00:11:22:33:44:00' from backup due to invalid MAC parameters",
                   "EVENT 3 00:11:22:33:44:00",
                   "TRACE Restore ap '00:11:22:33:55:00' from backup",
               }));
  EXPECT_THAT(gone(), ElementsAre(ap2));
  EXPECT_EQ(worker->channel_pools()[5], (ChannelSet{36, 40, 44})) << "what it offered is known all the same";
}

TEST_F(Restoring, PoolsAreTakenToTheirLastAddress) {
  const std::string three = pool_radio(0, 0, 16) + "," + pool_radio(1, 16, 16) + "," + pool_radio(2, 32, 16);
  struct Case {
    std::string radios;
    int count;
    bool taken;
  };
  for (const Case& one :
       {Case{three, 48, true}, Case{three, 47, false}, Case{pool_radio(0, 0, 0), 48, false},
        Case{pool_radio(0, 0, 0, 0), 48, true}, Case{pool_radio(0, -1, 16), 48, false}, Case{three, 0, false},
        Case{three, -1, false}, Case{pool_radio(0, 0, 16) + "," + pool_radio(1, 15, 16), 48, false},
        Case{pool_radio(0, 0, 16) + "," + pool_radio(1, 0, 16, 0), 48, true}}) {
    SCOPED_TRACE(one.radios + std::to_string(one.count));
    start();
    restore_ap(BackupAp(ap1).with_radios(one.radios).with("ap-mac-count", one.count));
    EXPECT_EQ(gone().size(), one.taken ? 1u : 0u);
    EXPECT_EQ(journal.has("EVENT 3 00:11:22:33:44:00"), !one.taken);
  }
}

// Without the count 48 addresses are taken for granted.
TEST_F(Restoring, MissingKeysHaveTheirDefaults) {
  start();
  restore_ap(BackupAp(ap1)
                 .without("ap-mac-count")
                 .without("use-wildcard-80211r")
                 .without("visible-members")
                 .without("visible-rogue")
                 .with_radios(R"({"id":2,"status":1})"));
  EXPECT_EQ(ap(ap1)->ap_mac_count, 48u);
  EXPECT_EQ(ap(ap1)->radios.list[2].mac, testing::mac("00:11:22:33:44:20"));
  start();
  restore_ap(BackupAp(ap1).without("radios"));
  EXPECT_FALSE(ap(ap1)->radios.any_on_air());
}

// Its access points return, or do not

TEST_F(Restoring, LimitsOfEirpComeWithTheNextMessage) {
  start();
  restore_ap(BackupAp(ap1).with_radios(
      R"({"id":1,"mac-offset":16,"radio-mac-count":16,"status":1,"channel":36,"band":5,"power":17,"max-power":20,)"
      R"("min-power":5,"bandwidth":20,"eirp-min":7,"eirp-max":12,"eirp":12,"available-channels":[36],)"
      R"("antenna-configuration":{"antenna-gain":3,"cable-loss":1}})"));
  const Radio& radio = ap(ap1)->radios.list[1];
  EXPECT_EQ(radio.eirp, -1);
  EXPECT_EQ(radio.eirp_min, -1);
  EXPECT_EQ(radio.eirp_max, -1);
  EXPECT_FALSE(radio.has_antenna);
  EXPECT_EQ(radio.power, 17);
  receive(1,
          a_subscribe(ap1).with_radio(a_5ghz_radio(36, "36")
                                          .with("eirp-min", 7)
                                          .with("eirp-max", 12)
                                          .with_raw("antenna-configuration", R"({"antenna-gain":3,"cable-loss":1})")));
  EXPECT_TRUE(
      journal.has("TRACE 00:11:22:33:44:00: Power/eirp adjusted to new limits: power 17 -> 10, eirp -1 -> 12 "
                  "(power min/max 5/20, eirp min/max 7/12)"));
  EXPECT_EQ(radio.eirp_max, 12);
  EXPECT_EQ(radio.power, 10);
}

// Restored in a scan's name, it re-enters by the plan that starts over, not by one of its own.
TEST_F(Restoring, AnAccessPointReEntersWithoutANewPlan) {
  start();
  restore_text(R"({"rrm-status":3,"aps":[)" + BackupAp(ap1).text() + "]}");
  journal.take();
  receive(1, a_subscribe(ap1).with_radio(a_5ghz_radio(36, "36 40")));
  EXPECT_TRUE(journal.has("TRACE To delete subscribe request, scan state 0"));
  EXPECT_THAT(journal.lines("TRACE Not-equivalent"), IsEmpty());
  EXPECT_EQ(ap(ap1)->radios.list[1].power, 17);
  EXPECT_EQ(aps().size(), 1u);
}

TEST_F(Restoring, AStrangersMessagesOnItsAddressFindItAmongTheGone) {
  start();
  restore_ap(BackupAp(ap1));
  journal.take();
  receive(1, a_message("rrm-config-changed", ap1).with_radio(a_5ghz_radio(36)));
  EXPECT_TRUE(journal.has("ERROR Exception at processing message on worker 'lab': invalid exist session"));
  EXPECT_THAT(gone(), ElementsAre(ap1));
}

TEST_F(Restoring, WhoeverDoesNotReturnIsForgottenWhenItsTimeIsUp) {
  settings.away_timeout = 60;
  start();
  restore(list("aps", {BackupAp(ap1).text(), BackupAp(ap2).text()}));
  advance(49);
  subscribe(1, a_subscribe(ap2).with_radio(a_5ghz_radio(36, "36 40")));
  advance(10);
  EXPECT_THAT(gone(), ElementsAre(ap1));
  advance(1);
  EXPECT_THAT(gone(), IsEmpty());
  EXPECT_TRUE(journal.has("EVENT 23 lab"));
  EXPECT_EQ(aps().size(), 1u);
}

// By the server

class RestoredDomains : public Restoring {
 protected:
  RestoredDomains() {
    global.load(JsonReader(R"({"global":{},"common":{"away_timeout":30},"patterns":[{"pattern":"office","use_dca":0}],
        "domains":[{"domain":"lab","pattern":"common"},{"domain":"hall","pattern":"office"}]})"));
    journal.take();
  }
  ~RestoredDomains() override { worker.reset(); }
  void restore_domain(const std::string& text) {
    JsonReader json(text.c_str());
    server.restore_domain(json);
    worker = std::dynamic_pointer_cast<RrmWorker>(server.find_worker("lab"));
  }
  static std::string backup(const std::string& mac) { return R"({"name":"lab","aps":[)" + BackupAp(mac).text() + "]}"; }
};

TEST_F(RestoredDomains, ADomainIsMadeBeforeItsAccessPointsCome) {
  restore_domain(backup(ap1));
  ASSERT_NE(worker, nullptr);
  std::vector<std::string> lines = journal.take();
  std::erase(lines, "TRACE Start worker lab");  // of its thread, at any time
  EXPECT_LINES(lines, ({"TRACE Created new worker 'lab' with common config.", status_event(0),
                        "TRACE Restore ap '00:11:22:33:44:00' from backup"}));
  locked([&](RrmWorker&) {
    EXPECT_THAT(gone(), ElementsAre(ap1));
    EXPECT_EQ(ap(ap1)->delete_ttl, 3);
  });
}

TEST_F(RestoredDomains, ARunningDomainIsNeverOverwritten) {
  restore_domain(backup(ap1));
  const auto first = worker;
  journal.take();
  restore_domain(backup(ap2));
  EXPECT_EQ(worker, first);
  locked([&](RrmWorker&) { EXPECT_THAT(gone(), ElementsAre(ap1)); });
  EXPECT_THAT(journal.lines("TRACE Restore"), IsEmpty());
  EXPECT_THAT(journal.lines("TRACE Created"), IsEmpty());
}

TEST_F(RestoredDomains, WithoutANameOrADomainOfItNothingIsMade) {
  for (const char* text : {"{}", "null", R"({"name":""})", R"({"name":7})", R"({"Name":"lab"})"}) {
    restore_domain(text);
    EXPECT_THAT(journal.take(), IsEmpty()) << text;
  }
  restore_domain(R"({"name":"cellar","aps":[)" + BackupAp(ap1).text() + "]}");
  EXPECT_LINES(journal.take(),
               ({"ERROR Exception at processing message for domain 'cellar': Domain not found", "EVENT 13 cellar"}));
  EXPECT_THAT(server.worker_snapshot(), IsEmpty());
}

TEST_F(RestoredDomains, ADomainWhoseThreadCannotBeStartedIsNotFilled) {
  {
    const NoMoreThreads none;
    restore_domain(backup(ap1));
  }
  EXPECT_LINES(
      journal.take(),
      ({"ERROR Exception at processing message for domain 'lab': Resource temporarily unavailable", "EVENT 13 lab"}));
  EXPECT_EQ(worker, nullptr);
  restore_domain(backup(ap1));
  EXPECT_NE(worker, nullptr);
}

TEST_F(RestoredDomains, ADomainToWhichNobodyReturnsEndsItself) {
  restore_domain(backup(ap1));
  worker.reset();
  EXPECT_TRUE(eventually([&] {
    clock.advance(1);
    return server.find_worker("lab") == nullptr;
  }));
  EXPECT_EQ(journal.lines("TRACE Domain lab state").size(), 3u) << "ticks in 30 seconds";
  EXPECT_TRUE(journal.has("EVENT 23 lab"));
}

TEST_F(RestoredDomains, ItsSessionsAreNobodysWhenItIsRemoved) {
  restore_domain(backup(ap1));
  server.remove_worker("lab");
  EXPECT_TRUE(journal.has("TRACE Drop session 00:11:22:33:44:00(0) on worker 'lab'."));
  EXPECT_TRUE(journal.has("DROP-FORCE 0"));
}

}  // namespace
}  // namespace rrm::testing
