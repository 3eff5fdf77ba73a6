#include <gtest/gtest.h>

#include "load/stage.h"

namespace load {
namespace {

const std::string existing_name = "Pattern exists";
const std::string not_added = "Domain exists or chosen pattern not exists.";
const std::vector<std::string> wrong_zones{"14:01", "-13:00", "noon", "1:60", ""};

Json edit(const char* operation, const std::string& level, const Json& more) {
  Json body{{"operation", operation}, {"level", level}};
  body.update(more);
  return {{"cfg", body}};
}

Json set_answer(const std::string& level, const Json& wrong = Json::array()) {
  return {{"version", "2.1"}, {"invalid_parameters", wrong}, {"operation", "set"}, {"level", level}};
}

Json set_pattern_answer(const std::string& pattern, const Json& wrong = Json::array()) {
  Json answer = set_answer("pattern", wrong);
  answer["pattern"] = pattern;
  return answer;
}

Json add_answer(const std::string& level, const std::string& name, const std::string& status,
                const Json& wrong = Json::array()) {
  return {
      {"version", "2.1"}, {"invalid_parameters", wrong}, {"operation", "add"}, {level, name}, {"add_status", status}};
}

Json set_pattern(const std::string& pattern, const Json& section) {
  return edit("set", "pattern", {{"pattern", pattern}, {"config", section}});
}

Json add_pattern_request(const std::string& pattern, const Json& section) {
  return edit("add", "pattern", {{"pattern", pattern}, {"config", section}});
}

Json on_domain(const char* operation, const std::string& domain, const std::string& pattern,
               const std::string& time_zone) {
  Json section{{"pattern", pattern}};
  if (!time_zone.empty()) section["time_zone"] = time_zone;
  return edit(operation, "domain", {{"domain", domain}, {"config", section}});
}

std::string an_unknown_pattern(Stage& stage) {
  return "unknown-" + std::to_string(stage.dice.below(100));
}

std::optional<std::string> any_configured_domain(Stage& stage) {
  std::vector<std::string> names;
  for (const auto& [name, binding] : stage.config.domains) names.push_back(name);
  return names.empty() ? std::nullopt : std::optional(stage.dice.one_of(names));
}

// Some keys with the values that they have.
Json as_it_is(Stage& stage, const std::vector<Key>& keys, const Json& section) {
  Json same = Json::object();
  for (int i = stage.dice.between(1, 6); i > 0; --i) {
    const std::string key = stage.dice.one_of(keys).name;
    if (key.starts_with("load_balance_sta_")) continue;  // a bound of its own in each request
    same[key] = section.at(key);
  }
  return same;
}

// Edits that leave everybody where they are

void set_unchanged_global(Stage& stage) {
  stage.set_global(as_it_is(stage, global_keys(), stage.config.global));
}

void set_wrong_global(Stage& stage) {
  stage.set_global(stage.wrong_values(global_keys()));
}

void set_unchanged_pattern(Stage& stage) {
  const std::string pattern = stage.any_pattern();
  const Json section = as_it_is(stage, domain_keys(), *stage.config.settings_of(pattern));
  stage.expect_answer(set_pattern(pattern, section), set_pattern_answer(pattern));
}

void set_wrong_pattern(Stage& stage) {
  const std::string pattern = stage.any_pattern();
  const Json section = stage.wrong_values(domain_keys());
  stage.expect_answer(set_pattern(pattern, section), set_pattern_answer(pattern, offenders(domain_keys(), section)));
}

void set_unknown_pattern(Stage& stage) {
  stage.expect_failure(set_pattern(an_unknown_pattern(stage), stage.any_values(domain_keys())));
}

void set_nameless_pattern(Stage& stage) {
  stage.expect_failure(set_pattern("", stage.any_values(domain_keys())));
  stage.expect_failure(edit("set", "pattern", {{"config", stage.any_values(domain_keys())}}));
}

void set_unknown_domain(Stage& stage) {
  stage.expect_failure(on_domain("set", stage.an_unknown_domain(), stage.any_pattern(), stage.any_time_zone()));
}

void set_domain_to_unknown_pattern(Stage& stage) {
  stage.expect_failure(on_domain("set", stage.any_domain(), an_unknown_pattern(stage), ""));
  stage.expect_failure(edit("set", "domain", {{"domain", stage.any_domain()}, {"config", Json::object()}}));
}

void set_domain_in_no_time_zone(Stage& stage) {
  const std::string zone = stage.dice.one_of(wrong_zones);
  const Json section{{"pattern", stage.any_pattern()}, {"time_zone", zone}};
  EXPECT_FALSE(is_time_zone(zone)) << zone;
  stage.expect_answer(edit("set", "domain", {{"domain", stage.any_domain()}, {"config", section}}),
                      set_answer("domain", {{{"time_zone", zone}}}));
}

void set_unknown_level(Stage& stage) {
  stage.expect_failure(edit("set", "everything", {{"config", {{"enabled", 0}}}}));
}

void set_nothing(Stage& stage) {
  for (const char* level : {"global", "pattern", "domain"}) {
    stage.expect_failure(edit("set", level, Json::object()));
    stage.expect_failure(edit("add", level, Json::object()));
  }
}

void add_pattern(Stage& stage) {
  const std::string pattern = stage.a_new_pattern();
  const Json section = stage.any_values(domain_keys());
  stage.expect_answer(add_pattern_request(pattern, section), add_answer("pattern", pattern, "Success"));
  Json& added = stage.config.patterns[pattern];
  added = ExpectedConfig().common;
  take_over(added, section);
  stage.fulfilled();
}

void change_free_pattern(Stage& stage) {
  const auto pattern = stage.a_free_pattern();
  if (!pattern) return add_pattern(stage);
  const Json section = stage.any_values(domain_keys());
  stage.expect_answer(set_pattern(*pattern, section), set_pattern_answer(*pattern));
  take_over(stage.config.patterns[*pattern], section);
  stage.fulfilled();
}

void add_known_pattern(Stage& stage) {
  const std::string pattern = stage.any_pattern();
  stage.expect_answer(add_pattern_request(pattern, stage.any_values(domain_keys())),
                      add_answer("pattern", pattern, existing_name));
}

// The same text as for one that exists.
void add_wrong_pattern(Stage& stage) {
  const std::string pattern = stage.a_new_pattern();
  const Json section = stage.wrong_values(domain_keys());
  stage.expect_answer(add_pattern_request(pattern, section),
                      add_answer("pattern", pattern, existing_name, offenders(domain_keys(), section)));
}

void expect_not_added(Stage& stage, const std::string& domain, const std::string& pattern) {
  stage.expect_answer(on_domain("add", domain, pattern, stage.any_time_zone()),
                      add_answer("domain", domain, not_added, {{{"pattern", pattern}}}));
}

void add_known_domain(Stage& stage) {
  const auto domain = any_configured_domain(stage);
  if (domain) expect_not_added(stage, *domain, stage.any_pattern());
}

void add_domain_of_unknown_pattern(Stage& stage) {
  expect_not_added(stage, stage.any_domain(), an_unknown_pattern(stage));
}

void add_domain_in_no_time_zone(Stage& stage) {
  const std::string zone = stage.dice.one_of(wrong_zones);
  const Json section{{"pattern", stage.any_pattern()}, {"time_zone", zone}};
  stage.expect_answer(edit("add", "domain", {{"domain", stage.any_domain()}, {"config", section}}),
                      {{"version", "2.1"}, {"invalid_parameters", {{{"time_zone", zone}}}}, {"operation", "add"}});
}

void add_unknown_level(Stage& stage) {
  stage.expect_answer(edit("add", "everything", {{"config", Json::object()}}),
                      {{"version", "2.1"}, {"invalid_parameters", Json::array()}, {"operation", "add"}});
}

Json remove_answer(const std::string& level, const std::string& name, int status) {
  return {{"version", "2.1"}, {"operation", "remove"}, {level, name}, {"remove_status", status}};
}

Json remove(const std::string& level, const std::string& name) {
  return edit("remove", level, {{level, name}});
}

void remove_free_pattern(Stage& stage) {
  const auto pattern = stage.a_free_pattern();
  if (!pattern) return;
  stage.expect_answer(remove("pattern", *pattern), remove_answer("pattern", *pattern, 0));
  stage.config.remove_pattern(*pattern);
  stage.fulfilled();
}

void remove_unknown_pattern(Stage& stage) {
  const std::string pattern = stage.dice.happens(50) ? "common" : an_unknown_pattern(stage);
  stage.expect_answer(remove("pattern", pattern), remove_answer("pattern", pattern, 1));
}

void remove_unknown_domain(Stage& stage) {
  const std::string domain = stage.an_unknown_domain();
  stage.expect_answer(remove("domain", domain), remove_answer("domain", domain, 1));
}

void remove_unknown_level(Stage& stage) {
  stage.expect_answer(edit("remove", "everything", {{"everything", "x"}}),
                      {{"version", "2.1"}, {"operation", "remove"}});
  stage.expect_failure(edit("remove", "pattern", Json::object()));
  stage.expect_failure(edit("remove", "domain", {{"domain", ""}}));
}

void push_same_setup(Stage& stage) {
  stage.send_setup(stage.config);
}

void push_no_setup(Stage& stage) {
  stage.order(126, {{"text", R"({"global":{"enabled":0)"}});
  stage.order(126, {{"text", "[]"}});
}

// Upheavals

void ask_around(Stage& stage) {
  for (int i = stage.dice.between(1, 6); i > 0; --i) stage.dice.one_of(questions()).issue(stage);
}

void change_global(Stage& stage) {
  Json section = stage.any_values(global_keys());
  section["vrrp_timeout"] = stage.config.global.at("vrrp_timeout") == 60 ? 1 : 60;
  stage.set_global(section);
  stage.fulfilled();
}

// The access points keep knocking where nobody listens any more.
void change_port(Stage& stage) {
  stage.set_global({{"listen_port", stage.ports.other}});
  ask_around(stage);
  stage.set_global({{"listen_port", stage.ports.of_crowd}});
  stage.fulfilled();
}

void change_pattern(Stage& stage) {
  const auto domain = any_configured_domain(stage);
  const std::string pattern = domain ? stage.config.domains[*domain].pattern : "common";
  Json& settings = *stage.config.settings_of(pattern);
  Json section = stage.any_values(domain_keys());
  section["dca_threshold"] = (settings.at("dca_threshold").get<int>() + stage.dice.between(1, 99)) % 100;
  stage.expect_answer(set_pattern(pattern, section), set_pattern_answer(pattern));
  EXPECT_TRUE(take_over(settings, section));
  stage.fulfilled();
}

void change_domain(Stage& stage) {
  const auto domain = any_configured_domain(stage);
  if (!domain) return add_missing_domains(stage);
  const Binding binding{stage.any_pattern(), stage.any_time_zone()};
  stage.expect_answer(on_domain("set", *domain, binding.pattern, binding.time_zone), set_answer("domain"));
  stage.config.domains[*domain] = binding;
  stage.fulfilled();
}

void take_domain_out(Stage& stage) {
  const auto domain = any_configured_domain(stage);
  if (!domain) return add_missing_domains(stage);
  stage.expect_answer(remove("domain", *domain), remove_answer("domain", *domain, 0));
  stage.config.domains.erase(*domain);
  ask_around(stage);
  if (stage.dice.happens(70)) add_missing_domains(stage);
  stage.fulfilled();
}

void remove_pattern_with_domains(Stage& stage) {
  add_pattern(stage);
  const std::string pattern = stage.config.patterns.rbegin()->first;
  const auto domain = any_configured_domain(stage);
  if (!domain) return add_missing_domains(stage);
  stage.expect_answer(on_domain("set", *domain, pattern, ""), set_answer("domain"));
  stage.config.domains[*domain] = {pattern, ""};
  ask_around(stage);
  stage.expect_answer(remove("pattern", pattern), remove_answer("pattern", pattern, 0));
  stage.config.remove_pattern(pattern);
  ask_around(stage);
  add_missing_domains(stage);
  stage.fulfilled();
}

void switch_off(Stage& stage) {
  stage.set_global({{"enabled", 0}});
  ask_around(stage);
  stage.set_global({{"enabled", 1}});
  stage.fulfilled();
}

void switch_off_by_setup(Stage& stage) {
  ExpectedConfig next = stage.config;
  next.global["enabled"] = 0;
  stage.send_setup(next);
  ask_around(stage);
  next.global["enabled"] = 1;
  stage.send_setup(next);
  stage.fulfilled();
}

// Several edits in one: the differences between what is and what shall be.
void push_setup(Stage& stage) {
  ExpectedConfig next = stage.config;
  const std::string pattern = stage.a_new_pattern();
  next.patterns[pattern] = ExpectedConfig().common;
  take_over(next.patterns[pattern], stage.any_values(domain_keys()));
  take_over(*next.settings_of(stage.any_pattern()), stage.any_values(domain_keys()));
  for (const std::string& domain : stage.crowd.domains()) {
    if (stage.dice.happens(30)) next.domains[domain] = {pattern, stage.any_time_zone()};
  }
  if (const auto free = stage.a_free_pattern()) next.remove_pattern(*free);
  if (stage.dice.happens(30)) next.domains.erase(stage.any_domain());
  if (stage.dice.happens(30)) take_over(next.global, stage.any_values(global_keys()));
  stage.send_setup(next);
  ask_around(stage);
  add_missing_domains(stage);
  stage.fulfilled();
}

void become_backup(Stage& stage) {
  stage.order_role(false, false);
  ask_around(stage);
  stage.order_role(true, false);
  stage.fulfilled();
}

void become_backup_and_restore(Stage& stage) {
  stage.order_role(false, false);
  ask_around(stage);
  stage.order_role(true, true);
  stage.fulfilled();
}

void become_backup_by_bus(Stage& stage) {
  stage.send_vrrp_state(2);
  ask_around(stage);
  stage.send_vrrp_state(stage.dice.between(0, 1));
  stage.fulfilled();
}

void pass_through_vrrp_states(Stage& stage) {
  for (int i = stage.dice.between(2, 5); i > 0; --i) {
    stage.send_vrrp_state(stage.dice.between(0, 3));
    ask_around(stage);
  }
  stage.send_vrrp_state(1);
  stage.fulfilled();
}

std::vector<int> one_session(Stage& stage) {
  const std::vector<int> ids = stage.session_ids();
  return ids.empty() ? ids : std::vector<int>{stage.dice.one_of(ids)};
}

void drop_one_session(Stage& stage) {
  stage.drop(one_session(stage), false);
}

void drop_one_session_by_bus(Stage& stage) {
  stage.drop(one_session(stage), true);
}

void drop_some_sessions_by_bus(Stage& stage) {
  std::vector<int> ids = stage.session_ids();
  stage.dice.shuffle(ids);
  if (ids.size() > 40) ids.resize(40);
  stage.drop(ids, true);
}

void drop_all_sessions(Stage& stage) {
  stage.drop(stage.session_ids(), false);
}

void clear_session_of_ap(Stage& stage) {
  const std::string mac = stage.any_ap().mac;
  const auto result =
      stage.manage({{"kind", std::int64_t{2}}, {"mac", mac}}, {"there is no session for given mac: " + mac});
  if (result) {
    EXPECT_EQ(*result, Json::object());
  }
}

void clear_all_sessions(Stage& stage) {
  EXPECT_EQ(stage.manage({{"kind", std::int64_t{2}}}, {}), Json::object());
}

}  // namespace

void add_missing_domains(Stage& stage) {
  for (const std::string& domain : stage.crowd.domains()) {
    if (stage.config.domains.contains(domain)) continue;
    const Binding binding{stage.any_pattern(), stage.any_time_zone()};
    stage.expect_answer(on_domain("add", domain, binding.pattern, binding.time_zone),
                        add_answer("domain", domain, "Success"));
    stage.config.domains[domain] = binding;
    stage.fulfilled();
  }
}

const std::vector<Order>& edits() {
  constexpr auto bare = Order::Outcome::bare;
  static const std::vector<Order> orders{
      {"cfg: set global as it is", set_unchanged_global, bare},
      {"cfg: set global to wrong values", set_wrong_global, bare},
      {"cfg: set a pattern as it is", set_unchanged_pattern, bare},
      {"cfg: set a pattern to wrong values", set_wrong_pattern, bare},
      {"cfg: set an unknown pattern", set_unknown_pattern, bare},
      {"cfg: set a pattern without a name", set_nameless_pattern, bare},
      {"cfg: set an unknown domain", set_unknown_domain, bare},
      {"cfg: set a domain to an unknown pattern", set_domain_to_unknown_pattern, bare},
      {"cfg: set a domain to no time zone", set_domain_in_no_time_zone, bare},
      {"cfg: set an unknown level", set_unknown_level, bare},
      {"cfg: set and add without values", set_nothing, bare},
      {"cfg: add a pattern", add_pattern},
      {"cfg: set a free pattern", change_free_pattern},
      {"cfg: add a known pattern", add_known_pattern, bare},
      {"cfg: add a pattern of wrong values", add_wrong_pattern, bare},
      {"cfg: add a known domain", add_known_domain, bare},
      {"cfg: add a domain of an unknown pattern", add_domain_of_unknown_pattern, bare},
      {"cfg: add a domain in no time zone", add_domain_in_no_time_zone, bare},
      {"cfg: add an unknown level", add_unknown_level, bare},
      {"cfg: remove a free pattern", remove_free_pattern},
      {"cfg: remove an unknown pattern", remove_unknown_pattern, bare},
      {"cfg: remove an unknown domain", remove_unknown_domain, bare},
      {"cfg: remove an unknown level", remove_unknown_level, bare},
      {"126: the same setup", push_same_setup, bare},
      {"126: no setup", push_no_setup, bare},
  };
  return orders;
}

const std::vector<Order>& upheavals() {
  static const std::vector<Order> orders{
      {"cfg: set global", change_global},
      {"cfg: set the port, there and back", change_port},
      {"cfg: set a pattern", change_pattern},
      {"cfg: set a domain", change_domain},
      {"cfg: remove a domain", take_domain_out},
      {"cfg: remove a pattern with its domains", remove_pattern_with_domains},
      {"cfg: switch the server off and on", switch_off},
      {"126: switch the server off and on", switch_off_by_setup},
      {"126: another setup", push_setup},
      {"vrrp: backup, and master again", become_backup},
      {"vrrp: backup, and master with its domains", become_backup_and_restore},
      {"162: standby, and master again", become_backup_by_bus},
      {"162: through the states", pass_through_vrrp_states},
      {"rrm: drop a session", drop_one_session},
      {"rrm: drop all sessions", drop_all_sessions},
      {"37: drop a session", drop_one_session_by_bus},
      {"37: drop some sessions", drop_some_sessions_by_bus},
      {"133/2: clear the session of an AP", clear_session_of_ap},
      {"133/2: clear all sessions", clear_all_sessions},
  };
  return orders;
}

}  // namespace load
