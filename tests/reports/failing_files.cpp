#include "reports/failing_files.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

namespace rrm::testing {
namespace {

struct Watch {
  std::mutex mutex;
  std::string directory;
  std::map<int, std::string> files;  // by descriptor
  std::vector<std::string> operations;
  std::size_t fault_at = 0;
  std::string fault_of;
  FileFault fault = FileFault::none;
  bool is_gone = false;
};

std::atomic<bool> watching{false};

// Never destroyed: the libraries close their files after everything else.
Watch& watch() {
  static auto* const the_watch = new Watch;
  return *the_watch;
}

// The name within the directory, "." for itself; empty for what lies elsewhere.
std::string watched_name(const char* path) {
  if (!watching || path == nullptr) return {};
  const std::string name = path;
  const std::lock_guard lock(watch().mutex);
  const std::string& directory = watch().directory;
  if (name == directory) return ".";
  return name.starts_with(directory + "/") ? name.substr(directory.size() + 1) : std::string();
}

std::string watched_name(int fd) {
  if (!watching) return {};
  const std::lock_guard lock(watch().mutex);
  const auto file = watch().files.find(fd);
  return file != watch().files.end() ? file->second : std::string();
}

void remember(int fd, const std::string& name) {
  if (fd < 0) return;
  const std::lock_guard lock(watch().mutex);
  watch().files[fd] = name;
}

void forget(int fd) {
  const std::lock_guard lock(watch().mutex);
  watch().files.erase(fd);
}

FileFault note(const std::string& operation) {
  const std::lock_guard lock(watch().mutex);
  watch().operations.push_back(operation);
  if (watch().is_gone) return FileFault::gone;
  const bool is_meant = watch().operations.size() == watch().fault_at || operation == watch().fault_of;
  if (!is_meant) return FileFault::none;
  watch().is_gone = watch().fault == FileFault::gone;
  return watch().is_gone ? FileFault::eio : watch().fault;
}

bool is_gone() {
  const std::lock_guard lock(watch().mutex);
  return watch().is_gone;
}

[[noreturn]] void die() {
  kill(getpid(), SIGKILL);
  while (true) pause();
}

// Notes the operation and does it, or what is planned for it. `half` is what is left of it when it fails.
template <class Result, class Do, class Half>
Result operate(const std::string& operation, Result failure, Do act, Half half) {
  const FileFault fault = note(operation);
  if (fault == FileFault::none) return act();
  if (fault == FileFault::kill_before) die();
  if (fault == FileFault::kill_after) {
    act();
    die();
  }
  if (fault != FileFault::gone) half();
  if (fault == FileFault::kill_halfway) die();
  errno = fault == FileFault::enospc ? ENOSPC : EIO;
  return failure;
}

void nothing() {}

const char* verb_of(int flags) {
  if ((flags & O_APPEND) != 0) return "append ";
  return (flags & O_TRUNC) != 0 ? "create " : "open ";
}

const char* verb_of(const char* mode) {
  if (*mode == 'a') return "append ";
  return *mode == 'w' ? "create " : "open ";
}

template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int open_in(int directory, const char* path, int flags, mode_t mode) {
  const auto really = [=] { return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode)); };
  const std::string name = watched_name(path);
  if (name.empty()) return really();
  return operate(
      verb_of(flags) + name, -1,
      [&] {
        const int fd = really();
        remember(fd, name);
        return fd;
      },
      nothing);
}

FILE* open_stream(const char* path, const char* mode) {
  static auto* const really = next<FILE*(const char*, const char*)>("fopen64");
  const std::string name = watched_name(path);
  if (name.empty()) return really(path, mode);
  return operate(
      verb_of(mode) + name, static_cast<FILE*>(nullptr),
      [&] {
        FILE* const file = really(path, mode);
        if (file != nullptr) remember(fileno(file), name);
        return file;
      },
      nothing);
}

int look_for(const char* path, struct stat* status, int flags) {
  const auto act = [=] { return static_cast<int>(syscall(SYS_newfstatat, AT_FDCWD, path, status, flags)); };
  const std::string name = watched_name(path);
  return name.empty() ? act() : operate("look for " + name, -1, act, nothing);
}

mode_t mode_of(int flags, va_list args) {
  return (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
}

}  // namespace

const char* name_of(FileFault fault) {
  switch (fault) {
    case FileFault::none:
      return "none";
    case FileFault::eio:
      return "EIO";
    case FileFault::enospc:
      return "ENOSPC";
    case FileFault::kill_before:
      return "killed before";
    case FileFault::kill_halfway:
      return "killed halfway";
    case FileFault::kill_after:
      return "killed after";
    case FileFault::gone:
      return "gone";
  }
  return "?";
}

FileWatch::FileWatch(const std::string& directory, std::size_t number, FileFault fault) {
  const std::lock_guard lock(watch().mutex);
  watch().directory = directory;
  watch().files.clear();
  watch().operations.clear();
  watch().fault_at = number;
  watch().fault_of.clear();
  watch().fault = fault;
  watch().is_gone = false;
  watching = true;
}

