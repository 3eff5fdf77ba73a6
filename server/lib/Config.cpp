#include "Config.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <variant>

#include "ConfigTable.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm {
namespace {

constexpr const char* config_version = "2.1";
constexpr std::int32_t time_zone_min = -12 * 3600;
constexpr std::int32_t time_zone_max = 14 * 3600;
constexpr std::size_t longest_time_text = 6;

template <class... Handlers>
struct Overloaded : Handlers... {
  using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

// The seconds of "H:MM" if they lie in [min, max]. The sign stands in the hours alone, so "-00:30" is half an hour
// east of zero.
std::optional<std::int32_t> parse_time(const char* text, std::int32_t min, std::int32_t max) {
  int hours = 0;
  int minutes = 0;
  if (text == nullptr || std::strlen(text) > longest_time_text) return std::nullopt;
  if (std::sscanf(text, "%3d:%2d", &hours, &minutes) != 2 || minutes < 0 || minutes >= 60) return std::nullopt;
  const std::int32_t seconds = hours * 3600 + (hours < 0 ? -minutes : minutes) * 60;
  if (seconds < min || seconds > max) return std::nullopt;
  return seconds;
}

bool has_text(const char* text) {
  return text != nullptr && *text != '\0';
}

bool assign_if_different(auto& stored, const auto& value) {
  if (stored == value) return false;
  stored = value;
  return true;
}

// --- The three validators. An absent key passes. A rejected value is logged, listed, and sets `failed`.

void reject_int(const char* key, long value, long min, long max, JsonWriter& invalid_parameters, bool& failed) {
  failed = true;
  RRM_LOG(LOG_WARNING, "Invalid value for '%s': %ld (allowed range: [%ld, %ld])", key, value, min, max);
  JsonWriter::object(invalid_parameters, nullptr).add_int(key, static_cast<std::int32_t>(value));
}

// Number conversion reports an overflowing text through errno only.
void validate_int_opt(const JsonReader& section, const char* key, std::int32_t min, std::int32_t max,
                      JsonWriter& invalid_parameters, bool& failed) {
  if (!section.has(key)) return;
  errno = 0;
  const std::int32_t value = section.get_int(key);
  if (errno == 0 && value >= min && value <= max) return;
  reject_int(key, value, min, max, invalid_parameters, failed);
}

void validate_int_opt(const JsonReader& section, const char* key, JsonWriter& invalid_parameters, bool& failed) {
  if (!section.has(key)) return;
  errno = 0;
  const std::int32_t value = section.get_int(key);
  if (errno == 0) return;
  reject_int(key, value, 0, 1, invalid_parameters, failed);
}

void validate_time_opt(const JsonReader& section, const char* key, std::int32_t min, std::int32_t max,
                       JsonWriter& invalid_parameters, bool& failed) {
  if (!section.has(key)) return;
  const char* text = section.get_string(key);
  if (parse_time(text, min, max)) return;
  failed = true;
  RRM_LOG(LOG_WARNING, "Invalid time value for '%s': '%s' (allowed range: [%d, %d] in seconds)", key,
          text != nullptr ? text : "null", min, max);
  JsonWriter::object(invalid_parameters, nullptr).add_string(key, text);
}

// A present, differing and valid time replaces text and seconds.
bool apply_time(const JsonReader& section, const char* key, std::int32_t min, std::int32_t max, std::string& text,
                std::int32_t& seconds) {
  if (!section.has(key) || text == section.get_string(key)) return false;
  const auto parsed = parse_time(section.get_string(key), min, max);
  if (!parsed) return false;
  text = section.get_string(key);
  seconds = *parsed;
  return true;
}

bool apply_text(const JsonReader& section, const char* key, std::string& text) {
  const char* value = section.get_string(key);
  return has_text(value) && assign_if_different(text, value);
}

// --- What a row of the table says about one key of a section.

template <class S>
void set_default(S& section, const Setting<S>& setting) {
  std::visit(Overloaded{
                 [&](const FlagSetting<S>& flag) { section.*flag.member = flag.standard; },
                 [&](const NumberSetting<S>& number) { section.*number.member = number.standard; },
                 [&](const TimeSetting<S>& time) {
                   section.*time.text = time.standard;
                   if (time.seconds != nullptr) section.*time.seconds = *parse_time(time.standard, time.min, time.max);
                 },
                 [&](const TextSetting<S>& text) { section.*text.member = text.standard; },
             },
             setting.kind);
}

std::int32_t bound(const JsonReader& section, std::int32_t own, const PeerBound& peer) {
  if (peer.key == nullptr) return own;
  return section.has(peer.key) ? section.get_int(peer.key) : peer.without_key;
}

template <class S>
void validate_setting(const JsonReader& section, const Setting<S>& setting, JsonWriter& invalid, bool& failed) {
  const char* key = setting.key;
  std::visit(
      Overloaded{
          [&](const FlagSetting<S>&) { validate_int_opt(section, key, invalid, failed); },
          [&](const NumberSetting<S>& number) {
            validate_int_opt(section, key, bound(section, number.min, number.min_from),
                             bound(section, number.max, number.max_from), invalid, failed);
          },
          [&](const TimeSetting<S>& time) { validate_time_opt(section, key, time.min, time.max, invalid, failed); },
          [](const TextSetting<S>&) {},
      },
      setting.kind);
}

template <class S>
bool apply_number(S& settings, const JsonReader& section, const char* key, const NumberSetting<S>& number) {
  const std::int32_t value = section.get_int(key);
  if (!section.has(key) || value < number.min || value > number.max) return false;
  return assign_if_different(settings.*number.member, value);
}

template <class S>
bool apply_setting(S& settings, const JsonReader& section, const Setting<S>& setting) {
  const char* key = setting.key;
  return std::visit(
      Overloaded{
          [&](const FlagSetting<S>& flag) {
            return section.has(key) && assign_if_different(settings.*flag.member, section.get_int(key) != 0);
          },
          [&](const NumberSetting<S>& number) { return apply_number(settings, section, key, number); },
          [&](const TimeSetting<S>& time) {
            if (time.seconds == nullptr) return apply_text(section, key, settings.*time.text);
            return apply_time(section, key, time.min, time.max, settings.*time.text, settings.*time.seconds);
          },
          [&](const TextSetting<S>& text) { return apply_text(section, key, settings.*text.member); },
      },
      setting.kind);
}

template <class S>
void write_setting(const S& settings, const Setting<S>& setting, JsonWriter& object) {
  const char* key = setting.key;
  std::visit(Overloaded{
                 [&](const FlagSetting<S>& flag) { object.add_int(key, settings.*flag.member ? 1 : 0); },
                 [&](const NumberSetting<S>& number) { object.add_int(key, settings.*number.member); },
                 [&](const TimeSetting<S>& time) { object.add_string(key, settings.*time.text); },
                 [&](const TextSetting<S>& text) { object.add_string(key, settings.*text.member); },
             },
             setting.kind);
}

// --- Whole sections.

template <class S>
void set_defaults(S& section) {
  for (const auto& setting : settings_table<S>()) set_default(section, setting);
}

template <class S>
std::vector<const Setting<S>*> validated_settings() {
  std::vector<const Setting<S>*> order;
  for (const auto& setting : settings_table<S>()) {
    if (setting.check != 0) order.push_back(&setting);
  }
  std::sort(order.begin(), order.end(), [](const auto* a, const auto* b) { return a->check < b->check; });
  return order;
}

// Looks at every key, so that the caller learns of all bad values at once.
template <class S>
bool validate_section(const JsonReader& section, JsonWriter& invalid_parameters) {
  static const auto order = validated_settings<S>();
  bool failed = false;
  for (const auto* setting : order) validate_setting(section, *setting, invalid_parameters, failed);
  return !failed;
}

template <class S>
bool apply_section(S& settings, const JsonReader& section) {
  bool changed = false;
  for (const auto& setting : settings_table<S>()) changed |= apply_setting(settings, section, setting);
  return changed;
}

template <class S>
bool validate_and_apply(S& settings, const JsonReader& section, JsonWriter& invalid_parameters, bool& failed) {
  failed = !validate_section<S>(section, invalid_parameters);
  return !failed && apply_section(settings, section);
}

template <class S>
void write_section(const S& settings, JsonWriter& object) {
  for (const auto& setting : settings_table<S>()) write_setting(settings, setting, object);
}

// --- Whole documents.

bool has_pattern_name(const JsonReader& element) {
  return has_text(element.get_string("pattern"));
}

// The names by which a domain may be bound, and the zone. A bad zone is logged, but not listed.
bool is_valid_domain(const JsonReader& element) {
  if (!has_text(element.get_string("domain")) || !has_text(element.get_string("pattern"))) return false;
  JsonWriter scratch("2.0");
  JsonWriter unlisted = JsonWriter::array(scratch, "invalid_parameters");
  bool failed = false;
  validate_time_opt(element, "time_zone", time_zone_min, time_zone_max, unlisted, failed);
  return !failed;
}

DomainInfo read_domain_info(const JsonReader& element) {
  DomainInfo info;
  info.pattern = element.get_string("pattern");
  apply_time(element, "time_zone", time_zone_min, time_zone_max, info.time_zone, info.time_zone_offset);
  return info;
}

// The places of an array's usable elements by their names; of two with one name the later counts.
using Elements = std::map<std::string, int>;

Elements named_elements(const JsonReader& array, const char* name_key, bool (*usable)(const JsonReader&)) {
  Elements elements;
  for (int i = 0; i < static_cast<int>(array.size()); ++i) {
    const JsonReader element = array.at(i);
    if (usable(element)) elements[element.get_string(name_key)] = i;
  }
  return elements;
}

template <class Stored>
bool same_names(const Elements& elements, const Stored& stored) {
  return elements.size() == stored.size() &&
         std::all_of(elements.begin(), elements.end(), [&](const auto& named) { return stored.contains(named.first); });
}

void call_for_all(const GlobalConfig::NameCallback& callback, const std::vector<std::string>& names) {
  if (!callback) return;
  for (const std::string& name : names) callback(name);
}

// Records by name, with the order in which they were added; the first of a name counts.
template <class Record>
struct Named {
  std::vector<std::string> order;
  std::map<std::string, const Record*> records;

