#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "json/JsonReader.h"
#include "protocol/version.h"
#include "support/messages.h"

namespace rrm::protocol {
namespace {

using rrm::testing::a_message;

bool passes(const std::string& message) {
  return check_version(JsonReader(message.c_str()), "2.4");
}

bool version_passes(const std::string& version) {
  return passes(a_message("rrm-response", "00:11:22:33:44:00").with("version", version).text());
}

TEST(Version, PassesUpToTheReferencesMinorNumber) {
  for (const char* version : {"2.0", "2.1", "2.2", "2.3", "2.4", "2.4.1", "2.04", "02.4", "2.4beta", " 2.4", "2. 4",
                              "+2.4", "2.+4", "2.-1", "2.-99999999999999999999"}) {
    EXPECT_TRUE(version_passes(version)) << version;
  }
}

TEST(Version, FailsForAnythingElse) {
  for (const char* version : {"2.5",
                              "2.10",
                              "1.9",
                              "1.4",
                              "3.0",
                              "3.4",
                              "2",
                              "2.",
                              ".4",
                              "",
                              "2,4",
                              "2 .4",
                              "v2.4",
                              "two",
                              "-2.4",
                              "2..4",
                              "--2.4",
                              "2.x4",
                              "2.99999999999999999999",
                              "99999999999999999999.4",
                              "4294967298.4",
                              "2.4294967296"}) {
    EXPECT_FALSE(version_passes(version)) << version;
  }
}

TEST(Version, FailsWhenItIsMissingOrNoText) {
  EXPECT_FALSE(passes(a_message("rrm-response", "00:11:22:33:44:00").without("version").text()));
  EXPECT_FALSE(passes(a_message("rrm-response", "00:11:22:33:44:00").with("version", 2).text()));
  EXPECT_FALSE(passes(a_message("rrm-response", "00:11:22:33:44:00").with_raw("version", "2.4").text()));
  EXPECT_FALSE(passes("[]"));
  EXPECT_FALSE(passes("{"));
}

TEST(Version, FailsAgainstAReferenceThatDoesNotScan) {
  EXPECT_FALSE(check_version(JsonReader(R"({"version":"2.4"})"), "two"));
}

TEST(Version, ANumberBeyondAnIntReadsAsTheNearestOne) {
  const auto high = scan_version("2147483648.-2147483648");
  ASSERT_TRUE(high);
  EXPECT_EQ(high->major_number, std::numeric_limits<int>::max());
  EXPECT_EQ(high->minor_number, -std::numeric_limits<int>::max());
}

// The scanner is its own; what it must read alike is told by the C library, on texts whose numbers fit.
TEST(Version, ScansEveryTextAsTheCLibraryDoes) {
  const char* const pieces[] = {"0", "1", "2", "24", "007", ".", "..", "-", "+", " ", "\t", "\n", "x", ""};
  std::mt19937 random(20240611);
  std::uniform_int_distribution<std::size_t> pick(0, std::size(pieces) - 1);
  int scanned = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (int i = 0; i < 6; ++i) text += pieces[pick(random)];
    int major_number = 0;
    int minor_number = 0;
    const bool expected = std::sscanf(text.c_str(), "%d.%d", &major_number, &minor_number) == 2;
    const auto version = scan_version(text.c_str());
    ASSERT_EQ(version.has_value(), expected) << "'" << text << "'";
    if (!expected) continue;
    ++scanned;
    ASSERT_EQ(version->major_number, major_number) << "'" << text << "'";
    ASSERT_EQ(version->minor_number, minor_number) << "'" << text << "'";
  }
  EXPECT_GT(scanned, 500);
}

}  // namespace
}  // namespace rrm::protocol
