// When the daily cleanup of reports runs, what it does, and what its end leads to.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "core/ReportMaintenance.h"
#include "server_support.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace rrm {
namespace {

using testing::Capture;
using testing::Event;
using testing::eventually;
using testing::Gate;
using testing::ManualClock;
using testing::Record;
using testing::TempDir;
using testing::write_file;
using Lines = std::vector<std::string>;
using Result = ReportMaintenance::Result;
using std::chrono::hours;
using std::chrono::seconds;

class Maintenance : public ::testing::Test {
 protected:
  // Domains with their days to keep.
  using Domains = std::vector<std::pair<std::string, int>>;

  // Functions that note their calls; the clock says due until a day was closed.
  ReportFunctions functions() {
    ReportFunctions result;
    result.check_alarm_clock = [this](const std::string& at, bool& due) {
      calls.note("due at " + at);
      due = !closed;
      return 0;
    };
    result.mark_completed = [this] {
      closed = true;
      calls.note("closed");
    };
    result.delete_old = [this](const std::string& domain, std::uint32_t days, const std::string& path) {
      calls.note("old " + domain + " " + std::to_string(days) + (path == reports.path() ? "" : " " + path));
      return delete_old_result.load();
    };
    result.delete_all = [this](const std::string& domain, const std::string& path) {
      calls.note("all " + domain + (path == reports.path() ? "" : " " + path));
      return 0;
    };
    return result;
  }

  void configure(const Domains& domains, const std::string& path, int enabled = 1) {
    std::string text = R"({"global":{"enabled":)" + std::to_string(enabled) +
                       R"(,"report_delete_at_time_utc":"3:30","reports_path":")" + path +
                       R"("},"common":{},"patterns":[)";
    std::string bindings;
    for (const auto& [domain, days] : domains) {
      if (!bindings.empty()) text += ',', bindings += ',';
      text += R"({"pattern":"of-)" + domain + R"(","report_days_to_live":)" + std::to_string(days) + "}";
      bindings += R"({"domain":")" + domain + R"(","pattern":"of-)" + domain + R"("})";
    }
    config = std::make_unique<GlobalConfig>("", text + R"(],"domains":[)" + bindings + "]}");
  }
  // No configuration can bring an empty path, but the server's defaults might one day.
  ReportFunctions without_path() {
    ReportFunctions result = functions();
    result.settings = [](const GlobalConfig& global) {
      GlobalSettings settings = global.global();
      settings.reports_path.clear();
      return settings;
    };
    return result;
  }
  void make(ReportFunctions with, seconds period = hours(1)) {
    maintenance = std::make_unique<ReportMaintenance>(*config, std::move(with), period);
  }
  // Configured, made and started; the first tick comes by itself.
  void start(const Domains& domains) {
    configure(domains, reports.path());
    make(functions());
    maintenance->ensure_report_maintenance_started();
  }

  std::string queued(const std::string& domains) const {
    return "Report cleanup queued: path=\"" + reports.path().string() +
           "\", delete_at_utc=\"3:30\", domains=" + domains + ".";
  }

  Capture capture;
  ManualClock clock{1000, 1700000000};
  TempDir reports;
  Record calls;
  std::atomic<bool> closed{false};
  std::atomic<int> delete_old_result{0};
  std::unique_ptr<GlobalConfig> config;
  std::unique_ptr<ReportMaintenance> maintenance;
};

TEST_F(Maintenance, AllDomainsAreCleanedInTheOrderOfTheirNamesAndTheDayIsClosed) {
  start({{"yard", 7}, {"hall", 93}});
  maintenance->ensure_report_maintenance_started();  // both threads run already
  calls.await("closed");
  maintenance->stop_report_maintenance();
  EXPECT_EQ(calls.lines(), (Lines{"due at 3:30", "old hall 93", "old yard 7", "closed"}));
  Lines events = capture.lines(LOG_EVENT);
  const std::string running = "Report cleanup running: path=\"" + reports.path().string() + "\", domains=2.";
  EXPECT_EQ(std::erase(events, running), 1u);  // the other thread's line, before or after that of the queueing
  EXPECT_EQ(events, (Lines{"Report cleanup scheduler started (period=3600 s).",
                           queued("2 [hall(days=93), yard(days=7)]"), "Report cleanup scheduler stopped."}));
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup domain: \"hall\" report_days_to_live=93"));
  EXPECT_TRUE(capture.events().empty());
}

