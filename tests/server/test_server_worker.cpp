// The worker loop: what happens in a pass, how a worker ends, and what it leaves behind.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/QueueMessage.h"
#include "core/sleep_recorder.h"
#include "server/server_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

using Options = ProbeWorker::Options;

class WorkerLoop : public ::testing::Test {
 protected:
  std::shared_ptr<ProbeWorker> a_worker(Options options = {}) {
    return std::make_shared<ProbeWorker>(&server, std::move(options));
  }

  Capture capture;
  GlobalConfig config{"", three_domains};
  TestServer server{&config};
};

// --- A pass.

TEST_F(WorkerLoop, TheQueueTakesThePowerOfTwoAboveTheCapacityAskedFor) {
  struct Case {
    std::int32_t asked;
    std::uint64_t capacity;
  };
  for (const Case& c : {Case{2000, 2048}, Case{2048, 2048}, Case{4000, 4096}, Case{1, 2}, Case{0, 2}, Case{-7, 2}}) {
    EXPECT_EQ(a_worker({.capacity = c.asked})->capacity(), c.capacity) << c.asked;
  }
}

TEST_F(WorkerLoop, HasAnEventFdOnlyWhenAskedFor) {
  EXPECT_TRUE(a_worker({.with_event_fd = true})->has_event_fd());
  EXPECT_FALSE(a_worker({.with_event_fd = false})->has_event_fd());
}

TEST_F(WorkerLoop, WorkersShareNoCacheLine) {
  EXPECT_EQ(alignof(Worker), 64u);
}

TEST_F(WorkerLoop, HandlesMessagesInTheOrderOfArrival) {
  const auto worker = a_worker();
  worker->start();
  for (const char* cmd : {"a", "b", "c"}) worker->push(cmd);
  worker->record->await("probe: c");
  worker->stop();
  EXPECT_THAT(worker->record->lines(),
              ElementsAre("probe: connect", "probe: a", "probe: b", "probe: c", "probe: disconnect"));
}

TEST_F(WorkerLoop, ForceOvertakesWhatIsQueuedButInterruptsNothing) {
  const auto worker = a_worker();
  Gate in_progress;
  Gate go_on;
  worker->hooks.message = [&](const std::string& cmd) {
    if (cmd != "slow") return;
    in_progress.open();
    go_on.wait();
    worker->record->note("slow is done");
  };
  worker->start();
  worker->push("slow");
  in_progress.wait();
  worker->push("n1");
  worker->push("n2");
  worker->push_force("f1");
  worker->push_force("f2");
  go_on.open();
  worker->record->await("probe: n2");
  worker->stop();
  EXPECT_THAT(worker->record->lines(), ElementsAre("probe: connect", "probe: slow", "slow is done", "probe: f1",
                                                   "probe: f2", "probe: n1", "probe: n2", "probe: disconnect"));
}

TEST_F(WorkerLoop, OnePassHandlesOneMessageBetweenTimersAndFlush) {
  const auto worker = a_worker();
  worker->hooks.before = [&] { worker->record->note("before"); };
  worker->hooks.after = [&] { worker->record->note("after"); };
  worker->push("a");
  worker->push("b");
  worker->start();
  worker->record->await("probe: b");
  worker->stop();
  auto lines = worker->record->lines();
  lines.resize(7);
  EXPECT_THAT(lines, ElementsAre("probe: connect", "before", "probe: a", "after", "before", "probe: b", "after"));
}

TEST_F(WorkerLoop, TimersAndMessageHoldTheMutexAndTheFlushDoesNot) {
  const auto worker = a_worker();
  const auto note = [&](const char* place) {
    worker->record->note(std::string(place) + (worker->mutex_is_free() ? " free" : " held"));
  };
  worker->hooks.message = [&](const std::string&) { note("message"); };
  worker->hooks.before = [&] { note("before"); };
  worker->hooks.after = [&] { note("after"); };
  worker->push("a");
  worker->start();
  worker->record->await("after free");
  worker->stop();
  auto lines = worker->record->lines();
  lines.resize(5);
  EXPECT_THAT(lines, ElementsAre("probe: connect", "before held", "probe: a", "message held", "after free"));
}

TEST_F(WorkerLoop, ExecuteLockedWaitsForTheMessageInProgress) {
  const auto worker = a_worker();
  Gate in_progress;
  Gate go_on;
  worker->hooks.message = [&](const std::string&) {
    in_progress.open();
    go_on.wait();
    worker->record->note("done");
  };
  worker->start();
  worker->push("slow");
  in_progress.wait();
  std::thread visitor([&] { worker->execute_locked([&] { worker->record->note("visited"); }); });
  go_on.open();
  visitor.join();
  worker->stop();
  EXPECT_THAT(worker->record->lines(),
              ElementsAre("probe: connect", "probe: slow", "done", "visited", "probe: disconnect"));
}

