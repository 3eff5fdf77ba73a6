#include "soak/simulated_domain.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "whole_site/hall.h"

namespace soak {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t clients_of_domain = 16;
constexpr std::size_t most_findings = 12;
constexpr std::int64_t longest_listed = 10;  // seconds that a neighbour is told of after it has left
constexpr std::uint64_t first_stranger = 0x02F000000000ULL;

// The nomads of two halls beside each other are one device.
sim::Site a_site(int number, std::uint64_t seed) {
  sim::Site site = whole_site::hall(seed);
  site.domain = site.name = SimulatedDomain::name_of(number);
  const auto part = static_cast<std::uint64_t>(number) * 0x10000;
  for (sim::AccessPoint& ap : site.access_points) ap.mac.value += part;
  const auto shared = static_cast<std::uint64_t>(number / 2 * 2) * 0x10000;
  sim::AccessPoint& nomad = site.access_points[SimulatedDomain::nomad];
  nomad.mac.value += shared - part;
  site.clients.resize(clients_of_domain);
  for (sim::Client& client : site.clients) client.mac.value += part;
  return site;
}

bool is_command(const std::string& text, const char* command) {
  return text.find(std::string("\"cmd\":\"") + command + '"') != std::string::npos;
}

}  // namespace

SimulatedDomain::SimulatedDomain(int number, const rrm::DomainConfig& settings, std::uint64_t seed,
                                 SoakedServer& server)
    : site_(a_site(number, seed)),
      settings_(settings),
      server_(server),
      dice_(seed),
      ends_(site_.access_points.size()),
      simulation_(site_,
                  [this](const std::string& line) {
                    if (line.find("cannot set a radio") != std::string::npos) find_fault(line);
                  }),
      life_(*this, dice_) {}

void SimulatedDomain::find_fault(const std::string& fault) {
  if (findings_.size() < most_findings) findings_.push_back(name() + " at " + std::to_string(seconds_) + ": " + fault);
}

// Power

void SimulatedDomain::switch_off() {
  off_ = true;
  for (std::size_t ap = 0; ap < ends_.size(); ++ap) life_.carry_away(ap);
}

void SimulatedDomain::switch_on() {
  off_ = false;
  for (std::size_t ap = 0; ap < ends_.size(); ++ap) {
    if (ap != nomad || has_nomad_) life_.bring_back(ap);
  }
}

void SimulatedDomain::give_nomad(bool here) {
  has_nomad_ = here;
  if (off_) return;
  if (here) {
    life_.bring_back(nomad);
  } else {
    life_.carry_away(nomad);
  }
}

// Sessions

std::optional<std::size_t> SimulatedDomain::find(lws* line) const {
  const auto found = std::find_if(ends_.begin(), ends_.end(), [line](const End& end) { return end.line == line; });
  return found == ends_.end() ? std::nullopt : std::optional(static_cast<std::size_t>(found - ends_.begin()));
}

void SimulatedDomain::connect(std::size_t ap) {
  ends_[ap].wanted = true;
  if (ends_[ap].line == nullptr) call(ap);
}

void SimulatedDomain::call(std::size_t ap) {
  ends_[ap].line = server_.wire().open();
  if (mischief_of(ap) == Mischief::hangs) server_.wire().stop_reading(ends_[ap].line);
  simulation_.connected(ap, now());
}

void SimulatedDomain::disconnect(std::size_t ap) {
  End& end = ends_[ap];
  end.wanted = false;
  if (end.line == nullptr) return;
  server_.wire().close(end.line);
  end.line = nullptr;
  simulation_.disconnected(ap);
}

void SimulatedDomain::second() {
  ++seconds_;
  for (std::size_t ap = 0; ap < ends_.size(); ++ap) {
    if (ends_[ap].wanted && ends_[ap].line == nullptr && seconds_ >= ends_[ap].retry_at) call(ap);
  }
  note_deaf_session();
  for (std::size_t ap = 0; ap < ends_.size(); ++ap) {
    if (simulation_.subscribed(ap)) ends_[ap].served_at = seconds_;
  }
  simulation_.tick(now());
  while (simulation_.take_result()) continue;
}

bool SimulatedDomain::force_optimization() {
  const auto worker = std::dynamic_pointer_cast<rrm::RrmWorker>(server_.find_worker(name()));
  bool planned = false;
  if (worker != nullptr) {
    worker->execute_locked([&] { planned = worker->force_optimization(); });
  }
  return planned;
}

// Where the two sides do not agree any more on who is where, only a new session helps.
void SimulatedDomain::misbehave(Mischief how) {
  const bool must_begin_anew =
      mischief_ == Mischief::hangs || mischief_ == Mischief::mute || mischief_ == Mischief::strays;
  mischief_ = how;
  End& end = ends_[misfit];
  if (end.line == nullptr) return;
  if (must_begin_anew) {
    disconnect(misfit);
    connect(misfit);
  }
  if (how == Mischief::hangs) server_.wire().stop_reading(end.line);
  note_deaf_session();
}

