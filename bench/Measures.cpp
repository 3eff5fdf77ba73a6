#include "Measures.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace zal::bench {

Measures::Measures(int& argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string_view(argv[i]) != "--json") continue;
    file_ = argv[i + 1];
    std::copy(argv + i + 2, argv + argc, argv + i);
    argc -= 2;
    return;
  }
}

void Measures::add(Measure measure) {
  std::printf("%-62s %10.4g %-10s", measure.name.c_str(), measure.value, measure.unit.c_str());
  if (measure.anchor) {
    std::printf(" %s %.4g, ratio %.2f", measure.anchor->name.c_str(), measure.anchor->value, measure.anchor->ratio);
  }
  if (!measure.goal.empty()) std::printf(" (goal: %s)", measure.goal.c_str());
  std::printf("\n");
  std::fflush(stdout);
  measures_.push_back(std::move(measure));
}

void Measures::write() const {
  if (file_.empty()) return;
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  for (const Measure& measure : measures_) {
    nlohmann::ordered_json row{{"name", measure.name}, {"value", measure.value}, {"unit", measure.unit}};
    if (measure.anchor) {
      row["anchor"] = measure.anchor->name;
      row["anchor_value"] = measure.anchor->value;
      row["ratio"] = measure.anchor->ratio;
    }
    if (!measure.goal.empty()) row["goal"] = measure.goal;
    rows.push_back(std::move(row));
  }
  std::ofstream file(file_);
  file << rows.dump(1) << '\n';
  if (!file.flush()) throw std::runtime_error("cannot write " + file_);
}

}  // namespace zal::bench
