#include "platform/standalone/BoardTable.h"

#include <fstream>
#include <sstream>

#include "platform/bus/Frame.h"
#include "zal/Trace.h"

namespace zal {

namespace {

std::string read_file(const char* path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// Empty if a word is no band.
std::vector<ApProfileRadioBand> parse_bands(const std::string& text) {
  std::vector<ApProfileRadioBand> bands;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const auto band = band_of_name(word);
    if (!band) return {};
    bands.push_back(*band);
  }
  return bands;
}

}  // namespace

std::optional<ApProfileRadioBand> band_of_name(std::string_view name) {
  for (std::size_t i = 0; i < band_names.size(); ++i)
    if (name == band_names.at(i)) return static_cast<ApProfileRadioBand>(i);
  return std::nullopt;
}

BoardTable BoardTable::from_text(std::string_view text, std::string& complaint) {
  BoardTable table;
  complaint.clear();
  if (text.empty()) return table;
  const auto fields = bus::parse_fields(text, complaint);
  if (!fields) return table;
  for (const auto& [board_type, value] : *fields) {
    const auto* const words = std::get_if<std::string>(&value);
    Bands bands = words ? parse_bands(*words) : Bands();
    if (bands.empty())
      complaint += (complaint.empty() ? "no bands of '" : ", no bands of '") + board_type + "'";
    else
      table.boards_[board_type] = std::move(bands);
  }
  return table;
}

BoardTable BoardTable::from_file(const char* file) {
  static const Trace trace("BOARDS", false);
  std::string complaint;
  BoardTable table = from_text(read_file(file), complaint);
  if (!complaint.empty()) trace.error("%s: %s", file, complaint.c_str());
  return table;
}

std::optional<ApProfileRadioBand> BoardTable::band_of(const std::string& board_type, int radio_id) const {
  static const Bands ordinary{ApProfileRadioBand::band_2g, ApProfileRadioBand::band_5g, ApProfileRadioBand::band_6g};
  const auto index = static_cast<std::size_t>(radio_id);  // of a negative number, more than any board has
  const auto found = boards_.find(board_type);
  const bool is_listed = found != boards_.end() && index < found->second.size();
  const Bands& bands = is_listed ? found->second : ordinary;
  return index < bands.size() ? std::optional(bands[index]) : std::nullopt;
}

}  // namespace zal
