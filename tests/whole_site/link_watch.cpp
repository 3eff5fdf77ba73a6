#include "whole_site/link_watch.h"

#include <algorithm>

namespace whole_site {
namespace {

bool same_address(const std::string& one, const std::string& other) {
  const auto a = sim::Mac::parse(one);
  const auto b = sim::Mac::parse(other);
  return a && b && a->equals_up_to_local_bit(*b);
}

bool leads_to(const sim::KeyHolderLink& link, const sim::KeyHolder& holder) {
  return link.r0_id == holder.r0_id && same_address(link.r1_id, holder.r1_id) && link.key == holder.key;
}

}  // namespace

void LinkWatch::before_pass() {
  silent_before_.clear();
  for (const auto& [mac, ap] : site_->unanswered_aps()) silent_before_.insert(site_->place_of(mac));
}

// APs that were silent in the cycle come back after the update, and wait for the next.
void LinkWatch::pass_heard(const Pass& pass) {
  if (!pass.logged("TRACE Update 802dot11r domain lab")) return;
  ++updates_;
  std::set<std::size_t> active;
  for (const auto& [mac, ap] : site_->aps()) active.insert(site_->place_of(mac));
  for (const std::size_t silent : silent_before_) active.erase(silent);
  check(active);
}

void LinkWatch::check_now() {
  std::set<std::size_t> active;
  for (const auto& [mac, ap] : site_->aps()) active.insert(site_->place_of(mac));
  check(active);
}

void LinkWatch::check(const std::set<std::size_t>& active) {
  const std::vector<End> ends = ends_of(active);
  for (const End& from : ends) {
    if (from.holder == nullptr) {
      fault(name(from) + " has no key holder");
      continue;
    }
    for (const End& to : ends) {
      if (to.holder != nullptr && may_link(from, to)) check_pair(from, to);
    }
    check_targets(from, ends);
  }
}

std::vector<LinkWatch::End> LinkWatch::ends_of(const std::set<std::size_t>& active) {
  std::vector<End> ends;
  for (const std::size_t ap : active) {
    for (const sim::Radio& radio : site_->simulation().world().radios(ap)) {
      for (const sim::Vap& vap : radio.vaps) {
        if (!radio.enabled || !vap.use_80211r) continue;
        ends.push_back({ap, &radio, vap.ssid, site_->simulation().access_point(ap).key_holder(radio.id, vap.ssid)});
      }
    }
  }
  // One that has nobody to link with need not be told that it could.
  std::erase_if(ends, [&](const End& end) {
    return end.holder == nullptr &&
           std::none_of(ends.begin(), ends.end(), [&](const End& other) { return may_link(end, other); });
  });
  return ends;
}

bool LinkWatch::may_link(const End& one, const End& other) const {
  if (one.ap == other.ap || one.ssid != other.ssid) return false;
  const int a = one.radio->band;
  const int b = other.radio->band;
  return a == b || (a != 2 && b != 2) || site_->settings().use_80211r_2g_cross_band;
}

// Each pair is looked at from both ends.
void LinkWatch::check_pair(const End& from, const End& to) {
  const auto& links = from.holder->links;
  const auto count =
      std::count_if(links.begin(), links.end(), [&](const auto& link) { return leads_to(link, *to.holder); });
  if (count == 1) {
    ++links_;
  } else {
    fault(name(from) + " has " + std::to_string(count) + " links to " + name(to));
  }
}

void LinkWatch::check_targets(const End& from, const std::vector<End>& ends) {
  for (const sim::KeyHolderLink& link : from.holder->links) {
    const bool lives = std::any_of(ends.begin(), ends.end(), [&](const End& to) {
      return to.holder != nullptr && may_link(from, to) && leads_to(link, *to.holder);
    });
    if (!lives && !links_all(link, from)) fault(name(from) + " has a link to " + link.r0_id + "/" + link.r1_id);
  }
}

bool LinkWatch::links_all(const sim::KeyHolderLink& link, const End& from) const {
  return wildcard_ && site_->simulation().world().site().access_points[from.ap].wildcard_80211r && link.r0_id == "*" &&
         link.r1_id == "ff:ff:ff:ff:ff:ff";
}

std::string LinkWatch::name(const End& end) const {
  return site_->simulation().world().site().access_points[end.ap].name + std::to_string(end.radio->id) + " " + end.ssid;
}

}  // namespace whole_site
