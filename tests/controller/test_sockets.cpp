// The controller's two sockets, the bus and the control socket, and peers of both kinds that misbehave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "controller/Bus.h"
#include "controller/Control.h"
#include "platform/bus/bus_types.h"
#include "platform/bus_peer.h"
#include "support/temp_dir.h"

namespace controller {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::bus::Connection;
using zal::bus::Fields;
using zal::testing::framed;

const std::string open_frame = framed(R"({"type":1000,"port":8,"pid":1,"running":false})");

// A client of either socket.
class Client {
 public:
  explicit Client(const std::string& path) : connection_(zal::bus::connect_to(path)) {
    if (connection_.fd() < 0) throw std::runtime_error("cannot connect to " + path);
  }
  void send(const std::string& bytes) {
    if (!connection_.send(bytes) || !connection_.flush()) throw std::runtime_error("the other end is gone");
  }
  std::vector<std::string> receive() {
    is_alive_ = connection_.read() && is_alive_;
    std::vector<std::string> all;
    while (auto item = connection_.next()) all.push_back(item->payload);
    return all;
  }
  bool is_alive() {
    receive();
    return is_alive_;
  }

 private:
  Connection connection_;
  bool is_alive_ = true;
};

class BusTest : public ::testing::Test, protected BusListener {
 protected:
  void on_daemon_ready() override { notes_.push_back("ready"); }
  void on_daemon_gone() override { notes_.push_back("gone"); }
  void on_alarm(const std::string& location, std::int64_t status) override {
    notes_.push_back("alarm " + location + " " + std::to_string(status));
  }
  void on_served(std::int64_t id, std::int64_t error) override {
    notes_.push_back("served " + std::to_string(id) + " " + std::to_string(error));
  }
  void on_message(const Fields& frame) override { notes_.push_back(to_json(frame)); }
  void say(const std::string& text) override { notes_.push_back("say: " + text); }

  // Lets the bus do all that there is to do.
  void serve() {
    for (;;) {
      std::vector<pollfd> fds;
      bus_.add_to(fds);
      if (poll(fds.data(), fds.size(), 0) <= 0) return;
      bus_.on_events(fds);
    }
  }
  std::vector<std::string> take_notes() {
    serve();
    return std::exchange(notes_, {});
  }
  Client daemon() {
    Client client(path());
    client.send(open_frame);
    serve();
    return client;
  }
  std::string path() const { return directory_.file("bus.sock"); }

  rrm::testing::TempDir directory_;
  std::vector<std::string> notes_;
  Bus bus_{path(), *this};
};

TEST_F(BusTest, TheDaemonIsWhoOpensItsPort) {
  EXPECT_FALSE(bus_.has_daemon());
  EXPECT_FALSE(bus_.send({{"type", std::int64_t{33}}}));
  Client client = daemon();
  EXPECT_TRUE(bus_.has_daemon());
  EXPECT_TRUE(bus_.send({{"type", std::int64_t{33}}}));
  EXPECT_THAT(client.receive(), ElementsAre(R"({"type":33})"));
}

TEST_F(BusTest, EachFrameOfTheDaemonIsACall) {
  Client client = daemon();
  client.send(framed(R"({"type":1001})") + framed(R"({"type":1003,"location":"office","status":3})") +
              framed(R"({"type":1004,"id":7,"error":4})") + framed(R"({"type":1004,"id":8})") +
              framed(R"({"type":174,"id":9,"role":1})") + framed(R"({"type":1003,"status":3})"));
  EXPECT_THAT(take_notes(), ElementsAre("ready", "alarm office 3", "served 7 4", "served 8 0",
                                        R"({"type":174,"id":9,"role":1})", R"({"type":1003,"status":3})"));
}

TEST_F(BusTest, BadFramesOfTheDaemonAreRefusedAndTheNextIsServed) {
  Client client = daemon();
  client.send(framed("nonsense") + framed(R"({"text":"x"})") + framed(R"({"type":1001})"));
  EXPECT_THAT(take_notes(), ElementsAre("say: bus: frame refused: no JSON, from byte 2",
                                        "say: bus: frame refused: no number 'type'", "ready"));
}

TEST_F(BusTest, AStrangerIsShownTheDoor) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {framed(R"({"type":1001})"), "say: bus: frame refused: from a peer that opened no port"},
      {framed(R"({"type":1000,"port":9})"), "say: bus: frame refused: unknown port"},
      {framed(R"({"type":1000})"), "say: bus: frame refused: unknown port"},
      {framed("x"), "say: bus: frame refused: no JSON, from byte 1"},
      {std::string("\xff\xff\xff\xff", 4), "say: bus: frame refused: too long"},
  };
  Client good = daemon();
  for (const auto& [bytes, note] : cases) {
    Client stranger(path());
    stranger.send(bytes);
    EXPECT_THAT(take_notes(), ElementsAre(note));
    EXPECT_FALSE(stranger.is_alive());
  }
  EXPECT_TRUE(good.is_alive());
}

TEST_F(BusTest, AStrangerThatWasRefusedDoesNotTakeTheDaemonsPlace) {
  Client good = daemon();
  Client stranger(path());
  stranger.send(framed("x") + open_frame);
  EXPECT_THAT(take_notes(), ElementsAre("say: bus: frame refused: no JSON, from byte 1"));
  EXPECT_FALSE(stranger.is_alive());
  EXPECT_TRUE(good.is_alive());
  EXPECT_TRUE(bus_.has_daemon());
}

TEST_F(BusTest, AStrangerThatSaysNothingOrHalfAFrameHoldsNobodyUp) {
  Client silent(path());
  Client half(path());
  half.send(open_frame.substr(0, 10));
  Client client = daemon();
  EXPECT_TRUE(bus_.send({{"type", std::int64_t{33}}}));
  EXPECT_THAT(client.receive(), ElementsAre(R"({"type":33})"));
}

