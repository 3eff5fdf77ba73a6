// When balancing is paused: while the plan measures, by order, and when the worker cannot keep up.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/QueueMessage.h"
#include "domain/steering_support.h"
#include "json/JsonReader.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;

class Pause : public SteeringTest {
 protected:
  // A worker whose queue holds so many messages that nobody takes.
  void start_with_queued(int messages) {
    worker = std::make_shared<RrmWorker>(&global, settings, domain, &server, 0, 1024, optimization);
    worker->connect();
    for (int i = 0; i < messages; ++i) {
      worker->enqueue_message(JsonReader(R"({"service":"rrm","cmd":"subscribe-request"})"), BaseSession{});
    }
    journal.take();
  }
  bool paused() {
    bool is_paused = false;
    locked([&](RrmWorker& lab) { is_paused = lab.balancing_paused(); });
    return is_paused;
  }
  // "load_balancer_stop: 1 counter: 6", as each tick tells it.
  std::vector<std::string> states() {
    std::vector<std::string> found;
    for (const std::string& line : journal.lines("TRACE Domain lab state")) {
      const std::size_t from = line.find("load_balancer_stop");
      found.push_back(line.substr(from, line.find(" Metrics") - from));
    }
    journal.take();
    return found;
  }
  void order_stop() { receive(1, R"({"service":"rrm-internal","cmd":"stop-load-balancer"})"); }
};

TEST_F(Pause, AWorkerThatCannotKeepUpPausesBalancing) {
  start_with_queued(255);
  advance(1);
  EXPECT_FALSE(paused());
  start_with_queued(256);
  advance(1);
  EXPECT_TRUE(paused());
}

TEST_F(Pause, BothRingsOfTheQueueCount) {
  start_with_queued(255);
  worker->enqueue_message_force(JsonReader(R"({"service":"rrm","cmd":"subscribe-request"})"), BaseSession{});
  advance(1);
  EXPECT_TRUE(paused());
}

TEST_F(Pause, WithoutBalancingNobodyWatchesTheQueue) {
  settings.use_balance = false;
  settings.use_80211v = true;
  start_with_queued(256);
  advance(1);
  EXPECT_FALSE(paused());
}

TEST_F(Pause, AnOverloadThatLastsRenewsThePauseOnlyJustBeforeItEnds) {
  start_with_queued(256);
  advance(80);
  EXPECT_THAT(states(), ElementsAre("load_balancer_stop: 1 counter: 6", "load_balancer_stop: 1 counter: 5",
                                    "load_balancer_stop: 1 counter: 4", "load_balancer_stop: 1 counter: 3",
                                    "load_balancer_stop: 1 counter: 2", "load_balancer_stop: 1 counter: 6",
                                    "load_balancer_stop: 1 counter: 5", "load_balancer_stop: 1 counter: 4"));
}

TEST_F(Pause, AnOrderPausesBalancingForAMinute) {
  start_site();
  order_stop();
  advance(59);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({acknowledged(ap_a, 1)}));
  advance(1);
  tell(associated(ap_a, 1, -80));
  EXPECT_LINES(sent(), ({asked(ap_b, {1}), asked(ap_c, {1})}));
}

TEST_F(Pause, ASecondOrderBeginsTheMinuteAnew) {
  start_site();
  order_stop();
  advance(30);
  order_stop();
  advance(59);
  EXPECT_TRUE(paused());
  advance(1);
  EXPECT_FALSE(paused());
}

TEST_F(Pause, ThePlanAndAnOrderPauseIndependently) {
  start_site();
  lock_balancing(true);
  order_stop();
  advance(60);
  EXPECT_TRUE(paused());
  lock_balancing(false);
  EXPECT_FALSE(paused());
}

TEST_F(Pause, ATickLongerThanThePauseEndsIt) {
  settings.tick = 61;
  start_site();
  order_stop();
  EXPECT_TRUE(paused());
  advance(61);
  EXPECT_FALSE(paused());
}

}  // namespace
}  // namespace rrm::testing
