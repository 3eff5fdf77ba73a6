// The daily cleanup: when it is due, which lines go, what the rewrite and the recovery say and answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "reports/cleanup.h"
#include "reports/failing_files.h"
#include "reports/recovery.h"
#include "reports/report_support.h"
#include "reports/report_texts.h"

using namespace rrm::testing;
using reports::testing::invalid_argument_of;
using reports::testing::Texts;

namespace {

constexpr std::time_t now = 1'700'000'000;  // 2023-11-14,22:13:20
constexpr std::time_t midnight = 1'699'920'000;
constexpr const char* no_such_file = "basic_ios::clear: iostream error, errno = 2: No such file or directory";

// --- The alarm clock. The day whose cleanup has finished is the process's, so each test has days of its own.

class AlarmClock : public ::testing::Test {
 protected:
  void at(std::time_t time) { clock_.set_wall(time); }

  bool is_due(const std::string& set_time) {
    bool due = true;
    EXPECT_EQ(reports::check_report_alarm_clock_every_min(set_time, due), 0);
    return due;
  }

  ManualClock clock_{1000, midnight};
  Capture capture_;
};

TEST_F(AlarmClock, IsDueFromTheSetMinuteOnToTheEndOfTheDay) {
  at(midnight + 3 * 3600 + 29 * 60 + 59);
  EXPECT_FALSE(is_due("3:30"));
  EXPECT_EQ(capture_.lines(), (std::vector<LogLine>{
                                  {rrm::LOG_TRACE,
                                   "Report cleanup tick: delete_at_utc=03:30 now_utc=2023-11-14 03:29 due=0 "
                                   "already_done_today=0"},
                              }));
  capture_.clear();
  at(midnight + 3 * 3600 + 30 * 60);
  EXPECT_TRUE(is_due("3:30"));
  EXPECT_EQ(capture_.lines(), (std::vector<LogLine>{
                                  {rrm::LOG_TRACE,
                                   "Report cleanup tick: delete_at_utc=03:30 now_utc=2023-11-14 03:30 due=1 "
                                   "already_done_today=0"},
                                  {rrm::LOG_TRACE,
                                   "Report cleanup due: delete_at_utc=03:30 now_utc=2023-11-14 03:30 (run once per "
                                   "UTC day until finished)."},
                              }));
  at(midnight + a_day - 1);
  EXPECT_TRUE(is_due("3:30"));
  at(midnight + a_day);
  EXPECT_FALSE(is_due("3:30"));
  EXPECT_TRUE(capture_.events().empty());
}

TEST_F(AlarmClock, IsDueOnEachTickUntilTheRunIsCompletedAndThenNotBeforeTheNextDay) {
  const std::time_t day = midnight + 10 * a_day;
  at(day + 7200);
  EXPECT_TRUE(is_due("02:00"));
  at(day + 7260);
  EXPECT_TRUE(is_due("02:00"));
  capture_.clear();
  reports::mark_report_alarm_completed();
  EXPECT_EQ(capture_.lines(), (std::vector<LogLine>{{rrm::LOG_EVENT,
                                                     "Report cleanup finished for UTC day 2023-11-24; no further runs "
                                                     "until next UTC day."}}));
  capture_.clear();
  at(day + 7320);
  EXPECT_FALSE(is_due("02:00"));
  at(day + 7380);
  EXPECT_FALSE(is_due("02:00"));
  EXPECT_TRUE(capture_.has_line(
      rrm::LOG_TRACE, "Report cleanup tick: delete_at_utc=02:00 now_utc=2023-11-24 02:03 due=0 already_done_today=1"));
  EXPECT_EQ(capture_.lines().size(), 2U);
  at(day + a_day + 7199);
  EXPECT_FALSE(is_due("02:00"));
  at(day + a_day + 7200);
  EXPECT_TRUE(is_due("02:00"));
}

TEST_F(AlarmClock, StartsTheNextDayAtMidnightInUtc) {
  const std::time_t day = midnight + 20 * a_day;
  at(day + a_day - 1);
  EXPECT_TRUE(is_due("00:00"));
  reports::mark_report_alarm_completed();
  EXPECT_FALSE(is_due("00:00"));
  at(day + a_day);
  EXPECT_TRUE(is_due("00:00"));
}

TEST_F(AlarmClock, KnowsTheYearOfTheDayThatIsDone) {
  const std::time_t new_year = 1'704'067'200;  // 2024-01-01
  at(new_year);
  reports::mark_report_alarm_completed();
  EXPECT_FALSE(is_due("0:00"));
  at(new_year + 366 * a_day);
  EXPECT_TRUE(is_due("0:00"));
  at(new_year);
  EXPECT_FALSE(is_due("0:00"));
}

TEST_F(AlarmClock, TakesATimeOfDay) {
  const struct {
    const char* text;
    const char* shown;
  } cases[] = {
      {"0:0", "00:00"},     {"00:00", "00:00"},  {"23:59", "23:59"},    {"7:5", "07:05"},
      {" 7 : 05", "07:05"}, {"07:05 ", "07:05"}, {"07:05:59", "07:05"}, {"08:09", "08:09"},
  };
  at(midnight + 30 * a_day);
  for (const auto& [text, shown] : cases) {
    SCOPED_TRACE(text);
    capture_.clear();
    is_due(text);
    ASSERT_FALSE(capture_.lines().empty());
    EXPECT_EQ(capture_.lines()[0].text.substr(0, 42),
              "Report cleanup tick: delete_at_utc=" + std::string(shown) + " n");
    EXPECT_TRUE(capture_.events().empty());
  }
}

TEST_F(AlarmClock, RefusesWhatIsNoTimeOfDay) {
  at(midnight + 31 * a_day + 86399);
  for (const char* text : {"", " ", "7", "7:", ":05", "x:05", "7:x", "7-05", "7.05", "0705", "24:00", "23:60", "-1:00",
                           "7:-1", "99999999999:00", "7:99999999999"}) {
    SCOPED_TRACE(text);
    capture_.clear();
    bool due = true;
    EXPECT_EQ(reports::check_report_alarm_clock_every_min(text, due), EINVAL);
    EXPECT_FALSE(due);
    EXPECT_EQ(capture_.lines(),
              (std::vector<LogLine>{
                  {rrm::LOG_ERROR, std::string("Incorrect time in report_delete_at_time_utc: \"") + text + "\"."}}));
    EXPECT_EQ(capture_.events(), (std::vector<Event>{{17, true, text}}));
  }
}

TEST_F(AlarmClock, IsNotDueAtAMomentWithoutADate) {
  const std::time_t beyond = std::numeric_limits<std::time_t>::max();
  at(beyond);
  EXPECT_FALSE(is_due("00:00"));
  EXPECT_EQ(capture_.lines(),
            (std::vector<LogLine>{{rrm::LOG_ERROR,
                                   "Report cleanup: gmtime_r failed for timestamp 9223372036854775807 (errno=75: Value "
                                   "too large for defined data type)"}}));
  capture_.clear();
  reports::mark_report_alarm_completed();
  EXPECT_EQ(capture_.lines(),
            (std::vector<LogLine>{
                {rrm::LOG_EVENT, "Report cleanup finished for current UTC day; no further runs until next UTC day."}}));
  at(midnight + 40 * a_day);
  EXPECT_TRUE(is_due("00:00"));
}

TEST_F(AlarmClock, IsNotDueWithoutAClock) {
  at(midnight + 41 * a_day);
  clock_.fail_wall(true);
  EXPECT_FALSE(is_due("00:00"));
  EXPECT_EQ(capture_.lines(rrm::LOG_ERROR),
            (Texts{"Report cleanup: gmtime_r failed for timestamp -1 (errno=5: Input/output error)"}));
  clock_.fail_wall(false);
  EXPECT_TRUE(is_due("00:00"));
}

// --- Lines.

using CleanupLine = reports::testing::ReportTest;

TEST_F(CleanupLine, GoesWhenItIsOlderThanItsTimeToLiveOrFromTheFuture) {
  const struct {
    const char* label;
    std::time_t age;
    bool goes;
  } cases[] = {
      {"just written", 0, false},
      {"a second old", 1, false},
      {"at the end of its time", 2 * a_day, false},
      {"beyond it", 2 * a_day + 1, true},
      {"from the next second", -1, true},
      {"from the next year", -366 * a_day, true},
  };
  for (const auto& [label, age, goes] : cases) {
    const std::string line = "1.1," + date_text(now - age);
    EXPECT_EQ(reports::is_report_line_expired_or_invalid(line, now, 2 * 86400.0, "file"), goes) << label;
    EXPECT_EQ(reports::is_report_line_expired_or_invalid(line + "," + radio_fields(0), now, 2 * 86400.0, "file"), goes)
        << label;
  }
  EXPECT_TRUE(capture_.lines().empty());
}

TEST_F(CleanupLine, GoesWithoutADateThatCanBeRead) {
  const struct {
    const char* line;
    Texts errors;
  } cases[] = {
      {"", {"'source' string is empty.", "Not found date in report line: \"\"."}},
      {"1.1", {"Not found field 1 in string: \"1.1\".", "Not found date in report line: \"1.1\"."}},
      {"1.1,2023-11-14",
       {"Not found field 2 in string: \"1.1,2023-11-14\".", "Not found time in report line: \"1.1,2023-11-14\"."}},
      {"1.1,,22:13:20",
       {"Requested empty field 1 in string: \"1.1,,22:13:20\".", "Not found date in report line: \"1.1,,22:13:20\"."}},
      {"1.1,2023-13-14,22:13:20",
       {"Parser error in string: \"2023-13-14,22:13:20\".",
        "Incorrect report data/time in file: \"the file\", line: \"1.1,2023-13-14,22:13:20\"."}},
      {"1.1,yesterday,noon,AP",
       {"Parser error in string: \"yesterday,noon\".",
        "Incorrect report data/time in file: \"the file\", line: \"1.1,yesterday,noon,AP\"."}},
  };
  for (const auto& [line, expected] : cases) {
    capture_.clear();
    EXPECT_TRUE(reports::is_report_line_expired_or_invalid(line, now, 1e9, "the file")) << line;
    EXPECT_EQ(errors(), expected);
  }
}

using CleanupCount = reports::testing::ReportTest;

TEST_F(CleanupCount, CountsTheLinesThatGo) {
  write(index_file(), "1.1," + date_text(now - 3 * a_day) + "\n1.1," + date_text(now - a_day) + "\nbroken\n1.1," +
                          date_text(now + 60) + "\n1.1," + date_text(now - 4 * a_day));
  std::uint32_t count = 7;
  EXPECT_EQ(reports::count_expired_reports_in_file(now, 2, index_file(), count), 0);
  EXPECT_EQ(count, 4U);
  EXPECT_EQ(reports::count_expired_reports_in_file(now, 3, index_file(), count), 0);
  EXPECT_EQ(count, 3U);
}

TEST_F(CleanupCount, FailsWithoutTheFile) {
  std::uint32_t count = 7;
  EXPECT_EQ(reports::count_expired_reports_in_file(now, 2, index_file(), count), ENOENT);
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(errors(), Texts{no_such_file});
}

// --- Copying what stays.

class CleanupCopy : public reports::testing::ReportTest {
 protected:
  int copy(std::uint32_t days = 2) {
    return reports::copy_new_reports_from_one_file(now, days, report_file(), removed_);
  }
  std::string tmp() const { return report_file() + ".tmp"; }

