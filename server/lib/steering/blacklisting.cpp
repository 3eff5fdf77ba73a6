#include "steering/blacklisting.h"

#include "steering/surroundings.h"

namespace rrm {
namespace {

// What stands for the radio that a client is on when another AP is marked; no radio has this id.
constexpr std::int32_t no_radio = 3;

bool is_touched(const Radio& radio, const std::string& ssid, std::int32_t client_radio) {
  if (!is_steered(radio, ssid)) return false;
  const bool own_ap = client_radio != no_radio;
  if (own_ap && (radio.band == 5 || radio.band == 6)) return false;
  return radio.id != client_radio;
}

void mark_ap(ApEntry& ap, const DomainConfig& config, const MacAddr& client, const std::string& ssid,
             std::int32_t client_radio, bool block) {
  for (Radio& radio : ap.radios.list) {
    if (!is_touched(radio, ssid, client_radio)) continue;
    if (!block) {
      radio.problist.release(client);
    } else if (radio.assoc.find_client(client) == nullptr) {
      radio.problist.add(client, config.blacklist_timeout);
    }
  }
}

}  // namespace

void mark_around(ApMap& aps, const DomainConfig& config, const MacAddr& client, const ApEntry& ap,
                 const std::string& ssid, std::int32_t radio, bool block) {
  if (!config.use_balance || ssid.empty()) return;
  for (const auto& [mac, other] : aps) {
    if (other.get() == &ap) {
      mark_ap(*other, config, client, ssid, radio, block);
    } else if (is_around(*other, ap, config)) {
      mark_ap(*other, config, client, ssid, no_radio, block);
    }
  }
}

void order_off_around(ApMap& aps, const DomainConfig& config, const MacAddr& client, const ApEntry& ap,
                      const std::string& ssid) {
  if (!config.use_balance || ssid.empty()) return;
  for (const auto& [mac, other] : aps) {
    if (other.get() == &ap || !is_around(*other, ap, config)) continue;
    for (Radio& radio : other->radios.list) {
      if (!is_steered(radio, ssid) || radio.assoc.find_client(client) == nullptr) continue;
      // A client may have come in before the AP was told to refuse it. As a member it would only be given new time.
      radio.problist.remove(client);
      radio.problist.add_disassoc(client, config.blacklist_timeout, ssid);
      radio.assoc.remove_client(client);
    }
  }
}

}  // namespace rrm
