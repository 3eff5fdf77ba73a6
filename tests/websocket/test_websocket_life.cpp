// Connecting, disconnecting, the threads, and what the library's callbacks come to.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>

#include "core/sleep_recorder.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/capture.h"
#include "ws_server.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::Event;
using testing::FakeLws;
using testing::FakeServer;
using testing::LogLine;
using testing::ManualClock;
using Lines = std::vector<std::string>;

lws* const first = FakeLws::handle(1);
lws* const second = FakeLws::handle(2);

// The limit of descriptors belongs to the process: what a test changes goes back.
class WebsockLife : public ::testing::Test {
 protected:
  ~WebsockLife() override { setrlimit(RLIMIT_NOFILE, &limit_); }
  void set_soft_limit(rlim_t soft) {
    rlimit limit = limit_;
    limit.rlim_cur = soft;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  }

  Capture capture;

 private:
  const rlimit limit_ = descriptor_limit();
};

TEST_F(WebsockLife, ConnectDescribesTheListenerToTheLibrary) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());

  const lws_context_creation_info& info = server.library.info();
  EXPECT_EQ(info.port, 8099);
  EXPECT_EQ(info.gid, -1);
  EXPECT_EQ(info.uid, -1);
  EXPECT_EQ(info.options, 32u | LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND);
  EXPECT_EQ(info.count_threads, 1u);
  EXPECT_EQ(info.fd_limit_per_thread, 20003u);
  EXPECT_EQ(info.iface, nullptr);
  EXPECT_EQ(info.extensions, nullptr);
  EXPECT_EQ(info.ssl_cert_filepath, nullptr);
  EXPECT_EQ(info.user, nullptr);
  EXPECT_EQ(info.retry_and_idle_policy, nullptr);
  EXPECT_EQ(info.ka_time, 0);
  EXPECT_EQ(info.timeout_secs, 0u);

  const lws_http_mount& mount = *info.mounts;
  EXPECT_EQ(mount.mount_next, nullptr);
  EXPECT_STREQ(mount.mountpoint, "/apb/rrm");
  EXPECT_EQ(mount.mountpoint_len, 8);
  EXPECT_STREQ(mount.origin, "/tmp");
  EXPECT_STREQ(mount.def, "test.html");
  EXPECT_STREQ(mount.protocol, "websock-rrm");
  EXPECT_EQ(mount.origin_protocol, 6);

  const lws_protocols* protocols = info.protocols;
  EXPECT_STREQ(protocols[0].name, "http");
  EXPECT_EQ(protocols[0].callback, lws_callback_http_dummy);
  EXPECT_EQ(protocols[0].per_session_data_size, 0u);
  EXPECT_EQ(protocols[0].rx_buffer_size, 0u);
  EXPECT_STREQ(protocols[1].name, "websock-rrm");
  EXPECT_NE(protocols[1].callback, nullptr);
  EXPECT_EQ(protocols[1].per_session_data_size, 8u);
  EXPECT_EQ(protocols[1].rx_buffer_size, 65536u);
  EXPECT_EQ(protocols[2].name, nullptr);
  EXPECT_EQ(protocols[2].callback, nullptr);
}

// Otherwise it would ping after 300 seconds, and end ten later whoever talks but does not answer.
TEST(Libwebsockets, KeepsNoWatchOverSilenceOfItsOwn) {
  const lws_protocols protocols[] = {{"http", lws_callback_http_dummy, 0, 0, 0, nullptr, 0}, {}};
  lws_context_creation_info info{};
  info.protocols = protocols;
  const lws_context_creation_info told = for_sessions_only(info);
  ASSERT_NE(told.retry_and_idle_policy, nullptr);
  EXPECT_EQ(told.retry_and_idle_policy->secs_since_valid_ping, 0);
  EXPECT_EQ(told.retry_and_idle_policy->secs_since_valid_hangup, 0);
  EXPECT_STREQ(told.protocols[0].name, "http");
}

TEST_F(WebsockLife, ConnectTellsItsDimensionsAndItsThreads) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(), (Lines{"set_log_level 1023", "create_context", "set_log_level 1023"}));
  EXPECT_EQ(
      capture.lines(LOG_TRACE),
      (Lines{"WebSocket server: threads 1, session capacity 20000, descriptor limit 20003", "Starting 0 lws threads"}));
}

