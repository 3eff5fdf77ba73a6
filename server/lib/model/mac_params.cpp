#include "model/mac_params.h"

#include <cstdint>

#include "ApEntry.h"
#include "core/log.h"

namespace rrm {
namespace {

// The number as the AP gave it: a negative one is no length.
std::int32_t mac_count(const ApEntry& ap) {
  return static_cast<std::int32_t>(ap.ap_mac_count);
}

bool pool_fits(const ApEntry& ap, const Radio& radio) {
  const bool fits = radio.max_mac_count > 0 && radio.mac_offset >= 0 &&
                    std::int64_t{radio.max_mac_count} + radio.mac_offset <= mac_count(ap);
  if (!fits) {
    RRM_LOG(LOG_ERROR,
            "Invalid one or more radio MAC parameters:  radio-mac-count(%d), mac-offset(%d), ap-mac-count(%d)",
            radio.max_mac_count, radio.mac_offset, mac_count(ap));
  }
  return fits;
}

bool pool_is_alone(const ApEntry& ap, const Radio& radio) {
  bool alone = true;
  for (const Radio& other : ap.radios.list) {
    if (!other.status || other.id == radio.id || !other.mac.in_pool(radio.mac, radio.max_mac_count)) continue;
    RRM_LOG(LOG_ERROR, "MAC ranges overlapped: radio%d %s max_mac_count=%d, radio%d %s", radio.id,
            radio.mac.to_string().c_str(), radio.max_mac_count, other.id, other.mac.to_string().c_str());
    alone = false;
  }
  return alone;
}

}  // namespace

bool check_mac_params(const ApEntry& ap) {
  if (mac_count(ap) <= 0) {
    RRM_LOG(LOG_ERROR, "Invalid ap-mac-count(%d)", mac_count(ap));
    return false;
  }
  bool valid = true;
  for (const Radio& radio : ap.radios.list) {
    if (radio.status) valid = pool_fits(ap, radio) && pool_is_alone(ap, radio) && valid;
  }
  return valid;
}

}  // namespace rrm
