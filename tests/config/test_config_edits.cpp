// Editing domains and patterns, looking them up, comparing two configurations, and reading while another thread edits.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Config.h"
#include "config/config_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Patterns "lab" (client_max_age 30) and "office" (40); domain "north" in lab, "south" in common.
constexpr const char* site = R"({"global":{},"common":{},
    "patterns":[{"pattern":"lab","client_max_age":30},{"pattern":"office","client_max_age":40}],
    "domains":[{"domain":"north","pattern":"lab","time_zone":"1:00"},{"domain":"south","pattern":"common"}]})";

std::int32_t age_of(const GlobalConfig& config, const std::string& domain) {
  return config.domain_config(domain).client_max_age;
}

// One edit: the flags as the caller hands them in, the answer, the log.
struct Edit {
  Rejected rejected;
  bool failed = false;
  bool changed = false;
};

// --- Domains.

TEST(ConfigDomains, AddBindsToAPatternOrToCommon) {
  for (const auto& [pattern, age] : {std::pair{"lab", 30}, std::pair{"common", 20}}) {
    SCOPED_TRACE(pattern);
    GlobalConfig config("", site);
    Capture capture;
    Edit edit;
    EXPECT_TRUE(config.domain_add("west", pattern, "2:00", 7200, edit.rejected.list(), edit.changed));
    EXPECT_TRUE(edit.changed);
    EXPECT_EQ(edit.rejected.text(), Rejected::of(""));
    EXPECT_EQ(config.domain_info("west"), (DomainInfo{pattern, 7200, "2:00"}));
    EXPECT_EQ(age_of(config, "west"), age);
    EXPECT_EQ(config.time_zone_offset("west"), 7200);
    EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "Domain 'west' was successfully added."}));
  }
}

TEST(ConfigDomains, AddIsRefusedForAnUnknownPatternOrAKnownDomain) {
  for (const auto& [domain, pattern] : {std::pair{"west", "shop"}, std::pair{"north", "office"}}) {
    SCOPED_TRACE(domain);
    GlobalConfig config("", site);
    Capture capture;
    Edit edit;
    EXPECT_FALSE(config.domain_add(domain, pattern, "", 0, edit.rejected.list(), edit.changed));
    EXPECT_FALSE(edit.changed);
    EXPECT_EQ(edit.rejected.text(), Rejected::of("{\"pattern\":\"" + std::string(pattern) + "\"}"));
    EXPECT_TRUE(config == GlobalConfig("", site));
    EXPECT_THAT(capture.lines(), IsEmpty());
  }
}

TEST(ConfigDomains, ChangeCountsEvenWhenNothingDiffers) {
  GlobalConfig config("", site);
  Capture capture;
  for (const char* pattern : {"lab", "office"}) {
    bool changed = false;
    EXPECT_TRUE(config.domain_change("north", pattern, "1:00", 3600, changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(config.domain_info("north"), (DomainInfo{pattern, 3600, "1:00"}));
  }
  EXPECT_EQ(age_of(config, "north"), 40);
  EXPECT_THAT(capture.lines(LOG_TRACE), ElementsAre("Domain 'north' was changed", "Domain 'north' was changed"));
}

TEST(ConfigDomains, ChangeIsRefusedForAnUnknownDomainOrPatternOrWithoutSettings) {
  GlobalConfig config("", R"({"global":{},"common":{},"patterns":[{"pattern":"lab"}],
      "domains":[{"domain":"north","pattern":"lab"},{"domain":"lost","pattern":"gone"}]})");
  Capture capture;
  bool changed = false;
  EXPECT_FALSE(config.domain_change("west", "lab", "", 0, changed)) << "unknown domain";
  EXPECT_FALSE(config.domain_change("north", "shop", "", 0, changed)) << "unknown pattern";
  EXPECT_FALSE(config.domain_change("lost", "lab", "", 0, changed)) << "no settings";
  EXPECT_FALSE(changed);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(ConfigDomains, RemoveTakesInfoAndSettings) {
  GlobalConfig config("", site);
  Capture capture;
  bool changed = false;
  EXPECT_TRUE(config.domain_remove("north", changed));
  EXPECT_TRUE(changed);
  EXPECT_FALSE(config.domain_info("north"));
  std::vector<std::string> with_settings;
  config.for_each_domain_config(
      [&](const std::string& domain, const DomainConfig&) { with_settings.push_back(domain); });
  EXPECT_THAT(with_settings, ElementsAre("south"));
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "Domain 'north' was successfully removed."}));
  changed = false;
  EXPECT_FALSE(config.domain_remove("north", changed));
  EXPECT_FALSE(changed);
}

