#include "load/stage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "core/version.h"
#include "daemon/commands.h"
#include "zal/IMsg.h"

namespace load {
namespace {

std::string hostname() {
  std::array<char, 1024> name{};
  gethostname(name.data(), name.size() - 1);
  return name.data();
}

Json parsed(const std::string& text) {
  Json json = Json::parse(text, nullptr, false);
  EXPECT_FALSE(json.is_discarded()) << "no JSON: " << text;
  return json.is_discarded() ? Json() : json;
}

// The order of the offenders is no part of what is looked at here.
Json in_order(Json answer) {
  if (answer.is_object() && answer.contains("invalid_parameters")) {
    std::sort(answer["invalid_parameters"].begin(), answer["invalid_parameters"].end());
  }
  return answer;
}

std::string text_in(const Stage::Fields& reply, const char* key) {
  const std::string* const text = reply.text(key);
  EXPECT_NE(text, nullptr) << key << " is missing in " << zal::bus::to_json(reply);
  return text == nullptr ? "" : *text;
}

constexpr std::size_t shown = 2000;
constexpr std::chrono::seconds longest_beginning{10};  // of a session, until its first writable event

}  // namespace

Stage::Stage(Gateway& a_gateway, const Crowd& a_crowd, std::uint64_t seed, Ports some_ports, const std::string& path)
    : gateway(a_gateway), crowd(a_crowd), dice(seed), ports(some_ports), reports_path(path) {}

// Orders and answers

Json Stage::ask(const Json& request) {
  const auto answer = gateway.command(request.dump());
  EXPECT_TRUE(answer) << "no answer to " << request;
  return parsed(answer.value_or(""));
}

Json Stage::ask_server(const Json& request) {
  Json answer = ask(request);
  const Json head{{"version", "2.1"}, {"server", hostname()}, {"morvane_version", rrm::build_version}};
  for (const auto& [key, value] : head.items()) {
    EXPECT_EQ(answer.value(key, ""), value) << request << " -> " << answer.dump().substr(0, shown);
    answer.erase(key);
  }
  return answer;
}

void Stage::expect_answer(const Json& request, const Json& expected) {
  EXPECT_EQ(in_order(ask(request)), in_order(expected)) << request;
}

Stage::Fields Stage::reply_to(int type, const Fields& fields, int reply_type) {
  const Gateway::Served served = gateway.send(type, fields);
  EXPECT_EQ(served.error, 0) << type;
  EXPECT_EQ(served.replies.size(), 1u) << type << " is answered once";
  if (served.replies.size() != 1) return {};
  EXPECT_EQ(served.replies.front().number("type"), reply_type) << "in answer to " << type;
  return served.replies.front();
}

Json Stage::text_of_reply_to(int type, const Fields& fields, int reply_type) {
  return parsed(text_in(reply_to(type, fields, reply_type), "text"));
}

void Stage::order(int type, const Fields& fields) {
  const Gateway::Served served = gateway.send(type, fields);
  EXPECT_EQ(served.error, 0) << type;
  EXPECT_TRUE(served.replies.empty()) << type << " has no answer";
}

std::optional<Json> Stage::manage(const Fields& request, const std::vector<std::string>& reasons) {
  const Fields reply =
      reply_to(zal::IpcMsgMorvaneRequest::type_number, request, zal::IPC_MSG__RRM_MORVANE_RESP::type_number);
  EXPECT_EQ(reply.number("kind"), request.number("kind"));
  const std::string error = text_in(reply, "error");
  const std::string result = text_in(reply, "result");
  if (reply.number("failed") == 1) {
    EXPECT_NE(std::find(reasons.begin(), reasons.end(), error), reasons.end())
        << "'" << error << "' is no reason for " << zal::bus::to_json(request);
    EXPECT_EQ(result, "");
    return std::nullopt;
  }
  EXPECT_EQ(reply.number("failed"), 0);
  EXPECT_EQ(error, "");
  fulfilled();
  return result.empty() ? Json::object() : parsed(result);
}

// What the orders have come to

void Stage::expect_config(const Json& request, const Json& answer) {
  Json expected{{"version", "2.1"}};
  expected.update(answer);
  EXPECT_EQ(ask(request), expected) << request;
  fulfilled();
}

// A master that restored its domains as the first thing keeps the state that it came from.
void Stage::send_vrrp_state(int state) {
  order(zal::IPC_MSG__VRRP_STATE::type_number, {{"state", std::int64_t{state}}});
  const bool keeps = state == 0 && (vrrp_state == 0 || vrrp_state == 3);
  if (config.global.at("enabled") == 0 || state == 3) {
    vrrp_state = state;
  } else {
    is_master = state < 2;
    if (!keeps) vrrp_state = state;
  }
  EXPECT_EQ(gateway.radio().vrrp_state(), vrrp_state) << "after " << state;
}

void Stage::send_setup(const ExpectedConfig& next) {
  order(zal::IPC_MSG__RRM_SETUP::type_number, {{"text", next.document().dump()}});
  const bool was_enabled = config.global.at("enabled") == 1;
  config = next;
  const bool is_enabled = config.global.at("enabled") == 1;
  if (was_enabled && !is_enabled) is_master = false;
  if (!was_enabled && is_enabled && vrrp_state != 3) is_master = vrrp_state < 2;
}

void Stage::order_role(bool master, bool with_domains) {
  Json request{{"vrrp", {{"role", master ? "master" : "backup"}}}};
  if (master && with_domains) request = Json::parse(commands::role_master(gateway.radio().backups()));
  EXPECT_EQ(ask_server(request), Json({{"status", "success"}})) << request.dump().substr(0, shown);
  is_master = master;
}

void Stage::set_global(const Json& section) {
  const Json wrong = offenders(global_keys(), section);
  expect_answer({{"cfg", {{"operation", "set"}, {"level", "global"}, {"config", section}}}},
                {{"version", "2.1"}, {"invalid_parameters", wrong}, {"operation", "set"}, {"level", "global"}});
  if (wrong.empty()) take_over(config.global, section);
}

void Stage::tell_records(const std::vector<KnownAp>& aps) {
  std::vector<Fields> frames;
  for (const KnownAp& ap : aps) {
    const Json record{{"ip", ap.ip}, {"location", ap.domain}, {"board-type", ap.board}};
    frames.push_back({{"mac", ap.mac}, {"text", record.dump()}});
    records[ap.mac] = ap;
  }
  EXPECT_TRUE(gateway.send_all(zal::IPC_MSG__RRM_AP_INFO::type_number, frames));
}

std::vector<int> Stage::session_ids() {
  std::vector<int> ids;
  const Json rest = ask_server({{"rrm", {{"sessions", 1}}}});
  for (const Json& session : rest.at("websock-sessions")) ids.push_back(session.at("id"));
  for (const int id : ids) seen_.emplace(id, Steady::now());
  return ids;
}

void Stage::drop(const std::vector<int>& ids, bool by_bus) {
  if (by_bus) {
    std::string filter;
    for (const int id : ids) filter += (filter.empty() ? "" : ",") + std::to_string(id);
    const Json answer = text_of_reply_to(zal::IPC_MSG__RRM_API_REM_SESSIONS::type_number, {{"filter", filter}},
                                         zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP::type_number);
    EXPECT_EQ(answer.size(), 3u) << answer;
  } else {
    EXPECT_EQ(ask_server({{"rrm", {{"drop_session", "true"}, {"ids", ids}}}}), Json::object());
  }
  dropped.insert(ids.begin(), ids.end());
  for (const int id : ids) {
    if (Steady::now() < seen_.at(id) + longest_beginning) dropped_early.insert(id);
  }
  if (!ids.empty()) fulfilled();
}

// What answers look like

void Stage::expect_ap(const std::string& domain, const std::string& mac, const Json& rest) {
  ASSERT_EQ(rest.size(), 1u) << mac << ": " << rest.dump().substr(0, shown);
  const std::string key = rest.begin().key();
  if (key == "error") {
    const bool gone = rest == Json({{"error", "ap not found"}}) && may_run(domain);
    EXPECT_TRUE(gone || rest == Json({{"error", "domain not found"}})) << domain << " " << mac << ": " << rest;
    return;
  }
  EXPECT_TRUE(may_run(domain)) << domain << " is out of service, and tells of " << mac;
  EXPECT_TRUE(key == "active-ap" || key == "deleted-ap" || key == "unanswered-ap") << key;
  EXPECT_TRUE(rest.at(key).contains("radios")) << rest.dump().substr(0, shown);
  fulfilled();
}

void Stage::expect_details(const std::string& domain, const Json& rest) {
  if (rest == Json({{"error", "domain not found"}})) return;
  EXPECT_TRUE(may_run(domain)) << domain << " is out of service, and answers " << rest.dump().substr(0, shown);
  ASSERT_TRUE(rest.size() == 1 && rest.contains("details")) << rest.dump().substr(0, shown);
  const Json& details = rest.at("details");
  EXPECT_EQ(details.at("name"), domain);
  std::size_t known = 0;
  for (const char* set : {"ap", "unanswered-ap", "deleted-ap"}) {
    const Json& aps = details.at(std::string(set) + "s");
    EXPECT_EQ(details.at(std::string(set) + "-count"), aps.size()) << set;
    known += aps.size();
  }
  EXPECT_LE(known, static_cast<std::size_t>(Crowd::aps_of_domain)) << domain;
  if (!details.at("aps").empty()) fulfilled();
}

void Stage::expect_overview(const Json& rest) {
  ASSERT_TRUE(rest.size() == 1 && rest.contains("domains")) << rest;
  for (const Json& domain : rest.at("domains")) {
    EXPECT_TRUE(may_run(domain.at("name"))) << domain;
    const int known = domain.at("ap-count").get<int>() + domain.at("unanswered-ap-count").get<int>() +
                      domain.at("deleted-ap-count").get<int>();
    EXPECT_TRUE(known >= 0 && known <= Crowd::aps_of_domain) << domain;
    fulfilled();
  }
}

void Stage::expect_report(const Json& report, const std::string& domain) {
  EXPECT_EQ(report.at("domain"), domain);
  EXPECT_EQ(report.at("domain_config").size(), domain_keys().size());
  EXPECT_FALSE(report.at("details").empty()) << domain;
  fulfilled();
}

// Sorted by location and address; all that the controller knows and that are connected from an address of theirs.
void Stage::expect_sessions(const Json& list, const std::optional<std::string>& location) {
  std::pair<std::string, std::string> last;
  for (const Json& session : list) {
    const auto known = records.find(session.at("ap-mac"));
    ASSERT_NE(known, records.end()) << session;
    const KnownAp& ap = known->second;
    EXPECT_EQ(session, Json({{"ap-mac", ap.mac},
                             {"ap-ip", ap.ip},
                             {"session-id", session.at("session-id")},
                             {"ap-board-type", ap.board},
                             {"ap-location", ap.domain}}));
    EXPECT_TRUE(!location || *location == ap.domain) << session;
    EXPECT_LT(last, std::pair(ap.domain, ap.mac));
    last = {ap.domain, ap.mac};
  }
  if (!is_master) {
    EXPECT_TRUE(list.empty()) << list;
  }
}

// Chances

std::string Stage::any_pattern() {
  std::vector<std::string> names{"common"};
  for (const auto& [name, settings] : config.patterns) names.push_back(name);
  return dice.one_of(names);
}

std::optional<std::string> Stage::a_free_pattern() {
  std::vector<std::string> names;
  for (const auto& [name, settings] : config.patterns) {
    if (!config.is_bound(name)) names.push_back(name);
  }
  return names.empty() ? std::nullopt : std::optional(dice.one_of(names));
}

std::string Stage::any_time_zone() {
  static const std::vector<std::string> zones{"", "3:00", "-12:00", "14:00", "-00:30", "5:45", "0:00"};
  return dice.one_of(zones);
}

Json Stage::value_of(const Key& key, bool wrong) {
  switch (key.kind) {
    case Key::Kind::flag:
      return dice.between(0, 1);
    case Key::Kind::text:
      return "/tmp/nobody-writes-here-" + std::to_string(dice.below(10));
    case Key::Kind::time:
      if (wrong) return dice.happens(50) ? "25:00" : "noon";
      return std::to_string(dice.between(0, 23)) + ":" + std::to_string(dice.between(10, 59));
    case Key::Kind::number:
      break;
  }
  if (wrong) return dice.happens(50) ? key.least - 1 : key.most + 1;
  return dice.happens(20) ? key.least : dice.happens(20) ? key.most : dice.between(key.least, key.most);
}

// The keys on which the test itself stands are left alone, and so are the two whose ranges depend on each other, save
// together.
Json Stage::any_values(const std::vector<Key>& keys) {
  static const std::set<std::string> left_alone{"enabled", "listen_port", "reports_path", "load_balance_sta_low",
                                                "load_balance_sta_high"};
  Json section = Json::object();
  for (int i = dice.between(1, 5); i > 0; --i) {
    const Key& key = dice.one_of(keys);
    if (!left_alone.contains(key.name)) section[key.name] = value_of(key, false);
  }
  if (&keys == &domain_keys() && dice.happens(20)) {
    section["load_balance_sta_low"] = dice.between(1, 40);
    section["load_balance_sta_high"] = dice.between(40, 100);
  }
  return section;
}

Json Stage::wrong_values(const std::vector<Key>& keys) {
  Json section = any_values(keys);
  while (offenders(keys, section).empty()) {
    const Key& key = dice.one_of(keys);
    if (key.kind == Key::Kind::number || key.kind == Key::Kind::time) section[key.name] = value_of(key, true);
  }
  return section;
}

}  // namespace load
