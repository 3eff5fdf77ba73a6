// From any thread into a session's send queue, and from there to the socket.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "core/QueueMessage.h"
#include "core/sleep_recorder.h"
#include "support/capture.h"
#include "support/ws_client.h"
#include "ws_server.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::Event;
using testing::FakeLws;
using testing::FakeServer;
using testing::LogLine;
using testing::SleepRecorder;
using Lines = std::vector<std::string>;

lws* const first = FakeLws::handle(1);
lws* const second = FakeLws::handle(2);

// The three ways in, with what tells them apart.
struct Operation {
  const char* name;
  const char* overflow;
  void (*enqueue)(FakeServer& server, const std::string& json, const BaseSession& to);
};

const Operation operations[] = {
    {"enqueue_message", "per-wsi queue overflow: outgoing message dropped for session 1",
     [](FakeServer& server, const std::string& json, const BaseSession& to) { server.order(json.c_str(), to); }},
    {"enqueue_message_force", "per-wsi force queue overflow: outgoing message dropped for session 1",
     [](FakeServer& server, const std::string& json, const BaseSession& to) { server.order(json.c_str(), to, true); }},
    {"enqueue_serialized", "per-wsi queue overflow: outgoing message dropped for session 1",
     [](FakeServer& server, const std::string& json, const BaseSession& to) { server.send(json, to); }},
};

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name;
}

// A connected server without threads: the test is the service thread.
class WebsockTransmit : public ::testing::Test {
 protected:
  WebsockTransmit() { EXPECT_TRUE(server.worker->connect()); }

  // A session that can be sent to.
  BaseSession open(lws* wsi) {
    server.library.open_and_make_queue(wsi);
    forget_so_far();
    return server.session(wsi);
  }
  void forget_so_far() {
    server.library.take_calls();
    server.dispatcher.take();
    capture.clear();
  }
  // The calls of one writable event; the event's result must be 0.
  Lines write_event(lws* wsi) {
    EXPECT_EQ(server.library.writeable(wsi), 0);
    return server.library.take_calls();
  }

  Capture capture;
  FakeServer server;
};

class WebsockEnqueue : public WebsockTransmit, public ::testing::WithParamInterface<Operation> {
 protected:
  void enqueue(const std::string& json, const BaseSession& to) { GetParam().enqueue(server, json, to); }
};

INSTANTIATE_TEST_SUITE_P(Operations, WebsockEnqueue, ::testing::ValuesIn(operations));

TEST_P(WebsockEnqueue, MessageTakesTheRoadToTheSocket) {
  const BaseSession session = open(first);
  enqueue(R"({"a":1})", session);
  EXPECT_EQ(server.library.take_calls(), Lines{"cancel_service"});
  EXPECT_EQ(server.library.wake(), 0);
  EXPECT_EQ(server.library.take_calls(), Lines{"callback_on_writable #1"});
  EXPECT_EQ(write_event(first), Lines{R"(write #1 0 {"a":1})"});
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{{LOG_TRACE, "LWS_CALLBACK_EVENT_WAIT_CANCELLED"}, {LOG_TRACE, R"(Send {"a":1})"}}));
  EXPECT_TRUE(capture.events().empty());
}

TEST_P(WebsockEnqueue, NoHandleIsNoSessionAndNoWord) {
  BaseSession session = open(first);
  session.wsi = nullptr;
  enqueue("{}", session);
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_TRUE(server.library.take_calls().empty());
}

TEST_P(WebsockEnqueue, ImpossibleThreadIndexIsRefused) {
  BaseSession session = open(first);
  for (const int tsi : {32, -1, 0x7fffffff}) {
    session.tsi = tsi;
    capture.clear();
    enqueue("{}", session);
    EXPECT_EQ(
        capture.lines(),
        (std::vector<LogLine>{{LOG_ERROR, std::string(GetParam().name) + ": invalid lws tsi " + std::to_string(tsi)}}));
  }
  EXPECT_TRUE(server.library.take_calls().empty());
}

TEST_P(WebsockEnqueue, GoneSessionIsRefused) {
  const BaseSession session = open(first);
  server.library.close(first);
  forget_so_far();
  enqueue("{}", session);
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{
                {LOG_TRACE, std::string(GetParam().name) + ": no live websocket session for wsi (dropped id=1)"}}));
  EXPECT_TRUE(server.library.take_calls().empty());
}

