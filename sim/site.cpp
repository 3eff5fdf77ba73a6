#include "sim/site.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "sim/radio_model.h"
#include "sim/site_reader.h"
#include "sim/spectrum.h"

namespace sim {
namespace {

constexpr double ceiling_height_m = 3;
constexpr double pocket_height_m = 1.2;
constexpr std::uint64_t radio_pool = 16;  // addresses of one radio
constexpr int radios_per_ap = 3;

void read_floor(SiteReader& root, Site& site) {
  SiteReader floor = root.object("floor");
  site.width = floor.number("width");
  site.depth = floor.number("depth");
  if (site.width <= 0 || site.depth <= 0) {
    floor.fail("must have a width and a depth above 0");
  }
  floor.finish();
}

void read_radio_model(SiteReader& root, Site& site) {
  RadioSettings& model = site.radio_model;
  model.materials = published_materials();
  if (root.has("materials")) {
    root.object("materials").each_key([&](const std::string& name, SiteReader& losses) {
      model.materials[name] = {losses.number("2"), losses.number("5"), losses.number("6")};
    });
  }
  if (root.has("radio_model")) {
    SiteReader settings = root.object("radio_model");
    model.shadowing_db = settings.number("shadowing_db", model.shadowing_db);
    model.noise_db = settings.number("noise_db", model.noise_db);
    if (model.shadowing_db < 0 || model.noise_db < 0) {
      settings.fail("must have no negative deviation");
    }
    settings.finish();
  }
}

void read_scan(SiteReader& root, Site& site) {
  if (!root.has("scan")) {
    return;
  }
  SiteReader scan = root.object("scan");
  site.scan.rounds = scan.integer("rounds", site.scan.rounds);
  site.scan.fast_seconds = scan.number("fast_seconds", site.scan.fast_seconds);
  site.scan.dwell_ms = scan.integer("dwell_ms", site.scan.dwell_ms);
  site.scan.sensitivity_dbm = scan.per_band("sensitivity_dbm", site.scan.sensitivity_dbm);
  if (site.scan.rounds < 1 || site.scan.fast_seconds < 0 || site.scan.dwell_ms < 0) {
    scan.fail("must have at least one round and no negative time");
  }
  scan.finish();
}

void read_walls(SiteReader& root, Site& site) {
  root.each("walls", [&](SiteReader& wall) {
    const Wall read{{wall.point("from", 0), wall.point("to", 0)}, wall.text("material")};
    if (site.radio_model.materials.count(read.material) == 0) {
      wall.fail_at("material", "is of no known material \"" + read.material + "\"");
    }
    site.walls.push_back(read);
  });
}

void read_rooms(SiteReader& root, Site& site) {
  root.each("rooms", [&](SiteReader& room) {
    const Point size = room.point("size", 0);
    site.rooms.push_back({room.text("name"), {room.point("corner", 0), size.x, size.y}});
  });
}

Vap read_vap(SiteReader& reader) {
  Vap vap;
  vap.id = reader.integer("id");
  vap.ssid = reader.text("ssid");
  vap.use_80211k = reader.flag("802dot11k", vap.use_80211k);
  vap.use_80211r = reader.flag("802dot11r", vap.use_80211r);
  vap.use_80211v = reader.flag("802dot11v", vap.use_80211v);
  if (vap.id < 0 || vap.id >= static_cast<int>(radio_pool)) {
    reader.fail_at("id", "must lie in 0 to 15");
  }
  return vap;
}

std::vector<Vap> read_vaps(SiteReader& radio) {
  std::vector<Vap> vaps;
  std::set<int> ids;
  radio.each("vaps", [&](SiteReader& element) {
    vaps.push_back(read_vap(element));
    if (!ids.insert(vaps.back().id).second) {
      element.fail_at("id", "stands twice");
    }
  });
  return vaps;
}

void check_radio(const SiteReader& reader, const Radio& radio) {
  if (radio.id < 0 || radio.id >= radios_per_ap) {
    reader.fail_at("id", "must be 0, 1 or 2");
  }
  if (!channel_block(radio.band, radio.channel, radio.bandwidth, radio.primary)) {
    reader.fail_at("channel", "is no channel of this band and bandwidth");
  }
  for (const int channel : radio.available_channels) {
    if (!channel_block(radio.band, channel, 20, "none")) {
      reader.fail_at("available_channels", "has no channel " + std::to_string(channel) + " in this band");
    }
  }
  if (radio.power_min > radio.power_max || radio.power < radio.power_min || radio.power > radio.power_max) {
    reader.fail_at("power", "must lie in power_min to power_max");
  }
}

Radio read_radio(SiteReader& reader) {
  Radio radio;
  radio.id = reader.integer("id");
  radio.band = reader.band("band");
  radio.enabled = reader.flag("enabled", radio.enabled);
  radio.channel = reader.integer("channel");
  radio.bandwidth = reader.integer("bandwidth", radio.bandwidth);
  radio.primary = reader.text("primary", radio.primary);
  radio.power = reader.integer("power");
  radio.power_min = reader.integer("power_min");
  radio.power_max = reader.integer("power_max");
  radio.antenna_gain = reader.integer("antenna_gain", radio.antenna_gain);
  radio.cable_loss = reader.integer("cable_loss", radio.cable_loss);
  radio.locked_for_tpc = reader.flag("locked_for_tpc", radio.locked_for_tpc);
  radio.locked_for_dca = reader.flag("locked_for_dca", radio.locked_for_dca);
  radio.locked_for_balancer = reader.flag("locked_for_balancer", radio.locked_for_balancer);
  radio.locked_for_80211v = reader.flag("locked_for_80211v", radio.locked_for_80211v);
  radio.available_channels = reader.integers("available_channels");
  std::sort(radio.available_channels.begin(), radio.available_channels.end());
  radio.vaps = read_vaps(reader);
  check_radio(reader, radio);
  if (const auto block = channel_block(radio.band, radio.channel, radio.bandwidth, radio.primary)) {
    radio.primary = block->primary;
  }
  return radio;
}

std::vector<Radio> read_radios(SiteReader& reader, const char* key) {
  std::vector<Radio> radios;
  std::set<int> ids;
  reader.each(key, [&](SiteReader& element) {
    radios.push_back(read_radio(element));
    if (!ids.insert(radios.back().id).second) {
      element.fail_at("id", "stands twice");
    }
  });
  return radios;
}

void read_access_points(SiteReader& root, Site& site) {
  const std::vector<Radio> profile = read_radios(root, "radio_profile");
  std::set<Mac> macs;
  root.each("access_points", [&](SiteReader& reader) {
    AccessPoint ap;
    ap.name = reader.text("name");
    ap.mac = reader.mac("mac");
    ap.board = reader.text("board", "SIM-AP3");
    ap.serial = reader.text("serial", "SIM" + std::to_string(ap.mac.value));
    ap.wildcard_80211r = reader.flag("wildcard_80211r", ap.wildcard_80211r);
    ap.position = reader.point("position", reader.number("height", ceiling_height_m));
    ap.radios = reader.has("radios") ? read_radios(reader, "radios") : profile;
    if (ap.radios.empty()) {
      reader.fail("has no radios, and the site has no radio_profile");
    }
    for (std::uint64_t i = 0; i < radios_per_ap * radio_pool; ++i) {
      if (!macs.insert(ap.mac.plus(i)).second) {
        reader.fail_at("mac", "lies within 48 addresses of another access point's");
      }
    }
    site.access_points.push_back(ap);
  });
}

bool is_of_an_ap(const Site& site, const Mac& mac) {
  return std::any_of(site.access_points.begin(), site.access_points.end(),
                     [&](const AccessPoint& ap) { return mac.value - ap.mac.value < radios_per_ap * radio_pool; });
}

void read_foreign(SiteReader& root, Site& site) {
  std::set<Mac> bssids;
  root.each("foreign", [&](SiteReader& reader) {
    ForeignAp foreign;
    foreign.name = reader.text("name");
    foreign.bssid = reader.mac("bssid");
    if (is_of_an_ap(site, foreign.bssid) || !bssids.insert(foreign.bssid).second) {
      reader.fail_at("bssid", "is taken already");
    }
    foreign.position = reader.point("position", reader.number("height", ceiling_height_m));
    foreign.band = reader.band("band");
    foreign.channel = reader.integer("channel");
    foreign.bandwidth = reader.integer("bandwidth", foreign.bandwidth);
    foreign.primary = reader.text("primary", foreign.primary);
    foreign.power = reader.integer("power");
    foreign.antenna_gain = reader.integer("antenna_gain", foreign.antenna_gain);
    const auto block = channel_block(foreign.band, foreign.channel, foreign.bandwidth, foreign.primary);
    if (!block) {
      reader.fail_at("channel", "is no channel of this band and bandwidth");
    }
    foreign.primary = block->primary;
    site.foreign_aps.push_back(foreign);
  });
}

Temper read_temper(SiteReader& reader) {
  static const std::map<std::string, Temper> tempers = {{"obedient", Temper::obedient},
                                                        {"refuses", Temper::refuses},
                                                        {"sticks", Temper::sticks},
                                                        {"comes_back", Temper::comes_back}};
  const auto found = tempers.find(reader.text("temper", "obedient"));
  if (found == tempers.end()) {
    reader.fail_at("temper", "must be \"obedient\", \"refuses\", \"sticks\" or \"comes_back\"");
  }
  return found->second;
}

void read_hours(SiteReader& reader, Client& client) {
  client.from = reader.integer("from", client.from);
  if (client.from < 0) {
    reader.fail_at("from", "must not be negative");
  }
  if (reader.has("until")) {
    client.until = reader.integer("until");
    if (*client.until <= client.from) {
      reader.fail_at("until", "must be later than from");
    }
  }
}

Client read_client(SiteReader& reader) {
  Client client;
  client.mac = reader.mac("mac");
  client.ssid = reader.text("ssid");
  client.bands = reader.integers("bands");
  client.position = reader.point("position", pocket_height_m);
  client.path = reader.points("path", pocket_height_m);
  client.speed = reader.number("speed", client.speed);
  client.temper = read_temper(reader);
  read_hours(reader, client);
  if (!std::all_of(client.bands.begin(), client.bands.end(), is_band) || client.bands.empty()) {
    reader.fail_at("bands", "must name one or more of 2, 5 and 6");
  }
  if (client.speed < 0) {
    reader.fail_at("speed", "must not be negative");
  }
  return client;
}

void read_clients(SiteReader& root, Site& site) {
  std::set<Mac> macs;
  root.each("clients", [&](SiteReader& reader) {
    site.clients.push_back(read_client(reader));
    if (!macs.insert(site.clients.back().mac).second) {
      reader.fail_at("mac", "is taken already");
    }
  });
}

void read_expectations(SiteReader& root, Site& site) {
  if (!root.has("expectations")) {
    return;
  }
  SiteReader reader = root.object("expectations");
  Expectations& expected = site.expectations;
  expected.interference_falls_by_db = reader.number("interference_falls_by_db", 0);
  expected.rooms_share_no_block = reader.integers("rooms_share_no_block");
  if (reader.has("power_falls")) {
    SiteReader falls = reader.object("power_falls");
    expected.power_falls_within_m = falls.number("within_m");
    expected.power_falls_on_bands = falls.integers("bands");
    falls.finish();
  }
  if (reader.has("steering")) {
    expected.steering = read_steering_expectations(reader.object("steering"), site);
  }
  reader.finish();
}

}  // namespace

const Room* Site::room_at(const Point& point) const {
  const auto found =
      std::find_if(rooms.begin(), rooms.end(), [&](const Room& room) { return room.area.contains(point); });
  return found == rooms.end() ? nullptr : &*found;
}

Site parse_site(const std::string& text) {
  const nlohmann::json document = nlohmann::json::parse(text, nullptr, false);
  if (document.is_discarded()) {
    throw SiteError("site is not JSON");
  }
  SiteReader root(document, "site");
  Site site;
  site.name = root.text("name");
  site.domain = root.text("domain");
  site.seed = static_cast<std::uint64_t>(root.integer("seed", 1));
  read_floor(root, site);
  read_radio_model(root, site);
  read_scan(root, site);
  read_walls(root, site);
  read_rooms(root, site);
  read_access_points(root, site);
  read_foreign(root, site);
  read_clients(root, site);
  if (root.has("steering")) {
    site.steering = read_steering_window(root.object("steering"));
  }
  read_expectations(root, site);
  root.finish();
  return site;
}

Site load_site(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (!file || !(text << file.rdbuf())) {
    throw SiteError("cannot read " + path);
  }
  return parse_site(text.str());
}

}  // namespace sim
