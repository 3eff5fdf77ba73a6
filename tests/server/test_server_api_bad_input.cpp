// Every command with every key missing, unknown, of the wrong type, empty or too long: the answer to the letter, and
// the server as it was but for what the answer says.
#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "WebsockServerWorker.h"
#include "json/JsonWriter.h"
#include "reports/report_texts.h"
#include "server/api_support.h"
#include "support/bad_json.h"
#include "support/messages.h"
#include "websocket/fake_lws.h"
#include "websocket/ws_server.h"

namespace rrm::testing {
namespace {

using Lines = std::vector<std::string>;

// The tables. "@" stands for the text that was read: as a JSON text in an answer, as it is in a change.

constexpr const char* no_answer = "no answer";

struct Row {
  std::string where;
  std::string how;  // the kinds of faults; any: all that no row above names
  std::string answer;
  Lines change = {};  // of the picture: "- " a line that goes, "+ " one that comes
};

struct Command {
  std::string valid;
  std::string answer;
  Lines change;
  std::vector<Row> rows;
};

// Long texts need not be seen to be compared.
std::string shortened(const std::string& text) {
  const std::size_t first = text.find("aaaaaaaaaaaaaaaaaaaa");
  if (first == std::string::npos) return text;
  const std::size_t last = text.find_first_not_of('a', first);
  return text.substr(0, first) + "<" + std::to_string((last == std::string::npos ? text.size() : last) - first) +
         " a>" + (last == std::string::npos ? "" : text.substr(last));
}

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// "<label> key:value" of each member of a flat object, whose braces are left out.
Lines settings_lines(const std::string& label, const std::string& members) {
  Lines lines;
  std::size_t first = 0;
  while (first < members.size()) {
    const std::size_t next = std::min(members.find(",\"", first), members.size());
    const std::string member = members.substr(first, next - first);
    const std::size_t colon = member.find("\":");
    lines.push_back(label + " " + member.substr(1, colon - 1) + ":" + member.substr(colon + 2));
    first = next + 1;
  }
  return lines;
}

template <class Settings>
Lines settings_lines_of(const std::string& label, const Settings& settings) {
  JsonWriter writer;
  write_settings(settings, writer);
  const std::string text = writer.to_string();
  return settings_lines(label, text.substr(1, text.size() - 2));
}

// What of the configuration and of the workers an outsider can see.
Lines picture_of(const TestServer& server, const Capture& capture) {
  const GlobalConfig& config = server.configuration();
  Lines picture = settings_lines_of("global", config.global());
  config.for_each_pattern([&](const std::string& name, const DomainConfig& settings) {
    picture = picture + settings_lines_of("pattern " + name, settings);
  });
  config.for_each_domain([&](const std::string& name, const DomainInfo& info) {
    picture.push_back("domain " + name + " " + info.pattern + " '" + info.time_zone + "' " +
                      std::to_string(info.time_zone_offset));
  });
  config.for_each_domain_config([&](const std::string& name, const DomainConfig& settings) {
    picture = picture + settings_lines_of("domain " + name, settings);
  });
  for (const std::string& domain : server.domains()) picture.push_back("worker " + domain);
  picture.push_back(std::string("role ") + RRM::role_name(server.role()));
  for (const std::string& line : capture.lines(LOG_TRACE)) {
    if (line.starts_with("drop_session_at_websock_worker")) picture.push_back(line);
  }
  const std::size_t starts = capture.count(std::string("MorVane version ") + build_version + " start\n");
  if (starts != 0) picture.push_back("restarted " + std::to_string(starts));
  return picture;
}

Lines difference(Lines before, Lines after) {
  std::sort(before.begin(), before.end());
  std::sort(after.begin(), after.end());
  Lines gone;
  Lines come;
  std::set_difference(before.begin(), before.end(), after.begin(), after.end(), std::back_inserter(gone));
  std::set_difference(after.begin(), after.end(), before.begin(), before.end(), std::back_inserter(come));
  Lines change;
  for (const std::string& line : gone) change.push_back("- " + line);
  for (const std::string& line : come) change.push_back("+ " + line);
  return change;
}

Lines sorted(Lines lines) {
  std::sort(lines.begin(), lines.end());
  return lines;
}

Lines marked(const std::string& mark, const Lines& lines) {
  Lines result;
  for (const std::string& line : lines) result.push_back(mark + line);
  return result;
}

// Runs each fault of each command on a running server and compares with the tables.
class Sweep : public ::testing::Test {
 protected:
  using Entry = Api::Answer (Api::*)(RRM& rrm, const JsonReader& request);

