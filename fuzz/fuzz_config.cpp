// Any text as a configuration, and a second one behind a NUL as the next: whatever is taken over lies in its range, is
// taken over once, and two configurations differ exactly where comparing them says so.
#include <stdexcept>
#include <string>
#include <variant>

#include "Config.h"
#include "ConfigTable.h"
#include "fuzz/fuzz.h"
#include "fuzz/silence.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace {

using rrm::DomainConfig;
using rrm::GlobalConfig;
using rrm::JsonReader;
using rrm::JsonWriter;
using zal::fuzz::require;

// The array that rejected values go into.
struct Rejected {
  JsonWriter root;
  JsonWriter list = JsonWriter::array(root, "invalid_parameters");
};

template <class S>
void check_ranges(const S& section) {
  for (const auto& setting : rrm::settings_table<S>()) {
    const auto* const number = std::get_if<rrm::NumberSetting<S>>(&setting.kind);
    if (number == nullptr) continue;
    const auto value = section.*number->member;
    require(value >= number->min && value <= number->max, "a number lies in its range");
  }
}

void check_settings(const DomainConfig& settings) {
  check_ranges(settings);
  const auto seconds = settings.optimization_time_seconds;
  require(seconds >= 0 && seconds <= 86400, "a time of day lies in its range");
}

void check_domain(const GlobalConfig& config, const std::string& domain, const rrm::DomainInfo& info) {
  require(!domain.empty() && !info.pattern.empty(), "a domain and its pattern have names");
  require(info.time_zone_offset >= -43200 && info.time_zone_offset <= 50400, "a time zone lies in its range");
  require(config.is_domain_exist(domain), "a domain that is listed exists");
  require(config.time_zone_offset(domain) == info.time_zone_offset, "both ways to a time zone agree");
  try {
    check_settings(config.domain_config(domain));
    require(config.pattern(info.pattern).has_value(), "a domain with settings has a pattern");
  } catch (const std::out_of_range&) {
  }
}

void check_all(const GlobalConfig& config) {
  check_ranges(config.global());
  config.for_each_pattern([](const std::string&, const DomainConfig& settings) { check_settings(settings); });
  config.for_each_domain(
      [&](const std::string& domain, const rrm::DomainInfo& info) { check_domain(config, domain, info); });
}

// A pattern of that name cannot be told from the common settings.
bool has_hidden_pattern(const GlobalConfig& config) {
  int count = 0;
  config.for_each_pattern(
      [&count](const std::string& name, const DomainConfig&) { count += name == GlobalConfig::common_name ? 1 : 0; });
  return count > 1;
}

int count_differences(const GlobalConfig& present, const GlobalConfig& wanted) {
  int calls = 0;
  const auto count = [&calls](const std::string&) { ++calls; };
  present.compare(
      wanted, [&calls] { ++calls; }, count, count, count, count, count, count);
  return calls;
}

// The way of a setup that comes later: a document that validates as a whole, or nothing of it.
void check_set(const GlobalConfig& loaded, const JsonReader& document) {
  Rejected rejected;
  Rejected again;
  GlobalConfig config("");
  bool failed = false;
  const bool changed = config.set(document, rejected.list, failed);
  require(failed == !GlobalConfig::validate(document, again.list), "setting goes by validation");
  require(std::string(rejected.root.to_string()) == again.root.to_string(), "the same values are rejected again");
  const bool is_untouched = config == GlobalConfig("");
  require(!failed || is_untouched, "what fails changes nothing");
  require(failed || config == loaded, "what is valid is loaded");
  require(changed == !is_untouched, "a change is told");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::silence_logs();
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::string first = input.substr(0, input.find('\0'));
  const std::string second = first.size() < input.size() ? input.substr(first.size() + 1) : "";
  const JsonReader document(first.c_str());

  GlobalConfig config("", first);
  check_all(config);
  check_set(config, document);
  require(!config.load(document), "loading a document again changes nothing");
  require(config == GlobalConfig("", first), "the same document gives the same configuration");

  const GlobalConfig next("", second);
  const bool is_same = config == next;
  const bool differs = count_differences(config, next) > 0;
  require(!is_same || !differs, "equal configurations do not differ");
  require(is_same || differs || has_hidden_pattern(config) || has_hidden_pattern(next), "unequal ones do");
  require(count_differences(config, config) == 0, "nothing differs from itself");
  config.load(JsonReader(second.c_str()));
  check_all(config);
  return 0;
}
