// The dispatcher with real domain workers: what is logged of a new one, and how the access points of a removed one are
// let go.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "RrmWorker.h"
#include "core/sleep_recorder.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "server/server_support.h"
#include "support/capture.h"
#include "support/messages.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// "yard" has a pattern of its own that says what the common settings say.
constexpr const char* patterns_and_copies = R"({
  "global": {"enabled": 1},
  "common": {"use_dca": 1},
  "patterns": [{"pattern": "office", "use_tpc": 0}, {"pattern": "copy", "use_dca": 1}],
  "domains": [{"domain": "lab", "pattern": "common", "time_zone": "3:00"},
              {"domain": "yard", "pattern": "copy", "time_zone": "0:00"},
              {"domain": "hall", "pattern": "office", "time_zone": "-2:00"}]})";

class Domains : public ::testing::Test {
 protected:
  Domains() {
    server.make_real_domain_workers();
    server.fixed_websock().hooks.message = [this](const std::string& cmd) {
      orders.push_back(cmd + " " + std::to_string(server.fixed_websock().last_sender()));
    };
  }

  // An access point subscribes and gets its answer.
  void subscribe(const std::string& mac, std::uint32_t session_id) {
    server.receive(a_subscribe(mac).with_radio(a_5ghz_radio()).text(), session_id);
    ASSERT_TRUE(eventually([&] {
      for (const auto& sent : server.sent()) {
        if (sent.session_id == session_id && sent.text.find("subscribe-response") != std::string::npos) return true;
      }
      return false;
    }));
  }
  // The orders that wait at the WebSocket worker, in the order in which it handles them.
  std::vector<std::string> orders_at_websock() {
    ProbeWorker& websock = server.fixed_websock();
    websock.start();
    eventually([&] { return websock.queued() == 0; });
    websock.stop();
    return orders;
  }
  std::vector<std::string> drops() const {
    std::vector<std::string> lines;
    for (const auto& line : capture.lines(LOG_TRACE)) {
      if (line.starts_with("Drop session")) lines.push_back(line);
    }
    return lines;
  }

  Capture capture;
  GlobalConfig config{"", patterns_and_copies};
  std::vector<std::string> orders;
  TestServer server{&config};
};

TEST_F(Domains, ANewWorkerTellsWhetherItsSettingsAreTheCommonOnesByValue) {
  for (const char* domain : {"lab", "yard", "hall"}) server.receive(ap_message("subscribe-request", domain));
  EXPECT_EQ(capture.count("Created new worker 'lab' with common config."), 1u);
  EXPECT_EQ(capture.count("Created new worker 'yard' with common config."), 1u);
  EXPECT_EQ(capture.count("Created new worker 'hall'."), 1u);
}

TEST_F(Domains, RemovingADomainClosesItsAccessPointsSessions) {
  subscribe("02:00:00:00:00:0A", 4);
  subscribe("02:00:00:00:01:0A", 5);
  server.remove_worker("lab");
  EXPECT_THAT(drops(), ::testing::UnorderedElementsAre("Drop session 02:00:00:00:00:0A(4) on worker 'lab'.",
                                                       "Drop session 02:00:00:00:01:0A(5) on worker 'lab'."));
  EXPECT_THAT(orders_at_websock(), ::testing::UnorderedElementsAre("drop-session 4", "drop-session 5"));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "drop_session_at_websock_worker: 4 force: 1"));
  EXPECT_THAT(server.domains(), IsEmpty());
}

// Two access points behind one session: each is named, and the session ordered closed for each.
TEST_F(Domains, AccessPointsThatShareASessionAreDroppedOneByOne) {
  subscribe("02:00:00:00:00:0A", 4);
  server.receive(a_subscribe("02:00:00:00:01:0A").with_radio(a_5ghz_radio()).text(), 4);
  ASSERT_TRUE(eventually([&] { return server.sent().size() == 2; }));
  server.remove_worker("lab");
  EXPECT_THAT(drops(), ::testing::UnorderedElementsAre("Drop session 02:00:00:00:00:0A(4) on worker 'lab'.",
                                                       "Drop session 02:00:00:00:01:0A(4) on worker 'lab'."));
  EXPECT_THAT(orders_at_websock(), ElementsAre("drop-session 4", "drop-session 4"));
}

// Its message is on the way to the worker when the removal begins, and is served before the worker stops.
TEST_F(Domains, AnAccessPointThatJoinsDuringTheRemovalIsLetGoToo) {
  subscribe("02:00:00:00:00:0A", 4);
  const auto lab = server.find_worker("lab");
  bool joined = false;
  server.fixed_websock().set_notify([&] {  // called with the first order to close a session
    if (joined) return;
    joined = true;
    const std::string late = a_subscribe("02:00:00:00:01:0A").with_radio(a_5ghz_radio()).text();
    lab->enqueue_message(JsonReader(late.c_str()), session_of(5));
    EXPECT_TRUE(eventually([&] { return server.sent().size() == 2; }));
  });
  server.remove_worker("lab");
  EXPECT_THAT(drops(), ElementsAre("Drop session 02:00:00:00:00:0A(4) on worker 'lab'.",
                                   "Drop session 02:00:00:00:01:0A(5) on worker 'lab'."));
  EXPECT_THAT(orders_at_websock(), ElementsAre("drop-session 4", "drop-session 5"));
  server.fixed_websock().set_notify(nullptr);
}