TEST_F(WorkerLoop, APushWakesAWorkerWithAnEventFdAtOnce) {
  const auto worker = a_worker({.sleep_us = 2000000000, .with_event_fd = true});
  worker->start();
  worker->push("a");
  worker->record->await("probe: a");
  worker->stop();
}

TEST_F(WorkerLoop, AWorkerWithoutEventFdRestsTheWholePauseBetweenIdlePasses) {
  SleepRecorder clock;
  Gate rested;
  clock.on_sleep = [&] {
    if (clock.count() == 5) rested.open();
  };
  const auto worker = a_worker({.sleep_us = 10000, .with_event_fd = false});
  worker->start();
  rested.wait();
  worker->stop();
  EXPECT_THAT(clock.sleeps(), ::testing::Each(10000u));
}

TEST_F(WorkerLoop, EveryPushNotifies) {
  const auto worker = a_worker();
  int notified = 0;
  worker->set_notify([&] { ++notified; });
  worker->push("a");
  worker->push_force("b");
  EXPECT_EQ(notified, 2);
}

TEST_F(WorkerLoop, TheThreadBearsTheCommonTitle) {
  const auto worker = a_worker({.name = "lab"});
  std::array<char, 16> title{};
  worker->hooks.message = [&](const std::string&) { pthread_getname_np(pthread_self(), title.data(), title.size()); };
  worker->start();
  worker->push("a");
  worker->record->await("lab: a");
  worker->stop();
  EXPECT_STREQ(title.data(), "Worker");
}

TEST_F(WorkerLoop, TheSenderTravelsWithTheMessage) {
  const auto worker = a_worker();
  worker->enqueue_message(ProbeWorker::an_order("a"), session_of(77));
  worker->start();
  worker->record->await("probe: a");
  worker->stop();
  EXPECT_EQ(worker->last_sender(), 77u);
}

// --- Start and stop.

TEST_F(WorkerLoop, AMessageQueuedBeforeTheStartIsHandled) {
  const auto worker = a_worker();
  worker->push("early");
  worker->start();
  worker->record->await("probe: early");
  worker->stop();
}

TEST_F(WorkerLoop, ASecondStartDoesNothing) {
  const auto worker = a_worker();
  worker->start();
  worker->start();
  worker->push("a");
  worker->record->await("probe: a");
  worker->stop();
  EXPECT_EQ(worker->record->count("probe: connect"), 1u);
}

TEST_F(WorkerLoop, AStoppedWorkerStartsAgain) {
  const auto worker = a_worker();
  for (const char* cmd : {"a", "b"}) {
    worker->start();
    worker->push(cmd);
    worker->record->await(std::string("probe: ") + cmd);
    worker->stop();
  }
  EXPECT_THAT(worker->record->lines(), ElementsAre("probe: connect", "probe: a", "probe: disconnect", "probe: connect",
                                                   "probe: b", "probe: disconnect"));
}

TEST_F(WorkerLoop, StopThrowsAFullQueueAway) {
  const auto worker = a_worker({.capacity = 2});
  Gate in_progress;
  Gate go_on;
  worker->hooks.message = [&](const std::string&) {
    in_progress.open();
    go_on.wait();
  };
  worker->start();
  worker->push("slow");
  in_progress.wait();
  worker->push("n1");
  worker->push("n2");
  worker->push_force("f1");
  worker->push_force("f2");
  std::thread stopper([&] { worker->stop(); });
  EXPECT_TRUE(eventually([&] { return worker->queued() == 1; })) << "the stop message alone";
  go_on.open();
  stopper.join();
  EXPECT_THAT(worker->record->lines(), ElementsAre("probe: connect", "probe: slow", "probe: disconnect"));
  EXPECT_EQ(worker->queued(), 0u);
}

TEST_F(WorkerLoop, StopOfAWorkerThatNeverRanEmptiesItsQueue) {
  const auto worker = a_worker({.capacity = 2});
  worker->push("a");
  worker->push("b");
  worker->push_force("c");
  worker->stop();
  EXPECT_EQ(worker->queued(), 0u);

  worker->push("d");
  worker->start();
  worker->record->await("probe: d");
  EXPECT_FALSE(capture.has_line(LOG_TRACE, "Aborting probe")) << "a stale order to stop";
  worker->stop();
}

TEST_F(WorkerLoop, StopDoesNotTellTheServer) {
  const auto worker = a_worker({.name = "lab"});
  server.adopt(worker);
  worker->start();
  worker->stop();
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
}

