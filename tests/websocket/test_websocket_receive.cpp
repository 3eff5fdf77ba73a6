// From a connection's first event to its last, and from its fragments to the dispatcher.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "support/capture.h"
#include "ws_server.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::FakeLws;
using testing::FakeServer;
using testing::LogLine;
using testing::ManualClock;
using Lines = std::vector<std::string>;

lws* const first = FakeLws::handle(1);
lws* const second = FakeLws::handle(2);

// A connected server whose messages are parsed on a thread of its own; the test is the service thread.
class WebsockReceive : public ::testing::Test {
 protected:
  WebsockReceive() {
    server.library.threads = 1;
    EXPECT_TRUE(server.worker->connect());
    EXPECT_TRUE(server.library.wait_for_call("service_tsi 500 0"));  // the last that comes from another thread
    server.library.take_calls();
  }

  std::shared_ptr<WebsockSession> live(lws* wsi) const {
    for (const auto& session : server.worker->sessions_snapshot()) {
      if (session->wsi == wsi) return session;
    }
    return nullptr;
  }
  // Everything that came before a last message of a session of its own.
  Lines all_messages() {
    lws* const last = FakeLws::handle(77);
    server.library.open(last);
    const std::string mark = "message " + std::to_string(server.session(last).id) + " \"last\"";
    server.library.receive(last, "\"last\"");
    Lines lines;
    while (lines.empty() || lines.back() != mark) {
      const Lines more = server.dispatcher.wait_for(1);
      if (more.empty()) {
        ADD_FAILURE() << "the last message did not come";
        return lines;
      }
      lines.insert(lines.end(), more.begin(), more.end());
    }
    lines.pop_back();
    return lines;
  }

  ManualClock clock;
  Capture capture;
  FakeServer server;
};

TEST_F(WebsockReceive, NewConnectionBecomesASession) {
  server.library.peer(first).tsi = 3;
  server.library.peer(first).address = "10.1.2.3";
  server.library.open(first);

  const auto session = live(first);
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->id, 1u);
  EXPECT_EQ(session->tsi, 3);
  EXPECT_EQ(session->peer, "10.1.2.3");
  EXPECT_EQ(session->last_seen, 1000);
  EXPECT_EQ(server.library.peer(first).user_data, session.get());
  EXPECT_EQ(server.library.take_calls(), Lines{"callback_on_writable #1"});
}

TEST_F(WebsockReceive, ConnectionThatIsKnownStaysAsItIs) {
  server.library.open(first);
  const auto before = live(first);
  server.library.take_calls();
  server.library.open(first);
  EXPECT_EQ(live(first), before);
  EXPECT_EQ(server.library.take_calls(), Lines{"callback_on_writable #1"});
  server.library.open(second);
  EXPECT_EQ(server.session(second).id, 2u);
}

TEST_F(WebsockReceive, ReusedHandleGetsTheNextNumber) {
  server.library.open(first);
  server.library.open(second);
  server.library.close(first);
  server.library.open(first);
  EXPECT_EQ(server.session(first).id, 3u);
}

TEST_F(WebsockReceive, WholeMessageReachesTheDispatcher) {
  server.library.open(first);
  EXPECT_EQ(server.library.receive(first, R"({"a":1})"), 0);
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{R"(message 1 {"a":1})"});
  EXPECT_TRUE(capture.has_line(LOG_TRACE, R"(Recv {"a":1})"));
}

TEST_F(WebsockReceive, ThreeFragmentsArriveAsOneText) {
  server.library.open(first);
  server.library.receive(first, R"({"a")", false);
  server.library.receive(first, ":", false);
  server.library.receive(first, "1}", true);
  EXPECT_EQ(all_messages(), Lines{R"(message 1 {"a":1})"});
  EXPECT_EQ(capture.count(R"(Recv {"a":1})"), 1u);
}

TEST_F(WebsockReceive, MessageEndsOnlyWithNothingLeftOfTheFinalFragment) {
  server.library.open(first);
  server.library.receive(first, "[1,", true, 5);  // the library delivers a long frame in pieces
  server.library.receive(first, "2,", false, 3);
  server.library.receive(first, "3,", false, 0);
  server.library.receive(first, "4]", true, 0);
  EXPECT_EQ(all_messages(), Lines{"message 1 [1,2,3,4]"});
}

TEST_F(WebsockReceive, EveryCutOfAMessageGivesTheSameText) {
  const std::string text = R"({"key":[1,2,"three"]})";
  server.library.open(first);
  Lines expected;
  for (std::size_t a = 0; a <= text.size(); ++a) {
    for (std::size_t b = a; b <= text.size(); ++b) {
      server.library.receive(first, text.substr(0, a), false);
      server.library.receive(first, text.substr(a, b - a), false);
      server.library.receive(first, text.substr(b), true);
      expected.push_back("message 1 " + text);
    }
  }
  EXPECT_EQ(all_messages(), expected);
}

