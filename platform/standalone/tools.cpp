#include "zal/tools.h"

#include <algorithm>

namespace zal::tools {

std::vector<MacAddr> string_to_macs(std::string_view text, char separator) {
  std::vector<MacAddr> macs;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(separator), text.size());
    if (const auto mac = MacAddr::from_str(text.substr(0, end)); mac.is_valid()) macs.push_back(mac);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return macs;
}

}  // namespace zal::tools
