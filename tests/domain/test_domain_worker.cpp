// The worker around its domain: what it takes and refuses, what it tells other threads, how it begins and ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <thread>

#include "core/QueueMessage.h"
#include "domain/domain_support.h"
#include "json/JsonReader.h"

namespace rrm::testing {
namespace {

using ::testing::IsEmpty;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";

class DomainWorker : public DomainTest {
 protected:
  static MessageJson an_ap36(const char* mac) { return a_subscribe(mac).with_radio(a_5ghz_radio(36)); }

  void let_a_cycle_pass();

  void start_with_two() {
    start();
    subscribe(1, an_ap36(ap1));
    subscribe(2, an_ap36(ap2));
  }
};

// Refusals

TEST_F(DomainWorker, DropsWhatIsNotValid) {
  start_with_two();
  const std::string before = details();
  for (const std::string& text : {std::string("{}"), std::string("null"), std::string("not json"), std::string("[1,2]"),
                                  a_message("rrm-update", ap1).text(), a_message("subscribe-request", "").text(),
                                  a_message("unsubscribe-request", ap1).with("service", "other").text(),
                                  std::string(R"({"service":"rrm-internal","cmd":"stop"})")}) {
    receive(1, text);
    EXPECT_LINES(journal.take(), ({"WARNING Incoming message validation failed", "EVENT 0"})) << text;
  }
  EXPECT_EQ(details(), before);
}

TEST_F(DomainWorker, DropsEveryMessageOfAnotherVersionButASubscribe) {
  start_with_two();
  const std::string before = details();
  for (const char* cmd :
       {"unsubscribe-request", "rrm-response", "rrm-mode-response", "rrm-config-changed", "rrm-assoc-state-changed",
        "rrm-client-assoc", "rrm-client-disassoc", "rrm-probe-response", "rrm-disassoc-all-clients", "rrm-sta-roam"}) {
    receive(1, a_message(cmd, ap1).with("version", "2.5"));
    EXPECT_LINES(journal.take(), ({
                                     "TRACE process_message " + std::string(cmd) + " for 00:11:22:33:44:00",
                                     "WARNING Incoming message version failed",
                                     "EVENT 1",
                                 }));
  }
  EXPECT_EQ(details(), before);
}

TEST_F(DomainWorker, TakesItsOwnStopBeforeAnythingIsJudged) {
  start();
  receive(0, internal_message::stop);
  EXPECT_LINES(journal.take(), ({"TRACE Aborting lab"}));
  receive(0, R"({"service":"internal-ipc", "cmd":"anything"})");
  EXPECT_THAT(journal.take(), IsEmpty());
}

TEST_F(DomainWorker, OnlyTheServersOrdersNeedNoVersion) {
  start_with_two();
  receive(1, R"({"service":"rrm-internal", "cmd":"drop-session", "version":"9.9"})");
  EXPECT_EQ(deleted_aps().size(), 1u);
}

// Answers of the pipeline

TEST_F(DomainWorker, AnAnswerNamesTheApByItsOwnAddressOnItsOwnSession) {
  start_with_two();
  const std::string before = details();
  struct Case {
    std::uint32_t session;
    const char* mac;
    const char* text;
  };
  const Case cases[] = {
      {1, "00:11:22:33:44:10", "AP not found"},
      {1, "02:11:22:33:44:00", "AP not found"},
      {1, "00:00:00:00:00:01", "AP not found"},
      {1, "no address", "AP not found"},
      {2, ap1, "invalid session"},
  };
  for (const char* cmd : {"rrm-response", "rrm-mode-response"}) {
    for (const Case& one : cases) {
      receive(one.session, a_message(cmd, one.mac).with_no_radios());
      EXPECT_LINES(journal.lines("ERROR"),
                   ({std::string("ERROR Exception at processing message on worker 'lab': ") + one.text}));
      EXPECT_LINES(journal.lines("EVENT"), ({"EVENT 4 lab"}));
      journal.take();
    }
  }
  EXPECT_EQ(details(), before);
}

TEST_F(DomainWorker, AnAnswerThatNobodyWaitsForChangesNothing) {
  start_with_two();
  const std::string before = details();
  for (const char* cmd : {"rrm-response", "rrm-mode-response"}) {
    receive(1, a_message(cmd, ap1).with_no_radios().with_heard({}));
    EXPECT_LINES(journal.take(), ({"TRACE process_message " + std::string(cmd) + " for 00:11:22:33:44:00"}));
  }
  EXPECT_EQ(details(), before);
}

// What clients do

TEST_F(DomainWorker, AClientsEventsFindTheirApByAnyAddress) {
  start_with_two();
  for (const char* cmd : {"rrm-assoc-state-changed", "rrm-client-assoc", "rrm-client-disassoc", "rrm-probe-response",
                          "rrm-disassoc-all-clients", "rrm-sta-roam"}) {
    for (const char* mac : {"00:11:22:33:44:00", "00:11:22:33:44:10", "02:11:22:33:44:10"}) {
      receive(1, a_message(cmd, mac));
      EXPECT_LINES(journal.lines("TRACE process_message balancer"),
                   ({"TRACE process_message balancer " + std::string(cmd) + " for 00:11:22:33:44:00"}));
      journal.take();
    }
  }
}

TEST_F(DomainWorker, AClientsEventOfASilentApIsTakenOneOfADeletedApIsNot) {
  start_with_two();
  to_mode_requests();
  receive(1, a_message("rrm-mode-response", ap1).with_radio(a_5ghz_radio(36)));
  to_scan();
  const char* const client = "02:00:00:00:00:01";
  receive(2, a_message("rrm-client-assoc", ap2)
                 .with("radio", 1)
                 .with("sta-mac", client)
                 .with("ssid", "office")
                 .with("rssi", -50));
  EXPECT_LINES(journal.take(),
               ({
                   "TRACE process_message rrm-client-assoc for 00:11:22:33:55:00",
                   "TRACE To unanswered rrm balancer cmd",
                   "TRACE process_message balancer rrm-client-assoc for 00:11:22:33:55:00",
                   "TRACE Assocc client 02:00:00:00:00:01 rssi -50 radio_id 1 ssid office no_balance 0 send_ack 0 "
                   "lock_balancer 1 (ap 00:11:22:33:55:00)",
               }));
  EXPECT_NE(ap(ap2)->radios.list[1].assoc.find_client(MacAddr::parse(client)), nullptr);
  drop(1);
  journal.take();
  receive(1, a_message("rrm-client-assoc", ap1));
  EXPECT_LINES(journal.take(), ({"TRACE process_message rrm-client-assoc for 00:11:22:33:44:00"}));
}

// The flush

TEST_F(DomainWorker, WhatAPassBuffersLeavesInOrderAfterIt) {
  start();
  BaseSession first;
  first.id = 1;
  BaseSession second;
  second.id = 2;
  locked([&](RrmWorker& lab) {
    lab.broadcast_buffer_add("one", first);
    lab.broadcast_buffer_add("two", second);
    lab.broadcast_buffer_add("three", first);
  });
  EXPECT_THAT(journal.take(), IsEmpty());
  worker->after_messages();
  EXPECT_LINES(journal.take(), ({"SEND 1 one", "SEND 2 two", "SEND 1 three"}));
  worker->after_messages();
  EXPECT_THAT(journal.take(), IsEmpty());
}

TEST_F(DomainWorker, NoTextIsAnErrorAndNothingIsSent) {
  start();
  locked([&](RrmWorker& lab) { lab.broadcast_buffer_add(nullptr, no_session); });
  worker->after_messages();
  EXPECT_LINES(journal.take(), ({"ERROR broadcast_buffer_add msg null", "EVENT 2"}));
}

TEST_F(DomainWorker, AnEmptyTextIsCheckedOnItsWayOut) {
  start();
  locked([&](RrmWorker& lab) { lab.broadcast_buffer_add("", no_session); });
  worker->after_messages();
  EXPECT_LINES(journal.take(), ({"ERROR send_message json null", "TRACE send_message str: null", "EVENT 14"}));
}

// Begin and end

TEST_F(DomainWorker, HasAnEventfdThatAPushWakesItThrough) {
  const auto eventfds = [] {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry, gone) == "anon_inode:[eventfd]") ++count;
    }
    return count;
  };
  const int before = eventfds();
  make();
  EXPECT_EQ(eventfds(), before + 1);
}

