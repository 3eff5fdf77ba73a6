#include "DomainBackup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "answers.h"
#include "commands.h"
#include "json/JsonWriter.h"

namespace {

using rrm::JsonReader;
using rrm::JsonWriter;

constexpr const char* extension = ".json";

// A backup is written under this name until it is whole. One name serves all: backups are written one by one, and it
// fits wherever the name of a domain's file does.
constexpr const char* unfinished_name = ".unfinished";

// What a picture of an access point takes while it is made.
constexpr std::size_t arena_block = std::size_t{64} * 1024;

// An access point's radios with the full form of their VAPs, keys and all, in place of the short one.
void write_radios(JsonWriter& ap, const JsonReader& own, const JsonReader& links) {
  const JsonReader interfaces = own.get_array("interfaces");
  const JsonReader full = links.get_array("radios");
  if (!interfaces.is_array() || !full.is_array() || interfaces.size() != full.size()) {
    throw ApiFailure(answers::malformed);
  }
  JsonWriter radios = JsonWriter::object(ap, "radios");
  radios.add_members(own);
  JsonWriter array = JsonWriter::array(radios, "interfaces");
  for (int i = 0; i < interfaces.size(); ++i) {
    if (!interfaces.at(i).value().is_object() || !full.at(i).has("vaps")) throw ApiFailure(answers::malformed);
    JsonWriter interface = JsonWriter::object(array, nullptr);
    interface.add_members(interfaces.at(i));
    interface.add_value("vaps", full.at(i).get("vaps"));
  }
}

// An object with all of a domain's picture but its access points.
std::string head_of(const std::string& domain, const JsonReader& details) {
  JsonWriter head;
  head.add_string("name", domain);
  for (const char* status : {"rrm-status", "fbt-status"}) {
    if (details.has(status)) head.add_int(status, details.get_int(status));
  }
  return head.to_string();
}

// Made anew, so that nothing is written through a link that lies there, and for the daemon's user alone: it holds keys.
bool is_made(const std::string& file) {
  static_cast<void>(std::remove(file.c_str()));
  const int descriptor = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  return descriptor >= 0 && ::close(descriptor) == 0;
}

bool is_written(const std::string& file, const std::string& text) {
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << text;
  stream.close();
  return !stream.fail();
}

// A full disk is given back what the attempt took.
void replace_file(const std::string& file, const std::string& unfinished, const std::string& text) {
  if (is_made(unfinished) && is_written(unfinished, text) && std::rename(unfinished.c_str(), file.c_str()) == 0) return;
  const int reason = errno;
  static_cast<void>(std::remove(unfinished.c_str()));
  throw ApiFailure("cannot write '" + file + "': " + std::strerror(reason));
}

// A text that would break the command that all backups are joined in must not keep the others from being restored: it
// has to be readable by itself and in its place.
bool is_backup(const std::string& text) {
  if (JsonReader(text.c_str()).empty()) return false;
  const JsonReader command(commands::role_master({text}).c_str());
  return command.get("vrrp").get("domains").at(0).has("name");
}

// Up to the first zero byte: a file system that lost its power may have left a file longer than it was written, by any
// length. And up to the first byte that the disk does not give.
std::string read_text(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::string content;
  std::getline(stream, content, '\0');
  return content;
}

}  // namespace

bool DomainBackup::save(const std::string& domain, std::string& error) {
  return has_directory() && answers::attempt(error, [&] { write_file(domain); });
}

bool DomainBackup::save_all(std::string& error) {
  return has_directory() && answers::attempt(error, [&] {
           for (const std::string& domain : api_.configured_domains()) write_file(domain);
         });
}

bool DomainBackup::has_directory() const {
  struct stat status {};
  return ::stat(directory_.c_str(), &status) == 0;
}

// A name with a slash would lead to another directory.
void DomainBackup::write_file(const std::string& domain) const {
  if (domain.find('/') != std::string::npos) throw ApiFailure("no file can be named after domain '" + domain + "'");
  const std::string text = build_domain_backup(domain);
  replace_file(directory_ + domain + extension, directory_ + unfinished_name, text);
}

// The text is joined from one for each access point: a tree of a whole domain would be copied again and again.
std::string DomainBackup::build_domain_backup(const std::string& domain) const {
  const JsonReader answer = api_.ask_domain(domain);
  const JsonReader details = answer.get("details");
  const std::string aps = join_aps(domain, details.get("aps"), "active-ap");
  const std::string unanswered_aps = join_aps(domain, details.get("unanswered-aps"), "unanswered-ap");
  const std::string deleted_aps = join_aps(domain, details.get("deleted-aps"), "deleted-ap");
  std::string text = head_of(domain, details);
  text.pop_back();
  text += R"(,"aps":[)" + aps + R"(],"deleted-aps":[)" + deleted_aps + R"(],"unanswered-aps":[)" + unanswered_aps;
  return text + "]}";
}

std::string DomainBackup::join_aps(const std::string& domain, const JsonReader& set, const std::string& key) const {
  std::string list;
  answers::for_each(set, [&](const JsonReader& known) {
    const std::string ap = ap_picture(domain, known, key);
    if (!list.empty() && !ap.empty()) list += ',';
    list += ap;
  });
  return list;
}

std::string DomainBackup::ap_picture(const std::string& domain, const JsonReader& known, const std::string& key) const {
  const std::string mac = known.get_string("mac");
  const auto whole =
      api_.ask(commands::ap(domain, mac), "no answer on morvane api request for specific ap '" + mac + "'");
  const auto links =
      api_.ask(commands::ap_fbt(domain, mac), "no answer on morvane api fbt-info request for '" + mac + "'");
  if (!whole.has(key.c_str()) || !links.has(key.c_str())) return {};
  JsonWriter ap;
  ap.use_arena(arena_block).add_members(whole.get(key.c_str()));
  write_radios(ap, whole.get(key.c_str()).get_object("radios"), links.get(key.c_str()));
  for (const char* part : {"board", "hw", "serial"}) {
    if (known.has(part)) ap.add_string(part, known.get_string(part));
  }
  return ap.to_string();
}

std::vector<std::string> DomainBackup::load_all() const {
  std::vector<std::string> backups;
  std::error_code error;
  std::error_code not_told;
  for (std::filesystem::directory_iterator at(directory_, error), end; !error && at != end; at.increment(error)) {
    if (at->path().extension() != extension || !at->is_regular_file(not_told)) continue;
    std::string text = read_text(at->path());
    if (is_backup(text)) backups.push_back(std::move(text));
  }
  return backups;
}
