// The key holders of fast transition (802.11r) of one AP, as the controller told them: for each VAP its own ids and
// key, and the VAPs of other APs that it may exchange keys with.
#pragma once

#include <string>
#include <vector>

#include "sim/ap_messages.h"

namespace sim {

struct KeyHolderLink {
  std::string r0_id;
  std::string r1_id;
  std::string key;
};

struct KeyHolder {
  int radio = 0;
  int vap = 0;
  std::string key;
  int mobility_domain = 0;
  std::string r0_id;
  std::string r1_id;
  std::vector<KeyHolderLink> links;

  // Before the controller has named it, a VAP can neither keep keys nor ask for them.
  bool named() const { return !r0_id.empty() && !r1_id.empty() && !key.empty(); }
};

// The VAPs of "fbt-info".
std::vector<KeyHolder> key_holders_from_json(const Json& message);

// Whether two VAPs can exchange keys. A request is sealed with the key of one end and its answer with that of the
// other, so each needs a link to the other that names both ids and the other's present key; or both hold the link to
// all, with the same key. R1 ids are addresses, and equal up to the locally-administered bit.
bool can_exchange_keys(const KeyHolder& one, const KeyHolder& other);

}  // namespace sim
