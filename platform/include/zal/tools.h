// Small helpers of the controller's libraries.
#pragma once

#include <string_view>
#include <vector>

#include "zal/MacAddr.h"

namespace zal::tools {

// The addresses of a list, in its order. What is no address is passed over.
std::vector<MacAddr> string_to_macs(std::string_view text, char separator);

}  // namespace zal::tools
