#include "controller/PrivateView.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/bus/UniqueFd.h"

namespace controller {

namespace fs = std::filesystem;
using zal::bus::UniqueFd;

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void check(int result, const std::string& what) {
  if (result != 0) fail(what);
}

void write_text(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  if (!file.flush()) fail(std::string("cannot write ") + path);
}

std::string map_to_itself(unsigned id) {
  return std::to_string(id) + " " + std::to_string(id) + " 1";
}

// Who may not mount on the host may do so as the lord of a user namespace.
void enter_namespaces() {
  if (unshare(CLONE_NEWNS) == 0) return;
  const unsigned user = geteuid();
  const unsigned group = getegid();
  check(unshare(CLONE_NEWUSER | CLONE_NEWNS), "neither a mount namespace nor a user namespace");
  write_text("/proc/self/setgroups", "deny");
  write_text("/proc/self/uid_map", map_to_itself(user));
  write_text("/proc/self/gid_map", map_to_itself(group));
}

UniqueFd clone_of(const std::string& directory, unsigned flags) {
  UniqueFd clone(open_tree(AT_FDCWD, directory.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | flags));
  if (!clone) fail("cannot clone " + directory);
  return clone;
}

void mount_clone(const UniqueFd& clone, const std::string& target) {
  check(move_mount(clone.get(), "", AT_FDCWD, target.c_str(), MOVE_MOUNT_F_EMPTY_PATH), "cannot mount on " + target);
}

// Makes `copy` lead to the original.
void mirror(const fs::directory_entry& original, const fs::path& copy) {
  if (original.is_symlink()) return fs::create_symlink(fs::read_symlink(original.path()), copy);
  if (original.is_directory())
    fs::create_directory(copy);
  else
    std::ofstream(copy).flush();
  check(mount(original.path().c_str(), copy.c_str(), nullptr, MS_BIND | MS_REC, nullptr),
        "cannot lead to " + original.path().string());
}

void put_in_place(const std::string& staging, const fs::path& directory) {
  if (directory != "/")
    return check(mount(staging.c_str(), directory.c_str(), nullptr, MS_MOVE, nullptr),
                 "cannot cover " + directory.string());
  check(chdir(staging.c_str()), "cannot enter the new root");
  check(mount(".", "/", nullptr, MS_MOVE, nullptr), "cannot cover the root");
  check(chroot("."), "cannot change the root");
}

// Covers an existing directory by one in memory that has the same entries and takes new ones.
void cover(const fs::path& directory, const std::string& staging) {
  check(mount("zal-view", staging.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, "mode=755"), "cannot mount in memory");
  for (const auto& entry : fs::directory_iterator(directory))
    mirror(entry, fs::path(staging) / entry.path().filename());
  put_in_place(staging, directory);
}

void make_mount_point(const fs::path& target, const std::string& staging) {
  if (fs::is_directory(target)) return;
  fs::path existing = target;
  while (!fs::is_directory(existing)) existing = existing.parent_path();
  cover(existing, staging);
  fs::create_directories(target);
}

// Kernels before 5.12 cannot do it in one go; there the view is as writable as the host.
void make_all_read_only() {
  mount_attr attributes{};
  attributes.attr_set = MOUNT_ATTR_RDONLY;
  if (mount_setattr(AT_FDCWD, "/", AT_RECURSIVE, &attributes, sizeof attributes) != 0 && errno != ENOSYS)
    fail("cannot make the view read-only");
}

void build_view(const std::vector<Redirection>& redirections, const std::string& writable, const std::string& staging) {
  check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "cannot part from the host's mounts");
  // Taken before anything is covered or becomes read-only, so the clones stay as they are here.
  const UniqueFd writable_clone = clone_of(writable, AT_RECURSIVE);
  std::vector<UniqueFd> sources;
  sources.reserve(redirections.size());
  for (const auto& redirection : redirections) sources.push_back(clone_of(redirection.source, 0));
  for (const auto& redirection : redirections) make_mount_point(redirection.target, staging);
  make_all_read_only();
  mount_clone(writable_clone, writable);
  for (std::size_t i = 0; i < sources.size(); ++i) mount_clone(sources[i], redirections[i].target);
}

}  // namespace

void enter_private_view(const std::vector<Redirection>& redirections, const std::string& writable,
                        const std::string& staging) {
  const fs::path here = fs::current_path();
  enter_namespaces();
  try {
    build_view(redirections, writable, staging);
  } catch (const fs::filesystem_error& e) {
    throw std::runtime_error(std::string("cannot put the view together: ") + e.what());
  }
  check(chdir(here.c_str()), "cannot return to " + here.string());
}

}  // namespace controller