void SimulatedDomain::note_deaf_session() {
  if (mischief_ != Mischief::hangs || ends_[misfit].line == nullptr) return;
  if (const auto session = server_.session_of(ends_[misfit].line)) deaf_sessions_.insert(*session);
}

std::vector<sim::Mac> SimulatedDomain::served() const {
  std::vector<sim::Mac> macs;
  for (std::size_t ap = 0; ap < ends_.size(); ++ap) {
    if (ap != misfit && ends_[ap].line != nullptr && simulation_.subscribed(ap)) {
      macs.push_back(site_.access_points[ap].mac);
    }
  }
  return macs;
}

// Out

void SimulatedDomain::speak() {
  for (std::size_t ap = 0; ap < ends_.size(); ++ap) {
    for (std::string& text : simulation_.take_outgoing(ap)) {
      if (ends_[ap].line == nullptr) continue;
      if (interfered_channel_ && is_command(text, "rrm-response")) text = with_interference(text);
      std::vector<std::string> all_sent = spoiled(ap, text);
      if (!all_sent.empty() && is_command(text, "rrm-sta-roam")) note_roam(text);
      for (std::string& sent : all_sent) {
        server_.wire().send(ends_[ap].line, std::move(sent));
        ++said_;
      }
    }
  }
}

std::vector<std::string> SimulatedDomain::spoiled(std::size_t ap, const std::string& text) const {
  switch (mischief_of(ap)) {
    case Mischief::deaf:
      if (is_command(text, "rrm-mode-response")) return {};
      return {text};
    case Mischief::garbles:
      return {text.substr(0, text.size() / 2)};
    case Mischief::repeats:
      return {text, text, text};
    case Mischief::strays: {
      Json json = Json::parse(text);
      json["domain"] = name_of(0);
      return {json.dump()};
    }
    case Mischief::mute:
    case Mischief::hangs:
      return {};
    case Mischief::none:
      break;
  }
  return {text};
}

// A target may leave while a client is sent to it, but nobody may be told of it for long.
void SimulatedDomain::note_roam(const std::string& text) {
  const sim::Mac target = sim::Mac::parse(Json::parse(text).at("target-mac")).value();
  const auto place = simulation_.world().find_bssid(target);
  if (place && simulation_.subscribed(place->ap)) return;
  astray_.insert(target.value);
  if (place && seconds_ - ends_[place->ap].served_at > longest_listed) {
    find_fault(target.text() + " has left long ago, and is a neighbour still");
  }
}

// Each time it comes from somebody whom nobody has heard before.
std::string SimulatedDomain::with_interference(const std::string& text) {
  Json json = Json::parse(text);
  for (Json& round : json["rf-environment"]) {
    sim::Mac stranger;
    stranger.value = first_stranger + static_cast<std::uint64_t>(site_.access_points[0].mac.value & 0xFF0000) * 0x1000 +
                     ++last_stranger_;
    const int channel = *interfered_channel_;
    round.push_back({{"bssid", stranger.text()},
                     {"channel", channel},
                     {"band", channel < 15 ? 2 : 5},
                     {"tx-power", 20},
                     {"bandwidth", 20},
                     {"rssi", -45},
                     {"primary-channel", "none"}});
  }
  return json.dump();
}

// In

void SimulatedDomain::hear(const Wire::Event& event) {
  const std::size_t ap = *find(event.line);
  switch (event.kind) {
    case Wire::Event::Kind::text:
      return hear_text(ap, event.text);
    case Wire::Event::Kind::ping:
      if (mischief_of(ap) != Mischief::mute && mischief_of(ap) != Mischief::hangs) server_.wire().pong(event.line);
      return;
    case Wire::Event::Kind::closed:
      ends_[ap].line = nullptr;
      ends_[ap].retry_at = seconds_ + dice_.between(5, 30);
      simulation_.disconnected(ap);
      if (mischief_of(ap) == Mischief::hangs) mischief_ = Mischief::none;  // its watchdog restarts it
      return;
  }
}

void SimulatedDomain::hear_text(std::size_t ap, const std::string& text) {
  ++heard_;
  if (is_command(text, "rrm-info")) check_plan(ap, text);
  simulation_.received(ap, text, now());
}

// The device may take any channel of its list, and any power between its limits.
void SimulatedDomain::check_plan(std::size_t ap, const std::string& text) {
  const Json json = Json::parse(text);
  if (!json.contains("radios")) return;
  ++plans_;
  for (const Json& ordered : json["radios"]) {
    const sim::Radio* const radio = simulation_.world().radio(ap, ordered.at("id").get<int>());
    const int channel = ordered.value("channel", 0);
    const int power = ordered.value("power", 0);
    const bool allowed = radio != nullptr && power >= radio->power_min && power <= radio->power_max &&
                         std::find(radio->available_channels.begin(), radio->available_channels.end(), channel) !=
                             radio->available_channels.end();
    if (!allowed) find_fault("a plan beyond what is allowed: " + ordered.dump());
  }
}

}  // namespace soak
