#include "controller/zalctl_status.h"

#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "controller/answers.h"
#include "zal/IMsg.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;
using zal::bus::Fields;

// Nobody who asks for the state waits long for a daemon that hangs.
constexpr std::int64_t patience_seconds = 3;

// What a running daemon says, each with the reason where it says nothing.
struct DaemonStatus {
  std::string role = "none";
  std::string domains;  // the answer's text; empty if there is none
  std::string failure;
};

std::string role_of(const Fields& reply) {
  using Status = zal::IPC_MSG__RRM_API_VRRP_STATUS_RESP;
  if (reply.number("result") != 1) return "none";
  const auto role = reply.number("role").value_or(Status::none);
  return role == Status::master ? "master" : role == Status::backup ? "backup" : "none";
}

Fields ask_soon(const CtlBase& base, int type, int reply_type) {
  return ask_daemon(base, {{"type", std::int64_t{type}}}, reply_type, patience_seconds);
}

// A daemon that does not answer is a state like others, which is what the person asked for.
DaemonStatus ask_status(const CtlBase& base) {
  DaemonStatus status;
  try {
    status.role = role_of(ask_soon(base, zal::IPC_MSG__RRM_API_VRRP_STATUS::type_number,
                                   zal::IPC_MSG__RRM_API_VRRP_STATUS_RESP::type_number));
    if (status.role == "none") return status;
    const Fields reply =
        ask_soon(base, zal::IPC_MSG__RRM_API_GROUPS::type_number, zal::IPC_MSG__RRM_API_GROUPS_RESP::type_number);
    const std::string* const text = reply.text("text");
    refuse_failure(text ? *text : "");
    status.domains = *text;
  } catch (const std::runtime_error& e) {
    status.failure = e.what();
    if (status.role == "none") status.role = "unknown";
  }
  return status;
}

std::string duration_text(std::int64_t seconds) {
  char text[64];
  std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
  return text;
}

json domains_of(const DaemonStatus& daemon) {
  const json answer = json::parse(daemon.domains, nullptr, false);
  return answer.is_object() ? answer.value("domains", json::array()) : json::array();
}

void print_json(Fields answer, const DaemonStatus& daemon) {
  answer.erase("ok");
  answer.set("role", daemon.role);
  if (!daemon.failure.empty()) answer.set("failure", daemon.failure);
  json object = json::parse(to_json(answer));
  object["domains"] = domains_of(daemon);
  object["ok"] = true;
  print(object.dump(-1, ' ', false, json::error_handler_t::replace));
}

void print_text(const Fields& answer, const DaemonStatus& daemon) {
  print("zal_rrm     " + *answer.text("phase"));
  print("pid         " + (answer.number("pid") == 0 ? "none" : std::to_string(*answer.number("pid"))));
  print("up-time     " + duration_text(*answer.number("uptime")));
  print("VRRP state  " + std::to_string(*answer.number("vrrp")));
  print("role        " + daemon.role + (daemon.failure.empty() ? "" : " (" + daemon.failure + ")"));
  if (!domains_of(daemon).empty()) print_lines("\n" + tell_api_groups(daemon.domains));
}

}  // namespace

void tell_status(const CtlBase& base) {
  const Fields answer = ask(base, {{"command", "status"}});
  const DaemonStatus daemon =
      answer.text("phase") && *answer.text("phase") == "running" ? ask_status(base) : DaemonStatus();
  if (base.json)
    print_json(answer, daemon);
  else
    print_text(answer, daemon);
}

}  // namespace controller
