// The directory of a domain's reports in any state, with any texts, and a clean-up that is stopped anywhere in it. The
// input's first line says for how many days reports are kept, at which operation on a file the run is stopped, and how
// (0: nothing is done from there on; 1, 2: this one alone fails). The files follow, each under its short name.
#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>

#include "Config.h"
#include "fuzz/fuzz.h"
#include "fuzz/plain_cleanup.h"
#include "fuzz/scratch_dir.h"
#include "fuzz/sections.h"
#include "fuzz/silence.h"
#include "fuzz/standing_clock.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "report_optimize_tpc_dca.h"
#include "reports/cleanup.h"
#include "reports/failing_files.h"
#include "reports/lines.h"
#include "support/temp_dir.h"

namespace {

using namespace zal::fuzz;
using rrm::testing::FileFault;
using rrm::testing::FileWatch;

constexpr std::time_t now = 1'795'287'600;  // 2026-11-21, 19:00:00
constexpr const char* first_date = "2020-01-01,00:00:00 UTC";
constexpr const char* last_date = "2030-01-01,00:00:00 UTC";
constexpr const char* new_date = "2026-11-21,19:00:00";

struct Scene {
  unsigned days = 1;
  unsigned stop_at = 0;
  FileFault fault = FileFault::gone;
  ReportTexts files;
};

std::string full_name(const std::string& name) {
  if (name == "start") return report_start;
  if (name == "done") return report_done;
  const std::size_t point = std::min(name.find('.'), name.size());
  const std::string suffix = name.substr(point);
  if (suffix != "" && suffix != ".tmp" && suffix != ".old") return "";
  if (name.substr(0, point) == "index") return report_index + suffix;
  if (name.substr(0, point) == "config") return report_config + suffix;
  return name.substr(0, point) == "data" ? report_data + suffix : "";
}

Scene read_scene(const std::string& input) {
  const Sections sections = read_sections(input);
  Scene scene;
  unsigned fault = 0;
  std::sscanf(sections.head.c_str(), "%5u %5u %5u", &scene.days, &scene.stop_at, &fault);
  scene.days = std::max(scene.days, 1U);
  const FileFault faults[] = {FileFault::gone, FileFault::eio, FileFault::enospc};
  scene.fault = faults[fault % 3];
  for (const Section& section : sections.list) {
    const std::string name = full_name(section.name);
    if (!name.empty()) scene.files[name] = section.text;
  }
  return scene;
}

class Directory {
 public:
  const std::string& path() const { return dir_.path(); }

  void lay(const ReportTexts& files) const {
    dir_.clear();
    for (const auto& [name, text] : files) rrm::testing::write_file(dir_.file(name), text);
  }

  // But for the lock file, which stays.
  ReportTexts present() const { return dir_.files(".report_lock_"); }

  bool clean(unsigned days) const { return reports::delete_old_reports_in_domain("lab", days, path()) == 0; }

 private:
  const ScratchDir dir_;
};

std::time_t time_of(const std::string& line) {
  std::string date;
  std::time_t time = 0;
  const bool is_read = reports::get_date_time_fields_from_file_line_as_str(line, date) == 0 &&
                       reports::parse_date_time_fields_to_time_t(date, time) == 0;
  return is_read ? time : -1;
}

// Of the index; -1 if one of its lines has no date.
int listed_reports(const ReportTexts& files) {
  const auto index = files.find(report_index);
  if (index == files.end()) return 0;
  constexpr std::time_t first = 1'577'836'800;
  constexpr std::time_t last = 1'893'456'000;
  int count = 0;
  std::istringstream lines(index->second);
  for (std::string line; std::getline(lines, line);) {
    const std::time_t time = time_of(line);
    if (time == -1) return -1;
    count += time >= first && time < last ? 1 : 0;
  }
  return count;
}

// Queries work as far as the index can be read, and change nothing.
void check_queries(const Directory& directory, const ReportTexts& files) {
  rrm::JsonWriter list;
  const int error = reports::get_radio_report_list(list, "lab", directory.path(), first_date, last_date, true);
  const int count = listed_reports(files);
  require((error == 0) == (count >= 0), "reports are listed where every line of the index has its date");
  if (error == 0) require(rrm::JsonReader(list.to_string()).get_int("count") == count, "all are listed");
  rrm::JsonWriter last;
  static_cast<void>(reports::get_last_radio_report(last, "lab", directory.path(), true));
  require(directory.present() == files, "a query changes no file");
}

void check_whole_run(const Directory& directory, const Scene& scene) {
  directory.lay(scene.files);
  ReportTexts expected = scene.files;
  for (int run = 0; run == 0 || (run == 1 && !is_at_rest(expected)); ++run) {
    const bool is_expected = plain_cleanup(expected, now, scene.days);
    require(directory.clean(scene.days) == is_expected, "a run succeeds where it should");
    require(directory.present() == expected, "a run leaves the files that it should");
  }
}

// As often as a day's run may have to be tried.
void settle(ReportTexts& files, unsigned days) {
  for (int run = 0; run < 3; ++run) static_cast<void>(plain_cleanup(files, now, days));
}

std::string without_unfinished_line(const std::string& text) {
  return text.substr(0, text.rfind('\n') + 1);
}

// A report that is saved next is added to the reports that count, and each of these stays as it is.
void check_saving(const Directory& directory) {
  ReportTexts expected = directory.present();
  plain_recovery(expected);
  const int error = reports::save_radio_report_to_files({}, "lab", new_date, directory.path(), rrm::DomainConfig());
  require(error == 0, "a report is saved");
  const ReportTexts files = directory.present();
  for (const char* name : {report_index, report_config, report_data}) {
    const std::string kept = without_unfinished_line(expected[name]);
    const std::string& text = files.at(name);
    require(text.starts_with(kept), "whole lines stay");
    const std::string added = text.substr(kept.size());
    if (name == report_data) {
      require(added.empty(), "no radio has a line");
    } else {
      require(added.starts_with(std::string("1.1,") + new_date), "one is added");
      require(added.find('\n') == added.size() - 1, "one line");
    }
  }
}

void check_stopped_run(const Directory& directory, const Scene& scene) {
  ReportTexts expected = scene.files;
  plain_recovery(expected);
  plain_recovery(expected);
  const bool was_orderly = is_at_rest(expected);
  expected = scene.files;
  settle(expected, scene.days);

  directory.lay(scene.files);
  {
    const FileWatch watch(directory.path(), scene.stop_at, scene.fault);
    static_cast<void>(directory.clean(scene.days));
  }
  const FileWatch nothing_is_synced(directory.path());
  const ReportTexts left = directory.present();
  check_queries(directory, left);
  ReportTexts settled = left;
  for (int run = 0; run < 3 && !(directory.clean(scene.days) && is_at_rest(settled)); ++run) {
    settled = directory.present();
  }
  settled = directory.present();
  if (was_orderly) require(settled == expected, "it does not matter where a run was stopped");
  check_queries(directory, settled);
  directory.lay(left);
  check_saving(directory);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::silence_logs();
  const StandingClock clock(now);
  const Scene scene = read_scene(std::string(reinterpret_cast<const char*>(data), size));
  static const Directory directory;
  {
    const FileWatch nothing_is_synced(directory.path());
    check_whole_run(directory, scene);
  }
  check_stopped_run(directory, scene);
  return 0;
}
