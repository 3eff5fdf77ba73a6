#include "zal/IpcMsgRrmApInfo.h"

#include "platform/bus/Frame.h"
#include "platform/standalone/BoardTable.h"

namespace zal {

IpcMsgRrmApInfo::IpcMsgRrmApInfo(std::string_view text) {
  std::string reason;
  const auto fields = bus::parse_fields(text, reason);
  if (!fields) return;
  const auto take = [&fields](const char* key, std::optional<std::string>& member) {
    if (const std::string* value = fields->text(key)) member = *value;
  };
  take("ip", ip_);
  take("location", location_);
  take("board-type", board_type_);
}

std::optional<int> IpcMsgRrmApInfo::band_from_str(std::string_view name) {
  const auto band = band_of_name(name);
  return band ? std::optional(static_cast<int>(*band)) : std::nullopt;
}

}  // namespace zal
