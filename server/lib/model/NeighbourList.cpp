#include "model/NeighbourList.h"

#include "json/JsonWriter.h"

namespace rrm {

const Radio* concerned_radio(const Radios& own, const Radio& neighbour) {
  const std::int32_t band = band_or_that_of(neighbour.band, neighbour.channel);
  return band != 0 ? own.find_on_band(band, neighbour.channel) : nullptr;
}

MacAddr as_heard(const MacAddr& address, const MacAddr& radio_mac, const MacAddr& heard) {
  const bool same = heard.equal_ignoring_local_bit(address) || heard.equal_ignoring_local_bit(radio_mac);
  return same ? address.rebased_on_local_bit_of(heard) : address;
}

std::vector<ListedVap> common_vaps(const Radio& own, const Radio& neighbour, const MacAddr& heard,
                                   bool VapEntry::*use) {
  std::vector<ListedVap> listed;
  for (const auto& [ssid, own_vap] : own.vaps) {
    const VapEntry* vap = own_vap.*use ? neighbour.vaps.find(ssid) : nullptr;
    if (vap == nullptr || !(vap->*use)) continue;
    listed.push_back({vap->id, ssid, as_heard(vap->mac, neighbour.mac, heard)});
  }
  return listed;
}

void write_neighbour_object(JsonWriter& array, const Radio& neighbour, const MacAddr& heard, std::uint32_t priority,
                            const std::vector<ListedVap>& vaps) {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_string("neighbour-mac", heard.to_string());
  object.add_int("channel", neighbour.channel);
  object.add_int("band", neighbour.band_or_inferred(neighbour.channel));
  object.add_int("bandwidth", neighbour.bandwidth);
  object.add_string("primary-channel", neighbour.primary_channel_text());
  object.add_int("priority", static_cast<std::int32_t>(priority));
  JsonWriter vap_array = JsonWriter::array(object, "vaps");
  for (const ListedVap& vap : vaps) {
    JsonWriter entry = JsonWriter::object(vap_array, nullptr);
    entry.add_int("id", vap.id);
    entry.add_string("ssid", vap.ssid);
    entry.add_string("mac", vap.bssid.to_string());
  }
}

void write_neighbour(JsonWriter& array, const Radios& own, const Radio& neighbour, const MacAddr& heard) {
  if (!neighbour.status) return;
  const Radio* concerned = concerned_radio(own, neighbour);
  if (concerned == nullptr) return;
  const std::vector<ListedVap> vaps = common_vaps(*concerned, neighbour, heard, &VapEntry::use_802dot11k);
  if (!vaps.empty()) write_neighbour_object(array, neighbour, heard, neighbour.priority, vaps);
}

}  // namespace rrm
