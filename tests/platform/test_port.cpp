// The process's port: the run order, the service, and peers that misbehave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/bus_peer.h"
#include "platform/standalone/AlarmMailbox.h"
#include "platform/standalone/Backlog.h"
#include "platform/standalone/messages.h"
#include "platform/trace_file.h"
#include "zal/IpcPort.h"
#include "zal/alarm.h"

namespace zal {
namespace {

using namespace std::chrono_literals;
using bus::Fields;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using zal::testing::BusPeer;
using zal::testing::framed;
using Steady = std::chrono::steady_clock;

Fields frame(int type) {
  return {{"type", std::int64_t{type}}};
}

Fields setup(const std::string& text) {
  return {{"type", std::int64_t{126}}, {"text", text}};
}

Fields served(int id, Error error) {
  return {{"type", std::int64_t{1004}}, {"id", std::int64_t{id}}, {"error", std::int64_t{static_cast<int>(error)}}};
}

Fields with_id(Fields fields, int id) {
  fields.set("id", std::int64_t{id});
  return fields;
}

Fields opened(bool running) {
  return {
      {"type", std::int64_t{1000}}, {"port", std::int64_t{8}}, {"pid", std::int64_t{getpid()}}, {"running", running}};
}

Fields alarm(const std::string& location, int status) {
  return {{"type", std::int64_t{1003}}, {"location", location}, {"status", std::int64_t{status}}};
}

class Port : public ::testing::Test {
 protected:
  Port() {
    AlarmMailbox::instance().take();
    port_.emplace(PortId::rrm, trace_);
    EXPECT_TRUE(peer_.accept());
    peer_.receive();
  }

  // Registers a callback that keeps every message's text, and lets the port run.
  void start() {
    ASSERT_TRUE(
        port_->register_msg_callback([this](const IMsg& msg, IpcPort&, void*) { return on_message(msg); }, nullptr));
    order_run();
  }
  void order_run() {
    peer_.send(frame(bus::bus_run));
    ASSERT_TRUE(ipc_send_ready_and_wait_for_run(*port_));
    peer_.receive();
  }
  Error on_message(const IMsg& msg) {
    const auto* const text = dynamic_cast<const IPC_MSG__RRM_SETUP*>(&msg);
    messages_.push_back(std::to_string(msg.type()) + (text ? " " + *text->text : ""));
    if (react_) react_();
    return result_;
  }
  // Serves until the condition holds.
  void serve_until(const std::function<bool()>& condition) {
    const auto deadline = Steady::now() + 20s;
    bool is_met = condition();
    while (!is_met && Steady::now() < deadline) {
      port_->run_once_for_timeout(5);
      is_met = condition();
    }
    ASSERT_TRUE(is_met);
  }
  void serve_messages(std::size_t count) {
    serve_until([&] { return messages_.size() >= count; });
  }

