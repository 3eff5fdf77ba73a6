#include "controller/answers.h"

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>
#include <vector>

#include "controller/Table.h"
#include "controller/alarms.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;

constexpr std::array<const char*, 3> bands{"2g", "5g", "6g"};

json parse(const std::string& answer) {
  if (answer.empty()) throw std::runtime_error("zal_rrm gave no answer");
  json parsed = json::parse(answer, nullptr, false);
  if (!parsed.is_object()) throw std::runtime_error("zal_rrm answered nonsense: no JSON object");
  return parsed;
}

// The same for the server's own interface, where an answer may tell a failure.
json parse_success(const std::string& answer) {
  json parsed = parse(answer);
  if (const auto error = parsed.find("error"); error != parsed.end())
    throw std::runtime_error(error->is_string() ? printable(error->get<std::string>()) : "zal_rrm answered an error");
  if (parsed.value("status", json()) == "failure") throw std::runtime_error("zal_rrm answered a failure");
  return parsed;
}

// An object's value, null if it has none.
const json& at(const json& object, const char* key) {
  static const json nothing;
  const auto found = object.is_object() ? object.find(key) : object.end();
  return found == object.end() ? nothing : *found;
}

// The elements of an array that an answer must have.
const json& array_at(const json& object, const char* key) {
  const json& array = at(object, key);
  if (!array.is_array()) throw std::runtime_error(std::string("zal_rrm answered nonsense: no array '") + key + "'");
  return array;
}

const json& object_at(const json& object, const char* key) {
  const json& inner = at(object, key);
  if (!inner.is_object()) throw std::runtime_error(std::string("zal_rrm answered nonsense: no object '") + key + "'");
  return inner;
}

std::string cell(const json& value) {
  if (value.is_string()) return value.get<std::string>();
  return value.is_primitive() && !value.is_null() ? value.dump() : "";
}

std::string cell(const json& object, const char* key) {
  return cell(at(object, key));
}

std::string yes_or_no(const json& value) {
  if (value.is_null()) return "";
  const bool is_no = value.is_boolean() ? !value.get<bool>() : value == 0 || value == "Disable";
  return is_no ? "no" : "yes";
}

std::string up_or_down(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.is_null() ? "" : value == 0 ? "Down" : "Up";
}

std::string list(const json& array) {
  std::string text;
  for (const json& element : array) text += (text.empty() ? "" : ",") + cell(element);
  return text;
}

std::string locks_of(const json& radio) {
  std::string text;
  for (const auto& [key, name] : {std::pair{"locked-dca", "channel"},
                                  {"locked-tpc", "power"},
                                  {"locked-balancer", "balancer"},
                                  {"locked-80211v", "802.11v"}})
    if (yes_or_no(at(radio, key)) == "yes") text += (text.empty() ? "" : ",") + std::string(name);
  return text;
}

// "36->44", or "36" if nothing changed.
std::string change(const std::string& before, const std::string& after) {
  return before == after ? before : (before.empty() ? "-" : before) + "->" + (after.empty() ? "-" : after);
}

std::string change(const json& row, const std::string& what) {
  return change(cell(row, (what + "-before").c_str()), cell(row, (what + "-after").c_str()));
}

// "name  value" lines, the values in one column.
std::string facts(const std::vector<std::pair<std::string, std::string>>& pairs) {
  constexpr std::size_t column = 12;
  std::string text;
  for (const auto& [name, value] : pairs) {
    text += name + std::string(name.size() < column ? column - name.size() : 1, ' ');
    text += (value.empty() ? "-" : printable(value)) + "\n";
  }
  return text;
}

std::string status_text(const json& value) {
  if (!value.is_number_integer()) return "";
  const auto status = value.get<std::int64_t>();
  return std::to_string(status) + " " + status_name(status);
}

void add_vaps(Table& table, const std::string& radio, const json& vaps, const char* mac, const char* fast) {
  const std::string prefix = fast;
  for (const json& vap : vaps)
    table.add({radio, cell(vap, mac), yes_or_no(at(vap, (prefix + "11k").c_str())),
               yes_or_no(at(vap, (prefix + "11r").c_str())), yes_or_no(at(vap, (prefix + "11v").c_str())),
               std::to_string(at(vap, "fbt-links").size()), cell(vap, "ssid")});
}

}  // namespace

void refuse_failure(const std::string& answer) {
  parse_success(answer);
}

// The management's requests

