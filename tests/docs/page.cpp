#include "docs/page.h"

#include <sstream>
#include <stdexcept>

#include "support/temp_dir.h"

namespace docs {
namespace {

constexpr const char* fence = "```";

bool starts_an_example(const std::string& line) {
  return line.starts_with("> ") || line.starts_with("< ") || line.starts_with("! ");
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" `");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" `") - first + 1);
}

std::vector<std::string> cells_of(const std::string& row) {
  std::vector<std::string> cells;
  std::istringstream text(row);
  for (std::string cell; std::getline(text, cell, '|');) cells.push_back(trimmed(cell));
  return cells;
}

// The sign alone stands for an answer without words, whatever an editor makes of the blank behind it.
std::string with_blank(const std::string& line) {
  return line == "<" || line == "!" ? line + " " : line;
}

void add_line(std::vector<Exchange>& exchanges, int number, const std::string& line) {
  const bool asks = line.starts_with("> ");
  if (asks || exchanges.empty()) exchanges.push_back({number, "", {}});
  Exchange& present = exchanges.back();
  if (asks) {
    present.ask = line.substr(2);
  } else if (starts_an_example(line)) {
    present.answers.push_back(line);
  } else {
    (present.answers.empty() ? present.ask : present.answers.back()) += line;
  }
}

}  // namespace

Page::Page(const std::string& path) : text_(rrm::testing::read_file(path)) {
  std::istringstream lines(text_);
  bool is_inside = false;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.starts_with(fence)) {
      is_inside = !is_inside;
      if (is_inside) blocks_.push_back({number + 1, line.substr(3), ""});
    } else if (is_inside) {
      blocks_.back().text += line + "\n";
    }
  }
  if (is_inside) throw std::logic_error(path + ": a block without an end");
}

const std::string& Page::text_of(const std::string& kind) const {
  for (const Block& block : blocks_)
    if (block.kind == kind) return block.text;
  throw std::logic_error("no block " + kind);
}

std::vector<Exchange> Page::exchanges(const std::string& kind) const {
  std::vector<Exchange> all;
  for (const Block& block : blocks_) {
    if (block.kind != kind) continue;
    std::istringstream lines(block.text);
    int number = block.line;
    for (std::string line; std::getline(lines, line); ++number) add_line(all, number, with_blank(line));
  }
  for (Exchange& exchange : all) {
    exchange.ask = compact(exchange.ask);
    for (std::string& answer : exchange.answers)
      if (answer.starts_with("< ")) answer = "< " + compact(answer.substr(2));
  }
  return all;
}

std::map<std::string, std::string> Page::table(const std::string& first_head, const std::string& second_head) const {
  std::map<std::string, std::string> rows;
  std::istringstream lines(text_);
  bool is_inside = false;
  for (std::string line; std::getline(lines, line);) {
    const auto cells = cells_of(line);
    if (!line.starts_with("|") || cells.size() < 3) {
      is_inside = false;
    } else if (cells[1] == first_head && cells[2] == second_head) {
      is_inside = true;
    } else if (is_inside && !cells[1].starts_with("---")) {
      rows[cells[1]] = cells[2];
    }
  }
  return rows;
}

std::string compact(const std::string& json) {
  std::string text;
  bool is_in_text = false;
  for (std::size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (is_in_text && c == '\\') {
      text += json[i++];
    } else if (c == '"') {
      is_in_text = !is_in_text;
    }
    if (is_in_text || (c != ' ' && c != '\n')) text += json[i];
  }
  return text;
}

}  // namespace docs
