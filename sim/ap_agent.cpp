#include "sim/ap_agent.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace sim {
namespace {

constexpr Millis subscribe_again_after_ms = 10'000;
constexpr Millis listening_ms = 500;       // how long an AP listens for a station that it is asked about
constexpr int worth_reporting_db = 3;      // change of a station's signal
constexpr int falling_fast_db = 10;        // ... and one that calls the station unstable
constexpr double weakest_heard_dbm = -90;  // a station's frames below this are not heard
constexpr int not_heard = 0;               // the level that stands for none
constexpr Millis longest_hold_ms =
    10'000;  // twice what a controller takes to ask around; then its silence counts as yes

Millis seconds(double value) {
  return static_cast<Millis>(value * 1000);
}

// For the log: what came over the wire may be long, and may be no text at all.
std::string shortened(const std::string& text) {
  constexpr std::size_t longest = 80;
  std::string result = text.substr(0, longest);
  const auto is_strange = [](char symbol) { return symbol < ' ' || symbol > '~'; };
  std::replace_if(result.begin(), result.end(), is_strange, '?');
  return result + (text.size() > longest ? "..." : "");
}

}  // namespace

std::string CycleProgress::missing() const {
  if (!mode_answered) {
    return "no rrm-request-mode";
  }
  if (!scan_asked) {
    return "no rrm-update";
  }
  if (!scan_answered) {
    return "the scan is not finished";
  }
  return planned ? "" : "no rrm-info with a plan";
}

ApAgent::ApAgent(World& world, Stations& stations, std::size_t index, Log log, SteeringFeed feed)
    : world_(world), stations_(stations), index_(index), log_(std::move(log)), feed_(std::move(feed)) {}

const std::map<std::string, ApAgent::Handler>& ApAgent::handlers() {
  static const std::map<std::string, Handler> table = {
      {"subscribe-response", &ApAgent::on_subscribe_response},
      {"rrm-request-mode", &ApAgent::on_request_mode},
      {"rrm-update", &ApAgent::on_update},
      {"rrm-info", &ApAgent::on_info},
      {"rrm-probe-request", &ApAgent::on_probe_request},
      {"rrm-client-assoc-ack", &ApAgent::on_client_assoc_ack},
      {"rrm-blacklist", &ApAgent::on_blacklist},
      {"rrm-disassoc-request", &ApAgent::on_disassoc_request},
      {"rrm-sta-overload", &ApAgent::on_overload},
      {"fbt-info", &ApAgent::on_fbt_info},
  };
  return table;
}

void ApAgent::connected(Millis now) {
  online_ = true;
  wants_subscription_ = true;
  subscribe(now);
}

void ApAgent::disconnected(Millis now) {
  online_ = false;
  outgoing_.clear();
  forget_controller(now);
}

void ApAgent::unsubscribe(Millis now) {
  wants_subscription_ = false;
  if (subscribed_) {
    send(message("unsubscribe-request"));
    forget_controller(now);
  }
}

// What it asked for is not wanted any more, and nobody is left who could let a held station send.
void ApAgent::forget_controller(Millis now) {
  subscribed_ = false;
  scan_.reset();
  probe_answers_.clear();
  for (const Mac& station : held_.all()) {
    end_hold(station, HoldEnd::session_lost, now);
  }
}

void ApAgent::subscribe(Millis now) {
  Json json = message("subscribe-request");
  json["factory"] = factory_to_json(ap());
  json["ap-mac-count"] = 48;
  json["use-wildcard-80211r"] = ap().wildcard_80211r ? 1 : 0;
  json["radios"] = radios_to_json(world_, index_, &stations_);
  send(json);
  next_subscribe_ = now + subscribe_again_after_ms;
  listed_ = served_stations();
}

std::map<Mac, ApAgent::Listed> ApAgent::served_stations() const {
  std::map<Mac, Listed> result;
  for (const Station& station : stations_.all()) {
    if (station.association && station.association->ap == index_) {
      result[station.client->mac] = {station.association->radio, station.client->ssid};
    }
  }
  return result;
}