TEST_F(WorkerLoop, AWorkerThatWasStoppedOnceTellsTheServerOfALaterEndOfItsOwn) {
  const auto worker = a_worker({.name = "lab"});
  server.adopt(worker);
  worker->start();
  worker->stop();
  worker->start();
  worker->enqueue_message(JsonReader(internal_message::stop), no_session);
  EXPECT_TRUE(eventually([&] { return server.domains().empty(); }));
}

TEST_F(WorkerLoop, AFailingConnectIsRetriedAtOnceUntilTheStop) {
  const SleepRecorder clock;
  const auto worker = a_worker();
  worker->hooks.connect = [] { return false; };
  worker->start();
  worker->record->await("probe: connect", 1000);
  worker->stop();
  EXPECT_EQ(worker->record->lines().back(), "probe: disconnect");
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(WorkerLoop, LeavingTheInnerLoopAloneConnectsAnew) {
  const auto worker = a_worker();
  worker->hooks.message = [&](const std::string& cmd) {
    if (cmd == "leave") worker->leave_inner_loop();
  };
  worker->start();
  worker->push("leave");
  worker->record->await("probe: connect", 3);
  worker->stop();
}

TEST_F(WorkerLoop, KeepRunningIsAskedBeforeEveryPassWithTheFlag) {
  const auto worker = a_worker();
  worker->hooks.keep_running = [&](bool running) {
    worker->record->note(running ? "asked: running" : "asked: not running");
    return false;
  };
  worker->push("never handled");
  worker->start();
  worker->record->await("asked: running", 2);
  worker->stop();
  EXPECT_THAT(worker->record->lines(), Not(Contains("probe: never handled")));
}

// --- Ends of its own.

TEST_F(WorkerLoop, AnOrderToStopEndsTheLoopAndTellsTheServer) {
  const auto worker = a_worker({.name = "lab"});
  server.adopt(worker);
  worker->start();
  worker->enqueue_message(JsonReader(internal_message::stop), no_session);
  EXPECT_TRUE(eventually([&] { return server.domains().empty(); }));
  EXPECT_THAT(worker->record->lines(), ElementsAre("lab: connect", "lab: disconnect"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Aborting lab"));
}

TEST_F(WorkerLoop, AnyOtherOrderToTheWorkerIsTakenAndDoesNothing) {
  const auto worker = a_worker();
  worker->start();
  worker->enqueue_message(JsonReader(R"({"service":"internal-ipc","cmd":"dance"})"), no_session);
  worker->enqueue_message(JsonReader(R"({"service":"internal-ipc"})"), no_session);
  worker->enqueue_message(JsonReader(R"({"service":"rrm","cmd":"stop"})"), no_session);
  worker->record->await("probe: stop");
  worker->stop();
  EXPECT_THAT(worker->record->lines(), ElementsAre("probe: connect", "probe: stop", "probe: disconnect"));
}

// The thread holds its worker: the last reference goes with the thread.
TEST_F(WorkerLoop, AWorkerLivesAsLongAsItsThread) {
  auto worker = a_worker({.name = "lab"});
  const auto record = worker->record;
  server.adopt(worker);
  worker->start();
  const std::weak_ptr<ProbeWorker> watched = worker;
  worker->enqueue_message(JsonReader(internal_message::stop), no_session);
  worker.reset();
  EXPECT_TRUE(eventually([&] { return watched.expired(); }));
  EXPECT_TRUE(record->has("lab: disconnect"));
}

struct Fault {
  const char* place;
  void (*arm)(ProbeWorker::Hooks& hooks, const std::function<void()>& fail);
};

// Where an exception of a handler may come from. Hooks run as long as the test, so each fails once.
const Fault faults[] = {
    {"connect", [](ProbeWorker::Hooks& hooks,
                   const std::function<void()>& fail) { hooks.connect = [fail] { return fail(), true; }; }},
    {"before_messages", [](ProbeWorker::Hooks& hooks, const std::function<void()>& fail) { hooks.before = fail; }},
    {"process_message",
     [](ProbeWorker::Hooks& hooks, const std::function<void()>& fail) {
       hooks.message = [fail](const std::string&) { fail(); };
     }},
    {"after_messages", [](ProbeWorker::Hooks& hooks, const std::function<void()>& fail) { hooks.after = fail; }},
    {"keep_running",
     [](ProbeWorker::Hooks& hooks, const std::function<void()>& fail) {
       hooks.keep_running = [fail](bool) { return fail(), true; };
     }},
};

TEST_F(WorkerLoop, AnExceptionFromAnywhereEndsTheWorkerWithoutDisconnect) {
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.place);
    capture.clear();
    const auto worker = a_worker({.name = "lab"});
    fault.arm(worker->hooks, [] { throw std::runtime_error("broken"); });
    server.adopt(worker);
    worker->push("a");
    worker->start();
    ASSERT_TRUE(eventually([&] { return server.domains().empty(); })) << "the server is told";
    EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Unhandled exception 'broken' at worker Worker"));
    EXPECT_THAT(capture.events(), ElementsAre(Event{5, true, "Worker"}));
    EXPECT_FALSE(worker->record->has("lab: disconnect"));
    EXPECT_TRUE(worker->mutex_is_free());
  }
}

TEST_F(WorkerLoop, AnythingElseThrownEndsTheWorkerTheSameWay) {
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.place);
    capture.clear();
    const auto worker = a_worker({.name = "lab"});
    fault.arm(worker->hooks, [] { throw 7; });
    server.adopt(worker);
    worker->push("a");
    worker->start();
    ASSERT_TRUE(eventually([&] { return server.domains().empty(); }));
    EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Unhandled exception at worker Worker"));
    EXPECT_THAT(capture.events(), ElementsAre(Event{5, true, "Worker"}));
    EXPECT_FALSE(worker->record->has("lab: disconnect"));
  }
}