TEST_F(WebsockReceive, FragmentsOfTwoSessionsNeverMix) {
  server.library.open(first);
  server.library.open(second);
  server.library.receive(first, "[1", false);
  server.library.receive(second, "[2", false);
  server.library.receive(first, "1]", true);
  server.library.receive(second, "2]", true);
  EXPECT_EQ(all_messages(), (Lines{"message 1 [11]", "message 2 [22]"}));
}

TEST_F(WebsockReceive, MessageOfNoBytesReachesNobody) {
  server.library.open(first);
  EXPECT_EQ(server.library.receive(first, "", true), 0);
  EXPECT_EQ(all_messages(), Lines{});
  EXPECT_EQ(capture.count("Recv "), 1u);
}

TEST_F(WebsockReceive, EmptyFinalFragmentEndsWhatCameBefore) {
  server.library.open(first);
  server.library.receive(first, "[]", false);
  server.library.receive(first, "", false);
  server.library.receive(first, "", true);
  EXPECT_EQ(all_messages(), Lines{"message 1 []"});
}

TEST_F(WebsockReceive, TextThatIsNoJsonReachesTheDispatcherEmpty) {
  server.library.open(first);
  server.library.receive(first, "{\"a\":", true);
  server.library.receive(first, std::string("\0\xff", 2), true);
  EXPECT_EQ(all_messages(), (Lines{"message 1 null", "message 1 null"}));
}

TEST_F(WebsockReceive, BytesThatAreNotThereAreNotRead) {
  server.library.open(first);
  server.library.receive(first, "[", false);
  capture.clear();
  server.library.peer(first).final = false;
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_RECEIVE, nullptr, 5), 0);
  server.library.peer(first).final = true;
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_RECEIVE, nullptr, 5), 0);
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>(2, {LOG_TRACE, "LWS_CALLBACK_RECEIVE"})));
  server.library.receive(first, "]", true);
  EXPECT_EQ(all_messages(), Lines{"message 1 []"});
}

TEST_F(WebsockReceive, LengthBeyondAnIntIsRefusedAndTheBufferKept) {
  const std::size_t too_long = std::size_t{INT_MAX} + 1;
  server.library.open(first);
  server.library.receive(first, "[", false);
  server.library.peer(first).final = false;
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_RECEIVE, "x", too_long), 0);
  server.library.peer(first).final = true;
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_RECEIVE, "x", too_long), 0);
  EXPECT_EQ(capture.lines(LOG_ERROR),
            (Lines{"websocket fragment exceeds INT_MAX; session 1", "websocket frame exceeds INT_MAX; session 1"}));
  EXPECT_TRUE(capture.events().empty());
  server.library.receive(first, "]", true);
  EXPECT_EQ(all_messages(), Lines{"message 1 []"});
}

TEST_F(WebsockReceive, MessageThatOutgrowsItsBufferClosesTheConnection) {
  server.library.open(first);
  server.library.receive(first, "[", false);
  capture.clear();
  // Refused before a byte of it is read: with the terminator it is more than 32 bits can count.
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_RECEIVE, "x", INT_MAX), -1);
  EXPECT_EQ(capture.lines(LOG_ERROR),
            Lines{"Exception at processing message on websock-server-worker: std::bad_alloc"});
  EXPECT_EQ(capture.events(), (std::vector<testing::Event>{{10, false, ""}}));
}

TEST_F(WebsockReceive, OnlyAWholeMessageOrAPongShowsLife) {
  server.library.open(first);
  server.library.take_calls();

  clock.advance(5);
  server.library.receive(first, "[", false);
  EXPECT_EQ(live(first)->last_seen, 1000);
  EXPECT_TRUE(server.library.take_calls().empty());

  server.library.receive(first, "]", true);
  EXPECT_EQ(live(first)->last_seen, 1005);
  EXPECT_EQ(server.library.take_calls(), Lines{"set_timeout #1 0 0"});

  clock.advance(5);
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_RECEIVE_PONG), 0);
  EXPECT_EQ(live(first)->last_seen, 1010);
  EXPECT_EQ(server.library.take_calls(), Lines{"set_timeout #1 0 0"});

  clock.advance(5);
  server.library.receive(first, "", true);
  EXPECT_EQ(live(first)->last_seen, 1015);
  EXPECT_EQ(server.library.take_calls(), Lines{"set_timeout #1 0 0"});
}

