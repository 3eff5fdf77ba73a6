#include "controller/zalctl_requests.h"

#include <limits>
#include <stdexcept>

#include "controller/Table.h"
#include "controller/answers.h"
#include "zal/IMsg.h"

namespace controller {

namespace {

using zal::IpcMsgMorvaneRequest;
using zal::bus::Fields;

using Tell = std::string (*)(const std::string& answer);

Fields message(int type) {
  return {{"type", std::int64_t{type}}};
}

template <class T>
void set_if_given(Fields& fields, const char* key, const std::optional<T>& value) {
  if (value) fields.set(key, *value);
}

// The management's requests

void request(const CtlBase& base, const RequestOptions& options, IpcMsgMorvaneRequest::Kind kind, Tell tell) {
  Fields asked = message(IpcMsgMorvaneRequest::type_number);
  asked.set("kind", std::int64_t{kind});
  set_if_given(asked, "location", options.location);
  set_if_given(asked, "mac", options.mac);
  set_if_given(asked, "band", options.band);
  set_if_given(asked, "days", options.days);
  const Fields reply = ask_daemon(base, asked, zal::IPC_MSG__RRM_MORVANE_RESP::type_number);
  const std::string* const error = reply.text("error");
  const std::string* const result = reply.text("result");
  if (reply.number("failed") != 0 || !result)
    throw std::runtime_error(error && !error->empty() ? printable(*error) : "zal_rrm refused the request");
  if (base.json)
    print(result->empty() ? "{}" : *result);
  else
    print_lines(tell(*result));
}

std::string tell_cleared(const std::string&) {
  return "sessions ended\n";
}

std::string tell_ordered(const std::string&) {
  return "optimisation ordered\n";
}

// The server's own interface

void ask_api(const CtlBase& base, const Fields& question, int reply_type, Tell tell) {
  const Fields reply = ask_daemon(base, question, reply_type);
  const std::string* const found = reply.text("text");
  const std::string text = found ? *found : "";
  if (base.json) {
    refuse_failure(text);
    print(text);
  } else {
    print_lines(tell(text));
  }
}

void api_remove_sessions(const CtlBase& base, const RequestOptions& options) {
  std::string filter;
  for (const auto id : options.ids) filter += (filter.empty() ? "" : ",") + std::to_string(id);
  Fields question = message(zal::IPC_MSG__RRM_API_REM_SESSIONS::type_number);
  question.set("filter", filter);
  ask_api(base, question, zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP::type_number, tell_api_sessions_removed);
}

void api_of_group(const CtlBase& base, const RequestOptions& options, int type, int reply_type, Tell tell) {
  Fields question = message(type);
  question.set("group", options.group);
  ask_api(base, question, reply_type, tell);
}

void api_ap(const CtlBase& base, const RequestOptions& options) {
  Fields question = message(zal::IPC_MSG__RRM_API_AP::type_number);
  question.set("group", options.group);
  question.set("ap", options.ap);
  ask_api(base, question, zal::IPC_MSG__RRM_API_AP_RESP::type_number, tell_api_ap);
}

void api_reports(const CtlBase& base, const RequestOptions& options) {
  Fields question = message(zal::IPC_MSG__RRM_API_REPORTS::type_number);
  question.set("group", options.group);
  question.set("date_start", report_time(options.from));
  question.set("date_finish", report_time(options.to));
  ask_api(base, question, zal::IPC_MSG__RRM_API_REPORTS_RESP::type_number, tell_api_reports);
}

void api_report(const CtlBase& base, const RequestOptions& options) {
  Fields question = message(zal::IPC_MSG__RRM_API_REPORT::type_number);
  question.set("group", options.group);
  question.set("report", options.report);
  ask_api(base, question, zal::IPC_MSG__RRM_API_REPORT_RESP::type_number, tell_api_report);
}

// In the 32 bits that the daemon counts days and sessions in.
CLI::Range non_negative() {
  return {std::int64_t{0}, std::int64_t{std::numeric_limits<std::int32_t>::max()}};
}

void add_band(CLI::App& command, RequestOptions& options) {
  command.add_option("--band", options.band, "only this band")
      ->check(CLI::IsMember({"2g", "5g", "6g"}))
      ->type_name("BAND");
}

void add_domain(CLI::App& command, RequestOptions& options) {
  command.add_option("DOMAIN", options.group, "the domain's name")->required()->type_name("");
}

}  // namespace

std::string report_time(const std::string& text) {
  constexpr std::size_t day = sizeof "2026-01-02" - 1;
  constexpr std::size_t second = sizeof "2026-01-02,03:04:05" - 1;
  if (text.size() == day) return text + ",00:00:00 UTC";
  return text.size() == second ? text + " UTC" : text;
}

void add_requests(CLI::App& app, const CtlBase& base, RequestOptions& options, CtlAction& action) {
  using Kind = IpcMsgMorvaneRequest::Kind;
  const auto add = [&](const char* name, const char* help, Kind kind, Tell tell) {
    auto* const command = app.add_subcommand(name, help);
    command->callback([&, kind, tell] { action = [&, kind, tell] { request(base, options, kind, tell); }; });
    return command;
  };
  const auto add_located = [&](const char* name, const char* help, Kind kind, Tell tell) {
    auto* const command = add(name, help, kind, tell);
    command->add_option("LOCATION", options.location, "the name of a domain")->required()->type_name("");
    return command;
  };

  add("common", "access points of each location: connected, and known to the controller", Kind::common, tell_common);
  add("sessions", "sessions of access points", Kind::sessions, tell_sessions)
      ->add_option("--location", options.location, "only of this location")
      ->type_name("LOCATION");
  add("clear-sessions", "end the session of one access point, or all", Kind::clear_sessions, tell_cleared)
      ->add_option("MAC", options.mac, "the access point's address; all without one")
      ->type_name("");
  add_located("stat", "the radios of a location", Kind::rrm_stat, tell_stat);
  auto* const roaming =
      add_located("roaming", "what a location offers to roaming clients", Kind::roaming_stat, tell_roaming);
  roaming->add_option("--mac", options.mac, "only this access point")->type_name("MAC");
  add_band(*roaming, options);
  add("ap", "one access point", Kind::ap, tell_ap)
      ->add_option("MAC", options.mac, "its address")
      ->required()
      ->type_name("");
  add_located("optimize", "optimise a location now", Kind::optimize, tell_ordered);
  auto* const reports =
      add_located("reports", "what the last optimisation changed, or those of some days", Kind::report, tell_reports);
  add_band(*reports, options);
  reports->add_option("--days", options.days, "all of today and so many days before")
      ->check(non_negative())
      ->type_name("N");
}

void add_api(CLI::App& app, const CtlBase& base, RequestOptions& options, CtlAction& action) {
  auto* const api = app.add_subcommand("api", "questions to the server's own interface");
  api->require_subcommand(1);
  const auto add = [&](const char* name, const char* help, const CtlAction& act) {
    auto* const command = api->add_subcommand(name, help);
    command->callback([&action, act] { action = act; });
    return command;
  };

  add("sessions", "sessions of access points", [&] {
    ask_api(base, message(zal::IPC_MSG__RRM_API_SESSIONS::type_number),
            zal::IPC_MSG__RRM_API_SESSIONS_RESP::type_number, tell_api_sessions);
  });
  add("remove-sessions", "end sessions", [&] { api_remove_sessions(base, options); })
      ->add_option("ID", options.ids, "sessions by their numbers, as 'api sessions' tells them")
      ->required()
      ->type_name("")
      ->check(non_negative());
  add("groups", "the running domains", [&] {
    ask_api(base, message(zal::IPC_MSG__RRM_API_GROUPS::type_number), zal::IPC_MSG__RRM_API_GROUPS_RESP::type_number,
            tell_api_groups);
  });
  add_domain(*add("group", "one domain",
                  [&] {
                    api_of_group(base, options, zal::IPC_MSG__RRM_API_GROUP::type_number,
                                 zal::IPC_MSG__RRM_API_GROUP_RESP::type_number, tell_api_group);
                  }),
             options);
  auto* const ap = add("ap", "one access point of a domain", [&] { api_ap(base, options); });
  add_domain(*ap, options);
  ap->add_option("MAC", options.ap, "its address")->required()->type_name("");
  add_domain(*add("optimize", "optimise a domain now",
                  [&] {
                    api_of_group(base, options, zal::IPC_MSG__RRM_API_START_OPT::type_number,
                                 zal::IPC_MSG__RRM_API_START_OPT_RESP::type_number, tell_api_optimization);
                  }),
             options);
  auto* const reports = add("reports", "the reports of a period", [&] { api_reports(base, options); });
  add_domain(*reports, options);
  reports->add_option("FROM", options.from, "2026-01-02 or 2026-01-02,03:04:05, in UTC")->required()->type_name("");
  reports->add_option("TO", options.to, "the same; not part of the period")->required()->type_name("");
  auto* const report = add("report", "one report", [&] { api_report(base, options); });
  add_domain(*report, options);
  report->add_option("ID", options.report, "as 'api reports' tells it")->required()->type_name("");
}

}  // namespace controller