TEST(ConfigDomains, IsDomainExistSaysWhatItFound) {
  const GlobalConfig config("", site);
  Capture capture;
  EXPECT_TRUE(config.is_domain_exist("north"));
  EXPECT_FALSE(config.is_domain_exist("west"));
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_DUMP, "Domain \"north\" success found"},
                                           LogLine{LOG_DUMP, "Domain \"west\" not found"}));
}

std::string failure_of(const std::function<void()>& lookup) {
  try {
    lookup();
  } catch (const std::out_of_range& e) {
    return e.what();
  }
  return "none";
}

TEST(ConfigDomains, LookUpsThatFailSayWhy) {
  GlobalConfig config("", R"({"global":{},"common":{},"patterns":[{"pattern":"lab"}],
      "domains":[{"domain":"north","pattern":"lab"},{"domain":"lost","pattern":"gone"}]})");
  const auto config_of = [&](const char* domain) { return failure_of([&] { config.domain_config(domain); }); };
  EXPECT_EQ(config_of("north"), "none");
  EXPECT_EQ(config_of("west"), "Domain not found");
  EXPECT_EQ(config_of("lost"), "Pattern not found");
  EXPECT_EQ(failure_of([&] { config.time_zone_offset("west"); }), "Domain (time zone) not found");
  // The pattern turns up later, the settings do not.
  Capture capture;
  Edit edit;
  ASSERT_TRUE(config.pattern_add("gone", JsonReader("{}"), edit.rejected.list(), edit.failed, edit.changed));
  EXPECT_EQ(config_of("lost"), "Domain config not found");
}

// --- Patterns.

TEST(ConfigPatterns, AddStartsFromTheDefaultsAndNotFromCommon) {
  GlobalConfig config("", R"({"global":{},"common":{"client_max_age":77}})");
  Capture capture;
  Edit edit;
  edit.failed = true;
  EXPECT_TRUE(
      config.pattern_add("shop", JsonReader("{\"use_dca\":0}"), edit.rejected.list(), edit.failed, edit.changed));
  EXPECT_TRUE(edit.changed);
  EXPECT_FALSE(edit.failed);
  EXPECT_EQ(config.pattern("shop")->client_max_age, 20);
  EXPECT_FALSE(config.pattern("shop")->use_dca);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "Config pattern 'shop' was successfully added."}));
}

TEST(ConfigPatterns, AddIsRefusedForAKnownNameAndForCommon) {
  for (const char* name : {"lab", "common"}) {
    SCOPED_TRACE(name);
    GlobalConfig config("", site);
    Capture capture;
    Edit edit;
    EXPECT_FALSE(config.pattern_add(name, JsonReader("{}"), edit.rejected.list(), edit.failed, edit.changed));
    EXPECT_FALSE(edit.changed);
    EXPECT_FALSE(edit.failed);
    EXPECT_TRUE(config == GlobalConfig("", site));
    EXPECT_THAT(capture.lines(), IsEmpty());
  }
}

TEST(ConfigPatterns, AddIsRefusedForABadValue) {
  GlobalConfig config("", site);
  Capture capture;
  Edit edit;
  EXPECT_FALSE(config.pattern_add("shop", JsonReader("{\"load_balance_sta_low\":30}"), edit.rejected.list(),
                                  edit.failed, edit.changed));
  EXPECT_TRUE(edit.failed);
  EXPECT_FALSE(edit.changed);
  EXPECT_FALSE(config.pattern("shop"));
  EXPECT_EQ(edit.rejected.text(), Rejected::of("{\"load_balance_sta_low\":30}"));
  EXPECT_THAT(capture.lines(LOG_TRACE), IsEmpty());
}