  std::uint32_t removed_ = 7;
  const std::string old_line_ = "1.1," + date_text(now - 3 * a_day) + ",a\n";
  const std::string new_line_ = "1.1," + date_text(now - a_day) + ",b\n";
};

TEST_F(CleanupCopy, WritesTheLinesThatStayAndLeavesTheFileAlone) {
  const std::string text = new_line_ + old_line_ + old_line_ + "broken\n" + new_line_ + new_line_;
  write(report_file(), text);
  write(tmp(), std::string(1000, 'x'));
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(removed_, 3U);
  EXPECT_EQ(read(tmp()), new_line_ + new_line_ + new_line_);
  EXPECT_EQ(read(report_file()), text);
  EXPECT_EQ(capture_.lines(rrm::LOG_TRACE), (Texts{"Report cleanup rewrite file: \"" + report_file() + "\""}));
}

TEST_F(CleanupCopy, JudgesNeighboursByTheirWholeDate) {
  // Dates that begin alike, and versions that differ.
  const std::string stays = "1.0," + date_text(now) + ",c\n";
  write(report_file(), "1.1," + date_text(now - 2 * a_day) + "\n1.1," + date_text(now - 2 * a_day - 1) + "\n" + stays +
                           "1.1," + date_text(now) + "\n" + "1.1," + date_text(now + 1) + "\n" + old_line_ +
                           "broken\n" + old_line_ + "broken\n");
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(removed_, 6U);
  EXPECT_EQ(read(tmp()), "1.1," + date_text(now - 2 * a_day) + "\n" + stays + "1.1," + date_text(now) + "\n");
  EXPECT_EQ(errors(),
            (Texts{"Not found field 1 in string: \"broken\".", "Not found date in report line: \"broken\".",
                   "Not found field 1 in string: \"broken\".", "Not found date in report line: \"broken\"."}));
}

TEST_F(CleanupCopy, TakesNoDateForAnotherThatBeginsWithIt) {
  // 2023-11-12,22:13:02, then :20.
  write(report_file(), "1.1,2023-11-12,22:13:2\n1.1,2023-11-12,22:13:20\n");
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(read(tmp()), "1.1,2023-11-12,22:13:20\n");
}

TEST_F(CleanupCopy, EndsTheLastLine) {
  write(report_file(), old_line_ + new_line_.substr(0, new_line_.size() - 1));
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(read(tmp()), new_line_);
}

TEST_F(CleanupCopy, MakesAnEmptyFileWhenNothingStays) {
  write(report_file(), old_line_ + old_line_);
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(removed_, 2U);
  ASSERT_TRUE(std::filesystem::exists(tmp()));
  EXPECT_EQ(read(tmp()), "");
}

TEST_F(CleanupCopy, MakesNoneOfAFileWithoutLines) {
  write(report_file(), "");
  EXPECT_EQ(copy(), 0);
  EXPECT_EQ(removed_, 0U);
  EXPECT_FALSE(std::filesystem::exists(tmp()));
}

TEST_F(CleanupCopy, FailsWhereItCannotReadOrWrite) {
  const std::string failed = "Copy new reports from file: \"" + report_file() + "\" exit with error code: ";
  EXPECT_EQ(copy(), ENOENT);
  EXPECT_EQ(errors(), (Texts{no_such_file, failed + "2."}));

  capture_.clear();
  std::filesystem::create_directory(tmp());
  write(report_file(), new_line_);
  EXPECT_EQ(copy(), EISDIR);
  EXPECT_EQ(errors(), (Texts{"basic_ios::clear: iostream error, errno = 21: Is a directory", failed + "21."}));

  capture_.clear();
  write(report_file(), old_line_);
  EXPECT_EQ(copy(), EISDIR);
  EXPECT_EQ(errors(), (Texts{"Cannot create empty tmp \"" + tmp() + "\": Is a directory", failed + "21."}));
}

TEST_F(CleanupCopy, RefusesToWorkWithoutAFileOrALife) {
  EXPECT_EQ(invalid_argument_of([&] { reports::copy_new_reports_from_one_file(now, 2, "", removed_); }),
            "copy_new_reports_from_one_file: Invalid argument 'filename'.");
  EXPECT_EQ(invalid_argument_of([&] { copy(0); }),
            "copy_new_reports_from_one_file: Invalid argument 'days_to_live_of_report'.");
}

// --- A domain's files.

const char* const report_name = "report_lab.txt";
const char* const config_name = "report_cfg_lab.txt";
const char* const index_name = "report_idx_lab.txt";
const char* const start_name = "report_lab.txt.start_status";
const char* const done_name = "report_lab.txt.done_status";

class CleanupDomain : public reports::testing::ReportTest {
 protected:
  int clean(std::uint32_t days = 2) { return reports::delete_old_reports_in_domain("lab", days, path()); }
  int recover() { return reports::reports_recovery_procedure_in_domain("lab", path()); }

