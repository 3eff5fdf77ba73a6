#include "whole_site/hall.h"

#include <string>

#include "sim/radio_model.h"

namespace whole_site {
namespace {

constexpr int columns = 4;
constexpr int rows = 2;
constexpr double spacing_m = 12;
constexpr int clients = 48;
constexpr int never = 1'000'000;  // seconds

sim::Vap staff() {
  return {0, "staff", true, true, true};
}

sim::Vap guest() {
  return {1, "guest", true, false, true};
}

sim::Radio radio(int id, int band, std::vector<int> channels, std::size_t ap) {
  sim::Radio radio;
  radio.id = id;
  radio.band = band;
  radio.channel = channels[ap % channels.size()];
  radio.power = 14;
  radio.power_min = 5;
  radio.power_max = 18;
  radio.available_channels = std::move(channels);
  radio.vaps = {staff()};
  if (band != 6) radio.vaps.push_back(guest());
  return radio;
}

sim::AccessPoint access_point(std::size_t number) {
  sim::AccessPoint ap;
  ap.name = std::string(1, static_cast<char>('A' + number));
  ap.mac = {0x02005E000000ULL + (number + 1) * 0x100};
  ap.board = "SIM-AP3";
  ap.serial = "SN" + std::to_string(number + 1);
  ap.wildcard_80211r = number % 2 == 0;
  ap.position = {(static_cast<double>(number % columns) + 0.5) * spacing_m,
                 (static_cast<double>(number / columns) + 0.5) * spacing_m, 3};
  ap.radios = {radio(0, 2, {1, 6, 11}, number), radio(1, 5, {36, 40, 44, 48, 52, 56}, number)};
  if (number % 5 == 0 || number == 2 || number == 7) ap.radios.push_back(radio(2, 6, {165, 169, 173, 177}, number));
  return ap;
}

sim::Temper temper(std::size_t number) {
  switch (number % 10) {
    case 7:
      return sim::Temper::refuses;
    case 8:
      return sim::Temper::sticks;
    case 9:
      return sim::Temper::comes_back;
    default:
      return sim::Temper::obedient;
  }
}

sim::Client client(std::size_t number, Dice& dice) {
  sim::Client client;
  client.mac = {0x02C100000000ULL + number + 1};
  client.ssid = number % 3 == 0 ? "guest" : "staff";
  client.bands = number % 6 == 0 ? std::vector<int>{2} : std::vector<int>{2, 5, 6};
  client.position = somewhere(dice);
  client.temper = temper(number);
  client.from = number % 2 == 0 ? 0 : never;
  if (number % 4 == 0) client.path = {somewhere(dice), somewhere(dice), somewhere(dice)};
  return client;
}

}  // namespace

sim::Point somewhere(Dice& dice) {
  constexpr double height_m = 1.2;
  const bool crowded = dice.happens(50);
  const double x = dice.between(0, 1000) * 0.001;
  const double y = dice.between(0, 1000) * 0.001;
  return crowded ? sim::Point{8 + x * 8, 8 + y * 8, height_m}
                 : sim::Point{x * columns * spacing_m, y * rows * spacing_m, height_m};
}

sim::Site hall(std::uint64_t seed) {
  sim::Site site;
  site.name = "hall";
  site.domain = "lab";
  site.seed = seed;
  site.width = columns * spacing_m;
  site.depth = rows * spacing_m;
  for (const double x : {12.0, 36.0}) site.walls.push_back({{{x, 4, 0}, {x, 20, 0}}, "partition"});
  site.radio_model.shadowing_db = 4;
  site.radio_model.noise_db = 1.5;
  site.radio_model.materials = sim::published_materials();
  site.scan.rounds = 2;
  site.scan.fast_seconds = 2;
  for (std::size_t i = 0; i < columns * rows; ++i) site.access_points.push_back(access_point(i));
  Dice dice(seed);
  for (std::size_t i = 0; i < clients; ++i) site.clients.push_back(client(i, dice));
  return site;
}

}  // namespace whole_site
