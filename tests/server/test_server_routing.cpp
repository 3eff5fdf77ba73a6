// Where a message of an access point goes, which worker it may create, and the orders to sessions and to all domains.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <latch>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "json/JsonWriter.h"
#include "server/server_support.h"
#include "support/capture.h"
#include "support/no_more_threads.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Routing : public ::testing::Test {
 protected:
  void subscribe(const std::string& domain, std::uint32_t session_id = 1) {
    server.receive(ap_message("subscribe-request", domain), session_id);
  }
  // A domain worker that stands in the map but does not run.
  std::shared_ptr<ProbeWorker> resting_worker(const std::string& domain) {
    auto worker = std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = domain});
    server.adopt(worker);
    return worker;
  }
  // What is queued at a worker that did not run yet, in the order in which it would handle it.
  std::vector<std::string> queued_at(ProbeWorker& worker) {
    const std::size_t expected = worker.queued();
    worker.start();
    eventually([&] { return worker.queued() == 0; });
    worker.stop();
    auto lines = worker.record->lines();
    lines.erase(lines.begin());  // connect
    lines.pop_back();            // disconnect
    EXPECT_THAT(lines, SizeIs(expected));
    return lines;
  }

  Capture capture;
  GlobalConfig config{"", three_domains};
  TestServer server{&config};
};

// --- What is refused.

TEST_F(Routing, AMessageWithoutRootIsAnError) {
  for (const char* text : {"", "{", "null", "not json"}) {
    SCOPED_TRACE(text);
    capture.clear();
    server.receive(text);
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{LOG_ERROR, "process_incoming_message: json parse failed or null root"}));
    EXPECT_THAT(capture.events(), ElementsAre(Event{14, false, ""}));
  }
}

TEST_F(Routing, OrdersOfTheServerItselfAreRefusedFromOutside) {
  const auto lab = resting_worker("lab");
  for (const char* text : {R"({"service":"internal-ipc","cmd":"stop","domain":"lab"})",
                           R"({"service":"rrm-internal","cmd":"drop-session","domain":"lab"})",
                           R"({"service":"rrm-internal","cmd":"subscribe-request","domain":"yard"})"}) {
    SCOPED_TRACE(text);
    capture.clear();
    server.receive(text);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_WARNING, "Incoming message validation failed"}));
    EXPECT_THAT(capture.events(), ElementsAre(Event{0, false, ""}));
  }
  EXPECT_EQ(lab->queued(), 0u);
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
}

TEST_F(Routing, WithTheServerDisabledEveryMessageVanishes) {
  const auto lab = resting_worker("lab");
  GlobalConfig disabled("", R"({"global":{"enabled":0}})");
  TestServer off(&disabled);
  off.adopt(lab);
  off.receive(ap_message("subscribe-request", "yard"));
  off.receive(ap_message("rrm-response", "lab"));
  EXPECT_EQ(lab->queued(), 0u);
  EXPECT_THAT(off.domains(), ElementsAre("lab"));
  EXPECT_THAT(off.made(), IsEmpty());
  EXPECT_THAT(capture.lines(), IsEmpty());
  EXPECT_THAT(capture.events(), IsEmpty());
}

TEST_F(Routing, AMessageForADomainWithoutWorkerIsDroppedSilently) {
  for (const char* cmd : {"rrm-response", "unsubscribe-request", "subscribe", "Subscribe-request", ""}) {
    server.receive(ap_message(cmd, "lab"));
  }
  server.receive(R"({"service":"rrm","domain":"lab"})");
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(server.made(), IsEmpty());
  EXPECT_THAT(capture.lines(), IsEmpty());
  EXPECT_THAT(capture.events(), IsEmpty());
}

TEST_F(Routing, ASubscribeToAnUnknownDomainIsLoggedAndLeavesTheMapAlone) {
  subscribe("cellar");
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(capture.lines(LOG_ERROR),
              ElementsAre("Exception at processing message for domain 'cellar': Domain not found"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{13, true, "cellar"}));
  EXPECT_THAT(server.sent(), IsEmpty()) << "no answer";
}

TEST_F(Routing, AWorkerThatCannotBeMadeIsLogged) {
  server.make = [](const TestServer::Made&) -> std::unique_ptr<Worker> { throw std::runtime_error("no room"); };
  subscribe("lab");
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Exception at processing message for domain 'lab': no room"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{13, true, "lab"}));
}

TEST_F(Routing, AWorkerWhoseThreadCannotBeStartedIsTakenOutAgain) {
  {
    const NoMoreThreads none;
    subscribe("lab");
  }
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(capture.lines(LOG_ERROR),
              ElementsAre("Exception at processing message for domain 'lab': Resource temporarily unavailable"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{13, true, "lab"}));

  subscribe("lab");
  EXPECT_THAT(server.domains(), ElementsAre("lab")) << "the next subscribe has its chance";
}

class Unwilling : public ProbeWorker {
 public:
  using ProbeWorker::ProbeWorker;
  void enqueue_message(JsonReader&&, const BaseSession&) override { throw std::runtime_error("out of memory"); }
};

