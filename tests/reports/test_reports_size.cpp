// The report files of a big site after years: 100 000 optimisations of 100 radios, 10 million lines, a gigabyte. With
// less than four gigabytes free, and under a sanitizer, they are smaller by two orders of magnitude.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <limits>
#include <new>
#include <stdexcept>

#include "json/JsonWriter.h"
#include "report_optimize_tpc_dca.h"
#include "reports/failing_files.h"
#include "reports/report_texts.h"
#include "support/capture.h"

using namespace rrm::testing;

namespace {

constexpr std::time_t now = 1'700'000'000;
constexpr int radios = 100;
constexpr std::uint32_t days = 100;  // half of them have expired
constexpr std::time_t all_days = 200;
#ifdef SANITIZED
constexpr bool sanitized = true;
constexpr long memory_limit_kib = std::numeric_limits<long>::max();  // the sanitizer's own is most of it
#else
constexpr bool sanitized = false;
constexpr long memory_limit_kib = 16 * 1024;
#endif

void say_nothing(const char*, int, const char*, int, const char*, va_list) {}

// The text of one report in one of the files, made without the code under test.
class Blocks {
 public:
  explicit Blocks(std::vector<std::string> tails) : tails_(std::move(tails)) {}

  const std::string& of(std::time_t time) {
    const std::string begin = "1.1," + date_text(time);
    block_.clear();
    for (const std::string& tail : tails_) block_.append(begin).append(tail);
    return block_;
  }

 private:
  const std::vector<std::string> tails_;
  std::string block_;
};

class BigSite : public ::testing::Test {
 protected:
  BigSite() {
    rrm::set_log_hook(say_nothing);
    const auto enough = std::uintmax_t{4} << 30;
    if (sanitized || std::filesystem::space(dir_.path()).available < enough) reports_ = 1000;
    std::vector<std::string> radio_tails;
    for (int i = 0; i < radios; ++i) radio_tails.push_back("," + radio_fields(i) + "\n");
    blocks_.emplace_back("report_lab.txt", Blocks(radio_tails));
    blocks_.emplace_back("report_cfg_lab.txt", Blocks({"," + reports::testing::default_settings + "\n"}));
    blocks_.emplace_back("report_idx_lab.txt", Blocks({"\n"}));
    for (auto& [name, blocks] : blocks_) write(dir_.file(name), blocks);
  }

  // Evenly over the days up to now.
  std::time_t time_of(int report) const { return now - all_days * a_day / reports_ * (reports_ - 1 - report); }

  // Of those with a time from `from` on.
  int count_from(std::time_t from) const {
    int count = 0;
    for (int i = 0; i < reports_; ++i) count += time_of(i) >= from ? 1 : 0;
    return count;
  }

  // True if the file has what was written from this time on, and nothing else.
  bool has_kept(const std::string& name, Blocks& blocks) const {
    std::ifstream file(dir_.file(name), std::ios::binary);
    std::string read;
    for (int i = 0; i < reports_; ++i) {
      if (time_of(i) < now - days * a_day) continue;
      const std::string& expected = blocks.of(time_of(i));
      read.resize(expected.size());
      if (!file.read(read.data(), static_cast<std::streamsize>(read.size())) || read != expected) return false;
    }
    return file.peek() == std::ifstream::traits_type::eof();
  }

  std::vector<std::string> files_named() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path()))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string path() const { return dir_.path().string(); }

  int reports_ = 100'000;
  std::vector<std::pair<std::string, Blocks>> blocks_;  // by file name
  const ManualClock clock_{1000, now};
  const TempDir dir_;

 private:
  void write(const std::string& name, Blocks& blocks) const {
    std::ofstream file(name, std::ios::binary);
    for (int i = 0; i < reports_; ++i) file << blocks.of(time_of(i));
    if (!file.flush()) throw std::runtime_error("cannot write " + name);
  }
};

// The most memory that this process has had since `forget_peak`.
long peak_kib() {
  std::ifstream status("/proc/self/status");
  for (std::string key; status >> key;) {
    long kib = 0;
    if (key == "VmHWM:" && status >> kib) return kib;
  }
  return -1;
}

void forget_peak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

struct Measured {
  int result = -1;
  long peak_kib = -1;
  double seconds = 0;
};

// Runs a cleanup in a process of its own.
Measured measure_cleanup(const std::string& path) {
  void* const memory = mmap(nullptr, sizeof(Measured), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("mmap");
  auto* const measured = new (memory) Measured;
  const pid_t child = fork();
  if (child == 0) {
    forget_peak();
    const auto begin = std::chrono::steady_clock::now();
    measured->result = reports::delete_old_reports_in_domain("lab", days, path);
    measured->seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    measured->peak_kib = peak_kib();
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  const Measured copy = *measured;
  munmap(memory, sizeof(Measured));
  return copy;
}

TEST_F(BigSite, IsCleanedInOnePassOfLittleMemoryAndListedByItsIndexAlone) {
  const Measured cleanup = measure_cleanup(path());
  std::printf("%d lines cleaned in %.1f s, peak memory %ld KiB\n", reports_ * radios, cleanup.seconds,
              cleanup.peak_kib);
  EXPECT_EQ(cleanup.result, 0);
  EXPECT_GT(cleanup.peak_kib, 0);
  EXPECT_LE(cleanup.peak_kib, memory_limit_kib);
  EXPECT_EQ(files_named(), (std::vector<std::string>{".report_lock_lab", "report_cfg_lab.txt", "report_idx_lab.txt",
                                                     "report_lab.txt"}));
  for (auto& [name, blocks] : blocks_) EXPECT_TRUE(has_kept(name, blocks)) << name;

  rrm::JsonWriter writer;
  const std::time_t month = 30 * a_day;
  const FileWatch watch(path());
  ASSERT_EQ(reports::get_radio_report_list(writer, "lab", path(), date_text(now - month) + " UTC",
                                           date_text(now + 1) + " UTC", true),
            0);
  EXPECT_TRUE(
      std::string(writer.to_string()).ends_with("],\"count\":" + std::to_string(count_from(now - month)) + "}"));
  std::vector<std::string> opened;
  for (const std::string& operation : watch.operations()) {
    if (operation.starts_with("open")) opened.push_back(operation);
    EXPECT_EQ(operation.find("report_lab"), std::string::npos) << operation;
    EXPECT_EQ(operation.find("report_cfg"), std::string::npos) << operation;
  }
  EXPECT_EQ(opened, (std::vector<std::string>{"open .report_lock_lab", "open report_idx_lab.txt"}));
}

}  // namespace
