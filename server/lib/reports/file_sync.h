// Writing and reading report files so that nothing that was said to be saved is lost. All functions return 0 or an
// errno value, after a log line.
#pragma once

#include <cerrno>
#include <fstream>
#include <ios>
#include <string>

namespace reports {

// The present errno, or 5 where nobody has set it.
int last_error();

// Flushes and closes the stream, then brings the file to the disk. A file that is gone meanwhile is no failure.
int finalize_ofstream(std::ofstream& stream, const std::string& path);
int fsync_file_path(const std::string& path);
// The same for a directory's entries.
int fsync_directory_path(const std::string& path);

// Logs what a stream has thrown; the error that goes with it.
int stream_failure(const std::ios_base::failure& failure);

// Opens `path` in this mode, has `write` fill it, and brings it to the disk.
template <class Write>
int write_file(const std::string& path, std::ios_base::openmode mode, Write write) {
  errno = 0;
  std::ofstream file;
  file.imbue(std::locale::classic());
  file.exceptions(std::ios_base::badbit | std::ios_base::failbit);
  try {
    file.open(path, mode);
    write(file);
  } catch (const std::ios_base::failure& failure) {
    return stream_failure(failure);
  }
  return finalize_ofstream(file, path);
}

// A file that is read line by line.
class LineReader {
 public:
  explicit LineReader(const std::string& path);
  // Of the opening.
  int error() const { return error_; }

  // Hands `use` line by line, without the LF, until it answers false or the file ends.
  template <class Use>
  int for_each(Use use) {
    try {
      std::string line;
      while (std::getline(file_, line) && use(line)) {
      }
    } catch (const std::ios_base::failure& failure) {
      if (!file_.eof()) return stream_failure(failure);
    }
    errno = 0;
    return 0;
  }

 private:
  std::ifstream file_;
  int error_ = 0;
};

template <class Use>
int for_each_line(const std::string& path, Use use) {
  LineReader reader(path);
  return reader.error() != 0 ? reader.error() : reader.for_each(use);
}

}  // namespace reports