  // Everything that a command runs on; made anew once a command changed it.
  struct Site {
    explicit Site(const std::string& file) : config(file, site), server(&config) {}
    virtual ~Site() = default;
    virtual Lines picture() const { return {}; }  // what it shows besides
    GlobalConfig config;
    TestServer server;
  };

  virtual std::unique_ptr<Site> make_site() {
    auto made = std::make_unique<Site>(file);
    for (const char* domain : {"hall", "lab", "yard"}) made->server.receive(ap_message("subscribe-request", domain));
    return made;
  }

  Lines picture() const { return picture_of(running->server, capture) + running->picture(); }

  struct Outcome {
    std::string answer;
    Lines change;
  };
  Outcome run(Entry entry, const std::string& text) {
    capture.clear();
    if (running == nullptr) {
      running = make_site();
      capture.clear();
      before = picture();
    }
    std::filesystem::remove(file);
    Api api;
    const Api::Answer answer = (api.*entry)(running->server, JsonReader(text.c_str()));
    Outcome outcome{answer.value_or(no_answer), difference(before, picture())};
    if (!outcome.change.empty()) running.reset();
    return outcome;
  }

  void expect(const Outcome& outcome, const std::string& answer, const Lines& change, const std::string& read) {
    EXPECT_EQ(shortened(outcome.answer), shortened(replaced_all(answer, "@", as_json(read))));
    Lines stated;
    for (const std::string& line : change) stated.push_back(shortened(replaced_all(line, "@", read)));
    Lines seen;
    for (const std::string& line : outcome.change) seen.push_back(shortened(line));
    EXPECT_EQ(sorted(seen), sorted(stated));
  }

  void sweep(Entry entry, const Command& command) {
    SCOPED_TRACE(command.valid);
    expect(run(entry, command.valid), command.answer, command.change, "");
    std::set<const Row*> used;
    for_each_fault(command.valid, [&](const Fault& fault) {
      SCOPED_TRACE(fault.where + " " + fault.how);
      if (fault.how == "unknown") return expect(run(entry, fault.text), command.answer, command.change, "");
      const auto row = std::find_if(command.rows.begin(), command.rows.end(), [&](const Row& one) {
        return one.where == fault.where && names_kind(one.how, fault.how);
      });
      if (row == command.rows.end()) {
        ADD_FAILURE() << "the table does not say";
        return;
      }
      used.insert(&*row);
      const Outcome outcome = run(entry, fault.text);
      expect(outcome, row->answer, row->change, fault.read);
      check(outcome);
    });
    for (const Row& row : command.rows) EXPECT_TRUE(used.contains(&row)) << row.where << " " << row.how;
  }
  virtual void check(const Outcome&) {}