std::string tell_common(const std::string& answer) {
  Table table({"LOCATION", "CONNECTED", "KNOWN"});
  const json parsed = parse(answer);
  for (const json& row : array_at(parsed, "array"))
    table.add({cell(row, "ap-location"), cell(row, "ap-morvane"), cell(row, "ap-count")});
  return table.text();
}

std::string tell_sessions(const std::string& answer) {
  Table table({"LOCATION", "AP", "IP", "SESSION", "BOARD"});
  const json parsed = parse(answer);
  for (const json& row : array_at(parsed, "array"))
    table.add({cell(row, "ap-location"), cell(row, "ap-mac"), cell(row, "ap-ip"), cell(row, "session-id"),
               cell(row, "ap-board-type")});
  return table.text();
}

std::string tell_stat(const std::string& answer) {
  Table table({"BAND", "AP", "RADIO", "STATUS", "CHANNEL", "WIDTH", "POWER", "EIRP", "CLIENTS", "LOCKED", "CHANNELS"});
  const json parsed = parse(answer);
  for (const char* band : bands)
    for (const json& row : at(parsed, band))
      table.add({band, cell(row, "ap-mac"), cell(row, "radio-mac"), cell(row, "status"), cell(row, "channel"),
                 cell(row, "bandwidth"), cell(row, "power"), cell(row, "eirp"), cell(row, "assoc-clients"),
                 locks_of(row), list(at(row, "available-channels"))});
  return table.text();
}

std::string tell_roaming(const std::string& answer) {
  Table table({"BAND", "AP", "VAP", "802.11K", "802.11R", "802.11V", "LINKS", "SSID"});
  const json parsed = parse(answer);
  for (const char* band : bands)
    for (const json& row : array_at(parsed, band))
      table.add({band, cell(row, "ap-mac"), cell(row, "vap-mac"), yes_or_no(at(row, "80211k-enable")),
                 yes_or_no(at(row, "80211r-enable")), yes_or_no(at(row, "80211v-enable")), cell(row, "fbt-links"),
                 cell(row, "ssid")});
  return table.text();
}

std::string tell_ap(const std::string& answer) {
  Table radios({"BAND", "RADIO", "STATUS", "CHANNEL", "WIDTH", "POWER", "CHANGED", "MIN", "MAX", "EIRP", "CONFLICT",
                "LOCKED", "CHANNELS"});
  Table vaps({"BAND", "VAP", "802.11K", "802.11R", "802.11V", "LINKS", "SSID"});
  const json parsed = parse(answer);
  for (const char* band : bands) {
    const json& radio = at(parsed, band);
    if (!radio.is_object()) continue;
    radios.add({band, cell(radio, "radio-mac"), cell(radio, "status"), cell(radio, "channel"), cell(radio, "bandwidth"),
                cell(radio, "power"), cell(radio, "power-changed"), cell(radio, "min-power"), cell(radio, "max-power"),
                cell(radio, "eirp"), yes_or_no(at(radio, "conflicted")), locks_of(radio),
                list(at(radio, "available-channels"))});
    add_vaps(vaps, band, at(radio, "ssids"), "vap-mac", "802");
  }
  return facts({{"AP", cell(parsed, "ap-mac")}, {"location", cell(parsed, "ap-location")}}) + "\n" + radios.text() +
         "\n" + vaps.text();
}

std::string tell_reports(const std::string& answer) {
  Table table({"TIME", "BAND", "AP", "IP", "BOARD", "CHANNEL", "POWER", "EIRP"});
  const json parsed = parse(answer);
  for (const char* band : bands)
    for (const json& row : array_at(parsed, band))
      table.add({cell(row, "report-time"), band, cell(row, "ap-mac"), cell(row, "ip-addr"), cell(row, "board-type"),
                 change(row, "channel"), change(row, "power"), change(row, "eirp")});
  return table.text();
}

// The server's own interface

std::string tell_api_sessions(const std::string& answer) {
  Table table({"SESSION", "IP"});
  const json parsed = parse_success(answer);
  for (const json& row : array_at(parsed, "websock-sessions")) table.add({cell(row, "id"), cell(row, "peer")});
  return table.text();
}

std::string tell_api_sessions_removed(const std::string& answer) {
  parse_success(answer);
  return "ended, where there were such sessions\n";
}