TEST_F(Maintenance, AServerThatIsDisabledQueuesNothing) {
  configure({{"hall", 93}}, reports.path(), 0);
  make(functions());
  maintenance->ensure_report_maintenance_started();
  maintenance->check_old_reports();
  maintenance->stop_report_maintenance();
  EXPECT_TRUE(calls.lines().empty());
}

TEST_F(Maintenance, WhatIsNotDueIsNotQueued) {
  closed = true;
  start({{"hall", 93}});
  maintenance->check_old_reports();
  maintenance->stop_report_maintenance();
  EXPECT_EQ(calls.count("due at 3:30"), calls.lines().size());
}

TEST_F(Maintenance, TicksComeAgainAndAgain) {
  closed = true;
  configure({}, reports.path());
  make(functions(), seconds(0));
  maintenance->ensure_report_maintenance_started();
  calls.await("due at 3:30", 4);
}

TEST_F(Maintenance, ATickDuringAJobLeavesItAlone) {
  configure({{"hall", 93}}, reports.path());
  Gate running;
  Gate go_on;
  ReportFunctions slow = functions();
  slow.delete_old = [&](const std::string&, std::uint32_t, const std::string&) {
    calls.note("old");
    running.open();
    go_on.wait();
    return 0;
  };
  make(slow);
  maintenance->ensure_report_maintenance_started();
  running.wait();
  maintenance->check_old_reports();
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup already running; skip enqueue."));
  go_on.open();
  calls.await("closed");
  maintenance->stop_report_maintenance();
  EXPECT_EQ(calls.count("old"), 1u);
}

TEST_F(Maintenance, AStopWaitsForTheJobWhoseEndStillCounts) {
  configure({{"hall", 93}}, reports.path());
  Gate running;
  Gate go_on;
  ReportFunctions slow = functions();
  slow.delete_old = [&](const std::string&, std::uint32_t, const std::string&) {
    running.open();
    go_on.wait();
    calls.note("job ends");
    return 0;
  };
  make(slow);
  maintenance->ensure_report_maintenance_started();
  running.wait();
  std::thread stop([&] {
    maintenance->stop_report_maintenance();
    calls.note("stopped");
  });
  EXPECT_TRUE(eventually([&] { return capture.has_line(LOG_EVENT, "Report cleanup scheduler stopped."); }));
  go_on.open();
  stop.join();
  EXPECT_EQ(calls.lines(), (Lines{"due at 3:30", "job ends", "closed", "stopped"}));
}

TEST_F(Maintenance, WithoutThreadsNothingIsQueued) {
  configure({{"hall", 93}}, reports.path());
  make(functions());
  maintenance->check_old_reports();
  EXPECT_EQ(calls.lines(), Lines{"due at 3:30"});
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup inactive (stop=0 joinable=0); skip."));
}

TEST_F(Maintenance, AfterAStopItCanBeStartedAgain) {
  start({{"hall", 93}});
  calls.await("closed");
  maintenance->stop_report_maintenance();
  maintenance->stop_report_maintenance();  // nothing is left to stop
  maintenance->check_old_reports();
  closed = false;
  maintenance->check_old_reports();
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup inactive (stop=1 joinable=0); skip."));
  maintenance->ensure_report_maintenance_started();
  calls.await("closed", 2);
  EXPECT_EQ(calls.count("old hall 93"), 2u);
}

TEST_F(Maintenance, AnEmptyPathClosesTheDayWithoutAJob) {
  configure({{"hall", 93}}, reports.path());
  make(without_path());
  maintenance->ensure_report_maintenance_started();
  calls.await("closed");
  maintenance->check_old_reports();
  maintenance->stop_report_maintenance();
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Report cleanup not scheduled: empty reports_path."});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, false, ""}}));
  EXPECT_EQ(calls.lines(), (Lines{"due at 3:30", "closed", "due at 3:30"}));
}

TEST_F(Maintenance, APathThatIsAFileClosesTheDay) {
  const std::string file = reports.file("file");
  write_file(file, "");
  configure({{"hall", 93}}, file);
  make(functions());
  maintenance->ensure_report_maintenance_started();
  calls.await("closed");
  maintenance->stop_report_maintenance();
  EXPECT_EQ(capture.lines(LOG_ERROR), Lines{"Report cleanup aborted: reports_path \"" + file +
                                            "\" missing or not a directory (errno=0: Success)."});
  EXPECT_EQ(capture.lines(LOG_WARNING), Lines{"Report cleanup permanent failure; day closed (no same-day retry)."});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, false, ""}}));
}

