// The backup of each domain, one file a domain, from which a new master takes the domain over: its access points with
// their radios, plans, 802.11r keys and what they heard. A backup is a series of ordinary questions to the running
// server. A file is replaced as a whole: whoever reads it, also after this process has crashed, finds the old one or
// the new one. Files are written too often to wait for the disk: a failure of the power may cut the youngest, which is
// then passed over like any file that is no backup.
//
// Main thread only; the interface is not owned.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ApiZAL.h"
#include "json/JsonReader.h"

class DomainBackup {
 public:
  DomainBackup(ApiZAL& api, std::string directory) : api_(api), directory_(std::move(directory)) {}

  // Saves one domain, or all that are configured. False, with the reason, at the first that cannot be saved; its file
  // stays as it was. Without the directory nothing is saved, and there is no reason to tell.
  bool save(const std::string& domain, std::string& error);
  bool save_all(std::string& error);

  // The texts of all backups that can be read, in the order of the directory.
  std::vector<std::string> load_all() const;

 private:
  bool has_directory() const;
  void write_file(const std::string& domain) const;
  std::string build_domain_backup(const std::string& domain) const;
  // The pictures of the access points of a set, joined by commas.
  std::string join_aps(const std::string& domain, const rrm::JsonReader& set, const std::string& key) const;
  // Empty for an access point that has left its set meanwhile.
  std::string ap_picture(const std::string& domain, const rrm::JsonReader& known, const std::string& key) const;

  ApiZAL& api_;
  const std::string directory_;
};
