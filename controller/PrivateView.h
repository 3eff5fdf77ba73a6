// A view of the file system for one process and its children: some directories lead elsewhere, and everything outside
// the given directory is read-only. The host sees nothing of it, and it ends with the process.
//
// It is a mount namespace, made directly by a process that may, and within a user namespace of its own by any other.
// A target need not exist on the host: the deepest directory on the way to it that does exist is then covered by a
// temporary one in memory, in which every entry leads to its original.
#pragma once

#include <string>
#include <vector>

namespace controller {

struct Redirection {
  std::string target;  // an absolute path
  std::string source;  // an existing directory
};

// Moves the calling process, which must have one thread, into the view. `writable` is a directory that stays writable;
// `staging` an existing directory to put covers together on. Throws std::runtime_error if the system does not let it.
void enter_private_view(const std::vector<Redirection>& redirections, const std::string& writable,
                        const std::string& staging);

}  // namespace controller