TEST_F(WorkerLoop, AnExceptionOfDisconnectIsReportedToo) {
  const auto worker = a_worker({.name = "lab"});
  worker->hooks.disconnect = [] { throw std::runtime_error("broken"); };
  server.adopt(worker);
  worker->start();
  worker->enqueue_message(JsonReader(internal_message::stop), no_session);
  ASSERT_TRUE(eventually([&] { return server.domains().empty(); }));
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Unhandled exception 'broken' at worker Worker"));
}

// A fixed worker stands in no map: it stays where it fell until its owner stops it, and may then start again.
TEST_F(WorkerLoop, AFallenWorkerOutsideTheMapStartsAgainOnlyAfterAStop) {
  const auto worker = a_worker();
  worker->hooks.message = [](const std::string& cmd) {
    if (cmd == "poison") throw std::runtime_error("broken");
  };
  worker->start();
  worker->push("poison");
  ASSERT_TRUE(eventually([&] { return !capture.events().empty(); }));
  worker->start();
  worker->stop();
  EXPECT_EQ(worker->record->count("probe: connect"), 1u);

  worker->start();
  worker->push("a");
  worker->record->await("probe: a");
  worker->stop();
}

// --- Overflow.

TEST_F(WorkerLoop, AMessageThatFindsNoRoomIsLostAndReported) {
  const SleepRecorder clock;
  const auto worker = a_worker({.name = "lab", .capacity = 2});
  for (const char* cmd : {"a", "b"}) {
    worker->push(cmd);
    worker->push_force(cmd);
  }
  worker->enqueue_message(ProbeWorker::an_order("lost"), session_of(41));
  EXPECT_EQ(clock.count(), 65536u - 127);
  worker->enqueue_message_force(ProbeWorker::an_order("lost"), session_of(42));

  EXPECT_THAT(capture.lines(LOG_ERROR),
              ElementsAre("Worker 'lab' queue overflow: message dropped from session 41",
                          "Worker 'lab' force queue overflow: message dropped from session 42"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{25, true, "lab"}, Event{25, true, "lab"}));
  EXPECT_EQ(worker->dropped(), 2u);
  EXPECT_EQ(worker->queued(), 4u);
}

TEST_F(WorkerLoop, AProducerThatWaitsGetsItsMessageInAsSoonAsThereIsRoom) {
  const auto worker = a_worker({.capacity = 2});
  worker->push("a");
  worker->push("b");
  std::thread producer([&] { worker->push("c"); });
  worker->start();
  worker->record->await("probe: c");
  producer.join();
  worker->stop();
  EXPECT_EQ(worker->dropped(), 0u);
}

// --- Messages.

TEST(QueueMessage, ItsTextIsTheReadyOneOrElseTheMessageSerialised) {
  const QueueMessage ready(std::string(R"({"cmd": "a"})"), session_of(3));
  EXPECT_EQ(ready.text(), R"({"cmd": "a"})");
  EXPECT_TRUE(ready.json.empty());
  EXPECT_EQ(ready.session, session_of(3));

  const QueueMessage parsed(JsonReader(R"({"cmd": "a"})"), session_of(4));
  EXPECT_EQ(parsed.text(), R"({"cmd":"a"})");
  EXPECT_TRUE(parsed.serialized.empty());
  EXPECT_EQ(parsed.session, session_of(4));
}

TEST(QueueMessage, TakesTheDocumentOver) {
  JsonReader json(R"({"cmd":"a rather long command that needs storage of its own"})");
  const QueueMessage message(std::move(json), no_session);
  EXPECT_STREQ(message.json.get_string("cmd"), "a rather long command that needs storage of its own");
}

}  // namespace
}  // namespace rrm::testing