  Capture capture;
  TempDir directory;
  const std::string file = directory.file("rrm.json");
  std::unique_ptr<Site> running;
  Lines before;  // any command
};

// Editing the configuration

class ConfigSweep : public Sweep {
 protected:
  void sweep_all(const std::vector<Command>& commands) {
    for (const Command& command : commands) {
      Command whole = command;
      whole.rows.insert(whole.rows.begin(), {
                                                {"", any, no_answer},
                                                {"/operation", "missing", no_answer},
                                                {"/operation", any, R"({"version":"2.1"})"},
                                                {"/level", "missing", no_answer},
                                            });
      sweep(&Api::process_cfg_command, whole);
    }
  }
  // What is answered is saved.
  void check(const Outcome& outcome) override { EXPECT_EQ(std::filesystem::exists(file), outcome.answer != no_answer); }
};

constexpr const char* not_text = "null number negative fraction true empty array object";
constexpr const char* read_as_zero = "null fraction text empty long control nul array object";

const std::string global_settings =
    R"("enabled":1,"api_port":8089,"cli_api_port":8082,"listen_port":8099,"use_https":0,)"
    R"("report_delete_at_time_utc":"21:00","reports_path":"/var/lib/dunva-morvane/reports",)"
    R"("www_path":"/opt/dunva-morvane/www","vrrp_enabled":0,"vrrp_timeout":15,)"
    R"("vrrp_backup_path":"/tmp/dunva-morvane/backup","vrrp_state_file":"/tmp/keep.mode","use_wildcard_80211r":0)";
const std::string office_settings = replaced_all(replaced_all(default_settings, R"("use_tpc":1)", R"("use_tpc":0)"),
                                                 R"("client_max_age":20)", R"("client_max_age":40)");

TEST_F(ConfigSweep, Get) {
  const std::string of_another_level = R"({"version":"2.1"})";
  sweep_all({
      {R"({"operation":"get","level":"global"})",
       R"({"version":"2.1",)" + global_settings + "}",
       {},
       {{"/level", any, of_another_level}}},
      {R"({"operation":"get","level":"pattern","pattern":"office"})",
       R"({"version":"2.1",)" + office_settings + "}",
       {},
       {{"/level", any, of_another_level},
        {"/pattern", "missing",
         R"({"version":"2.1","patterns":[{"name":"common"},{"name":"office"},{"name":"shop"}]})"},
        {"/pattern", any, no_answer}}},
      {R"({"operation":"get","level":"domain"})",
       R"({"version":"2.1","domains":[{"name":"hall","config":"office","time_zone":"-2:00"},)"
       R"({"name":"lab","config":"common","time_zone":"3:00"},{"name":"yard","config":"common","time_zone":""}]})",
       {},
       {{"/level", any, of_another_level}}},
  });
}

TEST_F(ConfigSweep, Set) {
  const auto set = [](const std::string& level, const std::string& invalid, const std::string& more = "") {
    return R"({"version":"2.1","invalid_parameters":[)" + invalid + R"(],"operation":"set","level":")" + level + "\"" +
           more + "}";
  };
  const auto timeout_is = [](const std::string& value) {
    return Lines{"- global vrrp_timeout:15",
                 "+ global vrrp_timeout:" + value,
                 "- worker hall",
                 "- worker lab",
                 "- worker yard",
                 "+ restarted 1"};
  };
  const auto age_of_shop = [](const std::string& value) {
    return Lines{"- pattern shop client_max_age:20", "+ pattern shop client_max_age:" + value};
  };
  const auto bound_to_office = [](const std::string& zone) {
    return Lines{"- domain lab common '3:00' 10800",
                 "+ domain lab office " + zone,
                 "- domain lab use_tpc:1",
                 "+ domain lab use_tpc:0",
                 "- domain lab client_max_age:20",
                 "+ domain lab client_max_age:40",
                 "- worker lab"};
  };
  const std::string shop = R"(,"pattern":"shop")";
  sweep_all({
      {R"({"operation":"set","level":"global","config":{"vrrp_timeout":20}})",
       set("global", ""),
       timeout_is("20"),
       {{"/level", any, no_answer},
        {"/config", "missing", no_answer},
        {"/config", any, set("global", "")},
        {"/config/vrrp_timeout", "missing", set("global", "")},
        {"/config/vrrp_timeout", read_as_zero, set("global", R"({"vrrp_timeout":0})")},
        {"/config/vrrp_timeout", "negative", set("global", R"({"vrrp_timeout":-7})")},
        {"/config/vrrp_timeout", "number", set("global", ""), timeout_is("7")},
        {"/config/vrrp_timeout", "true", set("global", ""), timeout_is("1")}}},
      {R"({"operation":"set","level":"pattern","pattern":"shop","config":{"client_max_age":50}})",
       set("pattern", "", shop),
       age_of_shop("50"),
       {{"/level", any, no_answer},
        {"/pattern", any, no_answer},
        {"/config", "missing", no_answer},
        {"/config", any, set("pattern", "", shop)},
        {"/config/client_max_age", "missing", set("pattern", "", shop)},
        {"/config/client_max_age", read_as_zero, set("pattern", "", shop), age_of_shop("0")},
        {"/config/client_max_age", "negative", set("pattern", R"({"client_max_age":-7})", shop)},
        {"/config/client_max_age", "number", set("pattern", "", shop), age_of_shop("7")},
        {"/config/client_max_age", "true", set("pattern", "", shop), age_of_shop("1")}}},
      {R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":"office","time_zone":"1:00"}})",
       set("domain", ""),
       bound_to_office("'1:00' 3600"),
       {{"/level", any, no_answer},
        {"/domain", any, no_answer},
        {"/config", any, no_answer},
        {"/config/pattern", any, no_answer},
        {"/config/time_zone", "missing", set("domain", ""), bound_to_office("'' 0")},
        {"/config/time_zone", not_text, set("domain", R"({"time_zone":""})")},
        {"/config/time_zone", texts, set("domain", R"({"time_zone":@})")}}},
  });
}

TEST_F(ConfigSweep, Add) {
  const auto add = [](const std::string& invalid, const std::string& more = "") {
    return R"({"version":"2.1","invalid_parameters":[)" + invalid + R"(],"operation":"add")" + more + "}";
  };
  const std::string loft_added = R"(,"pattern":"loft","add_status":"Success")";
  const auto pattern_is = [](const std::string& name, const std::string& age) {
    return marked("+ ", settings_lines("pattern " + name, replaced_all(default_settings, R"("client_max_age":20)",
                                                                       R"("client_max_age":)" + age)));
  };
  const std::string domain_added = R"(,"domain":"loft","add_status":"Success")";
  const std::string domain_refused = R"(,"domain":"loft","add_status":"Domain exists or chosen pattern not exists.")";
  const auto domain_is = [](const std::string& name, const std::string& zone) {
    return Lines{"+ domain " + name + " office " + zone} +
           marked("+ ", settings_lines("domain " + name, office_settings));
  };
  sweep_all({
      {R"({"operation":"add","level":"pattern","pattern":"loft","config":{"client_max_age":50}})",
       add("", loft_added),
       pattern_is("loft", "50"),
       {{"/level", any, add("")},
        {"/pattern", texts, add("", R"(,"pattern":@,"add_status":"Success")"), pattern_is("@", "50")},
        {"/pattern", any, no_answer},
        {"/config", "missing", no_answer},
        {"/config", any, add("", loft_added), pattern_is("loft", "20")},
        {"/config/client_max_age", "missing", add("", loft_added), pattern_is("loft", "20")},
        {"/config/client_max_age", read_as_zero, add("", loft_added), pattern_is("loft", "0")},
        {"/config/client_max_age", "negative",
         add(R"({"client_max_age":-7})", R"(,"pattern":"loft","add_status":"Pattern exists")")},
        {"/config/client_max_age", "number", add("", loft_added), pattern_is("loft", "7")},
        {"/config/client_max_age", "true", add("", loft_added), pattern_is("loft", "1")}}},
      {R"({"operation":"add","level":"domain","domain":"loft","config":{"pattern":"office","time_zone":"1:00"}})",
       add("", domain_added),
       domain_is("loft", "'1:00' 3600"),
       {{"/level", any, add("")},
        {"/domain", texts, add("", R"(,"domain":@,"add_status":"Success")"), domain_is("@", "'1:00' 3600")},
        {"/domain", any, no_answer},
        {"/config", any, no_answer},
        {"/config/pattern", "missing", no_answer},
        {"/config/pattern", texts, add(R"({"pattern":@})", domain_refused)},
        {"/config/pattern", any, add(R"({"pattern":""})", domain_refused)},
        {"/config/time_zone", "missing", add("", domain_added), domain_is("loft", "'' 0")},
        {"/config/time_zone", not_text, add(R"({"time_zone":""})")},
        {"/config/time_zone", texts, add(R"({"time_zone":@})")}}},
  });
}

TEST_F(ConfigSweep, Remove) {
  const auto remove = [](const std::string& more = "") {
    return R"({"version":"2.1","operation":"remove")" + more + "}";
  };
  sweep_all({
      {R"({"operation":"remove","level":"pattern","pattern":"office"})",
       remove(R"(,"pattern":"office","remove_status":0)"),
       marked("- ", settings_lines("pattern office", office_settings)) +
           marked("- ", settings_lines("domain hall", office_settings)) +
           Lines{"- domain hall office '-2:00' -7200", "- worker hall"},
       {{"/level", any, remove()},
        {"/pattern", texts, remove(R"(,"pattern":@,"remove_status":1)")},
        {"/pattern", any, no_answer}}},
      {R"({"operation":"remove","level":"domain","domain":"lab"})",
       remove(R"(,"domain":"lab","remove_status":0)"),
       marked("- ", settings_lines("domain lab", default_settings)) +
           Lines{"- domain lab common '3:00' 10800", "- worker lab"},
       {{"/level", any, remove()},
        {"/domain", texts, remove(R"(,"domain":@,"remove_status":1)")},
        {"/domain", any, no_answer}}},
  });
}

// Every setting. A value that is no number reads as 0, true as 1.

struct SettingCase {
  std::string key;
  std::string standard;
  std::string kind;  // "switch", "time", "path", or which of 0, 1, 7 and -7 the setting takes
};

const std::vector<SettingCase> domain_cases = {
    {"use_dunva_rrm_scan", "1", "switch"},
    {"use_dca", "1", "switch"},
    {"use_tpc", "1", "switch"},
    {"use_hd_mode", "1", "switch"},
    {"dca_threshold", "25", "0 1 7"},
    {"ap_rssi_threshold_2g", "-70", "-7"},
    {"ap_rssi_threshold_5g", "-70", "-7"},
    {"ap_rssi_threshold_6g", "-70", "-7"},
    {"hysteresis_2g", "2", "1 7"},
    {"hysteresis_5g", "2", "1 7"},
    {"hysteresis_6g", "2", "1 7"},
    {"optimization_time", "\"00:00\"", "time"},
    {"use_optimization_time", "0", "switch"},
    {"use_optimization_event", "1", "switch"},
    {"away_timeout", "300", ""},
    {"blacklist_thr_low", "-75", "-7"},
    {"blacklist_thr_high", "-65", "-7"},
    {"blacklist_timeout", "30", "7"},
    {"load_balance_sta_low", "5", "1 7"},
    {"load_balance_sta_high", "20", "7"},
    {"roam_attempt_timeout", "600", "0 1 7"},
    {"sta_load_balance_period", "60", "0 1 7"},
    {"load_balance_roam_count_min", "2", "0 1 7"},
    {"load_balance_roam_count_max", "4", "0 1 7"},
    {"use_all_ap_balance", "0", "switch"},
    {"use_balance", "1", "switch"},
    {"client_rssi_renew", "15", "1 7"},
    {"client_max_age", "20", "0 1 7"},
    {"client_try_no_balance", "2", "1 7"},
    {"no_balance_enterprise", "0", "switch"},
    {"use_rrm_report", "1", "switch"},
    {"report_days_to_live", "93", "1 7"},
    {"use_80211k", "1", "switch"},
    {"use_80211r", "1", "switch"},
    {"use_80211r_2g_cross_band", "1", "switch"},
    {"use_80211v", "0", "switch"},
    {"fbt_reassoc_deadline", "1000", ""},
    {"fbt_over_ds", "0", "switch"},
};

const std::vector<SettingCase> global_cases = {
    {"enabled", "1", "switch"},
    {"api_port", "8089", "0 1 7"},
    {"cli_api_port", "8082", "0 1 7"},
    {"listen_port", "8099", "0 1 7"},
    {"use_https", "0", "switch"},
    {"report_delete_at_time_utc", "\"21:00\"", "time"},
    {"reports_path", "\"/var/lib/dunva-morvane/reports\"", "path"},
    {"www_path", "\"/opt/dunva-morvane/www\"", "path"},
    {"vrrp_enabled", "0", "switch"},
    {"vrrp_timeout", "15", "1 7"},
    {"vrrp_backup_path", "\"/tmp/dunva-morvane/backup\"", "path"},
    {"vrrp_state_file", "\"/tmp/keep.mode\"", "path"},
    {"use_wildcard_80211r", "0", "switch"},
};

// What a fault of one setting leads to: a value that is stored, or one that is refused.
struct SettingOutcome {
  std::string stored = {};
  std::string refused = {};
};

SettingOutcome outcome_of(const SettingCase& setting, const Fault& fault) {
  if (fault.how == "missing") return {};
  const bool is_text = names_kind(texts, fault.how);
  if (setting.kind == "time") return {"", is_text ? as_json(fault.read) : "\"\""};
  if (setting.kind == "path") return {is_text ? as_json(fault.read) : "", ""};
  const std::string number = fault.how == "number"     ? "7"
                             : fault.how == "negative" ? "-7"
                             : fault.how == "true"     ? "1"
                                                       : "0";
  if (setting.kind == "switch") return {number == "0" ? "0" : "1", ""};
  return names_kind(setting.kind, number) ? SettingOutcome{number, ""} : SettingOutcome{"", number};
}

class SettingSweep : public ConfigSweep {
 protected:
  std::unique_ptr<Site> make_site() override { return std::make_unique<Site>(file); }
  void sweep_settings(const std::vector<SettingCase>& cases, const std::string& request, const std::string& answer,
                      const std::string& label, const Lines& beside_a_change) {
    for (const SettingCase& setting : cases) {
      SCOPED_TRACE(setting.key);
      const std::string valid = R"({"config":{")" + setting.key + "\":" + setting.standard + "}," + request + "}";
      for_each_fault_at("/config/" + setting.key, valid, [&](const Fault& fault) {
        SCOPED_TRACE(fault.how);
        const SettingOutcome stated = outcome_of(setting, fault);
        Lines change;
        if (!stated.stored.empty() && stated.stored != setting.standard) {
          change = Lines{"- " + label + " " + setting.key + ":" + setting.standard,
                         "+ " + label + " " + setting.key + ":" + stated.stored} +
                   beside_a_change;
        }
        const std::string refused = stated.refused.empty() ? "" : "{\"" + setting.key + "\":" + stated.refused + "}";
        expect(run(&Api::process_cfg_command, fault.text), replaced_all(answer, "#", refused), change, "");
      });
    }
  }
};

