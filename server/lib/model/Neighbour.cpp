#include "model/Neighbour.h"

#include <algorithm>
#include <bitset>
#include <cmath>

#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/bands.h"
#include "model/json_fields.h"
#include "model/keys.h"

namespace rrm {
namespace {

using Entry = NeighbourMap::value_type;
using Group = std::span<const Entry>;

__extension__ using WideSum = unsigned __int128;  // holds the squares of any 32-bit deviations

bool less_by_mac(const Entry& a, const Entry& b) {
  return a.first < b.first;
}
bool same_mac(const Entry& a, const Entry& b) {
  return a.first == b.first;
}

std::int64_t deviation(const Entry& sample, std::int64_t mean) {
  return std::abs(sample.second.rssi - mean);
}

// The samples of a group that lie no further than `spread` from `mean`; what is computed over them is truncated.
struct Selection {
  Group group;
  std::int64_t mean;
  std::int64_t spread;

  bool holds(const Entry& sample) const { return deviation(sample, mean) <= spread; }
  std::int64_t count() const {
    return std::count_if(group.begin(), group.end(), [&](const Entry& sample) { return holds(sample); });
  }
  // 0 if nothing is selected.
  std::int64_t mean_level() const {
    std::int64_t sum = 0;
    for (const Entry& sample : group) sum += holds(sample) ? sample.second.rssi : 0;
    const std::int64_t selected = count();
    return selected == 0 ? 0 : sum / selected;
  }
  // One more than the standard deviation around `centre`, so never 0.
  // Requires: something is selected.
  std::int64_t spread_around(std::int64_t centre) const {
    WideSum squares = 0;
    for (const Entry& sample : group) {
      const auto distance = static_cast<WideSum>(deviation(sample, centre));
      if (holds(sample)) squares += distance * distance;
    }
    const WideSum mean_square = squares / static_cast<WideSum>(count());
    return static_cast<std::int64_t>(std::sqrt(static_cast<double>(mean_square)) + 1.0);
  }
};

// Two-stage sigma clipping. Where fewer than three samples are kept there is no telling which one is the outlier, and
// the first stage's figures stand; a mean of 0 is no level and is computed anew.
std::int32_t clipped_level(Group group) {
  constexpr std::int64_t everything = std::int64_t{1} << 33;  // wider than two 32-bit numbers can lie apart
  constexpr std::int64_t enough = 3;
  const Selection all{group, 0, everything};
  const std::int64_t first_mean = all.mean_level();
  const Selection kept{group, first_mean, all.spread_around(first_mean)};
  const bool few = kept.count() < enough;
  const std::int64_t second_mean = few && first_mean != 0 ? first_mean : kept.mean_level();
  const std::int64_t second_spread = few ? kept.spread : kept.spread_around(second_mean);
  return static_cast<std::int32_t>(Selection{group, second_mean, second_spread}.mean_level());
}

// Sorts by MAC; of several entries of one MAC the first one stays in front.
void sort_by_mac(std::vector<Entry>& entries) {
  std::stable_sort(entries.begin(), entries.end(), less_by_mac);
}

}  // namespace

Neighbour* NeighbourMap::find(const MacAddr& mac) {
  return const_cast<Neighbour*>(std::as_const(*this).find(mac));
}

const Neighbour* NeighbourMap::find(const MacAddr& mac) const {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), Entry{mac, {}}, less_by_mac);
  return place != entries_.end() && place->first == mac ? &place->second : nullptr;
}

Neighbour* NeighbourMap::find_with_local_bit_retry(const MacAddr& mac) {
  return const_cast<Neighbour*>(std::as_const(*this).find_with_local_bit_retry(mac));
}

const Neighbour* NeighbourMap::find_with_local_bit_retry(const MacAddr& mac) const {
  const Neighbour* found = find(mac);
  return found != nullptr ? found : find(mac.with_local_bit_flipped());
}

bool NeighbourMap::insert(const MacAddr& mac, const Neighbour& neighbour) {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), Entry{mac, {}}, less_by_mac);
  if (place != entries_.end() && place->first == mac) return false;
  entries_.insert(place, {mac, neighbour});
  return true;
}

void NeighbourMap::insert_all(std::vector<value_type> entries) {
  entries_.insert(entries_.end(), entries.begin(), entries.end());
  sort_by_mac(entries_);
  entries_.erase(std::unique(entries_.begin(), entries_.end(), same_mac), entries_.end());
}

void NeighbourMap::merge_rounds(std::span<const NeighbourMap> rounds) {
  std::vector<Entry> samples;
  for (auto round = rounds.rbegin(); round != rounds.rend(); ++round) {
    samples.insert(samples.end(), round->begin(), round->end());
  }
  sort_by_mac(samples);
  entries_.clear();
  for (auto first = samples.begin(); first != samples.end();) {
    const auto last = std::find_if(first, samples.end(), [&](const Entry& entry) { return !same_mac(entry, *first); });
    entries_.push_back(*first);
    entries_.back().second.rssi = clipped_level({first, last});
    first = last;
  }
}

std::int32_t NeighbourMap::distinct_channels() const {
  std::bitset<256> seen;
  for (const auto& [mac, neighbour] : entries_) {
    if (neighbour.channel >= 1 && neighbour.channel <= 255) seen.set(static_cast<std::size_t>(neighbour.channel));
  }
  return static_cast<std::int32_t>(seen.count());
}

void NeighbourMap::dump_json(JsonWriter& array) const {
  for (const auto& [mac, neighbour] : entries_) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    object.add_string(field::bssid.backup, mac.to_string());
    object.add_int(field::level.backup, neighbour.rssi);
    object.add_int("channel", neighbour.channel);
    object.add_int("band", neighbour.band);
    object.add_int("bandwidth", neighbour.bandwidth);
    object.add_int("tx-power", neighbour.tx_power);
    object.add_int(field::position.backup, neighbour.primary);
  }
}

void NeighbourMap::restore(const JsonReader& array) {
  std::vector<Entry> entries;
  for_each_element(array, [&](const JsonReader& element) {
    const MacAddr mac = get_mac(element, field::bssid.backup);
    Neighbour neighbour;
    neighbour.rssi = element.get_int(field::level.backup);
    neighbour.channel = element.get_int("channel");
    neighbour.band = get_int_or(element, "band", band_of_channel(neighbour.channel));
    neighbour.bandwidth = element.get_int("bandwidth");
    neighbour.tx_power = element.get_int("tx-power");
    neighbour.primary = element.get_int(field::position.backup);
    if (!element.has("band") && neighbour.band == 0) {
      RRM_LOG(LOG_TRACE, "neighbour state entry without band: mac=%s channel=%d", mac.to_string().c_str(),
              neighbour.channel);
    }
    entries.emplace_back(mac, neighbour);
  });
  insert_all(std::move(entries));
}

}  // namespace rrm