TEST_F(WebsockReceive, UnknownConnectionIsPassedOver) {
  for (const auto reason : {LWS_CALLBACK_RECEIVE, LWS_CALLBACK_RECEIVE_PONG, LWS_CALLBACK_CLOSED,
                            LWS_CALLBACK_CLOSED_HTTP, LWS_CALLBACK_SERVER_WRITEABLE}) {
    EXPECT_EQ(server.library.call(second, reason, "[]", 2), 0) << reason;
  }
  EXPECT_TRUE(server.library.take_calls().empty());
  EXPECT_EQ(all_messages(), Lines{});
}

TEST_F(WebsockReceive, OverloadOrderNamesTheSessionOfTheMessageThatShowedIt) {
  server.library.open(first);
  server.library.open(second);
  // The first message opens the second and is counted with what came before; 1023 more and the next one make 1024.
  for (int i = 0; i < 1024; ++i) server.library.receive(i % 2 == 0 ? first : second, "", true);
  EXPECT_EQ(server.dispatcher.take(), Lines{});
  clock.advance(1);
  server.library.receive(second, "", true);
  EXPECT_EQ(server.dispatcher.take(), Lines{"stop load balancer 2"});

  clock.advance(10);
  for (int i = 0; i < 1024; ++i) server.library.receive(first, "", true);
  clock.advance(1);
  server.library.receive(first, "", true);
  EXPECT_EQ(server.dispatcher.take(), Lines{});

  clock.advance(20);
  for (int i = 0; i < 1024; ++i) server.library.receive(first, "", true);
  clock.advance(1);
  server.library.receive(first, "", true);
  EXPECT_EQ(server.dispatcher.take(), Lines{"stop load balancer 1"});
}

TEST_F(WebsockReceive, ClosedConnectionIsForgottenAndTheDomainWorkersAreTold) {
  server.library.open(first);
  server.library.open(second);
  server.library.close(first);
  EXPECT_EQ(live(first), nullptr);
  EXPECT_NE(live(second), nullptr);
  EXPECT_EQ(server.library.peer(first).user_data, nullptr);
  EXPECT_EQ(server.dispatcher.take(), Lines{"dropped 1"});

  EXPECT_EQ(server.library.call(second, LWS_CALLBACK_CLOSED_HTTP), 0);
  EXPECT_EQ(server.dispatcher.take(), Lines{"dropped 2"});
}

TEST_F(WebsockReceive, PartialMessageDiesWithItsSession) {
  server.library.open(first);
  server.library.receive(first, "[1,", false);
  server.library.close(first);
  server.library.open(first);
  server.library.receive(first, "[2]", true);
  EXPECT_EQ(all_messages(), (Lines{"dropped 1", "message 2 [2]"}));
}

TEST_F(WebsockReceive, ImpossibleThreadIndexAtTheCloseIsSaidAndTheSessionErased) {
  for (const int tsi : {32, -1}) {
    server.library.open(first);
    server.library.peer(first).tsi = tsi;
    server.library.close(first);
    EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"process_closed: invalid lws tsi " + std::to_string(tsi)});
    EXPECT_EQ(live(first), nullptr);
    capture.clear();
    server.library.peer(first).tsi = 0;
  }
  EXPECT_EQ(server.dispatcher.take(), (Lines{"dropped 1", "dropped 2"}));
}

TEST_F(WebsockReceive, QueuedMessageOfAClosedSessionIsDroppedWithoutAWord) {
  server.library.open(first);
  server.library.open(second);
  server.dispatcher.hold();
  server.library.receive(first, "[1]", true);
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"message 1 [1]"});
  server.library.receive(second, "[2]", true);
  server.library.close(second);
  capture.clear();
  server.dispatcher.release();
  EXPECT_EQ(all_messages(), Lines{"dropped 2"});
  EXPECT_TRUE(capture.lines(LOG_ERROR).empty());
}

TEST_F(WebsockReceive, QueuedMessageIsRoutedUnderItsDeadSessionIfTheHandleLivesAgain) {
  server.library.open(first);
  server.library.open(second);
  server.dispatcher.hold();
  server.library.receive(first, "[1]", true);
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"message 1 [1]"});
  server.library.receive(second, "[2]", true);
  server.library.close(second);
  server.library.open(second);
  server.dispatcher.release();
  EXPECT_EQ(all_messages(), (Lines{"dropped 2", "message 2 [2]"}));
  EXPECT_EQ(server.session(second).id, 3u);
}

TEST_F(WebsockReceive, MessagesOfASessionKeepTheirOrder) {
  server.library.open(first);
  Lines expected;
  for (int i = 0; i < 2000; ++i) {
    server.library.receive(first, std::to_string(i), true);
    expected.push_back("message 1 " + std::to_string(i));
  }
  EXPECT_EQ(all_messages(), expected);
}

}  // namespace
}  // namespace rrm
