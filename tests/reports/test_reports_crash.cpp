// What a rewrite of the report files leaves when any of its operations fails, or is the last that its process does.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <map>
#include <set>

#include "Config.h"
#include "json/JsonWriter.h"
#include "report_optimize_tpc_dca.h"
#include "reports/failing_files.h"
#include "reports/report_texts.h"
#include "support/capture.h"
#include "support/temp_dir.h"

using namespace rrm::testing;

namespace {

constexpr std::time_t now = 1'700'000'000;
constexpr int radios = 30;  // so that a rewrite of the data takes several reads and writes
constexpr std::uint32_t days = 2;
constexpr std::uint32_t long_life = 3650;  // nothing has expired

const std::vector<std::time_t> expired{now - 9 * a_day, now - 8 * a_day, now - 7 * a_day};
const std::vector<std::time_t> kept{now - 40000, now - 30000, now - 20000};
constexpr std::time_t added = now - 10000;

const char* const start_status = "report_lab.txt.start_status";
const char* const done_status = "report_lab.txt.done_status";

std::vector<std::time_t> operator+(std::vector<std::time_t> times, const std::vector<std::time_t>& more) {
  times.insert(times.end(), more.begin(), more.end());
  return times;
}

FileTexts lab(const std::vector<std::time_t>& times) {
  return report_files("lab", times, radios);
}

const FileTexts before = lab(expired + kept);
const FileTexts after = lab(kept);

struct Answer {
  int error = 0;
  std::string text;
  bool operator==(const Answer&) const = default;
};

void say_nothing(const char*, int, const char*, int, const char*, va_list) {}

class Crash : public ::testing::Test {
 protected:
  // A query or a run that waits for ever ends the test.
  Crash() {
    rrm::set_log_hook(say_nothing);
    alarm(500);
  }
  ~Crash() override { alarm(0); }

  std::string path() const { return dir_.path().string(); }
  FileTexts files() const { return files_in(dir_.path()); }
  void lay(const FileTexts& files) const { lay_out(dir_.path(), files); }

  int clean(std::uint32_t days_to_live) const {
    return reports::delete_old_reports_in_domain("lab", days_to_live, path());
  }
  int save() const {
    const std::string date = date_text(added);
    return reports::save_radio_report_to_files(a_report(date, radios), "lab", date, path(), config_);
  }

  // The operations of a run that nothing disturbs.
  std::vector<std::string> operations_of(std::uint32_t days_to_live) const {
    const FileWatch watch(path());
    EXPECT_EQ(clean(days_to_live), 0);
    return watch.operations();
  }

