#include "model/ApMap.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/NeighbourList.h"
#include "model/json_fields.h"
#include "model/keys.h"

namespace rrm {
namespace {

bool same_session(const BaseSession& a, const BaseSession& b) {
  return a.id == b.id;
}

void drop(const MacAddr&, const std::shared_ptr<ApEntry>&) {}

void forget_clients(Radio& radio) {
  radio.problist.clear();
  radio.assoc.clear();
}

// One scan round, sorted into who belongs to the domain and who does not.
struct Heard {
  NeighbourMap members;
  NeighbourMap rogues;
};

Neighbour read_neighbour(const JsonReader& json) {
  Neighbour neighbour;
  neighbour.channel = json.get_int("channel");
  neighbour.band = get_int_or(json, "band", band_of_channel(neighbour.channel));
  neighbour.tx_power = json.get_int("tx-power");
  neighbour.bandwidth = json.get_int("bandwidth");
  neighbour.rssi = json.get_int(field::level.message);
  const bool upper = std::string_view(json.get_string(field::position.message)) == "upper";
  neighbour.primary = upper ? primary_upper : primary_lower;
  return neighbour;
}

void warn_without_band(const MacAddr& bssid, const Neighbour& neighbour) {
  RRM_LOG(LOG_WARNING, "rf-environment entry without band: bssid=%s channel=%d bandwidth=%d rssi=%d",
          bssid.to_string().c_str(), neighbour.channel, neighbour.bandwidth, neighbour.rssi);
}

// A null element ends the round.
Heard read_round(const ApStorage& domain, const JsonReader& round) {
  std::vector<NeighbourMap::value_type> members;
  std::vector<NeighbourMap::value_type> rogues;
  for (int i = 0; i < round.size(); ++i) {
    const JsonReader element = round.at(i);
    if (element.empty()) break;
    const MacAddr bssid = get_mac(element, field::bssid.message);
    const Neighbour neighbour = read_neighbour(element);
    if (neighbour.band == 0 && !element.has("band")) warn_without_band(bssid, neighbour);
    (domain.owner_of(bssid) != nullptr ? members : rogues).emplace_back(bssid, neighbour);
  }
  Heard heard;
  heard.members.insert_all(std::move(members));
  heard.rogues.insert_all(std::move(rogues));
  return heard;
}

// The first of some addresses that an AP hears; null if it hears none. Both are in ascending order, so a look-up is
// only needed where what is heard lies behind.
const MacAddr* first_heard(const NeighbourMap& heard, const std::vector<MacAddr>& addresses) {
  const auto less = [](const NeighbourMap::value_type& entry, const MacAddr& mac) { return entry.first < mac; };
  auto next = heard.begin();
  for (const MacAddr& address : addresses) {
    if (next != heard.end() && next->first < address) next = std::lower_bound(next, heard.end(), address, less);
    if (next == heard.end()) return nullptr;
    if (next->first == address) return &address;
  }
  return nullptr;
}

// Whether an AP's 802.11k list holds all APs of the domain, heard or not.
bool lists_all_aps(const ApEntry& ap) {
  const DomainConfig& config = *ap.config;
  if (config.use_all_ap_balance) return true;
  return config.use_80211k && config.use_80211v && ap.radios.any_11k() && !ap.radios.any_11kv();
}

}  // namespace

std::shared_ptr<ApEntry> ApMap::find(const MacAddr& mac) const {
  const auto node = nodes_.find(mac);
  return node == nodes_.end() ? nullptr : node->second;
}

std::shared_ptr<ApEntry> ApMap::find_by_any_mac(const MacAddr& mac) const {
  if (std::shared_ptr<ApEntry> exact = find(mac)) return exact;
  const ApStorage::Owner* owner = storage_.owner_of(mac);
  return owner == nullptr ? nullptr : find(owner->ap->mac);
}

ApMap::OwnedRadio ApMap::find_radio(const MacAddr& mac) const {
  std::shared_ptr<ApEntry> ap = find_by_any_mac(mac);
  Radio* radio = ap != nullptr ? ap->radios.find(storage_.radio_id_of(mac)) : nullptr;
  return {std::move(ap), radio};
}

std::shared_ptr<ApEntry> ApMap::find_for_session(const MacAddr& mac, const BaseSession& session) const {
  std::shared_ptr<ApEntry> ap = find(mac);
  if (ap == nullptr) throw std::out_of_range("AP not found");
  if (!same_session(ap->session, session)) throw std::out_of_range("invalid session");
  return ap;
}

void ApMap::insert(const MacAddr& mac, const std::shared_ptr<ApEntry>& ap) {
  nodes_.try_emplace(mac, ap);
  storage_.insert_ap(ap);
}

// Takes out the APs that `picked` chooses, and hands each to `take` with its key.
template <class Picked, class Take>
std::size_t ApMap::take_if(Picked picked, Take take) {
  std::size_t taken = 0;
  for (auto node = nodes_.begin(); node != nodes_.end();) {
    if (!picked(*node->second)) {
      ++node;
      continue;
    }
    const auto [mac, ap] = *node;
    storage_.erase_ap(ap);
    node = erase_node(node);
    take(mac, ap);
    ++taken;
  }
  return taken;
}

template <class Picked>
std::size_t ApMap::move_if(ApMap& target, std::int32_t ttl, Picked picked) {
  return take_if(picked, [&](const MacAddr& mac, const std::shared_ptr<ApEntry>& ap) {
    ap->delete_ttl = ttl;
    target.insert(mac, ap);
  });
}

std::size_t ApMap::tick_ttl() {
  return take_if([](ApEntry& ap) { return --ap.delete_ttl < 1; }, drop);
}

void ApMap::drop_session(const BaseSession& session) {
  take_if([&](const ApEntry& ap) { return same_session(ap.session, session); }, drop);
}

void ApMap::move_session_to(ApMap& target, const BaseSession& session) {
  take_if([&](const ApEntry& ap) { return same_session(ap.session, session); },
          [&](const MacAddr& mac, const std::shared_ptr<ApEntry>& ap) {
            ap->delete_ttl = away_ticks(*ap->config);
            for (Radio& radio : ap->radios.list) forget_clients(radio);
            target.insert(mac, ap);
          });
}

std::size_t ApMap::move_inactive_to(ApMap& target, std::int32_t ttl) {
  return move_if(target, ttl, [](const ApEntry& ap) { return !ap.active; });
}

std::size_t ApMap::move_without_radio_to(ApMap& target, std::int32_t ttl) {
  return move_if(target, ttl, [](const ApEntry& ap) { return !ap.radios.any_on_air(); });
}

std::size_t ApMap::move_silent_to(ApMap& target, std::int32_t ttl) {
  return move_if(target, ttl, [](const ApEntry& ap) { return !ap.radios.received || !ap.radios.any_on_air(); });
}

void ApMap::take_all_from(ApMap& source) {
  source.take_if([](const ApEntry&) { return true; },
                 [&](const MacAddr& mac, const std::shared_ptr<ApEntry>& ap) { insert(mac, ap); });
}

ApMap ApMap::clone() const {
  ApMap copy;
  for (const auto& [mac, ap] : nodes_) copy.insert(mac, ap->clone_entry());
  return copy;
}

void ApMap::clear_received() {
  for (const auto& [mac, ap] : nodes_) ap->radios.received = false;
}

void ApMap::reset_cycle_flags() {
  for (const auto& [mac, ap] : nodes_) {
    ap->active = false;
    for (Radio& radio : ap->radios.list) {
      radio.conflicted = false;
      radio.power_changed = 0;
    }
  }
}

void ApMap::clear_probe_lists() {
  for (const auto& [mac, ap] : nodes_) {
    for (Radio& radio : ap->radios.list) radio.problist.clear();
  }
}

void ApMap::fill_from_json_rf_environment(ApEntry& ap, const JsonReader& rounds) const {
  if (!rounds.is_array()) return;
  std::vector<NeighbourMap> members;
  std::vector<NeighbourMap> rogues;
  for (int i = 0; i < rounds.size(); ++i) {
    const JsonReader round = rounds.at(i);
    if (!round.is_array()) return;
    Heard heard = read_round(storage_, round);
    members.push_back(std::move(heard.members));
    rogues.push_back(std::move(heard.rogues));
  }
  ap.visible_members.merge_rounds(members);
  ap.visible_rogue.merge_rounds(rogues);
}

void ApMap::write_802dot11k(const ApEntry& ap, JsonWriter& array, const NeighbourMap& visible) const {
  if (lists_all_aps(ap)) {
    write_all_neighbours(ap, array);
    return;
  }
  for (const auto& [mac, heard] : visible) {
    const Radio* radio = find_radio(mac).radio;
    if (radio != nullptr) write_neighbour(array, ap.radios, *radio, mac);
  }
}

void ApMap::write_all_neighbours(const ApEntry& ap, JsonWriter& array) const {
  for (const auto& [mac, neighbour] : nodes_) {
    if (neighbour->mac == ap.mac) continue;
    for (const Radio& radio : neighbour->radios.list) {
      if (radio.status) {
        write_neighbour(array, ap.radios, radio, visible_bssid_of_radio(*this, *neighbour, radio.id, &ap));
      }
    }
  }
}

void ApMap::dump() const {
  for (const auto& [mac, ap] : nodes_) RRM_LOG(LOG_TRACE, "AP %s", ap->mac.to_string().c_str());
}

void ApMap::dump_json(JsonWriter& array) const {
  for (const auto& [mac, ap] : nodes_) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    ap->dump_json(object);
  }
}

