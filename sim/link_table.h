// What stands between any two fixed antennas of a site, walls and shadowing, remembered once it was asked for: neither
// changes while the site runs, and a scan of a large site asks millions of times. One thread.
#pragma once

#include <vector>

#include "sim/radio_model.h"
#include "sim/site.h"

namespace sim {

class LinkTable {
 public:
  // Site and model must outlive the table.
  LinkTable(const Site& site, const RadioModel& model);

  // By node: the site's APs in their order, then its foreign APs. The same in both directions.
  double obstruction_db(std::size_t one, std::size_t other, int band);

 private:
  struct Node {
    Point position;
    Mac identity;
  };

  const RadioModel& model_;
  std::vector<Node> nodes_;
  std::vector<double> known_;  // not a number where nobody has asked yet; the pairs of each band in a triangle
};

}  // namespace sim
