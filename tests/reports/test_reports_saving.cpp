// What an optimisation leaves on the disk: which radios are remembered and with what, the lines of the three files to
// the letter, and what is left when a step of the saving fails.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <future>
#include <stdexcept>

#include "Config.h"
#include "failing_files.h"
#include "report_support.h"
#include "reports/file_lock.h"
#include "reports/file_names.h"
#include "reports/file_sync.h"
#include "support/builders.h"

namespace reports {
namespace {

using rrm::testing::a_radio;
using rrm::testing::a_set;
using rrm::testing::an_ap;
using testing::a_record;
using testing::default_settings;
using ::testing::ElementsAre;
using testing::FileSizeLimit;
using testing::invalid_argument_of;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::record_text;
using testing::ReportTest;
using testing::some_date;
using testing::Texts;
using ::testing::UnorderedElementsAre;
using enum rrm::LogLevel;

// --- Names.

TEST(ReportFileNames, AreMadeOfDirectoryRoleAndDomain) {
  EXPECT_EQ(get_report_file_name("lab", "/var/reports"), "/var/reports/report_lab.txt");
  EXPECT_EQ(get_report_config_file_name("lab", "/var/reports"), "/var/reports/report_cfg_lab.txt");
  EXPECT_EQ(get_report_index_file_name("lab", "/var/reports"), "/var/reports/report_idx_lab.txt");
  EXPECT_EQ(get_report_lock_file_name("lab", "/var/reports"), "/var/reports/.report_lock_lab");
}

TEST(ReportFileNames, RefuseAnEmptyArgumentByTheNameOfTheFunction) {
  EXPECT_EQ(invalid_argument_of([] { get_report_file_name("", "/p"); }),
            "get_report_file_name: Invalid argument 'domain_name'.");
  EXPECT_EQ(invalid_argument_of([] { get_report_file_name("lab", ""); }),
            "get_report_file_name: Invalid argument 'report_files_path'.");
  EXPECT_EQ(invalid_argument_of([] { get_report_config_file_name("", "/p"); }),
            "get_report_config_file_name: Invalid argument 'domain_name'.");
  EXPECT_EQ(invalid_argument_of([] { get_report_config_file_name("lab", ""); }),
            "get_report_config_file_name: Invalid argument 'report_files_path'.");
  EXPECT_EQ(invalid_argument_of([] { get_report_index_file_name("", ""); }),
            "get_report_index_file_name: Invalid argument 'domain_name'.");
  EXPECT_EQ(invalid_argument_of([] { get_report_index_file_name("lab", ""); }),
            "get_report_index_file_name: Invalid argument 'report_files_path'.");
}

TEST(ReportKey, IsDateApAndRadio) {
  EXPECT_EQ(create_key_for_domain_radio_report(some_date, "AA", "BB"), "2023-11-14,22:13:20,AA,BB");
}

TEST(ReportKey, RefusesAnEmptyPart) {
  const std::string function = "create_key_for_domain_radio_report";
  EXPECT_EQ(invalid_argument_of([] { create_key_for_domain_radio_report("", "AA", "BB"); }),
            function + ": Invalid argument 'optimize_start_date'.");
  EXPECT_EQ(invalid_argument_of([] { create_key_for_domain_radio_report(some_date, "", "BB"); }),
            function + ": Invalid argument 'ap_mac_str'.");
  EXPECT_EQ(invalid_argument_of([] { create_key_for_domain_radio_report(some_date, "AA", ""); }),
            function + ": Invalid argument 'radio_mac_str'.");
}

// --- Remembering.

class Remembering : public ::testing::Test {
 protected:
  static constexpr const char* ap_mac = "aa:22:33:00:00:00";

  rrm::ApMap one_radio(const rrm::testing::RadioBuilder& radio) {
    return a_set({an_ap().mac(ap_mac).with_radio(radio).build(config_)});
  }

