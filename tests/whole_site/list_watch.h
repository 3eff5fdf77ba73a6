// The lists of 802.11v: when the balancer goes through its APs, an AP is sent its list if something in it has changed,
// and only then. What counts as a change is reckoned here once more, from the numbers of clients: a peer's priority is
// not the one that was sent last, a peer's lists have become stale, or the AP has no peer whose change could be seen.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "whole_site/controlled_site.h"
#include "whole_site/findings.h"

namespace whole_site {

class ListWatch final : public Watcher {
 public:
  void look_at(ControlledSite& site) { site_ = &site; }

  void before_pass() override;
  void pass_over(const Pass& pass) override;
  void told(std::size_t ap, const Json& message) override;

  const Findings& findings() const { return findings_; }
  int passes() const { return passes_; }  // of the 802.11v balancer
  int sent() const { return sent_; }      // lists, in those
  int skipped() const { return skipped_; }
  int repeated() const { return repeated_; }  // sent with a text that the AP had already
  int told_in_all() const { return told_; }   // lists in all, also after results, subscriptions and changes

 private:
  struct Known {
    unsigned priority = 0;
    unsigned sent = 0;
    bool stale = false;
    bool sure = true;  // `priority` is reckoned from the number of clients
  };
  using KnownAp = std::array<Known, 3>;

  void remember(rrm::ApMap& set, bool active);
  unsigned priority_of(const rrm::Radio& radio) const;
  void check_priorities();
  void commit(const std::set<const rrm::ApEntry*>& except);
  void check_lists(const Pass& pass);
  bool has_changed(const rrm::ApEntry& ap);
  bool is_news(const rrm::ApEntry& ap, const rrm::Radio& radio);
  void check_priorities_in(const rrm::ApEntry& ap, const Json& list);
  std::string name(const rrm::ApEntry& ap) const;
  void fault(const std::string& what) { findings_.add(site_->seconds(), what); }

  ControlledSite* site_ = nullptr;
  std::map<std::shared_ptr<rrm::ApEntry>, KnownAp> known_;
  std::set<const rrm::ApEntry*> silent_before_;  // the pass
  bool any_deleted_before_ = false;
  bool scanning_before_ = false;
  std::map<std::size_t, std::string> last_list_;
  Findings findings_;
  int passes_ = 0;
  int sent_ = 0;
  int skipped_ = 0;
  int repeated_ = 0;
  int told_ = 0;
};

}  // namespace whole_site
