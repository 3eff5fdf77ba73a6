#include "zal/IpcMsgRrmApInfo.h"

#include "platform/bus/Frame.h"

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

}  // namespace zal