TEST_F(Domains, GoneAccessPointsAreDroppedBeforeTheActiveOnes) {
  subscribe("02:00:00:00:00:0A", 4);
  subscribe("02:00:00:00:01:0A", 5);
  server.drop_session_at_rrm_workers(session_of(4));
  subscribe("02:00:00:00:02:0A", 6);  // handled after the drop
  server.remove_worker("lab");
  const auto lines = drops();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "Drop session 02:00:00:00:00:0A(4) on worker 'lab'.");
}

TEST_F(Domains, ReleaseClosesTheSessionsOfEveryDomain) {
  subscribe("02:00:00:00:00:0A", 4);
  ProbeWorker& websock = server.fixed_websock();
  websock.hooks.stop = [&] {  // the last moment in which an order is still obeyed
    websock.start();
    eventually([&] { return websock.queued() == 0; });
  };
  server.release();
  websock.hooks.stop = nullptr;
  EXPECT_THAT(orders, ElementsAre("drop-session 4"));
}

TEST_F(Domains, AnAccessPointMayComeBackToARemovedDomain) {
  subscribe("02:00:00:00:00:0A", 4);
  const auto before = server.find_worker("lab");
  server.remove_worker("lab");
  subscribe("02:00:00:00:00:0A", 9);
  EXPECT_NE(server.find_worker("lab"), before);
}

// The edit finds no worker to remove: the one that is being made has taken its settings, but is nowhere to be seen yet.
class DomainEditedMeanwhile : public ::testing::Test {
 protected:
  // Subscribes the first access point; the edit comes while the worker is made for it.
  void subscribe_during(const std::function<void()>& edit) {
    server.make = [this, edit](const TestServer::Made& order) {
      auto worker = std::make_unique<RrmWorker>(&config, order.settings, order.domain, &server, order.time_zone_offset,
                                                order.queue_capacity);
      if (server.made().size() == 1) {
        edit();
        server.remove_workers({order.domain});
      }
      return worker;
    };
    server.receive(a_subscribe("02:00:00:00:00:0A").with_radio(a_5ghz_radio()).text(), 4);
  }
  const RrmWorker* lab() const { return dynamic_cast<const RrmWorker*>(server.find_worker("lab").get()); }
  std::size_t answers() const { return server.sent().size(); }

  Capture capture;
  GlobalConfig config{"", patterns_and_copies};
  JsonWriter answer;
  JsonWriter invalid_parameters = JsonWriter::array(answer, "invalid_parameters");
  bool changed = false;
  TestServer server{&config};
};

TEST_F(DomainEditedMeanwhile, RunsUnderTheNewSettings) {
  subscribe_during([this] {
    bool failed = false;
    config.pattern_change("common", JsonReader(R"({"use_dca":0})"), invalid_parameters, failed, changed);
  });
  ASSERT_NE(lab(), nullptr);
  EXPECT_FALSE(lab()->config().use_dca);
  EXPECT_TRUE(eventually([this] { return answers() == 1; })) << "the subscription that brought it to life";
}

TEST_F(DomainEditedMeanwhile, RunsInItsNewTimeZone) {
  subscribe_during([this] { config.domain_change("lab", "common", "5:00", 18000, changed); });
  ASSERT_NE(lab(), nullptr);
  EXPECT_EQ(lab()->time_zone_offset(), 18000);
}

TEST_F(DomainEditedMeanwhile, DoesNotRunOnceItIsRemoved) {
  subscribe_during([this] { config.domain_remove("lab", changed); });
  EXPECT_EQ(lab(), nullptr);
  EXPECT_EQ(answers(), 0u);
  EXPECT_EQ(capture.count("Exception at processing message for domain 'lab': Domain not found"), 1u);
}

TEST_F(Domains, ADomainWorkerIsWokenByItsQueueInsteadOfPolling) {
  const SleepRecorder clock;
  for (std::uint32_t session = 1; session <= 20; ++session) subscribe("02:00:00:00:00:0A", session);
  server.remove_worker("lab");
  EXPECT_THAT(clock.sleeps(), IsEmpty());
}