TEST_F(SettingSweep, OfADomain) {
  sweep_settings(domain_cases, R"("operation":"set","level":"pattern","pattern":"shop")",
                 R"({"version":"2.1","invalid_parameters":[#],"operation":"set","level":"pattern","pattern":"shop"})",
                 "pattern shop", {});
  EXPECT_EQ(domain_cases.size(), settings_lines("", default_settings).size()) << "none is left out";
}

TEST_F(SettingSweep, OfTheServer) {
  const std::string request = R"("operation":"set","level":"global")";
  const std::string answer = R"({"version":"2.1","invalid_parameters":[#],"operation":"set","level":"global"})";
  sweep_settings({global_cases.front()}, request, answer, "global", {});  // switched off, it does not start again
  sweep_settings({global_cases.begin() + 1, global_cases.end()}, request, answer, "global", {"+ restarted 1"});
  EXPECT_EQ(global_cases.size(), settings_lines("", global_settings).size()) << "none is left out";
}

// All of them at once: a section that is wrong in every key is refused as a whole and names every one that is.
TEST_F(ConfigSweep, ASectionThatIsWrongInEveryKeyIsRefusedAsAWhole) {
  std::string section;
  for (const SettingCase& setting : domain_cases) {
    section += (section.empty() ? "" : ",") + ("\"" + setting.key + R"(":"99999999999999999999")");
  }
  const Outcome outcome = run(&Api::process_cfg_command,
                              R"({"operation":"set","level":"pattern","pattern":"office","config":{)" + section + "}}");
  EXPECT_TRUE(outcome.change.empty());
  const JsonReader answer(outcome.answer.c_str());
  EXPECT_EQ(answer.get("invalid_parameters").size(), static_cast<int>(domain_cases.size()));
}

