#include "sim/link_table.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace sim {
namespace {

constexpr std::size_t bands = 3;

std::size_t band_index(int band) {
  return band == 2 ? 0 : band == 5 ? 1 : 2;
}

}  // namespace

LinkTable::LinkTable(const Site& site, const RadioModel& model) : model_(model) {
  for (const AccessPoint& ap : site.access_points) {
    nodes_.push_back({ap.position, ap.mac});
  }
  for (const ForeignAp& foreign : site.foreign_aps) {
    nodes_.push_back({foreign.position, foreign.bssid});
  }
  const std::size_t pairs = nodes_.size() * (nodes_.size() + 1) / 2;
  known_.assign(pairs * bands, std::numeric_limits<double>::quiet_NaN());
}

double LinkTable::obstruction_db(std::size_t one, std::size_t other, int band) {
  const auto [low, high] = std::minmax(one, other);
  double& known = known_[(high * (high + 1) / 2 + low) * bands + band_index(band)];
  if (std::isnan(known)) {
    const Node& a = nodes_[low];
    const Node& b = nodes_[high];
    known = model_.obstruction_db(a.position, a.identity, b.position, b.identity, band);
  }
  return known;
}

}  // namespace sim
