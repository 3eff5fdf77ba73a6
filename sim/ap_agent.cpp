#include "sim/ap_agent.h"

#include <algorithm>
#include <utility>

namespace sim {
namespace {

constexpr Millis subscribe_again_after_ms = 10'000;

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
    : world_(world),
      stations_(stations),
      index_(index),
      log_(std::move(log)),
      steering_(world, stations, index, *this, std::move(feed)) {}

const std::map<std::string, ApAgent::Handler>& ApAgent::handlers() {
  static const std::map<std::string, Handler> table = {
      {"subscribe-response", &ApAgent::on_subscribe_response},
      {"rrm-request-mode", &ApAgent::on_request_mode},
      {"rrm-update", &ApAgent::on_update},
      {"rrm-info", &ApAgent::on_info},
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

// What it asked for is not wanted any more.
void ApAgent::forget_controller(Millis now) {
  subscribed_ = false;
  scan_.reset();
  steering_.controller_gone(now);
}

void ApAgent::subscribe(Millis now) {
  Json json = message("subscribe-request");
  json["factory"] = factory_to_json(ap());
  json["ap-mac-count"] = 48;
  json["use-wildcard-80211r"] = ap().wildcard_80211r ? 1 : 0;
  json["radios"] = radios_to_json(world_, index_, &stations_);
  send(json);
  next_subscribe_ = now + subscribe_again_after_ms;
  steering_.listed();
}

void ApAgent::received(const std::string& text, Millis now) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) {
    log("ignored a text that is no JSON object: " + shortened(text));
    return;
  }
  const std::string command = text_or(json, "cmd", "");
  const std::string mac = text_or(json, "ap-mac", ap().mac.text());
  if (text_or(json, "service", "") != "rrm" || !is_known(command)) {
    log("ignored an unknown message: " + shortened(text));
  } else if (Mac::parse(mac) != ap().mac) {
    log("ignored " + command + " for " + shortened(mac));
  } else {
    take(command, json, now);
  }
}

bool ApAgent::is_known(const std::string& command) {
  return handlers().count(command) != 0 || ApSteering::knows(command);
}

void ApAgent::take(const std::string& command, const Json& message, Millis now) {
  const auto handler = handlers().find(command);
  if (handler != handlers().end()) {
    (this->*handler->second)(message, now);
  } else {
    steering_.take(command, message, now);
  }
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
  steering_.tick(now);
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
    steering_.subscription_answered();
  }
}

void ApAgent::apply_settings(const Json& holder) {
  for (const Json& radio : objects_of(holder, "radios")) {
    const std::string refusal = world_.apply(index_, order_from_json(radio));
    if (!refusal.empty()) {
      log("cannot set a radio as ordered: " + refusal);
    }
  }
  steering_.apply_settings(holder);
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

}  // namespace sim