std::string tell_api_groups(const std::string& answer) {
  Table table({"DOMAIN", "CONNECTED", "UNANSWERED", "DELETED", "SETTINGS"});
  const json parsed = parse_success(answer);
  for (const json& row : array_at(parsed, "domains")) {
    const std::string is_common = yes_or_no(at(row, "common-config"));
    table.add({cell(row, "name"), cell(row, "ap-count"), cell(row, "unanswered-ap-count"),
               cell(row, "deleted-ap-count"),
               is_common == "yes"  ? "common"
               : is_common == "no" ? "own"
                                   : ""});
  }
  return table.text();
}

std::string tell_api_group(const std::string& answer) {
  Table table({"STATE", "AP", "BOARD", "HW", "SERIAL"});
  const json parsed = parse_success(answer);
  const json& details = object_at(parsed, "details");
  for (const auto& [key, state] :
       {std::pair{"aps", "connected"}, {"unanswered-aps", "unanswered"}, {"deleted-aps", "deleted"}})
    for (const json& ap : at(details, key))
      table.add({state, cell(ap, "mac"), cell(ap, "board"), cell(ap, "hw"), cell(ap, "serial")});
  return facts({{"domain", cell(details, "name")},
                {"status", status_text(at(details, "rrm-status"))},
                {"802.11r", cell(details, "fbt-status")},
                {"queue", cell(details, "queue-size")}}) +
         "\n" + table.text();
}

std::string tell_api_ap(const std::string& answer) {
  const json parsed = parse_success(answer);
  for (const auto& [key, state] :
       {std::pair{"active-ap", "connected"}, {"unanswered-ap", "unanswered"}, {"deleted-ap", "deleted"}}) {
    const json& ap = at(parsed, key);
    if (!ap.is_object()) continue;
    Table radios({"RADIO", "BAND", "MAC", "STATUS", "CHANNEL", "WIDTH", "POWER", "CHANGED", "MIN", "MAX", "EIRP",
                  "CLIENTS", "LOCKED", "CHANNELS"});
    Table vaps({"RADIO", "VAP", "802.11K", "802.11R", "802.11V", "LINKS", "SSID"});
    for (const json& radio : at(at(ap, "radios"), "interfaces")) {
      radios.add({cell(radio, "id"), cell(radio, "band"), cell(radio, "mac"), up_or_down(at(radio, "status")),
                  cell(radio, "channel"), cell(radio, "bandwidth"), cell(radio, "power"), cell(radio, "power-changed"),
                  cell(radio, "min-power"), cell(radio, "max-power"), cell(radio, "eirp"),
                  std::to_string(at(radio, "assoc_clients").size()), locks_of(radio),
                  list(at(radio, "available-channels"))});
      add_vaps(vaps, cell(radio, "id"), at(radio, "vaps"), "mac", "use_802dot");
    }
    return facts({{"AP", cell(ap, "mac")},
                  {"state", state},
                  {"neighbours", std::to_string(at(ap, "visible-members").size())},
                  {"foreign", std::to_string(at(ap, "visible-rogue").size())}}) +
           "\n" + radios.text() + "\n" + vaps.text();
  }
  throw std::runtime_error("zal_rrm answered nonsense: no access point");
}

std::string tell_api_optimization(const std::string& answer) {
  parse_success(answer);
  return "optimisation ordered\n";
}

std::string tell_api_reports(const std::string& answer) {
  Table table({"TIME", "REPORT"});
  const json parsed = parse_success(answer);
  for (const json& row : array_at(parsed, "data")) table.add({cell(row, "date"), cell(row, "id")});
  return table.text();
}

std::string tell_api_report(const std::string& answer) {
  Table table({"AP", "RADIO", "MAC", "CHANNEL", "POWER", "EIRP", "WIDTH"});
  const json parsed = parse_success(answer);
  const json& report = object_at(parsed, "report");
  for (const json& ap : array_at(report, "details"))
    for (const json& radio : at(ap, "radio_interfaces")) {
      const json& before = at(radio, "before");
      const json& after = at(radio, "after");
      table.add({cell(ap, "ap_mac"), cell(radio, "radio_id"), cell(radio, "radio_mac"),
                 change(cell(before, "channel"), cell(after, "channel")),
                 change(cell(before, "power"), cell(after, "power")), change(cell(before, "eirp"), cell(after, "eirp")),
                 cell(radio, "bandwidth")});
    }
  return facts({{"report", cell(report, "id")}, {"domain", cell(report, "domain")}, {"time", cell(report, "date")}}) +
         "\n" + table.text();
}

}  // namespace controller
