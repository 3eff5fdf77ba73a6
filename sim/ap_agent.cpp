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

ApAgent::ApAgent(World& world, Stations& stations, std::size_t index, Log log)
    : world_(world), stations_(stations), index_(index), log_(std::move(log)) {}

const std::map<std::string, ApAgent::Handler>& ApAgent::handlers() {
  static const std::map<std::string, Handler> table = {
      {"subscribe-response", &ApAgent::on_subscribe_response},
      {"rrm-request-mode", &ApAgent::on_request_mode},
      {"rrm-update", &ApAgent::on_update},
      {"rrm-info", &ApAgent::on_info},
      {"rrm-probe-request", &ApAgent::on_probe_request},
      {"rrm-client-assoc-ack", &ApAgent::on_noted},
      {"rrm-blacklist", &ApAgent::on_blacklist},
      {"rrm-disassoc-request", &ApAgent::on_disassoc_request},
      {"rrm-sta-overload", &ApAgent::on_overload},
      {"fbt-info", &ApAgent::on_noted},
  };
  return table;
}

void ApAgent::connected(Millis now) {
  online_ = true;
  subscribe(now);
}

void ApAgent::disconnected() {
  online_ = false;
  subscribed_ = false;
  scan_.reset();
  probe_answer_.reset();
  outgoing_.clear();
}

