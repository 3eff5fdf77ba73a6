#include "sim/steering_report.h"

#include <algorithm>

#include "sim/report_text.h"
#include "sim/spectrum.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

constexpr Cause causes_of_moves[] = {Cause::own_choice,   Cause::came_back,  Cause::transition, Cause::sent_away,
                                     Cause::out_of_reach, Cause::radio_gone, Cause::arrival};
constexpr HoldEnd hold_ends[] = {HoldEnd::acknowledged, HoldEnd::sent_away, HoldEnd::client_left,
                                 HoldEnd::radio_gone,   HoldEnd::timed_out, HoldEnd::session_lost};

double seconds(Millis time) {
  return static_cast<double>(time) / 1000;
}

std::string room_of(const Site& site, const RadioLoad& load) {
  const Room* const room = site.room_at(site.access_points[load.place.ap].position);
  return room == nullptr ? "" : room->name;
}

std::string before_text(const SteeringFigures& figures, const RadioLoad& load) {
  return figures.has_before ? std::to_string(load.before) : "-";
}

std::string load_table(const Site& site, const SteeringFigures& figures, const SteeringWindow& window) {
  std::string text = line("%-12s %-18s %-8s %17s %9s %5s\n", "AP", "room", "band",
                          line("clients at %.0f s", window.before_s).c_str(), "highest", "now");
  std::size_t idle = 0;
  for (const RadioLoad& load : figures.loads) {
    if (load.highest == 0) {
      ++idle;
      continue;
    }
    text += line("%-12s %-18.18s %-8s %17s %9d %5d\n", site.access_points[load.place.ap].name.c_str(),
                 room_of(site, load).c_str(), band_name(radio_at(site, load.place).band).c_str(),
                 before_text(figures, load).c_str(), load.highest, load.now);
  }
  return text + (idle == 0 ? "" : line("(%zu radios have had no client)\n", idle));
}

int moves_of(const SteeringFigures& figures, Cause cause) {
  const auto found = figures.moves.find(cause);
  return found == figures.moves.end() ? 0 : found->second;
}

// A client that had been served before arrives when it has found no radio for a while.
std::string move_name(Cause cause) {
  return cause == Cause::arrival ? "found none for a while" : name_of(cause);
}

std::string moves_line(const SteeringFigures& figures) {
  std::string list;
  for (const Cause cause : causes_of_moves) {
    if (moves_of(figures, cause) > 0) {
      list += (list.empty() ? "" : ", ") + move_name(cause) + " " + std::to_string(moves_of(figures, cause));
    }
  }
  return "moves by cause      " + (list.empty() ? "none" : list) + "\n";
}

std::string ordered_lines(const SteeringFigures& figures) {
  const OrderedMoves& asked = figures.by_transition;
  const OrderedMoves& sent = figures.by_sending_away;
  return line("ordered moves       %d of %d succeeded; %d undone within a minute\n", figures.succeeded(),
              figures.ordered(), figures.bounced) +
         line("  transition        %d of %d; %d declined, %d given up, %d turned away at the other radio\n",
              asked.succeeded, asked.given(), asked.declined, asked.given_up, asked.turned_away) +
         line("  sent away         %d of %d; %d back on the same radio at once, %d found none; longest gap %.1f s\n",
              sent.succeeded, sent.given(), sent.back_at_once, sent.lost, seconds(figures.longest_without_radio));
}

std::string authentication_lines(const SteeringFigures& figures) {
  std::string text = line("transitions         %d fast, %d full\n", figures.transitions.fast, figures.transitions.full);
  for (const WalkerFigures& walker : figures.walkers) {
    text += line("  %s walks: %d fast, %d full\n", walker.client.text().c_str(), walker.transitions.fast,
                 walker.transitions.full);
  }
  return text;
}

std::string held_line(const SteeringFigures& figures) {
  std::string list;
  for (const HoldEnd end : hold_ends) {
    list += line("%d %s, ", figures.held.of(end), name_of(end).c_str());
  }
  return "held associations   " + list +
         line("%d wait; longest %.1f s\n", figures.held.waiting, seconds(figures.held.longest));
}

