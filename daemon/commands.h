// The commands of the server's interface as JSON texts, each built from the values that it carries.
#pragma once

#include <string>
#include <vector>

namespace rrm {
class GlobalConfig;
}

namespace commands {

// Questions.
std::string sessions();
std::string drop_sessions(const std::vector<int>& ids);
std::string domains();
std::string domain(const std::string& domain);
std::string ap(const std::string& domain, const std::string& mac);
std::string ap_fbt(const std::string& domain, const std::string& mac);
std::string optimize(const std::string& domain);
// Dates as "YYYY-MM-DD,HH:MM:SS UTC".
std::string report_list(const std::string& domain, const std::string& date_start, const std::string& date_finish);
std::string report(const std::string& domain, const std::string& id);
std::string last_report(const std::string& domain);
std::string configured_domains();

// The role. `domains`, which may be empty, are texts of JSON objects, one for each domain to restore.
std::string role();
std::string role_backup();
std::string role_master();
std::string role_master(const std::vector<std::string>& domains);

// Edits that bring the server's configuration to what `next` says of a section. Requires: `next` has it.
std::string set_global(const rrm::GlobalConfig& next);
std::string set_pattern(const rrm::GlobalConfig& next, const std::string& pattern);
std::string add_pattern(const rrm::GlobalConfig& next, const std::string& pattern);
std::string remove_pattern(const std::string& pattern);
std::string set_domain(const rrm::GlobalConfig& next, const std::string& domain);
std::string add_domain(const rrm::GlobalConfig& next, const std::string& domain);
std::string remove_domain(const std::string& domain);

}  // namespace commands
