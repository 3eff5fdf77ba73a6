// What a benchmark measured, for people as lines of a table and with --json FILE for programs: an array of objects with
// `name`, `value`, `unit`, where the measure is compared with something `anchor`, `anchor_value`, `ratio`, and where
// something is to be reached `goal`.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace zal::bench {

// What a measure is compared with. The ratio is the measure's by the anchor's, from the same run.
struct Anchor {
  std::string name;
  double value = 0;
  double ratio = 0;
};

struct Measure {
  std::string name;
  double value = 0;
  std::string unit;
  std::optional<Anchor> anchor = {};
  std::string goal = {};
};

class Measures {
 public:
  // Takes "--json FILE" out of the arguments.
  Measures(int& argc, char** argv);

  // Prints the measure and keeps it.
  void add(Measure measure);
  // Writes what was kept; throws std::runtime_error if it cannot.
  void write() const;

 private:
  std::string file_;
  std::vector<Measure> measures_;
};

}  // namespace zal::bench
