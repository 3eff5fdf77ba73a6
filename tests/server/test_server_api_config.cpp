// Commands that read and edit the configuration: what they answer, what they change, and which workers have to go.
#include <string>
#include <vector>

#include "server/api_support.h"
#include "support/messages.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string replaced(std::string text, const std::string& part, const std::string& by) {
  const std::size_t at = text.find(part);
  EXPECT_NE(at, std::string::npos) << part;
  return text.replace(at, part.size(), by);
}

class ApiConfig : public ApiTest {
 protected:
  bool unchanged() const { return config == GlobalConfig("", site); }
  // Nothing was answered, stored, saved, restarted or removed.
  void expect_refused(const std::string& request) {
    SCOPED_TRACE(request);
    EXPECT_EQ(cfg(request), "no answer");
    EXPECT_FALSE(saved());
    EXPECT_TRUE(unchanged());
    expect_workers({"hall", "lab", "yard"});
  }
  void expect_workers(const std::vector<std::string>& left) {
    EXPECT_EQ(server.domains(), left);
    EXPECT_EQ(restarts(), 0u);
  }
  std::int32_t age_of(const std::string& domain) const { return config.domain_config(domain).client_max_age; }
};

// The envelope

TEST_F(ApiConfig, WithoutOperationOrLevelThereIsNoAnswer) {
  run_domains({"hall", "lab", "yard"});
  for (const char* request : {"{}", R"({"operation":"get"})", R"({"level":"global"})",
                              R"({"Operation":"get","level":"global"})", "null", "[]", "7", R"("get")", "", "{"}) {
    expect_refused(request);
  }
}

