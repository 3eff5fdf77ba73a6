// Stands between this program, its libraries included, and what it does with the files of one directory: notes each
// operation, and lets a chosen one fail or be the process's last. A program that links this has it; until a FileWatch
// lives, everything goes its normal way.
//
// Within the watch nothing is really synced: a process that dies loses nothing that it has written.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace rrm::testing {

enum class FileFault {
  none,
  eio,  // it fails with this error, a write after half of its bytes
  enospc,
  kill_before,   // the process dies before it,
  kill_halfway,  // with half of the bytes written,
  kill_after,    // or right behind it
  gone,          // it fails as with eio, and so does every later one: what is left is what a death would leave
};
const char* name_of(FileFault fault);

// One at a time; the operations of all threads count.
class FileWatch {
 public:
  // The operation of this number, from 1 on, meets with the fault.
  explicit FileWatch(const std::string& directory, std::size_t number = 0, FileFault fault = FileFault::none);
  // Every operation of this text does.
  FileWatch(const std::string& directory, const std::string& operation, FileFault fault);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // What was done so far: "open report_lab.txt", "create x", "append x", "read x", "write x", "sync x" ("." is
  // the directory), "close x", "cut x", "look for x", "lock x", "remove x", "rename x to y".
  std::vector<std::string> operations() const;
};

}  // namespace rrm::testing
