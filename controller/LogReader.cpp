#include "controller/LogReader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace controller {

using zal::bus::UniqueFd;

namespace {

UniqueFd open_file(const std::filesystem::path& path) {
  return UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

bool is_same_file(int fd, const std::filesystem::path& path) {
  struct stat opened {};
  struct stat named {};
  return fstat(fd, &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
         opened.st_ino == named.st_ino;
}

}  // namespace

// The directory is watched, not the file, so that a new file under the name is noticed too.
LogReader::LogReader(const std::filesystem::path& path)
    : path_(path), file_(open_file(path)), watch_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!file_) throw std::runtime_error("no log " + path.string() + ": " + std::strerror(errno));
  inotify_add_watch(watch_.get(), path.parent_path().c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
}

std::optional<std::string> LogReader::next_line() {
  for (;;) {
    const auto end = rest_.find('\n');
    if (end != std::string::npos) {
      std::string line = rest_.substr(0, end);
      rest_.erase(0, end + 1);
      return line;
    }
    if (!read_more() && !open_renewed()) return std::nullopt;
  }
}

bool LogReader::read_more() {
  char part[65536];
  const ssize_t got = read(file_.get(), part, sizeof part);
  if (got > 0) rest_.append(part, static_cast<std::size_t>(got));
  return got > 0;
}

// A renamed log is read to its end before the new one is begun.
bool LogReader::open_renewed() {
  if (is_same_file(file_.get(), path_)) return false;
  UniqueFd renewed = open_file(path_);
  if (!renewed || read_more()) return static_cast<bool>(renewed);
  file_ = std::move(renewed);
  return true;
}

void LogReader::wait(int milliseconds) {
  pollfd fd{watch_.get(), POLLIN, 0};
  if (poll(&fd, 1, milliseconds) <= 0) return;
  char events[4096];
  while (read(watch_.get(), events, sizeof events) > 0) {
  }
}

}  // namespace controller
