// The log: its lines, its grades, its rate limit and its configuration.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/bus/UniqueFd.h"
#include "platform/standalone/KindLimit.h"
#include "platform/standalone/RateLimit.h"
#include "platform/standalone/TraceConfig.h"
#include "platform/standalone/TraceLog.h"
#include "platform/trace_file.h"
#include "support/temp_dir.h"
#include "zal/IMsg.h"
#include "zal/MacFilter.h"
#include "zal/Trace.h"

namespace zal {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using zal::testing::AppliedConfig;
using zal::testing::library_line;
using zal::testing::TraceFile;

TEST(Trace, EveryGradeWritesItsLine) {
  const TraceFile file;
  const Trace trace("RRM", false);
  trace.ap("%s %d", "one", 1);
  trace.sys("two");
  trace.warn("%s", std::string(5000, 'x').c_str());
  trace.error("four %%");
  trace.error_mac(MacAddr::from_str("A8F94B001122"), "bad %s", "thing");
  library_line(trace, "library %d", 5);
  trace.ap_limited("bulk %d", 6);
  EXPECT_THAT(file.lines(), ElementsAre("AP    [RRM] one 1", "SYS   [RRM] two", "WARN  [RRM] " + std::string(5000, 'x'),
                                        "ERROR [RRM] four %", "ERROR [RRM] a8:f9:4b:00:11:22: bad thing",
                                        "AP    [RRM] library 5", "AP    [RRM] bulk 6"));
}

// What the filter holds back and what it lets through, of a line of each kind and two devices.
class TraceMacFilter : public ::testing::Test {
 protected:
  std::vector<std::string> lines_written() const {
    const TraceFile file;
    trace_.error("plain");
    trace_.ap_limited("bulk");
    library_line(trace_, "library");
    trace_.error_mac(MacAddr(), "no address");
    trace_.error_mac(first_, "first");
    trace_.error_mac(second_, "second");
    std::vector<std::string> texts;
    for (const std::string& line : file.lines()) texts.push_back(line.substr(line.find("] ") + 2));
    return texts;
  }

