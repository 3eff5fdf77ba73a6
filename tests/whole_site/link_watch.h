// Fast transition, as the APs themselves hold it. Whenever the domain has updated its links and the APs have heard of
// it: all VAPs with 802.11r of an SSID on different APs of the active set whose bands may link are linked both ways,
// with the keys that the ends present, and no link leads anywhere else.
#pragma once

#include <set>

#include "whole_site/controlled_site.h"
#include "whole_site/findings.h"

namespace whole_site {

class LinkWatch final : public Watcher {
 public:
  void look_at(ControlledSite& site, bool wildcard_80211r) { site_ = &site, wildcard_ = wildcard_80211r; }

  void before_pass() override;
  void pass_heard(const Pass& pass) override;
  // The same at any other moment, for all active APs.
  void check_now();

  const Findings& findings() const { return findings_; }
  int updates() const { return updates_; }
  int links() const { return links_; }  // looked at, in all updates

 private:
  struct End {
    std::size_t ap = 0;
    const sim::Radio* radio = nullptr;
    std::string ssid;
    const sim::KeyHolder* holder = nullptr;
  };

  void check(const std::set<std::size_t>& active);
  std::vector<End> ends_of(const std::set<std::size_t>& active);
  bool may_link(const End& one, const End& other) const;
  void check_pair(const End& from, const End& to);
  void check_targets(const End& from, const std::vector<End>& ends);
  bool links_all(const sim::KeyHolderLink& link, const End& from) const;
  std::string name(const End& end) const;
  void fault(const std::string& what) { findings_.add(site_->seconds(), what); }

  ControlledSite* site_ = nullptr;
  bool wildcard_ = false;
  std::set<std::size_t> silent_before_;  // the pass
  Findings findings_;
  int updates_ = 0;
  int links_ = 0;
};

}  // namespace whole_site