TEST_F(ApiConfig, AnUnknownOperationIsAnsweredWithTheVersionAloneAndSavesAllTheSame) {
  run_domains({"hall", "lab", "yard"});
  for (const char* operation : {R"("drop")", R"("GET")", R"("")", "1", "null", "{}"}) {
    SCOPED_TRACE(operation);
    EXPECT_EQ(cfg(std::string(R"({"level":"global","config":{"vrrp_timeout":20},"operation":)") + operation + "}"),
              R"({"version":"2.1"})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, ACommandOnAConfigurationWithoutFileWritesNone) {
  GlobalConfig without("", site);
  TestServer other(&without);
  EXPECT_NE(api.process_cfg_command(other, JsonReader(R"({"operation":"get","level":"domain"})")), std::nullopt);
  EXPECT_FALSE(saved());
}

// Get

TEST_F(ApiConfig, GetGlobalGivesTheServersSettingsAndRewritesTheFile) {
  EXPECT_EQ(cfg(R"({"operation":"get","level":"global"})"),
            R"({"version":"2.1","enabled":1,"api_port":8089,"cli_api_port":8082,"listen_port":8099,"use_https":0,)"
            R"("report_delete_at_time_utc":"21:00","reports_path":"/var/lib/dunva-morvane/reports",)"
            R"("www_path":"/opt/dunva-morvane/www","vrrp_enabled":0,"vrrp_timeout":15,)"
            R"("vrrp_backup_path":"/tmp/dunva-morvane/backup","vrrp_state_file":"/tmp/keep.mode",)"
            R"("use_wildcard_80211r":0})");
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_TRUE(GlobalConfig(file) == config);
}

TEST_F(ApiConfig, GetPatternGivesItsSettings) {
  EXPECT_EQ(cfg(R"({"operation":"get","level":"pattern","pattern":"common"})"),
            R"({"version":"2.1",)" + default_settings + "}");
  EXPECT_EQ(cfg(R"({"operation":"get","level":"pattern","pattern":"office"})"),
            replaced(replaced(R"({"version":"2.1",)" + default_settings + "}", R"("use_tpc":1)", R"("use_tpc":0)"),
                     R"("client_max_age":20)", R"("client_max_age":40)"));
  EXPECT_TRUE(saved());
}

TEST_F(ApiConfig, GetOfAnUnknownPatternIsNotAnswered) {
  run_domains({"hall", "lab", "yard"});
  for (const char* pattern : {R"("cellar")", R"("Common")", R"("")", "7", "null", "{}", R"(["office"])"}) {
    expect_refused(std::string(R"({"operation":"get","level":"pattern","pattern":)") + pattern + "}");
  }
}

TEST_F(ApiConfig, GetPatternWithoutANameListsThemCommonFirst) {
  EXPECT_EQ(cfg(R"({"operation":"get","level":"pattern"})"),
            R"({"version":"2.1","patterns":[{"name":"common"},{"name":"office"},{"name":"shop"}]})");
  EXPECT_TRUE(saved());
}

TEST_F(ApiConfig, GetDomainListsTheBindings) {
  EXPECT_EQ(
      cfg(R"({"operation":"get","level":"domain","domain":"lab"})"),
      R"({"version":"2.1","domains":[{"name":"hall","config":"office","time_zone":"-2:00"},)"
      R"({"name":"lab","config":"common","time_zone":"3:00"},{"name":"yard","config":"common","time_zone":""}]})");
  EXPECT_TRUE(saved());
}

TEST_F(ApiConfig, GetOfAnotherLevelHoldsTheVersionAlone) {
  for (const char* level : {R"("common")", R"("domains")", R"("")", "0", "null", "[]"}) {
    SCOPED_TRACE(level);
    EXPECT_EQ(cfg(std::string(R"({"operation":"get","level":)") + level + "}"), R"({"version":"2.1"})");
    EXPECT_TRUE(saved());
  }
}

TEST_F(ApiConfig, GetRemovesNoWorkers) {
  run_domains({"hall", "lab", "yard"});
  for (const char* level : {"global", "pattern", "domain"}) {
    cfg(std::string(R"({"operation":"get","level":")") + level + "\"}");
  }
  expect_workers({"hall", "lab", "yard"});
}

// Set: what is refused

TEST_F(ApiConfig, SetWithoutWhatItNeedsIsNotAnswered) {
  run_domains({"hall", "lab", "yard"});
  for (const char* request : {
           R"({"operation":"set","level":"global"})",
           R"({"operation":"set","level":"pattern","pattern":"office"})",
           R"({"operation":"set","level":"domain","domain":"lab"})",
           R"({"operation":"set","level":"pattern","config":{"client_max_age":50}})",
           R"({"operation":"set","level":"pattern","pattern":"","config":{"client_max_age":50}})",
           R"({"operation":"set","level":"pattern","pattern":7,"config":{"client_max_age":50}})",
           R"({"operation":"set","level":"pattern","pattern":null,"config":{"client_max_age":50}})",
           R"({"operation":"set","level":"pattern","pattern":"cellar","config":{"client_max_age":50}})",
           R"({"operation":"set","level":"domain","config":{"pattern":"shop"}})",
           R"({"operation":"set","level":"domain","domain":"","config":{"pattern":"shop"}})",
           R"({"operation":"set","level":"domain","domain":["lab"],"config":{"pattern":"shop"}})",
           R"({"operation":"set","level":"domain","domain":"lab","config":{}})",
           R"({"operation":"set","level":"domain","domain":"lab","config":null})",
           R"({"operation":"set","level":"domain","domain":"lab","config":"shop"})",
           R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":""}})",
           R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":"","time_zone":"99:00"}})",
           R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":1}})",
           R"({"operation":"set","level":"domain","domain":"lab","pattern":"shop","config":{"time_zone":"1:00"}})",
           R"({"operation":"set","level":"domain","domain":"cellar","config":{"pattern":"shop"}})",
           R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":"cellar"}})",
           R"({"operation":"set","level":"domain","domain":"","config":{"pattern":"shop","time_zone":"99:00"}})",
           R"({"operation":"set","level":"common","config":{"client_max_age":50}})",
           R"({"operation":"set","level":"","config":{"client_max_age":50}})",
           R"({"operation":"set","level":7,"config":{"client_max_age":50}})",
       }) {
    expect_refused(request);
  }
}

// Set global

TEST_F(ApiConfig, SetGlobalRestartsTheServerUnderItsRoleWhenSomethingChanged) {
  server.update_vrrp_role(1, nullptr);
  server.record->await("websock: connect");
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(cfg(R"({"operation":"set","level":"global","config":{"vrrp_timeout":20,"use_https":0}})"),
            R"({"version":"2.1","invalid_parameters":[],"operation":"set","level":"global"})");
  EXPECT_EQ(config.global().vrrp_timeout, 20);
  EXPECT_TRUE(saved());
  EXPECT_EQ(capture.count("Global config changed"), 1u);
  EXPECT_EQ(restarts(), 1u);
  EXPECT_EQ(server.role(), RRM::role_master);
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_EQ(capture.lines(LOG_TRACE).front(), "Global config changed");
  server.record->await("websock: connect", 2);
}

TEST_F(ApiConfig, SetGlobalRestartsABackupToo) {
  cfg(R"({"operation":"set","level":"global","config":{"listen_port":9000}})");
  EXPECT_EQ(restarts(), 1u);
  EXPECT_EQ(server.role(), RRM::role_backup);
  EXPECT_FALSE(server.record->has("websock: connect"));
}

TEST_F(ApiConfig, SetGlobalWithoutAChangeRestartsNothing) {
  run_domains({"hall", "lab", "yard"});
  for (const char* section : {"{}", "null", "[]", "5", R"({"vrrp_timeout":15,"enabled":1})", R"({"unknown_key":1})",
                              R"({"client_max_age":50})", R"({"reports_path":""})"}) {
    SCOPED_TRACE(section);
    EXPECT_EQ(cfg(std::string(R"({"operation":"set","level":"global","config":)") + section + "}"),
              R"({"version":"2.1","invalid_parameters":[],"operation":"set","level":"global"})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
  EXPECT_EQ(capture.count("Global config changed"), 0u);
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, SetGlobalWithARejectedValueAppliesNoneAndNamesThemAll) {
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(cfg(R"({"operation":"set","level":"global","config":{"vrrp_timeout":100}})"),
            R"({"version":"2.1","invalid_parameters":[{"vrrp_timeout":100}],"operation":"set","level":"global"})");
  EXPECT_EQ(cfg(R"({"operation":"set","level":"global","config":{"listen_port":9000,"vrrp_timeout":0,)"
                R"("report_delete_at_time_utc":"24:00","api_port":-1}})"),
            R"({"version":"2.1","invalid_parameters":[{"api_port":-1},{"vrrp_timeout":0},)"
            R"({"report_delete_at_time_utc":"24:00"}],"operation":"set","level":"global"})");
  EXPECT_TRUE(saved());
  EXPECT_TRUE(unchanged());
  EXPECT_EQ(capture.count("Global config changed"), 0u);
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, TheServerSwitchedOffAndOnAgainServesItsRole) {
  server.update_vrrp_role(1, nullptr);
  server.record->await("websock: connect");
  run_domains({"lab"});
  cfg(R"({"operation":"set","level":"global","config":{"enabled":0}})");
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_EQ(server.record->count("websock: connect"), server.record->count("websock: disconnect"));
  EXPECT_EQ(server.role(), RRM::role_master);
  cfg(R"({"operation":"set","level":"global","config":{"enabled":1}})");
  server.record->await("websock: connect", 2);
  server.receive(ap_message("subscribe-request", "lab"));
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
}

// Set pattern

TEST_F(ApiConfig, SetPatternRemovesTheWorkersOfItsDomainsAndOfNoOthers) {
  struct Case {
    const char* pattern;
    std::vector<std::string> left;
  };
  for (const Case& one :
       {Case{"common", {"hall"}}, Case{"office", {"lab", "yard"}}, Case{"shop", {"hall", "lab", "yard"}}}) {
    SCOPED_TRACE(one.pattern);
    GlobalConfig edited(file, site);
    TestServer other(&edited);
    for (const char* domain : {"hall", "lab", "yard"}) other.receive(ap_message("subscribe-request", domain));
    capture.clear();
    const std::string request = std::string(R"({"operation":"set","level":"pattern","pattern":")") + one.pattern +
                                R"(","config":{"client_max_age":50}})";
    EXPECT_EQ(
        api.process_cfg_command(other, JsonReader(request.c_str())),
        std::string(R"({"version":"2.1","invalid_parameters":[],"operation":"set","level":"pattern","pattern":")") +
            one.pattern + "\"}");
    EXPECT_TRUE(saved());
    EXPECT_EQ(edited.pattern(one.pattern)->client_max_age, 50);
    EXPECT_EQ(other.domains(), one.left);
    EXPECT_EQ(restarts(), 0u);
    for (const std::string domain : {"hall", "lab", "yard"}) {
      const bool bound = edited.domain_info(domain)->pattern == one.pattern;
      EXPECT_EQ(edited.domain_config(domain).client_max_age == 50, bound) << domain;
    }
  }
}

// A domain keeps the settings that it was bound with while a new document leaves its name alone.
TEST_F(ApiConfig, SetPatternUnchangedCopiesTheSettingsAnewButRemovesNoWorkers) {
  config.load(JsonReader(replaced(site, R"("client_max_age":40)", R"("client_max_age":60)").c_str()));
  ASSERT_EQ(age_of("hall"), 40);
  run_domains({"hall", "lab", "yard"});
  for (const char* section : {R"({"client_max_age":60})", "{}", "null"}) {
    SCOPED_TRACE(section);
    EXPECT_EQ(cfg(std::string(R"({"operation":"set","level":"pattern","pattern":"office","config":)") + section + "}"),
              R"({"version":"2.1","invalid_parameters":[],"operation":"set","level":"pattern","pattern":"office"})");
    EXPECT_TRUE(saved());
    EXPECT_EQ(age_of("hall"), 60);
  }
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, SetPatternWithARejectedValueAppliesNone) {
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(cfg(R"({"operation":"set","level":"pattern","pattern":"common","config":)"
                R"({"client_max_age":50,"away_timeout":9,"use_dca":0,"load_balance_sta_low":30}})"),
            R"({"version":"2.1","invalid_parameters":[{"away_timeout":9},{"load_balance_sta_low":30}],)"
            R"("operation":"set","level":"pattern","pattern":"common"})");
  EXPECT_TRUE(saved());
  EXPECT_TRUE(unchanged());
  expect_workers({"hall", "lab", "yard"});
}

// Set domain

TEST_F(ApiConfig, SetDomainAlwaysRemovesItsWorkerAndItsAlone) {
  for (const char* section :
       {R"({"pattern":"common","time_zone":"3:00"})", R"({"pattern":"office","time_zone":"3:00"})"}) {
    SCOPED_TRACE(section);
    run_domains({"hall", "lab", "yard"});
    EXPECT_EQ(cfg(std::string(R"({"operation":"set","level":"domain","domain":"lab","config":)") + section + "}"),
              R"({"version":"2.1","invalid_parameters":[],"operation":"set","level":"domain"})");
    EXPECT_TRUE(saved());
    EXPECT_EQ(config.domain_info("lab")->time_zone, "3:00");
    expect_workers({"hall", "yard"});
  }
  EXPECT_EQ(config.domain_info("lab")->pattern, "office");
  EXPECT_EQ(age_of("lab"), 40);
}

TEST_F(ApiConfig, SetDomainWithoutATimeZoneClearsIt) {
  ASSERT_EQ(config.domain_info("lab"), (DomainInfo{"common", 10800, "3:00"}));
  cfg(R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":"common"}})");
  EXPECT_EQ(config.domain_info("lab"), (DomainInfo{"common", 0, ""}));
}

TEST_F(ApiConfig, SetDomainWithABadTimeZoneChangesNothing) {
  run_domains({"hall", "lab", "yard"});
  struct Case {
    const char* zone;
    const char* listed;
  };
  for (const Case& one :
       {Case{R"("14:01")", "14:01"}, Case{R"("-12:01")", "-12:01"}, Case{R"("")", ""}, Case{"3", ""}}) {
    SCOPED_TRACE(one.zone);
    EXPECT_EQ(cfg(std::string(R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":"shop",)") +
                  R"("time_zone":)" + one.zone + "}}"),
              std::string(R"({"version":"2.1","invalid_parameters":[{"time_zone":")") + one.listed +
                  R"("}],"operation":"set","level":"domain"})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
  expect_workers({"hall", "lab", "yard"});
}