  void add(const std::string& name, const Record& record) {
    if (records.emplace(name, &record).second) order.push_back(name);
  }
  void add_all(const std::map<std::string, Record>& all) {
    for (const auto& [name, record] : all) add(name, record);
  }
};

template <class Record>
std::vector<std::string> names_missing_in(const Named<Record>& other, const Named<Record>& records) {
  std::vector<std::string> names;
  for (const std::string& name : records.order) {
    if (!other.records.contains(name)) names.push_back(name);
  }
  return names;
}

template <class Record>
std::vector<std::string> names_that_differ(const Named<Record>& present, const Named<Record>& wanted) {
  std::vector<std::string> names;
  for (const std::string& name : present.order) {
    const auto it = wanted.records.find(name);
    if (it != wanted.records.end() && !(*it->second == *present.records.at(name))) names.push_back(name);
  }
  return names;
}

template <class State>
Named<DomainConfig> all_patterns(const State& state) {
  Named<DomainConfig> all;
  all.add(GlobalConfig::common_name, state.common);
  all.add_all(state.patterns);
  return all;
}

template <class State>
Named<DomainInfo> all_domains(const State& state) {
  Named<DomainInfo> all;
  all.add_all(state.domain_infos);
  return all;
}

template <class Record>
void compare_named(const Named<Record>& present, const Named<Record>& wanted,
                   const GlobalConfig::NameCallback& on_changed, const GlobalConfig::NameCallback& on_added,
                   const GlobalConfig::NameCallback& on_removed) {
  if (!on_changed && !on_added && !on_removed) return;
  const auto changed = names_that_differ(present, wanted);
  const auto added = names_missing_in(present, wanted);
  const auto removed = names_missing_in(wanted, present);
  call_for_all(on_changed, changed);
  call_for_all(on_added, added);
  call_for_all(on_removed, removed);
}

std::optional<JsonReader> parse_document(const std::string& text) {
  return std::optional<JsonReader>(std::in_place, text.c_str());
}

// Empty if there is no such file; a file that does not parse is an empty document.
std::optional<JsonReader> read_document(const std::string& path) {
  if (path.empty()) return std::nullopt;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::optional<JsonReader> document(JsonReader::from_fd(fd));
  ::close(fd);
  return document;
}

std::string own_hostname() {
  std::array<char, 1024> name{};
  ::gethostname(name.data(), name.size() - 1);
  return name.data();
}

}  // namespace

DomainConfig::DomainConfig() {
  set_defaults(*this);
}

GlobalSettings::GlobalSettings() {
  set_defaults(*this);
}

void write_settings(const DomainConfig& settings, JsonWriter& object) {
  write_section(settings, object);
}

void write_settings(const GlobalSettings& settings, JsonWriter& object) {
  write_section(settings, object);
}

// --- One state.

const DomainConfig* GlobalConfig::State::settings_of(const std::string& pattern) const {
  if (pattern == common_name) return &common;
  const auto it = patterns.find(pattern);
  return it != patterns.end() ? &it->second : nullptr;
}

// A domain gets a copy of its pattern's settings; of an unknown pattern it gets none.
void GlobalConfig::State::bind(const std::string& domain, DomainInfo info) {
  if (const DomainConfig* settings = settings_of(info.pattern)) domain_configs.insert_or_assign(domain, *settings);
  domain_infos.insert_or_assign(domain, std::move(info));
}

// Stops at the first section that is missing.
bool GlobalConfig::State::load(const JsonReader& document) {
  const JsonReader global_section = document.get("global");
  if (global_section.empty()) return false;
  bool changed = apply_section(global, global_section);

  const JsonReader common_section = document.get(common_name);
  if (common_section.empty()) return changed;
  changed |= apply_section(common, common_section);

  const JsonReader pattern_elements = document.get("patterns");
  if (pattern_elements.empty()) return changed;
  changed |= load_patterns(pattern_elements);

  const JsonReader domain_elements = document.get("domains");
  if (domain_elements.empty()) return changed;
  return load_domains(domain_elements) || changed;
}

bool GlobalConfig::State::load_patterns(const JsonReader& array) {
  const Elements elements = named_elements(array, "pattern", has_pattern_name);
  const bool rebuilt = !same_names(elements, patterns);
  bool changed = rebuilt;
  if (rebuilt) patterns.clear();
  for (const auto& [name, place] : elements) changed |= apply_section(patterns[name], array.at(place));
  return changed;
}

// While the names stay, only the bindings follow the document: a domain keeps the settings that it was given.
bool GlobalConfig::State::load_domains(const JsonReader& array) {
  const Elements elements = named_elements(array, "domain", is_valid_domain);
  bool changed = false;
  if (same_names(elements, domain_infos)) {
    for (const auto& [domain, place] : elements) {
      changed |= assign_if_different(domain_infos[domain], read_domain_info(array.at(place)));
    }
    return changed;
  }
  domain_infos.clear();
  domain_configs.clear();
  for (const auto& [domain, place] : elements) bind(domain, read_domain_info(array.at(place)));
  return true;
}

void GlobalConfig::State::write(JsonWriter& document) const {
  JsonWriter global_section = JsonWriter::object(document, "global");
  write_settings(global, global_section);
  JsonWriter common_section = JsonWriter::object(document, common_name);
  write_settings(common, common_section);

  JsonWriter domain_elements = JsonWriter::array(document, "domains");
  for (const auto& [domain, info] : domain_infos) {
    JsonWriter element = JsonWriter::object(domain_elements, nullptr);
    element.add_string("domain", domain);
    element.add_string("pattern", info.pattern);
    // An empty text would not load again.
    if (!info.time_zone.empty()) element.add_string("time_zone", info.time_zone);
  }
  JsonWriter pattern_elements = JsonWriter::array(document, "patterns");
  for (const auto& [name, settings] : patterns) {
    JsonWriter element = JsonWriter::object(pattern_elements, nullptr);
    element.add_string("pattern", name);
    write_settings(settings, element);
  }
}

// --- The configuration.

GlobalConfig::GlobalConfig(std::string path, const std::optional<std::string>& text)
    : path_(std::move(path)), hostname_(own_hostname()), state_(std::make_shared<const State>()) {
  const std::optional<JsonReader> document = text ? parse_document(*text) : read_document(path_);
  if (!document) return;
  load(*document);
  save();
}

std::shared_ptr<const GlobalConfig::State> GlobalConfig::state() const {
  MutexLock lock(mutex_);
  return state_;
}

// The old state goes after the lock, where no reader holds it any more.
void GlobalConfig::publish(State state) {
  std::shared_ptr<const State> next = std::make_shared<const State>(std::move(state));
  MutexLock lock(mutex_);
  state_.swap(next);
}

bool GlobalConfig::enabled() const {
  return state()->global.enabled;
}

GlobalSettings GlobalConfig::global() const {
  return state()->global;
}

DomainConfig GlobalConfig::common() const {
  return state()->common;
}

std::optional<DomainConfig> GlobalConfig::pattern(const std::string& name) const {
  const auto now = state();
  const DomainConfig* settings = now->settings_of(name);
  return settings != nullptr ? std::optional(*settings) : std::nullopt;
}

std::optional<DomainInfo> GlobalConfig::domain_info(const std::string& domain) const {
  const auto now = state();
  const auto it = now->domain_infos.find(domain);
  return it != now->domain_infos.end() ? std::optional(it->second) : std::nullopt;
}

bool GlobalConfig::is_domain_exist(const std::string& domain) const {
  const bool found = state()->domain_infos.contains(domain);
  RRM_LOG(LOG_DUMP, found ? "Domain \"%s\" success found" : "Domain \"%s\" not found", domain.c_str());
  return found;
}

DomainConfig GlobalConfig::domain_config(const std::string& domain) const {
  const auto now = state();
  const auto info = now->domain_infos.find(domain);
  if (info == now->domain_infos.end()) throw std::out_of_range("Domain not found");
  if (now->settings_of(info->second.pattern) == nullptr) throw std::out_of_range("Pattern not found");
  const auto settings = now->domain_configs.find(domain);
  if (settings == now->domain_configs.end()) throw std::out_of_range("Domain config not found");
  return settings->second;
}

std::int32_t GlobalConfig::time_zone_offset(const std::string& domain) const {
  const auto now = state();
  const auto it = now->domain_infos.find(domain);
  if (it == now->domain_infos.end()) throw std::out_of_range("Domain (time zone) not found");
  return it->second.time_zone_offset;
}

void GlobalConfig::for_each_pattern(const SettingsCallback& callback) const {
  const auto now = state();
  callback(common_name, now->common);
  for (const auto& [name, settings] : now->patterns) callback(name, settings);
}

void GlobalConfig::for_each_domain(const InfoCallback& callback) const {
  const auto now = state();
  for (const auto& [domain, info] : now->domain_infos) callback(domain, info);
}

void GlobalConfig::for_each_domain_config(const SettingsCallback& callback) const {
  const auto now = state();
  for (const auto& [domain, settings] : now->domain_configs) callback(domain, settings);
}

void GlobalConfig::compare(const GlobalConfig& other, const std::function<void()>& on_global,
                           const NameCallback& on_pattern_changed, const NameCallback& on_pattern_added,
                           const NameCallback& on_pattern_removed, const NameCallback& on_domain_changed,
                           const NameCallback& on_domain_added, const NameCallback& on_domain_removed) const {
  const auto present = state();
  const auto wanted = other.state();
  if (on_global && present->global != wanted->global) on_global();
  compare_named(all_patterns(*present), all_patterns(*wanted), on_pattern_changed, on_pattern_added,
                on_pattern_removed);
  // The callbacks so far may have edited this configuration: a removed pattern takes its domains along.
  compare_named(all_domains(*state()), all_domains(*wanted), on_domain_changed, on_domain_added, on_domain_removed);
}

bool GlobalConfig::operator==(const GlobalConfig& other) const {
  const auto mine = state();
  const auto theirs = other.state();
  return mine->global == theirs->global && mine->common == theirs->common && mine->patterns == theirs->patterns &&
         mine->domain_infos == theirs->domain_infos;
}

// --- Whole documents.

// `common` is looked at only once `global` passed; everything else in any case, so that all bad values are listed.
bool GlobalConfig::validate(const JsonReader& document, JsonWriter& invalid_parameters) {
  const JsonReader global_section = document.get("global");
  const JsonReader common_section = document.get(common_name);
  bool valid = global_section.empty() || validate_section<GlobalSettings>(global_section, invalid_parameters);
  if (valid && !common_section.empty()) valid = validate_section<DomainConfig>(common_section, invalid_parameters);

  std::set<std::string> names;
  const JsonReader pattern_elements = document.get("patterns");
  for (int i = 0; i < static_cast<int>(pattern_elements.size()); ++i) {
    const JsonReader element = pattern_elements.at(i);
    if (has_pattern_name(element) && validate_section<DomainConfig>(element, invalid_parameters)) {
      names.insert(element.get_string("pattern"));
    } else {
      valid = false;
    }
  }

  const JsonReader domain_elements = document.get("domains");
  for (int i = 0; i < static_cast<int>(domain_elements.size()); ++i) {
    const JsonReader element = domain_elements.at(i);
    valid &= is_valid_domain(element) && names.contains(element.get_string("pattern"));
  }
  return valid;
}

bool GlobalConfig::load(const JsonReader& document) {
  State next = *state();
  const bool changed = next.load(document);
  if (changed) publish(std::move(next));
  return changed;
}

bool GlobalConfig::set(const JsonReader& document, JsonWriter& invalid_parameters, bool& failed) {
  failed = !validate(document, invalid_parameters);
  return !failed && load(document);
}

bool GlobalConfig::reload() {
  const std::optional<JsonReader> document = read_document(path_);
  return document && load(*document);
}

void GlobalConfig::save() const {
  if (path_.empty()) return;
  std::FILE* file = std::fopen(path_.c_str(), "w+");
  if (file == nullptr) return;
  JsonWriter document(config_version);
  state()->write(document);
  std::fprintf(file, "%s\n", document.to_pretty_string());
  std::fclose(file);
}

// --- Sections.

bool GlobalConfig::set_global(const JsonReader& section, JsonWriter& invalid_parameters, bool& failed) {
  State next = *state();
  const bool changed = validate_and_apply(next.global, section, invalid_parameters, failed);
  if (changed) publish(std::move(next));
  return changed;
}

bool GlobalConfig::set_domain_settings(DomainConfig& settings, const JsonReader& section,
                                       JsonWriter& invalid_parameters, bool& failed) {
  return validate_and_apply(settings, section, invalid_parameters, failed);
}

bool GlobalConfig::get_time_zone(const JsonReader& section, std::string& text, std::int32_t& seconds, bool& failed,
                                 bool& changed, JsonWriter& invalid_parameters) {
  bool rejected = false;
  validate_time_opt(section, "time_zone", time_zone_min, time_zone_max, invalid_parameters, rejected);
  if (rejected) {
    failed = true;
    return false;
  }
  changed |= apply_time(section, "time_zone", time_zone_min, time_zone_max, text, seconds);
  return true;
}

// --- Domains and patterns.

bool GlobalConfig::domain_add(const std::string& domain, const std::string& pattern, const std::string& time_zone,
                              std::int32_t time_zone_offset, JsonWriter& invalid_parameters, bool& changed) {
  State next = *state();
  if (next.settings_of(pattern) == nullptr || next.domain_infos.contains(domain)) {
    JsonWriter::object(invalid_parameters, nullptr).add_string("pattern", pattern);
    return false;
  }
  next.bind(domain, {pattern, time_zone_offset, time_zone});
  publish(std::move(next));
  RRM_LOG(LOG_TRACE, "Domain '%s' was successfully added.", domain.c_str());
  changed = true;
  return true;
}

// Nothing is compared: a domain that is bound anew counts as changed.
bool GlobalConfig::domain_change(const std::string& domain, const std::string& pattern, const std::string& time_zone,
                                 std::int32_t time_zone_offset, bool& changed) {
  State next = *state();
  if (!next.domain_infos.contains(domain) || !next.domain_configs.contains(domain)) return false;
  if (next.settings_of(pattern) == nullptr) return false;
  next.bind(domain, {pattern, time_zone_offset, time_zone});
  publish(std::move(next));
  RRM_LOG(LOG_TRACE, "Domain '%s' was changed", domain.c_str());
  changed = true;
  return true;
}

bool GlobalConfig::domain_remove(const std::string& domain, bool& changed) {
  State next = *state();
  if (next.domain_infos.erase(domain) == 0) return false;
  next.domain_configs.erase(domain);
  publish(std::move(next));
  RRM_LOG(LOG_TRACE, "Domain '%s' was successfully removed.", domain.c_str());
  changed = true;
  return true;
}

// A new pattern starts from the table's defaults, never from `common`.
bool GlobalConfig::pattern_add(const std::string& name, const JsonReader& settings, JsonWriter& invalid_parameters,
                               bool& failed, bool& changed) {
  State next = *state();
  if (next.settings_of(name) != nullptr) return false;
  DomainConfig added;
  set_domain_settings(added, settings, invalid_parameters, failed);
  if (failed) return false;
  next.patterns.emplace(name, std::move(added));
  publish(std::move(next));
  RRM_LOG(LOG_TRACE, "Config pattern '%s' was successfully added.", name.c_str());
  changed = true;
  return true;
}

bool GlobalConfig::pattern_change(const std::string& name, const JsonReader& settings, JsonWriter& invalid_parameters,
                                  bool& failed, bool& changed) {
  State next = *state();
  const bool is_common = name == common_name;
  const auto stored = next.patterns.find(name);
  if (!is_common && stored == next.patterns.end()) return false;
  DomainConfig& target = is_common ? next.common : stored->second;
  if (set_domain_settings(target, settings, invalid_parameters, failed)) {
    RRM_LOG(LOG_TRACE, is_common ? "Pattern %s was changed" : "Pattern '%s' was changed", name.c_str());
    changed = true;
  }
  for (const auto& [domain, info] : next.domain_infos) {
    if (info.pattern == name) next.domain_configs.insert_or_assign(domain, target);
  }
  publish(std::move(next));
  return true;
}

bool GlobalConfig::pattern_remove(const std::string& name, const std::vector<std::string>& domains, bool& changed) {
  State next = *state();
  if (next.patterns.erase(name) == 0) return false;
  for (const std::string& domain : domains) {
    if (next.domain_configs.erase(domain) != 0) {
      RRM_LOG(LOG_TRACE, "Domain '%s' with pattern '%s' removed from map.", domain.c_str(), name.c_str());
    }
    if (next.domain_infos.erase(domain) != 0) {
      RRM_LOG(LOG_TRACE, "Domain '%s' with pattern '%s' removed from domain_map.", domain.c_str(), name.c_str());
    }
  }
  publish(std::move(next));
  RRM_LOG(LOG_TRACE, "Pattern '%s' was successfully removed.", name.c_str());
  changed = true;
  return true;
}

}  // namespace rrm
