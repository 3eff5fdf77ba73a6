// One radio's record of the clients that it must refuse, with what the AP has yet to be told: blocks and unblocks, and
// clients to be ordered off. A client may stand in `changes` and no longer in `members`: that is how an unblock reaches
// the AP. Walked in ascending MAC order. Belongs to the domain worker's thread; time passes through tick().
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "model/MacAddr.h"

namespace rrm {

class JsonWriter;

class RrmProblist {
 public:
  // Clients on the blacklist, with the seconds left.
  const std::map<MacAddr, std::int32_t>& members() const { return members_; }
  // What the AP has not been told: true "block", false "unblock".
  const std::map<MacAddr, bool>& changes() const { return changes_; }
  // Clients to be disassociated, with their SSID.
  const std::map<MacAddr, std::string>& disassoc() const { return disassoc_; }

  // Blocks the client for so many seconds; on a member only the seconds are set.
  void add(const MacAddr& mac, std::int32_t timeout);
  // The same with an order to disassociate, which tells the AP of the block by itself. An empty SSID does nothing.
  void add_disassoc(const MacAddr& mac, std::int32_t timeout, const std::string& ssid);
  // Lifts the block. The AP is told, unless it never heard of the block because the order to disassociate still waits.
  void release(const MacAddr& mac);
  // Forgets the client; the AP is not told.
  void remove(const MacAddr& mac);
  // One second has passed. What runs out is removed silently: the AP's own entry runs out at the same time.
  void tick();
  // All members are to be told to the AP anew.
  void resend_all();
  void clear();
  // Ends the life of what was gathered since the last message; the members stay.
  void clear_changes() { changes_.clear(); }
  void clear_disassoc() { disassoc_.clear(); }

  // Adds an array "blacklist" of the changes, blocks with the given seconds.
  void write_blacklist(JsonWriter& object, std::int32_t timeout) const;
  void dump_json(JsonWriter& object) const;

 private:
  std::map<MacAddr, std::int32_t> members_;
  std::map<MacAddr, bool> changes_;
  std::map<MacAddr, std::string> disassoc_;
};

}  // namespace rrm
