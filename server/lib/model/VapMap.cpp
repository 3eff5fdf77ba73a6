#include "model/VapMap.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

#include "Radio.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"
#include "model/keys.h"

namespace rrm {
namespace {

const char* key_of(const FieldKeys& keys, bool restore) {
  return restore ? keys.backup : keys.message;
}

// A radio that does not report 802.11v follows its 802.11k; a locked one has none.
bool read_11v(const JsonReader& json, const Radio& radio, bool restore, bool use_11k) {
  if (radio.locked_80211v != 0) return false;
  if (restore) return get_flag(json, field::use_802dot11v.backup);
  return get_flag_or(json, field::use_802dot11v.message, use_11k);
}

void report_invalid_mac(const MacAddr& mac, const Radio& radio) {
  const std::string radio_text = radio.mac.to_string();
  RRM_LOG(LOG_ERROR, "Invalid VAP MAC %s: radio.mac=%s, radio.max_mac_count=%d", mac.to_string().c_str(),
          radio_text.c_str(), radio.max_mac_count);
  emit_event_text(11, radio_text);
}

// The VAP's address in the radio's pool: the one it names, else the one its id gives; empty, and reported, if neither
// lies in the pool.
std::optional<MacAddr> choose_mac(const JsonReader& json, const Radio& radio, std::int32_t id, const char* ssid) {
  const auto in_pool = [&](const MacAddr& mac) { return mac.in_pool(radio.mac, radio.max_mac_count); };
  const MacAddr computed = radio.mac.plus(id);
  const bool named = json.has("mac");
  const MacAddr wanted = named ? get_mac(json, "mac") : computed;
  if (in_pool(wanted)) return wanted;
  if (!named || !in_pool(computed)) {
    report_invalid_mac(wanted, radio);
    return std::nullopt;
  }
  RRM_LOG(LOG_WARNING, "VAP MAC %s outside radio pool [%s, +%u), using %s for ssid=%s", wanted.to_string().c_str(),
          radio.mac.to_string().c_str(), static_cast<unsigned>(radio.max_mac_count), computed.to_string().c_str(),
          ssid);
  return computed;
}

FbtLink read_link(const JsonReader& json) {
  return {json.get_string("remote-r0-kh-id"), json.get_string("remote-r1-kh-id"), json.get_string("remote-r1-kh-key")};
}

// The key is what says that the AP speaks of 802.11r at all. One that does not, still has what it was given, as long as
// it has the VAP.
void read_fbt(const JsonReader& json, const VapEntry* old, VapEntry& vap) {
  if (!json.has("fbt-rrb-key")) {
    if (old != nullptr && old->mac == vap.mac) vap.take_fbt(*old);
    return;
  }
  vap.fbt_r0_keyholder = json.get_string("fbt-r0-keyholder");
  vap.fbt_r1_keyholder = json.get_string("fbt-r1-keyholder");
  vap.fbt_rrb_key = json.get_string("fbt-rrb-key");
  for_each_element(json.get("fbt-links"), [&](const JsonReader& link) { vap.fbt_links.push_back(read_link(link)); });
}

// `old` are the VAPs of the radio that were known before.
std::optional<VapEntry> read_vap(const JsonReader& json, const Radio& radio, bool restore, const VapMap& old) {
  VapEntry vap;
  vap.id = json.get_int("id");
  vap.use_802dot11k = get_flag(json, key_of(field::use_802dot11k, restore));
  vap.use_802dot11r = get_flag(json, key_of(field::use_802dot11r, restore));
  vap.ssid = json.get_string("ssid");
  if (vap.ssid.empty()) return std::nullopt;
  vap.use_802dot11v = read_11v(json, radio, restore, vap.use_802dot11k);
  const std::optional<MacAddr> mac = choose_mac(json, radio, vap.id, vap.ssid.c_str());
  if (!mac) return std::nullopt;
  vap.mac = *mac;
  read_fbt(json, old.find(vap.ssid), vap);
  return vap;
}

// What both forms begin with.
void write_vap(JsonWriter& object, const VapEntry& vap) {
  object.add_int("id", vap.id);
  object.add_string("ssid", vap.ssid);
  object.add_string("mac", vap.mac.to_string());
  object.add_int("mobility-domain", vap.mobility_domain());
  object.add_int(field::use_802dot11k.backup, vap.use_802dot11k);
  object.add_int(field::use_802dot11r.backup, vap.use_802dot11r);
  object.add_int(field::use_802dot11v.backup, vap.use_802dot11v);
}

bool links_shown(const VapEntry& vap) {
  return vap.use_802dot11r && !vap.fbt_links.empty();
}

template <class Predicate>
bool any_vap(const VapMap& vaps, Predicate predicate) {
  return std::any_of(vaps.begin(), vaps.end(), [&](const auto& item) { return predicate(item.second); });
}

auto find_link(const VapEntry& vap, const VapEntry& peer) {
  return std::find_if(vap.fbt_links.begin(), vap.fbt_links.end(), [&](const SharedFbtLink& link) {
    return link->remote_r0_kh_id == peer.fbt_r0_keyholder && link->remote_r1_kh_key == peer.fbt_rrb_key &&
           mac_equal_ignoring_local_bit(link->remote_r1_kh_id, peer.fbt_r1_keyholder);
  });
}

}  // namespace

// A CRC with generator 0x8005 over the SSID's bits, without the closing zero bits and inversions of the usual ones.
std::uint16_t VapEntry::mobility_domain() const {
  constexpr unsigned generator = 0x8005;
  unsigned crc = 0;
  for (const char byte : ssid) {
    for (int bit = 7; bit >= 0; --bit) {
      const unsigned top = crc & 0x8000;
      crc = ((crc << 1) & 0xFFFF) | ((static_cast<unsigned char>(byte) >> bit) & 1U);
      if (top != 0) crc ^= generator;
    }
  }
  return static_cast<std::uint16_t>(crc);
}

bool VapEntry::same_settings(const VapEntry& other) const {
  return id == other.id && use_802dot11k == other.use_802dot11k && use_802dot11r == other.use_802dot11r &&
         use_802dot11v == other.use_802dot11v;
}

void VapEntry::take_fbt(const VapEntry& old) {
  fbt_r0_keyholder = old.fbt_r0_keyholder;
  fbt_r1_keyholder = old.fbt_r1_keyholder;
  fbt_rrb_key = old.fbt_rrb_key;
  fbt_links = old.fbt_links;
}

bool VapEntry::has_link(const VapEntry& peer) const {
  return find_link(*this, peer) != fbt_links.end();
}

void VapEntry::link_to(const VapEntry& peer) {
  link_to(peer, peer.fbt_r1_keyholder);
}

void VapEntry::link_to(const VapEntry& peer, const std::string& r1_keyholder) {
  fbt_links.push_back({peer.fbt_r0_keyholder, r1_keyholder, peer.fbt_rrb_key});
}

bool VapEntry::unlink(const VapEntry& peer) {
  const auto link = find_link(*this, peer);
  if (link == fbt_links.end()) return false;
  fbt_links.erase(link);
  return true;
}

bool VapEntry::link_broadcast_802dot11r() {
  const bool linked = std::any_of(fbt_links.begin(), fbt_links.end(), [](const SharedFbtLink& link) {
    return link->remote_r1_kh_id == VapMap::broadcast_r1_kh_id;
  });
  if (linked) return false;
  fbt_links.push_back({"*", VapMap::broadcast_r1_kh_id, broadcast_fbt_key()});
  RRM_LOG(LOG_TRACE, "FBT broadcast mac added");
  return true;
}

const VapEntry* VapMap::find(const std::string& ssid) const {
  const auto place = vaps_.find(ssid);
  return place == vaps_.end() ? nullptr : &place->second;
}

VapEntry* VapMap::find(const std::string& ssid) {
  return const_cast<VapEntry*>(std::as_const(*this).find(ssid));
}

bool VapMap::insert(const VapEntry& vap) {
  return vaps_.try_emplace(vap.ssid, vap).second;
}

void VapMap::from_json(const JsonReader& array, const Radio& radio, bool restore) {
  if (array.empty()) return;
  const VapMap old = std::exchange(*this, VapMap());
  for_each_element(array, [&](const JsonReader& element) {
    if (std::optional<VapEntry> vap = read_vap(element, radio, restore, old)) insert(*vap);
  });
}

bool VapMap::contains_with_11k(const std::string& ssid) const {
  const VapEntry* vap = find(ssid);
  return vap != nullptr && vap->use_802dot11k;
}

bool VapMap::any_11k() const {
  return any_vap(*this, [](const VapEntry& vap) { return vap.use_802dot11k; });
}

bool VapMap::any_11r() const {
  return any_vap(*this, [](const VapEntry& vap) { return vap.use_802dot11r; });
}

bool VapMap::any_11v() const {
  return any_vap(*this, [](const VapEntry& vap) { return vap.use_802dot11v; });
}

bool VapMap::equal(const VapMap& other) const {
  return std::equal(begin(), end(), other.begin(), other.end(), [](const auto& a, const auto& b) {
    return a.first == b.first && a.second.same_settings(b.second);
  });
}

void VapMap::dump() const {
  for (const auto& [ssid, vap] : vaps_) {
    RRM_LOG(LOG_DUMP, "      vap_id = %d, 802.11k = %d, 802.11r = %d, 802.11v = %d, ssid = %s", vap.id,
            vap.use_802dot11k, vap.use_802dot11r, vap.use_802dot11v, ssid.c_str());
  }
}

void VapMap::dump_json(JsonWriter& array) const {
  for (const auto& [ssid, vap] : vaps_) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    write_vap(object, vap);
    if (!links_shown(vap)) continue;
    JsonWriter links = JsonWriter::array(object, "fbt-links");
    for (const SharedFbtLink& link : vap.fbt_links) links.add_string(nullptr, link->remote_r1_kh_id);
  }
}