  // The same while every operation of this text fails with EIO.
  int clean_without(const std::string& operation) {
    const FileWatch watch(path(), operation, FileFault::eio);
    return clean();
  }

  void lay(const FileTexts& texts) const { lay_out(dir_.path(), texts); }
  FileTexts files() const { return files_in(dir_.path()); }
  std::string quoted(const std::string& name) const { return "\"" + file(name) + "\""; }

  // All but the trace.
  std::vector<LogLine> said() const {
    std::vector<LogLine> lines;
    for (const LogLine& line : capture_.lines())
      if (line.level != rrm::LOG_TRACE) lines.push_back(line);
    return lines;
  }
  LogLine not_deleted(const std::string& name) const {
    return {rrm::LOG_ERROR, "Error while delete " + quoted(name) + ", errno = 5: Input/output error"};
  }
  LogLine not_renamed(const std::string& name, const std::string& purpose) const {
    return {rrm::LOG_ERROR,
            "Error while rename " + quoted(name) + " for " + purpose + ", errno = 5: Input/output error"};
  }

  const ManualClock clock_{1000, now};
  const FileTexts before_ = report_files("lab", {now - 4 * a_day, now - 3 * a_day, now - a_day}, 3);
  const FileTexts after_ = report_files("lab", {now - a_day}, 3);