TEST_F(Domains, ARestoredDomainRunsBeforeAnyAccessPointComes) {
  server.update_vrrp_role(1, std::make_shared<std::string>(R"([{"name":"lab"},{"name":"hall"}])"));
  EXPECT_THAT(server.domains(), ElementsAre("hall", "lab"));
  EXPECT_TRUE(eventually([&] { return capture.has_line(LOG_TRACE, "Start worker lab"); }));
}

// An access point knocks as soon as the domain's thread runs, which is before the domain is filled from its backup.
struct Knock {
  static void on_log(const char*, int, const char*, int, const char* format, va_list) {
    if (std::string_view(format).find("Created new worker") != 0 || std::exchange(done, true)) return;
    server->receive(a_subscribe("02:00:00:00:00:00").with_radio(a_5ghz_radio()).text(), 4);
    for (int i = 0; i < 1000 && server->sent().empty(); ++i) std::this_thread::yield();
  }
  static inline TestServer* server = nullptr;
  static inline bool done = false;
};

TEST(RestoredServer, ADomainMeetsItsFirstMessageWithAllThatItsBackupHolds) {
  GlobalConfig config("", patterns_and_copies);
  TestServer server(&config);
  server.make_real_domain_workers();
  const auto ap = [](const std::string& mac) {
    return R"({"mac":")" + mac + R"(","board":"NVA-3wz","hw":"1.0","serial":"SN1"})";
  };
  set_event_hook([](const int&, const std::shared_ptr<std::string>&) {});
  Knock::server = &server;
  set_log_hook(Knock::on_log);
  JsonReader backup(
      (R"({"name":"lab","aps":[)" + ap("02:00:00:00:00:00") + "," + ap("02:00:00:00:01:00") + "]}").c_str());
  server.restore_domain(backup);
  EXPECT_TRUE(eventually([&] { return !server.sent().empty(); }));
  const auto lab = std::dynamic_pointer_cast<RrmWorker>(server.find_worker("lab"));
  RrmWorker::ApCounts counts;
  ASSERT_TRUE(eventually([&] {
    lab->execute_locked([&] { counts = lab->ap_counts(); });
    return counts.active == 1;
  }));
  EXPECT_EQ(counts.deleted, 1) << "the other one";
  server.release();
  set_event_hook(nullptr);
  set_log_hook(nullptr);
}

// Out of memory when a whole domain is to be told something.
class ShortOfMemory final : public TestServer {
 public:
  using TestServer::TestServer;
  ~ShortOfMemory() override { release(); }
  using TestServer::send_text;
  void send_text(std::string&& text, const BaseSession& session) override {
    if (text.find("rrm-request-mode") != std::string::npos) throw std::bad_alloc();
    TestServer::send_text(std::move(text), session);
  }
};

// They do not subscribe again as long as they are connected.
TEST(FallenDomain, LetsItsAccessPointsGoSoThatTheyComeBack) {
  const Capture capture;
  ManualClock clock;
  GlobalConfig config("", patterns_and_copies);
  ShortOfMemory server(&config);
  server.make_real_domain_workers();
  server.receive(a_subscribe("02:00:00:00:00:0A").with_radio(a_5ghz_radio()).text(), 4);
  ASSERT_TRUE(eventually([&] { return server.sent().size() == 1; }));
  clock.advance(20);
  ASSERT_TRUE(eventually([&] { return server.fixed_websock().queued() == 1; }));
  EXPECT_EQ(capture.count("Unhandled exception 'std::bad_alloc' at worker Worker"), 1u);
  EXPECT_EQ(capture.count("Drop session 02:00:00:00:00:0A(4) on worker 'lab'."), 1u);
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "drop_session_at_websock_worker: 4 force: 1"));
  EXPECT_THAT(server.domains(), IsEmpty());
}

// --- The server as it is outside of tests.

TEST(PlainServer, ATextForASessionThatIsGoneIsRefusedByTheWebSocketWorker) {
  const Capture capture;
  GlobalConfig config("", patterns_and_copies);
  RRM server(&config);
  int peer = 0;
  const BaseSession gone{reinterpret_cast<lws*>(&peer), 0, 7};
  server.send_text("{}", gone);
  server.send_text(std::string("{}"), gone);
  server.send_text(static_cast<const char*>(nullptr), gone);
  EXPECT_EQ(capture.count("enqueue_serialized: no live websocket session for wsi (dropped id=7)"), 2u);
}

TEST(PlainServer, ASessionThatIsGoneIsKnownToBe) {
  const Capture capture;
  GlobalConfig config("", patterns_and_copies);
  const RRM server(&config);
  int peer = 0;
  EXPECT_FALSE(server.has_session({reinterpret_cast<lws*>(&peer), 0, 7}));
}

TEST(PlainServer, ItsWorkersBearTheirNames) {
  const Capture capture;
  GlobalConfig config("", patterns_and_copies);
  const RRM server(&config);
  EXPECT_EQ(server.websocket()->name, "websock-server-worker");
}

}  // namespace
}  // namespace rrm::testing