std::string key_of(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

Json load_json(const Site& site, const SteeringFigures& figures, const RadioLoad& load) {
  const std::string room = room_of(site, load);
  return {{"ap", site.access_points[load.place.ap].name},
          {"room", room.empty() ? Json(nullptr) : Json(room)},
          {"radio", load.place.radio},
          {"band", radio_at(site, load.place).band},
          {"before", figures.has_before ? Json(load.before) : Json(nullptr)},
          {"highest", load.highest},
          {"now", load.now}};
}

Json transitions_json(const Transitions& transitions) {
  return {{"fast", transitions.fast}, {"full", transitions.full}};
}

Json walkers_json(const SteeringFigures& figures) {
  Json list = Json::array();
  for (const WalkerFigures& walker : figures.walkers) {
    Json json = {{"mac", walker.client.text()}};
    json.update(transitions_json(walker.transitions));
    list.push_back(std::move(json));
  }
  return list;
}

Json moves_json(const SteeringFigures& figures) {
  Json json = Json::object();
  for (const Cause cause : causes_of_moves) {
    json[key_of(move_name(cause))] = moves_of(figures, cause);
  }
  return json;
}

Json ordered_json_of(const SteeringFigures& figures) {
  const OrderedMoves& asked = figures.by_transition;
  const OrderedMoves& sent = figures.by_sending_away;
  return {{"given", figures.ordered()},
          {"succeeded", figures.succeeded()},
          {"undone_within_a_minute", figures.bounced},
          {"transition",
           {{"given", asked.given()},
            {"succeeded", asked.succeeded},
            {"declined", asked.declined},
            {"given_up", asked.given_up},
            {"turned_away", asked.turned_away}}},
          {"sent_away",
           {{"given", sent.given()},
            {"succeeded", sent.succeeded},
            {"back_at_once", sent.back_at_once},
            {"lost", sent.lost},
            {"longest_gap", seconds(figures.longest_without_radio)}}}};
}

Json held_json(const HeldAssociations& held) {
  Json json = Json::object();
  for (const HoldEnd end : hold_ends) {
    json[key_of(name_of(end))] = held.of(end);
  }
  json["waiting"] = held.waiting;
  json["longest"] = seconds(held.longest);
  return json;
}

}  // namespace

std::string steering_table(const Site& site, const SteeringWindow& window, const SteeringFigures& figures,
                           const std::vector<Check>& checks) {
  std::string text = line("\n%s: the clients after %.0f s\n\n", site.domain.c_str(), seconds(figures.at));
  text += load_table(site, figures, window) + "\n";
  text += moves_line(figures) + ordered_lines(figures) + authentication_lines(figures) + held_line(figures);
  text += line("turned away         %d; %d let in for good since they kept trying\n", figures.turned_away,
               figures.let_in_for_good);
  return text + (checks.empty() ? "" : "\n") + checks_text(checks);
}

std::string steering_json(const Site& site, const SteeringWindow& window, const SteeringFigures& figures,
                          const std::vector<Check>& checks) {
  Json radios = Json::array();
  for (const RadioLoad& load : figures.loads) {
    radios.push_back(load_json(site, figures, load));
  }
  const Json json = {{"site", site.name},
                     {"domain", site.domain},
                     {"seed", site.seed},
                     {"seconds", {{"before", window.before_s}, {"now", seconds(figures.at)}}},
                     {"radios", std::move(radios)},
                     {"moves", moves_json(figures)},
                     {"ordered", ordered_json_of(figures)},
                     {"transitions", transitions_json(figures.transitions)},
                     {"walkers", walkers_json(figures)},
                     {"held", held_json(figures.held)},
                     {"refused", {{"turned_away", figures.turned_away}, {"let_in_for_good", figures.let_in_for_good}}},
                     {"checks", checks_json(checks)}};
  return json.dump(2) + "\n";
}

}  // namespace sim
