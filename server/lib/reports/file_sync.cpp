#include "reports/file_sync.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "core/log.h"

namespace reports {

using enum rrm::LogLevel;

namespace {

int failed(const char* what, const std::string& path) {
  const int error = last_error();
  RRM_LOG(LOG_ERROR, "%s \"%s\" failed: errno=%d (%s)", what, path.c_str(), error, std::strerror(error));
  return error;
}

// Takes the descriptor over.
int sync_and_close(int fd, const char* what, const std::string& path) {
  int error = ::fsync(fd) == 0 ? 0 : failed(what, path);
  if (::close(fd) != 0 && error == 0) error = failed(what, path);
  return error;
}

// Behind the last LF, sought backward from the end; -1 for a file that cannot be read.
off_t end_of_last_line(int fd, off_t size) {
  std::array<char, 4096> block{};
  while (size > 0) {
    const off_t start = std::max<off_t>(size - static_cast<off_t>(block.size()), 0);
    const auto length = static_cast<std::size_t>(size - start);
    if (::pread(fd, block.data(), length, start) != size - start) return -1;
    const std::size_t end = std::string_view(block.data(), length).rfind('\n');
    if (end != std::string_view::npos) return start + static_cast<off_t>(end) + 1;
    size = start;
  }
  return 0;
}

int cut_unfinished_line(int fd, off_t size, const std::string& path, off_t& length) {
  errno = 0;
  length = end_of_last_line(fd, size);
  if (length < 0) return failed("read", path);
  if (length == size) return 0;
  if (::ftruncate(fd, length) != 0) return failed("truncate", path);
  RRM_LOG(LOG_WARNING, "Cut an unfinished line off \"%s\".", path.c_str());
  return 0;
}

}  // namespace

int last_error() {
  return errno != 0 ? errno : EIO;
}

int finalize_ofstream(std::ofstream& stream, const std::string& path) {
  errno = 0;
  try {
    if (stream.is_open()) {
      stream.exceptions(std::ios_base::badbit | std::ios_base::failbit);
      stream.flush();
      stream.close();
    }
  } catch (const std::ios_base::failure& failure) {
    const int error = last_error();
    RRM_LOG(LOG_ERROR, "close/flush \"%s\": %s errno=%d", path.c_str(), failure.what(), error);
    return error;
  }
  return fsync_file_path(path);
}

int fsync_file_path(const std::string& path) {
  if (path.empty()) return EINVAL;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) return sync_and_close(fd, "fsync", path);
  return errno == ENOENT ? 0 : failed("open for fsync", path);
}

int fsync_directory_path(const std::string& path) {
  if (path.empty()) return EINVAL;
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return fd >= 0 ? sync_and_close(fd, "fsync dir", path) : failed("open dir for fsync", path);
}

int keep_whole_lines(const std::string& path, off_t& length) {
  const int fd = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  length = fd < 0 && errno == ENOENT ? 0 : -1;
  if (fd < 0) return 0;
  struct stat status {};
  int error = 0;
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
    error = cut_unfinished_line(fd, status.st_size, path, length);
  ::close(fd);
  return error;
}

void take_back(const std::string& path, off_t length) {
  if (length >= 0 && ::truncate(path.c_str(), length) != 0 && errno != ENOENT) failed("truncate", path);
}

int stream_failure(const std::ios_base::failure& failure) {
  if (errno == 0) {
    RRM_LOG(LOG_ERROR, "%s", failure.what());
    return EIO;
  }
  const int error = errno;
  RRM_LOG(LOG_ERROR, "%s, errno = %d: %s", failure.what(), error, std::strerror(error));
  return error;
}

LineReader::LineReader(const std::string& path) {
  errno = 0;
  file_.exceptions(std::ios_base::badbit | std::ios_base::failbit);
  try {
    file_.open(path);
  } catch (const std::ios_base::failure& failure) {
    error_ = stream_failure(failure);
  }
}

}  // namespace reports
