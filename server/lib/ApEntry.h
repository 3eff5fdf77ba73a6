// One AP as its domain knows it. Entries are shared between the indexes that hold them and the message being processed;
// an entry never refers back to its map. No lock: entries belong to the domain worker's thread, and the optimisation
// thread works on clones, whose session is blank so that nothing can be sent through them. The settings that `config`
// points to outlive the entry.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "core/BaseSession.h"
#include "model/Neighbour.h"
#include "model/Radios.h"

namespace rrm {

// Chipset platform, told by the board's name.
enum class ApPlatform : std::int32_t { unknown = -1, brix = 0, fast_path = 1, realtek = 2 };

ApPlatform platform_of_board(const std::string& board);
// "BRIX", "FastPath", "Realtek" or "Unknown".
const char* platform_name(ApPlatform platform);

// What the AP said about itself when it subscribed. `mac` is a record of that, not the AP's identity.
struct ApFactory {
  std::string board;
  std::string hw;
  std::string serial;
  MacAddr mac;

  bool operator==(const ApFactory&) const = default;
};

// Missing strings read as empty, an address that does not scan as all zero.
ApFactory factory_from_json(const JsonReader& object);

class ApEntry {
 public:
  static constexpr std::uint32_t default_mac_count = 48;

  ApEntry(const DomainConfig& domain_config, const MacAddr& ap_mac, const BaseSession& ap_session,
          const ApFactory& ap_factory);
  ApEntry& operator=(const ApEntry&) = delete;

  const ApPlatform platform;
  const MacAddr mac;  // the AP's identity
  const DomainConfig* const config;
  std::int32_t delete_ttl = 0;  // worker ticks left in the set of deleted APs
  Radios radios;
  BaseSession session;  // the WebSocket session that serves the AP
  bool session_dropped = false;
  const ApFactory factory;
  bool active = false;                             // answered the mode request of this cycle
  bool fbt_changed = false;                        // 802.11r settings changed, the AP must be told
  NeighbourMap visible_members;                    // APs of the domain that this AP hears
  NeighbourMap visible_rogue;                      // foreign APs that this AP hears
  std::uint32_t ap_mac_count = default_mac_count;  // length of the MAC pool that its radios share
  bool use_wildcard_80211r = false;                // takes wildcard 802.11r key holders

  // The MAC of a radio, enabled or not; with a warning the AP's own where no radio has the id.
  MacAddr get_radio_mac(std::int32_t radio_id) const;

  // What a message says of the radios. 802.11r links are lost with a VAP that goes, changes its address or comes with
  // key holders of its own; the AP, which still holds them, must then be told.
  void read_radios(const JsonReader& json, ChannelPools& channels, bool apply_vaps, bool list_flag);

  // The form of the backup and of the AP query.
  void dump_json(JsonWriter& object) const;
  // The VAPs of each radio with their 802.11r keys and links.
  void dump_fbt_json(JsonWriter& object) const;
  // Reads the form of dump_json, save for "mac" and "active": the caller knows the one, the other is not restored.
  void restore(const JsonReader& json, ChannelPools& channels);

  // A deep copy with a blank session.
  std::shared_ptr<ApEntry> clone_entry() const;

 private:
  ApEntry(const ApEntry&) = default;
};

}  // namespace rrm
