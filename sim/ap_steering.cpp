#include "sim/ap_steering.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace sim {
namespace {

constexpr Millis listening_ms = 500;       // how long an AP listens for a station that it is asked about
constexpr int worth_reporting_db = 3;      // change of a station's signal
constexpr int falling_fast_db = 10;        // ... and one that calls the station unstable
constexpr double weakest_heard_dbm = -90;  // a station's frames below this are not heard
constexpr int not_heard = 0;               // the level that stands for none
constexpr Millis longest_hold_ms =
    10'000;  // twice what a controller takes to ask around; then its silence counts as yes

Millis seconds(int value) {
  return Millis{value} * 1000;
}

HoldEnd hold_end_of(Cause departure) {
  switch (departure) {
    case Cause::sent_away:
      return HoldEnd::sent_away;
    case Cause::radio_gone:
      return HoldEnd::radio_gone;
    default:
      return HoldEnd::client_left;
  }
}

}  // namespace

ApSteering::ApSteering(const World& world, Stations& stations, std::size_t ap, Uplink& uplink, SteeringFeed feed)
    : world_(world), stations_(stations), ap_(ap), uplink_(uplink), feed_(std::move(feed)) {}

const std::map<std::string, ApSteering::Handler>& ApSteering::handlers() {
  static const std::map<std::string, Handler> table = {
      {"rrm-probe-request", &ApSteering::on_probe_request}, {"rrm-client-assoc-ack", &ApSteering::on_client_assoc_ack},
      {"rrm-blacklist", &ApSteering::on_blacklist},         {"rrm-disassoc-request", &ApSteering::on_disassoc_request},
      {"rrm-sta-overload", &ApSteering::on_overload},       {"fbt-info", &ApSteering::on_fbt_info},
  };
  return table;
}

void ApSteering::take(const std::string& command, const Json& message, Millis now) {
  (this->*handlers().at(command))(message, now);
}

void ApSteering::apply_settings(const Json& holder) {
  balances_ = int_or(holder, "use-load-balance", balances_ ? 1 : 0) != 0;
  for (const Json& radio : objects_of(holder, "radios")) {
    renew_seconds_ = int_or(radio, "dunva-client-rssi-renew", renew_seconds_);
    tries_before_admission_ = int_or(radio, "dunva-try-no-balance", tries_before_admission_);
    roam_attempt_seconds_ = int_or(radio, "dunva-roam-attempt-timeout", roam_attempt_seconds_);
    weak_dbm_ = int_or(radio, "dunva-sta-rssi-thr-low", weak_dbm_);
    strong_dbm_ = int_or(radio, "dunva-sta-rssi-thr-high", strong_dbm_);
  }
  remember_neighbours(holder);
}

void ApSteering::tick(Millis now) {
  answer_probes(now);
  for (const Mac& station : held_.since(now - longest_hold_ms)) {
    end_hold(station, HoldEnd::timed_out, now);
  }
}

void ApSteering::listed() {
  listed_ = served_stations();
}

std::map<Mac, ApSteering::Listed> ApSteering::served_stations() const {
  std::map<Mac, Listed> result;
  for (const Station& station : stations_.all()) {
    if (station.association && station.association->ap == ap_) {
      result[station.client->mac] = {station.association->radio, station.client->ssid};
    }
  }
  return result;
}

// Stations came and went while the answer was on its way, and the list in the subscription cannot say which of them are
// to be left alone.
void ApSteering::subscription_answered() {
  const auto served = served_stations();
  for (const auto& [mac, then] : listed_) {
    const auto present = served.find(mac);
    if (present == served.end() || present->second.radio != then.radio) {
      announce_departure(mac, then.ssid, then.radio);
    }
  }
  for (const auto& [mac, present] : served) {
    const auto then = listed_.find(mac);
    const Station& station = *stations_.find(mac);
    if (then == listed_.end() || then->second.radio != present.radio || station.association->no_balance) {
      announce(station, false);
    }
  }
  listed_.clear();
}

