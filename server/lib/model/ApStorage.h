// The second index of a set of APs: every address of every enabled radio and of its VAPs, with the AP and the radio
// that own it. It is what lets a message name an AP by any of its addresses. An address that two APs claim stays with
// the first. Belongs to the domain worker's thread, or to the optimisation thread's copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "ApEntry.h"

namespace rrm {

class ApStorage {
 public:
  struct Owner {
    std::shared_ptr<ApEntry> ap;
    std::int32_t radio_id = 0;
  };

  // Indexes the addresses that the AP has now, in place of those it had. A null entry is ignored.
  void insert_ap(const std::shared_ptr<ApEntry>& ap);
  // Forgets the addresses of this very object; another entry of the same MAC is not touched.
  void erase_ap(const std::shared_ptr<ApEntry>& ap);

  // All three try the address as it stands, then with the local bit flipped.
  const Owner* owner_of(const MacAddr& mac) const;          // null if nobody owns it
  std::shared_ptr<ApEntry> find(const MacAddr& mac) const;  // empty if nobody owns it
  std::int32_t radio_id_of(const MacAddr& mac) const;       // -1 if nobody owns it

  // The addresses, ascending, that owner_of resolves to this radio of an AP with this MAC.
  std::vector<MacAddr> addresses_of(const MacAddr& ap_mac, std::int32_t radio_id) const;

  std::size_t size() const { return owners_.size(); }

 private:
  void log_size(const ApEntry& ap) const;

  std::unordered_map<MacAddr, Owner, MacAddrHash> owners_;
  // The keys of owners_ by the MAC of the entry they belong to, so that an AP goes without a walk over all.
  std::unordered_map<MacAddr, std::vector<MacAddr>, MacAddrHash> keys_;
};

}  // namespace rrm
