#include "fuzz/address_claims.h"

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "fuzz/fuzz.h"

namespace zal::fuzz {

namespace {

using rrm::ApEntry;
using rrm::ApMap;
using rrm::MacAddr;
using rrm::Radio;

// Its addresses, each with the first radio that has it.
std::map<MacAddr, std::int32_t> addresses_of(const ApEntry& ap) {
  std::map<MacAddr, std::int32_t> addresses;
  for (const Radio& radio : ap.radios.list) {
    if (!radio.status) continue;
    addresses.try_emplace(radio.mac, radio.id);
    for (const auto& [ssid, vap] : radio.vaps) addresses.try_emplace(vap.mac, radio.id);
  }
  return addresses;
}

template <class Claimants>
void add_claims(const ApMap& set, Claimants& claimants) {
  for (const auto& [key, ap] : set) {
    for (const auto& [address, radio] : addresses_of(*ap)) claimants[address].insert(ap.get());
  }
}

template <class Claimants>
bool is_claimed_by(const Claimants& claimants, const MacAddr& address, const ApEntry* ap) {
  const auto found = claimants.find(address);
  return found != claimants.end() && found->second.contains(ap);
}

// A message that names an address reaches its AP, with the local bit either way.
template <class Claimants>
void require_reached(const ApMap& set, const Claimants& claimants, const MacAddr& address,
                     const std::shared_ptr<ApEntry>& ap) {
  if (set.find(address) == nullptr) require(set.find_by_any_mac(address) == ap, "an address reaches its AP");
  const MacAddr flipped = address.with_local_bit_flipped();
  if (set.find(flipped) != nullptr || claimants.contains(flipped)) return;
  require(set.find_by_any_mac(flipped) == ap, "an address with its local bit flipped reaches the AP");
}

}  // namespace

void AddressClaims::check(rrm::RrmWorker& domain) {
  if (given_up_) return;
  const ApMap* const sets[] = {&domain.aps(), &domain.deleted_aps(), &domain.unanswered_aps()};
  Claimants of_all;
  Members members;
  for (const ApMap* set : sets) {
    add_claims(*set, of_all);
    for (const auto& [key, ap] : *set) {
      Member& member = members[ap.get()];
      member.key = key;
      for (const auto& [address, radio] : addresses_of(*ap)) member.addresses.insert(address);
    }
  }
  find_stranded(std::move(members));
  add_stranded(of_all);
  std::erase_if(lost_, [&](const Claim& claim) { return !of_all.contains(claim.second); });
  for (const ApMap* set : sets) check_set(*set, of_all);
}

void AddressClaims::find_stranded(Members members) {
  std::set<MacAddr> keys;
  for (const auto& [ap, member] : members) keys.insert(member.key);
  for (const auto& [ap, member] : members_) {
    if (!members.contains(ap) && keys.contains(member.key)) stranded_[ap] = member;
  }
  std::erase_if(stranded_, [&](const auto& item) { return members.contains(item.first); });
  members_ = std::move(members);
}

void AddressClaims::add_stranded(Claimants& claimants) const {
  for (const auto& [ap, member] : stranded_) {
    for (const MacAddr& address : member.addresses) claimants[address].insert(ap);
  }
}

void AddressClaims::check_set(const ApMap& set, const Claimants& of_all) {
  Claimants claimants;
  add_claims(set, claimants);
  add_stranded(claimants);
  std::set<MacAddr> indexed;
  for (const auto& [key, ap] : set) {
    for (const auto& [address, radio] : addresses_of(*ap)) {
      const auto* const owner = set.storage().owner_of(address);
      const bool owns = owner != nullptr && owner->ap == ap;
      const Claim claim{ap->mac, address};
      const bool is_shared = of_all.at(address).size() > 1;
      if (is_shared) lost_.insert(claim);
      if (is_shared || (!owns && lost_.contains(claim))) {
        require(owner == nullptr || is_claimed_by(claimants, address, owner->ap.get()) ||
                    is_claimed_by(claimants, address.with_local_bit_flipped(), owner->ap.get()),
                "an address of two APs is that of one of them");
        continue;
      }
      lost_.erase(claim);
      require(owns, "an address is found under the AP that has it");
      require(owner->radio_id == radio, "an address is found under the radio that has it");
      if (key == ap->mac) require_reached(set, claimants, address, ap);
      indexed.insert(address);
    }
  }
  require(set.storage().size() >= indexed.size(), "the index knows every address");
  require(set.storage().size() <= claimants.size(), "the index knows no address that nobody has");
}

}  // namespace zal::fuzz
