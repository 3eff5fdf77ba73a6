// The rewrite of a domain's three files is a journal of names: ".tmp" is a new file that is not live yet, ".old" the
// previous live one until all is done. Two markers say how far it has come: with ".start_status" the old files count
// and are put back, with ".done_status" the new ones do and only the rest is removed. So a rewrite that was cut off, at
// whatever moment, is undone or finished by what lies there.
//
// The caller holds the domain's locks. All results are 0 or an errno value, after a log line.
#pragma once

#include <array>
#include <string>

#include "reports/file_names.h"

namespace reports {

struct RewriteFiles {
  RewriteFiles(const std::string& domain_name, const std::string& files_path);

  const ReportFiles live;
  const std::string start_status;
  const std::string done_status;

  // The live files in the order in which a rewrite goes through them.
  std::array<std::string, 3> in_order() const { return {live.index, live.config, live.report}; }
  bool unclean() const;
};

std::string tmp_name(const std::string& file);
std::string old_name(const std::string& file);

// What the system cannot tell counts as there: a file must not be taken for missing by mistake.
bool exists(const std::string& file);
int remove_file(const std::string& file);
int remove_if_there(const std::string& file);
// `purpose` is for the log line.
int rename_file(const std::string& from, const std::string& to, const char* purpose);

// Undoes or finishes what was cut off. Throws std::invalid_argument if an argument is empty.
int reports_recovery_procedure_in_domain(const std::string& domain_name, const std::string& files_path);
// The same where there is something to do, with a warning.
int recover_unclean_reports(const std::string& domain_name, const std::string& files_path);

}  // namespace reports