// Add

TEST_F(ApiConfig, AddWithoutWhatItNeedsIsNotAnswered) {
  run_domains({"hall", "lab", "yard"});
  for (const char* request : {
           R"({"operation":"add","level":"pattern","pattern":"loft"})",
           R"({"operation":"add","level":"domain","domain":"loft"})",
           R"({"operation":"add","level":"global"})",
           R"({"operation":"add","level":"pattern","config":{}})",
           R"({"operation":"add","level":"pattern","pattern":"","config":{}})",
           R"({"operation":"add","level":"pattern","pattern":{},"config":{}})",
           R"({"operation":"add","level":"domain","config":{"pattern":"shop"}})",
           R"({"operation":"add","level":"domain","domain":"","config":{"pattern":"shop"}})",
           R"({"operation":"add","level":"domain","domain":1,"config":{"pattern":"shop"}})",
           R"({"operation":"add","level":"domain","domain":"loft","config":{}})",
           R"({"operation":"add","level":"domain","domain":"loft","config":null})",
           R"({"operation":"add","level":"domain","domain":"loft","pattern":"shop","config":{"time_zone":"1:00"}})",
           R"({"operation":"add","level":"domain","domain":"","config":{"pattern":"shop","time_zone":"99:00"}})",
       }) {
    expect_refused(request);
  }
}