TEST_F(ConfigSweep, ACommandThatIsCutAnywhereOrIsNoJsonIsNotAnswered) {
  const std::string remove = R"({"operation":"remove","level":"pattern","pattern":"office"})";
  std::vector<std::string> commands = {
      "nonsense",
      remove + "x",
      remove + remove,
      "{'operation':'get','level':'global'}",
      R"({"operation":"get","level":"global",})",
      std::string(10000, '['),
      R"({"operation":"get","level":"global","deep":)" + std::string(600, '[') + std::string(600, ']') + "}"};
  for (std::size_t length = 0; length < remove.size(); ++length) commands.push_back(remove.substr(0, length));
  for (const std::string& command : commands) {
    SCOPED_TRACE(command.substr(0, 100));
    const Outcome outcome = run(&Api::process_cfg_command, command);
    expect(outcome, no_answer, {}, "");
    check(outcome);
  }
}

// As everywhere in the server a text ends at its first zero byte, and of a repeated key the last one counts.
TEST_F(ConfigSweep, ANameIsWhatIsReadOfIt) {
  expect(run(&Api::process_cfg_command, R"({"operation":"get","level":"pattern","pattern":"office\u0000x"})"),
         R"({"version":"2.1",)" + office_settings + "}", {}, "");
  expect(run(&Api::process_cfg_command, R"({"operation":"get","level":"pattern","pattern":"\u0000office"})"), no_answer,
         {}, "");
  expect(run(&Api::process_cfg_command, R"({"operation":"remove","operation":"get","level":"pattern",)"
                                        R"("pattern":"cellar","pattern":"office"})"),
         R"({"version":"2.1",)" + office_settings + "}", {}, "");
}

