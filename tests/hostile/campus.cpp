#include "hostile/campus.h"

#include <utility>

#include "hostile/site_server.h"
#include "sim/radio_model.h"
#include "whole_site/dice.h"

namespace hostile {
namespace {

constexpr std::size_t columns = 20;
constexpr double spacing_m = 25;

sim::Radio radio(int id, int band, std::vector<int> channels, whole_site::Dice& dice) {
  sim::Radio radio;
  radio.id = id;
  radio.band = band;
  radio.channel = dice.one_of(channels);
  radio.power = 14;
  radio.power_min = 5;
  radio.power_max = 18;
  radio.available_channels = std::move(channels);
  radio.vaps = {{0, "staff", true, band == 5, true}, {1, "guest", true, false, true}};
  return radio;
}

sim::Mac mac_of(std::size_t ap) {
  return {0x02005E000000ULL + ap * 0x100};
}

sim::AccessPoint access_point(std::size_t number, whole_site::Dice& dice) {
  sim::AccessPoint ap;
  ap.name = "campus-" + std::to_string(number);
  ap.mac = mac_of(number);
  ap.board = "SIM-AP3";
  ap.serial = "SN" + std::to_string(number);
  ap.position = {(static_cast<double>(number % columns) + 0.5) * spacing_m,
                 (static_cast<double>(number / columns) + 0.5) * spacing_m, 3};
  ap.radios = {radio(0, 2, {1, 6, 11}, dice), radio(1, 5, {36, 40, 44, 48, 52, 56, 60, 64}, dice)};
  return ap;
}

sim::Site a_campus(std::size_t size, std::uint64_t seed) {
  sim::Site site;
  site.domain = campus_domain;
  site.name = site.domain;
  site.seed = seed;
  site.width = columns * spacing_m;
  site.depth = static_cast<double>((size + columns - 1) / columns) * spacing_m;
  site.radio_model.materials = sim::published_materials();
  site.scan.rounds = 1;
  site.scan.fast_seconds = 0.3;
  site.scan.sensitivity_dbm = {-80, -80, -80};
  whole_site::Dice dice(seed);
  for (std::size_t i = 0; i < size; ++i) site.access_points.push_back(access_point(i, dice));
  return site;
}

}  // namespace

Campus::Campus(int port, std::size_t size, std::uint64_t seed)
    : site_(a_campus(size, seed)),
      simulation_(site_,
                  [this](const std::string& line) {
                    const rrm::MutexLock lock(mutex_);
                    complaints_.push_back(line);
                  }),
      fleet_(simulation_, {"127.0.0.1", port, "/apb/rrm"}, [this](const std::string& line) {
        const rrm::MutexLock lock(mutex_);
        complaints_.push_back(line);
      }) {
  thread_ = std::thread([this] { fleet_.run([this] { return look(); }); });
}

Campus::~Campus() {
  stop();
}

void Campus::stop() {
  is_over_ = true;
  if (thread_.joinable()) thread_.join();
}

std::string Campus::mac(std::size_t ap) {
  return mac_of(ap).text();
}

bool Campus::look() {
  while (simulation_.take_result()) ++whole_cycles_;
  return is_over_;
}

std::vector<std::string> Campus::complaints() const {
  const rrm::MutexLock lock(mutex_);
  return complaints_;
}

std::vector<std::string> Campus::plan() {
  stop();
  std::vector<std::string> plan;
  for (std::size_t ap = 0; ap < simulation_.size(); ++ap) {
    for (const sim::Radio& radio : simulation_.world().radios(ap)) {
      plan.push_back(site_.access_points[ap].name + " radio " + std::to_string(radio.id) + ": channel " +
                     std::to_string(radio.channel) + ", " + std::to_string(radio.bandwidth) + " MHz " + radio.primary +
                     ", " + std::to_string(radio.power) + " dBm");
    }
  }
  return plan;
}

}  // namespace hostile
