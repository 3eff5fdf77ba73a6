#include "steering/destination.h"

#include <algorithm>

#include "core/log.h"

namespace rrm {
namespace {

// The client is on the radio already and could hardly be better off.
bool serves_well(const Radio& radio, const MacAddr& client, std::int32_t rssi, const DomainConfig& config) {
  return radio.assoc.find_client(client) != nullptr && rssi > config.blacklist_thr_high &&
         radio.assoc.load() <= config.load_balance_sta_high;
}

bool is_better(const SteeringChoice& candidate, const SteeringChoice& present) {
  if (candidate.load != present.load) return candidate.load < present.load;
  return candidate.rssi > present.rssi;
}

// The radio that the client is on, which does not count there.
SteeringChoice choose_present(SteeringChoice choice) {
  RRM_LOG(LOG_TRACE, "LoadBalancer: exist_ap %s size %d rssi %d", choice.mac.to_string().c_str(), choice.load,
          choice.rssi);
  choice.is_there = true;
  if (choice.load > 0) --choice.load;
  return choice;
}

}  // namespace

std::optional<SteeringChoice> choose_destination(const ApMap& aps, const DomainConfig& config, const MacAddr& client,
                                                 const ProbeRequest& query) {
  std::optional<SteeringChoice> best;
  for (const auto& [mac, rssi] : query.responses) {
    const auto [ap, radio] = aps.find_radio(mac);
    if (radio == nullptr) continue;
    SteeringChoice candidate{ap, radio, mac, radio->assoc.load(), rssi, false};
    if (serves_well(*radio, client, rssi, config)) return choose_present(std::move(candidate));
    candidate.load = std::max(candidate.load, config.load_balance_sta_low - 1);
    if (!best || is_better(candidate, *best)) best = std::move(candidate);
  }
  return best;
}

bool worth_moving(const SteeringSource& source, const SteeringChoice& choice, const DomainConfig& config) {
  if (choice.rssi <= config.blacklist_thr_high || choice.load >= config.load_balance_sta_high) return false;
  if (choice.is_there || source.rssi <= config.blacklist_thr_low) return true;
  return std::max(config.load_balance_sta_low, source.load) > choice.load + 1;
}

}  // namespace rrm