TEST_P(WebsockEnqueue, OwnerOfAReusedHandleNeverGetsAnothersMessage) {
  const BaseSession dead = open(first);
  server.library.close(first);
  server.library.peer(first).tsi = 31;
  open(first);
  enqueue("{}", dead);
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{{LOG_TRACE, std::string(GetParam().name) +
                                                  ": BaseSession stale or mismatched (msg id=1 tsi=0 vs live id=2 "
                                                  "tsi=31)"}}));
  EXPECT_TRUE(server.library.take_calls().empty());
  EXPECT_EQ(write_event(first), Lines{});
}

TEST_P(WebsockEnqueue, OtherThreadIndexAloneIsStaleToo) {
  BaseSession session = open(first);
  session.tsi = 1;
  enqueue("{}", session);
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{{LOG_TRACE, std::string(GetParam().name) +
                                                  ": BaseSession stale or mismatched (msg id=1 tsi=1 vs live id=1 "
                                                  "tsi=0)"}}));
}

TEST_F(WebsockTransmit, HasTheSessionsWhoseConnectionsAreOpenAndNoOthers) {
  const BaseSession gone = open(first);
  const BaseSession other = open(second);
  EXPECT_TRUE(server.worker->has_session(gone));
  server.library.close(first);
  EXPECT_FALSE(server.worker->has_session(gone));
  const BaseSession heir = open(first);
  EXPECT_FALSE(server.worker->has_session(gone)) << "its handle is another's";
  EXPECT_TRUE(server.worker->has_session(heir));
  EXPECT_TRUE(server.worker->has_session(other));
  EXPECT_FALSE(server.worker->has_session(no_session));
}

TEST_P(WebsockEnqueue, MessageBeforeTheFirstWritableEventMakesTheQueueAndIsLost) {
  server.library.open(first);
  const BaseSession session = server.session(first);
  forget_so_far();
  enqueue("{\"lost\":1}", session);
  EXPECT_EQ(server.library.take_calls(), Lines{"cancel_service"});
  EXPECT_TRUE(capture.lines().empty());
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), Lines{});

  enqueue("{\"kept\":2}", session);
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), (Lines{"cancel_service", "callback_on_writable #1"}));
  EXPECT_EQ(write_event(first), Lines{R"(write #1 0 {"kept":2})"});
}

TEST_P(WebsockEnqueue, SeventeenthMessageIsLostAfter256AttemptsAndTheSixteenLeave) {
  const SleepRecorder clock;
  const BaseSession session = open(first);
  for (int i = 1; i <= 16; ++i) enqueue(std::to_string(i), session);
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_EQ(server.library.take_calls(), Lines(16, "cancel_service"));
  EXPECT_EQ(clock.count(), 0u);

  enqueue("17", session);
  EXPECT_EQ(clock.count(), 256u - 127);  // the first 127 attempts do not sleep
  EXPECT_EQ(clock.sleeps().back(), 1000u);
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_ERROR, GetParam().overflow}}));
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}}));
  EXPECT_EQ(server.library.take_calls(), Lines{"cancel_service"});

  for (int i = 1; i <= 15; ++i) {
    EXPECT_EQ(write_event(first), (Lines{"write #1 0 " + std::to_string(i), "callback_on_writable #1"}));
  }
  EXPECT_EQ(write_event(first), Lines{"write #1 0 16"});
  EXPECT_EQ(write_event(first), Lines{});
}

// The service thread must be able to make the room that is waited for.
TEST_P(WebsockEnqueue, WhoWaitsForRoomLocksNobodyOutMeanwhile) {
  SleepRecorder clock;
  const BaseSession session = open(first);
  for (int i = 1; i <= 16; ++i) enqueue(std::to_string(i), session);
  forget_so_far();
  std::future<Lines> written;
  bool written_in_time = false;
  clock.on_sleep = [&] {
    if (clock.count() != 1) return;
    written = std::async(std::launch::async, [&] { return write_event(first); });
    written_in_time = written.wait_for(testing::WsClient::patience) == std::future_status::ready;
  };
  enqueue("17", session);
  ASSERT_TRUE(written.valid());
  EXPECT_TRUE(written_in_time);
  EXPECT_EQ(written.get(), (Lines{"write #1 0 1", "callback_on_writable #1"}));
  EXPECT_EQ(clock.count(), 1u);
  EXPECT_TRUE(capture.events().empty());
  forget_so_far();
  for (int i = 2; i <= 16; ++i) write_event(first);
  EXPECT_EQ(write_event(first), Lines{"write #1 0 17"});
}