  const LogLine removing_{rrm::LOG_EVENT,
                          "Report cleanup domain \"lab\": removing 2 expired record(s) (report_days_to_live=2)."};
  const LogLine unclean_{rrm::LOG_WARNING,
                         "Detected unclean reports repository for domain: \"lab\". Started rollback/recovery "
                         "procedure."};
  const LogLine purge_failed_{rrm::LOG_WARNING, "Purge failed for domain \"lab\" (err=5); running recovery."};
  const LogLine rolled_back_{rrm::LOG_EVENT, "Rollback reports repository for domain: \"lab\" succesfull."};
  const LogLine cleaned_up_{rrm::LOG_EVENT, "Clean reports repository for domain: \"lab\" succesfull."};
  const LogLine recovery_failed_{rrm::LOG_ERROR,
                                 "Reports files recovery procedure for domain: \"lab\" exit with error code: 5."};
};

TEST_F(CleanupDomain, RewritesTheFilesWithoutTheirExpiredLines) {
  lay(before_);
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_);
  EXPECT_EQ(capture_.lines(), (std::vector<LogLine>{
                                  removing_,
                                  {rrm::LOG_TRACE, "Report cleanup rewrite file: " + quoted(index_name)},
                                  {rrm::LOG_TRACE, "Report cleanup rewrite file: " + quoted(config_name)},
                                  {rrm::LOG_TRACE, "Report cleanup rewrite file: " + quoted(report_name)},
                              }));
  EXPECT_TRUE(events().empty());
}

TEST_F(CleanupDomain, LeavesEmptyFilesWhenAllHasExpired) {
  lay(report_files("lab", {now - 4 * a_day}, 3));
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), report_files("lab", {}, 3));
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), report_files("lab", {}, 3));
}

TEST_F(CleanupDomain, HoldsTheLockFromTheFirstOperationToTheLast) {
  lay(before_);
  const FileWatch watch(path());
  EXPECT_EQ(clean(), 0);
  const auto operations = watch.operations();
  ASSERT_GT(operations.size(), 3U);
  EXPECT_EQ(operations[0], "open .report_lock_lab");
  EXPECT_EQ(operations[1], "lock .report_lock_lab");
  EXPECT_EQ(operations.back(), "close .report_lock_lab");
}

TEST_F(CleanupDomain, DoesNotWaitForALockFileThatCannotBeLookedFor) {
  lay(before_);
  EXPECT_EQ(clean_without("look for .report_lock_lab"), 0);
  EXPECT_EQ(files(), after_);
}

TEST_F(CleanupDomain, DoesNothingWhenNothingHasExpired) {
  lay(before_);
  const FileWatch watch(path());
  EXPECT_EQ(clean(4), 0);
  EXPECT_EQ(files(), before_);
  for (const std::string& operation : watch.operations()) EXPECT_FALSE(operation.starts_with("create")) << operation;
  EXPECT_EQ(capture_.lines(), (std::vector<LogLine>{{rrm::LOG_EVENT,
                                                     "Report cleanup domain \"lab\": nothing to delete "
                                                     "(report_days_to_live=4)."}}));
}

TEST_F(CleanupDomain, IsDecidedByTheIndexAlone) {
  FileTexts texts = before_;
  texts[index_name] = after_.at(index_name);
  lay(texts);
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), texts);

  texts = after_;
  texts[index_name] = before_.at(index_name);
  lay(texts);
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_);
}

TEST_F(CleanupDomain, IsStartedByABrokenOrAFutureDateInTheIndex) {
  for (const std::string& line : {std::string("1.1,noon"), "1.1," + date_text(now + 1)}) {
    FileTexts texts = after_;
    texts[index_name] += line + "\n";
    lay(texts);
    capture_.clear();
    EXPECT_EQ(clean(), 0);
    EXPECT_EQ(files(), after_) << line;
    EXPECT_TRUE(capture_.has_line(
        rrm::LOG_EVENT, "Report cleanup domain \"lab\": removing 1 expired record(s) (report_days_to_live=2)."));
  }
}