TEST_F(BusTest, OnlySoManyPeersAreHeard) {
  std::vector<Client> clients;
  for (int i = 0; i < 20; ++i) {
    clients.emplace_back(path());
    serve();
  }
  int alive = 0;
  for (auto& client : clients) alive += client.is_alive() ? 1 : 0;
  EXPECT_EQ(alive, 8);
}

TEST_F(BusTest, ADaemonThatLeavesIsNoticed) {
  { const Client client = daemon(); }
  EXPECT_THAT(take_notes(), ElementsAre("gone"));
  EXPECT_FALSE(bus_.has_daemon());
}

TEST_F(BusTest, ADaemonThatJoinsAnewTakesThePlaceOfItsOldConnection) {
  Client first = daemon();
  Client second = daemon();
  EXPECT_THAT(take_notes(), ElementsAre("gone"));
  EXPECT_FALSE(first.is_alive());
  EXPECT_TRUE(bus_.send({{"type", std::int64_t{33}}}));
  EXPECT_THAT(second.receive(), ElementsAre(R"({"type":33})"));
}

TEST_F(BusTest, OpeningTwiceChangesNothing) {
  Client client = daemon();
  client.send(open_frame);
  EXPECT_THAT(take_notes(), IsEmpty());
  EXPECT_TRUE(bus_.has_daemon());
}

TEST_F(BusTest, ADaemonThatDoesNotReadCostsOnlySoMuch) {
  const Client client = daemon();
  const Fields large{{"type", std::int64_t{126}}, {"text", std::string(16u << 20, 'x')}};
  int sent = 0;
  while (sent < 20 && bus_.send(large)) ++sent;
  EXPECT_GE(sent, 3);
  EXPECT_LT(sent, 8);
}

class ControlTest : public ::testing::Test {
 protected:
  void on_request(Control::ClientId client, const Fields& request) {
    requests_.emplace_back(client, to_json(request));
    if (react_) react_(client);
  }
  void serve() {
    for (;;) {
      std::vector<pollfd> fds;
      control_.add_to(fds);
      if (poll(fds.data(), fds.size(), 0) <= 0) return;
      control_.on_events(fds);
    }
  }
  std::string path() const { return directory_.file("control.sock"); }

  rrm::testing::TempDir directory_;
  std::vector<std::pair<Control::ClientId, std::string>> requests_;
  std::function<void(Control::ClientId)> react_;
  Control control_{path(), [this](auto client, const auto& request) { on_request(client, request); }};
};

TEST_F(ControlTest, RequestsAreAnsweredNowOrLater) {
  Client now(path());
  Client later(path());
  now.send(framed(R"({"command":"status"})"));
  serve();
  later.send(framed(R"({"command":"stop"})"));
  serve();
  ASSERT_EQ(requests_.size(), 2u);
  EXPECT_EQ(requests_[0].second, R"({"command":"status"})");
  control_.fail(requests_[1].first, "no");
  control_.succeed(requests_[0].first, {{"pid", std::int64_t{5}}});
  EXPECT_THAT(now.receive(), ElementsAre(R"({"pid":5,"ok":true})"));
  EXPECT_THAT(later.receive(), ElementsAre(R"({"ok":false,"error":"no"})"));
}

TEST_F(ControlTest, NonsenseIsAnsweredWithItsReason) {
  Client client(path());
  client.send(framed("nonsense") + framed(R"({"command":"status"})"));
  serve();
  EXPECT_THAT(client.receive(), ElementsAre(R"({"ok":false,"error":"bad request: no JSON, from byte 2"})"));
  EXPECT_EQ(requests_.size(), 1u);
}

TEST_F(ControlTest, AnAnswerToAClientThatIsGoneGoesNowhere) {
  std::optional<Client> client(path());
  client->send(framed(R"({"command":"status"})"));
  serve();
  EXPECT_TRUE(control_.send(requests_.at(0).first, {{"text", "to somebody"}}));
  client.reset();
  serve();
  EXPECT_FALSE(control_.send(requests_.at(0).first, {{"text", "to nobody"}}));
  control_.succeed(requests_.at(0).first);
  serve();
}

TEST_F(ControlTest, AClientThatDoesNotReadIsDroppedAndTheOthersAreNot) {
  Client deaf(path());
  Client good(path());
  deaf.send(framed("{}"));
  serve();
  good.send(framed("{}"));
  serve();
  const Fields large{{"text", std::string(32u << 20, 'x')}};
  for (int i = 0; i < 5; ++i) control_.send(requests_.at(0).first, large);
  serve();
  control_.succeed(requests_.at(1).first);
  EXPECT_THAT(good.receive(), ElementsAre(R"({"ok":true})"));
  EXPECT_FALSE(control_.send(requests_.at(0).first, {{"text", "to nobody"}}));
  std::vector<pollfd> fds;
  control_.add_to(fds);
  EXPECT_EQ(fds.size(), 2u);
}

TEST_F(ControlTest, OnlySoManyClientsAreServed) {
  std::vector<Client> clients;
  for (int i = 0; i < 70; ++i) {
    clients.emplace_back(path());
    serve();
  }
  int alive = 0;
  for (auto& client : clients) alive += client.is_alive() ? 1 : 0;
  EXPECT_EQ(alive, 64);
}

TEST(ControlSockets, APathThatCannotBeBoundIsSaid) {
  EXPECT_THROW(Control("/nowhere/control.sock", nullptr), std::runtime_error);
}

}  // namespace
}  // namespace controller
