// Whole documents: the file at the start, validation, loading, saving.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

#include "Config.h"
#include "config/config_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A document of the given `common`, `patterns` and `domains`.
std::string document(const std::string& common, const std::string& patterns, const std::string& domains) {
  return "{\"global\":{},\"common\":" + common + ",\"patterns\":[" + patterns + "],\"domains\":[" + domains + "]}";
}

bool load(GlobalConfig& config, const std::string& text) {
  return config.load(JsonReader(text.c_str()));
}

std::int32_t age_of(const GlobalConfig& config, const std::string& domain) {
  return config.domain_config(domain).client_max_age;
}

const std::string lab = "{\"pattern\":\"lab\",\"client_max_age\":30}";
const std::string office = "{\"pattern\":\"office\",\"client_max_age\":40}";
const std::string north_in_lab = "{\"domain\":\"north\",\"pattern\":\"lab\",\"time_zone\":\"1:00\"}";
const std::string south_in_common = "{\"domain\":\"south\",\"pattern\":\"common\"}";

// --- The start.

TEST(ConfigStart, WithoutPathAndTextTheDefaultsStand) {
  const GlobalConfig config("");
  EXPECT_EQ(config.path(), "");
  EXPECT_EQ(config.global(), GlobalSettings());
  EXPECT_EQ(config.common(), DomainConfig());
  EXPECT_TRUE(config.enabled());
  std::array<char, 1024> name{};
  ASSERT_EQ(::gethostname(name.data(), name.size()), 0);
  EXPECT_EQ(config.hostname(), name.data());
}

TEST(ConfigStart, AFileThatCannotBeOpenedLeavesTheDefaultsAndIsNotWritten) {
  const ScratchDir dir;
  const GlobalConfig config(dir.file("none.json"));
  EXPECT_EQ(config.common(), DomainConfig());
  EXPECT_FALSE(std::filesystem::exists(dir.file("none.json")));
}

TEST(ConfigStart, AFileThatCannotBeReadLeavesTheDefaultsAndIsLeftAsItIs) {
  const ScratchDir dir;
  write_file(dir.file("inside"), "kept");
  GlobalConfig config(dir.file(""));
  EXPECT_TRUE(config == GlobalConfig(""));
  EXPECT_FALSE(config.reload());
  EXPECT_EQ(read_file(dir.file("inside")), "kept");
}

TEST(ConfigStart, AFileIsReadAndWrittenBackNormalised) {
  const ScratchDir dir;
  write_file(dir.file("config.json"), "{\"global\":{\"vrrp_timeout\":100,\"listen_port\":9000},\"common\":{}}");
  const GlobalConfig config(dir.file("config.json"));
  EXPECT_EQ(config.global().vrrp_timeout, 15);
  EXPECT_EQ(config.global().listen_port, 9000);
  const std::string file = read_file(dir.file("config.json"));
  EXPECT_NE(file.find("        \"vrrp_timeout\": 15,\n"), std::string::npos) << file;
  EXPECT_NE(file.find("        \"listen_port\": 9000,\n"), std::string::npos) << file;
}

TEST(ConfigStart, AFileThatDoesNotParseIsAnEmptyDocumentAndIsReplacedByTheDefaults) {
  const ScratchDir dir;
  write_file(dir.file("config.json"), "{\"global\":{\"listen_port\":9000");
  const GlobalConfig config(dir.file("config.json"));
  EXPECT_EQ(config.global(), GlobalSettings());
  EXPECT_EQ(read_file(dir.file("config.json")).substr(0, 24), "{\n    \"version\": \"2.1\",\n");
}

TEST(ConfigStart, ATextGoesBeforeTheFileAndIsSavedToIt) {
  const ScratchDir dir;
  write_file(dir.file("config.json"), "{\"global\":{\"listen_port\":9000}}");
  const GlobalConfig config(dir.file("config.json"), "{\"global\":{\"listen_port\":9001}}");
  EXPECT_EQ(config.global().listen_port, 9001);
  EXPECT_NE(read_file(dir.file("config.json")).find("\"listen_port\": 9001"), std::string::npos);
}

TEST(ConfigStart, ATextThatDoesNotParseIsAnEmptyDocument) {
  for (const char* text : {"", "{", "null", "[]", "17"}) {
    SCOPED_TRACE(text);
    const GlobalConfig config("", text);
    EXPECT_TRUE(config == GlobalConfig(""));
  }
}

