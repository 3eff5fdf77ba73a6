#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "load/stage.h"
#include "zal/Error.h"
#include "zal/IMsg.h"

namespace load {
namespace {

using Fields = Stage::Fields;

const char* const failed = "failure from morvane api";
const std::string nobody = "02:00:00:00:00:01";
const std::string unknown_mac = "can`t find given mac '" + nobody + "' in local info";
const Json no_domain{{"error", "domain not found"}};

// Requests of the server's own interface

Json config_request(const std::string& level, const Json& more = Json::object()) {
  Json body{{"operation", "get"}, {"level", level}};
  body.update(more);
  return {{"cfg", body}};
}

Json about(const std::string& domain, const Json& more = Json::object()) {
  Json body{{"domain", domain}};
  body.update(more);
  return {{"rrm", body}};
}

void get_global(Stage& stage) {
  stage.expect_config(config_request("global"), stage.config.global);
}

void get_common(Stage& stage) {
  stage.expect_config(config_request("pattern", {{"pattern", "common"}}), stage.config.common);
}

void get_pattern(Stage& stage) {
  const std::string pattern = stage.any_pattern();
  stage.expect_config(config_request("pattern", {{"pattern", pattern}}), *stage.config.settings_of(pattern));
}

void get_unknown_pattern(Stage& stage) {
  stage.expect_failure(config_request("pattern", {{"pattern", stage.an_unknown_domain()}}));
}

// "common" comes first; the order of the others is anybody's.
void get_pattern_names(Stage& stage) {
  const Json answer = stage.ask(config_request("pattern"));
  std::vector<std::string> names;
  for (const Json& pattern : answer.at("patterns")) names.push_back(pattern.at("name"));
  ASSERT_EQ(names.at(0), "common");
  std::sort(names.begin() + 1, names.end());
  std::vector<std::string> expected{"common"};
  for (const auto& [name, settings] : stage.config.patterns) expected.push_back(name);
  EXPECT_EQ(names, expected);
  stage.fulfilled();
}

void get_domains(Stage& stage) {
  const Json answer = stage.ask(config_request("domain"));
  EXPECT_EQ(answer.size(), 2u) << answer;
  EXPECT_EQ(answer.at("domains").size(), stage.config.domains.size());
  std::map<std::string, Binding> bindings;
  for (const Json& domain : answer.at("domains")) {
    bindings[domain.at("name")] = {domain.at("config"), domain.at("time_zone")};
  }
  EXPECT_EQ(bindings, stage.config.domains);
  stage.fulfilled();
}

void get_unknown_level(Stage& stage) {
  stage.expect_answer(config_request("everything"), {{"version", "2.1"}});
}

void unknown_operation(Stage& stage) {
  stage.expect_answer({{"cfg", {{"operation", "replace"}, {"level", "global"}}}}, {{"version", "2.1"}});
}

void incomplete_edit(Stage& stage) {
  stage.expect_failure({{"cfg", {{"operation", "get"}}}});
  stage.expect_failure({{"cfg", {{"level", "global"}}}});
}

void unknown_family(Stage& stage) {
  stage.expect_failure({{"status", 1}});
}

void ask_domain(Stage& stage) {
  const std::string domain = stage.any_domain();
  stage.expect_details(domain, stage.ask_server(about(domain)));
}

void ask_unknown_domain(Stage& stage) {
  EXPECT_EQ(stage.ask_server(about(stage.an_unknown_domain())), no_domain);
}

void ask_ap(Stage& stage) {
  const KnownAp& ap = stage.any_ap();
  stage.expect_ap(ap.domain, ap.mac, stage.ask_server(about(ap.domain, {{"ap", ap.mac}})));
}

void ask_ap_links(Stage& stage) {
  const KnownAp& ap = stage.any_ap();
  const Json rest = stage.ask_server(about(ap.domain, {{"ap", ap.mac}, {"fbt-links", Json::object()}}));
  stage.expect_ap(ap.domain, ap.mac, rest);
}

void ask_unknown_ap(Stage& stage) {
  const Json rest = stage.ask_server(about(stage.any_domain(), {{"ap", nobody}}));
  EXPECT_TRUE(rest == Json({{"error", "ap not found"}}) || rest == no_domain) << rest;
}

void expect_optimization(Stage& stage, const std::string& domain, const Json& rest) {
  const bool started = rest == Json({{"status", "success"}});
  EXPECT_TRUE(started || rest == Json({{"status", "failure"}}) || rest == no_domain) << rest;
  if (!stage.may_run(domain)) {
    EXPECT_EQ(rest, no_domain);
  }
  if (started) stage.fulfilled();
}

void optimize(Stage& stage) {
  const std::string domain = stage.any_domain();
  expect_optimization(stage, domain, stage.ask_server(about(domain, {{"start_optimization", "true"}})));
}

void optimize_half_heartedly(Stage& stage) {
  const Json rest = stage.ask_server(about(stage.any_domain(), {{"start_optimization", "yes"}}));
  EXPECT_TRUE(rest == Json({{"status", "failure"}}) || rest == no_domain) << rest;
}

const std::string first_second = "2000-01-01,00:00:00 UTC";
const std::string last_second = "2099-01-01,00:00:00 UTC";

// A domain that is not configured may have reports of better days.
Json report_list(Stage& stage, const std::string& domain) {
  const Json rest =
      stage.ask_server(about(domain, {{"report_list", {{"date_start", first_second}, {"date_finish", last_second}}}}));
  const Json data = rest.value("data", Json::array());
  if (stage.config.domains.contains(domain)) {
    EXPECT_EQ(rest.at("status"), "success") << rest;
  }
  EXPECT_EQ(rest.value("count", 0), data.size());
  for (const Json& entry : data) EXPECT_EQ(entry.at("domain"), domain);
  if (!data.empty()) stage.fulfilled();
  return data;
}

void ask_report_list(Stage& stage) {
  report_list(stage, stage.any_domain());
}

void ask_report(Stage& stage) {
  const std::string domain = stage.any_domain();
  const Json data = report_list(stage, domain);
  if (data.empty()) return;
  const Json entry = data.at(stage.dice.below(data.size()));
  const Json rest = stage.ask_server(about(domain, {{"report", entry.at("id")}}));
  EXPECT_EQ(rest.at("status"), "success") << entry;
  EXPECT_EQ(rest.at("report").at("id"), entry.at("id"));
  EXPECT_EQ(rest.at("report").at("date"), entry.at("date"));
  stage.expect_report(rest.at("report"), domain);
}

void ask_last_report(Stage& stage) {
  const std::string domain = stage.any_domain();
  const Json rest = stage.ask_server(about(domain, {{"last_report", domain}}));
  if (stage.config.domains.contains(domain)) {
    EXPECT_EQ(rest.at("status"), "success") << rest;
  }
  if (rest.contains("report")) stage.expect_report(rest.at("report"), domain);
}

void ask_sessions(Stage& stage) {
  std::vector<int> ids = stage.session_ids();
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end()) << "two sessions with one id";
  if (!stage.is_master) {
    EXPECT_TRUE(ids.empty());
  }
  if (!ids.empty()) stage.fulfilled();
}

void ask_no_sessions(Stage& stage) {
  EXPECT_EQ(stage.ask_server({{"rrm", {{"sessions", 0}}}}), Json::object());
}

void drop_nobody(Stage& stage) {
  EXPECT_EQ(stage.ask_server({{"rrm", {{"drop_session", "true"}}}}), Json::object());
  EXPECT_EQ(stage.ask_server({{"rrm", {{"drop_session", "true"}, {"ids", {0, -1}}}}}), Json::object());
}

void ask_overview(Stage& stage) {
  stage.expect_overview(stage.ask_server({{"rrm", Json::object()}}));
}

void ask_role(Stage& stage) {
  const char* const role = stage.is_master ? "master" : "backup";
  EXPECT_EQ(stage.ask_server({{"vrrp", Json::object()}}), Json({{"role", role}, {"status", "success"}}));
  stage.fulfilled();
}

void ask_for_unknown_role(Stage& stage) {
  EXPECT_EQ(stage.ask_server({{"vrrp", {{"role", "primary"}}}}),
            Json({{"status", "failure"}, {"error", "role not supported"}}));
}

void keep_role(Stage& stage) {
  stage.order_role(stage.is_master, false);
}

// Questions of the bus

void bus_sessions(Stage& stage) {
  const Json answer = stage.text_of_reply_to(36, {}, 44);
  EXPECT_TRUE(answer.at("websock-sessions").is_array()) << answer;
  if (!answer.at("websock-sessions").empty()) stage.fulfilled();
}

Json without_head(Json answer) {
  for (const char* key : {"version", "server", "morvane_version"}) EXPECT_EQ(answer.erase(key), 1u) << answer;
  return answer;
}

void bus_groups(Stage& stage) {
  stage.expect_overview(without_head(stage.text_of_reply_to(38, {}, 46)));
}

void bus_group(Stage& stage) {
  const std::string domain = stage.any_domain();
  stage.expect_details(domain, without_head(stage.text_of_reply_to(39, {{"group", domain}}, 47)));
}

void bus_ap(Stage& stage) {
  const KnownAp& ap = stage.any_ap();
  const Json answer = stage.text_of_reply_to(40, {{"group", ap.domain}, {"ap", ap.mac}}, 48);
  stage.expect_ap(ap.domain, ap.mac, without_head(answer));
}

void bus_optimize(Stage& stage) {
  const std::string domain = stage.any_domain();
  expect_optimization(stage, domain, without_head(stage.text_of_reply_to(41, {{"group", domain}}, 49)));
}

void bus_reports(Stage& stage) {
  const std::string domain = stage.any_domain();
  const Fields fields{{"group", domain}, {"date_start", first_second}, {"date_finish", last_second}};
  const Json answer = stage.text_of_reply_to(42, fields, 50);
  if (stage.config.domains.contains(domain)) {
    EXPECT_EQ(answer.at("status"), "success") << answer;
  }
  if (!answer.value("data", Json::array()).empty()) stage.fulfilled();
}

void bus_report(Stage& stage) {
  const std::string domain = stage.any_domain();
  const Json data = report_list(stage, domain);
  stage.is_fulfilled = false;
  const std::string id = data.empty() ? "2000-01-01,00:00:00," + domain : data.back().at("id").get<std::string>();
  const Json answer = stage.text_of_reply_to(43, {{"group", domain}, {"report", id}}, 51);
  EXPECT_EQ(answer.at("status"), data.empty() ? "failure" : "success") << answer;
  if (!data.empty()) stage.expect_report(answer.at("report"), domain);
}

void bus_life(Stage& stage) {
  EXPECT_EQ(stage.text_of_reply_to(56, {}, 62), Json({{"status", "success"}}));
  stage.fulfilled();
}

void bus_role(Stage& stage) {
  const Fields reply = stage.reply_to(173, {}, 174);
  EXPECT_EQ(reply.number("role"), stage.is_master ? 1 : 2);
  EXPECT_EQ(reply.number("result"), 1);
  stage.fulfilled();
}

void bus_time_zone(Stage& stage) {
  stage.order(129);
}

void bus_mac_filter(Stage& stage) {
  using Filter = zal::IPC_MSG__MAC_FILTER;
  const auto filter = [&](int action, const std::string& macs = "") {
    return stage.text_of_reply_to(130, {{"action", std::int64_t{action}}, {"text", macs}}, 131);
  };
  const Json done{{"error", false}};
  const std::string mac = stage.any_ap().mac;
  EXPECT_EQ(filter(Filter::turn_on), done);
  EXPECT_EQ(filter(Filter::tell_status), Json({{"error", false}, {"filter_status", true}}));
  EXPECT_EQ(filter(Filter::add, mac), done);
  EXPECT_EQ(filter(Filter::tell_macs), Json({{"error", false}, {"macs", {mac}}}));
  EXPECT_EQ(filter(Filter::remove, mac), done);
  EXPECT_EQ(filter(Filter::empty), done);
  EXPECT_EQ(filter(Filter::turn_off), done);
  EXPECT_EQ(filter(Filter::invalid), Json({{"error", true}, {"cause", "invalid action"}}));
}

void bus_mac_filter_config(Stage& stage) {
  stage.order(135, {{"enabled", false}, {"macs", ""}});
}

void bus_ignored(Stage& stage) {
  stage.order(163);
}

void bus_unknown(Stage& stage) {
  const Gateway::Served served = stage.gateway.send(164);
  EXPECT_EQ(served.error, static_cast<int>(zal::Error::unknown_message));
  EXPECT_TRUE(served.replies.empty());
}

void bus_incomplete(Stage& stage) {
  const Gateway::Served served = stage.gateway.send(39);
  EXPECT_EQ(served.error, static_cast<int>(zal::Error::malformed));
  EXPECT_TRUE(served.replies.empty());
}

// An empty record means that the access point is gone; it is told anew at once.
void bus_ap_record(Stage& stage) {
  const KnownAp& ap = stage.any_ap();
  stage.order(132, {{"mac", ap.mac}, {"text", ""}});
  EXPECT_FALSE(stage.manage({{"kind", std::int64_t{5}}, {"mac", ap.mac}},
                            {"can`t find given mac '" + ap.mac + "' in local info"}));
  stage.tell_records({ap});
}

// For a moment the controller knows a handful only.
void bus_records_cleared(Stage& stage) {
  stage.order(118);
  stage.records.clear();
  const auto& all = stage.crowd.access_points();
  stage.tell_records({all[0], all[1]});
  const auto sessions = stage.manage({{"kind", std::int64_t{1}}}, {});
  ASSERT_TRUE(sessions);
  stage.expect_sessions(sessions->at("array"), std::nullopt);
  stage.tell_records(all);
}

// Requests of the management

Fields request(int kind, std::initializer_list<std::pair<const char*, std::string>> parameters = {}) {
  Fields fields{{"kind", std::int64_t{kind}}};
  for (const auto& [key, value] : parameters) fields.set(key, value);
  return fields;
}

// Every location of a record, and every running domain, sorted.
void manage_common(Stage& stage) {
  const auto result = stage.manage(request(0), {});
  ASSERT_TRUE(result);
  std::map<std::string, int> known;
  for (const auto& [mac, ap] : stage.records) ++known[ap.domain];
  std::vector<std::string> locations;
  for (const Json& entry : result->at("array")) {
    const std::string location = entry.at("ap-location");
    locations.push_back(location);
    EXPECT_EQ(entry.at("ap-count"), known[location]) << entry;
    const int served = entry.at("ap-morvane");
    EXPECT_TRUE(served >= 0 && served <= (stage.may_run(location) ? Crowd::aps_of_domain : 0)) << entry;
  }
  EXPECT_EQ(locations, stage.crowd.domains());
}

void manage_sessions(Stage& stage) {
  const auto result = stage.manage(request(1), {});
  ASSERT_TRUE(result);
  stage.expect_sessions(result->at("array"), std::nullopt);
  stage.is_fulfilled = !result->at("array").empty();
}

void manage_sessions_of_location(Stage& stage) {
  const std::string location = stage.any_domain();
  const auto result = stage.manage(request(1, {{"location", location}}), {});
  ASSERT_TRUE(result);
  stage.expect_sessions(result->at("array"), location);
  stage.is_fulfilled = !result->at("array").empty();
}

void manage_rrm_stat(Stage& stage) {
  const std::string location = stage.any_domain();
  const std::string prefix = "ap-location '" + location + "'";
  std::vector<std::string> reasons{"morvane is not enabled for " + prefix};
  if (stage.config.domains.contains(location)) {
    reasons = {prefix + " is empty"};
    if (stage.is_serving()) {
      reasons.insert(reasons.end(), {prefix + " currently has no active APs", failed, "ap not found", "empty data"});
    }
  }
  const auto result = stage.manage(request(3, {{"location", location}}), reasons);
  if (!result) return;
  EXPECT_TRUE(stage.may_run(location)) << location;
  for (const auto& [band, radios] : result->items()) {
    for (const Json& radio : radios) {
      const auto known = stage.records.find(radio.at("ap-mac"));
      ASSERT_NE(known, stage.records.end()) << radio;
      EXPECT_EQ(known->second.domain, location);
    }
  }
}

void expect_bands(const Json& result) {
  std::vector<std::string> bands;
  for (const auto& [band, rows] : result.items()) bands.push_back(band);
  EXPECT_EQ(bands, (std::vector<std::string>{"2g", "5g", "6g"}));
}

void manage_roaming(Stage& stage) {
  const std::string location = stage.any_domain();
  const auto result = stage.manage(request(4, {{"location", location}}), {failed});
  if (!result) return;
  expect_bands(*result);
  stage.is_fulfilled = !result->at("5g").empty();
}

void manage_roaming_of_ap(Stage& stage) {
  const KnownAp& ap = stage.any_ap();
  const auto result = stage.manage(request(4, {{"location", ap.domain}, {"mac", ap.mac}, {"band", "5g"}}), {failed});
  if (!result) return;
  expect_bands(*result);
  EXPECT_TRUE(result->at("2g").empty());
  EXPECT_TRUE(result->at("6g").empty());
  for (const Json& vap : result->at("5g")) EXPECT_EQ(vap.at("ap-mac"), ap.mac);
  stage.is_fulfilled = !result->at("5g").empty();
}

void manage_ap(Stage& stage) {
  const KnownAp& ap = stage.any_ap();
  std::vector<std::string> reasons{failed};
  if (stage.may_run(ap.domain)) reasons.insert(reasons.end(), {"ap not found", "empty data"});
  const auto result = stage.manage(request(5, {{"mac", ap.mac}}), reasons);
  if (!result) return;
  EXPECT_TRUE(stage.may_run(ap.domain)) << ap.domain;
  EXPECT_EQ(result->at("ap-location"), ap.domain);
  EXPECT_EQ(result->at("ap-mac"), ap.mac);
  EXPECT_TRUE(result->contains("5g")) << *result;
}

void manage_unknown_ap(Stage& stage) {
  EXPECT_FALSE(stage.manage(request(5, {{"mac", nobody}}), {unknown_mac}));
  EXPECT_FALSE(stage.manage(request(4, {{"location", stage.any_domain()}, {"mac", nobody}}), {unknown_mac}));
}

bool manage_optimize_location(Stage& stage, const std::string& location) {
  std::vector<std::string> reasons{failed};
  if (stage.may_run(location)) reasons.emplace_back("optimization already started");
  const auto result = stage.manage(request(6, {{"location", location}}), reasons);
  if (!result) return false;
  EXPECT_TRUE(stage.may_run(location)) << location;
  EXPECT_EQ(*result, Json::object());
  return true;
}

// Most domains are planning already, whenever one asks.
void manage_optimize(Stage& stage) {
  std::vector<std::string> locations = stage.crowd.domains();
  stage.dice.shuffle(locations);
  for (const std::string& location : locations) {
    if (manage_optimize_location(stage, location)) return;
  }
}

void expect_rows(Stage& stage, const std::optional<Json>& result, const std::string& location) {
  if (!result) return;
  expect_bands(*result);
  stage.is_fulfilled = !result->at("5g").empty();
  for (const auto& [band, rows] : result->items()) {
    for (const Json& row : rows) {
      EXPECT_EQ(row.at("location"), location);
      EXPECT_TRUE(stage.records.contains(row.at("ap-mac"))) << row;
    }
  }
}

// A domain that is not configured may have no reports, and then it has no last one.
void manage_last_report(Stage& stage) {
  const std::string location = stage.any_domain();
  std::vector<std::string> reasons;
  if (!stage.config.domains.contains(location)) reasons = {failed};
  expect_rows(stage, stage.manage(request(7, {{"location", location}}), reasons), location);
}

void manage_reports_of_days(Stage& stage) {
  const std::string location = stage.any_domain();
  std::vector<std::string> reasons;
  if (!stage.config.domains.contains(location)) reasons = {failed};
  Fields fields = request(7, {{"location", location}, {"band", "5g"}});
  fields.set("days", std::int64_t{stage.dice.between(0, 2)});
  const auto result = stage.manage(fields, reasons);
  expect_rows(stage, result, location);
  if (result) {
    EXPECT_TRUE(result->at("2g").empty() && result->at("6g").empty());
  }
}

void manage_unknown(Stage& stage) {
  EXPECT_FALSE(stage.manage(request(8), {"unknown type given"}));
}

void manage_nonsense(Stage& stage) {
  EXPECT_FALSE(stage.manage(request(4, {{"location", "lab"}, {"band", "7g"}}), {"invalid parameter: 'band' '7g'"}));
  EXPECT_FALSE(stage.manage(request(3), {"no 'location' parameter given"}));
  EXPECT_FALSE(stage.manage(request(5), {"no 'mac' parameter given"}));
}

void manage_clear_unknown_ap(Stage& stage) {
  EXPECT_FALSE(stage.manage(request(2, {{"mac", nobody}}), {"there is no session for given mac: " + nobody}));
}

}  // namespace