TEST(ConfigPatterns, ChangeReachesTheDomainsOfThePatternOnly) {
  GlobalConfig config("", site);
  Capture capture;
  Edit edit;
  EXPECT_TRUE(config.pattern_change("lab", JsonReader("{\"client_max_age\":31}"), edit.rejected.list(), edit.failed,
                                    edit.changed));
  EXPECT_TRUE(edit.changed);
  EXPECT_FALSE(edit.failed);
  EXPECT_EQ(config.pattern("lab")->client_max_age, 31);
  EXPECT_EQ(age_of(config, "north"), 31);
  EXPECT_EQ(age_of(config, "south"), 20);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "Pattern 'lab' was changed"}));
}

TEST(ConfigPatterns, ChangeOfCommonReachesItsDomains) {
  GlobalConfig config("", site);
  Capture capture;
  Edit edit;
  EXPECT_TRUE(config.pattern_change("common", JsonReader("{\"client_max_age\":21}"), edit.rejected.list(), edit.failed,
                                    edit.changed));
  EXPECT_TRUE(edit.changed);
  EXPECT_EQ(config.common().client_max_age, 21);
  EXPECT_EQ(age_of(config, "south"), 21);
  EXPECT_EQ(age_of(config, "north"), 30);
  EXPECT_THAT(capture.lines(), ElementsAre(LogLine{LOG_TRACE, "Pattern common was changed"}));
}

TEST(ConfigPatterns, ChangeWithoutADifferenceStillGivesTheDomainsAFreshCopy) {
  GlobalConfig config("", site);
  // North is bound to office by a document, which leaves its settings as they were.
  config.load(JsonReader(R"({"global":{},"common":{},"patterns":[{"pattern":"lab"},{"pattern":"office"}],
      "domains":[{"domain":"north","pattern":"office"},{"domain":"south","pattern":"common"}]})"));
  ASSERT_EQ(age_of(config, "north"), 30);
  Capture capture;
  Edit edit;
  EXPECT_TRUE(config.pattern_change("office", JsonReader("{}"), edit.rejected.list(), edit.failed, edit.changed));
  EXPECT_FALSE(edit.changed);
  EXPECT_EQ(age_of(config, "north"), 40);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

TEST(ConfigPatterns, ChangeWithABadValueIsAnsweredWithTrueAndChangesNothing) {
  GlobalConfig config("", site);
  Capture capture;
  Edit edit;
  EXPECT_TRUE(config.pattern_change("lab", JsonReader("{\"client_max_age\":301}"), edit.rejected.list(), edit.failed,
                                    edit.changed));
  EXPECT_TRUE(edit.failed);
  EXPECT_FALSE(edit.changed);
  EXPECT_EQ(edit.rejected.text(), Rejected::of("{\"client_max_age\":301}"));
  EXPECT_TRUE(config == GlobalConfig("", site));
}

TEST(ConfigPatterns, ChangeOfAnUnknownPatternIsRefused) {
  GlobalConfig config("", site);
  Edit edit;
  EXPECT_FALSE(config.pattern_change("shop", JsonReader("{}"), edit.rejected.list(), edit.failed, edit.changed));
  EXPECT_FALSE(edit.changed);
}

TEST(ConfigPatterns, RemoveTakesTheNamedDomainsAlong) {
  GlobalConfig config("", site);
  Capture capture;
  bool changed = false;
  EXPECT_TRUE(config.pattern_remove("lab", {"north"}, changed));
  EXPECT_TRUE(changed);
  EXPECT_FALSE(config.pattern("lab"));
  EXPECT_FALSE(config.domain_info("north"));
  EXPECT_TRUE(config.domain_info("south"));
  EXPECT_THAT(capture.lines(LOG_TRACE), ElementsAre("Domain 'north' with pattern 'lab' removed from map.",
                                                    "Domain 'north' with pattern 'lab' removed from domain_map.",
                                                    "Pattern 'lab' was successfully removed."));
}

TEST(ConfigPatterns, RemoveLogsOnlyWhatWasThere) {
  GlobalConfig config("", R"({"global":{},"common":{},"patterns":[{"pattern":"lab"}],
      "domains":[{"domain":"lost","pattern":"gone"}]})");
  Capture capture;
  bool changed = false;
  EXPECT_TRUE(config.pattern_remove("lab", {"lost", "never"}, changed));
  EXPECT_THAT(capture.lines(LOG_TRACE), ElementsAre("Domain 'lost' with pattern 'lab' removed from domain_map.",
                                                    "Pattern 'lab' was successfully removed."));
}

