// The radios of access points: of a location, of one of them, and what they offer to roaming clients.
#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "ApiZAL.h"
#include "answers.h"
#include "commands.h"
#include "json/JsonWriter.h"
#include "trace.h"
#include "zal/boards.h"

using rrm::JsonReader;
using rrm::JsonWriter;

struct ApiZAL::Vap {
  std::string mac;
  std::string ssid;
  bool use_80211k = false;
  bool use_80211r = false;
  bool use_80211v = false;
  std::set<std::string> fbt_links;  // addresses of the R1 key holders that it is linked to
};

struct ApiZAL::Radio {
  std::string ap_mac;
  std::string mac;
  bool status = false;
  int assoc_clients = 0;
  std::vector<int> available_channels;
  std::vector<Vap> vaps;
  // The fields that an answer repeats as they came; eirp and its limits only where they were given.
  std::map<std::string, int> numbers;
};

struct ApiZAL::RoamingVap {
  std::string mac;
  int id = 0;
  std::string ap_mac;
  std::string ssid;
  bool use_80211k = false;
  bool use_80211r = false;
  bool use_80211v = false;
  int fbt_links = 0;
};

namespace {

constexpr std::array all_bands = {"2g", "5g", "6g"};

void write_numbers(JsonWriter& object, const std::map<std::string, int>& numbers,
                   std::initializer_list<const char*> keys) {
  for (const char* key : keys) {
    const auto found = numbers.find(key);
    if (found != numbers.end()) object.add_int(key, found->second);
  }
}

void write_channels(JsonWriter& object, const std::vector<int>& channels) {
  JsonWriter array = JsonWriter::array(object, "available-channels");
  for (const int channel : channels) array.add_int(nullptr, channel);
}

const char* up_or_down(bool status) {
  return status ? "Up" : "Down";
}

const char* enable_or_disable(bool use) {
  return use ? "Enable" : "Disable";
}

}  // namespace

std::string ApiZAL::band_of(const std::string& mac, int radio_id) const {
  const ActiveApStorage::Record record = active_aps_.find(zal::MacAddr::from_str(mac));
  std::optional<zal::ApProfileRadioBand> band;
  if (record != nullptr) band = zal::zalbt_get_band_by_radio_id(record->get_board_type().value_or(""), radio_id);
  if (!band) {
    throw ApiFailure("Cannot get radio by id '" + std::to_string(radio_id) + "' for AP '" + mac + "'");
  }
  return zal::ApProfileRadioBandToStrX(*band);
}

ApiZAL::Radio ApiZAL::read_radio(const JsonReader& interface) const {
  static constexpr const char* always[] = {"power-changed",   "conflicted",    "locked-tpc", "locked-dca",
                                           "locked-balancer", "locked-80211v", "channel",    "power",
                                           "max-power",       "min-power",     "bandwidth",  "primary-channel"};
  static constexpr const char* if_given[] = {"eirp", "eirp-max", "eirp-min"};
  const JsonReader channels = interface.get("available-channels");
  const JsonReader vaps = interface.get("vaps");
  if (channels.empty() || vaps.empty()) throw ApiFailure(answers::malformed);
  Radio radio;
  for (int i = 0; i < channels.size(); ++i) radio.available_channels.push_back(channels.get_int(i));
  answers::for_each(vaps, [&](const JsonReader& json) {
    Vap vap{answers::mac_text(json.get_string("mac")), json.get_string("ssid"),
            json.get_int("use_802dot11k") != 0,        json.get_int("use_802dot11r") != 0,
            json.get_int("use_802dot11v") != 0,        {}};
    const JsonReader links = json.get("fbt-links");
    for (int i = 0; i < links.size(); ++i) vap.fbt_links.insert(answers::mac_text(links.get_string(i)));
    radio.vaps.push_back(std::move(vap));
  });
  radio.mac = answers::mac_text(interface.get_string("mac"));
  radio.status = interface.get_int("status") != 0;
  radio.assoc_clients = interface.get("assoc_clients").size();
  for (const char* key : always) radio.numbers[key] = interface.get_int(key);
  for (const char* key : if_given) {
    if (interface.has(key)) radio.numbers[key] = interface.get_int(key);
  }
  return radio;
}