const std::vector<Order>& questions() {
  constexpr auto bare = Order::Outcome::bare;
  static const std::vector<Order> orders{
      {"cfg: get global", get_global},
      {"cfg: get pattern common", get_common},
      {"cfg: get pattern", get_pattern},
      {"cfg: get an unknown pattern", get_unknown_pattern, bare},
      {"cfg: get the names of the patterns", get_pattern_names},
      {"cfg: get domain", get_domains},
      {"cfg: get an unknown level", get_unknown_level, bare},
      {"cfg: an unknown operation", unknown_operation, bare},
      {"cfg: neither operation nor level", incomplete_edit, bare},
      {"an unknown family", unknown_family, bare},
      {"rrm: domain", ask_domain},
      {"rrm: an unknown domain", ask_unknown_domain, bare},
      {"rrm: AP", ask_ap},
      {"rrm: the links of an AP", ask_ap_links},
      {"rrm: an unknown AP", ask_unknown_ap, bare},
      {"rrm: start optimization", optimize},
      {"rrm: start optimization, but not really", optimize_half_heartedly, bare},
      {"rrm: report list", ask_report_list},
      {"rrm: report", ask_report},
      {"rrm: last report", ask_last_report},
      {"rrm: sessions", ask_sessions},
      {"rrm: no sessions", ask_no_sessions, bare},
      {"rrm: drop no session", drop_nobody, bare},
      {"rrm: overview", ask_overview},
      {"vrrp: role", ask_role},
      {"vrrp: an unknown role", ask_for_unknown_role, bare},
      {"vrrp: the role that it has", keep_role, bare},
      {"36: sessions", bus_sessions},
      {"38: groups", bus_groups},
      {"39: group", bus_group},
      {"40: AP", bus_ap},
      {"41: start optimization", bus_optimize},
      {"42: reports", bus_reports},
      {"43: report", bus_report},
      {"56: life", bus_life},
      {"173: role", bus_role},
      {"129: time zone", bus_time_zone, bare},
      {"130: MAC filter", bus_mac_filter, bare},
      {"135: whole MAC filter", bus_mac_filter_config, bare},
      {"163: nothing", bus_ignored, bare},
      {"an unknown message", bus_unknown, bare},
      {"a message without its field", bus_incomplete, bare},
      {"132: AP record", bus_ap_record, bare},
      {"118: AP records cleared", bus_records_cleared},
      {"133/0: common", manage_common},
      {"133/1: sessions", manage_sessions},
      {"133/1: sessions of a location", manage_sessions_of_location},
      {"133/2: clear the session of an unknown AP", manage_clear_unknown_ap, bare},
      {"133/3: radios of a location", manage_rrm_stat},
      {"133/4: roaming", manage_roaming},
      {"133/4: roaming of an AP", manage_roaming_of_ap},
      {"133/5: AP", manage_ap},
      {"133/4 and 5: an unknown AP", manage_unknown_ap, bare},
      {"133/6: optimize", manage_optimize},
      {"133/7: last report", manage_last_report},
      {"133/7: reports of some days", manage_reports_of_days},
      {"133/8: unknown", manage_unknown, bare},
      {"133: what cannot be read", manage_nonsense, bare},
  };
  return orders;
}

}  // namespace load
