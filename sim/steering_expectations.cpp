#include "sim/steering_expectations.h"

#include <algorithm>

#include "sim/site.h"
#include "sim/site_reader.h"

namespace sim {
namespace {

std::optional<int> count_if_present(SiteReader& reader, const char* key) {
  if (!reader.has(key)) {
    return std::nullopt;
  }
  const int count = reader.integer(key);
  if (count < 1) {
    reader.fail_at(key, "must be 1 or more");
  }
  return count;
}

// A share that every outcome would meet is no expectation.
std::optional<double> least_share_if_present(SiteReader& reader, const char* key) {
  if (!reader.has(key)) {
    return std::nullopt;
  }
  const double share = reader.number(key);
  if (share <= 0 || share > 1) {
    reader.fail_at(key, "must be above 0, and 1 at most");
  }
  return share;
}

std::optional<double> largest_share_if_present(SiteReader& reader, const char* key) {
  if (!reader.has(key)) {
    return std::nullopt;
  }
  const double share = reader.number(key);
  if (share < 0 || share >= 1) {
    reader.fail_at(key, "must be 0 or more, and below 1");
  }
  return share;
}

// Radios of a band on the APs of a room.
std::ptrdiff_t radios_in(const Site& site, const std::string& room, int band) {
  std::ptrdiff_t count = 0;
  for (const AccessPoint& ap : site.access_points) {
    const Room* const place = site.room_at(ap.position);
    if (place != nullptr && place->name == room) {
      count += std::count_if(ap.radios.begin(), ap.radios.end(),
                             [&](const Radio& radio) { return radio.enabled && radio.band == band; });
    }
  }
  return count;
}

SpreadExpectation read_spread(SiteReader reader, const Site& site) {
  SpreadExpectation spread;
  spread.room = reader.text("room");
  spread.band = reader.band("band");
  spread.shrinks_by = reader.integer("by");
  if (radios_in(site, spread.room, spread.band) < 2) {
    reader.fail_at("room", "has fewer than two radios of this band");
  }
  if (spread.shrinks_by < 1) {
    reader.fail_at("by", "must be 1 or more");
  }
  reader.finish();
  return spread;
}

bool walks(const Client& client) {
  return !client.path.empty();
}

}  // namespace

SteeringWindow read_steering_window(SiteReader reader) {
  const SteeringWindow window{reader.number("before"), reader.number("after")};
  if (window.before_s <= 0) {
    reader.fail_at("before", "must be above 0");
  }
  if (window.after_s <= window.before_s) {
    reader.fail_at("after", "must be above \"before\"");
  }
  reader.finish();
  return window;
}

SteeringExpectations read_steering_expectations(SiteReader reader, const Site& site) {
  SteeringExpectations expected;
  expected.fullest_radio_falls_by = count_if_present(reader, "fullest_radio_falls_by");
  if (reader.has("spread_shrinks")) {
    expected.spread = read_spread(reader.object("spread_shrinks"), site);
  }
  expected.walker_fast_transitions = count_if_present(reader, "walker_fast_transitions");
  if (expected.walker_fast_transitions && std::none_of(site.clients.begin(), site.clients.end(), walks)) {
    reader.fail_at("walker_fast_transitions", "is of no use where no client walks");
  }
  expected.ordered_moves_succeed = least_share_if_present(reader, "ordered_moves_succeed");
  expected.moves_bounce_at_most = largest_share_if_present(reader, "moves_bounce_at_most");
  expected.held_are_answered = least_share_if_present(reader, "held_are_answered");
  reader.finish();
  return expected;
}

}  // namespace sim
