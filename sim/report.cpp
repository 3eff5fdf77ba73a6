#include "sim/report.h"

#include <cmath>

#include "sim/report_text.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;

std::string channel_text(const Radio& radio) {
  return std::to_string(radio.channel) + "/" + std::to_string(radio.bandwidth);
}

std::string radio_line(const Site& site, const RadioPicture& before, const RadioPicture& after) {
  const AccessPoint& ap = site.access_points[after.ap];
  const Room* const room = site.room_at(ap.position);
  return line("%-8s %-18.18s %-8s %8s -> %-8s %4d -> %-3d dBm %12s -> %-10s\n", ap.name.c_str(),
              room == nullptr ? "" : room->name.c_str(), band_name(after.radio.band).c_str(),
              channel_text(before.radio).c_str(), channel_text(after.radio).c_str(), before.radio.power,
              after.radio.power, mw_as_dbm_text(before.interference_mw).c_str(),
              mw_as_dbm_text(after.interference_mw).c_str());
}

std::string dbm_text(double dbm) {
  return std::isfinite(dbm) ? line("%.1f dBm", dbm) : "none";
}

std::string sum_line(const std::string& name, const CycleResult& cycle, int band) {
  return line("%-14s sum %11s -> %-11s median radio %11s -> %-11s pairs sharing air time %3zu -> %zu\n", name.c_str(),
              mw_as_dbm_text(cycle.before.interference_mw(band)).c_str(),
              mw_as_dbm_text(cycle.after.interference_mw(band)).c_str(),
              dbm_text(cycle.before.median_interference_dbm(band)).c_str(),
              dbm_text(cycle.after.median_interference_dbm(band)).c_str(), cycle.before.contending_pairs(band),
              cycle.after.contending_pairs(band));
}

// One decimal; null for no power at all.
Json dbm_json(double dbm) {
  return std::isfinite(dbm) ? Json(std::round(dbm * 10) / 10) : Json(nullptr);
}

Json radio_json(const RadioPicture& picture) {
  return {{"channel", picture.radio.channel},
          {"bandwidth", picture.radio.bandwidth},
          {"primary", picture.radio.primary},
          {"power", picture.radio.power},
          {"interference", dbm_json(mw_to_dbm(picture.interference_mw))}};
}

Json ap_json(const Site& site, std::size_t index) {
  const AccessPoint& ap = site.access_points[index];
  const Room* const room = site.room_at(ap.position);
  return {{"name", ap.name},
          {"mac", ap.mac.text()},
          {"room", room == nullptr ? Json(nullptr) : Json(room->name)},
          {"position", {ap.position.x, ap.position.y}},
          {"radios", Json::array()}};
}

Json aps_json(const Site& site, const CycleResult& cycle) {
  Json aps = Json::array();
  for (std::size_t ap = 0; ap < site.access_points.size(); ++ap) {
    aps.push_back(ap_json(site, ap));
  }
  for (std::size_t i = 0; i < cycle.after.radios.size(); ++i) {
    const RadioPicture& after = cycle.after.radios[i];
    aps[after.ap]["radios"].push_back({{"id", after.radio.id},
                                       {"band", after.radio.band},
                                       {"before", radio_json(cycle.before.radios[i])},
                                       {"after", radio_json(after)}});
  }
  return aps;
}

Json sums_json(const Picture& picture) {
  Json json = {{"sum", dbm_json(mw_to_dbm(picture.interference_mw(0)))},
               {"median", dbm_json(picture.median_interference_dbm(0))},
               {"contending_pairs", picture.contending_pairs(0)}};
  for (const int band : {2, 5, 6}) {
    json["sum_" + std::to_string(band)] = dbm_json(mw_to_dbm(picture.interference_mw(band)));
  }
  return json;
}

Json stations_json(const Picture& picture) {
  return {{"associated", picture.associated()}, {"median_sinr", dbm_json(picture.median_sinr_db())}};
}

}  // namespace

std::string plan_table(const Site& site, const CycleResult& cycle, const std::vector<Check>& checks) {
  std::string text = line("\n%s: cycle %d planned %zu APs in %.1f s\n\n", site.domain.c_str(), cycle.number,
                          site.access_points.size(), cycle.seconds);
  text += line("%-8s %-18s %-8s %20s %18s %26s\n", "AP", "room", "band", "channel/MHz", "power", "interference");
  for (std::size_t i = 0; i < cycle.after.radios.size(); ++i) {
    text += radio_line(site, cycle.before.radios[i], cycle.after.radios[i]);
  }
  text += "\ninterference\n";
  for (const int band : {2, 5, 6}) {
    text += sum_line("  " + band_name(band), cycle, band);
  }
  text += sum_line("  all", cycle, 0);
  text +=
      line("clients        %zu of %zu associated -> %zu, median SINR %.1f -> %.1f dB\n\n", cycle.before.associated(),
           site.clients.size(), cycle.after.associated(), cycle.before.median_sinr_db(), cycle.after.median_sinr_db());
  return text + checks_text(checks);
}

std::string plan_json(const Site& site, const CycleResult& cycle, const std::vector<Check>& checks) {
  const Json json = {{"site", site.name},
                     {"domain", site.domain},
                     {"seed", site.seed},
                     {"cycle", cycle.number},
                     {"access_points", aps_json(site, cycle)},
                     {"interference", {{"before", sums_json(cycle.before)}, {"after", sums_json(cycle.after)}}},
                     {"clients", {{"before", stations_json(cycle.before)}, {"after", stations_json(cycle.after)}}},
                     {"checks", checks_json(checks)}};
  return json.dump(2) + "\n";
}

}  // namespace sim
