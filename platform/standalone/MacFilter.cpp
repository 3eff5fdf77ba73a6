#include "zal/MacFilter.h"

#include "zal/IMsg.h"
#include "zal/Trace.h"
#include "zal/tools.h"

namespace zal {

void MacFilter::add(const std::vector<MacAddr>& macs) {
  const std::lock_guard lock(mutex_);
  macs_.insert(macs.begin(), macs.end());
}

void MacFilter::remove(const std::vector<MacAddr>& macs) {
  const std::lock_guard lock(mutex_);
  for (const MacAddr& mac : macs) macs_.erase(mac);
}

void MacFilter::clear() {
  const std::lock_guard lock(mutex_);
  macs_.clear();
}

void MacFilter::replace(bool is_on, const std::vector<MacAddr>& macs) {
  const std::lock_guard lock(mutex_);
  macs_ = {macs.begin(), macs.end()};
  is_on_ = is_on;
}

std::vector<MacAddr> MacFilter::macs() const {
  const std::lock_guard lock(mutex_);
  return {macs_.begin(), macs_.end()};
}

bool MacFilter::passes(const MacAddr& mac) const {
  if (!is_on_ || !mac.is_valid()) return true;
  const std::lock_guard lock(mutex_);
  return macs_.contains(mac);
}

void mac_filter_config(const IMsg& msg, const Trace& trace) {
  const auto& config = dynamic_cast<const IPC_MSG__MAC_FILTER_CONFIG&>(msg);
  trace.mac_filter().replace(config.enabled, tools::string_to_macs(config.macs ? *config.macs : "", ' '));
  trace.sys("MAC filter: %s, addresses: %zu", config.enabled ? "on" : "off", trace.mac_filter().macs().size());
}

}  // namespace zal
