#include "startup.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "trace.h"
#include "zal/cfg.h"

namespace {

constexpr const char* database_path = "/etc/zal/db.json";
constexpr int mask_bits = CPU_SETSIZE;
static_assert(mask_bits == 1024);

struct ReleaseTree {
  void operator()(zal::cfg_t* tree) const { zal::cfg_release(tree); }
};
struct ReleaseIterator {
  void operator()(zal::cfg_array_iterator_t* iterator) const { zal::cfg_release_array_iterator(iterator); }
};

ScpuList failed(const char* reason) {
  return {{}, reason};
}

ScpuList read_numbers(zal::cfg_array_iterator_t* iterator) {
  ScpuList list;
  while (const zal::cfg_t* element = zal::cfg_next_array_iterator(iterator)) {
    int cpu = 0;
    if (!zal::cfg_object_to_int(element, &cpu) || cpu < 0) return failed("non-numeric cpu id value");
    list.cpus.push_back(cpu);
  }
  std::sort(list.cpus.begin(), list.cpus.end());
  return list;
}

const char* set_or_unset(int cpu, const cpu_set_t& mask) {
  return cpu < mask_bits && CPU_ISSET(static_cast<std::size_t>(cpu), &mask) ? "set" : "unset";
}

void log_current_affinity(int cpu) {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  if (sched_getaffinity(0, sizeof mask, &mask) != 0)
    trace.warn("Cannot get current affinity: %s", std::strerror(errno));
  else
    trace.sys("Current affinity: %d: %s", cpu, set_or_unset(cpu, mask));
}

void make_directory(const char* command, const char* complaint) {
  if (std::system(command) < 0) trace.error("%s", complaint);
}

}  // namespace

bool has_awaited_name(const char* argv0) {
  return argv0 && std::strcmp(argv0, process_name) == 0;
}

// An inserter keeps the exceptions of a buffer to itself: a directory opens, but cannot be read.
std::string read_whole_file(const char* path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

ScpuList read_scpu_list(const std::string& database) {
  if (database.empty()) return failed("no file");
  const std::unique_ptr<zal::cfg_t, ReleaseTree> root(zal::cfg_parse_buffer(database.data(), database.size()));
  if (!root) return failed("no data");
  const zal::cfg_t* const scpu = zal::cfg_get_subtree_from_path(root.get(), "/common/scpu");
  if (!scpu) return failed("no scpu data");
  const std::unique_ptr<zal::cfg_array_iterator_t, ReleaseIterator> iterator(zal::cfg_alloc_array_iterator(scpu));
  if (!iterator) return failed("can`t allocate iterator");
  return read_numbers(iterator.get());
}

int choose_cpu() {
  const ScpuList list = read_scpu_list(read_whole_file(database_path));
  if (list.failure) trace.warn("[%s] while reading scpu list happend, run with default", list.failure);
  return list.cpus.empty() ? 0 : list.cpus.front();
}

void pin_to_cpu(int cpu) {
  log_current_affinity(cpu);
  cpu_set_t mask;
  CPU_ZERO(&mask);
  if (cpu < mask_bits) CPU_SET(static_cast<std::size_t>(cpu), &mask);
  if (sched_setaffinity(0, sizeof mask, &mask) != 0)
    trace.warn("Cannot set affinity to CPU %d: %s", cpu, std::strerror(errno));
  else
    trace.sys("Set affinity to CPU %d: %s", cpu, set_or_unset(cpu, mask));
}

// The doubled slash is part of the paths as the controller knows them.
void create_directories() {
  make_directory("mkdir -p /mnt/data/zal//morvane-reports/", "Unable to create reports directory");
  make_directory("mkdir -p /mnt/data/zal//morvane_domains_backup/",
                 "Unable to create morvane domains backup directory");
}