TEST_P(WebsockEnqueue, NobodyWaitsAgainForASessionThatHasTakenNothingSince) {
  const SleepRecorder clock;
  const BaseSession session = open(first);
  for (int i = 1; i <= 17; ++i) enqueue(std::to_string(i), session);
  const std::size_t slept = clock.count();
  EXPECT_GT(slept, 0u);
  capture.clear();

  enqueue("18", session);
  EXPECT_EQ(clock.count(), slept);
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_ERROR, GetParam().overflow}}));
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}}));

  write_event(first);
  capture.clear();
  enqueue("19", session);
  EXPECT_TRUE(capture.events().empty());
  enqueue("20", session);
  EXPECT_EQ(clock.count(), 2 * slept);
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}}));
}

TEST_P(WebsockEnqueue, HighestThreadIndexIsServed) {
  server.library.peer(first).tsi = 31;
  const BaseSession session = open(first);
  enqueue("31", session);
  server.library.wake();  // of thread 0: nothing of its own waits
  EXPECT_EQ(server.library.take_calls(), Lines{"cancel_service"});
  server.library.peer(FakeLws::stand_in()).tsi = 31;
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), Lines{"callback_on_writable #1"});
  EXPECT_EQ(write_event(first), Lines{"write #1 0 31"});
}

TEST_F(WebsockTransmit, AllOfForceLeavesBeforeNormalOnePerEvent) {
  const BaseSession session = open(first);
  server.send("1", session);
  server.order("2", session);
  server.order("3", session, true);
  server.order("4", session, true);
  server.library.take_calls();
  EXPECT_EQ(write_event(first), (Lines{"write #1 0 3", "callback_on_writable #1"}));
  EXPECT_EQ(write_event(first), (Lines{"write #1 0 4", "callback_on_writable #1"}));
  EXPECT_EQ(write_event(first), (Lines{"write #1 0 1", "callback_on_writable #1"}));
  EXPECT_EQ(write_event(first), Lines{"write #1 0 2"});
  EXPECT_EQ(write_event(first), Lines{});
}

TEST_F(WebsockTransmit, ForceRingHasRoomOfItsOwn) {
  const BaseSession session = open(first);
  for (int i = 0; i < 16; ++i) server.send("0", session);
  server.order("1", session, true);
  EXPECT_TRUE(capture.events().empty());
  server.library.take_calls();
  EXPECT_EQ(write_event(first), (Lines{"write #1 0 1", "callback_on_writable #1"}));
}

TEST_F(WebsockTransmit, WakeUpAsksForAnEventOfEverySessionWithSomethingToSend) {
  const BaseSession one = open(first);
  const BaseSession two = open(second);
  open(FakeLws::handle(3));
  server.send("1", one);
  server.send("2", two);
  server.send("3", one);
  server.library.take_calls();
  server.library.wake();
  Lines asked = server.library.take_calls();
  std::sort(asked.begin(), asked.end());
  EXPECT_EQ(asked, (Lines{"callback_on_writable #1", "callback_on_writable #2"}));

  // What is sent by the time of the next wake-up needs no event.
  write_event(second);
  server.send("4", two);
  server.library.take_calls();
  EXPECT_EQ(write_event(second), Lines{"write #2 0 4"});
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), Lines{});
}

TEST_F(WebsockTransmit, MessageThatComesWhileAnEventIsDueIsNotForgotten) {
  const BaseSession session = open(first);
  server.send("1", session);
  server.send("2", session);
  server.library.wake();
  write_event(first);
  server.send("3", session);
  server.library.wake();
  server.library.take_calls();
  EXPECT_EQ(write_event(first), (Lines{"write #1 0 2", "callback_on_writable #1"}));
  EXPECT_EQ(write_event(first), Lines{"write #1 0 3"});
  server.send("4", session);
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), (Lines{"cancel_service", "callback_on_writable #1"}));
  EXPECT_EQ(write_event(first), Lines{"write #1 0 4"});
}

TEST_F(WebsockTransmit, WakeUpWithoutAThreadOfOursIsPassedOver) {
  const BaseSession session = open(first);
  server.send("1", session);
  server.library.take_calls();
  for (const int tsi : {32, -1}) {
    server.library.peer(FakeLws::stand_in()).tsi = tsi;
    EXPECT_EQ(server.library.wake(), 0);
  }
  EXPECT_EQ(server.library.callback()(nullptr, LWS_CALLBACK_EVENT_WAIT_CANCELLED, nullptr, nullptr, 0), 0);
  EXPECT_EQ(server.library.take_calls(), Lines{});
  server.library.peer(FakeLws::stand_in()).tsi = 0;
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), Lines{"callback_on_writable #1"});
}