TEST_F(WebsockLife, DescriptorLimitIsTheLibrarysWhileTheContextIsMadeAndRoomierAfterwards) {
  set_soft_limit(1000);
  const DescriptorPlan plan = plan_descriptors(descriptor_limit(), session_capacity);
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  EXPECT_EQ(server.library.soft_limit_at_creation(), plan.while_creating);
  EXPECT_EQ(descriptor_limit().rlim_cur, plan.afterwards);
}

TEST_F(WebsockLife, LowHardLimitIsSaid) {
  const pid_t child = fork();
  if (child == 0) {  // a hard limit never rises again
    const rlimit low{512, 1024};
    setrlimit(RLIMIT_NOFILE, &low);
    FakeServer server;
    const bool said =
        server.worker->connect() &&
        capture.lines(LOG_WARNING) == Lines{"The descriptor limit leaves room for 765 of 20000 WebSocket sessions"} &&
        server.library.soft_limit_at_creation() == 768 && descriptor_limit().rlim_cur == 1024;
    _exit(said ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST_F(WebsockLife, FailedAttemptIsReportedOnceAMinute) {
  ManualClock clock;
  FakeServer server;
  server.library.creations_to_refuse = 1000;
  const Lines reported{"set_log_level 1023", "create_context"};
  const Lines quiet{"set_log_level 0", "create_context"};

  EXPECT_FALSE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(), reported);
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Can't listen on port 8099, trying again"});
  capture.clear();

  clock.advance(59);
  EXPECT_FALSE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(), quiet);
  EXPECT_TRUE(capture.lines().empty());

  clock.advance(1);
  EXPECT_FALSE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(), reported);
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Can't listen on port 8099, trying again"});
}

TEST_F(WebsockLife, FailedAttemptOnAnotherPortIsReportedAtOnce) {
  ManualClock clock;
  FakeServer server;
  server.library.creations_to_refuse = 3;
  EXPECT_FALSE(server.worker->connect());
  ASSERT_TRUE(server.config.load(JsonReader(R"({"global":{"listen_port":8100}})")));
  EXPECT_FALSE(server.worker->connect());
  EXPECT_FALSE(server.worker->connect());
  EXPECT_THAT(capture.lines(LOG_ERROR), ::testing::ElementsAre("Can't listen on port 8099, trying again",
                                                               "Can't listen on port 8100, trying again"));
}

TEST_F(WebsockLife, SuccessEndsTheQuietOfFailedAttempts) {
  ManualClock clock;
  FakeServer server;
  server.library.creations_to_refuse = 2;
  EXPECT_FALSE(server.worker->connect());
  EXPECT_FALSE(server.worker->connect());
  server.library.take_calls();

  EXPECT_TRUE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(), (Lines{"set_log_level 0", "create_context", "set_log_level 1023"}));
  server.worker->disconnect();
  server.library.take_calls();
  server.library.creations_to_refuse = 1;
  EXPECT_FALSE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(), (Lines{"set_log_level 1023", "create_context"}));
}

TEST_F(WebsockLife, ConnectEndsAStandingContextFirst) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  server.library.open(first);
  server.library.take_calls();
  ASSERT_TRUE(server.worker->connect());
  EXPECT_EQ(server.library.take_calls(),
            (Lines{"cancel_service", "context_destroy", "set_log_level 1023", "create_context", "set_log_level 1023"}));
  EXPECT_EQ(server.dispatcher.take(), Lines{"dropped 1"});
}

TEST_F(WebsockLife, DisconnectEndsAllSessionsAndTellsTheDomainWorkers) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  server.library.open_and_make_queue(first);
  server.library.open_and_make_queue(second);
  const BaseSession before = server.session(first);
  server.send("{}", before);

  server.worker->disconnect();
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
  EXPECT_EQ(server.dispatcher.take(), (Lines{"dropped 1", "dropped 2"}));

  // No context, no wake-up: whoever sends now is refused, and nobody touches the library.
  server.library.take_calls();
  server.send("{}", before);
  EXPECT_TRUE(server.library.take_calls().empty());
}