  zal::testing::TraceFile log_;
  const Trace trace_{"RRM", false};
  BusPeer peer_;
  std::optional<IpcPort> port_;
  std::vector<std::string> messages_;
  std::function<void()> react_;
  Error result_ = Error::none;
};

TEST(PortOpening, WithoutABusThereIsNoPort) {
  const Trace trace("RRM", false);
  const auto reason = [&trace] {
    try {
      const IpcPort port(PortId::rrm, trace);
      return std::string("none");
    } catch (const std::runtime_error& e) {
      return std::string(e.what());
    }
  };
  unsetenv(bus::bus_variable);
  EXPECT_EQ(reason(), "cannot join the bus: ZAL_BUS is not set");
  setenv(bus::bus_variable, "/nowhere/bus.sock", 1);
  EXPECT_EQ(reason(), "cannot join the bus at '/nowhere/bus.sock': No such file or directory");
  unsetenv(bus::bus_variable);
}

TEST(PortOpening, APortSaysWhoItIs) {
  const Trace trace("RRM", false);
  BusPeer peer;
  const IpcPort port(PortId::rrm, trace);
  ASSERT_TRUE(peer.accept());
  EXPECT_THAT(peer.receive(), ElementsAre(opened(false)));
}

TEST_F(Port, OneCallbackIsTakenAndNoEmptyOne) {
  const auto callback = [](const IMsg&, IpcPort&, void*) { return Error::none; };
  EXPECT_FALSE(port_->register_msg_callback(nullptr, nullptr));
  EXPECT_TRUE(port_->register_msg_callback(callback, nullptr));
  EXPECT_FALSE(port_->register_msg_callback(callback, nullptr));
}

TEST_F(Port, TheCallbackGetsTheMessageThePortAndTheUser) {
  int user = 0;
  const IpcPort* seen_port = nullptr;
  void* seen_user = nullptr;
  port_->register_msg_callback(
      [&](const IMsg&, IpcPort& port, void* given) {
        seen_port = &port;
        seen_user = given;
        return Error::none;
      },
      &user);
  order_run();
  peer_.send(frame(33));
  serve_until([&] { return seen_port != nullptr; });
  EXPECT_EQ(seen_port, &*port_);
  EXPECT_EQ(seen_user, &user);
}

TEST_F(Port, ReadyIsSaidAndTheOrderAwaited) {
  std::atomic<bool> is_ordered{false};
  std::thread supervisor([&] {
    const auto deadline = Steady::now() + 20s;
    std::vector<Fields> frames;
    while (frames.empty() && Steady::now() < deadline) frames = peer_.receive();
    EXPECT_THAT(frames, ElementsAre(frame(bus::bus_ready)));
    is_ordered = true;
    peer_.send(frame(bus::bus_run));
  });
  EXPECT_TRUE(ipc_send_ready_and_wait_for_run(*port_));
  EXPECT_TRUE(is_ordered);
  supervisor.join();
}

TEST_F(Port, ABusThatGoesAwayWhileWaitingFails) {
  peer_.hang_up();
  EXPECT_FALSE(ipc_send_ready_and_wait_for_run(*port_));
}

TEST_F(Port, ASignalDoesNotEndTheWaitForTheOrder) {
  signal(SIGUSR1, [](int) {});
  const pthread_t main_thread = pthread_self();
  std::thread supervisor([&] {
    const auto deadline = Steady::now() + 20s;
    while (peer_.receive().empty() && Steady::now() < deadline) {
    }
    for (int i = 0; i < 20; ++i) pthread_kill(main_thread, SIGUSR1);
    peer_.send(frame(bus::bus_run));
  });
  EXPECT_TRUE(ipc_send_ready_and_wait_for_run(*port_));
  supervisor.join();
  signal(SIGUSR1, SIG_DFL);
}

TEST_F(Port, NothingIsServedBeforeTheRunOrder) {
  port_->register_msg_callback([this](const IMsg& msg, IpcPort&, void*) { return on_message(msg); }, nullptr);
  peer_.send(setup("first"));
  peer_.send(frame(143));
  port_->run_once_for_timeout(1);
  EXPECT_THAT(messages_, IsEmpty());
  order_run();
  EXPECT_THAT(messages_, IsEmpty());
  peer_.send(setup("second"));
  serve_messages(3);
  EXPECT_THAT(messages_, ElementsAre("126 first", "143", "126 second"));
}

TEST_F(Port, EveryTypeOfTheFamilyArrivesWithItsFields) {
  std::vector<std::string> seen;
  port_->register_msg_callback(
      [&](const IMsg& msg, IpcPort&, void*) {
        if (const auto* ap = dynamic_cast<const IPC_MSG__RRM_AP_INFO*>(&msg))
          seen.push_back(*ap->mac + "/" + *ap->text);
        if (const auto* state = dynamic_cast<const IPC_MSG__VRRP_STATE*>(&msg))
          seen.push_back(std::to_string(state->state));
        if (const auto* text = dynamic_cast<const IPC_MSG__RRM_SETUP*>(&msg)) seen.push_back(*text->text);
        if (dynamic_cast<const IpcMsgOther*>(&msg)) seen.push_back("other " + std::to_string(msg.type()));
        return Error::none;
      },
      nullptr);
  order_run();
  peer_.send({{"type", std::int64_t{132}}, {"mac", "a8f94b001122"}, {"text", "{}"}});
  peer_.send({{"type", std::int64_t{162}}, {"state", std::int64_t{-1}}});
  peer_.send(setup("{\"global\":{}}"));
  peer_.send(frame(7777));
  peer_.send(frame(-3));
  serve_until([&] { return seen.size() == 5; });
  EXPECT_THAT(seen, ElementsAre("a8f94b001122/{}", "-1", "{\"global\":{}}", "other 7777", "other -3"));
}

TEST_F(Port, AMessageWithoutItsFieldsNeverReachesTheCallback) {
  start();
  peer_.send(with_id(frame(126), 1));
  peer_.send(with_id({{"type", std::int64_t{126}}, {"text", true}}, 2));
  peer_.send(with_id({{"type", std::int64_t{132}}, {"mac", "x"}}, 3));
  peer_.send(with_id({{"type", std::int64_t{162}}, {"state", "1"}}, 4));
  peer_.send(with_id({{"type", std::int64_t{162}}, {"state", std::int64_t{2147483648}}}, 5));
  peer_.send(setup("good"));
  serve_messages(1);
  EXPECT_THAT(messages_, ElementsAre("126 good"));
  EXPECT_THAT(log_.lines(), ElementsAre("ERROR [RRM] IPC: message 126 refused: no text 'text'",
                                        "ERROR [RRM] IPC: message 126 refused: no text 'text'",
                                        "ERROR [RRM] IPC: message 132 refused: no text 'text'",
                                        "ERROR [RRM] IPC: message 162 refused: no number 'state'",
                                        "ERROR [RRM] IPC: message 162 refused: no number 'state'"));
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(),
              ElementsAre(served(1, Error::malformed), served(2, Error::malformed), served(3, Error::malformed),
                          served(4, Error::malformed), served(5, Error::malformed)));
}

TEST_F(Port, AFrameWithAnIdIsAcknowledgedWithTheResult) {
  start();
  peer_.send(with_id(frame(143), 7));
  peer_.send(frame(143));
  serve_messages(2);
  result_ = Error::unknown_message;
  peer_.send(with_id(frame(5), 8));
  serve_messages(3);
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(), ElementsAre(served(7, Error::none), served(8, Error::unknown_message)));
}

