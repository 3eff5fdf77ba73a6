// A page of the documentation as a test reads it: its tables, and its fenced blocks with the examples in them.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace docs {

struct Block {
  int line = 0;      // of its first line of text
  std::string kind;  // what stands behind the fence
  std::string text;
};

// What is asked, and what comes back: each a whole text of one line, whatever lines the page gives it.
struct Exchange {
  int line = 0;
  std::string ask;  // empty if something comes unasked
  std::vector<std::string> answers;
};

class Page {
 public:
  explicit Page(const std::string& path);

  // The first block of this kind; throws std::logic_error if there is none.
  const std::string& text_of(const std::string& kind) const;
  // The examples of all blocks of this kind, in the order of the page. In a block, a line that begins with "> " asks
  // and one with "< " or "! " answers; other lines continue the one above.
  std::vector<Exchange> exchanges(const std::string& kind) const;
  // The second column's text by the first column's, backquotes taken off both, of the table whose heads these are.
  std::map<std::string, std::string> table(const std::string& first_head, const std::string& second_head) const;
  const std::string& text() const { return text_; }

 private:
  std::string text_;
  std::vector<Block> blocks_;
};

// JSON without the blanks that a page is set with: those outside of texts.
std::string compact(const std::string& json);

}  // namespace docs
