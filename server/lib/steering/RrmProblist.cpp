#include "steering/RrmProblist.h"

#include <vector>

#include "json/JsonWriter.h"

namespace rrm {
namespace {

void write_change(JsonWriter& object, const MacAddr& mac, bool block) {
  object.add_string("mac", mac.to_string());
  object.add_string("action", block ? "block" : "unblock");
}

}  // namespace

void RrmProblist::add(const MacAddr& mac, std::int32_t timeout) {
  const bool is_new = members_.insert_or_assign(mac, timeout).second;
  if (is_new) changes_[mac] = true;
}

void RrmProblist::add_disassoc(const MacAddr& mac, std::int32_t timeout, const std::string& ssid) {
  if (ssid.empty()) return;
  const bool is_new = members_.insert_or_assign(mac, timeout).second;
  if (is_new) disassoc_.try_emplace(mac, ssid);
}

void RrmProblist::release(const MacAddr& mac) {
  if (members_.erase(mac) == 0) return;
  const bool order_waits = disassoc_.erase(mac) != 0;
  if (!order_waits) changes_[mac] = false;
}

void RrmProblist::remove(const MacAddr& mac) {
  if (members_.erase(mac) != 0) disassoc_.erase(mac);
}

void RrmProblist::tick() {
  std::vector<MacAddr> expired;
  for (auto& [mac, seconds] : members_) {
    if (seconds <= 1) {
      expired.push_back(mac);
    } else {
      --seconds;
    }
  }
  for (const MacAddr& mac : expired) remove(mac);
}

void RrmProblist::resend_all() {
  changes_.clear();
  for (const auto& [mac, seconds] : members_) changes_[mac] = true;
}

void RrmProblist::clear() {
  members_.clear();
  changes_.clear();
  disassoc_.clear();
}

void RrmProblist::write_blacklist(JsonWriter& object, std::int32_t timeout) const {
  JsonWriter array = JsonWriter::array(object, "blacklist");
  for (const auto& [mac, block] : changes_) {
    JsonWriter entry = JsonWriter::object(array, nullptr);
    write_change(entry, mac, block);
    if (block) entry.add_int("timeout", timeout);
  }
}

void RrmProblist::dump_json(JsonWriter& object) const {
  JsonWriter member_array = JsonWriter::array(object, "members");
  for (const auto& [mac, seconds] : members_) {
    JsonWriter entry = JsonWriter::object(member_array, nullptr);
    entry.add_string("mac", mac.to_string());
    entry.add_int("counter", seconds);
  }
  JsonWriter change_array = JsonWriter::array(object, "changes");
  for (const auto& [mac, block] : changes_) {
    JsonWriter entry = JsonWriter::object(change_array, nullptr);
    write_change(entry, mac, block);
  }
}

}  // namespace rrm
