#include "hostile/kinds.h"

#include <algorithm>
#include <stdexcept>

namespace hostile {
namespace {

std::vector<Kind> each_name_once() {
  std::vector<Kind> all;
  std::set<std::string> names;
  for (auto* kinds : {&http_kinds, &frame_kinds, &json_kinds, &message_kinds}) {
    for (Kind& kind : kinds()) {
      if (!names.insert(kind.name).second) throw std::logic_error("twice in the table: " + kind.name);
      all.push_back(std::move(kind));
    }
  }
  return all;
}

}  // namespace

const std::vector<Kind>& all_kinds() {
  static const std::vector<Kind> all = each_name_once();
  return all;
}

std::vector<Kind> kinds_named(const std::vector<std::string>& names) {
  std::vector<Kind> kinds;
  for (const std::string& name : names) {
    const auto found =
        std::find_if(all_kinds().begin(), all_kinds().end(), [&](const Kind& kind) { return kind.name == name; });
    if (found == all_kinds().end()) throw std::logic_error("not in the table: " + name);
    kinds.push_back(*found);
  }
  return kinds;
}

bool may_end_so(const Kind& kind, const Fate& fate) {
  return fate == kind.fate || (kind.possible.contains(answer_lost) && fate == closed(1000));
}

Peer played(const Kind& kind, const Surroundings& surroundings, int number) {
  Peer peer(surroundings, number);
  if (kind.start != Start::connected) peer.upgrade();
  if (kind.start == Start::access_point) peer.subscribe();
  kind.play(peer);
  return peer;
}

std::string repeated(std::string_view part, std::size_t times) {
  std::string all;
  all.reserve(part.size() * times);
  for (std::size_t i = 0; i < times; ++i) all += part;
  return all;
}

}  // namespace hostile
