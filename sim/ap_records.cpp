#include "sim/ap_records.h"

#include <algorithm>
#include <array>
#include <map>
#include <nlohmann/json.hpp>

namespace sim {
namespace {

using Bands = std::array<int, 3>;  // by radio id
constexpr Bands ordinary{2, 5, 6};

struct Board {
  Bands bands = ordinary;
  std::array<bool, ordinary.size()> known{};
};

void learn(Board& board, const std::string& type, const Radio& radio) {
  const auto id = static_cast<std::size_t>(radio.id);
  if (board.known.at(id) && board.bands.at(id) != radio.band) {
    throw SiteError("site.access_points: radio " + std::to_string(radio.id) + " of the board \"" + type +
                    "\" has two bands; give the access points boards of different names");
  }
  board.known.at(id) = true;
  board.bands.at(id) = radio.band;
}

std::string names_of(const Bands& bands) {
  std::string names;
  for (const int band : bands) {
    names += (names.empty() ? "" : " ") + std::to_string(band) + "g";
  }
  return names;
}

}  // namespace

std::string ap_records(const Site& site, const std::vector<std::string>& addresses) {
  std::string text;
  for (std::size_t ap = 0; ap < site.access_points.size(); ++ap) {
    nlohmann::ordered_json record{{"mac", site.access_points[ap].mac.text()}};
    if (!addresses.empty()) {
      record["ip"] = addresses.at(ap);
    }
    record["location"] = site.domain;
    record["board-type"] = site.access_points[ap].board;
    text += (text.empty() ? "[" : ",\n ") + record.dump();
  }
  return (text.empty() ? "[" : text) + "]\n";
}

std::optional<std::string> boards(const Site& site) {
  std::map<std::string, Board> types;
  for (const AccessPoint& ap : site.access_points) {
    for (const Radio& radio : ap.radios) {
      learn(types[ap.board], ap.board, radio);
    }
  }
  nlohmann::ordered_json special = nlohmann::ordered_json::object();
  for (const auto& [type, board] : types) {
    if (board.bands != ordinary) {
      special[type] = names_of(board.bands);
    }
  }
  return special.empty() ? std::nullopt : std::optional(special.dump() + "\n");
}

}  // namespace sim