TEST_F(CleanupDomain, RefusesToWorkWithoutADomainAPathOrALife) {
  lay(before_);
  const auto untouched = content();
  EXPECT_EQ(reports::delete_old_reports_in_domain("", 2, path()), EINVAL);
  EXPECT_EQ(reports::delete_old_reports_in_domain("lab", 2, ""), EINVAL);
  EXPECT_EQ(reports::delete_old_reports_in_domain("lab", 0, path()), EINVAL);
  EXPECT_EQ(said(), (std::vector<LogLine>{
                        {rrm::LOG_ERROR, "delete_old_reports_in_domain: empty domain_name"},
                        {rrm::LOG_ERROR, "delete_old_reports_in_domain: empty files_path"},
                        {rrm::LOG_ERROR, "delete_old_reports_in_domain: days_to_live_of_report is 0"},
                    }));
  EXPECT_EQ(content(), untouched);
}

TEST_F(CleanupDomain, RefusesADomainWhoseFilesWouldLieElsewhere) {
  std::filesystem::create_directory(file("report_x"));
  const auto untouched = content();
  for (const std::string& domain : {std::string("x/../../lab"), std::string("a\0b", 3)}) {
    EXPECT_EQ(reports::delete_old_reports_in_domain(domain, 2, path()), EINVAL);
    EXPECT_EQ(reports::delete_report_files_for_domain(domain, path()), EINVAL);
    EXPECT_EQ(reports::reports_recovery_procedure_in_domain(domain, path()), EINVAL);
  }
  EXPECT_EQ(content(), untouched);
}

TEST_F(CleanupDomain, FailsWithoutTheDirectory) {
  const std::string lock = file("missing") + "/.report_lock_lab";
  EXPECT_EQ(reports::delete_old_reports_in_domain("lab", 2, file("missing")), ENOENT);
  EXPECT_EQ(errors(), (Texts{"Cannot open report lock \"" + lock + "\": errno=2 (No such file or directory)"}));
}

TEST_F(CleanupDomain, DeletesNothingWithoutAClock) {
  ManualClock broken(1000, now);
  broken.fail_wall(true);
  lay(before_);
  EXPECT_EQ(clean(), EIO);
  EXPECT_EQ(files(), before_);
  EXPECT_EQ(errors(), (Texts{"delete_old_reports_in_domain: the system has no time"}));
}

TEST_F(CleanupDomain, RemovesFilesThatHaveLostTheOthers) {
  const std::vector<std::string> names{report_name, index_name, config_name};
  for (unsigned present = 0; present < 7; ++present) {
    FileTexts texts;
    std::vector<LogLine> expected;
    for (unsigned i = 0; i < names.size(); ++i) {
      if ((present >> i & 1U) == 0) continue;
      texts[names[i]] = before_.at(names[i]);
      expected.push_back({rrm::LOG_WARNING, "Delete inconsistent file " + quoted(names[i]) + " successfully."});
    }
    lay(texts);
    capture_.clear();
    EXPECT_EQ(clean(), 0);
    EXPECT_EQ(files(), FileTexts{}) << present;
    EXPECT_EQ(said(), expected) << present;
  }
}

TEST_F(CleanupDomain, StopsAtTheFirstOfThemThatCannotBeRemoved) {
  const FileTexts texts{{report_name, "a\n"}, {index_name, "b\n"}};
  lay(texts);
  EXPECT_EQ(clean_without(std::string("remove ") + report_name), EIO);
  EXPECT_EQ(files(), texts);
  EXPECT_EQ(said(), (std::vector<LogLine>{not_deleted(report_name)}));
}

TEST_F(CleanupDomain, TakesNoFileForMissingThatTheSystemCannotTellOf) {
  lay(before_);
  EXPECT_EQ(clean_without(std::string("look for ") + config_name), 0);
  EXPECT_EQ(files(), after_);
  EXPECT_EQ(errors(), (Texts{"Error while look for " + quoted(config_name) + ", errno = 5: Input/output error"}));
}

