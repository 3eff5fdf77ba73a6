#include "controller/StateDir.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

namespace controller {

namespace fs = std::filesystem;

namespace {

// The daemon pins itself to a CPU of this list; the lowest that this process may use is a CPU that exists.
std::string database_text() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  std::size_t cpu = 0;
  while (cpu + 1 < CPU_SETSIZE && !CPU_ISSET(cpu, &allowed)) ++cpu;
  return "{\"common\":{\"scpu\":[" + std::to_string(cpu) + "]}}\n";
}

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

void write_pid(int fd) {
  const std::string pid = std::to_string(getpid()) + "\n";
  if (ftruncate(fd, 0) != 0 || write(fd, pid.data(), pid.size()) != static_cast<ssize_t>(pid.size()))
    fail("cannot write the lock");
}

}  // namespace

StateDir::StateDir(const fs::path& root) {
  if (root.empty()) throw std::runtime_error("the state directory has no name");
  root_ = fs::absolute(root).lexically_normal();
}

zal::bus::UniqueFd StateDir::occupy() const {
  make_directories();
  zal::bus::UniqueFd lock(open(lock_file().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!lock) fail("cannot open " + lock_file().string());
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) fail("cannot lock " + lock_file().string());
    std::string pid;
    std::ifstream(lock_file()) >> pid;
    throw std::runtime_error("a controller runs in " + root_.string() + " already, pid " + pid);
  }
  write_pid(lock.get());
  remove_sockets();
  make_database();
  return lock;
}

// A directory that was there before keeps its permissions: it may be anything.
void StateDir::make_directories() const {
  std::error_code error;
  const bool is_new = !fs::exists(root_, error);
  for (const fs::path& directory : {root_, etc(), data(), view()}) {
    fs::create_directories(directory, error);
    if (error) throw std::runtime_error("cannot make " + directory.string() + ": " + error.message());
  }
  if (is_new) fs::permissions(root_, fs::perms::owner_all, error);
  if (error) throw std::runtime_error("cannot keep others out of " + root_.string() + ": " + error.message());
}

void StateDir::make_database() const {
  const fs::path database = etc() / "db.json";
  if (fs::exists(database)) return;
  std::ofstream file(database);
  file << database_text();
  if (!file.flush()) throw std::runtime_error("cannot write " + database.string());
}

void StateDir::remove_sockets() const {
  std::error_code ignored;
  fs::remove(bus_socket(), ignored);
  fs::remove(control_socket(), ignored);
}

}  // namespace controller