TEST_F(Routing, AFailureOnTheWayIsLoggedAndDoesNotReachTheCaller) {
  server.adopt(std::make_shared<Unwilling>(&server, ProbeWorker::Options{.name = "lab"}));
  subscribe("lab");
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Exception at processing message for domain 'lab': out of memory"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{13, true, "lab"}));
}

// --- What is delivered.

TEST_F(Routing, ASubscribeMakesTheWorkerAndIsItsFirstMessage) {
  subscribe("lab", 9);
  const auto lab = server.probe("lab");
  ASSERT_NE(lab, nullptr);
  lab->record->await("lab: subscribe-request");
  EXPECT_EQ(lab->last_sender(), 9u);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "Created new worker 'lab'."}));
  EXPECT_THAT(capture.events(), IsEmpty());
}

TEST_F(Routing, ANewWorkerGetsItsDomainsSettingsAndTimeZone) {
  subscribe("lab");
  subscribe("hall");
  const auto made = server.made();
  ASSERT_THAT(made, SizeIs(2));
  EXPECT_EQ(made[0].domain, "lab");
  EXPECT_EQ(made[0].time_zone_offset, 3 * 3600);
  EXPECT_EQ(made[0].settings, config.common());
  EXPECT_EQ(made[1].domain, "hall");
  EXPECT_EQ(made[1].time_zone_offset, -2 * 3600);
  EXPECT_EQ(made[1].settings, config.pattern("office"));
}

TEST_F(Routing, AMessageForAWorkerIsDeliveredWhateverItSays) {
  const auto lab = resting_worker("lab");
  server.receive(ap_message("subscribe-request", "lab"));
  server.receive(ap_message("rrm-response", "lab"));
  server.receive(R"({"service":"other","domain":"lab","cmd":"dance"})");
  server.receive(R"({"domain":"lab"})");
  EXPECT_THAT(queued_at(*lab), ElementsAre("lab: subscribe-request", "lab: rrm-response", "lab: dance", "lab: "));
  EXPECT_THAT(server.made(), IsEmpty());
}

// Also when the configuration no longer knows the domain.
TEST_F(Routing, TheMapDecidesAndNotTheConfiguration) {
  const auto cellar = resting_worker("cellar");
  server.receive(ap_message("rrm-response", "cellar"));
  EXPECT_EQ(cellar->queued(), 1u);
}

TEST_F(Routing, AMissingDomainIsTheEmptyName) {
  server.receive(R"({"service":"rrm","cmd":"subscribe-request"})");
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Exception at processing message for domain '': Domain not found"));

  const auto nameless = resting_worker("");
  server.receive(R"({"service":"rrm","cmd":"subscribe-request"})");
  EXPECT_EQ(nameless->queued(), 1u);
}

TEST_F(Routing, TheEmptyNameIsADomainLikeAnyOtherWhereItIsConfigured) {
  JsonWriter rejected;
  bool changed = false;
  ASSERT_TRUE(config.domain_add("", "common", "0:00", 0, rejected, changed));
  server.receive(R"({"service":"rrm","cmd":"subscribe-request"})");
  EXPECT_THAT(server.domains(), ElementsAre(""));
}

// The document is handed on as it stands, and the domain's name is still known when it is gone.
TEST_F(Routing, LongNamesSurviveTheHandOver) {
  const std::string name(300, 'n');
  const auto worker = resting_worker(name);
  server.receive(R"({"domain":")" + name + R"(","cmd":"a"})");
  EXPECT_EQ(worker->queued(), 1u);
}

// --- Two subscribes for one new domain.

TEST_F(Routing, RacingSubscribesYieldOneWorkerThatGetsBothInTheOrderOfInsertion) {
  std::latch both_are_making(2);
  Mutex mutex;
  std::map<std::thread::id, std::shared_ptr<Record>> record_of;
  server.make = [&](const TestServer::Made& order) {
    auto worker = std::make_unique<ProbeWorker>(&server, ProbeWorker::Options{.name = order.domain});
    {
      MutexLock lock(mutex);
      record_of[std::this_thread::get_id()] = worker->record;
    }
    both_are_making.arrive_and_wait();
    return worker;
  };
  std::thread other([&] { server.receive(ap_message("subscribe-request", "lab"), 2); });
  const auto other_id = other.get_id();
  subscribe("lab", 1);
  other.join();

  const auto winner = server.probe("lab");
  ASSERT_NE(winner, nullptr);
  winner->record->await("lab: subscribe-request", 2);
  const bool mine_won = winner->record == record_of[std::this_thread::get_id()];
  EXPECT_EQ(winner->last_sender(), mine_won ? 2u : 1u) << "the inserter's own message came first";
  const auto& thrown_away = record_of[mine_won ? other_id : std::this_thread::get_id()];
  EXPECT_THAT(thrown_away->lines(), IsEmpty()) << "unstarted";
  EXPECT_EQ(capture.count("Created new worker 'lab'."), 1u);
}

// --- The size of a worker's queue.

