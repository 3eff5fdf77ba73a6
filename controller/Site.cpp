#include "controller/Site.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "zal/IMsg.h"
#include "zal/IpcMsgRrmApInfo.h"

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
  std::string text = record.dump();
  const std::string fault = fault_of_ap_record(text);
  if (!fault.empty()) throw std::runtime_error("the record of " + mac.to_string() + ": " + fault);
  return {mac, std::move(text)};
}

}  // namespace

bool Site::remember(const Fields& passed) {
  switch (passed.number("type").value_or(0)) {
    case zal::IPC_MSG__RRM_SETUP::type_number:
      return remember_setup(passed.text("text"));
    case zal::IPC_MSG__VRRP_STATE::type_number:
      return remember_state(passed.number("state"));
    case zal::IPC_MSG__RRM_AP_INFO::type_number:
      return remember_ap(passed.text("mac"), passed.text("text"));
    case zal::IPC_MSG__RRM_AP_INFO_CLEARED::type_number:
      ap_records.clear();
      return true;
    default:
      return false;
  }
}

bool Site::remember_setup(const std::string* text) {
  if (!text || !fault_of_setup(*text).empty()) return false;
  setup = *text;
  return true;
}

bool Site::remember_state(std::optional<std::int64_t> state) {
  if (!state || *state < 0 || *state > undecided) return false;
  vrrp_state = *state;
  return true;
}

bool Site::remember_ap(const std::string* mac, const std::string* text) {
  if (!mac || !text || !zal::MacAddr::from_str(*mac).is_valid()) return false;
  if (zal::IpcMsgRrmApInfo(*text).is_empty())
    ap_records.erase(zal::MacAddr::from_str(*mac));
  else
    ap_records[zal::MacAddr::from_str(*mac)] = *text;
  return true;
}

std::optional<Fields> Site::message_before(const Fields& passed) const {
  constexpr int state_type = zal::IPC_MSG__VRRP_STATE::type_number;
  if (passed.number("type") != state_type || passed.number("state") != 0 || vrrp_state != undecided)
    return std::nullopt;
  Fields first = message(state_type);
  first.set("state", std::int64_t{1});
  return first;
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

std::string fault_of_setup(const std::string& text) try {
  return nlohmann::json::parse(text).is_object() ? "" : "no JSON object";
} catch (const nlohmann::json::parse_error& e) {
  return "no JSON, from byte " + std::to_string(e.byte);
} catch (const nlohmann::json::exception&) {
  return "a number in it is too large";
}

std::string fault_of_ap_record(const std::string& text) {
  std::string fault;
  zal::bus::parse_fields(text, fault);
  return fault;
}

std::map<zal::MacAddr, std::string> parse_ap_records(const std::string& text) {
  const auto array = nlohmann::json::parse(text, nullptr, false);
  if (!array.is_array()) throw std::runtime_error("no JSON array of AP records");
  std::map<zal::MacAddr, std::string> records;
  for (const auto& record : array) records.insert(parse_ap_record(record));
  return records;
}

}  // namespace controller