// Questions

const char* const ap1 = "00:11:22:33:44:00";

const std::string lab_details =
    R"("details":{"name":"lab","metrics":{"rrm-response-expected":0,"rrm-response-count":0,)"
    R"("rrm-mode-response-expected":0,"rrm-mode-response-count":0,"rrm-config-changed-expected":0,)"
    R"("rrm-config-changed-count":0,"timer-request-modes-expected":0,"timer-request-modes-count":0,)"
    R"("timer-request-scan-expected":0,"timer-request-scan-count":0,"timer-optimize-expected":0,)"
    R"("timer-optimize-count":0},"ap-count":1,"unanswered-ap-count":0,"deleted-ap-count":0,)"
    R"("queue-size":0,"rrm-status":4,"fbt-status":0,"aps":[{"board":"NVA-3wz",)"
    R"("mac":"00:11:22:33:44:00","serial":"SN44:00","hw":"1.0","radios":[{"id":0,"vaps":[]},)"
    R"({"id":1,"vaps":[]},{"id":2,"vaps":[]}]}],"unanswered-aps":[],"deleted-aps":[]})";
const std::string unlocked =
    R"("power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,"locked-80211v":0,)";
const std::string absent = R"("channel":0,"band":0,"power":0,"max-power":0,"min-power":0,"bandwidth":20,)"
                           R"("primary-channel":0,"available-channels":[],"vaps":[],"assoc_clients":[]})";