// Nobody asks any more, and nobody is left who could take a refusal back or let a held station send.
void ApSteering::controller_gone(Millis now) {
  probe_answers_.clear();
  refusals_.clear();
  for (const Mac& station : held_.all()) {
    end_hold(station, HoldEnd::session_lost, now);
  }
}

void ApSteering::restart_radios() {
  if (uplink_.subscribed()) {
    uplink_.send(uplink_.message("rrm-disassoc-all-clients"));
  }
  restarting_ = true;
  stations_.lose_all(ap_);
  restarting_ = false;
}

void ApSteering::remember_neighbours(const Json& holder) {
  const auto list = holder.find("802dot11k");
  if (list == holder.end() || !list->is_array()) {
    return;
  }
  neighbour_list_ = list->dump();
  neighbours_.clear();
  for (const Json& entry : objects_of(holder, "802dot11k")) {
    Neighbour neighbour{int_or(entry, "band", 0), int_or(entry, "priority", 0), {}};
    for (const Json& vap : objects_of(entry, "vaps")) {
      if (const auto bssid = Mac::parse(text_or(vap, "mac", ""))) {
        neighbour.bssids.emplace(text_or(vap, "ssid", ""), *bssid);
      }
    }
    neighbours_.push_back(std::move(neighbour));
  }
}

void ApSteering::on_probe_request(const Json& message, Millis now) {
  probe_answers_.push_back({now + listening_ms, objects_of(message, "radios")});
}

void ApSteering::answer_probes(Millis now) {
  while (!probe_answers_.empty() && now >= probe_answers_.front().due) {
    Json radios = Json::array();
    for (const Json& request : probe_answers_.front().radios) {
      const Radio* const radio = world_.radio(ap_, int_or(request, "id", -1));
      Json heard = radio == nullptr ? Json::array() : probe_list_of(*radio, request);
      if (!heard.empty()) {
        radios.push_back({{"id", radio->id}, {"probe-list", std::move(heard)}});
      }
    }
    probe_answers_.pop_front();
    if (!radios.empty()) {
      Json json = uplink_.message("rrm-probe-response");
      json["radios"] = std::move(radios);
      uplink_.send(json);
    }
  }
}

// A radio that has listened in vain says so too: the controller waits for every radio that it asked, and a client waits
// for the controller.
Json ApSteering::probe_list_of(const Radio& radio, const Json& request) const {
  Json list = Json::array();
  for (const Json& entry : objects_of(request, "probe-list")) {
    if (const auto mac = Mac::parse(text_or(entry, "mac", ""))) {
      list.push_back({{"mac", mac->text()}, {"ssid", text_or(entry, "ssid", "")}, {"rssi", heard_rssi(radio, *mac)}});
    }
  }
  return list;
}

int ApSteering::heard_rssi(const Radio& radio, const Mac& mac) const {
  const Station* const station = stations_.find(mac);
  if (station == nullptr || !station->present || !radio.enabled) {
    return not_heard;
  }
  const auto& bands = station->client->bands;
  const double level = world_.uplink_dbm(ap_, radio, station->position, mac);
  return level >= weakest_heard_dbm && std::find(bands.begin(), bands.end(), radio.band) != bands.end()
             ? static_cast<int>(std::lround(level))
             : not_heard;
}

void ApSteering::on_client_assoc_ack(const Json& message, Millis now) {
  const auto mac = Mac::parse(text_or(message, "sta-mac", ""));
  const HeldClients::Hold* const hold = mac ? held_.find(*mac) : nullptr;
  if (hold != nullptr && hold->radio == int_or(message, "radio", -1) && hold->ssid == text_or(message, "ssid", "")) {
    end_hold(*mac, HoldEnd::acknowledged, now);
  }
}

void ApSteering::on_fbt_info(const Json& message, Millis) {
  key_holders_ = key_holders_from_json(message);
}

const KeyHolder* ApSteering::key_holder(int radio_id, const std::string& ssid) const {
  const Radio* const radio = world_.radio(ap_, radio_id);
  const Vap* const vap = radio != nullptr && radio->enabled ? vap_of(*radio, ssid) : nullptr;
  if (vap == nullptr || !vap->use_80211r) {
    return nullptr;
  }
  const auto found = std::find_if(key_holders_.begin(), key_holders_.end(), [&](const KeyHolder& holder) {
    return holder.radio == radio_id && holder.vap == vap->id && holder.named();
  });
  return found == key_holders_.end() ? nullptr : &*found;
}

