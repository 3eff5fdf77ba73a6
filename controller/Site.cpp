#include "controller/Site.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "zal/IMsg.h"

namespace controller {

using zal::bus::Fields;

namespace {

Fields message(int type) {
  return {{"type", std::int64_t{type}}};
}

bool is_disabled(const std::string& setup) {
  const auto document = nlohmann::json::parse(setup, nullptr, false);
  const nlohmann::json::json_pointer enabled("/global/enabled");
  if (document.is_discarded() || !document.contains(enabled)) return false;
  const auto& value = document.at(enabled);
  return value.is_boolean() ? !value.get<bool>() : value == 0;
}

std::pair<zal::MacAddr, std::string> parse_ap_record(nlohmann::json record) {
  if (!record.is_object() || !record.contains("mac") || !record["mac"].is_string())
    throw std::runtime_error("an AP record without 'mac'");
  const auto mac = zal::MacAddr::from_str(record["mac"].get<std::string>());
  if (!mac.is_valid()) throw std::runtime_error("'" + record["mac"].get<std::string>() + "' is no MAC address");
  record.erase("mac");
  return {mac, record.dump()};
}

}  // namespace

void Site::remember(const Fields& passed) {
  const auto type = passed.number("type");
  const std::string* const text = passed.text("text");
  if (type == zal::IPC_MSG__RRM_SETUP::type_number && text) {
    setup = *text;
  } else if (type == zal::IPC_MSG__VRRP_STATE::type_number) {
    vrrp_state = passed.number("state").value_or(vrrp_state);
  } else if (type == zal::IPC_MSG__RRM_AP_INFO::type_number && text && passed.text("mac")) {
    ap_records[zal::MacAddr::from_str(*passed.text("mac"))] = *text;
  } else if (type == zal::IPC_MSG__RRM_AP_INFO_CLEARED::type_number) {
    ap_records.clear();
  }
}

std::vector<Fields> Site::messages() const {
  std::vector<Fields> all{message(zal::IPC_MSG__PEERS_READY::type_number)};
  all.push_back(message(zal::IPC_MSG__VRRP_STATE::type_number));
  all.back().set("state", vrrp_state);
  if (setup) {
    all.push_back(message(zal::IPC_MSG__RRM_SETUP::type_number));
    all.back().set("text", *setup);
  }
  for (const auto& [mac, record] : ap_records) {
    all.push_back(message(zal::IPC_MSG__RRM_AP_INFO::type_number));
    all.back().set("mac", mac.to_string());
    all.back().set("text", record);
  }
  return all;
}

const char* Site::role() const {
  if (!setup || is_disabled(*setup)) return "none";
  if (vrrp_state == 0 || vrrp_state == 1) return "master";
  return vrrp_state == 2 ? "backup" : "undecided";
}

std::map<zal::MacAddr, std::string> parse_ap_records(const std::string& text) {
  const auto array = nlohmann::json::parse(text, nullptr, false);
  if (!array.is_array()) throw std::runtime_error("no JSON array of AP records");
  std::map<zal::MacAddr, std::string> records;
  for (const auto& record : array) records.insert(parse_ap_record(record));
  return records;
}

}  // namespace controller
