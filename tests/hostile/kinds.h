// The table of what no access point would send: how each kind is played, what becomes of the connection, and what the
// server reports of it. Where a kind speaks for another access point, or to another domain, the surroundings tell
// which: that one must stay in service.
#pragma once

#include <functional>
#include <initializer_list>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "hostile/peer.h"
#include "hostile/site_server.h"

namespace hostile {

// How far the connection has come before the kind begins.
enum class Start { connected, session, access_point };

struct Kind {
  std::string name;
  Start start = Start::session;
  std::function<void(Peer& peer)> play;
  Fate fate;
  std::set<int> events = {};    // that it raises, by their numbers
  std::set<int> possible = {};  // and those that the pace of the connection decides
  std::string client = {};      // that the victim's domain takes for one of the victim's
};

inline void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

std::vector<Kind> http_kinds();
std::vector<Kind> frame_kinds();
std::vector<Kind> json_kinds();
std::vector<Kind> message_kinds();
// All of these, each name once.
const std::vector<Kind>& all_kinds();
// Those of these names.
std::vector<Kind> kinds_named(const std::vector<std::string>& names);

// Whether it may end so: as expected, or, where answers may be lost, by the end of the session that overtakes the last
// of them, since it is forced on a peer whose answers wait in a full queue.
bool may_end_so(const Kind& kind, const Fate& fate);

// A connection of its own on which the kind was played.
Peer played(const Kind& kind, const Surroundings& surroundings, int number);

// Ways to play a kind: with these bytes, or with these messages.
inline std::function<void(Peer&)> bytes(std::string all) {
  return [all = std::move(all)](Peer& peer) { peer.socket().send_raw(all); };
}
inline std::function<void(Peer&)> texts(std::vector<std::string> all) {
  return [all = std::move(all)](Peer& peer) {
    for (const std::string& text : all) peer.socket().send_text(text);
  };
}
std::string repeated(std::string_view part, std::size_t times);

}  // namespace hostile
