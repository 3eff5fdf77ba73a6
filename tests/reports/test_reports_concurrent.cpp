// Two that save, clean and query one domain at the same time: every record is there, once, for as long as it lives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <new>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

#include "Config.h"
#include "json/JsonWriter.h"
#include "report_optimize_tpc_dca.h"
#include "reports/failing_files.h"
#include "reports/file_lock.h"
#include "reports/report_support.h"
#include "reports/report_texts.h"
#include "support/capture.h"
#include "support/gate.h"

using namespace rrm::testing;

namespace {

constexpr std::time_t start = 1'700'000'000;
constexpr std::time_t between_reports = 3600;
constexpr std::uint32_t days = 2;  // the last 48 reports live
constexpr int radios = 4;
constexpr int most_reports = 4000;

std::time_t time_of(int number) {
  return start + number * between_reports;
}

// What all know, in memory that processes share. Reports are numbered in the order in which their dates are taken.
struct Shared {
  std::atomic<std::time_t> now{start};
  std::atomic<int> taken{0};
  std::atomic<int> operations{0};
  std::atomic<bool> saved[most_reports]{};  // its saving has ended

  int take_date() {
    const int number = taken.fetch_add(1);
    std::time_t before = now;
    while (before < time_of(number) && !now.compare_exchange_weak(before, time_of(number))) {
    }
    return number;
  }
  bool lives(int number) const { return now - time_of(number) <= days * a_day; }
};

class SharedClock final : public rrm::Clock {
 public:
  explicit SharedClock(const Shared& shared) : shared_(shared) { rrm::set_clock(this); }
  ~SharedClock() override { rrm::set_clock(nullptr); }
  std::int64_t monotonic_seconds() const override { return shared_.now; }
  std::optional<std::int64_t> wall_seconds() const override { return shared_.now; }

 private:
  const Shared& shared_;
};

std::string replace_all(std::string text, const std::string& what, const std::string& by) {
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
    text.replace(at, what.size(), by);
  return text;
}

void say_nothing(const char*, int, const char*, int, const char*, va_list) {}

class ConcurrentReports : public ::testing::Test {
 protected:
  ConcurrentReports() {
    rrm::set_log_hook(say_nothing);
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("mmap");
    shared_ = new (memory) Shared;
    clock_ = std::make_unique<SharedClock>(*shared_);
    alarm(200);
  }
  ~ConcurrentReports() override {
    alarm(0);
    clock_.reset();
    munmap(shared_, sizeof(Shared));
  }

  // Saves that many reports, and does one other thing after each. What is wrong ends it with an exception.
  void work(int reports, unsigned seed) const {
    std::minstd_rand random(seed);
    for (int i = 0; i < reports; ++i) {
      const int number = save();
      switch (random() % 5) {
        case 0:
          check_list();
          break;
        case 1:
          check_report(number);
          break;
        case 2:
          check_newest();
          break;
        default:
          require(clean() == 0, "a cleanup failed");
      }
      shared_->operations += 2;
    }
  }

  // Every record that is to live, and no other, line by line.
  void check_files() const {
    ASSERT_EQ(clean(), 0);
    std::vector<std::time_t> times;
    std::set<int> found;
    const FileTexts files = files_in(dir_.path());
    const std::string index = files.at("report_idx_lab.txt");
    for (std::size_t at = 0; at < index.size(); at += line_length) {
      const int number = number_of(index.substr(at + 4, 19));
      EXPECT_TRUE(found.insert(number).second) << "twice: " << number;
      times.push_back(time_of(number));
    }
    std::set<int> alive;
    for (int number = 0; number < shared_->taken; ++number)
      if (shared_->saved[number] && shared_->lives(number)) alive.insert(number);
    EXPECT_EQ(found, alive);
    EXPECT_EQ(alive.size(), 49U);
    EXPECT_EQ(files, report_files("lab", times, radios));
  }

  void learn_how_a_report_looks() {
    const int number = save();
    rrm::JsonWriter writer;
    ASSERT_EQ(reports::get_last_radio_report(writer, "lab", path(), true), 0);
    report_ = replace_all(writer.to_string(), date_text(time_of(number)), "DATE");
    ASSERT_NE(report_.find(R"("report":{"id":"DATE,lab")"), std::string::npos);
  }

  std::string path() const { return dir_.path().string(); }

  Shared* shared_ = nullptr;

 private:
  static constexpr std::size_t line_length = 24;  // of the index

  static void require(bool right, const std::string& what) {
    if (!right) throw std::runtime_error(what);
  }

  int number_of(const std::string& date) const {
    for (int number = 0; number < shared_->taken; ++number)
      if (date_text(time_of(number)) == date) return number;
    throw std::runtime_error("nobody has saved a report of " + date);
  }

