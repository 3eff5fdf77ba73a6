// A set of APs of a domain: the entries by the AP's own MAC, in ascending order, and inside it the index of all their
// other addresses. The rules that move an AP between the sets of a domain are the domain worker's; here are the moves.
// No lock: a map belongs to the domain worker's thread, its clone to the optimisation thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>

#include "ApEntry.h"
#include "model/ApStorage.h"

namespace rrm {

class ApMap {
 public:
  using Nodes = std::map<MacAddr, std::shared_ptr<ApEntry>>;
  using iterator = Nodes::iterator;
  using const_iterator = Nodes::const_iterator;

  std::size_t size() const { return nodes_.size(); }
  bool empty() const { return nodes_.empty(); }
  iterator begin() { return nodes_.begin(); }
  iterator end() { return nodes_.end(); }
  const_iterator begin() const { return nodes_.begin(); }
  const_iterator end() const { return nodes_.end(); }

  // The AP under exactly this key; empty if there is none.
  std::shared_ptr<ApEntry> find(const MacAddr& mac) const;
  // The AP that owns this address, its own or one of an enabled radio or VAP, the local bit either way.
  std::shared_ptr<ApEntry> find_by_any_mac(const MacAddr& mac) const;
  // The AP under this key, for a message of its session. Throws std::out_of_range, "AP not found" or "invalid session".
  std::shared_ptr<ApEntry> find_for_session(const MacAddr& mac, const BaseSession& session) const;
  // The AP that owns this address, and its radio that the index gives for it; null without an AP.
  struct OwnedRadio {
    std::shared_ptr<ApEntry> ap;
    Radio* radio = nullptr;
  };
  OwnedRadio find_radio(const MacAddr& mac) const;
  // Some enabled radio or VAP has this address.
  bool contains(const MacAddr& mac) const { return storage_.owner_of(mac) != nullptr; }
  const ApStorage& storage() const { return storage_; }

  // A key that is taken keeps its entry; the new one is indexed all the same.
  void insert(const MacAddr& mac, const std::shared_ptr<ApEntry>& ap);
  // To be called after a message has changed the enabled radios or the VAPs of an AP.
  void reindex(const std::shared_ptr<ApEntry>& ap) { storage_.insert_ap(ap); }
  // Takes the AP's addresses out of the index; goes before erase_node.
  void erase_from_index(const std::shared_ptr<ApEntry>& ap) { storage_.erase_ap(ap); }
  // Unlinks one node and returns the next.
  iterator erase_node(iterator node) { return nodes_.erase(node); }

  // Moves between sets. Each takes the AP out of map and index here and puts it into both there, under the same key.
  // One tick has passed; an AP whose time is up is erased. The results are numbers of APs.
  std::size_t tick_ttl();
  void drop_session(const BaseSession& session);
  // With the away ticks to live; probe lists and clients of the radios are emptied.
  void move_session_to(ApMap& target, const BaseSession& session);
  std::size_t move_inactive_to(ApMap& target, std::int32_t ttl);
  std::size_t move_without_radio_to(ApMap& target, std::int32_t ttl);
  // Those without an answer to the scan, or without a radio on air.
  std::size_t move_silent_to(ApMap& target, std::int32_t ttl);
  void take_all_from(ApMap& source);

  // A deep copy, for the optimisation thread.
  ApMap clone() const;

  // The start and the end of a cycle.
  void clear_received();
  void reset_cycle_flags();
  void clear_probe_lists();

  // What `ap` heard, from the scan rounds of its answer; an address that this set's index knows is a member, all others
  // are rogues. A null array or a null round changes nothing.
  void fill_from_json_rf_environment(ApEntry& ap, const JsonReader& rounds) const;
  // Adds to the 802.11k list of `ap` the neighbour radios of this set, by `visible` or, where the settings say so, all.
  void write_802dot11k(const ApEntry& ap, JsonWriter& array, const NeighbourMap& visible) const;

  void dump() const;
  void dump_json(JsonWriter& array) const;
  void dump_factory_json(JsonWriter& array) const;

 private:
  template <class Picked, class Take>
  std::size_t take_if(Picked picked, Take take);
  template <class Picked>
  std::size_t move_if(ApMap& target, std::int32_t ttl, Picked picked);

  void write_all_neighbours(const ApEntry& ap, JsonWriter& array) const;

  Nodes nodes_;
  ApStorage storage_;
};

// Ticks for which an AP that went away is kept.
std::int32_t away_ticks(const DomainConfig& config);

// A radio's address as the others hear it: of the first AP of the map, or of `only_in` if given, that hears the radio,
// the first such address. The radio's own MAC where nobody hears it.
MacAddr visible_bssid_of_radio(const ApMap& map, const ApEntry& ap, std::int32_t radio_id,
                               const ApEntry* only_in = nullptr);

}  // namespace rrm
