// Real sockets of the loopback against the real library: what a well-behaved access point sees.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/QueueMessage.h"
#include "json/JsonReader.h"
#include "support/capture.h"
#include "support/ws_client.h"
#include "ws_server.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::close_status;
using testing::Frame;
using testing::Opcode;
using testing::RealServer;
using testing::WsClient;
using Lines = std::vector<std::string>;

// Until `holds` does, at most as long as a client waits for anything.
bool eventually(const std::function<bool()>& holds) {
  const auto deadline = std::chrono::steady_clock::now() + WsClient::patience;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    ::poll(nullptr, 0, 1);
  }
  return true;
}

// Somebody else who listens on the port.
class PortHolder {
 public:
  explicit PortHolder(int port) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(::listen(fd_, 1), 0);
  }
  ~PortHolder() { ::close(fd_); }
  PortHolder(const PortHolder&) = delete;
  PortHolder& operator=(const PortHolder&) = delete;

 private:
  const int fd_;
};

class WebsockWire : public ::testing::Test {
 protected:
  void listen() { ASSERT_TRUE(server.worker->connect()); }
  void order(const char* json, const BaseSession& session) {
    server.worker->enqueue_message_force(JsonReader(json), session);
  }
  std::string cannot_listen() const { return "Can't listen on port " + std::to_string(server.port) + ", trying again"; }
  // A client whose session can be sent to: the answer to its first message has come back.
  WsClient open_echoed() {
    WsClient client = WsClient::open(server.port);
    client.send_text("\"hello\"");
    EXPECT_EQ(client.receive_text(), "\"hello\"");
    return client;
  }

  Capture capture;
  RealServer server;
};

TEST_F(WebsockWire, MessageTravelsInAndItsAnswerOut) {
  server.echo();
  listen();
  WsClient client = WsClient::open(server.port);
  EXPECT_TRUE(client.send_text(R"({"cmd":"a"})"));
  EXPECT_EQ(client.receive(), (Frame{Opcode::text, R"({"cmd":"a"})", true}));
  EXPECT_EQ(server.dispatcher.take(), Lines{R"(message 1 {"cmd":"a"})"});
  EXPECT_EQ(server.worker->sessions_snapshot().at(0)->peer, "127.0.0.1");
}

TEST_F(WebsockWire, MessageInFragmentsOfEverySizeArrivesWhole) {
  server.echo();
  listen();
  WsClient client = WsClient::open(server.port);
  const std::string text = R"({"service":"rrm","cmd":"subscribe-request","domain":"x"})";
  for (std::size_t size = 1; size <= text.size(); ++size) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < text.size(); at += size) parts.push_back(text.substr(at, size));
    ASSERT_TRUE(client.send_fragments(parts));
    EXPECT_EQ(client.receive_text(), text) << "fragments of " << size;
  }
}

TEST_F(WebsockWire, FrameThatArrivesByteByByteIsOneMessage) {
  server.echo();
  listen();
  WsClient client = WsClient::open(server.port);
  for (const char byte : testing::masked_text(R"({"cmd":"a"})")) ASSERT_TRUE(client.send_raw({&byte, 1}));
  EXPECT_EQ(client.receive_text(), R"({"cmd":"a"})");
}

TEST_F(WebsockWire, MessageOfEveryLengthAroundTheSeamsOfFrameAndBufferComesBack) {
  server.echo();
  listen();
  WsClient client = WsClient::open(server.port);
  for (const std::size_t size : {2u, 125u, 126u, 127u, 4095u, 4096u, 4097u, 65535u, 65536u, 65537u, 3u << 20}) {
    const std::string text = "\"" + std::string(size - 2, 'x') + "\"";
    ASSERT_TRUE(client.send_text(text));
    EXPECT_EQ(client.receive_text(), text) << size;
  }
}

TEST_F(WebsockWire, EmptyMessageGetsNoAnswerAndDoesNoHarm) {
  server.echo();
  listen();
  WsClient client = WsClient::open(server.port);
  EXPECT_TRUE(client.send_text(""));
  EXPECT_TRUE(client.send_fragments({"", "", ""}));
  EXPECT_TRUE(client.send_fragments({"", "[1]", ""}));
  EXPECT_EQ(client.receive_text(), "[1]");
  EXPECT_EQ(server.dispatcher.take(), Lines{"message 1 [1]"});
}

