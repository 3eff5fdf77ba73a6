#include "planning/dca.h"

#include <set>
#include <tuple>
#include <vector>

#include "planning/ChannelCounter.h"
#include "planning/MacIndex.h"

namespace rrm {
namespace {

constexpr std::int32_t visited_mark = -1;

// One AP during a pass: its radios that still wait for their visit, in the order of their ids, and the channels on
// which it hears members of the domain.
struct Site {
  MacAddr mac;
  ApEntry* ap;
  std::vector<Radio*> waiting;
  ChannelCounter heard_channels;
  bool changed = false;
};

bool may_move(const Radio& radio) {
  return radio.locked_dca == 0 && radio.status && !radio.available_channels.empty();
}

// A place in the order of the visits: the AP that hears members on most channels first, then the one that hears most
// members, then the one that comes first in the domain.
struct Turn {
  std::int32_t visible_channels;
  std::size_t neighbours;
  std::size_t site;

  bool operator<(const Turn& other) const {
    return std::tie(other.visible_channels, other.neighbours, site) <
           std::tie(visible_channels, neighbours, other.site);
  }
};

class ChannelPass {
 public:
  ChannelPass(SpectrumTable& table, ApMap& aps, const DomainConfig& config) : table_(table), config_(config) {
    add_sites(aps);
    build_hearers();
  }

  ChannelPassSummary run(PlanResult& results) {
    while (!turns_.empty()) visit(turns_.begin()->site);
    for (const Site& site : sites_) {
      if (site.changed) results.insert_or_assign(site.mac, site.ap->radios);
    }
    return summary_;
  }

 private:
  void add_sites(ApMap& aps) {
    sites_.reserve(aps.size());
    for (const auto& [mac, ap] : aps) {
      Site& site = sites_.emplace_back(Site{mac, ap.get(), {}, {}, false});
      for (const auto& [bssid, neighbour] : ap->visible_members) site.heard_channels.add(neighbour.channel);
      for (Radio& radio : ap->radios.list) {
        if (may_move(radio)) site.waiting.push_back(&radio);
      }
      for (Radio* radio : site.waiting) radio->neighbour_count = static_cast<std::int32_t>(ap->visible_members.size());
      if (!site.waiting.empty()) turns_.insert(turn_of(sites_.size() - 1));
    }
  }

  // Who hears an address, so that all views of a radio can be corrected when it moves.
  void build_hearers() {
    std::size_t entries = 0;
    for (const Site& site : sites_) entries += site.ap->visible_members.size();
    hearers_.reserve(entries);
    for (std::size_t i = 0; i < sites_.size(); ++i) {
      for (const auto& [bssid, neighbour] : sites_[i].ap->visible_members) hearers_.add(bssid, i);
    }
    hearers_.build();
  }

  Turn turn_of(std::size_t index) const {
    const Site& site = sites_[index];
    return {site.heard_channels.distinct(), site.ap->visible_members.size(), index};
  }

  // The channel is chosen by the position as it stands; the position is corrected afterwards, move or no move.
  void visit(std::size_t index) {
    Site& site = sites_[index];
    Radio& radio = *site.waiting.front();
    const std::int32_t choice = best_channel_of(*site.ap, radio);
    const std::int32_t old_position = radio.primary_channel;
    radio.normalize_primary_channel();
    if (choice != radio.channel && choice >= 1) {
      move(site, radio, choice);
    } else if (radio.primary_channel != old_position) {
      tell_hearers(radio);
      site.changed = true;
      ++summary_.repositioned;
    }
    radio.visible_channels = visited_mark;
    ++summary_.visited;
    if (site.waiting.size() == 1) turns_.erase(turn_of(index));
    site.waiting.erase(site.waiting.begin());
  }

  std::int32_t best_channel_of(const ApEntry& ap, const Radio& radio) {
    table_.clear();
    table_.add_neighbours(ap, radio);
    return table_.best_channel(radio.available_channels, radio.channel, radio.bandwidth, radio.primary_channel,
                               config_.dca_threshold, table_.ignore_dca_threshold);
  }

  void move(Site& site, Radio& radio, std::int32_t channel) {
    radio.channel = channel;
    radio.normalize_primary_channel();
    for (const auto& [address, hearer] : hearers_.of(radio.mac)) note_move(hearer, radio);
    site.changed = true;
    ++summary_.moved;
  }

  // One AP's view of a radio that moved, and with it the place of that AP's own radios in the order.
  void note_move(std::size_t hearer, const Radio& radio) {
    Site& site = sites_[hearer];
    Neighbour& heard = *site.ap->visible_members.find_with_local_bit_retry(radio.mac);
    const Turn before = turn_of(hearer);
    site.heard_channels.remove(heard.channel);
    site.heard_channels.add(radio.channel);
    heard.channel = radio.channel;
    heard.primary = radio.primary_channel;
    const Turn after = turn_of(hearer);
    if (before.visible_channels == after.visible_channels || site.waiting.empty()) return;
    turns_.erase(before);
    turns_.insert(after);
  }

  void tell_hearers(const Radio& radio) {
    for (const auto& [address, hearer] : hearers_.of(radio.mac)) {
      sites_[hearer].ap->visible_members.find_with_local_bit_retry(radio.mac)->primary = radio.primary_channel;
    }
  }

  SpectrumTable& table_;
  const DomainConfig& config_;
  std::vector<Site> sites_;
  MacIndex hearers_;
  std::set<Turn> turns_;  // of the sites that have radios waiting
  ChannelPassSummary summary_;
};

}  // namespace

ChannelPassSummary run_dca_pass(SpectrumTable& table, ApMap& aps, const DomainConfig& config, PlanResult& results) {
  return ChannelPass(table, aps, config).run(results);
}

}  // namespace rrm