TEST_F(WebsockLife, SessionNumbersGoOnAfterANewConnect) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  server.library.open(first);
  server.library.open(second);
  server.worker->disconnect();
  ASSERT_TRUE(server.worker->connect());
  EXPECT_TRUE(server.worker->sessions_snapshot().empty());
  server.library.open(first);
  EXPECT_EQ(server.session(first).id, 3u);
}

TEST_F(WebsockLife, NothingQueuedForASessionOutlivesADisconnect) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  server.library.open_and_make_queue(first);
  server.send("old", server.session(first));
  server.worker->disconnect();
  ASSERT_TRUE(server.worker->connect());
  server.library.open_and_make_queue(first);
  server.library.take_calls();
  server.library.writeable(first);
  server.library.wake();
  EXPECT_TRUE(server.library.take_calls().empty());
}

TEST_F(WebsockLife, DisconnectWithoutAContextDoesNothing) {
  FakeServer server;
  server.worker->disconnect();
  EXPECT_TRUE(server.library.take_calls().empty());
}

TEST_F(WebsockLife, ThreadsServeUntilDisconnectWakesThem) {
  FakeServer server;
  server.library.threads = 3;
  ASSERT_TRUE(server.worker->connect());
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Starting 3 lws threads"));
  for (const char* call : {"service_tsi 500 0", "service_tsi 500 1", "service_tsi 500 2"}) {
    EXPECT_TRUE(server.library.wait_for_call(call)) << call;
  }
  server.worker->disconnect();
  EXPECT_EQ(server.library.take_calls().back(), "context_destroy");
}

TEST_F(WebsockLife, ThereAreAsManyJsonificatorsAsServiceThreadsButAtMost100) {
  struct {
    int service_threads;
    std::size_t jsonificators;
  } const cases[] = {{1, 1}, {3, 3}, {100, 100}, {101, 100}};
  constexpr std::size_t messages = 300;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.service_threads);
    Mutex mutex;
    std::set<std::thread::id> parsing;
    FakeServer server;
    server.library.threads = c.service_threads;
    server.dispatcher.on_message = [&](const std::string&, const BaseSession&) {
      MutexLock lock(mutex);
      parsing.insert(std::this_thread::get_id());
    };
    ASSERT_TRUE(server.worker->connect());
    server.library.open(first);
    server.dispatcher.hold();  // so that each thread takes one message and no more
    for (std::size_t i = 0; i < messages; ++i) server.library.receive(first, "1");
    const std::size_t held = server.dispatcher.wait_for(c.jsonificators).size();
    EXPECT_GE(held, c.jsonificators);
    server.dispatcher.release();
    server.dispatcher.wait_for(messages - held);
    server.worker->disconnect();
    MutexLock lock(mutex);
    EXPECT_EQ(parsing.size(), c.jsonificators);
  }
}

TEST_F(WebsockLife, ServiceThreadThatTheLibraryEndsIsSaid) {
  FakeServer server;
  server.library.threads = 1;
  server.library.service = [] { return -1; };
  ASSERT_TRUE(server.worker->connect());
  EXPECT_TRUE(server.library.wait_for_call("service_tsi 500 0"));
  server.worker->disconnect();
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"lws thread 0 ended: -1"});
}

TEST_F(WebsockLife, AttemptWithoutThreadsIsAFailedOne) {
  pthread_attr_t usual;
  pthread_attr_t impossible;
  ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
  ASSERT_EQ(pthread_attr_init(&impossible), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&impossible, std::size_t{1} << 46), 0);  // no thread finds such a stack
  FakeServer server;
  server.library.threads = 1;

  ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
  const bool connected = server.worker->connect();
  ASSERT_EQ(pthread_setattr_default_np(&usual), 0);

  EXPECT_FALSE(connected);
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Can't start the WebSocket threads: Resource temporarily unavailable"});
  EXPECT_EQ(server.library.take_calls().back(), "context_destroy");
  EXPECT_TRUE(server.worker->connect());
}