TEST_F(Maintenance, AMissingOrEmptyPathIsAPermanentFailure) {
  configure({}, reports.path());
  make(functions());
  const std::string missing = reports.file("missing");
  EXPECT_EQ(maintenance->run_report_maintenance_job({missing, {{"hall", 1}}}), Result::permanent_failure);
  EXPECT_EQ(maintenance->run_report_maintenance_job({"", {{"hall", 1}}}), Result::permanent_failure);
  EXPECT_EQ(capture.lines(LOG_ERROR), (Lines{"Report cleanup aborted: reports_path \"" + missing +
                                                 "\" missing or not a directory (errno=2: No such file or directory).",
                                             "Report cleanup aborted: empty reports_path."}));
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, false, ""}, {16, false, ""}}));
  EXPECT_TRUE(calls.lines().empty());
}

TEST_F(Maintenance, NoDaysAreOneDay) {
  EXPECT_EQ(days_to_keep(-1), 1u);
  EXPECT_EQ(days_to_keep(0), 1u);
  EXPECT_EQ(days_to_keep(1), 1u);
  EXPECT_EQ(days_to_keep(2), 2u);
}

TEST_F(Maintenance, ReportsOfDomainsThatAreGoneAreDeleted) {
  for (const char* name : {"report_idx_hall.txt", "report_idx_gone, too.txt", "report_idx_.txt", "report_gone.txt",
                           "report_cfg_gone.txt", "report_idx_gone.txt.old", "report_idx_x.tx"}) {
    write_file(reports.file(name), "");
  }
  configure({}, reports.path());
  make(functions());
  EXPECT_EQ(maintenance->run_report_maintenance_job({reports.path(), {{"hall", 93}}}), Result::done);
  Lines all = calls.lines();
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all.front(), "old hall 93");
  std::sort(all.begin() + 1, all.end());
  EXPECT_EQ(all, (Lines{"old hall 93", "all ", "all gone, too"}));
  EXPECT_TRUE(capture.events().empty());
}

TEST_F(Maintenance, ADomainOfAnUnknownPatternKeepsItsReportsAsLongAsANewDomain) {
  config = std::make_unique<GlobalConfig>(
      "", R"({"global":{"enabled":1,"report_delete_at_time_utc":"3:30","reports_path":")" + reports.path().string() +
              R"("},"common":{},"patterns":[{"pattern":"of-hall","report_days_to_live":7}],"domains":[)"
              R"({"domain":"yard","pattern":"unknown"},{"domain":"hall","pattern":"of-hall"}]})");
  for (const char* name : {"report_idx_hall.txt", "report_idx_yard.txt", "report_idx_gone.txt"}) {
    write_file(reports.file(name), "");
  }
  make(functions());
  maintenance->ensure_report_maintenance_started();
  calls.await("closed");
  maintenance->stop_report_maintenance();
  EXPECT_EQ(calls.lines(), (Lines{"due at 3:30", "old hall 7", "old yard 93", "all gone", "closed"}));
  EXPECT_TRUE(capture.has_line(LOG_EVENT, queued("2 [hall(days=7), yard(days=93)]")));
}

TEST_F(Maintenance, TheRecordsOfADomainAreNotTakenForTheIndexOfAnother) {
  for (const char* name :
       {"report_idx_idx_x.txt", "report_idx_x.txt", "report_idx_cfg_w.txt", "report_idx_w.txt", "report_idx_y.txt"}) {
    write_file(reports.file(name), "");
  }
  configure({}, reports.path());
  make(functions());
  EXPECT_EQ(maintenance->run_report_maintenance_job({reports.path(), {{"cfg_w", 93}, {"idx_x", 93}}}), Result::done);
  EXPECT_EQ(calls.lines(), (Lines{"old cfg_w 93", "old idx_x 93", "all y"}));
}

TEST_F(Maintenance, AConfigurationWithoutDomainsWipesNothing) {
  write_file(reports.file("report_idx_hall.txt"), "");
  configure({}, reports.path());
  make(functions());
  EXPECT_EQ(maintenance->run_report_maintenance_job({reports.path(), {}}), Result::done);
  EXPECT_TRUE(calls.lines().empty());
}

