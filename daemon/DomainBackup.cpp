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

namespace {

using rrm::JsonReader;

constexpr const char* extension = ".json";

// A backup is written under this name until it is whole. One name serves all: backups are written one by one, and it
// fits wherever the name of a domain's file does.
constexpr const char* unfinished_name = ".unfinished";

std::string text_at(const zal::cfg_t* node, const char* key) {
  std::string text;
  zal::cfg_object_to_string(zal::cfg_get_value(node, key), &text);
  return text;
}

zal::cfg_tree parse_strictly(const std::string& text) {
  return zal::cfg_tree(zal::cfg_parse_buffer(text.data(), text.size()));
}

// The same text with U+FFFD for every byte that is not UTF-8, which is how a tree writes such bytes.
std::string as_utf8(const std::string& text) {
  const zal::cfg_tree written(zal::cfg_get_empty());
  zal::cfg_set_param(written.get(), "/text", text);
  return text_at(parse_strictly(zal::cfg_serialize_compact(written.get())).get(), "text");
}

// A network's name may be any bytes, but a tree is UTF-8.
zal::cfg_tree parse(const std::string& text) {
  zal::cfg_tree tree = parse_strictly(text);
  if (tree == nullptr) tree = parse_strictly(as_utf8(text));
  if (tree == nullptr) throw ApiFailure(answers::malformed);
  return tree;
}

// Puts the full form of the VAPs, keys and all, in place of the short one in each radio of an access point.
void merge_vaps(zal::cfg_t* ap, const zal::cfg_t* links) {
  const zal::cfg_t* interfaces = zal::cfg_get_subtree_from_path(ap, "/radios/interfaces");
  const zal::cfg_t* radios = zal::cfg_get_value(links, "radios");
  const std::size_t count = zal::cfg_get_size(interfaces);
  if (interfaces == nullptr || radios == nullptr || zal::cfg_get_size(radios) != count) {
    throw ApiFailure(answers::malformed);
  }
  for (std::size_t i = 0; i < count; ++i) {
    const std::string place = "/" + std::to_string(i) + "/vaps";
    const zal::cfg_t* vaps = zal::cfg_get_subtree_from_path(radios, place.c_str());
    if (vaps == nullptr || !zal::cfg_set_param(ap, ("/radios/interfaces" + place).c_str(), vaps)) {
      throw ApiFailure(answers::malformed);
    }
  }
}

void copy_text(const JsonReader& from, const char* key, zal::cfg_t* to) {
  if (from.has(key)) zal::cfg_set_param(to, (std::string("/") + key).c_str(), std::string(from.get_string(key)));
}

void copy_number(const JsonReader& from, const char* key, zal::cfg_t* to) {
  if (from.has(key)) zal::cfg_set_param(to, (std::string("/") + key).c_str(), from.get_int(key));
}

// An object with all of a domain's picture but its access points.
std::string head_of(const std::string& domain, const JsonReader& details) {
  const zal::cfg_tree head(zal::cfg_get_empty());
  if (head == nullptr) throw ApiFailure(answers::no_memory);
  zal::cfg_set_param(head.get(), "/name", domain);
  copy_number(details, "rrm-status", head.get());
  copy_number(details, "fbt-status", head.get());
  return zal::cfg_serialize_compact(head.get());
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
    const zal::cfg_tree ap = ap_picture(domain, known.get_string("mac"), key);
    if (ap == nullptr) return;
    for (const char* part : {"board", "hw", "serial"}) copy_text(known, part, ap.get());
    list += (list.empty() ? "" : ",") + zal::cfg_serialize_compact(ap.get());
  });
  return list;
}

// Null for an access point that has left its set meanwhile.
zal::cfg_tree DomainBackup::ap_picture(const std::string& domain, const std::string& mac,
                                       const std::string& key) const {
  const auto whole =
      api_.ask(commands::ap(domain, mac), "no answer on morvane api request for specific ap '" + mac + "'");
  const auto links =
      api_.ask(commands::ap_fbt(domain, mac), "no answer on morvane api fbt-info request for '" + mac + "'");
  if (!whole.has(key.c_str()) || !links.has(key.c_str())) return nullptr;
  zal::cfg_tree ap = parse(whole.get(key.c_str()).to_string());
  const zal::cfg_tree links_tree = parse(links.get(key.c_str()).to_string());
  merge_vaps(ap.get(), links_tree.get());
  return ap;
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