TEST(ConfigPatterns, RemoveOfAnUnknownPatternOrOfCommonIsRefused) {
  for (const char* name : {"shop", "common"}) {
    SCOPED_TRACE(name);
    GlobalConfig config("", site);
    Capture capture;
    bool changed = false;
    EXPECT_FALSE(config.pattern_remove(name, {"north", "south"}, changed));
    EXPECT_FALSE(changed);
    EXPECT_TRUE(config == GlobalConfig("", site));
    EXPECT_THAT(capture.lines(), IsEmpty());
  }
}

TEST(ConfigPatterns, TheWalkStartsWithCommon) {
  const GlobalConfig config("", R"({"global":{},"common":{},"patterns":[{"pattern":"alpha"},{"pattern":"zulu"}]})");
  std::vector<std::string> names;
  config.for_each_pattern([&](const std::string& name, const DomainConfig&) { names.push_back(name); });
  EXPECT_THAT(names, ElementsAre("common", "alpha", "zulu"));
}

TEST(ConfigPatterns, APatternIsFoundByNameAndSoIsCommon) {
  const GlobalConfig config("", site);
  EXPECT_EQ(config.pattern("office")->client_max_age, 40);
  EXPECT_EQ(config.pattern("common"), config.common());
  EXPECT_FALSE(config.pattern("shop"));
}

// --- Comparison.

std::vector<std::string> differences(const GlobalConfig& present, const GlobalConfig& wanted) {
  std::vector<std::string> calls;
  const auto note = [&calls](const std::string& what) {
    return [&calls, what](const std::string& name) { calls.push_back(what + " " + name); };
  };
  present.compare(
      wanted, [&calls] { calls.emplace_back("global"); }, note("pattern changed"), note("pattern added"),
      note("pattern removed"), note("domain changed"), note("domain added"), note("domain removed"));
  return calls;
}

TEST(ConfigCompare, EqualConfigurationsCallNothing) {
  EXPECT_THAT(differences(GlobalConfig("", site), GlobalConfig("", site)), IsEmpty());
}

TEST(ConfigCompare, DifferencesAreToldInOneOrder) {
  const GlobalConfig present("", R"({"global":{},"common":{},
      "patterns":[{"pattern":"a"},{"pattern":"b"},{"pattern":"c"}],
      "domains":[{"domain":"north","pattern":"a"},{"domain":"south","pattern":"b"},{"domain":"west","pattern":"c"}]})");
  const GlobalConfig wanted("", R"({"global":{"listen_port":1},"common":{"use_dca":0},
      "patterns":[{"pattern":"b","use_tpc":0},{"pattern":"c"},{"pattern":"d"},{"pattern":"e"}],
      "domains":[{"domain":"east","pattern":"d"},{"domain":"south","pattern":"b","time_zone":"1:00"},
                 {"domain":"west","pattern":"c"}]})");
  EXPECT_THAT(differences(present, wanted),
              ElementsAre("global", "pattern changed common", "pattern changed b", "pattern added d", "pattern added e",
                          "pattern removed a", "domain changed south", "domain added east", "domain removed north"));
}

TEST(ConfigCompare, ADomainDiffersByItsBindingAndNotByItsSettings) {
  const GlobalConfig present("", site);
  GlobalConfig wanted("", site);
  Capture capture;
  Edit edit;
  wanted.pattern_change("lab", JsonReader("{\"client_max_age\":31}"), edit.rejected.list(), edit.failed, edit.changed);
  EXPECT_THAT(differences(present, wanted), ElementsAre("pattern changed lab"));
}

