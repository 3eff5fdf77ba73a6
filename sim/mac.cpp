#include "sim/mac.h"

#include <cctype>
#include <cstdio>

namespace sim {

std::string Mac::text() const {
  char buffer[18];
  const auto byte = [this](unsigned shift) { return static_cast<unsigned>(value >> shift) & 0xFFU; };
  std::snprintf(buffer, sizeof buffer, "%02x:%02x:%02x:%02x:%02x:%02x", byte(40), byte(32), byte(24), byte(16), byte(8),
                byte(0));
  return buffer;
}

std::optional<Mac> Mac::parse(const std::string& text) {
  if (text.size() != 17) {
    return std::nullopt;
  }
  Mac mac;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto symbol = static_cast<unsigned char>(text[i]);
    if (i % 3 == 2) {
      if (symbol != ':') {
        return std::nullopt;
      }
    } else if (std::isxdigit(symbol) == 0) {
      return std::nullopt;
    } else {
      const int digit = std::isdigit(symbol) != 0 ? symbol - '0' : std::tolower(symbol) - 'a' + 10;
      mac.value = mac.value << 4U | static_cast<std::uint64_t>(digit);
    }
  }
  return mac;
}

}  // namespace sim