TEST(ConfigStart, AFileWithDomainsButWithoutPatternsLosesItsDomainsAtTheNextStart) {
  const ScratchDir dir;
  write_file(dir.file("config.json"),
             "{\"global\":{},\"common\":{},\"domains\":[{\"domain\":\"north\",\"pattern\":\"common\"}]}");
  const GlobalConfig config(dir.file("config.json"));
  EXPECT_FALSE(config.domain_info("north"));
  EXPECT_NE(read_file(dir.file("config.json")).find("\"domains\": [],"), std::string::npos);
}

// --- The file.

TEST(ConfigFile, WithoutAPathSavingWritesNothing) {
  const ScratchDir dir;
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(dir.file(""));
  GlobalConfig("").save();
  std::filesystem::current_path(before);
  EXPECT_TRUE(std::filesystem::is_empty(dir.file("")));
}

TEST(ConfigFile, AFileThatCannotBeWrittenIsPassedOver) {
  const ScratchDir dir;
  const GlobalConfig config(dir.file("no/such/config.json"));
  config.save();
  EXPECT_FALSE(std::filesystem::exists(dir.file("no")));
}

std::string indented(const std::string& compact_object, const std::string& indent) {
  std::string text = "{\n";
  bool in_string = false;
  std::string line = indent + "    ";
  for (const char c : compact_object.substr(1, compact_object.size() - 2)) {
    if (c == '"') in_string = !in_string;
    line += c;
    if (c == ':' && !in_string) line += ' ';
    if (c == ',' && !in_string) {
      text += line + "\n";
      line = indent + "    ";
    }
  }
  return text + line + "\n" + indent + "}";
}

TEST(ConfigFile, HoldsTheWholeConfigurationInOneOrder) {
  const ScratchDir dir;
  const GlobalConfig config(dir.file("config.json"), document("{}", lab, north_in_lab + "," + south_in_common));
  DomainConfig lab_settings;
  lab_settings.client_max_age = 30;
  std::string lab_object = written(lab_settings);
  lab_object.insert(1, "\"pattern\":\"lab\",");
  EXPECT_EQ(read_file(dir.file("config.json")),
            "{\n"
            "    \"version\": \"2.1\",\n"
            "    \"global\": " +
                indented(written(GlobalSettings()), "    ") +
                ",\n"
                "    \"common\": " +
                indented(written(DomainConfig()), "    ") +
                ",\n"
                "    \"domains\": [\n"
                "        {\n"
                "            \"domain\": \"north\",\n"
                "            \"pattern\": \"lab\",\n"
                "            \"time_zone\": \"1:00\"\n"
                "        },\n"
                "        {\n"
                "            \"domain\": \"south\",\n"
                "            \"pattern\": \"common\"\n"
                "        }\n"
                "    ],\n"
                "    \"patterns\": [\n"
                "        " +
                indented(lab_object, "        ") +
                "\n"
                "    ]\n"
                "}\n");
}

TEST(ConfigFile, WhatIsSavedLoadsToTheSameConfiguration) {
  const ScratchDir dir;
  const GlobalConfig saved(dir.file("config.json"),
                           document("{\"use_80211v\":1}", lab, north_in_lab + "," + south_in_common));
  const std::string first = read_file(dir.file("config.json"));
  const GlobalConfig loaded(dir.file("config.json"));
  EXPECT_TRUE(loaded == saved);
  EXPECT_EQ(age_of(loaded, "north"), 30);
  EXPECT_EQ(read_file(dir.file("config.json")), first);
}

TEST(ConfigFile, ReloadTakesWhatTheFileSaysNow) {
  const ScratchDir dir;
  GlobalConfig config(dir.file("config.json"), "{\"global\":{}}");
  EXPECT_FALSE(config.reload());
  write_file(dir.file("config.json"), "{\"global\":{\"listen_port\":9000}}");
  EXPECT_TRUE(config.reload());
  EXPECT_EQ(config.global().listen_port, 9000);
  std::filesystem::remove(dir.file("config.json"));
  EXPECT_FALSE(config.reload());
  EXPECT_EQ(config.global().listen_port, 9000);
  EXPECT_FALSE(GlobalConfig("").reload());
}

// --- Loading.

