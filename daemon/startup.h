// The steps of the start that come before the service: each is one function, so that main is a list of them. All on the
// main thread, before any other exists.
#pragma once

#include <string>
#include <vector>

inline constexpr const char* process_name = "zal_rrm";

// The controller starts this process under exactly that name; a path before it counts as a difference.
bool has_awaited_name(const char* argv0);

// The CPU numbers of /common/scpu in the controller's database, ascending. Empty, with the reason told, if the text is
// no such database; an empty list is none.
struct ScpuList {
  std::vector<int> cpus;
  const char* failure = nullptr;
};
ScpuList read_scpu_list(const std::string& database);

// What cannot be opened or read is empty.
std::string read_whole_file(const char* path);

// Reads the database file, logs a failure, and answers the smallest number, 0 if there is none.
int choose_cpu();

// Binds this thread, and so every thread that it starts later, to one CPU. A failure is logged and not fatal.
void pin_to_cpu(int cpu);

// The directories that the server writes to. A failure is logged and not fatal.
void create_directories();
