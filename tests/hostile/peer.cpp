#include "hostile/peer.h"

#include <poll.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "hostile/site_server.h"
#include "json/JsonReader.h"

namespace hostile {
namespace {

using rrm::testing::close_status;
using rrm::testing::Frame;
using rrm::testing::MessageJson;
using rrm::testing::Opcode;
using rrm::testing::WsClient;
using What = Fate::What;

constexpr const char* asking_mac = "02:FE:00:00:00:01";
constexpr int first_companion = 0x800000;
constexpr const char* ping_payload = "still there?";

bool has_input(int fd) {
  pollfd ready{fd, POLLIN, 0};
  return ::poll(&ready, 1, 0) == 1;
}

// A subscription of no version is refused, whatever the state of the domain: an answer that anybody can have.
std::string question() {
  return rrm::testing::a_message("subscribe-request", asking_mac).with("domain", yard_domain).without("version").text();
}

bool is_refusal(const rrm::JsonReader& answer) {
  return std::string(answer.get_string("cmd")) == "subscribe-response" &&
         std::string(answer.get_string("status")) == "fail";
}

}  // namespace

void PrintTo(const Fate& fate, std::ostream* out) {
  static constexpr std::array names{"answered",  "ended",   "waited on", "closed",
                                    "listening", "refused", "served",    "left"};
  *out << names.at(static_cast<std::size_t>(fate.what));
  if (fate.code != 0) *out << " " << fate.code;
}

Peer::Peer(const Surroundings& surroundings, int number, int receive_buffer)
    : surroundings_(surroundings), number_(number), socket_(surroundings.port, receive_buffer) {}

std::string Peer::mac() const {
  std::array<char, 18> text{};
  const auto number = static_cast<unsigned>(number_);
  std::snprintf(text.data(), text.size(), "02:ba:%02x:%02x:%02x:00", number >> 16 & 0xffU, number >> 8 & 0xffU,
                number & 0xffU);
  return text.data();
}

void Peer::upgrade(const std::string& rest) {
  socket_.send_raw(WsClient::upgrade_request({}) + rest);
  if (const int status = socket_.http_status(); status != 101) {
    throw std::runtime_error("upgrade answered with " + std::to_string(status));
  }
  is_session_ = true;
}

void Peer::subscribe() {
  send(subscription());
  if (!await("subscribe-response")) throw std::runtime_error("no answer to a subscription");
}

Peer Peer::companion(int receive_buffer) const {
  return {surroundings_, first_companion + number_, receive_buffer};
}

MessageJson Peer::message(const std::string& cmd) const {
  return rrm::testing::a_message(cmd, mac()).with("domain", yard_domain);
}

MessageJson Peer::subscription() const {
  return rrm::testing::a_subscribe(mac())
      .with("domain", yard_domain)
      .with_radio(rrm::testing::a_2ghz_radio().with_vap(0, "staff"))
      .with_radio(rrm::testing::a_5ghz_radio().with_vap(0, "staff"));
}

MessageJson Peer::message_of_victim(const std::string& cmd) const {
  return rrm::testing::a_message(cmd, surroundings_.victim_mac).with("domain", surroundings_.victim_domain);
}

MessageJson Peer::client_event(const std::string& cmd, const std::string& client) const {
  return message(cmd).with("radio", 0).with("rssi", -60).with("sta-mac", client).with("ssid", "staff");
}

std::optional<std::string> Peer::await(const std::string& cmd) {
  while (const auto text = socket_.receive_text()) {
    if (cmd == rrm::JsonReader(text->c_str()).get_string("cmd")) return text;
  }
  return std::nullopt;
}

Fate Peer::look(const Fate& expected) {
  switch (expected.what) {
    case What::waited_on:
      return look_whether_waited_on();
    case What::listening:
      return await_pong();
    case What::refused:
      return await_refusal();
    case What::served:
      return ask();
    case What::left:
      return left;
    case What::answered:
    case What::ended:
    case What::closed:
      break;
  }
  return await_end();
}

Fate Peer::await_end() {
  if (!is_session_) {
    if (const int status = socket_.http_status(); status != 0) return answered(status);
  }
  while (const auto frame = socket_.receive()) {
    if (frame->opcode == Opcode::close) return closed(close_status(*frame));
  }
  return socket_.wait_for_end(std::chrono::milliseconds(0)) ? ended : waited_on;
}

// Once somebody else was answered, the server has seen all that was sent before.
Fate Peer::look_whether_waited_on() {
  Peer other(surroundings_, number_);
  other.upgrade();
  if (const Fate fate = other.ask(); fate != served) return fate;
  return has_input(socket_.fd()) ? await_end() : waited_on;
}

Fate Peer::await_pong() {
  socket_.send({Opcode::ping, ping_payload, true});
  while (const auto frame = socket_.receive()) {
    if (frame->opcode == Opcode::close) return closed(close_status(*frame));
    if (*frame == Frame{Opcode::pong, ping_payload, true}) return listening;
  }
  return socket_.wait_for_end(std::chrono::milliseconds(0)) ? ended : waited_on;
}

Fate Peer::await_refusal() {
  while (const auto frame = socket_.receive()) {
    if (frame->opcode == Opcode::close) return closed(close_status(*frame));
    const rrm::JsonReader answer(frame->payload.c_str());
    if (is_refusal(answer)) return await_end() == closed(1000) ? refused(answer.get_int("code")) : ended;
  }
  return socket_.wait_for_end(std::chrono::milliseconds(0)) ? ended : waited_on;
}

Fate Peer::ask() {
  if (!is_session_) {
    if (const int status = socket_.http_status(); status != 101) return answered(status);
    is_session_ = true;
  }
  socket_.send_text(question());
  while (const auto frame = socket_.receive()) {
    if (frame->opcode == Opcode::close) return closed(close_status(*frame));
    const rrm::JsonReader answer(frame->payload.c_str());
    if (!is_refusal(answer)) continue;
    if (std::string(answer.get_string("ap-mac")) != asking_mac) return refused(answer.get_int("code"));
    return await_end() == closed(1000) ? served : ended;
  }
  return socket_.wait_for_end(std::chrono::milliseconds(0)) ? ended : waited_on;
}

}  // namespace hostile