// Stations came and went while the answer was on its way, and the list in the subscription cannot say which of them are
// to be left alone.
void ApAgent::tell_what_changed_since_subscribing() {
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

void ApAgent::received(const std::string& text, Millis now) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) {
    log("ignored a text that is no JSON object: " + shortened(text));
    return;
  }
  const std::string command = text_or(json, "cmd", "");
  const auto handler = handlers().find(command);
  if (text_or(json, "service", "") != "rrm" || handler == handlers().end()) {
    log("ignored an unknown message: " + shortened(text));
    return;
  }
  const std::string mac = text_or(json, "ap-mac", ap().mac.text());
  if (Mac::parse(mac) != ap().mac) {
    log("ignored " + command + " for " + shortened(mac));
    return;
  }
  (this->*handler->second)(json, now);
}

void ApAgent::tick(Millis now) {
  if (!online_) {
    return;
  }
  if (!subscribed_ && wants_subscription_ && now >= next_subscribe_) {
    log("no answer to the subscription, asking again");
    subscribe(now);
  }
  if (scan_ && now >= scan_->due) {
    answer_scan();
  }
  answer_probes(now);
  for (const Mac& station : held_.since(now - longest_hold_ms)) {
    end_hold(station, HoldEnd::timed_out, now);
  }
}

std::vector<std::string> ApAgent::take_outgoing() {
  return std::exchange(outgoing_, {});
}

Json ApAgent::message(const char* command) const {
  return envelope(command, ap(), world_.site().domain);
}

void ApAgent::send(const Json& message) {
  if (online_) {
    outgoing_.push_back(message.dump());
  }
}

void ApAgent::on_subscribe_response(const Json& message, Millis) {
  if (text_or(message, "status", "") != "success") {
    log("the subscription was refused with code " + std::to_string(int_or(message, "code", 0)));
    return;
  }
  const auto config = message.find("config");
  if (config != message.end() && config->is_object()) {
    apply_settings(*config);
  }
  if (!std::exchange(subscribed_, true)) {
    tell_what_changed_since_subscribing();
  }
}

void ApAgent::apply_settings(const Json& holder) {
  balances_ = int_or(holder, "use-load-balance", balances_ ? 1 : 0) != 0;
  apply_radios(holder);
  remember_neighbours(holder);
}

void ApAgent::apply_radios(const Json& holder) {
  for (const Json& radio : objects_of(holder, "radios")) {
    const std::string refusal = world_.apply(index_, order_from_json(radio));
    if (!refusal.empty()) {
      log("cannot set a radio as ordered: " + refusal);
    }
    renew_seconds_ = int_or(radio, "dunva-client-rssi-renew", renew_seconds_);
    tries_before_admission_ = int_or(radio, "dunva-try-no-balance", tries_before_admission_);
    roam_attempt_seconds_ = int_or(radio, "dunva-roam-attempt-timeout", roam_attempt_seconds_);
    weak_dbm_ = int_or(radio, "dunva-sta-rssi-thr-low", weak_dbm_);
    strong_dbm_ = int_or(radio, "dunva-sta-rssi-thr-high", strong_dbm_);
  }
}