TEST_F(Maintenance, ADomainThatFailsKeepsNoOtherFromItsTurn) {
  configure({}, reports.path());
  ReportFunctions failing = functions();
  failing.delete_old = [this](const std::string& domain, std::uint32_t, const std::string&) {
    calls.note(domain);
    if (domain == "a") return 28;
    if (domain == "b") throw std::runtime_error("no luck");
    if (domain == "c") throw 7;
    return 0;
  };
  make(failing);
  EXPECT_EQ(maintenance->run_report_maintenance_job({reports.path(), {{"a", 1}, {"b", 1}, {"c", 1}, {"d", 1}}}),
            Result::transient_failure);
  EXPECT_EQ(calls.lines(), (Lines{"a", "b", "c", "d"}));
  EXPECT_EQ(capture.lines(LOG_ERROR), (Lines{"Error call delete_old_reports_in_domain for domain: a. Error code = 28",
                                             "Exception in delete_old_reports_in_domain for domain b: no luck",
                                             "Non-standard exception in delete_old_reports_in_domain for domain c"}));
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, true, "a"}, {16, true, "b"}, {16, true, "c"}}));
}

TEST_F(Maintenance, ADirectoryThatCannotBeOpenedIsATransientFailure) {
  const std::string vanishing = reports.file("vanishing");
  ASSERT_TRUE(std::filesystem::create_directory(vanishing));
  configure({}, reports.path());
  ReportFunctions removing = functions();
  removing.delete_old = [&](const std::string&, std::uint32_t, const std::string& path) {
    return std::filesystem::remove(path) ? 0 : 5;
  };
  make(removing);
  EXPECT_EQ(maintenance->run_report_maintenance_job({vanishing, {{"hall", 1}}}), Result::transient_failure);
  EXPECT_EQ(capture.lines(LOG_ERROR),
            Lines{"Could not open directory: " + vanishing + " (errno=2: No such file or directory)"});
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, false, ""}}));
}

TEST_F(Maintenance, OrphansThatFailAreOneEvent) {
  for (const char* domain : {"one", "two", "three"}) {
    write_file(reports.file("report_idx_" + std::string(domain) + ".txt"), "");
  }
  configure({}, reports.path());
  ReportFunctions failing = functions();
  failing.delete_all = [](const std::string& domain, const std::string&) -> int {
    if (domain == "one") return 5;
    if (domain == "two") throw std::runtime_error("no luck");
    throw 7;
  };
  make(failing);
  EXPECT_EQ(maintenance->run_report_maintenance_job({reports.path(), {{"hall", 1}}}), Result::transient_failure);
  Lines errors = capture.lines(LOG_ERROR);
  std::sort(errors.begin(), errors.end());
  EXPECT_EQ(errors, (Lines{"Exception deleting report files for domain two: no luck",
                           "Non-standard exception deleting report files for domain three"}));
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, false, ""}}));
}

TEST_F(Maintenance, ATransientFailureIsTriedAgainAfter900Seconds) {
  delete_old_result = 5;
  start({{"hall", 93}});
  const std::string retry = "Report cleanup transient failure; retry in 900 s (day not closed).";
  ASSERT_TRUE(eventually([&] { return capture.has_line(LOG_WARNING, retry); }));

  clock.advance(1);
  maintenance->check_old_reports();
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup backoff: next attempt in 899 s."));
  clock.advance(898);
  maintenance->check_old_reports();
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup backoff: next attempt in 1 s."));
  EXPECT_EQ(calls.count("old hall 93"), 1u);

  delete_old_result = 0;
  clock.advance(1);
  ASSERT_TRUE(eventually([&] {  // the last job may still be at its end
    maintenance->check_old_reports();
    return closed.load();
  }));
  EXPECT_GE(calls.count("old hall 93"), 2u);
}

TEST_F(Maintenance, AStopForgetsThatAFailureWasToBeTriedAgainLater) {
  delete_old_result = 5;
  start({{"hall", 93}});
  ASSERT_TRUE(eventually([&] {
    return capture.has_line(LOG_WARNING, "Report cleanup transient failure; retry in 900 s (day not closed).");
  }));
  maintenance->stop_report_maintenance();
  delete_old_result = 0;
  maintenance->ensure_report_maintenance_started();
  calls.await("closed");
  EXPECT_EQ(calls.lines(), (Lines{"due at 3:30", "old hall 93", "due at 3:30", "old hall 93", "closed"}));
}

TEST_F(Maintenance, AJobThatCrashesIsATransientFailure) {
  configure({{"hall", 93}}, reports.path());
  ReportFunctions crashing = functions();
  std::atomic<int> crashes{0};
  crashing.mark_completed = [&] {
    if (++crashes == 1) throw std::runtime_error("no luck");
    if (crashes == 2) throw 7;
    closed = true;
  };
  make(crashing);
  maintenance->ensure_report_maintenance_started();
  for (const char* text : {"Report maintenance crashed with exception: no luck",
                           "Report maintenance crashed with non-standard exception"}) {
    ASSERT_TRUE(eventually([&] { return capture.has_line(LOG_ERROR, text); }));
    ASSERT_TRUE(eventually([&] {
      clock.advance(900);
      maintenance->check_old_reports();
      return crashes > 1;
    }));
  }
  ASSERT_TRUE(eventually([&] {
    clock.advance(900);
    maintenance->check_old_reports();
    return closed.load();
  }));
  maintenance->stop_report_maintenance();
  EXPECT_EQ(capture.events(), (std::vector<Event>{{16, false, ""}, {16, false, ""}}));
  EXPECT_EQ(capture.lines(LOG_WARNING).size(), 2u);
}

