#include "sim/refusals.h"

#include <algorithm>

namespace sim {

StationObserver::Answer Refusals::answer(int radio, const Mac& client, int patience, Millis now) {
  forget_what_is_over(now);
  if (until_.count({radio, client}) == 0) {
    return StationObserver::Answer::accepts;
  }
  int& knocks = knocks_[client];
  if (knocks >= patience) {
    return StationObserver::Answer::accepts_for_good;
  }
  ++knocks;
  return StationObserver::Answer::refuses;
}

void Refusals::clear() {
  until_.clear();
  knocks_.clear();
}

std::vector<Refusal> Refusals::present(Millis now) const {
  std::vector<Refusal> result;
  for (const auto& [key, until] : until_) {
    if (until > now) {
      result.push_back({key.first, key.second, until});
    }
  }
  return result;
}

void Refusals::forget_what_is_over(Millis now) {
  std::erase_if(until_, [now](const auto& entry) { return entry.second <= now; });
  std::erase_if(knocks_, [this](const auto& counted) {
    return std::none_of(until_.begin(), until_.end(),
                        [&](const auto& entry) { return entry.first.second == counted.first; });
  });
}

}  // namespace sim
