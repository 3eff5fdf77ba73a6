// Several texts in one input, each under a line of "=" and its name. With "~" for the "=" the last byte of the text is
// missing, as of a file that was cut off. What stands before the first such line is the head.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace zal::fuzz {

struct Section {
  std::string name;
  std::string text;
  bool is_cut = false;
};

struct Sections {
  std::string head;
  std::vector<Section> list;
};

inline Sections read_sections(const std::string& input) {
  Sections sections;
  std::istringstream lines(input);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('=') || line.starts_with('~')) {
      sections.list.push_back({line.substr(1), "", line[0] == '~'});
    } else {
      (sections.list.empty() ? sections.head : sections.list.back().text) += line + "\n";
    }
  }
  for (Section& section : sections.list) {
    if (section.is_cut && !section.text.empty()) section.text.pop_back();
  }
  return sections;
}

}  // namespace zal::fuzz
