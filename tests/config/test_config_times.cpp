// Times of the form "H:MM": what is accepted, what it means, and who checks it when.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Config.h"
#include "config/config_support.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string section_with(const char* key, const std::string& text) {
  return "{\"" + std::string(key) + "\":\"" + text + "\"}";
}

struct ZoneRead {
  bool passed = false;
  bool failed = false;
  bool changed = false;
  std::string text = "3:00";
  std::int32_t seconds = 10800;
  std::string rejected;
};

ZoneRead read_zone(const std::string& section) {
  ZoneRead result;
  Rejected rejected;
  result.passed = GlobalConfig::get_time_zone(JsonReader(section.c_str()), result.text, result.seconds, result.failed,
                                              result.changed, rejected.list());
  result.rejected = rejected.text();
  return result;
}

TEST(ConfigTimes, AcceptedTimeZones) {
  struct Case {
    const char* text;
    std::int32_t seconds;
  };
  for (const Case& c :
       {Case{"-12:00", -43200}, Case{"+14:00", 50400}, Case{"14:00", 50400}, Case{"00:00", 0}, Case{"0:0", 0},
        Case{"5:30", 19800}, Case{"05:30", 19800}, Case{"+05:30", 19800}, Case{"-5:30", -19800}, Case{"-03:59", -14340},
        // The sign of a zero is lost.
        Case{"-00:30", 1800}, Case{"-0:30", 1800},
        // What follows the two digits of the minutes is not looked at.
        Case{"1:5x", 3900}, Case{"1:00xx", 3600}, Case{"1:599", 7140}, Case{" 1:30", 5400}, Case{"1: 30", 5400}}) {
    SCOPED_TRACE(c.text);
    const ZoneRead read = read_zone(section_with("time_zone", c.text));
    EXPECT_TRUE(read.passed);
    EXPECT_FALSE(read.failed);
    EXPECT_TRUE(read.changed);
    EXPECT_EQ(read.text, c.text);
    EXPECT_EQ(read.seconds, c.seconds);
    EXPECT_EQ(read.rejected, Rejected::of(""));
  }
}

TEST(ConfigTimes, RejectedTimeZonesLeaveTheStoredOne) {
  for (const char* text : {"14:01", "-12:01", "-13:00", "15:00", "", "5", "5:", ":30", "a:30", "5:60", "5:-1", "5.30",
                           "+014:00", "1:00xxx", "-012:00", "1234:00"}) {
    SCOPED_TRACE(text);
    Capture capture;
    const ZoneRead read = read_zone(section_with("time_zone", text));
    EXPECT_FALSE(read.passed);
    EXPECT_TRUE(read.failed);
    EXPECT_FALSE(read.changed);
    EXPECT_EQ(read.text, "3:00");
    EXPECT_EQ(read.seconds, 10800);
    EXPECT_EQ(read.rejected, Rejected::of(section_with("time_zone", text)));
    EXPECT_THAT(capture.lines(),
                ElementsAre(LogLine{LOG_WARNING, "Invalid time value for 'time_zone': '" + std::string(text) +
                                                     "' (allowed range: [-43200, 50400] in seconds)"}));
  }
}

TEST(ConfigTimes, ATimeZoneThatIsNoTextIsRejectedAsAnEmptyOne) {
  Capture capture;
  const ZoneRead read = read_zone("{\"time_zone\":3}");
  EXPECT_TRUE(read.failed);
  EXPECT_EQ(read.rejected, Rejected::of("{\"time_zone\":\"\"}"));
  EXPECT_THAT(capture.lines(LOG_WARNING),
              ElementsAre("Invalid time value for 'time_zone': '' (allowed range: [-43200, 50400] in seconds)"));
}

TEST(ConfigTimes, AMissingTimeZonePassesAndLeavesTheStoredOne) {
  const ZoneRead read = read_zone("{}");
  EXPECT_TRUE(read.passed);
  EXPECT_FALSE(read.failed);
  EXPECT_FALSE(read.changed);
  EXPECT_EQ(read.text, "3:00");
  EXPECT_EQ(read.seconds, 10800);
}

TEST(ConfigTimes, TheStoredTimeZoneAgainIsNoChange) {
  const ZoneRead read = read_zone(section_with("time_zone", "3:00"));
  EXPECT_TRUE(read.passed);
  EXPECT_FALSE(read.changed);
}

TEST(ConfigTimes, OptimisationTimeKeepsTextAndSeconds) {
  struct Case {
    const char* text;
    bool valid;
    std::int32_t seconds;
  };
  for (const Case& c :
       {Case{"0:00", true, 0}, Case{"24:00", true, 86400}, Case{"23:59", true, 86340}, Case{"24:01", false, 0},
        Case{"-1:00", false, 0}, Case{"-0:30", true, 1800}, Case{"noon", false, 0}}) {
    SCOPED_TRACE(c.text);
    Capture capture;
    Rejected rejected;
    DomainConfig config;
    bool failed = false;
    const JsonReader section(section_with("optimization_time", c.text).c_str());
    EXPECT_EQ(GlobalConfig::set_domain_settings(config, section, rejected.list(), failed), c.valid);
    EXPECT_EQ(failed, !c.valid);
    EXPECT_EQ(config.optimization_time, c.valid ? c.text : "00:00");
    EXPECT_EQ(config.optimization_time_seconds, c.seconds);
  }
}

TEST(ConfigTimes, OptimisationTimeOutOfRangeIsNamedWithItsRange) {
  Capture capture;
  Rejected rejected;
  DomainConfig config;
  bool failed = false;
  const JsonReader section(section_with("optimization_time", "24:01").c_str());
  GlobalConfig::set_domain_settings(config, section, rejected.list(), failed);
  EXPECT_THAT(
      capture.lines(LOG_WARNING),
      ElementsAre("Invalid time value for 'optimization_time': '24:01' (allowed range: [0, 86400] in seconds)"));
  EXPECT_EQ(rejected.text(), Rejected::of("{\"optimization_time\":\"24:01\"}"));
}

TEST(ConfigTimes, ABadOptimisationTimeInAFileLeavesTheDefault) {
  const GlobalConfig config("", "{\"global\":{},\"common\":{\"optimization_time\":\"24:01\"}}");
  EXPECT_EQ(config.common().optimization_time, "00:00");
  EXPECT_EQ(config.common().optimization_time_seconds, 0);
}

TEST(ConfigTimes, TheCleanupTimeEndsBeforeMidnight) {
  for (const auto& [text, valid] : {std::pair{"0:00", true}, std::pair{"23:59", true}, std::pair{"24:00", false}}) {
    SCOPED_TRACE(text);
    Capture capture;
    Rejected rejected;
    GlobalConfig config("");
    bool failed = false;
    const JsonReader section(section_with("report_delete_at_time_utc", text).c_str());
    EXPECT_EQ(config.set_global(section, rejected.list(), failed), valid);
    EXPECT_EQ(failed, !valid);
    EXPECT_EQ(config.global().report_delete_at_time_utc, valid ? text : "21:00");
  }
}

TEST(ConfigTimes, TheCleanupTimeIsTakenFromAFileUncheckedUnlessItIsEmpty) {
  EXPECT_EQ(
      GlobalConfig("", "{\"global\":{\"report_delete_at_time_utc\":\"late\"}}").global().report_delete_at_time_utc,
      "late");
  EXPECT_EQ(GlobalConfig("", "{\"global\":{\"report_delete_at_time_utc\":\"\"}}").global().report_delete_at_time_utc,
            "21:00");
}

}  // namespace
}  // namespace rrm::testing