TEST_F(CleanupDomain, SaysWhichStepOfTheRewriteHasFailed) {
  const LogLine stream_failed{rrm::LOG_ERROR, "basic_ios::clear: iostream error, errno = 5: Input/output error"};
  const auto not_copied = [&](const char* name) {
    return LogLine{rrm::LOG_ERROR, "Copy new reports from file: " + quoted(name) + " exit with error code: 5."};
  };
  const auto not_synced = [&](const std::string& name) {
    return LogLine{rrm::LOG_ERROR, "fsync " + quoted(name) + " failed: errno=5 (Input/output error)"};
  };
  const std::string index_tmp = std::string(index_name) + ".tmp";
  const std::string config_tmp = std::string(config_name) + ".tmp";
  const std::string report_tmp = std::string(report_name) + ".tmp";
  const std::string index_old = std::string(index_name) + ".old";
  const struct {
    std::string operation;
    std::vector<LogLine> said;
    const FileTexts& left;
  } cases[] = {
      {std::string("open ") + index_name,
       {stream_failed,
        {rrm::LOG_ERROR, "Count expired reports in file: " + quoted(index_name) + " exit with error code: 5."}},
       before_},
      {std::string("create ") + start_name,
       {removing_, {rrm::LOG_ERROR, "Error while create file " + quoted(start_name) + "."}},
       before_},
      {std::string("sync ") + start_name, {removing_, not_synced(start_name)}, before_},
      {"sync .",
       {removing_, {rrm::LOG_ERROR, "fsync dir \"" + path() + "\" failed: errno=5 (Input/output error)"}},
       before_},
      {"create " + index_tmp, {removing_, stream_failed, not_copied(index_name), purge_failed_, rolled_back_}, before_},
      {"write " + config_tmp,
       {removing_,
        {rrm::LOG_ERROR, "close/flush " + quoted(config_tmp) + ": basic_ios::clear: iostream error errno=5"},
        not_copied(config_name),
        purge_failed_,
        rolled_back_},
       before_},
      {"sync " + report_tmp,
       {removing_, not_synced(report_tmp), not_copied(report_name), purge_failed_, rolled_back_},
       before_},
      {std::string("open ") + config_name,
       {removing_, stream_failed, not_copied(config_name), purge_failed_, rolled_back_},
       before_},
      {std::string("rename ") + index_name + " to " + index_old,
       {removing_, not_renamed(index_name, "backup"), purge_failed_, rolled_back_},
       before_},
      {std::string("rename ") + report_name + " to " + report_name + ".old",
       {removing_, not_renamed(report_name, "backup"), purge_failed_, rolled_back_},
       before_},
      {"rename " + config_tmp + " to " + config_name,
       {removing_, not_renamed(config_tmp, "commit"), purge_failed_, rolled_back_},
       before_},
      {std::string("rename ") + start_name + " to " + done_name,
       {removing_, not_renamed(start_name, "change status"), purge_failed_, rolled_back_},
       before_},
  };
  for (const auto& [operation, expected, left] : cases) {
    SCOPED_TRACE(operation);
    lay(before_);
    capture_.clear();
    EXPECT_EQ(clean_without(operation), EIO);
    EXPECT_EQ(said(), expected);
    EXPECT_EQ(files(), left);
  }
}

TEST_F(CleanupDomain, SaysWhenItsRecoveryFailsToo) {
  const std::string index_old = std::string(index_name) + ".old";
  lay(before_);
  EXPECT_EQ(clean_without("remove " + index_old), EIO);
  EXPECT_EQ(said(), (std::vector<LogLine>{removing_,
                                          not_deleted(index_old),
                                          purge_failed_,
                                          not_deleted(index_old),
                                          recovery_failed_,
                                          {rrm::LOG_ERROR,
                                           "Recovery after failed purge for domain \"lab\" exit with 5 (original "
                                           "err=5)."}}));
  capture_.clear();
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_);

  lay(before_);
  capture_.clear();
  EXPECT_EQ(clean_without(std::string("remove ") + done_name), EIO);
  EXPECT_EQ(said(),
            (std::vector<LogLine>{removing_,
                                  not_deleted(done_name),
                                  not_deleted(done_name),
                                  recovery_failed_,
                                  {rrm::LOG_ERROR, "Post-commit cleanup recovery failed for domain \"lab\": 5"}}));
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_);
}

TEST_F(CleanupDomain, AnswersWithTheOriginalErrorWhenItsRecoverySucceeds) {
  lay(before_);
  std::size_t number = 0;
  {
    const FileWatch watch(path());
    EXPECT_EQ(clean(), 0);
    const auto all = watch.operations();
    number =
        static_cast<std::size_t>(std::find(all.begin(), all.end(), std::string("remove ") + done_name) - all.begin()) +
        1;
  }
  for (const auto& [at, expected] :
       {std::pair{number - 1,
                  std::vector<LogLine>{removing_,
                                       {rrm::LOG_ERROR, "Error while delete " + quoted("report_lab.txt.old") +
                                                            ", errno = 28: No space left on "
                                                            "device"},
                                       {rrm::LOG_WARNING,
                                        "Purge failed for domain \"lab\" (err=28); running "
                                        "recovery."},
                                       cleaned_up_}},
        std::pair{number, std::vector<LogLine>{removing_,
                                               {rrm::LOG_ERROR, "Error while delete " + quoted(done_name) +
                                                                    ", errno = 28: No space left on "
                                                                    "device"},
                                               cleaned_up_}}}) {
    lay(before_);
    capture_.clear();
    const FileWatch watch(path(), at, FileFault::enospc);
    EXPECT_EQ(clean(), ENOSPC);
    EXPECT_EQ(said(), expected);
    EXPECT_EQ(files(), after_);
  }
}

TEST_F(CleanupDomain, RollsBackOverAFileWithoutLines) {
  FileTexts texts = before_;
  texts[config_name] = "";
  lay(texts);
  EXPECT_EQ(clean(), ENOENT);
  EXPECT_EQ(files(), texts);
  EXPECT_EQ(said(), (std::vector<LogLine>{
                        removing_,
                        {rrm::LOG_ERROR, "Error while rename " + quoted("report_cfg_lab.txt.tmp") +
                                             " for commit, errno = 2: No such file or directory"},
                        {rrm::LOG_WARNING, "Purge failed for domain \"lab\" (err=2); running recovery."},
                        rolled_back_,
                    }));
}

// --- Recovery.

using CleanupRecovery = CleanupDomain;

FileTexts named(const FileTexts& files, const std::string& ending) {
  FileTexts renamed;
  for (const auto& [name, text] : files) renamed[name + ending] = text;
  return renamed;
}

FileTexts operator+(FileTexts files, const FileTexts& more) {
  files.insert(more.begin(), more.end());
  return files;
}