TEST_F(Maintenance, AnExceptionWhileAJobIsMadePassesOnAndLeavesNothingArmed) {
  configure({{"hall", 93}}, reports.path());
  ReportFunctions throwing = without_path();
  std::atomic<int> attempts{0};
  throwing.mark_completed = [&] {
    if (++attempts % 2 == 1) throw std::runtime_error("no luck");
    throw 7;
  };
  make(throwing);
  maintenance->ensure_report_maintenance_started();
  ASSERT_TRUE(
      eventually([&] { return capture.has_line(LOG_ERROR, "Report cleanup scheduler initial tick failed: no luck"); }));
  EXPECT_TRUE(capture.has_line(LOG_ERROR, "check_old_reports failed after arming inflight: no luck"));
  EXPECT_THROW(maintenance->check_old_reports(), int);
  EXPECT_TRUE(capture.has_line(LOG_ERROR, "check_old_reports failed after arming inflight (non-standard exception)"));
  EXPECT_THROW(maintenance->check_old_reports(), std::runtime_error);
  EXPECT_EQ(attempts, 3);
  EXPECT_FALSE(capture.has_line(LOG_TRACE, "Report cleanup already running; skip enqueue."));
}

TEST_F(Maintenance, TheSchedulerOutlivesATickThatFails) {
  configure({}, reports.path());
  ReportFunctions throwing = functions();
  std::atomic<int> ticks{0};
  throwing.check_alarm_clock = [&](const std::string&, bool&) -> int {
    switch (++ticks) {
      case 1:
        throw 7;
      case 2:
        throw std::runtime_error("no luck");
      default:
        throw 8;
    }
  };
  make(throwing, seconds(0));
  maintenance->ensure_report_maintenance_started();
  EXPECT_TRUE(eventually([&] { return ticks > 3; }));
  maintenance->stop_report_maintenance();  // before `ticks` goes, whatever has come
  const Lines errors = capture.lines(LOG_ERROR);
  ASSERT_GE(errors.size(), 3u);
  EXPECT_EQ(errors[0], "Report cleanup scheduler initial tick failed with non-standard exception");
  EXPECT_EQ(errors[1], "Report cleanup scheduler tick failed: no luck");
  EXPECT_EQ(errors[2], "Report cleanup scheduler tick failed with non-standard exception");
}

// With the real clock of the day, configuration and files.
TEST_F(Maintenance, AServerThatRunsDeletesOldReportsAndNoneAfterItsRelease) {
  for (const char* file : {"report_idx_gone.txt", "report_cfg_gone.txt", "report_gone.txt"}) {
    write_file(reports.file(file), "1,2023-11-15,10:00:00 UTC\n");
  }
  ::reports::mark_report_alarm_completed();  // the day before
  clock.advance(86400);
  configure({{"hall", 93}}, reports.path());
  RRM server(config.get());
  EXPECT_FALSE(capture.has_line(LOG_EVENT, "Report cleanup scheduler started (period=60 s)."));
  server.start();
  ASSERT_TRUE(eventually([&] {
    return capture.has_line(LOG_EVENT,
                            "Report cleanup finished for UTC day 2023-11-15; no further runs until next UTC day.");
  }));
  EXPECT_TRUE(capture.has_line(LOG_EVENT, "Report cleanup scheduler started (period=60 s)."));
  EXPECT_FALSE(std::filesystem::exists(reports.file("report_idx_gone.txt")));
  EXPECT_FALSE(std::filesystem::exists(reports.file("report_cfg_gone.txt")));
  EXPECT_FALSE(std::filesystem::exists(reports.file("report_gone.txt")));

  server.release();
  EXPECT_TRUE(capture.has_line(LOG_EVENT, "Report cleanup scheduler stopped."));
  clock.advance(86400);
  server.check_old_reports();
  EXPECT_TRUE(capture.has_line(LOG_TRACE, "Report cleanup inactive (stop=1 joinable=0); skip."));
}

}  // namespace
}  // namespace rrm