TEST(ConfigLoad, StopsAtTheFirstSectionThatIsMissing) {
  struct Case {
    const char* label;
    const char* text;
    bool changed;
    std::int32_t port;
    std::int32_t common_age;
    bool has_lab;
    bool has_north;
  };
  const Case cases[] = {
      {"no global", R"({"common":{"client_max_age":30},"patterns":[{"pattern":"lab"}]})", false, 8099, 20, false,
       false},
      {"global null", R"({"global":null,"common":{"client_max_age":30}})", false, 8099, 20, false, false},
      {"no common", R"({"global":{"listen_port":1},"patterns":[{"pattern":"lab"}]})", true, 1, 20, false, false},
      {"no patterns", R"({"global":{"listen_port":1},"common":{"client_max_age":30},
                          "domains":[{"domain":"north","pattern":"common"}]})",
       true, 1, 30, false, false},
      {"no domains", R"({"global":{},"common":{},"patterns":[{"pattern":"lab"}]})", true, 8099, 20, true, false},
      {"all", R"({"global":{},"common":{},"patterns":[],"domains":[{"domain":"north","pattern":"common"}]})", true,
       8099, 20, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    GlobalConfig config("");
    EXPECT_EQ(load(config, c.text), c.changed);
    EXPECT_EQ(config.global().listen_port, c.port);
    EXPECT_EQ(config.common().client_max_age, c.common_age);
    EXPECT_EQ(config.pattern("lab").has_value(), c.has_lab);
    EXPECT_EQ(config.domain_info("north").has_value(), c.has_north);
  }
}

TEST(ConfigLoad, ANewPatternStartsFromTheDefaultsAndNotFromCommon) {
  const GlobalConfig config("", document("{\"client_max_age\":77}", "{\"pattern\":\"lab\",\"use_dca\":0}", ""));
  EXPECT_EQ(config.common().client_max_age, 77);
  EXPECT_EQ(config.pattern("lab")->client_max_age, 20);
  EXPECT_FALSE(config.pattern("lab")->use_dca);
}

TEST(ConfigLoad, KnownPatternsKeepWhatTheDocumentDoesNotName) {
  GlobalConfig config("", document("{}", lab + "," + office, ""));
  EXPECT_TRUE(load(config, document("{}", "{\"pattern\":\"office\",\"use_tpc\":0},{\"pattern\":\"lab\"}", "")));
  EXPECT_EQ(config.pattern("lab")->client_max_age, 30);
  EXPECT_EQ(config.pattern("office")->client_max_age, 40);
  EXPECT_FALSE(config.pattern("office")->use_tpc);
  EXPECT_FALSE(load(config, document("{}", "{\"pattern\":\"lab\"},{\"pattern\":\"office\"}", "")));
}

TEST(ConfigLoad, AnotherNumberOrNameOfPatternsRebuildsThemAll) {
  for (const std::string& patterns :
       {std::string("{\"pattern\":\"lab\"}"), std::string("{\"pattern\":\"lab\"},{\"pattern\":\"shop\"}")}) {
    SCOPED_TRACE(patterns);
    GlobalConfig config("", document("{}", lab + "," + office, ""));
    EXPECT_TRUE(load(config, document("{}", patterns, "")));
    EXPECT_EQ(config.pattern("lab")->client_max_age, 20);
    EXPECT_FALSE(config.pattern("office"));
  }
}

TEST(ConfigLoad, PatternsWithoutANameAndEmptyOnesArePassedOver) {
  const GlobalConfig config("", document("{}", "null,{\"client_max_age\":9},{\"pattern\":\"\"}," + lab, ""));
  std::vector<std::string> names;
  config.for_each_pattern([&](const std::string& name, const DomainConfig&) { names.push_back(name); });
  EXPECT_THAT(names, ElementsAre("common", "lab"));
}

TEST(ConfigLoad, OfTwoPatternsWithOneNameTheLaterCounts) {
  const std::string twice = "{\"pattern\":\"lab\",\"client_max_age\":1}," + lab;
  GlobalConfig config("", document("{}", twice, ""));
  EXPECT_EQ(config.pattern("lab")->client_max_age, 30);
  EXPECT_FALSE(load(config, document("{}", twice, "")));
}

TEST(ConfigLoad, ADomainGetsACopyOfItsPatternsSettings) {
  const GlobalConfig config("", document("{\"client_max_age\":77}", lab, north_in_lab + "," + south_in_common));
  EXPECT_EQ(age_of(config, "north"), 30);
  EXPECT_EQ(age_of(config, "south"), 77);
  EXPECT_EQ(config.domain_info("north"), (DomainInfo{"lab", 3600, "1:00"}));
  EXPECT_EQ(config.domain_info("south"), (DomainInfo{"common", 0, ""}));
}

