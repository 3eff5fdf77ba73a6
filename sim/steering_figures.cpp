#include "sim/steering_figures.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "sim/spectrum.h"

namespace sim {
namespace {

constexpr Millis bounce_ms = 60'000;

Millis milliseconds(double seconds) {
  return static_cast<Millis>(std::llround(seconds * 1000));
}

std::string percent(double share) {
  return std::to_string(std::lround(share * 100)) + " %";
}

std::string of_all(int part, int all) {
  return std::to_string(part) + " of " + std::to_string(all);
}

int fullest(const SteeringFigures& figures, int RadioLoad::*moment) {
  const auto found = std::max_element(figures.loads.begin(), figures.loads.end(),
                                      [&](const RadioLoad& a, const RadioLoad& b) { return a.*moment < b.*moment; });
  return found == figures.loads.end() ? 0 : (*found).*moment;
}

std::string fullest_text(const Site& site, const SteeringFigures& figures, int RadioLoad::*moment) {
  const int load = fullest(figures, moment);
  for (const RadioLoad& radio : figures.loads) {
    if (radio.*moment == load) {
      return std::to_string(load) + " on " + name_of(site, radio.place);
    }
  }
  return "none";
}

Check check_fullest(const Site& site, const SteeringFigures& figures, int falls_by) {
  return {"the load of the fullest radio falls by " + std::to_string(falls_by) + " or more",
          fullest_text(site, figures, &RadioLoad::before) + " -> " + fullest_text(site, figures, &RadioLoad::now),
          fullest(figures, &RadioLoad::before) - fullest(figures, &RadioLoad::now) >= falls_by};
}

struct Range {
  int low = 0;
  int high = 0;

