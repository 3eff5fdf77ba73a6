#include "SetupChanges.h"

#include <vector>

#include "Config.h"
#include "RRM.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "trace.h"

namespace {

// The edits read their settings from JSON, as from any other asker.
template <class Settings>
rrm::JsonReader as_json(const Settings& settings) {
  rrm::JsonWriter object;
  rrm::write_settings(settings, object);
  return rrm::JsonReader(object.to_string());
}

// What an edit tells about itself.
struct Outcome {
  rrm::JsonWriter answer;
  rrm::JsonWriter invalid_parameters = rrm::JsonWriter::array(answer, "invalid_parameters");
  bool failed = false;
  bool changed = false;
};

}  // namespace

void SetupChanges::apply(const rrm::GlobalConfig& next) {
  config_.compare(
      next, [&] { set_global(next); }, [&](const std::string& name) { set_pattern(name, next); },
      [&](const std::string& name) { add_pattern(name, next); }, [&](const std::string& name) { remove_pattern(name); },
      [&](const std::string& domain) { set_domain(domain, next); },
      [&](const std::string& domain) { add_domain(domain, next); },
      [&](const std::string& domain) { remove_domain(domain); });
}

void SetupChanges::set_global(const rrm::GlobalConfig& next) {
  Outcome outcome;
  const bool changed = config_.set_global(as_json(next.global()), outcome.invalid_parameters, outcome.failed);
  report("set global", true, outcome.failed, outcome.invalid_parameters);
  if (!changed) return;
  RRM_LOG(rrm::LOG_TRACE, "Global config changed");
  server_.restart();
}

void SetupChanges::set_pattern(const std::string& name, const rrm::GlobalConfig& next) {
  Outcome outcome;
  const auto settings = as_json(*next.pattern(name));
  const bool done = config_.pattern_change(name, settings, outcome.invalid_parameters, outcome.failed, outcome.changed);
  report("set pattern " + name, done, outcome.failed, outcome.invalid_parameters);
  drop_workers(domains_of(name), outcome.changed);
}

void SetupChanges::add_pattern(const std::string& name, const rrm::GlobalConfig& next) {
  Outcome outcome;
  const auto settings = as_json(*next.pattern(name));
  const bool done = config_.pattern_add(name, settings, outcome.invalid_parameters, outcome.failed, outcome.changed);
  report("add pattern " + name, done, outcome.failed, outcome.invalid_parameters);
  drop_workers(domains_of(name), outcome.changed);
}

void SetupChanges::remove_pattern(const std::string& name) {
  Outcome outcome;
  const auto domains = domains_of(name);
  const bool done = config_.pattern_remove(name, {domains.begin(), domains.end()}, outcome.changed);
  report("remove pattern " + name, done, outcome.failed, outcome.invalid_parameters);
  drop_workers(domains, outcome.changed);
}

void SetupChanges::set_domain(const std::string& domain, const rrm::GlobalConfig& next) {
  Outcome outcome;
  const rrm::DomainInfo info = *next.domain_info(domain);
  const bool done = config_.domain_change(domain, info.pattern, info.time_zone, info.time_zone_offset, outcome.changed);
  report("set domain " + domain, done, outcome.failed, outcome.invalid_parameters);
  drop_workers({domain}, outcome.changed);
}

void SetupChanges::add_domain(const std::string& domain, const rrm::GlobalConfig& next) {
  Outcome outcome;
  const rrm::DomainInfo info = *next.domain_info(domain);
  const bool done = config_.domain_add(domain, info.pattern, info.time_zone, info.time_zone_offset,
                                       outcome.invalid_parameters, outcome.changed);
  report("add domain " + domain, done, outcome.failed, outcome.invalid_parameters);
  drop_workers({domain}, outcome.changed);
}

void SetupChanges::remove_domain(const std::string& domain) {
  Outcome outcome;
  const bool done = config_.domain_remove(domain, outcome.changed);
  report("remove domain " + domain, done, outcome.failed, outcome.invalid_parameters);
  drop_workers({domain}, outcome.changed);
}

std::list<std::string> SetupChanges::domains_of(const std::string& pattern) const {
  std::list<std::string> domains;
  config_.for_each_domain([&](const std::string& domain, const rrm::DomainInfo& info) {
    if (info.pattern == pattern) domains.push_back(domain);
  });
  return domains;
}

void SetupChanges::drop_workers(const std::list<std::string>& domains, bool changed) {
  if (changed) server_.remove_workers(domains);
}

void SetupChanges::report(const std::string& step, bool done, bool failed,
                          const rrm::JsonWriter& invalid_parameters) const {
  if (!done || failed)
    trace.warn("Setup: '%s' refused, invalid parameters: %s", step.c_str(), invalid_parameters.to_string());
}
