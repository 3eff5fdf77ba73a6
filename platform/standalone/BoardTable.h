// The boards that the standalone platform knows: any that /etc/zal/boards.json names, and beside them one ordinary
// board of three radios. The file is one flat JSON object, board types to the bands of their radios in order, as
// {"outdoor-2": "5g 2g"}. A radio behind the last that is named there is that of the ordinary board: the server tells
// three radios of every access point, also where the board has fewer. Immutable.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "zal/boards.h"

namespace zal {

inline constexpr std::array<const char*, 3> band_names{"2g", "5g", "6g"};
std::optional<ApProfileRadioBand> band_of_name(std::string_view name);

class BoardTable {
 public:
  static constexpr const char* path = "/etc/zal/boards.json";

  // A missing file or an empty text names no boards. What is wrong in a text is passed over and told in `complaint`,
  // and by from_file in the log.
  static BoardTable from_text(std::string_view text, std::string& complaint);
  static BoardTable from_file(const char* file);

  // Empty if neither the board nor the ordinary one has such a radio.
  std::optional<ApProfileRadioBand> band_of(const std::string& board_type, int radio_id) const;

 private:
  using Bands = std::vector<ApProfileRadioBand>;

  std::map<std::string, Bands> boards_;
};

}  // namespace zal
