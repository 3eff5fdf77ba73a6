#include "sim/report_text.h"

#include <cstdarg>
#include <cstdio>

namespace sim {

std::string line(const char* format, ...) {
  va_list arguments;
  va_list again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int size = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, again);
  va_end(again);
  text.pop_back();
  return text;
}

std::string checks_text(const std::vector<Check>& checks) {
  std::string text;
  for (const Check& check : checks) {
    text += std::string(check.passed ? "ok      " : "FAILED  ") + check.name + ": " + check.measured + "\n";
  }
  return text;
}

nlohmann::ordered_json checks_json(const std::vector<Check>& checks) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const Check& check : checks) {
    list.push_back({{"name", check.name}, {"measured", check.measured}, {"passed", check.passed}});
  }
  return list;
}

}  // namespace sim
