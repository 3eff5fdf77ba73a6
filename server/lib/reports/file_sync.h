// Writing and reading report files so that nothing that was said to be saved is lost. All functions return 0 or an
// errno value, after a log line.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <fstream>
#include <ios>
#include <locale>
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

// A file that lines are appended to ends at a whole line: one without its LF was cut off by a crash, and the next would
// run on from it. `length` becomes the file's, 0 if there is no such file; -1 for what is no plain file or cannot be
// opened, which is left to the writing.
int keep_whole_lines(const std::string& path, off_t& length);
// Brings it back to that length.
void take_back(const std::string& path, off_t length);

// Appends what `write` writes, all of it or nothing.
template <class Write>
int append_to_file(const std::string& path, Write write) {
  off_t length = -1;
  if (const int error = keep_whole_lines(path, length)) return error;
  const int error = write_file(path, std::ios_base::app, write);
  if (error != 0) take_back(path, length);
  return error;
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