  const MacAddr first_ = MacAddr::from_str("a8f94b001122");
  const MacAddr second_ = MacAddr::from_str("a8f94b001123");
  const Trace trace_{"RRM", false};
};

TEST_F(TraceMacFilter, IsOffAndEmptyAtFirstAndHoldsNothingBackWhileOff) {
  EXPECT_FALSE(trace_.mac_filter().is_on());
  EXPECT_THAT(trace_.mac_filter().macs(), ElementsAre());
  const std::vector<std::string> all{"plain",
                                     "bulk",
                                     "library",
                                     "00:00:00:00:00:00: no address",
                                     "a8:f9:4b:00:11:22: first",
                                     "a8:f9:4b:00:11:23: second"};
  EXPECT_EQ(lines_written(), all);
  trace_.mac_filter().add({first_});
  EXPECT_EQ(lines_written(), all);
}

TEST_F(TraceMacFilter, WhileOnLetsOnlyItsDevicesThrough) {
  trace_.mac_filter().add({second_});
  trace_.mac_filter().turn_on();
  EXPECT_THAT(lines_written(),
              ElementsAre("plain", "bulk", "library", "00:00:00:00:00:00: no address", "a8:f9:4b:00:11:23: second"));
  trace_.mac_filter().clear();
  EXPECT_THAT(lines_written(), ElementsAre("plain", "bulk", "library", "00:00:00:00:00:00: no address"));
  trace_.mac_filter().turn_off();
  EXPECT_EQ(lines_written().size(), 6u);
}

TEST_F(TraceMacFilter, AnotherSourceHasAFilterOfItsOwn) {
  trace_.mac_filter().turn_on();
  const TraceFile file;
  Trace("OTHER", false).error_mac(first_, "x");
  EXPECT_THAT(file.lines(), ElementsAre("ERROR [OTHER] a8:f9:4b:00:11:22: x"));
}

TEST_F(TraceMacFilter, IsASetInAscendingOrder) {
  MacFilter& filter = trace_.mac_filter();
  filter.add({second_, first_, second_});
  filter.add({first_});
  EXPECT_THAT(filter.macs(), ElementsAre(first_, second_));
  filter.remove({first_, first_, MacAddr::from_str("000000000001")});
  EXPECT_THAT(filter.macs(), ElementsAre(second_));
  filter.remove({});
  filter.add({});
  EXPECT_THAT(filter.macs(), ElementsAre(second_));
}

TEST_F(TraceMacFilter, AConfigurationReplacesItAndIsLogged) {
  trace_.mac_filter().add({first_});
  const TraceFile file;
  IPC_MSG__MAC_FILTER_CONFIG config;
  config.enabled = true;
  config.macs = std::make_shared<std::string>("a8:f9:4b:00:11:23 nonsense a8f94b001123");
  mac_filter_config(config, trace_);
  EXPECT_TRUE(trace_.mac_filter().is_on());
  EXPECT_THAT(trace_.mac_filter().macs(), ElementsAre(second_));
  config.enabled = false;
  config.macs = nullptr;
  mac_filter_config(config, trace_);
  EXPECT_FALSE(trace_.mac_filter().is_on());
  EXPECT_THAT(trace_.mac_filter().macs(), ElementsAre());
  EXPECT_THAT(file.lines(),
              ElementsAre("SYS   [RRM] MAC filter: on, addresses: 1", "SYS   [RRM] MAC filter: off, addresses: 0"));
}

TEST_F(TraceMacFilter, MayBeChangedWhileOthersLog) {
  const TraceFile file;
  std::atomic<bool> is_done{false};
  std::thread logger([&] {
    while (!is_done) trace_.error_mac(first_, "x");
  });
  for (int i = 0; i < 1000; ++i) {
    trace_.mac_filter().add({first_, second_});
    trace_.mac_filter().turn_on();
    trace_.mac_filter().remove({first_});
    trace_.mac_filter().turn_off();
  }
  is_done = true;
  logger.join();
  EXPECT_THAT(trace_.mac_filter().macs(), ElementsAre(second_));
}

TEST(Trace, ALineCarriesItsTimeInUtc) {
  const TraceFile file;
  Trace("RRM", false).sys("x");
  EXPECT_THAT(rrm::testing::read_file(file.path()),
              ::testing::MatchesRegex("....-..-..T..:..:..\\.[0-9]+Z SYS   \\[RRM\\] x\n"));
}

TEST(Trace, ATextCannotForgeALine) {
  EXPECT_EQ(safe_line("MorVane start\n"), "MorVane start");
  EXPECT_EQ(safe_line("one\ntwo"), "one\n    two");
  EXPECT_EQ(safe_line("a\x1b[2Jb\rc\x7f\td"), "a\\x1b[2Jb\\x0dc\\x7f\td");
  EXPECT_EQ(safe_line("naïve"), "naïve");
  EXPECT_EQ(safe_line(std::string("a\0b", 3)), "a\\x00b");
  EXPECT_EQ(safe_line(""), "");
}

TEST(Trace, BeforeItsStartAndAfterItsEndTheLogIsStandardError) {
  const Trace trace("RRM", false);
  ::testing::internal::CaptureStderr();
  trace.warn("early");
  { const TraceFile file; }
  trace.warn("late");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "WARN  [RRM] early\nWARN  [RRM] late\n");
}

TEST(Trace, AConsoleTraceWritesToBoth) {
  const TraceFile file;
  ::testing::internal::CaptureStderr();
  Trace("RRM", true).warn("both");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "WARN  [RRM] both\n");
  EXPECT_THAT(file.lines(), ElementsAre("WARN  [RRM] both"));
}

TEST(Trace, AFileThatCannotBeOpenedLeavesTheLogOnStandardError) {
  setenv(trace_file_variable, "/proc/none/log", 1);
  ::testing::internal::CaptureStderr();
  Trace::global_init("test");
  Trace("RRM", false).warn("here");
  Trace::global_deinit();
  const std::string text = ::testing::internal::GetCapturedStderr();
  unsetenv(trace_file_variable);
  EXPECT_THAT(text, HasSubstr("ERROR [TRACE] the log goes to standard error: "));
  EXPECT_THAT(text, HasSubstr("WARN  [RRM] here\n"));
}

