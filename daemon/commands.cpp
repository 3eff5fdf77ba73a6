#include "commands.h"

#include <functional>

#include "Config.h"
#include "json/JsonWriter.h"

namespace commands {
namespace {

using rrm::JsonWriter;

constexpr const char* edit_version = "2.0";

using Fill = std::function<void(JsonWriter&)>;

std::string question(const char* family, const Fill& fill) {
  JsonWriter command;
  JsonWriter body = JsonWriter::object(command, family);
  fill(body);
  return command.to_string();
}

std::string rrm_question(const Fill& fill) {
  return question("rrm", fill);
}

std::string about_domain(const std::string& domain, const Fill& fill) {
  return rrm_question([&](JsonWriter& body) {
    body.add_string("domain", domain);
    fill(body);
  });
}

// One edit of a named section, or of the one that has no name.
std::string edit(const char* operation, const char* level, const std::string* name, const Fill& fill) {
  JsonWriter command(edit_version);
  JsonWriter body = JsonWriter::object(command, "cfg");
  body.add_string("operation", operation);
  body.add_string("level", level);
  if (name != nullptr) body.add_string(level, *name);
  if (fill) {
    JsonWriter config = JsonWriter::object(body, "config");
    fill(config);
  }
  return command.to_string();
}

std::string edit_pattern(const char* operation, const rrm::GlobalConfig& next, const std::string& pattern) {
  return edit(operation, "pattern", &pattern,
              [&](JsonWriter& config) { rrm::write_settings(*next.pattern(pattern), config); });
}

// A domain without a time zone of its own is told none: an empty one would be refused.
std::string edit_domain(const char* operation, const rrm::GlobalConfig& next, const std::string& domain) {
  const rrm::DomainInfo info = *next.domain_info(domain);
  return edit(operation, "domain", &domain, [&](JsonWriter& config) {
    config.add_string("pattern", info.pattern);
    if (!info.time_zone.empty()) config.add_string("time_zone", info.time_zone);
  });
}

}  // namespace

std::string sessions() {
  return rrm_question([](JsonWriter& body) { body.add_string("sessions", "1"); });
}

std::string drop_sessions(const std::vector<int>& ids) {
  return rrm_question([&](JsonWriter& body) {
    body.add_string("drop_session", "true");
    JsonWriter list = JsonWriter::array(body, "ids");
    for (const int id : ids) list.add_int(nullptr, id);
  });
}

std::string domains() {
  return rrm_question([](JsonWriter&) {});
}

std::string domain(const std::string& domain) {
  return about_domain(domain, [](JsonWriter&) {});
}

std::string ap(const std::string& domain, const std::string& mac) {
  return about_domain(domain, [&](JsonWriter& body) { body.add_string("ap", mac); });
}

std::string ap_fbt(const std::string& domain, const std::string& mac) {
  return about_domain(domain, [&](JsonWriter& body) {
    body.add_string("ap", mac);
    JsonWriter::object(body, "fbt-links");
  });
}

std::string optimize(const std::string& domain) {
  return about_domain(domain, [](JsonWriter& body) { body.add_string("start_optimization", "true"); });
}

std::string report_list(const std::string& domain, const std::string& date_start, const std::string& date_finish) {
  return about_domain(domain, [&](JsonWriter& body) {
    JsonWriter period = JsonWriter::object(body, "report_list");
    period.add_string("date_start", date_start);
    period.add_string("date_finish", date_finish);
  });
}

std::string report(const std::string& domain, const std::string& id) {
  return about_domain(domain, [&](JsonWriter& body) { body.add_string("report", id); });
}

std::string last_report(const std::string& domain) {
  return about_domain(domain, [&](JsonWriter& body) { body.add_string("last_report", domain); });
}

std::string configured_domains() {
  return question("cfg", [](JsonWriter& body) {
    body.add_string("operation", "get");
    body.add_string("level", "domain");
  });
}

std::string role() {
  return question("vrrp", [](JsonWriter&) {});
}

std::string role_backup() {
  return question("vrrp", [](JsonWriter& body) { body.add_string("role", "backup"); });
}

std::string role_master() {
  return question("vrrp", [](JsonWriter& body) { body.add_string("role", "master"); });
}

// The files are texts of JSON already: they are joined, not read and written again.
std::string role_master(const std::vector<std::string>& domains) {
  std::string list;
  for (const std::string& domain : domains) list += (list.empty() ? "" : ",") + domain;
  return R"({"vrrp":{"role":"master","domains":[)" + list + "]}}";
}

std::string set_global(const rrm::GlobalConfig& next) {
  return edit("set", "global", nullptr, [&](JsonWriter& config) { rrm::write_settings(next.global(), config); });
}

std::string set_pattern(const rrm::GlobalConfig& next, const std::string& pattern) {
  return edit_pattern("set", next, pattern);
}

std::string add_pattern(const rrm::GlobalConfig& next, const std::string& pattern) {
  return edit_pattern("add", next, pattern);
}

std::string remove_pattern(const std::string& pattern) {
  return edit("remove", "pattern", &pattern, nullptr);
}

std::string set_domain(const rrm::GlobalConfig& next, const std::string& domain) {
  return edit_domain("set", next, domain);
}

std::string add_domain(const rrm::GlobalConfig& next, const std::string& domain) {
  return edit_domain("add", next, domain);
}

std::string remove_domain(const std::string& domain) {
  return edit("remove", "domain", &domain, nullptr);
}

}  // namespace commands