TEST_F(WebsockLife, JsonificatorsWorkOnUntilTheServiceThreadsAreGone) {
  // More than the queue holds, so that the service thread waits for room when the stop comes.
  constexpr int messages = 32768 + 100;
  FakeServer server;
  std::atomic<int> sent{0};
  server.library.threads = 1;
  server.library.service = [&] {
    server.library.open(first);
    for (; sent < messages; ++sent) server.library.receive(first, "{}");
    return 0;
  };
  server.dispatcher.hold();
  ASSERT_TRUE(server.worker->connect());
  ASSERT_EQ(server.dispatcher.wait_for(1), Lines{"message 1 {}"});
  std::thread stopper([&] { server.worker->disconnect(); });
  EXPECT_TRUE(server.library.wait_for_call("cancel_service"));
  server.dispatcher.release();
  stopper.join();
  EXPECT_EQ(sent, messages);
  EXPECT_TRUE(capture.events().empty());  // none was lost for want of room
}

TEST_F(WebsockLife, MessagesThatWereNotParsedWaitForTheNextThreads) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  server.library.open(first);
  server.library.receive(first, R"({"a":1})");
  server.worker->disconnect();
  EXPECT_EQ(server.dispatcher.take(), Lines{"dropped 1"});

  server.library.threads = 1;
  server.library.before_threads = [&] { server.library.open(first); };  // or it would be dropped with its session
  ASSERT_TRUE(server.worker->connect());
  EXPECT_EQ(server.dispatcher.wait_for(1), Lines{R"(message 1 {"a":1})"});
}

TEST_F(WebsockLife, LibraryLogLinesAreOneLineEach) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  capture.clear();
  server.library.log(8, "first\nsecond\n");
  server.library.log(1, "");
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "libwebsocket-debug> 8: first second "},
                                                   {LOG_TRACE, "libwebsocket-debug> 1: "}}));
}

struct ReasonCase {
  int reason;
  Lines lines;
};

TEST_F(WebsockLife, CallbacksLogTheNameOfTheirReason) {
  const ReasonCase cases[] = {
      {0, {"LWS_CALLBACK_ESTABLISHED"}},
      {1, {"LWS_CALLBACK_CLIENT_CONNECTION_ERROR"}},
      {2, {}},
      {3, {"LWS_CALLBACK_CLIENT_ESTABLISHED"}},
      {4, {"LWS_CALLBACK_CLOSED"}},
      {5, {"LWS_CALLBACK_CLOSED_HTTP"}},
      {6, {"LWS_CALLBACK_RECEIVE"}},
      {7, {"LWS_CALLBACK_RECEIVE_PONG"}},
      {8, {"LWS_CALLBACK_CLIENT_RECEIVE"}},
      {9, {"LWS_CALLBACK_CLIENT_RECEIVE_PONG"}},
      {10, {"LWS_CALLBACK_CLIENT_WRITEABLE"}},
      {11, {}},
      {12, {}},
      {19, {"LWS_CALLBACK_SERVER_NEW_CLIENT_INSTANTIATED"}},
      {20, {}},
      {27, {"LWS_CALLBACK_PROTOCOL_INIT"}},
      {28, {"LWS_CALLBACK_PROTOCOL_DESTROY"}},
      {29, {"LWS_CALLBACK_WSI_CREATE"}},
      {30, {}},
      {71, {"LWS_CALLBACK_EVENT_WAIT_CANCELLED"}},
      {1000, {}},
      {1001, {"LWS_CALLBACK_FDS_LIMIT"}},
  };
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  for (const ReasonCase& c : cases) {
    SCOPED_TRACE(c.reason);
    capture.clear();
    EXPECT_EQ(server.library.call(second, static_cast<lws_callback_reasons>(c.reason)), 0);
    EXPECT_EQ(capture.lines(LOG_TRACE), c.lines);
  }
}

// Fails on every callback that logs its name.
void failing_log(const char*, int, const char*, int, const char* format, va_list args) {
  char text[256];
  std::vsnprintf(text, sizeof text, format, args);
  if (std::strncmp(text, "LWS_CALLBACK_", 13) == 0) throw std::runtime_error("no log");
}

std::atomic<int> last_event{0};
void note_event(const int& id, const std::shared_ptr<std::string>& payload) {
  last_event = payload ? -id : id;
}