// What a log holds of a flood of library lines.
struct FloodLog {
  long written = 0;
  long refused = 0;
  std::vector<std::string> others;
};

FloodLog read_flood(const TraceFile& file) {
  FloodLog flood;
  for (const std::string& line : file.lines()) {
    long count = 0;
    if (line.starts_with("AP    [RRM] flood "))
      ++flood.written;
    else if (std::sscanf(line.c_str(), "WARN  [TRACE] %ld lines not logged: too many", &count) == 1)
      flood.refused += count;
    else
      flood.others.push_back(line);
  }
  return flood;
}

TEST(Trace, LibraryLinesOfOneKindBeyondTheLimitAreCountedAndTheOthersPass) {
  constexpr int flood_size = 5000;
  const Trace trace("RRM", false);
  FloodLog flood;
  {
    const TraceFile file;
    for (int i = 0; i < flood_size; ++i) library_line(trace, "flood %d", i);
    library_line(trace, "role changed");
    Trace::global_deinit();
    flood = read_flood(file);
  }
  EXPECT_GE(flood.written, 100);
  EXPECT_LT(flood.written, flood_size);
  EXPECT_EQ(flood.written + flood.refused, flood_size);
  EXPECT_THAT(flood.others, ElementsAre("AP    [RRM] role changed"));
}

TEST(Trace, AFloodOfTheProcessItselfIsLimitedToo) {
  constexpr int flood_size = 20000;
  FloodLog flood;
  {
    const TraceFile file;
    const Trace trace("RRM", false);
    for (int i = 0; i < flood_size; ++i) trace.ap("flood %d", i);
    trace.error("something else");
    Trace::global_deinit();
    flood = read_flood(file);
  }
  EXPECT_GE(flood.written, 1000);
  EXPECT_LT(flood.written, flood_size);
  EXPECT_EQ(flood.written + flood.refused, flood_size);
  EXPECT_THAT(flood.others, ElementsAre("ERROR [RRM] something else"));
}

// A text that nobody can read: whoever formats it crashes.
class UnreadableText {
 public:
  UnreadableText() : page_(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    if (page_ == MAP_FAILED) throw std::runtime_error("mmap");
  }
  ~UnreadableText() { munmap(page_, size); }
  UnreadableText(const UnreadableText&) = delete;
  UnreadableText& operator=(const UnreadableText&) = delete;

  const char* text() const { return static_cast<const char*>(page_); }

 private:
  static constexpr std::size_t size = 4096;
  void* page_;
};

TEST(Trace, ARefusedLineIsNeverFormatted) {
  const TraceFile file;
  const Trace trace("RRM", false);
  const UnreadableText secret;
  {
    const AppliedConfig none(AppliedConfig::without_budgets());
    library_line(trace, "%s", secret.text());
    trace.ap_limited("%s", secret.text());
    trace.ap("%s", secret.text());
    trace.sys("%s", secret.text());
    trace.warn("%s", secret.text());
    trace.error("%s", secret.text());
    trace.error_mac(MacAddr(), "%s", secret.text());
  }
  trace.mac_filter().turn_on();
  trace.error_mac(MacAddr::from_str("a8f94b001122"), "%s", secret.text());
  Trace::global_deinit();
  EXPECT_THAT(file.lines(), ElementsAre("WARN  [TRACE] 7 lines not logged: too many of their kind in a second"));
}

TEST(Trace, ALineBelowTheLowestGradeIsNeitherFormattedNorCounted) {
  const TraceFile file;
  const Trace trace("RRM", false);
  const UnreadableText secret;
  {
    const AppliedConfig errors(AppliedConfig::from_grade(Grade::error));
    library_line(trace, "%s", secret.text());
    trace.ap_limited("%s", secret.text());
    trace.ap("%s", secret.text());
    trace.sys("%s", secret.text());
    trace.warn("%s", secret.text());
    trace.error("written");
  }
  Trace::global_deinit();
  EXPECT_THAT(file.lines(), ElementsAre("ERROR [RRM] written"));
}