const std::string ap_whole =
    R"("active-ap":{"mac":"00:11:22:33:44:00","active":0,"ap-mac-count":48,"use-wildcard-80211r":0,)"
    R"("radios":{"received":0,"interfaces":[)"
    R"({"id":0,"mac":"00:11:22:33:44:00","mac-offset":0,"radio-mac-count":16,"status":0,)" +
    unlocked + absent + R"(,{"id":1,"mac":"00:11:22:33:44:10","mac-offset":16,"radio-mac-count":16,"status":1,)" +
    unlocked +
    R"("channel":36,"band":5,"power":14,"max-power":20,"min-power":5,"bandwidth":20,"primary-channel":0,)"
    R"("available-channels":[36,40,44,48],"vaps":[],"assoc_clients":[]},)"
    R"({"id":2,"mac":"00:11:22:33:44:20","mac-offset":32,"radio-mac-count":16,"status":0,)" +
    unlocked + absent + R"(]},"visible-members":[],"visible-rogue":[]})";
const std::string ap_links = R"("active-ap":{"radios":[{"id":0,"vaps":[]},{"id":1,"vaps":[]},{"id":2,"vaps":[]}]})";
const std::string overview =
    R"("domains":[{"name":"lab","ap-count":1,"unanswered-ap-count":0,"deleted-ap-count":0,"common-config":1}])";
const std::string not_found = R"("error":"domain not found")";
const std::string sessions = R"("websock-sessions":[{"id":1,"peer":"192.0.2.1"}])";

// "lab" runs with one access point; somebody else has a session.
class QuerySweep : public Sweep {
 protected:
  struct QuerySite : Site {
    explicit QuerySite(const std::string& file) : Site(file), probe(server.replace_websock(websocket)) {
      EXPECT_TRUE(websocket->connect());
      library.open(FakeLws::handle(1));
      server.make_real_domain_workers();
      server.receive(a_subscribe(ap1).with_radio(a_5ghz_radio()).text(), 7);
      EXPECT_TRUE(eventually([&] { return server.sent().size() == 1; }));
    }
    ~QuerySite() override {
      server.release();
      websocket->disconnect();
      server.replace_websock(probe);
    }
    Lines picture() const override {
      Api api;
      Lines lines;
      for (const char* question :
           {"{}", R"({"domain":"lab","ap":"00:11:22:33:44:00"})",
            R"({"domain":"lab","ap":"00:11:22:33:44:00","fbt-links":{}})", R"({"sessions":1})"}) {
        lines.push_back(*api.process_rrm_command(const_cast<TestServer&>(server), JsonReader(question)));
      }
      return lines;
    }
    FakeLws library;
    Dispatcher dispatcher;
    std::shared_ptr<WebsockServerWorker> websocket =
        std::make_shared<WebsockServerWorker>(&server, &config, dispatcher.upstream(), library);
    std::shared_ptr<Worker> probe;
  };

  std::unique_ptr<Site> make_site() override {
    auto made = std::make_unique<QuerySite>(file);
    bool failed = false;
    JsonWriter ignored;
    JsonWriter list = JsonWriter::array(ignored, "invalid_parameters");
    made->config.set_global(JsonReader((R"({"reports_path":")" + reports.path().string() + "\"}").c_str()), list,
                            failed);
    return made;
  }
  static std::string of_server(const std::string& members = "") {
    return R"({"version":"2.1","server":")" + GlobalConfig("").hostname() + R"(","morvane_version":")" + build_version +
           "\"" + (members.empty() ? "" : ",") + members + "}";
  }
  void sweep_all(const std::vector<Command>& commands) {
    for (Command command : commands) {
      command.answer = of_server(command.answer);
      for (Row& row : command.rows) row.answer = of_server(row.answer);
      command.rows.insert(command.rows.begin(), {{"", any, of_server(overview)}});
      sweep(&Api::process_rrm_command, command);
    }
  }

  ManualClock clock;
  TempDir reports;
};

TEST_F(QuerySweep, Domains) {
  const std::string ap_not_found = R"("error":"ap not found")";
  const std::string failure = R"("status":"failure")";
  sweep_all({
      {R"({"domain":"lab"})", lab_details, {}, {{"/domain", "missing", overview}, {"/domain", any, not_found}}},
      {R"({"domain":"lab","ap":"00:11:22:33:44:00"})",
       ap_whole,
       {},
       {{"/domain", "missing", overview},
        {"/domain", any, not_found},
        {"/ap", "missing", lab_details},
        {"/ap", any, ap_not_found}}},
      {R"({"domain":"lab","ap":"00:11:22:33:44:00","fbt-links":{}})",
       ap_links,
       {},
       {{"/domain", "missing", overview},
        {"/domain", any, not_found},
        {"/ap", "missing", lab_details},
        {"/ap", any, ap_not_found},
        {"/fbt-links", "missing", ap_whole},
        {"/fbt-links", any, ap_links}}},
      {R"({"domain":"lab","start_optimization":"true"})",
       R"("status":"success")",
       {},
       {{"/domain", "missing", overview},
        {"/domain", any, not_found},
        {"/start_optimization", "missing", lab_details},
        {"/start_optimization", any, failure}}},
  });
}

