#include "zal/IMsg.h"

#include "platform/standalone/BoardTable.h"
#include "zal/MacAddr.h"

namespace zal {

std::optional<std::string> IpcMsgMorvaneRequest::get_band(bool& valid) const {
  valid = band && band_of_name(*band);
  return band;
}

std::optional<std::string> IpcMsgMorvaneRequest::get_mac(bool& valid) const {
  valid = mac && MacAddr::from_str(*mac).is_valid();
  return mac;
}

}  // namespace zal