TEST_F(ApiConfig, AddPatternStartsFromTheDefaultsNotFromCommon) {
  cfg(R"({"operation":"set","level":"pattern","pattern":"common","config":{"client_max_age":50}})");
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(cfg(R"({"operation":"add","level":"pattern","pattern":"loft","config":{"away_timeout":60}})"),
            R"({"version":"2.1","invalid_parameters":[],"operation":"add","pattern":"loft","add_status":"Success"})");
  EXPECT_TRUE(saved());
  EXPECT_EQ(config.pattern("loft")->away_timeout, 60);
  EXPECT_EQ(config.pattern("loft")->client_max_age, 20);
  expect_workers({"hall", "lab", "yard"});
}

// A document may bind a domain to a pattern that is not there; a worker of it can only stem from before.
TEST_F(ApiConfig, AddPatternRemovesTheWorkersOfTheDomainsThatWaitedForIt) {
  run_domains({"hall", "lab", "yard"});
  config.load(
      JsonReader(replaced(site, R"("pattern":"office","time_zone")", R"("pattern":"loft","time_zone")").c_str()));
  ASSERT_EQ(config.domain_info("hall")->pattern, "loft");
  cfg(R"({"operation":"add","level":"pattern","pattern":"loft","config":{}})");
  expect_workers({"lab", "yard"});
}

