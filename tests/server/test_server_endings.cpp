// Workers that end by themselves, and what may happen to their messages meanwhile.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/QueueMessage.h"
#include "server/server_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class Endings : public ::testing::Test {
 protected:
  // A domain worker that runs, stands in the map, and ends itself on the message "end"; it holds that message until
  // the gate opens.
  std::shared_ptr<ProbeWorker> an_ending_worker(const std::string& domain = "lab") {
    auto worker = std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = domain});
    worker->hooks.message = [this, raw = worker.get()](const std::string& cmd) {
      if (cmd != "end") return;
      ending.open();
      end_now.wait();
      raw->end();
    };
    server.adopt(worker);
    worker->start();
    worker->push("end");
    ending.wait();
    return worker;
  }
  // The worker that came after `old`.
  std::shared_ptr<ProbeWorker> heir_of(const ProbeWorker& old) {
    std::shared_ptr<ProbeWorker> heir;
    const bool came = eventually([&] {
      heir = server.probe(old.name);
      return heir != nullptr && heir.get() != &old;
    });
    if (!came) throw std::runtime_error("no other worker came");
    return heir;
  }
  void receive(const std::string& cmd, std::uint32_t session_id = 1) {
    server.receive(ap_message(cmd, "lab"), session_id);
  }

  Capture capture;
  GlobalConfig config{"", three_domains};
  Gate ending;
  Gate end_now;
  TestServer server{&config};
};

TEST_F(Endings, AWorkerThatEndsItselfLeavesTheMap) {
  an_ending_worker();
  end_now.open();
  EXPECT_TRUE(eventually([&] { return server.domains().empty(); }));
}

TEST_F(Endings, TheNextSubscribeMakesAFreshWorker) {
  const auto old = an_ending_worker();
  end_now.open();
  ASSERT_TRUE(eventually([&] { return server.domains().empty(); }));
  receive("subscribe-request", 4);
  const auto fresh = heir_of(*old);
  fresh->record->await("lab: subscribe-request");
  EXPECT_EQ(fresh->last_sender(), 4u);
}

TEST_F(Endings, AnotherWorkerOfTheSameNameStays) {
  const auto old = an_ending_worker();
  const auto successor = std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "lab"});
  server.adopt(successor);
  end_now.open();
  ASSERT_TRUE(eventually([&] { return old.use_count() == 1; })) << "its thread is at its end";
  EXPECT_EQ(server.probe("lab"), successor);
  old->stop();
}

// --- Leftovers.

TEST_F(Endings, WhatItLeftQueuedIsRoutedAgainInOrder) {
  const auto old = an_ending_worker();
  receive("rrm-response");
  receive("subscribe-request");
  receive("rrm-mode-response");
  end_now.open();
  const auto heir = heir_of(*old);
  heir->record->await("lab: rrm-mode-response");
  EXPECT_THAT(old->record->lines(), ElementsAre("lab: connect", "lab: end", "lab: disconnect"));
  EXPECT_THAT(heir->record->lines(), ElementsAre("lab: connect", "lab: subscribe-request", "lab: rrm-mode-response"))
      << "what came before the subscribe finds no worker";
  EXPECT_EQ(server.made().size(), 1u);
}

TEST_F(Endings, OrdersLeftQueuedReachTheHeirOfTheName) {
  const auto old = an_ending_worker();
  receive("subscribe-request", 4);
  server.drop_session_at_rrm_workers(session_of(4));
  end_now.open();
  const auto heir = heir_of(*old);
  heir->record->await("lab: drop-session");
  heir->record->await("lab: subscribe-request");
}

TEST_F(Endings, WithoutASubscribeTheLeftoversVanish) {
  const auto old = an_ending_worker();
  receive("rrm-response");
  server.drop_session_at_rrm_workers(session_of(4));
  end_now.open();
  ASSERT_TRUE(eventually([&] { return server.domains().empty(); }));
  server.release();
  EXPECT_EQ(old->queued(), 0u);
  EXPECT_THAT(server.made(), IsEmpty());
}

TEST_F(Endings, ALeftoverOrderToStopDoesNotReachTheHeir) {
  const auto old = an_ending_worker();
  receive("subscribe-request");
  old->enqueue_message(JsonReader(internal_message::stop), no_session);
  receive("rrm-response");
  end_now.open();
  const auto heir = heir_of(*old);
  heir->record->await("lab: rrm-response");
  EXPECT_EQ(server.probe("lab"), heir);
  EXPECT_FALSE(capture.has_line(LOG_TRACE, "Aborting lab"));
}

