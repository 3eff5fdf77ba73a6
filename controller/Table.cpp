#include "controller/Table.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace controller {

namespace {

constexpr const char* gap = "  ";

bool is_control(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

// In characters of UTF-8: bytes that go on with one do not count.
std::size_t width_of(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

void append_padded(std::string& line, const std::string& cell, std::size_t width) {
  line += cell;
  line.append(width - width_of(cell), ' ');
  line += gap;
}

}  // namespace

std::string printable(const std::string& text) {
  std::string line;
  for (const char c : text) {
    if (is_control(c)) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
      line += escaped;
    } else {
      line += c;
    }
  }
  return line;
}

Table::Table(Row headers) {
  rows_.push_back(std::move(headers));
}

void Table::add(Row row) {
  for (std::string& cell : row) cell = cell.empty() ? "-" : printable(cell);
  rows_.push_back(std::move(row));
}

std::string Table::text() const {
  std::vector<std::size_t> widths(rows_.front().size());
  for (const Row& row : rows_)
    for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  std::string text;
  for (const Row& row : rows_) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) append_padded(text, row[i], widths[i]);
    text += row.back() + "\n";
  }
  return text;
}

}  // namespace controller
