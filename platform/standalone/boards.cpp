#include "zal/boards.h"

#include <array>

#include "platform/standalone/BoardTable.h"

namespace zal {

std::optional<ApProfileRadioBand> zalbt_get_band_by_radio_id(const std::string& board_type, int radio_id) {
  static const BoardTable table = BoardTable::from_file(BoardTable::path);
  return table.band_of(board_type, radio_id);
}

const char* ApProfileRadioBandToStrX(ApProfileRadioBand band) {
  return band_names.at(static_cast<std::size_t>(band));
}

}  // namespace zal