TEST(Trace, TheCountOfRefusedLinesOutlastsATimeWithoutWarnings) {
  const TraceFile file;
  {
    const AppliedConfig none(AppliedConfig::without_budgets());
    Trace("RRM", false).error("refused");
  }
  {
    const AppliedConfig errors(AppliedConfig::from_grade(Grade::error));
    Trace::global_deinit();
  }
  const TraceFile later;
  Trace::global_deinit();
  EXPECT_THAT(file.lines(), ElementsAre());
  EXPECT_THAT(later.lines(), ElementsAre("WARN  [TRACE] 1 lines not logged: too many of their kind in a second"));
}

// A log whose reader does not read: whoever writes more than fits stays inside the log, with its lock, until drained.
class StuckLog {
 public:
  StuckLog() {
    if (mkfifo(path().c_str(), 0600) != 0) throw std::runtime_error("mkfifo");
    reader_.reset(open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    setenv(trace_file_variable, path().c_str(), 1);
    Trace::global_init("test");
  }
  ~StuckLog() {
    Trace::global_deinit();
    unsetenv(trace_file_variable);
  }
  StuckLog(const StuckLog&) = delete;
  StuckLog& operator=(const StuckLog&) = delete;

  void await_full() const {
    int waiting = 0;
    while (waiting < fcntl(reader_.get(), F_GETPIPE_SZ))
      if (ioctl(reader_.get(), FIONREAD, &waiting) != 0) throw std::runtime_error("ioctl");
  }
  // Reads until the writer is done.
  void drain(const std::future<void>& writer) const {
    char part[65536];
    while (writer.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
      while (read(reader_.get(), part, sizeof part) > 0) {
      }
  }

 private:
  std::string path() const { return directory_.file("log"); }

  rrm::testing::TempDir directory_;
  bus::UniqueFd reader_;
};

TEST(Trace, ARefusedLineWaitsForNobodyWhoWrites) {
  using std::future_status;
  const StuckLog log;
  const Trace trace("RRM", false);
  const auto writer = std::async(std::launch::async, [&trace] { trace.sys("%s", std::string(1u << 20, 'x').c_str()); });
  log.await_full();

  const AppliedConfig none(AppliedConfig::without_budgets());
  const auto refused = std::async(std::launch::async, [&trace] {
    library_line(trace, "%d", 1);
    trace.ap("%d", 2);
    trace.error_mac(MacAddr(), "%d", 3);
  });
  EXPECT_EQ(refused.wait_for(std::chrono::seconds(60)), future_status::ready);
  EXPECT_EQ(writer.wait_for(std::chrono::seconds(0)), future_status::timeout);
  log.drain(writer);
}

TEST(RateLimit, AdmitsSoManyInEachSecond) {
  RateLimit limit(2);
  EXPECT_TRUE(limit.admit(10));
  EXPECT_TRUE(limit.admit(10));
  EXPECT_FALSE(limit.admit(10));
  EXPECT_FALSE(limit.admit(10));
  EXPECT_TRUE(limit.admit(11));
  EXPECT_EQ(limit.take_refused(), 2u);
  EXPECT_EQ(limit.take_refused(), 0u);
}

TEST(RateLimit, ANewLimitHoldsAtOnceAndNoneAdmitsNothing) {
  RateLimit limit(1);
  EXPECT_TRUE(limit.admit(10));
  limit.set_per_second(2);
  EXPECT_TRUE(limit.admit(10));
  limit.set_per_second(0);
  EXPECT_FALSE(limit.admit(11));
}

TEST(RateLimit, ManyThreadsTogetherGetNoMore) {
  RateLimit limit(1000);
  std::atomic<int> admitted{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int n = 0; n < 1000; ++n) admitted += limit.admit(7) ? 1 : 0;
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(admitted, 1000);
  EXPECT_EQ(limit.take_refused(), 3000u);
}

TEST(KindLimit, EachKindHasItsOwnBudgetEvenWhenAllPlacesAreTaken) {
  KindLimit limit(1);
  const std::vector<char> formats(2 * KindLimit::capacity);
  for (std::size_t i = 0; i < KindLimit::capacity; ++i) {
    EXPECT_TRUE(limit.admit(&formats[i], 10));
    EXPECT_FALSE(limit.admit(&formats[i], 10));
  }
  EXPECT_EQ(limit.take_refused(), KindLimit::capacity);
  // One more shares a place, whose budget is used up.
  EXPECT_FALSE(limit.admit(&formats[KindLimit::capacity], 10));
  EXPECT_TRUE(limit.admit(&formats[KindLimit::capacity], 11));
  limit.set_per_second(2);
  EXPECT_TRUE(limit.admit(&formats[0], 10));
}

TEST(KindLimit, ManyThreadsTogetherGetNoMoreOfAKind) {
  KindLimit limit(10);
  const std::vector<char> formats(100);
  std::atomic<int> admitted{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round)
        for (const char& format : formats) admitted += limit.admit(&format, 7) ? 1 : 0;
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(admitted, 1000);
}

struct ConfigCase {
  const char* text;
  TraceConfig expected;
  const char* complaint;
};

TEST(TraceConfig, EveryGoodKeyIsTakenAndEveryOtherNamed) {
  const auto with = [](auto change) {
    TraceConfig config;
    change(config);
    return config;
  };
  const std::vector<ConfigCase> cases{
      {"", {}, ""},
      {"{}", {}, ""},
      {R"({"unknown":1})", {}, ""},
      {R"({"grade":"ap"})", {}, ""},
      {R"({"grade":"sys"})", with([](auto& c) { c.lowest_grade = Grade::sys; }), ""},
      {R"({"grade":"warn"})", with([](auto& c) { c.lowest_grade = Grade::warn; }), ""},
      {R"({"grade":"error"})", with([](auto& c) { c.lowest_grade = Grade::error; }), ""},
      {R"({"grade":"loud"})", {}, "bad value of 'grade'"},
      {R"({"grade":3})", {}, "bad value of 'grade'"},
      {R"({"lines_per_second":1})", with([](auto& c) { c.lines_per_second = 1; }), ""},
      {R"({"lines_per_second":1000000})", with([](auto& c) { c.lines_per_second = 1000000; }), ""},
      {R"({"lines_per_second":0})", {}, "bad value of 'lines_per_second'"},
      {R"({"lines_per_second":1000001})", {}, "bad value of 'lines_per_second'"},
      {R"({"library_lines_per_second":0})", with([](auto& c) { c.library_lines_per_second = 0; }), ""},
      {R"({"library_lines_per_second":1000000})", with([](auto& c) { c.library_lines_per_second = 1000000; }), ""},
      {R"({"library_lines_per_second":-1})", {}, "bad value of 'library_lines_per_second'"},
      {R"({"library_lines_per_second":1000001})", {}, "bad value of 'library_lines_per_second'"},
      {R"({"library_lines_per_second":"9"})", {}, "bad value of 'library_lines_per_second'"},
      {R"({"max_file_bytes":65536,"max_files":1})", with([](auto& c) { c.max_file_bytes = 65536, c.max_files = 1; }),
       ""},
      {R"({"max_file_bytes":1073741824,"max_files":100})",
       with([](auto& c) { c.max_file_bytes = 1u << 30, c.max_files = 100; }), ""},
      {R"({"max_file_bytes":65535,"max_files":0,"grade":"warn"})", with([](auto& c) { c.lowest_grade = Grade::warn; }),
       "bad value of 'max_file_bytes', bad value of 'max_files'"},
      {R"({"max_file_bytes":1073741825,"max_files":101})",
       {},
       "bad value of 'max_file_bytes', bad value of 'max_files'"},
      {"nonsense", {}, "no JSON, from byte 2"},
      {"[]", {}, "no JSON object"},
  };
  for (const auto& [text, expected, expected_complaint] : cases) {
    SCOPED_TRACE(text);
    std::string complaint = "stale";
    EXPECT_EQ(parse_trace_config(text, complaint), expected);
    EXPECT_EQ(complaint, expected_complaint);
  }
}

TEST(Trace, TheLogIsRenamedWhenItGrowsTooLong) {
  const TraceFile file;
  const Trace trace("RRM", false);
  const std::string line(1u << 20, 'x');
  for (int i = 0; i < 11; ++i) trace.sys("%s", line.c_str());
  EXPECT_GT(std::filesystem::file_size(file.path() + ".1"), 9u << 20);
  EXPECT_LT(std::filesystem::file_size(file.path()), 3u << 20);
}

}  // namespace
}  // namespace zal