// Leaves a send queue behind whose session is gone: the library would have to change a connection's thread for that.
void leave_a_queue(FakeServer& server, const std::string& text) {
  server.library.open_and_make_queue(first);
  server.send(text, server.session(first));
  server.library.peer(first).tsi = 32;
  server.library.close(first);
  server.library.peer(first).tsi = 0;
}

TEST_F(WebsockTransmit, QueueWithoutASessionIsErasedAtTheWakeUp) {
  leave_a_queue(server, "old");
  forget_so_far();
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), Lines{});
  server.library.open(first);
  server.send("before the first event", server.session(first));  // lost only if there is no queue yet
  server.library.take_calls();
  EXPECT_EQ(write_event(first), Lines{});
}

TEST_F(WebsockTransmit, QueueWithoutASessionIsErasedAtADisconnect) {
  leave_a_queue(server, "old");
  server.worker->disconnect();
  ASSERT_TRUE(server.worker->connect());
  server.library.open(first);
  server.send("before the first event", server.session(first));
  server.library.take_calls();
  EXPECT_EQ(write_event(first), Lines{});
}

TEST_F(WebsockTransmit, MessageThatFindsAnotherSessionAtWriteTimeIsSkipped) {
  leave_a_queue(server, "old");
  server.library.open(first);
  server.send("new", server.session(first));
  forget_so_far();
  EXPECT_EQ(write_event(first), Lines{"callback_on_writable #1"});
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{{LOG_TRACE,
                                   "process_server_writeable: session ID mismatch (msg_id=1, current_id=2); skipping "
                                   "stale message"}}));
  EXPECT_EQ(write_event(first), Lines{"write #1 0 new"});
}

TEST_F(WebsockTransmit, ImpossibleThreadIndexAtTheWritableEventSendsNothing) {
  const BaseSession session = open(first);
  server.send("1", session);
  forget_so_far();
  for (const int tsi : {32, -1}) {
    server.library.peer(first).tsi = tsi;
    capture.clear();
    EXPECT_EQ(write_event(first), Lines{});
    EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"process_server_writeable: invalid lws tsi " + std::to_string(tsi)});
  }
}

TEST_F(WebsockTransmit, MessageWithNeitherRootNorTextIsSaid) {
  const BaseSession session = open(first);
  const auto nothing = [&](const char* json) { server.order(json, session); };
  nothing("{");
  nothing("null");
  server.send("", session);
  server.send("after", session);
  forget_so_far();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(write_event(first), Lines{"callback_on_writable #1"});
    EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_ERROR, "ws_send json null"}}));
    EXPECT_EQ(capture.events(), (std::vector<Event>{{7, false, ""}}));
    capture.clear();
  }
  EXPECT_EQ(write_event(first), Lines{"write #1 0 after"});
}

TEST_F(WebsockTransmit, JsonIsWrittenCompactInItsOwnOrder) {
  const BaseSession session = open(first);
  server.order(" { \"service\" : \"rrm\", \"b\":[1, 2], \"a\":null } ", session);
  server.library.take_calls();
  EXPECT_EQ(write_event(first), Lines{R"(write #1 0 {"service":"rrm","b":[1,2],"a":null})"});
}

TEST_F(WebsockTransmit, ReadyTextIsWrittenAsItStands) {
  const BaseSession session = open(first);
  server.send(R"( {"service":"rrm-internal", "cmd":"drop-session"} )", session);
  server.library.take_calls();
  EXPECT_EQ(write_event(first), Lines{R"(write #1 0  {"service":"rrm-internal", "cmd":"drop-session"} )"});
}

TEST_F(WebsockTransmit, ShortWriteCountsAsSent) {
  const BaseSession session = open(first);
  server.send("hello", session);
  server.library.take_calls();
  server.library.write_result = -1;
  EXPECT_EQ(write_event(first), Lines{"write #1 0 hello"});
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Can't send msg type [0] to websocket (ret=-1 len=5)"});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{8, false, ""}}));
  server.library.write_result = 0;
  EXPECT_EQ(write_event(first), Lines{});
}

