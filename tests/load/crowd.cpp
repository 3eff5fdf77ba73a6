#include "load/crowd.h"

#include <map>
#include <numeric>
#include <thread>
#include <utility>

#include "core/mutex.h"
#include "sim/fleet.h"
#include "sim/radio_model.h"
#include "sim/simulation.h"
#include "sim/site.h"
#include "sim/source_addresses.h"
#include "whole_site/dice.h"

namespace load {
namespace {

using whole_site::Dice;

constexpr const char* loopback = "127.0.0.1";
constexpr const char* board = "SIM-AP3";
constexpr std::size_t columns = 10;
constexpr std::size_t rows = 5;
constexpr double spacing_m = 25;
constexpr int clients_of_domain = 60;

sim::Radio radio(int id, int band, std::vector<int> channels, std::size_t ap) {
  sim::Radio radio;
  radio.id = id;
  radio.band = band;
  radio.channel = channels[ap % channels.size()];
  radio.power = 14;
  radio.power_min = 5;
  radio.power_max = 18;
  radio.available_channels = std::move(channels);
  radio.vaps = {{0, "staff", true, band == 5, true}};
  return radio;
}

sim::AccessPoint access_point(int domain, std::size_t number) {
  sim::AccessPoint ap;
  ap.name = std::to_string(domain) + "-" + std::to_string(number);
  ap.mac = {0x02005E000000ULL + static_cast<std::uint64_t>(domain) * 0x10000 + number * 0x100};
  ap.board = board;
  ap.serial = "SN" + ap.name;
  ap.position = {(static_cast<double>(number % columns) + 0.5) * spacing_m,
                 (static_cast<double>(number / columns) + 0.5) * spacing_m, 3};
  ap.radios = {radio(0, 2, {1, 6, 11}, number), radio(1, 5, {36, 40, 44, 48, 52, 56, 60, 64}, number)};
  if (number % 5 == 0) ap.radios.push_back(radio(2, 6, {165, 169, 173, 177}, number));
  return ap;
}

sim::Point somewhere(Dice& dice) {
  return {dice.between(0, static_cast<int>(columns * spacing_m)) * 1.0,
          dice.between(0, static_cast<int>(rows * spacing_m)) * 1.0, 1.2};
}

sim::Client client(int domain, int number, Dice& dice) {
  sim::Client client;
  client.mac = {0x02C100000000ULL + static_cast<std::uint64_t>(domain) * 0x10000 + static_cast<std::uint64_t>(number)};
  client.ssid = "staff";
  client.bands = {2, 5, 6};
  client.position = somewhere(dice);
  client.speed = 5;
  if (number % 3 != 0) client.path = {somewhere(dice), somewhere(dice), somewhere(dice)};
  return client;
}

sim::Site a_site(int number, std::uint64_t seed) {
  sim::Site site;
  site.domain = "domain-" + std::to_string(number);
  site.name = site.domain;
  site.seed = seed;
  site.width = columns * spacing_m;
  site.depth = rows * spacing_m;
  site.radio_model.materials = sim::published_materials();
  site.scan.rounds = 1;
  site.scan.fast_seconds = 0.3;
  site.scan.dwell_ms = 20;
  site.scan.sensitivity_dbm = {-72, -72, -72};
  for (std::size_t i = 0; i < columns * rows; ++i) site.access_points.push_back(access_point(number, i));
  Dice dice(seed);
  for (int i = 0; i < clients_of_domain; ++i) site.clients.push_back(client(number, i, dice));
  return site;
}

}  // namespace

// One domain with its thread.
class Crowd::Site {
 public:
  Site(int number, int port, std::uint64_t seed)
      : site_(a_site(number, seed)),
        simulation_(site_, [this](const std::string& line) { note(line); }),
        fleet_(simulation_, {loopback, port, "/apb/rrm"}, [this](const std::string& line) { note(line); }) {
    thread_ = std::thread([this] { fleet_.run([this] { return look(); }); });
  }
  ~Site() {
    is_over_ = true;
    thread_.join();
  }

  const sim::Site& site() const { return site_; }
  std::size_t subscribed() const { return subscribed_; }
  std::size_t infos() const { return infos_; }
  int whole_cycles() const { return whole_cycles_; }
  std::string missing() const {
    const rrm::MutexLock lock(mutex_);
    return missing_;
  }

 private:
  // "AP: what it has to say"; all on the site's thread.
  void note(const std::string& line) { last_words_[line.substr(0, line.find(':'))] = line; }

  bool look() {
    std::size_t subscribed = 0;
    std::string missing;
    std::size_t infos = 0;
    for (std::size_t ap = 0; ap < simulation_.size(); ++ap) {
      subscribed += simulation_.subscribed(ap) ? 1 : 0;
      const std::string& name = site_.access_points[ap].name;
      if (!simulation_.subscribed(ap)) missing += name + " (" + last_words_[name] + ")\n";
      infos += static_cast<std::size_t>(simulation_.access_point(ap).infos_received());
    }
    subscribed_ = subscribed;
    infos_ = infos;
    {
      const rrm::MutexLock lock(mutex_);
      missing_ = std::move(missing);
    }
    while (simulation_.take_result()) ++whole_cycles_;
    return is_over_;
  }

  mutable rrm::Mutex mutex_;
  std::string missing_ RRM_GUARDED_BY(mutex_);
  std::map<std::string, std::string> last_words_;
  const sim::Site site_;
  sim::Simulation simulation_;
  sim::Fleet fleet_;
  std::atomic<std::size_t> subscribed_{0};
  std::atomic<std::size_t> infos_{0};
  std::atomic<int> whole_cycles_{0};
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

Crowd::Crowd(int port, std::uint64_t seed) {
  const std::vector<std::string> ips = sim::source_addresses(loopback, aps_of_domain);
  for (int number = 0; number < domain_count; ++number) {
    sites_.push_back(std::make_unique<Site>(number, port, seed + static_cast<std::uint64_t>(number)));
    const sim::Site& site = sites_.back()->site();
    domains_.push_back(site.domain);
    for (std::size_t ap = 0; ap < site.access_points.size(); ++ap) {
      access_points_.push_back({site.access_points[ap].mac.text(), ips.at(ap), site.domain, board});
    }
  }
}

Crowd::~Crowd() = default;

std::size_t Crowd::subscribed() const {
  return std::accumulate(sites_.begin(), sites_.end(), std::size_t{0},
                         [](std::size_t sum, const auto& site) { return sum + site->subscribed(); });
}

std::string Crowd::missing() const {
  std::string missing;
  for (const auto& site : sites_) missing += site->missing();
  return missing;
}

std::size_t Crowd::infos() const {
  return std::accumulate(sites_.begin(), sites_.end(), std::size_t{0},
                         [](std::size_t sum, const auto& site) { return sum + site->infos(); });
}

int Crowd::whole_cycles() const {
  return std::accumulate(sites_.begin(), sites_.end(), 0,
                         [](int sum, const auto& site) { return sum + site->whole_cycles(); });
}

}  // namespace load
