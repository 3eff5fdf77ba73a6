#include "sim/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace sim {
namespace {

constexpr double thermal_noise_dbm_per_hz = -174;
constexpr double noise_figure_db = 7;
constexpr double preamble_detection_dbm = -82;

double noise_dbm(const Radio& radio) {
  return thermal_noise_dbm_per_hz + 10 * std::log10(radio.bandwidth * 1e6) + noise_figure_db;
}

double median(std::vector<double> values) {
  if (values.empty()) {
    return -std::numeric_limits<double>::infinity();
  }
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

bool is_on(const RadioPicture& picture, int band) {
  return band == 0 || picture.radio.band == band;
}

StationPicture take_picture(const World& world, const Client& client) {
  StationPicture picture{client.position, std::nullopt, 0, 0, 0};
  const auto usable = candidates(world, client, client.position);
  if (!usable.empty()) {
    const std::size_t ap = usable.front().ap;
    const Radio& radio = *world.radio(ap, usable.front().radio);
    picture.association = Association{ap, radio.id, false};
    picture.band = radio.band;
    picture.level_dbm = world.downlink_dbm(ap, radio, client.position, client.mac);
    const double others = world.interference_at_mw(ap, radio, client.position, client.mac);
    picture.sinr_db = picture.level_dbm - mw_to_dbm(dbm_to_mw(noise_dbm(radio)) + others);
  }
  return picture;
}

// The louder of the two directions.
double level_between(const World& world, const RadioPicture& a, const RadioPicture& b) {
  return std::max(world.between_dbm(a.ap, a.radio, b.ap, b.radio), world.between_dbm(b.ap, b.radio, a.ap, a.radio));
}

bool may_contend(const RadioPicture& a, const RadioPicture& b) {
  return a.ap != b.ap && a.radio.band == b.radio.band && a.radio.enabled && b.radio.enabled &&
         overlap_fraction(a.spectrum, b.spectrum) > 0;
}

void add_contentions(const World& world, Picture& picture) {
  const auto note = [&](std::size_t radio, std::size_t other, double level) {
    if (level >= preamble_detection_dbm) {
      picture.contentions.push_back({radio, other, level});
    }
  };
  const auto& radios = picture.radios;
  for (std::size_t i = 0; i < radios.size(); ++i) {
    for (std::size_t j = i + 1; j < radios.size(); ++j) {
      if (may_contend(radios[i], radios[j])) {
        note(i, j, level_between(world, radios[i], radios[j]));
      }
    }
    const auto& foreign_aps = world.site().foreign_aps;
    for (std::size_t j = 0; j < foreign_aps.size(); ++j) {
      if (foreign_aps[j].band == radios[i].radio.band && radios[i].radio.enabled &&
          overlap_fraction(spectrum_of(foreign_aps[j]), radios[i].spectrum) > 0) {
        note(i, radios.size() + j, world.foreign_dbm(j, radios[i].ap, radios[i].radio));
      }
    }
  }
}

std::string text(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

std::string bands_text(const std::vector<int>& bands) {
  std::string result;
  for (const int band : bands) {
    result += (result.empty() ? "" : " and ") + band_name(band);
  }
  return result;
}

bool contains(const std::vector<int>& list, int value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

Check check_interference(const Site& site, const CycleResult& cycle) {
  const double wanted = site.expectations.interference_falls_by_db;
  const double fall = mw_to_dbm(cycle.before.interference_mw(0)) - mw_to_dbm(cycle.after.interference_mw(0));
  return {text("interference summed over all radios falls by %.0f dB or more", wanted),
          mw_as_dbm_text(cycle.before.interference_mw(0)) + " -> " + mw_as_dbm_text(cycle.after.interference_mw(0)),
          fall >= wanted};
}

bool share_room_and_spectrum(const Site& site, const RadioPicture& a, const RadioPicture& b) {
  const Room* const room = site.room_at(site.access_points[a.ap].position);
  return a.ap != b.ap && a.radio.band == b.radio.band && room != nullptr &&
         room == site.room_at(site.access_points[b.ap].position) && overlap_fraction(a.spectrum, b.spectrum) > 0;
}

Check check_rooms(const Site& site, const CycleResult& cycle) {
  const auto& bands = site.expectations.rooms_share_no_block;
  const auto& radios = cycle.after.radios;
  std::string sharing;
  for (std::size_t i = 0; i < radios.size(); ++i) {
    for (std::size_t j = i + 1; j < radios.size(); ++j) {
      if (contains(bands, radios[i].radio.band) && share_room_and_spectrum(site, radios[i], radios[j])) {
        sharing += (sharing.empty() ? "" : ", ") + site.access_points[radios[i].ap].name + " and " +
                   site.access_points[radios[j].ap].name + " at " + band_name(radios[i].radio.band);
      }
    }
  }
  return {"no two radios of one room share spectrum at " + bands_text(bands), sharing.empty() ? "none do" : sharing,
          sharing.empty()};
}

bool has_near_neighbour(const Site& site, std::size_t ap) {
  const auto& aps = site.access_points;
  for (std::size_t other = 0; other < aps.size(); ++other) {
    if (other != ap && distance_m(aps[ap].position, aps[other].position) <= site.expectations.power_falls_within_m) {
      return true;
    }
  }
  return false;
}

Check check_power(const Site& site, const CycleResult& cycle) {
  const Expectations& expected = site.expectations;
  int looked_at = 0;
  int fell = 0;
  std::string others;
  for (std::size_t i = 0; i < cycle.after.radios.size(); ++i) {
    const RadioPicture& after = cycle.after.radios[i];
    if (!contains(expected.power_falls_on_bands, after.radio.band) || !has_near_neighbour(site, after.ap)) {
      continue;
    }
    ++looked_at;
    if (after.radio.power < cycle.before.radios[i].radio.power) {
      ++fell;
    } else {
      others += " " + site.access_points[after.ap].name + " at " + band_name(after.radio.band);
    }
  }
  return {
      "power falls on each AP with another one within " + text("%.0f m, at ", expected.power_falls_within_m) +
          bands_text(expected.power_falls_on_bands),
      std::to_string(fell) + " of " + std::to_string(looked_at) + " radios" + (others.empty() ? "" : ", not" + others),
      looked_at > 0 && fell == looked_at};
}

}  // namespace

double Picture::interference_mw(int band) const {
  double sum = 0;
  for (const RadioPicture& picture : radios) {
    sum += is_on(picture, band) ? picture.interference_mw : 0;
  }
  return sum;
}

double Picture::median_interference_dbm(int band) const {
  std::vector<double> values;
  for (const RadioPicture& picture : radios) {
    if (is_on(picture, band)) {
      values.push_back(mw_to_dbm(picture.interference_mw));
    }
  }
  return median(std::move(values));
}

double Picture::median_sinr_db() const {
  std::vector<double> values;
  for (const StationPicture& station : stations) {
    if (station.association) {
      values.push_back(station.sinr_db);
    }
  }
  return median(std::move(values));
}

std::size_t Picture::associated() const {
  return static_cast<std::size_t>(std::count_if(
      stations.begin(), stations.end(), [](const StationPicture& station) { return station.association.has_value(); }));
}

std::size_t Picture::contending_pairs(int band) const {
  return static_cast<std::size_t>(std::count_if(contentions.begin(), contentions.end(), [&](const Contention& pair) {
    return pair.other < radios.size() && is_on(radios[pair.radio], band);
  }));
}

Picture take_picture(const World& world) {
  Picture picture;
  for (std::size_t ap = 0; ap < world.site().access_points.size(); ++ap) {
    for (const Radio& radio : world.radios(ap)) {
      picture.radios.push_back({ap, radio, spectrum_of(radio), radio.enabled ? world.interference_mw(ap, radio) : 0});
    }
  }
  add_contentions(world, picture);
  for (const Client& client : world.site().clients) {
    picture.stations.push_back(take_picture(world, client));
  }
  return picture;
}

std::vector<Check> check_plan(const Site& site, const CycleResult& cycle) {
  const Expectations& expected = site.expectations;
  std::vector<Check> checks;
  if (expected.interference_falls_by_db > 0) {
    checks.push_back(check_interference(site, cycle));
  }
  if (!expected.rooms_share_no_block.empty()) {
    checks.push_back(check_rooms(site, cycle));
  }
  if (expected.power_falls_within_m > 0) {
    checks.push_back(check_power(site, cycle));
  }
  return checks;
}

std::string mw_as_dbm_text(double mw) {
  return mw > 0 ? text("%.1f dBm", mw_to_dbm(mw)) : "none";
}

}  // namespace sim
