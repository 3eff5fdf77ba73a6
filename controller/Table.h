// A table for people: one line of headers, then the rows, each column as wide as its widest cell and two blanks from
// the next. Cells may come from anybody: control characters are shown as \xNN, so no cell can look like a row, and an
// empty one as "-". A plain value.
#pragma once

#include <string>
#include <vector>

namespace controller {

class Table {
 public:
  using Row = std::vector<std::string>;

  explicit Table(Row headers);

  // Requires: as many cells as headers.
  void add(Row row);
  bool empty() const { return rows_.size() == 1; }
  // Lines that end with a line break.
  std::string text() const;

 private:
  std::vector<Row> rows_;  // the headers first
};

// A text from anybody on one line.
std::string printable(const std::string& text);

}  // namespace controller
