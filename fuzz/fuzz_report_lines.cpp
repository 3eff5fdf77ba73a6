// The files of reports with any content: each line by its fields, the whole as an index, as settings and as data.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>

#include "fuzz/fuzz.h"
#include "fuzz/silence.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "reports/file_sync.h"
#include "reports/lines.h"
#include "reports/queries.h"
#include "support/temp_dir.h"

namespace {

using namespace reports;
using zal::fuzz::require;

// A file that lies nowhere, under a name that it can be opened by.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& content) : fd_(::memfd_create("reports", MFD_CLOEXEC)) {
    require(fd_ >= 0, "there is memory");
    require(::write(fd_, content.data(), content.size()) == static_cast<ssize_t>(content.size()), "it holds the input");
  }
  ~MemoryFile() { ::close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string name() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  const int fd_;
};

void read_fields(const std::string& line) {
  for (std::size_t num = 0; num < 30; ++num) {
    std::string strict;
    std::string lenient;
    const int error = get_field_by_num_as_str(line, num, strict);
    require(error == 0 || (error == EINVAL && strict.empty()), "a field that is not there is empty");
    require(error != 0 || !strict.empty(), "a field that is there is not");
    require(strict.find(',') == std::string::npos, "a field ends at its separator");
    const int found = get_field_by_num_as_str(line, num, lenient, ',', true);
    require(error != 0 || (found == 0 && lenient == strict), "both agree on a field with a text");
    std::int32_t number = -1;
    require(get_field_by_num_as_int(line, num, number) == 0 || number == 0, "what is no number is 0");
  }
}

// The date of the line, empty if it has none.
std::string read_date(const std::string& line) {
  std::string date;
  const int error = get_date_time_fields_from_file_line_as_str(line, date);
  require((error == 0) == !date.empty(), "there is a date or an error");
  std::time_t time = 0;
  if (error != 0 || parse_date_time_fields_to_time_t(date, time) != 0) return date;
  std::time_t again = 0;
  const std::string text = report_date_text(time);
  if (text.size() != report_date_length) return date;  // of a year without four digits
  require(parse_date_time_fields_to_time_t(text, again) == 0 && again == time, "a moment is read back");
  require(get_utc_timestamp_from_string(text + " UTC", again) == 0 && again == time, "and asked for");
  return date;
}

void read_report(const MemoryFile& file, const std::string& date) {
  const ReportName name{date + ",lab", "lab", date};
  rrm::JsonWriter writer;
  for (const auto read : {get_radio_report_domain_config, get_radio_report_data}) {
    const int error = read(writer, name, file.name());
    require(error == 0 || error == EINVAL || error == EIO, "a report is there, not there or unreadable");
  }
  const rrm::JsonReader json(writer.to_string());
  require(json.has("domain_config") && json.has("details"), "what is written is JSON");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::silence_logs();
  const std::string content(reinterpret_cast<const char*>(data), size);
  const MemoryFile file(content);
  std::istringstream lines(content);
  std::string line;
  std::string date;
  while (std::getline(lines, line)) {
    read_fields(line);
    const std::string its_date = read_date(line);
    if (date.empty()) date = its_date;
  }
  if (!date.empty()) read_report(file, date);

  off_t kept = -1;
  require(keep_whole_lines(file.name(), kept) == 0, "an unfinished line can be cut");
  const auto length = static_cast<std::size_t>(kept);
  require(length <= size && (length == 0 || content[length - 1] == '\n'), "whole lines stay");
  require(content.find('\n', length) == std::string::npos, "all of them");
  require(rrm::testing::read_file(file.name()) == content.substr(0, length), "and nothing else");
  return 0;
}
