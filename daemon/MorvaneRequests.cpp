#include "MorvaneRequests.h"

#include <cstdio>
#include <optional>

#include "trace.h"

namespace {

using Request = zal::IpcMsgMorvaneRequest;

std::optional<zal::MacAddr> mac_of(const Request& request) {
  bool valid = false;
  const auto text = request.get_mac(valid);
  return text ? std::optional(zal::MacAddr::from_str(*text)) : std::nullopt;
}

std::optional<std::string> band_of(const Request& request) {
  bool valid = false;
  return request.get_band(valid);
}

// The server reads a name up to its first zero byte: to ask for such a location would be to ask for another one.
bool is_readable(const std::string& location) {
  return location.find('\0') == std::string::npos;
}

// What is wrong with the parameters that are there; empty if nothing is.
std::string invalid_parameters(const Request& request) {
  bool band_valid = false;
  bool mac_valid = false;
  const auto band = request.get_band(band_valid);
  const auto mac = request.get_mac(mac_valid);
  std::string wrong;
  if (band && !band_valid) wrong += " 'band' '" + *band + "'";
  if (mac && !mac_valid) wrong += " 'mac' '" + *mac + "'";
  const auto& location = request.get_location();
  if (location && !is_readable(*location)) wrong += " 'location' '" + *location + "'";
  return wrong.empty() ? "" : "invalid parameter:" + wrong;
}

std::string roaming_description(const Request& request, const std::string& location) {
  const auto mac = mac_of(request);
  return "roaming statistics location '" + location + "' [mac '" + (mac ? mac->to_string() : "") + "', band '" +
         band_of(request).value_or("") + "']";
}

std::string report_description(const Request& request, const std::string& location) {
  const auto& days = request.get_days();
  return "optimization reports, location '" + location + "' [band '" + band_of(request).value_or("") + "', days '" +
         (days ? std::to_string(*days) : "") + "']";
}

}  // namespace

zal::IpcMsgMorvaneResponse MorvaneRequests::serve(const Request& request) {
  Outcome outcome;
  outcome.error = invalid_parameters(request);
  if (outcome.error.empty()) act_and_log(request, outcome);
  zal::IpcMsgMorvaneResponse response;
  response.kind = request.kind;
  response.failed = outcome.done ? 0 : 1;
  *response.error = outcome.error;
  *response.result = outcome.answer;
  return response;
}

void MorvaneRequests::act_and_log(const Request& request, Outcome& outcome) {
  act(request, outcome);
  if (outcome.done) return;
  trace.warn("rrm request for %s failed, reason: '%s'", outcome.description.c_str(), outcome.error.c_str());
}

void MorvaneRequests::act(const Request& request, Outcome& outcome) {
  const auto& location = request.get_location();
  const auto mac = mac_of(request);
  switch (request.kind) {
    case Request::common:
      outcome.description = "common data";
      outcome.done = api_.morvane_common(outcome.answer, outcome.error);
      return;
    case Request::sessions:
      outcome.description = "active sessions, location '" + location.value_or("") + "'";
      outcome.done = api_.morvane_sessions(location, outcome.answer, outcome.error);
      return;
    case Request::clear_sessions:
      outcome.description = mac ? "clear ap " + mac->to_string() + " session" : "clear sessions";
      outcome.done = api_.morvane_clear_sessions(mac, outcome.answer, outcome.error);
      return;
    case Request::rrm_stat:
    case Request::roaming_stat:
    case Request::optimize:
    case Request::report:
      return act_on_location(request, outcome);
    case Request::ap:
      return act_on_ap(request, outcome);
    case Request::unknown:
      outcome.error = "unknown type given";
      return;
    default:
      return;
  }
}

void MorvaneRequests::act_on_location(const Request& request, Outcome& outcome) {
  const std::string location = request.get_location().value_or("");
  const bool given = request.get_location().has_value();
  if (!given) outcome.error = "no 'location' parameter given";
  switch (request.kind) {
    case Request::rrm_stat:
      outcome.description = "location '" + location + "' statistics";
      outcome.done = given && api_.morvane_rrm_stat(location, outcome.answer, outcome.error);
      return;
    case Request::roaming_stat:
      outcome.description = roaming_description(request, location);
      outcome.done = given && api_.morvane_roaming_stat(location, mac_of(request), band_of(request), outcome.answer,
                                                        outcome.error);
      return;
    case Request::optimize:
      outcome.description = "start optimization, location '" + location + "'";
      outcome.done = given && api_.morvane_optimize(location, outcome.answer, outcome.error);
      return;
    default:
      outcome.description = report_description(request, location);
      outcome.done =
          given && api_.morvane_report(location, band_of(request), request.get_days(), outcome.answer, outcome.error);
  }
}

void MorvaneRequests::act_on_ap(const Request& request, Outcome& outcome) {
  const auto mac = mac_of(request);
  outcome.description = "ap '" + (mac ? mac->to_string() : "") + "' data";
  if (mac) {
    outcome.done = api_.morvane_ap(*mac, outcome.answer, outcome.error);
  } else {
    outcome.error = "no 'mac' parameter given";
  }
}