TEST_F(Port, AReplyCarriesTheIdOfItsRequestAndComesBeforeTheAcknowledgement) {
  start();
  port_->set_SendAndRecv();
  react_ = [this] { port_->send(std::make_shared<IPC_MSG__VRRP_STATE>()); };
  peer_.send(with_id(frame(173), 9));
  peer_.send(frame(173));
  serve_messages(2);
  port_->run_once_for_timeout(1);
  const Fields reply{{"type", std::int64_t{162}}, {"state", std::int64_t{3}}};
  EXPECT_THAT(peer_.receive(), ElementsAre(with_id(reply, 9), served(9, Error::none), reply));
}

TEST_F(Port, AnAcknowledgementDoesNotWaitForThePeers) {
  start();
  react_ = [this] { port_->send(std::make_shared<IPC_MSG__VRRP_STATE>()); };
  peer_.send(with_id(frame(173), 9));
  serve_messages(1);
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(), ElementsAre(served(9, Error::none)));
}

TEST_F(Port, WhatIsSentWaitsUntilThePeersAreThere) {
  start();
  auto message = std::make_shared<IPC_MSG__RRM_SETUP>();
  message->text = std::make_shared<std::string>("one");
  port_->send(message);
  message->text = std::make_shared<std::string>("two");
  port_->send(message);
  port_->send(nullptr);
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(), IsEmpty());
  port_->set_SendAndRecv();
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(), ElementsAre(setup("one"), setup("two")));
}

TEST_F(Port, AFinalisedPortServesNothingMore) {
  start();
  react_ = [this] { port_->finalize(); };
  EXPECT_FALSE(port_->is_finalized());
  peer_.send(with_id(frame(33), 1));
  peer_.send(frame(143));
  serve_messages(1);
  EXPECT_TRUE(port_->is_finalized());
  port_->run_once_for_timeout(5);
  EXPECT_THAT(messages_, ElementsAre("33"));
  port_.reset();
  EXPECT_THAT(peer_.receive(), ElementsAre(served(1, Error::none)));
}

TEST_F(Port, AnExceptionOfTheCallbackPassesThrough) {
  start();
  react_ = [] { throw std::runtime_error("digest"); };
  peer_.send(with_id(frame(126), 1));
  peer_.send(setup("x"));
  EXPECT_THROW(serve_messages(1), std::runtime_error);
  react_ = nullptr;
  peer_.send(setup("y"));
  serve_messages(2);
  EXPECT_THAT(messages_, ElementsAre("126 x", "126 y"));
}

TEST_F(Port, WaitingForTrafficTakesNoCpuTime) {
  start();
  rusage before{};
  rusage after{};
  const auto started = Steady::now();
  getrusage(RUSAGE_THREAD, &before);
  for (int i = 0; i < 20; ++i) port_->run_once_for_timeout(25);
  getrusage(RUSAGE_THREAD, &after);
  EXPECT_GE(Steady::now() - started, 500ms);
  const auto switches = after.ru_nvcsw - before.ru_nvcsw;
  EXPECT_GE(switches, 20);
  EXPECT_LE(switches, 100);
}