TEST_F(QuerySweep, Sessions) {
  const Lines dropped = {"+ drop_session_at_websock_worker: 1 force: 1"};
  sweep_all({
      {R"({"sessions":1})",
       sessions,
       {},
       {{"/sessions", "missing", overview}, {"/sessions", "number negative true", sessions}, {"/sessions", any, ""}}},
      {R"({"drop_session":"true","ids":[1]})",
       "",
       dropped,
       {{"/drop_session", "missing", overview},
        {"/drop_session", any, "", dropped},
        {"/ids", any, ""},
        {"/ids/0", "true", "", dropped},
        {"/ids/0", any, ""}}},
  });
}

constexpr std::time_t report_time = 1700000000;  // 2023-11-14,22:13:20

TEST_F(QuerySweep, Reports) {
  lay_out(reports.path(), report_files("lab", {report_time}, 1));
  const std::string failure = R"("status":"failure")";
  const std::string empty_list = R"("data":[],"count":0,"status":"success")";
  const std::string report =
      R"("report":{"id":"2023-11-14,22:13:20,lab","domain":"lab","date":"2023-11-14,22:13:20 UTC","domain_config":{)" +
      default_settings +
      R"(},"details":[{"ap_mac":"00:11:22:00:00:00","radio_interfaces":[{"radio_id":0,)"
      R"("radio_mac":"00:11:22:00:00:01","before":{"power":20,"channel":36,"eirp":22},)"
      R"("after":{"power":17,"channel":44,"eirp":19},"bandwidth":40,"max_power":23,"min_power":5,)"
      R"("primary_channel":1,"available_channels":[36,40,44,48],"eirp-min":7,"eirp-max":30,)"
      R"("antenna-configuration":{"antenna-gain":3,"cable-loss":1}}]}]},"status":"success")";
  sweep_all({
      {R"({"domain":"lab","report":"2023-11-14,22:13:20,lab"})",
       report,
       {},
       {{"/domain", "missing", overview},
        {"/domain", any, report},  // the id names the domain
        {"/report", "missing", lab_details},
        {"/report", any, failure}}},
      {R"({"domain":"lab","last_report":"lab"})",
       report,
       {},
       {{"/domain", "missing", overview},
        {"/domain", any, failure},
        {"/last_report", "missing", lab_details},
        {"/last_report", any, report}}},
      {R"({"domain":"lab","report_list":{"date_start":"2023-11-14,00:00:00 UTC","date_finish":"2023-11-15,00:00:00 UTC"}})",
       R"("data":[{"id":"2023-11-14,22:13:20,lab","domain":"lab","date":"2023-11-14,22:13:20 UTC"}],"count":1,)"
       R"("status":"success")",
       {},
       {{"/domain", "missing", overview},
        {"/domain", any, failure},
        {"/report_list", "missing", lab_details},
        {"/report_list", any, failure},
        {"/report_list/date_start", any, failure},
        {"/report_list/date_finish", any, failure}}},
  });
}

// The role

class RoleSweep : public Sweep {
 protected:
  std::unique_ptr<Site> make_site() override { return std::make_unique<Site>(file); }
};

TEST_F(RoleSweep, Role) {
  const auto answer = [&](const std::string& members) {
    return R"({"version":"2.1","server":")" + GlobalConfig("").hostname() + R"(","morvane_version":")" + build_version +
           "\"," + members + "}";
  };
  const std::string success = answer(R"("status":"success")");
  const std::string present = answer(R"("role":"backup","status":"success")");
  const std::string refused = answer(R"("status":"failure","error":"role not supported")");
  const Lines master = {"- role backup", "+ role master"};
  for (const Command& command : std::vector<Command>{
           {"{}", present, {}, {{"", any, present}}},
           {R"({"role":"backup"})",
            success,
            {},
            {{"", any, present}, {"/role", "missing", present}, {"/role", any, refused}}},
           {R"({"role":"master","domains":[{"name":"yard"}]})",
            success,
            master + Lines{"+ worker yard"},
            {{"", any, present},
             {"/role", "missing", present},
             {"/role", any, refused},
             {"/domains", any, success, master},
             {"/domains/0", any, success, master},
             {"/domains/0/name", any, success, master}}},
       }) {
    sweep(&Api::process_vrrp_command, command);
  }
}

}  // namespace
}  // namespace rrm::testing