  int save() const {
    const int number = shared_->take_date();
    const std::string date = date_text(time_of(number));
    require(reports::save_radio_report_to_files(a_report(date, radios), "lab", date, path(), config_) == 0,
            "a report was not saved");
    shared_->saved[number] = true;
    return number;
  }

  int clean() const { return reports::delete_old_reports_in_domain("lab", days, path()); }

  void check_list() const {
    std::vector<int> saved;
    for (int number = 0; number < shared_->taken; ++number)
      if (shared_->saved[number]) saved.push_back(number);
    rrm::JsonWriter writer;
    require(reports::get_radio_report_list(writer, "lab", path(), date_text(start) + " UTC",
                                           date_text(start + 4000 * a_day) + " UTC", true) == 0,
            "no list");
    const std::string text = writer.to_string();
    std::set<std::string> listed;
    const std::string key = R"("id":")";
    for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at + 1))
      require(listed.insert(text.substr(at + key.size(), 19)).second, "listed twice: " + text.substr(at, 30));
    require(text.ends_with("\"count\":" + std::to_string(listed.size()) + "}"), "a count of its own");
    for (const int number : saved)
      require(listed.contains(date_text(time_of(number))) || !shared_->lives(number),
              "not listed: " + std::to_string(number));
  }

  void check_report(int number) const {
    const std::string date = date_text(time_of(number));
    rrm::JsonWriter writer;
    const int error = reports::get_radio_report(writer, date + ",lab", path());
    if (error != 0) return require(!shared_->lives(number), "not found: " + date);
    require(writer.to_string() == replace_all(report_, "DATE", date), "another report than " + date);
  }

  void check_newest() const {
    rrm::JsonWriter writer;
    require(reports::get_last_radio_report(writer, "lab", path(), true) == 0, "no newest report");
    const std::string text = writer.to_string();
    const auto id = text.find(R"("id":")");
    require(id != std::string::npos, "the newest report is empty");
    require(text == replace_all(report_, "DATE", text.substr(id + 6, 19)), "a newest report of parts");
  }

  const TempDir dir_;
  const rrm::DomainConfig config_{};
  std::unique_ptr<SharedClock> clock_;
  std::string report_;
};

TEST_F(ConcurrentReports, OfTwoProcessesAreNeitherLostNorTornNorDoubled) {
  constexpr int reports_each = 1000;
  learn_how_a_report_looks();
  std::vector<pid_t> processes;
  for (unsigned seed = 1; seed <= 2; ++seed) {
    const pid_t child = fork();
    if (child != 0) {
      processes.push_back(child);
      continue;
    }
    alarm(200);
    const FileWatch nothing_is_synced(path());
    try {
      work(reports_each, seed);
      _exit(0);
    } catch (const std::exception& wrong) {
      dprintf(STDERR_FILENO, "%s\n", wrong.what());
    }
    _exit(1);
  }
  for (const pid_t child : processes) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(shared_->taken, 1 + 2 * reports_each);
  check_files();
  std::printf("two processes: %d operations\n", shared_->operations.load());
}

TEST_F(ConcurrentReports, OfTwoThreadsAreNeitherLostNorTornNorDoubled) {
  constexpr int reports_each = 80;
  const FileWatch nothing_is_synced(path());
  learn_how_a_report_looks();
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= 2; ++seed) {
    threads.emplace_back([&, seed] {
      try {
        work(reports_each, seed);
      } catch (const std::exception& error) {
        ++wrong;
        std::fprintf(stderr, "%s\n", error.what());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(shared_->taken, 1 + 2 * reports_each);
  check_files();
}

TEST(ReportLock, IsTakenAgainWhenItsFileWasRemovedMeanwhile) {
  for (const bool made_anew : {false, true}) {
    const TempDir dir;
    const std::string file = dir.file(".report_lock_lab");
    auto held = std::make_unique<reports::DomainFileLock>("lab", dir.path().string(), true);
    ASSERT_EQ(held->error(), 0);
    int error = -1;
    bool locks_by_name = false;
    std::thread waiting([&] {
      const reports::DomainFileLock lock("lab", dir.path().string(), true);
      error = lock.error();
      const int other = open(file.c_str(), O_RDWR);
      locks_by_name = other >= 0 && flock(other, LOCK_EX | LOCK_NB) != 0;
      close(other);
    });
    EXPECT_TRUE(eventually([&] { return reports::testing::is_waited_for(file); }));
    EXPECT_TRUE(std::filesystem::remove(file));
    if (made_anew) write_file(file, "");
    held.reset();
    waiting.join();
    EXPECT_EQ(error, 0) << made_anew;
    EXPECT_TRUE(locks_by_name) << made_anew;
  }
}

}  // namespace