TEST(ConfigLoad, ADomainOfAnUnknownPatternIsKnownButHasNoSettings) {
  const GlobalConfig config("", document("{}", "", north_in_lab));
  EXPECT_TRUE(config.domain_info("north"));
  std::size_t with_settings = 0;
  config.for_each_domain_config([&](const std::string&, const DomainConfig&) { ++with_settings; });
  EXPECT_EQ(with_settings, 0u);
}

TEST(ConfigLoad, DomainsWithoutANameAPatternOrWithABadZoneArePassedOver) {
  Capture capture;
  const GlobalConfig config("", document("{}", lab,
                                         "null,{\"pattern\":\"lab\"},{\"domain\":\"a\"},{\"domain\":\"\",\"pattern\":"
                                         "\"lab\"},{\"domain\":\"b\",\"pattern\":\"\"},{\"domain\":\"c\",\"pattern\":"
                                         "\"lab\",\"time_zone\":\"15:00\"}," +
                                             north_in_lab));
  std::vector<std::string> names;
  config.for_each_domain([&](const std::string& name, const DomainInfo&) { names.push_back(name); });
  EXPECT_THAT(names, ElementsAre("north"));
  EXPECT_THAT(capture.lines(LOG_WARNING),
              ElementsAre("Invalid time value for 'time_zone': '15:00' (allowed range: [-43200, 50400] in seconds)"));
}

TEST(ConfigLoad, WithTheSameDomainsOnlyTheBindingFollowsAndTheSettingsStay) {
  GlobalConfig config("", document("{}", lab + "," + office, north_in_lab));
  const std::string rebound = "{\"domain\":\"north\",\"pattern\":\"office\",\"time_zone\":\"2:00\"}";
  EXPECT_TRUE(load(config, document("{}", lab + "," + office, rebound)));
  EXPECT_EQ(config.domain_info("north"), (DomainInfo{"office", 7200, "2:00"}));
  EXPECT_EQ(age_of(config, "north"), 30);
  EXPECT_FALSE(load(config, document("{}", lab + "," + office, rebound)));
}

TEST(ConfigLoad, AnotherNumberOrNameOfDomainsRebuildsThemAll) {
  const std::string west = "{\"domain\":\"west\",\"pattern\":\"lab\"}";
  for (const std::string& domains : {north_in_lab + "," + west, west}) {
    SCOPED_TRACE(domains);
    GlobalConfig config("", document("{}", lab, north_in_lab));
    // The pattern moves on; a domain that is rebuilt sees it.
    EXPECT_TRUE(load(config, document("{}", "{\"pattern\":\"lab\",\"client_max_age\":31}", domains)));
    EXPECT_EQ(age_of(config, "west"), 31);
    const bool north_stays = domains != west;
    EXPECT_EQ(config.domain_info("north").has_value(), north_stays);
    std::size_t with_settings = 0;
    config.for_each_domain_config([&](const std::string&, const DomainConfig&) { ++with_settings; });
    EXPECT_EQ(with_settings, north_stays ? 2u : 1u);
  }
}

TEST(ConfigLoad, OutOfRangeValuesArePassedOverOneByOne) {
  GlobalConfig config("");
  EXPECT_TRUE(load(config, document("{\"client_max_age\":301,\"away_timeout\":100}", "", "")));
  EXPECT_EQ(config.common().client_max_age, 20);
  EXPECT_EQ(config.common().away_timeout, 100);
}

TEST(ConfigLoad, EmptyTextsNeverReplaceAPath) {
  GlobalConfig config("");
  EXPECT_FALSE(
      load(config, R"({"global":{"reports_path":"","www_path":"","vrrp_backup_path":"","vrrp_state_file":""}})"));
  EXPECT_EQ(config.global(), GlobalSettings());
  EXPECT_TRUE(load(config, R"({"global":{"reports_path":"/a","www_path":"/b","vrrp_backup_path":"/c",
                                         "vrrp_state_file":"/d"}})"));
  EXPECT_EQ(config.global().reports_path, "/a");
  EXPECT_EQ(config.global().www_path, "/b");
  EXPECT_EQ(config.global().vrrp_backup_path, "/c");
  EXPECT_EQ(config.global().vrrp_state_file, "/d");
}

