// The daemon's answers as people see them: tables and facts, line by line.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "controller/Table.h"
#include "controller/answers.h"

namespace controller {
namespace {

using Tell = std::string (*)(const std::string& answer);

std::string reason_of(Tell tell, const std::string& answer) {
  try {
    return "no reason: " + tell(answer);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
}

TEST(ControllerTable, ColumnsAreAsWideAsTheirWidestCell) {
  Table table({"A", "LONG HEADER", "C"});
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(table.text(), "A  LONG HEADER  C\n");
  table.add({"wide cell", "x", "y"});
  table.add({"1", "", "z"});
  EXPECT_FALSE(table.empty());
  EXPECT_EQ(table.text(),
            "A          LONG HEADER  C\n"
            "wide cell  x            y\n"
            "1          -            z\n");
}

TEST(ControllerTable, WidthCountsCharactersNotBytes) {
  Table table({"SSID", "N"});
  table.add({"caf\xc3\xa9", "1"});
  table.add({"cafe", "2"});
  EXPECT_EQ(table.text(), "SSID  N\ncaf\xc3\xa9  1\ncafe  2\n");
}

TEST(ControllerTable, NoCellCanLookLikeARowOrReachTheTerminal) {
  Table table({"SSID"});
  table.add({"a\nb\x1b[2J\x7f\t"});
  EXPECT_EQ(table.text(), "SSID\na\\x0ab\\x1b[2J\\x7f\\x09\n");
}

// The management's requests

TEST(ControllerAnswers, LocationsAreListedWithTheirAccessPoints) {
  EXPECT_EQ(tell_common(R"({"array":[{"ap-location":"hall","ap-morvane":2,"ap-count":3},)"
                        R"({"ap-location":"office","ap-morvane":12,"ap-count":12}]})"),
            "LOCATION  CONNECTED  KNOWN\n"
            "hall      2          3\n"
            "office    12         12\n");
  EXPECT_EQ(tell_common(R"({"array":[]})"), "LOCATION  CONNECTED  KNOWN\n");
}

TEST(ControllerAnswers, SessionsAreListedWithTheirAccessPoint) {
  EXPECT_EQ(tell_sessions(R"({"array":[{"ap-mac":"a8:f9:4b:00:11:22","ap-ip":"10.0.0.7","session-id":3,)"
                          R"("ap-board-type":"WEP-3ax","ap-location":"office"},{"ap-mac":"a8:f9:4b:00:22:22",)"
                          R"("ap-ip":"10.0.0.8","session-id":17,"ap-board-type":"","ap-location":"office"}]})"),
            "LOCATION  AP                 IP        SESSION  BOARD\n"
            "office    a8:f9:4b:00:11:22  10.0.0.7  3        WEP-3ax\n"
            "office    a8:f9:4b:00:22:22  10.0.0.8  17       -\n");
}

TEST(ControllerAnswers, RadiosOfALocationAreListedBandByBand) {
  EXPECT_EQ(
      tell_stat(R"({"6g":[],"5g":[{"ap-mac":"a8:f9:4b:00:11:22","radio-mac":"a8:f9:4b:00:11:32","status":"Up",)"
                R"("locked-dca":1,"locked-tpc":1,"locked-balancer":1,"locked-80211v":1,"channel":36,"power":17,)"
                R"("bandwidth":80,"assoc-clients":4,"eirp":23,"available-channels":[36,52]}],)"
                R"("2g":[{"ap-mac":"a8:f9:4b:00:11:22","radio-mac":"a8:f9:4b:00:11:22","status":"Down","locked-dca":0,)"
                R"("locked-tpc":0,"locked-balancer":0,"locked-80211v":0,"channel":1,"power":10,"bandwidth":20,)"
                R"("assoc-clients":0,"available-channels":[]}]})"),
      "BAND  AP                 RADIO              STATUS  CHANNEL  WIDTH  POWER  EIRP  CLIENTS  "
      "LOCKED                          CHANNELS\n"
      "2g    a8:f9:4b:00:11:22  a8:f9:4b:00:11:22  Down    1        20     10     -     0        "
      "-                               -\n"
      "5g    a8:f9:4b:00:11:22  a8:f9:4b:00:11:32  Up      36       80     17     23    4        "
      "channel,power,balancer,802.11v  36,52\n");
}

TEST(ControllerAnswers, VapsForRoamingAreListedBandByBand) {
  EXPECT_EQ(tell_roaming(R"({"2g":[],"5g":[{"ap-mac":"a8:f9:4b:00:11:22","vap-mac":"a8:f9:4b:00:11:33","ssid":"guest",)"
                         R"("80211k-enable":1,"80211r-enable":0,"80211v-enable":1,"fbt-links":5}],"6g":[]})"),
            "BAND  AP                 VAP                802.11K  802.11R  802.11V  LINKS  SSID\n"
            "5g    a8:f9:4b:00:11:22  a8:f9:4b:00:11:33  yes      no       yes      5      guest\n");
}

TEST(ControllerAnswers, AnAccessPointIsToldWithItsRadiosAndVaps) {
  EXPECT_EQ(
      tell_ap(R"({"ap-location":"office","ap-mac":"a8:f9:4b:00:11:22","5g":{"radio-mac":"a8:f9:4b:00:11:32",)"
              R"("status":"Up","power-changed":-3,"conflicted":1,"locked-tpc":1,"locked-dca":0,"locked-balancer":0,)"
              R"("locked-80211v":0,"channel":36,"power":17,"max-power":20,"min-power":10,"bandwidth":80,)"
              R"("primary-channel":256,"eirp":23,"eirp-max":26,"eirp-min":16,"available-channels":[36,52],)"
              R"("ssids":[{"vap-mac":"a8:f9:4b:00:11:33","ssid":"guest","80211k":"Enable","80211r":"Disable",)"
              R"("80211v":"Enable","fbt-links":["a8:f9:4b:00:22:33","a8:f9:4b:00:33:33"]}]}})"),
      "AP          a8:f9:4b:00:11:22\n"
      "location    office\n"
      "\n"
      "BAND  RADIO              STATUS  CHANNEL  WIDTH  POWER  CHANGED  MIN  MAX  EIRP  CONFLICT  LOCKED  CHANNELS\n"
      "5g    a8:f9:4b:00:11:32  Up      36       80     17     -3       10   20   23    yes       power   36,52\n"
      "\n"
      "BAND  VAP                802.11K  802.11R  802.11V  LINKS  SSID\n"
      "5g    a8:f9:4b:00:11:33  yes      no       yes      2      guest\n");
}

TEST(ControllerAnswers, ReportsTellWhatChanged) {
  EXPECT_EQ(
      tell_reports(R"({"2g":[{"ap-mac":"a8:f9:4b:00:11:22","ip-addr":"10.0.0.7","board-type":"WEP-3ax",)"
                   R"("location":"office","report-time":"2026-01-02,03:04:05 UTC","power-before":17,)"
                   R"("power-after":14,"channel-before":1,"channel-after":1}],"5g":[{"ap-mac":"a8:f9:4b:00:11:22",)"
                   R"("ip-addr":"10.0.0.7","board-type":"WEP-3ax","location":"office",)"
                   R"("report-time":"2026-01-02,03:04:05 UTC","power-before":17,"power-after":17,)"
                   R"("channel-before":36,"channel-after":44,"eirp-before":23,"eirp-after":20}],"6g":[]})"),
      "TIME                     BAND  AP                 IP        BOARD    CHANNEL  POWER   EIRP\n"
      "2026-01-02,03:04:05 UTC  2g    a8:f9:4b:00:11:22  10.0.0.7  WEP-3ax  1        17->14  -\n"
      "2026-01-02,03:04:05 UTC  5g    a8:f9:4b:00:11:22  10.0.0.7  WEP-3ax  36->44   17      23->20\n");
}

// The server's own interface

TEST(ControllerAnswers, SessionsOfTheServerAreListedById) {
  EXPECT_EQ(tell_api_sessions(R"({"version":"2.1","websock-sessions":[{"id":3,"peer":"10.0.0.7"},)"
                              R"({"id":17,"peer":"10.0.0.8"}]})"),
            "SESSION  IP\n"
            "3        10.0.0.7\n"
            "17       10.0.0.8\n");
  EXPECT_EQ(tell_api_sessions_removed(R"({"version":"2.1"})"), "ended, where there were such sessions\n");
}

TEST(ControllerAnswers, DomainsAreListedWithTheirSets) {
  EXPECT_EQ(tell_api_groups(R"({"version":"2.1","domains":[{"name":"hall","ap-count":2,"unanswered-ap-count":0,)"
                            R"("deleted-ap-count":1,"common-config":1},{"name":"office","ap-count":12,)"
                            R"("unanswered-ap-count":3,"deleted-ap-count":0,"common-config":0},{"name":"odd"}]})"),
            "DOMAIN  CONNECTED  UNANSWERED  DELETED  SETTINGS\n"
            "hall    2          0           1        common\n"
            "office  12         3           0        own\n"
            "odd     -          -           -        -\n");
}

TEST(ControllerAnswers, ADomainIsToldWithItsAccessPoints) {
  EXPECT_EQ(tell_api_group(
                R"({"version":"2.1","details":{"name":"office","metrics":{},"ap-count":1,"queue-size":0,)"
                R"("rrm-status":3,"fbt-status":1,"aps":[{"board":"WEP-3ax","mac":"A8:F9:4B:00:11:22","serial":"X1",)"
                R"("hw":"2v1","radios":[]}],"unanswered-aps":[],"deleted-aps":[{"board":"WEP-3ax",)"
                R"("mac":"A8:F9:4B:00:22:22","serial":"X2","hw":"2v1"}]}})"),
            "domain      office\n"
            "status      3 waiting for scans\n"
            "802.11r     1\n"
            "queue       0\n"
            "\n"
            "STATE      AP                 BOARD    HW   SERIAL\n"
            "connected  A8:F9:4B:00:11:22  WEP-3ax  2v1  X1\n"
            "deleted    A8:F9:4B:00:22:22  WEP-3ax  2v1  X2\n");
}

TEST(ControllerAnswers, AnAccessPointOfADomainIsToldWithItsSetRadiosAndVaps) {
  const std::string ap =
      R"({"mac":"A8:F9:4B:00:11:22","active":1,"radios":{"received":1,"interfaces":[{"id":1,"mac":"A8:F9:4B:00:11:32",)"
      R"("status":1,"power-changed":0,"locked-dca":1,"channel":36,"band":5,"power":17,"max-power":20,"min-power":10,)"
      R"("bandwidth":80,"eirp":23,"available-channels":[36,52],"vaps":[{"id":0,"ssid":"guest","mac":"A8:F9:4B:00:11:32",)"
      R"("use_802dot11k":1,"use_802dot11r":0,"use_802dot11v":1}],"assoc_clients":[{},{}]},{"id":2,"status":0}]},)"
      R"("visible-members":[{},{},{}],"visible-rogue":[]})";
  const std::string radios =
      "\n"
      "RADIO  BAND  MAC                STATUS  CHANNEL  WIDTH  POWER  CHANGED  MIN  MAX  EIRP  CLIENTS  LOCKED   "
      "CHANNELS\n"
      "1      5     A8:F9:4B:00:11:32  Up      36       80     17     0        10   20   23    2        channel  "
      "36,52\n"
      "2      -     -                  Down    -        -      -      -        -    -    -     0        -        -\n"
      "\n"
      "RADIO  VAP                802.11K  802.11R  802.11V  LINKS  SSID\n"
      "1      A8:F9:4B:00:11:32  yes      no       yes      0      guest\n";
  for (const auto& [key, state] : std::vector<std::pair<std::string, std::string>>{
           {"active-ap", "connected"}, {"unanswered-ap", "unanswered"}, {"deleted-ap", "deleted"}}) {
    EXPECT_EQ(tell_api_ap(R"({"version":"2.1",")" + key + "\":" + ap + "}"),
              "AP          A8:F9:4B:00:11:22\nstate       " + state + "\nneighbours  3\nforeign     0\n" + radios);
  }
}

TEST(ControllerAnswers, ReportsAreListedAndToldByTheirId) {
  EXPECT_EQ(tell_api_reports(R"({"data":[{"id":"2026-01-02,03:04:05,office","domain":"office",)"
                             R"("date":"2026-01-02,03:04:05 UTC"}],"count":1,"status":"success"})"),
            "TIME                     REPORT\n"
            "2026-01-02,03:04:05 UTC  2026-01-02,03:04:05,office\n");
  EXPECT_EQ(tell_api_report(R"({"report":{"id":"2026-01-02,03:04:05,office","domain":"office",)"
                            R"("date":"2026-01-02,03:04:05 UTC","domain_config":{},"details":[)"
                            R"({"ap_mac":"A8:F9:4B:00:11:22","radio_interfaces":[{"radio_id":1,)"
                            R"("radio_mac":"A8:F9:4B:00:11:32","before":{"power":17,"channel":36,"eirp":23},)"
                            R"("after":{"power":14,"channel":36,"eirp":20},"bandwidth":80}]}]},"status":"success"})"),
            "report      2026-01-02,03:04:05,office\n"
            "domain      office\n"
            "time        2026-01-02,03:04:05 UTC\n"
            "\n"
            "AP                 RADIO  MAC                CHANNEL  POWER   EIRP    WIDTH\n"
            "A8:F9:4B:00:11:22  1      A8:F9:4B:00:11:32  36       17->14  23->20  80\n");
}

// Failures

constexpr Tell every_tell[] = {tell_common,       tell_sessions,   tell_stat,
                               tell_roaming,      tell_ap,         tell_reports,
                               tell_api_sessions, tell_api_groups, tell_api_sessions_removed,
                               tell_api_group,    tell_api_ap,     tell_api_optimization,
                               tell_api_reports,  tell_api_report};

TEST(ControllerAnswers, ATextThatIsNoObjectIsNonsense) {
  for (const Tell tell : every_tell) {
    EXPECT_EQ(reason_of(tell, ""), "zal_rrm gave no answer");
    for (const char* text : {"[]", "{", "5", "null"})
      EXPECT_EQ(reason_of(tell, text), "zal_rrm answered nonsense: no JSON object");
  }
}

TEST(ControllerAnswers, AnAnswerWithoutItsListIsNonsense) {
  for (const auto& [tell, key] :
       std::vector<std::pair<Tell, std::string>>{{tell_common, "array 'array'"},
                                                 {tell_sessions, "array 'array'"},
                                                 {tell_roaming, "array '2g'"},
                                                 {tell_reports, "array '2g'"},
                                                 {tell_api_sessions, "array 'websock-sessions'"},
                                                 {tell_api_groups, "array 'domains'"},
                                                 {tell_api_group, "object 'details'"},
                                                 {tell_api_reports, "array 'data'"},
                                                 {tell_api_report, "object 'report'"}}) {
    EXPECT_EQ(reason_of(tell, "{}"), "zal_rrm answered nonsense: no " + key);
  }
  EXPECT_EQ(reason_of(tell_api_ap, "{}"), "zal_rrm answered nonsense: no access point");
}

TEST(ControllerAnswers, WhatIsOfTheWrongKindIsShownAsAbsent) {
  EXPECT_EQ(tell_common(R"({"array":[5,null,[],{"ap-location":{},"ap-morvane":null,"ap-count":"x"}]})"),
            "LOCATION  CONNECTED  KNOWN\n"
            "-         -          -\n"
            "-         -          -\n"
            "-         -          -\n"
            "-         -          x\n");
  EXPECT_EQ(tell_stat("{}"), "BAND  AP  RADIO  STATUS  CHANNEL  WIDTH  POWER  EIRP  CLIENTS  LOCKED  CHANNELS\n");
}

TEST(ControllerAnswers, AFailureOfTheServerIsNoAnswer) {
  for (const Tell tell : {tell_api_sessions, tell_api_groups, tell_api_sessions_removed, tell_api_group, tell_api_ap,
                          tell_api_optimization, tell_api_reports, tell_api_report}) {
    EXPECT_EQ(reason_of(tell, R"({"version":"2.1","error":"domain not\nfound"})"), "domain not\\x0afound");
    EXPECT_EQ(reason_of(tell, R"({"error":5})"), "zal_rrm answered an error");
    EXPECT_EQ(reason_of(tell, R"({"status":"failure"})"), "zal_rrm answered a failure");
  }
  EXPECT_EQ(tell_api_optimization(R"({"status":"success"})"), "optimisation ordered\n");
}

}  // namespace
}  // namespace controller
