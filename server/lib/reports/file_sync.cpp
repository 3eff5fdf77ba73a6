#include "reports/file_sync.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

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

}  // namespace

int last_error() {
  return errno != 0 ? errno : EIO;
}

int finalize_ofstream(std::ofstream& stream, const std::string& path) {
  errno = 0;
  try {
    stream.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    if (stream.is_open()) {
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