TEST_F(DomainWorker, ArmsItsTickWhenItConnects) {
  make();
  advance(10);
  EXPECT_THAT(journal.take(), IsEmpty());
  EXPECT_TRUE(worker->connect());
  EXPECT_LINES(journal.take(), ({"TRACE Start worker lab"}));
  advance(10);
  EXPECT_EQ(journal.lines("TRACE Domain lab").size(), 1u);
}

TEST_F(DomainWorker, DisarmsItsTimersWhenItDisconnects) {
  start();
  worker->disconnect();
  EXPECT_LINES(journal.take(), ({"TRACE Stop worker lab"}));
  advance(10);
  EXPECT_THAT(journal.take(), IsEmpty());
}

TEST_F(DomainWorker, StopsAPlanInProgressWhenItDisconnects) {
  std::atomic<bool> cancelled{false};
  Gate running;
  optimization = [&](OptimizationContext&, const std::atomic<bool>& cancel) {
    running.open();
    while (!cancel) std::this_thread::yield();
    cancelled = true;
    return OptimizationResult{};
  };
  start();
  subscribe(1, an_ap36(ap1));
  to_computing({{1, ap1}});
  running.wait();
  worker->disconnect();
  EXPECT_TRUE(cancelled);
}

TEST_F(DomainWorker, ServesItsQueueOnItsThread) {
  make();
  BaseSession session;
  session.id = 7;
  worker->enqueue_message(JsonReader(an_ap36(ap1).text().c_str()), session);
  worker->start();
  EXPECT_TRUE(eventually([&] { return !journal.lines("SEND 7").empty(); }));
  worker->stop();
  EXPECT_LINES(journal.lines("SEND 7 "), ({"SEND 7 " + told_success("00:11:22:33:44:00", {told_radio(1, 36, 5, 14)})}));
  EXPECT_EQ(journal.take().back(), "TRACE Stop worker lab");
}