TEST_F(WebsockTransmit, DropSessionEndsItOnThatEventWithAllThatWaits) {
  const BaseSession session = open(first);
  server.send("unsent", session);
  server.order(internal_message::drop_session, session);
  server.order(internal_message::drop_session, session, true);
  server.order("\"unsent too\"", session, true);
  forget_so_far();

  EXPECT_EQ(server.library.writeable(first), 1);
  EXPECT_EQ(server.library.take_calls(), Lines{"close_reason #1 1000 done"});
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "cmd:drop-session 1"}}));
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
  EXPECT_EQ(server.library.peer(first).user_data, nullptr);

  // The close that follows finds nothing: whoever orders a drop tells the domain workers himself.
  server.library.close(first);
  EXPECT_EQ(server.dispatcher.take(), Lines{});
  EXPECT_EQ(write_event(first), Lines{});

  // Nor does the next owner of the handle find anything.
  server.library.open_and_make_queue(first);
  server.library.wake();
  server.library.take_calls();
  EXPECT_EQ(write_event(first), Lines{});
}

TEST_F(WebsockTransmit, OneForcedDropIsEnoughHoweverOftenItIsOrdered) {
  const SleepRecorder clock;
  const BaseSession session = open(first);
  for (int i = 0; i < 40; ++i) server.order(internal_message::drop_session, session, true);
  EXPECT_EQ(clock.count(), 0u);
  EXPECT_TRUE(capture.events().empty());
  EXPECT_EQ(server.library.take_calls(), Lines(40, "cancel_service"));
  EXPECT_EQ(server.library.writeable(first), 1);

  // The next session under this handle is another matter.
  const BaseSession next = open(first);
  server.order(internal_message::drop_session, next, true);
  EXPECT_EQ(server.library.writeable(first), 1);
}

TEST_F(WebsockTransmit, DropThatFoundNoRoomIsNotTheOneThatIsEnough) {
  const SleepRecorder clock;
  const BaseSession session = open(first);
  for (int i = 0; i < 16; ++i) server.order("0", session, true);
  server.order(internal_message::drop_session, session, true);
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}}));
  for (int i = 0; i < 16; ++i) write_event(first);
  server.order(internal_message::drop_session, session, true);
  EXPECT_EQ(server.library.writeable(first), 1);
}

TEST_F(WebsockTransmit, SessionToBeDroppedHas5SecondsToTakeIt) {
  const BaseSession session = open(first);
  server.send("waits", session);
  server.library.wake();
  forget_so_far();
  server.order(internal_message::drop_session, session, true);
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), (Lines{"cancel_service", "callback_on_writable #1", "set_timeout #1 24 5"}));

  // Neither does another order buy it more time, nor a sign of life.
  server.order(internal_message::drop_session, session, true);
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(), Lines{"cancel_service"});
  server.library.receive(first, "{}");
  server.library.call(first, LWS_CALLBACK_RECEIVE_PONG);
  EXPECT_EQ(server.library.take_calls(), Lines{});

  // The library has closed it, and as with any other close the domain workers are told.
  server.library.close(first);
  EXPECT_EQ(server.dispatcher.take(), Lines{"dropped 1"});
}

TEST_F(WebsockTransmit, NormalDropOvertakesNothing) {
  const BaseSession session = open(first);
  server.send("1", session);
  server.order(internal_message::drop_session, session);
  server.library.take_calls();
  EXPECT_EQ(write_event(first), (Lines{"write #1 0 1", "callback_on_writable #1"}));
  EXPECT_EQ(server.library.writeable(first), 1);
}

TEST_F(WebsockTransmit, NormalDropThatFindsNoRoomForLongIsForced) {
  const SleepRecorder clock;
  const BaseSession session = open(first);
  for (int i = 0; i < 16; ++i) server.send("waits", session);
  server.library.wake();
  forget_so_far();
  server.order(internal_message::drop_session, session);
  EXPECT_GT(clock.count(), 0u);
  server.order(internal_message::drop_session, session);
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}, {26, false, ""}}));
  server.library.wake();
  EXPECT_EQ(server.library.take_calls(),
            (Lines{"cancel_service", "cancel_service", "callback_on_writable #1", "set_timeout #1 24 5"}));
  EXPECT_EQ(server.library.writeable(first), 1);
}

