#include "sim/radio_model.h"

#include <algorithm>
#include <cmath>

#include "sim/chance.h"

namespace sim {
namespace {

enum class Draw : std::uint64_t { shadowing = 1, measurement = 2 };

constexpr double breakpoint_m = 10;
constexpr double nearest_m = 1;

PerBand linear_in_ghz(double constant, double slope) {
  return {constant + slope * 2.44, constant + slope * 5.5, constant + slope * 6.5};
}

double in_hundredths(double value) {
  return std::round(value * 100) / 100;
}

}  // namespace

std::map<std::string, PerBand> published_materials() {
  return {{"partition", {7, 7, 7}},
          {"glass", linear_in_ghz(2, 0.2)},
          {"wood", linear_in_ghz(4.85, 0.12)},
          {"concrete", linear_in_ghz(5, 4)}};
}

double distance_loss_db(double distance_m, double centre_mhz) {
  const double d = std::max(distance_m, nearest_m);
  const double beyond = d > breakpoint_m ? 35 * std::log10(d / breakpoint_m) : 0;
  return 40.05 + 20 * std::log10(centre_mhz / 2400) + 20 * std::log10(std::min(d, breakpoint_m)) + beyond;
}

double link_loss_db(double distance_m, double centre_mhz, double obstruction_db) {
  return in_hundredths(distance_loss_db(distance_m, centre_mhz) + obstruction_db);
}

double dbm_to_mw(double dbm) {
  return std::pow(10, dbm / 10);
}

double mw_to_dbm(double mw) {
  return 10 * std::log10(mw);
}

double RadioModel::wall_loss_db(const Point& from, const Point& to, int band) const {
  double loss = 0;
  for (const Wall& wall : site_.walls) {
    if (crosses({from, to}, wall.segment)) {
      loss += site_.radio_model.materials.at(wall.material).of(band);
    }
  }
  return loss;
}

double RadioModel::shadowing_db(const Mac& one, const Mac& other, int band) const {
  const auto [low, high] = std::minmax(one.value, other.value);
  const std::uint64_t hash =
      mix(site_.seed, {static_cast<std::uint64_t>(Draw::shadowing), low, high, static_cast<std::uint64_t>(band)});
  return normal(hash) * site_.radio_model.shadowing_db;
}

double RadioModel::obstruction_db(const Point& from, const Mac& sender, const Point& to, const Mac& receiver,
                                  int band) const {
  return wall_loss_db(from, to, band) + shadowing_db(sender, receiver, band);
}

double RadioModel::measurement_error_db(const Mac& sender, const Mac& receiver, std::uint64_t scan,
                                        std::uint64_t round) const {
  const std::uint64_t hash =
      mix(site_.seed, {static_cast<std::uint64_t>(Draw::measurement), sender.value, receiver.value, scan, round});
  return normal(hash) * site_.radio_model.noise_db;
}

}  // namespace sim
