// The two small fixed workers: who is pinged and who is dropped at which age, and what a refused subscribe is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/DefaultWorker.h"
#include "core/PingWorker.h"
#include "core/QueueMessage.h"
#include "core/sleep_recorder.h"
#include "server/server_support.h"
#include "support/capture.h"
#include "websock/WebsockSession.h"

namespace rrm::testing {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Seconds that stand still until a test moves them, and rests that take no time.
class QuickClock final : public Clock {
 public:
  QuickClock() { set_clock(this); }
  ~QuickClock() override { set_clock(nullptr); }

  std::int64_t monotonic_seconds() const override { return now_; }
  std::optional<std::int64_t> wall_seconds() const override { return std::nullopt; }
  void sleep_us(std::uint32_t) const override {
    ++rests_;
    std::this_thread::yield();
  }
  void advance(std::int64_t seconds) { now_ += seconds; }
  int rests() const { return rests_; }

 private:
  std::atomic<std::int64_t> now_{1000};
  mutable std::atomic<int> rests_{0};
};

// --- The ping worker.

class Pings : public ::testing::Test {
 protected:
  Pings() {
    ProbeWorker& websock = server.fixed_websock();
    websock.hooks.message = [&](const std::string& cmd) {
      ordered.note(cmd + " " + std::to_string(websock.last_sender()));
    };
    websock.start();
    start();
  }
  ~Pings() override { ping->stop(); }

  // Returns when the timer is armed: the worker then has nothing to do but rest.
  void start() {
    const int before = clock.rests();
    ping->start();
    eventually([&] { return clock.rests() > before; });
  }

  std::vector<std::shared_ptr<WebsockSession>> all_sessions() {
    MutexLock lock(mutex);
    ++scans;
    if (scan_fails) throw std::runtime_error("no table");
    return sessions;
  }
  // A session of this number that spoke `age` seconds ago.
  std::shared_ptr<WebsockSession> a_session(std::uint32_t id, std::int64_t age) {
    auto session = std::make_shared<WebsockSession>(session_of(id), "192.0.2.1", monotonic_seconds() - age);
    MutexLock lock(mutex);
    sessions.push_back(session);
    return session;
  }
  int scans_so_far() {
    MutexLock lock(mutex);
    return scans;
  }
  // Lets the seconds pass and the scan that follows come to its end. What it ordered, without what came before.
  std::vector<std::string> scan_after(std::int64_t seconds) {
    const int before = scans_so_far();
    const std::size_t ordered_before = ordered.lines().size();
    clock.advance(seconds);
    eventually([&] { return scans_so_far() > before; });
    ping->execute_locked([] {});
    ProbeWorker& websock = server.fixed_websock();
    eventually([&] { return websock.queued() == 0; });
    websock.execute_locked([] {});
    auto lines = ordered.lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(ordered_before));
    return lines;
  }

  Capture capture;
  QuickClock clock;
  GlobalConfig config{"", three_domains};
  Record ordered;
  Mutex mutex;
  std::vector<std::shared_ptr<WebsockSession>> sessions RRM_GUARDED_BY(mutex);
  int scans RRM_GUARDED_BY(mutex) = 0;
  bool scan_fails RRM_GUARDED_BY(mutex) = false;
  TestServer server{&config};
  std::shared_ptr<PingWorker> ping = std::make_shared<PingWorker>(&server, [this] { return all_sessions(); });
};

TEST_F(Pings, AgesThatArePingedAndAgesThatAreDropped) {
  for (std::uint32_t age = 0; age <= 100; ++age) a_session(age + 1, age);  // one second older at the scan
  std::vector<std::string> expected;
  for (const int age : {30, 40, 50, 60, 70, 80, 90}) expected.push_back("ping-session " + std::to_string(age));
  for (int age = 91; age <= 101; ++age) expected.push_back("drop-session " + std::to_string(age));
  EXPECT_THAT(scan_after(1), ::testing::UnorderedElementsAreArray(expected));
}

