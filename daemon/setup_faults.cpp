#include "setup_faults.h"

#include "Config.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "trace.h"

namespace {

using rrm::GlobalConfig;
using rrm::JsonReader;
using rrm::JsonWriter;

constexpr const char* invalid_parameters = "invalid_parameters";

void tell_invalid_values(const JsonReader& setup) {
  JsonWriter answer;
  JsonWriter list = JsonWriter::array(answer, invalid_parameters);
  GlobalConfig::validate(setup, list);
  const JsonReader told(answer.to_string());
  const JsonReader invalid = told.get(invalid_parameters);
  const int count = invalid.size();
  if (count != 0) trace.warn("Setup: invalid parameters: %s", invalid.to_string());
}

void tell_missing_domains(const JsonReader& setup, const GlobalConfig& loaded) {
  std::string missing;
  const JsonReader domains = setup.get("domains");
  for (int i = 0; i < static_cast<int>(domains.size()); ++i) {
    const std::string name = domains.at(i).get_string("domain");
    const auto info = loaded.domain_info(name);
    if (info && loaded.pattern(info->pattern)) continue;
    missing += (missing.empty() ? "'" : ", '") + name + "'";
  }
  if (!missing.empty()) trace.warn("Setup: domains not taken over: %s", missing.c_str());
}

}  // namespace

void tell_setup_faults(const std::string& setup, const GlobalConfig& loaded) {
  const JsonReader document(setup.c_str());
  tell_invalid_values(document);
  tell_missing_domains(document, loaded);
}
