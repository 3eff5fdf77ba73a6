// What befalls a site: clients come, go and move about; access points lose their controller, lose power, leave the
// domain and are configured anew; operators pause balancing and order optimisations.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "whole_site/dice.h"
#include "whole_site/lived_in_site.h"

namespace whole_site {

class DailyLife {
 public:
  DailyLife(LivedInSite& site, Dice& dice);

  // All APs subscribe, one after the other.
  void open();
  // One thing happens.
  void event();
  // A second passes, and APs come back whose time it is.
  void second();
  // Every AP that is still away comes back, save those that lost power.
  void all_come_back();
  // One that has power loses it, for good.
  void lose_one_for_good();
  // This one loses power until it is given back, whoever else comes back meanwhile.
  void carry_away(std::size_t ap);
  void bring_back(std::size_t ap);

  const std::map<std::string, int>& counts() const { return counts_; }

 private:
  struct Kind {
    const char* name;
    int weight;
    bool (DailyLife::*happens)();  // false where it cannot happen now
  };
  static const std::vector<Kind>& kinds();

  bool join();
  bool leave();
  bool roam();
  bool reconnect();
  bool lose_session();
  bool lose_power();
  bool unsubscribe();
  bool switch_ssid();
  bool switch_80211r();
  bool change_channel();
  bool switch_radio();
  bool change_nothing();
  bool switch_lock();
  bool restart_radios();
  bool pause();
  bool optimise();

  struct Away {
    std::int64_t until = 0;
    std::vector<sim::Radio> radios;  // as they were before the power went
  };
  bool at_home(std::size_t ap) const { return away_[ap] == std::nullopt; }
  std::optional<std::size_t> some_ap_at_home();
  void take_away(std::size_t ap, int seconds);
  void cut_power(std::size_t ap);
  void come_back(std::size_t ap);
  std::vector<const sim::Station*> stations(bool present) const;
  // Changes some radio of some AP at home.
  template <class Change>
  bool reconfigure(Change change);

  LivedInSite& site_;
  sim::Simulation& simulation_;
  Dice& dice_;
  std::vector<std::optional<Away>> away_;
  std::map<std::string, int> counts_;
};

}  // namespace whole_site
