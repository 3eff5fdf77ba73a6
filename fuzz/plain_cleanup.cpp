#include "fuzz/plain_cleanup.h"

#include <array>
#include <optional>
#include <sstream>
#include <vector>

#include "reports/cleanup.h"

namespace zal::fuzz {

namespace {

constexpr std::array<const char*, 3> live_files{report_index, report_config, report_data};

std::string tmp(const std::string& file) {
  return file + ".tmp";
}

std::string old(const std::string& file) {
  return file + ".old";
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

bool is_dropped(const std::string& line, std::time_t now, unsigned days) {
  return reports::is_report_line_expired_or_invalid(line, now, days * 86400.0, "");
}

bool has_expired_lines(const std::string& text, std::time_t now, unsigned days) {
  for (const std::string& line : lines_of(text)) {
    if (is_dropped(line, now, days)) return true;
  }
  return false;
}

// What stays of a file; nothing at all, not even an empty text, of a file without any line.
std::optional<std::string> kept_text(const std::string& text, std::time_t now, unsigned days) {
  const std::vector<std::string> lines = lines_of(text);
  if (lines.empty()) return std::nullopt;
  std::string kept;
  for (const std::string& line : lines) {
    if (!is_dropped(line, now, days)) kept += line + "\n";
  }
  return kept;
}

bool move(ReportTexts& files, const std::string& from, const std::string& to) {
  const auto found = files.find(from);
  if (found == files.end()) return false;
  files[to] = found->second;
  files.erase(from);
  return true;
}

bool copy_kept_lines(ReportTexts& files, std::time_t now, unsigned days) {
  for (const std::string file : live_files) {
    if (!files.contains(file)) return false;
    if (const auto kept = kept_text(files[file], now, days)) files[tmp(file)] = *kept;
  }
  return true;
}

bool put_copies_in_place(ReportTexts& files) {
  for (const std::string file : live_files) {
    if (!move(files, file, old(file))) return false;
  }
  for (const std::string file : live_files) {
    if (!move(files, tmp(file), file)) return false;
  }
  return true;
}

bool plain_rewrite(ReportTexts& files, std::time_t now, unsigned days) {
  for (const std::string file : live_files) files.erase(tmp(file));
  files[report_start] = "1\n";
  if (!copy_kept_lines(files, now, days) || !put_copies_in_place(files)) {
    plain_recovery(files);
    return false;
  }
  files.erase(report_start);
  for (const std::string file : live_files) files.erase(old(file));
  return true;
}

bool lacks_a_live_file(const ReportTexts& files) {
  for (const std::string file : live_files) {
    if (!files.contains(file)) return true;
  }
  return false;
}

}  // namespace

void plain_recovery(ReportTexts& files) {
  if (files.contains(report_done)) {
    for (const std::string file : live_files) files.erase(old(file));
    files.erase(report_done);
  } else if (files.contains(report_start)) {
    for (const std::string file : live_files) {
      files.erase(tmp(file));
      move(files, old(file), file);
    }
    files.erase(report_start);
  }
}

bool plain_cleanup(ReportTexts& files, std::time_t now, unsigned days) {
  if (files.contains(report_start) || files.contains(report_done)) {
    plain_recovery(files);
  } else if (lacks_a_live_file(files)) {
    for (const std::string file : live_files) files.erase(file);
    return true;
  }
  if (!files.contains(report_index)) return false;
  if (!has_expired_lines(files[report_index], now, days)) return true;
  return plain_rewrite(files, now, days);
}

bool is_at_rest(const ReportTexts& files) {
  for (const std::string file : live_files) {
    if (files.contains(tmp(file)) || files.contains(old(file))) return false;
  }
  return !files.contains(report_start) && !files.contains(report_done);
}

}  // namespace zal::fuzz
