// What the controller knows of the boards of access points: on which band each of their radios works.
#pragma once

#include <optional>
#include <string>

namespace zal {

enum class ApProfileRadioBand : int { band_2g = 0, band_5g = 1, band_6g = 2 };

// Empty for a radio that neither the board nor the ordinary one has. Radios count from 0. A type that is not known by
// name, an empty one too, is an ordinary board: 2.4, 5 and 6 GHz in this order. A board with fewer than three radios
// has the ordinary board's bands for the rest.
std::optional<ApProfileRadioBand> zalbt_get_band_by_radio_id(const std::string& board_type, int radio_id);

// "2g", "5g" or "6g".
const char* ApProfileRadioBandToStrX(ApProfileRadioBand band);

}  // namespace zal