TEST_F(WebsockLife, ExceptionClosesTheConnectionButNeverTheLibrarysWakeUp) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  struct {
    lws_callback_reasons reason;
    int result;
  } const cases[] = {
      {LWS_CALLBACK_ESTABLISHED, -1},         {LWS_CALLBACK_CLOSED, -1},       {LWS_CALLBACK_RECEIVE, -1},
      {LWS_CALLBACK_WSI_CREATE, -1},          {LWS_CALLBACK_PROTOCOL_INIT, 0}, {LWS_CALLBACK_PROTOCOL_DESTROY, 0},
      {LWS_CALLBACK_EVENT_WAIT_CANCELLED, 0},
  };
  set_log_hook(failing_log);
  set_event_hook(note_event);
  for (const auto& c : cases) {
    last_event = 0;
    EXPECT_EQ(server.library.call(first, c.reason), c.result) << c.reason;
    EXPECT_EQ(last_event, 10) << c.reason;
  }
}

TEST_F(WebsockLife, ExceptionOfAnActionIsLogged) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  capture.clear();
  server.library.on_get_tsi = [] { throw std::runtime_error("no index"); };
  EXPECT_EQ(server.library.call(first, LWS_CALLBACK_ESTABLISHED), -1);
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Exception at processing message on websock-server-worker: no index"});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{10, false, ""}}));
}

TEST_F(WebsockLife, ExceptionOfAnotherFamilyIsPassedOn) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  server.library.on_get_tsi = [] { throw 42; };
  EXPECT_THROW(server.library.call(first, LWS_CALLBACK_ESTABLISHED), int);
  server.library.on_get_tsi = nullptr;
}

TEST_F(WebsockLife, CallbackWithoutAWorkerFails) {
  lws_callback_function* callback = nullptr;
  {
    FakeServer server;
    ASSERT_TRUE(server.worker->connect());
    callback = server.library.callback();
    EXPECT_EQ(callback(first, LWS_CALLBACK_WSI_CREATE, nullptr, nullptr, 0), 0);
  }
  EXPECT_EQ(callback(first, LWS_CALLBACK_WSI_CREATE, nullptr, nullptr, 0), -1);
}

TEST_F(WebsockLife, DestructionEndsAContextThatNobodyDisconnected) {
  auto server = std::make_unique<FakeServer>();
  ASSERT_TRUE(server->worker->connect());
  server->library.take_calls();
  server->worker.reset();
  EXPECT_EQ(server->library.take_calls(), (Lines{"cancel_service", "context_destroy"}));
}

TEST_F(WebsockLife, StartAndStopRunTheWholeLife) {
  FakeServer server;
  server.library.threads = 1;
  for (int round = 0; round < 2; ++round) {
    server.worker->start();
    EXPECT_TRUE(server.library.wait_for_call("service_tsi 500 0"));
    server.worker->stop();
    EXPECT_EQ(server.library.take_calls().back(), "context_destroy");
  }
}

TEST_F(WebsockLife, ItsOwnThreadRestsTenMillisecondsAtATime) {
  testing::SleepRecorder clock;
  std::promise<void> rested;
  clock.on_sleep = [&] {
    if (clock.count() == 5) rested.set_value();
  };
  FakeServer server;
  server.worker->start();
  rested.get_future().wait();
  server.worker->stop();
  EXPECT_THAT(clock.sleeps(), ::testing::Each(10000u));
}

TEST_F(WebsockLife, FailingAttemptsGoOnUntilTheStop) {
  FakeServer server;
  server.library.creations_to_refuse = 1 << 30;
  server.worker->start();
  EXPECT_TRUE(server.library.wait_for_call("set_log_level 0"));  // the second attempt
  server.worker->stop();
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Can't listen on port 8099, trying again"});
}

TEST_F(WebsockLife, StatusListsSessionsWithIdAndPeer) {
  FakeServer server;
  ASSERT_TRUE(server.worker->connect());
  for (const bool details : {false, true}) {
    JsonWriter none;
    details ? server.worker->report_details(none) : server.worker->report_status(none);
    EXPECT_STREQ(none.to_string(), R"({"websock-sessions":[]})");
  }
  server.library.peer(first).address = "10.1.2.3";
  server.library.open(first);
  for (const bool details : {false, true}) {
    JsonWriter one;
    details ? server.worker->report_details(one) : server.worker->report_status(one);
    EXPECT_STREQ(one.to_string(), R"({"websock-sessions":[{"id":1,"peer":"10.1.2.3"}]})");
  }
}

}  // namespace
}  // namespace rrm