TEST_F(Pings, AQuietSessionIsPingedEveryTenSecondsAndThenDropped) {
  a_session(7, 28);
  std::vector<std::string> seen;
  for (int age = 29; age <= 91; ++age) {
    for (const std::string& order : scan_after(1)) seen.push_back(std::to_string(age) + " " + order);
  }
  EXPECT_THAT(seen, ElementsAre("30 ping-session 7", "40 ping-session 7", "50 ping-session 7", "60 ping-session 7",
                                "70 ping-session 7", "80 ping-session 7", "90 ping-session 7", "91 drop-session 7"));
}

TEST_F(Pings, APongStartsTheAgeAnew) {
  const auto session = a_session(7, 29);
  EXPECT_THAT(scan_after(1), ElementsAre("ping-session 7"));
  session->last_seen = monotonic_seconds();
  for (int age = 1; age < 30; ++age) EXPECT_THAT(scan_after(1), IsEmpty()) << age;
  EXPECT_THAT(scan_after(1), ElementsAre("ping-session 7"));
}

TEST_F(Pings, ASessionThatTalksAndTakesNothingIsDroppedAfterFiveMinutes) {
  const auto session = a_session(7, 0);
  session->waits_since = monotonic_seconds();
  const auto scan_of_a_talker = [&] {
    session->last_seen = monotonic_seconds();
    return scan_after(1);
  };
  for (int second = 1; second <= 300; ++second) EXPECT_THAT(scan_of_a_talker(), IsEmpty()) << second;
  EXPECT_THAT(scan_of_a_talker(), ElementsAre("drop-session 7"));
}

TEST_F(Pings, ALateScanSkipsThePingOfTheSecondThatItMissed) {
  a_session(7, 28);
  EXPECT_THAT(scan_after(3), IsEmpty());
  EXPECT_THAT(scan_after(1), IsEmpty());
}

TEST_F(Pings, ADropIsForcedAndToldToTheDomainsToo) {
  const auto lab = std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "lab"});
  server.adopt(lab);
  a_session(7, 90);
  EXPECT_THAT(scan_after(1), ElementsAre("drop-session 7"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "drop_session_at_websock_worker: 7 force: 1"));
  lab->start();
  lab->record->await("lab: drop-session");
  EXPECT_EQ(lab->last_sender(), 7u);
}

TEST_F(Pings, WithoutSessionsItScansEverySecondAndDoesNothingElse) {
  for (int second = 0; second < 5; ++second) EXPECT_THAT(scan_after(1), IsEmpty());
  EXPECT_EQ(scans_so_far(), 5);
}

TEST_F(Pings, ASecondOfWaitingIsOneScan) {
  scan_after(1);
  const int rests = clock.rests();
  eventually([&] { return clock.rests() > rests + 20; });
  EXPECT_EQ(scans_so_far(), 1);
  scan_after(10);
  EXPECT_EQ(scans_so_far(), 2) << "missed scans are not made up for";
}

TEST_F(Pings, StartAndStopAreLoggedAndARestartScansOnceASecondAgain) {
  ping->stop();
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Start worker Ping-worker"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Stop worker Ping-worker"));
  start();
  a_session(7, 29);
  EXPECT_THAT(scan_after(1), ElementsAre("ping-session 7"));
}

TEST_F(Pings, AFailedScanEndsTheWorkerUntilItIsStoppedAndStarted) {
  {
    MutexLock lock(mutex);
    scan_fails = true;
  }
  clock.advance(1);
  ASSERT_TRUE(eventually([&] { return !capture.events().empty(); }));
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Unhandled exception 'no table' at worker Worker"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{5, true, "Worker"}));
  ping->stop();
  {
    MutexLock lock(mutex);
    scan_fails = false;
  }
  start();
  a_session(7, 29);
  EXPECT_THAT(scan_after(1), ElementsAre("ping-session 7")) << "and not twice";
}

TEST_F(Pings, MessagesAreNoneOfItsBusiness) {
  ping->enqueue_message(ProbeWorker::an_order("subscribe-request"), session_of(1));
  scan_after(1);
  EXPECT_THAT(server.sent(), IsEmpty());
  EXPECT_THAT(capture.events(), IsEmpty());
}

// --- The default worker.