TEST_F(DomainWorker, OtherThreadsReadItsStateWhileItServes) {
  make();
  worker->start();
  BaseSession session;
  session.id = 7;
  for (int i = 0; i < 50; ++i) {
    worker->enqueue_message(JsonReader(an_ap36(ap1).with("use-wildcard-80211r", i % 2).text().c_str()), session);
    if (i % 5 == 0) {
      const std::string text = details();
      EXPECT_STREQ(JsonReader(text.c_str()).get("details").get_string("name"), "lab");
      force_optimization();
    }
  }
  EXPECT_TRUE(eventually([&] { return journal.lines("SEND 7").size() == 50; }));
  worker->stop();
}

// What other threads are told

TEST_F(DomainWorker, NamesTheSessionsOfItsSilentDeletedAndActiveAps) {
  start_with_two();
  const char* const ap3 = "00:11:22:33:66:00";
  subscribe(3, an_ap36(ap3));
  to_mode_requests();
  receive(1, a_message("rrm-mode-response", ap1).with_radio(a_5ghz_radio(36)));
  receive(3, a_message("rrm-mode-response", ap3).with_radio(a_5ghz_radio(36)));
  to_scan();
  drop(1);
  std::vector<std::string> told;
  locked([&](RrmWorker& lab) {
    for (const auto& [mac, session] : lab.ap_sessions()) {
      told.push_back(mac.to_string() + " " + std::to_string(session.id));
    }
  });
  EXPECT_LINES(told, ({"00:11:22:33:55:00 2", "00:11:22:33:44:00 1", "00:11:22:33:66:00 3"}));
}

TEST_F(DomainWorker, ReportsItsStatus) {
  start();
  EXPECT_EQ(status(),
            R"({"details":{"name":"lab","metrics":{"rrm-response-expected":0,"rrm-response-count":0,)"
            R"("rrm-mode-response-expected":0,"rrm-mode-response-count":0,"rrm-config-changed-expected":0,)"
            R"("rrm-config-changed-count":0,"timer-request-modes-expected":0,"timer-request-modes-count":0,)"
            R"("timer-request-scan-expected":0,"timer-request-scan-count":0,"timer-optimize-expected":0,)"
            R"("timer-optimize-count":0},"ap-count":0,"unanswered-ap-count":0,"deleted-ap-count":0,"queue-size":0,)"
            R"("rrm-status":0,"fbt-status":0,"aps":[],"unanswered-aps":[],"deleted-aps":[]}})");
}

TEST_F(DomainWorker, ReportsItsApsAndItsQueues) {
  start_with_two();
  drop(2);
  worker->enqueue_message(JsonReader("{}"), no_session);
  worker->enqueue_message_force(JsonReader("{}"), no_session);
  const std::string text = status();
  const JsonReader report(text.c_str());
  const JsonReader told = report.get("details");
  EXPECT_EQ(told.get_int("ap-count"), 1);
  EXPECT_EQ(told.get_int("unanswered-ap-count"), 0);
  EXPECT_EQ(told.get_int("deleted-ap-count"), 1);
  EXPECT_EQ(told.get_int("queue-size"), 2);
  EXPECT_EQ(told.get_int("rrm-status"), 4);
  EXPECT_STREQ(told.get("aps").to_string(),
               R"([{"board":"NVA-3wz","mac":"00:11:22:33:44:00","serial":"SN44:00","hw":"1.0",)"
               R"("radios":[{"id":0,"vaps":[]},{"id":1,"vaps":[]},{"id":2,"vaps":[]}]}])");
  EXPECT_STREQ(told.get("unanswered-aps").to_string(), "[]");
  EXPECT_STREQ(told.get("deleted-aps").at(0).get_string("mac"), "00:11:22:33:55:00");
}

