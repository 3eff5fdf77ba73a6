// The jsonificators' queue runs over only after its 65536 attempts, which take over a minute.
#include <gtest/gtest.h>

#include <thread>

#include "support/capture.h"
#include "ws_server.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::Event;
using testing::FakeLws;
using testing::FakeServer;

TEST(WebsockOverflow, FullJsonificatorQueueLosesTheWholeMessageAndLocksNobodyOutMeanwhile) {
  constexpr int room = 32768;  // of a queue for 20000 sessions
  Capture capture;
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  lws* const first = FakeLws::handle(1);
  server.library.open(first);
  for (int i = 0; i < room; ++i) server.library.receive(first, "1", true);
  EXPECT_TRUE(capture.events().empty());
  capture.clear();

  std::thread service([&] { EXPECT_EQ(server.library.receive(first, "\"too much\"", true), 0); });
  while (!capture.has_line(LOG_TRACE, "Recv \"too much\"")) std::this_thread::yield();
  EXPECT_EQ(server.worker->sessions_snapshot().size(), 1u);
  server.send("\"answer\"", server.session(first));
  EXPECT_TRUE(capture.events().empty());  // the two above did not have to wait for the end of the attempts
  service.join();

  EXPECT_EQ(capture.lines(LOG_ERROR),
            std::vector<std::string>{"jsonificator_queue overflow: message dropped from session 1"});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{26, false, ""}}));
  EXPECT_EQ(server.session(first).id, 1u);
}

}  // namespace
}  // namespace rrm