void ApAgent::subscribe(Millis now) {
  Json json = message("subscribe-request");
  json["factory"] = factory_to_json(ap());
  json["ap-mac-count"] = 48;
  json["use-wildcard-80211r"] = 0;
  json["radios"] = radios_to_json(world_, index_, &stations_);
  send(json);
  next_subscribe_ = now + subscribe_again_after_ms;
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
  if (!subscribed_ && now >= next_subscribe_) {
    log("no answer to the subscription, asking again");
    subscribe(now);
  }
  if (scan_ && now >= scan_->due) {
    answer_scan();
  }
  if (probe_answer_ && now >= probe_answer_->due) {
    answer_probes();
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
  subscribed_ = true;
  const auto config = message.find("config");
  if (config != message.end() && config->is_object()) {
    apply_radios(*config);
    remember_neighbours(*config);
  }
}

void ApAgent::apply_radios(const Json& holder) {
  for (const Json& radio : objects_of(holder, "radios")) {
    const std::string refusal = world_.apply(index_, order_from_json(radio));
    if (!refusal.empty()) {
      log("cannot set a radio as ordered: " + refusal);
    }
    renew_seconds_ = int_or(radio, "dunva-client-rssi-renew", renew_seconds_);
    tries_before_admission_ = int_or(radio, "dunva-try-no-balance", tries_before_admission_);
  }
}

void ApAgent::remember_neighbours(const Json& holder) {
  if (!holder.contains("802dot11k")) {
    return;
  }
  neighbours_.clear();
  for (const Json& neighbour : objects_of(holder, "802dot11k")) {
    if (const auto mac = Mac::parse(text_or(neighbour, "neighbour-mac", ""))) {
      neighbours_.push_back({*mac, int_or(neighbour, "priority", 0)});
    }
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
  apply_radios(message);
  remember_neighbours(message);
  if (message.contains("radios") && progress_.scan_answered) {
    progress_.planned = true;
  }
}

void ApAgent::on_probe_request(const Json& message, Millis now) {
  if (!probe_answer_) {
    probe_answer_ = ProbeAnswer{now + listening_ms, {}};
  }
  for (const Json& radio : objects_of(message, "radios")) {
    probe_answer_->radios.push_back(radio);
  }
}

void ApAgent::answer_probes() {
  Json radios = Json::array();
  for (const Json& request : probe_answer_->radios) {
    Json heard = heard_stations(request);
    if (!heard.empty()) {
      radios.push_back({{"id", int_or(request, "id", 0)}, {"probe-list", std::move(heard)}});
    }
  }
  probe_answer_.reset();
  if (!radios.empty()) {
    Json json = message("rrm-probe-response");
    json["radios"] = std::move(radios);
    send(json);
  }
}

Json ApAgent::heard_stations(const Json& radio_request) const {
  Json heard = Json::array();
  const Radio* const radio = world_.radio(index_, int_or(radio_request, "id", -1));
  if (radio == nullptr || !radio->enabled) {
    return heard;
  }
  for (const Json& entry : objects_of(radio_request, "probe-list")) {
    const auto mac = Mac::parse(text_or(entry, "mac", ""));
    const Station* const station = mac ? stations_.find(*mac) : nullptr;
    if (station == nullptr) {
      continue;
    }
    const auto& bands = station->client->bands;
    const double level = world_.uplink_dbm(index_, *radio, station->position, *mac);
    if (level >= weakest_heard_dbm && std::find(bands.begin(), bands.end(), radio->band) != bands.end()) {
      heard.push_back({{"mac", mac->text()}, {"ssid", text_or(entry, "ssid", "")}, {"rssi", std::lround(level)}});
    }
  }
  return heard;
}

// Here an association stands from its beginning, and nobody needs keys: an acknowledgement releases nothing, and links
// of fast transition change nothing that can be heard.
void ApAgent::on_noted(const Json&, Millis) {}

void ApAgent::on_blacklist(const Json& message, Millis now) {
  for (const Json& radio : objects_of(message, "radios")) {
    for (const Json& entry : objects_of(radio, "blacklist")) {
      const auto mac = Mac::parse(text_or(entry, "mac", ""));
      if (!mac) {
        continue;
      }
      const std::pair key{int_or(radio, "id", -1), *mac};
      if (text_or(entry, "action", "") == "block") {
        refused_until_[key] = now + seconds(int_or(entry, "timeout", 0));
      } else {
        refused_until_.erase(key);
      }
    }
  }
}

void ApAgent::on_disassoc_request(const Json& message, Millis now) {
  for (const Json& radio : objects_of(message, "radios")) {
    const int id = int_or(radio, "id", -1);
    for (const Json& entry : objects_of(radio, "diassoc-list")) {
      const auto mac = Mac::parse(text_or(entry, "mac", ""));
      const Station* const station = mac ? stations_.find(*mac) : nullptr;
      if (station == nullptr) {
        continue;
      }
      refused_until_[{id, *mac}] = now + seconds(int_or(entry, "timeout", 0));
      if (station->association && station->association->ap == index_ && station->association->radio == id) {
        stations_.dismiss(*mac);
      }
    }
  }
}

void ApAgent::on_overload(const Json& message, Millis) {
  remember_neighbours(message);
  for (const Json& radio : objects_of(message, "radios")) {
    roam_stations(int_or(radio, "id", -1), int_or(radio, "roam-count", 0));
  }
}

// The stations that this radio serves worst are the first to be offered another one.
void ApAgent::roam_stations(int radio_id, int count) {
  const Radio* const radio = world_.radio(index_, radio_id);
  if (radio == nullptr) {
    return;
  }
  std::vector<const Station*> served = stations_.served_by(index_, radio_id);
  const auto level = [&](const Station* station) {
    return world_.downlink_dbm(index_, *radio, station->position, station->client->mac);
  };
  std::stable_sort(served.begin(), served.end(),
                   [&](const Station* a, const Station* b) { return level(a) < level(b); });
  for (const Station* const station : served) {
    const std::optional<Mac> target = count > 0 ? roam_target(*station, *radio) : std::nullopt;
    if (!target) {
      continue;
    }
    --count;
    Json json = message("rrm-sta-roam");
    const auto [ap_index, target_radio] = *locate(*target);
    json["radio"] = target_radio;
    json["sta-mac"] = station->client->mac.text();
    json["target-mac"] = target->text();
    send(json);
    stations_.move(station->client->mac, ap_index, target_radio);
  }
}

// The neighbour with a priority above 0 that the station hears best, if it hears one well enough.
std::optional<Mac> ApAgent::roam_target(const Station& station, const Radio& from) const {
  std::optional<Mac> best;
  double best_level = weakest_usable_dbm;
  for (const Neighbour& neighbour : neighbours_) {
    const auto place = locate(neighbour.mac);
    if (neighbour.priority <= 0 || !place || place->first == index_) {
      continue;
    }
    const Radio& radio = *world_.radio(place->first, place->second);
    const double level = world_.downlink_dbm(place->first, radio, station.position, station.client->mac);
    if (radio.band == from.band && level > best_level) {
      best_level = level;
      best = neighbour.mac;
    }
  }
  return best;
}

// The AP and the radio that own an address, with or without the locally-administered bit.
std::optional<std::pair<std::size_t, int>> ApAgent::locate(const Mac& mac) const {
  constexpr std::uint64_t local_bit = 0x02ULL << 40U;
  const auto& aps = world_.site().access_points;
  for (std::size_t i = 0; i < aps.size(); ++i) {
    for (const Radio& radio : world_.radios(i)) {
      const std::uint64_t first = radio_mac(aps[i], radio).value;
      if ((mac.value | local_bit) - (first | local_bit) < 16) {
        return std::pair{i, radio.id};
      }
    }
  }
  return std::nullopt;
}

StationObserver::Answer ApAgent::admission(int radio, const Mac& station, int refusals, Millis now) const {
  const auto entry = refused_until_.find({radio, station});
  if (entry == refused_until_.end() || entry->second <= now) {
    return StationObserver::Answer::accepts;
  }
  return refusals >= tries_before_admission_ ? StationObserver::Answer::accepts_for_good
                                             : StationObserver::Answer::refuses;
}

int ApAgent::uplink_rssi(const Station& station) const {
  const Radio& radio = *world_.radio(index_, station.association->radio);
  return static_cast<int>(std::lround(world_.uplink_dbm(index_, radio, station.position, station.client->mac)));
}

void ApAgent::station_joined(const Station& station, Millis now) {
  const Association& association = *station.association;
  const int rssi = uplink_rssi(station);
  reports_[station.client->mac] = {now, rssi};
  if (!subscribed_) {
    return;  // the next subscription lists it
  }
  Json json = message("rrm-client-assoc");
  json["radio"] = association.radio;
  json["rssi"] = rssi;
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  json["no-balance"] = association.no_balance ? 1 : 0;
  json["need-ack"] = 1;
  send(json);
}

void ApAgent::station_left(const Station& station, const Association& from) {
  reports_.erase(station.client->mac);
  if (!subscribed_) {
    return;
  }
  Json json = message("rrm-client-disassoc");
  json["radio"] = from.radio;
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  send(json);
}

void ApAgent::station_observed(const Station& station, Millis now) {
  Report& last = reports_[station.client->mac];
  if (!subscribed_ || now - last.at < seconds(renew_seconds_)) {
    return;
  }
  last.at = now;
  const int rssi = uplink_rssi(station);
  const int change = rssi - last.rssi;
  if (std::abs(change) < worth_reporting_db) {
    return;
  }
  last.rssi = rssi;
  Json json = message("rrm-assoc-state-changed");
  json["sta-mac"] = station.client->mac.text();
  json["ssid"] = station.client->ssid;
  json["state"] = change <= -falling_fast_db ? "unstable" : "stable";
  json["rssi"] = rssi;
  json["radio"] = station.association->radio;
  send(json);
}

}  // namespace sim