TEST_F(CleanupRecovery, HasNothingToDoWithoutAMarker) {
  const FileTexts texts = before_ + named(after_, ".tmp") + named(after_, ".old");
  lay(texts);
  EXPECT_EQ(recover(), 0);
  EXPECT_EQ(files(), texts);
  EXPECT_EQ(capture_.lines(),
            (std::vector<LogLine>{{rrm::LOG_TRACE, "Already clean reports repository of domain: \"lab\"."}}));
}

TEST_F(CleanupRecovery, PutsAllThreeOldFilesBack) {
  lay(named(before_, ".old") + named(after_, ".tmp") + FileTexts{{start_name, "1\n"}});
  EXPECT_EQ(recover(), 0);
  EXPECT_EQ(files(), before_);
  EXPECT_EQ(capture_.lines(), std::vector<LogLine>{rolled_back_});
}

TEST_F(CleanupRecovery, PutsAnOldFileBackOverANewOneAndLeavesALiveOneWithoutAnOldOne) {
  FileTexts texts = before_ + FileTexts{{start_name, "1\n"}};
  texts[index_name] = after_.at(index_name);
  texts[std::string(index_name) + ".old"] = before_.at(index_name);
  lay(texts);
  EXPECT_EQ(recover(), 0);
  EXPECT_EQ(files(), before_);
}

TEST_F(CleanupRecovery, RemovesTheOldFilesAfterTheCommit) {
  lay(after_ + named(before_, ".old") + FileTexts{{done_name, "1\n"}});
  EXPECT_EQ(recover(), 0);
  EXPECT_EQ(files(), after_);
  EXPECT_EQ(capture_.lines(), std::vector<LogLine>{cleaned_up_});
}

TEST_F(CleanupRecovery, LeavesTheOtherMarkerOfTheTwoToTheNextRun) {
  lay(after_ + named(before_, ".old") + FileTexts{{start_name, "1\n"}, {done_name, "1\n"}});
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_ + FileTexts({{start_name, "1\n"}}));
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_);
  const LogLine nothing{rrm::LOG_EVENT, "Report cleanup domain \"lab\": nothing to delete (report_days_to_live=2)."};
  EXPECT_EQ(said(), (std::vector<LogLine>{unclean_, cleaned_up_, nothing, unclean_, rolled_back_, nothing}));
}

TEST_F(CleanupRecovery, LeavesNoCopyBehindTheOtherMarkerToARewrite) {
  const FileTexts markers{{start_name, "1\n"}, {done_name, "1\n"}};
  lay(before_ + named(after_, ".tmp") + markers);
  EXPECT_EQ(clean_without(std::string("sync ") + start_name), EIO);
  EXPECT_EQ(files(), before_);

  FileTexts texts = before_;
  texts[config_name] = "";
  lay(texts + named(after_, ".tmp") + markers);
  EXPECT_EQ(clean(), ENOENT);
  EXPECT_EQ(files(), texts);

  lay(texts + named(after_, ".tmp"));
  EXPECT_EQ(clean(), ENOENT);
  EXPECT_EQ(files(), texts);

  lay(before_ + FileTexts{{"report_cfg_lab.txt.tmp", ""}});
  EXPECT_EQ(clean_without("remove report_cfg_lab.txt.tmp"), EIO);
  EXPECT_EQ(files(), (before_ + FileTexts{{"report_cfg_lab.txt.tmp", ""}}));
}

TEST_F(CleanupRecovery, ComesBeforeARewriteInTheSameRun) {
  lay(named(before_, ".old") + FileTexts{{start_name, ""}});
  EXPECT_EQ(clean(), 0);
  EXPECT_EQ(files(), after_);
  EXPECT_EQ(said(), (std::vector<LogLine>{unclean_, rolled_back_, removing_}));
}

TEST_F(CleanupRecovery, IsNotFollowedByTheRemovalOfIncompleteFiles) {
  FileTexts texts = before_;
  texts.erase(index_name);
  lay(texts + FileTexts{{start_name, "1\n"}});
  EXPECT_EQ(clean(), ENOENT);
  EXPECT_EQ(files(), texts);
  EXPECT_EQ(said(), (std::vector<LogLine>{unclean_,
                                          rolled_back_,
                                          {rrm::LOG_ERROR, no_such_file},
                                          {rrm::LOG_ERROR, "Count expired reports in file: " + quoted(index_name) +
                                                               " exit with error code: 2."}}));
}

TEST_F(CleanupRecovery, StopsAtTheFirstFailureAndEndsTheRun) {
  const FileTexts rolling = named(before_, ".old") + named(after_, ".tmp") + FileTexts{{start_name, "1\n"}};
  const FileTexts cleaning = after_ + named(before_, ".old") + FileTexts{{done_name, "1\n"}};
  const LogLine end{rrm::LOG_ERROR, "Rollback/recovery procedure fail for domain: \"lab\" exit with error code: 5."};
  const struct {
    const FileTexts& state;
    std::string operation;
    LogLine said;
    std::size_t gone;  // files fewer than before
  } cases[] = {
      {rolling, "remove report_idx_lab.txt.tmp", not_deleted("report_idx_lab.txt.tmp"), 0},
      {rolling, "remove report_lab.txt.tmp", not_deleted("report_lab.txt.tmp"), 2},
      {rolling, "rename report_cfg_lab.txt.old to report_cfg_lab.txt", not_renamed("report_cfg_lab.txt.old", "commit"),
       3},
      {rolling, "remove report_lab.txt.start_status", not_deleted(start_name), 3},
      {cleaning, "remove report_cfg_lab.txt.old", not_deleted("report_cfg_lab.txt.old"), 1},
      {cleaning, "remove report_lab.txt.done_status", not_deleted(done_name), 3},
  };
  for (const auto& [state, operation, line, gone] : cases) {
    SCOPED_TRACE(operation);
    lay(state);
    capture_.clear();
    EXPECT_EQ(clean_without(operation), EIO);
    EXPECT_EQ(said(), (std::vector<LogLine>{unclean_, line, recovery_failed_, end}));
    EXPECT_EQ(files().size(), state.size() - gone);
  }
}