TEST_F(Endings, AWorkerThatFellLeavesItsMessagesToTheNext) {
  const auto fallen = std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "lab"});
  fallen->hooks.message = [](const std::string&) { throw std::runtime_error("broken"); };
  server.adopt(fallen);
  receive("rrm-response", 1);
  receive("subscribe-request", 2);
  fallen->start();
  const auto heir = heir_of(*fallen);
  heir->record->await("lab: subscribe-request");
  EXPECT_EQ(heir->last_sender(), 2u);
}

TEST_F(Endings, AMessageThatWaitsWhenATimerEndsTheWorkerIsRoutedAgain) {
  const auto ended = std::make_shared<ProbeWorker>(&server, ProbeWorker::Options{.name = "lab"});
  ended->hooks.before = [raw = ended.get()] { raw->end(); };
  server.adopt(ended);
  receive("subscribe-request", 8);
  ended->start();
  const auto heir = heir_of(*ended);
  heir->record->await("lab: subscribe-request");
  EXPECT_EQ(heir->last_sender(), 8u);
  EXPECT_THAT(ended->record->lines(), ElementsAre("lab: connect", "lab: disconnect"));
}

// --- A message on its way to a worker that ends.

// Pushes only once the worker has left the map, as a router may that was delayed after its look-up.
class LateWorker : public ProbeWorker {
 public:
  using ProbeWorker::ProbeWorker;
  void enqueue_message(JsonReader&& json, const BaseSession& session) override {
    wait_until_gone();
    ProbeWorker::enqueue_message(std::move(json), session);
  }
  void enqueue_message_force(JsonReader&& json, const BaseSession& session) override {
    wait_until_gone();
    ProbeWorker::enqueue_message_force(std::move(json), session);
  }
  std::function<void()> wait_until_gone;
};

TEST_F(Endings, AMessageThatArrivesAfterTheEndIsRoutedAgain) {
  const auto late = std::make_shared<LateWorker>(&server, ProbeWorker::Options{.name = "lab"});
  server.adopt(late);
  late->wait_until_gone = [&] {
    late->hooks.before = [&] { late->end(); };
    late->start();
    // The end of the thread: its own reference is gone.
    ASSERT_TRUE(eventually([&] { return server.domains().empty() && late.use_count() == 2; }));
  };
  receive("subscribe-request", 8);
  const auto heir = heir_of(*late);
  heir->record->await("lab: subscribe-request");
  EXPECT_EQ(heir->last_sender(), 8u);
  EXPECT_EQ(late->queued(), 0u);
}

// --- Ends and stops at the same time.

TEST_F(Endings, AWorkerThatEndsWhileItIsRemovedIsJoined) {
  const auto worker = an_ending_worker();
  Gate stopping;
  worker->hooks.stop = [&] { stopping.open(); };
  worker->hooks.disconnect = [&] { stopping.wait(); };
  end_now.open();
  worker->record->await("lab: disconnect");
  server.remove_worker("lab");
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_EQ(worker.use_count(), 1) << "no thread and no map holds it";
}

TEST_F(Endings, ReleaseWaitsForAWorkerThatIsStillEnding) {
  const auto worker = an_ending_worker();
  receive("subscribe-request");
  Gate routing;
  Gate go_on;
  const auto order_of_events = std::make_shared<Record>();
  server.make = [&](const TestServer::Made&) -> std::unique_ptr<Worker> {
    routing.open();
    go_on.wait();
    order_of_events->note("routed again");
    return nullptr;
  };
  Gate last_step;
  server.fixed_websock().hooks.stop = [&] { last_step.open(); };
  end_now.open();
  routing.wait();
  std::thread releaser([&] {
    server.release();
    order_of_events->note("released");
  });
  last_step.wait();
  for (int i = 0; i < 1000; ++i) std::this_thread::yield();  // the chance to return too early
  go_on.open();
  releaser.join();
  server.fixed_websock().hooks.stop = nullptr;
  EXPECT_THAT(order_of_events->lines(), ElementsAre("routed again", "released"));
  EXPECT_EQ(worker.use_count(), 1);
}

// The worker is destroyed on its own thread, before the server is.
TEST_F(Endings, ReleaseWaitsUntilAnEndedWorkerIsDestroyed) {
  class Tombstone : public ProbeWorker {
   public:
    using ProbeWorker::ProbeWorker;
    ~Tombstone() override { record->note("destroyed"); }
  };
  auto worker = std::make_shared<Tombstone>(&server, ProbeWorker::Options{.name = "lab"});
  const auto record = worker->record;
  worker->hooks.before = [raw = worker.get()] { raw->end(); };
  server.adopt(worker);
  worker->start();
  worker.reset();
  ASSERT_TRUE(eventually([&] { return server.domains().empty(); }));
  server.release();
  EXPECT_EQ(record->lines().back(), "destroyed");
}