TEST_F(DomainWorker, ReportsTheRecordsOfItsApsBehindItsStatus) {
  start_with_two();
  drop(2);
  const std::string text = details();
  const std::string front = status();
  EXPECT_EQ(text.substr(0, front.size() - 1), front.substr(0, front.size() - 1));
  const JsonReader report(text.c_str());
  EXPECT_STREQ(report.get("aps").at(0).get_string("mac"), "00:11:22:33:44:00");
  EXPECT_EQ(report.get("aps").at(0).get("radios").get("interfaces").size(), 3);
  EXPECT_STREQ(report.get("unanswered-aps").to_string(), "[]");
  EXPECT_STREQ(report.get("deleted-aps").at(0).get_string("mac"), "00:11:22:33:55:00");
}

// Bad input

TEST_F(DomainWorker, ADomainAndAnApMayHaveAnyName) {
  domain = "a\"b\\c\n" + std::string(1 << 16, 'x');
  start();
  receive(7, a_subscribe("not an address").with_radio(a_5ghz_radio(36)));
  EXPECT_TRUE(journal.has("EVENT 23 " + domain));
  EXPECT_TRUE(journal.has("EVENT 24 {\"location\":\"a\\\"b\\\\c\\n" + std::string(1 << 16, 'x') + "\", \"status\":4}"));
  ASSERT_EQ(aps().size(), 1u);
  EXPECT_TRUE(aps().begin()->first.is_zero());
}

// Every AP answers whatever it may be asked.
void DomainWorker::let_a_cycle_pass() {
  advance(settings.force_delay);
  for (const char* cmd : {"rrm-mode-response", "rrm-response"}) {
    std::vector<std::shared_ptr<ApEntry>> answering;
    for (const auto& [mac, known] : aps()) answering.push_back(known);
    for (const auto& known : answering) {
      receive(known->session.id, a_message(cmd, known->mac.to_string()).with_radio(a_5ghz_radio()).with_heard({}));
    }
    advance(settings.mode_response_wait);
  }
  finish_computing();
}

// Messages put together at random from the protocol's own words: whatever comes of them, the worker goes on.
TEST_F(DomainWorker, SurvivesWhateverAnApPutsTogether) {
  start();
  std::mt19937 random(7);
  const auto one_of = [&](const std::vector<std::string>& choices) {
    return choices[std::uniform_int_distribution<std::size_t>(0, choices.size() - 1)(random)];
  };
  const std::vector<std::string> values = {
      "0",    "1",         "-1",   "2147483647", "-2147483648",           "36", "null", "{}", "[]",
      "[[]]", "[null,{}]", "\"\"", "\"36 40\"",  "\"00:11:22:33:44:00\"", "1e9"};
  const std::vector<std::string> radio_keys = {"id",
                                               "status",
                                               "channel",
                                               "band",
                                               "power",
                                               "power-max",
                                               "eirp-min",
                                               "antenna-configuration",
                                               "bandwidth",
                                               "primary-channel",
                                               "available-channels",
                                               "mac-offset",
                                               "radio-mac-count",
                                               "vaps",
                                               "assoclist",
                                               "locked-for-dca"};
  const std::vector<std::string> keys = {"factory", "ap-mac-count", "radios", "rf-environment", "version", "ap-mac"};
  const std::vector<std::string> macs = {ap1, ap2, "02:11:22:33:44:10", "00:00:00:00:00:00", "x"};
  for (int round = 0; round < 3000; ++round) {
    RadioJson radio(static_cast<int>(random() % 4), 36, "36 40 44");
    for (auto i = random() % 3; i > 0; --i) radio.with_raw(one_of(radio_keys), one_of(values));
    MessageJson message = a_subscribe(one_of(macs));
    message.with("cmd", one_of({"subscribe-request", "subscribe-request", "unsubscribe-request", "rrm-response",
                                "rrm-mode-response", "rrm-config-changed", "rrm-client-assoc"}));
    message.with_radio(radio).with_raw("rf-environment", one_of(values));
    if (random() % 4 == 0) message.with_raw(one_of(keys), one_of(values));
    // A session that is ordered closed does not return; after some messages there are others.
    const auto session = static_cast<std::uint32_t>(1 + round / 10 * 3) + static_cast<std::uint32_t>(random() % 3);
    receive(session, message);
    if (random() % 16 == 0) drop(session);
    if (random() % 4 == 0) advance(static_cast<int>(random() % 12));
    if (round % 100 == 99) let_a_cycle_pass();
  }
  const std::string text = details();
  EXPECT_STREQ(JsonReader(text.c_str()).get("details").get_string("name"), "lab");
  EXPECT_GT(journal.lines("SEND").size(), 500u);
  EXPECT_FALSE(journal.lines("TRACE Optimization on domain lab finished").empty());
}

}  // namespace
}  // namespace rrm::testing