// --- Validating.

struct Verdict {
  bool valid;
  std::string rejected;
};

Verdict validate(const std::string& text) {
  Rejected rejected;
  const bool valid = GlobalConfig::validate(JsonReader(text.c_str()), rejected.list());
  return {valid, rejected.text()};
}

TEST(ConfigValidate, AcceptedDocuments) {
  for (const std::string& text :
       {std::string("{}"), std::string("{\"global\":{}}"), document("{}", lab, north_in_lab),
        document("{}", lab + "," + office, ""), std::string("{\"patterns\":[" + lab + "]}")}) {
    SCOPED_TRACE(text);
    const Verdict verdict = validate(text);
    EXPECT_TRUE(verdict.valid);
    EXPECT_EQ(verdict.rejected, Rejected::of(""));
  }
}

TEST(ConfigValidate, RejectedDocuments) {
  struct Case {
    const char* label;
    std::string text;
    const char* rejected;
  };
  const std::string bad = "{\"client_max_age\":301}";
  const Case cases[] = {
      {"a bad global", "{\"global\":{\"vrrp_timeout\":0}}", "{\"vrrp_timeout\":0}"},
      {"a bad common", document(bad, "", ""), "{\"client_max_age\":301}"},
      {"common is not looked at behind a bad global",
       "{\"global\":{\"vrrp_timeout\":0},\"common\":{\"client_max_age\":301}}", "{\"vrrp_timeout\":0}"},
      {"a pattern without a name", document("{}", "{\"use_dca\":1}", ""), ""},
      {"an empty pattern element", document("{}", "null", ""), ""},
      {"a bad pattern", document("{}", "{\"pattern\":\"lab\",\"client_max_age\":301}", ""), "{\"client_max_age\":301}"},
      {"all bad values of all patterns",
       document("{}", "{\"pattern\":\"a\",\"client_max_age\":301},{\"pattern\":\"b\",\"away_timeout\":9}", ""),
       "{\"client_max_age\":301},{\"away_timeout\":9}"},
      {"a domain without a name", document("{}", lab, "{\"pattern\":\"lab\"}"), ""},
      {"a domain without a pattern", document("{}", lab, "{\"domain\":\"north\"}"), ""},
      {"an empty domain element", document("{}", lab, "null"), ""},
      {"a bad zone, which is not listed",
       document("{}", lab, "{\"domain\":\"north\",\"pattern\":\"lab\",\"time_zone\":\"14:01\"}"), ""},
      {"a pattern that the document does not hold", document("{}", office, north_in_lab), ""},
      {"a domain bound to common", document("{}", lab, south_in_common), ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    Capture capture;
    const Verdict verdict = validate(c.text);
    EXPECT_FALSE(verdict.valid);
    EXPECT_EQ(verdict.rejected, Rejected::of(c.rejected));
  }
}

TEST(ConfigValidate, SetLoadsOnlyAWholeThatIsValid) {
  Capture capture;
  GlobalConfig config("");
  {
    Rejected rejected;
    bool failed = false;
    const std::string text = "{\"global\":{\"listen_port\":1,\"vrrp_timeout\":61}}";
    EXPECT_FALSE(config.set(JsonReader(text.c_str()), rejected.list(), failed));
    EXPECT_TRUE(failed);
    EXPECT_EQ(rejected.text(), Rejected::of("{\"vrrp_timeout\":61}"));
    EXPECT_EQ(config.global().listen_port, 8099);
  }
  for (const bool changed : {true, false}) {
    Rejected rejected;
    bool failed = true;
    EXPECT_EQ(config.set(JsonReader("{\"global\":{\"listen_port\":1}}"), rejected.list(), failed), changed);
    EXPECT_FALSE(failed);
    EXPECT_EQ(config.global().listen_port, 1);
  }
}

TEST(ConfigValidate, SetGlobalSaysWhetherAnythingChanged) {
  GlobalConfig config("");
  Rejected rejected;
  bool failed = true;
  EXPECT_TRUE(config.set_global(JsonReader("{\"enabled\":0}"), rejected.list(), failed));
  EXPECT_FALSE(failed);
  EXPECT_FALSE(config.enabled());
  EXPECT_FALSE(config.set_global(JsonReader("{\"enabled\":0}"), rejected.list(), failed));
  EXPECT_FALSE(failed);
}

}  // namespace
}  // namespace rrm::testing