TEST_F(ApiConfig, AddPatternSaysTheSameOfAKnownPatternAndOfARejectedValue) {
  run_domains({"hall", "lab", "yard"});
  struct Case {
    const char* pattern;
    const char* section;
    const char* rejected;
  };
  for (const Case& one : {Case{"office", R"({"client_max_age":50})", ""}, Case{"common", "{}", ""},
                          Case{"office", R"({"client_max_age":999})", ""},
                          Case{"loft", R"({"client_max_age":999,"use_dca":0})", R"({"client_max_age":999})"}}) {
    SCOPED_TRACE(std::string(one.pattern) + one.section);
    EXPECT_EQ(cfg(std::string(R"({"operation":"add","level":"pattern","pattern":")") + one.pattern + R"(","config":)" +
                  one.section + "}"),
              std::string(R"({"version":"2.1","invalid_parameters":[)") + one.rejected +
                  R"(],"operation":"add","pattern":")" + one.pattern + R"(","add_status":"Pattern exists"})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, AddDomainBindsItWithItsTimeZone) {
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(
      cfg(R"({"operation":"add","level":"domain","domain":"loft","config":{"pattern":"office","time_zone":"-3:30"}})"),
      R"({"version":"2.1","invalid_parameters":[],"operation":"add","domain":"loft","add_status":"Success"})");
  EXPECT_TRUE(saved());
  EXPECT_EQ(config.domain_info("loft"), (DomainInfo{"office", -12600, "-3:30"}));
  EXPECT_EQ(age_of("loft"), 40);
  EXPECT_EQ(cfg(R"({"operation":"add","level":"domain","domain":"attic","config":{"pattern":"common"}})"),
            R"({"version":"2.1","invalid_parameters":[],"operation":"add","domain":"attic","add_status":"Success"})");
  EXPECT_EQ(config.domain_info("attic"), (DomainInfo{"common", 0, ""}));
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, AddDomainRemovesAWorkerThatOutlivedTheName) {
  run_domains({"hall", "lab", "yard"});
  bool changed = false;
  config.domain_remove("lab", changed);
  cfg(R"({"operation":"add","level":"domain","domain":"lab","config":{"pattern":"shop"}})");
  expect_workers({"hall", "yard"});
}

TEST_F(ApiConfig, AddDomainIsRefusedForAKnownDomainOrAnUnknownPattern) {
  run_domains({"hall", "lab", "yard"});
  struct Case {
    const char* domain;
    const char* pattern;
    const char* listed;
  };
  for (const Case& one : {Case{"lab", R"("office")", "office"}, Case{"loft", R"("cellar")", "cellar"},
                          Case{"loft", R"("")", ""}, Case{"loft", "null", ""}}) {
    SCOPED_TRACE(std::string(one.domain) + one.pattern);
    EXPECT_EQ(cfg(std::string(R"({"operation":"add","level":"domain","domain":")") + one.domain +
                  R"(","config":{"pattern":)" + one.pattern + "}}"),
              std::string(R"({"version":"2.1","invalid_parameters":[{"pattern":")") + one.listed +
                  R"("}],"operation":"add","domain":")" + one.domain +
                  R"(","add_status":"Domain exists or chosen pattern not exists."})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, AddDomainWithABadTimeZoneStopsThere) {
  EXPECT_EQ(
      cfg(R"({"operation":"add","level":"domain","domain":"loft","config":{"pattern":"shop","time_zone":"14:01"}})"),
      R"({"version":"2.1","invalid_parameters":[{"time_zone":"14:01"}],"operation":"add"})");
  EXPECT_TRUE(saved());
  EXPECT_TRUE(unchanged());
}

