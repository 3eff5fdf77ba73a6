// The library's own end for a session that does not answer a ping: it comes 40 seconds after the last ping, unless a
// pong or a whole message has come since.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "core/QueueMessage.h"
#include "json/JsonReader.h"
#include "support/capture.h"
#include "support/ws_client.h"
#include "ws_server.h"

namespace rrm {
namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::Capture;
using testing::Frame;
using testing::Opcode;
using testing::RealServer;
using testing::WsClient;
using Lines = std::vector<std::string>;

TEST(WebsockSilence, EndsASession40SecondsAfterAPingThatNothingAnswers) {
  const Capture capture;
  RealServer server;
  ASSERT_TRUE(server.worker->connect());
  WsClient silent = WsClient::open(server.port);
  WsClient answering = WsClient::open(server.port);
  WsClient talking = WsClient::open(server.port);
  std::vector<WsClient*> const clients{&silent, &answering, &talking};
  for (WsClient* client : clients) {  // whoever has sent something can be sent to
    client->send_text("1");
    ASSERT_EQ(server.dispatcher.wait_for(1).size(), 1u);
  }
  const auto pinged = steady_clock::now();
  for (const auto& session : server.worker->sessions_snapshot()) {
    server.worker->enqueue_message(JsonReader(internal_message::ping_session), *session);
  }
  for (WsClient* client : clients) ASSERT_EQ(client->receive(), (Frame{Opcode::ping, "lws_ping", true}));
  ASSERT_TRUE(answering.send({Opcode::pong, "lws_ping", true}));
  ASSERT_TRUE(talking.send_text("2"));
  ASSERT_EQ(server.dispatcher.wait_for(1), Lines{"message 3 2"});

  EXPECT_TRUE(silent.wait_for_end(seconds(60)));
  const auto lasted = steady_clock::now() - pinged;
  EXPECT_GE(lasted, seconds(39));  // the library counts whole seconds
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{"dropped 1"});
  for (WsClient* client : {&answering, &talking}) {
    ASSERT_TRUE(client->send_text("3"));
    EXPECT_EQ(server.dispatcher.wait_for(1).size(), 1u);
  }
  EXPECT_EQ(server.worker->sessions_snapshot().size(), 2u);
}

}  // namespace
}  // namespace rrm
