// One hostile connection, and what becomes of it.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "support/messages.h"
#include "support/ws_client.h"

namespace hostile {

// Where a peer meets the server, and the access point that it does its worst to.
struct Surroundings {
  int port = 0;
  std::string victim_domain;
  std::string victim_mac;
};

// What the server does with a connection in the end.
struct Fate {
  enum class What {
    answered,   // by HTTP with this status; it never becomes a session
    ended,      // without a word
    waited_on,  // neither answered nor ended: the rest is still to come
    closed,     // by a close frame with this status
    listening,  // in the middle of a message, but a ping is answered
    refused,    // its subscription is, with this code, and so the session is closed
    served,     // what it sends next is answered as ever
    left,       // by the peer itself
  };
  What what = What::served;
  int code = 0;

  bool is_of_session() const { return what != What::answered && what != What::ended && what != What::waited_on; }
  bool operator==(const Fate&) const = default;
};
void PrintTo(const Fate& fate, std::ostream* out);

inline Fate answered(int status) {
  return {Fate::What::answered, status};
}
inline Fate closed(int status) {
  return {Fate::What::closed, status};
}
inline Fate refused(int code) {
  return {Fate::What::refused, code};
}
inline constexpr Fate ended{Fate::What::ended};
inline constexpr Fate waited_on{Fate::What::waited_on};
inline constexpr Fate listening{Fate::What::listening};
inline constexpr Fate served{Fate::What::served};
inline constexpr Fate left{Fate::What::left};

class Peer {
 public:
  // Connects. Peers of different numbers are different access points; a receive buffer as of WsClient.
  Peer(const Surroundings& surroundings, int number, int receive_buffer = 0);

  rrm::testing::WsClient& socket() { return socket_; }
  const Surroundings& surroundings() const { return surroundings_; }
  std::string mac() const;

  // Sends the rest in one go with the request.
  void upgrade(const std::string& rest = "");
  // In the yard, with two radios.
  void subscribe();

  // Another access point, as no other peer has it; a receive buffer as of WsClient.
  Peer companion(int receive_buffer) const;

  // Messages of its own, in the yard; and those that give the victim as their sender.
  rrm::testing::MessageJson message(const std::string& cmd) const;
  rrm::testing::MessageJson subscription() const;
  rrm::testing::MessageJson message_of_victim(const std::string& cmd) const;
  // Of a client that is well placed on radio 0.
  rrm::testing::MessageJson client_event(const std::string& cmd, const std::string& client) const;

  void send(const rrm::testing::MessageJson& message) { socket_.send_text(message.text()); }
  // Reads on to the next message of that command; empty if the session ends before.
  std::optional<std::string> await(const std::string& cmd);

  // What has become of it, looked at in the way that tells whether it is as expected.
  Fate look(const Fate& expected);

 private:
  Fate await_end();
  Fate look_whether_waited_on();
  Fate await_pong();
  Fate await_refusal();
  Fate ask();

  Surroundings surroundings_;
  int number_;
  rrm::testing::WsClient socket_;
  bool is_session_ = false;
};

}  // namespace hostile
