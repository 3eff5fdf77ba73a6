// The objects of an AP's `802dot11k` list: the neighbour radios worth reporting to its clients. Pure functions over
// records, shared by all who build such a list.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/MacAddr.h"
#include "model/Radios.h"

namespace rrm {

class JsonWriter;

// A VAP of a neighbour radio that shares its SSID with the listening AP.
struct ListedVap {
  std::int32_t id = 0;
  std::string ssid;
  MacAddr bssid;

  bool operator==(const ListedVap&) const = default;
};

// The radio of an AP that a neighbour radio concerns: enabled and of its band, one on its channel first. Null if there
// is none.
const Radio* concerned_radio(const Radios& own, const Radio& neighbour);

// An address of a radio (a VAP's, a key holder's) with the local bit that the listener hears, where what it hears is
// that address or the radio's own up to that bit; else the address as it stands.
MacAddr as_heard(const MacAddr& address, const MacAddr& radio_mac, const MacAddr& heard);

// The VAPs of a neighbour radio that have a switch on (802.11k or 802.11v), as has the own radio's VAP of that SSID, in
// the order of the SSIDs.
std::vector<ListedVap> common_vaps(const Radio& own, const Radio& neighbour, const MacAddr& heard, bool VapEntry::*use);

// Adds one neighbour object to the array.
void write_neighbour_object(JsonWriter& array, const Radio& neighbour, const MacAddr& heard, std::uint32_t priority,
                            const std::vector<ListedVap>& vaps);

// Adds the object of a neighbour radio heard under an address to the plain 802.11k list of an AP, if it belongs there.
void write_neighbour(JsonWriter& array, const Radios& own, const Radio& neighbour, const MacAddr& heard);

}  // namespace rrm