  int width() const { return high - low; }
  std::string text() const { return std::to_string(low) + " to " + std::to_string(high); }
};

Range loads_in(const Site& site, const SteeringFigures& figures, const SpreadExpectation& spread,
               int RadioLoad::*moment) {
  std::optional<Range> range;
  for (const RadioLoad& radio : figures.loads) {
    const Room* const room = site.room_at(site.access_points[radio.place.ap].position);
    if (room == nullptr || room->name != spread.room || radio_at(site, radio.place).band != spread.band) {
      continue;
    }
    const int load = radio.*moment;
    range = range ? Range{std::min(range->low, load), std::max(range->high, load)} : Range{load, load};
  }
  return range.value_or(Range{});
}

Check check_spread(const Site& site, const SteeringFigures& figures, const SpreadExpectation& spread) {
  const Range before = loads_in(site, figures, spread, &RadioLoad::before);
  const Range now = loads_in(site, figures, spread, &RadioLoad::now);
  return {"the loads at " + band_name(spread.band) + " in " + spread.room + " come closer by " +
              std::to_string(spread.shrinks_by) + " or more",
          before.text() + " -> " + now.text(), before.width() - now.width() >= spread.shrinks_by};
}

Check check_walkers(const SteeringFigures& figures, int least) {
  Check check{"each client that walks has " + std::to_string(least) +
                  " fast transitions or more, and none full after its first association",
              "", true};
  for (const WalkerFigures& walker : figures.walkers) {
    const Transitions& made = walker.transitions;
    check.measured += (check.measured.empty() ? "" : ", ") + walker.client.text() + " " + std::to_string(made.fast) +
                      " fast and " + std::to_string(made.full) + " full";
    check.passed = check.passed && made.fast >= least && made.full == 0;
  }
  return check;
}

Check check_orders(const SteeringFigures& figures, double least) {
  return {percent(least) + " of the ordered moves or more succeed", of_all(figures.succeeded(), figures.ordered()),
          figures.ordered() > 0 && figures.succeeded() >= least * figures.ordered()};
}

Check check_bounces(const SteeringFigures& figures, double largest) {
  return {percent(largest) + " or less of the moves that succeed are undone within a minute",
          of_all(figures.bounced, figures.succeeded()),
          figures.succeeded() > 0 && figures.bounced <= largest * figures.succeeded()};
}

// A client that leaves by itself while it is held, or loses its radio, takes the decision out of everybody's hands.
Check check_held(const SteeringFigures& figures, double least) {
  const HeldAssociations& held = figures.held;
  const int decided = held.of(HoldEnd::acknowledged) + held.of(HoldEnd::sent_away);
  const int all = decided + held.of(HoldEnd::timed_out) + held.of(HoldEnd::session_lost);
  return {"of the associations held back, the controller decides " + percent(least) + " or more", of_all(decided, all),
          all > 0 && decided >= least * all};
}

}  // namespace

int HeldAssociations::of(HoldEnd end) const {
  const auto found = ended.find(end);
  return found == ended.end() ? 0 : found->second;
}

const Radio& radio_at(const Site& site, const Place& place) {
  const auto& radios = site.access_points.at(place.ap).radios;
  return *std::find_if(radios.begin(), radios.end(), [&](const Radio& radio) { return radio.id == place.radio; });
}

std::string name_of(const Site& site, const Place& place) {
  return site.access_points[place.ap].name + " at " + band_name(radio_at(site, place).band);
}

SteeringLedger::SteeringLedger(const Site& site, SteeringWindow window) : window_(window) {
  for (std::size_t ap = 0; ap < site.access_points.size(); ++ap) {
    for (const Radio& radio : site.access_points[ap].radios) {
      if (radio.enabled) {
        index_of_load_[{ap, radio.id}] = 0;
      }
    }
  }
  for (auto& [place, index] : index_of_load_) {
    index = figures_.loads.size();
    figures_.loads.push_back({place});
  }
  for (const Client& client : site.clients) {
    if (!client.path.empty()) {
      index_of_walker_[client.mac] = figures_.walkers.size();
      figures_.walkers.push_back({client.mac, {}});
    }
  }
}

void SteeringLedger::pass_to(Millis now) {
  figures_.at = now;
  if (!figures_.has_before && now >= milliseconds(window_.before_s)) {
    figures_.has_before = true;
    for (RadioLoad& load : figures_.loads) {
      load.before = load.now;
    }
  }
}

void SteeringLedger::add_load(const Place& place, int clients) {
  RadioLoad& load = figures_.loads[index_of_load_.at(place)];
  load.now += clients;
  load.highest = std::max(load.highest, load.now);
}

void SteeringLedger::take(const SteeringEvent& event) {
  pass_to(event.at);
  switch (event.what) {
    case Happening::joined:
    case Happening::moved:
      take_arrival(event);
      break;
    case Happening::left:
      take_departure(event);
      break;
    case Happening::turned_away:
      ++figures_.turned_away;
      figures_.by_transition.turned_away += event.cause == Cause::transition ? 1 : 0;
      break;
    case Happening::declined:
      ++figures_.by_transition.declined;
      break;
    case Happening::gave_up:
      ++figures_.by_transition.given_up;
      break;
    case Happening::released:
      take_release(event);
      break;
  }
}

void SteeringLedger::take_arrival(const SteeringEvent& event) {
  if (event.what == Happening::moved) {
    add_load(event.from.value(), -1);
  }
  add_load(event.to.value(), 1);
  ClientRecord& record = clients_[event.client];
  if (record.served_before) {
    ++figures_.moves[event.cause];
    take_authentication(event);
  }
  record.served_before = true;
  take_bounce(event, record);
  take_end_of_order(event, record);
  figures_.let_in_for_good += event.for_good ? 1 : 0;
  figures_.held.waiting += event.held ? 1 : 0;
}

void SteeringLedger::take_authentication(const SteeringEvent& event) {
  const auto count = [&](Transitions& transitions) {
    ++(event.authentication == Authentication::fast ? transitions.fast : transitions.full);
  };
  count(figures_.transitions);
  if (const auto walker = index_of_walker_.find(event.client); walker != index_of_walker_.end()) {
    count(figures_.walkers[walker->second].transitions);
  }
}

void SteeringLedger::take_end_of_order(const SteeringEvent& event, ClientRecord& record) {
  if (event.what == Happening::moved && event.cause == Cause::transition) {
    ++figures_.by_transition.succeeded;
    record.departures.push_back({event.from.value(), event.at});
  }
  if (!record.sent_from) {
    return;
  }
  const Place from = *record.sent_from;
  record.sent_from.reset();
  const bool went_back = event.cause == Cause::came_back && event.from;
  if (event.cause != Cause::sent_away && !went_back) {
    return;  // it found nothing at first, so the order had lost it
  }
  --figures_.by_sending_away.lost;
  figures_.longest_without_radio = std::max(figures_.longest_without_radio, event.unserved);
  if (event.to == from) {
    ++figures_.by_sending_away.back_at_once;
  } else {
    ++figures_.by_sending_away.succeeded;
    record.departures.push_back({from, event.at});
  }
}

void SteeringLedger::take_bounce(const SteeringEvent& event, ClientRecord& record) {
  const auto returns = [&](const Departure& departure) { return departure.from == event.to; };
  const auto found = std::find_if(record.departures.begin(), record.departures.end(), returns);
  if (found != record.departures.end()) {
    figures_.bounced += event.at - found->at <= bounce_ms ? 1 : 0;
    record.departures.erase(found);
  }
}

void SteeringLedger::take_departure(const SteeringEvent& event) {
  add_load(event.from.value(), -1);
  if (event.cause == Cause::sent_away) {
    ++figures_.by_sending_away.lost;  // until it is found elsewhere
    clients_[event.client].sent_from = event.from;
  } else if (event.cause == Cause::departure) {
    clients_.erase(event.client);  // who comes again is new
  }
}

void SteeringLedger::take_release(const SteeringEvent& event) {
  HeldAssociations& held = figures_.held;
  --held.waiting;
  ++held.ended[event.hold_end.value()];
  held.longest = std::max(held.longest, event.held_for);
}

SteeringFigures SteeringLedger::figures(Millis now) {
  pass_to(now);
  return figures_;
}

std::vector<Check> check_steering(const Site& site, const SteeringFigures& figures) {
  assert(figures.has_before);
  const SteeringExpectations& expected = site.expectations.steering;
  std::vector<Check> checks;
  if (expected.fullest_radio_falls_by) {
    checks.push_back(check_fullest(site, figures, *expected.fullest_radio_falls_by));
  }
  if (expected.spread) {
    checks.push_back(check_spread(site, figures, *expected.spread));
  }
  if (expected.walker_fast_transitions) {
    checks.push_back(check_walkers(figures, *expected.walker_fast_transitions));
  }
  if (expected.ordered_moves_succeed) {
    checks.push_back(check_orders(figures, *expected.ordered_moves_succeed));
  }
  if (expected.moves_bounce_at_most) {
    checks.push_back(check_bounces(figures, *expected.moves_bounce_at_most));
  }
  if (expected.held_are_answered) {
    checks.push_back(check_held(figures, *expected.held_are_answered));
  }
  return checks;
}

}  // namespace sim