void ApSteering::on_blacklist(const Json& message, Millis now) {
  for (const Json& radio : objects_of(message, "radios")) {
    const int id = int_or(radio, "id", -1);
    for (const Json& entry : objects_of(radio, "blacklist")) {
      const auto mac = Mac::parse(text_or(entry, "mac", ""));
      const std::string action = text_or(entry, "action", "");
      if (mac && action == "block") {
        block(id, *mac, entry, now);
      } else if (mac && action == "unblock") {
        refusals_.unblock(id, *mac);
      }
    }
  }
}

void ApSteering::block(int radio, const Mac& station, const Json& entry, Millis now) {
  if (world_.radio(ap_, radio) != nullptr) {
    refusals_.block(radio, station, now + seconds(int_or(entry, "timeout", 0)));
  }
}

// All of the list is closed before anybody is sent away.
void ApSteering::on_disassoc_request(const Json& message, Millis now) {
  std::vector<Mac> leaving;
  for (const Json& radio : objects_of(message, "radios")) {
    const int id = int_or(radio, "id", -1);
    for (const Json& entry : objects_of(radio, "diassoc-list")) {
      const auto mac = Mac::parse(text_or(entry, "mac", ""));
      if (!mac) {
        continue;
      }
      block(id, *mac, entry, now);
      if (serves(id, *mac, text_or(entry, "ssid", ""))) {
        leaving.push_back(*mac);
      }
    }
  }
  for (const Mac& mac : leaving) {
    stations_.dismiss(mac);
  }
}

bool ApSteering::serves(int radio, const Mac& mac, const std::string& ssid) const {
  const Station* const station = stations_.find(mac);
  return station != nullptr && station->association && station->association->place() == Place{ap_, radio} &&
         station->client->ssid == ssid;
}

void ApSteering::on_overload(const Json& message, Millis now) {
  remember_neighbours(message);
  for (const Json& radio : objects_of(message, "radios")) {
    steer(int_or(radio, "id", -1), int_or(radio, "roam-count", 0), now);
  }
}

// The stations that this radio serves worst are the first to be asked to move, and nobody is asked again for a while.
void ApSteering::steer(int radio_id, int count, Millis now) {
  const Radio* const radio = world_.radio(ap_, radio_id);
  if (radio == nullptr) {
    return;
  }
  std::erase_if(asked_not_before_, [now](const auto& entry) { return entry.second <= now; });
  std::vector<const Station*> served = stations_.served_by(ap_, radio_id);
  const auto level = [&](const Station* station) { return uplink_rssi(*station); };
  std::stable_sort(served.begin(), served.end(),
                   [&](const Station* a, const Station* b) { return level(a) < level(b); });
  for (const Station* const station : served) {
    if (count <= 0) {
      return;
    }
    if (may_be_asked(*station, *radio) && ask_to_move(*station, *radio, now)) {
      --count;
    }
  }
}

bool ApSteering::may_be_asked(const Station& station, const Radio& radio) const {
  const Mac& mac = station.client->mac;
  return vap_of(radio, station.client->ssid)->use_80211v && !station.association->no_balance && !held_.holds(mac) &&
         asked_not_before_.count(mac) == 0;
}

// Whether the station agreed.
bool ApSteering::ask_to_move(const Station& station, const Radio& from, Millis now) {
  const auto list = transition_candidates(station, from);
  if (list.empty()) {
    return false;
  }
  const Mac mac = station.client->mac;
  asked_not_before_[mac] = now + seconds(roam_attempt_seconds_);
  const std::optional<Mac> target = stations_.propose(mac, list);
  if (!target) {
    return false;
  }
  Json json = uplink_.message("rrm-sta-roam");
  json["radio"] = world_.find_bssid(*target)->radio;
  json["sta-mac"] = mac.text();
  json["target-mac"] = target->text();
  uplink_.send(json);
  return true;
}

