// The addresses that a domain's APs claim, against the indexes that messages look them up in.
//
// Each claim is found under its AP and radio. Only where two APs claim one address does it stay with whom it was first,
// and the other goes without it, also after the first has left, until its own addresses are read again. An AP whose key
// another one has taken by the time it comes back to a set stays in the index alone, and its claims count on.
#pragma once

#include <map>
#include <set>
#include <utility>

#include "RrmWorker.h"

namespace zal::fuzz {

class AddressClaims {
 public:
  // Between two messages, with the domain locked.
  void check(rrm::RrmWorker& domain);
  // A backup named one AP twice: the second stays in the index alone, and nobody can tell its claims any more.
  void give_up() { given_up_ = true; }

 private:
  using Claim = std::pair<rrm::MacAddr, rrm::MacAddr>;  // an AP and an address
  using Claimants = std::map<rrm::MacAddr, std::set<const rrm::ApEntry*>>;
  struct Member {
    rrm::MacAddr key;
    std::set<rrm::MacAddr> addresses;
  };
  using Members = std::map<const rrm::ApEntry*, Member>;

  void find_stranded(Members members);
  void check_set(const rrm::ApMap& set, const Claimants& of_all);
  void add_stranded(Claimants& claimants) const;

  Members members_;       // at the last check
  Members stranded_;      // in no set any more, and perhaps no more at all: not to be looked at
  std::set<Claim> lost_;  // to another AP, at some time
  bool given_up_ = false;
};

}  // namespace zal::fuzz