TEST_F(WebsockWire, MessagesOfOneSessionKeepTheirOrderInAndOut) {
  listen();
  WsClient client = WsClient::open(server.port);
  std::string bytes;
  Lines expected;
  for (int i = 0; i < 1000; ++i) {
    bytes += testing::masked_text(std::to_string(i));
    expected.push_back("message 1 " + std::to_string(i));
  }
  ASSERT_TRUE(client.send_raw(bytes));
  EXPECT_EQ(server.dispatcher.wait_for(1000), expected);
  const BaseSession session = server.only_session();
  for (int i = 0; i < 16; ++i) server.worker->enqueue_serialized(std::to_string(i), session);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(client.receive_text(), std::to_string(i));
}

// More than all buffers on the way hold: the library writes in parts, and the rest waits in the session's queue.
TEST_F(WebsockWire, SlowReaderGetsEverythingInOrderOnceItReads) {
  listen();
  WsClient slow = WsClient::open(server.port, 4096);
  WsClient quick = WsClient::open(server.port);
  slow.send_text("1");
  ASSERT_EQ(server.dispatcher.wait_for(1), Lines{"message 1 1"});
  quick.send_text("2");
  ASSERT_EQ(server.dispatcher.wait_for(1), Lines{"message 2 2"});
  BaseSession of_slow;
  BaseSession of_quick;
  for (const auto& session : server.worker->sessions_snapshot()) (session->id == 1 ? of_slow : of_quick) = *session;

  Lines expected;
  for (int i = 0; i < 12; ++i) {
    expected.push_back("\"" + std::to_string(i) + std::string(1 << 20, 'x') + "\"");
    server.worker->enqueue_serialized(std::string(expected.back()), of_slow);
  }
  server.worker->enqueue_serialized("\"overtakes\"", of_quick);
  EXPECT_EQ(quick.receive_text(), "\"overtakes\"");
  for (const std::string& text : expected) EXPECT_TRUE(slow.receive_text() == text);
  EXPECT_TRUE(capture.events().empty());
}

TEST_F(WebsockWire, ManySessionsEachGetTheirOwnAnswers) {
  server.echo();
  listen();
  std::vector<WsClient> clients;
  for (int i = 0; i < 200; ++i) clients.push_back(WsClient::open(server.port));
  for (int round = 0; round < 5; ++round) {
    for (std::size_t i = 0; i < clients.size(); ++i) clients[i].send_text(std::to_string(i * 10 + std::size_t(round)));
    for (std::size_t i = 0; i < clients.size(); ++i) {
      EXPECT_EQ(clients[i].receive_text(), std::to_string(i * 10 + std::size_t(round)));
    }
  }
  EXPECT_EQ(server.worker->sessions_snapshot().size(), clients.size());
}

TEST_F(WebsockWire, PingReachesTheClientAndItsPongIsALifeSign) {
  testing::ManualClock clock;
  server.echo();
  listen();
  WsClient client = open_echoed();
  clock.advance(30);
  order(internal_message::ping_session, server.only_session());
  EXPECT_EQ(client.receive(), (Frame{Opcode::ping, "lws_ping", true}));
  EXPECT_EQ(server.worker->sessions_snapshot().at(0)->last_seen, 1000);
  ASSERT_TRUE(client.send({Opcode::pong, "lws_ping", true}));
  EXPECT_TRUE(eventually([&] { return server.worker->sessions_snapshot().at(0)->last_seen == 1030; }));
}

TEST_F(WebsockWire, PingOfTheClientIsAnswered) {
  listen();
  WsClient client = WsClient::open(server.port);
  ASSERT_TRUE(client.send({Opcode::ping, "are you there", true}));
  EXPECT_EQ(client.receive(), (Frame{Opcode::pong, "are you there", true}));
}

TEST_F(WebsockWire, PingBetweenTwoFragmentsDoesNotEndTheMessage) {
  server.echo();
  listen();
  WsClient client = WsClient::open(server.port);
  ASSERT_TRUE(client.send({Opcode::text, "[1,", false}));
  ASSERT_TRUE(client.send({Opcode::ping, "p", true}));
  ASSERT_TRUE(client.send({Opcode::continuation, "2]", true}));
  EXPECT_EQ(client.receive(), (Frame{Opcode::pong, "p", true}));
  EXPECT_EQ(client.receive_text(), "[1,2]");
}

TEST_F(WebsockWire, DropSessionClosesWithDoneAndTellsNoDomainWorker) {
  server.echo();
  listen();
  WsClient client = open_echoed();
  server.dispatcher.take();
  order(internal_message::drop_session, server.only_session());
  const auto frame = client.receive();
  ASSERT_TRUE(frame.has_value());
  EXPECT_EQ(close_status(*frame), 1000);
  EXPECT_EQ(frame->payload.substr(2), "done");
  EXPECT_TRUE(client.send(*frame));
  EXPECT_TRUE(client.wait_for_end());
  EXPECT_TRUE(eventually([&] { return capture.count("LWS_CALLBACK_CLOSED") == 1; }));
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
  EXPECT_EQ(server.dispatcher.take(), Lines{});
}

