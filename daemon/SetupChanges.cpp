#include "SetupChanges.h"

#include "Config.h"
#include "answers.h"
#include "commands.h"
#include "trace.h"

namespace {

using rrm::JsonReader;

// Nothing of what the edit asked for was done. No edit here adds what is there already or removes what is not.
bool is_refused(const JsonReader& answer) {
  const int invalid = answer.get("invalid_parameters").size();
  return answers::is_failure(answer) || invalid != 0;
}

}  // namespace

void SetupChanges::apply(const rrm::GlobalConfig& next) {
  present_.compare(
      next, [&] { issue("set global", commands::set_global(next)); },
      [&](const std::string& name) { issue("set pattern " + name, commands::set_pattern(next, name)); },
      [&](const std::string& name) { issue("add pattern " + name, commands::add_pattern(next, name)); },
      [&](const std::string& name) { issue("remove pattern " + name, commands::remove_pattern(name)); },
      [&](const std::string& domain) { issue("set domain " + domain, commands::set_domain(next, domain)); },
      [&](const std::string& domain) { issue("add domain " + domain, commands::add_domain(next, domain)); },
      [&](const std::string& domain) { issue("remove domain " + domain, commands::remove_domain(domain)); });
}

void SetupChanges::issue(const std::string& step, const std::string& command) {
  const ApiZAL::Answer text = api_.run(command);
  const JsonReader answer(text ? text->c_str() : nullptr);
  if (text && !is_refused(answer)) return;
  const JsonReader rejected = answer.get("invalid_parameters");
  trace.warn("Setup: '%s' refused, invalid parameters: %s", step.c_str(),
             rejected.empty() ? "[]" : rejected.to_string());
}