TEST_F(CleanupRecovery, GuessesNothingWhenItCannotTellWhetherTheCommitWasMade) {
  for (const FileTexts& state : {named(before_, ".old") + after_ + FileTexts{{start_name, "1\n"}},
                                 named(before_, ".old") + after_ + FileTexts{{done_name, "1\n"}}, before_}) {
    lay(state);
    EXPECT_EQ(clean_without(std::string("look for ") + done_name), EIO);
    EXPECT_EQ(files(), state);
  }
}

TEST_F(CleanupRecovery, RefusesToWorkWithoutADomainOrAPath) {
  EXPECT_EQ(invalid_argument_of([&] { reports::reports_recovery_procedure_in_domain("", path()); }),
            "reports_recovery_procedure_in_domain: Invalid argument 'domain_name'.");
  EXPECT_EQ(invalid_argument_of([&] { reports::reports_recovery_procedure_in_domain("lab", ""); }),
            "reports_recovery_procedure_in_domain: Invalid argument 'files_path'.");
}

// --- A domain that is gone.

class CleanupRemoval : public CleanupDomain {
 protected:
  int remove() { return reports::delete_report_files_for_domain("lab", path()); }
  int remove_without(const std::string& operation) {
    const FileWatch watch(path(), operation, FileFault::eio);
    const int result = remove();
    syncs_ = 0;
    for (const std::string& done : watch.operations()) syncs_ += done == "sync ." ? 1 : 0;
    return result;
  }

  const FileTexts all_ =
      before_ + named(after_, ".tmp") + named(before_, ".old") + FileTexts{{start_name, "1\n"}, {done_name, "1\n"}};
  const LogLine deleting_{rrm::LOG_EVENT, "Delete report files for domain: lab"};
  int syncs_ = 0;
};

TEST_F(CleanupRemoval, TakesEveryFileOfTheDomainAndTheLockLast) {
  const FileTexts others =
      report_files("lab2", {now}, 1) + FileTexts{{"report_lab.txt.bak", "x"}, {"report_la.txt", ""}};
  lay(all_ + others);
  std::vector<std::string> changes;
  {
    const FileWatch watch(path());
    EXPECT_EQ(remove(), 0);
    for (const std::string& operation : watch.operations())
      if (operation.starts_with("remove") || operation.starts_with("sync")) changes.push_back(operation);
  }
  EXPECT_EQ(changes, (std::vector<std::string>{
                         "remove report_cfg_lab.txt",
                         "remove report_lab.txt",
                         "remove report_idx_lab.txt",
                         "remove report_cfg_lab.txt.tmp",
                         "remove report_lab.txt.tmp",
                         "remove report_idx_lab.txt.tmp",
                         "remove report_cfg_lab.txt.old",
                         "remove report_lab.txt.old",
                         "remove report_idx_lab.txt.old",
                         "remove report_lab.txt.start_status",
                         "remove report_lab.txt.done_status",
                         "sync .",
                         "remove .report_lock_lab",
                         "sync .",
                     }));
  EXPECT_EQ(files(), others);
  EXPECT_FALSE(std::filesystem::exists(file(".report_lock_lab")));
  EXPECT_EQ(capture_.lines(), std::vector<LogLine>{deleting_});
}

TEST_F(CleanupRemoval, LeavesNothingOfADomainWithoutFilesEither) {
  EXPECT_EQ(remove(), 0);
  EXPECT_EQ(content().size(), 0U);
  EXPECT_EQ(capture_.lines(), std::vector<LogLine>{deleting_});
}

TEST_F(CleanupRemoval, GoesOnAfterAFailureAndAnswersWithIt) {
  lay(all_);
  EXPECT_EQ(remove_without(std::string("remove ") + report_name), EIO);
  EXPECT_EQ(files(), (FileTexts{{report_name, before_.at(report_name)}}));
  EXPECT_FALSE(std::filesystem::exists(file(".report_lock_lab")));
  EXPECT_EQ(said(), (std::vector<LogLine>{deleting_, not_deleted(report_name)}));
  EXPECT_EQ(syncs_, 1);
}

TEST_F(CleanupRemoval, IsNotFailedByTheLockThatStays) {
  lay(all_);
  EXPECT_EQ(remove_without("remove .report_lock_lab"), 0);
  EXPECT_EQ(files(), FileTexts{});
  EXPECT_TRUE(std::filesystem::exists(file(".report_lock_lab")));
  EXPECT_EQ(syncs_, 1);
}

TEST_F(CleanupRemoval, RefusesToWorkWithoutADomainOrAPath) {
  EXPECT_EQ(reports::delete_report_files_for_domain("", path()), EINVAL);
  EXPECT_EQ(reports::delete_report_files_for_domain("lab", ""), EINVAL);
  EXPECT_EQ(said(), (std::vector<LogLine>{
                        {rrm::LOG_ERROR, "delete_report_files_for_domain: empty domain_name"},
                        {rrm::LOG_ERROR, "delete_report_files_for_domain: empty files_path"},
                    }));
}

}  // namespace