// Of two radios of one band the first stays.
ApiZAL::RadiosByBand ApiZAL::get_radios(const std::string& location, const std::string& ap_mac) {
  const std::string mac = answers::mac_text(ap_mac.c_str());
  const JsonReader answer =
      ask(commands::ap(location, mac), "no answer on morvane api request for specific ap '" + mac + "'");
  if (answer.has("deleted-ap")) throw ApiFailure("ap not found");
  const JsonReader ap = answer.has("unanswered-ap") ? answer.get("unanswered-ap") : answer.get("active-ap");
  RadiosByBand radios;
  answers::for_each(ap.get("radios").get("interfaces"), [&](const JsonReader& interface) {
    const std::string band = band_of(mac, interface.get_int("id"));
    Radio radio = read_radio(interface);
    radio.ap_mac = mac;
    radios.try_emplace(band, std::move(radio));
  });
  return radios;
}

void ApiZAL::write_stat(JsonWriter& array, const Radio& radio) {
  JsonWriter entry = JsonWriter::object(array, nullptr);
  entry.add_string("ap-mac", radio.ap_mac);
  entry.add_string("radio-mac", radio.mac);
  entry.add_string("status", up_or_down(radio.status));
  write_numbers(entry, radio.numbers,
                {"locked-dca", "locked-tpc", "locked-balancer", "locked-80211v", "channel", "power", "bandwidth"});
  entry.add_int("assoc-clients", radio.assoc_clients);
  write_numbers(entry, radio.numbers, {"eirp"});
  write_channels(entry, radio.available_channels);
}

bool ApiZAL::morvane_rrm_stat(const std::string& location, std::string& answer, std::string& error) {
  trace.ap("Morvane HL-API: rrm_stat: location: %s", location.c_str());
  return answers::attempt(error, [&] {
    const std::vector<std::string> configured = configured_domains();
    if (std::find(configured.begin(), configured.end(), location) == configured.end()) {
      throw ApiFailure("morvane is not enabled for ap-location '" + location + "'");
    }
    if (!ask_domains().contains(location)) throw ApiFailure("ap-location '" + location + "' is empty");
    const JsonReader domain = ask_domain(location);
    const JsonReader aps = domain.get("details").get("aps");
    const int count = aps.size();
    if (count == 0) throw ApiFailure("ap-location '" + location + "' currently has no active APs");
    std::map<std::string, std::vector<Radio>> bands;
    answers::for_each(aps, [&](const JsonReader& ap) {
      for (auto& [band, radio] : get_radios(location, ap.get_string("mac"))) bands[band].push_back(std::move(radio));
    });
    if (bands.empty()) throw ApiFailure("empty data");
    JsonWriter json;
    for (const auto& [band, radios] : bands) {
      JsonWriter array = JsonWriter::array(json, band.c_str());
      for (const Radio& radio : radios) write_stat(array, radio);
    }
    answer = json.to_string();
  });
}

void ApiZAL::write_vap(JsonWriter& array, const Vap& vap) {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_string("vap-mac", vap.mac);
  object.add_string("ssid", vap.ssid);
  object.add_string("80211k", enable_or_disable(vap.use_80211k));
  object.add_string("80211r", enable_or_disable(vap.use_80211r));
  object.add_string("80211v", enable_or_disable(vap.use_80211v));
  JsonWriter links = JsonWriter::array(object, "fbt-links");
  for (const std::string& link : vap.fbt_links) links.add_string(nullptr, link);
}

void ApiZAL::write_radio(JsonWriter& json, const std::string& band, const Radio& radio) {
  JsonWriter entry = JsonWriter::object(json, band.c_str());
  entry.add_string("radio-mac", radio.mac);
  entry.add_string("status", up_or_down(radio.status));
  write_numbers(
      entry, radio.numbers,
      {"power-changed", "conflicted", "locked-tpc", "locked-dca", "locked-balancer", "locked-80211v", "channel",
       "power", "max-power", "min-power", "bandwidth", "primary-channel", "eirp", "eirp-max", "eirp-min"});
  write_channels(entry, radio.available_channels);
  JsonWriter ssids = JsonWriter::array(entry, "ssids");
  for (const Vap& vap : radio.vaps) write_vap(ssids, vap);
}