FileWatch::FileWatch(const std::string& directory, const std::string& operation, FileFault fault)
    : FileWatch(directory, 0, fault) {
  const std::lock_guard lock(watch().mutex);
  watch().fault_of = operation;
}

FileWatch::~FileWatch() {
  watching = false;
}

std::vector<std::string> FileWatch::operations() const {
  const std::lock_guard lock(watch().mutex);
  return watch().operations;
}

}  // namespace rrm::testing

// The C library's own functions, as all that is linked to this program sees them.

using namespace rrm::testing;

extern "C" {

int open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = mode_of(flags, args);
  va_end(args);
  return open_in(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = mode_of(flags, args);
  va_end(args);
  return open_in(AT_FDCWD, path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = mode_of(flags, args);
  va_end(args);
  return open_in(directory, path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
  return open_stream(path, mode);
}

FILE* fopen64(const char* path, const char* mode) {
  return open_stream(path, mode);
}

int fclose(FILE* file) {
  static auto* const really = next<int(FILE*)>("fclose");
  const int fd = file != nullptr ? fileno(file) : -1;
  const std::string name = watched_name(fd);
  if (name.empty()) return really(file);
  forget(fd);
  if (is_gone()) return really(file);
  const auto act = [&] { return really(file); };
  return operate("close " + name, EOF, act, act);
}

int close(int fd) {
  const auto act = [fd] { return static_cast<int>(syscall(SYS_close, fd)); };
  const std::string name = watched_name(fd);
  if (name.empty()) return act();
  forget(fd);
  if (is_gone()) return act();
  return operate("close " + name, -1, act, act);
}

ssize_t read(int fd, void* bytes, size_t count) {
  const auto act = [=] { return static_cast<ssize_t>(syscall(SYS_read, fd, bytes, count)); };
  const std::string name = watched_name(fd);
  return name.empty() ? act() : operate("read " + name, static_cast<ssize_t>(-1), act, nothing);
}

ssize_t pread(int fd, void* bytes, size_t count, off_t offset) {
  const auto act = [=] { return static_cast<ssize_t>(syscall(SYS_pread64, fd, bytes, count, offset)); };
  const std::string name = watched_name(fd);
  return name.empty() ? act() : operate("read " + name, static_cast<ssize_t>(-1), act, nothing);
}

int ftruncate(int fd, off_t length) noexcept {
  const auto act = [=] { return static_cast<int>(syscall(SYS_ftruncate, fd, length)); };
  const std::string name = watched_name(fd);
  return name.empty() ? act() : operate("cut " + name, -1, act, nothing);
}

ssize_t write(int fd, const void* bytes, size_t count) {
  const auto act = [=] { return static_cast<ssize_t>(syscall(SYS_write, fd, bytes, count)); };
  const std::string name = watched_name(fd);
  if (name.empty()) return act();
  return operate("write " + name, static_cast<ssize_t>(-1), act, [&] { syscall(SYS_write, fd, bytes, count / 2); });
}

ssize_t writev(int fd, const struct iovec* parts, int count) {
  const auto act = [=] { return static_cast<ssize_t>(syscall(SYS_writev, fd, parts, count)); };
  const std::string name = watched_name(fd);
  if (name.empty()) return act();
  return operate("write " + name, static_cast<ssize_t>(-1), act,
                 [&] { syscall(SYS_write, fd, parts[0].iov_base, (parts[0].iov_len + 1) / 2); });
}

int fsync(int fd) {
  const std::string name = watched_name(fd);
  if (name.empty()) return static_cast<int>(syscall(SYS_fsync, fd));
  return operate(
      "sync " + name, -1, [] { return 0; }, nothing);
}

int flock(int fd, int operation) noexcept {
  const auto act = [=] { return static_cast<int>(syscall(SYS_flock, fd, operation)); };
  const std::string name = watched_name(fd);
  return name.empty() ? act() : operate("lock " + name, -1, act, nothing);
}

int stat(const char* path, struct stat* status) noexcept {
  return look_for(path, status, 0);
}

int lstat(const char* path, struct stat* status) noexcept {
  return look_for(path, status, AT_SYMLINK_NOFOLLOW);
}

int rename(const char* from, const char* to) noexcept {
  const auto act = [=] { return static_cast<int>(syscall(SYS_rename, from, to)); };
  const std::string name = watched_name(from);
  return name.empty() ? act() : operate("rename " + name + " to " + watched_name(to), -1, act, nothing);
}

int unlink(const char* path) noexcept {
  const auto act = [=] { return static_cast<int>(syscall(SYS_unlink, path)); };
  const std::string name = watched_name(path);
  return name.empty() ? act() : operate("remove " + name, -1, act, nothing);
}

}  // extern "C"
