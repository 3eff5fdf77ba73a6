#include "Api.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "WebsockServerWorker.h"
#include "core/log.h"
#include "core/version.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"
#include "report_optimize_tpc_dca.h"

namespace rrm {
namespace {

constexpr const char* api_version = "2.1";

std::string text_of(const JsonReader& object, const char* key) {
  return object.get_string(key);
}

// Editing the configuration. A handler that says false has nothing to answer.

// One command on its way: what it asks, what is answered, and what has to follow it.
struct Edit {
  GlobalConfig& config;
  const JsonReader& request;
  const std::string level;
  JsonWriter answer{api_version};
  bool global_changed = false;
  bool changed = false;
  std::list<std::string> restart_domains = {};
};

// What the request says of a domain: the pattern it is bound to and its time zone.
struct Binding {
  std::string pattern;
  std::string time_zone;
  std::int32_t time_zone_offset = 0;
};

void form_restart_domains_list(const GlobalConfig& config, const std::string& pattern,
                               std::list<std::string>& domains) {
  config.for_each_domain([&](const std::string& domain, const DomainInfo& info) {
    if (info.pattern == pattern) domains.push_back(domain);
  });
}

void write_pattern_names(const GlobalConfig& config, JsonWriter& answer) {
  JsonWriter patterns = JsonWriter::array(answer, "patterns");
  config.for_each_pattern([&](const std::string& name, const DomainConfig&) {
    JsonWriter::object(patterns, nullptr).add_string("name", name);
  });
}

void write_domain_bindings(const GlobalConfig& config, JsonWriter& answer) {
  JsonWriter domains = JsonWriter::array(answer, "domains");
  config.for_each_domain([&](const std::string& name, const DomainInfo& info) {
    JsonWriter domain = JsonWriter::object(domains, nullptr);
    domain.add_string("name", name);
    domain.add_string("config", info.pattern);
    domain.add_string("time_zone", info.time_zone);
  });
}

bool get_pattern(Edit& edit) {
  if (!edit.request.has("pattern")) {
    write_pattern_names(edit.config, edit.answer);
    return true;
  }
  const auto settings = edit.config.pattern(text_of(edit.request, "pattern"));
  if (!settings) return false;
  write_settings(*settings, edit.answer);
  return true;
}

bool process_cfg_get_command(Edit& edit) {
  if (edit.level == "global") write_settings(edit.config.global(), edit.answer);
  if (edit.level == "pattern") return get_pattern(edit);
  if (edit.level == "domain") write_domain_bindings(edit.config, edit.answer);
  return true;
}

// True with the binding; false, with the offender among the invalid parameters, for a bad time zone.
bool read_time_zone(const JsonReader& section, Binding& binding, JsonWriter& invalid_parameters) {
  bool failed = false;
  bool changed = false;
  return GlobalConfig::get_time_zone(section, binding.time_zone, binding.time_zone_offset, failed, changed,
                                     invalid_parameters);
}

bool set_global(Edit& edit, const JsonReader& section, JsonWriter& invalid_parameters) {
  bool failed = false;
  edit.global_changed = edit.config.set_global(section, invalid_parameters, failed);
  if (edit.global_changed) RRM_LOG(LOG_TRACE, "Global config changed");
  return true;
}

bool set_pattern(Edit& edit, const JsonReader& section, JsonWriter& invalid_parameters) {
  const std::string pattern = text_of(edit.request, "pattern");
  if (pattern.empty()) return false;
  edit.answer.add_string("pattern", pattern);
  bool failed = false;
  if (!edit.config.pattern_change(pattern, section, invalid_parameters, failed, edit.changed)) return false;
  form_restart_domains_list(edit.config, pattern, edit.restart_domains);
  return true;
}

bool set_domain(Edit& edit, const JsonReader& section, JsonWriter& invalid_parameters) {
  const std::string domain = text_of(edit.request, "domain");
  Binding binding{text_of(section, "pattern"), "", 0};
  if (domain.empty() || binding.pattern.empty()) return false;
  if (!read_time_zone(section, binding, invalid_parameters)) return true;
  if (!edit.config.domain_change(domain, binding.pattern, binding.time_zone, binding.time_zone_offset, edit.changed)) {
    return false;
  }
  edit.restart_domains.push_back(domain);
  return true;
}

bool process_cfg_set_command(Edit& edit) {
  if (!edit.request.has("config")) return false;
  const JsonReader section = edit.request.get("config");
  JsonWriter invalid_parameters = JsonWriter::array(edit.answer, "invalid_parameters");
  edit.answer.add_string("operation", "set");
  edit.answer.add_string("level", edit.level);
  if (edit.level == "global") return set_global(edit, section, invalid_parameters);
  if (edit.level == "pattern") return set_pattern(edit, section, invalid_parameters);
  return edit.level == "domain" && set_domain(edit, section, invalid_parameters);
}

bool add_pattern(Edit& edit, const JsonReader& section, JsonWriter& invalid_parameters) {
  const std::string pattern = text_of(edit.request, "pattern");
  if (pattern.empty()) return false;
  edit.answer.add_string("pattern", pattern);
  bool failed = false;
  const bool added = edit.config.pattern_add(pattern, section, invalid_parameters, failed, edit.changed);
  if (added) form_restart_domains_list(edit.config, pattern, edit.restart_domains);
  edit.answer.add_string("add_status", added ? "Success" : "Pattern exists");
  return true;
}

bool add_domain(Edit& edit, const JsonReader& section, JsonWriter& invalid_parameters) {
  const std::string domain = text_of(edit.request, "domain");
  if (domain.empty() || !section.has("pattern")) return false;
  Binding binding{text_of(section, "pattern"), "", 0};
  if (!read_time_zone(section, binding, invalid_parameters)) return true;
  edit.answer.add_string("domain", domain);
  const bool added = edit.config.domain_add(domain, binding.pattern, binding.time_zone, binding.time_zone_offset,
                                            invalid_parameters, edit.changed);
  if (added) edit.restart_domains.push_back(domain);
  edit.answer.add_string("add_status", added ? "Success" : "Domain exists or chosen pattern not exists.");
  return true;
}

bool process_cfg_add_command(Edit& edit) {
  if (!edit.request.has("config")) return false;
  const JsonReader section = edit.request.get("config");
  JsonWriter invalid_parameters = JsonWriter::array(edit.answer, "invalid_parameters");
  edit.answer.add_string("operation", "add");
  if (edit.level == "pattern") return add_pattern(edit, section, invalid_parameters);
  if (edit.level == "domain") return add_domain(edit, section, invalid_parameters);
  return true;
}

// The pattern's domains go with it.
bool remove_pattern(Edit& edit) {
  const std::string pattern = text_of(edit.request, "pattern");
  if (pattern.empty()) return false;
  edit.answer.add_string("pattern", pattern);
  form_restart_domains_list(edit.config, pattern, edit.restart_domains);
  const bool removed =
      edit.config.pattern_remove(pattern, {edit.restart_domains.begin(), edit.restart_domains.end()}, edit.changed);
  edit.answer.add_int("remove_status", removed ? 0 : 1);
  return true;
}

bool remove_domain(Edit& edit) {
  const std::string domain = text_of(edit.request, "domain");
  if (domain.empty()) return false;
  edit.answer.add_string("domain", domain);
  const bool removed = edit.config.domain_remove(domain, edit.changed);
  if (removed) edit.restart_domains.push_back(domain);
  edit.answer.add_int("remove_status", removed ? 0 : 1);
  return true;
}

bool process_cfg_remove_command(Edit& edit) {
  edit.answer.add_string("operation", "remove");
  if (edit.level == "pattern") return remove_pattern(edit);
  if (edit.level == "domain") return remove_domain(edit);
  return true;
}

// An operation that nobody knows changes nothing, and is answered with the version alone.
bool run_edit(Edit& edit) {
  static const std::map<std::string, bool (*)(Edit&)> handlers = {
      {"get", process_cfg_get_command},
      {"set", process_cfg_set_command},
      {"add", process_cfg_add_command},
      {"remove", process_cfg_remove_command},
  };
  const auto handler = handlers.find(text_of(edit.request, "operation"));
  return handler == handlers.end() || handler->second(edit);
}

// Asking

JsonWriter answer_of_server(const RRM& rrm) {
  JsonWriter answer(api_version);
  answer.add_string("server", rrm.configuration().hostname());
  answer.add_string("morvane_version", build_version);
  return answer;
}

void write_status(JsonWriter& answer, bool success) {
  answer.add_string("status", success ? "success" : "failure");
}

// A domain that has a worker exists, also if the configuration has just lost it.
bool domain_exists(const RRM& rrm, const std::string& domain) {
  return rrm.find_worker(domain) != nullptr || rrm.configuration().is_domain_exist(domain);
}

void process_rrm_cmd_get_report(const RRM& rrm, const JsonReader& request, JsonWriter& answer) {
  const std::string path = rrm.configuration().global().reports_path;
  const int error = reports::get_radio_report(answer, text_of(request, "report"), path);
  if (error != 0) RRM_LOG(LOG_TRACE, "Error call 'reports::get_radio_report'. Exit code: %d.", error);
  write_status(answer, error == 0);
}

void process_rrm_cmd_get_report_list(const RRM& rrm, const JsonReader& request, JsonWriter& answer) {
  const std::string domain = text_of(request, "domain");
  const JsonReader period = request.get("report_list");
  const std::string path = rrm.configuration().global().reports_path;
  const int error = reports::get_radio_report_list(answer, domain, path, text_of(period, "date_start"),
                                                   text_of(period, "date_finish"), domain_exists(rrm, domain));
  if (error != 0) RRM_LOG(LOG_TRACE, "errors = %d", error);
  write_status(answer, error == 0);
}

void process_rrm_cmd_get_last_report(const RRM& rrm, const JsonReader& request, JsonWriter& answer) {
  const std::string domain = text_of(request, "domain");
  const std::string path = rrm.configuration().global().reports_path;
  const int error = reports::get_last_radio_report(answer, domain, path, domain_exists(rrm, domain));
  if (error != 0) RRM_LOG(LOG_TRACE, "Error call 'reports::get_last_radio_report'. Exit code: %d.", error);
  write_status(answer, error == 0);
}

void query_ap(const RrmWorker& worker, const JsonReader& request, JsonWriter& answer) {
  const auto form = request.has("fbt-links") ? RrmWorker::ApForm::links : RrmWorker::ApForm::whole;
  if (!worker.report_ap(get_mac(request, "ap"), form, answer)) answer.add_string("error", "ap not found");
}

// Requires: called in execute_locked.
void query_worker(RrmWorker& worker, const JsonReader& request, JsonWriter& answer) {
  if (request.has("ap")) {
    query_ap(worker, request, answer);
  } else if (request.has("start_optimization")) {
    write_status(answer, text_of(request, "start_optimization") == "true" && worker.force_optimization());
  } else {
    worker.report_status(answer);
  }
}

void process_domain_query(const RRM& rrm, const JsonReader& request, JsonWriter& answer) {
  const auto worker = std::dynamic_pointer_cast<RrmWorker>(rrm.find_worker(text_of(request, "domain")));
  if (worker == nullptr) {
    answer.add_string("error", "domain not found");
  } else {
    worker->execute_locked([&] { query_worker(*worker, request, answer); });
  }
}

void process_domain_request(const RRM& rrm, const JsonReader& request, JsonWriter& answer) {
  if (request.has("report")) return process_rrm_cmd_get_report(rrm, request, answer);
  if (request.has("report_list")) return process_rrm_cmd_get_report_list(rrm, request, answer);
  if (request.has("last_report")) return process_rrm_cmd_get_last_report(rrm, request, answer);
  process_domain_query(rrm, request, answer);
}

// One look at the table serves all numbers: an operator may name every session of a full server.
void drop_sessions(RRM& rrm, const JsonReader& ids) {
  const auto websocket = std::dynamic_pointer_cast<WebsockServerWorker>(rrm.websocket());
  if (websocket == nullptr) return;
  std::unordered_multimap<std::uint32_t, BaseSession> sessions;
  for (const auto& session : websocket->sessions_snapshot())
    sessions.emplace(session->id, static_cast<const BaseSession&>(*session));
  for (int i = 0; i < ids.size(); ++i) {
    const auto [first, last] = sessions.equal_range(static_cast<std::uint32_t>(ids.get_int(i)));
    for (auto named = first; named != last; ++named) {
      rrm.drop_session_at_websock_worker(named->second, true);
      rrm.drop_session_at_rrm_workers(named->second);
    }
  }
}

void write_sessions(const RRM& rrm, JsonWriter& answer) {
  Worker& websocket = *rrm.websocket();
  websocket.execute_locked([&] { websocket.report_details(answer); });
}

void write_domain_counts(const RRM& rrm, const RrmWorker& worker, JsonWriter& domain) {
  const RrmWorker::ApCounts counts = worker.ap_counts();
  domain.add_int("ap-count", counts.active);
  domain.add_int("unanswered-ap-count", counts.unanswered);
  domain.add_int("deleted-ap-count", counts.deleted);
  domain.add_int("common-config", worker.config() == rrm.configuration().common());
}

void write_overview(const RRM& rrm, JsonWriter& answer) {
  JsonWriter domains = JsonWriter::array(answer, "domains");
  for (const auto& worker : rrm.worker_snapshot()) {
    JsonWriter domain = JsonWriter::object(domains, nullptr);
    domain.add_string("name", worker->name);
    const auto domain_worker = std::dynamic_pointer_cast<RrmWorker>(worker);
    if (domain_worker == nullptr) continue;
    worker->execute_locked([&] { write_domain_counts(rrm, *domain_worker, domain); });
  }
}

}  // namespace

Api::Answer Api::process_cfg_command(RRM& rrm, const JsonReader& request) {
  if (!request.has("operation") || !request.has("level")) return std::nullopt;
  Edit edit{rrm.configuration(), request, text_of(request, "level")};
  if (!run_edit(edit)) return std::nullopt;
  edit.config.save();
  if (edit.global_changed) {
    rrm.restart();
  } else if (edit.changed) {
    rrm.remove_workers(edit.restart_domains);
  }
  return edit.answer.to_string();
}

Api::Answer Api::process_rrm_command(RRM& rrm, const JsonReader& request) {
  JsonWriter answer = answer_of_server(rrm);
  if (request.has("domain")) {
    process_domain_request(rrm, request, answer);
  } else if (request.has("drop_session")) {
    drop_sessions(rrm, request.get_array("ids"));
  } else if (request.has("sessions")) {
    if (get_flag(request, "sessions")) write_sessions(rrm, answer);
  } else {
    write_overview(rrm, answer);
  }
  return answer.to_string();
}

Api::Answer Api::process_vrrp_command(RRM& rrm, const JsonReader& request) {
  JsonWriter answer = answer_of_server(rrm);
  const std::string role = text_of(request, "role");
  if (!request.has("role")) {
    answer.add_string("role", RRM::role_name(rrm.role()));
  } else if (role == "master") {
    const JsonReader domains = request.get("domains");
    const auto text = domains.empty() ? nullptr : std::make_shared<std::string>(domains.to_string());
    rrm.update_vrrp_role(RRM::role_master, text);
  } else if (role == "backup") {
    rrm.update_vrrp_role(RRM::role_backup, nullptr);
  } else {
    write_status(answer, false);
    answer.add_string("error", "role not supported");
    return answer.to_string();
  }
  write_status(answer, true);
  return answer.to_string();
}

}  // namespace rrm
