#include "planning/plain_dca.h"

#include <cstdlib>
#include <map>
#include <set>
#include <vector>

namespace rrm::testing {
namespace {

int plain_centre20(int c) {
  if (c >= 1 && c <= 13) return c;
  if (c >= 36 && c <= 233) return c;
  return -1;
}

int plain_centre40(int c, int primary) {
  if (c < 36) {
    const int centre = primary == 512 ? c - 2 : c + 2;
    return centre >= 3 && centre <= 11 ? centre : -1;
  }
  if (c > 164) return primary == 512 ? c - 2 : c + 2;
  switch (c) {
    case 36:
    case 37:
    case 38:
    case 39:
    case 40:
      return 38;
    case 44:
    case 45:
    case 46:
    case 47:
    case 48:
      return 46;
    case 52:
    case 53:
    case 54:
    case 55:
    case 56:
      return 54;
    case 60:
    case 61:
    case 62:
    case 63:
    case 64:
      return 62;
    case 100:
    case 101:
    case 102:
    case 103:
    case 104:
      return 102;
    case 108:
    case 109:
    case 110:
    case 111:
    case 112:
      return 110;
    case 116:
    case 117:
    case 118:
    case 119:
    case 120:
      return 118;
    case 124:
    case 125:
    case 126:
    case 127:
    case 128:
      return 126;
    case 132:
    case 133:
    case 134:
    case 135:
    case 136:
      return 134;
    case 140:
    case 141:
    case 142:
    case 143:
    case 144:
      return 142;
    case 149:
    case 150:
    case 151:
    case 152:
    case 153:
      return 151;
    case 157:
    case 158:
    case 159:
    case 160:
    case 161:
      return 159;
    default:
      return -1;
  }
}

int plain_centre80(int c) {
  if (c >= 36 && c <= 48) return 42;
  if (c >= 52 && c <= 64) return 58;
  if (c >= 100 && c <= 112) return 106;
  if (c >= 116 && c <= 128) return 122;
  if (c >= 132 && c <= 144) return 138;
  if (c >= 149 && c <= 161) return 155;
  if (c > 164 && c < 234) {
    if (c <= 173) return 167;
    if (c <= 189) return 183;
    if (c <= 205) return 199;
    if (c <= 221) return 215;
  }
  return -1;
}

int plain_centre160(int c) {
  if (c >= 36 && c <= 64) return 50;
  if (c >= 100 && c <= 128) return 114;
  if (c > 164 && c < 234) {
    if (c <= 189) return 175;
    if (c <= 221) return 207;
  }
  return -1;
}

int plain_centre320(int c) {
  if (c < 1 || c > 233) return -1;
  int nearest = -1;
  for (const int centre : {31, 63, 95, 127, 159, 191, 223}) {
    if (nearest == -1 || std::abs(c - centre) < std::abs(c - nearest)) nearest = centre;
  }
  return std::abs(c - nearest) < 33 ? nearest : -1;
}

Neighbour* entry_of(ApEntry& ap, const MacAddr& mac) {
  if (Neighbour* found = ap.visible_members.find(mac)) return found;
  return ap.visible_members.find(mac.with_local_bit_flipped());
}

bool may_move(const Radio& radio) {
  return radio.locked_dca == 0 && radio.status && !radio.available_channels.empty();
}

using Hearers = std::map<MacAddr, std::vector<ApEntry*>>;

std::vector<ApEntry*> hearers_of(const Hearers& hearers, const MacAddr& mac) {
  auto it = hearers.find(mac);
  if (it == hearers.end()) it = hearers.find(mac.with_local_bit_flipped());
  return it == hearers.end() ? std::vector<ApEntry*>() : it->second;
}

struct Work {
  Radio* radio;
  ApEntry* ap;
  MacAddr mac;
};

}  // namespace

void PlainTable::write(int channel, int value) {
  if (channel >= -8 && channel <= 266) cells[static_cast<std::size_t>(channel + 8)] += value;
}

int PlainTable::read(int channel) const {
  return channel >= -8 && channel <= 266 ? cells[static_cast<std::size_t>(channel + 8)] : 0;
}

void PlainTable::lay_mask20(int channel, int weight) {
  const int centre = plain_centre20(channel);
  if (centre < 1) return;
  write(centre - 2, weight * 3 / 10);
  write(centre + 2, weight * 3 / 10);
  write(centre - 1, weight * 7 / 10);
  write(centre + 1, weight * 7 / 10);
  write(centre, weight);
}

void PlainTable::lay_wide_mask(int centre, int half_width, int weight) {
  write(centre - half_width, weight * 3 / 10);
  write(centre + half_width, weight * 3 / 10);
  write(centre - half_width + 1, weight * 7 / 10);
  write(centre + half_width - 1, weight * 7 / 10);
  for (int c = centre - half_width + 2; c <= centre + half_width - 2; ++c) write(c, weight);
}

void PlainTable::lay(const Neighbour& entry) {
  if (entry.channel < 1) return;
  const int weight = entry.rssi + 100;
  int centre = -1;
  int half_width = 0;
  if (entry.bandwidth == 20) return lay_mask20(entry.channel, weight);
  if (entry.bandwidth == 40) centre = plain_centre40(entry.channel, entry.primary), half_width = 4;
  if (entry.bandwidth == 80) centre = plain_centre80(entry.channel), half_width = 8;
  if (entry.bandwidth == 160) centre = plain_centre160(entry.channel), half_width = 16;
  if (entry.bandwidth == 320) centre = plain_centre320(entry.channel), half_width = 32;
  if (half_width == 0 || centre < 1) return;
  lay_wide_mask(centre, half_width, weight);
  lay_mask20(entry.channel, weight);
}

void PlainTable::add_neighbours(const ApEntry& ap, const Radio& radio) {
  for (const NeighbourMap* map : {&ap.visible_members, &ap.visible_rogue}) {
    for (const auto& [bssid, entry] : *map) {
      if (bssid == radio.mac) continue;
      if (radio.band == 6) {
        if (entry.band != 6) continue;
      } else if (radio.band != 0) {
        if (entry.band != 0 && entry.band != radio.band) continue;
      }
      lay(entry);
    }
  }
}

int PlainTable::sum(int centre, int half_width) const {
  if (centre < -8 || centre > 266 || half_width > 32) return 0;
  int total = 0;
  for (int c = centre - half_width; c <= centre + half_width; ++c) total += read(c);
  return total;
}

int PlainTable::channel_cost(int channel, int bandwidth, int primary_channel) const {
  int centre = plain_centre20(channel);
  int half_width = 2;
  if (bandwidth == 40) centre = plain_centre40(channel, primary_channel), half_width = 4;
  if (bandwidth == 80) centre = plain_centre80(channel), half_width = 8;
  if (bandwidth == 160) centre = plain_centre160(channel), half_width = 16;
  if (bandwidth == 320) centre = plain_centre320(channel), half_width = 32;
  if (centre < 1) return -1;
  int cost = sum(centre, half_width);
  if (bandwidth != 20) cost += sum(plain_centre20(channel), 2);
  return cost;
}

int PlainTable::best_channel(const ChannelSet& available, int channel, int bandwidth, int primary_channel,
                             int threshold) const {
  int factor = 100;
  if (!ignore_dca_threshold && threshold <= 99) factor = 100 - threshold;
  int best = 0;
  int best_cost = 2147483647;
  bool current_seen = false;
  int current_cost = 0;
  for (const int c : available) {
    const int cost = channel_cost(c, bandwidth, primary_channel);
    if (cost < 0) continue;
    if (c == channel) {
      current_cost = cost;
      current_seen = true;
    }
    if (cost < best_cost) {
      best = c;
      best_cost = cost;
    }
  }
  if (best <= 0 || best_cost == 2147483647) return 0;
  if (current_seen && current_cost * factor / 100 <= best_cost) return channel;
  return best;
}

void plain_dca_pass(PlainTable& table, ApMap& aps, const DomainConfig& config, PlanResult& results) {
  Hearers hearers;
  for (const auto& [mac, ap] : aps) {
    for (const auto& [bssid, entry] : ap->visible_members) hearers[bssid].push_back(ap.get());
  }

  std::vector<Work> work_list;
  std::set<MacAddr> changed_aps;
  for (const auto& [mac, ap] : aps) {
    for (Radio& radio : ap->radios.list) {
      if (!may_move(radio)) continue;
      radio.neighbour_count = static_cast<int>(ap->visible_members.size());
      radio.update_visible_channels(*ap);
      work_list.push_back({&radio, ap.get(), mac});
    }
  }

  for (std::size_t remaining = work_list.size(); remaining != 0; --remaining) {
    Work* picked = nullptr;
    for (Work& work : work_list) {
      if (work.radio->visible_channels < 0) continue;
      if (picked == nullptr || work.radio->visible_channels > picked->radio->visible_channels ||
          (work.radio->visible_channels == picked->radio->visible_channels &&
           work.radio->neighbour_count > picked->radio->neighbour_count)) {
        picked = &work;
      }
    }
    if (picked == nullptr) break;
    Radio& radio = *picked->radio;
    table.clear();
    table.add_neighbours(*picked->ap, radio);
    const int choice = table.best_channel(radio.available_channels, radio.channel, radio.bandwidth,
                                          radio.primary_channel, config.dca_threshold);
    const int old_primary = radio.primary_channel;
    radio.normalize_primary_channel();
    if (choice != radio.channel && choice >= 1) {
      radio.channel = choice;
      radio.normalize_primary_channel();
      for (ApEntry* hearer : hearers_of(hearers, radio.mac)) {
        Neighbour* entry = entry_of(*hearer, radio.mac);
        entry->channel = radio.channel;
        entry->primary = radio.primary_channel;
      }
      for (const auto& [mac, ap] : aps) {
        for (Radio& other : ap->radios.list) {
          if (may_move(other) && other.visible_channels >= 0) other.update_visible_channels(*ap);
        }
      }
      changed_aps.insert(picked->mac);
    } else if (radio.primary_channel != old_primary) {
      for (ApEntry* hearer : hearers_of(hearers, radio.mac)) {
        entry_of(*hearer, radio.mac)->primary = radio.primary_channel;
      }
      changed_aps.insert(picked->mac);
    }
    radio.visible_channels = -1;
  }

  for (const MacAddr& mac : changed_aps) {
    auto ap = aps.find(mac);
    if (ap == nullptr) ap = aps.find_by_any_mac(mac);
    if (ap != nullptr) results.insert_or_assign(mac, ap->radios);
  }
}

}  // namespace rrm::testing
