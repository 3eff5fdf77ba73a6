// What the controller knows and tells its daemon, again after each of the daemon's starts: the VRRP state, the setup
// and the records of the access points. Kept up to date by the messages that pass. A plain value.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/bus/Frame.h"
#include "zal/MacAddr.h"

namespace controller {

class Site {
 public:
  static constexpr std::int64_t undecided = 3;

  std::int64_t vrrp_state = undecided;  // 0 and 1 master, 2 standby
  std::optional<std::string> setup;
  std::map<zal::MacAddr, std::string> ap_records;

  // Takes over what a message says of these, unless it is nothing that a daemon could start with. True if so.
  bool remember(const zal::bus::Fields& message);
  // What a running daemon must be told right before this message, by what it was told until now. A daemon that goes
  // straight from undecided to master restores its domains, but keeps no backups of them from then on; by way of state
  // 1 it does both.
  std::optional<zal::bus::Fields> message_before(const zal::bus::Fields& message) const;
  // The messages that tell a daemon everything, in the order in which it wants them.
  std::vector<zal::bus::Fields> messages() const;
  // "master", "backup" or "undecided", as the state orders it; "none" while there is no setup or it is disabled.
  const char* role() const;

 private:
  bool remember_setup(const std::string* text);
  bool remember_state(std::optional<std::int64_t> state);
  bool remember_ap(const std::string* mac, const std::string* text);
};

// Why the text is no setup, one JSON object; empty if it is one.
std::string fault_of_setup(const std::string& text);
// Why the text is no record of an access point, one flat JSON object; empty if it is one.
std::string fault_of_ap_record(const std::string& text);

// The records of a file: a JSON array of objects, each with "mac" and what else is known of that access point. Throws
// std::runtime_error with the reason if it is anything else.
std::map<zal::MacAddr, std::string> parse_ap_records(const std::string& text);

}  // namespace controller
