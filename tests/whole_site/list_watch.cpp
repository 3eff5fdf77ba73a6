#include "whole_site/list_watch.h"

#include <algorithm>

#include "core/clock.h"
#include "model/ApMap.h"

namespace whole_site {
namespace {

constexpr const char* lists_begin = "TRACE 802.11v optimization started for each AP";
constexpr const char* results_begin = "TRACE Post tpc-results";
constexpr const char* cycle_ends = "TRACE Optimization on domain lab finished";

const Json* list_of(const Json& message) {
  const Json& holder =
      message.at("cmd") == "subscribe-response" && message.contains("config") ? message["config"] : message;
  const auto list = holder.find("802dot11k");
  return list == holder.end() ? nullptr : &*list;
}

bool tells_lists(const Json& message) {
  return message.at("cmd") == "rrm-info" || message.at("cmd") == "subscribe-response";
}

}  // namespace

void ListWatch::before_pass() {
  std::map<std::shared_ptr<rrm::ApEntry>, KnownAp> before;
  before.swap(known_);
  silent_before_.clear();
  for (const auto& [mac, ap] : site_->unanswered_aps()) silent_before_.insert(ap.get());
  remember(site_->aps(), true);
  remember(site_->unanswered_aps(), false);
  remember(site_->deleted_aps(), false);
  for (auto& [ap, radios] : known_) {
    const auto old = before.find(ap);
    for (std::size_t i = 0; i < radios.size() && old != before.end(); ++i) radios[i].sent = old->second[i].sent;
  }
  any_deleted_before_ = !site_->deleted_aps().empty();
  scanning_before_ = site_->rrm_status() == 2 || site_->rrm_status() == 3;
}

// What the pass will find: first of all it lets the expected clients of the active APs age, then looks at their loads.
void ListWatch::remember(rrm::ApMap& set, bool active) {
  for (const auto& [mac, ap] : set) {
    KnownAp& radios = known_[ap];
    for (std::size_t i = 0; i < radios.size(); ++i) {
      const rrm::Radio& radio = ap->radios.list[i];
      radios[i] = {active ? priority_of(radio) : radio.priority, 0, radio.lists_stale, active};
    }
  }
}

unsigned ListWatch::priority_of(const rrm::Radio& radio) const {
  const rrm::DomainConfig& settings = site_->settings();
  if (!settings.use_balance) return 255;
  const auto& expected = radio.assoc.expected();
  const auto staying = std::count_if(expected.begin(), expected.end(), [](const auto& e) { return e.second.ttl > 1; });
  const auto load = static_cast<int>(radio.assoc.clients().size()) + static_cast<int>(staying);
  if (load < settings.load_balance_sta_low) return 255;
  return load < settings.load_balance_sta_high ? 127 : 0;
}

void ListWatch::pass_over(const Pass& pass) {
  if (!site_->settings().use_80211v) return;
  const bool departed =
      any_deleted_before_ && site_->deleted_aps().empty() && !site_->aps().empty() && !scanning_before_;
  if (departed) {
    for (const auto& [mac, ap] : site_->aps()) {
      for (Known& radio : known_[ap]) radio.stale = true;
    }
  }
  check_priorities();
  const bool results = pass.logged(results_begin);
  if (results) commit(pass.logged(cycle_ends) ? silent_before_ : std::set<const rrm::ApEntry*>{});
  if (!pass.logged(lists_begin)) return;
  ++passes_;
  check_lists(pass);
  commit({});
}

void ListWatch::check_priorities() {
  for (const auto& [mac, ap] : site_->aps()) {
    const KnownAp& radios = known_[ap];
    for (std::size_t i = 0; i < radios.size(); ++i) {
      const unsigned actual = ap->radios.list[i].priority;
      if (!radios[i].sure || actual == radios[i].priority) continue;
      fault(name(*ap) + std::to_string(i) + " has priority " + std::to_string(actual) + " instead of " +
            std::to_string(radios[i].priority));
    }
  }
}

void ListWatch::commit(const std::set<const rrm::ApEntry*>& except) {
  for (const auto& [mac, ap] : site_->aps()) {
    if (except.count(ap.get()) != 0) continue;
    for (Known& radio : known_[ap]) {
      radio.sent = radio.priority;
      radio.stale = false;
    }
    const auto& radios = ap->radios.list;
    if (std::any_of(radios.begin(), radios.end(), [](const rrm::Radio& radio) { return radio.lists_stale; })) {
      fault(name(*ap) + " stays stale, though all have heard of it");
    }
  }
}

// An AP without any radio for 802.11v gets its plain list each time.
void ListWatch::check_lists(const Pass& pass) {
  for (const auto& [mac, ap] : site_->aps()) {
    if (!ap->radios.any_11kv()) continue;
    const std::size_t place = site_->place_of(mac);
    const auto told = std::find_if(pass.told.begin(), pass.told.end(), [&](const Told& message) {
      return message.ap == place && message.json.at("cmd") == "rrm-info" && !message.json.contains("radios");
    });
    const bool sent = told != pass.told.end();
    ++(sent ? sent_ : skipped_);
    if (sent != has_changed(*ap)) fault(name(*ap) + (sent ? " is sent an old list" : " is not sent its new list"));
    if (!sent) continue;
    const Json* const list = list_of(told->json);
    if (list == nullptr) {
      fault(name(*ap) + " is sent no list");
      continue;
    }
    check_priorities_in(*ap, *list);
    if (list->dump() == last_list_[place]) ++repeated_;
  }
}

bool ListWatch::has_changed(const rrm::ApEntry& ap) {
  const rrm::DomainConfig& settings = site_->settings();
  bool changed = false;
  if (settings.use_all_ap_balance || settings.use_80211k) {
    changed = site_->aps().size() == 1;
    for (const auto& [mac, other] : site_->aps()) {
      if (other.get() == &ap) continue;
      for (const rrm::Radio& radio : other->radios.list) changed |= is_news(*other, radio);
    }
    return changed;
  }
  changed = ap.visible_members.empty();
  for (const auto& [mac, neighbour] : ap.visible_members) {
    const auto [other, radio] = site_->aps().find_radio(mac);
    if (radio != nullptr) changed |= is_news(*other, *radio);
  }
  return changed;
}

bool ListWatch::is_news(const rrm::ApEntry& ap, const rrm::Radio& radio) {
  const auto found =
      std::find_if(known_.begin(), known_.end(), [&](const auto& known) { return known.first.get() == &ap; });
  const Known& known = found->second[static_cast<std::size_t>(radio.id)];
  return radio.status && (known.priority != known.sent || known.stale);
}

// Where the priorities tell something, each is that of the neighbour's load, and full radios are left out.
void ListWatch::check_priorities_in(const rrm::ApEntry& ap, const Json& list) {
  const rrm::DomainConfig& settings = site_->settings();
  const bool fixed = !settings.use_balance || settings.use_80211k;
  for (const Json& entry : list) {
    const auto priority = entry.at("priority").get<unsigned>();
    const std::string mac = entry.at("neighbour-mac");
    const auto [other, radio] = site_->aps().find_radio(rrm::MacAddr::parse(mac.c_str()));
    if (radio == nullptr || other.get() == &ap) {
      fault(name(ap) + " is told of " + mac);
    } else if (fixed ? (priority != 127 && priority != 0) : (priority != radio->priority || priority == 0)) {
      fault(name(ap) + " is told priority " + std::to_string(priority) + " of " + mac);
    }
  }
}

void ListWatch::told(std::size_t ap, const Json& message) {
  if (!tells_lists(message)) return;
  const Json* const list = list_of(message);
  if (list == nullptr) return;
  last_list_[ap] = list->dump();
  ++told_;
}

std::string ListWatch::name(const rrm::ApEntry& ap) const {
  return site_->simulation().world().site().access_points[site_->place_of(ap.mac)].name;
}

}  // namespace whole_site