TEST_F(Port, ASignalEndsThePassSoThatItIsActedOn) {
  start();
  signal(SIGUSR1, [](int) {});
  const pthread_t main_thread = pthread_self();
  std::atomic<bool> is_over{false};
  std::thread sender([&] {
    while (!is_over) pthread_kill(main_thread, SIGUSR1);
  });
  const auto started = Steady::now();
  port_->run_once_for_timeout(60000);
  EXPECT_LT(Steady::now() - started, 30s);
  is_over = true;
  sender.join();
  signal(SIGUSR1, SIG_DFL);
}

// Each kind of bad frame is logged and refused, and the port serves the next good one.
TEST_F(Port, BadFramesAreRefusedAndThePortLivesOn) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {framed("nonsense"), "no JSON, from byte 2"},
      {framed(""), "no JSON, from byte 1"},
      {framed("[126]"), "no JSON object"},
      {framed("{\"text\":\"x\"}"), "no number 'type'"},
      {framed("{\"type\":\"126\"}"), "no number 'type'"},
      {framed("{\"type\":2147483648}"), "no number 'type'"},
      {framed("{\"type\":null}"), "no number 'type'"},
      {framed("{\"type\":126,\"text\":{}}"), "the field 'text' is neither text, integer nor boolean"},
  };
  start();
  std::vector<std::string> expected_lines;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].second);
    ASSERT_TRUE(peer_.send_bytes(cases[i].first));
    peer_.send(setup("good"));
    serve_messages(i + 1);
    expected_lines.push_back("ERROR [RRM] IPC: frame refused: " + cases[i].second);
  }
  EXPECT_EQ(log_.lines(), expected_lines);
}

TEST_F(Port, AFrameThatIsTooLongIsSkipped) {
  start();
  const std::string chunk(64u << 10, 'x');
  std::size_t left = bus::max_payload + 1;
  ASSERT_TRUE(peer_.send_bytes(std::string("\x01\x00\x00\x04", 4)));
  while (left > 0) {
    const std::string part = chunk.substr(0, left);
    ASSERT_TRUE(peer_.send_bytes(part));
    left -= part.size();
    port_->run_once_for_timeout(0);
  }
  peer_.send(setup("behind"));
  serve_messages(1);
  EXPECT_THAT(messages_, ElementsAre("126 behind"));
  EXPECT_THAT(log_.lines(), ElementsAre("ERROR [RRM] IPC: frame refused: 67108865 bytes, at most 67108864"));
}

TEST_F(Port, AFloodOfBadFramesIsNotAFloodOfLines) {
  start();
  std::string flood;
  for (int i = 0; i < 1000; ++i) flood += framed("?");
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(peer_.send_bytes(flood));
    port_->run_once_for_timeout(0);
  }
  peer_.send(setup("good"));
  serve_messages(1);
  EXPECT_LE(log_.lines().size(), 10u * 21);
}

TEST_F(Port, AFloodDoesNotKeepAPassFromEnding) {
  start();
  std::atomic<bool> is_over{false};
  react_ = [&] { std::this_thread::yield(); };
  std::thread flooder([&] {
    while (!is_over) peer_.send_bytes(*bus::encode_frame(frame(143)));
  });
  for (int i = 0; i < 10; ++i) {
    const auto started = Steady::now();
    port_->run_once_for_timeout(25);
    EXPECT_LT(Steady::now() - started, 10s);
  }
  is_over = true;
  port_.reset();
  flooder.join();
  EXPECT_FALSE(messages_.empty());
}

TEST_F(Port, EveryPassServesAtLeastOneOfWhatWaits) {
  start();
  for (int i = 0; i < 3; ++i) peer_.send(setup(std::to_string(i)));
  port_->run_once_for_timeout(1);
  for (int i = 0; i < 3; ++i) port_->run_once_for_timeout(0);
  EXPECT_THAT(messages_, ElementsAre("126 0", "126 1", "126 2"));
}

TEST_F(Port, HalfAFrameAndAHangUpDoNotHurt) {
  start();
  ASSERT_TRUE(peer_.send_bytes(framed("{\"type\":143}").substr(0, 9)));
  port_->run_once_for_timeout(1);
  peer_.hang_up();
  serve_until([&] { return peer_.accept(); });
  EXPECT_THAT(peer_.receive(), ElementsAre(opened(true)));
  peer_.send(setup("again"));
  serve_messages(1);
  EXPECT_THAT(log_.lines(), ElementsAre("ERROR [RRM] IPC: the bus is gone in the middle of a frame",
                                        "SYS   [RRM] IPC: joined the bus again"));
}

