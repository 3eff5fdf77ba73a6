// The virtual APs of one radio, by SSID: who carries the 802.11k, r and v switches and the 802.11r key holders. Every
// VAP's address lies in the MAC pool of its radio; from_json is where that is enforced. Walked in ascending order of
// the SSIDs. Belongs to the domain worker's thread, or to the optimisation thread's copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "model/FbtLinks.h"
#include "model/MacAddr.h"

namespace rrm {

class JsonReader;
class JsonWriter;
struct Radio;

struct VapEntry {
  std::int32_t id = 0;  // number on the radio, and offset in the radio's MAC pool
  MacAddr mac;          // the BSSID
  std::string ssid;
  bool use_802dot11k = false;
  bool use_802dot11r = false;
  bool use_802dot11v = false;
  std::string fbt_r0_keyholder;
  std::string fbt_r1_keyholder;
  std::string fbt_rrb_key;
  FbtLinks fbt_links;

  // The mobility domain that all VAPs of one SSID share, a 16-bit CRC of its bytes.
  std::uint16_t mobility_domain() const;
  bool same_settings(const VapEntry& other) const;
  // The key holders, the key and the links of the same VAP as it was known before.
  void take_fbt(const VapEntry& old);

  // Links name a peer by its two key holders and its key; R1 holders are compared up to the local bit.
  bool has_link(const VapEntry& peer) const;
  void link_to(const VapEntry& peer);
  void link_to(const VapEntry& peer, const std::string& r1_keyholder);
  // Removes the first link that names the peer; the others keep their order. False if there is none.
  bool unlink(const VapEntry& peer);
  // Adds the wildcard link, once. True if it was added.
  bool link_broadcast_802dot11r();
};

class VapMap {
 public:
  using Map = std::map<std::string, VapEntry>;

  // The address of the wildcard R1 key holder.
  static constexpr const char* broadcast_r1_kh_id = "ff:ff:ff:ff:ff:ff";

  bool empty() const { return vaps_.empty(); }
  std::size_t size() const { return vaps_.size(); }
  Map::const_iterator begin() const { return vaps_.begin(); }
  Map::const_iterator end() const { return vaps_.end(); }
  Map::iterator begin() { return vaps_.begin(); }
  Map::iterator end() { return vaps_.end(); }
  // Null if the radio has no VAP of this SSID.
  const VapEntry* find(const std::string& ssid) const;
  VapEntry* find(const std::string& ssid);
  // Under the entry's SSID; a VAP of that SSID that is there already stays. The result says whether it went in.
  bool insert(const VapEntry& vap);
  void clear() { vaps_.clear(); }

  // Replaces the VAPs by those of an array, read by the keys of a message, or of a backup with `restore`; a null array
  // changes nothing. A VAP of the same SSID and address that comes without a key keeps its key holders, key and links.
  // A VAP whose address cannot be placed in the radio's pool is dropped with an error and event 11.
  void from_json(const JsonReader& array, const Radio& radio, bool restore);

  bool contains_with_11k(const std::string& ssid) const;
  bool any_11k() const;
  bool any_11r() const;
  bool any_11v() const;
  // Same SSIDs with the same ids and switches. Addresses, key holders and links do not matter.
  bool equal(const VapMap& other) const;

  void dump() const;
  void dump_json(JsonWriter& array) const;
  // With the 802.11r keys: for the backup and for those who ask for the keys by name, nothing else.
  void dump_json_full(JsonWriter& array) const;

 private:
  Map vaps_;
};

// Equal addresses up to the local bit, both given as texts; a text that is no address counts as the all-zero one.
bool mac_equal_ignoring_local_bit(const std::string& a, const std::string& b);

// Sixteen random ASCII letters, drawn with rand().
std::string random_fbt_key();
// The key of the wildcard link: one for the life of the process, made on first use. Safe from any thread.
const std::string& broadcast_fbt_key();

}  // namespace rrm