  // A run with this fault, in a process of its own if it is to die. Its result, or 128 and the signal.
  int disturbed(std::uint32_t days_to_live, std::size_t number, FileFault fault) const {
    if (fault == FileFault::eio || fault == FileFault::enospc) {
      const FileWatch watch(path(), number, fault);
      return clean(days_to_live);
    }
    const pid_t child = fork();
    if (child == 0) {
      const FileWatch watch(path(), number, fault);
      _exit(clean(days_to_live));
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

  Answer list() const {
    rrm::JsonWriter writer;
    const int error = reports::get_radio_report_list(writer, "lab", path(), date_text(now - 30 * a_day) + " UTC",
                                                     date_text(now) + " UTC", true);
    return {error, error == 0 ? writer.to_string() : ""};
  }
  Answer last() const {
    rrm::JsonWriter writer;
    const int error = reports::get_last_radio_report(writer, "lab", path(), true);
    return {error, error == 0 ? writer.to_string() : ""};
  }
  Answer one(std::time_t time) const {
    rrm::JsonWriter writer;
    const int error = reports::get_radio_report(writer, date_text(time) + ",lab", path());
    return {error, error == 0 ? writer.to_string() : ""};
  }

  // Whatever a query finds, it does not make anything up: an answer is that of before, of after or of no reports.
  void expect_that_queries_answer_or_fail() const {
    static const std::set<std::string> lists = {answers_of(before).list, answers_of(after).list,
                                                R"({"data":[],"count":0})"};
    static const std::string newest = answers_of(after).last;
    const Answer listed = list();
    EXPECT_TRUE(listed.error != 0 || lists.contains(listed.text)) << listed.text;
    const Answer newest_now = last();
    EXPECT_TRUE(newest_now.error != 0 || newest_now.text == newest || newest_now.text == "{}") << newest_now.text;
    const Answer one_now = one(kept.back());
    EXPECT_TRUE(one_now.error != 0 || one_now.text == newest) << one_now.text;
  }

  // The files that every kind of next run comes to from what lies there; that depends on nothing else, so each state
  // is tried once.
  const FileTexts& repaired() {
    const FileTexts left = files();
    const auto [known, is_new] = repaired_.try_emplace(left);
    if (is_new) known->second = repair(left);
    return known->second;
  }

 private:
  struct Answers {
    std::string list;
    std::string last;
  };

  FileTexts repair(const FileTexts& left) const {
    const FileWatch nothing_is_synced(path());
    expect_that_queries_answer_or_fail();
    EXPECT_EQ(files(), left) << "a query has changed files";

    EXPECT_EQ(clean(long_life), 0);
    const FileTexts next = files();
    EXPECT_TRUE(next == before || next == after) << names_of(next);

    lay(left);
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(files(), lab(times_of(next) + std::vector{added})) << "a report was saved before the next run";

    lay(left);
    EXPECT_EQ(clean(days), 0);
    EXPECT_EQ(files(), after);
    return next;
  }

  static std::vector<std::time_t> times_of(const FileTexts& files) { return files == before ? expired + kept : kept; }

  static std::string names_of(const FileTexts& files) {
    std::string names;
    for (const auto& [name, text] : files) names += name + " (" + std::to_string(text.size()) + ") ";
    return names;
  }

  Answers answers_of(const FileTexts& texts) const {
    const FileTexts left = files();
    lay(texts);
    const Answers answers{list().text, last().text};
    EXPECT_NE(answers.last, "");
    lay(left);
    return answers;
  }

  const TempDir dir_;
  const ManualClock clock_{1000, now};
  const rrm::DomainConfig config_{};
  std::map<FileTexts, FileTexts> repaired_;
};

// Reading and looking change nothing, so that their place is the rewriter's own affair.
std::vector<std::string> changes(const std::vector<std::string>& operations) {
  std::vector<std::string> list;
  for (const std::string& operation : operations) {
    const std::string verb = operation.substr(0, operation.find(' '));
    if (verb == "create" || verb == "sync" || verb == "rename" || verb == "remove") list.push_back(operation);
  }
  return list;
}

std::vector<FileFault> faults_of(const std::string& operation) {
  std::vector<FileFault> faults{FileFault::eio, FileFault::enospc, FileFault::kill_before, FileFault::kill_after};
  if (operation.starts_with("write ")) faults.push_back(FileFault::kill_halfway);
  return faults;
}

bool is_deadly(FileFault fault) {
  return fault != FileFault::eio && fault != FileFault::enospc;
}

std::size_t place_of(const std::vector<std::string>& operations, const std::string& operation) {
  return static_cast<std::size_t>(std::find(operations.begin(), operations.end(), operation) - operations.begin());
}

TEST_F(Crash, ARewriteIsAJournalOfNames) {
  lay(before);
  EXPECT_EQ(changes(operations_of(days)), (std::vector<std::string>{
                                              "create report_lab.txt.start_status",
                                              "sync report_lab.txt.start_status",
                                              "sync .",
                                              "create report_idx_lab.txt.tmp",
                                              "sync report_idx_lab.txt.tmp",
                                              "create report_cfg_lab.txt.tmp",
                                              "sync report_cfg_lab.txt.tmp",
                                              "create report_lab.txt.tmp",
                                              "sync report_lab.txt.tmp",
                                              "rename report_idx_lab.txt to report_idx_lab.txt.old",
                                              "rename report_cfg_lab.txt to report_cfg_lab.txt.old",
                                              "rename report_lab.txt to report_lab.txt.old",
                                              "sync .",
                                              "rename report_idx_lab.txt.tmp to report_idx_lab.txt",
                                              "rename report_cfg_lab.txt.tmp to report_cfg_lab.txt",
                                              "rename report_lab.txt.tmp to report_lab.txt",
                                              "sync .",
                                              "rename report_lab.txt.start_status to report_lab.txt.done_status",
                                              "sync .",
                                              "remove report_idx_lab.txt.old",
                                              "remove report_cfg_lab.txt.old",
                                              "remove report_lab.txt.old",
                                              "remove report_lab.txt.done_status",
                                          }));
  EXPECT_EQ(files(), after);
}

TEST_F(Crash, ARollbackPutsTheOldFilesBackAndThenTakesTheMarkerAway) {
  lay({{"report_lab.txt.old", before.at("report_lab.txt")},
       {"report_cfg_lab.txt.old", before.at("report_cfg_lab.txt")},
       {"report_idx_lab.txt.old", before.at("report_idx_lab.txt")},
       {"report_lab.txt.tmp", after.at("report_lab.txt")},
       {"report_cfg_lab.txt.tmp", after.at("report_cfg_lab.txt")},
       {"report_idx_lab.txt", after.at("report_idx_lab.txt")},
       {start_status, "1\n"}});
  EXPECT_EQ(changes(operations_of(long_life)), (std::vector<std::string>{
                                                   "remove report_cfg_lab.txt.tmp",
                                                   "remove report_lab.txt.tmp",
                                                   "rename report_idx_lab.txt.old to report_idx_lab.txt",
                                                   "rename report_cfg_lab.txt.old to report_cfg_lab.txt",
                                                   "rename report_lab.txt.old to report_lab.txt",
                                                   "remove report_lab.txt.start_status",
                                               }));
  EXPECT_EQ(files(), before);
}

TEST_F(Crash, ACleanUpTakesTheMarkerAwayLast) {
  FileTexts committed = after;
  for (const auto& [name, text] : before) committed[name + ".old"] = text;
  committed[done_status] = "1\n";
  lay(committed);
  EXPECT_EQ(changes(operations_of(long_life)), (std::vector<std::string>{
                                                   "remove report_idx_lab.txt.old",
                                                   "remove report_cfg_lab.txt.old",
                                                   "remove report_lab.txt.old",
                                                   "remove report_lab.txt.done_status",
                                               }));
  EXPECT_EQ(files(), after);
}

TEST_F(Crash, NoFaultOfARewriteLosesOrKeepsWhatItMustNot) {
  lay(before);
  const std::vector<std::string> operations = operations_of(days);
  const std::size_t commit = place_of(operations, std::string("rename ") + start_status + " to " + done_status);
  ASSERT_LT(commit, operations.size());
  std::size_t points = 0;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    for (const FileFault fault : faults_of(operations[i])) {
      SCOPED_TRACE(std::to_string(i + 1) + ". " + operations[i] + ": " + name_of(fault));
      lay(before);
      const int result = disturbed(days, i + 1, fault);
      if (is_deadly(fault)) {
        EXPECT_EQ(result, 128 + SIGKILL);
      } else {
        EXPECT_TRUE(result == 0 || result == EIO || (result == ENOSPC && fault == FileFault::enospc)) << result;
        EXPECT_TRUE(files() == before || files() == after) << "its own recovery left something";
      }
      // The new files count from the commit on. A fault that is none, such as that of a file that was read, does not
      // stop the run.
      const bool committed = i > commit || (i == commit && fault == FileFault::kill_after) || result == 0;
      EXPECT_EQ(repaired(), committed ? after : before);
      ++points;
      if (HasFailure()) return;
    }
  }
  std::printf("rewrite: %zu operations, %zu points\n", operations.size(), points);
  RecordProperty("points", static_cast<int>(points));
}

TEST_F(Crash, NoFaultOfARecoveryDoes) {
  // All that a dying rewrite can leave, each once.
  std::set<FileTexts> left;
  lay(before);
  const std::vector<std::string> rewrite = operations_of(days);
  for (std::size_t i = 0; i < rewrite.size(); ++i) {
    for (const FileFault fault : faults_of(rewrite[i])) {
      if (!is_deadly(fault)) continue;
      lay(before);
      disturbed(days, i + 1, fault);
      if (files() != before && files() != after) left.insert(files());
    }
  }
  ASSERT_GT(left.size(), 15U);

  std::size_t operations_in_all = 0;
  std::size_t points = 0;
  for (const FileTexts& cut_off : left) {
    const FileTexts& expected = cut_off.contains(done_status) ? after : before;
    lay(cut_off);
    const std::vector<std::string> operations = operations_of(long_life);
    operations_in_all += operations.size();
    EXPECT_EQ(files(), expected);
    for (std::size_t i = 0; i < operations.size(); ++i) {
      for (const FileFault fault : faults_of(operations[i])) {
        SCOPED_TRACE(std::to_string(i + 1) + ". " + operations[i] + ": " + name_of(fault));
        lay(cut_off);
        const int result = disturbed(long_life, i + 1, fault);
        EXPECT_EQ(result == 128 + SIGKILL, is_deadly(fault)) << result;
        EXPECT_TRUE(result != 0 || files() == expected);
        EXPECT_EQ(repaired(), expected);
        ++points;
        if (HasFailure()) return;
      }
    }
  }
  std::printf("recovery: %zu states, %zu operations, %zu points\n", left.size(), operations_in_all, points);
  RecordProperty("points", static_cast<int>(points));
}

}  // namespace
