// What happens when the jsonificators fall so far behind that their queue is full.
#include <gtest/gtest.h>

#include <future>
#include <thread>

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
using testing::SleepRecorder;
using testing::WsClient;

TEST(WebsockOverflow, FullJsonificatorQueueLosesTheWholeMessageAndLocksNobodyOutMeanwhile) {
  constexpr int room = 32768;  // of a queue for 20000 sessions
  SleepRecorder clock;
  Capture capture;
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  lws* const first = FakeLws::handle(1);
  server.library.open_and_make_queue(first);
  for (int i = 0; i < room; ++i) server.library.receive(first, "1", true);
  EXPECT_TRUE(capture.events().empty());
  EXPECT_EQ(clock.count(), 0u);
  capture.clear();
  server.library.take_calls();

  // In the middle of the waiting another thread looks at the sessions and sends to one.
  std::thread visitor;
  std::promise<void> served;
  bool served_in_time = false;
  clock.on_sleep = [&] {
    if (clock.count() != 1) return;
    visitor = std::thread([&] {
      server.send("\"answer\"", server.session(first));
      served.set_value();
    });
    served_in_time = served.get_future().wait_for(WsClient::patience) == std::future_status::ready;
  };
  EXPECT_EQ(server.library.receive(first, "\"too much\"", true), 0);
  ASSERT_TRUE(visitor.joinable());
  visitor.join();
  EXPECT_TRUE(served_in_time);

  EXPECT_EQ(clock.count(), 65536u - 127);  // the first 127 attempts do not sleep
  EXPECT_EQ(clock.sleeps().back(), 1000u);
  EXPECT_EQ(capture.lines(LOG_ERROR),
            std::vector<std::string>{"jsonificator_queue overflow: message dropped from session 1"});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}}));
  server.library.take_calls();
  EXPECT_EQ(server.library.writeable(first), 0);  // the session stays, and what was sent meanwhile is there
  EXPECT_EQ(server.library.take_calls(), std::vector<std::string>{"write #1 0 \"answer\""});
}

}  // namespace
}  // namespace rrm