TEST_F(ApiConfig, AddOfAnotherLevelIsAnsweredWithTheOperationAlone) {
  for (const char* level : {R"("global")", R"("common")", R"("")", "7"}) {
    SCOPED_TRACE(level);
    EXPECT_EQ(cfg(std::string(R"({"operation":"add","config":{"vrrp_timeout":20},"level":)") + level + "}"),
              R"({"version":"2.1","invalid_parameters":[],"operation":"add"})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
  EXPECT_EQ(restarts(), 0u);
}

// Remove

TEST_F(ApiConfig, RemoveWithoutANameIsNotAnswered) {
  run_domains({"hall", "lab", "yard"});
  for (const char* request :
       {R"({"operation":"remove","level":"pattern"})", R"({"operation":"remove","level":"domain"})",
        R"({"operation":"remove","level":"pattern","pattern":""})",
        R"({"operation":"remove","level":"domain","domain":""})",
        R"({"operation":"remove","level":"pattern","domain":"lab"})",
        R"({"operation":"remove","level":"domain","pattern":"office"})",
        R"({"operation":"remove","level":"pattern","pattern":["office"]})",
        R"({"operation":"remove","level":"domain","domain":0})"}) {
    expect_refused(request);
  }
}

TEST_F(ApiConfig, RemovePatternTakesItsDomainsAndTheirWorkersWithIt) {
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(cfg(R"({"operation":"remove","level":"pattern","pattern":"office"})"),
            R"({"version":"2.1","operation":"remove","pattern":"office","remove_status":0})");
  EXPECT_TRUE(saved());
  EXPECT_FALSE(config.pattern("office"));
  EXPECT_FALSE(config.domain_info("hall"));
  EXPECT_TRUE(config.domain_info("lab"));
  expect_workers({"lab", "yard"});
}

TEST_F(ApiConfig, RemoveOfWhatIsNotThereSaysSoAndRemovesNoWorkers) {
  run_domains({"hall", "lab", "yard"});
  for (const char* pattern : {"cellar", "common"}) {
    EXPECT_EQ(
        cfg(std::string(R"({"operation":"remove","level":"pattern","pattern":")") + pattern + "\"}"),
        std::string(R"({"version":"2.1","operation":"remove","pattern":")") + pattern + R"(","remove_status":1})");
  }
  EXPECT_EQ(cfg(R"({"operation":"remove","level":"domain","domain":"cellar"})"),
            R"({"version":"2.1","operation":"remove","domain":"cellar","remove_status":1})");
  EXPECT_TRUE(saved());
  EXPECT_TRUE(unchanged());
  expect_workers({"hall", "lab", "yard"});
}

TEST_F(ApiConfig, RemoveDomainTakesItsWorkerWithIt) {
  run_domains({"hall", "lab", "yard"});
  EXPECT_EQ(cfg(R"({"operation":"remove","level":"domain","domain":"lab"})"),
            R"({"version":"2.1","operation":"remove","domain":"lab","remove_status":0})");
  EXPECT_TRUE(saved());
  EXPECT_FALSE(config.domain_info("lab"));
  expect_workers({"hall", "yard"});
}

TEST_F(ApiConfig, RemoveOfAnotherLevelIsAnsweredWithTheOperationAlone) {
  for (const char* level : {"global", "common", ""}) {
    SCOPED_TRACE(level);
    EXPECT_EQ(cfg(std::string(R"({"operation":"remove","pattern":"office","domain":"lab","level":")") + level + "\"}"),
              R"({"version":"2.1","operation":"remove"})");
    EXPECT_TRUE(saved());
    EXPECT_TRUE(unchanged());
  }
}

// Names

TEST_F(ApiConfig, AnyTextIsAName) {
  const std::string huge(1 << 20, 'x');
  for (const std::string& name : {std::string("a \\\"b\\\" / \\u0001 \xC3\xA9"), huge}) {
    EXPECT_EQ(cfg(R"({"operation":"add","level":"domain","config":{"pattern":"common"},"domain":")" + name + "\"}"),
              R"({"version":"2.1","invalid_parameters":[],"operation":"add","domain":")" + name +
                  R"(","add_status":"Success"})");
    EXPECT_EQ(cfg(R"({"operation":"remove","level":"domain","domain":")" + name + "\"}"),
              R"({"version":"2.1","operation":"remove","domain":")" + name + R"(","remove_status":0})");
  }
  EXPECT_TRUE(unchanged());
}