TEST_F(WebsockTransmit, SessionIsWaitedForFromTheFirstMessageThatItHasNotTaken) {
  testing::ManualClock clock;
  const BaseSession session = open(first);
  const auto waits_since = [&] { return server.worker->sessions_snapshot().front()->waits_since.load(); };
  EXPECT_EQ(waits_since(), WebsockSession::nothing_waits);
  const std::int64_t began = monotonic_seconds();
  server.send("1", session);
  clock.advance(5);
  server.send("2", session);
  EXPECT_EQ(waits_since(), began);
  write_event(first);
  EXPECT_EQ(waits_since(), began + 5) << "the second waits since the first was taken";
  clock.advance(5);
  write_event(first);
  EXPECT_EQ(waits_since(), WebsockSession::nothing_waits);
}

TEST_F(WebsockTransmit, DropTakesNoOtherSessionAlong) {
  const BaseSession one = open(first);
  const BaseSession two = open(second);
  server.send("2", two);
  server.order(internal_message::drop_session, one, true);
  EXPECT_EQ(server.library.writeable(first), 1);
  server.library.take_calls();
  EXPECT_EQ(write_event(second), Lines{"write #2 0 2"});
}

TEST_F(WebsockTransmit, PingArmsTheTimeOutThatAWholeMessageClears) {
  const BaseSession session = open(first);
  server.order(internal_message::ping_session, session);
  forget_so_far();
  EXPECT_EQ(write_event(first), (Lines{"write #1 5 lws_ping", "set_timeout #1 17 40"}));
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "Send lws_ping"}}));
  server.library.receive(first, "{", false);
  EXPECT_EQ(server.library.take_calls(), Lines{});
  server.library.receive(first, "}", true);
  EXPECT_EQ(server.library.take_calls(), Lines{"set_timeout #1 0 0"});
}

TEST_F(WebsockTransmit, OtherInternalOrdersNeverReachTheWire) {
  const BaseSession session = open(first);
  for (const char* order : {R"({"service":"rrm-internal","cmd":"stop-load-balancer"})", R"({"service":"rrm-internal"})",
                            R"({"service":"internal-ipc","cmd":"status"})", R"({"service":"internal-ipc"})"}) {
    server.order(order, session);
    forget_so_far();
    EXPECT_EQ(write_event(first), Lines{}) << order;
    EXPECT_TRUE(capture.lines().empty()) << order;
  }
  EXPECT_EQ(server.session(first), session);
}

TEST_F(WebsockTransmit, StopOrderInASessionsQueueIsTheWorkersOwn) {
  const BaseSession session = open(first);
  server.order(internal_message::stop, session);
  forget_so_far();
  EXPECT_EQ(write_event(first), Lines{});
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "Aborting websock-server-worker"}}));
}

TEST_F(WebsockTransmit, ClosedSessionTakesItsQueueAlong) {
  const BaseSession session = open(first);
  server.send("1", session);
  server.order("2", session, true);
  server.library.close(first);
  server.library.open(first);
  forget_so_far();
  server.library.wake();
  EXPECT_EQ(write_event(first), Lines{});
  EXPECT_TRUE(capture.lines(LOG_ERROR).empty());
}

TEST_F(WebsockTransmit, ManyThreadsSendToManySessions) {
  constexpr int senders = 4;
  constexpr int messages = 4;  // of each sender to each session: no ring ever overflows
  std::vector<lws*> handles;
  for (std::uintptr_t n = 1; n <= 8; ++n) {
    handles.push_back(FakeLws::handle(n));
    open(handles.back());
  }
  const auto sessions = server.worker->sessions_snapshot();
  for (int round = 0; round < 20; ++round) {
    std::atomic<int> running{senders};
    std::vector<std::thread> threads;
    for (int t = 0; t < senders; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < messages; ++i) {
          for (const auto& session : sessions) server.send("x", *session);
        }
        --running;
      });
    }
    // This thread is the library's: it wakes, and gives a writable event to whoever asked for one.
    std::size_t written = 0;
    std::set<lws*> asked;
    while (running > 0 || !asked.empty() || written < handles.size() * senders * messages) {
      server.library.wake();
      for (lws* wsi : std::exchange(asked, {})) server.library.writeable(wsi);
      for (const std::string& call : server.library.take_calls()) {
        written += call.starts_with("write #");
        if (call.starts_with("callback_on_writable #")) asked.insert(FakeLws::handle(std::stoul(call.substr(22))));
      }
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(written, handles.size() * senders * messages);
  }
  EXPECT_TRUE(capture.events().empty());
}

}  // namespace
}  // namespace rrm