TEST_F(Port, WhatIsSentWhileTheBusIsGoneArrivesLater) {
  start();
  port_->set_SendAndRecv();
  peer_.close_bus();
  serve_until([&] { return log_.lines().size() == 1; });
  port_->send(std::make_shared<IPC_MSG__VRRP_STATE>());
  const auto started = Steady::now();
  port_->run_once_for_timeout(50);
  EXPECT_GE(Steady::now() - started, 50ms);
  peer_.open_bus();
  serve_until([&] { return peer_.accept(); });
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(), Contains(Fields{{"type", std::int64_t{162}}, {"state", std::int64_t{3}}}));
}

TEST_F(Port, APeerThatNeverReadsCostsOnlyLostFrames) {
  start();
  port_->set_SendAndRecv();
  auto message = std::make_shared<IPC_MSG__RRM_SETUP>();
  message->text = std::make_shared<std::string>(8u << 20, 'x');
  for (int i = 0; i < 12; ++i) {
    port_->send(message);
    const auto started = Steady::now();
    port_->run_once_for_timeout(0);
    EXPECT_LT(Steady::now() - started, 10s);
  }
  EXPECT_THAT(log_.lines(), Contains(HasSubstr("IPC: frame of 8388634 bytes lost: the peer does not read")));
  peer_.send(setup("served all the same"));
  serve_messages(1);
}

TEST_F(Port, AMessageThatIsTooLongIsNotSent) {
  start();
  port_->set_SendAndRecv();
  auto message = std::make_shared<IPC_MSG__RRM_SETUP>();
  message->text = std::make_shared<std::string>(bus::max_payload, 'x');
  port_->send(message);
  EXPECT_THAT(log_.lines(), ElementsAre("ERROR [RRM] IPC: message 126 not sent: longer than 67108864 bytes"));
}

TEST(PortBacklog, KeepsSoManyBytesAndAlwaysOneFrame) {
  Backlog<std::string> backlog(10);
  EXPECT_TRUE(backlog.push("longer than all", 15));
  EXPECT_FALSE(backlog.push("", 1));
  EXPECT_EQ(backlog.pop(), "longer than all");
  EXPECT_TRUE(backlog.push("first", 4));
  EXPECT_TRUE(backlog.push("second", 6));
  EXPECT_FALSE(backlog.push("third", 1));
  EXPECT_EQ(backlog.pop(), "first");
  EXPECT_TRUE(backlog.push("third", 4));
  EXPECT_EQ(backlog.pop(), "second");
  EXPECT_EQ(backlog.pop(), "third");
  EXPECT_TRUE(backlog.empty());
}

TEST_F(Port, AlarmsOfAllThreadsArriveInTheirOrder) {
  start();
  port_->set_SendAndRecv();
  constexpr int count = 200;
  std::vector<std::thread> threads;
  for (const char* location : {"a", "b"})
    threads.emplace_back([location] {
      for (int i = 0; i < count; ++i)
        emit_alarm_MORVANE_OPTIMIZATION_STATUS_CHANGED(location, static_cast<MorvaneOptimizationEventType>(i));
    });
  std::vector<Fields> a;
  std::vector<Fields> b;
  serve_until([&] {
    for (const Fields& got : peer_.receive()) (*got.text("location") == "a" ? a : b).push_back(got);
    return a.size() + b.size() == 2 * count;
  });
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < count; ++i) {
    EXPECT_EQ(a.at(static_cast<std::size_t>(i)), alarm("a", i));
    EXPECT_EQ(b.at(static_cast<std::size_t>(i)), alarm("b", i));
  }
}

TEST_F(Port, AnAlarmWakesAPassThatWaits) {
  start();
  port_->set_SendAndRecv();
  std::thread raiser(
      [] { emit_alarm_MORVANE_OPTIMIZATION_STATUS_CHANGED("hall", MorvaneOptimizationEventType::waiting_for_scans); });
  raiser.join();
  port_->run_once_for_timeout(1);
  EXPECT_THAT(peer_.receive(), ElementsAre(alarm("hall", 3)));
}

TEST(AlarmMailbox, WhatDoesNotFitIsRefused) {
  AlarmMailbox mailbox;
  for (std::size_t i = 0; i < AlarmMailbox::capacity; ++i) ASSERT_TRUE(mailbox.put("x"));
  EXPECT_FALSE(mailbox.put("y"));
  EXPECT_EQ(mailbox.take().size(), AlarmMailbox::capacity);
  EXPECT_TRUE(mailbox.put("z"));
  EXPECT_THAT(mailbox.take(), ElementsAre("z"));
}

}  // namespace
}  // namespace zal