class Unwilling : public ProbeWorker {
 public:
  using ProbeWorker::ProbeWorker;
  void enqueue_message(JsonReader&&, const BaseSession&) override { throw std::runtime_error("out of memory"); }
};

TEST_F(Endings, AnExceptionWhileEndingIsReportedAndTheWorkerGone) {
  an_ending_worker();
  receive("subscribe-request");
  server.make = [this](const TestServer::Made& order) {
    return std::make_unique<Unwilling>(&server, ProbeWorker::Options{.name = order.domain});
  };
  end_now.open();
  ASSERT_TRUE(eventually([&] { return !capture.events().empty(); }));
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Exception at processing stop_domain_event: out of memory"));
  EXPECT_THAT(capture.events(), ElementsAre(Event{12, true, "lab"}));
  EXPECT_THAT(server.domains(), IsEmpty());
}

// --- Many at once.

// Session numbers of the subscribes that workers have handled, over all workers of a name.
class Handled {
 public:
  void count(std::uint32_t session_id) { ++times_[session_id]; }
  std::vector<int> times() const { return {times_.begin() + 1, times_.end()}; }
  explicit Handled(std::size_t sessions) : times_(sessions + 1) {}

 private:
  std::vector<std::atomic<int>> times_;
};

TEST_F(Endings, NoSubscribeIsLostOrHandledTwiceHoweverOftenTheWorkerEnds) {
  constexpr std::uint32_t routers = 2;
  constexpr std::uint32_t each = 400;
  Handled handled(routers * each);
  server.make = [&](const TestServer::Made& order) {
    auto worker = std::make_unique<ProbeWorker>(&server, ProbeWorker::Options{.name = order.domain});
    worker->hooks.message = [&handled, raw = worker.get(), seen = 0](const std::string&) mutable {
      handled.count(raw->last_sender());
      if (++seen == 3) raw->end();
    };
    return worker;
  };
  std::vector<std::thread> threads;
  for (std::uint32_t router = 0; router < routers; ++router) {
    threads.emplace_back([&, router] {
      for (std::uint32_t i = 1; i <= each; ++i) receive("subscribe-request", router * each + i);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(eventually([&] {
    const auto times = handled.times();
    return std::find(times.begin(), times.end(), 0) == times.end();
  }));
  server.release();
  EXPECT_THAT(handled.times(), Each(1));
}

// Removal throws messages away, which is what it is for; but none is handled twice, and nobody is left behind.
TEST_F(Endings, RoutingRemovingEndingAndReleasingAtOnceLeaveNobodyBehind) {
  constexpr std::uint32_t each = 300;
  Handled handled(2 * each);
  std::atomic<int> alive{0};
  class Counted : public ProbeWorker {
   public:
    Counted(RRM* parent, Options options, std::atomic<int>& counter) : ProbeWorker(parent, options), alive_(counter) {
      ++alive_;
    }
    ~Counted() override { --alive_; }

   private:
    std::atomic<int>& alive_;
  };
  server.make = [&](const TestServer::Made& order) {
    auto worker = std::make_unique<Counted>(&server, ProbeWorker::Options{.name = order.domain}, alive);
    worker->hooks.message = [&handled, raw = worker.get(), seen = 0](const std::string& cmd) mutable {
      if (cmd == "subscribe-request") handled.count(raw->last_sender());
      if (++seen == 5) raw->end();
    };
    return worker;
  };
  server.update_vrrp_role(1, nullptr);
  std::atomic<bool> done{false};
  std::vector<std::thread> threads;
  for (std::uint32_t router = 0; router < 2; ++router) {
    threads.emplace_back([&, router] {
      for (std::uint32_t i = 1; i <= each; ++i) {
        receive("subscribe-request", router * each + i);
        server.drop_session_at_rrm_workers(session_of(router * each + i));
      }
    });
  }
  std::thread owner([&] {
    for (int round = 0; !done; ++round) {
      if (round % 8 == 7) {
        server.restart();
      } else {
        server.remove_worker("lab");
      }
      std::this_thread::yield();
    }
  });
  for (auto& thread : threads) thread.join();
  done = true;
  owner.join();
  server.release();
  EXPECT_EQ(alive, 0);
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_THAT(handled.times(), Each(::testing::Le(1)));
}

}  // namespace
}  // namespace rrm::testing
