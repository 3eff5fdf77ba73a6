// The backup of each domain, one file a domain, from which a new master takes the domain over: its access points with
// their radios, plans, 802.11r keys and what they heard. A backup is a series of ordinary questions to the running
// server. Main thread only; owns nothing.
#pragma once

#include <string>
#include <vector>

#include "ApiZAL.h"

class DomainBackup {
 public:
  explicit DomainBackup(ApiZAL& api, std::string directory) : api_(api), directory_(std::move(directory)) {}

  // Saves one domain, or all that are configured. False, with the reason, at the first that cannot be saved; its file
  // stays as it was. Without the directory nothing is saved, and there is no reason to tell.
  bool save(const std::string& domain, std::string& error);
  bool save_all(std::string& error);

  // The texts of all backups that can be read, in the order of the directory.
  std::vector<std::string> load_all() const;

 private:
  bool has_directory() const;
  void write_file(const std::string& domain);
  std::string build_domain_backup(const std::string& domain);
  void add_aps(const std::string& domain, const rrm::JsonReader& details, const char* set, const char* key,
               rrm::JsonWriter& backup);

  ApiZAL& api_;
  const std::string directory_;
};
