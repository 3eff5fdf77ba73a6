#include "steering/surroundings.h"

#include <algorithm>

namespace rrm {

bool hears_any_radio(const ApEntry& listener, const ApEntry& other) {
  return std::any_of(other.radios.list.begin(), other.radios.list.end(), [&](const Radio& radio) {
    return listener.visible_members.find_with_local_bit_retry(radio.mac) != nullptr;
  });
}

bool is_around(const ApEntry& other, const ApEntry& ap, const DomainConfig& config) {
  return config.use_all_ap_balance || hears_any_radio(other, ap);
}

bool is_steered(const Radio& radio, const std::string& ssid) {
  return radio.status && radio.locked_balancer == 0 && radio.vaps.find(ssid) != nullptr;
}

}  // namespace rrm