void ApMap::dump_factory_json(JsonWriter& array) const {
  for (const auto& [mac, ap] : nodes_) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    object.add_string("board", ap->factory.board);
    object.add_string("mac", ap->mac.to_string());
    object.add_string("serial", ap->factory.serial);
    object.add_string("hw", ap->factory.hw);
    ap->dump_fbt_json(object);
  }
}

std::int32_t away_ticks(const DomainConfig& config) {
  return config.away_timeout / config.tick;
}

// The map is walked in MAC order, and what an AP hears too, so the first hit is that of the lowest address.
MacAddr visible_bssid_of_radio(const ApMap& map, const ApEntry& ap, std::int32_t radio_id, const ApEntry* only_in) {
  const MacAddr own = ap.get_radio_mac(radio_id);
  const std::vector<MacAddr> addresses = map.storage().addresses_of(ap.mac, radio_id);
  const auto heard_by = [&](const ApEntry& listener) -> const MacAddr* {
    return listener.mac == ap.mac ? nullptr : first_heard(listener.visible_members, addresses);
  };
  if (only_in != nullptr) {
    const MacAddr* heard = heard_by(*only_in);
    return heard != nullptr ? *heard : own;
  }
  for (const auto& [mac, listener] : map) {
    if (const MacAddr* heard = heard_by(*listener)) return *heard;
  }
  return own;
}

}  // namespace rrm