class Refusals : public ::testing::Test {
 protected:
  // What the worker sends on a message.
  std::vector<TestServer::Sent> answer_to(const std::string& text) {
    worker->enqueue_message(JsonReader(text.c_str()), session_of(12));
    worker->enqueue_message(JsonReader(internal_message::stop), no_session);
    worker->start();
    eventually([&] { return capture.has_line(LOG_TRACE, "Aborting default-domain"); });
    worker->stop();
    capture.clear();
    return server.sent();
  }

  Capture capture;
  QuickClock clock;
  GlobalConfig config{"", three_domains};
  TestServer server{&config};
  std::shared_ptr<DefaultWorker> worker = std::make_shared<DefaultWorker>(&server);
};

TEST_F(Refusals, ASubscribeIsRefused) {
  EXPECT_THAT(answer_to(R"({"service":"rrm","version":"2.4","cmd":"subscribe-request","domain":"lab"})"),
              ElementsAre(TestServer::Sent{
                  R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"fail","code":503})", 12}));
}

TEST_F(Refusals, AnythingElseIsIgnored) {
  for (const char* text :
       {R"({"service":"rrm","cmd":"unsubscribe-request"})", R"({"service":"rrm"})", R"({"cmd":"subscribe-request"})",
        R"({"service":"other","cmd":"subscribe-request"})", R"({"service":"rrm-internal","cmd":"subscribe-request"})",
        R"({"service":"internal-ipc","cmd":"subscribe-request"})", "[]", "7", "null"}) {
    EXPECT_THAT(answer_to(text), IsEmpty()) << text;
  }
}

// A server that cannot send.
class MuteServer : public TestServer {
 public:
  using TestServer::TestServer;
  ~MuteServer() override { release(); }
  void send_text(std::string&&, const BaseSession&) override { throw std::runtime_error("no way out"); }
};

TEST_F(Refusals, AFailureIsReportedAndTheWorkerGoesOn) {
  MuteServer mute(&config);
  const auto refusing = std::make_shared<DefaultWorker>(&mute);
  for (int i = 0; i < 2; ++i) {
    refusing->enqueue_message(JsonReader(R"({"service":"rrm","cmd":"subscribe-request"})"), session_of(12));
  }
  refusing->start();
  eventually([&] { return capture.events().size() == 2; });
  refusing->stop();
  EXPECT_THAT(capture.lines(LOG_ERROR), Each("Exception at processing message on default worker: no way out"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{6, false, ""}, Event{6, false, ""}));
}

// --- What both share.

TEST(FixedWorkers, RestTenMillisecondsAndHold2048Messages) {
  SleepRecorder clock;
  const Capture capture;
  GlobalConfig config("", three_domains);
  TestServer server(&config);
  const std::shared_ptr<Worker> fixed[] = {
      std::make_shared<DefaultWorker>(&server),
      std::make_shared<PingWorker>(&server, [] { return std::vector<std::shared_ptr<WebsockSession>>(); })};
  EXPECT_EQ(fixed[0]->name, "default-domain");
  EXPECT_EQ(fixed[1]->name, "Ping-worker");
  for (const auto& worker : fixed) {
    SCOPED_TRACE(worker->name);
    for (int i = 0; i < 2048; ++i) worker->enqueue_message(ProbeWorker::an_order("a"), no_session);
    EXPECT_FALSE(
        capture.has_line(LOG_ERROR, "Worker '" + worker->name + "' queue overflow: message dropped from session 0"));
    worker->enqueue_message(ProbeWorker::an_order("a"), no_session);
    EXPECT_TRUE(
        capture.has_line(LOG_ERROR, "Worker '" + worker->name + "' queue overflow: message dropped from session 0"));
    worker->stop();

    const std::size_t before = clock.count();
    worker->start();
    eventually([&] { return clock.count() > before + 3; });
    worker->stop();
    const auto sleeps = clock.sleeps();
    EXPECT_THAT(std::vector<std::uint32_t>(sleeps.begin() + static_cast<std::ptrdiff_t>(before), sleeps.end()),
                Each(10000u));
  }
}

}  // namespace
}  // namespace rrm::testing
