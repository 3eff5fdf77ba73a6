#include "controller/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "controller/Site.h"
#include "platform/bus/UniqueFd.h"

namespace controller {

namespace {

std::string read_file(const std::string& path) {
  const zal::bus::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  char part[65536];
  ssize_t got = file ? read(file.get(), part, sizeof part) : -1;
  for (; got > 0; got = read(file.get(), part, sizeof part)) text.append(part, static_cast<std::size_t>(got));
  if (got < 0) throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
  return text;
}

void refuse_faulty(const std::string& path, const std::string& fault) {
  if (!fault.empty()) throw std::runtime_error(path + ": " + fault);
}

}  // namespace

std::string read_setup(const std::string& path) {
  std::string text = read_file(path);
  refuse_faulty(path, fault_of_setup(text));
  return text;
}

std::string read_ap_record(const std::string& path) {
  std::string text = read_file(path);
  refuse_faulty(path, fault_of_ap_record(text));
  return text;
}

std::map<zal::MacAddr, std::string> read_ap_records(const std::string& path) {
  const std::string text = read_file(path);
  try {
    return parse_ap_records(text);
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(path + ": " + e.what());
  }
}

}  // namespace controller