void VapMap::dump_json_full(JsonWriter& array) const {
  for (const auto& [ssid, vap] : vaps_) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    write_vap(object, vap);
    object.add_string("fbt-r0-keyholder", vap.fbt_r0_keyholder);
    object.add_string("fbt-r1-keyholder", vap.fbt_r1_keyholder);
    object.add_string("fbt-rrb-key", vap.fbt_rrb_key);
    if (!links_shown(vap)) continue;
    JsonWriter links = JsonWriter::array(object, "fbt-links");
    for (const SharedFbtLink& link : vap.fbt_links) link->write(links);
  }
}

bool mac_equal_ignoring_local_bit(const std::string& a, const std::string& b) {
  return MacAddr::parse(a.c_str()).equal_ignoring_local_bit(MacAddr::parse(b.c_str()));
}

std::string random_fbt_key() {
  constexpr std::size_t length = 16;
  constexpr int span = 'z' - 'A' + 1;
  std::string key;
  while (key.size() < length) {
    const char letter = static_cast<char>('A' + std::rand() % span);
    if (letter <= 'Z' || letter >= 'a') key.push_back(letter);
  }
  return key;
}

const std::string& broadcast_fbt_key() {
  static const std::string key = random_fbt_key();
  return key;
}

}  // namespace rrm
