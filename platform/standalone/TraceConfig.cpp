#include "platform/standalone/TraceConfig.h"

#include <array>
#include <utility>

#include "platform/bus/Frame.h"

namespace zal {

namespace {

constexpr std::array<std::pair<const char*, Grade>, 4> grades{
    {{"ap", Grade::ap}, {"sys", Grade::sys}, {"warn", Grade::warn}, {"error", Grade::error}}};

// One key after another is taken over or complained of.
class Reader {
 public:
  Reader(const bus::Fields& fields, std::string& complaint) : fields_(fields), complaint_(complaint) {}

  template <class Number>
  void number(const char* key, Number& value, std::int64_t least, std::int64_t most) {
    if (!fields_.find(key)) return;
    const auto given = fields_.number(key);
    if (given && *given >= least && *given <= most)
      value = static_cast<Number>(*given);
    else
      complain(key);
  }

  void grade(const char* key, Grade& value) {
    if (!fields_.find(key)) return;
    const std::string* given = fields_.text(key);
    for (const auto& [name, grade] : grades)
      if (given && *given == name) return void(value = grade);
    complain(key);
  }

 private:
  void complain(const char* key) {
    if (!complaint_.empty()) complaint_ += ", ";
    complaint_ += "bad value of '" + std::string(key) + "'";
  }

  const bus::Fields& fields_;
  std::string& complaint_;
};

}  // namespace

const char* grade_name(Grade grade) {
  return grades.at(static_cast<std::size_t>(grade)).first;
}

TraceConfig parse_trace_config(std::string_view text, std::string& complaint) {
  TraceConfig config;
  complaint.clear();
  if (text.empty()) return config;
  const auto fields = bus::parse_fields(text, complaint);
  if (!fields) return config;
  Reader reader(*fields, complaint);
  reader.grade("grade", config.lowest_grade);
  reader.number("lines_per_second", config.lines_per_second, 1, 1000000);
  reader.number("library_lines_per_second", config.library_lines_per_second, 0, 1000000);
  reader.number("max_file_bytes", config.max_file_bytes, 65536, 1 << 30);
  reader.number("max_files", config.max_files, 1, 100);
  return config;
}

}  // namespace zal