  rrm::DomainConfig config_;
  RadioReport report_;
};

TEST_F(Remembering, BeforeTakesWhatTheRadioIsAndLeavesTheAfterValuesZero) {
  const rrm::ApMap aps = one_radio(a_radio()
                                       .channel(44)
                                       .bandwidth(80)
                                       .primary(768)
                                       .power(17)
                                       .power_range(5, 23)
                                       .eirp(20)
                                       .eirp_range(8, 26)
                                       .antenna(4, 1)
                                       .available({149, 36, 44}));
  remember_radio_report_before_optimize(report_, some_date, aps);
  RadioReportRecord expected;
  expected.power_before = 17;
  expected.eirp_before = 20;
  expected.channel_before = 44;
  expected.radio_id = 0;
  expected.bandwidth = 80;
  expected.max_power = 23;
  expected.min_power = 5;
  expected.eirp_min = 8;
  expected.eirp_max = 26;
  expected.antenna_gain = 4;
  expected.cable_loss = 1;
  expected.primary_channel = 768;
  expected.available_channels = "36 44 149";
  ASSERT_EQ(report_.size(), 1U);
  EXPECT_EQ(report_.begin()->first, "2023-11-14,22:13:20,AA:22:33:00:00:00,AA:22:33:00:00:00");
  EXPECT_TRUE(report_.begin()->second == expected);
}

TEST_F(Remembering, TheRadiosMacIsItsOwnAndItsIdIsTold) {
  const rrm::ApMap aps = a_set({an_ap()
                                    .mac(ap_mac)
                                    .with_radio(a_radio().disabled())
                                    .with_radio(a_radio().channel(36).available({36}))
                                    .build(config_)});
  remember_radio_report_before_optimize(report_, some_date, aps);
  ASSERT_EQ(report_.size(), 1U);
  EXPECT_EQ(report_.begin()->first, "2023-11-14,22:13:20,AA:22:33:00:00:00,AA:22:33:00:00:10");
  EXPECT_EQ(report_.begin()->second.radio_id, 1);
}

TEST_F(Remembering, ASingleChannelHasNoBlank) {
  remember_radio_report_before_optimize(report_, some_date, one_radio(a_radio().channel(6).available({6})));
  EXPECT_EQ(report_.begin()->second.available_channels, "6");
}

struct RadioCase {
  const char* name;
  rrm::testing::RadioBuilder radio;
  bool remembered;
};

void PrintTo(const RadioCase& c, std::ostream* out) {
  *out << c.name;
}

class RememberedRadio : public ::testing::TestWithParam<RadioCase> {};

TEST_P(RememberedRadio, IsOneThatSomethingMayBePlannedFor) {
  const rrm::DomainConfig config;
  const rrm::ApMap aps = a_set({an_ap().with_radio(GetParam().radio).build(config)});
  RadioReport before;
  remember_radio_report_before_optimize(before, some_date, aps);
  EXPECT_EQ(before.size(), GetParam().remembered ? 1U : 0U);
  RadioReport after;
  remember_radio_report_after_optimize(after, some_date, aps);
  EXPECT_EQ(after.size(), GetParam().remembered ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RememberedRadio,
    ::testing::Values(RadioCase{"Free", a_radio().available({1}), true},
                      RadioCase{"Power locked", a_radio().available({1}).locked_tpc(), true},
                      RadioCase{"Channel locked", a_radio().available({1}).locked_dca(), true},
                      RadioCase{"Both locked", a_radio().available({1}).locked_tpc().locked_dca(), false},
                      RadioCase{"Other locks", a_radio().available({1}).locked_balancer().locked_80211v(), true},
                      RadioCase{"No channels", a_radio(), false},
                      RadioCase{"Off", a_radio().available({1}).disabled(), false}));

TEST_F(Remembering, AfterAddsItsThreeValuesToTheSameRecord) {
  remember_radio_report_before_optimize(
      report_, some_date, one_radio(a_radio().channel(36).power(17).eirp(20).available({36, 44}).bandwidth(40)));
  RadioReportRecord expected = report_.begin()->second;
  remember_radio_report_after_optimize(
      report_, some_date, one_radio(a_radio().channel(44).power(12).eirp(15).available({44}).bandwidth(20)));
  expected.power_after = 12;
  expected.eirp_after = 15;
  expected.channel_after = 44;
  ASSERT_EQ(report_.size(), 1U);
  EXPECT_TRUE(report_.begin()->second == expected);
}

TEST_F(Remembering, BeforeBeginsTheRecordAnew) {
  const rrm::ApMap aps = one_radio(a_radio().channel(36).power(17).available({36}));
  remember_radio_report_before_optimize(report_, some_date, aps);
  const RadioReport fresh = report_;
  remember_radio_report_after_optimize(report_, some_date, aps);
  remember_radio_report_before_optimize(report_, some_date, aps);
  EXPECT_TRUE(report_ == fresh);
}

TEST_F(Remembering, ARadioThatIsNewAfterwardsHasOnlyTheThreeValues) {
  remember_radio_report_after_optimize(
      report_, some_date, one_radio(a_radio().channel(44).power(12).eirp(15).available({44}).bandwidth(40)));
  RadioReportRecord expected;
  expected.power_after = 12;
  expected.eirp_after = 15;
  expected.channel_after = 44;
  ASSERT_EQ(report_.size(), 1U);
  EXPECT_TRUE(report_.begin()->second == expected);
}

TEST_F(Remembering, ChangesOfTheMapAfterwardsDoNotReachTheBeforeValues) {
  const auto ap = an_ap().with_radio(a_radio().channel(36).available({36, 44})).build(config_);
  const rrm::ApMap aps = a_set({ap});
  remember_radio_report_before_optimize(report_, some_date, aps);
  ap->radios.list.at(0).channel = 44;
  remember_radio_report_after_optimize(report_, some_date, aps);
  EXPECT_EQ(report_.begin()->second.channel_before, 36);
  EXPECT_EQ(report_.begin()->second.channel_after, 44);
}

// --- The three files.

class Saving : public ReportTest {
 protected:
  static RadioReport one_radio(const std::string& date = some_date) { return {{date + ",AA,BB", a_record()}}; }
  int save(const RadioReport& report, const std::string& date = some_date) {
    return save_radio_report_to_files(report, "lab", date, path(), config_);
  }
  std::string error_line(int error) const {
    return "Error while save radio report for domain: \"lab\". Report date: \"2023-11-14,22:13:20\". Exit code: " +
           std::to_string(error) + ".";
  }

  rrm::DomainConfig config_;
};

TEST_F(Saving, WritesALinePerRadioTheSettingsAndTheIndex) {
  EXPECT_EQ(save(one_radio()), 0);
  EXPECT_THAT(content(), ElementsAre(Pair(".report_lock_lab", ""),
                                     Pair("report_cfg_lab.txt", "1.1,2023-11-14,22:13:20," + default_settings + "\n"),
                                     Pair("report_idx_lab.txt", "1.1,2023-11-14,22:13:20\n"),
                                     Pair("report_lab.txt", "1.1,2023-11-14,22:13:20,AA,BB" + record_text)));
  EXPECT_EQ(capture_.lines(),
            (std::vector<rrm::testing::LogLine>{{LOG_TRACE, "report_file_name = \"" + report_file() + "\""},
                                                {LOG_TRACE, "report_config_file_name = \"" + config_file() + "\""},
                                                {LOG_TRACE, "report_index_file_name = \"" + index_file() + "\""}}));
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Saving, WritesTheRadiosInTheOrderOfTheirKeys) {
  RadioReport report;
  for (const char* key : {"B,2", "A,9", "B,1", "A,1"}) report[some_date + "," + key] = a_record();
  EXPECT_EQ(save(report), 0);
  const std::string begin = "1.1," + some_date;
  EXPECT_EQ(read(report_file()), begin + ",A,1" + record_text + begin + ",A,9" + record_text + begin + ",B,1" +
                                     record_text + begin + ",B,2" + record_text);
}

TEST_F(Saving, WritesEverySettingInItsPlace) {
  config_.use_dunva_rrm_scan = false;
  config_.use_dca = true;
  config_.use_tpc = false;
  config_.use_hd_mode = true;
  config_.dca_threshold = 7;
  config_.ap_rssi_threshold_2g = -8;
  config_.ap_rssi_threshold_5g = -9;
  config_.hysteresis_2g = 10;
  config_.hysteresis_5g = 11;
  config_.report_format_reserved = 12;
  config_.away_timeout = 13;
  config_.blacklist_thr_low = -14;
  config_.blacklist_thr_high = -15;
  config_.blacklist_timeout = 16;
  config_.load_balance_sta_low = 17;
  config_.load_balance_sta_high = 18;
  config_.use_all_ap_balance = true;
  config_.use_balance = false;
  config_.client_rssi_renew = 21;
  config_.client_max_age = 22;
  config_.client_try_no_balance = 23;
  config_.no_balance_enterprise = true;
  config_.use_rrm_report = false;
  config_.report_days_to_live = 26;
  config_.use_80211k = false;
  EXPECT_EQ(save(one_radio()), 0);
  EXPECT_EQ(read(config_file()),
            "1.1,2023-11-14,22:13:20,0,1,0,1,7,-8,-9,10,11,12,13,-14,-15,16,17,18,1,0,21,22,23,1,0,"
            "26,0\n");
}

TEST_F(Saving, AppendsToWhatIsThere) {
  const std::string later = "2023-11-15,00:00:00";
  EXPECT_EQ(save(one_radio()), 0);
  EXPECT_EQ(save(one_radio(later), later), 0);
  EXPECT_EQ(read(report_file()), "1.1," + some_date + ",AA,BB" + record_text + "1.1," + later + ",AA,BB" + record_text);
  EXPECT_EQ(read(config_file()),
            "1.1," + some_date + "," + default_settings + "\n1.1," + later + "," + default_settings + "\n");
  EXPECT_EQ(read(index_file()), "1.1," + some_date + "\n1.1," + later + "\n");
}

TEST_F(Saving, AnEmptyReportHasNoDataLineButTheOtherTwo) {
  EXPECT_EQ(save({}), 0);
  EXPECT_EQ(read(report_file()), "");
  EXPECT_EQ(read(config_file()), "1.1," + some_date + "," + default_settings + "\n");
  EXPECT_EQ(read(index_file()), "1.1," + some_date + "\n");
}

TEST_F(Saving, ARadioThatIsNewAfterwardsHasZeroForWhatWasBefore) {
  RadioReport report;
  const rrm::ApMap aps =
      a_set({an_ap().with_radio(a_radio().channel(44).power(12).eirp(15).available({44})).build(config_)});
  remember_radio_report_after_optimize(report, some_date, aps);
  EXPECT_EQ(save(report), 0);
  EXPECT_EQ(read(report_file()), "1.1," + some_date +
                                     ",00:11:22:00:00:00,00:11:22:00:00:00,0,12,0,44,0,0,0,0,0,,0,15,0,0,"
                                     "0,0\n");
}

TEST_F(Saving, IntoAMissingDirectoryIsTheErrorOfTheLock) {
  const std::string missing = path() + "/missing";
  EXPECT_EQ(save_radio_report_to_files(one_radio(), "lab", some_date, missing, config_), ENOENT);
  EXPECT_THAT(errors(), ElementsAre("Cannot open report lock \"" + missing +
                                        "/.report_lock_lab\": errno=2 (No such file or directory)",
                                    error_line(2)));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
  EXPECT_THAT(content(), IsEmpty());
}

// An operator may have set no path; the plan that is reported goes on.
TEST_F(Saving, WithoutAPathIsRefusedAndDoesNotThrow) {
  EXPECT_EQ(save_radio_report_to_files(one_radio(), "lab", some_date, "", config_), EINVAL);
  EXPECT_THAT(errors(), ElementsAre("get_report_file_name: Invalid argument 'report_files_path'.", error_line(22)));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
}

TEST_F(Saving, WithoutADomainIsRefusedAndDoesNotThrow) {
  EXPECT_EQ(save_radio_report_to_files(one_radio(), "", some_date, path(), config_), EINVAL);
  EXPECT_THAT(errors(), ElementsAre("get_report_file_name: Invalid argument 'domain_name'.",
                                    "Error while save radio report for domain: \"\". Report date: "
                                    "\"2023-11-14,22:13:20\". Exit code: 22."));
  EXPECT_THAT(events(), ElementsAre(event(18, "")));
  EXPECT_THAT(content(), IsEmpty());
}

// Whatever is thrown: here by the log, which stands for all that the saving uses.
TEST_F(Saving, ThatThrowsIsAFailureAndDoesNotThrow) {
  static Texts lines;
  lines.clear();
  rrm::set_log_hook([](const char*, int, const char*, int level, const char* format, va_list args) {
    if (level == LOG_TRACE) throw std::runtime_error("no luck");
    std::array<char, 200> text{};
    std::vsnprintf(text.data(), text.size(), format, args);
    lines.emplace_back(text.data());
  });
  EXPECT_EQ(save(one_radio()), EINVAL);
  EXPECT_THAT(lines, ElementsAre("no luck", error_line(22)));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
  EXPECT_THAT(content(), IsEmpty());
}

// --- A step that fails.

struct StepCase {
  const char* name;
  const char* failing;  // a directory stands in this file's place
  const char* what;     // in the log line
  std::vector<std::string> written;
};

void PrintTo(const StepCase& c, std::ostream* out) {
  *out << c.name;
}

class FailingStep : public Saving, public ::testing::WithParamInterface<StepCase> {};

TEST_P(FailingStep, EndsTheSavingBeforeTheNext) {
  const StepCase& c = GetParam();
  std::filesystem::create_directory(file(c.failing));
  EXPECT_EQ(save(one_radio()), EISDIR);
  EXPECT_THAT(errors(), ElementsAre("basic_ios::clear: iostream error, errno = 21: Is a directory",
                                    std::string("Write ") + c.what + " to file exit with error code: 21. Filename: \"" +
                                        file(c.failing) + "\".",
                                    error_line(21)));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
  std::vector<std::string> written;
  for (const auto& [name, text] : content()) {
    if (!text.empty()) written.push_back(name);
  }
  EXPECT_EQ(written, c.written);
}

INSTANTIATE_TEST_SUITE_P(
    Table, FailingStep,
    ::testing::Values(StepCase{"Data", "report_lab.txt", "radio report", {}},
                      StepCase{"Settings", "report_cfg_lab.txt", "radio report domain config", {"report_lab.txt"}},
                      StepCase{
                          "Index", "report_idx_lab.txt", "radio report id", {"report_cfg_lab.txt", "report_lab.txt"}}));

TEST_F(Saving, OnAFullDiskFailsWhenTheFileIsClosed) {
  std::filesystem::create_symlink("/dev/full", report_file());
  EXPECT_EQ(save(one_radio()), ENOSPC);
  EXPECT_THAT(errors(),
              ElementsAre("close/flush \"" + report_file() + "\": basic_ios::clear: iostream error errno=28",
                          "Write radio report to file exit with error code: 28. Filename: \"" + report_file() + "\".",
                          error_line(28)));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
  EXPECT_FALSE(std::filesystem::exists(config_file()));
  EXPECT_FALSE(std::filesystem::exists(index_file()));
}

TEST_F(Saving, OfALargeReportOnAFullDiskFailsWhileItIsWritten) {
  std::filesystem::create_symlink("/dev/full", report_file());
  RadioReport report;
  for (int i = 0; i < 1000; ++i) report[some_date + ",AA," + std::to_string(i)] = a_record();
  EXPECT_EQ(save(report), ENOSPC);
  EXPECT_EQ(errors().front(), "basic_ios::clear: iostream error, errno = 28: No space left on device");
  EXPECT_EQ(errors().back(), error_line(28));
}

TEST_F(Saving, ThatCannotBeBroughtToTheDiskHasFailed) {
  std::filesystem::create_symlink("/dev/null", report_file());
  EXPECT_EQ(save(one_radio()), EINVAL);
  EXPECT_THAT(errors(),
              ElementsAre("fsync \"" + report_file() + "\" failed: errno=22 (Invalid argument)",
                          "Write radio report to file exit with error code: 22. Filename: \"" + report_file() + "\".",
                          error_line(22)));
  EXPECT_FALSE(std::filesystem::exists(config_file()));
}

// Nothing counts as saved before it is on the disk, the index line last.
TEST_F(Saving, BringsOneFileAfterTheOtherToTheDiskAndThenTheDirectory) {
  ASSERT_EQ(save(one_radio()), 0);
  const rrm::testing::FileWatch watch(path());
  EXPECT_EQ(save(one_radio()), 0);
  std::vector<std::string> steps;
  for (const std::string& operation : watch.operations()) {
    if (operation.starts_with("lock ") || operation.starts_with("write ") || operation.starts_with("sync "))
      steps.push_back(operation);
  }
  EXPECT_THAT(steps, ElementsAre("lock .report_lock_lab", "write report_lab.txt", "sync report_lab.txt",
                                 "write report_cfg_lab.txt", "sync report_cfg_lab.txt", "write report_idx_lab.txt",
                                 "sync report_idx_lab.txt", "sync ."));
}

TEST_F(Saving, IsTheErrorOfADirectoryThatCannotBeSynced) {
  {
    const rrm::testing::FileWatch watch(path(), "sync .", rrm::testing::FileFault::eio);
    EXPECT_EQ(save(one_radio()), EIO);
  }
  EXPECT_THAT(errors(),
              ElementsAre("fsync dir \"" + path() + "\" failed: errno=5 (Input/output error)", error_line(5)));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
}

TEST_F(Saving, IsTheErrorOfALockThatCannotBeHad) {
  {
    const rrm::testing::FileWatch watch(path(), "lock .report_lock_lab", rrm::testing::FileFault::eio);
    EXPECT_EQ(save(one_radio()), EIO);
  }
  EXPECT_THAT(errors(),
              ElementsAre("flock(" + file(".report_lock_lab") + ") LOCK_EX failed: errno=5 (Input/output error)",
                          error_line(5)));
  EXPECT_THAT(content(), ElementsAre(Pair(".report_lock_lab", "")));
}

// The disk is full after a part of a line: the next report must not run on from it, and queries must not stumble.
TEST_F(Saving, TakesBackThePartThatStillFittedOnTheDisk) {
  EXPECT_EQ(save(one_radio()), 0);
  const auto before = content();
  {
    const FileSizeLimit limit(before.at("report_lab.txt").size() + 10);
    EXPECT_EQ(save(one_radio()), EFBIG);
  }
  EXPECT_EQ(content(), before);
  EXPECT_EQ(errors().front(), "close/flush \"" + report_file() + "\": basic_ios::clear: iostream error errno=27");
  EXPECT_EQ(errors().back(), error_line(27));
  EXPECT_EQ(save(one_radio()), 0);
  EXPECT_EQ(read(index_file()), "1.1," + some_date + "\n1.1," + some_date + "\n");
}

TEST_F(Saving, TakesBackAPartOfTheIndexLineToo) {
  const std::string many = "1.1,2023-11-13,00:00:00\n";
  std::string index;
  while (index.size() < 1000) index += many;
  write(index_file(), index);
  {
    const FileSizeLimit limit(index.size() + 5);
    EXPECT_EQ(save(one_radio()), EFBIG);
  }
  EXPECT_EQ(read(index_file()), index);
}

// --- What a crash has left.

struct CutCase {
  const char* name;
  std::string there;
  std::string kept;
};

void PrintTo(const CutCase& c, std::ostream* out) {
  *out << c.name;
}

class NotCutFile : public Saving, public ::testing::WithParamInterface<const char*> {};

// The line would run on from the unfinished one.
TEST_P(NotCutFile, TakesNoLine) {
  const std::string there = "1.1,a\n1.1,b";
  write(report_file(), there);
  {
    const rrm::testing::FileWatch watch(path(), GetParam() + std::string(" report_lab.txt"),
                                        rrm::testing::FileFault::eio);
    EXPECT_EQ(save(one_radio()), EIO);
  }
  const std::string what = GetParam() == std::string("cut") ? "truncate" : "read";
  EXPECT_THAT(errors(),
              ElementsAre(what + " \"" + report_file() + "\" failed: errno=5 (Input/output error)",
                          "Write radio report to file exit with error code: 5. Filename: \"" + report_file() + "\".",
                          error_line(5)));
  EXPECT_THAT(capture_.lines(LOG_WARNING), IsEmpty());
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
  EXPECT_THAT(content(), ElementsAre(Pair(".report_lock_lab", ""), Pair("report_lab.txt", there)));
}

INSTANTIATE_TEST_SUITE_P(Table, NotCutFile, ::testing::Values("read", "cut"));

// Wherever the last LF lies in the blocks that are read.
TEST_F(Saving, FindsTheLastWholeLineAcrossEveryBoundary) {
  for (const std::size_t block : {std::size_t{4096}, std::size_t{8192}}) {
    for (std::size_t unfinished = block - 2; unfinished <= block + 2; ++unfinished) {
      for (const std::string& kept : {std::string(), std::string("\n"), std::string("1.1,a\n1.1,b\n")}) {
        write(index_file(), kept + std::string(unfinished, 'x'));
        EXPECT_EQ(save(one_radio()), 0);
        EXPECT_EQ(read(index_file()), kept + "1.1," + some_date + "\n") << unfinished;
      }
    }
  }
}

class CutFile : public Saving, public ::testing::WithParamInterface<CutCase> {};

TEST_P(CutFile, GoesOnBehindItsLastWholeLine) {
  const CutCase& c = GetParam();
  for (const std::string& name : {report_file(), config_file(), index_file()}) write(name, c.there);
  EXPECT_EQ(save(one_radio()), 0);
  EXPECT_EQ(read(report_file()), c.kept + "1.1," + some_date + ",AA,BB" + record_text);
  EXPECT_EQ(read(config_file()), c.kept + "1.1," + some_date + "," + default_settings + "\n");
  EXPECT_EQ(read(index_file()), c.kept + "1.1," + some_date + "\n");
  const Texts warnings = c.there == c.kept ? Texts{}
                                           : Texts{"Cut an unfinished line off \"" + report_file() + "\".",
                                                   "Cut an unfinished line off \"" + config_file() + "\".",
                                                   "Cut an unfinished line off \"" + index_file() + "\"."};
  EXPECT_EQ(capture_.lines(LOG_WARNING), warnings);
}

INSTANTIATE_TEST_SUITE_P(Table, CutFile,
                         ::testing::Values(CutCase{"Empty", "", ""},
                                           CutCase{"Whole lines", "1.1,a\n1.1,b\n", "1.1,a\n1.1,b\n"},
                                           CutCase{"Cut second line", "1.1,a\n1.1,20", "1.1,a\n"},
                                           CutCase{"One byte of a line", "1.1,a\n1", "1.1,a\n"},
                                           CutCase{"Cut first line", "1.1,20", ""},
                                           CutCase{"Long cut line", "1.1,a\n" + std::string(100000, 'x'), "1.1,a\n"}));

// A rollback afterwards would put the old index over the new line.
TEST_F(Saving, FirstUndoesARewriteThatWasCutOff) {
  write(report_file() + ".start_status", "1\n");
  write(index_file() + ".old", "1.1,2023-11-13,00:00:00\n");
  write(config_file() + ".old", "old settings\n");
  write(report_file() + ".old", "old data\n");
  EXPECT_EQ(save(one_radio()), 0);
  EXPECT_THAT(content(),
              ElementsAre(Pair(".report_lock_lab", ""),
                          Pair("report_cfg_lab.txt", "old settings\n1.1," + some_date + "," + default_settings + "\n"),
                          Pair("report_idx_lab.txt", "1.1,2023-11-13,00:00:00\n1.1," + some_date + "\n"),
                          Pair("report_lab.txt", "old data\n1.1," + some_date + ",AA,BB" + record_text)));
  EXPECT_THAT(capture_.lines(LOG_WARNING), ElementsAre("Detected unclean reports repository for domain: \"lab\". "
                                                       "Started rollback/recovery procedure."));
}

TEST_F(Saving, ThatCannotUndoItWritesNothing) {
  write(report_file() + ".start_status", "1\n");
  std::filesystem::create_directory(index_file() + ".tmp");
  EXPECT_EQ(save(one_radio()), EISDIR);
  EXPECT_EQ(errors().back(), error_line(21));
  EXPECT_THAT(events(), ElementsAre(event(18, "lab")));
  EXPECT_FALSE(std::filesystem::exists(report_file()));
}

// --- Closing a file.

class Closing : public ReportTest {};

TEST_F(Closing, BringsEverythingToTheFileAndClosesIt) {
  std::ofstream stream(file("a"));
  stream << "text";
  EXPECT_EQ(finalize_ofstream(stream, file("a")), 0);
  EXPECT_FALSE(stream.is_open());
  EXPECT_EQ(read(file("a")), "text");
  EXPECT_THAT(capture_.lines(), IsEmpty());
}

TEST_F(Closing, OfAStreamThatIsNotOpenOnlySyncsTheFile) {
  std::ofstream stream(path() + "/missing/a");
  ASSERT_TRUE(stream.fail());
  write(file("b"), "text");
  EXPECT_EQ(finalize_ofstream(stream, file("b")), 0);
  EXPECT_THAT(capture_.lines(), IsEmpty());
}

TEST_F(Closing, OfAStreamThatHasFailedIsAnErrorEvenWithoutANumber) {
  std::ofstream stream(file("a"));
  stream.setstate(std::ios_base::failbit);
  EXPECT_EQ(finalize_ofstream(stream, file("a")), EIO);
  EXPECT_THAT(errors(), ElementsAre("close/flush \"" + file("a") + "\": basic_ios::clear: iostream error errno=5"));
}

TEST_F(Closing, WithoutANameClosesTheStreamAndIsRefused) {
  std::ofstream stream(file("a"));
  EXPECT_EQ(finalize_ofstream(stream, ""), EINVAL);
  EXPECT_FALSE(stream.is_open());
  EXPECT_EQ(fsync_file_path(""), EINVAL);
}

TEST_F(Closing, OfAFileThatIsGoneIsNoFailure) {
  EXPECT_EQ(fsync_file_path(file("gone")), 0);
  EXPECT_THAT(capture_.lines(), IsEmpty());
}

TEST_F(Closing, NamesTheFileThatCannotBeOpenedForTheSync) {
  write(file("a"), "text");
  EXPECT_EQ(fsync_file_path(file("a/b")), ENOTDIR);
  EXPECT_THAT(errors(), ElementsAre("open for fsync \"" + file("a/b") + "\" failed: errno=20 (Not a directory)"));
}

TEST_F(Closing, NamesTheFileThatCannotBeSynced) {
  EXPECT_EQ(fsync_file_path("/dev/null"), EINVAL);
  EXPECT_THAT(errors(), ElementsAre("fsync \"/dev/null\" failed: errno=22 (Invalid argument)"));
}

TEST_F(Closing, OfADirectoryTakesOnlyADirectory) {
  EXPECT_EQ(fsync_directory_path(path()), 0);
  EXPECT_THAT(capture_.lines(), IsEmpty());
  EXPECT_EQ(fsync_directory_path(""), EINVAL);
  write(file("a"), "text");
  EXPECT_EQ(fsync_directory_path(file("a")), ENOTDIR);
  EXPECT_EQ(fsync_directory_path(file("gone")), ENOENT);
  EXPECT_THAT(errors(),
              ElementsAre("open dir for fsync \"" + file("a") + "\" failed: errno=20 (Not a directory)",
                          "open dir for fsync \"" + file("gone") + "\" failed: errno=2 (No such file or directory)"));
}

TEST_F(Closing, OfADirectoryNamesTheOneThatCannotBeSynced) {
  EXPECT_EQ(fsync_directory_path("/proc"), EINVAL);
  EXPECT_THAT(errors(), ElementsAre("fsync dir \"/proc\" failed: errno=22 (Invalid argument)"));
}

// --- Locks.

class Locking : public ReportTest {
 protected:
  // Another process's view: can the lock be had now?
  bool can_lock(int operation) const {
    const int fd = ::open(file(".report_lock_lab").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    const bool locked = ::flock(fd, operation | LOCK_NB) == 0;
    ::close(fd);
    return locked;
  }
};

TEST_F(Locking, MakesTheLockFileForOwnerAndGroup) {
  const mode_t old = ::umask(0);
  const DomainFileLock lock("lab", path(), false);
  ::umask(old);
  EXPECT_EQ(lock.error(), 0);
  struct stat status {};
  ASSERT_EQ(::stat(file(".report_lock_lab").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(Locking, ExclusiveKeepsEverybodyOutUntilItsEnd) {
  {
    const DomainFileLock lock("lab", path(), true);
    EXPECT_FALSE(can_lock(LOCK_SH));
  }
  EXPECT_TRUE(can_lock(LOCK_EX));
}

TEST_F(Locking, SharedKeepsOnlyWritersOut) {
  const DomainFileLock lock("lab", path(), false);
  EXPECT_TRUE(can_lock(LOCK_SH));
  EXPECT_FALSE(can_lock(LOCK_EX));
}

TEST_F(Locking, OfOneDomainLeavesTheOthersAlone) {
  const DomainFileLock lab("lab", path(), true);
  const DomainFileLock hall("hall", path(), true);
  EXPECT_EQ(hall.error(), 0);
}

TEST_F(Locking, RefusesEmptyNames) {
  EXPECT_EQ(DomainFileLock("", path(), true).error(), EINVAL);
  EXPECT_EQ(DomainFileLock("lab", "", true).error(), EINVAL);
  EXPECT_THAT(content(), IsEmpty());
}

TEST_F(Locking, NamesTheFileThatCannotBeOpened) {
  EXPECT_EQ(DomainFileLock("lab", file("gone"), true).error(), ENOENT);
  EXPECT_THAT(errors(), ElementsAre("Cannot open report lock \"" + file("gone") +
                                    "/.report_lock_lab\": errno=2 (No such file or directory)"));
}

TEST_F(Locking, NamesTheLockThatCannotBeHad) {
  const std::string name = file(".report_lock_lab");
  const rrm::testing::FileWatch watch(path(), "lock .report_lock_lab", rrm::testing::FileFault::eio);
  EXPECT_EQ(DomainFileLock("lab", path(), false).error(), EIO);
  EXPECT_EQ(DomainFileLock("lab", path(), true).error(), EIO);
  EXPECT_THAT(errors(), ElementsAre("flock(" + name + ") LOCK_SH failed: errno=5 (Input/output error)",
                                    "flock(" + name + ") LOCK_EX failed: errno=5 (Input/output error)"));
  const auto operations = watch.operations();
  EXPECT_EQ(std::count(operations.begin(), operations.end(), "close .report_lock_lab"), 2);
}

class MemoryLock : public ReportTest {
 protected:
  static bool others_can_write() {
    return std::async(std::launch::async,
                      [] {
                        const auto mutex = domain_mutex("lab");
                        const bool locked = mutex->try_lock();
                        if (locked) mutex->unlock();
                        return locked;
                      })
        .get();
  }
  static bool others_can_read() {
    return std::async(std::launch::async,
                      [] {
                        const auto mutex = domain_mutex("lab");
                        const bool locked = mutex->try_lock_shared();
                        if (locked) mutex->unlock_shared();
                        return locked;
                      })
        .get();
  }
};

TEST_F(MemoryLock, IsOnePerDomainAndStays) {
  const auto lab = domain_mutex("lab");
  EXPECT_EQ(domain_mutex("lab"), lab);
  EXPECT_NE(domain_mutex("hall"), lab);
}

TEST_F(MemoryLock, OfAReaderKeepsOnlyWritersOut) {
  const DomainReadAccess access("lab", path());
  EXPECT_EQ(access.error(), 0);
  EXPECT_TRUE(others_can_read());
  EXPECT_FALSE(others_can_write());
}

TEST_F(MemoryLock, OfAWriterKeepsEverybodyOutUntilItsEnd) {
  {
    const DomainWriteAccess access("lab", path());
    EXPECT_EQ(access.error(), 0);
    EXPECT_FALSE(others_can_read());
  }
  EXPECT_TRUE(others_can_write());
}

TEST_F(MemoryLock, IsNotTakenWithoutTheFile) {
  const DomainWriteAccess access("lab", file("gone"));
  EXPECT_EQ(access.error(), ENOENT);
  EXPECT_TRUE(others_can_write());
}

}  // namespace
}  // namespace reports