TEST_F(Routing, AQueueIsTheWorkersShareOfAllSessionsButNotBelow2048) {
  struct Case {
    int worker_count;
    std::int32_t capacity;
  };
  for (const Case& c : {Case{0, 20000}, Case{1, 20000}, Case{2, 10000}, Case{3, 6666}, Case{5, 4000}, Case{9, 2222},
                        Case{10, 2048}, Case{1000, 2048}}) {
    ASSERT_NE(server.make_rrm_worker("lab", c.worker_count), nullptr);
    EXPECT_EQ(server.made().back().queue_capacity, c.capacity) << c.worker_count;
  }
}

TEST_F(Routing, TheFifthWorkerGetsAFifthRoundedUp) {
  for (const char* name : {"a", "b", "c", "d"}) resting_worker(name);
  subscribe("lab");
  EXPECT_EQ(server.made().back().queue_capacity, 4000);
  EXPECT_EQ(server.probe("lab")->capacity(), 4096u);
}

// --- Orders to sessions.

TEST_F(Routing, ADropIsOrderedOnTheRingAskedFor) {
  server.ping_session_at_websock_worker(session_of(5));
  server.drop_session_at_websock_worker(session_of(6), false);
  server.drop_session_at_websock_worker(session_of(7), true);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "drop_session_at_websock_worker: 6 force: 0"},
                                           LogLine{LOG_TRACE, "drop_session_at_websock_worker: 7 force: 1"}));
  std::vector<std::uint32_t> sessions;
  ProbeWorker& websock = server.fixed_websock();
  websock.hooks.message = [&](const std::string&) { sessions.push_back(websock.last_sender()); };
  EXPECT_THAT(queued_at(websock),
              ElementsAre("websock: drop-session", "websock: ping-session", "websock: drop-session"));
  EXPECT_THAT(sessions, ElementsAre(7, 5, 6));
}

TEST_F(Routing, AllDomainWorkersAreToldOfALostSessionBeforeWhatIsQueued) {
  const auto lab = resting_worker("lab");
  const auto yard = resting_worker("yard");
  server.receive(ap_message("rrm-response", "lab"));
  server.drop_session_at_rrm_workers(session_of(5));
  EXPECT_THAT(queued_at(*lab), ElementsAre("lab: drop-session", "lab: rrm-response"));
  EXPECT_THAT(queued_at(*yard), ElementsAre("yard: drop-session"));
  EXPECT_EQ(yard->last_sender(), 5u);
}

TEST_F(Routing, AllDomainWorkersAreToldToStopBalancing) {
  const auto lab = resting_worker("lab");
  const auto yard = resting_worker("yard");
  server.receive(ap_message("rrm-response", "lab"));
  server.stop_load_balancer_at_rrm_worker(session_of(5));
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_EVENT, "rrm: stop-load-balancer:"}));
  EXPECT_THAT(queued_at(*lab), ElementsAre("lab: stop-load-balancer", "lab: rrm-response"));
  EXPECT_THAT(queued_at(*yard), ElementsAre("yard: stop-load-balancer"));
}

// A worker told apart by the service of what it gets.
TEST_F(Routing, OrdersBearTheInternalService) {
  class ServiceWorker : public ProbeWorker {
   public:
    using ProbeWorker::ProbeWorker;
    void process_message(JsonReader& json, BaseSession& session) override {
      record->note(std::string(json.get_string("service")));
      ProbeWorker::process_message(json, session);
    }
  };
  const auto lab = std::make_shared<ServiceWorker>(&server, ProbeWorker::Options{.name = "lab"});
  server.adopt(lab);
  lab->start();
  server.drop_session_at_rrm_workers(session_of(5));
  lab->record->await("lab: drop-session");
  EXPECT_TRUE(lab->record->has("rrm-internal"));
}

TEST_F(Routing, AMessageToSendIsParsedFirst) {
  server.send_message(R"({"service":"rrm","cmd":"hello"})", session_of(5));
  EXPECT_THAT(queued_at(server.fixed_websock()), ElementsAre("websock: hello"));
  EXPECT_EQ(server.fixed_websock().last_sender(), 5u);
}

TEST_F(Routing, AMessageToSendThatDoesNotParseIsAnError) {
  struct Case {
    const char* text;
    const char* logged;
  };
  for (const Case& c : {Case{"{broken", "send_message str: {broken"}, Case{"null", "send_message str: null"},
                        Case{"", "send_message str: "}, Case{nullptr, "send_message str: "}}) {
    capture.clear();
    server.send_message(c.text, session_of(5));
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{LOG_ERROR, "send_message json null"}, LogLine{LOG_TRACE, c.logged}));
    EXPECT_THAT(capture.events(), ElementsAre(Event{14, false, ""}));
    EXPECT_EQ(server.fixed_websock().queued(), 0u);
  }
}

TEST_F(Routing, AReadyTextIsSentAsItStandsAndANullOneNotAtAll) {
  server.RRM::send_text("{not even json", session_of(5));
  server.RRM::send_text(static_cast<const char*>(nullptr), session_of(6));
  EXPECT_THAT(server.sent(), ElementsAre(TestServer::Sent{"{not even json", 5}));
}

}  // namespace
}  // namespace rrm::testing
