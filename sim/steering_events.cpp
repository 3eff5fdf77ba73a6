#include "sim/steering_events.h"

namespace sim {

std::string name_of(Happening what) {
  switch (what) {
    case Happening::joined:
      return "joined";
    case Happening::moved:
      return "moved";
    case Happening::left:
      return "left";
    case Happening::turned_away:
      return "turned away";
    case Happening::declined:
      return "declined";
    case Happening::gave_up:
      return "gave up";
    case Happening::released:
      return "released";
  }
  return "";
}

std::string name_of(Cause cause) {
  switch (cause) {
    case Cause::arrival:
      return "arrival";
    case Cause::own_choice:
      return "own choice";
    case Cause::came_back:
      return "came back";
    case Cause::sent_away:
      return "sent away";
    case Cause::transition:
      return "transition";
    case Cause::out_of_reach:
      return "out of reach";
    case Cause::radio_gone:
      return "radio gone";
    case Cause::departure:
      return "departure";
  }
  return "";
}

std::string name_of(Authentication kind) {
  return kind == Authentication::fast ? "fast" : "full";
}

std::string name_of(HoldEnd end) {
  switch (end) {
    case HoldEnd::acknowledged:
      return "acknowledged";
    case HoldEnd::sent_away:
      return "sent away";
    case HoldEnd::client_left:
      return "client left";
    case HoldEnd::radio_gone:
      return "radio gone";
    case HoldEnd::timed_out:
      return "timed out";
    case HoldEnd::session_lost:
      return "session lost";
  }
  return "";
}

}  // namespace sim