// The neighbours of the radio's band that have the station's SSID.
std::vector<TransitionCandidate> ApSteering::transition_candidates(const Station& station, const Radio& from) const {
  std::vector<TransitionCandidate> list;
  for (const Neighbour& neighbour : neighbours_) {
    const auto bssid = neighbour.bssids.find(station.client->ssid);
    if (bssid != neighbour.bssids.end() && (neighbour.band == 0 || neighbour.band == from.band)) {
      list.push_back({bssid->second, neighbour.priority});
    }
  }
  return list;
}

StationObserver::Answer ApSteering::admission(int radio, const Mac& station, Millis now) {
  return refusals_.answer(radio, station, tries_before_admission_, now);
}

int ApSteering::uplink_rssi(const Station& station) const {
  const Radio& radio = *world_.radio(ap_, station.association->radio);
  return static_cast<int>(std::lround(world_.uplink_dbm(ap_, radio, station.position, station.client->mac)));
}

// A controller that does not balance acknowledges nobody, and so does one that may balance no radio of this AP.
bool ApSteering::controller_acknowledges() const {
  const auto& radios = world_.radios(ap_);
  return uplink_.subscribed() && balances_ &&
         std::any_of(radios.begin(), radios.end(), [](const Radio& radio) { return !radio.locked_for_balancer; });
}

bool ApSteering::station_joined(const Station& station, Millis now) {
  const Association& association = *station.association;
  const bool held = controller_acknowledges();
  reports_[station.client->mac] = {now, uplink_rssi(station)};
  if (held) {
    held_.hold(station.client->mac, {association.radio, station.client->ssid, now});
  }
  if (uplink_.subscribed()) {  // otherwise the next subscription lists it
    announce(station, held);
  }
  return held;
}

void ApSteering::announce(const Station& station, bool held) {
  Json json = uplink_.message("rrm-client-assoc");
  json["radio"] = station.association->radio;
  json["rssi"] = uplink_rssi(station);
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  json["no-balance"] = station.association->no_balance ? 1 : 0;
  json["need-ack"] = held ? 1 : 0;
  uplink_.send(json);
}

void ApSteering::station_left(const Station& station, const Association& from, Cause why, Millis now) {
  const Mac& mac = station.client->mac;
  reports_.erase(mac);
  end_hold(mac, hold_end_of(why), now);
  if (uplink_.subscribed() && !restarting_) {
    announce_departure(mac, station.client->ssid, from.radio);
  }
}

void ApSteering::announce_departure(const Mac& station, const std::string& ssid, int radio) {
  Json json = uplink_.message("rrm-client-disassoc");
  json["radio"] = radio;
  json["sta-mac"] = station.text();
  json["ssid"] = ssid;
  uplink_.send(json);
}

void ApSteering::end_hold(const Mac& station, HoldEnd how, Millis now) {
  const auto hold = held_.end(station, how);
  if (!hold) {
    return;
  }
  SteeringEvent event;
  event.client = station;
  event.what = Happening::released;
  event.to = Place{ap_, hold->radio};
  event.hold_end = how;
  event.held_for = now - hold->since;
  feed_(event);
}

// A change counts by its size, or because it takes the station over one of the controller's two lines.
bool ApSteering::worth_reporting(int last, int present) const {
  const auto crosses = [&](int line) { return (last > line) != (present > line); };
  return std::abs(present - last) >= worth_reporting_db || crosses(weak_dbm_) || crosses(strong_dbm_);
}

void ApSteering::station_observed(const Station& station, Millis now) {
  Report& last = reports_[station.client->mac];
  if (!uplink_.subscribed() || now - last.at < seconds(renew_seconds_)) {
    return;
  }
  last.at = now;
  const int rssi = uplink_rssi(station);
  if (!worth_reporting(last.rssi, rssi)) {
    return;
  }
  const int change = rssi - std::exchange(last.rssi, rssi);
  Json json = uplink_.message("rrm-assoc-state-changed");
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  json["state"] = change <= -falling_fast_db ? "unstable" : "stable";
  json["rssi"] = rssi;
  json["radio"] = station.association->radio;
  uplink_.send(json);
}

}  // namespace sim