// What follows an edit

TEST_F(ApiConfig, TheAccessPointsOfARemovedWorkerAreDroppedAndComeBackUnderTheNewSettings) {
  server.make_real_domain_workers();
  std::vector<std::string> orders;
  server.fixed_websock().hooks.message = [&](const std::string& cmd) {
    orders.push_back(cmd + " " + std::to_string(server.fixed_websock().last_sender()));
  };
  const auto answers = [&](std::uint32_t session, const std::string& part) {
    for (const auto& sent : server.sent()) {
      if (sent.session_id == session && sent.text.find(part) != std::string::npos) return true;
    }
    return false;
  };
  const std::string subscribe = a_subscribe("02:00:00:00:00:0A").with_radio(a_5ghz_radio()).text();
  server.receive(subscribe, 4);
  ASSERT_TRUE(eventually([&] { return answers(4, R"("config":{"use-tpc":1)"); }));

  cfg(R"({"operation":"set","level":"domain","domain":"lab","config":{"pattern":"office"}})");
  EXPECT_THAT(server.domains(), IsEmpty());
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Drop session 02:00:00:00:00:0A(4) on worker 'lab'."));
  server.fixed_websock().start();
  EXPECT_TRUE(eventually([&] { return server.fixed_websock().queued() == 0; }));
  server.fixed_websock().stop();
  EXPECT_THAT(orders, ElementsAre("drop-session 4"));

  server.receive(a_message("rrm-response", "02:00:00:00:00:0A").text(), 4);
  EXPECT_THAT(server.domains(), IsEmpty()) << "what it still says on the old session is lost";
  server.receive(subscribe, 5);
  EXPECT_TRUE(eventually([&] { return answers(5, R"("config":{"use-tpc":0)"); }));
  EXPECT_THAT(server.domains(), ElementsAre("lab"));
}

}  // namespace
}  // namespace rrm::testing
