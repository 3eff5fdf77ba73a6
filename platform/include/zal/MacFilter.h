// The MAC filter of a log: a flag and a set of addresses. While the flag is on, a line that is tied to a device is
// written only if the set holds the device's address. Lines tied to no device, or to an address that is invalid, are
// never filtered, and while the flag is off nothing is. What the filter holds back is not counted: it was asked for.
//
// From any thread. The lock inside is a leaf, taken for a line only while the filter is on.
#pragma once

#include <atomic>
#include <mutex>
#include <set>
#include <vector>

#include "zal/MacAddr.h"

namespace zal {

class IMsg;
class Trace;

class MacFilter {
 public:
  void turn_on() { is_on_ = true; }
  void turn_off() { is_on_ = false; }
  bool is_on() const { return is_on_; }

  // Addresses that are there already, or not, are passed over.
  void add(const std::vector<MacAddr>& macs);
  void remove(const std::vector<MacAddr>& macs);
  void clear();
  // Takes over a whole filter at once.
  void replace(bool is_on, const std::vector<MacAddr>& macs);
  // In ascending order.
  std::vector<MacAddr> macs() const;

  // Whether a line tied to this device is written.
  bool passes(const MacAddr& mac) const;

 private:
  std::atomic<bool> is_on_{false};
  mutable std::mutex mutex_;
  std::set<MacAddr> macs_;  // guarded by mutex_
};

// Takes over what the controller tells about its MAC filter, and logs it. Requires: an IPC_MSG__MAC_FILTER_CONFIG.
void mac_filter_config(const IMsg& msg, const Trace& trace);

}  // namespace zal