TEST_F(WebsockWire, EveryWayOfLeavingTellsTheDomainWorkers) {
  server.echo();
  listen();
  {
    WsClient polite = WsClient::open(server.port);
    polite.send({Opcode::close, std::string("\x03\xe8", 2), true});
    EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 1"});
  }
  {
    WsClient gone = WsClient::open(server.port);
    gone.close();
    EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 2"});
  }
  {
    WsClient broken = WsClient::open(server.port);
    broken.reset();
    EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 3"});
  }
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
}

TEST_F(WebsockWire, AnswerForAClientThatLeftIsRefused) {
  listen();
  WsClient client = WsClient::open(server.port);
  client.send_text("1");
  server.dispatcher.wait_for(1);
  const BaseSession left = server.only_session();
  client.close();
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 1"});
  WsClient next = WsClient::open(server.port);
  next.send_text("2");
  server.dispatcher.wait_for(1);
  server.worker->enqueue_serialized("\"for the first\"", left);
  server.worker->enqueue_serialized("\"for the second\"", server.only_session());
  EXPECT_EQ(next.receive_text(), "\"for the second\"");
}

TEST_F(WebsockWire, StopEndsAllConnectionsAndTheNextStartServesAgain) {
  server.echo();
  server.worker->start();
  WsClient before = open_echoed();
  server.worker->stop();
  EXPECT_TRUE(before.wait_for_end());
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
  EXPECT_EQ(server.dispatcher.take(), (Lines{"message 1 \"hello\"", "dropped 1"}));

  server.worker->start();
  WsClient after = open_echoed();
  EXPECT_EQ(server.only_session().id, 2u);
  server.worker->stop();
  EXPECT_TRUE(after.wait_for_end());
}

TEST_F(WebsockWire, IdleServerStopsAtOnce) {
  listen();
  WsClient idle = WsClient::open(server.port);
  const auto started = std::chrono::steady_clock::now();
  server.worker->disconnect();
  // Unwoken, the library would sleep for minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - started, WsClient::patience);
  EXPECT_TRUE(idle.wait_for_end());
}

TEST_F(WebsockWire, TakenPortIsTriedUntilItIsFree) {
  server.echo();
  auto holder = std::make_unique<PortHolder>(server.port);
  server.worker->start();
  EXPECT_TRUE(eventually([&] { return capture.has_line(LOG_ERROR, cannot_listen()); }));
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
  holder.reset();
  open_echoed();
  server.worker->stop();
  EXPECT_EQ(capture.count(cannot_listen()), 1u);
}

TEST_F(WebsockWire, StopEndsTheAttemptsAtATakenPort) {
  PortHolder holder(server.port);
  server.worker->start();
  EXPECT_TRUE(eventually([&] { return capture.has_line(LOG_ERROR, cannot_listen()); }));
  server.worker->stop();
  EXPECT_EQ(capture.count(cannot_listen()), 1u);
}

TEST_F(WebsockWire, WakeUpsAreSafeWhileTheServerComesAndGoes) {
  server.echo();
  std::atomic<bool> done{false};
  std::thread sender([&] {
    while (!done) {
      for (const auto& session : server.worker->sessions_snapshot()) server.worker->enqueue_serialized("1", *session);
      ::poll(nullptr, 0, 1);  // slower than the ring fills
    }
  });
  for (int round = 0; round < 20; ++round) {
    listen();
    WsClient client = WsClient::open(server.port);
    EXPECT_TRUE(client.receive_text().has_value());
    server.worker->disconnect();
  }
  done = true;
  sender.join();
}

TEST_F(WebsockWire, NoCompressionIsNegotiated) {
  server.echo();
  listen();
  WsClient client(server.port);
  std::string request = WsClient::upgrade_request({});
  request.insert(request.size() - 2, "Sec-WebSocket-Extensions: permessage-deflate\r\n");
  client.send_raw(request);
  EXPECT_EQ(client.http_status(), 101);
  const std::string text = "\"" + std::string(1000, 'x') + "\"";
  client.send_text(text);
  EXPECT_EQ(client.receive(), (Frame{Opcode::text, text, true}));
}

}  // namespace
}  // namespace rrm