bool ApiZAL::morvane_ap(const zal::MacAddr& mac, std::string& answer, std::string& error) {
  const std::string mac_text = mac.to_string();
  trace.ap("Morvane HL-API: ap: mac: %s", mac_text.c_str());
  return answers::attempt(error, [&] {
    const ActiveApStorage::Record record = active_aps_.find(mac);
    if (record == nullptr || !record->get_location()) {
      throw ApiFailure("can`t find given mac '" + mac_text + "' in local info");
    }
    const RadiosByBand radios = get_radios(*record->get_location(), mac_text);
    if (radios.empty()) throw ApiFailure("empty data");
    JsonWriter json;
    json.add_string("ap-location", *record->get_location());
    json.add_string("ap-mac", mac_text);
    for (const auto& [band, radio] : radios) write_radio(json, band, radio);
    answer = json.to_string();
  });
}

// Roaming

// An access point that the controller knows not yet, or no longer, is left out: it must not cost the others.
void ApiZAL::add_roaming_vaps(const JsonReader& ap, std::map<std::string, std::vector<RoamingVap>>& vaps) const {
  const std::string mac = answers::mac_text(ap.get_string("mac"));
  if (active_aps_.find(zal::MacAddr::from_str(mac)) == nullptr) return;
  answers::for_each(ap.get("radios"), [&](const JsonReader& radio) {
    const std::string band = band_of(mac, radio.get_int("id"));
    answers::for_each(radio.get("vaps"), [&](const JsonReader& vap) {
      vaps[band].push_back({answers::mac_text(vap.get_string("mac")), vap.get_int("id"), mac, vap.get_string("ssid"),
                            vap.get_int("use_802dot11k") != 0, vap.get_int("use_802dot11r") != 0,
                            vap.get_int("use_802dot11v") != 0, vap.get("fbt-links").size()});
    });
  });
}

void ApiZAL::write_roaming_vaps(JsonWriter& array, std::vector<RoamingVap>& vaps) {
  std::sort(vaps.begin(), vaps.end(),
            [](const RoamingVap& a, const RoamingVap& b) { return std::tie(a.mac, a.id) < std::tie(b.mac, b.id); });
  for (const RoamingVap& vap : vaps) {
    JsonWriter entry = JsonWriter::object(array, nullptr);
    entry.add_string("ap-mac", vap.ap_mac);
    entry.add_string("vap-mac", vap.mac);
    entry.add_string("ssid", vap.ssid);
    entry.add_int("80211k-enable", vap.use_80211k);
    entry.add_int("80211r-enable", vap.use_80211r);
    entry.add_int("80211v-enable", vap.use_80211v);
    entry.add_int("fbt-links", vap.fbt_links);
  }
}

bool ApiZAL::morvane_roaming_stat(const std::string& location, const std::optional<zal::MacAddr>& mac,
                                  const std::optional<std::string>& band, std::string& answer, std::string& error) {
  const std::string wanted_mac = mac ? mac->to_string() : "";
  trace.ap("Morvane HL-API: roaming_stat: location: %s, mac: %s, band: %s", location.c_str(),
           mac ? wanted_mac.c_str() : "<no mac>", band ? band->c_str() : "<no band>");
  return answers::attempt(error, [&] {
    bool location_known = false;
    active_aps_.for_each([&](const zal::MacAddr&, const ActiveApStorage::Record& record) {
      location_known = record->get_location() == location;
      return location_known;
    });
    if (mac && active_aps_.find(*mac) == nullptr) {
      throw ApiFailure("can`t find given mac '" + wanted_mac + "' in local info");
    }
    std::map<std::string, std::vector<RoamingVap>> vaps;
    if (ask_domains().contains(location) && location_known) {
      const JsonReader domain = ask_domain(location);
      answers::for_each(domain.get("details").get("aps"), [&](const JsonReader& ap) {
        if (!mac || answers::mac_text(ap.get_string("mac")) == wanted_mac) add_roaming_vaps(ap, vaps);
      });
    }
    JsonWriter json;
    for (const char* name : all_bands) {
      JsonWriter array = JsonWriter::array(json, name);
      if (!band || *band == name) write_roaming_vaps(array, vaps[name]);
    }
    answer = json.to_string();
  });
}