void ApAgent::remember_neighbours(const Json& holder) {
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

void ApAgent::on_request_mode(const Json&, Millis) {
  ++cycles_begun_;
  progress_ = {};
  scan_.reset();
  Json json = message("rrm-mode-response");
  json["radios"] = radios_to_json(world_, index_, nullptr);
  send(json);
  progress_.mode_answered = true;
}

void ApAgent::on_update(const Json& message, Millis now) {
  progress_.scan_asked = true;
  progress_.scan_answered = false;
  progress_.planned = false;
  ScanChannels channels = scan_channels_from_json(message);
  const Millis delay = seconds(std::max(0, int_or(message, "rrm-scan-delay", 0)));
  const Millis due = now + delay + scan_duration_ms(message, channels);
  scan_ = Scan{due, std::move(channels)};
}

// With a radio set aside for scanning all bands are visited at once; without one the serving radios leave their channel
// for a moment for each channel of the list, band after band.
Millis ApAgent::scan_duration_ms(const Json& message, const ScanChannels& channels) const {
  const ScanSettings& settings = world_.site().scan;
  if (int_or(message, "dunva-rrm-scanning", 0) != 0) {
    return seconds(settings.fast_seconds);
  }
  std::size_t visits = 0;
  for (const auto& [band, list] : channels) {
    visits += list.size();
  }
  return static_cast<Millis>(visits) * settings.dwell_ms * settings.rounds;
}

void ApAgent::answer_scan() {
  Json rounds = Json::array();
  for (const ScanRound& round : world_.hear(index_, scan_->channels, scans_)) {
    Json entries = Json::array();
    for (const HeardBss& heard : round) {
      entries.push_back(heard_to_json(heard));
    }
    rounds.push_back(std::move(entries));
  }
  Json json = message("rrm-response");
  json["radios"] = radios_to_json(world_, index_, nullptr);
  json["rf-environment"] = std::move(rounds);
  send(json);
  scan_.reset();
  ++scans_;
  progress_.scan_answered = true;
}

void ApAgent::on_info(const Json& message, Millis) {
  ++infos_received_;
  apply_settings(message);
  if (message.contains("radios") && progress_.scan_answered) {
    progress_.planned = true;
  }
}

void ApAgent::on_probe_request(const Json& message, Millis now) {
  probe_answers_.push_back({now + listening_ms, objects_of(message, "radios")});
}

void ApAgent::answer_probes(Millis now) {
  while (!probe_answers_.empty() && now >= probe_answers_.front().due) {
    Json radios = Json::array();
    for (const Json& request : probe_answers_.front().radios) {
      const Radio* const radio = world_.radio(index_, int_or(request, "id", -1));
      Json heard = radio == nullptr ? Json::array() : probe_list_of(*radio, request);
      if (!heard.empty()) {
        radios.push_back({{"id", radio->id}, {"probe-list", std::move(heard)}});
      }
    }
    probe_answers_.pop_front();
    if (!radios.empty()) {
      Json json = message("rrm-probe-response");
      json["radios"] = std::move(radios);
      send(json);
    }
  }
}

// A radio that has listened in vain says so too: the controller waits for every radio that it asked, and a client waits
// for the controller.
Json ApAgent::probe_list_of(const Radio& radio, const Json& request) const {
  Json list = Json::array();
  for (const Json& entry : objects_of(request, "probe-list")) {
    if (const auto mac = Mac::parse(text_or(entry, "mac", ""))) {
      list.push_back({{"mac", mac->text()}, {"ssid", text_or(entry, "ssid", "")}, {"rssi", heard_rssi(radio, *mac)}});
    }
  }
  return list;
}

int ApAgent::heard_rssi(const Radio& radio, const Mac& mac) const {
  const Station* const station = stations_.find(mac);
  if (station == nullptr || !station->present || !radio.enabled) {
    return not_heard;
  }
  const auto& bands = station->client->bands;
  const double level = world_.uplink_dbm(index_, radio, station->position, mac);
  return level >= weakest_heard_dbm && std::find(bands.begin(), bands.end(), radio.band) != bands.end()
             ? static_cast<int>(std::lround(level))
             : not_heard;
}

void ApAgent::on_client_assoc_ack(const Json& message, Millis now) {
  const auto mac = Mac::parse(text_or(message, "sta-mac", ""));
  const HeldClients::Hold* const hold = mac ? held_.find(*mac) : nullptr;
  if (hold != nullptr && hold->radio == int_or(message, "radio", -1) && hold->ssid == text_or(message, "ssid", "")) {
    end_hold(*mac, HoldEnd::acknowledged, now);
  }
}

void ApAgent::on_fbt_info(const Json& message, Millis) {
  key_holders_ = key_holders_from_json(message);
}

const KeyHolder* ApAgent::key_holder(int radio_id, const std::string& ssid) const {
  const Radio* const radio = world_.radio(index_, radio_id);
  const Vap* const vap = radio != nullptr && radio->enabled ? vap_of(*radio, ssid) : nullptr;
  if (vap == nullptr || !vap->use_80211r) {
    return nullptr;
  }
  const auto found = std::find_if(key_holders_.begin(), key_holders_.end(), [&](const KeyHolder& holder) {
    return holder.radio == radio_id && holder.vap == vap->id && holder.named();
  });
  return found == key_holders_.end() ? nullptr : &*found;
}

void ApAgent::on_blacklist(const Json& message, Millis now) {
  for (const Json& radio : objects_of(message, "radios")) {
    const int id = int_or(radio, "id", -1);
    for (const Json& entry : objects_of(radio, "blacklist")) {
      const auto mac = Mac::parse(text_or(entry, "mac", ""));
      const std::string action = text_or(entry, "action", "");
      if (mac && action == "block") {
        refusals_.block(id, *mac, now + seconds(int_or(entry, "timeout", 0)));
      } else if (mac && action == "unblock") {
        refusals_.unblock(id, *mac);
      }
    }
  }
}

// All of the list is closed before anybody is sent away.
void ApAgent::on_disassoc_request(const Json& message, Millis now) {
  std::vector<Mac> leaving;
  for (const Json& radio : objects_of(message, "radios")) {
    const int id = int_or(radio, "id", -1);
    for (const Json& entry : objects_of(radio, "diassoc-list")) {
      const auto mac = Mac::parse(text_or(entry, "mac", ""));
      const Station* const station = mac ? stations_.find(*mac) : nullptr;
      if (station == nullptr) {
        continue;
      }
      refusals_.block(id, *mac, now + seconds(int_or(entry, "timeout", 0)));
      if (station->association && station->association->place() == Place{index_, id} &&
          text_or(entry, "ssid", station->client->ssid) == station->client->ssid) {
        leaving.push_back(*mac);
      }
    }
  }
  for (const Mac& mac : leaving) {
    stations_.dismiss(mac);
  }
}

void ApAgent::on_overload(const Json& message, Millis now) {
  remember_neighbours(message);
  for (const Json& radio : objects_of(message, "radios")) {
    steer(int_or(radio, "id", -1), int_or(radio, "roam-count", 0), now);
  }
}

// The stations that this radio serves worst are the first to be asked to move, and nobody is asked again for a while.
void ApAgent::steer(int radio_id, int count, Millis now) {
  const Radio* const radio = world_.radio(index_, radio_id);
  if (radio == nullptr) {
    return;
  }
  std::erase_if(asked_not_before_, [now](const auto& entry) { return entry.second <= now; });
  std::vector<const Station*> served = stations_.served_by(index_, radio_id);
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

bool ApAgent::may_be_asked(const Station& station, const Radio& radio) const {
  const Mac& mac = station.client->mac;
  return vap_of(radio, station.client->ssid)->use_80211v && !station.association->no_balance && !held_.holds(mac) &&
         asked_not_before_.count(mac) == 0;
}

// Whether the station agreed.
bool ApAgent::ask_to_move(const Station& station, const Radio& from, Millis now) {
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
  Json json = message("rrm-sta-roam");
  json["radio"] = world_.find_bssid(*target)->radio;
  json["sta-mac"] = mac.text();
  json["target-mac"] = target->text();
  send(json);
  return true;
}

// The neighbours of the radio's band that have the station's SSID.
std::vector<TransitionCandidate> ApAgent::transition_candidates(const Station& station, const Radio& from) const {
  std::vector<TransitionCandidate> list;
  for (const Neighbour& neighbour : neighbours_) {
    const auto bssid = neighbour.bssids.find(station.client->ssid);
    if (bssid != neighbour.bssids.end() && (neighbour.band == 0 || neighbour.band == from.band)) {
      list.push_back({bssid->second, neighbour.priority});
    }
  }
  return list;
}

std::string ApAgent::reconfigure(const Radio& radio) {
  std::string refusal = world_.reconfigure(index_, radio);
  if (!refusal.empty()) {
    return refusal;
  }
  stations_.lose_unserved();
  if (subscribed_) {
    Json json = message("rrm-config-changed");
    json["radios"] = radios_to_json(world_, index_, nullptr);
    send(json);
  }
  return refusal;
}

void ApAgent::restart_radios() {
  if (subscribed_) {
    send(message("rrm-disassoc-all-clients"));
  }
  restarting_ = true;
  stations_.lose_all(index_);
  restarting_ = false;
}

StationObserver::Answer ApAgent::admission(int radio, const Mac& station, Millis now) {
  return refusals_.answer(radio, station, tries_before_admission_, now);
}

int ApAgent::uplink_rssi(const Station& station) const {
  const Radio& radio = *world_.radio(index_, station.association->radio);
  return static_cast<int>(std::lround(world_.uplink_dbm(index_, radio, station.position, station.client->mac)));
}

// A controller that does not balance acknowledges nobody, and so does one that may balance no radio of this AP.
bool ApAgent::controller_acknowledges() const {
  const auto& radios = world_.radios(index_);
  return subscribed_ && balances_ &&
         std::any_of(radios.begin(), radios.end(), [](const Radio& radio) { return !radio.locked_for_balancer; });
}

bool ApAgent::station_joined(const Station& station, Millis now) {
  const Association& association = *station.association;
  const bool held = controller_acknowledges();
  reports_[station.client->mac] = {now, uplink_rssi(station)};
  if (held) {
    held_.hold(station.client->mac, {association.radio, station.client->ssid, now});
  }
  if (subscribed_) {  // otherwise the next subscription lists it
    announce(station, held);
  }
  return held;
}

void ApAgent::announce(const Station& station, bool held) {
  Json json = message("rrm-client-assoc");
  json["radio"] = station.association->radio;
  json["rssi"] = uplink_rssi(station);
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  json["no-balance"] = station.association->no_balance ? 1 : 0;
  json["need-ack"] = held ? 1 : 0;
  send(json);
}

void ApAgent::station_left(const Station& station, const Association& from, Cause why, Millis now) {
  const Mac& mac = station.client->mac;
  reports_.erase(mac);
  const bool ordered = why == Cause::sent_away || why == Cause::radio_gone;
  end_hold(mac, ordered ? HoldEnd::sent_away : HoldEnd::client_left, now);
  if (subscribed_ && !restarting_) {
    announce_departure(mac, station.client->ssid, from.radio);
  }
}

void ApAgent::announce_departure(const Mac& station, const std::string& ssid, int radio) {
  Json json = message("rrm-client-disassoc");
  json["radio"] = radio;
  json["sta-mac"] = station.text();
  json["ssid"] = ssid;
  send(json);
}

void ApAgent::end_hold(const Mac& station, HoldEnd how, Millis now) {
  const auto hold = held_.end(station, how);
  if (!hold) {
    return;
  }
  SteeringEvent event;
  event.client = station;
  event.what = Happening::released;
  event.to = Place{index_, hold->radio};
  event.hold_end = how;
  event.held_for = now - hold->since;
  feed_(event);
}

// A change counts by its size, or because it takes the station over one of the controller's two lines.
bool ApAgent::worth_reporting(int last, int present) const {
  const auto crosses = [&](int line) { return (last > line) != (present > line); };
  return std::abs(present - last) >= worth_reporting_db || crosses(weak_dbm_) || crosses(strong_dbm_);
}

void ApAgent::station_observed(const Station& station, Millis now) {
  Report& last = reports_[station.client->mac];
  if (!subscribed_ || now - last.at < seconds(renew_seconds_)) {
    return;
  }
  last.at = now;
  const int rssi = uplink_rssi(station);
  if (!worth_reporting(last.rssi, rssi)) {
    return;
  }
  const int change = rssi - std::exchange(last.rssi, rssi);
  Json json = message("rrm-assoc-state-changed");
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  json["state"] = change <= -falling_fast_db ? "unstable" : "stable";
  json["rssi"] = rssi;
  json["radio"] = station.association->radio;
  send(json);
}

}  // namespace sim
