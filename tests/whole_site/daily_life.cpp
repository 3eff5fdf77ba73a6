#include "whole_site/daily_life.h"

#include <algorithm>

#include "whole_site/hall.h"

namespace whole_site {
namespace {

const sim::Vap* find(const std::vector<sim::Vap>& vaps, const std::string& ssid) {
  const auto found = std::find_if(vaps.begin(), vaps.end(), [&](const sim::Vap& vap) { return vap.ssid == ssid; });
  return found == vaps.end() ? nullptr : &*found;
}

}  // namespace

DailyLife::DailyLife(LivedInSite& site, Dice& dice)
    : site_(site), simulation_(site.simulation()), dice_(dice), away_(simulation_.size()) {}

const std::vector<DailyLife::Kind>& DailyLife::kinds() {
  static const std::vector<Kind> all = {{"join", 250, &DailyLife::join},
                                        {"leave", 160, &DailyLife::leave},
                                        {"roam", 320, &DailyLife::roam},
                                        {"reconnect", 60, &DailyLife::reconnect},
                                        {"lose session", 20, &DailyLife::lose_session},
                                        {"lose power", 20, &DailyLife::lose_power},
                                        {"unsubscribe", 20, &DailyLife::unsubscribe},
                                        {"switch SSID", 25, &DailyLife::switch_ssid},
                                        {"switch 802.11r", 25, &DailyLife::switch_80211r},
                                        {"change channel", 25, &DailyLife::change_channel},
                                        {"switch radio", 25, &DailyLife::switch_radio},
                                        {"change nothing", 10, &DailyLife::change_nothing},
                                        {"switch lock", 10, &DailyLife::switch_lock},
                                        {"restart radios", 10, &DailyLife::restart_radios},
                                        {"pause", 8, &DailyLife::pause},
                                        {"optimise", 12, &DailyLife::optimise}};
  return all;
}

// The domain tells nothing of blacklists and orders to leave in its first seconds.
void DailyLife::open() {
  constexpr int first_seconds = 10;
  for (int i = 0; i < first_seconds; ++i) second();
  for (std::size_t ap = 0; ap < simulation_.size(); ++ap) {
    site_.connect(ap);
    second();
  }
}

void DailyLife::event() {
  int all = 0;
  for (const Kind& kind : kinds()) all += kind.weight;
  for (;;) {
    int drawn = dice_.between(0, all - 1);
    auto kind = kinds().begin();
    while (drawn >= kind->weight) drawn -= (kind++)->weight;
    if ((this->*kind->happens)()) {
      ++counts_[kind->name];
      return;
    }
  }
}

void DailyLife::second() {
  for (std::size_t ap = 0; ap < away_.size(); ++ap) {
    if (away_[ap] && away_[ap]->until <= site_.seconds()) come_back(ap);
  }
  site_.second();
}

void DailyLife::all_come_back() {
  for (std::size_t ap = 0; ap < away_.size(); ++ap) {
    if (away_[ap] && away_[ap]->radios.empty()) come_back(ap);
  }
}

void DailyLife::lose_one_for_good() {
  const auto ap = some_ap_at_home();
  if (ap) carry_away(*ap);
}

void DailyLife::carry_away(std::size_t ap) {
  constexpr int for_good = 1'000'000;
  if (!at_home(ap)) come_back(ap);
  take_away(ap, for_good);
  cut_power(ap);
}

void DailyLife::bring_back(std::size_t ap) {
  if (!at_home(ap)) come_back(ap);
}

// Clients

std::vector<const sim::Station*> DailyLife::stations(bool present) const {
  std::vector<const sim::Station*> found;
  for (const sim::Station& station : simulation_.stations().all()) {
    if (station.present == present) found.push_back(&station);
  }
  return found;
}

bool DailyLife::join() {
  const auto absent = stations(false);
  return !absent.empty() && simulation_.enter(dice_.one_of(absent)->client->mac, somewhere(dice_));
}

bool DailyLife::leave() {
  const auto present = stations(true);
  return !present.empty() && simulation_.leave(dice_.one_of(present)->client->mac);
}

bool DailyLife::roam() {
  const auto present = stations(true);
  return !present.empty() && simulation_.enter(dice_.one_of(present)->client->mac, somewhere(dice_));
}

// Access points

std::optional<std::size_t> DailyLife::some_ap_at_home() {
  std::vector<std::size_t> there;
  for (std::size_t ap = 0; ap < away_.size(); ++ap) {
    if (at_home(ap)) there.push_back(ap);
  }
  if (there.size() <= 2) return std::nullopt;
  return dice_.one_of(there);
}

void DailyLife::take_away(std::size_t ap, int seconds) {
  site_.disconnect(ap);
  away_[ap] = Away{site_.seconds() + seconds, {}};
}

void DailyLife::come_back(std::size_t ap) {
  site_.disconnect(ap);  // one that has left the domain still has its old session
  for (const sim::Radio& radio : away_[ap]->radios) simulation_.reconfigure(ap, radio);
  away_[ap].reset();
  site_.connect(ap);
  site_.exchange();
}

bool DailyLife::reconnect() {
  const auto ap = some_ap_at_home();
  if (!ap) return false;
  take_away(*ap, dice_.between(0, 4));
  return true;
}

bool DailyLife::lose_session() {
  const auto ap = some_ap_at_home();
  if (!ap) return false;
  take_away(*ap, dice_.between(5, 2 * site_.settings().away_timeout));
  return true;
}

bool DailyLife::lose_power() {
  const auto ap = some_ap_at_home();
  if (!ap) return false;
  take_away(*ap, dice_.between(5, 2 * site_.settings().away_timeout));
  cut_power(*ap);
  return true;
}

void DailyLife::cut_power(std::size_t ap) {
  away_[ap]->radios = simulation_.world().radios(ap);
  for (sim::Radio radio : away_[ap]->radios) {
    radio.enabled = false;
    simulation_.reconfigure(ap, radio);
  }
}

bool DailyLife::unsubscribe() {
  const auto ap = some_ap_at_home();
  if (!ap) return false;
  away_[*ap] = Away{site_.seconds() + dice_.between(5, 2 * site_.settings().away_timeout), {}};
  site_.unsubscribe(*ap);
  site_.exchange();
  return true;
}

template <class Change>
bool DailyLife::reconfigure(Change change) {
  const auto ap = some_ap_at_home();
  if (!ap) return false;
  const auto& radios = simulation_.world().radios(*ap);
  sim::Radio radio = dice_.one_of(radios);
  if (!change(radio, simulation_.world().site().access_points[*ap])) return false;
  if (!simulation_.reconfigure(*ap, radio).empty()) return false;
  site_.exchange();
  return true;
}

bool DailyLife::switch_ssid() {
  return reconfigure([this](sim::Radio& radio, const sim::AccessPoint& ap) {
    const auto& all = ap.radios[static_cast<std::size_t>(radio.id)].vaps;
    const sim::Vap& chosen = dice_.one_of(all);
    if (find(radio.vaps, chosen.ssid) == nullptr) {
      radio.vaps.push_back(chosen);
    } else {
      std::erase_if(radio.vaps, [&](const sim::Vap& vap) { return vap.ssid == chosen.ssid; });
    }
    return true;
  });
}

bool DailyLife::switch_80211r() {
  return reconfigure([this](sim::Radio& radio, const sim::AccessPoint&) {
    if (radio.vaps.empty()) return false;
    sim::Vap& vap = radio.vaps[dice_.below(radio.vaps.size())];
    vap.use_80211r = !vap.use_80211r;
    return true;
  });
}

bool DailyLife::change_channel() {
  return reconfigure([this](sim::Radio& radio, const sim::AccessPoint&) {
    radio.channel = dice_.one_of(radio.available_channels);
    return true;
  });
}

bool DailyLife::switch_radio() {
  return reconfigure([](sim::Radio& radio, const sim::AccessPoint&) {
    radio.enabled = !radio.enabled;
    return true;
  });
}

bool DailyLife::change_nothing() {
  return reconfigure([](sim::Radio&, const sim::AccessPoint&) { return true; });
}

bool DailyLife::switch_lock() {
  return reconfigure([this](sim::Radio& radio, const sim::AccessPoint&) {
    bool& lock = dice_.happens(50) ? radio.locked_for_balancer : radio.locked_for_80211v;
    lock = !lock;
    return true;
  });
}

bool DailyLife::restart_radios() {
  const auto ap = some_ap_at_home();
  if (!ap) return false;
  simulation_.restart_radios(*ap);
  return true;
}

// Operators

bool DailyLife::pause() {
  site_.pause_balancing();
  return true;
}

bool DailyLife::optimise() {
  site_.force_optimization();
  return true;
}

}  // namespace whole_site
