// What a server on an open port has to stand: each of these leaves every other session served.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "core/QueueMessage.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/ws_client.h"
#include "ws_server.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::Frame;
using testing::Opcode;
using testing::RealServer;
using testing::WsClient;
using Lines = std::vector<std::string>;

// A server that answers, with a well-behaved client that is served before and after whatever a test does.
class WebsockHostile : public ::testing::Test {
 protected:
  WebsockHostile() {
    server.echo();
    EXPECT_TRUE(server.worker->connect());
    witness = WsClient::open(server.port);
    expect_served("\"before\"");
  }
  ~WebsockHostile() override {
    expect_served("\"after\"");
    WsClient newcomer = WsClient::open(server.port);
    newcomer.send_text("\"new\"");
    EXPECT_EQ(newcomer.receive_text(), "\"new\"");
  }

  void expect_served(const std::string& text) {
    ASSERT_TRUE(witness->send_text(text));
    EXPECT_EQ(witness->receive_text(), text);
  }
  std::size_t session_count() const { return server.worker->sessions_snapshot().size(); }

  Capture capture;
  RealServer server;
  std::optional<WsClient> witness;
};

TEST_F(WebsockHostile, PlainHttpGetsAnAnswerAndNoSession) {
  for (const char* path : {"/", "/index.html", "/apb/other"}) {
    WsClient client(server.port);
    client.send_raw(std::string("GET ") + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
    EXPECT_EQ(client.http_status(), 404) << path;
  }
  EXPECT_EQ(session_count(), 1u);
}

TEST_F(WebsockHostile, PlainHttpOnTheWebSocketsPathMakesNoSession) {
  WsClient client(server.port);
  client.send_raw("GET /apb/rrm HTTP/1.1\r\nHost: localhost\r\n\r\n");
  expect_served("\"meanwhile\"");
  EXPECT_EQ(session_count(), 1u);
}

TEST_F(WebsockHostile, OtherSubProtocolIsRefused) {
  WsClient client(server.port);
  EXPECT_NE(client.upgrade({"/apb/rrm", "chat"}), 101);
  EXPECT_EQ(session_count(), 1u);
}

TEST_F(WebsockHostile, UpgradeWithoutASubProtocolMakesNoSession) {
  server.dispatcher.take();
  WsClient client(server.port);
  client.upgrade({"/apb/rrm", std::nullopt});  // which the library may accept
  client.send_text("\"unheard\"");
  EXPECT_TRUE(client.wait_for_end()) << "nobody would ever ask whether it is still there";
  expect_served("\"meanwhile\"");
  EXPECT_EQ(session_count(), 1u);
  EXPECT_EQ(server.dispatcher.take(), Lines{"message 1 \"meanwhile\""});
}

TEST_F(WebsockHostile, UpgradeOnAnotherPathIsServedForTheRightSubProtocol) {
  WsClient client(server.port);
  EXPECT_EQ(client.upgrade({"/elsewhere", "websock-rrm"}), 101);
  client.send_text("1");
  EXPECT_EQ(client.receive_text(), "1");
}

TEST_F(WebsockHostile, SubProtocolAmongOthersIsFound) {
  WsClient client(server.port);
  EXPECT_EQ(client.upgrade({"/apb/rrm", "chat, websock-rrm"}), 101);
  client.send_text("1");
  EXPECT_EQ(client.receive_text(), "1");
}

TEST_F(WebsockHostile, GarbageInsteadOfAHandshake) {
  for (const std::string& bytes :
       {std::string(5000, '\xff'), std::string(5000, '\0'), std::string("\r\n\r\n\r\n"), std::string(100000, 'A'),
        std::string("GET / HTTP/1.1\r\nHost: ") + std::string(100000, 'h') + "\r\n\r\n"}) {
    WsClient client(server.port);
    client.send_raw(bytes);
    client.close();
  }
  expect_served("\"meanwhile\"");
  EXPECT_EQ(session_count(), 1u);
}

TEST_F(WebsockHostile, HandshakeCutAtEveryByte) {
  const std::string request = WsClient::upgrade_request({});
  for (std::size_t length = 0; length < request.size(); ++length) {
    WsClient client(server.port);
    client.send_raw(request.substr(0, length));
    length % 2 == 0 ? client.close() : client.reset();
  }
  expect_served("\"meanwhile\"");
  EXPECT_EQ(session_count(), 1u);
}

TEST_F(WebsockHostile, FrameCutAtEveryByte) {
  server.dispatcher.take();
  const std::string frame = testing::masked_text(R"({"cmd":"cut"})");
  for (std::size_t length = 0; length < frame.size(); ++length) {
    WsClient client = WsClient::open(server.port);
    client.send_raw(frame.substr(0, length));
    length % 2 == 0 ? client.close() : client.reset();
  }
  const Lines told = server.dispatcher.wait_for(frame.size());
  ASSERT_EQ(told.size(), frame.size());
  for (const std::string& line : told) EXPECT_EQ(line.substr(0, 8), "dropped ");
  EXPECT_EQ(session_count(), 1u);
}

TEST_F(WebsockHostile, ResetInTheMiddleOfAMessage) {
  server.dispatcher.take();
  WsClient client = WsClient::open(server.port);
  client.send({Opcode::text, "[1,", false});
  client.send({Opcode::continuation, "2,", false});
  client.reset();
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 2"});
}

TEST_F(WebsockHostile, BinaryFramesAreMessagesLikeAnyOther) {
  WsClient client = WsClient::open(server.port);
  client.send({Opcode::binary, "[1]", true});
  EXPECT_EQ(client.receive_text(), "[1]");
  client.send({Opcode::binary, std::string("\x00\x01\x02\xff", 4), true});
  EXPECT_EQ(client.receive_text(), "null");
}

TEST_F(WebsockHostile, TextThatIsNoJson) {
  WsClient client = WsClient::open(server.port);
  for (const std::string& text : {std::string("not json"), std::string("{\"a\":"), std::string("\xc3\x28"),
                                  std::string(600, '['), std::string("[1]\0[2]", 7)}) {
    client.send_text(text);
    client.receive_text();
  }
  client.send_text("\"still here\"");
  EXPECT_EQ(client.receive_text(), "\"still here\"");
}

struct FrameCase {
  const char* label;
  std::string bytes;
};

TEST_F(WebsockHostile, FramesThatBreakTheProtocolEndOnlyTheirOwnConnection) {
  const FrameCase cases[] = {
      {"reserved opcode 3", std::string("\x83\x80mask", 6)},
      {"reserved opcode 11", std::string("\x8b\x80mask", 6)},
      {"reserved bit", std::string("\xc1\x80mask", 6)},
      {"control frame of 126 bytes", std::string("\x89\xfe\x00\x7emask", 8) + std::string(126, 'p')},
      {"control frame in fragments", std::string("\x09\x80mask", 6)},
      {"continuation of nothing", testing::masked_frame({Opcode::continuation, "[1]", true})},
      {"close frame of one byte", testing::masked_frame({Opcode::close, "x", true})},
      {"close frame with a reserved status", testing::masked_frame({Opcode::close, std::string("\x03\xee", 2), true})},
  };
  for (const FrameCase& c : cases) {
    SCOPED_TRACE(c.label);
    WsClient client = WsClient::open(server.port);
    client.send_raw(c.bytes);
    if (const auto frame = client.receive()) {  // either a close frame that wants an answer, or the end at once
      EXPECT_EQ(frame->opcode, Opcode::close);
      client.send(*frame);
    }
    EXPECT_TRUE(client.wait_for_end());
    expect_served("\"meanwhile\"");
  }
}

TEST_F(WebsockHostile, FrameWithoutAMask) {
  WsClient client = WsClient::open(server.port);
  client.send_raw(std::string("\x81\x03[1]", 5));
  expect_served("\"meanwhile\"");
}

TEST_F(WebsockHostile, LengthThatNobodyCanSend) {
  WsClient client = WsClient::open(server.port);
  client.send_raw(std::string("\x81\xff\x7f\xff\xff\xff\xff\xff\xff\xffmask[[[[", 18));
  expect_served("\"meanwhile\"");
  client.reset();
}

TEST_F(WebsockHostile, MegabytesInOneMessage) {
  WsClient client = WsClient::open(server.port);
  const std::string text = "\"" + std::string(2 << 20, 'm') + "\"";
  client.send_text(text);
  EXPECT_TRUE(client.receive_text() == text) << "which nobody wants to read";
}

TEST_F(WebsockHostile, MessageThatNeverEndsDiesWithItsSession) {
  server.dispatcher.take();
  WsClient client = WsClient::open(server.port);
  client.send({Opcode::text, std::string(1 << 20, '['), false});
  for (int i = 0; i < 100; ++i) client.send({Opcode::continuation, std::string(1000, '['), false});
  expect_served("\"meanwhile\"");
  server.dispatcher.take();
  client.close();
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 2"});
}

TEST_F(WebsockHostile, PeerThatNeverReadsLosesItsMessagesAndNobodyElses) {
  server.dispatcher.take();
  WsClient deaf = WsClient::open(server.port, 4096);
  deaf.send_text("1");
  ASSERT_EQ(server.dispatcher.wait_for(1), Lines{"message 2 1"});
  BaseSession session;
  for (const auto& live : server.worker->sessions_snapshot()) {
    if (live->id == 2) session = *live;
  }
  const std::string much = "\"" + std::string(1 << 20, 'd') + "\"";
  const std::string lost = "per-wsi queue overflow: outgoing message dropped for session 2";
  for (int i = 0; i < 1000 && capture.events().empty(); ++i) {
    server.worker->enqueue_serialized(std::string(much), session);
  }
  EXPECT_EQ(capture.count(lost), 1u);
  expect_served("\"meanwhile\"");
  deaf.reset();
}

TEST_F(WebsockHostile, PeerThatNeverReadsIsDroppedNevertheless) {
  server.dispatcher.take();
  WsClient deaf = WsClient::open(server.port, 4096);
  deaf.send_text("1");
  ASSERT_EQ(server.dispatcher.wait_for(1), Lines{"message 2 1"});
  BaseSession session;
  for (const auto& live : server.worker->sessions_snapshot()) {
    if (live->id == 2) session = *live;
  }
  for (int i = 0; i < 8; ++i) server.worker->enqueue_serialized("\"" + std::string(1 << 20, 'd') + "\"", session);
  expect_served("\"meanwhile\"");
  for (int i = 0; i < 40; ++i) {
    server.worker->enqueue_message_force(JsonReader(internal_message::drop_session), session);
  }
  EXPECT_TRUE(testing::eventually([&] { return session_count() == 1; }));
  EXPECT_TRUE(capture.events().empty());
}

// Serves in a process of its own, under a limit of so many descriptors, until destroyed.
class LimitedServer {
 public:
  explicit LimitedServer(rlim_t descriptors) {
    EXPECT_EQ(::pipe(until_closed_), 0);
    child_ = ::fork();
    if (child_ == 0) serve(descriptors);
    ::close(until_closed_[0]);
  }
  ~LimitedServer() {
    ::close(until_closed_[1]);
    int status = -1;
    EXPECT_EQ(::waitpid(child_, &status, 0), child_);
    EXPECT_EQ(status, 0);
  }
  LimitedServer(const LimitedServer&) = delete;
  LimitedServer& operator=(const LimitedServer&) = delete;

  int port() const { return server_.port; }

 private:
  [[noreturn]] void serve(rlim_t descriptors) {
    ::close(until_closed_[1]);
    const rlimit limit{descriptors, descriptors};
    char end = 0;
    server_.echo();
    const bool served =
        ::setrlimit(RLIMIT_NOFILE, &limit) == 0 && server_.worker->connect() && ::read(until_closed_[0], &end, 1) == 0;
    server_.worker->disconnect();
    ::_exit(served ? 0 : 1);
  }

  Capture capture_;
  RealServer server_;
  int until_closed_[2] = {-1, -1};
  pid_t child_ = -1;
};

TEST(WebsockLimits, ClientsBeyondTheDescriptorsAreRefusedAndTheRestIsServed) {
  LimitedServer server(200);
  WsClient first = WsClient::open(server.port());
  std::vector<WsClient> served;
  int refused = 0;
  for (int i = 0; i < 300; ++i) {
    WsClient client(server.port());
    if (client.upgrade() == 101) {
      served.push_back(std::move(client));
    } else {
      ++refused;
    }
  }
  EXPECT_GT(served.size(), 100u);
  EXPECT_LT(served.size(), 150u);
  EXPECT_EQ(served.size() + static_cast<std::size_t>(refused), 300u);
  EXPECT_TRUE(first.send_text("1"));
  EXPECT_EQ(first.receive_text(), "1");

  served.back().close();
  first.send_text("2");  // by its answer the server has seen the close
  EXPECT_EQ(first.receive_text(), "2");
  EXPECT_EQ(WsClient(server.port()).upgrade(), 101);
}

}  // namespace
}  // namespace rrm