TEST(ConfigCompare, EveryGlobalKeyCounts) {
  const GlobalConfig present("");
  for (const char* section :
       {R"("enabled":0)", R"("api_port":1)", R"("cli_api_port":1)", R"("listen_port":1)", R"("use_https":1)",
        R"("report_delete_at_time_utc":"1:00")", R"("reports_path":"/x")", R"("www_path":"/x")", R"("vrrp_enabled":1)",
        R"("vrrp_timeout":1)", R"("vrrp_backup_path":"/x")", R"("vrrp_state_file":"/x")",
        R"("use_wildcard_80211r":1)"}) {
    SCOPED_TRACE(section);
    const GlobalConfig wanted("", "{\"global\":{" + std::string(section) + "}}");
    EXPECT_THAT(differences(present, wanted), ElementsAre("global"));
    EXPECT_FALSE(present == wanted);
  }
}

TEST(ConfigCompare, EmptyCallbacksArePassedOver) {
  const GlobalConfig present("", site);
  const GlobalConfig wanted("", R"({"global":{"listen_port":1},"common":{"use_dca":0},"patterns":[{"pattern":"new"}],
      "domains":[{"domain":"new","pattern":"new"}]})");
  present.compare(wanted, {}, {}, {}, {}, {}, {}, {});
  std::vector<std::string> added;
  const auto note = [&](const std::string& name) { added.push_back(name); };
  present.compare(wanted, {}, {}, note, {}, {}, note, {});
  EXPECT_THAT(added, ElementsAre("new", "new"));
}

TEST(ConfigCompare, EqualityLooksAtGlobalCommonPatternsAndBindings) {
  const GlobalConfig present("", site);
  EXPECT_TRUE(present == GlobalConfig("", site));
  EXPECT_TRUE(present == GlobalConfig("/no/such/file", site)) << "the path does not count";
  const std::string text = site;
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string other = text;
    return GlobalConfig("", other.replace(other.find(from), from.size(), to)) == present;
  };
  EXPECT_FALSE(with("\"global\":{}", "\"global\":{\"enabled\":0}"));
  EXPECT_FALSE(with("\"common\":{}", "\"common\":{\"use_dca\":0}"));
  EXPECT_FALSE(with("\"client_max_age\":30", "\"client_max_age\":31"));
  EXPECT_FALSE(with("\"pattern\":\"office\"", "\"pattern\":\"shop\""));
  EXPECT_FALSE(with("1:00", "2:00"));
  EXPECT_FALSE(with("{\"domain\":\"south\",\"pattern\":\"common\"}", "null"));
}

// --- Threads.

// One edit that gives two settings of the pattern the same value.
void set_both(GlobalConfig& config, int value) {
  Edit edit;
  const std::string number = std::to_string(value);
  const std::string section = "{\"client_max_age\":" + number + ",\"away_timeout\":" + number + "}";
  config.pattern_change("lab", JsonReader(section.c_str()), edit.rejected.list(), edit.failed, edit.changed);
}

TEST(ConfigThreads, ReadersSeeEachEditWholeOrNotAtAll) {
  Capture capture;
  GlobalConfig config("", site);
  set_both(config, 10);
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::atomic<int> walks{0};
  const auto read = [&] {
    do {
      const DomainConfig north = config.domain_config("north");
      if (north.client_max_age != north.away_timeout) ++torn;
      config.for_each_pattern([&](const std::string& name, const DomainConfig& settings) {
        if (name == "lab" && settings.client_max_age != settings.away_timeout) ++torn;
        config.enabled();  // a callback may look things up
      });
      ++walks;
    } while (!done);
  };
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) readers.emplace_back(read);
  for (int i = 0; i < 200; ++i) set_both(config, 10 + i % 100);
  done = true;
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
  EXPECT_GE(walks, 3);
}

}  // namespace
}  // namespace rrm::testing
